// Modbus RTU and TCP peripherals: the controller as bus master, with one
// in-memory peripheral per (bus, device address).
//
// Wire packing, as the controller sends it:
// - a single register is one integer, the 16-bit value;
// - several registers are two integers each, high byte then low byte;
// - several coils are one integer per group of 8, the first coil in bit 0;
// - "read_coils" / "read_input_status" pack up to 16 bits into one
//   integer, the first coil in bit 0.
// Discrete inputs and input registers belong to the peripheral: input bit
// a of device d is set when (a + d) % 3 == 0, input register a of device d
// holds (31 a + 7 d) mod 65536.
#include "sim/families/family.h"
#include "sim/net/net.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

constexpr int k_bits_per_group = 8;
constexpr int k_max_packed_bits = 16;
constexpr int k_max_read_registers = 125;  // one Modbus read
constexpr int k_max_write_registers = 123; // one Modbus write
constexpr int k_max_read_coils = 2000;
constexpr int k_max_write_coils = 1968;
constexpr int k_address_space = 65536;
constexpr int k_max_timeout = 1000;

constexpr int k_baudrates[] = {9600, 19200, 38400, 57600, 115200, 230400, 460800};

enum class bank { coils, discrete_inputs, holding, input_registers };

// How the values of one read or write travel in "data".
enum class packing {
    packed_bits,    // one integer, bit i the i-th coil
    one_register,   // one integer, the register
    bit_groups,     // one integer per 8 coils
    register_bytes, // two integers per register
};

bool is_rtu_port(int port) {
    return port == k_modbus_controller_rs485 || port == k_modbus_tool_rs485;
}

// The peripheral a request addresses, or nullptr when its bus is not in
// Modbus mode or the device address is outside the bus's range.
modbus_device *peripheral(arm &target, int bus, int device) {
    modbus_store &store = target.modbus;
    if (is_rtu_port(bus)) {
        const auto port = store.rtu.find(bus);
        if (port == store.rtu.end() || !port->second.open) return nullptr;
        if (device < 1 || device > 247) return nullptr; // 0 is the RTU broadcast address
    } else if (bus == k_modbus_tcp_bus) {
        if (!store.tcp.open || device < 0 || device > 255) return nullptr;
    } else {
        return nullptr;
    }
    return &store.devices[{bus, device}];
}

bool read_bit(const modbus_device &d, bank b, int device, int address) {
    if (b == bank::discrete_inputs) return (address + device) % 3 == 0;
    const auto bit = d.coils.find(address);
    return bit != d.coils.end() && bit->second;
}

int read_word(const modbus_device &d, bank b, int device, int address) {
    if (b == bank::input_registers) return (31 * address + 7 * device) % 65536;
    const auto word = d.holding.find(address);
    return word == d.holding.end() ? 0 : word->second;
}

struct request_range {
    modbus_device *device = nullptr;
    int device_address = 0;
    int address = 0;
    int count = 1;
};

// The addressed peripheral and range; count is 1 when the command takes no
// "num". Nothing when a key is missing or out of range.
std::optional<request_range> range_of(const cJSON *request, arm &target, bool with_count,
                                      int max_count) {
    const auto port = json_int(request, "port");
    const auto address = json_int(request, "address");
    const auto device = json_int(request, "device");
    if (!port || !address || !device) return std::nullopt;
    request_range range;
    if (with_count) {
        const auto num = json_int(request, "num");
        if (!num) return std::nullopt;
        range.count = *num;
    }
    if (range.count < 1 || range.count > max_count || *address < 0 ||
        *address + range.count > k_address_space)
        return std::nullopt;
    range.device = peripheral(target, *port, *device);
    if (!range.device) return std::nullopt;
    range.device_address = *device;
    range.address = *address;
    return range;
}

constexpr int max_read(packing p) {
    switch (p) {
    case packing::packed_bits:
        return k_max_packed_bits;
    case packing::one_register:
        return 1;
    case packing::bit_groups:
        return k_max_read_coils;
    case packing::register_bytes:
        return k_max_read_registers;
    }
    return 1;
}

template <bank B, packing P> void read(const cJSON *request, cJSON *reply, command_context &c) {
    const auto range = range_of(request, c.target, P != packing::one_register, max_read(P));
    if (!range) {
        cJSON_AddBoolToObject(reply, "read_state", false);
        return;
    }
    const modbus_device &d = *range->device;
    const int device = range->device_address;
    if constexpr (P == packing::packed_bits) {
        int bits = 0;
        for (int i = 0; i < range->count; ++i)
            if (read_bit(d, B, device, range->address + i)) bits |= 1 << i;
        cJSON_AddNumberToObject(reply, "data", bits);
    } else if constexpr (P == packing::one_register) {
        cJSON_AddNumberToObject(reply, "data", read_word(d, B, device, range->address));
    } else if constexpr (P == packing::bit_groups) {
        std::vector<int> groups((range->count + k_bits_per_group - 1) / k_bits_per_group, 0);
        for (int i = 0; i < range->count; ++i)
            if (read_bit(d, B, device, range->address + i))
                groups[i / k_bits_per_group] |= 1 << (i % k_bits_per_group);
        json_add_ints(reply, "data", groups);
    } else {
        std::vector<int> bytes;
        for (int i = 0; i < range->count; ++i) {
            const int word = read_word(d, B, device, range->address + i);
            bytes.push_back(word >> 8);
            bytes.push_back(word & 0xff);
        }
        json_add_ints(reply, "data", bytes);
    }
}

void write_single_coil(const cJSON *request, cJSON *reply, command_context &c) {
    const auto range = range_of(request, c.target, false, 1);
    const auto data = json_int(request, "data");
    const bool ok = range && data && (*data == 0 || *data == 1);
    if (ok) range->device->coils[range->address] = *data == 1;
    cJSON_AddBoolToObject(reply, "write_state", ok);
}

