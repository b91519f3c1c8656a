#include "sim/arm.h"

#include "sim/json.h"
#include "sim/motion_path.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {

namespace {

constexpr double k_pi = 3.14159265358979323846;

// Tool speed and acceleration at v = 100; a path runs no faster than these,
// scaled by v, nor than any joint's own limits allow along it.
constexpr double k_tool_speed = 1.0;           // m/s
constexpr double k_tool_turn_speed = k_pi;     // rad/s (180 degrees/s)
constexpr double k_tool_acc = 2.5;             // m/s^2
constexpr double k_tool_turn_acc = 2.0 * k_pi; // rad/s^2
// Teaching speeds at v = 100 (joints teach at their own speed limits).
constexpr double k_teach_speed = 0.25;          // m/s
constexpr double k_teach_turn_speed = k_pi / 6; // rad/s
constexpr double k_teach_ramp_s = 0.2;          // to full teach speed and back to rest
constexpr double k_pause_ramp_s = 0.2;          // pause: full speed to rest along the path
constexpr double k_slow_stop_s = 0.3;           // slow stop: full speed to rest
// A stream that sends nothing for this long (or five of its periods) has
// ended once the arm has reached its last target.
constexpr double k_stream_idle_s = 0.2;
constexpr double k_stream_first_period_s = 0.01;
constexpr double k_stream_min_period_s = 0.002, k_stream_max_period_s = 0.1;
// Path sampling: at most this far (metres, radians) between samples, and
// the largest joint change (degrees) between two samples that still counts
// as one continuous solution (more means a singularity or a branch flip).
constexpr double k_sample_spacing = 0.002, k_sample_turn = 0.01;
constexpr int k_min_samples = 16, k_max_samples = 300;
constexpr double k_max_sample_jump_deg = 10.0;
// A solution per cycle further than this (degrees) from the planned samples
// is taken for another branch, and the samples are followed instead.
constexpr double k_max_cycle_drift_deg = 5.0;

mat4 frame_matrix(const frame &f) {
    return pose_matrix({f.pose[0], f.pose[1], f.pose[2]}, {f.pose[3], f.pose[4], f.pose[5]});
}

double largest_gap(const joint_array &a, const joint_array &b, int dof) {
    double gap = 0;
    for (int j = 0; j < dof; ++j)
        gap = std::max(gap, std::fabs(a[j] - b[j]));
    return gap;
}

const char *kind_name(motion_kind kind) {
    switch (kind) {
    case motion_kind::movej:
        return "movej";
    case motion_kind::movel:
        return "movel";
    case motion_kind::movec:
        return "movec";
    case motion_kind::moves:
        return "moves";
    }
    return "none";
}

const char *kind_status(motion_kind kind) {
    switch (kind) {
    case motion_kind::movej:
        return "move_J";
    case motion_kind::movel:
        return "move_L";
    case motion_kind::movec:
        return "move_C";
    case motion_kind::moves:
        return "move_S";
    }
    return "idle";
}

// Rotation about (or translation along) axis 0, 1, 2 = x, y, z.
mat4 axis_motion(teach_axis kind, int axis, double amount) {
    std::array<double, 3> zero{}, delta{};
    delta[axis] = amount;
    return kind == teach_axis::position ? pose_matrix(delta, zero) : pose_matrix(zero, delta);
}

} // namespace

std::string completion_report(const motion_end &end) {
    json_ptr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "state", "current_trajectory_state");
    cJSON_AddBoolToObject(root.get(), "trajectory_state", end.completed);
    cJSON_AddNumberToObject(root.get(), "device", end.device);
    cJSON_AddNumberToObject(root.get(), "trajectory_connect", end.connect);
    return json_print(root.get());
}

// One planned motion. Its progress s runs 0..1 on a trapezoidal profile in
// the motion clock; joint moves interpolate the joints, the others follow
// their tool path through the inverse kinematics.
struct arm::motion {
    motion_kind kind = motion_kind::movej;
    int v = 100, r = 0, connect = 0, loop = 0;
    joint_array start{}, target{};
    std::vector<path_pose> poses; // path targets: movel 1, movec via and to, moves all points
    std::optional<cartesian_path> path;
    std::vector<joint_array> samples; // joints at s = i / (n - 1)
    std::vector<double> knot_reports; // s where a connected spline point is passed
    std::size_t knots_reported = 0;
    double duration = 0, peak = 1, acc = 1; // of s, per second of the motion clock
    double queued_at = 0;                   // simulated seconds
    bool started = false;
    double t0 = 0;       // motion clock at the start
    double earliest = 0; // motion clock before which it cannot start
    joint_array last{};
};

