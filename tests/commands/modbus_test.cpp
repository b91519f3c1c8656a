// Modbus peripherals: exact requests and key orders, the refusal report when
// "data" is unreadable, coil-group and register-pair array lengths, blocks
// beyond the typed parser's capacity, argument bounds and the longer coil wait.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>
#include <vector>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// port, address, device, num
const ka_peripheral_read_write_params_t p{1, 10, 2, 16};
int regs[6] = {1, 2, 3, 4, 5, 6};
int out[8];

std::string line(const std::string &command, const std::string &rest) {
    return R"({"command":")" + command + "\"," + rest + "}";
}
ka_peripheral_read_write_params_t with_num(int num) { return {p.port, p.address, p.device, num}; }

} // namespace

TEST(modbus, every_command_sends_its_keys_in_order_and_reads_its_data) {
    arm_session s;
    const std::string addr = R"("port":1,"address":10,)";
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; std::string command, request, answer; int result; std::vector<int> want; } const rows[] = {
        {[](auto h) { return ka_set_modbus_mode(h, 1, 115200, 2); }, "set_modbus_mode", R"("port":1,"baudrate":115200,"timeout":2)", R"("set_state":true)", 0, {}},
        {[](auto h) { return ka_close_modbus_mode(h, 1); }, "close_modbus_mode", R"("port":1)", R"("set_state":false)", 1, {}},
        {[](auto h) { return ka_set_modbustcp_mode(h, "10.0.0.7", 502, 20); }, "set_modbustcp_mode", R"("ip":"10.0.0.7","port":502,"timeout":20)", R"("set_state":true)", 0, {}},
        {[](auto h) { return ka_close_modbustcp_mode(h); }, "close_modbustcp_mode", "", R"("set_state":true)", 0, {}},
        {[](auto h) { return ka_read_coils(h, p, out); }, "read_coils", addr + R"("num":16,"device":2)", R"("data":5)", 0, {5}},
        {[](auto h) { return ka_read_input_status(h, p, out); }, "read_input_status", addr + R"("num":16,"device":2)", R"("data":3)", 0, {3}},
        {[](auto h) { return ka_read_holding_registers(h, p, out); }, "read_holding_registers", addr + R"("device":2)", R"("data":-7)", 0, {-7}},
        {[](auto h) { return ka_read_input_registers(h, p, out); }, "read_input_registers", addr + R"("device":2)", R"("data":65535)", 0, {65535}},
        {[](auto h) { return ka_write_single_coil(h, p, 1); }, "write_single_coil", addr + R"("data":1,"device":2)", R"("write_state":true)", 0, {}},
        {[](auto h) { return ka_write_single_register(h, p, 300); }, "write_single_register", addr + R"("data":300,"device":2)", R"("write_state":false)", 1, {}},
        {[](auto h) { return ka_write_registers(h, with_num(3), regs); }, "write_registers", addr + R"("num":3,"data":[1,2,3,4,5,6],"device":2)", R"("write_state":true)", 0, {}},
        {[](auto h) { return ka_write_coils(h, with_num(12), regs); }, "write_coils", addr + R"("num":12,"data":[1],"device":2)", R"("write_state":true)", 0, {}},
        {[](auto h) { return ka_read_multiple_coils(h, p, out); }, "read_multiple_coils", addr + R"("num":16,"device":2)", R"("data":[255,1])", 0, {255, 1}},
        {[](auto h) { return ka_read_multiple_holding_registers(h, with_num(2), out); }, "read_multiple_holding_registers", addr + R"("num":2,"device":2)", R"("data":[0,1,2,3])", 0, {0, 1, 2, 3}},
        {[](auto h) { return ka_read_multiple_input_registers(h, with_num(2), out); }, "read_multiple_input_registers", addr + R"("num":2,"device":2)", R"("data":[9,8,7,6])", 0, {9, 8, 7, 6}},
    };
    // clang-format on
    for (const auto &r : rows) {
        std::fill(std::begin(out), std::end(out), -100);
        const std::string request =
            r.request.empty() ? R"({"command":")" + r.command + "\"}" : line(r.command, r.request);
        expect_wire(s, {r.command, r.call, request, line(r.command, r.answer), r.result});
        for (size_t i = 0; i < r.want.size(); ++i)
            EXPECT_EQ(out[i], r.want[i]) << r.command << " [" << i << "]";
        EXPECT_EQ(out[r.want.size()], -100) << r.command << ": nothing written past the data";
    }
}

TEST(modbus, unreadable_data_is_a_refusal_report_and_coil_groups_round_as_documented) {
    arm_session s;
    auto coils = [&](int num, const std::string &answer, int result) {
        std::fill(std::begin(out), std::end(out), -100);
        expect_wire(s, {answer,
                        [num](auto h) { return ka_read_multiple_coils(h, with_num(num), out); },
                        line("read_multiple_coils", R"("port":1,"address":10,"num":)" +
                                                        std::to_string(num) + R"(,"device":2)"),
                        line("read_multiple_coils", answer), result});
    };
    coils(16, R"("read_state":false)", 1);
    coils(16, R"("data":[1])", -3);                       // one group short, no report
    coils(16, R"("data":[1,2,3],"read_state":false)", 1); // one too many, refused
    EXPECT_EQ(out[0], -100);
    coils(12, R"("data":[7,8])", 0); // 2 groups received, 1 copied
    EXPECT_EQ(std::vector<int>(out, out + 2), (std::vector<int>{7, -100}));
    coils(5, R"("data":[9])", 0); // below 8 coils nothing is copied
    EXPECT_EQ(out[0], -100);

    const std::string single = line("read_coils", R"("port":1,"address":10,"num":16,"device":2)");
    for (auto [answer, result] : std::vector<std::pair<std::string, int>>{
             {R"("read_state":false)", 1}, {R"("other":1)", -3}, {R"("read_state":1)", -3}}) {
        out[0] = -100;
        expect_wire(s, {answer, [](auto h) { return ka_read_coils(h, p, out); }, single,
                        line("read_coils", answer), result});
        EXPECT_EQ(out[0], -100);
    }

    // 125 registers: 250 integers, more than one typed reply field holds, on a
    // line longer than the usual reply buffer.
    std::vector<int> block(251, -100);
    std::string data = R"("data":[)";
    for (int i = 0; i < 250; ++i)
        data += std::to_string(i * 1000) + (i < 249 ? "," : "]");
    expect_wire(
        s,
        {"block",
         [&](auto h) { return ka_read_multiple_holding_registers(h, with_num(125), block.data()); },
         line("read_multiple_holding_registers", R"("port":1,"address":10,"num":125,"device":2)"),
         line("read_multiple_holding_registers", data), 0});
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[249], 249000);
    EXPECT_EQ(block[250], -100);
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
