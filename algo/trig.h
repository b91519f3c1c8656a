// Single-precision arc tangent and sine/cosine for the pose and transform
// paths that run once per call of the exported kinematics.
//
// Both are evaluated in double and rounded once to float, so they are within
// an ulp of the exact value (nearly always the correctly rounded float, which
// the maths library's single-precision functions are not always). They have
// no data-dependent branches: a random pose falls in a random octant, and
// mispredicted octant branches cost more than the arithmetic. Both zeros,
// infinities, NaN and angles too large for the two-part reduction take the
// maths library's path.
#pragma once

#include "algo/compiler.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace trig {

inline constexpr double k_pi = 3.14159265358979323846;
inline constexpr double k_half_pi = 1.57079632679489661923;
inline constexpr double k_quarter_pi = 0.78539816339744830962;

// 1.0 or 0.0 for a condition, as a number the compiler cannot branch on.
// Choices between computed values are made by exact multiplications with 0
// and 1 (x * 0 + y and x * 1 + y are exact), not by conditional expressions:
// the compiler turns those into branches, which a random pose mispredicts.
inline double flag(bool condition) {
    int f = condition;
    KA_OPAQUE(f);
    return static_cast<double>(f);
}

// atan(n / d) for 0 <= n <= d, d > 0: above n/d = 0.66 through
// atan(t) = pi/4 + atan((t-1)/(t+1)); then a rational approximation
// (Cephes' atan) good to about 1e-16. The call sits at the end of a forward-
// kinematics chain, where latency is what counts: both quotients are taken
// side by side while the condition is worked out, and both polynomials go
// by powers z, z^2, z^4 in parallel pairs rather than one long chain.
inline double octant_arc_tangent(double n, double d) {
    const double upper = flag(n > 0.66 * d);
    const double u = (n / d) * (1.0 - upper) + ((n - d) / (n + d)) * upper;
    const double z = u * u, z2 = z * z, z4 = z2 * z2;
    const double p = (-6.485021904942025371773e1 - 1.228866684490136173410e2 * z) +
                     z2 * (-7.500855792314704667340e1 - 1.615753718733365076637e1 * z) +
                     z4 * -8.750608600031904122785e-1;
    const double q = (1.945506571482613964425e2 + 4.853903996359136964868e2 * z) +
                     z2 * (4.328810604912902668951e2 + 1.650270098316988542046e2 * z) +
                     z4 * (2.485846490142306297962e1 + z);
    const double r = u + (u * z) * p / q;
    return r + k_quarter_pi * upper;
}

// atan2(y, x) in [-pi, pi] from octant(n, d) = atan(n / d) for
// 0 <= n <= d: the octant's angle r becomes pi/2 - r when steep, then pi -
// that when x < 0: offset + sign * r, both known before r is. (x = -0 only
// comes here with y != 0, where the angle is pi/2 either way.)
template <typename Octant> inline double quadrant_arc_tangent(double y, double x, Octant octant) {
    const double ax = std::fabs(x), ay = std::fabs(y);
    const double steep = flag(ay > ax), behind = flag(x < 0.0);
    const double sign = (1.0 - 2.0 * steep) * (1.0 - 2.0 * behind);
    const double offset = k_pi * behind + k_half_pi * steep * (1.0 - 2.0 * behind);
    return std::copysign(offset + sign * octant(std::min(ax, ay), std::max(ax, ay)), y);
}

// atan2(y, x) in [-pi, pi], the same quadrant rules as std::atan2.
inline double arc_tangent2(double y, double x) {
    if (!std::isfinite(x) || !std::isfinite(y) || (x == 0.0 && y == 0.0)) return std::atan2(y, x);
    return quadrant_arc_tangent(y, x, octant_arc_tangent);
}

// atan2(y, x) in [-pi, pi] for finite arguments, within 3e-11 rad of the
// exact value: one quotient and a polynomial of degree 23 in the octant's
// tangent (minimax on [0, 1]), no branches. For searches that evaluate
// many candidate angles, where that error is far below the float rounding
// of a target (1e-7) and the cost of std::atan2 is not. atan2(0, 0) is 0;
// non-finite arguments give NaN.
inline double search_arc_tangent2(double y, double x) {
    return quadrant_arc_tangent(y, x, [](double n, double d) {
        const double t = n / (d > 0.0 ? d : 1.0);
        const double z = t * t, z2 = z * z, z4 = z2 * z2, z8 = z4 * z4;
        // Pairs by z, then z^2, z^4 and z^8 (Estrin): a short chain.
        const double p01 = 0.9999999994302148 - 0.33333327040664584 * z;
        const double p23 = 0.1999979353844898 - 0.14282551371637686 * z;
        const double p45 = 0.11083670973422056 - 0.08941117902108037 * z;
        const double p67 = 0.07143073191648096 - 0.052514531558692554 * z;
        const double p89 = 0.03223253728283387 - 0.01472119486455195 * z;
        const double pab = 0.004293637553828729 - 0.0005876983593926036 * z;
        const double p0_3 = p01 + z2 * p23, p4_7 = p45 + z2 * p67, p8_b = p89 + z2 * pab;
        return t * ((p0_3 + z4 * p4_7) + z8 * p8_b);
    });
}

