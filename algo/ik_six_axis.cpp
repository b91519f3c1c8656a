// Closed-form six-axis solvers: the offset-wrist family (KIVO, MARO II and
// III) and the parallel-axes family (NEPA series). Each enumerates its eight
// analytic branches in double precision, then keeps the in-limit candidate
// nearest to the reference.
#include "algo/ik_solvers.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace {

// A DH entry counts as zero, or as a given twist, within this.
constexpr double k_pattern_tol = 1e-6;

bool near(double value, double expected) { return std::fabs(value - expected) < k_pattern_tol; }

bool twists_are(const dh_table &dh, const double (&alpha)[6]) {
    for (int i = 0; i < 6; ++i)
        if (!near(dh.alpha[i], alpha[i])) return false;
    return true;
}

// Base angle of a wrist point (px, py) that lies at lateral distance w from
// the plane of the arm: (px, py) = Rz(t0) * (X, -w) with X = sign * sqrt(r^2 - w^2).
// Over the base axis (r = w = 0) the base angle is free and keeps the
// reference's value; within 1e-6 m of the axis counts as over it (the
// target's own rounding is 1e-7 m). false when the point lies inside the
// cylinder of radius |w|.
struct base_solution {
    double t0, c0, s0, X;
    bool near_miss; // the point lies slightly inside the cylinder
};

bool base_angle(double px, double py, double w, int sign, double ref_t0, base_solution *b) {
    const double r2 = px * px + py * py;
    b->near_miss = false;
    if (r2 < 1e-12 && std::fabs(w) < 1e-12) {
        b->t0 = sign > 0 ? ref_t0 : ref_t0 + k_pi;
        b->c0 = std::cos(b->t0);
        b->s0 = std::sin(b->t0);
        b->X = b->c0 * px + b->s0 * py;
        return true;
    }
    double X2 = r2 - w * w;
    if (X2 < 0.0) {
        // A rounding error when the point sits on the cylinder.
        if (X2 < -2.0 * std::fabs(w) * k_near_miss_slack) return false;
        b->near_miss = X2 < -2.0 * std::fabs(w) * k_reach_slack;
        X2 = 0.0;
    }
    b->X = sign * std::sqrt(X2);
    // Rz(t0) turns (X, -w) onto (px, py), both of length r.
    b->c0 = (b->X * px - w * py) / r2;
    b->s0 = (b->X * py + w * px) / r2;
    b->t0 = std::atan2(b->s0, b->c0);
    return true;
}

// Candidates collected branch by branch. Joints are wrapped into the limits
// nearest to the reference as soon as they are known, so a branch that
// leaves the limits is dropped early; and the partial distance of the
// joints known so far is a lower bound, so a branch that cannot beat the
// nearest candidate is not completed.
class candidate_set {
  public:
    candidate_set(const dh_table &dh, const ik_frame &target, const double ref[6],
                  const ik_limits &limits)
        : dh_(dh), target_(target), ref_(ref), limits_(limits) {}

    // Joint i from its DH angle; false when it cannot be brought into its limits.
    bool joint(int i, double theta, double *q) const {
        return ik_wrap_joint(theta - dh_.offset[i], ref_[i], limits_.lo[i], limits_.hi[i], q);
    }

    // Squared distance of the joints of the given indices.
    double partial(const double q[6], std::initializer_list<int> joints) const {
        double s = 0.0;
        for (int i : joints)
            s += (q[i] - ref_[i]) * (q[i] - ref_[i]);
        return s;
    }

    // Distance of the nearest candidate so far (infinite before the first).
    double bound() const { return best_; }

    // A complete candidate; one from a near miss is polished onto the target
    // first and wrapped again.
    void offer(const double q_in[6], bool near_miss) {
        double q[6];
        std::copy(q_in, q_in + 6, q);
        if (near_miss && !(ik_polish(dh_, 6, target_, q, k_polish_tolerance) &&
                           find_nearest_joint(q, 6, ref_, limits_, q)))
            return;
        if (n_ == k_capacity) keep_only_nearest();
        const double d = ik_joint_distance2(q, ref_, 6);
        std::copy(q, q + 6, q_[n_]);
        dist_[n_++] = d;
        best_ = std::min(best_, d);
    }

    int count() const { return n_; }

    int pick(double out[6]) const {
        const int best = find_min_index(dist_, n_);
        if (best < 0) return k_ik_no_solution;
        std::copy(q_[best], q_[best] + 6, out);
        return k_ik_ok;
    }

  private:
    static constexpr int k_capacity = 16;

