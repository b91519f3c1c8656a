#include "sim/push.h"

#include "sim/json.h"

namespace sim {

namespace {

// Nominal drive readings, in the controller's thousandths.
constexpr int k_joint_current = 500;
constexpr int k_joint_voltage = 48000;
constexpr int k_joint_temperature = 35000;

} // namespace

std::string push_datagram(const arm &a) {
    const push_config &config = a.push;
    const arm_traits &traits = a.traits();
    const arm_sample s = a.sample();
    const int dof = traits.dof;
    std::vector<int> position, speed, current(dof, k_joint_current), voltage(dof, k_joint_voltage),
        temperature(dof, k_joint_temperature), enabled(dof, 1), errors(dof, 0);
    for (int j = 0; j < dof; ++j) {
        position.push_back(to_milli(s.joints[j]));
        speed.push_back(deg_s_to_wire(s.speeds[j]));
    }
    json_ptr root(cJSON_CreateObject());
    cJSON *joints = cJSON_AddObjectToObject(root.get(), "joint_status");
    json_add_ints(joints, "joint_position", position);
    if (config.joint_speed) json_add_ints(joints, "joint_speed", speed);
    json_add_ints(joints, "joint_current", current);
    json_add_ints(joints, "joint_voltage", voltage);
    json_add_ints(joints, "joint_temperature", temperature);
    json_add_ints(joints, "joint_en_flag", enabled);
    json_add_ints(joints, "joint_err_code", errors);

    const flange_pose pose = forward_kinematics(traits, s.joints);
    cJSON *waypoint = cJSON_AddObjectToObject(root.get(), "waypoint");
    json_add_ints(
        waypoint, "position",
        {to_micro(pose.position[0]), to_micro(pose.position[1]), to_micro(pose.position[2])});
    json_add_ints(waypoint, "euler",
                  {to_milli(pose.euler[0]), to_milli(pose.euler[1]), to_milli(pose.euler[2])});
    json_add_ints(waypoint, "quat",
                  {to_micro(pose.quat[0]), to_micro(pose.quat[1]), to_micro(pose.quat[2]),
                   to_micro(pose.quat[3])});

    if (traits.force_type != 0) {
        // An unloaded sensor: forces in thousandths of a newton.
        cJSON *sensor = cJSON_AddObjectToObject(
            root.get(), traits.force_type == 2 ? "six_force_sensor" : "one_force_sensor");
        const int axes = traits.force_type == 2 ? 6 : 1;
        json_add_ints(sensor, "force", std::vector<int>(axes, 0));
        json_add_ints(sensor, "zero_force", std::vector<int>(axes, 0));
        cJSON_AddNumberToObject(sensor, "coordinate", config.force_coordinate);
    }
    cJSON_AddNumberToObject(root.get(), "arm_err", a.arm_err);
    cJSON_AddNumberToObject(root.get(), "sys_err", a.sys_err);
    if (config.arm_current_status)
        cJSON_AddStringToObject(root.get(), "arm_current_status", s.status);
    return json_print(root.get());
}

} // namespace sim
