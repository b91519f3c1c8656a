#include "sim/arm.h"

#include "sim/json.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {

std::string completion_report(const motion_end &end) {
    json_ptr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "state", "current_trajectory_state");
    cJSON_AddBoolToObject(root.get(), "trajectory_state", end.completed);
    cJSON_AddNumberToObject(root.get(), "device", end.device);
    cJSON_AddNumberToObject(root.get(), "trajectory_connect", end.connect);
    return json_print(root.get());
}

arm::arm(arm_traits traits) : traits_(std::move(traits)) {
    limits.min_deg = traits_.min_deg;
    limits.max_deg = traits_.max_deg;
    limits.max_speed_deg = traits_.max_speed_deg;
    limits.max_acc_deg = traits_.max_acc_deg;
}

namespace {

mat4 frame_matrix(const frame &f) {
    return pose_matrix({f.pose[0], f.pose[1], f.pose[2]}, {f.pose[3], f.pose[4], f.pose[5]});
}

} // namespace

flange_pose arm::tool_pose(const joint_array &joints) const {
    const mat4 in_base =
        multiply(flange_matrix(traits_, joints), frame_matrix(frames.current_tool()));
    return pose_of(multiply(rigid_inverse(frame_matrix(frames.current_work())), in_base));
}

std::optional<joint_array> arm::joints_for(const mat4 &target, const joint_array &seed) const {
    // flange = work * target * tool^-1
    const mat4 flange = multiply(multiply(frame_matrix(frames.current_work()), target),
                                 rigid_inverse(frame_matrix(frames.current_tool())));
    return inverse_kinematics(traits_, flange, seed);
}

bool arm::within_limits(const joint_array &joints) const {
    for (int j = 0; j < traits_.dof; ++j)
        if (joints[j] < limits.min_deg[j] || joints[j] > limits.max_deg[j]) return false;
    return true;
}

bool arm::queue_movej(const joint_array &target, int v, int connect, double now) {
    if (v < 1 || v > 100 || !within_limits(target)) return false;
    motion m;
    m.target = target;
    m.v = v;
    m.connect = connect;
    if (motions_.empty()) plan(m, now);
    motions_.push_back(m);
    return true;
}

// All joints share one normalised profile, so they start and arrive together
// and each stays within its own limits scaled by v.
void arm::plan(motion &m, double start_time) {
    m.planned = true;
    m.start = joints_;
    m.start_time = start_time;
    double peak = std::numeric_limits<double>::infinity();
    double acc = std::numeric_limits<double>::infinity();
    const double scale = m.v / 100.0;
    for (int j = 0; j < traits_.dof; ++j) {
        const double distance = std::fabs(m.target[j] - m.start[j]);
        if (distance < 1e-9) continue;
        peak = std::min(peak, limits.max_speed_deg[j] * scale / distance);
        acc = std::min(acc, limits.max_acc_deg[j] * scale / distance);
    }
    if (!std::isfinite(peak)) { // already there
        m.duration = 0;
        m.peak = m.acc = 1;
        return;
    }
    if (peak * peak / acc >= 1.0) { // never reaches the peak rate: triangle
        m.duration = 2.0 * std::sqrt(1.0 / acc);
        m.peak = acc * m.duration / 2;
    } else {
        m.duration = 1.0 / peak + peak / acc;
        m.peak = peak;
    }
    m.acc = acc;
}

double arm::progress(const motion &m, double t, double *rate) {
    const double ramp = m.peak / m.acc;
    if (t <= 0) {
        *rate = 0;
        return 0;
    }
    if (t >= m.duration) {
        *rate = 0;
        return 1;
    }
    if (t < ramp) {
        *rate = m.acc * t;
        return 0.5 * m.acc * t * t;
    }
    if (t > m.duration - ramp) {
        const double left = m.duration - t;
        *rate = m.acc * left;
        return 1.0 - 0.5 * m.acc * left * left;
    }
    *rate = m.peak;
    return 0.5 * m.acc * ramp * ramp + m.peak * (t - ramp);
}

std::vector<motion_end> arm::advance(double now) {
    std::vector<motion_end> ended;
    speeds_.fill(0);
    while (!motions_.empty()) {
        motion &m = motions_.front();
        if (!m.planned) plan(m, now);
        const double t = now - m.start_time;
        if (t >= m.duration) {
            joints_ = m.target; // exactly the commanded angles
            ended.push_back({true, m.connect});
            const double end_time = m.start_time + m.duration;
            motions_.pop_front();
            // A connected motion starts where and when the previous one ended.
            if (!motions_.empty()) plan(motions_.front(), end_time);
            continue;
        }
        double rate = 0;
        const double s = progress(m, t, &rate);
        for (int j = 0; j < traits_.dof; ++j) {
            joints_[j] = m.start[j] + s * (m.target[j] - m.start[j]);
            speeds_[j] = rate * (m.target[j] - m.start[j]);
        }
        break;
    }
    return ended;
}

std::vector<motion_end> arm::stop(double now) {
    // Motions that finished before the stop are reported as finished.
    std::vector<motion_end> ended = advance(now);
    if (!motions_.empty()) {
        ended.push_back({false, 0});
        motions_.clear();
    }
    speeds_.fill(0);
    return ended;
}

arm_sample arm::sample() const {
    arm_sample s;
    s.joints = joints_;
    s.speeds = speeds_;
    if (!motions_.empty()) {
        s.trajectory = "movej";
        s.status = "move_J";
    }
    return s;
}

} // namespace sim
