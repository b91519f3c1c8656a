#include "sim/arm.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {

arm::arm(arm_traits traits) : traits_(std::move(traits)) {}

bool arm::within_limits(const joint_array &joints) const {
    for (int j = 0; j < traits_.dof; ++j)
        if (joints[j] < traits_.min_deg[j] || joints[j] > traits_.max_deg[j]) return false;
    return true;
}

bool arm::queue_movej(const joint_array &target, int v, int connect, double now) {
    if (v < 1 || v > 100 || !within_limits(target)) return false;
    std::lock_guard lock(mutex_);
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
        peak = std::min(peak, traits_.max_speed_deg[j] * scale / distance);
        acc = std::min(acc, traits_.max_acc_deg[j] * scale / distance);
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
    std::lock_guard lock(mutex_);
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
    std::lock_guard lock(mutex_);
    if (!motions_.empty()) {
        ended.push_back({false, 0});
        motions_.clear();
    }
    speeds_.fill(0);
    return ended;
}

arm_sample arm::sample() const {
    std::lock_guard lock(mutex_);
    arm_sample s;
    s.joints = joints_;
    s.speeds = speeds_;
    if (!motions_.empty()) {
        s.trajectory = "movej";
        s.status = "move_J";
    }
    return s;
}

push_config arm::push() const {
    std::lock_guard lock(mutex_);
    return push_;
}

void arm::set_push(const push_config &config) {
    std::lock_guard lock(mutex_);
    push_ = config;
}

} // namespace sim
