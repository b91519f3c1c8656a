// The simulated I/O, end effectors, extra axes and force sensor as the
// library sees them: set values read back, blocking device moves that end
// with their own device's completion report, force readings that follow the
// pose and zero on request, and the pushed realtime state.
#include "sim_session.h"
#include "support/arm_fixture.h"

#include "ka_algo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <set>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;

struct call_row {
    const char *what;
    std::function<int(ka_robot_handle *)> call;
    int expected;
};

void run_calls(ka_robot_handle *arm, const std::vector<call_row> &rows) {
    for (const call_row &row : rows)
        EXPECT_EQ(row.call(arm), row.expected) << row.what;
}

// The completion reports the library delivered, in order.
std::vector<ka_event_push_data_t> recorded_events() {
    std::lock_guard lock(sim_test::events().mutex);
    return sim_test::events().events;
}

TEST(SimulatedIo, SetValuesReadBackAndInputsShowTheirFixedPattern) {
    arm_session s(sim_test::options("KIVO-B"));
    run_calls(
        s.arm,
        {
            {"channel 1 to output", [](auto *a) { return ka_set_IO_mode(a, 1, 1); }, 0},
            {"drive output 1 high", [](auto *a) { return ka_set_DO_state(a, 1, 1); }, 0},
            {"drive an input", [](auto *a) { return ka_set_DO_state(a, 2, 1); }, 1},
            {"no channel 5", [](auto *a) { return ka_set_IO_mode(a, 5, 1); }, 1},
            {"no channel 0",
             [](auto *a) {
                 int state = 0, mode = 0;
                 return ka_get_IO_state(a, 0, &state, &mode);
             },
             -3},
            {"no mode 7", [](auto *a) { return ka_set_IO_mode(a, 3, 7); }, 1},
            {"level 2", [](auto *a) { return ka_set_DO_state(a, 1, 2); }, 1},
            {"12 V", [](auto *a) { return ka_set_voltage(a, 2); }, 0},
            {"no voltage 4", [](auto *a) { return ka_set_voltage(a, 4); }, 1},
            {"tool channel 2 to output", [](auto *a) { return ka_set_tool_IO_mode(a, 2, 1); }, 0},
            {"tool output 2 high", [](auto *a) { return ka_set_tool_DO_state(a, 2, 1); }, 0},
            {"tool input 1", [](auto *a) { return ka_set_tool_DO_state(a, 1, 1); }, 1},
            {"no tool channel 3", [](auto *a) { return ka_set_tool_IO_mode(a, 3, 1); }, 1},
            {"tool 5 V", [](auto *a) { return ka_set_tool_voltage(a, 1); }, 0},
            {"no tool voltage -1", [](auto *a) { return ka_set_tool_voltage(a, -1); }, 1},
        });

    int state = -1, mode = -1;
    ASSERT_EQ(ka_get_IO_state(s.arm, 1, &state, &mode), KA_OK);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(state, 1);
    ASSERT_EQ(ka_get_IO_state(s.arm, 3, &state, &mode), KA_OK);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(state, 1); // odd-numbered inputs read high
    int outputs[4] = {-1, -1, -1, -1}, inputs[4] = {-1, -1, -1, -1};
    ASSERT_EQ(ka_get_IO_output(s.arm, outputs), KA_OK);
    ASSERT_EQ(ka_get_IO_input(s.arm, inputs), KA_OK);
    EXPECT_EQ(std::vector<int>(outputs, outputs + 4), (std::vector<int>{1, 0, 0, 0}));
    EXPECT_EQ(std::vector<int>(inputs, inputs + 4), (std::vector<int>{0, 0, 1, 0}));

    // Back to input: the output level is dropped.
    ASSERT_EQ(ka_set_IO_mode(s.arm, 1, 0), KA_OK);
    ASSERT_EQ(ka_get_IO_output(s.arm, outputs), KA_OK);
    EXPECT_EQ(outputs[0], 0);

    int voltage = -1;
    ASSERT_EQ(ka_get_voltage(s.arm, &voltage), KA_OK);
    EXPECT_EQ(voltage, 2);
    ASSERT_EQ(ka_get_tool_voltage(s.arm, &voltage), KA_OK);
    EXPECT_EQ(voltage, 1);

    int tool_mode[2] = {-1, -1}, tool_state[2] = {-1, -1};
    ASSERT_EQ(ka_get_tool_IO_state(s.arm, tool_mode, tool_state), KA_OK);
    EXPECT_EQ(tool_mode[0], 0);
    EXPECT_EQ(tool_mode[1], 1);
    EXPECT_EQ(tool_state[0], 1); // input 1 reads high
    EXPECT_EQ(tool_state[1], 1); // output 2 driven high

    // Plain RS485 ports: no Modbus time-out in the reply.
    for (auto query : {ka_get_controller_RS485_mode, ka_get_tool_RS485_mode}) {
        int port_mode = -1, baudrate = -1, timeout = -1;
        ASSERT_EQ(query(s.arm, &port_mode, &baudrate, &timeout), KA_OK);
        EXPECT_EQ(port_mode, 0);
        EXPECT_EQ(baudrate, 115200);
        EXPECT_EQ(timeout, 0); // the key is absent
    }
}

