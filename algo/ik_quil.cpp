// QUIL: spherical shoulder, offset elbow, wrist with an offset last axis;
// the redundancy parameter is the last joint.
#include "algo/ik_redundancy_search.h"
#include "algo/trig.h"

#include <algorithm>
#include <limits>

using namespace ik7;

namespace {

// ------------------------------------------------------------------ QUIL
// The last joint t6 fixes frame 5: x5 = R (c6, -s6, 0), z5 = R (s6, c6, 0),
// and the wrist point W = p - a6 x5 - d6 z (origin of frames 4 and 5).
// In frame 3, W - S = (ux, uy, 0) with ux = a3 c3 + a4 + d2 s3 and
// uy = d4 + d2 c3 - a3 s3, so |W - S| gives t3. Joint 5's axis is y3 and
// must be normal to z5; with y3 . (W - S) = uy this leaves two choices of
// y3. Then x3 = ((W - S) - uy y3) / ux, [x2 y2 z2] = R3 Rz(-t3) Rx(-pi/2)
// = Rz(t0) Ry(t1) Rz(t2), and Rz(t4) Rx(pi/2) Rz(t5) = [x3 -z3 y3]^T R5.
// Groups: elbow sign times the choice of y3; members: two shoulder branches.
struct offset_elbow_arm {
    static constexpr int param_joint = 6;
    // Middle joint of the triple that aligns: the shoulder (the wrist's
    // last axis is offset).
    static constexpr int aligning_joints[] = {1};
    // The group another meets where the last joint stands still (the
    // other choice of y3, at the end of their common interval).
    static int partner(int g) { return g ^ 1; }
    // Whether t (a reference's joints with their offsets) is near a
    // configuration where the self-motion leaves the last joint standing:
    // joint 2 at 0, joint 5 at +-90 degrees (where the two choices of y3 meet).
    static bool parameter_stalls(const double t[7]) {
        return std::fabs(std::sin(t[1])) < k_stall_band_shoulder ||
               std::fabs(std::cos(t[4])) < k_stall_band_wrist;
    }
    static constexpr int groups = 4;
    static constexpr int members = 2;
    double a3 = 0, a4 = 0, a6 = 0, d2 = 0, d4 = 0, d6 = 0;
    double K0 = 0, Kn = 0, inv_Kn = 0, Kphi = 0, cKphi = 1, sKphi = 0;
    v3 S{}, P{}, fx{}, fy{}, zf{}; // flange position and axes
    double lo6 = 0, hi6 = 0;
    // Where a group has solutions at all. With V = P - d6 z - S,
    // V . fx = rho cos(phi), V . fy = rho sin(phi) and x = cos(t6 + phi):
    // |W - S|^2 = A - B x and delta^2 = |W - S|^2 - rho^2 (1 - x^2), so the
    // elbow's cosine c is linear in x and whether an elbow sign has
    // solutions depends on x alone.
    double vA = 0, vB = 0, rho = 0, phi = 0, ua = 0, ub = 0;

    int setup(const dh_table &dh, const ik_frame &F, const ik_limits &limits) {
        static constexpr double alpha[7] = {0,         -k_pi / 2, k_pi / 2, k_pi / 2,
                                            -k_pi / 2, k_pi / 2,  k_pi / 2};
        for (int i = 0; i < 7; ++i)
            if (!near(dh.alpha[i], alpha[i])) return k_ik_bad_geometry;
        if (!near(dh.a[0], 0.0) || !near(dh.a[1], 0.0) || !near(dh.a[2], 0.0) ||
            !near(dh.a[5], 0.0) || !near(dh.d[1], 0.0) || !near(dh.d[3], 0.0) ||
            !near(dh.d[5], 0.0))
            return k_ik_bad_geometry;
        a3 = dh.a[3];
        a4 = dh.a[4];
        a6 = dh.a[6];
        d2 = dh.d[2];
        d4 = dh.d[4];
        d6 = dh.d[6];
        K0 = a3 * a3 + a4 * a4 + d2 * d2 + d4 * d4;
        const double K1 = 2.0 * (a3 * a4 + d2 * d4);
        const double K2 = 2.0 * (d2 * a4 - a3 * d4);
        Kn = std::hypot(K1, K2);
        if (Kn < k_pattern_tol) return k_ik_bad_geometry;
        inv_Kn = 1.0 / Kn;
        Kphi = std::atan2(K2, K1);
        cKphi = K1 / Kn;
        sKphi = K2 / Kn;
        S = {0.0, 0.0, dh.d[0]};
        P = {F.p[0], F.p[1], F.p[2]};
        fx = column(F.R, 0);
        fy = column(F.R, 1);
        zf = column(F.R, 2);
        lo6 = limits.lo[6] + dh.offset[6];
        hi6 = limits.hi[6] + dh.offset[6];
        const v3 V = P - d6 * zf - S;
        rho = std::hypot(dot(V, fx), dot(V, fy));
        phi = std::atan2(dot(V, fy), dot(V, fx));
        vA = dot(V, V) + a6 * a6;
        vB = 2.0 * a6 * rho;
        // uy = d4 + ua c - ub e sqrt(1 - c^2).
        ua = d2 * cKphi - a3 * sKphi;
        ub = d2 * sKphi + a3 * cKphi;
        return k_ik_ok;
    }

