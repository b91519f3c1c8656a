// The simulated arm's state as the library queries it: drive readings that
// follow power and motion, odometers and the runtime counter, errors that
// arise and clear, and the software versions.
#include "sim_session.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;

TEST(SimulatedState, DriveReadingsFollowPowerAndEnabling) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    float temperature[7] = {}, current[7] = {}, voltage[7] = {};
    ASSERT_EQ(ka_get_current_joint_temperature(s.arm, temperature), KA_OK);
    ASSERT_EQ(ka_get_current_joint_current(s.arm, current), KA_OK);
    ASSERT_EQ(ka_get_current_joint_voltage(s.arm, voltage), KA_OK);
    for (int j = 0; j < 6; ++j) {
        SCOPED_TRACE(j + 1);
        EXPECT_GT(temperature[j], 20.0f);
        EXPECT_LT(temperature[j], 60.0f);
        EXPECT_GT(current[j], 0.0f);
        EXPECT_LT(current[j], 5.0f);
        EXPECT_NEAR(voltage[j], 48.0f, 1.0f);
    }
    ka_arm_all_state_t all{};
    ASSERT_EQ(ka_get_arm_all_state(s.arm, &all), KA_OK);
    EXPECT_FLOAT_EQ(all.joint_temperature[0], temperature[0]);
    EXPECT_FLOAT_EQ(all.joint_voltage[5], voltage[5]);
    EXPECT_EQ(all.joint_en_flag[3], 1);

    float c_voltage = 0, c_current = 0, c_temperature = 0;
    int c_err = -1;
    ASSERT_EQ(ka_get_controller_state(s.arm, &c_voltage, &c_current, &c_temperature, &c_err),
              KA_OK);
    EXPECT_NEAR(c_voltage, 48.0f, 1.0f);
    EXPECT_GT(c_current, 0.0f);
    EXPECT_GT(c_temperature, 20.0f);
    EXPECT_EQ(c_err, 0);

    // Joint 3's drive off: its brake holds, no current flows.
    ASSERT_EQ(ka_set_joint_en_state(s.arm, 3, 0), KA_OK);
    uint8_t enabled[7] = {9, 9, 9, 9, 9, 9, 9};
    ASSERT_EQ(ka_get_joint_en_state(s.arm, enabled), KA_OK);
    EXPECT_EQ(enabled[2], 0);
    EXPECT_EQ(enabled[1], 1);
    EXPECT_EQ(enabled[6], 9); // six joints only
    uint16_t errors[7] = {}, brakes[7] = {};
    ASSERT_EQ(ka_get_joint_err_flag(s.arm, errors, brakes), KA_OK);
    EXPECT_EQ(brakes[2], 1);
    EXPECT_EQ(brakes[1], 0);
    EXPECT_EQ(errors[2], 0); // disabled at rest is no fault
    ASSERT_EQ(ka_get_current_joint_current(s.arm, current), KA_OK);
    EXPECT_EQ(current[2], 0.0f);
    const float target[7] = {5.0f, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_set_joint_zero_pos(s.arm, 3), KA_OK); // only with the drive off
    EXPECT_EQ(ka_set_joint_zero_pos(s.arm, 2), 1);
    ASSERT_EQ(ka_set_joint_en_state(s.arm, 3, 1), KA_OK);

    // Power off: every drive off, no voltage; the joints cannot be enabled.
    ASSERT_EQ(ka_set_arm_power(s.arm, 0), KA_OK);
    int power = -1;
    ASSERT_EQ(ka_get_arm_power_state(s.arm, &power), KA_OK);
    EXPECT_EQ(power, 0);
    ASSERT_EQ(ka_get_joint_en_state(s.arm, enabled), KA_OK);
    for (int j = 0; j < 6; ++j)
        EXPECT_EQ(enabled[j], 0) << "joint " << j + 1;
    ASSERT_EQ(ka_get_current_joint_voltage(s.arm, voltage), KA_OK);
    EXPECT_EQ(voltage[0], 0.0f);
    EXPECT_EQ(ka_set_joint_en_state(s.arm, 1, 1), 1);
    EXPECT_EQ(ka_set_arm_power(s.arm, 2), 1);
    ASSERT_EQ(ka_set_arm_power(s.arm, 1), KA_OK);
    ASSERT_EQ(ka_get_arm_power_state(s.arm, &power), KA_OK);
    EXPECT_EQ(power, 1);
    ASSERT_EQ(ka_get_joint_en_state(s.arm, enabled), KA_OK);
    EXPECT_EQ(enabled[0], 1);
    EXPECT_EQ(ka_movej(s.arm, target, 100, 0, 0, 1), KA_OK);
}

