// Damped Gauss-Newton on the flange pose over the general product of the
// modified DH links. The closed forms hand it a candidate that is already
// within a fraction of a millimetre of the target (a branch whose cosine
// rule was clamped near a singularity); a few steps make it exact.
#include "algo/ik_common.h"
#include "algo/trig.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Joint frames of the chain: for each joint the axis z_i and a point o_i on
// it (after Rx(alpha) Tx(a), before Rz), and the flange at the end.
struct chain_state {
    double z[7][3];
    double o[7][3];
    ik_frame flange;
};

// cos and sin of a twist, exact for the multiples of pi/2 the tables store
// as floats (cos(float(pi/2)) is -4e-8, not 0).
void twist(float alpha, double *c, double *s) {
    const double quarter = std::nearbyint(alpha / (k_pi / 2));
    if (std::fabs(alpha - quarter * (k_pi / 2)) < 1e-6) {
        static constexpr double cs[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
        const int k = ((static_cast<int>(quarter) % 4) + 4) % 4;
        *c = cs[k][0];
        *s = cs[k][1];
        return;
    }
    *c = std::cos(static_cast<double>(alpha));
    *s = std::sin(static_cast<double>(alpha));
}

void forward(const dh_table &dh, int dof, const double q[], chain_state *st) {
    double R[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    double p[3] = {0, 0, 0};
    for (int i = 0; i < dof; ++i) {
        double ca, sa;
        twist(dh.alpha[i], &ca, &sa);
        // Rx(alpha) Tx(a): the joint axis and its origin.
        double Rx[3][3];
        for (int r = 0; r < 3; ++r) {
            Rx[r][0] = R[r][0];
            Rx[r][1] = ca * R[r][1] + sa * R[r][2];
            Rx[r][2] = -sa * R[r][1] + ca * R[r][2];
            p[r] += dh.a[i] * R[r][0];
        }
        for (int r = 0; r < 3; ++r) {
            st->z[i][r] = Rx[r][2];
            st->o[i][r] = p[r];
        }
        // Rz(theta) Tz(d).
        // Within about 1e-16 of the maths library's, at a third of its cost:
        // the self-motion steps and polishes run this chain many times.
        double s, ct;
        trig::search_sine_cosine(q[i] + dh.offset[i], &s, &ct);
        for (int r = 0; r < 3; ++r) {
            R[r][0] = ct * Rx[r][0] + s * Rx[r][1];
            R[r][1] = -s * Rx[r][0] + ct * Rx[r][1];
            R[r][2] = Rx[r][2];
            p[r] += dh.d[i] * Rx[r][2];
        }
    }
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            st->flange.R[r][c] = R[r][c];
        st->flange.p[r] = p[r];
    }
}

// Pose error in the base frame: translation, then the small rotation
// taking the current orientation onto the target's.
void pose_error(const ik_frame &current, const ik_frame &target, double e[6]) {
    for (int r = 0; r < 3; ++r)
        e[r] = target.p[r] - current.p[r];
    double w[3] = {0, 0, 0};
    for (int c = 0; c < 3; ++c) {
        const double u[3] = {current.R[0][c], current.R[1][c], current.R[2][c]};
        const double v[3] = {target.R[0][c], target.R[1][c], target.R[2][c]};
        w[0] += u[1] * v[2] - u[2] * v[1];
        w[1] += u[2] * v[0] - u[0] * v[2];
        w[2] += u[0] * v[1] - u[1] * v[0];
    }
    for (int r = 0; r < 3; ++r)
        e[3 + r] = 0.5 * w[r];
}

// Solves the symmetric positive definite 6x6 system A x = b in place (Cholesky).
bool solve6(double A[6][6], double b[6]) {
    for (int j = 0; j < 6; ++j) {
        double d = A[j][j];
        for (int k = 0; k < j; ++k)
            d -= A[j][k] * A[j][k];
        if (!(d > 0.0)) return false;
        d = std::sqrt(d);
        A[j][j] = d;
        for (int i = j + 1; i < 6; ++i) {
            double s = A[i][j];
            for (int k = 0; k < j; ++k)
                s -= A[i][k] * A[j][k];
            A[i][j] = s / d;
        }
    }
    for (int i = 0; i < 6; ++i) {
        double s = b[i];
        for (int k = 0; k < i; ++k)
            s -= A[i][k] * b[k];
        b[i] = s / A[i][i];
    }
    for (int i = 5; i >= 0; --i) {
        double s = b[i];
        for (int k = i + 1; k < 6; ++k)
            s -= A[k][i] * b[k];
        b[i] = s / A[i][i];
    }
    return true;
}

double norm6(const double e[6]) {
    double s = 0.0;
    for (int i = 0; i < 6; ++i)
        s += e[i] * e[i];
    return std::sqrt(s);
}

void jacobian(const chain_state &st, int dof, double J[6][7]) {
    for (int i = 0; i < dof; ++i) {
        const double *z = st.z[i], *o = st.o[i];
        const double d[3] = {st.flange.p[0] - o[0], st.flange.p[1] - o[1], st.flange.p[2] - o[2]};
        J[0][i] = z[1] * d[2] - z[2] * d[1];
        J[1][i] = z[2] * d[0] - z[0] * d[2];
        J[2][i] = z[0] * d[1] - z[1] * d[0];
        J[3][i] = z[0];
        J[4][i] = z[1];
        J[5][i] = z[2];
    }
}

// A = J J^T + lambda2 I.
void gram(const double J[6][7], int dof, double lambda2, double A[6][6]) {
    for (int r = 0; r < 6; ++r) {
        for (int c = 0; c < 6; ++c) {
            double s = 0.0;
            for (int k = 0; k < dof; ++k)
                s += J[r][k] * J[c][k];
            A[r][c] = s + (r == c ? lambda2 : 0.0);
        }
    }
}

// ik_polish's default steps and start bound.
constexpr int k_polish_steps = 12;
constexpr double k_polish_start = std::numeric_limits<double>::infinity();

// ik_polish, leaving in *out the chain at the final q (which the steps along
// the self-motion go on from).
bool polish(const dh_table &dh, int dof, const ik_frame &target, double q[], double tolerance,
            int steps, double start_bound, chain_state *out) {
    chain_state &st = *out;
    double e[6];
    forward(dh, dof, q, &st);
    pose_error(st.flange, target, e);
    double err = norm6(e);
    if (err > start_bound) return false;
    // Damping relative to the error: plain Gauss-Newton near the solution,
    // steadied where the chain is close to singular.
    for (int it = 0; it < steps && err > tolerance; ++it) {
        double J[6][7];
        jacobian(st, dof, J);
        double A[6][6], y[6];
        gram(J, dof, 1e-4 * err * err, A);
        for (int r = 0; r < 6; ++r)
            y[r] = e[r];
        if (!solve6(A, y)) return false;
        double trial[7];
        for (int k = 0; k < dof; ++k) {
            double s = 0.0;
            for (int r = 0; r < 6; ++r)
                s += J[r][k] * y[r];
            trial[k] = q[k] + s;
        }
        chain_state next;
        double e_next[6];
        forward(dh, dof, trial, &next);
        pose_error(next.flange, target, e_next);
        const double err_next = norm6(e_next);
        // No progress: the rounding of the target has been reached.
        if (!(err_next < err)) break;
        for (int k = 0; k < dof; ++k)
            q[k] = trial[k];
        st = next;
        for (int r = 0; r < 6; ++r)
            e[r] = e_next[r];
        err = err_next;
    }
    return err <= tolerance;
}

} // namespace

