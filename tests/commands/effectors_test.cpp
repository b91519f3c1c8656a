// Gripper and dexterous hand: exact request lines and result keys, the
// gripper's shared reply name, and every way an effector's wait can end,
// with each action's own status codes.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

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
        {"route", CALL(ka_set_gripper_route(h, 10, 70)), R"({"command":"set_gripper_route","min":10,"max":70})", answer("set_gripper_route", "state"), 0},
        {"route judged on state", CALL(ka_set_gripper_route(h, 10, 70)), R"({"command":"set_gripper_route","min":10,"max":70})", answer("set_gripper_route", "set_state"), -3},
        // Neither block nor time-out: sent and paced; the refusal is never read, nor taken by the next action.
        {"pick only sent", CALL(ka_set_gripper_pick(h, 500, 200, false, 0)), R"({"command":"set_gripper_pick","speed":500,"force":200,"block":false})", answer(gripper, "state", false), 0},
        // Without block the acceptance is the result; the report that follows is not waited for.
        {"release", CALL(ka_set_gripper_release(h, 500, false, 3)), R"({"command":"set_gripper_release","speed":500,"block":false})", answer(gripper, "state") + "\r\n" + completion_report(0), 0},
        {"pick refused", CALL(ka_set_gripper_pick(h, 500, 200, false, 3)), R"({"command":"set_gripper_pick","speed":500,"force":200,"block":false})", answer(gripper, "state", false), 1},
        {"pick answered under its own name", CALL(ka_set_gripper_pick(h, 500, 200, false, 3)), R"({"command":"set_gripper_pick","speed":500,"force":200,"block":false})", answer("set_gripper_pick", "state"), -2},
        {"pick on", CALL(ka_set_gripper_pick_on(h, 1, -2, false, 1)), R"({"command":"set_gripper_pick_on","speed":1,"force":-2,"block":false})", answer(gripper, "state"), 0},
        {"position", CALL(ka_set_gripper_position(h, 300, false, 2)), R"({"command":"set_gripper_position","position":300,"block":false})", answer(gripper, "state"), 0},
        {"gripper state", state, state_line, R"({"command":"get_gripper_state","enable":1,"status":2,"error":3,"mode":4,"current_force":5,"temperature":6,"actpos":7})", 1234567},
        {"gripper state without actpos", state, state_line, R"({"command":"get_gripper_state","enable":1,"status":2,"error":3,"mode":4,"current_force":5,"temperature":6})", -3},
        {"hand posture", CALL(ka_set_hand_posture(h, 3, false, 5)), R"({"command":"set_hand_posture","posture_num":3,"block":false})", answer("set_hand_posture", "set_state"), 0},
        {"hand sequence refused", CALL(ka_set_hand_seq(h, 12, false, 0)), R"({"command":"set_hand_seq","seq_num":12,"block":false})", answer("set_hand_seq", "set_state", false), 1},
        {"hand angle", CALL(ka_set_hand_angle(h, fingers)), R"({"command":"set_hand_angle","hand_angle":[0,-1,1000,65535,-32768,7]})", answer("set_hand_angle", "set_state"), 0},
        {"hand follow angle, never answered", CALL(ka_set_hand_follow_angle(h, fingers)), R"({"command":"hand_follow_angle","hand_angle":[0,-1,1000,65535,-32768,7]})", "", 0},
        {"hand speed", CALL(ka_set_hand_speed(h, 800)), R"({"command":"set_hand_speed","speed":800})", answer("set_hand_speed", "set_state"), 0},
        {"hand force", CALL(ka_set_hand_force(h, 150)), R"({"command":"set_hand_force","hand_force":150})", answer("set_hand_force", "set_state", false), 1},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
}

