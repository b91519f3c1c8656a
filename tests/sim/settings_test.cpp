// The simulated arm's settings as the library sets and reads them: joint
// and arm limits, tool and work frames, the install pose, the network
// settings and the realtime push configuration. Every setting is set with
// the library's setter and read back with its getter, so a key or a scale
// that one side gets wrong shows as a wrong value or a failed call.
#include "sim_session.h"

#include "ka_algo.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;
using sim_test::line_client;

// ---------------------------------------------------------------- limits

// One per-joint limit: its setter and getter, and a value that crosses the
// wire exactly.
struct joint_limit_row {
    const char *what;
    int (*set)(ka_robot_handle *, int, float);
    int (*get)(ka_robot_handle *, float *);
    int joint; // 1-based
    float value;
    float read_back;
};

const joint_limit_row joint_limit_rows[] = {
    {"max speed", ka_set_joint_max_speed, ka_get_joint_max_speed, 2, 90.0f, 90.0f},
    {"max acc", ka_set_joint_max_acc, ka_get_joint_max_acc, 3, 120.0f, 120.0f},
    {"min pos", ka_set_joint_min_pos, ka_get_joint_min_pos, 1, -150.5f, -150.5f},
    {"max pos", ka_set_joint_max_pos, ka_get_joint_max_pos, 1, 120.25f, 120.25f},
    {"drive max speed", ka_set_joint_drive_max_speed, ka_get_joint_drive_max_speed, 2, 150.0f,
     150.0f},
    // Sent without the division by six, read back with the factor six.
    {"drive max acc", ka_set_joint_drive_max_acc, ka_get_joint_drive_max_acc, 2, 30.0f, 180.0f},
    {"drive min pos", ka_set_joint_drive_min_pos, ka_get_joint_drive_min_pos, 4, -170.125f,
     -170.125f},
    {"drive max pos", ka_set_joint_drive_max_pos, ka_get_joint_drive_max_pos, 4, 170.0f, 170.0f},
};

TEST(SimulatedSettings, JointLimitsReadBackAsSet) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    for (const joint_limit_row &row : joint_limit_rows) {
        SCOPED_TRACE(row.what);
        float before[7] = {}, after[7] = {};
        ASSERT_EQ(row.get(s.arm, before), KA_OK);
        ASSERT_EQ(row.set(s.arm, row.joint, row.value), KA_OK);
        ASSERT_EQ(row.get(s.arm, after), KA_OK);
        for (int j = 0; j < 6; ++j) {
            if (j == row.joint - 1)
                EXPECT_FLOAT_EQ(after[j], row.read_back);
            else
                EXPECT_FLOAT_EQ(after[j], before[j]) << "joint " << j + 1;
        }
    }
}

// Settings the controller must refuse, each leaving the limits as they were.
TEST(SimulatedSettings, RefusesLimitsItCannotTake) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    const struct {
        const char *what;
        std::function<int()> call;
    } rows[] = {
        {"position beyond the drive", [&] { return ka_set_joint_max_pos(s.arm, 1, 200.0f); }},
        {"minimum above the maximum", [&] { return ka_set_joint_min_pos(s.arm, 2, 131.0f); }},
        {"joint 0", [&] { return ka_set_joint_max_speed(s.arm, 0, 10.0f); }},
        {"joint 7 of six", [&] { return ka_set_joint_max_speed(s.arm, 7, 10.0f); }},
        {"speed beyond the drive", [&] { return ka_set_joint_max_speed(s.arm, 1, 181.0f); }},
        {"no speed", [&] { return ka_set_joint_max_acc(s.arm, 1, 0.0f); }},
        {"drive beyond the mechanics",
         [&] { return ka_set_joint_drive_max_pos(s.arm, 5, 129.0f); }},
        {"collision stage 9", [&] { return ka_set_collision_state(s.arm, 9); }},
        {"no line speed", [&] { return ka_set_arm_max_line_speed(s.arm, 0.0f); }},
        {"unknown limit mode", [&] { return ka_auto_set_joint_limit(s.arm, 7); }},
        {"initial pose outside the limits",
         [&] {
             const float joints[7] = {0, 140.0f, 0, 0, 0, 0, 0};
             return ka_set_init_pose(s.arm, joints);
         }},
    };
    float min_before[7] = {}, max_before[7] = {}, speed_before[7] = {};
    ASSERT_EQ(ka_get_joint_min_pos(s.arm, min_before), KA_OK);
    ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_before), KA_OK);
    ASSERT_EQ(ka_get_joint_max_speed(s.arm, speed_before), KA_OK);
    for (const auto &row : rows)
        EXPECT_EQ(row.call(), 1) << row.what;
    float min_after[7] = {}, max_after[7] = {}, speed_after[7] = {};
    ASSERT_EQ(ka_get_joint_min_pos(s.arm, min_after), KA_OK);
    ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_after), KA_OK);
    ASSERT_EQ(ka_get_joint_max_speed(s.arm, speed_after), KA_OK);
    EXPECT_EQ(0, std::memcmp(min_before, min_after, sizeof min_after));
    EXPECT_EQ(0, std::memcmp(max_before, max_after, sizeof max_after));
    EXPECT_EQ(0, std::memcmp(speed_before, speed_after, sizeof speed_after));
}

