// Pose mathematics (Euler angles, quaternions, rotations, poses) and the
// matrix inverses, by property.
#include "tests/algo/algo_test_support.h"

#include "algo/matrix.h"
#include "algo/pose_math.h"
#include "algo/trig.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

using namespace algo_test;

namespace {

::testing::AssertionResult same_rotation(ka_quat_t a, ka_quat_t b, float tol) {
    const float sign = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z < 0 ? -1.0f : 1.0f;
    const float d[4] = {a.w - sign * b.w, a.x - sign * b.x, a.y - sign * b.y, a.z - sign * b.z};
    for (float v : d)
        if (!(std::fabs(v) <= tol))
            return ::testing::AssertionFailure()
                   << "(" << a.w << ", " << a.x << ", " << a.y << ", " << a.z << ") vs (" << b.w
                   << ", " << b.x << ", " << b.y << ", " << b.z << ")";
    return ::testing::AssertionSuccess();
}

} // namespace

// ------------------------------------------------------------ trigonometry

namespace {

// Distance in representable floats (0 for equal values, +0 and -0 apart).
std::int64_t ulps_apart(float a, float b) {
    std::int32_t ia, ib;
    std::memcpy(&ia, &a, sizeof ia);
    std::memcpy(&ib, &b, sizeof ib);
    const auto ordered = [](std::int32_t i) -> std::int64_t {
        return i < 0 ? std::int64_t{INT32_MIN} - i - 1 : i;
    };
    return std::llabs(ordered(ia) - ordered(ib));
}

} // namespace

TEST(Trigonometry, AgreesWithTheDoubleResultRoundedOnce) {
    // Every quadrant, both signs of zero, the axes, angles just off the
    // quadrant boundaries, and magnitudes beyond the reduction's range.
    random_source rng(9);
    for (int i = 0; i < 200000; ++i) {
        const float y = i % 7 == 0 ? 0.0f : rng.uf(-2.0f, 2.0f);
        const float x = i % 5 == 0 ? -0.0f : rng.uf(-2.0f, 2.0f);
        const float a = trig::arc_tangent2(y, x);
        ASSERT_LE(ulps_apart(a, static_cast<float>(std::atan2(double{y}, double{x}))), 1)
            << y << ", " << x;
        ASSERT_EQ(std::signbit(a), std::signbit(std::atan2(y, x))) << y << ", " << x;
    }
    for (float y : {0.0f, -0.0f})
        for (float x : {0.0f, -0.0f, 1.0f, -1.0f})
            EXPECT_EQ(trig::arc_tangent2(y, x), std::atan2(y, x)) << y << ", " << x;

    float angle[8], s[8], c[8];
    for (int i = 0; i < 50000; ++i) {
        for (float &v : angle)
            v = rng.uf(-40.0f, 40.0f);
        angle[0] = static_cast<float>(i % 9) * static_cast<float>(k_pi_f / 4) * (i % 2 ? -1 : 1);
        trig::sines_cosines(angle, s, c);
        for (int k = 0; k < 8; ++k) {
            ASSERT_LE(ulps_apart(s[k], static_cast<float>(std::sin(double{angle[k]}))), 1)
                << angle[k];
            ASSERT_LE(ulps_apart(c[k], static_cast<float>(std::cos(double{angle[k]}))), 1)
                << angle[k];
        }
    }
    const float large[2] = {3.0e5f, -7.0e7f};
    float ls[2], lc[2];
    trig::sines_cosines(large, ls, lc);
    for (int k = 0; k < 2; ++k) {
        EXPECT_LE(ulps_apart(ls[k], static_cast<float>(std::sin(double{large[k]}))), 1);
        EXPECT_LE(ulps_apart(lc[k], static_cast<float>(std::cos(double{large[k]}))), 1);
    }
}

