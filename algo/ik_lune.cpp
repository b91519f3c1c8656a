// LUNE: spherical shoulder, elbow, spherical wrist; the redundancy parameter
// is the arm angle.
#include "algo/ik_redundancy_search.h"

#include <algorithm>

using namespace ik7;

namespace {

// ------------------------------------------------------------------ LUNE
// Shoulder S at height d0, elbow E at d2 from S, wrist centre W at d4 from E
// and d6 behind the flange. E lies on a circle about the line S-W:
// E = C + r (cos psi u + sin psi v). Given E: z2 = (E - S)/d2,
// z4 = (W - E)/d4 = -sin t3 x2 + cos t3 z2, so x2 follows and
// [x2 y2 z2] = Rz(t0) Ry(t1) Rz(t2); the wrist is
// Ry(t3) [x2 y2 z2]^T R = Rz(t4) Ry(t5) Rz(t6).
// Groups: the elbow sign; members: two shoulder times two wrist branches.
struct arm_angle_arm {
    static constexpr int param_joint = -1; // the parameter is not a joint
    // Middle joints of the triples that align: the shoulder and the wrist.
    static constexpr int aligning_joints[] = {1, 5};
    // The group another meets where the parameter stands still: none.
    static int partner(int g) { return g; }
    // The arm angle describes the self-motion everywhere off the singularities.
    static bool parameter_stalls(const double[7]) { return false; }
    static constexpr int groups = 2;
    static constexpr int members = 4;
    double d2 = 0, d4 = 0;
    v3 S{}, W{}, C{}, u{}, v{}, wh{};
    double r = 0, elbow = 0, c3 = 1, s3 = 0;
    double R[3][3]{};

    int setup(const dh_table &dh, const ik_frame &F) {
        static constexpr double alpha[7] = {0,         -k_pi / 2, k_pi / 2, k_pi / 2,
                                            -k_pi / 2, -k_pi / 2, k_pi / 2};
        for (int i = 0; i < 7; ++i)
            if (!near(dh.alpha[i], alpha[i]) || !near(dh.a[i], 0.0)) return k_ik_bad_geometry;
        if (!near(dh.d[1], 0.0) || !near(dh.d[3], 0.0) || !near(dh.d[5], 0.0) ||
            dh.d[2] <= k_pattern_tol || dh.d[4] <= k_pattern_tol)
            return k_ik_bad_geometry;
        d2 = dh.d[2];
        d4 = dh.d[4];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                R[i][j] = F.R[i][j];
        const double d6 = dh.d[6];
        S = {0.0, 0.0, dh.d[0]};
        W = {F.p[0] - d6 * R[0][2], F.p[1] - d6 * R[1][2], F.p[2] - d6 * R[2][2]};
        const v3 D = W - S;
        const double dist = norm(D);
        if (dist < 1e-9) return k_ik_no_solution;
        double c = (dist * dist - d2 * d2 - d4 * d4) / (2.0 * d2 * d4);
        // A near miss (elbow clamped straight or folded) is polished with
        // every other result at the end.
        if (ik_reach_cosine(&c, d2 * d4 / dist) == ik_reach::unreachable) return k_ik_no_solution;
        elbow = std::acos(c);
        c3 = c;
        s3 = std::sqrt(std::max(0.0, 1.0 - c * c));
        const double cb =
            std::clamp((d2 * d2 + dist * dist - d4 * d4) / (2.0 * d2 * dist), -1.0, 1.0);
        wh = (1.0 / dist) * D;
        C = S + (d2 * cb) * wh;
        r = d2 * std::sqrt(std::max(0.0, 1.0 - cb * cb));
        const v3 up = std::fabs(wh.z) < 0.9 ? v3{0, 0, 1} : v3{1, 0, 0};
        const v3 uu = up - dot(up, wh) * wh;
        u = (1.0 / norm(uu)) * uu;
        v = cross(wh, u);
        return k_ik_ok;
    }

    // The arm angle whose elbow plane is the reference's: the plane's normal
    // is y2, which for elbow sign e points along e (cos psi v - sin psi u).
    // Unlike the elbow's position it stays well defined near a stretched
    // elbow, where the circle shrinks.
    // Near a stretched elbow the two elbow groups meet half a turn apart,
    // so each group has its own start.
    double reference_parameter(const double ref_t[7], int g) const {
        const double c0 = std::cos(ref_t[0]), s0 = std::sin(ref_t[0]);
        const double c1 = std::cos(ref_t[1]), s1 = std::sin(ref_t[1]);
        const double c2 = std::cos(ref_t[2]), s2 = std::sin(ref_t[2]);
        const v3 y2{-c0 * c1 * s2 - s0 * c2, -s0 * c1 * s2 + c0 * c2, s1 * s2};
        const double e = reference_group(ref_t) == 0 ? 1.0 : -1.0;
        const double yu = dot(y2, u), yv = dot(y2, v);
        double psi;
        if (yu * yu + yv * yv > 1e-12) {
            psi = std::atan2(-e * yu, e * yv);
        } else {
            const v3 z2{c0 * s1, s0 * s1, c1};
            const v3 d = S + d2 * z2 - C;
            psi = std::atan2(dot(d, v), dot(d, u));
        }
        return g == reference_group(ref_t) ? psi : psi + k_pi;
    }

