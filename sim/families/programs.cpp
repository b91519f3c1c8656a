// Online programming: projects and stored trajectories.
#include "sim/families/family.h"

namespace sim {

const family program_family{};

} // namespace sim
