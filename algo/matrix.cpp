#include "algo/matrix.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

namespace {

// ----------------------------------------------------------- shared helpers

int clamp_count(int n, int capacity) { return std::clamp(n, 0, capacity); }

// Full-pivot Gauss-Jordan inverse of an n x n block in double, in place.
// Pivot: largest absolute value of the remaining block. No singularity test:
// a zero pivot propagates infinities and NaNs, as callers expect.
template <int Cap> void gauss_jordan_full_pivot(double (&a)[Cap][Cap], int n) {
    int row_of[Cap];
    int col_of[Cap];
    bool used[Cap] = {};
    for (int step = 0; step < n; ++step) {
        double best = -1.0;
        int prow = 0;
        int pcol = 0;
        for (int r = 0; r < n; ++r) {
            if (used[r]) continue;
            for (int c = 0; c < n; ++c) {
                if (used[c]) continue;
                double v = std::fabs(a[r][c]);
                if (v > best) {
                    best = v;
                    prow = r;
                    pcol = c;
                }
            }
        }
        used[pcol] = true;
        if (prow != pcol) {
            for (int c = 0; c < n; ++c)
                std::swap(a[prow][c], a[pcol][c]);
        }
        row_of[step] = prow;
        col_of[step] = pcol;
        double inv_pivot = 1.0 / a[pcol][pcol];
        a[pcol][pcol] = 1.0;
        for (int c = 0; c < n; ++c)
            a[pcol][c] *= inv_pivot;
        for (int r = 0; r < n; ++r) {
            if (r == pcol) continue;
            double f = a[r][pcol];
            a[r][pcol] = 0.0;
            for (int c = 0; c < n; ++c)
                a[r][c] -= a[pcol][c] * f;
        }
    }
    // Undo the column interchanges in reverse order.
    for (int step = n - 1; step >= 0; --step) {
        if (row_of[step] != col_of[step]) {
            for (int r = 0; r < n; ++r)
                std::swap(a[r][row_of[step]], a[r][col_of[step]]);
        }
    }
}

template <class M> void zero_outside(M &m, int cap) {
    for (int r = 0; r < cap; ++r)
        for (int c = 0; c < cap; ++c)
            if (r >= m.rows || c >= m.columns) m.data[r][c] = 0.0f;
}

// The fixed-size libraries (ka_matrix_t up to 4x4, matrix7_t up to 7x7)
// share these bodies; Cap is the record's capacity.
template <class M, int Cap> M fixed_zero(int rows, int cols) {
    M m{};
    m.rows = static_cast<int16_t>(clamp_count(rows, Cap));
    m.columns = static_cast<int16_t>(clamp_count(cols, Cap));
    return m;
}

template <class M, int Cap> M fixed_unit(int n) {
    M m = fixed_zero<M, Cap>(n, n);
    for (int i = 0; i < m.rows; ++i)
        m.data[i][i] = 1.0f;
    return m;
}

template <class M, int Cap> M fixed_transpose(const M &A) {
    M m = fixed_zero<M, Cap>(A.columns, A.rows);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[c][r];
    return m;
}

// Each product of two floats is accumulated in double, the sum stored as float.
template <class M, int Cap> M fixed_product(const M &A, const M &B) {
    M m = fixed_zero<M, Cap>(A.rows, B.columns);
    int inner = clamp_count(A.columns, Cap);
    for (int r = 0; r < m.rows; ++r) {
        for (int c = 0; c < m.columns; ++c) {
            double sum = 0.0;
            for (int k = 0; k < inner; ++k)
                sum += static_cast<double>(A.data[r][k] * B.data[k][c]);
            m.data[r][c] = static_cast<float>(sum);
        }
    }
    return m;
}

template <class M, int Cap> M fixed_sum(const M &A, const M &B, int sign) {
    M m = fixed_zero<M, Cap>(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = sign > 0 ? A.data[r][c] + B.data[r][c] : A.data[r][c] - B.data[r][c];
    return m;
}

template <class M, int Cap> M fixed_scale(const M &A, float k) {
    M m = fixed_zero<M, Cap>(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c] * k;
    return m;
}

// Full-pivot Gauss-Jordan in double; a non-square input gives zeros.
template <class M, int Cap> M fixed_inverse(const M &A) {
    M m = fixed_zero<M, Cap>(A.rows, A.columns);
    if (m.rows != m.columns) return m;
    int n = m.rows;
    double a[Cap][Cap] = {};
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            a[r][c] = A.data[r][c];
    gauss_jordan_full_pivot(a, n);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            m.data[r][c] = static_cast<float>(a[r][c]);
    return m;
}

} // namespace

// ----------------------------------------------------------- ka_matrix_t

ka_matrix_t zero_matrix(int rows, int cols) { return fixed_zero<ka_matrix_t, 4>(rows, cols); }
ka_matrix_t unit_matrix(int n) { return fixed_unit<ka_matrix_t, 4>(n); }
ka_matrix_t matrix_t(const ka_matrix_t &A) { return fixed_transpose<ka_matrix_t, 4>(A); }
ka_matrix_t matrix_m(const ka_matrix_t &A, const ka_matrix_t &B) {
    return fixed_product<ka_matrix_t, 4>(A, B);
}
ka_matrix_t matrix_a(const ka_matrix_t &A, const ka_matrix_t &B, int sign) {
    return fixed_sum<ka_matrix_t, 4>(A, B, sign);
}
ka_matrix_t matrix_m_num(const ka_matrix_t &A, float k) {
    return fixed_scale<ka_matrix_t, 4>(A, k);
}
ka_matrix_t matrix_inv(const ka_matrix_t &A) { return fixed_inverse<ka_matrix_t, 4>(A); }

ka_matrix_t matrix_inv_coordinate_system(const ka_matrix_t &T) {
    const auto &r = T.data;
    // Cofactors of the rotation block; inverse = adjugate / determinant.
    float c00 = r[1][1] * r[2][2] - r[1][2] * r[2][1];
    float c01 = r[1][2] * r[2][0] - r[1][0] * r[2][2];
    float c02 = r[1][0] * r[2][1] - r[1][1] * r[2][0];
    float det = r[0][0] * c00 + r[0][1] * c01 + r[0][2] * c02;
    float inv_det = 1.0f / det;
    float inv[3][3];
    inv[0][0] = c00 * inv_det;
    inv[1][0] = c01 * inv_det;
    inv[2][0] = c02 * inv_det;
    inv[0][1] = (r[0][2] * r[2][1] - r[0][1] * r[2][2]) * inv_det;
    inv[1][1] = (r[0][0] * r[2][2] - r[0][2] * r[2][0]) * inv_det;
    inv[2][1] = (r[0][1] * r[2][0] - r[0][0] * r[2][1]) * inv_det;
    inv[0][2] = (r[0][1] * r[1][2] - r[0][2] * r[1][1]) * inv_det;
    inv[1][2] = (r[0][2] * r[1][0] - r[0][0] * r[1][2]) * inv_det;
    inv[2][2] = (r[0][0] * r[1][1] - r[0][1] * r[1][0]) * inv_det;
    ka_matrix_t m = zero_matrix(4, 4);
    for (int i = 0; i < 3; ++i) {
        double p = 0.0;
        for (int k = 0; k < 3; ++k) {
            m.data[i][k] = inv[i][k];
            p += static_cast<double>(inv[i][k] * r[k][3]);
        }
        m.data[i][3] = static_cast<float>(-p);
    }
    m.data[3][3] = 1.0f;
    return m;
}

ka_matrix_t matrix_T2R(const ka_matrix_t &T) {
    ka_matrix_t m = zero_matrix(3, 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m.data[r][c] = T.data[r][c];
    return m;
}

ka_matrix_t rotx(float a) {
    float s = std::sin(a), c = std::cos(a);
    ka_matrix_t m = zero_matrix(3, 3);
    m.data[0][0] = 1.0f;
    m.data[1][1] = c;
    m.data[1][2] = -s;
    m.data[2][1] = s;
    m.data[2][2] = c;
    return m;
}

ka_matrix_t roty(float a) {
    float s = std::sin(a), c = std::cos(a);
    ka_matrix_t m = zero_matrix(3, 3);
    m.data[0][0] = c;
    m.data[0][2] = s;
    m.data[1][1] = 1.0f;
    m.data[2][0] = -s;
    m.data[2][2] = c;
    return m;
}

ka_matrix_t rotz(float a) {
    float s = std::sin(a), c = std::cos(a);
    ka_matrix_t m = zero_matrix(3, 3);
    m.data[0][0] = c;
    m.data[0][1] = -s;
    m.data[1][0] = s;
    m.data[1][1] = c;
    m.data[2][2] = 1.0f;
    return m;
}

ka_matrix_t cross(const ka_matrix_t &a, const ka_matrix_t &b) {
    ka_matrix_t m = zero_matrix(3, 1);
    m.data[0][0] = a.data[1][0] * b.data[2][0] - a.data[2][0] * b.data[1][0];
    m.data[1][0] = a.data[2][0] * b.data[0][0] - a.data[0][0] * b.data[2][0];
    m.data[2][0] = a.data[0][0] * b.data[1][0] - a.data[1][0] * b.data[0][0];
    return m;
}

float my_atan2f(float y, float x) {
    float r = std::sqrt(x * x + y * y);
    if (r == 0.0f) return 0.0f;
    float angle = std::acos(std::clamp(x / r, -1.0f, 1.0f));
    return y < 0.0f ? -angle : angle;
}

extern "C" int ka_sign(float x) { return x > 0.0f ? 1 : (x < 0.0f ? -1 : 0); }

// -------------------------------------------------------------- matrix7_t

matrix7_t unit_matrix_dim7(int n) { return fixed_unit<matrix7_t, 7>(n); }
matrix7_t matrix_m_dim7(const matrix7_t &A, const matrix7_t &B) {
    return fixed_product<matrix7_t, 7>(A, B);
}
matrix7_t matrix_a_dim7(const matrix7_t &A, const matrix7_t &B, int sign) {
    return fixed_sum<matrix7_t, 7>(A, B, sign);
}
matrix7_t matrix_t_dim7(const matrix7_t &A) { return fixed_transpose<matrix7_t, 7>(A); }
matrix7_t matrix_m_num_dim7(const matrix7_t &A, float k) { return fixed_scale<matrix7_t, 7>(A, k); }
matrix7_t matrix_inv_dim7(const matrix7_t &A) { return fixed_inverse<matrix7_t, 7>(A); }

matrix7_t simp_matrix_inv77(const matrix7_t &A) {
    // The full 7x7 case with the loop bounds fixed, so the compiler unrolls.
    double a[7][7];
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 7; ++c)
            a[r][c] = A.data[r][c];
    gauss_jordan_full_pivot(a, 7);
    matrix7_t m = fixed_zero<matrix7_t, 7>(7, 7);
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 7; ++c)
            m.data[r][c] = static_cast<float>(a[r][c]);
    return m;
}

