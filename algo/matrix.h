// Matrix libraries of the kinematics:
//  - fixed-size ka_matrix_t (up to 4x4) for frames and rotations;
//  - matrix7_t (up to 7x7) for seven-axis Jacobians;
//  - mat_t (up to 20x20, passed by value) for the numeric solvers, whose
//    decompositions and inverses run on Eigen mapped onto the record.
// Single precision storage; products are accumulated in double. Row and
// column counts outside a record's capacity are clamped to it, and every
// producer writes zeros outside the counts. Nothing allocates.
#pragma once

#include "ka_api.h"

#include <cstdint>

// ------------------------------------------------------------ ka_matrix_t

ka_matrix_t zero_matrix(int rows, int cols);
ka_matrix_t unit_matrix(int n);
ka_matrix_t matrix_t(const ka_matrix_t &A); // transpose
// A * B, rows(A) x cols(B), inner sum over cols(A) accumulated in double.
ka_matrix_t matrix_m(const ka_matrix_t &A, const ka_matrix_t &B);
// A + B when sign > 0, otherwise A - B; size of A.
ka_matrix_t matrix_a(const ka_matrix_t &A, const ka_matrix_t &B, int sign);
ka_matrix_t matrix_m_num(const ka_matrix_t &A, float k);
// Gauss-Jordan with full pivoting in double. No singularity test: a singular
// input gives non-finite entries. A non-square input gives a zero matrix.
ka_matrix_t matrix_inv(const ka_matrix_t &A);
// Inverse of a 4x4 rigid transform via the cofactors of its rotation block.
ka_matrix_t matrix_inv_coordinate_system(const ka_matrix_t &T);
ka_matrix_t matrix_T2R(const ka_matrix_t &T);
ka_matrix_t rotx(float a);
ka_matrix_t roty(float a);
ka_matrix_t rotz(float a);
ka_matrix_t cross(const ka_matrix_t &a, const ka_matrix_t &b); // 3x1 x 3x1
// acos-based quadrant-correct arctangent; 0 when x = y = 0.
float my_atan2f(float y, float x);

extern "C" {
// +1, -1 or 0.
KA_API int ka_sign(float x);
}

// -------------------------------------------------------------- matrix7_t

struct matrix7_t {
    int16_t rows;
    int16_t columns;
    float data[7][7];
};

matrix7_t unit_matrix_dim7(int n);
matrix7_t matrix_m_dim7(const matrix7_t &A, const matrix7_t &B);
matrix7_t matrix_a_dim7(const matrix7_t &A, const matrix7_t &B, int sign);
matrix7_t matrix_t_dim7(const matrix7_t &A);
matrix7_t matrix_m_num_dim7(const matrix7_t &A, float k);
matrix7_t matrix_inv_dim7(const matrix7_t &A);   // full-pivot Gauss-Jordan
matrix7_t simp_matrix_inv77(const matrix7_t &A); // full 7x7 case

// ------------------------------------------------------------------ mat_t

inline constexpr int k_mat_capacity = 20;

struct mat_t {
    int32_t rows;
    int32_t columns;
    float data[k_mat_capacity][k_mat_capacity];
};

mat_t mat_init(int rows, int cols); // zero-filled
mat_t mat_zeros(int rows, int cols);
mat_t mat_eye(int n);
// Row-major copy of rows * columns values into M.
mat_t mat_set_value(mat_t M, const float *values);
mat_t mat_get_Mrow_i(const mat_t &M, int i); // 1 x columns
mat_t mat_get_Mcol_j(const mat_t &M, int j); // rows x 1
mat_t mat_set_Mrow_i(mat_t M, const mat_t &row, int i);
mat_t mat_set_Mcol_j(mat_t M, const mat_t &col, int j);
mat_t swap_row(mat_t M, int i, int j);
mat_t swap_col(mat_t M, int i, int j);
void mat_print(const mat_t &M);