    // The elbow's cosine at x, clamped onto its reach.
    double elbow_cosine(double x) const { return std::clamp((vA - vB * x - K0) / Kn, -1.0, 1.0); }

    // delta^2 - uy^2 for elbow sign e at x: a group has solutions where it
    // is not negative and |c| <= 1.
    double y3_margin(double x, double e) const {
        const double c = elbow_cosine(x);
        const double uy = d4 + ua * c - ub * e * std::sqrt((1.0 - c) * (1.0 + c));
        return vA - vB * x - rho * rho * (1.0 - x * x) - uy * uy;
    }

    // The intervals of x in which the groups of each elbow sign have
    // solutions, at most 3 per sign.
    void cosine_intervals(double cos_iv[2][3][2], int n_cos[2]) const {
        n_cos[0] = n_cos[1] = 0;
        // |c| <= 1 with c = c0 + c1 x.
        const double c0 = (vA - K0) / Kn, c1 = -vB / Kn;
        double xl = -1.0, xh = 1.0;
        if (std::fabs(c1) > 1e-12) {
            const double a = (-1.0 - c0) / c1, b = (1.0 - c0) / c1;
            xl = std::max(xl, std::min(a, b));
            xh = std::min(xh, std::max(a, b));
        } else if (std::fabs(c0) > 1.0) {
            return;
        }
        if (!(xl < xh)) return;
        // The margin's zeros: with m = d4 + ua c and Q = delta^2,
        // L = Q - m^2 - ub^2 (1 - c^2) = -2 e ub m sqrt(1 - c^2), squared:
        // L^2 - 4 ub^2 m^2 (1 - c^2) = 0, a quartic in x for both signs.
        const double m[3] = {d4 + ua * c0, ua * c1, 0.0};
        const double one_c2[3] = {1.0 - c0 * c0, -2.0 * c0 * c1, -c1 * c1};
        double m2[5];
        product2(m, m, m2);
        const double Q[3] = {vA - rho * rho, -vB, rho * rho};
        double L[3], L2[5], m2c[5], quartic[5];
        for (int i = 0; i < 3; ++i)
            L[i] = Q[i] - m2[i] - ub * ub * one_c2[i];
        product2(L, L, L2);
        product2(m2, one_c2, m2c);
        for (int i = 0; i < 5; ++i)
            quartic[i] = L2[i] - 4.0 * ub * ub * m2c[i];
        double ends[6];
        int n = 0;
        ends[n++] = xl;
        n += ik_polynomial_roots(quartic, 4, xl, xh, ends + n);
        ends[n++] = xh;
        for (int s = 0; s < 2; ++s) {
            int &count = n_cos[s];
            for (int k = 0; k + 1 < n; ++k) {
                if (y3_margin(0.5 * (ends[k] + ends[k + 1]), s ? -1.0 : 1.0) < 0.0) continue;
                if (count > 0 && cos_iv[s][count - 1][1] == ends[k])
                    cos_iv[s][count - 1][1] = ends[k + 1];
                else
                    cos_iv[s][count][0] = ends[k], cos_iv[s][count][1] = ends[k + 1], ++count;
            }
        }
    }