TEST(SimulatedGripper, BlockingActionsReturnWhenTheGripperArrives) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    ka_gripper_state_t state{};
    ASSERT_EQ(ka_set_gripper_route(s.arm, 100, 900), KA_OK);
    EXPECT_EQ(ka_set_gripper_route(s.arm, 900, 100), 1);

    // Each blocking call returns only once the jaws are where it sent them,
    // with the gripper's own report.
    struct action_row {
        const char *what;
        std::function<int(ka_robot_handle *)> call;
        int actpos;
        int current_force;
    };
    const action_row actions[] = {
        {"pick", [](auto *a) { return ka_set_gripper_pick(a, 1000, 300, true, 5); }, 100, 300},
        {"position", [](auto *a) { return ka_set_gripper_position(a, 650, true, 5); }, 650, 0},
        {"release", [](auto *a) { return ka_set_gripper_release(a, 800, true, 5); }, 900, 0},
        {"pick on", [](auto *a) { return ka_set_gripper_pick_on(a, 500, 120, true, 5); }, 100, 120},
    };
    for (const action_row &row : actions) {
        SCOPED_TRACE(row.what);
        sim_test::events().clear();
        ASSERT_EQ(row.call(s.arm), KA_OK);
        ASSERT_EQ(ka_get_gripper_state(s.arm, &state), KA_OK);
        EXPECT_EQ(state.actpos, row.actpos);
        EXPECT_EQ(state.current_force, row.current_force);
        EXPECT_EQ(state.status, row.current_force > 0 ? 2 : 0);
        const auto events = recorded_events();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].device, 1);
        EXPECT_TRUE(events[0].trajectory_state);
    }

    // Outside the route: refused. A position move keeps the last speed.
    EXPECT_EQ(ka_set_gripper_position(s.arm, 50, true, 5), 1);

    // Not blocking: accepted at once, the jaws still on their way, and no
    // report left behind for a later blocking call to mistake for its own.
    sim_test::events().clear();
    ASSERT_EQ(ka_set_gripper_release(s.arm, 50, false, 3), KA_OK); // 16 s of stroke
    ASSERT_EQ(ka_get_gripper_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.status, 1);
    EXPECT_LT(state.actpos, 900);
    EXPECT_EQ(state.mode, 1);
    ASSERT_EQ(ka_set_gripper_position(s.arm, 400, true, 5), KA_OK);
    ASSERT_EQ(ka_get_gripper_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.actpos, 400);
    const auto events = recorded_events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].device, 1);
}

