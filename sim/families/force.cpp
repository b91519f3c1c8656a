// Force sensor, drag teaching and force-position control.
#include "sim/families/family.h"

namespace sim {

const family force_family{};

} // namespace sim
