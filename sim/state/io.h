// Controller and tool I/O: digital channels that are each either an input or
// an output, the supply voltages, and the RS485 port modes.
//
// Inputs are not wired to anything that changes: a channel in input mode
// reads a fixed pattern (odd-numbered channels high, even-numbered low), so a
// client can tell an input from an output it has just written.
#pragma once

#include <array>

namespace sim {

// Channel modes as the controller numbers them.
inline constexpr int k_io_mode_input = 0;
inline constexpr int k_io_mode_output = 1;

// Voltage codes 0..3 (0 V, 5 V, 12 V, 24 V).
inline constexpr int k_voltage_types = 4;

template <std::size_t channels> struct io_bank {
    std::array<int, channels> mode{};   // k_io_mode_input or k_io_mode_output
    std::array<int, channels> output{}; // level driven in output mode, 0 or 1

    static constexpr std::size_t size = channels;
    // The fixed level the outside world applies to input `index` (0-based).
    static int input_level(std::size_t index) { return index % 2 == 0 ? 1 : 0; }
    // What channel `index` (0-based) reads: its input or the level it drives.
    int level(std::size_t index) const {
        return mode[index] == k_io_mode_output ? output[index] : input_level(index);
    }
};

// An RS485 port: 0 plain serial, 1 Modbus-RTU master; the time-out (in the
// controller's units) exists only in Modbus-RTU mode.
struct rs485_port {
    int mode = 0;
    int baudrate = 115200;
    int modbus_timeout = 0;
};

struct io_store {
    io_bank<4> controller;
    io_bank<2> tool;
    int controller_voltage = 3; // 24 V
    int tool_voltage = 0;       // off
    rs485_port controller_rs485;
    rs485_port tool_rs485;
};

} // namespace sim
