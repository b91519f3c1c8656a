// Lift and expansion axes.
#include "sim/families/family.h"

namespace sim {

const family lift_family{};

} // namespace sim
