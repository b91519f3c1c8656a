// Arm and controller state queries: joints, pose and error codes, the
// drives' readings, odometers, the controller's own readings and the
// runtime counter, and the commands that clear them.
//
// Readings travel in thousandths (milliamperes, millivolts, thousandths of a
// degree Celsius), joint angles and odometers in millidegrees.
#include "sim/families/family.h"
#include "sim/simulator.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {

namespace {

// The drives' model: an idle temperature per joint, a holding current that
// carries the arm's weight on the shoulder and elbow, and a running current
// and heating that grow with speed.
constexpr double k_idle_celsius = 31.5;
constexpr double k_idle_celsius_per_joint = 0.4; // the base drives sit warmest
constexpr double k_holding_amperes = 0.35;
constexpr double k_gravity_amperes = 1.2; // shoulder and elbow, arm stretched out
constexpr double k_amperes_per_deg_s = 0.012;
constexpr double k_bus_volts = 48.0;
constexpr double k_volts_per_ampere = 0.08; // drop on the supply line
constexpr double k_warm_celsius_per_deg_s = 0.05;
constexpr double k_warm_time_constant_s = 120.0;

constexpr double k_controller_volts = 48.2;
constexpr double k_controller_idle_amperes = 0.9;
constexpr double k_controller_celsius = 38.5;

int thousandths(double value) { return static_cast<int>(value * k_milli); }

} // namespace

joint_readings controller_store::readings(int dof, const std::array<double, 7> &joints,
                                          const std::array<double, 7> &speeds) const {
    joint_readings r;
    constexpr double k_deg = 3.14159265358979323846 / 180.0;
    for (int j = 0; j < dof; ++j) {
        const bool driven = power && enabled[j];
        double amperes = 0;
        if (driven) {
            amperes = k_holding_amperes + k_amperes_per_deg_s * std::fabs(speeds[j]);
            if (j == 1 || j == 2)
                amperes += k_gravity_amperes * std::fabs(std::sin(joints[j] * k_deg));
        }
        r.current[j] = thousandths(amperes);
        r.voltage[j] = power ? thousandths(k_bus_volts - k_volts_per_ampere * amperes) : 0;
        r.temperature[j] = thousandths(k_idle_celsius - k_idle_celsius_per_joint * j + warm_up[j]);
    }
    return r;
}