struct arm::teach_state {
    teach_axis kind;
    int axis;
    double sign;
    int v;
    double rate = 0; // 0..1 of the teach speed
    bool stopping = false;
};

struct arm::stream_state {
    joint_array from{}, to{};
    double received_at = 0, period = k_stream_first_period_s;
    bool smooth = false, pose = false;
};

struct arm::spline_chain {
    joint_array start{}, last{};
    std::vector<path_pose> points;
    int v = 100, r = 0;
};

arm::arm(arm_traits traits) : traits_(std::move(traits)) {
    limits.min_deg = traits_.min_deg;
    limits.max_deg = traits_.max_deg;
    limits.max_speed_deg = traits_.max_speed_deg;
    limits.max_acc_deg = traits_.max_acc_deg;
}

arm::~arm() = default;

mat4 arm::tool_matrix(const joint_array &joints) const {
    const mat4 in_base =
        multiply(flange_matrix(traits_, joints), frame_matrix(frames.current_tool()));
    return multiply(rigid_inverse(frame_matrix(frames.current_work())), in_base);
}

flange_pose arm::tool_pose(const joint_array &joints) const { return pose_of(tool_matrix(joints)); }

std::optional<joint_array> arm::joints_for(const mat4 &target, const joint_array &seed) const {
    // flange = work * target * tool^-1
    const mat4 flange = multiply(multiply(frame_matrix(frames.current_work()), target),
                                 rigid_inverse(frame_matrix(frames.current_tool())));
    return inverse_kinematics(traits_, flange, seed);
}

// joints_for, each angle taken in the turn nearest the seed.
std::optional<joint_array> arm::solve(const mat4 &target, const joint_array &seed) const {
    auto q = joints_for(target, seed);
    if (!q) return q;
    for (int j = 0; j < traits_.dof; ++j)
        (*q)[j] = seed[j] + std::remainder((*q)[j] - seed[j], 360.0);
    return q;
}

bool arm::within_limits(const joint_array &joints) const {
    for (int j = 0; j < traits_.dof; ++j)
        if (!(joints[j] >= limits.min_deg[j] && joints[j] <= limits.max_deg[j])) return false;
    return true;
}

bool arm::busy() const { return !motions_.empty() || spline_ || teach_; }

joint_array arm::queue_end() const {
    if (spline_) return spline_->last;
    return motions_.empty() ? joints_ : motions_.back().target;
}

// Builds the tool path from where the motion starts and samples it through
// the inverse kinematics; false when a sample is out of reach, outside the
// joint limits or not continuous with its neighbour.
bool arm::plan_path(motion &m) const {
    const path_pose from = path_pose_of(tool_matrix(m.start));
    switch (m.kind) {
    case motion_kind::movel:
        m.path = cartesian_path::line(from, m.poses.at(0));
        break;
    case motion_kind::movec:
        m.path = cartesian_path::arc(from, m.poses.at(0), m.poses.at(1), m.loop);
        break;
    case motion_kind::moves: {
        std::vector<path_pose> points{from};
        points.insert(points.end(), m.poses.begin(), m.poses.end());
        m.path = cartesian_path::spline(points);
        break;
    }
    case motion_kind::movej:
        return false;
    }
    if (!m.path) return false;
    // Length and turn of the path, coarsely, to choose the sample count.
    double length = 0, turn = 0;
    path_pose previous = m.path->at(0);
    for (int i = 1; i <= 64; ++i) {
        const path_pose p = m.path->at(i / 64.0);
        length +=
            std::hypot(p.position[0] - previous.position[0], p.position[1] - previous.position[1],
                       p.position[2] - previous.position[2]);
        turn += turn_between(p.orientation, previous.orientation);
        previous = p;
    }
    const int n = std::clamp(
        static_cast<int>(std::ceil(std::max(length / k_sample_spacing, turn / k_sample_turn))),
        k_min_samples, k_max_samples);
    m.samples.assign(1, m.start);
    for (int i = 1; i <= n; ++i) {
        const auto q = solve(matrix_of(m.path->at(static_cast<double>(i) / n)), m.samples.back());
        if (!q || !within_limits(*q) ||
            largest_gap(*q, m.samples.back(), traits_.dof) > k_max_sample_jump_deg)
            return false;
        m.samples.push_back(*q);
    }
    m.target = m.samples.back();
    m.knot_reports.clear();
    const auto &knots = m.path->knots();
    if (m.kind == motion_kind::moves)
        for (std::size_t k = 1; k + 1 < knots.size(); ++k)
            m.knot_reports.push_back(knots[k]);
    return true;
}

