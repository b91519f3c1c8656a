// Limits beyond the controller's joint limits (which live in arm::limits):
// the limits held in the joint drives, the Cartesian speed and acceleration
// limits of the tool centre point, the collision detection stage and the
// arm's initial (home) joint position.
#pragma once

#include <array>

namespace sim {

// Per joint, in wire integers as the drives hold them: positions in
// millidegrees, speeds in thousandths of rpm, accelerations in thousandths
// of rpm per second.
struct drive_limits {
    std::array<int, 7> min_pos{};
    std::array<int, 7> max_pos{};
    std::array<int, 7> max_speed{};
    std::array<int, 7> max_acc{};
};

// Thousandths of m/s, m/s^2, rad/s, rad/s^2.
struct cartesian_limits {
    int line_speed = 800;
    int line_acc = 2500;
    int angular_speed = 1500;
    int angular_acc = 5000;
};

struct limit_store {
    // Filled from the model on first use: the drives come up with the arm's
    // mechanical range.
    bool drives_known = false;
    drive_limits drives;
    cartesian_limits cartesian;
    int collision_stage = 0;        // 0 off, 1 (least sensitive) to 8
    std::array<int, 7> init_pose{}; // millidegrees
};

} // namespace sim