TEST(Trigonometry, SearchVariantsStayWithinTheirBoundsOfTheMathsLibrary) {
    // The search's arc tangent: every quadrant, the axes, both zeros, the
    // octant boundaries (|y| == |x|), and tiny and large magnitudes.
    random_source rng(11);
    double worst = 0.0;
    for (int i = 0; i < 200000; ++i) {
        const double scale = std::pow(10.0, rng.uf(-6.0f, 6.0f));
        double y = rng.uf(-1.0f, 1.0f) * scale, x = rng.uf(-1.0f, 1.0f) * scale;
        if (i % 11 == 0) y = (i % 2 ? 1 : -1) * std::fabs(x);
        if (i % 13 == 0) x = 0.0;
        const double a = trig::search_arc_tangent2(y, x);
        worst = std::max(worst, std::fabs(a - std::atan2(y, x)));
        ASSERT_LE(std::fabs(a - std::atan2(y, x)), 3e-11) << y << ", " << x;
    }
    for (double y : {0.0, -0.0, 1.0, -1.0})
        for (double x : {0.0, 1.0, -1.0})
            if (y != 0.0 || x != 0.0)
                EXPECT_NEAR(trig::search_arc_tangent2(y, x), std::atan2(y, x), 3e-11)
                    << y << ", " << x;
    EXPECT_EQ(trig::search_arc_tangent2(0.0, 0.0), 0.0);
    EXPECT_EQ(trig::search_arc_tangent2(-0.0, -1.0), std::atan2(-0.0, -1.0)) << "sign of -pi";

    // Its sine and cosine, across the reduction's quadrants and beyond its range.
    for (int i = 0; i < 200000; ++i) {
        const double x = i % 17 == 0 ? (i % 8) * k_pi / 4 * (i % 2 ? -1 : 1)
                                     : rng.uf(-50.0f, 50.0f) + rng.uf(-1.0f, 1.0f) * 1e-7;
        double s = 0.0, c = 0.0;
        trig::search_sine_cosine(x, &s, &c);
        ASSERT_NEAR(s, std::sin(x), 1e-15) << x;
        ASSERT_NEAR(c, std::cos(x), 1e-15) << x;
    }
    // Beyond the reduction's range it hands over to the maths library; read
    // through a volatile so that the compiler cannot fold the expected value
    // with its own, more exact, arithmetic (MinGW's runtime differs there).
    for (double x : {1.0e7, -3.0e9}) {
        double s = 0.0, c = 0.0;
        trig::search_sine_cosine(x, &s, &c);
        volatile double at = x;
        EXPECT_EQ(s, std::sin(at)) << x;
        EXPECT_EQ(c, std::cos(at)) << x;
    }
}

// ------------------------------------------------------------ pose maths

TEST(EulerAngles, AreFixedAxesXThenYThenZAndRightHanded) {
    // A quarter turn takes one axis onto the next: rz X onto Y, rx Y onto Z, ry Z onto X.
    const struct {
        ka_euler_t e;
        int row, col;
    } quarter[] = {
        {{0, 0, k_pi_f / 2}, 1, 0}, {{k_pi_f / 2, 0, 0}, 2, 1}, {{0, k_pi_f / 2, 0}, 0, 2}};
    for (const auto &c : quarter)
        EXPECT_NEAR(ka_algo_euler2matrix(c.e).data[c.row][c.col], 1.0f, 1e-6f);
    random_source rng(1);
    for (int i = 0; i < 500; ++i) {
        const ka_euler_t e = rng.euler();
        const ka_matrix_t r = euler_to_matrix(e);
        const ik_frame f = frame_of(0, 0, 0, e.rx, e.ry, e.rz);
        for (int k = 0; k < 9; ++k)
            ASSERT_NEAR(r.data[k / 3][k % 3], f.R[k / 3][k % 3], 2e-6) << i;
    }
}

