// Safety configuration: electronic fences and virtual walls, stored and
// returned.
#pragma once

namespace sim {

struct safety_store {};

} // namespace sim