TEST(SimulatedSettings, ArmLimitsCollisionAndInitialPoseReadBackAsSet) {
    arm_session s(sim_test::options("QUIL-B", 10.0));
    const struct {
        const char *what;
        int (*set)(ka_robot_handle *, float);
        int (*get)(ka_robot_handle *, float *);
        float value;
    } rows[] = {
        {"line speed", ka_set_arm_max_line_speed, ka_get_arm_max_line_speed, 0.25f},
        {"line acc", ka_set_arm_max_line_acc, ka_get_arm_max_line_acc, 1.5f},
        {"angular speed", ka_set_arm_max_angular_speed, ka_get_arm_max_angular_speed, 0.75f},
        {"angular acc", ka_set_arm_max_angular_acc, ka_get_arm_max_angular_acc, 2.125f},
    };
    float defaults[4] = {};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].what);
        ASSERT_EQ(rows[i].get(s.arm, &defaults[i]), KA_OK);
        ASSERT_EQ(rows[i].set(s.arm, rows[i].value), KA_OK);
        float read = 0;
        ASSERT_EQ(rows[i].get(s.arm, &read), KA_OK);
        EXPECT_FLOAT_EQ(read, rows[i].value);
    }
    // Resetting the tool centre point's settings brings back the defaults.
    ASSERT_EQ(ka_set_arm_tcp_init(s.arm), KA_OK);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        float read = 0;
        ASSERT_EQ(rows[i].get(s.arm, &read), KA_OK);
        EXPECT_FLOAT_EQ(read, defaults[i]) << rows[i].what;
        EXPECT_GT(read, 0.0f) << rows[i].what;
    }

    int stage = -1;
    ASSERT_EQ(ka_set_collision_state(s.arm, 5), KA_OK);
    ASSERT_EQ(ka_get_collision_stage(s.arm, &stage), KA_OK);
    EXPECT_EQ(stage, 5);

    // Seven joints: the seventh crosses the wire too.
    const float init[7] = {10.5f, -20.25f, 30.0f, -40.125f, 50.0f, -60.5f, 70.75f};
    ASSERT_EQ(ka_set_init_pose(s.arm, init), KA_OK);
    float read[7] = {};
    ASSERT_EQ(ka_get_init_pose(s.arm, read), KA_OK);
    for (int j = 0; j < 7; ++j)
        EXPECT_FLOAT_EQ(read[j], init[j]) << "joint " << j + 1;
}

TEST(SimulatedSettings, MovesStayInsideTheLimitsSet) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    ASSERT_EQ(ka_set_joint_max_pos(s.arm, 1, 30.0f), KA_OK);
    const float beyond[7] = {40.0f, 0, 0, 0, 0, 0, 0};
    const float inside[7] = {25.0f, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(ka_movej(s.arm, beyond, 100, 0, 0, 1), 1);
    EXPECT_EQ(ka_movej(s.arm, inside, 100, 0, 0, 1), KA_OK);

    // A drive limit inside the controller's pulls the controller's in.
    ASSERT_EQ(ka_set_joint_drive_max_pos(s.arm, 1, 20.0f), KA_OK);
    float max_pos[7] = {};
    ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_pos), KA_OK);
    EXPECT_FLOAT_EQ(max_pos[0], 20.0f);
    const float back[7] = {10.0f, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(ka_movej(s.arm, inside, 100, 0, 0, 1), 1);
    EXPECT_EQ(ka_movej(s.arm, back, 100, 0, 0, 1), KA_OK);

    // Mode 1 opens the position limits to the drives', mode 0 restores the
    // factory range within them.
    ASSERT_EQ(ka_set_joint_min_pos(s.arm, 2, -10.0f), KA_OK);
    ASSERT_EQ(ka_auto_set_joint_limit(s.arm, 1), KA_OK);
    float min_pos[7] = {};
    ASSERT_EQ(ka_get_joint_min_pos(s.arm, min_pos), KA_OK);
    EXPECT_FLOAT_EQ(min_pos[1], -130.0f);
    ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_pos), KA_OK);
    EXPECT_FLOAT_EQ(max_pos[0], 20.0f);
    ASSERT_EQ(ka_auto_set_joint_limit(s.arm, 0), KA_OK);
    ASSERT_EQ(ka_get_joint_max_pos(s.arm, max_pos), KA_OK);
    EXPECT_FLOAT_EQ(max_pos[0], 20.0f);
    EXPECT_FLOAT_EQ(max_pos[1], 130.0f);
}

