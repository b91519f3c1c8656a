// Helpers shared by the kinematics tests: seeded random inputs, tolerance
// comparisons, and an independent double-precision model of an arm (the
// product of its modified DH links and its install, tool and work frames)
// against which forward and inverse kinematics are checked.
#pragma once

#include "algo/ik.h"
#include "algo/models.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

namespace algo_test {

inline constexpr float k_pi_f = static_cast<float>(k_pi);
inline constexpr double k_deg = k_pi / 180.0;
// Acceptance of an inverse solution, measured in double.
inline constexpr double k_position_tol = 1e-5;    // m
inline constexpr double k_orientation_tol = 1e-4; // rad

// Targets per model for the solver properties: at least 10,000 by default;
// the sanitizer builds run fewer unless KA_IK_TEST_SAMPLES says otherwise.
inline int sample_count() {
    if (const char *env = std::getenv("KA_IK_TEST_SAMPLES"))
        if (const int n = std::atoi(env); n > 0) return n;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 1500;
#else
    return 10000;
#endif
}

struct model_under_test {
    int type;
    const char *name;
    int dof;
    dh_table dh;
    ik_limits limits;
};

inline model_under_test load_model(int type, int sensor = 0) {
    const model_params *m = model_params_for(type);
    model_under_test out{type, m->name, m->dof, m->dh[sensor], {}};
    for (int i = 0; i < 7; ++i) { // as the context stores them: radians kept as float
        out.limits.lo[i] = static_cast<float>(m->min_pos_deg[i] * k_deg);
        out.limits.hi[i] = static_cast<float>(m->max_pos_deg[i] * k_deg);
    }
    return out;
}

// Seeded per test so that a failure reproduces.
class random_source {
  public:
    explicit random_source(unsigned seed) : engine_(seed) {}
    double uniform(double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(engine_);
    }
    float uf(float lo, float hi) { return static_cast<float>(uniform(lo, hi)); }
    ka_euler_t euler(float limit = 3.1f) {
        return {uf(-limit, limit), uf(-limit, limit), uf(-limit, limit)};
    }
    // Pitch kept 0.25 rad away from +-pi/2: near gimbal lock, Euler angles
    // recovered in single precision carry errors of about 1e-7 / cos(pitch).
    ka_pose_t pose(float reach = 1.0f) {
        ka_pose_t p{{uf(-reach, reach), uf(-reach, reach), uf(-reach, reach)}, {1, 0, 0, 0}, {}};
        p.euler = {uf(-3.1f, 3.1f), uf(-1.3f, 1.3f), uf(-3.1f, 3.1f)};
        return p;
    }
    // Joints uniformly within the limits, rounded to float as a caller holds them.
    void joints(const model_under_test &m, double q[7]) {
        for (int i = 0; i < 7; ++i)
            q[i] = i < m.dof ? static_cast<float>(uniform(m.limits.lo[i], m.limits.hi[i])) : 0.0;
    }
    // A reference within +-spread of q on every joint, kept within the limits.
    void near(const model_under_test &m, const double q[7], double spread, double ref[7]) {
        for (int i = 0; i < 7; ++i)
            ref[i] = i < m.dof ? std::clamp(q[i] + uniform(-spread, spread), m.limits.lo[i],
                                            m.limits.hi[i])
                               : 0.0;
    }

  private:
    std::mt19937_64 engine_;
};

// Any of the three matrix types (rows, columns, data[][]).
template <class M>::testing::AssertionResult matrices_near(const M &a, const M &b, double tol) {
    if (a.rows != b.rows || a.columns != b.columns)
        return ::testing::AssertionFailure()
               << "size " << a.rows << "x" << a.columns << " vs " << b.rows << "x" << b.columns;
    for (int r = 0; r < a.rows; ++r)
        for (int c = 0; c < a.columns; ++c)
            if (!(std::fabs(a.data[r][c] - b.data[r][c]) <= tol))
                return ::testing::AssertionFailure()
                       << "entry (" << r << "," << c << "): " << a.data[r][c] << " vs "
                       << b.data[r][c];
    return ::testing::AssertionSuccess();
}

// ---------------------------------------------- rigid frames in double

inline ik_frame multiply(const ik_frame &A, const ik_frame &B) {
    ik_frame C;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            C.R[i][j] = A.R[i][0] * B.R[0][j] + A.R[i][1] * B.R[1][j] + A.R[i][2] * B.R[2][j];
        C.p[i] = A.R[i][0] * B.p[0] + A.R[i][1] * B.p[1] + A.R[i][2] * B.p[2] + A.p[i];
    }
    return C;
}

