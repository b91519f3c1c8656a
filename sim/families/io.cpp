// Controller and tool I/O. Every value on the wire is an unscaled integer;
// channels are numbered from 1 ("IO_Num").
#include "sim/families/family.h"

namespace sim {

namespace {

// The 0-based index of a channel number in a bank, when it names one.
template <std::size_t n> std::optional<std::size_t> channel(const cJSON *request) {
    const auto number = json_int(request, "IO_Num");
    if (!number || *number < 1 || *number > static_cast<int>(n)) return std::nullopt;
    return static_cast<std::size_t>(*number - 1);
}

bool is_level(std::optional<int> value) { return value && (*value == 0 || *value == 1); }
bool is_mode(std::optional<int> value) {
    return value && (*value == k_io_mode_input || *value == k_io_mode_output);
}
bool is_voltage(std::optional<int> value) {
    return value && *value >= 0 && *value < k_voltage_types;
}

// Sets the mode of a channel from the request key `mode_key`; an output
// switched to input drops its level.
template <std::size_t n>
bool set_mode(io_bank<n> &bank, const cJSON *request, const char *mode_key) {
    const auto index = channel<n>(request);
    const auto mode = json_int(request, mode_key);
    if (!index || !is_mode(mode)) return false;
    bank.mode[*index] = *mode;
    if (*mode != k_io_mode_output) bank.output[*index] = 0;
    return true;
}

// Only a channel in output mode can be driven.
template <std::size_t n> bool set_output(io_bank<n> &bank, const cJSON *request) {
    const auto index = channel<n>(request);
    const auto level = json_int(request, "state");
    if (!index || !is_level(level) || bank.mode[*index] != k_io_mode_output) return false;
    bank.output[*index] = *level;
    return true;
}

void set_io_mode(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_state", set_mode(c.target.io.controller, request, "IO_mode"));
}

void set_do_state(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_state", set_output(c.target.io.controller, request));
}

void get_io_state(const cJSON *request, cJSON *reply, command_context &c) {
    const auto &bank = c.target.io.controller;
    const auto index = channel<4>(request);
    if (!index) {
        cJSON_AddStringToObject(reply, "error", "no such channel");
        return;
    }
    cJSON_AddNumberToObject(reply, "IO_Num", static_cast<double>(*index + 1));
    cJSON_AddNumberToObject(reply, "IO_Mode", bank.mode[*index]);
    cJSON_AddNumberToObject(reply, "IO_state", bank.level(*index));
}

// Inputs of channels in output mode, and outputs of channels in input mode,
// read 0.
void get_io_input(const cJSON *, cJSON *reply, command_context &c) {
    const auto &bank = c.target.io.controller;
    std::vector<int> levels;
    for (std::size_t i = 0; i < bank.size; ++i)
        levels.push_back(bank.mode[i] == k_io_mode_input ? bank.level(i) : 0);
    json_add_ints(reply, "DI", levels);
}

void get_io_output(const cJSON *, cJSON *reply, command_context &c) {
    const auto &bank = c.target.io.controller;
    std::vector<int> levels;
    for (std::size_t i = 0; i < bank.size; ++i)
        levels.push_back(bank.mode[i] == k_io_mode_output ? bank.output[i] : 0);
    json_add_ints(reply, "DO", levels);
}

void set_voltage(const cJSON *request, cJSON *reply, command_context &c) {
    const auto type = json_int(request, "voltage_type");
    if (is_voltage(type)) c.target.io.controller_voltage = *type;
    cJSON_AddBoolToObject(reply, "state", is_voltage(type));
}

void get_voltage(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "voltage_type", c.target.io.controller_voltage);
}

void set_tool_do_state(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_state", set_output(c.target.io.tool, request));
}

// The tool channel's mode travels under "state".
void set_tool_io_mode(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_state", set_mode(c.target.io.tool, request, "state"));
}

void get_tool_io_state(const cJSON *, cJSON *reply, command_context &c) {
    const auto &bank = c.target.io.tool;
    std::vector<int> modes, levels;
    for (std::size_t i = 0; i < bank.size; ++i) {
        modes.push_back(bank.mode[i]);
        levels.push_back(bank.level(i));
    }
    json_add_ints(reply, "IO_Mode", modes);
    json_add_ints(reply, "IO_state", levels);
}

void set_tool_voltage(const cJSON *request, cJSON *reply, command_context &c) {
    const auto type = json_int(request, "voltage_type");
    if (is_voltage(type)) c.target.io.tool_voltage = *type;
    cJSON_AddBoolToObject(reply, "state", is_voltage(type));
}

void get_tool_voltage(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "voltage_type", c.target.io.tool_voltage);
}

// "modbus_timeout" is left out when the port is not a Modbus-RTU master.
void add_rs485(cJSON *reply, const char *mode_key, const rs485_port &port) {
    cJSON_AddNumberToObject(reply, mode_key, port.mode);
    cJSON_AddNumberToObject(reply, "baudrate", port.baudrate);
    if (port.mode == 1) cJSON_AddNumberToObject(reply, "modbus_timeout", port.modbus_timeout);
}

void get_controller_rs485(const cJSON *, cJSON *reply, command_context &c) {
    add_rs485(reply, "controller_RS485_mode", c.target.io.controller_rs485);
}

void get_tool_rs485(const cJSON *, cJSON *reply, command_context &c) {
    add_rs485(reply, "tool_RS485_mode", c.target.io.tool_rs485);
}

constexpr command_row rows[] = {
    {"set_IO_mode", "set_IO_mode", set_io_mode},
    {"set_DO_state", "set_DO_state", set_do_state},
    {"get_IO_state", "IO_state", get_io_state},
    {"get_IO_input", "IO_input_state", get_io_input},
    {"get_IO_output", "IO_output_state", get_io_output},
    {"set_voltage", "set_voltage", set_voltage},
    {"get_voltage", "voltage_state", get_voltage},
    {"set_tool_DO_state", "set_tool_DO_state", set_tool_do_state},
    {"set_tool_IO_mode", "set_tool_IO_mode", set_tool_io_mode},
    {"get_tool_IO_state", "tool_IO_state", get_tool_io_state},
    {"set_tool_voltage", "set_tool_voltage", set_tool_voltage},
    {"get_tool_voltage", "tool_voltage_state", get_tool_voltage},
    {"get_controller_RS485_mode", "get_controller_RS485_mode", get_controller_rs485},
    {"get_tool_RS485_mode", "get_tool_RS485_mode", get_tool_rs485},
};

} // namespace

const family io_family{rows};

} // namespace sim
