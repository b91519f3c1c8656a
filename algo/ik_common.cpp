#include "algo/ik_common.h"

#include <algorithm>
#include <cmath>
#include <limits>

ik_frame ik_frame_from_matrix(const ka_matrix_t &T) {
    ik_frame F;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            F.R[i][j] = T.data[i][j];
        F.p[i] = T.data[i][3];
    }
    return F;
}

ka_matrix_t ik_frame_to_matrix(const ik_frame &F) {
    ka_matrix_t T{};
    T.rows = 4;
    T.columns = 4;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            T.data[i][j] = static_cast<float>(F.R[i][j]);
        T.data[i][3] = static_cast<float>(F.p[i]);
    }
    T.data[3][3] = 1.0f;
    return T;
}

ik_frame ik_multiply(const ik_frame &A, const ik_frame &B) {
    ik_frame C;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            C.R[i][j] = A.R[i][0] * B.R[0][j] + A.R[i][1] * B.R[1][j] + A.R[i][2] * B.R[2][j];
        C.p[i] = A.R[i][0] * B.p[0] + A.R[i][1] * B.p[1] + A.R[i][2] * B.p[2] + A.p[i];
    }
    return C;
}

ik_frame ik_inverse(const ik_frame &A) {
    ik_frame B;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            B.R[i][j] = A.R[j][i];
    for (int i = 0; i < 3; ++i)
        B.p[i] = -(B.R[i][0] * A.p[0] + B.R[i][1] * A.p[1] + B.R[i][2] * A.p[2]);
    return B;
}

ik_frame ik_flange_target(const ka_matrix_t &T_tool, const ka_matrix_t &install,
                          const ka_matrix_t &tool) {
    const ik_frame I_inv = ik_inverse(ik_frame_from_matrix(install));
    const ik_frame Tt_inv = ik_inverse(ik_frame_from_matrix(tool));
    return ik_multiply(ik_multiply(I_inv, ik_frame_from_matrix(T_tool)), Tt_inv);
}

void ik_zyz_with_first(const double M[3][3], double a, zyz_angles *out) {
    ik_zyz_given_first(M, a, std::cos(a), std::sin(a), out);
    out->aligned = true;
}

void ik_zyz_even_split(const double M[3][3], double ref_a, double ref_c, zyz_angles *out) {
    // Aligned, a + c (b near 0) or c - a (b near pi) is fixed. Find c for
    // a = ref_a, then move a by half of c's distance from ref_c.
    ik_zyz_given_first(M, ref_a, std::cos(ref_a), std::sin(ref_a), out);
    const double half = 0.5 * ik_wrap_pi(out->angle[0][2] - ref_c);
    ik_zyz_with_first(M, M[2][2] >= 0.0 ? ref_a + half : ref_a - half, out);
}

bool ik_wrap_joint(double q, double ref, double lo, double hi, double *out) {
    // Multiples of 2*pi by truncation, which avoids the library's rounding
    // calls on this hot path; |values| stay far below 2^52.
    constexpr double inv = 1.0 / k_two_pi;
    if (!(std::fabs(q) < 1e9) || !(std::fabs(ref) < 1e9)) return false;
    // Usually one turn at most separates q from the reference, and the
    // representative nearest to the reference already lies within the limits.
    double d = q - ref;
    if (d > k_pi)
        d -= k_two_pi;
    else if (d < -k_pi)
        d += k_two_pi;
    if (d >= -k_pi && d <= k_pi && ref + d >= lo && ref + d <= hi) {
        *out = ref + d;
        return true;
    }
    const double lo_turns = (lo - k_limit_slack - q) * inv;
    const double hi_turns = (hi + k_limit_slack - q) * inv;
    auto floor_of = [](double x) {
        const double t = static_cast<double>(static_cast<long long>(x));
        return t > x ? t - 1.0 : t;
    };
    const double k_hi = floor_of(hi_turns);
    const double k_lo = -floor_of(-lo_turns);
    if (k_lo > k_hi) return false;
    const double k = std::clamp(floor_of((ref - q) * inv + 0.5), k_lo, k_hi);
    *out = std::clamp(q + k * k_two_pi, lo, hi);
    return true;
}