    // How near joint 3 (ref_t3, with its offset) can come to the reference's
    // while t6 stays within [a, b] on the groups of elbow sign e: t3 = Kphi
    // + e acos(c) with c monotone in x = cos(t6 + phi).
    double elbow_gap(int e_bit, double a, double b, double ref_t3) const {
        double xa = std::cos(a + phi), xb = std::cos(b + phi);
        double x_lo = std::min(xa, xb), x_hi = std::max(xa, xb);
        // cos reaches 1 at whole turns and -1 half a turn on.
        if (std::floor((b + phi) / k_two_pi) > std::floor((a + phi) / k_two_pi)) x_hi = 1.0;
        if (std::floor((b + phi - k_pi) / k_two_pi) > std::floor((a + phi - k_pi) / k_two_pi))
            x_lo = -1.0;
        const double ca = elbow_cosine(x_lo), cb = elbow_cosine(x_hi);
        const double e = e_bit ? -1.0 : 1.0;
        double t_a = Kphi + e * std::acos(ca), t_b = Kphi + e * std::acos(cb);
        if (t_a > t_b) std::swap(t_a, t_b);
        const double from_a = ik_wrap_pi(ref_t3 - t_a);
        if (from_a >= 0.0 && from_a <= t_b - t_a) return 0.0;
        return std::min(std::fabs(from_a), std::fabs(ik_wrap_pi(ref_t3 - t_b)));
    }

    // The intervals of t6 within [lo, hi] in which the groups of each elbow
    // sign have solutions (as many as fit).
    void parameter_intervals(double lo, double hi, solution_intervals *out) const {
        double xs[2][3][2];
        int nx[2];
        cosine_intervals(xs, nx);
        for (int e = 0; e < 2; ++e) {
            int &count = out->n[e];
            count = 0;
            auto add = [&](double a, double b) { // an arc of t6 + phi, shifted by whole turns
                a -= phi;
                b -= phi;
                for (double k = std::floor((lo - b) / k_two_pi); a + k * k_two_pi <= hi; ++k) {
                    const double from = std::max(lo, a + k * k_two_pi),
                                 to = std::min(hi, b + k * k_two_pi);
                    if (from <= to && count < solution_intervals::cap)
                        out->iv[e][count][0] = from, out->iv[e][count][1] = to, ++count;
                }
            };
            for (int k = 0; k < nx[e]; ++k) {
                const double x_lo = xs[e][k][0], x_hi = xs[e][k][1];
                const double ta = std::acos(std::min(x_hi, 1.0)),
                             tb = std::acos(std::max(x_lo, -1.0));
                if (x_hi >= 1.0 && x_lo <= -1.0) {
                    add(-k_pi, k_pi);
                } else if (x_hi >= 1.0) {
                    add(-tb, tb);
                } else if (x_lo <= -1.0) {
                    add(ta, k_two_pi - ta);
                } else {
                    add(ta, tb);
                    add(-tb, -ta);
                }
            }
        }
    }

    double reference_parameter(const double ref_t[7], int) const {
        return std::clamp(ref_t[6], lo6, hi6);
    }
    // The reference's own group: its elbow sign, and on which side of the
    // plane of z5 and W - S its y3 lies (frames of the reference's joints).
    int reference_group(const double ref_t[7]) const {
        const double c0 = std::cos(ref_t[0]), s0 = std::sin(ref_t[0]);
        const double c1 = std::cos(ref_t[1]), s1 = std::sin(ref_t[1]);
        const double c2 = std::cos(ref_t[2]), s2 = std::sin(ref_t[2]);
        const double c3 = std::cos(ref_t[3]), s3 = std::sin(ref_t[3]);
        const double c4 = std::cos(ref_t[4]), s4 = std::sin(ref_t[4]);
        // Columns of R2 = Rz(t0) Ry(t1) Rz(t2).
        const v3 x2{c0 * c1 * c2 - s0 * s2, s0 * c1 * c2 + c0 * s2, -s1 * c2};
        const v3 y2{-c0 * c1 * s2 - s0 * c2, -s0 * c1 * s2 + c0 * c2, s1 * s2};
        const v3 z2{c0 * s1, s0 * s1, c1};
        // R3 = R2 Rx(pi/2) Rz(t3): x3 = c3 x2 + s3 z2, y3 = -s3 x2 + c3 z2, z3 = -y2.
        const v3 x3 = c3 * x2 + s3 * z2;
        const v3 y3 = -s3 * x2 + c3 * z2;
        const v3 z3 = -1.0 * y2;
        const v3 z5 = s4 * x3 + c4 * z3;
        const v3 D = (a3 + a4 * c3 - d4 * s3) * x2 + (d2 + a4 * s3 + d4 * c3) * z2;
        const v3 Dp = D - dot(D, z5) * z5;
        const int e = ik_wrap_pi(ref_t[3] - Kphi) >= 0.0 ? 0 : 2;
        const int f = dot(y3, cross(z5, Dp)) >= 0.0 ? 0 : 1;
        return e | f;
    }
    bool bounded() const { return true; }
    double lower() const { return lo6; }
    double upper() const { return hi6; }

