// Controller and tool I/O.
#include "sim/families/family.h"

namespace sim {

const family io_family{};

} // namespace sim