    int reference_group(const double ref_t[7]) const { return ik_wrap_pi(ref_t[3]) >= 0.0 ? 0 : 1; }

    bool bounded() const { return false; }
    double lower() const { return -k_inf; }
    double upper() const { return k_inf; }

    // sin^2 of middle joint j (1: the shoulder, 5: the wrist) of group g at
    // arm angle psi: the squared tilt of its axis, from the two axes it
    // lies between (the base's z and z2; z4 and the flange's approach),
    // without the group's angles.
    bool aligning_tilt2(int j, double psi, int g, double *h) const {
        const v3 E = C + r * (std::cos(psi) * u + std::sin(psi) * v);
        const v3 z2 = (1.0 / d2) * (E - S);
        if (j == 1) {
            *h = z2.x * z2.x + z2.y * z2.y; // z1 is the base's z
            return true;
        }
        // The wrist's middle cosine: M[2][2] of eval_group.
        const double st3 = (g == 0 ? 1.0 : -1.0) * s3;
        const v3 a{R[0][2], R[1][2], R[2][2]};
        double c;
        if (s3 > 1e-9) {
            c = dot((1.0 / d4) * (W - E), a);
        } else {
            const v3 dir = std::cos(psi) * u + std::sin(psi) * v;
            const v3 t = dir - dot(dir, z2) * z2;
            c = -st3 * dot((1.0 / norm(t)) * t, a) + c3 * dot(z2, a);
        }
        *h = (1.0 - c) * (1.0 + c);
        return true;
    }

    // The four members of elbow group g at arm angle psi.
    bool eval_group(double psi, int g, const double ref_t[7], double theta[][7]) const {
        const double e = g == 0 ? 1.0 : -1.0;
        const double cp = std::cos(psi), sp = std::sin(psi);
        const v3 dir = cp * u + sp * v;
        const v3 E = C + r * dir;
        const v3 z2 = (1.0 / d2) * (E - S);
        const v3 z4 = (1.0 / d4) * (W - E);
        const double t3 = e * elbow, st3 = e * s3;
        v3 x2;
        if (s3 > 1e-9) {
            x2 = (1.0 / st3) * (c3 * z2 - z4);
        } else {
            // Stretched or folded: the arm angle turns the upper arm about itself.
            const v3 t = dir - dot(dir, z2) * z2;
            x2 = (1.0 / norm(t)) * t;
        }
        const v3 y2 = cross(z2, x2);
        const double R2[3][3] = {{x2.x, y2.x, z2.x}, {x2.y, y2.y, z2.y}, {x2.z, y2.z, z2.z}};
        zyz_angles shoulder;
        ik_zyz(R2, ref_t[0], ref_t[2], &shoulder);
        const v3 cols[3] = {x2, y2, z2};
        double N[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                N[i][j] = cols[i].x * R[0][j] + cols[i].y * R[1][j] + cols[i].z * R[2][j];
        double M[3][3];
        for (int j = 0; j < 3; ++j) {
            M[0][j] = c3 * N[0][j] + st3 * N[2][j];
            M[1][j] = N[1][j];
            M[2][j] = -st3 * N[0][j] + c3 * N[2][j];
        }
        zyz_angles wrist;
        ik_zyz(M, ref_t[4], ref_t[6], &wrist);
        for (int i = 0; i < 2; ++i) {
            for (int j = 0; j < 2; ++j) {
                double *t = theta[i + 2 * j];
                t[0] = shoulder.angle[i][0];
                t[1] = shoulder.angle[i][1];
                t[2] = shoulder.angle[i][2];
                t[3] = t3;
                t[4] = wrist.angle[j][0];
                t[5] = wrist.angle[j][1];
                t[6] = wrist.angle[j][2];
            }
        }
        return true;
    }
};

} // namespace

int ik_solve_arm_angle(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                       const ik_limits &limits, ik_redundancy redundancy, double q_out[7]) {
    if (!ik_frame_finite(flange)) return k_ik_bad_geometry;
    arm_angle_arm arm;
    const int rc = arm.setup(dh, flange);
    if (rc != k_ik_ok) return rc;
    return solve_redundant(arm, dh, flange, q_ref, limits, redundancy, q_out);
}