// The peak rate and acceleration of s that keep every joint within its
// limits and the tool within its own, all scaled by v; then the trapezoid.
void arm::time_profile(motion &m) const {
    const double scale = m.v / 100.0;
    double peak = std::numeric_limits<double>::infinity();
    double acc = peak;
    const auto bound = [&](double per_s, double speed_limit, double acc_limit) {
        if (per_s < 1e-12) return;
        peak = std::min(peak, speed_limit * scale / per_s);
        acc = std::min(acc, acc_limit * scale / per_s);
    };
    if (!m.path) {
        for (int j = 0; j < traits_.dof; ++j)
            bound(std::fabs(m.target[j] - m.start[j]), limits.max_speed_deg[j],
                  limits.max_acc_deg[j]);
    } else {
        const double ds = 1.0 / static_cast<double>(m.samples.size() - 1);
        path_pose previous = m.path->at(0);
        for (std::size_t i = 1; i < m.samples.size(); ++i) {
            for (int j = 0; j < traits_.dof; ++j)
                bound(std::fabs(m.samples[i][j] - m.samples[i - 1][j]) / ds,
                      limits.max_speed_deg[j], limits.max_acc_deg[j]);
            const path_pose p = m.path->at(static_cast<double>(i) * ds);
            bound(std::hypot(p.position[0] - previous.position[0],
                             p.position[1] - previous.position[1],
                             p.position[2] - previous.position[2]) /
                      ds,
                  k_tool_speed, k_tool_acc);
            bound(turn_between(p.orientation, previous.orientation) / ds, k_tool_turn_speed,
                  k_tool_turn_acc);
            previous = p;
        }
    }
    if (!std::isfinite(peak)) { // already there
        m.duration = 0;
        m.peak = m.acc = 1;
        return;
    }
    if (peak * peak / acc >= 1.0) { // never reaches the peak rate: a triangle
        m.duration = 2.0 * std::sqrt(1.0 / acc);
        m.peak = acc * m.duration / 2;
    } else {
        m.duration = 1.0 / peak + peak / acc;
        m.peak = peak;
    }
    m.acc = acc;
}

namespace {

double progress(double duration, double peak, double acc, double t) {
    if (t <= 0) return 0;
    if (t >= duration) return 1;
    const double ramp = peak / acc;
    if (t < ramp) return 0.5 * acc * t * t;
    if (t > duration - ramp) {
        const double left = duration - t;
        return 1.0 - 0.5 * acc * left * left;
    }
    return 0.5 * acc * ramp * ramp + peak * (t - ramp);
}

} // namespace

joint_array arm::joints_at(motion &m, double s) const {
    if (s >= 1.0) return m.target;
    joint_array q{};
    if (!m.path) {
        for (int j = 0; j < traits_.dof; ++j)
            q[j] = m.start[j] + s * (m.target[j] - m.start[j]);
        return q;
    }
    // The planned samples give the branch; the tool is put on the path
    // itself by solving at s, seeded with this motion's last joints.
    const double x = s * static_cast<double>(m.samples.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(x), m.samples.size() - 2);
    const double f = x - static_cast<double>(i);
    for (int j = 0; j < traits_.dof; ++j)
        q[j] = m.samples[i][j] + f * (m.samples[i + 1][j] - m.samples[i][j]);
    const auto solved = solve(matrix_of(m.path->at(s)), m.last);
    if (solved && largest_gap(*solved, q, traits_.dof) < k_max_cycle_drift_deg) q = *solved;
    m.last = q;
    return q;
}

bool arm::queue(motion m, double now) {
    if (m.v < 1 || m.v > 100 || m.r < 0 || (m.connect != 0 && m.connect != 1) || teach_)
        return false;
    stream_.reset(); // a planned motion takes over from a stream
    m.start = queue_end();
    m.last = m.start;
    m.queued_at = now;
    if (m.kind == motion_kind::movej) {
        if (!within_limits(m.target)) return false;
    } else if (!plan_path(m)) {
        return false;
    }
    time_profile(m);
    motions_.push_back(std::move(m));
    return true;
}

bool arm::flush_spline(double now, int connect) {
    if (!spline_) return true;
    const std::unique_ptr<spline_chain> chain = std::move(spline_);
    motion m;
    m.kind = motion_kind::moves;
    m.v = chain->v;
    m.r = chain->r;
    m.connect = connect;
    m.poses = chain->points;
    return queue(std::move(m), now);
}