// Every blocking action against its own device, another device (an arm
// motion's report ends a gripper wait too), a report that ended false, an
// unparsable report and no report at all.
TEST(effectors_blocking, each_action_ends_with_its_own_codes) {
    arm_session s;
    // clang-format off
    // Block, 1 s; the gripper (device 1) accepts as "set_gripper" on "state", the hand on its own name and "set_state".
    const std::tuple<const char *, std::function<int(ka_robot_handle *)>, int, int, int> actions[] = {
        {"set_gripper_release", CALL(ka_set_gripper_release(h, 500, true, 1)), 1, -4, -4},
        {"set_gripper_pick", CALL(ka_set_gripper_pick(h, 500, 200, true, 1)), 1, -4, -5},
        {"set_gripper_pick_on", CALL(ka_set_gripper_pick_on(h, 500, 200, true, 1)), 1, -4, -5},
        {"set_gripper_position", CALL(ka_set_gripper_position(h, 100, true, 1)), 1, -4, -5},
        {"set_hand_posture", CALL(ka_set_hand_posture(h, 2, true, 1)), 2, -5, -4},
        {"set_hand_seq", CALL(ka_set_hand_seq(h, 2, true, 1)), 2, -5, -4},
    };
    // clang-format on
    for (const auto &[command, call, device, no_report, other_device] : actions) {
        SCOPED_TRACE(command);
        const std::string name = device == 1 ? "set_gripper" : command,
                          key = device == 1 ? "state" : "set_state";
        const std::string accepted = answer(name, key), label = std::string("[ka_") + command;
        const int other = device == 1 ? 0 : 1;
        // clang-format off
        const std::pair<std::vector<action>, int> cases[] = {
            {{raw(accepted + "\r\n" + completion_report(device) + "\r\n")}, 0}, // the report in the acceptance's segment is not lost
            {{reply(accepted), delay(20ms), reply(completion_report(device, false))}, 1},
            {{reply(accepted), delay(20ms), reply(R"({"state":"current_trajectory_state","trajectory_state":true})")}, -3},
            {{reply(accepted), delay(20ms), reply(completion_report(other))}, other_device},
            {{reply(accepted)}, no_report},
            {{reply(answer(name, key, false))}, 1}, // refused: not waited for (the wait would end without a report)
        };
        // clang-format on
        log_capture log;
        for (const auto &[script, result] : cases) {
            s.peer.on(command, script);
            EXPECT_EQ(call(s.arm), result) << script.back().bytes;
        }
        EXPECT_TRUE(log.contains(label + "] current device is: " + std::to_string(other) + " \n"));
        EXPECT_EQ(log.contains(label + "] timeout error\n"),
                  command == std::string("set_gripper_position"));
    }
}

// Every set command against each verdict form, no reply included (1 s each).
// The actions run with neither block nor a zero time-out: their acceptance
// is then the result.
TEST(effectors_wire, every_set_command_maps_each_verdict_form) {
    // clang-format off
    const set_row rows[] = {
        {"set_gripper_route", CALL(ka_set_gripper_route(h, 10, 70)), "", "state", 1000},
        {"set_gripper_release", CALL(ka_set_gripper_release(h, 500, false, 3)), "set_gripper", "state", 1000},
        {"set_gripper_pick", CALL(ka_set_gripper_pick(h, 500, 200, false, 3)), "set_gripper", "state", 1000},
        {"set_gripper_pick_on", CALL(ka_set_gripper_pick_on(h, 1, 2, false, 1)), "set_gripper", "state", 1000},
        {"set_gripper_position", CALL(ka_set_gripper_position(h, 300, false, 2)), "set_gripper", "state", 1000},
        {"set_hand_posture", CALL(ka_set_hand_posture(h, 3, false, 5)), "", "set_state", 1000},
        {"set_hand_seq", CALL(ka_set_hand_seq(h, 12, false, 1)), "", "set_state", 1000},
        {"set_hand_angle", CALL(ka_set_hand_angle(h, fingers)), "", "set_state", 1000},
        {"set_hand_speed", CALL(ka_set_hand_speed(h, 800)), "", "set_state", 1000},
        {"set_hand_force", CALL(ka_set_hand_force(h, 150)), "", "set_state", 1000},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