// ---------------------------------------------------------------- frames

ka_frame_t tool(const char *name, float z, float payload) {
    ka_frame_t f{};
    std::snprintf(f.frame_name, sizeof f.frame_name, "%s", name);
    f.pose.position.z = z;
    f.pose.euler.rx = 0.5f;
    f.payload = payload;
    f.x = 0.01f;
    f.y = 0.0f;
    f.z = 0.02f;
    return f;
}

ka_pose_t pose(float x, float y, float z, float rx, float ry, float rz) {
    ka_pose_t p{};
    p.position = {x, y, z};
    p.euler = {rx, ry, rz};
    return p;
}

// Within the wire's resolution: micrometres and milliradians.
void expect_pose(const ka_pose_t &a, const ka_pose_t &b) {
    sim_test::expect_near_pose(a, b, 3e-6f, 2e-3f);
}

std::vector<std::string> names(const ka_frame_name_t *list, int count) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i)
        out.emplace_back(list[i].name, strnlen(list[i].name, KA_NAME_SIZE));
    return out;
}

TEST(SimulatedSettings, ToolFramesAreKeptListedChangedAndDeleted) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    const ka_frame_t gripper = tool("gripper", 0.125f, 1.5f);
    ASSERT_EQ(ka_set_manual_tool_frame(s.arm, gripper), KA_OK);
    EXPECT_EQ(ka_set_manual_tool_frame(s.arm, gripper), 1); // the name is taken
    ASSERT_EQ(ka_set_manual_tool_frame(s.arm, tool("probe", 0.05f, 0.25f)), KA_OK);

    ka_frame_name_t list[KA_FRAME_LIST_CAPACITY] = {};
    int count = -1;
    ASSERT_EQ(ka_get_total_tool_frame(s.arm, list, &count), KA_OK);
    EXPECT_EQ(names(list, count), (std::vector<std::string>{"Arm_Tip", "gripper", "probe"}));

    ka_frame_t read{};
    ASSERT_EQ(ka_get_given_tool_frame(s.arm, "gripper", &read), KA_OK);
    EXPECT_STREQ(read.frame_name, "gripper");
    expect_pose(read.pose, gripper.pose);
    EXPECT_FLOAT_EQ(read.payload, 1.5f);
    EXPECT_FLOAT_EQ(read.x, 0.01f);
    EXPECT_FLOAT_EQ(read.z, 0.02f);
    // An unknown name is answered under the request's name.
    EXPECT_EQ(ka_get_given_tool_frame(s.arm, "nothing", &read), KA_ERR_TIMEOUT);

    // The current tool moves the reported pose as the kinematics predict.
    const float joints[7] = {10.0f, -20.0f, 30.0f, 5.0f, 40.0f, -15.0f, 0};
    ASSERT_EQ(ka_movej(s.arm, joints, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_change_tool_frame(s.arm, "gripper"), KA_OK);
    ka_frame_t current{};
    ASSERT_EQ(ka_get_current_tool_frame(s.arm, &current), KA_OK);
    EXPECT_STREQ(current.frame_name, "gripper");
    ka_current_arm_state_t state{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
    expect_pose(state.pose, ka_algo_forward_kinematics(s.arm, state.joint));
    // Independently: the tip is 0.125 m along the flange's z axis.
    ASSERT_EQ(ka_change_tool_frame(s.arm, "Arm_Tip"), KA_OK);
    ka_current_arm_state_t flange{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &flange), KA_OK);
    const double tip_distance = std::hypot(state.pose.position.x - flange.pose.position.x,
                                           state.pose.position.y - flange.pose.position.y,
                                           state.pose.position.z - flange.pose.position.z);
    EXPECT_NEAR(tip_distance, 0.125, 3e-6);

    // An update of the current tool shows at once.
    ASSERT_EQ(ka_change_tool_frame(s.arm, "gripper"), KA_OK);
    ASSERT_EQ(ka_update_tool_frame(s.arm, tool("gripper", 0.2f, 2.0f)), KA_OK);
    ASSERT_EQ(ka_get_given_tool_frame(s.arm, "gripper", &read), KA_OK);
    EXPECT_FLOAT_EQ(read.pose.position.z, 0.2f);
    EXPECT_FLOAT_EQ(read.payload, 2.0f);
    EXPECT_EQ(ka_update_tool_frame(s.arm, tool("nothing", 0.2f, 2.0f)), 1);

    // Deleting the current tool falls back to the flange.
    ASSERT_EQ(ka_delete_tool_frame(s.arm, "gripper"), KA_OK);
    ASSERT_EQ(ka_get_current_tool_frame(s.arm, &current), KA_OK);
    EXPECT_STREQ(current.frame_name, "Arm_Tip");
    EXPECT_EQ(ka_delete_tool_frame(s.arm, "Arm_Tip"), 1);
    EXPECT_EQ(ka_change_tool_frame(s.arm, "gripper"), 1);
    ASSERT_EQ(ka_get_total_tool_frame(s.arm, list, &count), KA_OK);
    EXPECT_EQ(names(list, count), (std::vector<std::string>{"Arm_Tip", "probe"}));
}

