// Force sensing and calibration, drag teaching and its replay, and force-position control.
#include "core/wait.h"

namespace {

// clang-format off
// A calibration: with block, "set_state" within 30 s under "set_force_sensor" whatever started it (an earlier unread verdict dropped first); without, sent only and paced 10 ms.
constexpr int sent_only_pause_ms = 10;
template <cmd::wire_name Command, cmd::wire_name Label = "">
constexpr cmd::set_command calibration(std::initializer_list<cmd::arg> args = {}) { return cmd::forgetting(cmd::set<Command, Label>("set_state", "set_force_sensor", 30000, args)); }
template <typename... V>
int calibrate(const cmd::set_command &c, ka_robot_handle *handle, bool block, V... v) { return block ? c(handle, v...) : cmd::sent_only(c, sent_only_pause_ms)(handle, v...); }
constexpr auto force_sensor = calibration<"set_force_sensor">();
constexpr auto auto_fz = calibration<"auto_set_Fz">();
constexpr auto manual_fz = calibration<"manual_set_Fz">({{"pose1", cmd::as::joints}, {"pose2", cmd::as::joints}});
constexpr cmd::set_command manual_force[] = {
    calibration<"manual_set_force_pose1", "ka_manual_set_force">({{"joint", cmd::as::joints}}),
    calibration<"manual_set_force_pose2", "ka_manual_set_force">({{"joint", cmd::as::joints}}),
    calibration<"manual_set_force_pose3", "ka_manual_set_force">({{"joint", cmd::as::joints}}),
    calibration<"manual_set_force_pose4", "ka_manual_set_force">({{"joint", cmd::as::joints}}),
};
constexpr auto force_data = cmd::query<"get_force_data">(nullptr, {{"force_data", cmd::as::thousandths, 6}, {"zero_force_data", cmd::as::thousandths, 6}, {"work_zero_force_data", cmd::as::thousandths, 6}, {"tool_zero_force_data", cmd::as::thousandths, 6}});
constexpr auto fz_data = cmd::query<"get_Fz">(nullptr, {{"Fz", cmd::as::thousandths}, {"zero_Fz", cmd::as::thousandths}, {"work_zero_Fz", cmd::as::thousandths}, {"tool_zero_Fz", cmd::as::thousandths}});
constexpr auto clear_force_data = cmd::set<"clear_force_data">("clear_state");
constexpr auto stop_set_force_sensor = cmd::set<"stop_set_force_sensor">("stop_state");
constexpr auto clear_fz = cmd::set<"clear_Fz">("set_state");
constexpr auto start_drag_teach = cmd::set<"start_drag_teach">("drag_teach", nullptr, m_nOutTime, {{"trajectory_record"}});
constexpr auto stop_drag_teach = cmd::set<"stop_drag_teach">("drag_teach");
constexpr auto start_multi_drag_teach = cmd::set<"start_multi_drag_teach">("set_state", nullptr, m_nOutTime, {{"mode"}, {"singular_wall"}});
constexpr auto multi_drag_six = cmd::set<"start_multi_drag_teach", "ka_start_multi_drag_teach_new">("set_state", nullptr, m_nOutTime, {{"frame"}, {"singular_wall"}, {"free_axes", cmd::as::six}});
constexpr auto multi_drag_frame = cmd::set<"start_multi_drag_teach", "ka_start_multi_drag_teach_new">("set_state", nullptr, m_nOutTime, {{"frame"}});
constexpr auto pause_drag_trajectory = cmd::set<"pause_drag_trajectory">("pause_state");
constexpr auto continue_drag_trajectory = cmd::set<"continue_drag_trajectory">("continue_state");
constexpr auto stop_drag_trajectory = cmd::set<"stop_drag_trajectory">("stop_state");
// Forces go out as tenths of a newton: the older commands cut to whole newtons first.
constexpr auto set_force_position = cmd::set<"set_force_position">("set_state", nullptr, m_nOutTime, {{"sensor"}, {"mode"}, {"direction"}, {"N", cmd::as::whole_tenths}});
constexpr auto set_force_position_new = cmd::set<"set_force_position", "ka_set_force_position_new">("set_state", nullptr, m_nOutTime, {{"mode"}, {"sensor"}, {"desired_force", cmd::as::six_tenths}, {"control_mode", cmd::as::six}, {"limit_vel", cmd::as::six_thousandths}});
// The passthrough goes out without an answer and without a pause.
constexpr auto move_joint = cmd::send<"Force_Position_Move", "ka_force_position_move_joint">(0, {{"joint", cmd::as::joints}, {"follow"}, {"sensor"}, {"mode"}, {"dir"}, {"force", cmd::as::whole_tenths}});
constexpr auto move_pose = cmd::send<"Force_Position_Move", "ka_force_position_move_pose">(0, {{"follow"}, {"sensor"}, {"mode"}, {"dir"}, {"force", cmd::as::whole_tenths}, {nullptr, cmd::as::target}});
// The target form sends a pose, or joints scaled in single precision unlike every other command's.
constexpr auto move_target = cmd::send<"Force_Position_Move", "ka_force_position_move">(0, {{"follow"}, {"sensor"}, {"mode"}, {"control_mode", cmd::as::six}, {"desired_force", cmd::as::six_tenths}, {"limit_vel", cmd::as::six_thousandths}, {nullptr, cmd::as::target}});
constexpr auto move_target_joints = cmd::send<"Force_Position_Move", "ka_force_position_move">(0, {{"follow"}, {"sensor"}, {"mode"}, {"control_mode", cmd::as::six}, {"desired_force", cmd::as::six_tenths}, {"limit_vel", cmd::as::six_thousandths}, {"joint", cmd::as::joints_single}});
constexpr auto stop_force_position = cmd::set<"stop_force_position">("stop_state");
constexpr auto start_force_position_move = cmd::set<"Start_Force_Position_Move", "ka_start_force_position_move">("set_state");
constexpr auto stop_force_position_move = cmd::set<"Stop_Force_Position_Move", "ka_stop_force_position_move">("set_state");
// The way to the first recorded point: only sent, then (block) followed as a joint move; without a receive path the call gives 0.
constexpr wait::command drag_origin{cmd::send<"drag_trajectory_origin">(sent_only_pause_ms), {.function = "ka_drag_trajectory_origin", .order = wait::read_order::query_first, .kind = KA_TRAJECTORY_MOVEJ, .no_reader = 0}};
// The replay's verdict comes once the replay is over: asked after every 50 ms, judged 10 ms after it came.
constexpr auto replay = wait::verdict_after<"run_drag_trajectory">("run_state", KA_TRAJECTORY_REPLAY, 50, 10);
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_get_force_data(ka_robot_handle *handle, ka_force_data_t *d) { return d ? force_data(handle, d->force_data, d->zero_force_data, d->work_zero_force_data, d->tool_zero_force_data) : -1; }
int ka_clear_force_data(ka_robot_handle *handle) { return clear_force_data(handle); }
int ka_set_force_sensor(ka_robot_handle *handle, bool block) { return calibrate(force_sensor, handle, block); }
int ka_stop_set_force_sensor(ka_robot_handle *handle) { return stop_set_force_sensor(handle); }
int ka_clear_Fz(ka_robot_handle *handle) { return clear_fz(handle); }
int ka_auto_set_Fz(ka_robot_handle *handle, bool block) { return calibrate(auto_fz, handle, block); }
int ka_manual_set_Fz(ka_robot_handle *handle, float *joint1, float *joint2, bool block) { return calibrate(manual_fz, handle, block, static_cast<const float *>(joint1), static_cast<const float *>(joint2)); }
int ka_start_drag_teach(ka_robot_handle *handle, int trajectory_record) { return start_drag_teach(handle, trajectory_record); }
int ka_stop_drag_teach(ka_robot_handle *handle) { return stop_drag_teach(handle); }
int ka_start_multi_drag_teach(ka_robot_handle *handle, int mode, int singular_wall) { return start_multi_drag_teach(handle, mode, singular_wall); }
int ka_set_drag_teach_sensitivity(ka_robot_handle *handle, int grade) { return ka_set_data_common(handle, grade, "set_drag_teach_sensitivity", "grade"); }
int ka_get_drag_teach_sensitivity(ka_robot_handle *handle, int *grade) { return ka_get_data_common(handle, grade, "get_drag_teach_sensitivity", "grade"); }
int ka_drag_trajectory_origin(ka_robot_handle *handle, int block) { return drag_origin(handle, wait::when(block)); }
int ka_pause_drag_trajectory(ka_robot_handle *handle) { return pause_drag_trajectory(handle); }
int ka_continue_drag_trajectory(ka_robot_handle *handle) { return continue_drag_trajectory(handle); }
int ka_stop_drag_trajectory(ka_robot_handle *handle) { return stop_drag_trajectory(handle); }
int ka_set_force_position(ka_robot_handle *handle, int sensor, int mode, int direction, float N) { return set_force_position(handle, sensor, mode, direction, N); }
int ka_stop_force_position(ka_robot_handle *handle) { return stop_force_position(handle); }
int ka_start_force_position_move(ka_robot_handle *handle) { return start_force_position_move(handle); }
int ka_stop_force_position_move(ka_robot_handle *handle) { return stop_force_position_move(handle); }
int ka_set_force_position_new(ka_robot_handle *handle, const ka_force_position_t *p) { return p ? set_force_position_new(handle, p->mode, p->sensor, p->desired_force, p->control_mode, p->limit_vel) : -1; }
int ka_force_position_move_joint(ka_robot_handle *handle, const float *joint, int sensor, int mode, int dir, float force, bool follow) { return move_joint(handle, joint, follow, sensor, mode, dir, force); }
int ka_force_position_move_pose(ka_robot_handle *handle, ka_pose_t pose, int sensor, int mode, int dir, float force, bool follow) { return move_pose(handle, follow, sensor, mode, dir, force, pose); }
// Written by hand: the posture number picks the command; only the last one is answered.
int ka_manual_set_force(ka_robot_handle *handle, int type, float *joint, bool block) { return type >= 1 && type <= 4 ? calibrate(manual_force[type - 1], handle, block && type == 4, static_cast<const float *>(joint)) : cmd::failed(manual_force[0].function, "[%s] posture type %d is not 1, 2, 3 or 4\n", type); }
// Written by hand: a negative time-out is refused before anything is sent.
int ka_run_drag_trajectory(ka_robot_handle *handle, int timeout) { return timeout >= 0 ? replay(handle, wait::when(timeout)) : cmd::failed(replay.accept.function, "[%s] timeout %d is negative\n", timeout); }
// Written by hand: the flag picks the target, 1 the pose, 0 the joints.
int ka_force_position_move(ka_robot_handle *handle, ka_force_position_move_t p) {
    const auto *control = static_cast<const int *>(p.control_mode);
    if (p.flag == 1) return move_target(handle, p.follow, p.sensor, p.mode, control, p.desired_force, p.limit_vel, p.pose);
    if (p.flag == 0) return move_target_joints(handle, p.follow, p.sensor, p.mode, control, p.desired_force, p.limit_vel, static_cast<const float *>(p.joint));
    return cmd::failed(move_target.function, "[%s] target flag %d is not 0 or 1\n", p.flag);
}
// clang-format on

// Written by hand: only arms reporting the six-axis sensor are asked.
int ka_get_Fz(ka_robot_handle *handle, ka_fz_data_t *data) {
    if (!data) return -1;
    ka_robot_info_t info{};
    if (ka_get_robot_info(handle, &info) == 0 && info.force_type == KA_FORCE_TYPE_6F)
        return fz_data(handle, &data->Fz, &data->zero_Fz, &data->work_zero_Fz, &data->tool_zero_Fz);
    return cmd::failed(fz_data.function, "arm force type check err!", 0, -2);
}

// Written by hand: the singular wall and free axes mean something only to a six-axis sensor.
int ka_start_multi_drag_teach_new(ka_robot_handle *handle, const ka_multi_drag_teach_t *param) {
    arm_ptr arm = param ? registry_find(handle) : nullptr;
    if (!arm || load_public(arm->pub.arm_dof) == 0) return -1;
    if (load_public(arm->pub.force_type) == KA_FORCE_TYPE_6F)
        return multi_drag_six(handle, param->frame, param->singular_wall, param->free_axes);
    ka_log_warn("Non-six-dimensional force version, The configuration for singular_wall and the "
                "values in free_axes array are invalid.\n");
    return multi_drag_frame(handle, param->frame);
}

} // extern "C"
