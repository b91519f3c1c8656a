// Steps, teaching and trajectory control: exact request lines, result keys,
// the unread answer of a non-blocking step and the blocking step's wait.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {
std::string running(const std::string &type) {
    return R"({"command":"arm_current_trajectory","type":")" + type + R"(","data":[0,0,0,0,0,0]})";
}
} // namespace

TEST(jogging_wire, bad_arguments_send_nothing_and_every_command_sends_its_exact_line) {
    arm_session s;
    EXPECT_EQ(ka_set_ort_step(s.arm, static_cast<ka_ort_teach_type_e>(-1), 0.1f, 10, 1), -1);
    EXPECT_EQ(ka_set_pos_teach(s.arm, static_cast<ka_pos_teach_type_e>(3), 1, 10), -1);
    EXPECT_EQ(ka_set_ort_teach(s.arm, static_cast<ka_ort_teach_type_e>(7), 1, 10), -1);
    EXPECT_EQ(ka_get_teach_frame(s.arm, nullptr), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    int frame = -1;
    // clang-format off
    // get_frame gives 10 * frame + result (any positive result, a reply lacking the key, as 1000).
    auto get_frame = [&](ka_robot_handle *h) { int r = ka_get_teach_frame(h, &frame); return (r > 0 ? 1000 : r) + 10 * frame; };
    // Steps scale in single precision (-0.7 degrees is -700); a non-blocking step never reads its answer.
    const wire_case rows[] = {
        {"joint step", [](ka_robot_handle *h) { return ka_set_joint_step(h, 3, -0.7f, 20, 0); }, R"({"command":"set_joint_step","joint_step":[3,-700],"v":20})", answer("set_joint_step", "receive_state", false), 0},
        {"pos step", [](ka_robot_handle *h) { return ka_set_pos_step(h, KA_TEACH_Z, 0.001f, 10, 0); }, R"({"command":"set_pos_step","v":10,"step":1000,"step_type":"z_step"})", "", 0},
        {"ort step", [](ka_robot_handle *h) { return ka_set_ort_step(h, KA_TEACH_RX, 0.0015f, 10, 0); }, R"({"command":"set_ort_step","v":10,"step":1,"step_type":"rx_step"})", "", 0},
        {"blocking pos step refused", [](ka_robot_handle *h) { return ka_set_pos_step(h, KA_TEACH_X, -0.25f, 10, 1); }, R"({"command":"set_pos_step","v":10,"step":-250000,"step_type":"x_step"})", answer("set_pos_step", "receive_state", false), 1},
        {"blocking ort step refused", [](ka_robot_handle *h) { return ka_set_ort_step(h, KA_TEACH_RZ, 1, 10, 1); }, R"({"command":"set_ort_step","v":10,"step":1000,"step_type":"rz_step"})", answer("set_ort_step", "receive_state", false), 1},
        {"joint teach", [](ka_robot_handle *h) { return ka_set_joint_teach(h, 2, 5, 30); }, R"({"command":"set_joint_teach","teach_joint":2,"v":30,"direction":"pos"})", answer("set_joint_teach", "joint_teach"), 0},
        {"pos teach", [](ka_robot_handle *h) { return ka_set_pos_teach(h, KA_TEACH_Y, 0, 10); }, R"({"command":"set_pos_teach","v":10,"direction":"neg","teach_type":"y"})", answer("set_pos_teach", "pos_teach", false), 1},
        {"ort teach", [](ka_robot_handle *h) { return ka_set_ort_teach(h, KA_TEACH_RY, 0, 10); }, R"({"command":"set_ort_teach","v":10,"direction":"neg","teach_type":"ry"})", answer("set_ort_teach", "ort_teach"), 0},
        {"stop teach", ka_set_stop_teach, R"({"command":"set_stop_teach"})", answer("set_stop_teach", "stop_teach"), 0},
        {"set frame", [](ka_robot_handle *h) { return ka_set_teach_frame(h, 1); }, R"({"command":"set_teach_frame","frame_type":1})", answer("set_teach_frame", "set_state"), 0},
        {"get frame", get_frame, R"({"command":"get_teach_frame"})", R"({"command":"get_teach_frame","frame_type":1})", 10},
        {"get frame without key", get_frame, R"({"command":"get_teach_frame"})", R"({"command":"get_teach_frame"})", 1010},
        {"slow stop", ka_set_arm_slow_stop, R"({"command":"set_arm_slow_stop"})", answer("set_arm_slow_stop", "arm_slow_stop"), 0},
        {"stop", ka_set_arm_stop, R"({"command":"set_arm_stop"})", answer("set_arm_stop", "arm_stop"), 0},
        {"pause", ka_set_arm_pause, R"({"command":"set_arm_pause"})", answer("set_arm_pause", "arm_pause", false), 1},
        {"continue", ka_set_arm_continue, R"({"command":"set_arm_continue"})", answer("set_arm_continue", "arm_continue"), 0},
        {"delete current", ka_set_delete_current_trajectory, R"({"command":"set_delete_current_trajectory"})", answer("set_delete_current_trajectory", "delete_current_trajectory"), 0},
        {"delete all", ka_set_arm_delete_trajectory, R"({"command":"set_arm_delete_trajectory"})", answer("set_arm_delete_trajectory", "arm_delete_trajectory"), 0},
    };
    for (const auto &row : rows) expect_wire(s, row);
    // clang-format on
}

// A blocking step re-queries the running trajectory until the arm is idle, then takes the report.
TEST(jogging_steps, a_blocking_step_waits_for_its_trajectory_and_report) {
    arm_session s;
    log_capture log;
    // clang-format off
    struct row { std::function<int(ka_robot_handle *)> call; const char *command, *kind; int device, result; } rows[] = {
        {[](ka_robot_handle *h) { return ka_set_joint_step(h, 1, 2, 20, 1); }, "set_joint_step", "movej", 0, 0},
        {[](ka_robot_handle *h) { return ka_set_pos_step(h, KA_TEACH_X, 0.01f, 20, 1); }, "set_pos_step", "movel", 0, 0},
        {[](ka_robot_handle *h) { return ka_set_ort_step(h, KA_TEACH_RX, 0.1f, 20, 1); }, "set_ort_step", "movel", 3, -4},
    };
    // clang-format on
    for (const auto &r : rows) {
        s.peer.clear_lines();
        s.peer.on(r.command, {reply(answer(r.command, "receive_state"))});
        for (int i = 0; i < 2; ++i)
            s.peer.on_once("get_arm_current_trajectory", {reply(running(r.kind))});
        s.peer.on("get_arm_current_trajectory",
                  {reply(running("none")), delay(30ms), reply(completion_report(r.device))});
        EXPECT_EQ(r.call(s.arm), r.result) << r.command;
        EXPECT_EQ(s.peer.commands().size(), 4u) << r.command; // the step, three queries
    }
    EXPECT_TRUE(log.contains("[ka_set_ort_step_block] current device is: 3 \n"));
}

TEST(jogging_steps, single_thread_mode_gives_up_after_block_seconds) {
    arm_session s(KA_THREAD_MODE_SINGLE);
    s.peer.on("set_joint_step", {reply(answer("set_joint_step", "receive_state"))});
    EXPECT_EQ(ka_set_joint_step(s.arm, 1, 2, 20, 1), -5);
    s.peer.on("set_joint_step", {reply(answer("set_joint_step", "receive_state")), delay(20ms),
                                 reply(completion_report())});
    EXPECT_EQ(ka_set_joint_step(s.arm, 1, 2, 20, 2), 0);
}

// Every set command against each verdict form; -2 timed for two of them.
// Left out: the blocking steps (the verdict starts a wait for the arm).
TEST(jogging_wire, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    // clang-format off
    const set_row rows[] = {
        {"set_joint_teach", [](ka_robot_handle *h) { return ka_set_joint_teach(h, 2, 5, 30); }, "", "joint_teach", 500, quiet::always},
        {"set_pos_teach", [](ka_robot_handle *h) { return ka_set_pos_teach(h, KA_TEACH_Y, 0, 10); }, "", "pos_teach"},
        {"set_ort_teach", [](ka_robot_handle *h) { return ka_set_ort_teach(h, KA_TEACH_RY, 0, 10); }, "", "ort_teach"},
        {"set_teach_frame", [](ka_robot_handle *h) { return ka_set_teach_frame(h, 1); }, "", "set_state"},
        {"set_stop_teach", ka_set_stop_teach, "", "stop_teach"},
        {"set_arm_slow_stop", ka_set_arm_slow_stop, "", "arm_slow_stop"},
        {"set_arm_stop", ka_set_arm_stop, "", "arm_stop", 500, quiet::always},
        {"set_arm_pause", ka_set_arm_pause, "", "arm_pause"},
        {"set_arm_continue", ka_set_arm_continue, "", "arm_continue"},
        {"set_delete_current_trajectory", ka_set_delete_current_trajectory, "", "delete_current_trajectory"},
        {"set_arm_delete_trajectory", ka_set_arm_delete_trajectory, "", "arm_delete_trajectory"},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
