// The three matrix libraries: fixed 4x4, 7x7 and the 20x20 general one.
#include "tests/algo/algo_test_support.h"

#include "algo/matrix.h"
#include "algo/pose_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

using namespace algo_test;

namespace {

ka_matrix_t filled(int rows, int cols, random_source &rng) {
    ka_matrix_t m = zero_matrix(rows, cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.data[r][c] = rng.uniform(-1.0f, 1.0f);
    return m;
}

mat_t random_mat(int rows, int cols, random_source &rng) {
    mat_t m = mat_init(rows, cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.data[r][c] = rng.uniform(-1.0f, 1.0f);
    return m;
}

::testing::AssertionResult mats_near(const mat_t &a, const mat_t &b, float tol) {
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

bool zero_outside_counts(const ka_matrix_t &m) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            if ((r >= m.rows || c >= m.columns) && m.data[r][c] != 0.0f) return false;
    return true;
}

} // namespace

// ------------------------------------------------------------ ka_matrix_t

TEST(FixedMatrix, ProductHasOuterCountsAndZeroBorder) {
    random_source rng;
    ka_matrix_t a = filled(3, 2, rng);
    ka_matrix_t b = filled(2, 4, rng);
    ka_matrix_t p = matrix_m(a, b);
    EXPECT_EQ(p.rows, 3);
    EXPECT_EQ(p.columns, 4);
    EXPECT_TRUE(zero_outside_counts(p));
    EXPECT_FLOAT_EQ(p.data[2][3], a.data[2][0] * b.data[0][3] + a.data[2][1] * b.data[1][3]);
}

TEST(FixedMatrix, ProductIgnoresEntriesOutsideTheCounts) {
    ka_matrix_t a = unit_matrix(3);
    a.data[0][3] = 99.0f; // garbage outside the counts of a 3x3
    ka_matrix_t b = unit_matrix(4);
    b.data[3][0] = 77.0f;
    b.rows = 3;
    b.columns = 3;
    EXPECT_TRUE(matrices_near(matrix_m(a, b), unit_matrix(3), 0.0f));
}

TEST(FixedMatrix, AddOrSubtractBySign) {
    random_source rng;
    ka_matrix_t a = filled(4, 4, rng), b = filled(4, 4, rng);
    ka_matrix_t sum = matrix_a(a, b, 1);
    ka_matrix_t diff0 = matrix_a(a, b, 0);
    ka_matrix_t diffm = matrix_a(a, b, -1);
    EXPECT_FLOAT_EQ(sum.data[1][2], a.data[1][2] + b.data[1][2]);
    EXPECT_FLOAT_EQ(diff0.data[1][2], a.data[1][2] - b.data[1][2]);
    EXPECT_TRUE(matrices_near(diff0, diffm, 0.0f));
}

TEST(FixedMatrix, TransposeSwapsCounts) {
    random_source rng;
    ka_matrix_t a = filled(2, 3, rng);
    ka_matrix_t t = matrix_t(a);
    EXPECT_EQ(t.rows, 3);
    EXPECT_EQ(t.columns, 2);
    EXPECT_EQ(t.data[2][1], a.data[1][2]);
    EXPECT_TRUE(zero_outside_counts(t));
}

TEST(FixedMatrix, ScalarTimesMatrix) {
    random_source rng;
    ka_matrix_t a = filled(3, 3, rng);
    EXPECT_FLOAT_EQ(matrix_m_num(a, -2.5f).data[2][0], -2.5f * a.data[2][0]);
}

TEST(FixedMatrix, CountsBeyondCapacityAreClamped) {
    ka_matrix_t m = zero_matrix(9, -3);
    EXPECT_EQ(m.rows, 4);
    EXPECT_EQ(m.columns, 0);
    ka_matrix_t big = unit_matrix(4);
    big.rows = 100;
    big.columns = 100;
    ka_matrix_t p = matrix_m(big, big); // must stay inside data[4][4]
    EXPECT_EQ(p.rows, 4);
    EXPECT_TRUE(matrices_near(p, unit_matrix(4), 0.0f));
}

TEST(FixedMatrixInverse, ProductWithInverseIsIdentity) {
    random_source rng(3);
    for (int n = 1; n <= 4; ++n) {
        for (int i = 0; i < 200; ++i) {
            ka_matrix_t a = filled(n, n, rng);
            for (int k = 0; k < n; ++k)
                a.data[k][k] += 2.0f; // well conditioned
            EXPECT_TRUE(matrices_near(matrix_m(a, matrix_inv(a)), unit_matrix(n), 2e-6f));
        }
    }
}

TEST(FixedMatrixInverse, ZeroLeadingPivotNeedsPivoting) {
    ka_matrix_t p = zero_matrix(4, 4);
    p.data[0][2] = 1.0f;
    p.data[1][0] = 2.0f;
    p.data[2][3] = -1.0f;
    p.data[3][1] = 0.5f;
    EXPECT_TRUE(matrices_near(matrix_m(p, matrix_inv(p)), unit_matrix(4), 0.0f));
}

TEST(FixedMatrixInverse, SingularInputGivesNonFiniteEntries) {
    ka_matrix_t s = zero_matrix(3, 3);
    s.data[0][0] = 1.0f;
    s.data[1][1] = 1.0f; // third row and column all zero
    ka_matrix_t inv = matrix_inv(s);
    bool any_non_finite = false;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            any_non_finite |= !std::isfinite(inv.data[r][c]);
    EXPECT_TRUE(any_non_finite);
}

TEST(FixedMatrixInverse, RigidTransformInverseMatchesGeneralInverse) {
    random_source rng(4);
    for (int i = 0; i < 500; ++i) {
        ka_matrix_t t = pose_euler_to_transformation_matrix(rng.pose(2.0f));
        ka_matrix_t inv = matrix_inv_coordinate_system(t);
        EXPECT_TRUE(matrices_near(matrix_m(inv, t), unit_matrix(4), 3e-6f));
        EXPECT_TRUE(matrices_near(inv, matrix_inv(t), 3e-6f));
        EXPECT_EQ(inv.data[3][3], 1.0f);
    }
}

TEST(FixedMatrix, RotationBlockOfTransform) {
    ka_matrix_t t = pose_euler_to_transformation_matrix(random_source(5).pose());
    ka_matrix_t r = matrix_T2R(t);
    EXPECT_EQ(r.rows, 3);
    EXPECT_TRUE(zero_outside_counts(r));
    EXPECT_EQ(r.data[1][2], t.data[1][2]);
}

TEST(ElementaryRotations, RightHandedQuarterTurns) {
    ka_matrix_t x = zero_matrix(3, 1), y = zero_matrix(3, 1), z = zero_matrix(3, 1);
    x.data[0][0] = y.data[1][0] = z.data[2][0] = 1.0f;
    EXPECT_TRUE(matrices_near(matrix_m(rotz(k_pi / 2), x), y, 1e-7f));
    EXPECT_TRUE(matrices_near(matrix_m(rotx(k_pi / 2), y), z, 1e-7f));
    EXPECT_TRUE(matrices_near(matrix_m(roty(k_pi / 2), z), x, 1e-7f));
    EXPECT_TRUE(matrices_near(cross(x, y), z, 0.0f));
    EXPECT_TRUE(matrices_near(cross(y, x), matrix_m_num(z, -1.0f), 0.0f));
}

TEST(ScalarHelpers, SignOfFloat) {
    EXPECT_EQ(ka_sign(2.5f), 1);
    EXPECT_EQ(ka_sign(-1e-30f), -1);
    EXPECT_EQ(ka_sign(0.0f), 0);
    EXPECT_EQ(ka_sign(-0.0f), 0);
}

TEST(ScalarHelpers, AcosArctangentCoversAllQuadrants) {
    random_source rng(6);
    for (int i = 0; i < 2000; ++i) {
        float y = rng.uniform(-2.0f, 2.0f), x = rng.uniform(-2.0f, 2.0f);
        EXPECT_NEAR(my_atan2f(y, x), std::atan2(y, x), 1e-3f) << y << ", " << x;
    }
    EXPECT_EQ(my_atan2f(0.0f, 0.0f), 0.0f);
    EXPECT_NEAR(my_atan2f(0.0f, -1.0f), k_pi, 1e-6f);
}

// -------------------------------------------------------------- matrix7_t

namespace {
matrix7_t random7(random_source &rng) {
    matrix7_t m = unit_matrix_dim7(7);
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 7; ++c)
            m.data[r][c] = rng.uniform(-1.0f, 1.0f) + (r == c ? 3.0f : 0.0f);
    return m;
}
} // namespace

TEST(Matrix7, InverseTimesMatrixIsIdentity) {
    random_source rng(13);
    for (int i = 0; i < 100; ++i) {
        matrix7_t a = random7(rng);
        matrix7_t p = matrix_m_dim7(matrix_inv_dim7(a), a);
        matrix7_t q = matrix_m_dim7(simp_matrix_inv77(a), a);
        for (int r = 0; r < 7; ++r)
            for (int c = 0; c < 7; ++c) {
                EXPECT_NEAR(p.data[r][c], r == c ? 1.0f : 0.0f, 2e-6f);
                EXPECT_NEAR(q.data[r][c], r == c ? 1.0f : 0.0f, 2e-6f);
            }
    }
}

TEST(Matrix7, TransposeAddScale) {
    random_source rng(14);
    matrix7_t a = random7(rng);
    a.rows = 6; // a 6x7 Jacobian
    matrix7_t t = matrix_t_dim7(a);
    EXPECT_EQ(t.rows, 7);
    EXPECT_EQ(t.columns, 6);
    EXPECT_EQ(t.data[6][5], a.data[5][6]);
    matrix7_t s = matrix_a_dim7(a, a, 1);
    matrix7_t z = matrix_a_dim7(a, a, 0);
    matrix7_t k = matrix_m_num_dim7(a, 2.0f);
    EXPECT_FLOAT_EQ(s.data[3][4], k.data[3][4]);
    EXPECT_EQ(z.data[3][4], 0.0f);
    matrix7_t jjt = matrix_m_dim7(a, t);
    EXPECT_EQ(jjt.rows, 6);
    EXPECT_EQ(jjt.columns, 6);
}

// ------------------------------------------------------------------ mat_t

TEST(GeneralMatrix, ConstructionAndAccess) {
    const float v[6] = {1, 2, 3, 4, 5, 6};
    mat_t m = mat_set_value(mat_init(2, 3), v);
    EXPECT_EQ(m.data[1][0], 4.0f);
    mat_t row = mat_get_Mrow_i(m, 1);
    EXPECT_EQ(row.rows, 1);
    EXPECT_EQ(row.columns, 3);
    EXPECT_EQ(row.data[0][2], 6.0f);
    mat_t col = mat_get_Mcol_j(m, 2);
    EXPECT_EQ(col.rows, 2);
    EXPECT_EQ(col.data[0][0], 3.0f);
    m = mat_set_Mcol_j(m, mat_get_Mcol_j(m, 0), 2);
    EXPECT_EQ(m.data[1][2], 4.0f);
    m = swap_row(m, 0, 1);
    EXPECT_EQ(m.data[0][0], 4.0f);
    m = swap_col(m, 0, 1);
    EXPECT_EQ(m.data[0][0], 5.0f);
    EXPECT_EQ(mat_init(25, 30).rows, k_mat_capacity);
    EXPECT_EQ(mat_eye(3).data[2][2], 1.0f);
    // An index outside the counts changes nothing.
    mat_t same = mat_set_Mrow_i(m, row, 7);
    EXPECT_TRUE(mats_near(same, m, 0.0f));
}

TEST(GeneralMatrix, PrintFormat) {
    const float v[4] = {1, 2, 3, 4};
    testing::internal::CaptureStdout();
    mat_print(mat_set_value(mat_init(2, 2), v));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "Mat = \n\t1.000000,\t2.000000,\t\n\t3.000000,\t4.000000,\t\n");
}