TEST(SimulatedSettings, WorkFramesMoveThePoseTheArmReports) {
    arm_session s(sim_test::options("LUNE-B", 20.0));
    const float joints[7] = {15.0f, -25.0f, 10.0f, 35.0f, -20.0f, 30.0f, 12.0f};
    ASSERT_EQ(ka_movej(s.arm, joints, 100, 0, 0, 1), KA_OK);
    ka_current_arm_state_t world{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &world), KA_OK);

    // A frame shifted by (0.1, -0.2, 0.05) and turned 1.5 rad about z (an
    // angle the wire's milliradians carry exactly).
    const ka_pose_t table = pose(0.1f, -0.2f, 0.05f, 0, 0, 1.5f);
    ASSERT_EQ(ka_set_manual_work_frame(s.arm, "table", table), KA_OK);
    EXPECT_EQ(ka_set_manual_work_frame(s.arm, "table", table), 1);
    ka_pose_t read{};
    ASSERT_EQ(ka_get_given_work_frame(s.arm, "table", &read), KA_OK);
    expect_pose(read, table);
    EXPECT_EQ(ka_get_given_work_frame(s.arm, "nothing", &read), 1);

    ASSERT_EQ(ka_change_work_frame(s.arm, "table"), KA_OK);
    ka_frame_t current{};
    ASSERT_EQ(ka_get_current_work_frame(s.arm, &current), KA_OK);
    EXPECT_STREQ(current.frame_name, "table");
    ka_current_arm_state_t in_table{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &in_table), KA_OK);
    // p_table = Rz(-1.5) (p_world - origin)
    const double dx = world.pose.position.x - 0.1, dy = world.pose.position.y + 0.2;
    const double c = std::cos(1.5), sn = std::sin(1.5);
    EXPECT_NEAR(in_table.pose.position.x, c * dx + sn * dy, 3e-6);
    EXPECT_NEAR(in_table.pose.position.y, -sn * dx + c * dy, 3e-6);
    EXPECT_NEAR(in_table.pose.position.z, world.pose.position.z - 0.05, 3e-6);
    expect_pose(in_table.pose, ka_algo_forward_kinematics(s.arm, joints));

    // Updating the frame in use moves the pose again.
    ASSERT_EQ(ka_update_work_frame(s.arm, "table", pose(0.1f, -0.2f, 0.15f, 0, 0, 1.5f)), KA_OK);
    ka_current_arm_state_t lifted{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &lifted), KA_OK);
    EXPECT_NEAR(lifted.pose.position.z, in_table.pose.position.z - 0.1, 3e-6);

    ka_frame_name_t list[KA_FRAME_LIST_CAPACITY] = {};
    int count = 0;
    ASSERT_EQ(ka_get_total_work_frame(s.arm, list, &count), KA_OK);
    EXPECT_EQ(names(list, count), (std::vector<std::string>{"World", "table"}));
    ASSERT_EQ(ka_delete_work_frame(s.arm, "table"), KA_OK);
    ASSERT_EQ(ka_get_current_work_frame(s.arm, &current), KA_OK);
    EXPECT_STREQ(current.frame_name, "World");
    ka_current_arm_state_t again{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &again), KA_OK);
    expect_pose(again.pose, world.pose);
}

