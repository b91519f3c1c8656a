// Building blocks of the solvers, by property: the Z-Y-Z split reproduces
// its matrix (aligned or not) and shares an aligned turn evenly; a joint is
// brought into its limits by whole turns, nearest to the reference.
#include "tests/algo/ik_test_support.h"

#include <gtest/gtest.h>

#include <random>

namespace {

void rz(double a, double R[3][3]) {
    const double c = std::cos(a), s = std::sin(a);
    const double M[3][3] = {{c, -s, 0}, {s, c, 0}, {0, 0, 1}};
    std::copy(&M[0][0], &M[0][0] + 9, &R[0][0]);
}

void ry(double a, double R[3][3]) {
    const double c = std::cos(a), s = std::sin(a);
    const double M[3][3] = {{c, 0, s}, {0, 1, 0}, {-s, 0, c}};
    std::copy(&M[0][0], &M[0][0] + 9, &R[0][0]);
}

void mul(const double A[3][3], const double B[3][3], double C[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            C[i][j] = A[i][0] * B[0][j] + A[i][1] * B[1][j] + A[i][2] * B[2][j];
}

void zyz_matrix(double a, double b, double c, double M[3][3]) {
    double A[3][3], B[3][3], C[3][3], AB[3][3];
    rz(a, A);
    ry(b, B);
    rz(c, C);
    mul(A, B, AB);
    mul(AB, C, M);
}

double max_difference(const double A[3][3], const double B[3][3]) {
    double m = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m = std::max(m, std::fabs(A[i][j] - B[i][j]));
    return m;
}

TEST(zyz_split, both_branches_reproduce_the_matrix) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> angle(-k_pi, k_pi);
    for (int k = 0; k < 20000; ++k) {
        // Middle angles across the whole range, aligned ones included.
        const double b =
            k % 10 == 0 ? (k % 20 == 0 ? 0.0 : k_pi) * (k % 40 < 20 ? 1 : -1) : angle(rng);
        double M[3][3];
        zyz_matrix(angle(rng), b, angle(rng), M);
        zyz_angles z;
        ik_zyz(M, angle(rng), angle(rng), &z);
        for (const auto &t : z.angle) {
            double N[3][3];
            zyz_matrix(t[0], t[1], t[2], N);
            ASSERT_LT(max_difference(M, N), 1e-12) << "b " << b;
        }
        if (!z.aligned) EXPECT_GE(z.angle[0][1], 0.0);
    }
}

TEST(zyz_split, shares_an_aligned_turn_evenly_between_the_outer_angles) {
    for (double b : {0.0, k_pi}) {
        double M[3][3];
        zyz_matrix(0.7, b, -0.2, M);
        // References 0.3 and 0.4: the outer angles move by equal amounts.
        zyz_angles z;
        ik_zyz(M, 0.3, 0.4, &z);
        ASSERT_TRUE(z.aligned);
        const double da = ik_wrap_pi(z.angle[0][0] - 0.3), dc = ik_wrap_pi(z.angle[0][2] - 0.4);
        EXPECT_NEAR(std::fabs(da), std::fabs(dc), 1e-12) << "b " << b;
        double N[3][3];
        zyz_matrix(z.angle[0][0], z.angle[0][1], z.angle[0][2], N);
        EXPECT_LT(max_difference(M, N), 1e-12);
    }
}

TEST(joint_wrap, takes_the_turn_nearest_to_the_reference_within_the_limits) {
    double out = 0.0;
    // +-360 degrees: both 0.5 and 0.5 - 2 pi fit; the reference decides.
    ASSERT_TRUE(ik_wrap_joint(0.5, -5.0, -2 * k_pi, 2 * k_pi, &out));
    EXPECT_NEAR(out, 0.5 - 2 * k_pi, 1e-12);
    ASSERT_TRUE(ik_wrap_joint(0.5 - 2 * k_pi, 1.0, -2 * k_pi, 2 * k_pi, &out));
    EXPECT_NEAR(out, 0.5, 1e-12);
    // The nearest turn lies outside: the next one inside is taken.
    ASSERT_TRUE(ik_wrap_joint(-3.0, 3.0, -3.1, 3.1, &out));
    EXPECT_NEAR(out, -3.0, 1e-12);
    // No turn fits a narrow range.
    EXPECT_FALSE(ik_wrap_joint(2.0, 0.0, -1.0, 1.0, &out));
    // On a limit, up to rounding, counts as within it.
    ASSERT_TRUE(ik_wrap_joint(1.0 + 1e-9, 1.0, -1.0, 1.0, &out));
    EXPECT_EQ(out, 1.0);
    EXPECT_FALSE(ik_wrap_joint(NAN, 0.0, -1.0, 1.0, &out));
}

} // namespace
