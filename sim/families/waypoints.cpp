// Global waypoints.
#include "sim/families/family.h"

namespace sim {

const family waypoint_family{};

} // namespace sim
