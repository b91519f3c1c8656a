// The process-wide kinematics context: model loading, setters and getters,
// unit conversion, limit check and loading from a connected arm.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/models.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace algo_test;

namespace {

std::vector<std::string> captured_log;

void capture_log(const char *format, va_list args) {
    char line[256];
    std::vsnprintf(line, sizeof line, format, args);
    captured_log.emplace_back(line);
}

class Context : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
    }
    void TearDown() override {
        stand_in_clear();
        ka_set_log_call_back(nullptr, 3);
    }
};

} // namespace

// ---------------------------------------------------------- model loading

TEST_F(Context, InitLoadsKivoWithoutSensor) {
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_B);
    EXPECT_EQ(libalgo_get_rbt_dof(), 6);
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    EXPECT_FLOAT_EQ(dh.d[5], 0.144f);
    EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.002f);
    float g[3];
    libalgo_get_robot_gravity_acc(g);
    EXPECT_FLOAT_EQ(g[2], -9.81f);
}

TEST_F(Context, ReservedTypeLoadsNothing) {
    EXPECT_EQ(ka_algo_init_sys_data(KA_ARM_MODEL_RESERVED_2, KA_FORCE_TYPE_B), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    float max[7] = {1, 1, 1, 1, 1, 1, 1};
    ka_algo_get_joint_max_limit(max); // DOF 0: nothing is written
    EXPECT_EQ(max[0], 1.0f);
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    for (float d : dh.d)
        EXPECT_EQ(d, 0.0f);
    EXPECT_TRUE(matrices_near(libalgo_get_tool_cs_matrix(), identity4(), 0.0f));
    EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.002f);
}

TEST_F(Context, OutOfRangeModelAndSensorFallBackToKivo) {
    ka_algo_init_sys_data(KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_6F);
    EXPECT_EQ(ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(12),
                                    static_cast<ka_force_type_e>(5)),
              0);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_B);
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    EXPECT_FLOAT_EQ(dh.d[5], 0.144f);
}

TEST_F(Context, ExportedInitAcceptsModelsZeroToEightOnly) {
    EXPECT_EQ(ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(9), KA_FORCE_TYPE_B), 0);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    EXPECT_EQ(ka_algo_init_sys_data(KA_ARM_MODEL_NEPATQ, KA_FORCE_TYPE_ZF), 0);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_NEPATQ);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_ZF);
}

TEST_F(Context, InnerLoaderReachesTypeNineAndRejectsTheRest) {
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(9, 0), 0);
    EXPECT_EQ(libalgo_get_rbt_dof(), 7);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(10, 0), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(0, 3), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
}

TEST_F(Context, SensorVariantSelectsFlangeAndDynamics) {
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_LUNE, 2);
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    const model_params *m = model_params_for(KA_ARM_MODEL_LUNE);
    EXPECT_EQ(dh.d[6], m->dh[2].d[6]);
    float dyn[7][10];
    libalgo_get_link_dynamics_params(dyn);
    EXPECT_EQ(dyn[6][9], m->dynamics[2][6].v[9]);
    float tcp[4];
    libalgo_get_tcp_config(tcp);
    EXPECT_EQ(tcp[0], m->tcp_config[0]);
    float dir[7];
    libalgo_get_joint_direction(dir);
    EXPECT_EQ(dir[6], 1.0f);
}

TEST_F(Context, ReloadDiscardsEarlierSettings) {
    const float max[7] = {10, 10, 10, 10, 10, 10, 10};
    ka_algo_set_joint_max_limit(max);
    ka_frame_t tool{};
    tool.pose.position.z = 0.2f;
    ka_algo_set_toolframe(&tool);
    ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B);
    float back[7];
    ka_algo_get_joint_max_limit(back);
    EXPECT_FLOAT_EQ(back[0], 178.0f);
    EXPECT_TRUE(matrices_near(libalgo_get_tool_cs_matrix(), identity4(), 0.0f));
}

// ---------------------------------------------------------- DH defaults

