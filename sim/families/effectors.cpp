// End effectors: gripper and dexterous hand.
#include "sim/families/family.h"

namespace sim {

const family effectors_family{};

} // namespace sim
