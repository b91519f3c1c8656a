// Controller and tool I/O: digital and analog channels and their modes.
#pragma once

namespace sim {

struct io_store {};

} // namespace sim
