// Modbus peripherals: exact requests and key orders, reads into the caller's
// array (coil-group rounding, blocks beyond the typed parser's capacity, the
// refusal report when "data" is unreadable), argument bounds, the coil wait.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>
#include <vector>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// port, address, device, num
const ka_peripheral_read_write_params_t p{1, 10, 2, 16};
int regs[6] = {1, 2, 3, 4, 5, 6};
int out[251];

ka_peripheral_read_write_params_t with_num(int num) { return {p.port, p.address, p.device, num}; }

} // namespace

TEST(modbus, every_command_sends_its_keys_in_order_and_reads_exactly_its_data) {
    arm_session s;
    const std::string addr = R"("port":1,"address":10,)", n16 = addr + R"("num":16,"device":2)";
    // 125 registers: 250 integers, more than one typed reply field holds, on a
    // line longer than the usual reply buffer.
    std::vector<int> block(250);
    std::string block_data = R"("data":[)";
    for (int i = 0; i < 250; ++i)
        block_data += std::to_string(block[i] = i * 1000) + (i < 249 ? "," : "]");
    // clang-format off
    struct { const char *command; std::function<int(ka_robot_handle *)> call; std::string request, answer; int result; std::vector<int> want; } const rows[] = {
        {"set_modbus_mode", [](auto h) { return ka_set_modbus_mode(h, 1, 115200, 2); }, R"("port":1,"baudrate":115200,"timeout":2)", R"("set_state":true)", 0, {}},
        {"close_modbus_mode", [](auto h) { return ka_close_modbus_mode(h, 1); }, R"("port":1)", R"("set_state":false)", 1, {}},
        {"set_modbustcp_mode", [](auto h) { return ka_set_modbustcp_mode(h, "10.0.0.7", 502, 20); }, R"("ip":"10.0.0.7","port":502,"timeout":20)", R"("set_state":true)", 0, {}},
        {"close_modbustcp_mode", [](auto h) { return ka_close_modbustcp_mode(h); }, "", R"("set_state":true)", 0, {}},
        {"read_coils", [](auto h) { return ka_read_coils(h, p, out); }, n16, R"("data":5)", 0, {5}},
        {"read_coils", [](auto h) { return ka_read_coils(h, p, out); }, n16, R"("read_state":false)", 1, {}},
        {"read_coils", [](auto h) { return ka_read_coils(h, p, out); }, n16, R"("other":1)", -3, {}},
        {"read_coils", [](auto h) { return ka_read_coils(h, p, out); }, n16, R"("read_state":1)", -3, {}},
        {"read_input_status", [](auto h) { return ka_read_input_status(h, p, out); }, n16, R"("data":3)", 0, {3}},
        {"read_holding_registers", [](auto h) { return ka_read_holding_registers(h, p, out); }, addr + R"("device":2)", R"("data":-7)", 0, {-7}},
        {"read_input_registers", [](auto h) { return ka_read_input_registers(h, p, out); }, addr + R"("device":2)", R"("data":65535)", 0, {65535}},
        {"write_single_coil", [](auto h) { return ka_write_single_coil(h, p, 1); }, addr + R"("data":1,"device":2)", R"("write_state":true)", 0, {}},
        {"write_single_register", [](auto h) { return ka_write_single_register(h, p, 300); }, addr + R"("data":300,"device":2)", R"("write_state":false)", 1, {}},
        {"write_registers", [](auto h) { return ka_write_registers(h, with_num(3), regs); }, addr + R"("num":3,"data":[1,2,3,4,5,6],"device":2)", R"("write_state":true)", 0, {}},
        {"write_coils", [](auto h) { return ka_write_coils(h, with_num(12), regs); }, addr + R"("num":12,"data":[1],"device":2)", R"("write_state":true)", 0, {}},
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, p, out); }, n16, R"("data":[255,1])", 0, {255, 1}},
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, p, out); }, n16, R"("read_state":false)", 1, {}},
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, p, out); }, n16, R"("data":[1])", -3, {}}, // a group short, no report
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, p, out); }, n16, R"("data":[1,2,3],"read_state":false)", 1, {}},
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, with_num(12), out); }, addr + R"("num":12,"device":2)", R"("data":[7,8])", 0, {7}}, // 2 groups received, 1 copied
        {"read_multiple_coils", [](auto h) { return ka_read_multiple_coils(h, with_num(5), out); }, addr + R"("num":5,"device":2)", R"("data":[9])", 0, {}}, // below 8 coils none copied
        {"read_multiple_holding_registers", [](auto h) { return ka_read_multiple_holding_registers(h, with_num(2), out); }, addr + R"("num":2,"device":2)", R"("data":[0,1,2,3])", 0, {0, 1, 2, 3}},
        {"read_multiple_holding_registers", [](auto h) { return ka_read_multiple_holding_registers(h, with_num(125), out); }, addr + R"("num":125,"device":2)", block_data, 0, block},
        {"read_multiple_input_registers", [](auto h) { return ka_read_multiple_input_registers(h, with_num(2), out); }, addr + R"("num":2,"device":2)", R"("data":[9,8,7,6])", 0, {9, 8, 7, 6}},
    };
    // clang-format on
    for (const auto &r : rows) {
        std::fill(std::begin(out), std::end(out), -100);
        expect_wire(
            s, {r.answer, r.call, line(r.command, r.request), line(r.command, r.answer), r.result});
        std::vector<int> want = r.want;
        want.push_back(-100);
        EXPECT_EQ(std::vector<int>(out, out + want.size()), want)
            << r.command << ": the data and nothing past it";
    }
}

