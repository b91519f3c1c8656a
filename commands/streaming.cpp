// Passthrough and follow motion: a fresh target per call, streamed at the
// application's rate. Fire-and-forget: one line out, no reply read, then a
// yield of the processor. Hand-written rather than through cmd::exchange:
// this is the hot path, so it takes the arm once and sends on it directly.
#include "core/command.h"

#include <thread>

namespace {

// A pose target in one of its two wire forms.
struct wire_target {
    const char *key;
    int32_t v[7];
    int count;
};

// The caller's quaternion decides the form: a (nearly) unit one is sent as
// "pose_quat" (x, y, z in micrometres, then w, x, y, z in millionths), any
// other as "pose" with the Euler angles. Squared norm in single precision,
// bounds exclusive.
wire_target pose_target(const ka_pose_t &p) {
    const ka_quat_t &q = p.quaternion;
    float norm = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    if (norm > 0.99f && norm < 1.1f)
        return {"pose_quat",
                {scale::millionths(p.position.x), scale::millionths(p.position.y),
                 scale::millionths(p.position.z), scale::millionths(q.w), scale::millionths(q.x),
                 scale::millionths(q.y), scale::millionths(q.z)},
                7};
    cmd::wire_pose euler = cmd::pose_to_wire(p);
    wire_target t{"pose", {}, 6};
    for (int i = 0; i < 6; ++i)
        t.v[i] = euler.v[i];
    return t;
}

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
    wire_target target = pose_target(pose);
    const ka_request_field fields[] = {cmd::text("command", "movep_canfd"),
                                       cmd::boolean("follow", follow),
                                       cmd::numbers(target.key, target.v, target.count)};
    return stream("ka_movep_canfd", *arm, fields, 3);
}

int ka_movep_follow(ka_robot_handle *handle, ka_pose_t pose) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    wire_target target = pose_target(pose);
    const ka_request_field fields[] = {cmd::text("command", "movep_follow"),
                                       cmd::numbers(target.key, target.v, target.count)};
    return stream("ka_movep_follow", *arm, fields, 2);
}

} // extern "C"
