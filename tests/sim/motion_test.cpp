// The simulated arm as the library sees it: opening every model, joint moves
// in real time, refusals, stopping, and the pushed realtime state.
#include "sim_session.h"
#include "support/arm_fixture.h"

#include "algo/models.h"
#include "ka_algo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;
using sim_test::expect_near_pose;

struct model_row {
    const char *product;
    int dof;
    int model;      // as the library detects it from the product text
    int table_type; // the model table entry the simulator runs
    int force_type;
};

// NEPATQ texts contain "TQ", which the library takes for the MARO II code.
const model_row model_rows[] = {
    {"KIVO-B", 6, KA_ARM_MODEL_KIVO, 0, KA_FORCE_TYPE_B},
    {"LUNE-ZF", 7, KA_ARM_MODEL_LUNE, 1, KA_FORCE_TYPE_ZF},
    {"NEPATQ-6F", 6, KA_ARM_MODEL_MARO_II, 8, KA_FORCE_TYPE_6F},
    {"NEPAX-B", 6, KA_ARM_MODEL_NEPAX, 5, KA_FORCE_TYPE_B},
    {"NEPAZ-ZF", 6, KA_ARM_MODEL_NEPAZ, 6, KA_FORCE_TYPE_ZF},
    {"QUIL-6F", 7, KA_ARM_MODEL_QUIL, 7, KA_FORCE_TYPE_6F},
};

TEST(SimulatedArm, OpensEveryModelWithItsJointsAndLimits) {
    for (const model_row &row : model_rows) {
        SCOPED_TRACE(row.product);
        arm_session s(sim_test::options(row.product));
        EXPECT_EQ(s.arm->id, 1);
        EXPECT_EQ(s.arm->arm_dof, row.dof);
        EXPECT_EQ(s.arm->arm_model, row.model);
        EXPECT_EQ(s.arm->force_type, row.force_type);

        const model_params *table = model_params_for(row.table_type);
        ASSERT_NE(table, nullptr);
        float min_pos[7] = {}, max_pos[7] = {}, speed[7] = {}, acc[7] = {}, joints[7] = {};
        ASSERT_EQ(ka_get_joint_min_pos(s.arm, min_pos), KA_OK);
        ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_pos), KA_OK);
        ASSERT_EQ(ka_get_joint_max_speed(s.arm, speed), KA_OK);
        ASSERT_EQ(ka_get_joint_max_acc(s.arm, acc), KA_OK);
        ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
        for (int j = 0; j < row.dof; ++j) {
            EXPECT_FLOAT_EQ(min_pos[j], table->min_pos_deg[j]) << "joint " << j + 1;
            EXPECT_FLOAT_EQ(max_pos[j], table->max_pos_deg[j]) << "joint " << j + 1;
            // Speeds cross the wire in thousandths of rpm, truncated.
            EXPECT_NEAR(speed[j], table->max_speed_deg[j], 0.006f) << "joint " << j + 1;
            EXPECT_NEAR(acc[j], table->max_acc_deg[j], 0.006f) << "joint " << j + 1;
            EXPECT_EQ(joints[j], 0.0f);
        }
    }
}

// The pose the simulator reports against the library's own kinematics,
// within the wire's resolution (micrometres, milliradians, millionths).
void expect_same_pose(const ka_pose_t &reported, const ka_pose_t &computed, bool with_quaternion) {
    expect_near_pose(reported, computed, 2e-6f, 2e-3f);
    if (!with_quaternion) return;
    const ka_quat_t &a = reported.quaternion, &b = computed.quaternion;
    const float norm_b = std::sqrt(b.w * b.w + b.x * b.x + b.y * b.y + b.z * b.z);
    // q and -q are the same rotation.
    EXPECT_NEAR(std::fabs(a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z) / norm_b, 1.0f, 1e-5f);
}

// Duration of a rest-to-rest trapezoid over `distance` with peak speed and
// acceleration (a triangle when the peak is never reached).
double trapezoid_seconds(double distance, double speed, double acc) {
    if (speed * speed / acc >= distance) return 2.0 * std::sqrt(distance / acc);
    return distance / speed + speed / acc;
}

