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

constexpr auto joint_teach = cmd::set<"set_joint_teach">("joint_teach");
constexpr auto pos_teach = cmd::set<"set_pos_teach">("pos_teach");
constexpr auto ort_teach = cmd::set<"set_ort_teach">("ort_teach");
constexpr auto teach_frame = cmd::set<"set_teach_frame">("set_state");
constexpr auto teach_frame_read = cmd::value<"get_teach_frame">("frame_type");

// The controls without arguments, each answered under its own name.
enum class control { stop_teach, slow_stop, stop, pause, resume, delete_current, delete_all };
constexpr cmd::set_command controls[] = {
    {"ka_set_stop_teach", "set_stop_teach", "set_stop_teach", "stop_teach"},
    {"ka_set_arm_slow_stop", "set_arm_slow_stop", "set_arm_slow_stop", "arm_slow_stop"},
    {"ka_set_arm_stop", "set_arm_stop", "set_arm_stop", "arm_stop"},
    {"ka_set_arm_pause", "set_arm_pause", "set_arm_pause", "arm_pause"},
    {"ka_set_arm_continue", "set_arm_continue", "set_arm_continue", "arm_continue"},
    {"ka_set_delete_current_trajectory", "set_delete_current_trajectory",
     "set_delete_current_trajectory", "delete_current_trajectory"},
    {"ka_set_arm_delete_trajectory", "set_arm_delete_trajectory", "set_arm_delete_trajectory",
     "arm_delete_trajectory"},
};

int run_control(control c, ka_robot_handle *handle) {
    return cmd::run(controls[static_cast<int>(c)], handle);
}

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
    return cmd::run(joint_teach, handle,
                    {cmd::number("teach_joint", joint_num), cmd::number("v", v),
                     cmd::text("direction", direction(dir))});
}
int ka_set_pos_teach(ka_robot_handle *handle, ka_pos_teach_type_e type, int dir, int v) {
    const char *axis = axis_name(pos_teach_axes, type, pos_teach.function);
    if (!axis) return -1;
    return cmd::run(pos_teach, handle,
                    {cmd::number("v", v), cmd::text("direction", direction(dir)),
                     cmd::text("teach_type", axis)});
}
int ka_set_ort_teach(ka_robot_handle *handle, ka_ort_teach_type_e type, int dir, int v) {
    const char *axis = axis_name(ort_teach_axes, type, ort_teach.function);
    if (!axis) return -1;
    return cmd::run(ort_teach, handle,
                    {cmd::number("v", v), cmd::text("direction", direction(dir)),
                     cmd::text("teach_type", axis)});
}
int ka_set_stop_teach(ka_robot_handle *handle) { return run_control(control::stop_teach, handle); }

int ka_set_teach_frame(ka_robot_handle *handle, int frame_type) {
    return cmd::run(teach_frame, handle, {cmd::number("frame_type", frame_type)});
}
int ka_get_teach_frame(ka_robot_handle *handle, int *frame_type) {
    if (!frame_type) return -1;
    int32_t value = 0;
    int status = cmd::run(teach_frame_read, handle, value);
    if (status == 0) *frame_type = value;
    return status;
}

int ka_set_arm_slow_stop(ka_robot_handle *handle) {
    return run_control(control::slow_stop, handle);
}
int ka_set_arm_stop(ka_robot_handle *handle) { return run_control(control::stop, handle); }
int ka_set_arm_pause(ka_robot_handle *handle) { return run_control(control::pause, handle); }
int ka_set_arm_continue(ka_robot_handle *handle) { return run_control(control::resume, handle); }
int ka_set_delete_current_trajectory(ka_robot_handle *handle) {
    return run_control(control::delete_current, handle);
}
int ka_set_arm_delete_trajectory(ka_robot_handle *handle) {
    return run_control(control::delete_all, handle);
}

} // extern "C"
