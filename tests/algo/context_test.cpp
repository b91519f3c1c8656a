// The process-wide kinematics context: model loading, limits in degrees,
// the limit check, install angles and loading from a connected arm.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"

#include <gtest/gtest.h>

using namespace algo_test;

namespace {

class Context : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
    }
    void TearDown() override { stand_in_clear(); }
};

float flange_distance() {
    dh_table dh{};
    libalgo_get_dh_value(&dh);
    return dh.d[5];
}

} // namespace

TEST_F(Context, TypeTwoIsRefusedAndLeavesTheContextCleared) {
    ka_frame_t tool{};
    tool.pose.position.z = 0.2f;
    ka_algo_set_toolframe(&tool);
    EXPECT_EQ(ka_algo_init_sys_data(KA_ARM_MODEL_RESERVED_2, KA_FORCE_TYPE_B), -1);
    EXPECT_EQ(libalgo_get_rbt_dof(), 0);
    EXPECT_EQ(flange_distance(), 0.0f);
    EXPECT_TRUE(matrices_near(libalgo_get_tool_cs_matrix(), unit_matrix(4), 0.0));
    float max[7] = {1, 1, 1, 1, 1, 1, 1};
    ka_algo_get_joint_max_limit(max); // no joints: nothing written
    EXPECT_EQ(max[0], 1.0f);
}

TEST_F(Context, OutOfRangeModelAndSensorAreTakenAsKivoWithoutSensor) {
    ka_algo_init_sys_data(KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_6F);
    EXPECT_EQ(ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(12),
                                    static_cast<ka_force_type_e>(5)),
              0);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    EXPECT_EQ(libalgo_get_sensor_type(), KA_FORCE_TYPE_B);
    EXPECT_FLOAT_EQ(flange_distance(), 0.144f);
}

TEST_F(Context, LimitsRoundTripInDegreesAndAReloadRestoresTheModel) {
    using setter = void (*)(const float *);
    using getter = void (*)(float *);
    const struct {
        const char *name;
        setter set;
        getter get;
        float values[7];
    } limits[] = {
        {"max position",
         ka_algo_set_joint_max_limit,
         ka_algo_get_joint_max_limit,
         {170.5f, 120, 100, 33.3f, 90, 359, 7}},
        {"min position",
         ka_algo_set_joint_min_limit,
         ka_algo_get_joint_min_limit,
         {-1, -2, -3, -4.5f, -5, -359, -7}},
        {"max speed",
         ka_algo_set_joint_max_speed,
         ka_algo_get_joint_max_speed,
         {100, 110, 120, 130, 140, 150, 160}},
        {"max acceleration",
         ka_algo_set_joint_max_acc,
         ka_algo_get_joint_max_acc,
         {500, 510, 520, 530, 540, 600, 700}},
    };
    for (const auto &l : limits) {
        l.set(l.values);
        float back[7] = {};
        back[6] = -99.0f;
        l.get(back);
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(back[i], l.values[i], 1e-4f) << l.name << " joint " << i + 1;
        EXPECT_EQ(back[6], -99.0f) << l.name << ": KIVO has six joints";
    }
    ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B);
    float back[7];
    ka_algo_get_joint_max_limit(back);
    EXPECT_FLOAT_EQ(back[0], 178.0f);
}

TEST_F(Context, OverposAcceptsTheLimitAndRefusesWhatLiesBeyond) {
    // KIVO joint 2 within +-130 degrees, joint 6 within +-360; LUNE has seven joints.
    const struct {
        int model;
        int joint;
        float value;
        int expected;
    } cases[] = {
        {KA_ARM_MODEL_KIVO, 1, 130.0f, 0},         {KA_ARM_MODEL_KIVO, 1, 130.001f, -1},
        {KA_ARM_MODEL_KIVO, 5, -360.0f, 0},        {KA_ARM_MODEL_KIVO, 5, -360.001f, -1},
        {KA_ARM_MODEL_KIVO, 0, std::nanf(""), -1}, {KA_ARM_MODEL_KIVO, 6, 1000.0f, 0},
        {KA_ARM_MODEL_LUNE, 6, 1000.0f, -1},
    };
    for (const auto &c : cases) {
        libalgo_set_robot_and_sensor_type(c.model, 0);
        float q[7] = {};
        q[c.joint] = c.value;
        EXPECT_EQ(ka_algo_judgment_overpos(q), c.expected)
            << "model " << c.model << " joint " << c.joint + 1 << " at " << c.value;
    }
    // The user's limits, not the model's, are the ones checked.
    const float max[7] = {5, 5, 5, 5, 5, 5, 5};
    ka_algo_set_joint_max_limit(max);
    const float q[7] = {0, 0, 6, 0, 0, 0, 0};
    EXPECT_EQ(ka_algo_judgment_overpos(q), -1);
    EXPECT_EQ(ka_algo_judgment_overpos(nullptr), -1);
}

TEST_F(Context, GetAngleWithANullPointerLeavesTheOutputsUntouched) {
    ka_algo_set_angle(10, 20, 30);
    float x = -1, y = -2, z = -3;
    ka_algo_get_angle(&x, nullptr, &z);
    ka_algo_get_angle(nullptr, &y, nullptr);
    EXPECT_EQ(x, -1.0f);
    EXPECT_EQ(y, -2.0f);
    EXPECT_EQ(z, -3.0f);
    ka_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(x, 10.0f, 1e-5f);
    EXPECT_NEAR(y, 20.0f, 1e-5f);
    EXPECT_NEAR(z, 30.0f, 1e-5f);
}

TEST_F(Context, ArmHandleLoadsEverythingFromTheArm) {
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
    float x, y, z;
    ka_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(z, 45.0f, 1e-5f);
    ka_frame_t tool{}, work{};
    ka_algo_get_curr_toolframe(&tool);
    ka_algo_get_curr_workframe(&work);
    EXPECT_EQ(tool.pose.position.z, 0.2f);
    EXPECT_EQ(tool.payload, 2.0f);
    EXPECT_EQ(work.pose.position.x, 0.4f);
    float v[4][7];
    ka_algo_get_joint_max_limit(v[0]);
    ka_algo_get_joint_min_limit(v[1]);
    ka_algo_get_joint_max_speed(v[2]);
    ka_algo_get_joint_max_acc(v[3]);
    EXPECT_NEAR(v[0][3], 100.0f, 1e-5f);
    EXPECT_NEAR(v[1][3], -90.0f, 1e-5f);
    EXPECT_NEAR(v[2][0], 60.0f, 1e-5f);
    EXPECT_NEAR(v[3][0], 300.0f, 1e-4f);
}

TEST_F(Context, UnknownArmLeavesTheContext) {
    libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_NEPAZ, 1);
    ka_robot_handle stranger{5, 6, 0, 0};
    ka_algo_arm_state_set(&stranger);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_NEPAZ);
}
