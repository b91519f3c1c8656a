// Force sensing, drag teaching and force-position control: the sensor
// readings and their calibration, hand-guided teaching with the replay of the
// recorded path, and motion under a force target.
#include "core/command.h"
#include "core/wait.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <iterator>
#include <optional>
#include <thread>

namespace {

using std::chrono::milliseconds;

// Every calibration reports its result under "set_force_sensor", whichever
// command started it; the controller may take many seconds to finish.
constexpr const char *calibration_reply = "set_force_sensor";
constexpr int calibration_timeout_ms = 30000;
// The pause after a command whose answer is not read.
constexpr int sent_only_pause_ms = 10;
constexpr int replay_query_pause_ms = 50;

// Sends {"command": command, fields...} and pauses; nothing is read. 0, or -1
// for an unknown handle or a failed send.
int send_only(const char *function, ka_robot_handle *handle, const char *command,
              std::initializer_list<ka_request_field> fields, int pause_ms) {
    return cmd::exchange(function, handle, command, fields, nullptr, pause_ms, nullptr, 0);
}

// A calibration: with block, the controller's verdict on "set_state" within
// 30 s; without, sent only and paced.
template <cmd::wire_name Command, cmd::wire_name Label = "">
constexpr cmd::set_command calibration(std::initializer_list<cmd::arg> args = {}) {
    return cmd::set<Command, Label>("set_state", calibration_reply, calibration_timeout_ms, args);
}
template <typename... V>
int calibrate(const cmd::set_command &c, ka_robot_handle *handle, bool block, V... v) {
    cmd::request r(c.function, handle);
    r.take(c.args, v...);
    if (r.status) return r.status;
    if (!block)
        return cmd::exchange(c.function, handle, c.command, r.fields(), nullptr, sent_only_pause_ms,
                             nullptr, 0);
    // A verdict left unread by an earlier call without block must not stand
    // for this calibration.
    cmd::forget(handle, calibration_reply);
    return cmd::run(c, handle, r.fields());
}

// clang-format off
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
// clang-format on

// Forces of the older commands: cut to whole newtons first, then tenths
// (12.7 N goes out as 120).
int32_t whole_newtons_in_tenths(float newtons) {
    return scale::truncate(static_cast<double>(scale::truncate(newtons)) * 10.0);
}
// Forces of the newer commands: tenths of a newton formed in single
// precision, then cut (12.7 N goes out as 127).
int32_t tenths_of_newtons(float newtons) { return scale::truncate(newtons * 10.0f); }

// The per-axis force target of the newer commands.
struct force_target {
    int32_t control_mode[6];
    int32_t desired_force[6]; // tenths of a newton
    int32_t limit_vel[6];     // thousandths
};
force_target force_target_to_wire(const int32_t *control_mode, const float *desired_force,
                                  const float *limit_vel) {
    force_target t{};
    for (int i = 0; i < 6; ++i) {
        t.control_mode[i] = control_mode[i];
        t.desired_force[i] = tenths_of_newtons(desired_force[i]);
        t.limit_vel[i] = scale::thousandths(limit_vel[i]);
    }
    return t;
}

// The force-position passthrough goes out without an answer and without a pause.
constexpr const char *passthrough_command = "Force_Position_Move";

constexpr auto clear_force_data = cmd::set<"clear_force_data">("clear_state");
constexpr auto stop_set_force_sensor = cmd::set<"stop_set_force_sensor">("stop_state");
constexpr auto clear_fz = cmd::set<"clear_Fz">("set_state");
constexpr auto start_drag_teach =
    cmd::set<"start_drag_teach">("drag_teach", nullptr, m_nOutTime, {{"trajectory_record"}});

constexpr auto stop_drag_teach = cmd::set<"stop_drag_teach">("drag_teach");
constexpr auto start_multi_drag_teach = cmd::set<"start_multi_drag_teach">(
    "set_state", nullptr, m_nOutTime, {{"mode"}, {"singular_wall"}});
constexpr auto start_multi_drag_teach_new =
    cmd::set<"start_multi_drag_teach", "ka_start_multi_drag_teach_new">("set_state");
constexpr auto pause_drag_trajectory = cmd::set<"pause_drag_trajectory">("pause_state");
constexpr auto continue_drag_trajectory = cmd::set<"continue_drag_trajectory">("continue_state");
constexpr auto stop_drag_trajectory = cmd::set<"stop_drag_trajectory">("stop_state");
// Forces go out as tenths of a newton, converted by the caller's row.
// clang-format off
constexpr auto set_force_position = cmd::set<"set_force_position">("set_state", nullptr, m_nOutTime, {{"sensor"}, {"mode"}, {"direction"}, {"N"}});
constexpr auto set_force_position_new = cmd::set<"set_force_position", "ka_set_force_position_new">("set_state", nullptr, m_nOutTime, {{"mode"}, {"sensor"}, {"desired_force", cmd::as::six}, {"control_mode", cmd::as::six}, {"limit_vel", cmd::as::six}});
// The passthrough goes out without an answer and without a pause.
constexpr auto move_joint = cmd::send<"Force_Position_Move", "ka_force_position_move_joint">(0, {{"joint", cmd::as::joints}, {"follow"}, {"sensor"}, {"mode"}, {"dir"}, {"force"}});
constexpr auto move_pose = cmd::send<"Force_Position_Move", "ka_force_position_move_pose">(0, {{"follow"}, {"sensor"}, {"mode"}, {"dir"}, {"force"}, {nullptr, cmd::as::target}});
// clang-format on
constexpr auto stop_force_position = cmd::set<"stop_force_position">("stop_state");
constexpr auto start_force_position_move =
    cmd::set<"Start_Force_Position_Move", "ka_start_force_position_move">("set_state");
constexpr auto stop_force_position_move =
    cmd::set<"Stop_Force_Position_Move", "ka_stop_force_position_move">("set_state");

constexpr const char *sensitivity_key = "grade";

// The way to the first recorded point: only sent, then (block) followed as a
// joint move; without a receive path the call gives 0.
constexpr wait::command drag_origin = [] {
    constexpr auto accept = cmd::send<"drag_trajectory_origin">(sent_only_pause_ms);
    wait::command c{accept, wait::queried_motion(accept.function, KA_TRAJECTORY_MOVEJ)};
    c.wait.no_reader = 0;
    return c;
}();

// Replay of the recorded drag trajectory.
constexpr const char *replay_function = "ka_run_drag_trajectory";
constexpr const char *replay_command = "run_drag_trajectory";

// Waits ms, cut short when the arm's connection closes (nothing more can come).
void pause_while_connected(arm_record &arm, int ms) {
    std::unique_lock<std::mutex> lock(arm.queue.mutex);
    arm.queue.filed.wait_for(lock, milliseconds(ms), [&] { return arm.queue.closed; });
}

// Threaded modes: the replay's verdict arrives once the replay is over. The
// command goes out, the caller's time passes, then the running trajectory is
// asked after while it is a replay; the pause between two questions is spent
// waiting for the verdict.
int replay_threaded(ka_robot_handle *handle, int pause_ms) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    // A verdict of an earlier replay sent without a wait is not this one's.
    purge_lines(*arm, replay_command);
    int sent = send_only(replay_function, handle, replay_command, {}, 0);
    if (sent != 0) return sent;
    pause_while_connected(*arm, pause_ms);