TEST(GeneralMatrix, ArithmeticAndReductions) {
    random_source rng(15);
    mat_t a = random_mat(3, 4, rng), b = random_mat(4, 2, rng);
    mat_t p = mat_mult(a, b);
    EXPECT_EQ(p.rows, 3);
    EXPECT_EQ(p.columns, 2);
    EXPECT_TRUE(mats_near(mat_T(mat_T(a)), a, 0.0f));
    EXPECT_TRUE(mats_near(mat_sub(mat_add(a, a), a), a, 1e-6f));
    EXPECT_FLOAT_EQ(mat_kM(3.0f, a).data[2][3], 3.0f * a.data[2][3]);
    mat_t d = mat_init(3, 3);
    d.data[0][0] = -4.0f;
    d.data[1][1] = 0.5f;
    d.data[2][2] = 2.0f;
    EXPECT_FLOAT_EQ(mat_trace(d), -1.5f);
    EXPECT_FLOAT_EQ(mat_det(d), -4.0f);
    EXPECT_FLOAT_EQ(mat_find_abs_max(d), 4.0f);
    EXPECT_FLOAT_EQ(mat_find_abs_min(d), 0.0f);
    EXPECT_TRUE(mat_is_equal(d, d));
    EXPECT_FALSE(mat_is_equal(d, mat_init(3, 2)));
    EXPECT_TRUE(mat_is_hermitian(d));
    EXPECT_FALSE(mat_is_hermitian(a));
}

