// Gripper and dexterous hand: exact request lines and result keys, the
// gripper's shared reply name, and every way an effector's wait can end,
// with each action's own status codes.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

std::string answer(const std::string &command, const std::string &key, bool ok = true) {
    return R"({"command":")" + command + R"(",")" + key + R"(":)" + (ok ? "true" : "false") + "}";
}
std::string report(int device, bool ok = true) {
    return R"({"state":"current_trajectory_state","trajectory_state":)" +
           std::string(ok ? "true" : "false") + R"(,"device":)" + std::to_string(device) +
           R"(,"trajectory_connect":0})";
}
const int fingers[6] = {0, -1, 1000, 65535, -32768, 7};

} // namespace

TEST(effectors_wire, bad_arguments_send_nothing_and_every_command_sends_its_exact_line) {
    arm_session s;
    EXPECT_EQ(ka_get_gripper_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_set_hand_angle(s.arm, nullptr), -1);
    EXPECT_EQ(ka_set_hand_follow_angle(s.arm, nullptr), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    ka_gripper_state_t g{};
    // clang-format off
    // The record's seven fields as digits, in record order.
    auto state = [&](ka_robot_handle *h) { int r = ka_get_gripper_state(h, &g); return r ? r : (((((g.enable * 10 + g.status) * 10 + g.error) * 10 + g.mode) * 10 + g.current_force) * 10 + g.temperature) * 10 + g.actpos; };
    const std::string state_line = R"({"command":"get_gripper_state"})", gripper = "set_gripper";
    // Gripper actions with a time-out read the accepting reply, which always comes as "set_gripper".
    const wire_case rows[] = {
        {"route", [](ka_robot_handle *h) { return ka_set_gripper_route(h, 10, 70); }, R"({"command":"set_gripper_route","min":10,"max":70})", answer("set_gripper_route", "state"), 0},
        {"route judged on state", [](ka_robot_handle *h) { return ka_set_gripper_route(h, 10, 70); }, R"({"command":"set_gripper_route","min":10,"max":70})", answer("set_gripper_route", "set_state"), -3},
        {"release", [](ka_robot_handle *h) { return ka_set_gripper_release(h, 500, false, 3); }, R"({"command":"set_gripper_release","speed":500,"block":false})", answer(gripper, "state"), 0},
        {"pick refused", [](ka_robot_handle *h) { return ka_set_gripper_pick(h, 500, 200, false, 3); }, R"({"command":"set_gripper_pick","speed":500,"force":200,"block":false})", answer(gripper, "state", false), 1},
        {"pick answered under its own name", [](ka_robot_handle *h) { return ka_set_gripper_pick(h, 500, 200, false, 3); }, R"({"command":"set_gripper_pick","speed":500,"force":200,"block":false})", answer("set_gripper_pick", "state"), -2},
        {"pick on", [](ka_robot_handle *h) { return ka_set_gripper_pick_on(h, 1, -2, false, 1); }, R"({"command":"set_gripper_pick_on","speed":1,"force":-2,"block":false})", answer(gripper, "state"), 0},
        {"position", [](ka_robot_handle *h) { return ka_set_gripper_position(h, 300, false, 2); }, R"({"command":"set_gripper_position","position":300,"block":false})", answer(gripper, "state"), 0},
        {"gripper state", state, state_line, R"({"command":"get_gripper_state","enable":1,"status":2,"error":3,"mode":4,"current_force":5,"temperature":6,"actpos":7})", 1234567},
        {"gripper state without actpos", state, state_line, R"({"command":"get_gripper_state","enable":1,"status":2,"error":3,"mode":4,"current_force":5,"temperature":6})", -3},
        {"hand posture", [](ka_robot_handle *h) { return ka_set_hand_posture(h, 3, false, 5); }, R"({"command":"set_hand_posture","posture_num":3,"block":false})", answer("set_hand_posture", "set_state"), 0},
        {"hand sequence refused", [](ka_robot_handle *h) { return ka_set_hand_seq(h, 12, false, 0); }, R"({"command":"set_hand_seq","seq_num":12,"block":false})", answer("set_hand_seq", "set_state", false), 1},
        {"hand angle", [](ka_robot_handle *h) { return ka_set_hand_angle(h, fingers); }, R"({"command":"set_hand_angle","hand_angle":[0,-1,1000,65535,-32768,7]})", answer("set_hand_angle", "set_state"), 0},
        {"hand follow angle, never answered", [](ka_robot_handle *h) { return ka_set_hand_follow_angle(h, fingers); }, R"({"command":"hand_follow_angle","hand_angle":[0,-1,1000,65535,-32768,7]})", "", 0},
        {"hand speed", [](ka_robot_handle *h) { return ka_set_hand_speed(h, 800); }, R"({"command":"set_hand_speed","speed":800})", answer("set_hand_speed", "set_state"), 0},
        {"hand force", [](ka_robot_handle *h) { return ka_set_hand_force(h, 150); }, R"({"command":"set_hand_force","hand_force":150})", answer("set_hand_force", "set_state", false), 1},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
}

// Every blocking action against its own device, another device (an arm
// motion's report ends a gripper wait too), a report that ended false, an
// unparsable report and no report at all; and without block.
TEST(effectors_blocking, each_action_ends_with_its_own_codes) {
    arm_session s;
    struct action_row {
        const char *function, *command, *accept, *key;
        std::function<int(ka_robot_handle *)> call; // block, 1 s
        int device, no_report, other_device;
    };
    // clang-format off
    const action_row actions[] = {
        {"ka_set_gripper_release", "set_gripper_release", "set_gripper", "state", [](ka_robot_handle *h) { return ka_set_gripper_release(h, 500, true, 1); }, 1, -4, -4},
        {"ka_set_gripper_pick", "set_gripper_pick", "set_gripper", "state", [](ka_robot_handle *h) { return ka_set_gripper_pick(h, 500, 200, true, 1); }, 1, -4, -5},
        {"ka_set_gripper_pick_on", "set_gripper_pick_on", "set_gripper", "state", [](ka_robot_handle *h) { return ka_set_gripper_pick_on(h, 500, 200, true, 1); }, 1, -4, -5},
        {"ka_set_gripper_position", "set_gripper_position", "set_gripper", "state", [](ka_robot_handle *h) { return ka_set_gripper_position(h, 100, true, 1); }, 1, -4, -5},
        {"ka_set_hand_posture", "set_hand_posture", "set_hand_posture", "set_state", [](ka_robot_handle *h) { return ka_set_hand_posture(h, 2, true, 1); }, 2, -5, -4},
        {"ka_set_hand_seq", "set_hand_seq", "set_hand_seq", "set_state", [](ka_robot_handle *h) { return ka_set_hand_seq(h, 2, true, 1); }, 2, -5, -4},
    };
    // clang-format on
    const std::string unparsable =
        R"({"state":"current_trajectory_state","trajectory_state":true})";
    for (const auto &a : actions) {
        SCOPED_TRACE(a.function);
        const std::string accepted = answer(a.accept, a.key), label = std::string("[") + a.function;
        const int other = a.device == 1 ? 0 : 1;
        // The report in the same segment as the acceptance is not lost.
        s.peer.on(a.command, {raw(accepted + "\r\n" + report(a.device) + "\r\n")});
        EXPECT_EQ(a.call(s.arm), 0);
        s.peer.on(a.command, {reply(accepted), delay(20ms), reply(report(a.device, false))});
        EXPECT_EQ(a.call(s.arm), 1);
        s.peer.on(a.command, {reply(accepted), delay(20ms), reply(unparsable)});
        EXPECT_EQ(a.call(s.arm), -3);
        {
            log_capture log;
            s.peer.on(a.command, {reply(accepted), delay(20ms), reply(report(other))});
            EXPECT_EQ(a.call(s.arm), a.other_device);
            EXPECT_TRUE(
                log.contains(label + "] current device is: " + std::to_string(other) + " \n"));
        }
        log_capture log;
        s.peer.on(a.command, {reply(accepted)});
        EXPECT_EQ(a.call(s.arm), a.no_report);
        EXPECT_EQ(log.contains(label + "] timeout error\n"),
                  a.function == std::string("ka_set_gripper_position"));
        // A refused action is not waited for (the wait would end without a report).
        s.peer.on(a.command, {reply(answer(a.accept, a.key, false))});
        EXPECT_EQ(a.call(s.arm), 1);
    }
    // Neither block nor time-out: sent and paced; the refusal is never read,
    // nor taken by the next action. Without block the acceptance is the
    // result and the report that follows is not waited for.
    s.peer.on("set_gripper_pick", {reply(answer("set_gripper", "state", false))});
    EXPECT_EQ(ka_set_gripper_pick(s.arm, 500, 200, false, 0), 0);
    s.peer.on("set_gripper_release", {reply(answer("set_gripper", "state")), reply(report(0))});
    EXPECT_EQ(ka_set_gripper_release(s.arm, 500, false, 3), 0);
}