// ------------------------------------------------------------------ mat_t

namespace {

// Dynamic sizes with a fixed upper bound: Eigen keeps the storage inline,
// so no decomposition below allocates.
using dmat = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor, k_mat_capacity,
                           k_mat_capacity>;
using dmat_col = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor,
                               k_mat_capacity, k_mat_capacity>;
using fmap = Eigen::Map<Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>, 0,
                        Eigen::OuterStride<k_mat_capacity>>;
using cfmap =
    Eigen::Map<const Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>, 0,
               Eigen::OuterStride<k_mat_capacity>>;

int rows_of(const mat_t &m) { return clamp_count(m.rows, k_mat_capacity); }
int cols_of(const mat_t &m) { return clamp_count(m.columns, k_mat_capacity); }

cfmap view(const mat_t &m) {
    return cfmap(&m.data[0][0], rows_of(m), cols_of(m), Eigen::OuterStride<k_mat_capacity>());
}
fmap view(mat_t &m) {
    return fmap(&m.data[0][0], rows_of(m), cols_of(m), Eigen::OuterStride<k_mat_capacity>());
}

dmat to_double(const mat_t &m) { return view(m).cast<double>(); }

template <class Derived> mat_t from_eigen(const Eigen::MatrixBase<Derived> &e) {
    mat_t m = mat_init(static_cast<int>(e.rows()), static_cast<int>(e.cols()));
    view(m) = e.template cast<float>().topLeftCorner(m.rows, m.columns);
    return m;
}

void store(mat_t *out, const mat_t &value) {
    if (out) *out = value;
}

} // namespace

