// Planned, streamed and jogged motion, and stops.
//
// Wire units: joints in millidegrees, positions in micrometres, Euler angles
// in milliradians, quaternion components in millionths; "v" a percentage.
#include "sim/families/family.h"
#include "sim/motion_path.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace sim {

namespace {

// The readers below refuse numbers that are not integers of 32 bits, so a
// hostile value can never reach a conversion.
std::optional<int> read_int(const cJSON *object, const char *key) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsNumber(item) || !(std::fabs(item->valuedouble) <= 2147483647.0))
        return std::nullopt;
    return static_cast<int>(item->valuedouble);
}

std::optional<std::vector<int>> read_ints(const cJSON *object, const char *key, int count) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsArray(item) || cJSON_GetArraySize(item) != count) return std::nullopt;
    std::vector<int> values;
    for (const cJSON *element = item->child; element; element = element->next) {
        if (!cJSON_IsNumber(element) || !(std::fabs(element->valuedouble) <= 2147483647.0))
            return std::nullopt;
        values.push_back(static_cast<int>(element->valuedouble));
    }
    return values;
}

std::optional<joint_array> read_joints(const cJSON *request, const arm &a) {
    const auto milli = read_ints(request, "joint", a.traits().dof);
    if (!milli) return std::nullopt;
    joint_array joints{};
    for (int j = 0; j < a.traits().dof; ++j)
        joints[j] = (*milli)[j] / k_milli;
    return joints;
}

std::optional<mat4> read_pose(const cJSON *object, const char *key) {
    const auto pose = read_ints(object, key, 6);
    if (!pose) return std::nullopt;
    return wire_pose_matrix(*pose);
}

// "pose_quat": x, y, z in micrometres, then w, x, y, z in millionths.
std::optional<mat4> read_pose_quat(const cJSON *object) {
    const auto values = read_ints(object, "pose_quat", 7);
    if (!values) return std::nullopt;
    path_pose pose;
    for (int i = 0; i < 3; ++i)
        pose.position[i] = (*values)[i] / k_micro;
    double norm = 0;
    for (int i = 0; i < 4; ++i) {
        pose.orientation[i] = (*values)[3 + i] / k_micro;
        norm += pose.orientation[i] * pose.orientation[i];
    }
    if (norm < 1e-6) return std::nullopt;
    for (double &q : pose.orientation)
        q /= std::sqrt(norm);
    return matrix_of(pose);
}

// The keys every planned motion carries; "r" and "trajectory_connect" are 0
// when absent.
struct motion_keys {
    int v, r, connect;
};
std::optional<motion_keys> read_motion_keys(const cJSON *request) {
    const auto v = read_int(request, "v");
    if (!v) return std::nullopt;
    return motion_keys{*v, read_int(request, "r").value_or(0),
                       read_int(request, "trajectory_connect").value_or(0)};
}

void current_trajectory(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON_AddStringToObject(reply, "type", s.trajectory);
    json_add_ints(reply, "data",
                  s.pose_kind ? wire_pose(c.target.tool_pose(s.joints))
                              : milli_joints(c.target, s.joints));
}

void movej(const cJSON *request, cJSON *reply, command_context &c) {
    const auto joints = read_joints(request, c.target);
    const auto keys = read_motion_keys(request);
    cJSON_AddBoolToObject(
        reply, "receive_state",
        joints && keys && c.target.queue_movej(*joints, keys->v, keys->r, keys->connect, c.now));
}

void movej_p(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = read_pose(request, "pose");
    const auto keys = read_motion_keys(request);
    cJSON_AddBoolToObject(
        reply, "receive_state",
        pose && keys && c.target.queue_movej_p(*pose, keys->v, keys->r, keys->connect, c.now));
}

void movel(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = read_pose(request, "pose");
    const auto keys = read_motion_keys(request);
    cJSON_AddBoolToObject(reply, "receive_state",
                          pose && keys &&
                              c.target.queue_movel(*pose, keys->v, keys->r, keys->connect, c.now));
}

void moves(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = read_pose(request, "pose");
    const auto keys = read_motion_keys(request);
    cJSON_AddBoolToObject(reply, "receive_state",
                          pose && keys &&
                              c.target.queue_moves(*pose, keys->v, keys->r, keys->connect, c.now));
}

