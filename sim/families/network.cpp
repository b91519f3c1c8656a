// Controller network settings: stored and returned, never applied.
#include "sim/families/family.h"

namespace sim {

const family network_family{};

} // namespace sim
