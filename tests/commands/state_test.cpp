// Arm and controller state queries: exact request lines, reply parsing and
// scaling, and replies that lack their keys.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

float joints[5][7], volts, amps, celsius;
int ctrl_err, power, runtime[4];
uint16_t err[7], brake[7];
ka_current_arm_state_t arm_state;
ka_arm_all_state_t all;
ka_arm_software_version_t software;

} // namespace

TEST(state, every_command_sends_its_exact_line_and_reads_its_reply) {
    arm_session s;
    arm_state.joint[6] = -7.0f;
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; const char *command, *request, *reply, *fields; } const rows[] = {
        {CALL(ka_get_joint_degree(h, joints[0])), "get_joint_degree", "", "joint_degree", R"("joint":[-2500,0,0,0,0,0])"},
        {CALL(ka_get_current_joint_temperature(h, joints[1])), "get_current_joint_temperature", "", "current_joint_temperature", R"("joint_temperature":[25500,0,0,0,0,0])"},
        {CALL(ka_get_current_joint_current(h, joints[2])), "get_current_joint_current", "", "current_joint_current", R"("joint_current":[-1,0,0,0,0,0])"},
        {CALL(ka_get_current_joint_voltage(h, joints[3])), "get_current_joint_voltage", "", "current_joint_voltage", R"("joint_voltage":[48000,0,0,0,0,0])"},
        {CALL(ka_get_joint_odom(h, joints[4])), "get_joint_odom", "", "get_joint_odom", R"("odom":[360000,0,0,0,0,0])"},
        {CALL(ka_get_current_arm_state(h, &arm_state)), "get_current_arm_state", "", "current_arm_state", R"("arm_state":{"arm_err":300,"sys_err":2,"joint":[1000,-2500,0,0,0,1],"pose":[1000000,0,-500000,3142,0,0]})"},
        {CALL(ka_get_arm_all_state(h, &all)), "get_arm_all_state", "", "arm_all_state", R"("temperature":[30000,0,0,0,0,0],"current":[2500,0,0,0,0,0],"voltage":[-48000,0,0,0,0,0],"err_flag":[16777217,7,2147483647,0,0,0],"en_flag":[1,0,1,1,1,1],"sys_err":300)"},
        {CALL(ka_get_joint_err_flag(h, err, brake)), "get_joint_err_flag", "", "joint_err_flag", R"("err_flag":[65537,-1,0,0,0,3],"brake_state":[1,0,0,0,0,65536])"},
        {CALL(ka_get_controller_state(h, &volts, &amps, &celsius, &ctrl_err)), "get_controller_state", "", "controller_state", R"("voltage":24000,"current":1500,"temperature":35500,"err_flag":3)"},
        {CALL(ka_get_arm_power_state(h, &power)), "get_arm_power_state", "", "arm_power_state", R"("power_state":1)"},
        {CALL(ka_get_system_runtime(h, &runtime[0], &runtime[1], &runtime[2], &runtime[3])), "get_system_runtime", "", "get_system_runtime", R"("day":1,"hour":2,"min":3,"sec":4)"},
        {CALL(ka_get_arm_software_info(h, &software)), "get_arm_software_info", "", "arm_software_info", R"("Product_version":"KIVO-ZF","ctrl_info":{"version":"C1.234567","build_time":"T"},"plan_info":{})"},
        {CALL(ka_set_arm_power(h, 1)), "set_arm_power", R"("arm_power":1)", "set_arm_power", R"("arm_power":true)"},
        {ka_clear_system_runtime, "clear_system_runtime", "", "clear_system_runtime", R"("clear_state":true)"},
        {ka_clear_joint_odom, "clear_joint_odom", "", "clear_joint_odom", R"("clear_state":true)"},
        {ka_clear_system_err, "clear_system_err", "", "clear_system_err", R"("clear_state":true)"},
    };
    // clang-format on
    for (const auto &r : rows)
        expect_wire(s, {r.command, r.call, line(r.command, r.request), line(r.reply, r.fields), 0});
    EXPECT_EQ(
        std::vector<float>({joints[0][0], joints[1][0], joints[2][0], joints[3][0], joints[4][0]}),
        std::vector<float>({-2.5f, 25.5f, -0.001f, 48.0f, 360.0f}));

    const ka_pose_t &p = arm_state.pose;
    EXPECT_EQ(std::vector<float>(
                  {p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz}),
              std::vector<float>({1.0f, 0, -0.5f, 3.142f, 0, 0}));
    EXPECT_NEAR(std::fabs(p.quaternion.x), 1.0f, 1e-3f) << "a half turn about x";
    EXPECT_NEAR(p.quaternion.w, std::cos(3.142f / 2), 1e-4f) << "scalar first";
    EXPECT_EQ(std::vector<int>({arm_state.arm_err, arm_state.sys_err}), std::vector<int>({44, 2}));
    EXPECT_EQ(std::vector<float>(arm_state.joint, arm_state.joint + 7),
              std::vector<float>({1, -2.5f, 0, 0, 0, 0.001f, -7.0f}))
        << "a 6-axis arm leaves the seventh joint";

    EXPECT_EQ(
        std::vector<float>({all.joint_temperature[0], all.joint_current[0], all.joint_voltage[0]}),
        std::vector<float>({30.0f, 2.5f, -48.0f}));
    EXPECT_EQ(std::vector<int>(all.joint_err_code, all.joint_err_code + 3),
              std::vector<int>({16777216, 7, INT32_MAX}))
        << "through single precision, saturated";
    EXPECT_EQ(std::vector<int>(all.joint_en_flag, all.joint_en_flag + 6),
              std::vector<int>({1, 0, 1, 1, 1, 1}));
    EXPECT_EQ(all.sys_err, 300);
    EXPECT_EQ(std::vector<int>(err, err + 6), std::vector<int>({1, 65535, 0, 0, 0, 3}));
    EXPECT_EQ(std::vector<int>(brake, brake + 6), std::vector<int>({1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(std::vector<float>({volts, amps, celsius}), std::vector<float>({24.0f, 1.5f, 35.5f}));
    EXPECT_EQ(std::vector<int>({ctrl_err, power}), std::vector<int>({3, 1}));
    EXPECT_EQ(std::vector<int>(runtime, runtime + 4), std::vector<int>({1, 2, 3, 4}));
    EXPECT_EQ(std::string(software.plan_version, 8), "C1.23456") << "the controller's, cut to 8";
    EXPECT_EQ(s.arm->force_type, KA_FORCE_TYPE_ZF);
}

TEST(state, missing_keys_null_outputs_and_the_dof_bound_what_is_written) {
    arm_session s;
    log_capture log;
    arm_state.arm_err = all.sys_err = power = runtime[0] = 9;
    // The first two report the reply's length; the others the parse failure.
    const std::string bare_state = line("current_arm_state", R"("arm_err":1,"sys_err":1)"),
                      bare_power = line("arm_power_state");
    // clang-format off
    const wire_case rows[] = {
        {"state", CALL(ka_get_current_arm_state(h, &arm_state)), line("get_current_arm_state"), bare_state, int(bare_state.size())},
        {"power", CALL(ka_get_arm_power_state(h, &power)), line("get_arm_power_state"), bare_power, int(bare_power.size())},
        {"all", CALL(ka_get_arm_all_state(h, &all)), line("get_arm_all_state"), line("arm_all_state", R"("all_state":{"temperature":[0,0,0,0,0,0],"current":[0,0,0,0,0,0],"voltage":[0,0,0,0,0,0],"err_flag":[0,0,0,0,0,0],"en_flag":[0,0,0,0,0],"sys_err":0})"), -3},
        {"runtime", CALL(ka_get_system_runtime(h, &runtime[0], &runtime[1], &runtime[2], &runtime[3])), line("get_system_runtime"), line("get_system_runtime", R"("day":1,"hour":2,"min":3)"), -3},
        {"software", CALL(ka_get_arm_software_info(h, &software)), line("get_arm_software_info"), line("arm_software_info", R"("Product_version":"KIVO-B","plan_info":{})"), -1},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    EXPECT_EQ(std::vector<int>({arm_state.arm_err, all.sys_err, power, runtime[0]}),
              std::vector<int>({9, 9, 9, 9}));
    EXPECT_TRUE(log.contains("[ka_get_arm_software_info] Plan version parse err"));

    s.peer.clear_lines();
    EXPECT_EQ(ka_get_joint_degree(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_current_arm_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_arm_all_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_joint_err_flag(s.arm, err, nullptr), -1);
    EXPECT_EQ(ka_get_controller_state(s.arm, &volts, &amps, nullptr, &ctrl_err), -1);
    EXPECT_EQ(ka_get_arm_power_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_system_runtime(s.arm, runtime, runtime, runtime, nullptr), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";

    store_public(registry_find(s.arm)->pub.arm_dof, 7);
    expect_wire(s, {"7 joints", CALL(ka_get_current_joint_voltage(h, joints[3])),
                    line("get_current_joint_voltage"),
                    line("current_joint_voltage", R"("joint_voltage":[1,2,3,4,5,6,7000])"), 0});
    EXPECT_EQ(joints[3][6], 7.0f);
    store_public(registry_find(s.arm)->pub.arm_dof, 0);
    expect_wire(s, {"lost dof", CALL(ka_get_joint_odom(h, joints[4])), line("get_joint_odom"),
                    line("get_joint_odom", R"("odom":[0,0,0,0,0,0])"), -1});
    EXPECT_TRUE(log.contains("[ka_get_joint_odom] The robotic arm has been disconnected"));
}

// Every set command against each verdict form; -2 timed for two of them.
TEST(state, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    // clang-format off
    const set_row rows[] = {
        {"set_arm_power", CALL(ka_set_arm_power(h, 1)), "", "arm_power", 500, quiet::always},
        {"clear_system_runtime", ka_clear_system_runtime, "", "clear_state"},
        {"clear_joint_odom", ka_clear_joint_odom, "", "clear_state"},
        {"clear_system_err", ka_clear_system_err, "", "clear_state", 500, quiet::always},
    };
    // clang-format on
    expect_set_outcomes(rows);
}

// Version texts: each object is read only when the reply has it (the plan
// texts when it has "plan_info", from "ctrl_info"); a text that is missing or
// no string names itself and gives -1; each copy stops at its width.
TEST(state, software_info_reads_each_optional_object_and_names_what_is_missing) {
    arm_session s;
    log_capture log;
    // clang-format off
    struct { const char *name; std::string reply; int result; const char *logged; } const rows[] = {
        {"product only", R"("Product_version":"KIVO-B")", 0, "[ka_get_arm_software_info] Product version: KIVO-B"},
        {"all objects", R"("Product_version":"KIVO-B","algorithm_info":{"version":"A123456789012345678999"},"ctrl_info":{"version":"C1","build_time":"T1"},"dynamic_info":{"model_version":"D12345"},"plan_info":{})", 0, "[ka_get_arm_software_info] Plan build Time: T1"},
        {"no product", R"("ctrl_info":{"version":"C1","build_time":"T1"})", -1, "[ka_get_arm_software_info] Product version parse err"},
        {"algorithm without version", R"("Product_version":"KIVO-B","algorithm_info":{})", -1, "[ka_get_arm_software_info] Algorithm version parse err"},
        {"ctrl version a number", R"("Product_version":"KIVO-B","ctrl_info":{"version":1,"build_time":"T1"})", -1, "[ka_get_arm_software_info] Ctrl version parse err"},
        {"dynamic without model", R"("Product_version":"KIVO-B","dynamic_info":{"version":"D"})", -1, "[ka_get_arm_software_info] Dynamic model version parse err"},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        ka_arm_software_version_t v;
        std::memset(&v, '#', sizeof v);
        expect_wire(s,
                    {r.name, [&](ka_robot_handle *h) { return ka_get_arm_software_info(h, &v); },
                     line("get_arm_software_info"), line("arm_software_info", r.reply), r.result});
        EXPECT_TRUE(log.contains(r.logged));
        if (std::string(r.name) == "product only") {
            EXPECT_EQ(std::string(v.product_version, 10), std::string("KIVO-B\0\0\0\0", 10));
            EXPECT_EQ(std::string(v.ctrl_version, 10), std::string(10, '#')) << "no ctrl_info";
        }
        if (std::string(r.name) == "all objects") {
            EXPECT_EQ(std::string(v.algorithm_version, 20), "A1234567890123456789");
            EXPECT_EQ(std::string(v.dynamic_model_version, 5), "D1234");
            EXPECT_EQ(std::string(v.plan_version, 10), std::string("C1\0\0\0\0\0\0##", 10));
        }
    }
}