mat_t mat_mult(const mat_t &A, const mat_t &B);
mat_t mat_T(const mat_t &A);
mat_t mat_add(const mat_t &A, const mat_t &B);
mat_t mat_sub(const mat_t &A, const mat_t &B);
mat_t mat_kM(float k, const mat_t &A);
float mat_trace(const mat_t &A);
// Not square: "A is not a square matrix." on standard error, +infinity.
float mat_det(const mat_t &A);
int mat_rank(const mat_t &A);
float mat_find_abs_max(const mat_t &A);
float mat_find_abs_min(const mat_t &A);
// Same counts and every element within 1e-6.
bool mat_is_equal(const mat_t &A, const mat_t &B);
bool mat_is_hermitian(const mat_t &A);

// P * A = L * U (L unit lower, U upper, P permutation); 1, or 0 if not square.
int mat_lu(const mat_t &A, mat_t *L, mat_t *U, mat_t *P);
// A = Q * R, Q rows x rows orthogonal, R rows x cols upper; 1.
int mat_qr(const mat_t &A, mat_t *Q, mat_t *R);
// General square A: eigenvalues as n x 2 (real, imaginary) and the real
// parts of the eigenvectors as columns. 1, or 0 if not square.
int mat_eig(const mat_t &A, mat_t *values, mat_t *vectors);
// Symmetric A: eigenvalues ascending (n x 1), orthonormal eigenvectors as
// columns. 1, or 0 if not square.
int mat_hermitian_eig(const mat_t &A, mat_t *values, mat_t *vectors);
// Thin SVD A = U * diag(S) * V^T: U rows x k, S k x 1 descending, V cols x k,
// k = min(rows, cols). 1.
int mat_svd(const mat_t &A, mat_t *U, mat_t *S, mat_t *V);
// Two-norm condition number (largest over smallest singular value).
float mat_cond(const mat_t &A);
// n x 1 or 1 x n vector: the diagonal matrix; otherwise the diagonal as a
// column vector.
mat_t mat_diag(const mat_t &A);

// Full-pivot inverse; non-zero on success, 0 for a singular or non-square A
// (inv then holds zeros).
int mat_inv(const mat_t &A, mat_t *inv);
// rows > cols: (A^T A)^-1 A^T; rows == cols: A^-1; rows < cols: A^T (A A^T)^-1.
// When the inner inverse fails the result has rows = 0.
mat_t mat_pinv(const mat_t &A);
// From the SVD, singular values below 1e-5 taken as zero.
mat_t mat_pinv_svd(const mat_t &A);

mat_t vec_init(int n);
mat_t vec_zeros(int n);
float vec_norm2(const mat_t &v);
float vec_normInf(const mat_t &v);
float vec_dot(const mat_t &a, const mat_t &b);
mat_t vec_add(const mat_t &a, const mat_t &b);
mat_t vec_sub(const mat_t &a, const mat_t &b);
mat_t vec_minus(const mat_t &v); // -v
mat_t vec_kV(float k, const mat_t &v);
mat_t vec_add_scalar(const mat_t &v, float k);
mat_t vec3x3_cross(const mat_t &a, const mat_t &b);
mat_t vec_to_skew(const mat_t &v); // 3x1 -> 3x3 [v]x
mat_t skew_to_vec(const mat_t &S); // exact skew -> 3x1
mat_t vec_vex(const mat_t &S);     // 3x1 from the skew part of any 3x3
bool vec_is_zeros(const mat_t &v); // every element within 1e-6 of zero
void array_cross(const float a[3], const float b[3], float out[3]);
// Small-motion twist from T1 to T2 in T1's frame (6x1): R1^T (p2 - p1) and
// the skew part of R1^T R2.
mat_t vec_Tdiff(const mat_t &T1, const mat_t &T2);
// Exact difference in the base frame (6x1): p2 - p1 and the rotation vector
// (axis times angle) of R2 * R1^T.
mat_t vec_angle_axis_diff(const mat_t &T1, const mat_t &T2);

mat_t matrix_to_mat(const ka_matrix_t &A);
mat_t matrix_more_to_mat(const matrix7_t &A);
ka_matrix_t mat_to_matrix(const mat_t &A);    // top-left 4x4 at most
matrix7_t mat_to_matrix_more(const mat_t &A); // top-left 7x7 at most
mat_t mat_T2R(const mat_t &T);                // 3x3 rotation block
mat_t mat_T2p(const mat_t &T);                // 3x1 translation column
// Returns T unchanged; the inverse of a transform is
// matrix_inv_coordinate_system.
mat_t mat_homogen_trans_inv(const mat_t &T);
