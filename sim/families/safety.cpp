// Safety configuration: electronic fences and virtual walls.
#include "sim/families/family.h"

namespace sim {

const family safety_family{};

} // namespace sim