TEST(GeneralMatrix, DeterminantOfNonSquareReportsAndIsInfinite) {
    testing::internal::CaptureStderr();
    float det = mat_det(mat_init(2, 3));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(det, std::numeric_limits<float>::infinity());
    EXPECT_NE(err.find("A is not a square matrix."), std::string::npos);
}

TEST(GeneralMatrix, RankCountsIndependentRows) {
    random_source rng(16);
    mat_t a = random_mat(5, 4, rng);
    EXPECT_EQ(mat_rank(a), 4);
    a = mat_set_Mrow_i(a, mat_get_Mrow_i(a, 0), 1);
    a = mat_set_Mrow_i(a, mat_get_Mrow_i(a, 0), 2);
    a = mat_set_Mrow_i(a, mat_get_Mrow_i(a, 0), 3);
    a = mat_set_Mrow_i(a, mat_get_Mrow_i(a, 0), 4);
    EXPECT_EQ(mat_rank(a), 1);
}

TEST(GeneralMatrixInverse, InverseAndStatus) {
    random_source rng(17);
    mat_t a = mat_add(random_mat(12, 12, rng), mat_kM(4.0f, mat_eye(12)));
    mat_t inv{};
    ASSERT_NE(mat_inv(a, &inv), 0);
    EXPECT_TRUE(mats_near(mat_mult(a, inv), mat_eye(12), 1e-5f));
    mat_t singular = mat_init(3, 3);
    singular.data[0][0] = 1.0f;
    EXPECT_EQ(mat_inv(singular, &inv), 0);
    EXPECT_EQ(mat_inv(mat_init(2, 3), &inv), 0);
}