    void keep_only_nearest() {
        const int best = find_min_index(dist_, n_);
        std::copy(q_[best], q_[best] + 6, q_[0]);
        dist_[0] = dist_[best];
        n_ = 1;
    }

    const dh_table &dh_;
    const ik_frame &target_;
    const double *ref_;
    const ik_limits &limits_;
    double q_[k_capacity][6] = {};
    double dist_[k_capacity] = {};
    int n_ = 0;
    double best_ = std::numeric_limits<double>::infinity();
};

// Partial solutions in order of their lower bound.
template <class T, int N> struct ordered {
    T item[N];
    int n = 0;
    void add(const T &t) {
        if (n == N) return;
        int i = n++;
        for (; i > 0 && item[i - 1].bound > t.bound; --i)
            item[i] = item[i - 1];
        item[i] = t;
    }
};

} // namespace

// Frames: the wrist centre lies d[5] behind the flange along its z axis.
// In frame 1 the centre is (u, v, w) with u = a2 + a3 cos t2 + d3 sin t2,
// v = a3 sin t2 - d3 cos t2, w = d1 + d2; in frame 0 it is
// (a1 + u cos t1 - v sin t1, -w, u sin t1 + v cos t1), rotated by t0 about
// the base axis and lifted by d0. The wrist rotation relative to
// Rz(t0) Rx(pi/2) Rz(t1 + t2) Rx(pi/2) is Rz(t3) Ry(t4) Rz(t5).
int ik_solve_offset_wrist(const dh_table &dh, const ik_frame &F, const double q_ref[6],
                          const ik_limits &limits, double q_out[6]) {
    static constexpr double alpha[6] = {0.0, k_pi / 2, 0.0, k_pi / 2, -k_pi / 2, k_pi / 2};
    if (!twists_are(dh, alpha) || !near(dh.a[0], 0.0) || !near(dh.a[4], 0.0) ||
        !near(dh.a[5], 0.0) || !near(dh.d[4], 0.0) || near(dh.a[2], 0.0))
        return k_ik_bad_geometry;
    const double d0 = dh.d[0], a1 = dh.a[1], a2 = dh.a[2], a3 = dh.a[3], d3 = dh.d[3];
    const double d5 = dh.d[5], w = static_cast<double>(dh.d[1]) + dh.d[2];
    const double L = std::sqrt(a3 * a3 + d3 * d3);
    if (L < k_pattern_tol || !ik_frame_finite(F)) return k_ik_bad_geometry;
    // a3 cos t2 + d3 sin t2 = L cos(t2 - phi).
    const double phi = std::atan2(d3, a3), cphi = a3 / L, sphi = d3 / L;

    double ref_t[6];
    for (int i = 0; i < 6; ++i)
        ref_t[i] = q_ref[i] + dh.offset[i];

    const double px = F.p[0] - d5 * F.R[0][2];
    const double py = F.p[1] - d5 * F.R[1][2];
    const double pz = F.p[2] - d5 * F.R[2][2] - d0;

    candidate_set set(dh, F, q_ref, limits);
    // The four arm solutions (base, shoulder, elbow), nearest first.
    struct arm_solution {
        double q[6];
        double c0, s0, c12, s12;
        double bound;
        bool near_miss;
    };
    ordered<arm_solution, 4> arms;
    for (int s : {1, -1}) {
        base_solution base;
        arm_solution arm;
        if (!base_angle(px, py, w, s, ref_t[0], &base) || !set.joint(0, base.t0, &arm.q[0]))
            continue;
        const double x = base.X - a1, z = pz;
        const double rho2 = x * x + z * z;
        if (rho2 < 1e-18) continue; // wrist centre on the shoulder axis
        double c = (rho2 - a2 * a2 - L * L) / (2.0 * a2 * L);
        const ik_reach reach = ik_reach_cosine(&c, std::fabs(a2) * L / std::sqrt(rho2));
        if (reach == ik_reach::unreachable) continue;
        arm.near_miss = base.near_miss || reach == ik_reach::near_miss;
        const double elbow = std::acos(c), se = std::sqrt(1.0 - c * c);
        for (int e : {1, -1}) {
            // t2 = phi + e * elbow.
            const double c2 = cphi * c - sphi * e * se;
            const double s2 = sphi * c + cphi * e * se;
            if (!set.joint(2, phi + e * elbow, &arm.q[2])) continue;
            const double u = a2 + a3 * c2 + d3 * s2;
            const double v = a3 * s2 - d3 * c2;
            // (x, z) is (u, v) turned by t1.
            const double c1 = (x * u + z * v) / rho2;
            const double s1 = (z * u - x * v) / rho2;
            if (!set.joint(1, std::atan2(s1, c1), &arm.q[1])) continue;
            arm.c0 = base.c0;
            arm.s0 = base.s0;
            arm.c12 = c1 * c2 - s1 * s2;
            arm.s12 = s1 * c2 + c1 * s2;
            arm.bound = set.partial(arm.q, {0, 1, 2});
            arms.add(arm);
        }
    }
    for (int k = 0; k < arms.n; ++k) {
        arm_solution &arm = arms.item[k];
        if (arm.bound >= set.bound()) break;
        const double c0 = arm.c0, s0 = arm.s0, c12 = arm.c12, s12 = arm.s12;
        // Columns of A = Rz(t0) Rx(pi/2) Rz(t1 + t2) Rx(pi/2).
        const double A[3][3] = {
            {c0 * c12, s0 * c12, s12}, {s0, -c0, 0.0}, {c0 * s12, s0 * s12, -c12}};
        double M[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                M[i][j] = A[i][0] * F.R[0][j] + A[i][1] * F.R[1][j] + A[i][2] * F.R[2][j];
        zyz_angles wrist;
        ik_zyz(M, ref_t[3], ref_t[5], &wrist);
        const bool near_aligned = !wrist.aligned && ik_zyz_tilt(M) < k_zyz_near_aligned;
        for (int pass = 0; pass < (near_aligned ? 2 : 1); ++pass) {
            if (pass == 1) ik_zyz_even_split(M, ref_t[3], ref_t[5], &wrist);
            for (const auto &wr : wrist.angle)
                if (set.joint(3, wr[0], &arm.q[3]) && set.joint(4, wr[1], &arm.q[4]) &&
                    set.joint(5, wr[2], &arm.q[5]))
                    set.offer(arm.q, arm.near_miss || pass == 1);
        }
    }
    return set.pick(q_out);
}

// Frames: joints 2 to 4 are parallel. The wrist point (origin of frame 4)
// lies d[5] behind the flange; it sits at lateral distance w = d1 + d2 + d3
// from the arm plane, which fixes the base angle. With
// H = Rz(t0) Rx(pi/2), H^T R = Rz(t1 + t2 + t3) Ry(-t4) Rz(t5). Frame 3's
// origin lies d4 from the wrist point along its y axis; from there the
// shoulder and elbow form a planar two-link arm of lengths a2 and a3.
int ik_solve_parallel_axes(const dh_table &dh, const ik_frame &F, const double q_ref[6],
                           const ik_limits &limits, double q_out[6]) {
    static constexpr double alpha[6] = {0.0, k_pi / 2, 0.0, 0.0, k_pi / 2, -k_pi / 2};
    if (!twists_are(dh, alpha) || !near(dh.a[0], 0.0) || !near(dh.a[4], 0.0) ||
        !near(dh.a[5], 0.0) || near(dh.a[2], 0.0) || near(dh.a[3], 0.0))
        return k_ik_bad_geometry;
    if (!ik_frame_finite(F)) return k_ik_bad_geometry;
    const double d0 = dh.d[0], a1 = dh.a[1], a2 = dh.a[2], a3 = dh.a[3];
    const double d4 = dh.d[4], d5 = dh.d[5];
    const double w = static_cast<double>(dh.d[1]) + dh.d[2] + dh.d[3];

    double ref_t[6];
    for (int i = 0; i < 6; ++i)
        ref_t[i] = q_ref[i] + dh.offset[i];
    const double ref_sum = ref_t[1] + ref_t[2] + ref_t[3];

    const double px = F.p[0] - d5 * F.R[0][2];
    const double py = F.p[1] - d5 * F.R[1][2];
    const double pz = F.p[2] - d5 * F.R[2][2] - d0;

    candidate_set set(dh, F, q_ref, limits);

    // Base and wrist solved: joints 1, 5 and 6 known, with the
    // parallel-axes sum and its cosine and sine.
    struct wrist_solution {
        double q[6];
        double c0, s0, sum, cs, ss;
        double bound;
        bool near_miss;
    };
    ordered<wrist_solution, 16> wrists;
    auto add_wrists = [&](const base_solution &base, double q0, const zyz_angles &z, bool forced) {
        for (int k = 0; k < 2; ++k) {
            wrist_solution ws;
            ws.q[0] = q0;
            if (!set.joint(4, -z.angle[k][1], &ws.q[4]) || !set.joint(5, z.angle[k][2], &ws.q[5]))
                continue;
            const double sign = k == 0 ? 1.0 : -1.0;
            ws.c0 = base.c0;
            ws.s0 = base.s0;
            ws.near_miss = base.near_miss || forced;
            ws.sum = z.angle[k][0];
            ws.cs = sign * z.ca;
            ws.ss = sign * z.sa;
            ws.bound = set.partial(ws.q, {0, 4, 5});
            wrists.add(ws);
        }
    };

    base_solution bases[2];
    double G[2][3][3];
    double q0s[2];
    int n_bases = 0;
    bool aligned = false;
    for (int s : {1, -1}) {
        base_solution &base = bases[n_bases];
        if (!base_angle(px, py, w, s, ref_t[0], &base) || !set.joint(0, base.t0, &q0s[n_bases]))
            continue;
        // Columns of H: (c0, s0, 0), (0, 0, 1), (s0, -c0, 0).
        double(&g)[3][3] = G[n_bases];
        for (int j = 0; j < 3; ++j) {
            g[0][j] = base.c0 * F.R[0][j] + base.s0 * F.R[1][j];
            g[1][j] = F.R[2][j];
            g[2][j] = base.s0 * F.R[0][j] - base.c0 * F.R[1][j];
        }
        zyz_angles z;
        ik_zyz(g, ref_sum, ref_t[5], &z);
        add_wrists(base, q0s[n_bases], z, false);
        const bool near_aligned = !z.aligned && ik_zyz_tilt(g) < k_zyz_near_aligned;
        if (z.aligned || near_aligned) {
            // (Nearly) aligned wrist: the split between the parallel-axes sum
            // and joint 6 also moves the elbow, so besides the even split
            // try the reference's sum and the reference's joint 6. Off exact
            // alignment these are polished onto the target.
            aligned = true;
            if (near_aligned) {
                ik_zyz_even_split(g, ref_sum, ref_t[5], &z);
                add_wrists(base, q0s[n_bases], z, true);
            }
            const double a0 = z.angle[0][0], c0 = z.angle[0][2];
            const double keep_last = g[2][2] >= 0.0 ? a0 + c0 - ref_t[5] : a0 + ref_t[5] - c0;
            for (double first : {ref_sum, keep_last}) {
                ik_zyz_with_first(g, first, &z);
                add_wrists(base, q0s[n_bases], z, near_aligned);
            }
        }
        ++n_bases;
    }

    // Shoulder and elbow of a wrist solution.
    auto complete = [&](wrist_solution &ws) {
        // Frame 3's origin: wrist point + d4 * y3, y3 = (-ss c0, -ss s0, cs).
        const double p3x = px - d4 * ws.ss * ws.c0;
        const double p3y = py - d4 * ws.ss * ws.s0;
        const double x = ws.c0 * p3x + ws.s0 * p3y - a1;
        const double z = pz + d4 * ws.cs;
        const double rho = std::sqrt(x * x + z * z);
        double c = (x * x + z * z - a2 * a2 - a3 * a3) / (2.0 * a2 * a3);
        const ik_reach reach = ik_reach_cosine(&c, std::fabs(a2 * a3) / std::max(rho, 1e-9));
        if (reach == ik_reach::unreachable) return;
        const bool near_miss = ws.near_miss || reach == ik_reach::near_miss;
        const double elbow = std::acos(c), se = std::sqrt(1.0 - c * c);
        for (int e : {1, -1}) {
            if (!set.joint(2, e * elbow, &ws.q[2])) continue;
            const double k1 = a2 + a3 * c, k2 = a3 * e * se;
            const double t1 = std::atan2(z * k1 - x * k2, x * k1 + z * k2);
            if (!set.joint(1, t1, &ws.q[1]) || !set.joint(3, ws.sum - t1 - e * elbow, &ws.q[3]))
                continue;
            set.offer(ws.q, near_miss);
        }
    };
    for (int k = 0; k < wrists.n; ++k) {
        if (wrists.item[k].bound >= set.bound()) break;
        complete(wrists.item[k]);
    }

    if (set.count() == 0 && aligned) {
        // No split near the reference reaches: search the whole turn.
        for (int b = 0; b < n_bases; ++b) {
            for (int k = 0; k < 72; ++k) {
                zyz_angles z;
                ik_zyz_with_first(G[b], ref_sum + k * (k_two_pi / 72), &z);
                wrists.n = 0;
                add_wrists(bases[b], q0s[b], z, true);
                for (int i = 0; i < wrists.n; ++i)
                    complete(wrists.item[i]);
            }
        }
    }
    return set.pick(q_out);
}