    cmd::reply_text verdict;
    bool answered = false;
    for (;;) {
        ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
        float data[KA_JOINTS] = {};
        if (ka_get_arm_current_trajectory(handle, &kind, data) != 0 || kind != KA_TRAJECTORY_REPLAY)
            break;
        if (answered)
            std::this_thread::sleep_for(milliseconds(replay_query_pause_ms));
        else
            answered = ka_pack_lock_wait(replay_function, handle, replay_command, verdict.text,
                                         sizeof verdict.text, replay_query_pause_ms) > 0;
    }
    if (!answered) {
        int n = ka_pack_lock_wait(replay_function, handle, replay_command, verdict.text,
                                  sizeof verdict.text, m_nOutTime_max);
        if (n < 1) {
            ka_log_error("[%s] %s revice error\n", replay_function, replay_command);
            return n;
        }
    }
    std::this_thread::sleep_for(milliseconds(sent_only_pause_ms));
    return parse_ka_set_command(replay_function, verdict.text, "run_state");
}

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
int ka_set_drag_teach_sensitivity(ka_robot_handle *handle, int grade) { return ka_set_data_common(handle, grade, "set_drag_teach_sensitivity", sensitivity_key); }
int ka_get_drag_teach_sensitivity(ka_robot_handle *handle, int *grade) { return ka_get_data_common(handle, grade, "get_drag_teach_sensitivity", sensitivity_key); }
int ka_drag_trajectory_origin(ka_robot_handle *handle, int block) { return drag_origin(handle, wait::when(block)); }
int ka_pause_drag_trajectory(ka_robot_handle *handle) { return pause_drag_trajectory(handle); }
int ka_continue_drag_trajectory(ka_robot_handle *handle) { return continue_drag_trajectory(handle); }
int ka_stop_drag_trajectory(ka_robot_handle *handle) { return stop_drag_trajectory(handle); }
int ka_set_force_position(ka_robot_handle *handle, int sensor, int mode, int direction, float N) { return set_force_position(handle, sensor, mode, direction, whole_newtons_in_tenths(N)); }
int ka_stop_force_position(ka_robot_handle *handle) { return stop_force_position(handle); }
int ka_start_force_position_move(ka_robot_handle *handle) { return start_force_position_move(handle); }
int ka_stop_force_position_move(ka_robot_handle *handle) { return stop_force_position_move(handle); }
int ka_force_position_move_joint(ka_robot_handle *handle, const float *joint, int sensor, int mode, int dir, float force, bool follow) { return move_joint(handle, joint, follow, sensor, mode, dir, whole_newtons_in_tenths(force)); }
int ka_force_position_move_pose(ka_robot_handle *handle, ka_pose_t pose, int sensor, int mode, int dir, float force, bool follow) { return move_pose(handle, follow, sensor, mode, dir, whole_newtons_in_tenths(force), pose); }
// clang-format on

