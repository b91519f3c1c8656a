// Tool paths in Cartesian space for the planned motions: a straight line, a
// circular arc through a via pose, and a spline through a row of poses. A
// path maps s in 0..1 to a pose; the orientation turns by slerp between the
// poses the path was built from.
#pragma once

#include "sim/model.h"

#include <array>
#include <optional>
#include <vector>

namespace sim {

using vec3 = std::array<double, 3>;
using quaternion = std::array<double, 4>; // w, x, y, z; unit

struct path_pose {
    vec3 position{}; // metres
    quaternion orientation{1, 0, 0, 0};
};

path_pose path_pose_of(const mat4 &m);
mat4 matrix_of(const path_pose &pose);
// The rotation angle (radians) between two orientations, taken the short way.
double turn_between(const quaternion &a, const quaternion &b);

class cartesian_path {
  public:
    // Nothing when the two poses coincide (there is no path to run).
    static std::optional<cartesian_path> line(const path_pose &from, const path_pose &to);
    // A circle through from, via and to, run from `from` past `via` to `to`
    // and then `loop` more full turns; nothing when the three positions are
    // (nearly) on one line.
    static std::optional<cartesian_path> arc(const path_pose &from, const path_pose &via,
                                             const path_pose &to, int loop);
    // A Catmull-Rom curve through every point, the first being where the
    // tool starts; nothing for fewer than two distinct points.
    static std::optional<cartesian_path> spline(const std::vector<path_pose> &points);

    path_pose at(double s) const;
    // Where along s each given point is passed (0 first, 1 last).
    const std::vector<double> &knots() const { return knot_s_; }

  private:
    enum class shape { line, arc, spline };
    shape shape_ = shape::line;
    std::vector<path_pose> points_;
    std::vector<double> knot_s_;
    std::vector<vec3> tangents_; // spline: one per point, metres per segment
    // arc: centre, radius, in-plane unit axes (u towards the start) and the
    // swept angle in radians
    vec3 centre_{}, u_{}, v_{};
    double radius_ = 0, sweep_ = 0;

    quaternion orientation_at(double s) const;
};

} // namespace sim
