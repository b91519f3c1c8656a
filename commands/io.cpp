// Controller and tool I/O: channel modes and digital outputs, the digital
// inputs and outputs read back, the supply voltages of the controller and of
// the tool flange, and the RS485 port modes. Every value is an unscaled
// integer.
#include "core/command.h"

#include <array>
#include <cstdio>

extern "C" {
// Reads the RS485 mode reply into entries, like common_json_parse on the
// top-level keys, except that a missing third entry (the Modbus time-out,
// absent when the port is not in Modbus-RTU mode) ends the parse with 0 and
// that entry left as it was. 0, or -3.
KA_API int parse_rs485(const char *text, ka_reply_field *entries, int count);
}

namespace {

// A set command on one I/O channel: {"IO_Num": io_num, value_key: value}.
struct channel_setting {
    cmd::set_command command;
    const char *value_key;
};
constexpr channel_setting io_mode{cmd::set<"set_IO_mode">("set_state"), "IO_mode"};
constexpr channel_setting do_state{cmd::set<"set_DO_state">("set_state"), "state"};
constexpr channel_setting tool_do_state{cmd::set<"set_tool_DO_state">("set_state"), "state"};
// The controller takes the tool channel's mode under "state".
constexpr channel_setting tool_io_mode{cmd::set<"set_tool_IO_mode">("set_state"), "state"};

int set_channel(const channel_setting &s, ka_robot_handle *handle, int io_num, int value) {
    return cmd::run(s.command, handle,
                    {cmd::number("IO_Num", io_num), cmd::number(s.value_key, value)});
}

// The voltage setters answer under "state", not "set_state".
constexpr auto voltage = cmd::set<"set_voltage">("state");
constexpr auto tool_voltage = cmd::set<"set_tool_voltage">("state");

// One integer (count 0) or integer array of a reply and where it goes.
struct int_out {
    const char *key;
    int count;
    int *to;
};
constexpr size_t max_outputs = 3;

// Sends {"command": command, request...}, reads every output from the reply
// named `reply` and writes them only when all were read. -1 (nothing sent)
// when an output is null; else 0, the parse's -3 or the exchange's code.
int read_ints(const char *function, ka_robot_handle *handle, const char *command,
              std::initializer_list<ka_request_field> request, const char *reply,
              std::initializer_list<int_out> outputs) {
    std::array<ka_reply_field, max_outputs> fields{};
    size_t n = 0;
    for (const int_out &o : outputs) {
        if (!o.to || n == max_outputs || o.count > reply_array_capacity) return -1;
        fields[n++] = o.count ? cmd::ints_field(o.key, o.count) : cmd::int_field(o.key);
    }
    cmd::reply_text line;
    int length = cmd::exchange(function, handle, command, request, reply, m_nOutTime, line.text,
                               sizeof line.text);
    if (length < 1) return length;
    int status = common_json_parse(function, line.text, fields.data(), static_cast<int>(n));
    if (status != 0) return status;
    const ka_reply_field *field = fields.data();
    for (const int_out &o : outputs) {
        if (o.count)
            for (int i = 0; i < o.count; ++i)
                o.to[i] = field->value.a[i];
        else
            *o.to = field->value.i;
        ++field;
    }
    return 0;
}

// An RS485 mode query: the port mode under mode_key, then "baudrate" and
// "modbus_timeout".
struct rs485_query {
    cmd::query_command command;
    const char *mode_key;
};
constexpr rs485_query controller_rs485{cmd::query<"get_controller_RS485_mode">(),
                                       "controller_RS485_mode"};
constexpr rs485_query tool_rs485{cmd::query<"get_tool_RS485_mode">(), "tool_RS485_mode"};

int read_rs485(const rs485_query &q, ka_robot_handle *handle, int *mode, int *baudrate,
               int *modbus_timeout) {
    if (!mode || !baudrate || !modbus_timeout) return -1;
    cmd::reply_text reply;
    int length = cmd::run(q.command, handle, reply);
    if (length < 1) return length;
    ka_reply_field fields[] = {cmd::int_field(q.mode_key), cmd::int_field("baudrate"),
                               cmd::int_field("modbus_timeout")};
    int status = parse_rs485(reply.text, fields, 3);
    if (status != 0) return status;
    *mode = fields[0].value.i;
    *baudrate = fields[1].value.i;
    *modbus_timeout = fields[2].value.i;
    return 0;
}

// Index of the entry the RS485 parse tolerates missing.
constexpr int modbus_timeout_entry = 2;

} // namespace