inline ik_frame inverse(const ik_frame &A) {
    ik_frame B;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            B.R[i][j] = A.R[j][i];
    for (int i = 0; i < 3; ++i)
        B.p[i] = -(B.R[i][0] * A.p[0] + B.R[i][1] * A.p[1] + B.R[i][2] * A.p[2]);
    return B;
}

// Translation (x, y, z) and rotation Rz(rz) Ry(ry) Rx(rx).
inline ik_frame frame_of(double x, double y, double z, double rx, double ry, double rz) {
    const double cx = std::cos(rx), sx = std::sin(rx), cy = std::cos(ry), sy = std::sin(ry);
    const double cz = std::cos(rz), sz = std::sin(rz);
    return {{{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
             {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
             {-sy, sx * cy, cx * cy}},
            {x, y, z}};
}

inline ik_frame frame_of(const ka_pose_t &p) {
    return frame_of(p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz);
}

// The table keeps twists as floats, so cos(float(pi/2)) is -4e-8, not 0.
// Written apart from the library: the cosine and sine of the twist as it
// is, with a part below 1e-6 taken as the 0 it stands for (and the other
// part then as +-1).
inline void twist_cos_sin(float alpha, double *c, double *s) {
    *c = std::cos(static_cast<double>(alpha));
    *s = std::sin(static_cast<double>(alpha));
    if (std::fabs(*c) < 1e-6) *c = 0.0, *s = std::copysign(1.0, *s);
    if (std::fabs(*s) < 1e-6) *s = 0.0, *c = std::copysign(1.0, *c);
}

// Flange in the arm base frame: prod Rx(alpha) Tx(a) Rz(q + offset) Tz(d).
inline ik_frame dh_product(const dh_table &dh, int dof, const double q[7]) {
    ik_frame T{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 0, 0}};
    for (int i = 0; i < dof; ++i) {
        double ca, sa;
        twist_cos_sin(dh.alpha[i], &ca, &sa);
        const double ct = std::cos(q[i] + dh.offset[i]), st = std::sin(q[i] + dh.offset[i]);
        T = multiply(T, {{{ct, -st, 0}, {ca * st, ca * ct, -sa}, {sa * st, sa * ct, ca}},
                         {dh.a[i], -sa * dh.d[i], ca * dh.d[i]}});
    }
    return T;
}

// A target as the library receives it: rounded to float.
inline ik_frame rounded(const ik_frame &T) {
    ik_frame F = T;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            F.R[r][c] = static_cast<float>(T.R[r][c]);
        F.p[r] = static_cast<float>(T.p[r]);
    }
    return F;
}

inline ka_pose_t pose_of(const ik_frame &T) {
    ka_matrix_t M = unit_matrix(4);
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            M.data[r][c] = static_cast<float>(T.R[r][c]);
        M.data[r][3] = static_cast<float>(T.p[r]);
    }
    return transformation_matrix_to_pose(M);
}

