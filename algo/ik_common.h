// Building blocks shared by the closed-form solvers: rigid frames in double
// precision, the Z-Y-Z decomposition every wrist and spherical shoulder of
// the supported arms reduces to, and the choice of the candidate nearest to
// the reference joints. Internal to the kinematics; nothing here allocates.
#pragma once

#include "algo/models.h"
#include "ka_api.h"

#include <cmath>
#include <limits>

inline constexpr double k_pi = 3.14159265358979323846;
inline constexpr double k_two_pi = 2.0 * k_pi;

// Rigid transform in double precision: rotation R and translation p.
struct ik_frame {
    double R[3][3];
    double p[3];
};

// Joint limits in radians.
struct ik_limits {
    double lo[7];
    double hi[7];
};

// A candidate further outside a limit than this is dropped; closer than this
// it is clamped onto the limit. It absorbs the float rounding of targets built
// from joints that sit exactly on a limit (about 1e-6 m of motion at 1 m).
inline constexpr double k_limit_slack = 1e-6;

// Cosine-rule slack, metres: how far a rounded target may lie beyond a
// stretched or folded arm and still be taken as reached (clamped onto the
// boundary). Near a shoulder singularity the target's float rounding
// (1e-7 m) is amplified by a factor of tens before it reaches the elbow.
inline constexpr double k_reach_slack = 5e-6;

ik_frame ik_frame_from_matrix(const ka_matrix_t &T);
ka_matrix_t ik_frame_to_matrix(const ik_frame &F);
ik_frame ik_multiply(const ik_frame &A, const ik_frame &B);
ik_frame ik_inverse(const ik_frame &A);

// Tool target -> flange target in the arm base frame: I^-1 * T * Tt^-1,
// worked in double from the context's float matrices.
ik_frame ik_flange_target(const ka_matrix_t &T_tool, const ka_matrix_t &install,
                          const ka_matrix_t &tool);

// Angle wrapped into (-pi, pi].
inline double ik_wrap_pi(double a) {
    // One turn either way covers the differences of wrapped angles; the
    // library remainder only for anything larger.
    if (a > k_pi) {
        a -= k_two_pi;
    } else if (a <= -k_pi) {
        a += k_two_pi;
    }
    if (a > k_pi || a <= -k_pi) {
        a = std::remainder(a, k_two_pi);
        if (a <= -k_pi) a += k_two_pi;
    }
    return a;
}

// M = Rz(a) * Ry(b) * Rz(c), in two branches: angle[0] with b >= 0 (off
// alignment) and angle[1] = (a + pi, -b, c + pi). When the middle axis is aligned (b at 0 or
// pi) only the sum or the difference of a and c is defined; the free turn is
// then shared evenly between a and c relative to their references, which
// is the split nearest to them. c is always fitted to the whole matrix given
// a and b, which keeps the orientation exact near that alignment, where a
// alone is poorly determined by a rounded target.
struct zyz_angles {
    double angle[2][3];
    double ca, sa; // cos and sin of angle[0][0]
    bool aligned;
};
// The library's arc tangent; the seven-axis searches pass a faster one
// (trig::search_arc_tangent2) for the many points they evaluate.
struct exact_arc_tangent {
    double operator()(double y, double x) const { return std::atan2(y, x); }
};
template <class ArcTangent = exact_arc_tangent>
inline void ik_zyz(const double M[3][3], double ref_a, double ref_c, zyz_angles *out,
                   ArcTangent arc_tangent = {});
// The even split of the aligned case forced on M whatever its middle angle.
// Off alignment it misses M by up to sin(b) (the orientation error of the
// result); callers polish such candidates.
void ik_zyz_even_split(const double M[3][3], double ref_a, double ref_c, zyz_angles *out);
// sin of the middle angle, |b| near 0 or pi: below k_zyz_near_aligned the
// exact split of a rounded target may lie far from the references while a
// polished even split reaches the target as well.
inline double ik_zyz_tilt(const double M[3][3]) {
    return std::sqrt(M[0][2] * M[0][2] + M[1][2] * M[1][2]);
}
inline constexpr double k_zyz_near_aligned = 1e-3;
// The same with the first angle a prescribed (the caller has found M aligned).
void ik_zyz_with_first(const double M[3][3], double a, zyz_angles *out);