TEST(SimulatedSettings, FrameListsHoldTenNames) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    for (int i = 1; i < KA_FRAME_LIST_CAPACITY; ++i)
        ASSERT_EQ(ka_set_manual_work_frame(s.arm, ("w" + std::to_string(i)).c_str(),
                                           pose(0, 0, 0.01f * i, 0, 0, 0)),
                  KA_OK)
            << i;
    EXPECT_EQ(ka_set_manual_work_frame(s.arm, "one_more", pose(0, 0, 0, 0, 0, 0)), 1);
    EXPECT_EQ(ka_set_manual_work_frame(s.arm, "name_too_long", pose(0, 0, 0, 0, 0, 0)), 1);
    ka_frame_name_t list[KA_FRAME_LIST_CAPACITY] = {};
    int count = 0;
    ASSERT_EQ(ka_get_total_work_frame(s.arm, list, &count), KA_OK);
    EXPECT_EQ(count, KA_FRAME_LIST_CAPACITY);
    EXPECT_STREQ(list[9].name, "w9");
}

TEST(SimulatedSettings, WorkFrameTaughtByThreePoints) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    // The flange at three joint positions: origin, on the x axis, in the plane.
    const float at[3][7] = {{0, -30.0f, 60.0f, 0, 60.0f, 0, 0},
                            {10.0f, -30.0f, 60.0f, 0, 60.0f, 0, 0},
                            {0, -20.0f, 50.0f, 0, 60.0f, 0, 0}};
    ka_pose_t taught[3];
    for (int p = 0; p < 3; ++p) {
        ASSERT_EQ(ka_movej(s.arm, at[p], 100, 0, 0, 1), KA_OK);
        taught[p] = ka_algo_forward_kinematics(s.arm, at[p]);
        ASSERT_EQ(ka_set_auto_work_frame(s.arm, "bench", p + 1), KA_OK) << "point " << p + 1;
    }
    ka_pose_t bench{};
    ASSERT_EQ(ka_get_given_work_frame(s.arm, "bench", &bench), KA_OK);
    EXPECT_NEAR(bench.position.x, taught[0].position.x, 3e-6);
    EXPECT_NEAR(bench.position.y, taught[0].position.y, 3e-6);
    EXPECT_NEAR(bench.position.z, taught[0].position.z, 3e-6);
    // Seen from the new frame, point 2 lies on its x axis and point 3 in its
    // xy plane on the +y side.
    ASSERT_EQ(ka_change_work_frame(s.arm, "bench"), KA_OK);
    ka_current_arm_state_t state{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK); // still at point 3
    EXPECT_NEAR(state.pose.position.z, 0.0, 1e-5);
    EXPECT_GT(state.pose.position.y, 0.0);
    ASSERT_EQ(ka_movej(s.arm, at[1], 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
    EXPECT_GT(state.pose.position.x, 0.0);
    EXPECT_NEAR(state.pose.position.y, 0.0, 1e-5);
    EXPECT_NEAR(state.pose.position.z, 0.0, 1e-5);
}

using rotation = std::array<std::array<double, 3>, 3>;

rotation rotation_about(int axis, double angle) {
    rotation r{};
    const int a = (axis + 1) % 3, b = (axis + 2) % 3;
    r[axis][axis] = 1;
    r[a][a] = r[b][b] = std::cos(angle);
    r[a][b] = -std::sin(angle);
    r[b][a] = std::sin(angle);
    return r;
}

TEST(SimulatedSettings, ToolFrameTaughtByPointsAboutOneTip) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    const float start[7] = {0, -30.0f, 60.0f, 0, 60.0f, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, start, 100, 0, 0, 1), KA_OK);
    const ka_matrix_t flange = ka_algo_pos2matrix(ka_algo_forward_kinematics(s.arm, start));
    // A tip 0.1 m out on the flange, held on one point from four orientations.
    const std::array<double, 3> tip{0.02, -0.01, 0.1};
    std::array<double, 3> point{};
    for (int r = 0; r < 3; ++r) {
        point[r] = flange.data[r][3];
        for (int k = 0; k < 3; ++k)
            point[r] += flange.data[r][k] * tip[k];
    }
    const rotation turns[] = {rotation_about(0, 0), rotation_about(0, 0.3), rotation_about(1, 0.1),
                              rotation_about(2, 0.4)};
    EXPECT_EQ(ka_set_auto_tool_frame(s.arm, 7), 1); // point numbers 1 to 6
    for (int p = 0; p < 4; ++p) {
        ka_matrix_t m = flange;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) {
                double sum = 0;
                for (int k = 0; k < 3; ++k)
                    sum += flange.data[r][k] * turns[p][k][c];
                m.data[r][c] = static_cast<float>(sum);
            }
        }
        for (int r = 0; r < 3; ++r) {
            double offset = 0;
            for (int k = 0; k < 3; ++k)
                offset += m.data[r][k] * tip[k];
            m.data[r][3] = static_cast<float>(point[r] - offset);
        }
        ASSERT_EQ(ka_movej_p(s.arm, ka_algo_matrix2pos(m), 100, 0, 0, 1), KA_OK) << p;
        ASSERT_EQ(ka_set_auto_tool_frame(s.arm, p + 1), KA_OK) << p;
    }
    ASSERT_EQ(ka_generate_auto_tool_frame(s.arm, "probe", 0.5f, 0.0f, 0.0f, 0.05f), KA_OK);
    ka_frame_t probe{};
    ASSERT_EQ(ka_get_given_tool_frame(s.arm, "probe", &probe), KA_OK);
    // Poses cross the wire in micrometres and milliradians.
    EXPECT_NEAR(probe.pose.position.x, tip[0], 1e-3);
    EXPECT_NEAR(probe.pose.position.y, tip[1], 1e-3);
    EXPECT_NEAR(probe.pose.position.z, tip[2], 1e-3);
    EXPECT_FLOAT_EQ(probe.payload, 0.5f);
    EXPECT_FLOAT_EQ(probe.z, 0.05f);
    // The points are used up.
    EXPECT_EQ(ka_generate_auto_tool_frame(s.arm, "again", 0.5f, 0.0f, 0.0f, 0.0f), 1);
}