// "pose": {"pose_via": [6], "pose_to": [6]}; "loop": further full turns
// after the target. Its "r" comes scaled by 1000 where the other motions'
// does not; the blend only asks whether r is above 0, so both read alike.
void movec(const cJSON *request, cJSON *reply, command_context &c) {
    const cJSON *poses = cJSON_GetObjectItemCaseSensitive(request, "pose");
    const auto via = read_pose(poses, "pose_via");
    const auto to = read_pose(poses, "pose_to");
    const auto keys = read_motion_keys(request);
    const int loop = read_int(request, "loop").value_or(0);
    cJSON_AddBoolToObject(
        reply, "receive_state",
        via && to && keys &&
            c.target.queue_movec(*via, *to, keys->v, keys->r, loop, keys->connect, c.now));
}

// Streamed targets are never answered; a refused one is dropped.
void movej_canfd(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    const auto joints = read_joints(request, c.target);
    const auto follow = json_bool(request, "follow");
    if (joints && follow) c.target.stream_joints(*joints, *follow, c.now);
}

void movej_follow(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    if (const auto joints = read_joints(request, c.target))
        c.target.stream_joints(*joints, true, c.now);
}

std::optional<mat4> read_streamed_pose(const cJSON *request) {
    if (cJSON_GetObjectItemCaseSensitive(request, "pose_quat")) return read_pose_quat(request);
    return read_pose(request, "pose");
}

void movep_canfd(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    const auto pose = read_streamed_pose(request);
    const auto follow = json_bool(request, "follow");
    if (pose && follow) c.target.stream_pose(*pose, *follow, c.now);
}

void movep_follow(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    if (const auto pose = read_streamed_pose(request)) c.target.stream_pose(*pose, true, c.now);
}

// "joint_step": [joint number from 1, step in millidegrees].
void joint_step(const cJSON *request, cJSON *reply, command_context &c) {
    const auto step = read_ints(request, "joint_step", 2);
    const auto v = read_int(request, "v");
    cJSON_AddBoolToObject(
        reply, "receive_state",
        step && v && c.target.queue_joint_step((*step)[0] - 1, (*step)[1] / k_milli, *v, c.now));
}

// The index of `text` among `names` (the axis x, y, z), or -1.
int axis_named(const cJSON *request, const char *key, const char *const (&names)[3]) {
    const auto text = json_string(request, key);
    for (int i = 0; text && i < 3; ++i)
        if (*text == names[i]) return i;
    return -1;
}

constexpr const char *position_steps[3] = {"x_step", "y_step", "z_step"};
constexpr const char *orientation_steps[3] = {"rx_step", "ry_step", "rz_step"};
constexpr const char *position_axes[3] = {"x", "y", "z"};
constexpr const char *orientation_axes[3] = {"rx", "ry", "rz"};

// "step": micrometres or milliradians; "step_type": the axis.
void tool_step(const cJSON *request, cJSON *reply, command_context &c, teach_axis kind) {
    const bool position = kind == teach_axis::position;
    const int axis =
        axis_named(request, "step_type", position ? position_steps : orientation_steps);
    const auto step = read_int(request, "step");
    const auto v = read_int(request, "v");
    cJSON_AddBoolToObject(reply, "receive_state",
                          axis >= 0 && step && v &&
                              c.target.queue_tool_step(
                                  kind, axis, *step / (position ? k_micro : k_milli), *v, c.now));
}
void pos_step(const cJSON *request, cJSON *reply, command_context &c) {
    tool_step(request, reply, c, teach_axis::position);
}
void ort_step(const cJSON *request, cJSON *reply, command_context &c) {
    tool_step(request, reply, c, teach_axis::orientation);
}

// "direction": "pos" or "neg"; anything else is refused.
std::optional<bool> read_direction(const cJSON *request) {
    const auto text = json_string(request, "direction");
    if (text && *text == "pos") return true;
    if (text && *text == "neg") return false;
    return std::nullopt;
}

