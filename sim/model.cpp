#include "sim/model.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

struct product_marker {
    const char *text;
    int model;
};

// Longer names first, so that a name containing a shorter one (NEPATQ
// contains TQ) is taken for itself.
constexpr product_marker product_markers[] = {
    {"NEPATQ", 8}, {"NEPAX", 5}, {"NEPAZ", 6}, {"KIVO", 0}, {"LUNE", 1}, {"QUIL", 7}, {"TQ", 3},
};

constexpr double k_pi = 3.14159265358979323846;

} // namespace

mat4 identity() {
    mat4 m{};
    for (int i = 0; i < 4; ++i)
        m[i][i] = 1.0;
    return m;
}

mat4 multiply(const mat4 &a, const mat4 &b) {
    mat4 m{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k)
                m[i][j] += a[i][k] * b[k][j];
    return m;
}

mat4 rigid_inverse(const mat4 &m) {
    mat4 r = identity();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r[i][j] = m[j][i];
    for (int i = 0; i < 3; ++i)
        r[i][3] = -(r[i][0] * m[0][3] + r[i][1] * m[1][3] + r[i][2] * m[2][3]);
    return r;
}

namespace {

// Modified DH link: Rx(alpha) * Tx(a) * Rz(theta) * Tz(d).
mat4 link(double alpha, double a, double theta, double d) {
    const double ca = std::cos(alpha), sa = std::sin(alpha), ct = std::cos(theta),
                 st = std::sin(theta);
    return {{{ct, -st, 0, a},
             {st * ca, ct * ca, -sa, -sa * d},
             {st * sa, ct * sa, ca, ca * d},
             {0, 0, 0, 1}}};
}

// Rotation block to a unit quaternion (scalar first), by the largest
// diagonal term for accuracy.
std::array<double, 4> rotation_quaternion(const mat4 &t) {
    const double trace = t[0][0] + t[1][1] + t[2][2];
    std::array<double, 4> q{};
    if (trace > 0) {
        const double s = std::sqrt(trace + 1.0) * 2;
        q = {0.25 * s, (t[2][1] - t[1][2]) / s, (t[0][2] - t[2][0]) / s, (t[1][0] - t[0][1]) / s};
    } else if (t[0][0] > t[1][1] && t[0][0] > t[2][2]) {
        const double s = std::sqrt(1.0 + t[0][0] - t[1][1] - t[2][2]) * 2;
        q = {(t[2][1] - t[1][2]) / s, 0.25 * s, (t[0][1] + t[1][0]) / s, (t[0][2] + t[2][0]) / s};
    } else if (t[1][1] > t[2][2]) {
        const double s = std::sqrt(1.0 + t[1][1] - t[0][0] - t[2][2]) * 2;
        q = {(t[0][2] - t[2][0]) / s, (t[0][1] + t[1][0]) / s, 0.25 * s, (t[1][2] + t[2][1]) / s};
    } else {
        const double s = std::sqrt(1.0 + t[2][2] - t[0][0] - t[1][1]) * 2;
        q = {(t[1][0] - t[0][1]) / s, (t[0][2] + t[2][0]) / s, (t[1][2] + t[2][1]) / s, 0.25 * s};
    }
    return q;
}

} // namespace

std::optional<arm_traits> arm_traits_for(const std::string &product) {
    const product_marker *found = nullptr;
    for (const product_marker &marker : product_markers) {
        if (product.find(marker.text) != std::string::npos) {
            found = &marker;
            break;
        }
    }
    if (!found) return std::nullopt;
    const model_params *params = model_params_for(found->model);
    if (!params) return std::nullopt;

    arm_traits traits;
    traits.product = product;
    traits.model = found->model;
    if (product.find("-6F") != std::string::npos)
        traits.force_type = 2;
    else if (product.find("-ZF") != std::string::npos)
        traits.force_type = 1;
    traits.dof = params->dof;
    for (int j = 0; j < traits.dof; ++j) {
        traits.min_deg[j] = params->min_pos_deg[j];
        traits.max_deg[j] = params->max_pos_deg[j];
        traits.max_speed_deg[j] = params->max_speed_deg[j];
        traits.max_acc_deg[j] = params->max_acc_deg[j];
    }
    traits.dh = params->dh[traits.force_type];
    return traits;
}

mat4 flange_matrix(const arm_traits &traits, const std::array<double, 7> &joints_deg) {
    mat4 t = identity();
    for (int j = 0; j < traits.dof; ++j) {
        const double q = joints_deg[j] * k_pi / 180.0;
        t = multiply(
            t, link(traits.dh.alpha[j], traits.dh.a[j], q + traits.dh.offset[j], traits.dh.d[j]));
    }
    return t;
}