ka_envelope_balls_list_t two_balls(const char *tool_name) {
    ka_envelope_balls_list_t list{};
    std::snprintf(list.tool_name, sizeof list.tool_name, "%s", tool_name);
    list.size = 2;
    list.balls[0] = {"palm", 0.05f, 0.0f, 0.0f, 0.06f};
    list.balls[1] = {"finger", 0.02f, 0.01f, -0.015f, 0.11f};
    return list;
}

void expect_two_balls(const ka_envelope_balls_list_t &read) {
    const ka_envelope_balls_list_t set = two_balls("gripper");
    EXPECT_STREQ(read.tool_name, "gripper");
    ASSERT_EQ(read.size, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_STREQ(read.balls[i].name, set.balls[i].name);
        EXPECT_FLOAT_EQ(read.balls[i].radius, set.balls[i].radius);
        EXPECT_FLOAT_EQ(read.balls[i].x, set.balls[i].x);
        EXPECT_FLOAT_EQ(read.balls[i].y, set.balls[i].y);
        EXPECT_FLOAT_EQ(read.balls[i].z, set.balls[i].z);
    }
}

TEST(SimulatedSettings, ToolEnvelopeAndInstallPoseReadBackAsSet) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    ASSERT_EQ(ka_set_manual_tool_frame(s.arm, tool("gripper", 0.1f, 1.0f)), KA_OK);
    // The envelope in millimetres, as one line.
    line_client raw(s.port);
    EXPECT_EQ(raw.ask(R"({"command":"set_tool_envelope","tool_name":"gripper","list":[)"
                      R"({"name":"palm","radius":50,"x":0,"y":0,"z":60},)"
                      R"({"name":"finger","radius":20,"x":10,"y":-15,"z":110}]})"),
              R"({"command":"set_tool_envelope","set_state":true})");
    EXPECT_EQ(raw.ask(R"({"command":"set_tool_envelope","tool_name":"nothing","list":[]})"),
              R"({"command":"set_tool_envelope","set_state":false})");
    ka_envelope_balls_list_t read{};
    ASSERT_EQ(ka_get_tool_envelope(s.arm, "gripper", &read), KA_OK);
    expect_two_balls(read);
    EXPECT_EQ(ka_get_tool_envelope(s.arm, "nothing", &read), 1);

    // Whole degrees on the wire.
    ASSERT_EQ(ka_set_install_pose(s.arm, 90.7f, 0.0f, -30.2f), KA_OK);
    float x = 0, y = 1, z = 0;
    ASSERT_EQ(ka_get_install_pose(s.arm, &x, &y, &z), KA_OK);
    EXPECT_EQ(x, 90.0f);
    EXPECT_EQ(y, 0.0f);
    EXPECT_EQ(z, -30.0f);
}

