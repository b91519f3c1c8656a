// Conversions between Euler angles, quaternions, rotations and poses.
#include "tests/algo/algo_test_support.h"

#include "algo/matrix.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace algo_test;

namespace {

ka_quat_t negate(ka_quat_t q) { return {-q.w, -q.x, -q.y, -q.z}; }

::testing::AssertionResult same_rotation(ka_quat_t a, ka_quat_t b, float tol) {
    float dot = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
    if (dot < 0.0f) b = negate(b);
    float e[4] = {a.w - b.w, a.x - b.x, a.y - b.y, a.z - b.z};
    for (float v : e)
        if (!(std::fabs(v) <= tol))
            return ::testing::AssertionFailure()
                   << "(" << a.w << ", " << a.x << ", " << a.y << ", " << a.z << ") vs (" << b.w
                   << ", " << b.x << ", " << b.y << ", " << b.z << ")";
    return ::testing::AssertionSuccess();
}

} // namespace

// ------------------------------------------------------ Euler convention

TEST(EulerConvention, MatrixIsFixedAxesXThenYThenZ) {
    random_source rng;
    for (int i = 0; i < 500; ++i) {
        ka_euler_t e = rng.euler();
        ka_matrix_t expected = matrix_m(rotz(e.rz), matrix_m(roty(e.ry), rotx(e.rx)));
        EXPECT_TRUE(matrices_near(euler_to_matrix(e), expected, 2e-6f));
    }
}

TEST(EulerConvention, SingleAxisAnglesTurnTheRightWay) {
    // rz = +90 degrees takes the X axis onto +Y (right-handed).
    ka_matrix_t r = ka_algo_euler2matrix({0.0f, 0.0f, k_pi / 2});
    EXPECT_NEAR(r.data[1][0], 1.0f, 1e-6f);
    // rx = +90 degrees takes Y onto +Z; ry = +90 degrees takes Z onto +X.
    r = ka_algo_euler2matrix({k_pi / 2, 0.0f, 0.0f});
    EXPECT_NEAR(r.data[2][1], 1.0f, 1e-6f);
    r = ka_algo_euler2matrix({0.0f, k_pi / 2, 0.0f});
    EXPECT_NEAR(r.data[0][2], 1.0f, 1e-6f);
}

TEST(EulerConvention, ExportedMatrixIsThreeByThreeWithZeroBorder) {
    ka_matrix_t r = ka_algo_euler2matrix({0.3f, -0.2f, 1.1f});
    EXPECT_EQ(r.rows, 3);
    EXPECT_EQ(r.columns, 3);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(r.data[3][i], 0.0f);
        EXPECT_EQ(r.data[i][3], 0.0f);
    }
}

// --------------------------------------------------------- round trips

TEST(EulerRoundTrip, AnglesAwayFromGimbalLockComeBack) {
    random_source rng(7);
    for (int i = 0; i < 2000; ++i) {
        ka_euler_t e = {rng.uniform(-3.12f, 3.14f), rng.uniform(-1.5f, 1.5f),
                        rng.uniform(-3.12f, 3.14f)};
        ka_euler_t back = matrix_to_euler(euler_to_matrix(e));
        EXPECT_NEAR(back.rx, e.rx, 5e-5f);
        EXPECT_NEAR(back.ry, e.ry, 5e-5f);
        EXPECT_NEAR(back.rz, e.rz, 5e-5f);
    }
}

TEST(EulerRoundTrip, ThroughQuaternion) {
    random_source rng(8);
    for (int i = 0; i < 2000; ++i) {
        ka_euler_t e = {rng.uniform(-3.12f, 3.14f), rng.uniform(-1.5f, 1.5f),
                        rng.uniform(-3.12f, 3.14f)};
        ka_euler_t back = ka_algo_quaternion2euler(ka_algo_euler2quaternion(e));
        EXPECT_TRUE(matrices_near(euler_to_matrix(back), euler_to_matrix(e), 2e-5f));
        EXPECT_NEAR(back.ry, e.ry, 5e-4f);
    }
}