TEST(SimulatedArm, BlockingMoveLastsItsProfileAndEndsOnTarget) {
    constexpr double speed_factor = 2.0;
    arm_session s(sim_test::options("KIVO-B", speed_factor));
    const model_params *kivo = model_params_for(0);
    // Joint 1 has the longest way at the lowest limits, so its profile sets
    // the pace; joint 2 is scaled to arrive with it.
    const float target[7] = {90.0f, 30.0f, -20.5f, 0.0f, 10.25f, 0.0f, 0.0f};
    const int v = 50;
    const double expected = trapezoid_seconds(90.0, kivo->max_speed_deg[0] * v / 100.0,
                                              kivo->max_acc_deg[0] * v / 100.0) /
                            speed_factor;

    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(ka_movej(s.arm, target, v, 0, 0, 1), KA_OK);
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_NEAR(took, expected, 0.1 * expected);

    float joints[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    for (int j = 0; j < 6; ++j)
        EXPECT_EQ(joints[j], target[j]) << "joint " << j + 1;
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_MOVEJ;
    float data[7] = {};
    ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
    EXPECT_EQ(kind, KA_TRAJECTORY_NONE);
    EXPECT_EQ(data[0], 90.0f);

    // The arm state carries the same joints and a pose off the base.
    ka_current_arm_state_t state{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.joint[0], 90.0f);
    EXPECT_EQ(state.arm_err, 0);
    expect_same_pose(state.pose, ka_algo_forward_kinematics(s.arm, target), false);
}

TEST(SimulatedArm, StateFollowsARunningMoveAndStopEndsIt) {
    arm_session s(sim_test::options("LUNE-B"));
    const float target[7] = {0, 0, 0, 0, 0, 0, 300.0f}; // about two seconds at v 20
    ASSERT_EQ(ka_movej(s.arm, target, 20, 0, 0, 0), KA_OK);

    // Wait for the motion to show in the joints, then look at it mid-way.
    float joints[7] = {};
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    do
        ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    while (joints[6] == 0.0f && std::chrono::steady_clock::now() < deadline);
    EXPECT_GT(joints[6], 0.0f);
    EXPECT_LT(joints[6], 300.0f);
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
    float data[7] = {};
    ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
    EXPECT_EQ(kind, KA_TRAJECTORY_MOVEJ);

    ASSERT_EQ(ka_set_arm_stop(s.arm), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_events(1, 2s));
    {
        std::lock_guard lock(sim_test::events().mutex);
        const ka_event_push_data_t &end = sim_test::events().events.front();
        EXPECT_EQ(end.event_type, 1);
        EXPECT_FALSE(end.trajectory_state); // ended early
        EXPECT_EQ(end.device, 0);
        EXPECT_EQ(end.trajectory_connect, 0);
    }
    float stopped[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, stopped), KA_OK);
    EXPECT_LT(stopped[6], 300.0f);
    ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
    EXPECT_EQ(kind, KA_TRAJECTORY_NONE);
    float later[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, later), KA_OK);
    EXPECT_EQ(later[6], stopped[6]);
}

TEST(SimulatedArm, ConnectedMovesRunInTurnAndReportEach) {
    arm_session s(sim_test::options("KIVO-B", 8.0));
    const float first[7] = {10.0f, 0, 0, 0, 0, 0, 0};
    const float second[7] = {10.0f, 5.0f, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, first, 100, 0, 1, 1), KA_OK); // connected: returns once accepted
    ASSERT_EQ(ka_movej(s.arm, second, 100, 0, 0, 1), KA_OK);
    float joints[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    EXPECT_EQ(joints[0], 10.0f);
    EXPECT_EQ(joints[1], 5.0f);
    ASSERT_TRUE(sim_test::events().wait_events(2, 2s));
    std::lock_guard lock(sim_test::events().mutex);
    EXPECT_EQ(sim_test::events().events[0].trajectory_connect, 1);
    EXPECT_EQ(sim_test::events().events[1].trajectory_connect, 0);
    EXPECT_TRUE(sim_test::events().events[1].trajectory_state);
}