void teach(const cJSON *request, cJSON *reply, command_context &c, teach_axis kind, int axis,
           const char *result_key) {
    const auto positive = read_direction(request);
    const auto v = read_int(request, "v");
    cJSON_AddBoolToObject(reply, result_key,
                          positive && v && c.target.start_teach(kind, axis, *positive, *v, c.now));
}
// "teach_joint": the joint number from 1.
void joint_teach(const cJSON *request, cJSON *reply, command_context &c) {
    teach(request, reply, c, teach_axis::joint, read_int(request, "teach_joint").value_or(0) - 1,
          "joint_teach");
}
void pos_teach(const cJSON *request, cJSON *reply, command_context &c) {
    teach(request, reply, c, teach_axis::position, axis_named(request, "teach_type", position_axes),
          "pos_teach");
}
void ort_teach(const cJSON *request, cJSON *reply, command_context &c) {
    teach(request, reply, c, teach_axis::orientation,
          axis_named(request, "teach_type", orientation_axes), "ort_teach");
}
void stop_teach(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "stop_teach", c.target.stop_teach());
}

// 0 the work frame, 1 the tool frame.
void set_teach_frame(const cJSON *request, cJSON *reply, command_context &c) {
    const auto frame = read_int(request, "frame_type");
    const bool ok = frame && (*frame == 0 || *frame == 1);
    if (ok) c.target.teach_frame = *frame;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}
void get_teach_frame(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "frame_type", c.target.teach_frame);
}

void report(command_context &c, const std::vector<motion_end> &ended) {
    for (const motion_end &end : ended)
        c.reports.push_back(completion_report(end));
}

void arm_stop(const cJSON *, cJSON *reply, command_context &c) {
    report(c, c.target.stop(c.now));
    cJSON_AddBoolToObject(reply, "arm_stop", true);
}
void arm_slow_stop(const cJSON *, cJSON *reply, command_context &c) {
    c.target.slow_stop();
    cJSON_AddBoolToObject(reply, "arm_slow_stop", true);
}
void arm_pause(const cJSON *, cJSON *reply, command_context &c) {
    c.target.pause();
    cJSON_AddBoolToObject(reply, "arm_pause", true);
}
void arm_continue(const cJSON *, cJSON *reply, command_context &c) {
    c.target.resume();
    cJSON_AddBoolToObject(reply, "arm_continue", true);
}
void delete_current(const cJSON *, cJSON *reply, command_context &c) {
    std::vector<motion_end> ended;
    cJSON_AddBoolToObject(reply, "delete_current_trajectory", c.target.delete_current(ended));
    report(c, ended);
}
void delete_all(const cJSON *, cJSON *reply, command_context &c) {
    std::vector<motion_end> ended;
    cJSON_AddBoolToObject(reply, "arm_delete_trajectory", c.target.delete_all(ended));
    report(c, ended);
}

constexpr command_row rows[] = {
    {"get_arm_current_trajectory", "arm_current_trajectory", current_trajectory},
    {"movej", "movej", movej},
    {"movej_p", "movej_p", movej_p},
    {"movel", "movel", movel},
    {"movec", "movec", movec},
    {"moves", "moves", moves},
    {"movej_canfd", "movej_canfd", movej_canfd},
    {"movep_canfd", "movep_canfd", movep_canfd},
    {"movej_follow", "movej_follow", movej_follow},
    {"movep_follow", "movep_follow", movep_follow},
    {"set_joint_step", "set_joint_step", joint_step},
    {"set_pos_step", "set_pos_step", pos_step},
    {"set_ort_step", "set_ort_step", ort_step},
    {"set_joint_teach", "set_joint_teach", joint_teach},
    {"set_pos_teach", "set_pos_teach", pos_teach},
    {"set_ort_teach", "set_ort_teach", ort_teach},
    {"set_stop_teach", "set_stop_teach", stop_teach},
    {"set_teach_frame", "set_teach_frame", set_teach_frame},
    {"get_teach_frame", "get_teach_frame", get_teach_frame},
    {"set_arm_stop", "set_arm_stop", arm_stop},
    {"set_arm_slow_stop", "set_arm_slow_stop", arm_slow_stop},
    {"set_arm_pause", "set_arm_pause", arm_pause},
    {"set_arm_continue", "set_arm_continue", arm_continue},
    {"set_delete_current_trajectory", "set_delete_current_trajectory", delete_current},
    {"set_arm_delete_trajectory", "set_arm_delete_trajectory", delete_all},
};

} // namespace

const family motion_family{rows};

} // namespace sim