TEST(EulerRoundTrip, QuaternionAndMatrixPathsAgree) {
    random_source rng(9);
    for (int i = 0; i < 2000; ++i) {
        ka_euler_t e = rng.euler();
        ka_quat_t q = euler_to_quat(e);
        EXPECT_TRUE(matrices_near(quat_to_matrix(q), euler_to_matrix(e), 3e-6f));
        EXPECT_TRUE(same_rotation(matrix_to_quat(euler_to_matrix(e)), q, 3e-6f));
    }
}

TEST(EulerRoundTrip, TransformToPoseFillsAllThreeParts) {
    random_source rng(10);
    for (int i = 0; i < 200; ++i) {
        ka_pose_t p = rng.pose_away_from_lock();
        ka_pose_t back = ka_algo_matrix2pos(ka_algo_pos2matrix(p));
        EXPECT_TRUE(poses_near(back, p, 1e-6f, 3e-6f));
        EXPECT_TRUE(same_rotation(back.quaternion, euler_to_quat(p.euler), 3e-6f));
    }
}

// ----------------------------------------------------------- identities

TEST(QuaternionIdentity, ZeroEulerIsUnitQuaternion) {
    ka_quat_t q = ka_algo_euler2quaternion({0.0f, 0.0f, 0.0f});
    EXPECT_EQ(q.w, 1.0f);
    EXPECT_EQ(q.x, 0.0f);
    EXPECT_EQ(q.y, 0.0f);
    EXPECT_EQ(q.z, 0.0f);
}

TEST(QuaternionIdentity, UnitAndZeroQuaternionGiveZeroAngles) {
    for (ka_quat_t q : {ka_quat_t{1, 0, 0, 0}, ka_quat_t{0, 0, 0, 0}}) {
        ka_euler_t e = ka_algo_quaternion2euler(q);
        EXPECT_EQ(e.rx, 0.0f);
        EXPECT_EQ(e.ry, 0.0f);
        EXPECT_EQ(e.rz, 0.0f);
    }
}

TEST(QuaternionIdentity, NearZeroQuaternionIsIdentityRotation) {
    ka_matrix_t r = quat_to_matrix({1e-4f, 2e-4f, 0.0f, 1e-4f}); // squared norm 6e-8
    EXPECT_TRUE(matrices_near(r, unit_matrix(3), 0.0f));
}

TEST(QuaternionIdentity, ScaleDoesNotChangeRotation) {
    ka_quat_t q = euler_to_quat({0.4f, -0.7f, 2.0f});
    ka_quat_t q3 = {3 * q.w, 3 * q.x, 3 * q.y, 3 * q.z};
    EXPECT_TRUE(matrices_near(quat_to_matrix(q3), quat_to_matrix(q), 2e-6f));
}

TEST(QuaternionIdentity, EulerToQuaternionIsNotRenormalised) {
    // Exact half-angle formula: the norm is only as close to 1 as the float
    // trigonometry, never forced.
    ka_quat_t q = euler_to_quat({1.0f, 2.0f, 3.0f});
    float n = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    EXPECT_NEAR(n, 1.0f, 1e-6f);
}

// --------------------------------------------- rotation to quaternion cases

TEST(MatrixToQuaternion, HalfTurnAboutXUsesXBranch) {
    ka_quat_t q = matrix_to_quat(rotx(k_pi)); // trace -1
    EXPECT_NEAR(std::fabs(q.x), 1.0f, 1e-6f);
    EXPECT_NEAR(q.w, 0.0f, 1e-6f);
    EXPECT_NEAR(q.y, 0.0f, 1e-6f);
    EXPECT_NEAR(q.z, 0.0f, 1e-6f);
}

TEST(MatrixToQuaternion, HalfTurnsAboutYAndZ) {
    ka_quat_t qy = matrix_to_quat(roty(k_pi));
    EXPECT_NEAR(std::fabs(qy.y), 1.0f, 1e-6f);
    ka_quat_t qz = matrix_to_quat(rotz(k_pi));
    EXPECT_NEAR(std::fabs(qz.z), 1.0f, 1e-6f);
}