TEST_F(Context, DhDefaultCheckSeesOnlyTheFirstDofRows) {
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    dh.d[6] = 5.0f; // past the six joints of KIVO
    libalgo_set_dh_params(&dh);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
    dh.a[2] += 1e-6f;
    libalgo_set_dh_params(&dh);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 0);
    libalgo_set_dh_params_default(&dh);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
}

TEST_F(Context, DhDefaultCheckWithoutModelPasses) {
    libalgo_clear();
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
}

// ------------------------------------------------------------ joint limits

TEST_F(Context, LimitRoundTripInDegrees) {
    const float max[7] = {170.5f, 120, 100, 33.3f, 90, 359, 7};
    ka_algo_set_joint_max_limit(max);
    float back[7] = {};
    ka_algo_get_joint_max_limit(back);
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(back[i], max[i], 2e-5f) << i;
    const float speed[7] = {100, 110, 120, 130, 140, 150, 160};
    ka_algo_set_joint_max_speed(speed);
    ka_algo_get_joint_max_speed(back);
    EXPECT_NEAR(back[5], 150.0f, 2e-5f);
    const float acc[7] = {500, 500, 500, 500, 500, 600, 700};
    ka_algo_set_joint_max_acc(acc);
    ka_algo_get_joint_max_acc(back);
    EXPECT_NEAR(back[5], 600.0f, 1e-4f);
    const float min[7] = {-1, -2, -3, -4, -5, -6, -7};
    ka_algo_set_joint_min_limit(min);
    ka_algo_get_joint_min_limit(back);
    EXPECT_NEAR(back[3], -4.0f, 1e-5f);
}

TEST_F(Context, InnerLayerStoresRadians) {
    const float max[7] = {90, 90, 90, 90, 90, 90, 90};
    ka_algo_set_joint_max_limit(max);
    float rad[7] = {};
    libalgo_get_jointlim_max(rad);
    EXPECT_FLOAT_EQ(rad[0], static_cast<float>(90 * 0.017453292519943295));
    float speed[7] = {};
    libalgo_get_joint_vel_maxlim(speed);
    EXPECT_FLOAT_EQ(speed[0], static_cast<float>(180 * 0.017453292519943295));
}

TEST_F(Context, OnlyDofEntriesAreWritten) {
    float back[7];
    for (float &v : back)
        v = -99.0f;
    ka_algo_get_joint_max_limit(back);
    EXPECT_FLOAT_EQ(back[5], 360.0f);
    EXPECT_EQ(back[6], -99.0f);
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_QUIL, 0);
    ka_algo_get_joint_max_limit(back);
    EXPECT_FLOAT_EQ(back[6], 175.0f);
}

TEST_F(Context, ModellingLimitsIgnoreUserLimits) {
    const float max[7] = {10, 10, 10, 10, 10, 10, 10};
    ka_algo_set_joint_max_limit(max);
    float model[7] = {};
    libalgo_get_modeling_jointlim_max(model);
    EXPECT_FLOAT_EQ(model[0], static_cast<float>(178 * 0.017453292519943295));
    float model_min_deg[7] = {};
    invoke_libalgo_get_modeling_jointlim_min(model_min_deg);
    EXPECT_FLOAT_EQ(model_min_deg[5], -360.0f);
}

TEST_F(Context, OverposAcceptsTheLimitItself) {
    float max[7], q[7] = {};
    ka_algo_get_joint_max_limit(max);
    q[1] = max[1];
    EXPECT_EQ(ka_algo_judgment_overpos(q), 0);
    q[1] = 130.0f; // the model's own value, as a caller would write it
    EXPECT_EQ(ka_algo_judgment_overpos(q), 0);
    float min[7];
    ka_algo_get_joint_min_limit(min);
    q[1] = 0.0f;
    q[4] = min[4];
    EXPECT_EQ(ka_algo_judgment_overpos(q), 0);
}

TEST_F(Context, OverposRejectsJustBeyond) {
    float q[7] = {};
    q[1] = 130.001f;
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
    q[1] = 0.0f;
    q[5] = -360.001f;
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
    q[5] = 0.0f;
    q[0] = std::nanf("");
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
}