TEST(EulerAngles, RoundTripThroughMatrixQuaternionAndPose) {
    random_source rng(2);
    for (int i = 0; i < 2000; ++i) {
        const ka_euler_t e = {rng.uf(-3.12f, 3.14f), rng.uf(-1.5f, 1.5f), rng.uf(-3.12f, 3.14f)};
        const ka_matrix_t r = euler_to_matrix(e);
        const ka_euler_t back = matrix_to_euler(r);
        EXPECT_NEAR(back.rx, e.rx, 5e-5f);
        EXPECT_NEAR(back.ry, e.ry, 5e-5f);
        EXPECT_NEAR(back.rz, e.rz, 5e-5f);
        const ka_quat_t q = ka_algo_euler2quaternion(e);
        EXPECT_TRUE(matrices_near(quat_to_matrix(q), r, 3e-6));
        EXPECT_TRUE(same_rotation(matrix_to_quat(r), q, 3e-6f));
        EXPECT_TRUE(matrices_near(euler_to_matrix(ka_algo_quaternion2euler(q)), r, 2e-5));
        const ka_pose_t p = rng.pose();
        const ka_pose_t pb = ka_algo_matrix2pos(ka_algo_pos2matrix(p));
        EXPECT_TRUE(poses_near(pb, p, 1e-6, 5e-6));
        EXPECT_TRUE(same_rotation(pb.quaternion, euler_to_quat(p.euler), 3e-6f));
    }
}

TEST(EulerAngles, GimbalLockAndTheWrapBelowMinus313) {
    const float h = k_pi_f / 2;
    const struct {
        ka_euler_t in, out;
        float tol;
    } cases[] = {
        {{0, -h, 0.3f}, {0.3f, -h, 0}, 1e-3f},    // ry = -pi/2: rx takes rx + rz
        {{0.2f, h, 0.5f}, {-0.3f, h, 0}, 1e-3f},  // ry = +pi/2: rx takes rx - rz
        {{-3.14f, 0, 0}, {3.1432f, 0, 0}, 1e-4f}, // below -3.13: one turn up
        {{0, 0, -3.14f}, {0, 0, 3.1432f}, 1e-4f},
        {{-3.12f, 0, -3.12f}, {-3.12f, 0, -3.12f}, 1e-5f}, // above it: unchanged
        {{k_pi_f, 0, 0}, {k_pi_f, 0, 0}, 1e-5f},           // a half turn comes out positive
    };
    for (const auto &c : cases) {
        const ka_euler_t e = matrix_to_euler(euler_to_matrix(c.in));
        EXPECT_NEAR(e.rx, c.out.rx, c.tol) << c.in.rx << ", " << c.in.ry << ", " << c.in.rz;
        EXPECT_NEAR(e.ry, c.out.ry, c.tol) << c.in.rx << ", " << c.in.ry << ", " << c.in.rz;
        EXPECT_NEAR(e.rz, c.out.rz, c.tol) << c.in.rx << ", " << c.in.ry << ", " << c.in.rz;
        if (std::fabs(c.in.ry) == h) EXPECT_EQ(e.rz, 0.0f);
    }
    random_source rng(3);
    for (int i = 0; i < 5000; ++i) {
        const ka_euler_t e = matrix_to_euler(euler_to_matrix(rng.euler(6.0f)));
        for (float a : {e.rx, e.ry, e.rz}) {
            EXPECT_GE(a, -3.13f);
            EXPECT_LT(a, k_pi_f + 0.0117f);
        }
    }
}

TEST(Quaternions, ZeroIsIdentityAndHalfTurnsPickTheirAxis) {
    for (ka_quat_t q : {ka_quat_t{1, 0, 0, 0}, ka_quat_t{0, 0, 0, 0}}) {
        const ka_euler_t e = ka_algo_quaternion2euler(q);
        EXPECT_EQ(e.rx, 0.0f);
        EXPECT_EQ(e.ry, 0.0f);
        EXPECT_EQ(e.rz, 0.0f);
        EXPECT_TRUE(matrices_near(quat_to_matrix(q), unit_matrix(3), 0.0));
    }
    // Half turns have trace -1; the largest component is the axis.
    const ka_euler_t half_turns[3] = {{k_pi_f, 0, 0}, {0, k_pi_f, 0}, {0, 0, k_pi_f}};
    for (int axis = 0; axis < 3; ++axis) {
        const ka_quat_t q = matrix_to_quat(euler_to_matrix(half_turns[axis]));
        const float v[4] = {q.w, q.x, q.y, q.z};
        for (int k = 0; k < 4; ++k)
            EXPECT_NEAR(std::fabs(v[k]), k == axis + 1 ? 1.0f : 0.0f, 1e-6f) << axis << ":" << k;
    }
}

