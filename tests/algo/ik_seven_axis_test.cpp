// Seven-axis solvers, by property: FK(IK(x)) = x, solutions within the
// limits, the solution nearest to the reference under both search
// strategies, the traversal window, and the singular configurations.
#include "tests/algo/ik_test_support.h"

#include <gtest/gtest.h>

using namespace ik_test;

namespace {

using seven_axis_solver = int (*)(const dh_table &, const ik_frame &, const double[7],
                                  const ik_limits &, ik_redundancy, double[7]);

constexpr ik_redundancy k_near{0.013f, 1};
constexpr ik_redundancy k_traverse{3.14f, 0};

struct seven_axis_case {
    int type;
    int sensor;
    seven_axis_solver solve;
    // Share of near references for which the local search ends at least as
    // near as the target's own joints. Where the redundancy parameter's path
    // passes close to an aligned shoulder or (QUIL) a vanishing elbow offset
    // the distance changes abruptly along it, and a local search can stop
    // short of the target's own basin.
    double near_share;
    // The same for the traversal of the whole range.
    double traverse_share;
};

std::string case_name(const ::testing::TestParamInfo<seven_axis_case> &info) {
    return test_name(load_model(info.param.type).name) + "_sensor" +
           std::to_string(info.param.sensor);
}

struct outcome {
    int solved = 0;
    int nearest = 0; // at least as near to the reference as the target's own joints
    double distance_sum = 0.0;
};

class seven_axis : public ::testing::TestWithParam<seven_axis_case> {
  protected:
    model_under_test model = load_model(GetParam().type, GetParam().sensor);

    int solve(const ik_frame &target, const double ref[7], ik_redundancy r, double out[7]) const {
        return GetParam().solve(model.dh, target, ref, model.limits, r, out);
    }

    ::testing::AssertionResult reaches(const ik_frame &target, const double q[7]) const {
        const transform T = dh_product(model.dh, 7, q);
        const double dp = position_error(T, target), dr = orientation_error(T, target);
        if (dp < k_position_tol && dr < k_orientation_tol && within_limits(model, q))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << "position error " << dp << " m, orientation error " << dr
               << " rad, within limits " << within_limits(model, q) << " at " << joints_text(q, 7);
    }

    // Solves n sampled targets; every solution must reach its target within
    // the limits.
    outcome run(unsigned seed, int n, bool near_reference, ik_redundancy r) {
        sampler rng(seed);
        outcome o;
        for (int k = 0; k < n; ++k) {
            double q[7], ref[7], out[7];
            rng.joints(model, q);
            if (near_reference)
                rng.near(model, q, 0.3, ref);
            else
                rng.joints(model, ref);
            const ik_frame target = float_target(dh_product(model.dh, 7, q));
            if (solve(target, ref, r, out) != k_ik_ok) continue;
            ++o.solved;
            EXPECT_TRUE(reaches(target, out)) << "sample " << k << " q " << joints_text(q, 7);
            if (distance(out, ref, 7) <= distance(q, ref, 7) + 1e-3) ++o.nearest;
            o.distance_sum += distance(out, ref, 7);
        }
        return o;
    }
};

TEST_P(seven_axis, reaches_targets_from_a_near_reference_nearest_to_it) {
    const int n = sample_count();
    const outcome o = run(100u + GetParam().type, n, true, k_near);
    EXPECT_GE(o.solved, n - n / 1000) << o.solved << " of " << n;
    EXPECT_GE(o.nearest, GetParam().near_share * n) << o.nearest << " of " << n;
}

TEST_P(seven_axis, reaches_targets_from_a_far_reference) {
    const int n = sample_count();
    const outcome o = run(200u + GetParam().type, n, false, k_near);
    EXPECT_GE(o.solved, n - n / 1000) << o.solved << " of " << n;
}

TEST_P(seven_axis, traversing_the_whole_range_finds_solutions_at_least_as_near) {
    const int n = std::max(1000, sample_count() / 4);
    const outcome local = run(300u + GetParam().type, n, true, k_near);
    const outcome whole = run(300u + GetParam().type, n, true, k_traverse);
    EXPECT_GE(whole.solved, n - n / 1000) << whole.solved << " of " << n;
    EXPECT_GE(whole.nearest, GetParam().traverse_share * n) << whole.nearest << " of " << n;
    EXPECT_LE(whole.distance_sum, local.distance_sum + 1e-6 * n);
    const outcome far = run(400u + GetParam().type, n, false, k_traverse);
    EXPECT_GE(far.solved, n - n / 1000) << far.solved << " of " << n;
}

TEST_P(seven_axis, returns_the_reference_when_it_reaches_the_target) {
    // The nearest solution to a reference that is itself a solution is the
    // reference, under either strategy and however small the window.
    sampler rng(500u + GetParam().type);
    const int n = std::max(1000, sample_count() / 4);
    int same = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], out[7];
        rng.joints(model, q);
        const ik_frame target = float_target(dh_product(model.dh, 7, q));
        for (ik_redundancy r : {k_near, k_traverse, ik_redundancy{0.013f, 0}}) {
            ASSERT_EQ(solve(target, q, r, out), k_ik_ok) << joints_text(q, 7);
            EXPECT_TRUE(reaches(target, out));
            if (max_abs_difference(out, q, 7) < 1e-3) ++same;
        }
    }
    EXPECT_GE(same, 3 * n - 3 * n / 500) << same << " of " << 3 * n;
}