TEST(SimulatedState, ADriveLostInMotionStopsTheArmAndLeavesClearableErrors) {
    arm_session s(sim_test::options("KIVO-B", 1.0));
    const float target[7] = {0, 0, 0, 0, 0, 120.0f, 0}; // a few seconds at v 10
    ASSERT_EQ(ka_movej(s.arm, target, 10, 0, 0, 0), KA_OK);
    float joints[7] = {};
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    do
        ASSERT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    while (joints[5] == 0.0f && std::chrono::steady_clock::now() < deadline);
    ASSERT_GT(joints[5], 0.0f);

    ASSERT_EQ(ka_set_joint_en_state(s.arm, 2, 0), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_events(1, 2s));
    {
        std::lock_guard lock(sim_test::events().mutex);
        EXPECT_FALSE(sim_test::events().events.front().trajectory_state);
    }
    ka_current_arm_state_t state{};
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
    EXPECT_NE(state.arm_err, 0);
    EXPECT_LT(state.joint[5], 120.0f);
    uint16_t errors[7] = {}, brakes[7] = {};
    ASSERT_EQ(ka_get_joint_err_flag(s.arm, errors, brakes), KA_OK);
    EXPECT_NE(errors[1], 0);
    ka_arm_all_state_t all{};
    ASSERT_EQ(ka_get_arm_all_state(s.arm, &all), KA_OK);
    EXPECT_EQ(all.joint_err_code[1], errors[1]);
    EXPECT_EQ(all.joint_en_flag[1], 0);

    ASSERT_EQ(ka_set_joint_clear_err(s.arm, 2), KA_OK);
    EXPECT_EQ(ka_set_joint_clear_err(s.arm, 7), 1);
    ASSERT_EQ(ka_get_joint_err_flag(s.arm, errors, brakes), KA_OK);
    EXPECT_EQ(errors[1], 0);
    ASSERT_EQ(ka_clear_system_err(s.arm), KA_OK);
    ASSERT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.arm_err, 0);
    EXPECT_EQ(state.sys_err, 0);
}

TEST(SimulatedState, OdometersAndRuntimeCountAndClear) {
    arm_session s(sim_test::options("QUIL-B", 20.0));
    const float out[7] = {30.0f, 0, 0, 0, 0, 0, -12.5f};
    const float home[7] = {};
    ASSERT_EQ(ka_movej(s.arm, out, 100, 0, 0, 1), KA_OK);
    ASSERT_EQ(ka_movej(s.arm, home, 100, 0, 0, 1), KA_OK);
    float odom[7] = {};
    ASSERT_EQ(ka_get_joint_odom(s.arm, odom), KA_OK);
    EXPECT_NEAR(odom[0], 60.0f, 0.01f);
    EXPECT_NEAR(odom[6], 25.0f, 0.01f);
    EXPECT_EQ(odom[1], 0.0f);
    ASSERT_EQ(ka_clear_joint_odom(s.arm), KA_OK);
    ASSERT_EQ(ka_get_joint_odom(s.arm, odom), KA_OK);
    EXPECT_EQ(odom[0], 0.0f);

    // Simulated time runs 20 times faster: the counter shows it.
    int day = -1, hour = -1, min = -1, sec = -1;
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    do
        ASSERT_EQ(ka_get_system_runtime(s.arm, &day, &hour, &min, &sec), KA_OK);
    while (sec < 3 && min == 0 && std::chrono::steady_clock::now() < deadline);
    EXPECT_EQ(day, 0);
    EXPECT_EQ(hour, 0);
    EXPECT_GE(min * 60 + sec, 3);
    ASSERT_EQ(ka_clear_system_runtime(s.arm), KA_OK);
    ASSERT_EQ(ka_get_system_runtime(s.arm, &day, &hour, &min, &sec), KA_OK);
    EXPECT_EQ(min, 0);
    EXPECT_LT(sec, 3);
}

TEST(SimulatedState, SoftwareInfoNamesTheModel) {
    const struct {
        const char *product;
        int model;
        int force_type;
    } rows[] = {
        {"LUNE-ZF", KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_ZF},
        {"NEPAX-6F", KA_ARM_MODEL_NEPAX, KA_FORCE_TYPE_6F},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.product);
        arm_session s(sim_test::options(row.product, 10.0));
        ka_arm_software_version_t info{};
        ASSERT_EQ(ka_get_arm_software_info(s.arm, &info), KA_OK);
        EXPECT_EQ(std::string(info.product_version, strnlen(info.product_version, 10)),
                  row.product);
        EXPECT_NE(info.algorithm_version[0], '\0');
        EXPECT_NE(info.ctrl_version[0], '\0');
        EXPECT_NE(info.ctrl_build_time[0], '\0');
        EXPECT_NE(info.dynamic_model_version[0], '\0');
        // The library takes the plan's fields from the controller's.
        EXPECT_EQ(0, std::strncmp(info.plan_version, info.ctrl_version, 8));
        EXPECT_EQ(s.arm->arm_model, row.model);
        EXPECT_EQ(s.arm->force_type, row.force_type);
    }
}

} // namespace