TEST(SimulatedArm, RefusesMovesOutsideTheJointLimits) {
    arm_session s(sim_test::options("KIVO-B", 4.0));
    const float beyond_max[7] = {178.5f, 0, 0, 0, 0, 0, 0};    // joint 1 stops at 178
    const float beyond_min[7] = {0, 0, 0, 0, -128.001f, 0, 0}; // joint 5 at -128
    const float at_limit[7] = {0, 0, 0, 0, -128.0f, 0, 0};
    EXPECT_EQ(ka_movej(s.arm, beyond_max, 50, 0, 0, 0), 1);
    EXPECT_EQ(ka_movej(s.arm, beyond_min, 50, 0, 0, 1), 1); // blocking: refused at once
    EXPECT_EQ(ka_movej(s.arm, at_limit, 0, 0, 0, 0), 1);    // no speed
    float joints[7] = {};
    ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    EXPECT_EQ(joints[0], 0.0f);
    EXPECT_EQ(joints[4], 0.0f);
    EXPECT_EQ(ka_movej(s.arm, at_limit, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    EXPECT_EQ(joints[4], -128.0f);
}

TEST(SimulatedArm, PushesTheRealtimeStateWhereItIsTold) {
    // A seven-joint arm with a six-axis sensor sends the longest datagram.
    arm_session s(sim_test::options("QUIL-6F", 8.0), KA_THREAD_MODE_TRIPLE);
    const float target[7] = {12.5f, -7.25f, 0, 0, 0, 0, 33.0f};
    ASSERT_EQ(ka_movej(s.arm, target, 100, 0, 0, 1), KA_OK);

    ka_realtime_push_config_t config{};
    config.enable = true;
    config.cycle = 2;
    config.port = ka_test::unused_local_port(sim::net::transport::udp);
    std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
    config.custom = {1, 0, 0, 1};
    ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
    ka_realtime_push_config_t read_back{};
    ASSERT_EQ(ka_get_realtime_push(s.arm, &read_back), KA_OK);
    EXPECT_TRUE(read_back.enable);
    EXPECT_EQ(read_back.cycle, 2);
    EXPECT_EQ(read_back.port, config.port);
    // The library listens on the configured port once it re-reads the arm.
    ASSERT_EQ(ka_sync_robot_info(s.arm), KA_OK);

    ASSERT_TRUE(sim_test::events().wait_states(3, 3s));
    std::lock_guard lock(sim_test::events().mutex);
    const ka_realtime_arm_joint_state_t &state = sim_test::events().states.back();
    EXPECT_EQ(state.errCode, 0);
    for (int j = 0; j < 7; ++j)
        EXPECT_EQ(state.joint_position[j], target[j]) << "joint " << j + 1;
    EXPECT_EQ(state.joint_speed[0], 0.0f);
    EXPECT_TRUE(state.joint_en_flag[0]);
    EXPECT_EQ(state.arm_current_status, KA_ARM_STATUS_IDLE);
    EXPECT_EQ(state.arm_err, 0);
    EXPECT_EQ(state.sys_err, 0);
    expect_same_pose(state.waypoint, ka_algo_forward_kinematics(s.arm, target), true);
}

// The push rate is one datagram every `cycle` control cycles, counted against
// the simulator's own cycles (how punctually those run is a benchmark).
TEST(SimulatedArm, PushesOnceEveryConfiguredNumberOfCycles) {
    arm_session s(sim_test::options("KIVO-B"), KA_THREAD_MODE_TRIPLE);
    ka_realtime_push_config_t config{};
    config.enable = true;
    config.cycle = 4;
    config.port = ka_test::unused_local_port(sim::net::transport::udp);
    std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
    config.custom = {-1, -1, -1, -1};
    ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
    ASSERT_EQ(ka_sync_robot_info(s.arm), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_states(1, 3s));

    sim_test::events().clear();
    s.simulator.reset_lateness();
    constexpr std::size_t wanted = 120;
    ASSERT_TRUE(sim_test::events().wait_states(wanted, 10s));
    const std::uint64_t cycles = s.simulator.lateness().cycles;
    std::size_t received = 0;
    {
        std::lock_guard lock(sim_test::events().mutex);
        received = sim_test::events().states.size();
    }
    const double expected = static_cast<double>(cycles) / config.cycle;
    EXPECT_NEAR(static_cast<double>(received), expected, expected * 0.05)
        << received << " datagrams in " << cycles << " cycles";
}

} // namespace

namespace {

TEST(SimulatedArm, MovesToACartesianTargetThroughItsJoints) {
    for (const char *product : {"KIVO-B", "LUNE-B"}) {
        SCOPED_TRACE(product);
        arm_session s(sim_test::options(product, 8.0));
        // A reachable pose: where these joints put the flange, by the library's
        // own kinematics.
        const float joints[7] = {20.0f, -15.0f, 30.0f, 10.0f, 25.0f, 40.0f, -12.0f};
        const ka_pose_t target = ka_algo_forward_kinematics(s.arm, joints);
        ASSERT_EQ(ka_movej_p(s.arm, target, 100, 0, 0, 1), KA_OK);

        ka_current_arm_state_t state{};
        ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
        const ka_pose_t reached = ka_algo_forward_kinematics(s.arm, state.joint);
        // The target crossed the wire truncated to micrometres and milliradians.
        expect_near_pose(reached, target, 2e-5f, 3e-3f);

        // Out of reach: refused, nothing moves.
        ka_pose_t far = target;
        far.position.x = 5.0f;
        EXPECT_EQ(ka_movej_p(s.arm, far, 100, 0, 0, 0), 1);
    }
}

} // namespace
