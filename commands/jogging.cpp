// Jogging and teaching (steps, continuous teaching, the teach frame) and stopping the trajectory.
#include "core/wait.h"

namespace {

using cmd::as;

// Axis names by ka_pos_teach_type_e / ka_ort_teach_type_e; another type is logged, nothing sent.
constexpr const char *pos_teach_axes[] = {"x", "y", "z"};
constexpr const char *ort_teach_axes[] = {"rx", "ry", "rz"};
constexpr const char *pos_step_axes[] = {"x_step", "y_step", "z_step"};
constexpr const char *ort_step_axes[] = {"rx_step", "ry_step", "rz_step"};

// A blocking step is accepted with "receive_state", then asked after as a `kind` trajectory.
template <cmd::wire_name Command, cmd::wire_name Label>
constexpr wait::command step(int kind, int report_size, const char *sent_label,
                             std::initializer_list<cmd::arg> args) {
    const cmd::set_command accept =
        cmd::set<Command, Label>("receive_state", nullptr, m_nOutTime, args);
    return {.accept = accept,
            .wait = wait::queried_motion(accept.function, kind, true, report_size),
            .sent_label = sent_label};
}
// clang-format off
constexpr auto joint_step = step<"set_joint_step", "ka_set_joint_step_block">(KA_TRAJECTORY_MOVEJ, reply_buffer_size, "ka_set_joint_step_nblock", {{"joint_step"}, {nullptr, as::thousandths}, {"v"}});
constexpr auto pos_step = step<"set_pos_step", "ka_set_pos_step_block">(KA_TRAJECTORY_MOVEL, 256, "ka_set_pos_step_nblock", {{"v"}, {"step", as::millionths}, {"step_type", as::axis, pos_step_axes}});
constexpr auto ort_step = step<"set_ort_step", "ka_set_ort_step_block">(KA_TRAJECTORY_MOVEL, 256, "ka_set_ort_step_nblock", {{"v"}, {"step", as::thousandths}, {"step_type", as::axis, ort_step_axes}});
constexpr auto joint_teach = cmd::set<"set_joint_teach">("joint_teach", nullptr, m_nOutTime, {{"teach_joint"}, {"v"}, {"direction", as::direction}});
constexpr auto pos_teach = cmd::set<"set_pos_teach">("pos_teach", nullptr, m_nOutTime, {{"v"}, {"direction", as::direction}, {"teach_type", as::axis, pos_teach_axes}});
constexpr auto ort_teach = cmd::set<"set_ort_teach">("ort_teach", nullptr, m_nOutTime, {{"v"}, {"direction", as::direction}, {"teach_type", as::axis, ort_teach_axes}});
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

// clang-format off
int ka_set_joint_step(ka_robot_handle *handle, int joint_num, float step, int v, int block) { return block == 0 ? ka_set_joint_step_nblock(handle, joint_num, step, v) : ka_set_joint_step_block(handle, joint_num, step, v, block); }
int ka_set_pos_step(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v, int block) { return block == 0 ? pos_step.sent(handle, v, step, cmd::raw(type)) : pos_step(handle, block, v, step, cmd::raw(type)); }
int ka_set_ort_step(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v, int block) { return block == 0 ? ort_step.sent(handle, v, step, cmd::raw(type)) : ort_step(handle, block, v, step, cmd::raw(type)); }
int ka_set_joint_step_nblock(ka_robot_handle *h, int joint_num, float step, int v) { return joint_step.sent(h, joint_num, step, v); }
int ka_set_joint_step_block(ka_robot_handle *h, int joint_num, float step, int v, int block) { return joint_step(h, block, joint_num, step, v); }
int ka_set_pos_step_nblock(ka_robot_handle *h, ka_pos_teach_type_e type, float step, int v) { return pos_step.sent(h, v, step, cmd::raw(type)); }
int ka_set_ort_step_nblock(ka_robot_handle *h, ka_ort_teach_type_e type, float step, int v) { return ort_step.sent(h, v, step, cmd::raw(type)); }
int ka_set_pos_step_block(ka_robot_handle *h, ka_pos_teach_type_e type, float step, int v, int block) { return pos_step(h, block, v, step, cmd::raw(type)); }
int ka_set_ort_step_block(ka_robot_handle *h, ka_ort_teach_type_e type, float step, int v, int block) { return ort_step(h, block, v, step, cmd::raw(type)); }
int ka_set_joint_teach(ka_robot_handle *handle, int joint_num, int dir, int v) { return joint_teach(handle, joint_num, v, dir); }
int ka_set_pos_teach(ka_robot_handle *handle, ka_pos_teach_type_e type, int dir, int v) { return pos_teach(handle, v, dir, cmd::raw(type)); }
int ka_set_ort_teach(ka_robot_handle *handle, ka_ort_teach_type_e type, int dir, int v) { return ort_teach(handle, v, dir, cmd::raw(type)); }
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