TEST_F(Context, OverposIgnoresSeventhJointOfSixAxisArm) {
    float q[7] = {0, 0, 0, 0, 0, 0, 1000.0f};
    EXPECT_EQ(ka_algo_judgment_overpos(q), 0);
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_LUNE, 0);
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
}

TEST_F(Context, OverposUsesUserLimits) {
    const float max[7] = {5, 5, 5, 5, 5, 5, 5};
    ka_algo_set_joint_max_limit(max);
    float q[7] = {0, 0, 6, 0, 0, 0, 0};
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
    EXPECT_EQ(ka_algo_judgment_overpos(nullptr), -1);
}

// --------------------------------------------------------- install angle

TEST_F(Context, GetAngleWithANullPointerTouchesNothing) {
    ka_algo_set_angle(10, 20, 30);
    float x = -1, y = -2, z = -3;
    ka_algo_get_angle(&x, nullptr, &z);
    EXPECT_EQ(x, -1.0f);
    EXPECT_EQ(z, -3.0f);
    ka_algo_get_angle(nullptr, &y, nullptr);
    EXPECT_EQ(y, -2.0f);
    ka_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(x, 10.0f, 1e-5f);
    EXPECT_NEAR(y, 20.0f, 1e-5f);
    EXPECT_NEAR(z, 30.0f, 1e-5f);
}

TEST_F(Context, InstallMatrixIsZThenYThenXLikeEulerAngles) {
    ka_algo_set_angle(30, -50, 70);
    ka_euler_t e = {30 * 0.017453292519943295f, -50 * 0.017453292519943295f,
                    70 * 0.017453292519943295f};
    ka_matrix_t expected = pose_euler_to_transformation_matrix({{}, {}, e});
    EXPECT_TRUE(matrices_near(libalgo_get_robot_install_angle_matrix(), expected, 2e-6f));
    float rad[3];
    libalgo_get_robot_install_angle(rad);
    EXPECT_FLOAT_EQ(rad[1], e.ry);
}

TEST_F(Context, GravityFollowsTheMounting) {
    ka_algo_set_angle(180, 0, 0); // hanging from the ceiling
    float g[3];
    libalgo_get_robot_gravity_acc(g);
    EXPECT_NEAR(g[2], 9.81f, 1e-5f);
    ka_algo_set_angle(0, 90, 0); // wall mount: base Z horizontal
    libalgo_get_robot_gravity_acc(g);
    EXPECT_NEAR(g[0], 9.81f, 1e-5f);
    EXPECT_NEAR(g[2], 0.0f, 1e-5f);
}

TEST_F(Context, VersionIsFixed) {
    EXPECT_STREQ(ka_algo_version(), "1.4.7");
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_QUIL, 2);
    EXPECT_STREQ(ka_algo_version(), "1.4.7");
}

// ------------------------------------------------------------------ frames

TEST_F(Context, WorkFrameRoundTripAndInverseMatrix) {
    ka_frame_t frame{};
    frame.pose.position = {0.1f, -0.2f, 0.3f};
    frame.pose.euler = {0.2f, -0.1f, 1.2f};
    ka_algo_set_workframe(&frame);
    ka_frame_t back{};
    ka_algo_get_curr_workframe(&back);
    EXPECT_EQ(back.pose.position.y, -0.2f);
    EXPECT_EQ(back.pose.euler.rz, 1.2f);
    ka_quat_t q = euler_to_quat(frame.pose.euler);
    EXPECT_EQ(back.pose.quaternion.w, q.w);
    ka_matrix_t work = libalgo_get_work_cs_matrix();
    EXPECT_TRUE(matrices_near(work, pose_euler_to_transformation_matrix(frame.pose), 0.0f));
    EXPECT_TRUE(
        matrices_near(matrix_m(libalgo_get_work_cs_to_base_matrix(), work), identity4(), 2e-6f));
    ka_algo_set_workframe(nullptr);
    ka_algo_get_curr_workframe(nullptr);
    ka_algo_get_curr_workframe(&back);
    EXPECT_EQ(back.pose.position.x, 0.1f);
}