void write_single_register(const cJSON *request, cJSON *reply, command_context &c) {
    const auto range = range_of(request, c.target, false, 1);
    const auto data = json_int(request, "data");
    // Signed or unsigned 16-bit text of the same word.
    const bool ok = range && data && *data >= -32768 && *data <= 65535;
    if (ok) range->device->holding[range->address] = static_cast<std::uint16_t>(*data & 0xffff);
    cJSON_AddBoolToObject(reply, "write_state", ok);
}

// An array of integers 0..255 under "data", of any length up to `max`.
std::optional<std::vector<int>> data_bytes(const cJSON *request, int max) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(request, "data");
    if (!cJSON_IsArray(item)) return std::nullopt;
    const int size = cJSON_GetArraySize(item);
    if (size > max) return std::nullopt;
    auto values = json_ints(request, "data", size);
    if (!values) return std::nullopt;
    for (int v : *values)
        if (v < 0 || v > 0xff) return std::nullopt;
    return values;
}

void write_registers(const cJSON *request, cJSON *reply, command_context &c) {
    const auto range = range_of(request, c.target, true, k_max_write_registers);
    const auto bytes = range ? data_bytes(request, 2 * range->count) : std::nullopt;
    const bool ok = bytes && static_cast<int>(bytes->size()) == 2 * range->count;
    if (ok)
        for (int i = 0; i < range->count; ++i)
            range->device->holding[range->address + i] =
                static_cast<std::uint16_t>((*bytes)[2 * i] << 8 | (*bytes)[2 * i + 1]);
    cJSON_AddBoolToObject(reply, "write_state", ok);
}

// The groups may cover fewer coils than "num" (the library sends num / 8
// groups, rounded down): the coils the groups cover are written, the rest
// keep their state. No group at all writes nothing and is refused.
void write_coils(const cJSON *request, cJSON *reply, command_context &c) {
    const auto range = range_of(request, c.target, true, k_max_write_coils);
    const int max_groups = range ? (range->count + k_bits_per_group - 1) / k_bits_per_group : 0;
    const auto groups = range ? data_bytes(request, max_groups) : std::nullopt;
    const bool ok = groups && !groups->empty();
    if (ok) {
        const int covered =
            std::min(range->count, static_cast<int>(groups->size()) * k_bits_per_group);
        for (int i = 0; i < covered; ++i)
            range->device->coils[range->address + i] =
                ((*groups)[i / k_bits_per_group] >> (i % k_bits_per_group) & 1) != 0;
    }
    cJSON_AddBoolToObject(reply, "write_state", ok);
}

bool valid_timeout(const std::optional<int> &timeout) {
    return timeout && *timeout >= 1 && *timeout <= k_max_timeout;
}

void set_mode(const cJSON *request, cJSON *reply, command_context &c) {
    const auto port = json_int(request, "port");
    const auto baudrate = json_int(request, "baudrate");
    const auto timeout = json_int(request, "timeout");
    const bool ok = port && is_rtu_port(*port) && baudrate &&
                    std::find(std::begin(k_baudrates), std::end(k_baudrates), *baudrate) !=
                        std::end(k_baudrates) &&
                    valid_timeout(timeout);
    if (ok) c.target.modbus.rtu[*port] = modbus_rtu_port{true, *baudrate, *timeout};
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void close_mode(const cJSON *request, cJSON *reply, command_context &c) {
    const auto port = json_int(request, "port");
    const bool ok = port && is_rtu_port(*port);
    if (ok) c.target.modbus.rtu[*port].open = false;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

bool is_ipv4(const std::string &text) { return net::parse_ipv4(text).has_value(); }

void set_tcp_mode(const cJSON *request, cJSON *reply, command_context &c) {
    const auto ip = json_string(request, "ip");
    const auto port = json_int(request, "port");
    const auto timeout = json_int(request, "timeout");
    const bool ok =
        ip && is_ipv4(*ip) && port && *port >= 1 && *port <= 65535 && valid_timeout(timeout);
    if (ok) c.target.modbus.tcp = modbus_tcp_link{true, *ip, *port, *timeout};
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void close_tcp_mode(const cJSON *, cJSON *reply, command_context &c) {
    c.target.modbus.tcp.open = false;
    cJSON_AddBoolToObject(reply, "set_state", true);
}

constexpr command_row rows[] = {
    {"set_modbus_mode", "set_modbus_mode", set_mode},
    {"close_modbus_mode", "close_modbus_mode", close_mode},
    {"set_modbustcp_mode", "set_modbustcp_mode", set_tcp_mode},
    {"close_modbustcp_mode", "close_modbustcp_mode", close_tcp_mode},
    {"read_coils", "read_coils", read<bank::coils, packing::packed_bits>},
    {"read_input_status", "read_input_status", read<bank::discrete_inputs, packing::packed_bits>},
    {"read_holding_registers", "read_holding_registers",
     read<bank::holding, packing::one_register>},
    {"read_input_registers", "read_input_registers",
     read<bank::input_registers, packing::one_register>},
    {"read_multiple_coils", "read_multiple_coils", read<bank::coils, packing::bit_groups>},
    {"read_multiple_holding_registers", "read_multiple_holding_registers",
     read<bank::holding, packing::register_bytes>},
    {"read_multiple_input_registers", "read_multiple_input_registers",
     read<bank::input_registers, packing::register_bytes>},
    {"write_single_coil", "write_single_coil", write_single_coil},
    {"write_single_register", "write_single_register", write_single_register},
    {"write_registers", "write_registers", write_registers},
    {"write_coils", "write_coils", write_coils},
};

} // namespace

const family modbus_family{rows};

} // namespace sim