inline float arc_tangent2(float y, float x) {
    return static_cast<float>(arc_tangent2(static_cast<double>(y), static_cast<double>(x)));
}

inline constexpr double k_two_over_pi = 0.63661977236758134308;
// pi/2 in two parts, the first with 33 significant bits, so that j times it
// is exact for every |j| < 2^20.
inline constexpr double k_half_pi_hi = 1.5707963267341256;
inline constexpr double k_half_pi_lo = 6.077100506506192e-11;

// Beyond this magnitude the two-part reduction by pi/2 loses digits.
inline constexpr float k_reduction_limit = 1.0e5f;

// sin and cos of n angles. The quadrant comes from the nearest multiple of
// pi/2; the remainder (|r| <= pi/4) goes through two short polynomials.
template <std::size_t N>
inline void sines_cosines(const float (&angle)[N], float (&s)[N], float (&c)[N]) {
    bool tame = true;
    for (std::size_t i = 0; i < N; ++i)
        tame = tame && std::fabs(angle[i]) <= k_reduction_limit;
    if (!tame) {
        for (std::size_t i = 0; i < N; ++i) {
            s[i] = std::sin(angle[i]);
            c[i] = std::cos(angle[i]);
        }
        return;
    }
    for (std::size_t i = 0; i < N; ++i) {
        const double x = angle[i];
        const int j = static_cast<int>(x * k_two_over_pi + std::copysign(0.5, x));
        const double r = (x - j * k_half_pi_hi) - j * k_half_pi_lo;
        const double z = r * r, z2 = z * z;
        // Taylor series to r^9 and r^10: within 2e-9 of sin and 2e-10 of cos
        // on |r| <= pi/4, well inside half an ulp of the float result. The
        // terms go in pairs by z and z^2 (a shorter chain than one by one).
        const double sr =
            r + (r * z) * ((-1.0 / 6 + z * (1.0 / 120)) + z2 * (-1.0 / 5040 + z * (1.0 / 362880)));
        const double cr = (1.0 - 0.5 * z) + z2 * ((1.0 / 24 - z * (1.0 / 720)) +
                                                  z2 * (1.0 / 40320 - z * (1.0 / 3628800)));
        // Quadrant j mod 4: (s, c) = (sr, cr), (cr, -sr), (-sr, -cr), (-cr, sr).
        // The choice is made by exact multiplications with 0, 1 and -1, which
        // keeps the loop free of branches and open to vectorisation.
        const double odd = j & 1, even = 1 - odd;
        s[i] = static_cast<float>((sr * even + cr * odd) * (1 - (j & 2)));
        c[i] = static_cast<float>((cr * even + sr * odd) * (1 - ((j + 1) & 2)));
    }
}

// sin and cos of x within about 1e-16 (for |x| up to k_reduction_limit;
// beyond it the maths library's): the remainder by pi/2 through Taylor
// series to r^15 and r^16, for the searches that evaluate many candidate
// angles.
inline void search_sine_cosine(double x, double *s, double *c) {
    if (!(std::fabs(x) <= k_reduction_limit)) {
        *s = std::sin(x);
        *c = std::cos(x);
        return;
    }
    const int j = static_cast<int>(x * k_two_over_pi + std::copysign(0.5, x));
    const double r = (x - j * k_half_pi_hi) - j * k_half_pi_lo;
    const double z = r * r, z2 = z * z, z4 = z2 * z2;
    const double sr =
        r +
        (r * z) * (((-1.0 / 6 + z * (1.0 / 120)) + z2 * (-1.0 / 5040 + z * (1.0 / 362880))) +
                   z4 * ((-1.0 / 39916800 + z * (1.0 / 6227020800)) + z2 * (-1.0 / 1307674368000)));
    const double cr =
        (1.0 - 0.5 * z) +
        z2 * (((1.0 / 24 - z * (1.0 / 720)) + z2 * (1.0 / 40320 - z * (1.0 / 3628800))) +
              z4 * ((1.0 / 479001600 - z * (1.0 / 87178291200)) + z2 * (1.0 / 20922789888000)));
    // Quadrant j mod 4: (s, c) = (sr, cr), (cr, -sr), (-sr, -cr), (-cr, sr).
    const double odd = j & 1, even = 1 - odd;
    *s = (sr * even + cr * odd) * (1 - (j & 2));
    *c = (cr * even + sr * odd) * (1 - ((j + 1) & 2));
}

} // namespace trig
