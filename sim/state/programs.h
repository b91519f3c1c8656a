// Online programming: downloaded programs and stored trajectories, and the
// global waypoints.
#pragma once

namespace sim {

struct program_store {};

} // namespace sim