// The library sends this request as indented JSON over several "\n" lines
// ended by one "\r\n"; the simulator's reader splits at every "\n", so the
// request never arrives whole and the call times out. Enabled once the
// reader splits at "\r\n" only.
TEST(SimulatedSettings, ToolEnvelopeSetByTheLibrary) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    ASSERT_EQ(ka_set_manual_tool_frame(s.arm, tool("gripper", 0.1f, 1.0f)), KA_OK);
    ASSERT_EQ(ka_set_tool_envelope(s.arm, two_balls("gripper")), KA_OK);
    ka_envelope_balls_list_t read{};
    ASSERT_EQ(ka_get_tool_envelope(s.arm, "gripper", &read), KA_OK);
    expect_two_balls(read);
    EXPECT_EQ(ka_set_tool_envelope(s.arm, two_balls("nothing")), 1);
}

// --------------------------------------------------------------- network

std::string text(const char *field, std::size_t size) {
    return std::string(field, strnlen(field, size));
}

TEST(SimulatedSettings, NetworkSettingsAreStoredAndReturned) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    char ip[16] = {}, mask[16] = {}, mac[18] = {};
    ASSERT_EQ(ka_set_NetIP(s.arm, "10.1.2.3"), KA_OK);
    EXPECT_EQ(ka_set_NetIP(s.arm, "10.1.2"), 1);
    ASSERT_EQ(ka_get_wired_net(s.arm, ip, mask, mac), KA_OK);
    EXPECT_STREQ(ip, "10.1.2.3");
    EXPECT_STREQ(mask, "255.255.255.0");
    EXPECT_EQ(std::strlen(mac), 17u);

    ka_wifi_net_t wifi{};
    ASSERT_EQ(ka_set_wifi_sta(s.arm, "workshop", "secret-key"), KA_OK);
    ASSERT_EQ(ka_get_wifi_net(s.arm, &wifi), KA_OK);
    EXPECT_EQ(text(wifi.mode, sizeof wifi.mode), "sta");
    EXPECT_EQ(text(wifi.ssid, sizeof wifi.ssid), "workshop");
    EXPECT_EQ(text(wifi.password, sizeof wifi.password), "secret-key");

    ASSERT_EQ(ka_set_wifi_ap(s.arm, "arm-cell-3", "cell3pass"), KA_OK);
    wifi = {};
    ASSERT_EQ(ka_get_wifi_net(s.arm, &wifi), KA_OK);
    EXPECT_EQ(text(wifi.mode, sizeof wifi.mode), "ap");
    EXPECT_EQ(text(wifi.ssid, sizeof wifi.ssid), "arm-cell-3");
    EXPECT_EQ(text(wifi.password, sizeof wifi.password), "cell3pass");
    EXPECT_GT(wifi.channel, 0);

    ASSERT_EQ(ka_set_wifi_close(s.arm), KA_OK);
    wifi = {};
    ASSERT_EQ(ka_get_wifi_net(s.arm, &wifi), KA_OK);
    EXPECT_EQ(text(wifi.mode, sizeof wifi.mode), "off");
    EXPECT_EQ(text(wifi.ssid, sizeof wifi.ssid), "");

    ASSERT_EQ(ka_set_net_default(s.arm), KA_OK);
    ASSERT_EQ(ka_get_wired_net(s.arm, ip, mask, mac), KA_OK);
    EXPECT_STRNE(ip, "10.1.2.3");

    // The serial settings are sent and never answered: the next line on
    // the connection is the answer to the next question.
    line_client raw(s.port);
    for (const char *line : {R"({"command":"set_usb","baudrate":115200})",
                             R"({"command":"set_RS485","baudrate":9600})",
                             R"({"command":"set_wifi_ap","wifi_name":"x","password":"12345678"})"})
        raw.send(line);
    EXPECT_EQ(raw.ask(R"({"command":"get_joint_degree"})"),
              R"({"command":"joint_degree","joint":[0,0,0,0,0,0]})");
    EXPECT_EQ(ka_set_usb(s.arm, 230400), KA_OK);
    EXPECT_EQ(ka_set_RS485(s.arm, 57600), KA_OK);
}

// ---------------------------------------------------------- realtime push