mat4 pose_matrix(const std::array<double, 3> &position, const std::array<double, 3> &euler) {
    const double cx = std::cos(euler[0]), sx = std::sin(euler[0]);
    const double cy = std::cos(euler[1]), sy = std::sin(euler[1]);
    const double cz = std::cos(euler[2]), sz = std::sin(euler[2]);
    // Rz(rz) * Ry(ry) * Rx(rx)
    return {{{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx, position[0]},
             {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx, position[1]},
             {-sy, cy * sx, cy * cx, position[2]},
             {0, 0, 0, 1}}};
}

std::optional<std::array<double, 7>> inverse_kinematics(const arm_traits &traits,
                                                        const mat4 &target,
                                                        const std::array<double, 7> &seed_deg) {
    // Damped least squares on the position error and the rotation error
    // vector, with a numerical Jacobian; degrees outside, radians inside.
    constexpr int k_iterations = 500;
    constexpr double k_step = 1e-7;    // radians, for the Jacobian
    constexpr double k_damping = 1e-4; // squared
    constexpr double k_done = 1e-10;   // metres and radians
    const int n = traits.dof;
    const std::array<double, 4> wanted = rotation_quaternion(target);
    const auto error_of = [&](const mat4 &t) {
        std::array<double, 6> e{};
        for (int i = 0; i < 3; ++i)
            e[i] = target[i][3] - t[i][3];
        // Rotation still to go, wanted * conj(now), taken the short way:
        // twice its vector part vanishes only when the rotations agree.
        const std::array<double, 4> now = rotation_quaternion(t);
        const double w =
            wanted[0] * now[0] + wanted[1] * now[1] + wanted[2] * now[2] + wanted[3] * now[3];
        const double sign = w < 0 ? -2.0 : 2.0;
        const double *vt = &wanted[1], *vn = &now[1];
        e[3] = sign * (now[0] * vt[0] - wanted[0] * vn[0] - (vt[1] * vn[2] - vt[2] * vn[1]));
        e[4] = sign * (now[0] * vt[1] - wanted[0] * vn[1] - (vt[2] * vn[0] - vt[0] * vn[2]));
        e[5] = sign * (now[0] * vt[2] - wanted[0] * vn[2] - (vt[0] * vn[1] - vt[1] * vn[0]));
        return e;
    };
    std::array<double, 7> q = seed_deg;
    for (int iteration = 0; iteration < k_iterations; ++iteration) {
        const std::array<double, 6> e = error_of(flange_matrix(traits, q));
        double norm = 0;
        for (double v : e)
            norm += v * v;
        if (norm < k_done * k_done) {
            // Turn each angle into the equivalent one nearest zero.
            for (int j = 0; j < n; ++j)
                q[j] = std::remainder(q[j], 360.0);
            return q;
        }
        // J: 6 x n, column j = d(error)/d(q_j) with the sign of d(pose).
        double jac[6][7] = {};
        for (int j = 0; j < n; ++j) {
            std::array<double, 7> moved = q;
            moved[j] += k_step * 180.0 / k_pi;
            const std::array<double, 6> e2 = error_of(flange_matrix(traits, moved));
            for (int i = 0; i < 6; ++i)
                jac[i][j] = (e[i] - e2[i]) / k_step;
        }
        // dq = J^T (J J^T + lambda I)^-1 e, solved by Gaussian elimination.
        double a[6][7] = {};
        for (int r = 0; r < 6; ++r) {
            for (int c = 0; c < 6; ++c) {
                for (int j = 0; j < n; ++j)
                    a[r][c] += jac[r][j] * jac[c][j];
                if (r == c) a[r][c] += k_damping;
            }
            a[r][6] = e[r];
        }
        for (int p = 0; p < 6; ++p) {
            int best = p;
            for (int r = p + 1; r < 6; ++r)
                if (std::fabs(a[r][p]) > std::fabs(a[best][p])) best = r;
            std::swap(a[p], a[best]);
            if (std::fabs(a[p][p]) < 1e-15) return std::nullopt;
            for (int r = 0; r < 6; ++r) {
                if (r == p) continue;
                const double f = a[r][p] / a[p][p];
                for (int c = p; c < 7; ++c)
                    a[r][c] -= f * a[p][c];
            }
        }
        for (int j = 0; j < n; ++j) {
            double step = 0;
            for (int r = 0; r < 6; ++r)
                step += jac[r][j] * a[r][6] / a[r][r];
            q[j] += step * 180.0 / k_pi;
        }
    }
    return std::nullopt;
}

flange_pose forward_kinematics(const arm_traits &traits, const std::array<double, 7> &joints_deg) {
    return pose_of(flange_matrix(traits, joints_deg));
}

flange_pose pose_of(const mat4 &t) {
    flange_pose pose;
    pose.position = {t[0][3], t[1][3], t[2][3]};
    pose.euler = {std::atan2(t[2][1], t[2][2]), std::asin(std::clamp(-t[2][0], -1.0, 1.0)),
                  std::atan2(t[1][0], t[0][0])};
    pose.quat = rotation_quaternion(t);
    return pose;
}

} // namespace sim
