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

// A calibration command: with block, the controller's verdict on "set_state"
// within 30 s; without, sent only.
int calibrate(const char *function, ka_robot_handle *handle, const char *command,
              std::initializer_list<ka_request_field> fields, bool block) {
    if (!block) return send_only(function, handle, command, fields, sent_only_pause_ms);
    // A verdict left unread by an earlier call without block must not stand
    // for this calibration.
    cmd::forget(handle, calibration_reply);
    return cmd::run(
        cmd::set_command{function, command, calibration_reply, "set_state", calibration_timeout_ms},
        handle, fields);
}

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
constexpr auto set_force_position = cmd::set<"set_force_position">("set_state");
constexpr auto set_force_position_new =
    cmd::set<"set_force_position", "ka_set_force_position_new">("set_state");
constexpr auto stop_force_position = cmd::set<"stop_force_position">("stop_state");
constexpr auto start_force_position_move =
    cmd::set<"Start_Force_Position_Move", "ka_start_force_position_move">("set_state");
constexpr auto stop_force_position_move =
    cmd::set<"Stop_Force_Position_Move", "ka_stop_force_position_move">("set_state");

constexpr const char *sensitivity_key = "grade";

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

// ---------------------------------------------------------------- sensors

int ka_get_force_data(ka_robot_handle *handle, ka_force_data_t *data) {
    if (!data) return -1;
    ka_reply_field fields[] = {
        cmd::ints_field("force_data", 6), cmd::ints_field("zero_force_data", 6),
        cmd::ints_field("work_zero_force_data", 6), cmd::ints_field("tool_zero_force_data", 6)};
    cmd::query_result r =
        cmd::read({"ka_get_force_data", "get_force_data", "get_force_data"}, handle, fields);
    if (r.status != 0) return r.status;
    float *out[] = {data->force_data, data->zero_force_data, data->work_zero_force_data,
                    data->tool_zero_force_data};
    for (int f = 0; f < 4; ++f)
        cmd::put_joints(out[f], fields[f], 6, scale::from_thousandths);
    return 0;
}

int ka_clear_force_data(ka_robot_handle *handle) { return clear_force_data(handle); }

int ka_set_force_sensor(ka_robot_handle *handle, bool block) {
    return calibrate("ka_set_force_sensor", handle, "set_force_sensor", {}, block);
}

int ka_manual_set_force(ka_robot_handle *handle, int type, float *joint, bool block) {
    constexpr const char *function = "ka_manual_set_force";
    static constexpr const char *postures[] = {"manual_set_force_pose1", "manual_set_force_pose2",
                                               "manual_set_force_pose3", "manual_set_force_pose4"};
    if (type < 1 || type > 4) {
        ka_log_error("[%s] posture type %d is not 1, 2, 3 or 4\n", function, type);
        return -1;
    }
    if (!joint) return -1;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(function);
    cmd::wire_joints wire = cmd::joints_to_wire(joint, dof);
    // Only the last posture is answered; the first three are taken in silence.
    return calibrate(function, handle, postures[type - 1],
                     {cmd::numbers("joint", wire.v, wire.count)}, block && type == 4);
}

int ka_stop_set_force_sensor(ka_robot_handle *handle) { return stop_set_force_sensor(handle); }

int ka_get_Fz(ka_robot_handle *handle, ka_fz_data_t *data) {
    if (!data) return -1;
    // Only arms reporting the six-axis sensor are asked.
    ka_robot_info_t info{};
    if (ka_get_robot_info(handle, &info) != 0 || info.force_type != KA_FORCE_TYPE_6F) {
        ka_log_error("arm force type check err!");
        return -2;
    }
    ka_reply_field fields[] = {cmd::int_field("Fz"), cmd::int_field("zero_Fz"),
                               cmd::int_field("work_zero_Fz"), cmd::int_field("tool_zero_Fz")};
    cmd::query_result r = cmd::read({"ka_get_Fz", "get_Fz", "get_Fz"}, handle, fields);
    if (r.status != 0) return r.status;
    data->Fz = scale::from_thousandths(fields[0].value.i);
    data->zero_Fz = scale::from_thousandths(fields[1].value.i);
    data->work_zero_Fz = scale::from_thousandths(fields[2].value.i);
    data->tool_zero_Fz = scale::from_thousandths(fields[3].value.i);
    return 0;
}

int ka_clear_Fz(ka_robot_handle *handle) { return clear_fz(handle); }

int ka_auto_set_Fz(ka_robot_handle *handle, bool block) {
    return calibrate("ka_auto_set_Fz", handle, "auto_set_Fz", {}, block);
}

int ka_manual_set_Fz(ka_robot_handle *handle, float *joint1, float *joint2, bool block) {
    constexpr const char *function = "ka_manual_set_Fz";
    if (!joint1 || !joint2) return -1;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(function);
    cmd::wire_joints first = cmd::joints_to_wire(joint1, dof);
    cmd::wire_joints second = cmd::joints_to_wire(joint2, dof);
    return calibrate(function, handle, "manual_set_Fz",
                     {cmd::numbers("pose1", first.v, first.count),
                      cmd::numbers("pose2", second.v, second.count)},
                     block);
}