// Written by hand: the posture number picks the command, and only the last
// posture is answered.
int ka_manual_set_force(ka_robot_handle *handle, int type, float *joint, bool block) {
    if (type < 1 || type > 4) {
        ka_log_error("[%s] posture type %d is not 1, 2, 3 or 4\n", manual_force[0].function, type);
        return -1;
    }
    return calibrate(manual_force[type - 1], handle, block && type == 4,
                     static_cast<const float *>(joint));
}

// Written by hand: only arms reporting the six-axis sensor are asked.
int ka_get_Fz(ka_robot_handle *handle, ka_fz_data_t *data) {
    if (!data) return -1;
    ka_robot_info_t info{};
    if (ka_get_robot_info(handle, &info) != 0 || info.force_type != KA_FORCE_TYPE_6F) {
        ka_log_error("arm force type check err!");
        return -2;
    }
    return fz_data(handle, &data->Fz, &data->zero_Fz, &data->work_zero_Fz, &data->tool_zero_Fz);
}

// Written by hand: the keys sent depend on the arm's force sensor.
int ka_start_multi_drag_teach_new(ka_robot_handle *handle, const ka_multi_drag_teach_t *param) {
    if (!param) return -1;
    arm_ptr arm = registry_find(handle);
    if (!arm || load_public(arm->pub.arm_dof) == 0) return -1;
    // The singular wall and the free axes only mean something to a six-axis sensor.
    if (load_public(arm->pub.force_type) == KA_FORCE_TYPE_6F)
        return cmd::run(start_multi_drag_teach_new, handle,
                        {cmd::number("frame", param->frame),
                         cmd::number("singular_wall", param->singular_wall),
                         cmd::numbers("free_axes", param->free_axes, 6)});
    ka_log_warn("Non-six-dimensional force version, The configuration for singular_wall and the "
                "values in free_axes array are invalid.\n");
    return cmd::run(start_multi_drag_teach_new, handle, {cmd::number("frame", param->frame)});
}

// Written by hand: the replay's verdict comes only once the replay is over.
int ka_run_drag_trajectory(ka_robot_handle *handle, int timeout) {
    if (timeout < 0) {
        ka_log_error("[%s] timeout %d is negative\n", replay_function, timeout);
        return -1;
    }
    if (timeout == 0) return send_only(replay_function, handle, replay_command, {}, 0);
    // Read directly, the verdict is the answer to the command; filed by the
    // receive thread, the replay is followed until it ends.
    if (wait::current_reader().direct)
        return cmd::run(cmd::set_command{replay_function, replay_command, replay_command,
                                         "run_state", cmd::seconds_to_ms(timeout)},
                        handle);
    return replay_threaded(handle, cmd::seconds_to_ms(timeout));
}

// Written by hand: the force target is converted per axis first.
int ka_set_force_position_new(ka_robot_handle *handle, const ka_force_position_t *param) {
    if (!param) return -1;
    force_target t =
        force_target_to_wire(param->control_mode, param->desired_force, param->limit_vel);
    return set_force_position_new(
        handle, param->mode, param->sensor, static_cast<const int *>(t.desired_force),
        static_cast<const int *>(t.control_mode), static_cast<const int *>(t.limit_vel));
}

// Written by hand: the flag picks the target, joints scaled in single precision.
int ka_force_position_move(ka_robot_handle *handle, ka_force_position_move_t param) {
    constexpr const char *function = "ka_force_position_move";
    // flag 1: the target is the pose; 0: the joints. No other target exists.
    if (param.flag != 0 && param.flag != 1) {
        ka_log_error("[%s] target flag %d is not 0 or 1\n", function, param.flag);
        return -1;
    }
    cmd::wire_target target{};
    if (param.flag == 1) {
        target = cmd::pose_target(param.pose);
    } else {
        int dof = cmd::arm_dof(handle);
        if (!dof) return cmd::disconnected(function);
        // Unlike the other joint arrays, these are scaled in single precision.
        target = {"joint", {}, dof};
        for (int i = 0; i < dof; ++i)
            target.v[i] = scale::thousandths(param.joint[i]);
    }
    force_target t = force_target_to_wire(param.control_mode, param.desired_force, param.limit_vel);
    return send_only(function, handle, passthrough_command,
                     {cmd::boolean("follow", param.follow), cmd::number("sensor", param.sensor),
                      cmd::number("mode", param.mode),
                      cmd::numbers("control_mode", t.control_mode, 6),
                      cmd::numbers("desired_force", t.desired_force, 6),
                      cmd::numbers("limit_vel", t.limit_vel, 6),
                      cmd::numbers(target.key, target.v, target.count)},
                     0);
}

} // extern "C"