mat_t mat_init(int rows, int cols) {
    mat_t m{};
    m.rows = clamp_count(rows, k_mat_capacity);
    m.columns = clamp_count(cols, k_mat_capacity);
    return m;
}

mat_t mat_zeros(int rows, int cols) { return mat_init(rows, cols); }

mat_t mat_eye(int n) {
    mat_t m = mat_init(n, n);
    for (int i = 0; i < m.rows; ++i)
        m.data[i][i] = 1.0f;
    return m;
}

mat_t mat_set_value(mat_t M, const float *values) {
    if (!values) return M;
    int rows = rows_of(M), cols = cols_of(M);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            M.data[r][c] = values[r * cols + c];
    return M;
}

mat_t mat_get_Mrow_i(const mat_t &M, int i) {
    mat_t row = mat_init(1, M.columns);
    if (i < 0 || i >= rows_of(M)) return row;
    for (int c = 0; c < row.columns; ++c)
        row.data[0][c] = M.data[i][c];
    return row;
}

mat_t mat_get_Mcol_j(const mat_t &M, int j) {
    mat_t col = mat_init(M.rows, 1);
    if (j < 0 || j >= cols_of(M)) return col;
    for (int r = 0; r < col.rows; ++r)
        col.data[r][0] = M.data[r][j];
    return col;
}

