// Modbus RTU and TCP peripherals, reached through the controller, which does the Modbus framing.
#include "core/command.h"

static_assert(sizeof(int) == sizeof(int32_t), "data arrays go on the wire as they are");

namespace {

// Slower bus operations (coil groups, a single coil) get two more seconds.
constexpr int long_wait = m_nOutTime_max;
constexpr int coil_wait = m_nOutTime_max + 2000;

// clang-format off
constexpr auto rtu_mode = cmd::set<"set_modbus_mode">("set_state", nullptr, long_wait, {{"port"}, {"baudrate"}, {"timeout"}});
constexpr auto close_rtu = cmd::set<"close_modbus_mode">("set_state", nullptr, long_wait, {{"port"}});
constexpr auto tcp_mode = cmd::set<"set_modbustcp_mode">("set_state", nullptr, long_wait, {{"ip"}, {"port"}, {"timeout"}});
constexpr auto close_tcp = cmd::set<"close_modbustcp_mode">("set_state", nullptr, long_wait);
// clang-format on

// Sent as port, address, (num), (data), device; a read lacking "data": "read_state" false 1, or -3.
using cmd::as;
constexpr cmd::arg bus{"port", as::bus};
constexpr cmd::arg bus_count{"port", as::bus_count};
constexpr cmd::arg device{"device"};
template <cmd::wire_name Command>
constexpr cmd::query_command bus_read(int timeout_ms, cmd::arg address, cmd::out data = {"data"}) {
    cmd::query_command q = cmd::query<Command>(nullptr, {data}, {address, device});
    q.timeout_ms = timeout_ms;
    q.refused_key = "read_state";
    return q;
}
template <cmd::wire_name Command>
constexpr cmd::set_command bus_write(int timeout_ms, cmd::arg address, as data = as::plain) {
    return cmd::set<Command>("write_state", nullptr, timeout_ms, {address, {"data", data}, device});
}

// clang-format off
constexpr auto read_coils = bus_read<"read_coils">(long_wait, bus_count);
constexpr auto read_input_status = bus_read<"read_input_status">(long_wait, bus_count);
constexpr auto read_holding = bus_read<"read_holding_registers">(long_wait, bus);
constexpr auto read_input = bus_read<"read_input_registers">(long_wait, bus);
constexpr auto write_coil = bus_write<"write_single_coil">(coil_wait, bus);
constexpr auto write_register = bus_write<"write_single_register">(long_wait, bus);
constexpr auto write_registers = bus_write<"write_registers">(long_wait, bus_count, as::registers);
constexpr auto write_coils = bus_write<"write_coils">(coil_wait, bus_count, as::coil_bytes);
// Blocks: "data" as long as the count makes it (read_block).
constexpr auto read_coil_groups = bus_read<"read_multiple_coils">(coil_wait, bus_count, {"data", as::coil_groups});
constexpr auto read_holding_block = bus_read<"read_multiple_holding_registers">(long_wait, bus_count, {"data", as::registers});
constexpr auto read_input_block = bus_read<"read_multiple_input_registers">(long_wait, bus_count, {"data", as::registers});
// clang-format on

// Irregular: a block of up to 250 integers exceeds the usual reply buffer and the typed arrays.
int read_block(const cmd::query_command &q, ka_robot_handle *handle,
               const ka_peripheral_read_write_params_t &params, int *data) {
    const cmd::bus_data length = cmd::bus_data_length(q.outs[0].scale, params.num);
    if (!data || length.wire < 0) return -1;
    cmd::request request(q.function, handle);
    request.take(q.args, params, params.device);
    std::vector<char> reply(queue_line_capacity + 1, '\0');
    int n = cmd::exchange(q.function, handle, q.command, request.fields(), q.reply, q.timeout_ms,
                          reply.data(), static_cast<int>(reply.size()));
    if (n < 1) return n;
    std::vector<int32_t> values(static_cast<size_t>(length.wire));
    ka_reply_field field{KA_FIELD_INT_BLOCK, "data", length.wire, {.block = values.data()}};
    if (common_json_parse(q.function, reply.data(), &field, 1) != 0)
        return parse_ka_set_command(q.function, reply.data(), q.refused_key);
    std::copy_n(values.begin(), length.copied, data);
    return 0;
}

} // namespace

extern "C" {

// clang-format off
int ka_set_modbus_mode(ka_robot_handle *h, int port, int baudrate, int timeout) { return rtu_mode(h, port, baudrate, timeout); }
int ka_close_modbus_mode(ka_robot_handle *h, int port) { return close_rtu(h, port); }
int ka_set_modbustcp_mode(ka_robot_handle *h, const char *ip, int port, int timeout) { return tcp_mode(h, ip, port, timeout); }
int ka_close_modbustcp_mode(ka_robot_handle *h) { return close_tcp(h); }
int ka_read_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_coils(h, params, params.device, data); }
int ka_read_input_status(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_input_status(h, params, params.device, data); }
int ka_read_holding_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_holding(h, params, params.device, data); }
int ka_read_input_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_input(h, params, params.device, data); }
int ka_write_single_coil(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int data) { return write_coil(h, params, data, params.device); }
int ka_write_single_register(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int data) { return write_register(h, params, data, params.device); }
int ka_write_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return write_registers(h, params, static_cast<const int *>(data), params.device); }
int ka_write_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return write_coils(h, params, static_cast<const int *>(data), params.device); }
int ka_read_multiple_coils(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_block(read_coil_groups, h, params, data); }
int ka_read_multiple_holding_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_block(read_holding_block, h, params, data); }
int ka_read_multiple_input_registers(ka_robot_handle *h, ka_peripheral_read_write_params_t params, int *data) { return read_block(read_input_block, h, params, data); }
// clang-format on

} // extern "C"