TEST(GeneralMatrixInverse, PseudoInverseOfTallWideAndSquare) {
    random_source rng(18);
    mat_t tall = random_mat(7, 4, rng);
    EXPECT_TRUE(mats_near(mat_mult(mat_pinv(tall), tall), mat_eye(4), 2e-5f));
    mat_t wide = random_mat(6, 7, rng); // a seven-axis Jacobian shape
    EXPECT_TRUE(mats_near(mat_mult(wide, mat_pinv(wide)), mat_eye(6), 2e-5f));
    mat_t square = mat_add(random_mat(5, 5, rng), mat_kM(3.0f, mat_eye(5)));
    EXPECT_TRUE(mats_near(mat_mult(square, mat_pinv(square)), mat_eye(5), 2e-5f));
    EXPECT_TRUE(mats_near(mat_pinv_svd(wide), mat_pinv(wide), 1e-4f));
}

TEST(GeneralMatrixInverse, FailedPseudoInverseHasNoRows) {
    mat_t tall = mat_init(4, 2); // second column zero: A^T A singular
    tall.data[0][0] = 1.0f;
    tall.data[1][0] = 2.0f;
    EXPECT_EQ(mat_pinv(tall).rows, 0);
    mat_t square = mat_init(3, 3);
    EXPECT_EQ(mat_pinv(square).rows, 0);
}

TEST(GeneralMatrixInverse, SvdPseudoInverseHandlesRankDeficiency) {
    mat_t a = mat_init(3, 3);
    a.data[0][0] = 2.0f;
    a.data[1][1] = 1e-7f; // below the 1e-5 cut-off: treated as zero
    a.data[2][2] = 0.5f;
    mat_t p = mat_pinv_svd(a);
    EXPECT_NEAR(p.data[0][0], 0.5f, 1e-6f);
    EXPECT_EQ(p.data[1][1], 0.0f);
    EXPECT_NEAR(p.data[2][2], 2.0f, 1e-6f);
}

TEST(GeneralMatrixDecomposition, LuReconstructsPermutedMatrix) {
    random_source rng(19);
    mat_t a = random_mat(6, 6, rng);
    mat_t l{}, u{}, p{};
    ASSERT_EQ(mat_lu(a, &l, &u, &p), 1);
    EXPECT_TRUE(mats_near(mat_mult(p, a), mat_mult(l, u), 1e-5f));
    for (int r = 0; r < 6; ++r) {
        EXPECT_EQ(l.data[r][r], 1.0f);
        for (int c = r + 1; c < 6; ++c)
            EXPECT_EQ(l.data[r][c], 0.0f);
        for (int c = 0; c < r; ++c)
            EXPECT_EQ(u.data[r][c], 0.0f);
    }
}