mat_t mat_set_Mrow_i(mat_t M, const mat_t &row, int i) {
    if (i < 0 || i >= rows_of(M)) return M;
    int n = std::min(cols_of(M), cols_of(row));
    for (int c = 0; c < n; ++c)
        M.data[i][c] = row.data[0][c];
    return M;
}

mat_t mat_set_Mcol_j(mat_t M, const mat_t &col, int j) {
    if (j < 0 || j >= cols_of(M)) return M;
    int n = std::min(rows_of(M), rows_of(col));
    for (int r = 0; r < n; ++r)
        M.data[r][j] = col.data[r][0];
    return M;
}

mat_t swap_row(mat_t M, int i, int j) {
    if (i < 0 || j < 0 || i >= rows_of(M) || j >= rows_of(M)) return M;
    for (int c = 0; c < cols_of(M); ++c)
        std::swap(M.data[i][c], M.data[j][c]);
    return M;
}

mat_t swap_col(mat_t M, int i, int j) {
    if (i < 0 || j < 0 || i >= cols_of(M) || j >= cols_of(M)) return M;
    for (int r = 0; r < rows_of(M); ++r)
        std::swap(M.data[r][i], M.data[r][j]);
    return M;
}

void mat_print(const mat_t &M) {
    std::printf("Mat = \n");
    for (int r = 0; r < rows_of(M); ++r) {
        std::printf("\t");
        for (int c = 0; c < cols_of(M); ++c)
            std::printf("%lf,\t", static_cast<double>(M.data[r][c]));
        std::printf("\n");
    }
}

