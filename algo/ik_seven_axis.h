// What the two seven-axis closed forms (ik_lune.cpp, ik_quil.cpp) and
// their redundancy search share: tolerances and a small 3-vector.
#pragma once

#include "algo/ik_solvers.h"

#include <cmath>
#include <limits>

namespace ik7 {

inline constexpr double k_pattern_tol = 1e-6;
// Cosine-rule slack inside the redundancy search, metres: the rounding of a
// float target, no more (a clamped point is off the target by this much).
inline constexpr double k_rounding_slack = 1e-7;
inline constexpr double k_inf = std::numeric_limits<double>::infinity();
// Where QUIL's last joint stands still along the self-motion: joint 2
// within the first band of 0, joint 5 within the second of +-90 degrees
// (sines and cosines).
inline constexpr double k_stall_band_shoulder = 0.1;
inline constexpr double k_stall_band_wrist = 0.3;

inline bool near(double value, double expected) {
    return std::fabs(value - expected) < k_pattern_tol;
}

struct v3 {
    double x, y, z;
};
inline v3 operator+(const v3 &a, const v3 &b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline v3 operator-(const v3 &a, const v3 &b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline v3 operator*(double k, const v3 &a) { return {k * a.x, k * a.y, k * a.z}; }
inline double dot(const v3 &a, const v3 &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline v3 cross(const v3 &a, const v3 &b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double norm(const v3 &a) { return std::sqrt(dot(a, a)); }
inline v3 column(const double R[3][3], int j) { return {R[0][j], R[1][j], R[2][j]}; }

// p * q for polynomials of degree <= 2, coefficients ascending.
inline void product2(const double p[3], const double q[3], double out[5]) {
    for (int i = 0; i < 5; ++i)
        out[i] = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            out[i + j] += p[i] * q[j];
}

// Where along the redundancy parameter the groups of each elbow sign (bit 1
// of the group) have solutions at all.
struct solution_intervals {
    static constexpr int cap = 24;
    int n[2] = {0, 0};
    double iv[2][cap][2];
};

} // namespace ik7