TEST(SimulatedHand, PosturesAndSequencesEndWithTheHandsReport) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    run_calls(s.arm,
              {
                  {"speed", [](auto *a) { return ka_set_hand_speed(a, 800); }, 0},
                  {"no speed 0", [](auto *a) { return ka_set_hand_speed(a, 0); }, 1},
                  {"force", [](auto *a) { return ka_set_hand_force(a, 300); }, 0},
                  {"no posture 41", [](auto *a) { return ka_set_hand_posture(a, 41, true, 3); }, 1},
                  {"posture", [](auto *a) { return ka_set_hand_posture(a, 30, true, 3); }, 0},
                  {"sequence", [](auto *a) { return ka_set_hand_seq(a, 12, true, 3); }, 0},
                  {"angles",
                   [](auto *a) {
                       const int angles[6] = {0, 100, 200, 300, 400, -1};
                       return ka_set_hand_angle(a, angles);
                   },
                   0},
                  {"angle 1001",
                   [](auto *a) {
                       const int angles[6] = {1001, 0, 0, 0, 0, 0};
                       return ka_set_hand_angle(a, angles);
                   },
                   1},
              });
    const auto events = recorded_events();
    ASSERT_EQ(events.size(), 2u); // the posture and the sequence, nothing for the angles
    for (const auto &event : events) {
        EXPECT_EQ(event.device, 2);
        EXPECT_TRUE(event.trajectory_state);
    }
}

// Polls the lift's state until `done` holds or two seconds pass.
bool lift_until(ka_robot_handle *arm, const std::function<bool(const ka_expand_state_t &)> &done) {
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    ka_expand_state_t state{};
    while (std::chrono::steady_clock::now() < deadline)
        if (ka_get_lift_state(arm, &state) == KA_OK && done(state)) return true;
    return false;
}

TEST(SimulatedAxes, BlockingMovesEndOnTargetWithTheirDevicesReport) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    struct move_row {
        const char *what;
        std::function<int(ka_robot_handle *)> move;
        std::function<int(ka_robot_handle *, ka_expand_state_t *)> query;
        int device;
        int position;
    };
    const move_row moves[] = {
        {"lift up", [](auto *a) { return ka_set_lift_height(a, 100, 700, 1); }, ka_get_lift_state,
         3, 700},
        {"lift down", [](auto *a) { return ka_set_lift_height(a, 50, 250, 1); }, ka_get_lift_state,
         3, 250},
        {"expansion", [](auto *a) { return ka_set_expand_pos(a, 100, 123456, 1); },
         ka_get_expand_state, 4, 123456},
        {"expansion back", [](auto *a) { return ka_set_expand_pos(a, 80, -90000, 1); },
         ka_get_expand_state, 4, -90000},
    };
    for (const move_row &row : moves) {
        SCOPED_TRACE(row.what);
        sim_test::events().clear();
        ASSERT_EQ(row.move(s.arm), KA_OK);
        ka_expand_state_t state{};
        ASSERT_EQ(row.query(s.arm, &state), KA_OK);
        EXPECT_EQ(state.pos, row.position);
        EXPECT_EQ(state.mode, 0);
        EXPECT_EQ(state.err_flag, 0);
        const auto events = recorded_events();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].device, row.device);
        EXPECT_TRUE(events[0].trajectory_state);
        EXPECT_EQ(events[0].trajectory_connect, 0);
    }

    // Impossible moves: a blocking lift move hears it ended false (its
    // command gets no reply), an expansion move is refused outright.
    EXPECT_EQ(ka_set_lift_height(s.arm, 50, 99999, 1), 1);
    EXPECT_EQ(ka_set_expand_pos(s.arm, 0, 1000, 1), 1);

    // Speed mode runs until told to stop.
    ASSERT_EQ(ka_set_lift_speed(s.arm, -30), KA_OK);
    ASSERT_TRUE(lift_until(s.arm, [](const auto &st) { return st.mode == 1 && st.pos < 250; }));
    ASSERT_EQ(ka_set_lift_speed(s.arm, 0), KA_OK);
    ka_expand_state_t stopped{}, later{};
    ASSERT_EQ(ka_get_lift_state(s.arm, &stopped), KA_OK);
    EXPECT_EQ(stopped.mode, 0);
    ASSERT_EQ(ka_get_lift_state(s.arm, &later), KA_OK);
    EXPECT_EQ(later.pos, stopped.pos);
    EXPECT_EQ(ka_set_lift_speed(s.arm, 101), 1);
    EXPECT_EQ(ka_set_expand_speed(s.arm, 20), KA_OK);
    EXPECT_EQ(ka_set_expand_speed(s.arm, 0), KA_OK);
}