bool find_nearest_joint(const double q[], int dof, const double ref[], const ik_limits &limits,
                        double out[]) {
    for (int i = 0; i < dof; ++i)
        if (!ik_wrap_joint(q[i], ref[i], limits.lo[i], limits.hi[i], &out[i])) return false;
    return true;
}

int find_min_index(const double values[], int n) {
    int best = -1;
    double best_value = std::numeric_limits<double>::infinity();
    for (int i = 0; i < n; ++i) {
        if (values[i] < best_value) {
            best_value = values[i];
            best = i;
        }
    }
    return best;
}

ik_reach ik_reach_cosine(double *c, double scale) {
    if (ik_clamp_cosine(c, scale, k_reach_slack)) return ik_reach::reached;
    if (ik_clamp_cosine(c, scale, k_near_miss_slack)) return ik_reach::near_miss;
    return ik_reach::unreachable;
}

bool ik_frame_finite(const ik_frame &F) {
    for (int i = 0; i < 3; ++i) {
        if (!std::isfinite(F.p[i])) return false;
        for (int j = 0; j < 3; ++j)
            if (!std::isfinite(F.R[i][j])) return false;
    }
    return true;
}

double ik_polynomial(const double *c, int n, double x) {
    double y = c[n];
    for (int i = n - 1; i >= 0; --i)
        y = y * x + c[i];
    return y;
}

// A line's and a parabola's roots are closed forms; a higher degree is
// monotone between its derivative's roots, so each piece holds at most one,
// found by Newton's method kept inside the piece by bisection.
int ik_polynomial_roots(const double *c, int n, double lo, double hi, double *roots) {
    while (n > 0 && c[n] == 0.0)
        --n;
    if (n <= 0) return 0;
    const double f_lo = ik_polynomial(c, n, lo), f_hi = ik_polynomial(c, n, hi);
    if (n == 1) {
        if ((f_lo > 0.0) == (f_hi > 0.0)) return 0;
        roots[0] = std::clamp(-c[0] / c[1], lo, hi);
        return 1;
    }
    double ends[5];
    int m = 0;
    ends[m++] = lo;
    if (n == 2) {
        const double vertex = -c[1] / (2.0 * c[2]);
        if (vertex > lo && vertex < hi) ends[m++] = vertex;
    } else {
        double derivative[4];
        for (int i = 1; i <= n; ++i)
            derivative[i - 1] = i * c[i];
        m += ik_polynomial_roots(derivative, n - 1, lo, hi, ends + m);
    }
    ends[m++] = hi;
    int count = 0;
    for (int k = 0; k + 1 < m; ++k) {
        double a = ends[k], b = ends[k + 1];
        const bool above = (k == 0 ? f_lo : ik_polynomial(c, n, a)) > 0.0;
        if (above == ((k + 2 == m ? f_hi : ik_polynomial(c, n, b)) > 0.0)) continue;
        double x = 0.5 * (a + b);
        for (int it = 0; it < 100 && b - a > 1e-15 * std::max(1.0, std::fabs(x)); ++it) {
            double f = c[n], df = 0.0;
            for (int i = n - 1; i >= 0; --i) {
                df = df * x + f;
                f = f * x + c[i];
            }
            if (f == 0.0) break;
            ((f > 0.0) == above ? a : b) = x;
            const double next = x - f / df;
            // Quadratic convergence: after a step this small the root is
            // as exact as the arithmetic.
            if (std::fabs(next - x) < 1e-9 * std::max(1.0, std::fabs(x))) {
                x = std::clamp(next, a, b);
                break;
            }
            x = next > a && next < b ? next : 0.5 * (a + b);
        }
        roots[count++] = x;
    }
    return count;
}