    // sin^2 of joint 2 of group g at t6 (the squared tilt of z2 off the
    // base's z), without the group's angles; j is always the shoulder's 1.
    bool aligning_tilt2(int, double t6, int g, double *h) const {
        upper_arm a;
        if (!upper_arm_at(t6, g, &a)) return false;
        const v3 z2 = a.s3 * a.x3 + a.c3 * a.y3;
        *h = z2.x * z2.x + z2.y * z2.y;
        return std::isfinite(*h);
    }

    // The two shoulder members of group g (bit 1: elbow sign, bit 0: y3 choice).
    bool eval_group(double t6, int g, const double ref_t[7], double theta[][7]) const {
        upper_arm a;
        if (!upper_arm_at(t6, g, &a)) return false;
        const v3 &x3 = a.x3, &y3 = a.y3, &x5 = a.x5, &z5 = a.z5;
        const v3 z3 = cross(x3, y3);
        const v3 x2 = a.c3 * x3 - a.s3 * y3;
        const v3 y2 = -1.0 * z3;
        const v3 z2 = a.s3 * x3 + a.c3 * y3;
        const double R2[3][3] = {{x2.x, y2.x, z2.x}, {x2.y, y2.y, z2.y}, {x2.z, y2.z, z2.z}};
        zyz_angles shoulder;
        // Within 3e-11 rad: far below a target's float rounding.
        const auto arc_tangent = [](double y, double x) { return trig::search_arc_tangent2(y, x); };
        // R2's columns are unit and orthogonal by construction.
        ik_zyz_rotation(R2, ref_t[0], ref_t[2], &shoulder, arc_tangent);
        // The elbow's arc cosine, once per t6 (the tilt does not need it).
        if (std::isnan(last_.acos_c)) last_.acos_c = arc_tangent(last_.sin_c, last_.c);
        const double t3 = Kphi + ((g & 2) ? -last_.acos_c : last_.acos_c);
        const double t4 = arc_tangent(dot(x3, z5), dot(z3, z5));
        const double t5 = arc_tangent(dot(y3, x5), -dot(y3, zf));
        for (int i = 0; i < 2; ++i) {
            double *t = theta[i];
            t[0] = shoulder.angle[i][0];
            t[1] = shoulder.angle[i][1];
            t[2] = shoulder.angle[i][2];
            t[3] = t3;
            t[4] = t4;
            t[5] = t5;
            t[6] = t6;
        }
        return true;
    }

  private:
    // What a group fixes at t6 before the shoulder's angles: frame 3's x and
    // y axes, joint 4's cosine and sine, x5 and z5.
    struct upper_arm {
        v3 x3, y3, x5, z5;
        double c3, s3;
    };

    // What every group shares at one t6: the wrist's frame and point, and
    // the elbow's cosine with its sine and arc cosine (NaN until a group's
    // joints need it). The four groups start at the same t6, and a search
    // evaluates a point's tilt before its joints, so the last t6 is kept.
    struct wrist_point {
        double t6 = std::numeric_limits<double>::quiet_NaN(); // none yet
        bool ok = false;
        v3 x5{}, z5{}, D{}, Dp{};
        // delta^2 = |Dp|^2: y3 needs no delta of its own.
        double c = 0.0, sin_c = 0.0, acos_c = 0.0, delta2 = 0.0, inv_delta2 = 0.0;
    };
    mutable wrist_point last_;