bool arm::queue_movej(const joint_array &target, int v, int r, int connect, double now) {
    if (teach_ || !flush_spline(now, 1)) return false;
    motion m;
    m.target = target;
    m.v = v;
    m.r = r;
    m.connect = connect;
    return queue(std::move(m), now);
}

bool arm::queue_movej_p(const mat4 &target, int v, int r, int connect, double now) {
    if (teach_ || !flush_spline(now, 1)) return false;
    const auto joints = solve(target, queue_end());
    return joints && queue_movej(*joints, v, r, connect, now);
}

bool arm::queue_movel(const mat4 &target, int v, int r, int connect, double now) {
    if (teach_ || !flush_spline(now, 1)) return false;
    motion m;
    m.kind = motion_kind::movel;
    m.v = v;
    m.r = r;
    m.connect = connect;
    m.poses = {path_pose_of(target)};
    return queue(std::move(m), now);
}

bool arm::queue_movec(const mat4 &via, const mat4 &to, int v, int r, int loop, int connect,
                      double now) {
    if (teach_ || loop < 0 || !flush_spline(now, 1)) return false;
    motion m;
    m.kind = motion_kind::movec;
    m.v = v;
    m.r = r;
    m.loop = loop;
    m.connect = connect;
    m.poses = {path_pose_of(via), path_pose_of(to)};
    return queue(std::move(m), now);
}

bool arm::queue_moves(const mat4 &target, int v, int r, int connect, double now) {
    if (teach_ || v < 1 || v > 100 || r < 0 || (connect != 0 && connect != 1)) return false;
    const joint_array seed = queue_end();
    const auto joints = solve(target, seed);
    if (!joints || !within_limits(*joints)) return false;
    if (!spline_) {
        spline_ = std::make_unique<spline_chain>();
        spline_->start = seed;
    }
    spline_->points.push_back(path_pose_of(target));
    spline_->last = *joints;
    spline_->v = v;
    spline_->r = r;
    if (connect == 1) return true; // held until the chain's last point
    return flush_spline(now, 0);
}

bool arm::queue_joint_step(int joint, double degrees, int v, double now) {
    if (joint < 0 || joint >= traits_.dof || !std::isfinite(degrees)) return false;
    if (teach_ || !flush_spline(now, 1)) return false;
    joint_array target = queue_end();
    target[joint] += degrees;
    return queue_movej(target, v, 0, 0, now);
}

std::optional<mat4> arm::stepped(const joint_array &from, teach_axis kind, int axis,
                                 double amount) const {
    if (kind == teach_axis::joint || axis < 0 || axis > 2 || !std::isfinite(amount))
        return std::nullopt;
    const mat4 pose = tool_matrix(from);
    const mat4 delta = axis_motion(kind, axis, amount);
    if (teach_frame == 1) return multiply(pose, delta); // along/about the tool's own axes
    // Along/about the work frame's axes, turning about the tool's point.
    mat4 moved = multiply(delta, pose);
    for (int i = 0; i < 3; ++i)
        moved[i][3] = pose[i][3] + delta[i][3];
    return moved;
}

bool arm::queue_tool_step(teach_axis kind, int axis, double amount, int v, double now) {
    if (teach_ || !flush_spline(now, 1)) return false;
    const auto target = stepped(queue_end(), kind, axis, amount);
    return target && queue_movel(*target, v, 0, 0, now);
}

bool arm::start_teach(teach_axis kind, int axis, bool positive, int v, double) {
    if (busy() || v < 1 || v > 100) return false;
    if (axis < 0 || axis >= (kind == teach_axis::joint ? traits_.dof : 3)) return false;
    stream_.reset();
    teach_ = std::make_unique<teach_state>(teach_state{kind, axis, positive ? 1.0 : -1.0, v});
    return true;
}

bool arm::stop_teach() {
    if (teach_) teach_->stopping = true;
    return true;
}

