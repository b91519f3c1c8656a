// Controller and tool I/O: exact request lines and result keys, the integer
// fields read back, and the RS485 replies that lack the Modbus time-out.
#include "support/arm_fixture.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

int io_state, io_mode, di[4], dout[4], volts, tool_volts, tool_mode[2], tool_state[2], rs[2][3];

std::string line(const std::string &command, const std::string &rest = "") {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}

bool logged(const log_capture &log, const std::string &text) {
    auto lines = log.lines();
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

} // namespace

// `reply`: the reply's name when it is not the command's.
TEST(io, every_command_sends_its_exact_line_and_reads_its_reply) {
    arm_session s;
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; std::string command, request, reply, answer; int result; } const rows[] = {
        {CALL(ka_set_IO_mode(h, 2, 1)), "set_IO_mode", R"("IO_Num":2,"IO_mode":1)", "", R"("set_state":true)", 0},
        {CALL(ka_set_DO_state(h, 3, 1)), "set_DO_state", R"("IO_Num":3,"state":1)", "", R"("set_state":false)", 1},
        {CALL(ka_get_IO_state(h, 2, &io_state, &io_mode)), "get_IO_state", R"("IO_Num":2)", "IO_state", R"("IO_Num":2,"IO_Mode":3,"IO_state":1)", 0},
        {CALL(ka_get_IO_input(h, di)), "get_IO_input", "", "IO_input_state", R"("DI":[1,0,1,-1])", 0},
        {CALL(ka_get_IO_output(h, dout)), "get_IO_output", "", "IO_output_state", R"("DO":[0,1,1,0])", 0},
        {CALL(ka_set_voltage(h, 2)), "set_voltage", R"("voltage_type":2)", "", R"("state":true)", 0},
        {CALL(ka_get_voltage(h, &volts)), "get_voltage", "", "voltage_state", R"("voltage_type":3)", 0},
        {CALL(ka_set_tool_DO_state(h, 1, 1)), "set_tool_DO_state", R"("IO_Num":1,"state":1)", "", R"("set_state":true)", 0},
        {CALL(ka_set_tool_IO_mode(h, 1, 2)), "set_tool_IO_mode", R"("IO_Num":1,"state":2)", "", R"("set_state":true)", 0},
        {CALL(ka_get_tool_IO_state(h, tool_mode, tool_state)), "get_tool_IO_state", "", "tool_IO_state", R"("IO_Mode":[0,1],"IO_state":[1,0])", 0},
        {CALL(ka_set_tool_voltage(h, 3)), "set_tool_voltage", R"("voltage_type":3)", "", R"("state":false)", 1},
        {CALL(ka_get_tool_voltage(h, &tool_volts)), "get_tool_voltage", "", "tool_voltage_state", R"("voltage_type":1)", 0},
        {CALL(ka_get_controller_RS485_mode(h, &rs[0][0], &rs[0][1], &rs[0][2])), "get_controller_RS485_mode", "", "", R"("controller_RS485_mode":2,"baudrate":115200,"modbus_timeout":20)", 0},
        {CALL(ka_get_tool_RS485_mode(h, &rs[1][0], &rs[1][1], &rs[1][2])), "get_tool_RS485_mode", "", "", R"("tool_RS485_mode":1,"baudrate":9600,"modbus_timeout":5)", 0},
    };
    // clang-format on
    for (const auto &r : rows)
        expect_wire(s, {r.command, r.call, line(r.command, r.request),
                        line(r.reply.empty() ? r.command : r.reply, r.answer), r.result});
    EXPECT_EQ(std::vector<int>({io_state, io_mode, volts, tool_volts}),
              std::vector<int>({1, 3, 3, 1}));
    EXPECT_EQ(std::vector<int>(di, di + 4), std::vector<int>({1, 0, 1, -1}));
    EXPECT_EQ(std::vector<int>(dout, dout + 4), std::vector<int>({0, 1, 1, 0}));
    EXPECT_EQ(std::vector<int>({tool_mode[0], tool_mode[1], tool_state[0], tool_state[1]}),
              std::vector<int>({0, 1, 1, 0}));
    EXPECT_EQ(std::vector<int>(&rs[0][0], &rs[0][0] + 6),
              std::vector<int>({2, 115200, 20, 1, 9600, 5}));
}

TEST(io, missing_keys_and_bad_arguments) {
    arm_session s;
    log_capture log;
    std::fill(&rs[0][0], &rs[0][0] + 3, 99);
    io_state = io_mode = -7;
    std::fill(di, di + 4, -7);
    const std::string rs485 = line("get_controller_RS485_mode");
    // clang-format off
    const wire_case rows[] = {
        {"not Modbus-RTU", CALL(ka_get_controller_RS485_mode(h, &rs[0][0], &rs[0][1], &rs[0][2])), rs485, line("get_controller_RS485_mode", R"("controller_RS485_mode":0,"baudrate":9600)"), 0},
        {"no baudrate", CALL(ka_get_tool_RS485_mode(h, &rs[1][0], &rs[1][1], &rs[1][2])), line("get_tool_RS485_mode"), line("get_tool_RS485_mode", R"("tool_RS485_mode":1,"modbus_timeout":5)"), -3},
        {"no IO_Num", CALL(ka_get_IO_state(h, 1, &io_state, &io_mode)), line("get_IO_state", R"("IO_Num":1)"), line("IO_state", R"("IO_Mode":1,"IO_state":1)"), -3},
        {"three inputs", CALL(ka_get_IO_input(h, di)), line("get_IO_input"), line("IO_input_state", R"("DI":[1,1,1])"), -3},
        {"no voltage", CALL(ka_get_voltage(h, &volts)), line("get_voltage"), line("voltage_state"), -3},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    EXPECT_EQ(std::vector<int>(&rs[0][0], &rs[0][0] + 3), std::vector<int>({0, 9600, 0}));
    EXPECT_TRUE(logged(
        log, "it is not in Modbus-RTU mode, and the modbus_timeout field does not exist.\n"));
    EXPECT_TRUE(logged(log, "baudrate parsing error\n"));
    EXPECT_EQ(std::vector<int>({io_state, io_mode, di[0]}), std::vector<int>({-7, -7, -7}));

    s.peer.clear_lines();
    ka_robot_handle *h = s.arm;
    EXPECT_EQ(std::vector<int>({ka_get_IO_state(h, 1, &io_state, nullptr),
                                ka_get_IO_input(h, nullptr), ka_get_IO_output(h, nullptr),
                                ka_get_voltage(h, nullptr), ka_get_tool_voltage(h, nullptr),
                                ka_get_tool_IO_state(h, tool_mode, nullptr),
                                ka_get_controller_RS485_mode(h, nullptr, &rs[0][1], &rs[0][2]),
                                ka_get_tool_RS485_mode(h, &rs[1][0], &rs[1][1], nullptr)}),
              std::vector<int>(8, -1));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";
}