TEST(PoseMatrices, HaveTheirSizesAndIgnoreTheQuaternion) {
    const ka_matrix_t r = ka_algo_euler2matrix({0.3f, -0.2f, 1.1f});
    ASSERT_EQ(r.rows, 3);
    ASSERT_EQ(r.columns, 3);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(r.data[3][i], 0.0f);
        EXPECT_EQ(r.data[i][3], 0.0f);
    }
    ka_pose_t a{{0.1f, -0.2f, 0.3f}, {1, 0, 0, 0}, {0.3f, 0.2f, -1.0f}};
    ka_pose_t b = a;
    b.quaternion = {0.0f, 0.6f, 0.0f, 0.8f};
    const ka_matrix_t t = ka_algo_pos2matrix(a);
    EXPECT_TRUE(matrices_near(ka_algo_pos2matrix(b), t, 0.0));
    ASSERT_EQ(t.rows, 4);
    EXPECT_EQ(t.data[3][3], 1.0f);
    EXPECT_EQ(t.data[3][0] + t.data[3][1] + t.data[3][2], 0.0f);
}

// ---------------------------------------------------------------- matrices

namespace {

template <class M> M random_matrix(random_source &rng, int rows, int cols, float diagonal = 0) {
    M m{};
    m.rows = static_cast<decltype(m.rows)>(rows);
    m.columns = static_cast<decltype(m.columns)>(cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.data[r][c] = rng.uf(-1.0f, 1.0f) + (r == c ? diagonal : 0.0f);
    return m;
}

::testing::AssertionResult all_of(std::initializer_list<::testing::AssertionResult> results) {
    for (const auto &r : results)
        if (!r) return r;
    return ::testing::AssertionSuccess();
}

using property = ::testing::AssertionResult (*)(random_source &);

const struct {
    const char *name;
    property holds;
} k_matrix_properties[] = {
    {"4x4 inverse",
     [](random_source &rng) {
         const auto a = random_matrix<ka_matrix_t>(rng, 4, 4, 3.0f);
         return matrices_near(matrix_m(a, matrix_inv(a)), unit_matrix(4), 2e-6);
     }},
    {"rigid inverse",
     [](random_source &rng) {
         const ka_matrix_t t = pose_euler_to_transformation_matrix(rng.pose(2.0f));
         const ka_matrix_t inv = matrix_inv_coordinate_system(t);
         return all_of({matrices_near(matrix_m(inv, t), unit_matrix(4), 3e-6),
                        matrices_near(inv, matrix_inv(t), 3e-6)});
     }},
    {"3x3 inverse, and the singular and non-square cases",
     [](random_source &rng) {
         const auto a = random_matrix<ka_matrix_t>(rng, 3, 3, 2.0f);
         auto singular = random_matrix<ka_matrix_t>(rng, 3, 3);
         for (int c = 0; c < 3; ++c)
             singular.data[2][c] = singular.data[0][c]; // two equal rows
         const ka_matrix_t s = matrix_inv(singular),
                           wide = matrix_inv(random_matrix<ka_matrix_t>(rng, 3, 4));
         if (std::isfinite(s.data[0][0]) && std::isfinite(s.data[1][1]) &&
             std::isfinite(s.data[2][2]))
             return ::testing::AssertionFailure() << "a singular matrix inverted to finite values";
         if (!(wide.rows == 3 && wide.columns == 4 && matrices_near(wide, zero_matrix(3, 4), 0.0)))
             return ::testing::AssertionFailure() << "a non-square matrix did not give zeros";
         return matrices_near(matrix_m(a, matrix_inv(a)), unit_matrix(3), 2e-6);
     }},
};

} // namespace

TEST(Matrices, PropertiesOfTheInverses) {
    for (const auto &p : k_matrix_properties) {
        random_source rng(4);
        for (int i = 0; i < 100; ++i)
            if (const auto r = p.holds(rng); !r) {
                ADD_FAILURE() << p.name << ", sample " << i << ": " << r.message();
                break;
            }
    }
}