void arm::step_teach(double dt) {
    teach_state &t = *teach_;
    const double change = dt / k_teach_ramp_s;
    t.rate = t.stopping ? std::max(0.0, t.rate - change) : std::min(1.0, t.rate + change);
    if (t.stopping && t.rate <= 0) {
        teach_.reset();
        return;
    }
    const double scale = t.v / 100.0 * t.rate * t.sign;
    joint_array q = joints_;
    if (t.kind == teach_axis::joint) {
        q[t.axis] += limits.max_speed_deg[t.axis] * scale * dt;
        if (!within_limits(q)) { // stops at the limit
            q[t.axis] = std::clamp(q[t.axis], limits.min_deg[t.axis], limits.max_deg[t.axis]);
            teach_.reset();
        }
        joints_ = q;
        return;
    }
    const double speed = t.kind == teach_axis::position ? k_teach_speed : k_teach_turn_speed;
    const auto target = stepped(joints_, t.kind, t.axis, speed * scale * dt);
    const auto solved = target ? solve(*target, joints_) : std::nullopt;
    bool ok = solved && within_limits(*solved);
    for (int j = 0; ok && j < traits_.dof; ++j)
        ok = std::fabs((*solved)[j] - joints_[j]) <= limits.max_speed_deg[j] * dt;
    if (!ok) { // out of reach, at a limit or too fast near a singularity: stop here
        teach_.reset();
        return;
    }
    joints_ = *solved;
}

void arm::stream_joints(const joint_array &target, bool smooth, double now) {
    if (!motions_.empty() || spline_ || teach_ || !within_limits(target)) return;
    if (!stream_) {
        stream_ = std::make_unique<stream_state>();
        stream_->from = joints_;
    } else {
        const double u = std::clamp((now - stream_->received_at) / stream_->period, 0.0, 1.0);
        for (int j = 0; j < traits_.dof; ++j)
            stream_->from[j] += u * (stream_->to[j] - stream_->from[j]);
        stream_->period =
            std::clamp(now - stream_->received_at, k_stream_min_period_s, k_stream_max_period_s);
    }
    stream_->to = target;
    stream_->received_at = now;
    stream_->smooth = smooth;
    stream_->pose = false;
}

void arm::stream_pose(const mat4 &target, bool smooth, double now) {
    if (!motions_.empty() || spline_ || teach_) return;
    const auto joints = solve(target, stream_ ? stream_->to : joints_);
    if (!joints) return;
    stream_joints(*joints, smooth, now);
    if (stream_) stream_->pose = true;
}

void arm::step_stream(double now, double dt) {
    stream_state &st = *stream_;
    const double u = std::clamp((now - st.received_at) / st.period, 0.0, 1.0);
    for (int j = 0; j < traits_.dof; ++j) {
        const double commanded = st.from[j] + u * (st.to[j] - st.from[j]);
        double step = commanded - joints_[j];
        if (st.smooth) step *= std::min(1.0, dt / st.period);
        const double most = limits.max_speed_deg[j] * dt;
        joints_[j] += std::clamp(step, -most, most);
    }
    const bool quiet = now - st.received_at > std::max(k_stream_idle_s, 5 * st.period);
    if (quiet && largest_gap(joints_, st.to, traits_.dof) < 1e-3) {
        joints_ = st.to; // the filter's tail, closed
        stream_.reset();
    }
}

double arm::tau_at(double now) const {
    return std::max(prev_tau_, tau_ - std::max(0.0, last_now_ - now) * rate_);
}

bool arm::start(motion &m, double tau) {
    m.started = true;
    m.t0 = tau;
    if (largest_gap(m.start, joints_, traits_.dof) < 1e-9) return true;
    // The arm is not where the motion was planned from (a motion before it
    // was dropped): plan again from here.
    m.start = joints_;
    m.last = joints_;
    if (m.kind == motion_kind::movej) {
        time_profile(m);
        return true;
    }
    if (!plan_path(m)) return false;
    time_profile(m);
    return true;
}