    const wrist_point &wrist_at(double t6) const {
        if (t6 == last_.t6) return last_;
        wrist_point &w = last_;
        w.t6 = t6;
        w.ok = false;
        double sn, cs;
        trig::search_sine_cosine(t6, &sn, &cs);
        w.x5 = cs * fx - sn * fy;
        w.z5 = sn * fx + cs * fy;
        const v3 W = P - a6 * w.x5 - d6 * zf;
        w.D = W - S;
        const double dist2 = dot(w.D, w.D);
        if (dist2 < 1e-18) return w;
        // Slack of the target's rounding only: the search moves t6 off the
        // boundary of its range rather than accept a clamped point there,
        // but a target whose solution lies on that boundary (joint 5 at
        // +-90 degrees, where the two choices of y3 meet) still has one.
        // The distance itself only scales the excess of a clamped cosine
        // (or refuses a NaN).
        w.c = (dist2 - K0) * inv_Kn;
        if (!(std::fabs(w.c) <= 1.0) &&
            !ik_clamp_cosine(&w.c, Kn / (2.0 * std::sqrt(dist2)), k_rounding_slack))
            return w;
        w.sin_c = std::sqrt((1.0 - w.c) * (1.0 + w.c));
        w.acos_c = std::numeric_limits<double>::quiet_NaN();
        w.Dp = w.D - dot(w.D, w.z5) * w.z5;
        w.delta2 = dot(w.Dp, w.Dp);
        if (w.delta2 < 1e-24) return w;
        w.inv_delta2 = 1.0 / w.delta2;
        w.ok = true;
        return w;
    }

    // Metres: below this |ux|, x3 is normalised rather than divided by ux.
    static constexpr double k_short_ux = 0.02;

    bool upper_arm_at(double t6, int g, upper_arm *out) const {
        const double e = (g & 2) ? -1.0 : 1.0, f = (g & 1) ? -1.0 : 1.0;
        const wrist_point &w = wrist_at(t6);
        if (!w.ok) return false;
        const v3 &x5 = w.x5, &z5 = w.z5, &D = w.D, &Dp = w.Dp;
        const double c = w.c;
        // t3 = Kphi + e acos(c); its cosine and sine by the sum formulas.
        const double se = e * w.sin_c;
        const double c3 = cKphi * c - sKphi * se, s3 = sKphi * c + cKphi * se;
        const double ux = a3 * c3 + a4 + d2 * s3;
        const double uy = d4 + d2 * c3 - a3 * s3;
        if (std::fabs(ux) < 1e-10) return false;
        // Taken while y3 is worked out, off its chain of dependencies.
        const double inv_ux = 1.0 / ux;
        // y3 = cb dh + sb (z5 x dh) with dh = Dp / delta, cb = uy / delta and
        // sb = f sqrt(delta^2 - uy^2) / delta: both terms over delta^2.
        const double room = w.delta2 - uy * uy;
        v3 y3;
        bool clamped = !(std::fabs(w.c) < 1.0);
        if (room >= 0.0) {
            y3 = w.inv_delta2 * (uy * Dp + (f * std::sqrt(room)) * cross(z5, Dp));
        } else {
            // A clamped cb misplaces W by its excess times delta / |ux|.
            const double delta = std::sqrt(w.delta2);
            double cb = uy / delta;
            if (!ik_clamp_cosine(&cb, delta,
                                 k_rounding_slack * std::min(1.0, std::fabs(ux) / delta)))
                return false;
            y3 = (cb / delta) * Dp;
            clamped = true;
        }
        // D - uy y3 has length |ux| where neither cosine was clamped, up to
        // the rounding of D . y3 = uy, relatively eps |D| uy / ux^2: where
        // ux is that short, or a cosine was clamped, it is normalised
        // instead. Its direction is ux's sign.
        const v3 u = D - uy * y3;
        const v3 x3 = clamped || std::fabs(ux) < k_short_ux ? (std::copysign(1.0, ux) / norm(u)) * u
                                                            : inv_ux * u;
        *out = {x3, y3, x5, z5, c3, s3};
        return true;
    }
};

} // namespace

int ik_solve_offset_elbow(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                          const ik_limits &limits, ik_redundancy redundancy, double q_out[7]) {
    if (!ik_frame_finite(flange)) return k_ik_bad_geometry;
    offset_elbow_arm arm;
    const int rc = arm.setup(dh, flange, limits);
    if (rc != k_ik_ok) return rc;
    return solve_redundant(arm, dh, flange, q_ref, limits, redundancy, q_out);
}
