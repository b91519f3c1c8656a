// Modbus RTU and TCP peripherals, reached through the controller: the
// controller does the Modbus framing, the library only forms its commands.
#include "core/command.h"

#include <algorithm>
#include <memory>
#include <vector>

static_assert(sizeof(int) == sizeof(int32_t), "data arrays go on the wire as they are");

namespace {

// Slower bus operations (coil groups, a single coil) get two more seconds.
constexpr int long_wait = m_nOutTime_max;
constexpr int coil_wait = m_nOutTime_max + 2000;

// ------------------------------------------------------------- port modes

constexpr auto rtu_mode = cmd::set<"set_modbus_mode">("set_state", nullptr, long_wait);
constexpr auto close_rtu = cmd::set<"close_modbus_mode">("set_state", nullptr, long_wait);
constexpr auto tcp_mode = cmd::set<"set_modbustcp_mode">("set_state", nullptr, long_wait);
constexpr auto close_tcp = cmd::set<"close_modbustcp_mode">("set_state", nullptr, long_wait);

// ------------------------------------------------------ peripheral access

// Largest counts one Modbus request carries (125 registers, 2000 coils).
// They bound the "data" arrays sent and read: beyond the typed reply
// parser's capacity, so those arrays are read from the cJSON tree directly.
constexpr int max_registers = 125;
constexpr int max_coils = 2000;
constexpr int max_data_elements = 2 * max_registers; // also 2000 coils / 8

// How a count becomes a "data" array length.
enum class data_shape {
    none,        // "num" is passed through; the reply's "data" is one integer
    registers,   // num x 2 elements
    coils_floor, // num / 8 elements, rounded down (written coils)
    coils_ceil,  // num / 8 rounded up expected, rounded down copied (read coils)
};

// One peripheral command: the request is "port", "address", then "num"
// when sends_num, then "data" (writes), then "device"; the reply carries the
// command's name.
struct peripheral_command {
    const char *function;
    const char *command;
    int timeout_ms;
    bool sends_num;
    data_shape shape = data_shape::none;
    const char *result_key = "write_state"; // writes only
};

constexpr peripheral_command read_coils{"ka_read_coils", "read_coils", long_wait, true};
constexpr peripheral_command read_input_status{"ka_read_input_status", "read_input_status",
                                               long_wait, true};
constexpr peripheral_command read_holding{"ka_read_holding_registers", "read_holding_registers",
                                          long_wait, false};
constexpr peripheral_command read_input{"ka_read_input_registers", "read_input_registers",
                                        long_wait, false};
constexpr peripheral_command write_coil{"ka_write_single_coil", "write_single_coil", coil_wait,
                                        false};
constexpr peripheral_command write_register{"ka_write_single_register", "write_single_register",
                                            long_wait, false};
constexpr peripheral_command write_registers{"ka_write_registers", "write_registers", long_wait,
                                             true, data_shape::registers};
constexpr peripheral_command write_coils{"ka_write_coils", "write_coils", coil_wait, true,
                                         data_shape::coils_floor};
constexpr peripheral_command read_coil_groups{"ka_read_multiple_coils", "read_multiple_coils",
                                              coil_wait, true, data_shape::coils_ceil};
constexpr peripheral_command read_holding_block{"ka_read_multiple_holding_registers",
                                                "read_multiple_holding_registers", long_wait, true,
                                                data_shape::registers};
constexpr peripheral_command read_input_block{"ka_read_multiple_input_registers",
                                              "read_multiple_input_registers", long_wait, true,
                                              data_shape::registers};

// Array lengths for num: the length on the wire (sent or expected) and the
// number of entries copied out. False for a count outside the bounds.
struct data_length {
    int wire = 0;
    int copied = 0;
};
bool length_for(data_shape shape, int num, data_length &out) {
    switch (shape) {
    case data_shape::none:
        return true;
    case data_shape::registers:
        if (num < 0 || num > max_registers) return false;
        out = {num * 2, num * 2};
        return true;
    case data_shape::coils_floor:
        if (num < 0 || num > max_coils) return false;
        out = {num / 8, num / 8};
        return true;
    case data_shape::coils_ceil:
        if (num < 0 || num > max_coils) return false;
        // Fewer than 8 coils copy nothing; 12 coils receive 2 groups and
        // copy 1. Callers size their buffers by the rounded-down count.
        out = {(num + 7) / 8, num / 8};
        return true;
    }
    return false;
}

// Sends the command for params (with data_field as "data" when given) and
// waits for its reply. The reply's length or the exchange's code.
int exchange(const peripheral_command &c, ka_robot_handle *handle,
             const ka_peripheral_read_write_params_t &params, const ka_request_field *data_field,
             char *reply, int reply_size) {
    ka_request_field fields[6];
    int count = 0;
    fields[count++] = cmd::text("command", c.command);
    fields[count++] = cmd::number("port", params.port);
    fields[count++] = cmd::number("address", params.address);
    if (c.sends_num) fields[count++] = cmd::number("num", params.num);
    if (data_field) fields[count++] = *data_field;
    fields[count++] = cmd::number("device", params.device);
    return ka_pack_lock_set(c.function, handle, fields, count, c.command, reply, reply_size,
                            c.timeout_ms);
}

// A write: 0 true, 1 false, -3 unparsable, or the exchange's code.
int write_value(const peripheral_command &c, ka_robot_handle *handle,
                const ka_peripheral_read_write_params_t &params, const ka_request_field &data) {
    cmd::reply_text reply;
    int n = exchange(c, handle, params, &data, reply.text, sizeof reply.text);
    if (n < 1) return n;
    return parse_ka_set_command(c.function, reply.text, c.result_key);
}

int write_block(const peripheral_command &c, ka_robot_handle *handle,
                const ka_peripheral_read_write_params_t &params, const int *data) {
    data_length length;
    if (!data || !length_for(c.shape, params.num, length)) return -1;
    return write_value(c, handle, params, cmd::numbers("data", data, length.wire));
}

// The object the typed parser would read "data" from: inside "arm_state" or
// "all_state" when present.
const cJSON *data_scope(const cJSON *doc) {
    for (const char *wrapper : {"arm_state", "all_state"})
        if (const cJSON *inner = cJSON_GetObjectItem(doc, wrapper)) return inner;
    return doc;
}

// Reads "data" as exactly `expected` integers into values, with the typed
// parser's checks and log lines; arrays may exceed its capacity. 0 or -3.
int parse_data_array(const char *function, const char *text, int expected,
                     std::vector<int32_t> &values) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("Error parsing JSON\n");
        return -3;
    }
    const cJSON *item = cJSON_GetObjectItem(data_scope(doc.get()), "data");
    if (!item) {
        ka_log_error("[%s] %s parsing error\n", function, "data");
        return -3;
    }
    if (!cJSON_IsArray(item)) {
        ka_log_error("[%s] %s is not an array\n", function, "data");
        return -3;
    }
    if (cJSON_GetArraySize(item) != expected) {
        ka_log_error("[%s] Array size mismatch for key %s\n", function, "data");
        return -3;
    }
    ka_log_info("[%s] %s parse result:\n", function, "data");
    values.clear();
    for (const cJSON *element = item->child; element; element = element->next) {
        values.push_back(json_int(element));
        ka_log_info(" %d\n", values.back());
    }
    return 0;
}

