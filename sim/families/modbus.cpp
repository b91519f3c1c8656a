// Modbus RTU and TCP peripherals: one in-memory device per port.
#include "sim/families/family.h"

namespace sim {

const family modbus_family{};

} // namespace sim
