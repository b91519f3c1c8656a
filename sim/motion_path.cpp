#include "sim/motion_path.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double k_pi = 3.14159265358979323846;
// Below this a distance (metres) or a cross product is taken for zero.
constexpr double k_tiny = 1e-9;
// Pure turns count for the spacing of spline points as if the tool moved
// this far per radian, so a point that only turns still gets its share of s.
constexpr double k_metres_per_radian = 0.1;

vec3 minus(const vec3 &a, const vec3 &b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
vec3 plus(const vec3 &a, const vec3 &b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }
vec3 times(const vec3 &a, double k) { return {a[0] * k, a[1] * k, a[2] * k}; }
double dot(const vec3 &a, const vec3 &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
vec3 cross(const vec3 &a, const vec3 &b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double norm(const vec3 &a) { return std::sqrt(dot(a, a)); }

quaternion slerp(const quaternion &a, quaternion b, double t) {
    double c = a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
    if (c < 0) { // the short way round
        for (double &x : b)
            x = -x;
        c = -c;
    }
    quaternion q{};
    if (c > 0.9995) { // nearly equal: a normalised lerp is exact enough
        for (int i = 0; i < 4; ++i)
            q[i] = a[i] + t * (b[i] - a[i]);
    } else {
        const double angle = std::acos(std::min(c, 1.0));
        const double wa = std::sin((1 - t) * angle) / std::sin(angle);
        const double wb = std::sin(t * angle) / std::sin(angle);
        for (int i = 0; i < 4; ++i)
            q[i] = wa * a[i] + wb * b[i];
    }
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (double &x : q)
        x /= n;
    return q;
}

// The segment of `knots` that holds s, and s's fraction of it.
std::pair<std::size_t, double> segment_of(const std::vector<double> &knots, double s) {
    const std::size_t last = knots.size() - 2;
    std::size_t k = 0;
    while (k < last && s > knots[k + 1])
        ++k;
    const double span = knots[k + 1] - knots[k];
    return {k, span > 0 ? std::clamp((s - knots[k]) / span, 0.0, 1.0) : 1.0};
}

} // namespace

path_pose path_pose_of(const mat4 &m) {
    const flange_pose p = pose_of(m);
    return {p.position, p.quat};
}

mat4 matrix_of(const path_pose &pose) {
    const auto [w, x, y, z] = pose.orientation;
    return {{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y), pose.position[0]},
             {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x), pose.position[1]},
             {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y), pose.position[2]},
             {0, 0, 0, 1}}};
}

double turn_between(const quaternion &a, const quaternion &b) {
    const double c = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3]);
    return 2.0 * std::acos(std::min(c, 1.0));
}

std::optional<cartesian_path> cartesian_path::line(const path_pose &from, const path_pose &to) {
    if (norm(minus(to.position, from.position)) < k_tiny &&
        turn_between(from.orientation, to.orientation) < k_tiny)
        return std::nullopt;
    cartesian_path path;
    path.shape_ = shape::line;
    path.points_ = {from, to};
    path.knot_s_ = {0.0, 1.0};
    return path;
}

std::optional<cartesian_path> cartesian_path::arc(const path_pose &from, const path_pose &via,
                                                  const path_pose &to, int loop) {
    if (loop < 0) return std::nullopt;
    const vec3 ab = minus(via.position, from.position);
    const vec3 ac = minus(to.position, from.position);
    const vec3 n = cross(ab, ac);
    const double n2 = dot(n, n);
    if (n2 < k_tiny * k_tiny) return std::nullopt; // collinear: no circle
    // Circumcentre of the triangle from, via, to.
    const vec3 offset =
        times(cross(minus(times(ac, dot(ab, ab)), times(ab, dot(ac, ac))), n), 1.0 / (2.0 * n2));
    cartesian_path path;
    path.shape_ = shape::arc;
    path.centre_ = plus(from.position, offset);
    path.radius_ = norm(offset);
    path.u_ = times(offset, -1.0 / path.radius_);
    path.v_ = cross(times(n, 1.0 / std::sqrt(n2)), path.u_);
    const auto angle_of = [&](const vec3 &p) {
        const vec3 d = minus(p, path.centre_);
        double a = std::atan2(dot(d, path.v_), dot(d, path.u_));
        if (a < 0) a += 2 * k_pi;
        return a;
    };
    const double via_angle = angle_of(via.position);
    path.sweep_ = angle_of(to.position) + 2 * k_pi * loop;
    path.points_ = {from, via, to};
    path.knot_s_ = {0.0, via_angle / path.sweep_, 1.0};
    return path;
}

std::optional<cartesian_path> cartesian_path::spline(const std::vector<path_pose> &points) {
    cartesian_path path;
    path.shape_ = shape::spline;
    // Drop repeated points: they would make zero-length segments.
    for (const path_pose &p : points) {
        if (!path.points_.empty()) {
            const path_pose &last = path.points_.back();
            if (norm(minus(p.position, last.position)) < k_tiny &&
                turn_between(p.orientation, last.orientation) < k_tiny)
                continue;
        }
        path.points_.push_back(p);
    }
    const std::size_t n = path.points_.size();
    if (n < 2) return std::nullopt;
    std::vector<double> spacing{0.0};
    for (std::size_t k = 1; k < n; ++k) {
        const path_pose &a = path.points_[k - 1], &b = path.points_[k];
        spacing.push_back(spacing.back() + norm(minus(b.position, a.position)) +
                          k_metres_per_radian * turn_between(a.orientation, b.orientation));
    }
    for (double d : spacing)
        path.knot_s_.push_back(d / spacing.back());
    path.knot_s_.back() = 1.0;
    // Tangents in metres per unit of s, by central differences inside.
    for (std::size_t k = 0; k < n; ++k) {
        const std::size_t before = k == 0 ? 0 : k - 1, after = k + 1 == n ? k : k + 1;
        const double ds = path.knot_s_[after] - path.knot_s_[before];
        path.tangents_.push_back(
            ds > 0 ? times(minus(path.points_[after].position, path.points_[before].position),
                           1.0 / ds)
                   : vec3{});
    }
    return path;
}

quaternion cartesian_path::orientation_at(double s) const {
    const auto [k, t] = segment_of(knot_s_, s);
    return slerp(points_[k].orientation, points_[k + 1].orientation, t);
}

path_pose cartesian_path::at(double s) const {
    s = std::clamp(s, 0.0, 1.0);
    path_pose pose;
    pose.orientation = orientation_at(s);
    switch (shape_) {
    case shape::line:
        pose.position =
            plus(points_[0].position, times(minus(points_[1].position, points_[0].position), s));
        break;
    case shape::arc: {
        const double a = s * sweep_;
        pose.position =
            plus(centre_, plus(times(u_, radius_ * std::cos(a)), times(v_, radius_ * std::sin(a))));
        if (s >= 1.0) pose.position = points_[2].position; // exactly the target
        break;
    }
    case shape::spline: {
        const auto [k, t] = segment_of(knot_s_, s);
        const double span = knot_s_[k + 1] - knot_s_[k];
        const double t2 = t * t, t3 = t2 * t;
        const double h00 = 2 * t3 - 3 * t2 + 1, h10 = t3 - 2 * t2 + t, h01 = -2 * t3 + 3 * t2,
                     h11 = t3 - t2;
        pose.position =
            plus(plus(times(points_[k].position, h00), times(tangents_[k], h10 * span)),
                 plus(times(points_[k + 1].position, h01), times(tangents_[k + 1], h11 * span)));
        break;
    }
    }
    return pose;
}

} // namespace sim