extern "C" {

int parse_rs485(const char *text, ka_reply_field *entries, int count) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("Error parsing JSON\n");
        return -3;
    }
    for (int i = 0; entries && i < count; ++i) {
        ka_reply_field &entry = entries[i];
        const cJSON *item = cJSON_GetObjectItem(doc.get(), entry.key);
        if (!item) {
            if (i == modbus_timeout_entry) {
                ka_log_warn("it is not in Modbus-RTU mode, and the modbus_timeout field does not "
                            "exist.\n");
                return 0;
            }
            ka_log_error("%s parsing error\n", entry.key);
            return -3;
        }
        switch (entry.type) {
        case KA_FIELD_INT:
            entry.value.i = json_int(item);
            ka_log_info("%s parse result: %d\n", entry.key, entry.value.i);
            break;
        case KA_FIELD_STRING:
            if (!cJSON_IsString(item)) {
                ka_log_error("%s is not a string\n", entry.key);
                return -3;
            }
            std::snprintf(entry.value.s, sizeof entry.value.s, "%s", item->valuestring);
            ka_log_info("%s parse result: %s\n", entry.key, entry.value.s);
            break;
        case KA_FIELD_INT_ARRAY: {
            if (!cJSON_IsArray(item)) {
                ka_log_error("%s is not an array\n", entry.key);
                return -3;
            }
            int size = cJSON_GetArraySize(item);
            if (size != entry.count || size > reply_array_capacity) {
                ka_log_error("Array size mismatch for key %s\n", entry.key);
                return -3;
            }
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
            ka_log_error("Unsupported JSON value type for key %s\n", entry.key);
            return -3;
        }
    }
    return 0;
}

int ka_set_IO_mode(ka_robot_handle *handle, int io_num, int mode) {
    return set_channel(io_mode, handle, io_num, mode);
}
int ka_set_DO_state(ka_robot_handle *handle, int io_num, int state) {
    return set_channel(do_state, handle, io_num, state);
}
int ka_set_tool_DO_state(ka_robot_handle *handle, int io_num, int state) {
    return set_channel(tool_do_state, handle, io_num, state);
}
int ka_set_tool_IO_mode(ka_robot_handle *handle, int io_num, int mode) {
    return set_channel(tool_io_mode, handle, io_num, mode);
}
int ka_set_voltage(ka_robot_handle *handle, int voltage_type) {
    return cmd::run(voltage, handle, {cmd::number("voltage_type", voltage_type)});
}
int ka_set_tool_voltage(ka_robot_handle *handle, int voltage_type) {
    return cmd::run(tool_voltage, handle, {cmd::number("voltage_type", voltage_type)});
}

// The reply must echo the channel number as well, though it is not returned.
int ka_get_IO_state(ka_robot_handle *handle, int io_num, int *state, int *mode) {
    int echoed = 0;
    return read_ints("ka_get_IO_state", handle, "get_IO_state", {cmd::number("IO_Num", io_num)},
                     "IO_state",
                     {{"IO_Num", 0, &echoed}, {"IO_Mode", 0, mode}, {"IO_state", 0, state}});
}
int ka_get_IO_input(ka_robot_handle *handle, int *DI) {
    return read_ints("ka_get_IO_input", handle, "get_IO_input", {}, "IO_input_state",
                     {{"DI", 4, DI}});
}
int ka_get_IO_output(ka_robot_handle *handle, int *DO) {
    return read_ints("ka_get_IO_output", handle, "get_IO_output", {}, "IO_output_state",
                     {{"DO", 4, DO}});
}
int ka_get_tool_IO_state(ka_robot_handle *handle, int *mode, int *state) {
    return read_ints("ka_get_tool_IO_state", handle, "get_tool_IO_state", {}, "tool_IO_state",
                     {{"IO_Mode", 2, mode}, {"IO_state", 2, state}});
}
int ka_get_voltage(ka_robot_handle *handle, int *voltage_type) {
    return read_ints("ka_get_voltage", handle, "get_voltage", {}, "voltage_state",
                     {{"voltage_type", 0, voltage_type}});
}
int ka_get_tool_voltage(ka_robot_handle *handle, int *voltage_type) {
    return read_ints("ka_get_tool_voltage", handle, "get_tool_voltage", {}, "tool_voltage_state",
                     {{"voltage_type", 0, voltage_type}});
}

int ka_get_controller_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate,
                                 int *modbus_timeout) {
    return read_rs485(controller_rs485, handle, mode, baudrate, modbus_timeout);
}
int ka_get_tool_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate, int *modbus_timeout) {
    return read_rs485(tool_rs485, handle, mode, baudrate, modbus_timeout);
}

} // extern "C"