mat_t mat_mult(const mat_t &A, const mat_t &B) {
    mat_t m = mat_init(A.rows, B.columns);
    int inner = std::min(cols_of(A), rows_of(B));
    for (int r = 0; r < m.rows; ++r) {
        for (int c = 0; c < m.columns; ++c) {
            double sum = 0.0;
            for (int k = 0; k < inner; ++k)
                sum += static_cast<double>(A.data[r][k] * B.data[k][c]);
            m.data[r][c] = static_cast<float>(sum);
        }
    }
    return m;
}

mat_t mat_T(const mat_t &A) {
    mat_t m = mat_init(A.columns, A.rows);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[c][r];
    return m;
}

mat_t mat_add(const mat_t &A, const mat_t &B) {
    mat_t m = mat_init(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c] + B.data[r][c];
    return m;
}

mat_t mat_sub(const mat_t &A, const mat_t &B) {
    mat_t m = mat_init(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c] - B.data[r][c];
    return m;
}

mat_t mat_kM(float k, const mat_t &A) {
    mat_t m = mat_init(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = k * A.data[r][c];
    return m;
}

float mat_trace(const mat_t &A) {
    double sum = 0.0;
    int n = std::min(rows_of(A), cols_of(A));
    for (int i = 0; i < n; ++i)
        sum += A.data[i][i];
    return static_cast<float>(sum);
}

float mat_det(const mat_t &A) {
    if (A.rows != A.columns) {
        std::fputs("A is not a square matrix.", stderr);
        return std::numeric_limits<float>::infinity();
    }
    if (rows_of(A) == 0) return 1.0f;
    return static_cast<float>(Eigen::FullPivLU<dmat>(to_double(A)).determinant());
}

int mat_rank(const mat_t &A) {
    if (rows_of(A) == 0 || cols_of(A) == 0) return 0;
    Eigen::FullPivLU<dmat> lu(to_double(A));
    // Relative threshold suited to single-precision inputs.
    lu.setThreshold(1e-6);
    return static_cast<int>(lu.rank());
}

float mat_find_abs_max(const mat_t &A) {
    float best = 0.0f;
    for (int r = 0; r < rows_of(A); ++r)
        for (int c = 0; c < cols_of(A); ++c)
            best = std::max(best, std::fabs(A.data[r][c]));
    return best;
}

float mat_find_abs_min(const mat_t &A) {
    if (rows_of(A) == 0 || cols_of(A) == 0) return 0.0f;
    float best = std::numeric_limits<float>::infinity();
    for (int r = 0; r < rows_of(A); ++r)
        for (int c = 0; c < cols_of(A); ++c)
            best = std::min(best, std::fabs(A.data[r][c]));
    return best;
}

bool mat_is_equal(const mat_t &A, const mat_t &B) {
    if (A.rows != B.rows || A.columns != B.columns) return false;
    for (int r = 0; r < rows_of(A); ++r)
        for (int c = 0; c < cols_of(A); ++c)
            if (!(std::fabs(A.data[r][c] - B.data[r][c]) <= 1e-6f)) return false;
    return true;
}

bool mat_is_hermitian(const mat_t &A) {
    if (A.rows != A.columns) return false;
    for (int r = 0; r < rows_of(A); ++r)
        for (int c = r + 1; c < cols_of(A); ++c)
            if (!(std::fabs(A.data[r][c] - A.data[c][r]) <= 1e-6f)) return false;
    return true;
}

int mat_lu(const mat_t &A, mat_t *L, mat_t *U, mat_t *P) {
    if (A.rows != A.columns || rows_of(A) == 0) return 0;
    int n = rows_of(A);
    Eigen::PartialPivLU<dmat> lu(to_double(A));
    dmat packed = lu.matrixLU();
    dmat lower = packed.triangularView<Eigen::StrictlyLower>();
    lower.diagonal().setOnes();
    dmat upper = packed.triangularView<Eigen::Upper>();
    dmat perm = lu.permutationP().toDenseMatrix().cast<double>();
    store(L, from_eigen(lower.topLeftCorner(n, n)));
    store(U, from_eigen(upper.topLeftCorner(n, n)));
    store(P, from_eigen(perm));
    return 1;
}

int mat_qr(const mat_t &A, mat_t *Q, mat_t *R) {
    int rows = rows_of(A), cols = cols_of(A);
    if (rows == 0 || cols == 0) return 0;
    Eigen::HouseholderQR<dmat> qr(to_double(A));
    dmat q = qr.householderQ() * dmat::Identity(rows, rows);
    dmat r = qr.matrixQR().triangularView<Eigen::Upper>();
    store(Q, from_eigen(q));
    store(R, from_eigen(r));
    return 1;
}

int mat_eig(const mat_t &A, mat_t *values, mat_t *vectors) {
    if (A.rows != A.columns || rows_of(A) == 0) return 0;
    int n = rows_of(A);
    Eigen::EigenSolver<dmat_col> es(to_double(A));
    if (es.info() != Eigen::Success) return 0;
    mat_t v = mat_init(n, 2);
    mat_t w = mat_init(n, n);
    for (int i = 0; i < n; ++i) {
        v.data[i][0] = static_cast<float>(es.eigenvalues()[i].real());
        v.data[i][1] = static_cast<float>(es.eigenvalues()[i].imag());
        for (int r = 0; r < n; ++r)
            w.data[r][i] = static_cast<float>(es.eigenvectors()(r, i).real());
    }
    store(values, v);
    store(vectors, w);
    return 1;
}

int mat_hermitian_eig(const mat_t &A, mat_t *values, mat_t *vectors) {
    if (A.rows != A.columns || rows_of(A) == 0) return 0;
    Eigen::SelfAdjointEigenSolver<dmat_col> es(to_double(A));
    if (es.info() != Eigen::Success) return 0;
    store(values, from_eigen(es.eigenvalues()));
    store(vectors, from_eigen(es.eigenvectors()));
    return 1;
}

int mat_svd(const mat_t &A, mat_t *U, mat_t *S, mat_t *V) {
    int rows = rows_of(A), cols = cols_of(A);
    if (rows == 0 || cols == 0) return 0;
    Eigen::JacobiSVD<dmat_col> svd(to_double(A), Eigen::ComputeThinU | Eigen::ComputeThinV);
    store(U, from_eigen(svd.matrixU()));
    store(S, from_eigen(svd.singularValues()));
    store(V, from_eigen(svd.matrixV()));
    return 1;
}

float mat_cond(const mat_t &A) {
    if (rows_of(A) == 0 || cols_of(A) == 0) return 0.0f;
    Eigen::JacobiSVD<dmat_col> svd(to_double(A));
    const auto &s = svd.singularValues();
    double smin = s[s.size() - 1];
    if (smin == 0.0) return std::numeric_limits<float>::infinity();
    return static_cast<float>(s[0] / smin);
}

mat_t mat_diag(const mat_t &A) {
    int rows = rows_of(A), cols = cols_of(A);
    if (rows == 1 || cols == 1) {
        int n = std::max(rows, cols);
        mat_t m = mat_init(n, n);
        for (int i = 0; i < n; ++i)
            m.data[i][i] = rows == 1 ? A.data[0][i] : A.data[i][0];
        return m;
    }
    int n = std::min(rows, cols);
    mat_t m = mat_init(n, 1);
    for (int i = 0; i < n; ++i)
        m.data[i][0] = A.data[i][i];
    return m;
}

int mat_inv(const mat_t &A, mat_t *inv) {
    if (A.rows != A.columns || rows_of(A) == 0) {
        store(inv, mat_init(A.rows, A.columns));
        return 0;
    }
    Eigen::FullPivLU<dmat> lu(to_double(A));
    // Relative pivot threshold suited to single-precision inputs.
    lu.setThreshold(1e-7);
    if (!lu.isInvertible()) {
        store(inv, mat_init(A.rows, A.columns));
        return 0;
    }
    store(inv, from_eigen(lu.inverse()));
    return 1;
}

mat_t mat_pinv(const mat_t &A) {
    mat_t At = mat_T(A);
    mat_t inner_inv{};
    mat_t result{};
    if (A.rows > A.columns) {
        if (!mat_inv(mat_mult(At, A), &inner_inv)) {
            result = mat_init(0, A.rows);
            return result;
        }
        return mat_mult(inner_inv, At);
    }
    if (A.rows == A.columns) {
        if (!mat_inv(A, &result)) result.rows = 0;
        return result;
    }
    if (!mat_inv(mat_mult(A, At), &inner_inv)) return mat_init(0, A.rows);
    return mat_mult(At, inner_inv);
}

mat_t mat_pinv_svd(const mat_t &A) {
    int rows = rows_of(A), cols = cols_of(A);
    if (rows == 0 || cols == 0) return mat_init(cols, rows);
    Eigen::JacobiSVD<dmat_col> svd(to_double(A), Eigen::ComputeThinU | Eigen::ComputeThinV);
    auto s = svd.singularValues();
    dmat_col s_inv = dmat_col::Zero(s.size(), s.size());
    for (Eigen::Index i = 0; i < s.size(); ++i)
        if (s[i] >= 1e-5) s_inv(i, i) = 1.0 / s[i];
    dmat_col p = svd.matrixV() * s_inv * svd.matrixU().transpose();
    return from_eigen(p);
}

// ---------------------------------------------------------------- vectors

mat_t vec_init(int n) { return mat_init(n, 1); }
mat_t vec_zeros(int n) { return mat_init(n, 1); }

float vec_norm2(const mat_t &v) {
    double sum = 0.0;
    for (int i = 0; i < rows_of(v); ++i)
        sum += static_cast<double>(v.data[i][0]) * v.data[i][0];
    return static_cast<float>(std::sqrt(sum));
}

float vec_normInf(const mat_t &v) {
    float best = 0.0f;
    for (int i = 0; i < rows_of(v); ++i)
        best = std::max(best, std::fabs(v.data[i][0]));
    return best;
}

float vec_dot(const mat_t &a, const mat_t &b) {
    double sum = 0.0;
    int n = std::min(rows_of(a), rows_of(b));
    for (int i = 0; i < n; ++i)
        sum += static_cast<double>(a.data[i][0]) * b.data[i][0];
    return static_cast<float>(sum);
}

mat_t vec_add(const mat_t &a, const mat_t &b) { return mat_add(a, b); }
mat_t vec_sub(const mat_t &a, const mat_t &b) { return mat_sub(a, b); }
mat_t vec_minus(const mat_t &v) { return mat_kM(-1.0f, v); }
mat_t vec_kV(float k, const mat_t &v) { return mat_kM(k, v); }

mat_t vec_add_scalar(const mat_t &v, float k) {
    mat_t m = mat_init(v.rows, v.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = v.data[r][c] + k;
    return m;
}

mat_t vec3x3_cross(const mat_t &a, const mat_t &b) {
    mat_t m = vec_init(3);
    float x[3] = {a.data[0][0], a.data[1][0], a.data[2][0]};
    float y[3] = {b.data[0][0], b.data[1][0], b.data[2][0]};
    float z[3];
    array_cross(x, y, z);
    for (int i = 0; i < 3; ++i)
        m.data[i][0] = z[i];
    return m;
}

mat_t vec_to_skew(const mat_t &v) {
    mat_t m = mat_init(3, 3);
    m.data[0][1] = -v.data[2][0];
    m.data[0][2] = v.data[1][0];
    m.data[1][0] = v.data[2][0];
    m.data[1][2] = -v.data[0][0];
    m.data[2][0] = -v.data[1][0];
    m.data[2][1] = v.data[0][0];
    return m;
}

mat_t skew_to_vec(const mat_t &S) {
    mat_t m = vec_init(3);
    m.data[0][0] = S.data[2][1];
    m.data[1][0] = S.data[0][2];
    m.data[2][0] = S.data[1][0];
    return m;
}

mat_t vec_vex(const mat_t &S) {
    mat_t m = vec_init(3);
    m.data[0][0] = 0.5f * (S.data[2][1] - S.data[1][2]);
    m.data[1][0] = 0.5f * (S.data[0][2] - S.data[2][0]);
    m.data[2][0] = 0.5f * (S.data[1][0] - S.data[0][1]);
    return m;
}

bool vec_is_zeros(const mat_t &v) { return mat_find_abs_max(v) <= 1e-6f; }

void array_cross(const float a[3], const float b[3], float out[3]) {
    float x = a[1] * b[2] - a[2] * b[1];
    float y = a[2] * b[0] - a[0] * b[2];
    float z = a[0] * b[1] - a[1] * b[0];
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

mat_t vec_Tdiff(const mat_t &T1, const mat_t &T2) {
    mat_t d = vec_init(6);
    double dp[3];
    for (int i = 0; i < 3; ++i)
        dp[i] = static_cast<double>(T2.data[i][3]) - T1.data[i][3];
    double m[3][3];
    for (int i = 0; i < 3; ++i) {
        double p = 0.0;
        for (int k = 0; k < 3; ++k)
            p += T1.data[k][i] * dp[k];
        d.data[i][0] = static_cast<float>(p);
        for (int j = 0; j < 3; ++j) {
            double s = 0.0;
            for (int k = 0; k < 3; ++k)
                s += static_cast<double>(T1.data[k][i]) * T2.data[k][j];
            m[i][j] = s;
        }
    }
    d.data[3][0] = static_cast<float>((m[2][1] - m[1][2]) / 2.0);
    d.data[4][0] = static_cast<float>((m[0][2] - m[2][0]) / 2.0);
    d.data[5][0] = static_cast<float>((m[1][0] - m[0][1]) / 2.0);
    return d;
}

mat_t vec_angle_axis_diff(const mat_t &T1, const mat_t &T2) {
    mat_t d = vec_init(6);
    Eigen::Matrix3d r1, r2;
    for (int i = 0; i < 3; ++i) {
        d.data[i][0] = T2.data[i][3] - T1.data[i][3];
        for (int j = 0; j < 3; ++j) {
            r1(i, j) = T1.data[i][j];
            r2(i, j) = T2.data[i][j];
        }
    }
    Eigen::AngleAxisd aa(r2 * r1.transpose());
    Eigen::Vector3d w = aa.axis() * aa.angle();
    for (int i = 0; i < 3; ++i)
        d.data[3 + i][0] = static_cast<float>(w[i]);
    return d;
}

// ------------------------------------------------------------ conversions

mat_t matrix_to_mat(const ka_matrix_t &A) {
    mat_t m = mat_init(clamp_count(A.rows, 4), clamp_count(A.columns, 4));
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c];
    return m;
}

mat_t matrix_more_to_mat(const matrix7_t &A) {
    mat_t m = mat_init(clamp_count(A.rows, 7), clamp_count(A.columns, 7));
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c];
    return m;
}

ka_matrix_t mat_to_matrix(const mat_t &A) {
    ka_matrix_t m = zero_matrix(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c];
    zero_outside(m, 4);
    return m;
}

matrix7_t mat_to_matrix_more(const mat_t &A) {
    matrix7_t m = fixed_zero<matrix7_t, 7>(A.rows, A.columns);
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.columns; ++c)
            m.data[r][c] = A.data[r][c];
    return m;
}

mat_t mat_T2R(const mat_t &T) {
    mat_t m = mat_init(3, 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m.data[r][c] = T.data[r][c];
    return m;
}

mat_t mat_T2p(const mat_t &T) {
    mat_t m = vec_init(3);
    for (int r = 0; r < 3; ++r)
        m.data[r][0] = T.data[r][3];
    return m;
}

mat_t mat_homogen_trans_inv(const mat_t &T) { return T; }