// Both Z-Y-Z solutions of a non-aligned split: (a, b, c) and its mirror
// (a + pi, -b, c + pi); ca, sa the cosine and sine of a.
inline void ik_zyz_store(double a, double b, double c, double ca, double sa, zyz_angles *out) {
    out->angle[0][0] = a;
    out->angle[0][1] = b;
    out->angle[0][2] = c;
    out->angle[1][0] = a + k_pi;
    out->angle[1][1] = -b;
    out->angle[1][2] = c + k_pi;
    out->ca = ca;
    out->sa = sa;
}

// Given the first angle (with its cosine and sine), the middle angle and
// the fitted last angle. Inline: the seven-axis searches call it for every
// point of the redundancy parameter they evaluate.
template <class ArcTangent = exact_arc_tangent>
inline void ik_zyz_given_first(const double M[3][3], double a, double ca, double sa,
                               zyz_angles *out, ArcTangent arc_tangent = {}) {
    // Rows of Rz(-a) * M.
    double r0[3], r1[3];
    for (int j = 0; j < 3; ++j) {
        r0[j] = ca * M[0][j] + sa * M[1][j];
        r1[j] = -sa * M[0][j] + ca * M[1][j];
    }
    const double sb = r0[2];
    const double cb = M[2][2];
    const double b = arc_tangent(sb, cb);
    const double n = std::sqrt(sb * sb + cb * cb);
    const double cbn = n > 0.0 ? cb / n : 1.0;
    const double sbn = n > 0.0 ? sb / n : 0.0;
    // Ry(-b) * Rz(-a) * M = Rz(c): fit c to its upper 2x2 block.
    const double B00 = cbn * r0[0] - sbn * M[2][0];
    const double B01 = cbn * r0[1] - sbn * M[2][1];
    const double c = arc_tangent(r1[0] - B01, B00 + r1[1]);
    ik_zyz_store(a, b, c, ca, sa, out);
}

// Below this the middle axis of a Z-Y-Z triple counts as aligned. A target
// rounded to float carries about 1e-7 rad, which the arm joints solved
// before the wrist can amplify by a factor of tens near a stretched elbow.
// Keeping the references' split within this band costs at most this much
// orientation.
inline constexpr double k_zyz_aligned = 1e-5;

template <class ArcTangent>
inline void ik_zyz(const double M[3][3], double ref_a, double ref_c, zyz_angles *out,
                   ArcTangent arc_tangent) {
    const double rho = ik_zyz_tilt(M);
    if (rho < k_zyz_aligned) {
        ik_zyz_even_split(M, ref_a, ref_c, out);
        return;
    }
    ik_zyz_given_first(M, arc_tangent(M[1][2], M[0][2]), M[0][2] / rho, M[1][2] / rho, out,
                       arc_tangent);
    out->aligned = false;
}

// ik_zyz for an M that is a rotation up to rounding (its columns built unit
// and orthogonal): the middle angle's sine is the tilt itself and its cosine
// M[2][2], with no normalising, and the first angle's cosine and sine share
// one reciprocal of the tilt. The same angles up to rounding.
template <class ArcTangent>
inline void ik_zyz_rotation(const double M[3][3], double ref_a, double ref_c, zyz_angles *out,
                            ArcTangent arc_tangent) {
    const double rho = ik_zyz_tilt(M);
    if (rho < k_zyz_aligned) {
        ik_zyz_even_split(M, ref_a, ref_c, out);
        return;
    }
    const double inv_rho = 1.0 / rho;
    const double ca = M[0][2] * inv_rho, sa = M[1][2] * inv_rho;
    const double a = arc_tangent(M[1][2], M[0][2]);
    const double b = arc_tangent(rho, M[2][2]);
    // Rows of Rz(-a) * M (the third entry of the first is rho), then
    // Ry(-b) * Rz(-a) * M = Rz(c): c fitted to its upper 2x2 block.
    const double r00 = ca * M[0][0] + sa * M[1][0], r01 = ca * M[0][1] + sa * M[1][1];
    const double r10 = -sa * M[0][0] + ca * M[1][0], r11 = -sa * M[0][1] + ca * M[1][1];
    const double B00 = M[2][2] * r00 - rho * M[2][0];
    const double B01 = M[2][2] * r01 - rho * M[2][1];
    const double c = arc_tangent(r10 - B01, B00 + r11);
    ik_zyz_store(a, b, c, ca, sa, out);
    out->aligned = false;
}

// Brings one joint value into [lo, hi] by a multiple of 2*pi, choosing the
// representative nearest to ref. false when no multiple fits.
bool ik_wrap_joint(double q, double ref, double lo, double hi, double *out);

