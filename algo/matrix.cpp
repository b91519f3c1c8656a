#include "algo/matrix.h"

#include <Eigen/Dense>

#include <algorithm>

namespace {

int clamp_count(int n) { return std::clamp(n, 0, 4); }

} // namespace

ka_matrix_t zero_matrix(int rows, int cols) {
    ka_matrix_t m{};
    m.rows = static_cast<int16_t>(clamp_count(rows));
    m.columns = static_cast<int16_t>(clamp_count(cols));
    return m;
}

ka_matrix_t unit_matrix(int n) {
    ka_matrix_t m = zero_matrix(n, n);
    for (int i = 0; i < m.rows; ++i)
        m.data[i][i] = 1.0f;
    return m;
}

ka_matrix_t matrix_m(const ka_matrix_t &A, const ka_matrix_t &B) {
    ka_matrix_t m = zero_matrix(A.rows, B.columns);
    const int inner = clamp_count(A.columns);
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

ka_matrix_t matrix_inv(const ka_matrix_t &A) {
    ka_matrix_t m = zero_matrix(A.rows, A.columns);
    if (m.rows != m.columns) return m;
    const int n = m.rows;
    Eigen::Matrix4d a = Eigen::Matrix4d::Identity();
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            a(r, c) = A.data[r][c];
    // The identity beyond n x n leaves the leading block's inverse as it is.
    const Eigen::Matrix4d inv = a.inverse();
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            m.data[r][c] = static_cast<float>(inv(r, c));
    return m;
}

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

extern "C" int ka_sign(float x) { return x > 0.0f ? 1 : (x < 0.0f ? -1 : 0); }
