// Modbus: the controller as bus master. Each bus (the two RS485 ports in
// Modbus-RTU mode, and the Modbus-TCP link) reaches in-memory peripherals,
// one per device address, created on first use.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace sim {

// Bus numbers in the "port" key of the read and write commands.
inline constexpr int k_modbus_controller_rs485 = 0;
inline constexpr int k_modbus_tool_rs485 = 1;
inline constexpr int k_modbus_tcp_bus = 2;

// One peripheral: coils and discrete inputs are bits, registers 16-bit
// words; an address never written reads 0 (coils, holding registers) or
// the peripheral's own input pattern (discrete inputs, input registers).
struct modbus_device {
    std::map<int, bool> coils;
    std::map<int, std::uint16_t> holding;
};

struct modbus_rtu_port {
    bool open = false;
    int baudrate = 0;
    int timeout = 0; // the controller's unit (100 ms steps), stored as given
};

struct modbus_tcp_link {
    bool open = false;
    std::string ip;
    int port = 0;
    int timeout = 0;
};

struct modbus_store {
    std::map<int, modbus_rtu_port> rtu; // by RS485 port number
    modbus_tcp_link tcp;
    std::map<std::pair<int, int>, modbus_device> devices; // by (bus, device address)
};

} // namespace sim
