// Controller and tool I/O, supply voltages and RS485 port modes; every value an unscaled integer.
#include "core/command.h"

// Irregular: top-level keys, unlabelled lines; a missing Modbus time-out (not RTU) gives 0, kept.
extern "C" KA_API int parse_rs485(const char *text, ka_reply_field *entries, int count) {
    return parse_fields(
        {nullptr, 2,
         "it is not in Modbus-RTU mode, and the modbus_timeout field does not exist.\n"},
        text, entries, count);
}

namespace {

using cmd::as;

// The RS485 replies read with parse_rs485's tolerance.
constexpr cmd::query_command rs485_query(cmd::query_command q) {
    q.parse = [](const char *, const char *text, ka_reply_field *e, int n) {
        return parse_rs485(text, e, n);
    };
    return q;
}

// clang-format off
constexpr auto io_mode = cmd::set<"set_IO_mode">("set_state", nullptr, m_nOutTime, {{"IO_Num"}, {"IO_mode"}});
constexpr auto do_state = cmd::set<"set_DO_state">("set_state", nullptr, m_nOutTime, {{"IO_Num"}, {"state"}});
constexpr auto tool_do_state = cmd::set<"set_tool_DO_state">("set_state", nullptr, m_nOutTime, {{"IO_Num"}, {"state"}});
// The controller takes the tool channel's mode under "state".
constexpr auto tool_io_mode = cmd::set<"set_tool_IO_mode">("set_state", nullptr, m_nOutTime, {{"IO_Num"}, {"state"}});
// The voltage setters answer under "state", not "set_state".
constexpr auto voltage = cmd::set<"set_voltage">("state", nullptr, m_nOutTime, {{"voltage_type"}});
constexpr auto tool_voltage = cmd::set<"set_tool_voltage">("state", nullptr, m_nOutTime, {{"voltage_type"}});
// The reply must echo the channel number as well, though it is not returned.
constexpr auto io_state = cmd::query<"get_IO_state">("IO_state", {{"IO_Num"}, {"IO_Mode"}, {"IO_state"}}, {{"IO_Num"}});
constexpr auto io_input = cmd::query<"get_IO_input">("IO_input_state", {{"DI", as::plain, 4}});
constexpr auto io_output = cmd::query<"get_IO_output">("IO_output_state", {{"DO", as::plain, 4}});
constexpr auto tool_io_state = cmd::query<"get_tool_IO_state">("tool_IO_state", {{"IO_Mode", as::plain, 2}, {"IO_state", as::plain, 2}});
constexpr auto get_voltage = cmd::query<"get_voltage">("voltage_state", {{"voltage_type"}});
constexpr auto get_tool_voltage = cmd::query<"get_tool_voltage">("tool_voltage_state", {{"voltage_type"}});
constexpr auto controller_rs485 = rs485_query(cmd::query<"get_controller_RS485_mode">(nullptr, {{"controller_RS485_mode"}, {"baudrate"}, {"modbus_timeout"}}));
constexpr auto tool_rs485 = rs485_query(cmd::query<"get_tool_RS485_mode">(nullptr, {{"tool_RS485_mode"}, {"baudrate"}, {"modbus_timeout"}}));
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_set_IO_mode(ka_robot_handle *handle, int io_num, int mode) { return io_mode(handle, io_num, mode); }
int ka_set_DO_state(ka_robot_handle *handle, int io_num, int state) { return do_state(handle, io_num, state); }
int ka_set_tool_DO_state(ka_robot_handle *handle, int io_num, int state) { return tool_do_state(handle, io_num, state); }
int ka_set_tool_IO_mode(ka_robot_handle *handle, int io_num, int mode) { return tool_io_mode(handle, io_num, mode); }
int ka_set_voltage(ka_robot_handle *handle, int voltage_type) { return voltage(handle, voltage_type); }
int ka_set_tool_voltage(ka_robot_handle *handle, int voltage_type) { return tool_voltage(handle, voltage_type); }
int ka_get_IO_state(ka_robot_handle *handle, int io_num, int *state, int *mode) { int echoed = 0; return io_state(handle, io_num, &echoed, mode, state); }
int ka_get_IO_input(ka_robot_handle *handle, int *DI) { return io_input(handle, DI); }
int ka_get_IO_output(ka_robot_handle *handle, int *DO) { return io_output(handle, DO); }
int ka_get_tool_IO_state(ka_robot_handle *handle, int *mode, int *state) { return tool_io_state(handle, mode, state); }
int ka_get_voltage(ka_robot_handle *handle, int *voltage_type) { return get_voltage(handle, voltage_type); }
int ka_get_tool_voltage(ka_robot_handle *handle, int *voltage_type) { return get_tool_voltage(handle, voltage_type); }
int ka_get_controller_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate, int *modbus_timeout) { return controller_rs485(handle, mode, baudrate, modbus_timeout); }
int ka_get_tool_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate, int *modbus_timeout) { return tool_rs485(handle, mode, baudrate, modbus_timeout); }
// clang-format on

} // extern "C"