// Wraps a candidate (joint values, offsets already removed) joint by joint;
// false when some joint cannot be brought within its limits.
bool find_nearest_joint(const double q[], int dof, const double ref[], const ik_limits &limits,
                        double out[]);

// Index of the smallest of n values; -1 when n is 0.
int find_min_index(const double values[], int n);

// Sum of squared joint differences.
inline double ik_joint_distance2(const double a[], const double b[], int dof) {
    double s = 0.0;
    for (int i = 0; i < dof; ++i)
        s += (a[i] - b[i]) * (a[i] - b[i]);
    return s;
}

// Ratio of the cosine rule that may sit a rounding error beyond +-1 when the
// arm is fully stretched or folded: clamps onto +-1 when the excess
// corresponds to less than length_slack metres, else reports unreachable.
// scale converts the excess of the ratio into metres (d(distance)/d(ratio)).
inline bool ik_clamp_cosine(double *c, double scale, double length_slack = k_reach_slack) {
    if (!std::isfinite(*c)) return false;
    if (*c > 1.0) {
        if ((*c - 1.0) * scale > length_slack) return false;
        *c = 1.0;
    } else if (*c < -1.0) {
        if ((-1.0 - *c) * scale > length_slack) return false;
        *c = -1.0;
    }
    return true;
}

// Polishes the joints q (dof entries, radians) towards the flange target by
// damped Gauss-Newton on the general product of the DH links. true when the
// pose error (metres and radians, combined) ends at or below tolerance.
// At most `steps` steps; false at once when q starts farther off the target
// than start_bound (same measure).
bool ik_polish(const dh_table &dh, int dof, const ik_frame &target, double q[], double tolerance,
               int steps = 12, double start_bound = std::numeric_limits<double>::infinity());

// Moves a seven-axis solution q (on the target within k_polish_tolerance)
// along the arm's self-motion towards ref: projected gradient steps in the
// Jacobian's null space, each polished back onto the target and kept only
// when it stays within the limits and comes nearer. Mends the answer of a
// search along a parameter where that parameter describes the self-motion
// badly (it turns the joints quickly).
void ik_nearer_along_self_motion(const dh_table &dh, const ik_frame &target, const double ref[7],
                                 const ik_limits &limits, double q[7]);

// How far the flange of q (dof entries, radians) is off the target: metres
// and radians combined, as ik_polish measures it.
double ik_pose_error(const dh_table &dh, int dof, const ik_frame &target, const double q[]);

// The in-limit point nearest to ref along the self-motion of a seven-axis
// solution q, where the arm is not singular (the self-motion is then one
// curve, whatever the redundancy parameter of a closed form does there):
// steps along the Jacobian's null direction to the point of its tangent
// nearest to ref, clamped onto the limits, each polished back onto the
// target; a q outside the limits is first brought inside where the
// self-motion allows. At most `steps` steps. true when q ends on the target
// within the limits.
bool ik_nearest_on_self_motion(const dh_table &dh, const ik_frame &target, const double ref[7],
                               const ik_limits &limits, double q[7], int steps);

// Cosine-rule slack of a near miss: a branch that misses its cosine rule by
// less than this is finished with ik_polish instead of being dropped.
inline constexpr double k_near_miss_slack = 1e-3; // m

// Accepted pose error of a polished candidate (metres and radians combined);
// the float rounding of a target is about 1e-7.
inline constexpr double k_polish_tolerance = 1e-6;

// Cosine rule of a triangle of links: k_reached when c lies within
// [-1, 1] up to k_reach_slack (then clamped onto it), k_near_miss when it
// misses by less than k_near_miss_slack (also clamped; the candidate needs
// ik_polish), else k_unreachable. scale as for ik_clamp_cosine.
enum class ik_reach { unreachable, reached, near_miss };
ik_reach ik_reach_cosine(double *c, double scale);

// Every entry of the target finite.
bool ik_frame_finite(const ik_frame &F);

// c[0] + c[1] x + ... + c[n] x^n.
double ik_polynomial(const double *c, int n, double x);

// The points within [lo, hi] where a polynomial of degree n <= 4 changes
// sign, ascending, written to roots (at most n); returns their number.
// Roots a tangency only touches are not sign changes and are not reported.
int ik_polynomial_roots(const double *c, int n, double lo, double hi, double *roots);
