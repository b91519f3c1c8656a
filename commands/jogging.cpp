// Jogging, teaching and motion control: steps by a small increment (sent
// with a fixed pause, or waited for like a planned motion), continuous
// teaching until a stop, the teach frame, and stopping, pausing, resuming or
// discarding the running trajectory.
#include "core/command.h"
#include "core/wait.h"

namespace {

// One step. The blocking variant is accepted under the command's name with
// "receive_state" and then followed as a trajectory of `kind`.
struct step_command {
    const char *nblock_function; // label of the non-blocking send
    const char *command;
    wait::policy wait; // labelled as the blocking exchange
};

// A step is followed by question, asked again at once while it runs; the
// Cartesian steps read their report into 256 bytes.
constexpr wait::policy step_wait(const char *function, int kind, int report_size) {
    return wait::queried_motion(function, kind, true, report_size);
}
constexpr step_command joint_step{
    "ka_set_joint_step_nblock", "set_joint_step",
    step_wait("ka_set_joint_step_block", KA_TRAJECTORY_MOVEJ, reply_buffer_size)};
constexpr step_command pos_step{"ka_set_pos_step_nblock", "set_pos_step",
                                step_wait("ka_set_pos_step_block", KA_TRAJECTORY_MOVEL, 256)};
constexpr step_command ort_step{"ka_set_ort_step_nblock", "set_ort_step",
                                step_wait("ka_set_ort_step_block", KA_TRAJECTORY_MOVEL, 256)};

// Axis names on the wire, indexed by ka_pos_teach_type_e / ka_ort_teach_type_e.
using axis_names = const char *const[3];
constexpr axis_names pos_teach_axes = {"x", "y", "z"};
constexpr axis_names ort_teach_axes = {"rx", "ry", "rz"};
constexpr axis_names pos_step_axes = {"x_step", "y_step", "z_step"};
constexpr axis_names ort_step_axes = {"rx_step", "ry_step", "rz_step"};

// The wire name of axis `type`; null (logged) for a type outside 0..2, whose
// command is then not sent.
const char *axis_name(axis_names &names, int type, const char *function) {
    if (type >= 0 && type < 3) return names[type];
    ka_log_error("[%s] axis type %d is not 0, 1 or 2\n", function, type);
    return nullptr;
}

// Without block: the line goes out and the fixed pause paces the step; the
// controller's answer is neither read nor judged. With block (seconds in
// thread mode 0, a flag otherwise): accepted, then waited for.
int run_step(const step_command &s, ka_robot_handle *handle,
             std::initializer_list<ka_request_field> fields, const int *block) {
    if (!block)
        return cmd::exchange(s.nblock_function, handle, s.command, fields, nullptr, m_nOutTime,
                             nullptr, 0);
    wait::session session(handle, s.wait, true);
    cmd::reply_text reply;
    int length = cmd::exchange(s.wait.function, handle, s.command, fields, s.command, m_nOutTime,
                               reply.text, sizeof reply.text);
    if (length < 1) return length;
    int status = parse_ka_set_command(s.wait.function, reply.text, "receive_state");
    if (status != 0) return status;
    return session.wait(*block, length);
}

int step_joint(ka_robot_handle *handle, int joint_num, float step, int v, const int *block) {
    // The joint's step in millidegrees, formed in single precision.
    const int32_t joint_step_value[2] = {joint_num, scale::thousandths(step)};
    return run_step(joint_step, handle,
                    {cmd::numbers("joint_step", joint_step_value, 2), cmd::number("v", v)}, block);
}

int step_axis(const step_command &s, axis_names &axes, ka_robot_handle *handle, int type,
              int32_t step, int v, const int *block) {
    const char *axis = axis_name(axes, type, block ? s.wait.function : s.nblock_function);
    if (!axis) return -1;
    return run_step(s, handle,
                    {cmd::number("v", v), cmd::number("step", step), cmd::text("step_type", axis)},
                    block);
}

int step_pos(ka_robot_handle *handle, int type, float metres, int v, const int *block) {
    return step_axis(pos_step, pos_step_axes, handle, type, scale::millionths(metres), v, block);
}

int step_ort(ka_robot_handle *handle, int type, float radians, int v, const int *block) {
    return step_axis(ort_step, ort_step_axes, handle, type, scale::thousandths(radians), v, block);
}

const char *direction(int d) { return d != 0 ? "pos" : "neg"; }

// clang-format off
constexpr auto joint_teach = cmd::set<"set_joint_teach">("joint_teach", nullptr, m_nOutTime, {{"teach_joint"}, {"v"}, {"direction"}});
constexpr auto pos_teach = cmd::set<"set_pos_teach">("pos_teach", nullptr, m_nOutTime, {{"v"}, {"direction"}, {"teach_type"}});
constexpr auto ort_teach = cmd::set<"set_ort_teach">("ort_teach", nullptr, m_nOutTime, {{"v"}, {"direction"}, {"teach_type"}});
constexpr auto teach_frame = cmd::set<"set_teach_frame">("set_state", nullptr, m_nOutTime, {{"frame_type"}});
constexpr auto teach_frame_read = cmd::value<"get_teach_frame">("frame_type");
// The controls without arguments, each answered under its own name.
constexpr auto stop_teach = cmd::set<"set_stop_teach">("stop_teach");
constexpr auto slow_stop = cmd::set<"set_arm_slow_stop">("arm_slow_stop");
constexpr auto arm_stop = cmd::set<"set_arm_stop">("arm_stop");
constexpr auto arm_pause = cmd::set<"set_arm_pause">("arm_pause");
constexpr auto resume = cmd::set<"set_arm_continue">("arm_continue");
constexpr auto delete_current = cmd::set<"set_delete_current_trajectory">("delete_current_trajectory");
constexpr auto delete_all = cmd::set<"set_arm_delete_trajectory">("arm_delete_trajectory");
// clang-format on

} // namespace

