// Continuity along Cartesian paths, on every model with a solver: straight
// lines (constant orientation, or the orientation turned at a constant rate
// about one axis, which is the slerp between the ends) sampled every 1 mm and
// every 0.5 degrees, each sample solved with the previous sample's answer as
// the reference. No joint may move by more than 2 degrees between
// neighbouring samples, except near a singular configuration. The test
// decides that itself: the smallest singular value of a Jacobian it
// differentiates from its own DH product. At every jump the test also
// continues the previous answer onto the new sample by its own Newton's
// method: a continuation within the limits and within 2 degrees is the
// neighbour the solver should have returned (a fault, singular or not); one
// that leaves the limits means the path ran into a limit (it ends there).
#include "tests/algo/algo_test_support.h"

#include "algo/ik.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace algo_test;

namespace {

constexpr double k_max_step = 2.0 * k_deg;     // rad between neighbouring samples
constexpr double k_sample_length = 1e-3;       // m
constexpr double k_sample_angle = 0.5 * k_deg; // rad
// A configuration counts as near a singularity for a sample when the
// smallest singular value of its Jacobian (metres and radians per radian)
// is so small that the sample's change of pose (metres and radians) could
// need a 2 degree step of some joint: sigma < |dx| / 2 degrees, with a
// factor for the change of sigma over the step. With 1 mm and 0.5 degree
// samples that is sigma below about 0.06 on straight moves and 0.5 where
// the orientation turns.
constexpr double k_singular_margin = 2.0;

// Paths per model: at least 1,000 in an optimised build; fewer in the
// unoptimised sanitizer builds unless KA_PATH_TEST_PATHS says otherwise.
int path_count() {
    if (const char *env = std::getenv("KA_PATH_TEST_PATHS"))
        if (const int n = std::atoi(env); n > 0) return n;
#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    return 1000;
#else
    return 60;
#endif
}

// Rotation about a unit axis (Rodrigues).
void axis_rotation(const double u[3], double angle, double R[3][3]) {
    const double c = std::cos(angle), s = std::sin(angle), v = 1.0 - c;
    R[0][0] = c + u[0] * u[0] * v;
    R[0][1] = u[0] * u[1] * v - u[2] * s;
    R[0][2] = u[0] * u[2] * v + u[1] * s;
    R[1][0] = u[1] * u[0] * v + u[2] * s;
    R[1][1] = c + u[1] * u[1] * v;
    R[1][2] = u[1] * u[2] * v - u[0] * s;
    R[2][0] = u[2] * u[0] * v - u[1] * s;
    R[2][1] = u[2] * u[1] * v + u[0] * s;
    R[2][2] = c + u[2] * u[2] * v;
}

// Damped Newton from q onto the target; the continuation of q.
bool continue_onto(const model_under_test &m, const ik_frame &target, const double q[7],
                   double out[7]) {
    std::copy(q, q + 7, out);
    for (int it = 0; it < 30; ++it) {
        const Eigen::Matrix<double, 6, 1> e = pose_error(dh_product(m.dh, m.dof, out), target);
        if (e.norm() < 1e-10) return true;
        const Eigen::MatrixXd J = jacobian(m, out);
        const Eigen::MatrixXd A = J * J.transpose() + 1e-8 * Eigen::MatrixXd::Identity(6, 6);
        const Eigen::VectorXd dq = J.transpose() * A.ldlt().solve(e);
        for (int i = 0; i < m.dof; ++i)
            out[i] += dq[i];
    }
    return pose_error(dh_product(m.dh, m.dof, out), target).norm() < 1e-8;
}

struct path_report {
    int paths = 0, samples = 0;
    int jumps = 0;          // outside singular neighbourhoods
    int singular_jumps = 0; // within them
    int limit_ends = 0, reach_ends = 0;
    double worst_step = 0.0; // rad, outside singular neighbourhoods
};

class PathContinuity : public ::testing::TestWithParam<int> {
  protected:
    model_under_test m = load_model(GetParam());
    random_source rng{5100u + GetParam()};

    int solve(const ik_frame &target, const double ref[7], double out[7]) const {
        constexpr ik_redundancy near_reference{0.013f, 1};
        if (m.type == 1)
            return ik_solve_arm_angle(m.dh, target, ref, m.limits, near_reference, out);
        if (m.type == 7)
            return ik_solve_offset_elbow(m.dh, target, ref, m.limits, near_reference, out);
        const bool parallel = m.type == 5 || m.type == 6 || m.type == 8;
        return parallel ? ik_solve_parallel_axes(m.dh, target, ref, m.limits, out)
                        : ik_solve_offset_wrist(m.dh, target, ref, m.limits, out);
    }

    // Joint value at which the elbow is stretched: the six-axis arms' elbow
    // in line with the forearm, the seven-axis arms' shoulder-wrist distance
    // longest.
    double stretched_elbow() const {
        if (m.dof == 6) {
            const bool parallel = m.type == 5 || m.type == 6 || m.type == 8;
            return (parallel ? 0.0 : std::atan2(m.dh.d[3], m.dh.a[3])) - m.dh.offset[2];
        }
        double best = 0.0, longest = 0.0;
        for (int k = 0; k < 3600; ++k) {
            double q[7] = {};
            q[3] = -k_pi + k * (2 * k_pi / 3600);
            const ik_frame S = dh_product(m.dh, 2, q), W = dh_product(m.dh, 5, q);
            const double d = std::hypot(W.p[0] - S.p[0], W.p[1] - S.p[1], W.p[2] - S.p[2]);
            if (d > longest) longest = d, best = q[3];
        }
        return best;
    }

