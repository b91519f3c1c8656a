// Helpers of the inverse-kinematics tests: an independent double-precision
// product of the modified DH link transforms, pose errors in double, joint
// samples within a model's limits, and the sample count.
#pragma once

#include "algo/ik.h"
#include "algo/models.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

namespace ik_test {

inline constexpr double k_deg = k_pi / 180.0;

// Acceptance of a solution: position and orientation of its flange against
// the target, both in double.
inline constexpr double k_position_tol = 1e-5;    // m
inline constexpr double k_orientation_tol = 1e-4; // rad

// Samples per model: at least 10,000 by default; the sanitizer builds run
// fewer unless KA_IK_TEST_SAMPLES says otherwise.
inline int sample_count() {
    if (const char *env = std::getenv("KA_IK_TEST_SAMPLES")) {
        const int n = std::atoi(env);
        if (n > 0) return n;
    }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 1500;
#else
    return 10000;
#endif
}

struct transform {
    double R[3][3];
    double p[3];
};

// The table keeps twists as floats; one within 1e-6 of a multiple of pi/2
// denotes that multiple exactly (cos(float(pi/2)) is -4e-8, not 0).
inline void twist_cos_sin(float alpha, double *c, double *s) {
    const double quarter = std::nearbyint(alpha / (k_pi / 2));
    if (std::fabs(alpha - quarter * (k_pi / 2)) < 1e-6) {
        const int k = ((static_cast<int>(quarter) % 4) + 4) % 4;
        static constexpr double cs[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
        *c = cs[k][0];
        *s = cs[k][1];
        return;
    }
    *c = std::cos(static_cast<double>(alpha));
    *s = std::sin(static_cast<double>(alpha));
}

// T = prod Rx(alpha) Tx(a) Rz(q + offset) Tz(d), written out link by link.
inline transform dh_product(const dh_table &dh, int dof, const double q[7]) {
    transform T{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 0, 0}};
    for (int i = 0; i < dof; ++i) {
        double ca, sa;
        twist_cos_sin(dh.alpha[i], &ca, &sa);
        const double th = q[i] + dh.offset[i];
        const double ct = std::cos(th), st = std::sin(th);
        // Link matrix L = Rx(alpha) Tx(a) Rz(theta) Tz(d).
        const double L[3][3] = {{ct, -st, 0}, {ca * st, ca * ct, -sa}, {sa * st, sa * ct, ca}};
        const double Lp[3] = {static_cast<double>(dh.a[i]), -sa * dh.d[i], ca * dh.d[i]};
        transform N;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c)
                N.R[r][c] = T.R[r][0] * L[0][c] + T.R[r][1] * L[1][c] + T.R[r][2] * L[2][c];
            N.p[r] = T.R[r][0] * Lp[0] + T.R[r][1] * Lp[1] + T.R[r][2] * Lp[2] + T.p[r];
        }
        T = N;
    }
    return T;
}

// The flange target as the library receives it: rounded to float.
inline ik_frame float_target(const transform &T) {
    ik_frame F;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            F.R[r][c] = static_cast<float>(T.R[r][c]);
        F.p[r] = static_cast<float>(T.p[r]);
    }
    return F;
}

inline double position_error(const transform &T, const ik_frame &F) {
    return std::hypot(T.p[0] - F.p[0], T.p[1] - F.p[1], T.p[2] - F.p[2]);
}

// Rotation angle of R_T^T R_F, accurate for small angles.
inline double orientation_error(const transform &T, const ik_frame &F) {
    double M[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            M[i][j] = T.R[0][i] * F.R[0][j] + T.R[1][i] * F.R[1][j] + T.R[2][i] * F.R[2][j];
    const double s = 0.5 * std::hypot(M[2][1] - M[1][2], M[0][2] - M[2][0], M[1][0] - M[0][1]);
    const double c = 0.5 * (M[0][0] + M[1][1] + M[2][2] - 1.0);
    return std::atan2(s, c);
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
    model_under_test out{};
    out.type = type;
    out.name = m ? m->name : "none";
    out.dof = m ? m->dof : 0;
    if (!m) return out;
    out.dh = m->dh[sensor];
    for (int i = 0; i < 7; ++i) {
        // As the context stores them: degrees to radians in double, kept as float.
        out.limits.lo[i] = static_cast<float>(m->min_pos_deg[i] * 0.017453292519943295);
        out.limits.hi[i] = static_cast<float>(m->max_pos_deg[i] * 0.017453292519943295);
    }
    return out;
}

class sampler {
  public:
    explicit sampler(unsigned seed) : engine_(seed) {}

    double uniform(double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(engine_);
    }

    // Joints drawn uniformly within the limits, rounded to float as a caller
    // would hold them.
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

// A model name usable in a test name: letters and digits only.
inline std::string test_name(const char *name) {
    std::string s;
    for (const char *c = name; *c; ++c)
        if (std::isalnum(static_cast<unsigned char>(*c))) s += *c;
    return s;
}

inline std::string joints_text(const double q[7], int dof) {
    std::string s = "(";
    for (int i = 0; i < dof; ++i)
        s += (i ? ", " : "") + std::to_string(q[i]);
    return s + ")";
}

} // namespace ik_test