extern "C" {

int ka_set_joint_step(ka_robot_handle *handle, int joint_num, float step, int v, int block) {
    return block == 0 ? ka_set_joint_step_nblock(handle, joint_num, step, v)
                      : ka_set_joint_step_block(handle, joint_num, step, v, block);
}
int ka_set_pos_step(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v,
                    int block) {
    return block == 0 ? ka_set_pos_step_nblock(handle, type, step, v)
                      : ka_set_pos_step_block(handle, type, step, v, block);
}
int ka_set_ort_step(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v,
                    int block) {
    return block == 0 ? ka_set_ort_step_nblock(handle, type, step, v)
                      : ka_set_ort_step_block(handle, type, step, v, block);
}

int ka_set_joint_step_nblock(ka_robot_handle *handle, int joint_num, float step, int v) {
    return step_joint(handle, joint_num, step, v, nullptr);
}
int ka_set_pos_step_nblock(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v) {
    return step_pos(handle, type, step, v, nullptr);
}
int ka_set_ort_step_nblock(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v) {
    return step_ort(handle, type, step, v, nullptr);
}

int ka_set_joint_step_block(ka_robot_handle *handle, int joint_num, float step, int v, int block) {
    return step_joint(handle, joint_num, step, v, &block);
}
int ka_set_pos_step_block(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v,
                          int block) {
    return step_pos(handle, type, step, v, &block);
}
int ka_set_ort_step_block(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v,
                          int block) {
    return step_ort(handle, type, step, v, &block);
}

int ka_set_joint_teach(ka_robot_handle *handle, int joint_num, int dir, int v) {
    return joint_teach(handle, joint_num, v, direction(dir));
}
int ka_set_pos_teach(ka_robot_handle *handle, ka_pos_teach_type_e type, int dir, int v) {
    const char *axis = axis_name(pos_teach_axes, type, pos_teach.function);
    return axis ? pos_teach(handle, v, direction(dir), axis) : -1;
}
int ka_set_ort_teach(ka_robot_handle *handle, ka_ort_teach_type_e type, int dir, int v) {
    const char *axis = axis_name(ort_teach_axes, type, ort_teach.function);
    return axis ? ort_teach(handle, v, direction(dir), axis) : -1;
}
// clang-format off
int ka_set_stop_teach(ka_robot_handle *handle) { return stop_teach(handle); }
int ka_set_teach_frame(ka_robot_handle *handle, int frame_type) { return teach_frame(handle, frame_type); }
int ka_get_teach_frame(ka_robot_handle *handle, int *frame_type) { return teach_frame_read(handle, frame_type); }
int ka_set_arm_slow_stop(ka_robot_handle *handle) { return slow_stop(handle); }
int ka_set_arm_stop(ka_robot_handle *handle) { return arm_stop(handle); }
int ka_set_arm_pause(ka_robot_handle *handle) { return arm_pause(handle); }
int ka_set_arm_continue(ka_robot_handle *handle) { return resume(handle); }
int ka_set_delete_current_trajectory(ka_robot_handle *handle) { return delete_current(handle); }
int ka_set_arm_delete_trajectory(ka_robot_handle *handle) { return delete_all(handle); }
// clang-format on

} // extern "C"