    // A start within the inner 90 % of every joint's range; every tenth
    // path starts at a special configuration: the aligned shoulder (seven
    // axes), the wrist singularity, the stretched elbow.
    void start(int k, double q[7]) {
        for (int i = 0; i < 7; ++i) {
            const double lo = m.limits.lo[i], hi = m.limits.hi[i], margin = 0.05 * (hi - lo);
            q[i] = i < m.dof ? rng.uniform(lo + margin, hi - margin) : 0.0;
        }
        switch (k % 10) {
        case 0:
            if (m.dof == 7) q[1] = 0.0;
            break;
        case 1:
            q[m.dof == 7 ? 5 : 4] = 0.0;
            break;
        case 2:
            q[m.dof == 7 ? 3 : 2] = stretched_elbow();
            break;
        case 3:
            if (m.dof == 7) q[1] = rng.uniform(-k_deg, k_deg);
            break;
        default:
            break;
        }
    }

    // Follows one path; adds to the report and to the test's failures.
    void follow(int k, path_report *report) {
        double q[7];
        start(k, q);
        const ik_frame from = dh_product(m.dh, m.dof, q);
        // Direction, length (5-20 cm), and for every other path a turn of up to 60 degrees.
        double dir[3] = {rng.uniform(-1, 1), rng.uniform(-1, 1), rng.uniform(-1, 1)}, axis[3];
        const double dn = std::hypot(dir[0], dir[1], dir[2]);
        const double length = rng.uniform(0.05, 0.2);
        for (double &c : dir)
            c *= length / dn;
        for (double &c : axis)
            c = rng.uniform(-1, 1);
        const double an = std::hypot(axis[0], axis[1], axis[2]);
        for (double &c : axis)
            c /= an;
        const double turn = k % 2 ? rng.uniform(0.0, 60.0 * k_deg) : 0.0;
        const int n = std::max(static_cast<int>(std::ceil(length / k_sample_length)),
                               static_cast<int>(std::ceil(turn / k_sample_angle)));
        ++report->paths;
        double prev[7];
        std::copy(q, q + 7, prev);
        for (int s = 1; s <= n; ++s) {
            const double f = static_cast<double>(s) / n;
            ik_frame T = from;
            double Rt[3][3];
            axis_rotation(axis, f * turn, Rt);
            for (int r = 0; r < 3; ++r) {
                T.p[r] = from.p[r] + f * dir[r];
                for (int c = 0; c < 3; ++c) // turned about the tool's own axis
                    T.R[r][c] =
                        from.R[r][0] * Rt[0][c] + from.R[r][1] * Rt[1][c] + from.R[r][2] * Rt[2][c];
            }
            T = rounded(T);
            const double dx = pose_error(dh_product(m.dh, m.dof, prev), T).norm();
            double out[7] = {};
            if (solve(T, prev, out) != k_ik_ok) {
                // Out of reach, or no solution within the limits: the path ends.
                ++report->reach_ends;
                return;
            }
            ++report->samples;
            ASSERT_TRUE(frames_near(dh_product(m.dh, m.dof, out), T)) << "path " << k;
            ASSERT_TRUE(within_limits(m, out)) << "path " << k;
            const double step = max_abs_difference(out, prev, m.dof);
            if (step > k_max_step) {
                // A neighbour within 2 degrees that the solver passed over is
                // a fault wherever it is; a path that can only continue out
                // of the limits ends; a jump that every continuation makes
                // must be near a singularity.
                double cont[7];
                const bool continued = continue_onto(m, T, prev, cont);
                const bool in_limits = continued && within_limits(m, cont);
                // Nearer than the answer by more than the nearest-solution tests allow.
                const bool neighbour =
                    in_limits && max_abs_difference(cont, prev, m.dof) <= k_max_step &&
                    distance(cont, prev, m.dof) + 1e-3 < distance(out, prev, m.dof);
                if (continued && !in_limits) {
                    ++report->limit_ends;
                    return;
                }
                if (!neighbour &&
                    std::min(smallest_singular_value(m, prev), smallest_singular_value(m, out)) <
                        k_singular_margin * dx / k_max_step) {
                    ++report->singular_jumps;
                    std::copy(out, out + 7, prev);
                    continue;
                }
                ++report->jumps;
                if (report->jumps <= 3)
                    ADD_FAILURE() << m.name << " path " << k << " sample " << s << " of " << n
                                  << ": a joint moves " << step / k_deg << " deg from "
                                  << joints_text(prev, m.dof) << " to " << joints_text(out, m.dof)
                                  << (continued ? ", continuation " + joints_text(cont, m.dof)
                                                : std::string(", no continuation"));
            }
            if (step > report->worst_step) report->worst_step = step;
            std::copy(out, out + 7, prev);
        }
    }
};

TEST_P(PathContinuity, NoJointJumpsAwayFromSingularities) {
    path_report report;
    const int n = path_count();
    for (int k = 0; k < n; ++k) {
        follow(k, &report);
        if (HasFatalFailure()) return;
    }
    std::printf("%-8s paths %d, samples %d, jumps outside singular neighbourhoods %d, within %d, "
                "worst step outside %.3f deg; ended at a limit %d, out of reach %d\n",
                m.name, report.paths, report.samples, report.jumps, report.singular_jumps,
                report.worst_step / k_deg, report.limit_ends, report.reach_ends);
    EXPECT_EQ(report.jumps, 0);
    EXPECT_GE(report.samples, 20 * n) << "too many paths end early to say much";
}

INSTANTIATE_TEST_SUITE_P(Models, PathContinuity, ::testing::Values(0, 3, 4, 5, 6, 8, 1, 7),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return test_name(info.param);
                         });

} // namespace
