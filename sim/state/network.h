// Network settings: stored and returned, never applied.
#pragma once

namespace sim {

struct network_store {};

} // namespace sim