bool ik_polish(const dh_table &dh, int dof, const ik_frame &target, double q[], double tolerance,
               int steps, double start_bound) {
    chain_state st;
    return polish(dh, dof, target, q, tolerance, steps, start_bound, &st);
}

void ik_nearer_along_self_motion(const dh_table &dh, const ik_frame &target, const double ref[7],
                                 const ik_limits &limits, double q[7]) {
    double best = ik_joint_distance2(q, ref, 7);
    chain_state st;
    forward(dh, 7, q, &st);
    for (int it = 0; it < 3; ++it) {
        double J[6][7];
        jacobian(st, 7, J);
        // step = -(I - J^T (J J^T)^-1 J) (q - ref)
        double g[7], A[6][6], y[6];
        for (int k = 0; k < 7; ++k)
            g[k] = q[k] - ref[k];
        gram(J, 7, 0.0, A);
        for (int r = 0; r < 6; ++r) {
            y[r] = 0.0;
            for (int k = 0; k < 7; ++k)
                y[r] += J[r][k] * g[k];
        }
        if (!solve6(A, y)) return; // singular arm: the self-motion is not one curve here
        double step[7], length = 0.0;
        for (int k = 0; k < 7; ++k) {
            double s = g[k];
            for (int r = 0; r < 6; ++r)
                s -= J[r][k] * y[r];
            step[k] = -s;
            length = std::max(length, std::fabs(s));
        }
        // Below a milliradian the distance would change by a trifle.
        if (length < 1e-3) return;
        bool moved = false;
        for (double scale = 1.0; scale > 0.1 && !moved; scale *= 0.5) {
            double trial[7];
            for (int k = 0; k < 7; ++k)
                trial[k] = q[k] + scale * step[k];
            chain_state at_trial;
            if (!polish(dh, 7, target, trial, k_polish_tolerance, k_polish_steps, k_polish_start,
                        &at_trial))
                continue;
            bool inside = true;
            for (int k = 0; k < 7; ++k)
                inside = inside && trial[k] >= limits.lo[k] && trial[k] <= limits.hi[k];
            const double d = ik_joint_distance2(trial, ref, 7);
            if (!inside || !(d < best)) continue;
            best = d;
            std::copy(trial, trial + 7, q);
            st = at_trial;
            moved = true;
        }
        if (!moved) return;
    }
}

