// Helpers shared by the kinematics tests: seeded random inputs and
// tolerance comparisons of matrices and poses.
#pragma once

#include "algo/matrix.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace algo_test {

inline constexpr float k_pi = 3.14159265358979f;

// Seeded per test so a failure reproduces.
class random_source {
  public:
    explicit random_source(unsigned seed = 20240521u) : engine_(seed) {}
    float uniform(float lo, float hi) {
        return std::uniform_real_distribution<float>(lo, hi)(engine_);
    }
    ka_euler_t euler(float limit = 3.1f) {
        return {uniform(-limit, limit), uniform(-limit, limit), uniform(-limit, limit)};
    }
    ka_pose_t pose(float reach = 1.0f, float angle = 3.1f) {
        ka_pose_t p{};
        p.position = {uniform(-reach, reach), uniform(-reach, reach), uniform(-reach, reach)};
        p.euler = euler(angle);
        p.quaternion = {1.0f, 0.0f, 0.0f, 0.0f};
        return p;
    }
    // Pitch kept 0.25 rad away from +-pi/2: near gimbal lock, Euler angles
    // recovered in single precision carry errors of about 1e-7 / cos(pitch),
    // which a round trip through Euler angles cannot avoid.
    ka_pose_t pose_away_from_lock(float reach = 1.0f) {
        ka_pose_t p = pose(reach, 3.1f);
        p.euler.ry = uniform(-1.3f, 1.3f);
        return p;
    }

  private:
    std::mt19937 engine_;
};

inline ::testing::AssertionResult matrices_near(const ka_matrix_t &a, const ka_matrix_t &b,
                                                float tol) {
    if (a.rows != b.rows || a.columns != b.columns)
        return ::testing::AssertionFailure()
               << "counts " << a.rows << "x" << a.columns << " vs " << b.rows << "x" << b.columns;
    for (int r = 0; r < a.rows; ++r)
        for (int c = 0; c < a.columns; ++c)
            if (!(std::fabs(a.data[r][c] - b.data[r][c]) <= tol))
                return ::testing::AssertionFailure()
                       << "entry (" << r << "," << c << "): " << a.data[r][c] << " vs "
                       << b.data[r][c];
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult transforms_near(const float a[4][4], const float b[4][4],
                                                  float tol) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            if (!(std::fabs(a[r][c] - b[r][c]) <= tol))
                return ::testing::AssertionFailure()
                       << "entry (" << r << "," << c << "): " << a[r][c] << " vs " << b[r][c];
    return ::testing::AssertionSuccess();
}

// Same position and the same rotation (compared as matrices, so equivalent
// Euler triples are accepted).
inline ::testing::AssertionResult poses_near(const ka_pose_t &a, const ka_pose_t &b, float pos_tol,
                                             float rot_tol) {
    float d[3] = {a.position.x - b.position.x, a.position.y - b.position.y,
                  a.position.z - b.position.z};
    for (int i = 0; i < 3; ++i)
        if (!(std::fabs(d[i]) <= pos_tol))
            return ::testing::AssertionFailure()
                   << "position (" << a.position.x << ", " << a.position.y << ", " << a.position.z
                   << ") vs (" << b.position.x << ", " << b.position.y << ", " << b.position.z
                   << ")";
    return matrices_near(euler_to_matrix(a.euler), euler_to_matrix(b.euler), rot_tol);
}

inline ka_matrix_t identity4() { return unit_matrix(4); }

} // namespace algo_test