TEST(GeneralMatrixDecomposition, QrIsOrthogonalTimesUpper) {
    random_source rng(20);
    mat_t a = random_mat(7, 5, rng);
    mat_t q{}, r{};
    ASSERT_EQ(mat_qr(a, &q, &r), 1);
    EXPECT_EQ(q.rows, 7);
    EXPECT_EQ(q.columns, 7);
    EXPECT_TRUE(mats_near(mat_mult(mat_T(q), q), mat_eye(7), 1e-5f));
    EXPECT_TRUE(mats_near(mat_mult(q, r), a, 1e-5f));
    EXPECT_EQ(r.data[4][1], 0.0f);
}

TEST(GeneralMatrixDecomposition, SvdReconstructsWithDescendingValues) {
    random_source rng(21);
    mat_t a = random_mat(6, 7, rng);
    mat_t u{}, s{}, v{};
    ASSERT_EQ(mat_svd(a, &u, &s, &v), 1);
    EXPECT_EQ(s.rows, 6);
    for (int i = 1; i < 6; ++i)
        EXPECT_GE(s.data[i - 1][0], s.data[i][0]);
    mat_t back = mat_mult(mat_mult(u, mat_diag(s)), mat_T(v));
    EXPECT_TRUE(mats_near(back, a, 1e-5f));
    EXPECT_NEAR(mat_cond(a), s.data[0][0] / s.data[5][0], 1e-3f * mat_cond(a));
}

TEST(GeneralMatrixDecomposition, ConditionOfDiagonal) {
    mat_t d = mat_eye(3);
    d.data[1][1] = 10.0f;
    EXPECT_NEAR(mat_cond(d), 10.0f, 1e-5f);
}

TEST(GeneralMatrixDecomposition, SymmetricEigenvaluesAscendWithEigenvectors) {
    random_source rng(22);
    mat_t b = random_mat(5, 5, rng);
    mat_t a = mat_mult(b, mat_T(b)); // symmetric positive semi-definite
    mat_t values{}, vectors{};
    ASSERT_EQ(mat_hermitian_eig(a, &values, &vectors), 1);
    for (int i = 1; i < 5; ++i)
        EXPECT_LE(values.data[i - 1][0], values.data[i][0]);
    for (int i = 0; i < 5; ++i) {
        mat_t x = mat_get_Mcol_j(vectors, i);
        EXPECT_TRUE(mats_near(mat_mult(a, x), mat_kM(values.data[i][0], x), 1e-5f));
    }
}

TEST(GeneralMatrixDecomposition, GeneralEigenvaluesOfRotationAreComplex) {
    mat_t r = mat_init(2, 2); // quarter turn: eigenvalues +-i
    r.data[0][1] = -1.0f;
    r.data[1][0] = 1.0f;
    mat_t values{}, vectors{};
    ASSERT_EQ(mat_eig(r, &values, &vectors), 1);
    EXPECT_NEAR(values.data[0][0], 0.0f, 1e-6f);
    EXPECT_NEAR(std::fabs(values.data[0][1]), 1.0f, 1e-6f);
    EXPECT_NEAR(values.data[0][1], -values.data[1][1], 1e-6f);
}

TEST(GeneralMatrix, DiagonalBothWays) {
    const float v[3] = {1, 2, 3};
    mat_t d = mat_diag(mat_set_value(vec_init(3), v));
    EXPECT_EQ(d.rows, 3);
    EXPECT_EQ(d.data[2][2], 3.0f);
    EXPECT_EQ(d.data[0][2], 0.0f);
    mat_t back = mat_diag(d);
    EXPECT_EQ(back.columns, 1);
    EXPECT_EQ(back.data[1][0], 2.0f);
}

TEST(GeneralMatrix, HomogeneousInverseEntryReturnsItsArgument) {
    mat_t t = matrix_to_mat(pose_euler_to_transformation_matrix(random_source(23).pose()));
    EXPECT_TRUE(mats_near(mat_homogen_trans_inv(t), t, 0.0f));
}

// ---------------------------------------------------------------- vectors