float norm3(const float *v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

constexpr float k_plate_weight_n = 0.6f * 9.80665f; // the simulated sensor's load, no tool payload

TEST(SimulatedForceSensor, ReadingsFollowThePoseAndZeroOnRequest) {
    arm_session s(sim_test::options("NEPATQ-6F", 20.0));
    const float home[7] = {};
    const float turned[7] = {10.0f, 35.0f, -20.0f, 15.0f, 40.0f, 25.0f, 0};
    ka_force_data_t at_home{}, at_turned{};
    ASSERT_EQ(ka_get_force_data(s.arm, &at_home), KA_OK);
    ASSERT_EQ(ka_movej(s.arm, turned, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_get_force_data(s.arm, &at_turned), KA_OK);

    // The same weight, seen from a turned sensor: same size, other direction.
    EXPECT_NEAR(norm3(at_home.force_data), k_plate_weight_n, 0.01f);
    EXPECT_NEAR(norm3(at_turned.force_data), k_plate_weight_n, 0.01f);
    float change = 0;
    for (int i = 0; i < 3; ++i)
        change += std::fabs(at_home.force_data[i] - at_turned.force_data[i]);
    EXPECT_GT(change, 1.0f);
    // Not yet zeroed: the zeroed reading is the raw one.
    for (int i = 0; i < 6; ++i)
        EXPECT_FLOAT_EQ(at_turned.zero_force_data[i], at_turned.force_data[i]) << i;

    ka_fz_data_t fz{};
    ASSERT_EQ(ka_get_Fz(s.arm, &fz), KA_OK);
    EXPECT_FLOAT_EQ(fz.Fz, at_turned.force_data[2]);

    // Zeroing holds for this pose only.
    ASSERT_EQ(ka_clear_force_data(s.arm), KA_OK);
    ka_force_data_t zeroed{};
    ASSERT_EQ(ka_get_force_data(s.arm, &zeroed), KA_OK);
    for (int i = 0; i < 6; ++i) {
        EXPECT_NEAR(zeroed.zero_force_data[i], 0.0f, 0.002f) << i;
        EXPECT_NEAR(zeroed.work_zero_force_data[i], 0.0f, 0.002f) << i;
        EXPECT_NEAR(zeroed.tool_zero_force_data[i], 0.0f, 0.002f) << i;
        EXPECT_FLOAT_EQ(zeroed.force_data[i], at_turned.force_data[i]) << i;
    }
    ASSERT_EQ(ka_movej(s.arm, home, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_get_force_data(s.arm, &zeroed), KA_OK);
    EXPECT_GT(norm3(zeroed.zero_force_data), 1.0f);

    // A calibration learns the load: zeroed readings vanish at every pose.
    ASSERT_EQ(ka_set_force_sensor(s.arm, true), KA_OK);
    for (const float *joints : {home, turned}) {
        ASSERT_EQ(ka_movej(s.arm, joints, 100, 0, 0, 1), KA_OK);
        ASSERT_EQ(ka_get_force_data(s.arm, &zeroed), KA_OK);
        EXPECT_NEAR(norm3(zeroed.zero_force_data), 0.0f, 0.003f);
        EXPECT_NEAR(norm3(zeroed.force_data), k_plate_weight_n, 0.01f);
    }
}

TEST(SimulatedForceSensor, CommandsAnswerOnlyWhereTheSensorIs) {
    float joints[7] = {};
    const std::vector<call_row> six_axis = {
        {"manual pose 1", [&](auto *a) { return ka_manual_set_force(a, 1, joints, true); }, 0},
        {"manual pose 2", [&](auto *a) { return ka_manual_set_force(a, 2, joints, true); }, 0},
        {"manual pose 3", [&](auto *a) { return ka_manual_set_force(a, 3, joints, true); }, 0},
        {"manual pose 4", [&](auto *a) { return ka_manual_set_force(a, 4, joints, true); }, 0},
        {"pose 4 out of turn", [&](auto *a) { return ka_manual_set_force(a, 4, joints, true); }, 1},
        {"stop calibration", [](auto *a) { return ka_stop_set_force_sensor(a); }, 0},
        {"clear Fz", [](auto *a) { return ka_clear_Fz(a); }, 0},
        {"auto Fz", [](auto *a) { return ka_auto_set_Fz(a, true); }, 0},
        {"manual Fz", [&](auto *a) { return ka_manual_set_Fz(a, joints, joints, true); }, 0},
        {"multi drag",
         [](auto *a) {
             const ka_multi_drag_teach_t drag{{1, 1, 1, 0, 0, 0}, 0, 1};
             return ka_start_multi_drag_teach_new(a, &drag);
         },
         0},
        {"stop drag", [](auto *a) { return ka_stop_drag_teach(a); }, 0},
        {"force position", [](auto *a) { return ka_set_force_position(a, 1, 0, 2, 9.9f); }, 0},
        {"force position, six axes",
         [](auto *a) {
             const ka_force_position_t fp{1,
                                          0,
                                          {0, 0, 1, 0, 0, 0},
                                          {0, 0, 5.5f, 0, 0, 0},
                                          {0.1f, 0.1f, 0.1f, 0.1f, 0.1f, 0.1f}};
             return ka_set_force_position_new(a, &fp);
         },
         0},
        {"stop force position", [](auto *a) { return ka_stop_force_position(a); }, 0},
        {"start streaming", [](auto *a) { return ka_start_force_position_move(a); }, 0},
        {"stream a set point",
         [&](auto *a) { return ka_force_position_move_joint(a, joints, 1, 0, 2, 5.0f, false); }, 0},
        {"stop streaming", [](auto *a) { return ka_stop_force_position_move(a); }, 0},
    };
    {
        SCOPED_TRACE("six-axis sensor");
        arm_session s(sim_test::options("NEPATQ-6F", 20.0));
        run_calls(s.arm, six_axis);
    }
    {
        SCOPED_TRACE("one-axis sensor");
        arm_session s(sim_test::options("LUNE-ZF", 20.0));
        run_calls(s.arm,
                  {
                      {"clear Fz", [](auto *a) { return ka_clear_Fz(a); }, 0},
                      {"auto Fz", [](auto *a) { return ka_auto_set_Fz(a, true); }, 0},
                      // The library reads Fz on six-axis arms only.
                      {"Fz",
                       [](auto *a) {
                           ka_fz_data_t d;
                           return ka_get_Fz(a, &d);
                       },
                       -2},
                      {"six-axis data",
                       [](auto *a) {
                           ka_force_data_t d;
                           return ka_get_force_data(a, &d);
                       },
                       -3},
                      {"six-axis zeroing", [](auto *a) { return ka_clear_force_data(a); }, 1},
                  });
    }
    {
        SCOPED_TRACE("no sensor");
        arm_session s(sim_test::options("KIVO-B", 20.0));
        run_calls(s.arm,
                  {
                      {"six-axis data",
                       [](auto *a) {
                           ka_force_data_t d;
                           return ka_get_force_data(a, &d);
                       },
                       -3},
                      {"calibration", [](auto *a) { return ka_set_force_sensor(a, true); }, 1},
                      {"auto Fz", [](auto *a) { return ka_auto_set_Fz(a, true); }, 1},
                      {"force position",
                       [](auto *a) { return ka_set_force_position(a, 1, 0, 2, 9.9f); }, 1},
                      {"multi drag", [](auto *a) { return ka_start_multi_drag_teach(a, 0, 1); }, 1},
                      // Hand guiding by the joints' currents needs no sensor.
                      {"drag", [](auto *a) { return ka_start_drag_teach(a, 0); }, 0},
                      {"stop drag", [](auto *a) { return ka_stop_drag_teach(a); }, 0},
                  });
    }
}

TEST(SimulatedDragTeaching, RecordsReturnsToItsOriginAndReplays) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    ASSERT_EQ(ka_set_drag_teach_sensitivity(s.arm, 35), KA_OK);
    EXPECT_EQ(ka_set_drag_teach_sensitivity(s.arm, 0), 1);
    int grade = 0;
    ASSERT_EQ(ka_get_drag_teach_sensitivity(s.arm, &grade), KA_OK);
    EXPECT_EQ(grade, 35);

    // Nothing recorded yet: the move to the origin ends at once, false.
    EXPECT_EQ(ka_drag_trajectory_origin(s.arm, 1), 1);

    const float start[7] = {15.0f, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, start, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_start_drag_teach(s.arm, 1), KA_OK);
    ASSERT_EQ(ka_stop_drag_teach(s.arm), KA_OK);
    const float away[7] = {-20.0f, 10.0f, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, away, 100, 0, 0, 1), KA_OK);
    // Replay starts only from the recording's first point.
    EXPECT_EQ(ka_run_drag_trajectory(s.arm, 1), 1);

    ASSERT_EQ(ka_drag_trajectory_origin(s.arm, 1), KA_OK);
    float joints[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    EXPECT_EQ(joints[0], 15.0f);
    EXPECT_EQ(joints[1], 0.0f);
    ASSERT_EQ(ka_run_drag_trajectory(s.arm, 1), KA_OK);
    EXPECT_EQ(ka_pause_drag_trajectory(s.arm), KA_OK);
    EXPECT_EQ(ka_continue_drag_trajectory(s.arm), KA_OK);
    EXPECT_EQ(ka_stop_drag_trajectory(s.arm), KA_OK);
}

// Waits for a pushed state that satisfies `done`; false after three seconds.
bool state_until(const std::function<bool(const ka_realtime_arm_joint_state_t &)> &done,
                 ka_realtime_arm_joint_state_t *seen) {
    sim_test::event_record &record = sim_test::events();
    std::unique_lock lock(record.mutex);
    return record.changed.wait_for(lock, 3s, [&] {
        if (record.states.empty() || !done(record.states.back())) return false;
        *seen = record.states.back();
        return true;
    });
}

TEST(SimulatedPush, DatagramCarriesTheAxesAndTheForceSensor) {
    // Seven joints, a six-axis sensor and every optional part: the longest
    // datagram there is, which must still fit the library's 1024 bytes.
    arm_session s(sim_test::options("QUIL-6F", 20.0), KA_THREAD_MODE_TRIPLE);
    ka_realtime_push_config_t config{};
    config.enable = true;
    config.cycle = 1;
    config.port = ka_test::unused_local_port(sim::net::transport::udp);
    config.force_coordinate = 2; // zeroed forces in the tool frame
    std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
    config.custom = {1, 1, 1, 1};
    ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
    ASSERT_EQ(ka_sync_robot_info(s.arm), KA_OK);

    ASSERT_EQ(ka_set_lift_height(s.arm, 100, 420, 0), KA_OK);
    ASSERT_EQ(ka_set_expand_pos(s.arm, 100, 45500, 0), KA_OK);
    ka_realtime_arm_joint_state_t state{};
    ASSERT_TRUE(state_until(
        [](const auto &st) { return st.lift_height == 420 && st.expand_pos == 45.5f; }, &state));
    EXPECT_EQ(state.errCode, 0);
    EXPECT_EQ(state.lift_pos, 420.0f);
    EXPECT_EQ(state.lift_en_flag, 1);
    EXPECT_EQ(state.lift_err_flag, 0);
    EXPECT_EQ(state.expand_joint_id, 8);
    EXPECT_EQ(state.expand_en_flag, 1);
    EXPECT_EQ(state.coordinate, 2);

    ka_force_data_t data{};
    ASSERT_EQ(ka_get_force_data(s.arm, &data), KA_OK);
    for (int i = 0; i < 6; ++i) {
        EXPECT_FLOAT_EQ(state.force[i], data.force_data[i]) << i;
        EXPECT_FLOAT_EQ(state.zero_force[i], data.tool_zero_force_data[i]) << i;
    }
    EXPECT_NEAR(norm3(state.force), k_plate_weight_n, 0.01f);

    // Zeroing shows in the next datagrams.
    ASSERT_EQ(ka_clear_force_data(s.arm), KA_OK);
    ASSERT_TRUE(state_until([](const auto &st) { return norm3(st.zero_force) < 0.003f; }, &state));
    EXPECT_NEAR(norm3(state.force), k_plate_weight_n, 0.01f);
}

// A seeded sensor reads the noise-free value plus at most 0.05 N (0.005 N m)
// of noise that changes from cycle to cycle.
TEST(SimulatedForceSensor, SeededNoiseStaysWithinItsAmplitude) {
    ka_force_data_t clean{};
    {
        arm_session quiet(sim_test::options("NEPATQ-6F", 20.0));
        ASSERT_EQ(ka_get_force_data(quiet.arm, &clean), KA_OK);
    }
    sim::simulator_options noisy = sim_test::options("NEPATQ-6F", 20.0);
    noisy.seed = 7;
    arm_session s(noisy);
    std::set<float> seen;
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (seen.size() < 5 && std::chrono::steady_clock::now() < deadline) {
        ka_force_data_t data{};
        ASSERT_EQ(ka_get_force_data(s.arm, &data), KA_OK);
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(data.force_data[i], clean.force_data[i], i < 3 ? 0.051f : 0.0051f) << i;
        seen.insert(data.force_data[0]);
    }
    EXPECT_GE(seen.size(), 5u) << "the seeded readings do not change";
}

TEST(SimulatedPush, OneAxisSensorPushesItsZForce) {
    arm_session s(sim_test::options("LUNE-ZF", 20.0), KA_THREAD_MODE_TRIPLE);
    ka_realtime_push_config_t config{};
    config.enable = true;
    config.cycle = 1;
    config.port = ka_test::unused_local_port(sim::net::transport::udp);
    std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
    config.custom = {0, 0, 0, 0};
    ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
    ASSERT_EQ(ka_sync_robot_info(s.arm), KA_OK);
    const float joints[7] = {10.0f, 35.0f, 0, -40.0f, 0, 25.0f, 0};
    ASSERT_EQ(ka_movej(s.arm, joints, 100, 0, 0, 1), KA_OK);
    ka_realtime_arm_joint_state_t state{};
    ASSERT_TRUE(state_until([&](const auto &st) { return st.joint_position[1] == 35.0f; }, &state));
    EXPECT_EQ(state.errCode, 0);
    // The weight along the flange's z axis, by the library's own kinematics:
    // the z row of R = Rz Ry Rx against gravity (0, 0, -g).
    const ka_pose_t flange = ka_algo_forward_kinematics(s.arm, joints);
    const float expected =
        -k_plate_weight_n * std::cos(flange.euler.rx) * std::cos(flange.euler.ry);
    EXPECT_GT(std::fabs(expected), 0.5f);
    EXPECT_NEAR(state.force[0], expected, 0.01f);
    EXPECT_FLOAT_EQ(state.zero_force[0], state.force[0]);
    EXPECT_EQ(state.force[1], 0.0f);
    EXPECT_EQ(state.lift_height, 0);
    ASSERT_EQ(ka_clear_Fz(s.arm), KA_OK);
    ASSERT_TRUE(
        state_until([](const auto &st) { return std::fabs(st.zero_force[0]) < 0.002f; }, &state));
}

} // namespace

namespace {

// Malformed requests of every device command: answered under the reply name
// with the result false or an "error" (or not at all for the commands that
// are never answered), never a crash, and the arm serves the next request.
TEST(SimulatedDevices, MalformedRequestsAreRefusedNotFatal) {
    sim::simulator simulator(sim_test::options("QUIL-6F", 20.0));
    sim_test::line_client client(simulator.start().at(0));
    struct row {
        const char *request;
        const char *reply; // the next line sent back; nullptr: nothing
    };
    const row rows[] = {
        {R"({"command":"set_IO_mode","IO_Num":"1","IO_mode":1})",
         R"({"command":"set_IO_mode","set_state":false})"},
        {R"({"command":"get_IO_state","IO_Num":[1]})",
         R"({"command":"IO_state","error":"no such channel"})"},
        {R"({"command":"set_tool_IO_mode","IO_Num":1})",
         R"({"command":"set_tool_IO_mode","set_state":false})"},
        {R"({"command":"set_voltage","voltage_type":null})",
         R"({"command":"set_voltage","state":false})"},
        {R"({"command":"set_gripper_pick","speed":10,"force":10})",
         R"({"command":"set_gripper","state":false})"},
        {R"({"command":"set_gripper_route","min":{},"max":5})",
         R"({"command":"set_gripper_route","state":false})"},
        {R"({"command":"set_hand_angle","hand_angle":[1,2,3]})",
         R"({"command":"set_hand_angle","set_state":false})"},
        {R"({"command":"hand_follow_angle","hand_angle":"x"})", nullptr},
        // Never answered, but reported ended so that a blocking caller returns.
        {R"({"command":"set_lift_height","speed":true})",
         R"({"state":"current_trajectory_state","trajectory_state":false,"device":3,"trajectory_connect":0})"},
        {R"({"command":"expand_set_pos","speed":10})",
         R"({"command":"expand_set_pos","set_pos_state":false})"},
        {R"({"command":"manual_set_force_pose4","joint":[1,2]})",
         R"({"command":"set_force_sensor","set_state":false})"},
        {R"({"command":"manual_set_Fz","pose1":[0,0,0,0,0,0,0]})",
         R"({"command":"set_force_sensor","set_state":false})"},
        {R"({"command":"start_multi_drag_teach","frame":0,"free_axes":[1,2,3,4,5,6]})",
         R"({"command":"start_multi_drag_teach","set_state":false})"},
        {R"({"command":"set_force_position","sensor":1,"mode":0,"desired_force":[1]})",
         R"({"command":"set_force_position","set_state":false})"},
        {R"({"command":"set_force_position","sensor":1,"mode":0,"direction":6,"N":10})",
         R"({"command":"set_force_position","set_state":false})"},
        {R"({"command":"Force_Position_Move","joint":7})", nullptr},
        {R"({"command":"start_drag_teach"})",
         R"({"command":"start_drag_teach","drag_teach":false})"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.request);
        client.send(r.request);
        if (r.reply) EXPECT_EQ(client.read(), r.reply);
    }
    // Still serving, with nothing stray queued before this reply.
    EXPECT_EQ(client.ask(R"({"command":"get_tool_voltage"})"),
              R"({"command":"tool_voltage_state","voltage_type":0})");
}

} // namespace