TEST_F(Context, ToolFrameCarriesPayload) {
    ka_frame_t frame{};
    std::strcpy(frame.frame_name, "gripper");
    frame.pose.position = {0.0f, 0.0f, 0.15f};
    frame.pose.euler = {0.0f, 0.0f, 0.5f};
    frame.payload = 1.5f;
    frame.x = 0.01f;
    frame.z = 0.05f;
    ka_algo_set_toolframe(&frame);
    ka_frame_t back{};
    ka_algo_get_curr_toolframe(&back);
    EXPECT_EQ(back.pose.position.z, 0.15f);
    EXPECT_EQ(back.payload, 1.5f);
    EXPECT_EQ(back.x, 0.01f);
    EXPECT_EQ(back.z, 0.05f);
    float mass, com[3];
    libalgo_get_payload_params(&mass, com);
    EXPECT_EQ(mass, 1.5f);
    EXPECT_EQ(com[2], 0.05f);
    EXPECT_TRUE(matrices_near(libalgo_get_tool_cs_matrix(),
                              pose_euler_to_transformation_matrix(frame.pose), 0.0f));
}

// -------------------------------------------------- loading from an arm

TEST_F(Context, ArmStateLoadsEverythingFromTheArm) {
    ka_robot_handle arm{3, 7, KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_ZF};
    algo_arm_params p = stand_in_defaults(KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_ZF);
    p.install_deg[2] = 45.0f;
    p.tool_frame.pose.position.z = 0.2f;
    p.tool_frame.payload = 2.0f;
    p.work_frame.pose.position.x = 0.4f;
    p.joint_max_pos[3] = 100.0f;
    p.joint_min_pos[3] = -90.0f;
    p.joint_max_speed[0] = 60.0f;
    p.joint_max_acc[0] = 300.0f;
    stand_in_register(&arm, p);
    ka_algo_arm_state_set(&arm);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_LUNE);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_ZF);
    float deg[3];
    ka_algo_get_angle(&deg[0], &deg[1], &deg[2]);
    EXPECT_NEAR(deg[2], 45.0f, 1e-5f);
    ka_frame_t tool{}, work{};
    ka_algo_get_curr_toolframe(&tool);
    ka_algo_get_curr_workframe(&work);
    EXPECT_EQ(tool.pose.position.z, 0.2f);
    EXPECT_EQ(tool.payload, 2.0f);
    EXPECT_EQ(work.pose.position.x, 0.4f);
    float v[7];
    ka_algo_get_joint_max_limit(v);
    EXPECT_NEAR(v[3], 100.0f, 1e-5f);
    ka_algo_get_joint_min_limit(v);
    EXPECT_NEAR(v[3], -90.0f, 1e-5f);
    ka_algo_get_joint_max_speed(v);
    EXPECT_NEAR(v[0], 60.0f, 1e-5f);
    ka_algo_get_joint_max_acc(v);
    EXPECT_NEAR(v[0], 300.0f, 1e-4f);
}

TEST_F(Context, ArmRecordWithUnknownModelLoadsKivo) {
    ka_robot_handle arm{4, 6, 0, 0};
    algo_arm_params p = stand_in_defaults(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B);
    p.model = 11;
    p.force_type = -4;
    stand_in_register(&arm, p);
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_QUIL, 1);
    ka_algo_arm_state_set(&arm);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_B);
}

TEST_F(Context, UnknownArmWarnsAndLeavesContext) {
    ka_set_log_call_back(&capture_log, 0);
    captured_log.clear();
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_NEPAZ, 1);
    const float max[7] = {1, 2, 3, 4, 5, 6, 7};
    ka_algo_set_joint_max_limit(max);
    ka_robot_handle stranger{5, 6, 0, 0};
    ka_algo_arm_state_set(&stranger);
    ASSERT_EQ(captured_log.size(), 1u);
    EXPECT_NE(captured_log[0].find("The robotic arm is not connected!"), std::string::npos);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_NEPAZ);
    float back[7];
    ka_algo_get_joint_max_limit(back);
    EXPECT_NEAR(back[2], 3.0f, 1e-5f);
}

