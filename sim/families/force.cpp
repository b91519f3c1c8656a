// Force sensor, drag teaching and force-position control.
//
// The sensor sits at the flange and feels the weight of what hangs below it:
// a tool plate of its own and the current tool's payload. Readings go out in
// thousandths of a newton (newton-metre); forces coming in are newtons x 10.
// The six-axis sensor answers the six-axis commands and the Fz commands
// (its Fz is the z force); the one-axis sensor only the Fz commands; an arm
// without a sensor answers none of them.
#include "sim/families/family.h"

#include <cmath>

namespace sim {

namespace {

constexpr double k_gravity = 9.80665; // m/s^2
// The plate between sensor and tool, always mounted.
constexpr double k_plate_kg = 0.6;
constexpr std::array<double, 3> k_plate_centre_m{0, 0, 0.025}; // flange frame
constexpr double k_newtons_per_wire_unit = 0.1;                // forces sent as newtons x 10

using vec3 = std::array<double, 3>;
using mat3 = std::array<vec3, 3>;

mat3 rotation(const mat4 &m) {
    mat3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r[i][j] = m[i][j];
    return r;
}
vec3 times(const mat3 &r, const vec3 &v) {
    vec3 out{};
    for (int i = 0; i < 3; ++i)
        out[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
    return out;
}
vec3 transposed_times(const mat3 &r, const vec3 &v) {
    vec3 out{};
    for (int i = 0; i < 3; ++i)
        out[i] = r[0][i] * v[0] + r[1][i] * v[1] + r[2][i] * v[2];
    return out;
}
vec3 cross(const vec3 &a, const vec3 &b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
// Both halves of a wrench turned by `turn` (a vector in -> a vector out).
template <class turn_fn> wrench turned(const wrench &w, turn_fn turn) {
    const vec3 f = turn(vec3{w[0], w[1], w[2]});
    const vec3 t = turn(vec3{w[3], w[4], w[5]});
    return {f[0], f[1], f[2], t[0], t[1], t[2]};
}
mat3 frame_rotation(const frame &f) {
    return rotation(pose_matrix({0, 0, 0}, {f.pose[3], f.pose[4], f.pose[5]}));
}

// The weight of `kg` at `centre` (sensor frame) with gravity `g` (sensor frame).
wrench weight(double kg, const vec3 &centre, const vec3 &g) {
    const vec3 f{kg * g[0], kg * g[1], kg * g[2]};
    const vec3 t = cross(centre, f);
    return {f[0], f[1], f[2], t[0], t[1], t[2]};
}

// The whole load below the sensor as one mass at one centre.
struct load {
    double kg = 0;
    vec3 centre{};
};
load mounted_load(const arm &a) {
    const frame &tool = a.frames.current_tool();
    const double kg = k_plate_kg + tool.payload_kg;
    vec3 centre{};
    for (int i = 0; i < 3; ++i)
        centre[i] = (k_plate_kg * k_plate_centre_m[i] + tool.payload_kg * tool.centre_m[i]) / kg;
    return {kg, centre};
}

wrench minus(const wrench &a, const wrench &b) {
    wrench out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = a[i] - b[i];
    return out;
}

std::vector<int> wire_wrench(const wrench &w) {
    std::vector<int> values;
    for (double v : w)
        values.push_back(to_milli(v));
    return values;
}

} // namespace

namespace {

// Noise amplitudes of the simulated sensor: forces in newtons, torques in
// newton-metres.
constexpr double k_force_noise_n = 0.05;
constexpr double k_torque_noise_nm = 0.005;

// Measuring noise, uniform in +-amplitude, the same for the same seed, control
// cycle and axis, so that a run is repeatable.
wrench sensor_noise(std::uint32_t seed, double clock) {
    wrench noise{};
    if (seed == 0) return noise;
    const auto cycle = static_cast<std::uint64_t>(clock / 0.005);
    for (std::size_t axis = 0; axis < noise.size(); ++axis) {
        // splitmix64 of (seed, cycle, axis)
        std::uint64_t x = (std::uint64_t{seed} << 32) ^ (cycle * 8 + axis);
        x += 0x9e3779b97f4a7c15ULL;
        x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
        x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
        x ^= x >> 31;
        const double unit = static_cast<double>(x >> 11) / 9007199254740992.0 * 2 - 1; // -1..1
        noise[axis] = unit * (axis < 3 ? k_force_noise_n : k_torque_noise_nm);
    }
    return noise;
}

} // namespace

force_readout read_force_sensor(const arm &a) {
    const mat3 flange = rotation(flange_matrix(a.traits(), a.sample().joints));
    // Gravity points down in the world; the base is mounted at the install pose.
    constexpr double radians_per_degree = 3.14159265358979323846 / 180.0;
    const auto &angles = a.frames.install_deg;
    const mat3 install = rotation(
        pose_matrix({0, 0, 0}, {angles[0] * radians_per_degree, angles[1] * radians_per_degree,
                                angles[2] * radians_per_degree}));
    const vec3 g_base = transposed_times(install, {0, 0, -k_gravity});
    const vec3 g_sensor = transposed_times(flange, g_base);

    const force_sensor_state &sensor = a.devices.sensor;
    const load mounted = mounted_load(a);
    force_readout out;
    out.raw = weight(mounted.kg, mounted.centre, g_sensor);
    const wrench noise = sensor_noise(sensor.noise_seed, a.clock());
    for (std::size_t axis = 0; axis < out.raw.size(); ++axis)
        out.raw[axis] += noise[axis];
    const wrench known =
        sensor.load_known ? weight(sensor.load_kg, sensor.load_centre_m, g_sensor) : wrench{};
    out.zeroed = minus(minus(out.raw, known), sensor.offset);
    const mat3 work = frame_rotation(a.frames.current_work());
    out.zeroed_work =
        turned(out.zeroed, [&](const vec3 &v) { return transposed_times(work, times(flange, v)); });
    const mat3 tool = frame_rotation(a.frames.current_tool());
    out.zeroed_tool = turned(out.zeroed, [&](const vec3 &v) { return transposed_times(tool, v); });
    return out;
}

namespace {

constexpr int k_fz = 2; // index of the z force in a wrench

bool has_sensor(const arm &a) { return a.traits().force_type != 0; }
bool has_six_axis(const arm &a) { return a.traits().force_type == 2; }

void no_sensor(cJSON *reply) { cJSON_AddStringToObject(reply, "error", "no force sensor"); }

// ------------------------------------------------------------ sensor

void force_data(const cJSON *, cJSON *reply, command_context &c) {
    if (!has_six_axis(c.target)) return no_sensor(reply);
    const force_readout r = read_force_sensor(c.target);
    json_add_ints(reply, "force_data", wire_wrench(r.raw));
    json_add_ints(reply, "zero_force_data", wire_wrench(r.zeroed));
    json_add_ints(reply, "work_zero_force_data", wire_wrench(r.zeroed_work));
    json_add_ints(reply, "tool_zero_force_data", wire_wrench(r.zeroed_tool));
}

// Zeroing: what the zeroed readings show now is taken off from then on.
void clear_force_data(const cJSON *, cJSON *reply, command_context &c) {
    const bool ok = has_six_axis(c.target);
    if (ok) {
        force_sensor_state &sensor = c.target.devices.sensor;
        const wrench left = read_force_sensor(c.target).zeroed; // already less the old offset
        for (std::size_t i = 0; i < sensor.offset.size(); ++i)
            sensor.offset[i] += left[i];
    }
    cJSON_AddBoolToObject(reply, "clear_state", ok);
}

// A calibration identifies the mounted load, so its weight is taken off the
// zeroed readings at every pose from then on, and clears the offset.
void calibrate(arm &a) {
    force_sensor_state &sensor = a.devices.sensor;
    const load mounted = mounted_load(a);
    sensor.load_known = true;
    sensor.load_kg = mounted.kg;
    sensor.load_centre_m = mounted.centre;
    sensor.offset = {};
    sensor.manual_poses = 0;
}

void set_force_sensor(const cJSON *, cJSON *reply, command_context &c) {
    const bool ok = has_six_axis(c.target);
    if (ok) calibrate(c.target);
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

bool joints_within_limits(const cJSON *request, const char *key, const arm &a) {
    const auto joints = json_ints(request, key, a.traits().dof);
    if (!joints) return false;
    joint_array target{};
    for (int j = 0; j < a.traits().dof; ++j)
        target[j] = (*joints)[j] / k_milli;
    return a.within_limits(target);
}

// Manual six-axis calibration: postures 1, 2, 3 and 4 in that order (1
// starts over). Postures 1 to 3 are not answered; 4 is answered with the
// calibration's result.
bool manual_pose(const cJSON *request, command_context &c, int number) {
    force_sensor_state &sensor = c.target.devices.sensor;
    const bool in_turn = number == 1 || sensor.manual_poses == number - 1;
    if (!has_six_axis(c.target) || !in_turn || !joints_within_limits(request, "joint", c.target)) {
        sensor.manual_poses = 0;
        return false;
    }
    sensor.manual_poses = number;
    return true;
}
template <int number> void manual_pose_silent(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    manual_pose(request, c, number);
}
void manual_pose_last(const cJSON *request, cJSON *reply, command_context &c) {
    const bool ok = manual_pose(request, c, 4);
    if (ok) calibrate(c.target);
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void stop_set_force_sensor(const cJSON *, cJSON *reply, command_context &c) {
    c.target.devices.sensor.manual_poses = 0;
    cJSON_AddBoolToObject(reply, "stop_state", has_sensor(c.target));
}

void fz(const cJSON *, cJSON *reply, command_context &c) {
    if (!has_sensor(c.target)) return no_sensor(reply);
    const force_readout r = read_force_sensor(c.target);
    cJSON_AddNumberToObject(reply, "Fz", to_milli(r.raw[k_fz]));
    cJSON_AddNumberToObject(reply, "zero_Fz", to_milli(r.zeroed[k_fz]));
    cJSON_AddNumberToObject(reply, "work_zero_Fz", to_milli(r.zeroed_work[k_fz]));
    cJSON_AddNumberToObject(reply, "tool_zero_Fz", to_milli(r.zeroed_tool[k_fz]));
}

void clear_fz(const cJSON *, cJSON *reply, command_context &c) {
    const bool ok = has_sensor(c.target);
    if (ok) c.target.devices.sensor.offset[k_fz] += read_force_sensor(c.target).zeroed[k_fz];
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void auto_set_fz(const cJSON *, cJSON *reply, command_context &c) {
    const bool ok = has_sensor(c.target);
    if (ok) calibrate(c.target);
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void manual_set_fz(const cJSON *request, cJSON *reply, command_context &c) {
    const bool ok = has_sensor(c.target) && joints_within_limits(request, "pose1", c.target) &&
                    joints_within_limits(request, "pose2", c.target);
    if (ok) calibrate(c.target);
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

// ------------------------------------------------------------ drag teaching

bool arm_moving(const arm &a) { return std::string(a.sample().trajectory) != "none"; }

// Hand guiding needs no sensor (the joints' currents are used); the arm must
// be still.
void start_drag(const cJSON *request, cJSON *reply, command_context &c) {
    drag_state &drag = c.target.devices.drag;
    const auto record = json_int(request, "trajectory_record");
    const bool ok = record && (*record == 0 || *record == 1) && !arm_moving(c.target);
    if (ok) {
        drag.teaching = true;
        drag.multi = false;
        drag.recording = *record == 1;
        if (drag.recording) drag.recorded = {c.target.sample().joints};
    }
    cJSON_AddBoolToObject(reply, "drag_teach", ok);
}

// The arm is guided by no hand here, so a recording holds where it began and
// where it ended.
void stop_drag(const cJSON *, cJSON *reply, command_context &c) {
    drag_state &drag = c.target.devices.drag;
    if (drag.teaching && drag.recording) {
        const joint_array now = c.target.sample().joints;
        if (drag.recorded.empty() || drag.recorded.back() != now) drag.recorded.push_back(now);
    }
    drag.teaching = drag.recording = drag.multi = false;
    cJSON_AddBoolToObject(reply, "drag_teach", true);
}

// Force-guided dragging along chosen axes: "mode" and "singular_wall", or
// "frame" with, on a six-axis sensor, "singular_wall" and "free_axes".
void start_multi_drag(const cJSON *request, cJSON *reply, command_context &c) {
    drag_state &drag = c.target.devices.drag;
    const auto mode = json_int(request, "mode");
    const auto frame = json_int(request, "frame");
    const auto wall = json_int(request, "singular_wall");
    const auto axes = json_ints(request, "free_axes", 6);
    const bool has_axes = cJSON_GetObjectItemCaseSensitive(request, "free_axes") != nullptr;
    bool ok = has_sensor(c.target) && !arm_moving(c.target) && (mode || frame) &&
              !(mode && !wall) && !(has_axes && !axes);
    if (ok && axes)
        for (int flag : *axes)
            ok = ok && (flag == 0 || flag == 1);
    if (ok) {
        drag.teaching = drag.multi = true;
        drag.recording = false;
        drag.mode = mode.value_or(0);
        drag.frame = frame.value_or(0);
        drag.singular_wall = wall.value_or(0);
        if (axes) std::copy(axes->begin(), axes->end(), drag.free_axes.begin());
    }
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void set_sensitivity(const cJSON *request, cJSON *reply, command_context &c) {
    const auto grade = json_int(request, "grade");
    const bool ok = grade && *grade >= 1 && *grade <= 100;
    if (ok) c.target.devices.drag.sensitivity = *grade;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void get_sensitivity(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "grade", c.target.devices.drag.sensitivity);
}

constexpr int k_replay_speed_percent = 20;

// Not answered; the move to the recording's first point ends with the arm's
// completion report, and a move that cannot be made is reported ended false.
void drag_origin(const cJSON *, cJSON *, command_context &c) {
    c.silent = true;
    const drag_state &drag = c.target.devices.drag;
    const bool ok =
        !drag.recorded.empty() && !drag.teaching &&
        c.target.queue_movej(drag.recorded.front(), k_replay_speed_percent, 0, 0, c.now);
    if (!ok) c.reports.push_back(completion_report({false, 0}));
}

bool at(const joint_array &a, const joint_array &b, int dof) {
    for (int j = 0; j < dof; ++j)
        if (std::fabs(a[j] - b[j]) > 1e-6) return false;
    return true;
}

// Replays from the first point, where the arm must stand.
void run_drag(const cJSON *, cJSON *reply, command_context &c) {
    drag_state &drag = c.target.devices.drag;
    const int dof = c.target.traits().dof;
    bool ok = !drag.recorded.empty() && !drag.teaching && !arm_moving(c.target) &&
              at(c.target.sample().joints, drag.recorded.front(), dof);
    for (std::size_t i = 1; ok && i < drag.recorded.size(); ++i) {
        const int connect = i + 1 < drag.recorded.size() ? 1 : 0;
        ok = c.target.queue_movej(drag.recorded[i], k_replay_speed_percent, 0, connect, c.now);
    }
    drag.replaying = ok;
    drag.paused = false;
    cJSON_AddBoolToObject(reply, "run_state", ok);
}

void pause_drag(const cJSON *, cJSON *reply, command_context &c) {
    c.target.devices.drag.paused = true;
    cJSON_AddBoolToObject(reply, "pause_state", true);
}

void continue_drag(const cJSON *, cJSON *reply, command_context &c) {
    c.target.devices.drag.paused = false;
    cJSON_AddBoolToObject(reply, "continue_state", true);
}

void stop_drag_trajectory(const cJSON *, cJSON *reply, command_context &c) {
    drag_state &drag = c.target.devices.drag;
    if (drag.replaying)
        for (const motion_end &end : c.target.stop(c.now))
            c.reports.push_back(completion_report(end));
    drag.replaying = drag.paused = false;
    cJSON_AddBoolToObject(reply, "stop_state", true);
}

// ------------------------------------------------------------ force-position control

std::optional<std::array<double, 6>> scaled_six(const cJSON *request, const char *key,
                                                double unit) {
    const auto values = json_ints(request, key, 6);
    if (!values) return std::nullopt;
    std::array<double, 6> out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = (*values)[i] * unit;
    return out;
}

// Two forms: one axis ("direction" 0..5 and "N"), or all six ("desired_force",
// "control_mode", "limit_vel" in thousandths).
void set_force_position(const cJSON *request, cJSON *reply, command_context &c) {
    force_position_state &fp = c.target.devices.force_position;
    const auto sensor = json_int(request, "sensor");
    const auto mode = json_int(request, "mode");
    bool ok = has_sensor(c.target) && sensor && mode;
    force_position_state next = fp;
    if (ok && cJSON_GetObjectItemCaseSensitive(request, "desired_force")) {
        const auto force = scaled_six(request, "desired_force", k_newtons_per_wire_unit);
        const auto control = json_ints(request, "control_mode", 6);
        const auto limit = scaled_six(request, "limit_vel", 1 / k_milli);
        ok = force && control && limit;
        if (ok) {
            next.desired_force_n = *force;
            std::copy(control->begin(), control->end(), next.control_mode.begin());
            next.limit_vel = *limit;
        }
    } else if (ok) {
        const auto direction = json_int(request, "direction");
        const auto newtons = json_int(request, "N");
        ok = direction && *direction >= 0 && *direction < 6 && newtons;
        if (ok) {
            next.direction = *direction;
            next.desired_force_n = {};
            next.desired_force_n[*direction] = *newtons * k_newtons_per_wire_unit;
        }
    }
    if (ok) {
        next.active = true;
        next.sensor = *sensor;
        next.mode = *mode;
        fp = next;
    }
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void stop_force_position(const cJSON *, cJSON *reply, command_context &c) {
    c.target.devices.force_position.active = false;
    cJSON_AddBoolToObject(reply, "stop_state", true);
}

void start_force_position_move(const cJSON *, cJSON *reply, command_context &c) {
    const bool ok = has_sensor(c.target);
    if (ok) {
        c.target.devices.force_position.streaming = true;
        c.target.devices.force_position.setpoints = 0;
    }
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void stop_force_position_move(const cJSON *, cJSON *reply, command_context &c) {
    c.target.devices.force_position.streaming = false;
    cJSON_AddBoolToObject(reply, "set_state", true);
}

// Streamed set points: never answered; counted while streaming when they
// carry a target ("joint", "pose" or "pose_quat").
void force_position_move(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    force_position_state &fp = c.target.devices.force_position;
    const bool target = json_ints(request, "joint", c.target.traits().dof) ||
                        json_ints(request, "pose", 6) || json_ints(request, "pose_quat", 7);
    if (fp.streaming && target) ++fp.setpoints;
}

void on_cycle(arm &target, double, report_list &) {
    drag_state &drag = target.devices.drag;
    if (drag.replaying && !arm_moving(target)) drag.replaying = drag.paused = false;
}

constexpr command_row rows[] = {
    {"get_force_data", "get_force_data", force_data},
    {"clear_force_data", "clear_force_data", clear_force_data},
    {"set_force_sensor", "set_force_sensor", set_force_sensor},
    {"manual_set_force_pose1", "manual_set_force_pose1", manual_pose_silent<1>},
    {"manual_set_force_pose2", "manual_set_force_pose2", manual_pose_silent<2>},
    {"manual_set_force_pose3", "manual_set_force_pose3", manual_pose_silent<3>},
    // The last posture is answered as the calibration that it completes.
    {"manual_set_force_pose4", "set_force_sensor", manual_pose_last},
    {"stop_set_force_sensor", "stop_set_force_sensor", stop_set_force_sensor},
    {"get_Fz", "get_Fz", fz},
    {"clear_Fz", "clear_Fz", clear_fz},
    {"auto_set_Fz", "set_force_sensor", auto_set_fz},
    {"manual_set_Fz", "set_force_sensor", manual_set_fz},
    {"start_drag_teach", "start_drag_teach", start_drag},
    {"stop_drag_teach", "stop_drag_teach", stop_drag},
    {"start_multi_drag_teach", "start_multi_drag_teach", start_multi_drag},
    {"set_drag_teach_sensitivity", "set_drag_teach_sensitivity", set_sensitivity},
    {"get_drag_teach_sensitivity", "get_drag_teach_sensitivity", get_sensitivity},
    {"drag_trajectory_origin", "drag_trajectory_origin", drag_origin},
    {"run_drag_trajectory", "run_drag_trajectory", run_drag},
    {"pause_drag_trajectory", "pause_drag_trajectory", pause_drag},
    {"continue_drag_trajectory", "continue_drag_trajectory", continue_drag},
    {"stop_drag_trajectory", "stop_drag_trajectory", stop_drag_trajectory},
    {"set_force_position", "set_force_position", set_force_position},
    {"stop_force_position", "stop_force_position", stop_force_position},
    {"Start_Force_Position_Move", "Start_Force_Position_Move", start_force_position_move},
    {"Stop_Force_Position_Move", "Stop_Force_Position_Move", stop_force_position_move},
    {"Force_Position_Move", "Force_Position_Move", force_position_move},
};

} // namespace

const family force_family{rows, on_cycle};

} // namespace sim