TEST(Vectors, NormsDotsAndCross) {
    const float a3[3] = {3, -4, 0}, b3[3] = {0, 0, 2};
    mat_t a = mat_set_value(vec_init(3), a3), b = mat_set_value(vec_init(3), b3);
    EXPECT_FLOAT_EQ(vec_norm2(a), 5.0f);
    EXPECT_FLOAT_EQ(vec_normInf(a), 4.0f);
    EXPECT_FLOAT_EQ(vec_dot(a, b), 0.0f);
    mat_t c = vec3x3_cross(a, b);
    EXPECT_FLOAT_EQ(c.data[0][0], -8.0f);
    EXPECT_FLOAT_EQ(c.data[1][0], -6.0f);
    float out[3];
    array_cross(a3, b3, out);
    EXPECT_EQ(out[0], c.data[0][0]);
    EXPECT_TRUE(mats_near(vec_minus(a), vec_kV(-1.0f, a), 0.0f));
    EXPECT_FLOAT_EQ(vec_add_scalar(a, 1.0f).data[1][0], -3.0f);
    EXPECT_TRUE(vec_is_zeros(vec_sub(a, a)));
    EXPECT_FALSE(vec_is_zeros(a));
}

TEST(Vectors, SkewRoundTripAndCrossProduct) {
    const float a3[3] = {0.3f, -1.2f, 2.0f}, b3[3] = {1.0f, 0.5f, -0.25f};
    mat_t a = mat_set_value(vec_init(3), a3), b = mat_set_value(vec_init(3), b3);
    mat_t s = vec_to_skew(a);
    EXPECT_TRUE(mats_near(mat_mult(s, b), vec3x3_cross(a, b), 1e-6f));
    EXPECT_TRUE(mats_near(skew_to_vec(s), a, 0.0f));
    EXPECT_TRUE(mats_near(vec_vex(s), a, 1e-6f));
}

TEST(Vectors, TransformDifferenceIsTwistInFirstFrame) {
    random_source rng(24);
    ka_matrix_t t1 = pose_euler_to_transformation_matrix(rng.pose());
    // Small motion expressed in T1's own frame: 1 mm along its y, 1 mrad about its z.
    ka_pose_t step{};
    step.position = {0.0f, 0.001f, 0.0f};
    step.euler = {0.0f, 0.0f, 0.001f};
    ka_matrix_t t2 = matrix_m(t1, pose_euler_to_transformation_matrix(step));
    mat_t d = vec_Tdiff(matrix_to_mat(t1), matrix_to_mat(t2));
    EXPECT_EQ(d.rows, 6);
    EXPECT_NEAR(d.data[0][0], 0.0f, 1e-6f);
    EXPECT_NEAR(d.data[1][0], 0.001f, 1e-6f);
    EXPECT_NEAR(d.data[3][0], 0.0f, 1e-6f);
    EXPECT_NEAR(d.data[5][0], 0.001f, 1e-6f);
}

TEST(Vectors, AngleAxisDifferenceIsExactInBaseFrame) {
    ka_matrix_t t1 = unit_matrix(4);
    ka_pose_t p{};
    p.position = {0.1f, 0.0f, 0.0f};
    p.euler = {0.0f, 1.0f, 0.0f}; // a large rotation about base Y
    mat_t d = vec_angle_axis_diff(matrix_to_mat(t1),
                                  matrix_to_mat(pose_euler_to_transformation_matrix(p)));
    EXPECT_NEAR(d.data[0][0], 0.1f, 1e-6f);
    EXPECT_NEAR(d.data[4][0], 1.0f, 1e-5f);
    EXPECT_NEAR(d.data[3][0], 0.0f, 1e-6f);
}

TEST(Conversions, FixedAndGeneralMatricesConvert) {
    ka_matrix_t t = pose_euler_to_transformation_matrix(random_source(25).pose());
    mat_t m = matrix_to_mat(t);
    EXPECT_EQ(m.rows, 4);
    EXPECT_TRUE(matrices_near(mat_to_matrix(m), t, 0.0f));
    EXPECT_EQ(mat_T2R(m).data[2][1], t.data[2][1]);
    EXPECT_EQ(mat_T2p(m).data[1][0], t.data[1][3]);
    // A larger mat_t keeps only what fits.
    mat_t big = mat_eye(9);
    ka_matrix_t small = mat_to_matrix(big);
    EXPECT_EQ(small.rows, 4);
    matrix7_t seven = mat_to_matrix_more(big);
    EXPECT_EQ(seven.rows, 7);
    EXPECT_EQ(matrix_more_to_mat(seven).columns, 7);
}