TEST_P(seven_axis, solves_singular_configurations) {
    // Joints whose zero aligns two axes: shoulder (2), elbow stretched (4),
    // wrist (6); each exactly and slightly off.
    sampler rng(600u + GetParam().type);
    for (int joint : {1, 3, 5}) {
        for (double value : {0.0, 1e-7, -1e-5, 1e-3}) {
            for (int k = 0; k < 200; ++k) {
                double q[7], ref[7], out[7];
                rng.joints(model, q);
                q[joint] = value;
                rng.near(model, q, 0.3, ref);
                const ik_frame target = float_target(dh_product(model.dh, 7, q));
                ASSERT_EQ(solve(target, ref, k_near, out), k_ik_ok)
                    << "joint " << joint + 1 << " at " << value << " q " << joints_text(q, 7);
                ASSERT_TRUE(reaches(target, out)) << "joint " << joint + 1 << " at " << value;
            }
        }
    }
}

TEST_P(seven_axis, reports_targets_out_of_reach) {
    double ref[7] = {}, out[7] = {1, 2, 3, 4, 5, 6, 7};
    const double before[7] = {1, 2, 3, 4, 5, 6, 7};
    ik_frame far{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {2.5, 0.5, 0.2}};
    for (ik_redundancy r : {k_near, k_traverse}) {
        EXPECT_EQ(solve(far, ref, r, out), k_ik_no_solution);
        for (int i = 0; i < 7; ++i)
            EXPECT_EQ(out[i], before[i]) << "output written on failure";
    }
}

TEST_P(seven_axis, rejects_a_table_without_the_geometry_it_needs) {
    dh_table dh = model.dh;
    dh.alpha[3] = 0.0f;
    double q[7] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7}, out[7];
    const ik_frame target = float_target(dh_product(model.dh, 7, q));
    EXPECT_EQ(GetParam().solve(dh, target, q, model.limits, k_near, out), k_ik_bad_geometry);
    ik_frame bad = target;
    bad.R[1][1] = NAN;
    EXPECT_EQ(solve(bad, q, k_near, out), k_ik_bad_geometry);
}

TEST_P(seven_axis, follows_a_changed_table_of_the_same_form) {
    dh_table dh = model.dh;
    dh.d[0] += 0.03f;
    dh.d[2] *= 1.1f;
    dh.d[4] *= 0.9f;
    dh.d[6] += 0.04f;
    sampler rng(700u + GetParam().type);
    int solved = 0;
    const int n = 2000;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(model, q);
        rng.near(model, q, 0.3, ref);
        const ik_frame target = float_target(dh_product(dh, 7, q));
        if (GetParam().solve(dh, target, ref, model.limits, k_near, out) != k_ik_ok) continue;
        ++solved;
        const transform S = dh_product(dh, 7, out);
        ASSERT_LT(position_error(S, target), k_position_tol);
        ASSERT_LT(orientation_error(S, target), k_orientation_tol);
    }
    EXPECT_GE(solved, n - n / 500);
}

INSTANTIATE_TEST_SUITE_P(models, seven_axis,
                         ::testing::Values(seven_axis_case{1, 0, ik_solve_arm_angle, 0.96, 0.99},
                                           seven_axis_case{1, 2, ik_solve_arm_angle, 0.96, 0.99},
                                           seven_axis_case{7, 0, ik_solve_offset_elbow, 0.90,
                                                           0.95}),
                         case_name);

TEST(seven_axis_window, keeps_the_last_joint_of_quil_within_the_traversed_window) {
    // QUIL's redundancy parameter is its last joint: a traversal of
    // ref +- range that holds a solution returns one from it.
    const model_under_test m = load_model(7);
    sampler rng(800u);
    const double range = 0.2;
    for (int k = 0; k < 2000; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(m, q);
        rng.near(m, q, 0.3, ref);
        ref[6] = std::clamp(q[6] + rng.uniform(-0.1, 0.1), m.limits.lo[6], m.limits.hi[6]);
        const ik_frame target = float_target(dh_product(m.dh, 7, q));
        ASSERT_EQ(
            ik_solve_offset_elbow(m.dh, target, ref, m.limits, ik_redundancy{float(range), 0}, out),
            k_ik_ok);
        EXPECT_LE(std::fabs(out[6] - ref[6]), range + 1e-6) << joints_text(q, 7);
    }
}

} // namespace