std::vector<motion_end> arm::advance(double now) {
    std::vector<motion_end> ended;
    const double t = std::max(now, last_now_);
    const double dt = t - last_now_;
    last_now_ = t;
    const double rate_before = rate_;
    if (rate_ != rate_goal_) {
        const double change = dt / (slow_stopping_ ? k_slow_stop_s : k_pause_ramp_s);
        rate_ = rate_goal_ < rate_ ? std::max(rate_goal_, rate_ - change)
                                   : std::min(rate_goal_, rate_ + change);
    }
    prev_tau_ = tau_;
    tau_ += dt * (rate_before + rate_) / 2;
    const joint_array before = joints_;

    if (slow_stopping_ && rate_ <= 0) {
        ended = stop(now);
    } else if (teach_) {
        step_teach(dt);
    } else if (stream_) {
        step_stream(t, dt);
    } else {
        while (!motions_.empty()) {
            motion &m = motions_.front();
            if (!m.started && !start(m, std::max(m.earliest, tau_at(m.queued_at)))) {
                ended.push_back({false, m.connect});
                arm_err = k_arm_err_path_unreachable;
                motions_.pop_front();
                continue;
            }
            // A blended successor starts during this motion's deceleration.
            if (motions_.size() > 1 && m.connect == 1 && m.r > 0 && !motions_[1].started) {
                motion &next = motions_[1];
                const double overlap = std::min(
                    {m.peak / m.acc, next.peak / next.acc, m.duration / 2, next.duration / 2});
                const double begin = m.t0 + m.duration - overlap;
                if (tau_ >= begin) {
                    next.started = true;
                    next.t0 = std::max(begin, tau_at(next.queued_at));
                }
            }
            const double s = progress(m.duration, m.peak, m.acc, tau_ - m.t0);
            while (m.knots_reported < m.knot_reports.size() &&
                   s >= m.knot_reports[m.knots_reported]) {
                ended.push_back({true, 1});
                ++m.knots_reported;
            }
            if (tau_ - m.t0 < m.duration) break;
            ended.push_back({true, m.connect});
            joints_ = m.target; // exactly the planned end
            const double end = m.t0 + m.duration;
            motions_.pop_front();
            // A connected motion starts where and when the one before ended.
            if (!motions_.empty()) motions_.front().earliest = end;
        }
        if (!motions_.empty()) {
            // The front motion, plus what blended successors have added.
            motion &front = motions_.front();
            joint_array q =
                joints_at(front, progress(front.duration, front.peak, front.acc, tau_ - front.t0));
            for (std::size_t k = 1; k < motions_.size() && motions_[k].started; ++k) {
                motion &n = motions_[k];
                const joint_array qn =
                    joints_at(n, progress(n.duration, n.peak, n.acc, tau_ - n.t0));
                for (int j = 0; j < traits_.dof; ++j)
                    q[j] += qn[j] - n.start[j];
            }
            joints_ = q;
        }
    }
    for (int j = 0; j < traits_.dof; ++j)
        speeds_[j] = dt > 0 ? (joints_[j] - before[j]) / dt : 0.0;
    return ended;
}

void arm::clear_motions() {
    motions_.clear();
    spline_.reset();
    paused_ = slow_stopping_ = false;
    rate_ = rate_goal_ = 1;
}

std::vector<motion_end> arm::stop(double now) {
    // Motions that finished before the stop are reported as finished.
    std::vector<motion_end> ended =
        slow_stopping_ && rate_ <= 0 ? std::vector<motion_end>{} : advance(now);
    if (!motions_.empty() || spline_) ended.push_back({false, 0});
    clear_motions();
    teach_.reset();
    stream_.reset();
    speeds_.fill(0);
    return ended;
}

void arm::slow_stop() {
    if (teach_) stop_teach();
    stream_.reset();
    if (motions_.empty()) {
        spline_.reset();
        return;
    }
    slow_stopping_ = true;
    rate_goal_ = 0;
}

void arm::pause() {
    if (motions_.empty()) return;
    paused_ = true;
    rate_goal_ = 0;
}

void arm::resume() {
    paused_ = false;
    if (!slow_stopping_) rate_goal_ = 1;
}

bool arm::delete_current(std::vector<motion_end> &ended) {
    if (motions_.empty()) return true;
    if (!paused_) return false;
    ended.push_back({false, motions_.front().connect});
    motions_.pop_front();
    // A successor that had begun blending in starts again from here.
    if (!motions_.empty()) motions_.front().started = false;
    return true;
}

bool arm::delete_all(std::vector<motion_end> &ended) {
    if (!motions_.empty() && !paused_) return false;
    if (!motions_.empty() || spline_) ended.push_back({false, 0});
    clear_motions();
    return true;
}

arm_sample arm::sample() const {
    arm_sample s;
    s.joints = joints_;
    s.speeds = speeds_;
    if (teach_) {
        const bool joint = teach_->kind == teach_axis::joint;
        s.trajectory = joint ? "movej" : "movel";
        s.status = joint ? "move_J" : "move_L";
        s.pose_kind = !joint;
    } else if (stream_) {
        s.status = stream_->pose ? "move_through_pose" : "move_through_joint";
    } else if (!motions_.empty()) {
        const motion_kind kind = motions_.front().kind;
        s.trajectory = kind_name(kind);
        s.pose_kind = kind != motion_kind::movej;
        s.status = paused_ ? "pause" : slow_stopping_ ? "slow_stop" : kind_status(kind);
    }
    return s;
}

} // namespace sim