TEST(SimulatedSettings, PushConfigurationReadsBackAsSet) {
    for (const char *product : {"KIVO-B", "LUNE-ZF"}) {
        SCOPED_TRACE(product);
        arm_session s(sim_test::options(product, 10.0), KA_THREAD_MODE_DUAL);
        ka_realtime_push_config_t config{};
        config.enable = false;
        config.cycle = 7;
        config.port = 18123;
        config.force_coordinate = 2;
        std::snprintf(config.ip, sizeof config.ip, "192.168.5.9");
        config.custom = {0, 1, 1, 0};
        ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
        ka_realtime_push_config_t read{};
        ASSERT_EQ(ka_get_realtime_push(s.arm, &read), KA_OK);
        EXPECT_FALSE(read.enable);
        EXPECT_EQ(read.cycle, 7);
        EXPECT_EQ(read.port, 18123);
        EXPECT_STREQ(read.ip, "192.168.5.9");
        EXPECT_EQ(read.custom.joint_speed, 0);
        EXPECT_EQ(read.custom.lift_state, 1);
        EXPECT_EQ(read.custom.expand_state, 1);
        EXPECT_EQ(read.custom.arm_current_status, 0);
        // Only an arm with a sensor sends and reads the sensor's frame.
        if (std::string(product) == "LUNE-ZF") EXPECT_EQ(read.force_coordinate, 2);

        config.cycle = 0; // not sent: kept
        config.port = 70000;
        EXPECT_EQ(ka_set_realtime_push(s.arm, config), 1);
        ASSERT_EQ(ka_get_realtime_push(s.arm, &read), KA_OK);
        EXPECT_EQ(read.port, 18123);
        EXPECT_EQ(read.cycle, 7);
    }
}

} // namespace

namespace {

// Requests with keys missing, of the wrong type or far too long: each is
// answered (the set commands with false) and the arm keeps serving.
TEST(SimulatedSettings, MalformedRequestsAreAnsweredNotFatal) {
    arm_session s(sim_test::options("QUIL-6F", 10.0));
    line_client raw(s.port);
    const char *const commands[] = {"set_joint_max_speed",
                                    "set_joint_drive_max_acc",
                                    "set_joint_min_pos",
                                    "auto_set_joint_limit",
                                    "set_joint_en_state",
                                    "set_joint_zero_pos",
                                    "set_joint_clear_err",
                                    "set_arm_max_line_speed",
                                    "set_collision_stage",
                                    "set_init_pose",
                                    "set_manual_tool_frame",
                                    "update_tool_frame",
                                    "generate_auto_tool_frame",
                                    "set_auto_tool_frame",
                                    "set_tool_envelope",
                                    "get_tool_envelope",
                                    "set_manual_work_frame",
                                    "update_work_frame",
                                    "set_auto_work_frame",
                                    "get_tool_frame",
                                    "get_work_frame",
                                    "set_change_tool_frame",
                                    "set_delete_work_frame",
                                    "set_install_pose",
                                    "set_arm_power",
                                    "set_NetIP",
                                    "set_realtime_push"};
    std::string huge = "[7";
    for (int i = 0; i < 3000; ++i)
        huge += ",7";
    huge += "]";
    const std::string bodies[] = {
        "",
        R"(,"joint_max_speed":"x","joint_max_acc":null,"joint_min_pos":[1],"limit_mode":"1",)"
        R"("joint_en_state":[1,2,3],"joint_zero_pos":true,"joint_clear_err":99,)"
        R"("arm_line_speed":-5,"collision_stage":{},"init_pose":[1,2],"tool_name":7,)"
        R"("payload":"a","position":[1,2],"tool_pose":7,"point_num":-1,"list":{},)"
        R"("frame_name":[],"frame_pose":"p","pose":[1,"a",3],"arm_power":"on","ip":5,)"
        R"("enable":1,"custom":[1],"cycle":"c")",
        R"(,"tool_name":"a","frame_name":"b","list":[1,{"name":5},{"name":"n","radius":"r"}],)"
        R"("position":)" +
            huge + R"(,"tool_pose":)" + huge + R"(,"init_pose":)" + huge,
    };
    for (const char *command : commands)
        for (const std::string &body : bodies) {
            const std::string answer =
                raw.ask(std::string(R"({"command":")") + command + "\"" + body + "}");
            EXPECT_NE(answer, "") << command << body.substr(0, 40);
            EXPECT_EQ(answer.find("true"), std::string::npos) << command << " " << answer;
        }
    float joints[7] = {};
    EXPECT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
}

} // namespace