// ---------------------------------------------------------- drag teaching

int ka_start_drag_teach(ka_robot_handle *handle, int trajectory_record) {
    return start_drag_teach(handle, trajectory_record);
}

int ka_stop_drag_teach(ka_robot_handle *handle) { return stop_drag_teach(handle); }

int ka_start_multi_drag_teach(ka_robot_handle *handle, int mode, int singular_wall) {
    return start_multi_drag_teach(handle, mode, singular_wall);
}

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

int ka_set_drag_teach_sensitivity(ka_robot_handle *handle, int grade) {
    return ka_set_data_common(handle, grade, "set_drag_teach_sensitivity", sensitivity_key);
}

int ka_get_drag_teach_sensitivity(ka_robot_handle *handle, int *grade) {
    return ka_get_data_common(handle, grade, "get_drag_teach_sensitivity", sensitivity_key);
}

int ka_drag_trajectory_origin(ka_robot_handle *handle, int block) {
    constexpr const char *function = "ka_drag_trajectory_origin";
    // The way to the first recorded point runs as a joint move.
    static constexpr wait::policy origin_wait = wait::queried_motion(function, KA_TRAJECTORY_MOVEJ);
    wait::session session(handle, origin_wait, block != 0);
    int sent = send_only(function, handle, "drag_trajectory_origin", {}, sent_only_pause_ms);
    if (sent != 0) return sent;
    if (!block) return 0;
    return session.wait(block, 0);
}

int ka_run_drag_trajectory(ka_robot_handle *handle, int timeout) {
    if (timeout < 0) {
        ka_log_error("[%s] timeout %d is negative\n", replay_function, timeout);
        return -1;
    }
    if (timeout == 0) return send_only(replay_function, handle, replay_command, {}, 0);
    // The verdict comes only once the replay is over. Read directly, it is
    // the answer to the command; filed by the receive thread, the replay is
    // followed until it ends.
    if (wait::current_reader().direct)
        return cmd::run(cmd::set_command{replay_function, replay_command, replay_command,
                                         "run_state", cmd::seconds_to_ms(timeout)},
                        handle);
    return replay_threaded(handle, cmd::seconds_to_ms(timeout));
}

int ka_pause_drag_trajectory(ka_robot_handle *handle) { return pause_drag_trajectory(handle); }
int ka_continue_drag_trajectory(ka_robot_handle *handle) {
    return continue_drag_trajectory(handle);
}
int ka_stop_drag_trajectory(ka_robot_handle *handle) { return stop_drag_trajectory(handle); }

// ------------------------------------------------- force-position control

int ka_set_force_position(ka_robot_handle *handle, int sensor, int mode, int direction, float N) {
    return cmd::run(set_force_position, handle,
                    {cmd::number("sensor", sensor), cmd::number("mode", mode),
                     cmd::number("direction", direction),
                     cmd::number("N", whole_newtons_in_tenths(N))});
}

int ka_set_force_position_new(ka_robot_handle *handle, const ka_force_position_t *param) {
    if (!param) return -1;
    force_target t =
        force_target_to_wire(param->control_mode, param->desired_force, param->limit_vel);
    return cmd::run(set_force_position_new, handle,
                    {cmd::number("mode", param->mode), cmd::number("sensor", param->sensor),
                     cmd::numbers("desired_force", t.desired_force, 6),
                     cmd::numbers("control_mode", t.control_mode, 6),
                     cmd::numbers("limit_vel", t.limit_vel, 6)});
}

int ka_stop_force_position(ka_robot_handle *handle) { return stop_force_position(handle); }
int ka_start_force_position_move(ka_robot_handle *handle) {
    return start_force_position_move(handle);
}
int ka_stop_force_position_move(ka_robot_handle *handle) {
    return stop_force_position_move(handle);
}

int ka_force_position_move_joint(ka_robot_handle *handle, const float *joint, int sensor, int mode,
                                 int dir, float force, bool follow) {
    constexpr const char *function = "ka_force_position_move_joint";
    if (!joint) return -1;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(function);
    cmd::wire_joints wire = cmd::joints_to_wire(joint, dof);
    return send_only(function, handle, passthrough_command,
                     {cmd::numbers("joint", wire.v, wire.count), cmd::boolean("follow", follow),
                      cmd::number("sensor", sensor), cmd::number("mode", mode),
                      cmd::number("dir", dir),
                      cmd::number("force", whole_newtons_in_tenths(force))},
                     0);
}

int ka_force_position_move_pose(ka_robot_handle *handle, ka_pose_t pose, int sensor, int mode,
                                int dir, float force, bool follow) {
    cmd::wire_target target = cmd::pose_target(pose);
    return send_only("ka_force_position_move_pose", handle, passthrough_command,
                     {cmd::boolean("follow", follow), cmd::number("sensor", sensor),
                      cmd::number("mode", mode), cmd::number("dir", dir),
                      cmd::number("force", whole_newtons_in_tenths(force)),
                      cmd::numbers(target.key, target.v, target.count)},
                     0);
}

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
