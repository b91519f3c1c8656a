// Controller and tool I/O: exact request lines and result keys, the integer
// fields read back, and the RS485 replies that lack the Modbus time-out.
#include "support/arm_fixture.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

// Every reading lands in its own slot of `got`, in the order of the table below.
int got[36];

} // namespace

// `reply`: the reply's name when it is not the command's. The last rows lack
// a key; an RS485 reply without the Modbus time-out still counts.
TEST(io, every_command_sends_its_exact_line_and_bad_arguments_send_nothing) {
    arm_session s;
    log_capture log;
    std::fill(got, got + 36, -7);
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; std::string command, request, reply, answer; int result; } const rows[] = {
        {CALL(ka_set_IO_mode(h, 2, 1)), "set_IO_mode", R"("IO_Num":2,"IO_mode":1)", "", R"("set_state":true)", 0},
        {CALL(ka_set_DO_state(h, 3, 1)), "set_DO_state", R"("IO_Num":3,"state":1)", "", R"("set_state":false)", 1},
        {CALL(ka_get_IO_state(h, 2, &got[0], &got[1])), "get_IO_state", R"("IO_Num":2)", "IO_state", R"("IO_Num":2,"IO_Mode":3,"IO_state":1)", 0},
        {CALL(ka_get_IO_input(h, &got[2])), "get_IO_input", "", "IO_input_state", R"("DI":[1,0,1,-1])", 0},
        {CALL(ka_get_IO_output(h, &got[6])), "get_IO_output", "", "IO_output_state", R"("DO":[0,1,1,0])", 0},
        {CALL(ka_set_voltage(h, 2)), "set_voltage", R"("voltage_type":2)", "", R"("state":true)", 0},
        {CALL(ka_get_voltage(h, &got[10])), "get_voltage", "", "voltage_state", R"("voltage_type":3)", 0},
        {CALL(ka_set_tool_DO_state(h, 1, 1)), "set_tool_DO_state", R"("IO_Num":1,"state":1)", "", R"("set_state":true)", 0},
        {CALL(ka_set_tool_IO_mode(h, 1, 2)), "set_tool_IO_mode", R"("IO_Num":1,"state":2)", "", R"("set_state":true)", 0},
        {CALL(ka_get_tool_IO_state(h, &got[11], &got[13])), "get_tool_IO_state", "", "tool_IO_state", R"("IO_Mode":[0,1],"IO_state":[1,0])", 0},
        {CALL(ka_set_tool_voltage(h, 3)), "set_tool_voltage", R"("voltage_type":3)", "", R"("state":false)", 1},
        {CALL(ka_get_tool_voltage(h, &got[15])), "get_tool_voltage", "", "tool_voltage_state", R"("voltage_type":1)", 0},
        {CALL(ka_get_controller_RS485_mode(h, &got[16], &got[17], &got[18])), "get_controller_RS485_mode", "", "", R"("controller_RS485_mode":2,"baudrate":115200,"modbus_timeout":20)", 0},
        {CALL(ka_get_tool_RS485_mode(h, &got[19], &got[20], &got[21])), "get_tool_RS485_mode", "", "", R"("tool_RS485_mode":1,"baudrate":9600,"modbus_timeout":5)", 0},
        {CALL(ka_get_controller_RS485_mode(h, &got[22], &got[23], &got[24])), "get_controller_RS485_mode", "", "", R"("controller_RS485_mode":0,"baudrate":9600)", 0},
        {CALL(ka_get_tool_RS485_mode(h, &got[25], &got[26], &got[27])), "get_tool_RS485_mode", "", "", R"("tool_RS485_mode":1,"modbus_timeout":5)", -3},
        {CALL(ka_get_IO_state(h, 1, &got[28], &got[29])), "get_IO_state", R"("IO_Num":1)", "IO_state", R"("IO_Mode":1,"IO_state":1)", -3},
        {CALL(ka_get_IO_input(h, &got[30])), "get_IO_input", "", "IO_input_state", R"("DI":[1,1,1])", -3},
        {CALL(ka_get_voltage(h, &got[34])), "get_voltage", "", "voltage_state", "", -3},
    };
    for (const auto &r : rows)
        expect_wire(s, {r.command, r.call, line(r.command, r.request), line(r.reply.empty() ? r.command : r.reply, r.answer), r.result});
    // IO state and mode, DI, DO, voltage, tool modes and states, tool voltage, both RS485 modes,
    // the RS485 mode without the Modbus time-out (read as 0); nothing written by a failed parse.
    std::vector<int> want = {1, 3, 1, 0, 1, -1, 0, 1, 1, 0, 3, 0, 1, 1, 0, 1, 2, 115200, 20, 1, 9600, 5, 0, 9600, 0};
    want.resize(36, -7);
    EXPECT_EQ(std::vector<int>(got, got + 36), want);
    // clang-format on
    const auto lines = log.lines();
    for (const char *text :
         {"it is not in Modbus-RTU mode, and the modbus_timeout field does not exist.\n",
          "baudrate parsing error\n"})
        EXPECT_NE(std::find(lines.begin(), lines.end(), text), lines.end()) << text;

    s.peer.clear_lines();
    ka_robot_handle *h = s.arm;
    int *p = got;
    EXPECT_EQ(
        std::vector<int>({ka_get_IO_state(h, 1, p, nullptr), ka_get_IO_input(h, nullptr),
                          ka_get_IO_output(h, nullptr), ka_get_voltage(h, nullptr),
                          ka_get_tool_voltage(h, nullptr), ka_get_tool_IO_state(h, p, nullptr),
                          ka_get_controller_RS485_mode(h, nullptr, p, p),
                          ka_get_tool_RS485_mode(h, p, p, nullptr)}),
        std::vector<int>(8, -1));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "bad arguments: nothing sent";
}

// Every set command against each verdict form; -2 timed for two of them.
TEST(io, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    // clang-format off
    const set_row rows[] = {
        {"set_IO_mode", CALL(ka_set_IO_mode(h, 2, 1)), "", "set_state", 500, quiet::always},
        {"set_DO_state", CALL(ka_set_DO_state(h, 3, 1)), "", "set_state"},
        {"set_tool_DO_state", CALL(ka_set_tool_DO_state(h, 1, 1)), "", "set_state"},
        {"set_tool_IO_mode", CALL(ka_set_tool_IO_mode(h, 1, 2)), "", "set_state"},
        {"set_voltage", CALL(ka_set_voltage(h, 2)), "", "state", 500, quiet::always},
        {"set_tool_voltage", CALL(ka_set_tool_voltage(h, 3)), "", "state"},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