// A reply without a readable "data" reports why the controller did not read:
// "read_state" false gives 1, anything unreadable -3.
int read_refused(const char *function, const char *text) {
    return parse_ka_set_command(function, text, "read_state");
}

// One integer "data" into *data.
int read_value(const peripheral_command &c, ka_robot_handle *handle,
               const ka_peripheral_read_write_params_t &params, int *data) {
    if (!data) return -1;
    cmd::reply_text reply;
    int n = exchange(c, handle, params, nullptr, reply.text, sizeof reply.text);
    if (n < 1) return n;
    ka_reply_field field = cmd::int_field("data");
    if (common_json_parse(c.function, reply.text, &field, 1) != 0)
        return read_refused(c.function, reply.text);
    *data = field.value.i;
    return 0;
}

// A "data" array of the shape's length for num into data.
int read_block(const peripheral_command &c, ka_robot_handle *handle,
               const ka_peripheral_read_write_params_t &params, int *data) {
    data_length length;
    if (!data || !length_for(c.shape, params.num, length)) return -1;
    // Room for the longest line the receive side files: a block of 250
    // integers does not fit the usual reply buffer.
    constexpr int reply_size = static_cast<int>(queue_line_capacity) + 1;
    auto reply = std::make_unique<char[]>(reply_size);
    int n = exchange(c, handle, params, nullptr, reply.get(), reply_size);
    if (n < 1) return n;
    std::vector<int32_t> values;
    if (parse_data_array(c.function, reply.get(), length.wire, values) != 0)
        return read_refused(c.function, reply.get());
    std::copy_n(values.begin(), std::min<size_t>(length.copied, values.size()), data);
    return 0;
}

} // namespace

extern "C" {

int ka_set_modbus_mode(ka_robot_handle *h, int port, int baudrate, int timeout) {
    return cmd::run(rtu_mode, h,
                    {cmd::number("port", port), cmd::number("baudrate", baudrate),
                     cmd::number("timeout", timeout)});
}
int ka_close_modbus_mode(ka_robot_handle *h, int port) {
    return cmd::run(close_rtu, h, {cmd::number("port", port)});
}
int ka_set_modbustcp_mode(ka_robot_handle *h, const char *ip, int port, int timeout) {
    if (!ip) return -1;
    return cmd::run(
        tcp_mode, h,
        {cmd::text("ip", ip), cmd::number("port", port), cmd::number("timeout", timeout)});
}
int ka_close_modbustcp_mode(ka_robot_handle *h) { return cmd::run(close_tcp, h); }

int ka_read_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) {
    return read_value(read_coils, h, params, data);
}
int ka_read_input_status(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) {
    return read_value(read_input_status, h, params, data);
}
int ka_read_holding_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                              int *data) {
    return read_value(read_holding, h, params, data);
}
int ka_read_input_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                            int *data) {
    return read_value(read_input, h, params, data);
}

int ka_write_single_coil(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int data) {
    return write_value(write_coil, h, params, cmd::number("data", data));
}
int ka_write_single_register(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                             int data) {
    return write_value(write_register, h, params, cmd::number("data", data));
}
int ka_write_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) {
    return write_block(write_registers, h, params, data);
}
int ka_write_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) {
    return write_block(write_coils, h, params, data);
}

int ka_read_multiple_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                           int *data) {
    return read_block(read_coil_groups, h, params, data);
}
int ka_read_multiple_holding_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                                       int *data) {
    return read_block(read_holding_block, h, params, data);
}
int ka_read_multiple_input_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params,
                                     int *data) {
    return read_block(read_input_block, h, params, data);
}

} // extern "C"
