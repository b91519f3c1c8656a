// Controller and tool I/O: channel modes and digital outputs, the digital
// inputs and outputs read back, the supply voltages of the controller and of
// the tool flange, and the RS485 port modes. Every value is an unscaled
// integer.
#include "core/command.h"

// Reads the RS485 mode reply into entries, like common_json_parse on the
// top-level keys, except that a missing third entry (the Modbus time-out,
// absent when the port is not in Modbus-RTU mode) ends the parse with 0 and
// that entry left as it was. 0, or -3.
extern "C" KA_API int parse_rs485(const char *text, ka_reply_field *entries, int count) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("Error parsing JSON\n");
        return -3;
    }
    for (int i = 0; entries && i < count; ++i) {
        ka_reply_field &entry = entries[i];
        auto fail = [&](const char *line) {
            ka_log_error(line, entry.key);
            return -3;
        };
        const cJSON *item = cJSON_GetObjectItem(doc.get(), entry.key);
        if (!item && i == 2) {
            ka_log_warn("it is not in Modbus-RTU mode, and the modbus_timeout field does not "
                        "exist.\n");
            return 0;
        }
        if (!item) return fail("%s parsing error\n");
        switch (entry.type) {
        case KA_FIELD_INT:
            entry.value.i = json_int(item);
            ka_log_info("%s parse result: %d\n", entry.key, entry.value.i);
            break;
        case KA_FIELD_STRING:
            if (!cJSON_IsString(item)) return fail("%s is not a string\n");
            std::snprintf(entry.value.s, sizeof entry.value.s, "%s", item->valuestring);
            ka_log_info("%s parse result: %s\n", entry.key, entry.value.s);
            break;
        case KA_FIELD_INT_ARRAY: {
            if (!cJSON_IsArray(item)) return fail("%s is not an array\n");
            int size = cJSON_GetArraySize(item);
            if (size != entry.count || size > reply_array_capacity)
                return fail("Array size mismatch for key %s\n");
            ka_log_info("%s parse result:\n", entry.key);
            int index = 0;
            for (const cJSON *element = item->child; element; element = element->next, ++index) {
                entry.value.a[index] = json_int(element);
                ka_log_info(" %d\n", entry.value.a[index]);
            }
            break;
        }
        case KA_FIELD_BOOL:
            // Anything but a boolean leaves the entry as it was.
            if (cJSON_IsBool(item)) entry.value.b = cJSON_IsTrue(item);
            ka_log_info("%s parse result: %d\n", entry.key, entry.value.b ? 1 : 0);
            break;
        default:
            return fail("Unsupported JSON value type for key %s\n");
        }
    }
    return 0;
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