TEST(MatrixToQuaternion, NegativeTraceRotationsStillRoundTrip) {
    random_source rng(11);
    int negative_trace = 0;
    for (int i = 0; i < 2000; ++i) {
        ka_matrix_t r = euler_to_matrix(rng.euler());
        if (r.data[0][0] + r.data[1][1] + r.data[2][2] <= 0.0f) ++negative_trace;
        EXPECT_TRUE(matrices_near(quat_to_matrix(matrix_to_quat(r)), r, 5e-6f));
    }
    EXPECT_GT(negative_trace, 100); // the branches other than t > 0 were exercised
}

// ------------------------------------------------------- gimbal lock

TEST(GimbalLock, PitchMinusHalfPiPutsEverythingInRx) {
    ka_euler_t e = {0.0f, -k_pi / 2, 0.3f};
    ka_matrix_t r = euler_to_matrix(e);
    ka_euler_t back = matrix_to_euler(r);
    EXPECT_EQ(back.rz, 0.0f);
    EXPECT_NEAR(back.ry, -k_pi / 2, 1e-3f);
    // At ry = -pi/2 only rx + rz is determined: rx takes the whole 0.3.
    EXPECT_NEAR(back.rx, 0.3f, 1e-3f);
    EXPECT_TRUE(matrices_near(euler_to_matrix(back), r, 1e-3f));
}

TEST(GimbalLock, PitchPlusHalfPiPutsEverythingInRx) {
    ka_euler_t e = {0.2f, k_pi / 2, 0.5f};
    ka_matrix_t r = euler_to_matrix(e);
    ka_euler_t back = matrix_to_euler(r);
    EXPECT_EQ(back.rz, 0.0f);
    EXPECT_NEAR(back.ry, k_pi / 2, 1e-3f);
    EXPECT_NEAR(back.rx, 0.2f - 0.5f, 1e-3f); // at ry = +pi/2 only rx - rz is determined
    EXPECT_TRUE(matrices_near(euler_to_matrix(back), r, 1e-3f));
}

TEST(GimbalLock, JustInsideThresholdKeepsYaw) {
    // r20 = -sin(ry); well inside 0.999999 the general branch keeps rz.
    ka_euler_t e = {0.1f, 1.5f, 0.4f};
    ka_euler_t back = matrix_to_euler(euler_to_matrix(e));
    EXPECT_NEAR(back.rz, 0.4f, 1e-4f);
}

// -------------------------------------------------------- -3.13 wrap

TEST(AngleWrap, BelowMinus313IsLiftedByOneTurn) {
    ka_euler_t back = matrix_to_euler(euler_to_matrix({-3.14f, 0.0f, 0.0f}));
    EXPECT_NEAR(back.rx, -3.14f + 6.2831855f, 1e-5f);
    EXPECT_GT(back.rx, 3.1415f);
    back = matrix_to_euler(euler_to_matrix({0.0f, 0.0f, -3.14f}));
    EXPECT_NEAR(back.rz, 3.1432f, 1e-4f);
}

TEST(AngleWrap, AboveMinus313StaysNegative) {
    ka_euler_t back = matrix_to_euler(euler_to_matrix({-3.12f, 0.0f, -3.12f}));
    EXPECT_NEAR(back.rx, -3.12f, 1e-5f);
    EXPECT_NEAR(back.rz, -3.12f, 1e-5f);
}

TEST(AngleWrap, HalfTurnComesOutPositive) {
    ka_euler_t back = matrix_to_euler(euler_to_matrix({k_pi, 0.0f, 0.0f}));
    EXPECT_NEAR(back.rx, k_pi, 1e-5f);
}

TEST(AngleWrap, ResultsStayInTheDocumentedBand) {
    random_source rng(12);
    for (int i = 0; i < 5000; ++i) {
        ka_euler_t back = matrix_to_euler(euler_to_matrix(rng.euler(6.0f)));
        for (float a : {back.rx, back.ry, back.rz}) {
            EXPECT_GE(a, -3.13f);
            EXPECT_LT(a, k_pi + 0.0117f);
        }
    }
}