namespace {

std::vector<int> first(const arm &a, const std::array<int, 7> &values) {
    return std::vector<int>(values.begin(), values.begin() + a.traits().dof);
}

joint_readings readings_now(const arm &a) {
    const arm_sample s = a.sample();
    return a.controller.readings(a.traits().dof, s.joints, s.speeds);
}

void joint_degree(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint", milli_joints(c.target, c.target.sample().joints));
}

void current_arm_state(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON *state = cJSON_AddObjectToObject(reply, "arm_state");
    json_add_ints(state, "joint", milli_joints(c.target, s.joints));
    json_add_ints(state, "pose", wire_pose(c.target.tool_pose(s.joints)));
    cJSON_AddNumberToObject(state, "arm_err", c.target.arm_err);
    cJSON_AddNumberToObject(state, "sys_err", c.target.sys_err);
}

std::vector<int> enable_flags(const arm &a) {
    std::vector<int> flags;
    for (int j = 0; j < a.traits().dof; ++j)
        flags.push_back(a.controller.power && a.controller.enabled[j] ? 1 : 0);
    return flags;
}

void arm_all_state(const cJSON *, cJSON *reply, command_context &c) {
    const joint_readings r = readings_now(c.target);
    cJSON *state = cJSON_AddObjectToObject(reply, "all_state");
    json_add_ints(state, "temperature", first(c.target, r.temperature));
    json_add_ints(state, "current", first(c.target, r.current));
    json_add_ints(state, "voltage", first(c.target, r.voltage));
    json_add_ints(state, "err_flag", first(c.target, c.target.controller.joint_err));
    json_add_ints(state, "en_flag", enable_flags(c.target));
    cJSON_AddNumberToObject(state, "sys_err", c.target.sys_err);
}

void joint_temperature(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_temperature", first(c.target, readings_now(c.target).temperature));
}
void joint_current(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_current", first(c.target, readings_now(c.target).current));
}
void joint_voltage(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_voltage", first(c.target, readings_now(c.target).voltage));
}

// The counter stops at the largest integer the wire carries.
void joint_odom(const cJSON *, cJSON *reply, command_context &c) {
    constexpr double k_full = std::numeric_limits<int>::max() / k_milli;
    joint_array odometer = c.target.controller.odometer_deg;
    for (double &degrees : odometer)
        degrees = std::min(degrees, k_full);
    json_add_ints(reply, "odom", milli_joints(c.target, odometer));
}

// A brake holds a joint whose drive is off.
void joint_err_flag(const cJSON *, cJSON *reply, command_context &c) {
    std::vector<int> brakes;
    for (int flag : enable_flags(c.target))
        brakes.push_back(flag ? 0 : 1);
    json_add_ints(reply, "err_flag", first(c.target, c.target.controller.joint_err));
    json_add_ints(reply, "brake_state", brakes);
}

void controller_state(const cJSON *, cJSON *reply, command_context &c) {
    const joint_readings r = readings_now(c.target);
    double amperes = k_controller_idle_amperes;
    for (int j = 0; j < c.target.traits().dof; ++j)
        amperes += r.current[j] / k_milli;
    cJSON_AddNumberToObject(reply, "voltage", thousandths(k_controller_volts));
    cJSON_AddNumberToObject(reply, "current", thousandths(amperes));
    cJSON_AddNumberToObject(reply, "temperature", thousandths(k_controller_celsius));
    cJSON_AddNumberToObject(reply, "err_flag", c.target.sys_err);
}

void system_runtime(const cJSON *, cJSON *reply, command_context &c) {
    const long seconds =
        static_cast<long>(std::max(0.0, c.now - c.target.controller.runtime_start));
    cJSON_AddNumberToObject(reply, "day", static_cast<double>(seconds / 86400));
    cJSON_AddNumberToObject(reply, "hour", static_cast<double>(seconds / 3600 % 24));
    cJSON_AddNumberToObject(reply, "min", static_cast<double>(seconds / 60 % 60));
    cJSON_AddNumberToObject(reply, "sec", static_cast<double>(seconds % 60));
}

void clear_runtime(const cJSON *, cJSON *reply, command_context &c) {
    c.target.controller.runtime_start = c.now;
    cJSON_AddBoolToObject(reply, "clear_state", true);
}

void clear_odom(const cJSON *, cJSON *reply, command_context &c) {
    c.target.controller.odometer_deg.fill(0);
    cJSON_AddBoolToObject(reply, "clear_state", true);
}

// Clears the arm's and the system's error codes; the joints' own codes are
// cleared joint by joint.
void clear_system_err(const cJSON *, cJSON *reply, command_context &c) {
    c.target.arm_err = 0;
    c.target.sys_err = 0;
    cJSON_AddBoolToObject(reply, "clear_state", true);
}

// Every cycle: the odometers add up the way each joint went, and the drives
// warm towards the temperature their speed drives them to.
void track_joints(arm &a, double, report_list &) {
    controller_store &store = a.controller;
    const arm_sample s = a.sample();
    const double blend = k_control_period_s / k_warm_time_constant_s;
    for (int j = 0; j < a.traits().dof; ++j) {
        store.odometer_deg[j] += std::fabs(s.joints[j] - store.last_joints[j]);
        const double target = k_warm_celsius_per_deg_s * std::fabs(s.speeds[j]);
        store.warm_up[j] += (target - store.warm_up[j]) * blend;
    }
    store.last_joints = s.joints;
}

constexpr command_row rows[] = {
    {"get_joint_degree", "joint_degree", joint_degree},
    {"get_current_arm_state", "current_arm_state", current_arm_state},
    {"get_arm_all_state", "arm_all_state", arm_all_state},
    {"get_current_joint_temperature", "current_joint_temperature", joint_temperature},
    {"get_current_joint_current", "current_joint_current", joint_current},
    {"get_current_joint_voltage", "current_joint_voltage", joint_voltage},
    {"get_joint_odom", "get_joint_odom", joint_odom},
    {"get_joint_err_flag", "joint_err_flag", joint_err_flag},
    {"get_controller_state", "controller_state", controller_state},
    {"get_system_runtime", "get_system_runtime", system_runtime},
    {"clear_system_runtime", "clear_system_runtime", clear_runtime},
    {"clear_joint_odom", "clear_joint_odom", clear_odom},
    {"clear_system_err", "clear_system_err", clear_system_err},
};

} // namespace

const family state_family{rows, track_joints};

} // namespace sim
