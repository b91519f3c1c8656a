// What the simulated controller is: its product text, model, joint count,
// force sensor, joint limits and geometry, and its forward kinematics.
#pragma once

#include "algo/models.h"

#include <array>
#include <optional>
#include <string>

namespace sim {

// Scaling of the wire protocol: every number is an integer.
inline constexpr double k_milli = 1000.0;    // degrees, radians, and most quantities
inline constexpr double k_micro = 1000000.0; // positions in metres, quaternion components
inline constexpr double k_rpm_per_deg_s =
    1.0 / 6; // joint speeds/accelerations: 1 rpm = 6 degrees/s

inline int to_milli(double value) { return static_cast<int>(value * k_milli); }
inline int to_micro(double value) { return static_cast<int>(value * k_micro); }
// Degrees per second (or per second squared) to thousandths of rpm (per second).
inline int deg_s_to_wire(double value) {
    return static_cast<int>(value * k_rpm_per_deg_s * k_milli);
}

struct arm_traits {
    std::string product; // as reported by the software-info query
    int model = 0;       // ka_robot_arm_model_e value
    int force_type = 0;  // 0 none ("-B"), 1 one-axis ("-ZF"), 2 six-axis ("-6F")
    int dof = 6;
    std::array<double, 7> min_deg{};
    std::array<double, 7> max_deg{};
    std::array<double, 7> max_speed_deg{}; // degrees/s
    std::array<double, 7> max_acc_deg{};   // degrees/s^2
    dh_table dh{};
};

// The arm a product text names, or nothing when the text names no known
// model. The model is the one the text really names: "NEPATQ-B" is a NEPATQ
// arm, a bare "TQ" a MARO II arm. A text without a force-sensor suffix is an
// arm without a sensor.
std::optional<arm_traits> arm_traits_for(const std::string &product);

struct flange_pose {
    std::array<double, 3> position{}; // metres
    std::array<double, 3> euler{};    // radians, R = Rz(rz) * Ry(ry) * Rx(rx)
    std::array<double, 4> quat{};     // w, x, y, z
};

using mat4 = std::array<std::array<double, 4>, 4>;

// Flange pose in the arm base for joint angles in degrees (first dof used),
// as the product of the model's modified DH links.
mat4 flange_matrix(const arm_traits &traits, const std::array<double, 7> &joints_deg);
flange_pose forward_kinematics(const arm_traits &traits, const std::array<double, 7> &joints_deg);
mat4 identity();
mat4 multiply(const mat4 &a, const mat4 &b);
// The inverse of a rotation-and-translation transform.
mat4 rigid_inverse(const mat4 &m);
// Position, Euler angles and quaternion of a transform.
flange_pose pose_of(const mat4 &t);
// A transform from a position (metres) and Euler angles (radians).
mat4 pose_matrix(const std::array<double, 3> &position, const std::array<double, 3> &euler);
// Joint angles (degrees) that put the flange at `target`, found numerically
// from `seed` (so the solution near the seed); nothing when it does not
// converge. Joint limits are not checked here.
std::optional<std::array<double, 7>> inverse_kinematics(const arm_traits &traits,
                                                        const mat4 &target,
                                                        const std::array<double, 7> &seed_deg);

} // namespace sim
