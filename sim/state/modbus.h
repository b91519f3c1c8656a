// Modbus: one in-memory device (coils and registers) per port.
#pragma once

namespace sim {

struct modbus_store {};

} // namespace sim