namespace {

// Unit vector spanning the null space of a 6x7 Jacobian of rank 6: the last
// column of Q in J^T = Q R (Householder reflections), equal up to its sign to
// the normalised signed 6x6 minors. The minors' squares sum to det(J J^T),
// the product of R's squared diagonal: false where that falls below 1e-24
// (a singular arm, where the self-motion is not one curve).
bool null_direction(const double J[6][7], double n[7]) {
    double A[7][6], v[6][7], beta[6];
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 6; ++c)
            A[r][c] = J[c][r];
    double det = 1.0;
    for (int j = 0; j < 6; ++j) {
        double x2 = 0.0;
        for (int r = j; r < 7; ++r)
            x2 += A[r][j] * A[r][j];
        const double alpha = A[j][j] >= 0.0 ? -std::sqrt(x2) : std::sqrt(x2);
        det *= x2;
        for (int r = 0; r < 7; ++r)
            v[j][r] = r < j ? 0.0 : A[r][j];
        v[j][j] -= alpha;
        // v.v = 2 (x2 - alpha x_j): no cancellation, alpha's sign opposes x_j.
        const double vv = 2.0 * (x2 - alpha * A[j][j]);
        if (!(vv > 0.0)) return false;
        beta[j] = 2.0 / vv;
        for (int c = j + 1; c < 6; ++c) {
            double d = 0.0;
            for (int r = j; r < 7; ++r)
                d += v[j][r] * A[r][c];
            d *= beta[j];
            for (int r = j; r < 7; ++r)
                A[r][c] -= d * v[j][r];
        }
    }
    if (!(det > 1e-24)) return false;
    // Q e_6 = H_0 H_1 ... H_5 e_6.
    for (int r = 0; r < 7; ++r)
        n[r] = r == 6 ? 1.0 : 0.0;
    for (int j = 5; j >= 0; --j) {
        double d = 0.0;
        for (int r = j; r < 7; ++r)
            d += v[j][r] * n[r];
        d *= beta[j];
        for (int r = j; r < 7; ++r)
            n[r] -= d * v[j][r];
    }
    return true;
}

// Sum of the joints' excesses over their limits, radians.
double limit_excess(const double q[7], const ik_limits &limits) {
    double e = 0.0;
    for (int k = 0; k < 7; ++k)
        e += std::max(0.0, q[k] - limits.hi[k]) + std::max(0.0, limits.lo[k] - q[k]);
    return e;
}

} // namespace

bool ik_nearest_on_self_motion(const dh_table &dh, const ik_frame &target, const double ref[7],
                               const ik_limits &limits, double q[7], int steps) {
    // Steps stop this far inside a limit; the final polish moves a joint by about 1e-6.
    constexpr double margin = 1e-5;
    double excess = limit_excess(q, limits), best = ik_joint_distance2(q, ref, 7);
    chain_state st;
    forward(dh, 7, q, &st);
    double e0[6];
    pose_error(st.flange, target, e0);
    bool on_target = norm6(e0) <= k_polish_tolerance;
    for (int it = 0; it < steps; ++it) {
        double J[6][7], n[7];
        jacobian(st, 7, J);
        if (!null_direction(J, n)) break;
        // Along q + s n: nearest to the reference at s_near, within the limits for s in [lo, hi].
        double s_near = 0.0, lo = -1.0, hi = 1.0;
        bool feasible = true;
        for (int k = 0; k < 7; ++k) {
            s_near += n[k] * (ref[k] - q[k]);
            if (std::fabs(n[k]) > 1e-12) {
                const double a = (limits.lo[k] + margin - q[k]) / n[k];
                const double b = (limits.hi[k] - margin - q[k]) / n[k];
                lo = std::max(lo, std::min(a, b));
                hi = std::min(hi, std::max(a, b));
            } else if (q[k] < limits.lo[k] || q[k] > limits.hi[k]) {
                feasible = false;
            }
        }
        double s = s_near;
        if (feasible && lo <= hi) s = std::clamp(s_near, lo, hi);
        s = std::clamp(s, -0.5, 0.5);
        if (std::fabs(s) < 1e-6) break;
        bool moved = false;
        for (double scale = 1.0; scale > 0.1 && !moved; scale *= 0.5) {
            double trial[7];
            for (int k = 0; k < 7; ++k)
                trial[k] = q[k] + scale * s * n[k];
            chain_state at_trial;
            if (!polish(dh, 7, target, trial, k_polish_tolerance, k_polish_steps, k_polish_start,
                        &at_trial))
                continue;
            const double e = limit_excess(trial, limits), d = ik_joint_distance2(trial, ref, 7);
            // Inside: nearer, or the first point inside; outside: less far out.
            if (e > 0.0 ? e < excess : (excess > 0.0 || d < best)) {
                std::copy(trial, trial + 7, q);
                st = at_trial;
                excess = e;
                best = d;
                moved = on_target = true;
            }
        }
        if (!moved) break;
    }
    return on_target && excess == 0.0;
}

double ik_pose_error(const dh_table &dh, int dof, const ik_frame &target, const double q[]) {
    chain_state st;
    forward(dh, dof, q, &st);
    double e[6];
    pose_error(st.flange, target, e);
    return norm6(e);
}