// Position and orientation (angle of A^T B) of B against A, within tolerances.
inline ::testing::AssertionResult frames_near(const ik_frame &A, const ik_frame &B,
                                              double pos_tol = k_position_tol,
                                              double rot_tol = k_orientation_tol) {
    double M[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            M[i][j] = A.R[0][i] * B.R[0][j] + A.R[1][i] * B.R[1][j] + A.R[2][i] * B.R[2][j];
    const double s = 0.5 * std::hypot(M[2][1] - M[1][2], M[0][2] - M[2][0], M[1][0] - M[0][1]);
    const double dr = std::atan2(s, 0.5 * (M[0][0] + M[1][1] + M[2][2] - 1.0));
    const double dp = std::hypot(A.p[0] - B.p[0], A.p[1] - B.p[1], A.p[2] - B.p[2]);
    if (dp <= pos_tol && dr <= rot_tol) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "position error " << dp << " m, orientation error " << dr << " rad";
}

inline ::testing::AssertionResult poses_near(const ka_pose_t &a, const ka_pose_t &b, double pos_tol,
                                             double rot_tol) {
    return frames_near(frame_of(a), frame_of(b), pos_tol, rot_tol);
}

// Install angles (degrees), tool and work frames of an arm, and the tool
// pose in the work frame W^-1 * I * F(q) * T they give.
struct arm_frames {
    ka_frame_t tool{}, work{};
    float install_deg[3] = {0, 0, 0};

    ik_frame tool_in_work(const model_under_test &m, const double q_rad[7]) const {
        const ik_frame I = frame_of(0, 0, 0, install_deg[0] * k_deg, install_deg[1] * k_deg,
                                    install_deg[2] * k_deg);
        return multiply(multiply(inverse(frame_of(work.pose)), I),
                        multiply(dh_product(m.dh, m.dof, q_rad), frame_of(tool.pose)));
    }
};

inline arm_frames sample_frames(int seed) {
    arm_frames f;
    f.tool.pose.position = {0.01f * seed, -0.02f, 0.05f};
    f.tool.pose.euler = {0.1f, -0.2f, 0.3f * seed};
    f.work.pose.position = {0.2f, -0.1f * seed, 0.05f};
    f.work.pose.euler = {0.0f, 0.05f, -0.4f};
    f.install_deg[0] = 5.0f * seed;
    f.install_deg[1] = -3.0f;
    f.install_deg[2] = 20.0f;
    return f;
}

// ------------------------------------- Jacobian of the test's own model

// Pose error of B against A: translation and the small rotation vector.
inline Eigen::Matrix<double, 6, 1> pose_error(const ik_frame &A, const ik_frame &B) {
    Eigen::Matrix<double, 6, 1> e;
    for (int r = 0; r < 3; ++r)
        e[r] = B.p[r] - A.p[r];
    Eigen::Vector3d w = Eigen::Vector3d::Zero();
    for (int c = 0; c < 3; ++c) {
        const Eigen::Vector3d a(A.R[0][c], A.R[1][c], A.R[2][c]),
            b(B.R[0][c], B.R[1][c], B.R[2][c]);
        w += 0.5 * a.cross(b);
    }
    e.tail<3>() = w;
    return e;
}

// The Jacobian of the flange pose by central differences of the DH product.
inline Eigen::MatrixXd jacobian(const model_under_test &m, const double q[7]) {
    constexpr double h = 1e-6;
    Eigen::MatrixXd J(6, m.dof);
    for (int i = 0; i < m.dof; ++i) {
        double qp[7], qm[7];
        std::copy(q, q + 7, qp);
        std::copy(q, q + 7, qm);
        qp[i] += h;
        qm[i] -= h;
        J.col(i) = pose_error(dh_product(m.dh, m.dof, qm), dh_product(m.dh, m.dof, qp)) / (2 * h);
    }
    return J;
}

// The smallest of its six singular values: near 0 near a singular configuration.
inline double smallest_singular_value(const model_under_test &m, const double q[7]) {
    return Eigen::JacobiSVD<Eigen::MatrixXd>(jacobian(m, q)).singularValues()(5);
}

inline double distance(const double a[7], const double b[7], int dof) {
    double s = 0.0;
    for (int i = 0; i < dof; ++i)
        s += (a[i] - b[i]) * (a[i] - b[i]);
    return std::sqrt(s);
}

inline double max_abs_difference(const double a[7], const double b[7], int dof) {
    double m = 0.0;
    for (int i = 0; i < dof; ++i)
        m = std::max(m, std::fabs(a[i] - b[i]));
    return m;
}

inline bool within_limits(const model_under_test &m, const double q[7]) {
    for (int i = 0; i < m.dof; ++i)
        if (!(q[i] >= m.limits.lo[i] && q[i] <= m.limits.hi[i])) return false;
    return true;
}

inline std::string joints_text(const double q[7], int dof) {
    std::string s = "(";
    for (int i = 0; i < dof; ++i)
        s += (i ? ", " : "") + std::to_string(q[i]);
    return s + ")";
}

// A model name usable in a test name: letters and digits only.
inline std::string test_name(int type) {
    std::string s;
    for (const char *c = model_params_for(type)->name; *c; ++c)
        if (std::isalnum(static_cast<unsigned char>(*c))) s += *c;
    return s;
}

} // namespace algo_test