TEST_F(Context, NullArmIsSilentAndLeavesContext) {
    ka_set_log_call_back(&capture_log, 0);
    captured_log.clear();
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_MARO_III, 0);
    ka_algo_arm_state_set(nullptr);
    EXPECT_TRUE(captured_log.empty());
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_MARO_III);
}

TEST_F(Context, CoreSeamUpdatesCurrentFrames) {
    ka_frame_t frame{};
    frame.pose.position = {0.0f, 0.05f, 0.0f};
    algo_set_current_work_frame(frame);
    frame.pose.position = {0.0f, 0.0f, 0.09f};
    frame.payload = 0.7f;
    algo_set_current_tool_frame(frame);
    ka_matrix_t w = libalgo_get_work_cs_to_base_matrix();
    EXPECT_NEAR(w.data[1][3], -0.05f, 1e-7f);
    EXPECT_EQ(libalgo_get_tool_cs_matrix().data[2][3], 0.09f);
    float mass;
    libalgo_get_payload_params(&mass, nullptr);
    EXPECT_EQ(mass, 0.7f);
}

TEST_F(Context, ViewCopiesWhatSolversRead) {
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_QUIL, 2);
    ka_algo_set_angle(0, 0, 90);
    context_scope scope;
    kinematics_view v = context_kinematics();
    EXPECT_EQ(v.robot_type, KA_ARM_MODEL_QUIL);
    EXPECT_EQ(v.sensor_type, 2);
    EXPECT_EQ(v.dof, 7);
    EXPECT_EQ(v.dh.d[6], model_params_for(KA_ARM_MODEL_QUIL)->dh[2].d[6]);
    EXPECT_FLOAT_EQ(v.model_max[6], static_cast<float>(175 * 0.017453292519943295));
    EXPECT_FLOAT_EQ(v.user_min[0], static_cast<float>(-170 * 0.017453292519943295));
    EXPECT_FLOAT_EQ(v.vel_max[4], static_cast<float>(180 * 0.017453292519943295));
    EXPECT_FLOAT_EQ(v.control_period, 0.002f);
    EXPECT_NEAR(v.install.data[1][0], 1.0f, 1e-6f);
    EXPECT_EQ(context_robot_type(), KA_ARM_MODEL_QUIL);
    EXPECT_EQ(context_dof(), 7);
}

TEST_F(Context, PlainCopiesOfTuningValues) {
    libalgo_set_safety_level(3);
    EXPECT_EQ(libalgo_get_safety_level(), 3);
    libalgo_set_is_avoid_Singularity(1);
    EXPECT_EQ(libalgo_get_is_avoid_Singularity(), 1);
    libalgo_set_dynamics_model_type(2);
    EXPECT_EQ(libalgo_get_dynamics_model_type(), 2);
    libalgo_set_control_loop_period(0.004f);
    EXPECT_EQ(libalgo_get_control_loop_period(), 0.004f);
    const float c[7] = {1, 2, 3, 4, 5, 6, 7};
    libalgo_set_user_collision_threshold(c);
    float back[7] = {};
    libalgo_get_user_collision_threshold(back);
    EXPECT_EQ(back[5], 6.0f);
    EXPECT_EQ(back[6], 0.0f); // six-axis arm: the seventh is not copied
    libalgo_update_feedback_data(c, c, c);
    float q[7] = {}, dq[7] = {}, tau[7] = {};
    libalgo_get_robot_feedback_data(q, dq, tau);
    EXPECT_EQ(tau[4], 5.0f);
    libalgo_set_joint_cmd(c, nullptr, c);
    libalgo_get_joint_cmd(q, dq, tau);
    EXPECT_EQ(q[0], 1.0f);
}
