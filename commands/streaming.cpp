// Passthrough and follow motion: a fresh target per call, streamed at the
// application's rate. Fire-and-forget: one line out, no reply read, then a
// yield of the processor. Hand-written rather than through cmd::exchange:
// this is the hot path, so it takes the arm once and sends on it directly.
#include "core/command.h"

#include <thread>

namespace {

// Sends the line on the arm's socket and yields once. 0, or -1 after the
// send-error line. fields[0] is "command".
int stream(const char *function, arm_record &arm, const ka_request_field *fields, int count) {
    if (common_json_pack_set(&arm, fields, count) != 0) {
        ka_log_error("[%s] %s send error\n", function, fields[0].value.s);
        return -1;
    }
    std::this_thread::yield();
    return 0;
}

// The joint commands check the arm's DOF first; joints go out as DOF
// millidegree integers.
arm_ptr streaming_arm(const char *function, ka_robot_handle *handle, int *dof) {
    arm_ptr arm = registry_find(handle);
    *dof = arm ? load_public(arm->pub.arm_dof) : 0;
    if (*dof != 6 && *dof != 7) {
        cmd::disconnected(function);
        return nullptr;
    }
    return arm;
}

} // namespace

extern "C" {

int ka_movej_canfd(ka_robot_handle *handle, const float *joint, bool follow, float expand) {
    constexpr const char *function = "ka_movej_canfd";
    if (!joint) return -1;
    int dof = 0;
    arm_ptr arm = streaming_arm(function, handle, &dof);
    if (!arm) return -1;
    cmd::wire_joints joints = cmd::joints_to_wire(joint, dof);
    const ka_request_field fields[] = {
        cmd::text("command", "movej_canfd"), cmd::numbers("joint", joints.v, joints.count),
        cmd::boolean("follow", follow), cmd::number("expand", scale::thousandths(expand))};
    return stream(function, *arm, fields, 4);
}

int ka_movej_follow(ka_robot_handle *handle, const float *joint) {
    constexpr const char *function = "ka_movej_follow";
    if (!joint) return -1;
    int dof = 0;
    arm_ptr arm = streaming_arm(function, handle, &dof);
    if (!arm) return -1;
    cmd::wire_joints joints = cmd::joints_to_wire(joint, dof);
    const ka_request_field fields[] = {cmd::text("command", "movej_follow"),
                                       cmd::numbers("joint", joints.v, joints.count)};
    return stream(function, *arm, fields, 2);
}

// The pose commands make no DOF check and say nothing about an unknown handle.
int ka_movep_canfd(ka_robot_handle *handle, ka_pose_t pose, bool follow) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    cmd::wire_target target = cmd::pose_target(pose);
    const ka_request_field fields[] = {cmd::text("command", "movep_canfd"),
                                       cmd::boolean("follow", follow),
                                       cmd::numbers(target.key, target.v, target.count)};
    return stream("ka_movep_canfd", *arm, fields, 3);
}

int ka_movep_follow(ka_robot_handle *handle, ka_pose_t pose) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    cmd::wire_target target = cmd::pose_target(pose);
    const ka_request_field fields[] = {cmd::text("command", "movep_follow"),
                                       cmd::numbers(target.key, target.v, target.count)};
    return stream("ka_movep_follow", *arm, fields, 2);
}

} // extern "C"