TEST(modbus, bad_counts_and_null_data_send_nothing_and_coil_writes_wait_longer) {
    arm_session s;
    for (int num : {-1, -8, 126, 1 << 30})
        EXPECT_EQ(ka_write_registers(s.arm, with_num(num), regs), -1) << num;
    for (int num : {-1, 2001})
        EXPECT_EQ(ka_read_multiple_coils(s.arm, with_num(num), out), -1) << num;
    EXPECT_EQ(ka_read_multiple_input_registers(s.arm, with_num(126), out), -1);
    EXPECT_EQ(ka_write_coils(s.arm, p, nullptr), -1);
    EXPECT_EQ(ka_read_coils(s.arm, p, nullptr), -1);
    EXPECT_EQ(ka_read_multiple_holding_registers(s.arm, p, nullptr), -1);
    EXPECT_EQ(ka_set_modbustcp_mode(s.arm, nullptr, 502, 1), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";

    // A reply after 1.5 s still ends a coil write; a register write has given up.
    for (const char *command : {"write_single_coil", "write_single_register"})
        s.peer.on(command, {delay(1500ms), reply(line(command, R"("write_state":true)"))});
    EXPECT_EQ(ka_write_single_coil(s.arm, p, 1), 0);
    EXPECT_EQ(ka_write_single_register(s.arm, p, 1), -2);
}

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

// Every set command against each verdict form, no reply included: 1 s, and
// 3 s for the coil writes.
TEST(modbus, every_set_command_maps_each_verdict_form) {
    // clang-format off
    const set_row rows[] = {
        {"set_modbus_mode", CALL(ka_set_modbus_mode(h, 1, 115200, 2)), "", "set_state", 1000},
        {"close_modbus_mode", CALL(ka_close_modbus_mode(h, 1)), "", "set_state", 1000},
        {"set_modbustcp_mode", CALL(ka_set_modbustcp_mode(h, "192.168.1.50", 502, 2)), "", "set_state", 1000},
        {"close_modbustcp_mode", CALL(ka_close_modbustcp_mode(h)), "", "set_state", 1000},
        {"write_single_coil", CALL(ka_write_single_coil(h, p, 1)), "", "write_state", 3000},
        {"write_single_register", CALL(ka_write_single_register(h, p, 7)), "", "write_state", 1000},
        {"write_registers", CALL(ka_write_registers(h, with_num(3), regs)), "", "write_state", 1000},
        {"write_coils", CALL(ka_write_coils(h, p, regs)), "", "write_state", 3000},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