// --------------------------------------------------------------- poses

TEST(PoseToMatrix, IgnoresTheQuaternion) {
    ka_pose_t a{};
    a.position = {0.1f, -0.2f, 0.3f};
    a.euler = {0.3f, 0.2f, -1.0f};
    a.quaternion = {1, 0, 0, 0};
    ka_pose_t b = a;
    b.quaternion = {0.0f, 0.6f, 0.0f, 0.8f};
    ka_matrix_t ma = ka_algo_pos2matrix(a);
    ka_matrix_t mb = ka_algo_pos2matrix(b);
    EXPECT_TRUE(matrices_near(ma, mb, 0.0f));
}

TEST(PoseToMatrix, IsFourByFourHomogeneous) {
    ka_pose_t p{};
    p.position = {1.0f, 2.0f, 3.0f};
    p.euler = {0.5f, 0.5f, 0.5f};
    ka_matrix_t m = ka_algo_pos2matrix(p);
    EXPECT_EQ(m.rows, 4);
    EXPECT_EQ(m.columns, 4);
    EXPECT_EQ(m.data[3][0], 0.0f);
    EXPECT_EQ(m.data[3][1], 0.0f);
    EXPECT_EQ(m.data[3][2], 0.0f);
    EXPECT_EQ(m.data[3][3], 1.0f);
    EXPECT_EQ(m.data[0][3], 1.0f);
    EXPECT_EQ(m.data[1][3], 2.0f);
    EXPECT_EQ(m.data[2][3], 3.0f);
}

TEST(PoseToMatrix, QuaternionFormIgnoresEulerAngles) {
    ka_pose_t p{};
    p.position = {0.1f, 0.2f, 0.3f};
    p.quaternion = euler_to_quat({0.2f, 0.4f, 0.6f});
    p.euler = {3.0f, 3.0f, 3.0f};
    ka_pose_t e = p;
    e.euler = {0.2f, 0.4f, 0.6f};
    EXPECT_TRUE(matrices_near(pose_quat_to_transformation_matrix(p),
                              pose_euler_to_transformation_matrix(e), 2e-6f));
}

TEST(PoseToMatrix, InnerExportsMatchTheKaNames) {
    ka_pose_t p{};
    p.position = {0.4f, 0.5f, 0.6f};
    p.euler = {-0.4f, 0.1f, 2.5f};
    EXPECT_TRUE(matrices_near(algo_pose_to_matrix(p), ka_algo_pos2matrix(p), 0.0f));
    EXPECT_TRUE(matrices_near(algo_euler_to_matrix(p.euler), ka_algo_euler2matrix(p.euler), 0.0f));
    ka_pose_t a = algo_matrix_to_pose(algo_pose_to_matrix(p));
    EXPECT_TRUE(poses_near(a, p, 1e-6f, 2e-6f));
}

// ------------------------------------------------------- interpolation

TEST(QuaternionInterpolation, HalfwayIsHalfTheRotation) {
    ka_quat_t q0 = euler_to_quat({0, 0, 0});
    ka_quat_t q1 = euler_to_quat({0, 0, k_pi / 2});
    float angle = std::acos(q0.w * q1.w + q0.z * q1.z); // pi/4 between quaternions
    ka_quat_t mid = quaternion_interpolation(angle, angle / 2, q0, q1);
    EXPECT_TRUE(same_rotation(mid, euler_to_quat({0, 0, k_pi / 4}), 1e-6f));
}

TEST(QuaternionInterpolation, EndsAreTheInputs) {
    ka_quat_t q0 = euler_to_quat({0.3f, 0.1f, 0});
    ka_quat_t q1 = euler_to_quat({0.1f, 0.6f, -0.4f});
    float angle = std::acos(q0.w * q1.w + q0.x * q1.x + q0.y * q1.y + q0.z * q1.z);
    EXPECT_TRUE(same_rotation(quaternion_interpolation(angle, 0.0f, q0, q1), q0, 1e-6f));
    EXPECT_TRUE(same_rotation(quaternion_interpolation(angle, angle, q0, q1), q1, 2e-6f));
}
