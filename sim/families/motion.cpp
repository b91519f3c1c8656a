// Planned, streamed and jogged motion, and stops.
#include "sim/families/family.h"

namespace sim {

namespace {

void current_trajectory(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON_AddStringToObject(reply, "type", s.trajectory);
    json_add_ints(reply, "data", milli_joints(c.target, s.joints));
}

// "joint": dof integers in millidegrees; "v" percent; "trajectory_connect"
// 0 or 1; "r" (blend radius) is accepted and not modelled.
void movej(const cJSON *request, cJSON *reply, command_context &c) {
    const int dof = c.target.traits().dof;
    const auto joints = json_ints(request, "joint", dof);
    const auto v = json_int(request, "v");
    const int connect = json_int(request, "trajectory_connect").value_or(0);
    bool ok = joints && v && (connect == 0 || connect == 1);
    if (ok) {
        joint_array target{};
        for (int j = 0; j < dof; ++j)
            target[j] = (*joints)[j] / k_milli;
        ok = c.target.queue_movej(target, *v, connect, c.now);
    }
    cJSON_AddBoolToObject(reply, "receive_state", ok);
}

// "pose": x, y, z in micrometres and rx, ry, rz in milliradians; the joint
// angles come from the inverse kinematics nearest the arm's joints, and the
// move runs as a joint move.
void movej_p(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = json_ints(request, "pose", 6);
    const auto v = json_int(request, "v");
    const int connect = json_int(request, "trajectory_connect").value_or(0);
    bool ok = pose && v && (connect == 0 || connect == 1);
    if (ok) {
        const auto joints = c.target.joints_for(wire_pose_matrix(*pose), c.target.sample().joints);
        ok = joints && c.target.queue_movej(*joints, *v, connect, c.now);
    }
    cJSON_AddBoolToObject(reply, "receive_state", ok);
}

void stop_with(const char *key, cJSON *reply, command_context &c) {
    for (const motion_end &end : c.target.stop(c.now))
        c.reports.push_back(completion_report(end));
    cJSON_AddBoolToObject(reply, key, true);
}
void arm_stop(const cJSON *, cJSON *reply, command_context &c) { stop_with("arm_stop", reply, c); }
void arm_slow_stop(const cJSON *, cJSON *reply, command_context &c) {
    stop_with("arm_slow_stop", reply, c);
}

constexpr command_row rows[] = {
    {"get_arm_current_trajectory", "arm_current_trajectory", current_trajectory},
    {"movej", "movej", movej},
    {"movej_p", "movej_p", movej_p},
    {"set_arm_stop", "set_arm_stop", arm_stop},
    {"set_arm_slow_stop", "set_arm_slow_stop", arm_slow_stop},
};

} // namespace

const family motion_family{rows};

} // namespace sim
