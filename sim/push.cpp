#include "sim/push.h"

#include "sim/json.h"

namespace sim {

namespace {

// Forces and torques in thousandths; "zero_force" is the zeroed reading in
// the frame "coordinate" asks for (0 sensor, 1 work frame, 2 tool frame). The
// one-axis sensor sends its z force alone.
void add_force_sensor(cJSON *root, const arm &a) {
    const force_readout r = read_force_sensor(a);
    const int frame = a.push.force_coordinate;
    const wrench &zeroed = frame == 1 ? r.zeroed_work : frame == 2 ? r.zeroed_tool : r.zeroed;
    const bool six_axis = a.traits().force_type == 2;
    std::vector<int> force, zero_force;
    for (std::size_t i = six_axis ? 0 : 2; i < (six_axis ? 6u : 3u); ++i) {
        force.push_back(to_milli(r.raw[i]));
        zero_force.push_back(to_milli(zeroed[i]));
    }
    cJSON *sensor =
        cJSON_AddObjectToObject(root, six_axis ? "six_force_sensor" : "one_force_sensor");
    json_add_ints(sensor, "force", force);
    json_add_ints(sensor, "zero_force", zero_force);
    cJSON_AddNumberToObject(sensor, "coordinate", frame);
}

// Height in millimetres and, finer, "pos" in micrometres.
void add_lift(cJSON *root, const axis_state &lift) {
    cJSON *state = cJSON_AddObjectToObject(root, "lift_state");
    cJSON_AddNumberToObject(state, "height", static_cast<int>(lift.position));
    cJSON_AddNumberToObject(state, "pos", to_milli(lift.position));
    cJSON_AddNumberToObject(state, "current", drive_current_ma(lift));
    cJSON_AddNumberToObject(state, "err_flag", 0);
    cJSON_AddNumberToObject(state, "en_flag", 1);
}

// Position in millidegrees; the axis counts as the joint after the arm's.
void add_expand(cJSON *root, const axis_state &expand, int joint_id) {
    cJSON *state = cJSON_AddObjectToObject(root, "expand_state");
    cJSON_AddNumberToObject(state, "joint_id", joint_id);
    cJSON_AddNumberToObject(state, "mode", static_cast<int>(expand.mode));
    cJSON_AddNumberToObject(state, "pos", to_milli(expand.position));
    cJSON_AddNumberToObject(state, "current", drive_current_ma(expand));
    cJSON_AddNumberToObject(state, "err_flag", 0);
    cJSON_AddNumberToObject(state, "en_flag", 1);
}

} // namespace

std::string push_datagram(const arm &a) {
    const push_config &config = a.push;
    const arm_traits &traits = a.traits();
    const arm_sample s = a.sample();
    const int dof = traits.dof;
    // The drives read what the state queries read.
    const joint_readings drives = a.controller.readings(dof, s.joints, s.speeds);
    std::vector<int> position, speed, current, voltage, temperature, enabled, errors;
    for (int j = 0; j < dof; ++j) {
        position.push_back(to_milli(s.joints[j]));
        speed.push_back(deg_s_to_wire(s.speeds[j]));
        current.push_back(drives.current[j]);
        voltage.push_back(drives.voltage[j]);
        temperature.push_back(drives.temperature[j]);
        enabled.push_back(a.controller.power && a.controller.enabled[j] ? 1 : 0);
        errors.push_back(a.controller.joint_err[j]);
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

    // The same pose the state query reports: the tool in the work frame.
    const flange_pose pose = a.tool_pose(s.joints);
    cJSON *waypoint = cJSON_AddObjectToObject(root.get(), "waypoint");
    json_add_ints(
        waypoint, "position",
        {to_micro(pose.position[0]), to_micro(pose.position[1]), to_micro(pose.position[2])});
    json_add_ints(waypoint, "euler",
                  {to_milli(pose.euler[0]), to_milli(pose.euler[1]), to_milli(pose.euler[2])});
    json_add_ints(waypoint, "quat",
                  {to_micro(pose.quat[0]), to_micro(pose.quat[1]), to_micro(pose.quat[2]),
                   to_micro(pose.quat[3])});

    if (traits.force_type != 0) add_force_sensor(root.get(), a);
    if (config.lift_state) add_lift(root.get(), a.devices.lift);
    if (config.expand_state) add_expand(root.get(), a.devices.expand, dof + 1);
    cJSON_AddNumberToObject(root.get(), "arm_err", a.arm_err);
    cJSON_AddNumberToObject(root.get(), "sys_err", a.sys_err);
    if (config.arm_current_status)
        cJSON_AddStringToObject(root.get(), "arm_current_status", s.status);
    return json_print(root.get());
}

} // namespace sim
