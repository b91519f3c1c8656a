// Six-axis closed-form solvers, by property, on every six-axis model:
// FK(IK(x)) = x, the nearest branch to the reference, solutions within the
// limits, and the wrist and shoulder singularities.
#include "tests/algo/ik_test_support.h"

#include <gtest/gtest.h>

#include <functional>

using namespace ik_test;

namespace {

using six_axis_solver = int (*)(const dh_table &, const ik_frame &, const double[6],
                                const ik_limits &, double[6]);

struct six_axis_case {
    int type;
    int sensor;
    six_axis_solver solve;
};

six_axis_solver solver_for(int type) {
    return (type == 5 || type == 6 || type == 8) ? ik_solve_parallel_axes : ik_solve_offset_wrist;
}

std::string case_name(const ::testing::TestParamInfo<six_axis_case> &info) {
    return test_name(load_model(info.param.type).name) + "_sensor" +
           std::to_string(info.param.sensor);
}

class six_axis : public ::testing::TestWithParam<six_axis_case> {
  protected:
    model_under_test model = load_model(GetParam().type, GetParam().sensor);

    int solve(const ik_frame &target, const double ref[7], double out[7]) const {
        return GetParam().solve(model.dh, target, ref, model.limits, out);
    }

    ::testing::AssertionResult reaches(const ik_frame &target, const double q[7]) const {
        const transform T = dh_product(model.dh, 6, q);
        const double dp = position_error(T, target), dr = orientation_error(T, target);
        if (dp < k_position_tol && dr < k_orientation_tol) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "position error " << dp << " m, orientation error "
                                             << dr << " rad at " << joints_text(q, 6);
    }
};

TEST_P(six_axis, reaches_every_target_from_a_near_reference_on_the_targets_own_branch) {
    sampler rng(1000u + GetParam().type * 10u + GetParam().sensor);
    const int n = sample_count();
    int own_branch = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(model, q);
        rng.near(model, q, 0.3, ref);
        const ik_frame target = float_target(dh_product(model.dh, 6, q));
        ASSERT_EQ(solve(target, ref, out), k_ik_ok) << "sample " << k << " q " << joints_text(q, 6);
        ASSERT_TRUE(reaches(target, out)) << "sample " << k;
        ASSERT_TRUE(within_limits(model, out)) << joints_text(out, 6);
        // Nearest: no farther from the reference than the target's own joints
        // (up to the rounding of the target near the elbow's stretch).
        ASSERT_LE(distance(out, ref, 6), distance(q, ref, 6) + 5e-3)
            << "sample " << k << " q " << joints_text(q, 6) << " ref " << joints_text(ref, 6)
            << " got " << joints_text(out, 6);
        if (max_abs_difference(out, q, 6) < 1e-3) ++own_branch;
    }
    // Another branch is nearer than the target's own only close to a
    // singularity, mostly the elbow's stretch, where the two elbow branches
    // lie within the reference's spread of each other.
    EXPECT_GE(own_branch, n - n / 20) << own_branch << " of " << n;
}

TEST_P(six_axis, reaches_every_target_from_a_far_reference_with_the_nearest_candidate) {
    sampler rng(2000u + GetParam().type * 10u + GetParam().sensor);
    const int n = sample_count();
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(model, q);
        rng.joints(model, ref);
        const ik_frame target = float_target(dh_product(model.dh, 6, q));
        ASSERT_EQ(solve(target, ref, out), k_ik_ok) << "sample " << k << " q " << joints_text(q, 6);
        ASSERT_TRUE(reaches(target, out)) << "sample " << k;
        ASSERT_TRUE(within_limits(model, out)) << joints_text(out, 6);
        ASSERT_LE(distance(out, ref, 6), distance(q, ref, 6) + 5e-3)
            << "sample " << k << " q " << joints_text(q, 6) << " ref " << joints_text(ref, 6)
            << " got " << joints_text(out, 6);
    }
}

TEST_P(six_axis, solves_at_and_near_the_wrist_singularity) {
    // Joint 5 at 0 aligns joints 4 and 6; only their sum (or difference) is
    // defined there, and slightly off it the split is poorly conditioned.
    sampler rng(3000u + GetParam().type * 10u + GetParam().sensor);
    const int n = std::max(200, sample_count() / 20);
    for (double wrist : {0.0, 1e-8, -1e-7, 1e-6, -1e-5, 1e-4, -1e-3}) {
        for (int k = 0; k < n; ++k) {
            double q[7], ref[7], out[7];
            rng.joints(model, q);
            q[4] = wrist;
            rng.near(model, q, 0.3, ref);
            const ik_frame target = float_target(dh_product(model.dh, 6, q));
            ASSERT_EQ(solve(target, ref, out), k_ik_ok)
                << "wrist " << wrist << " q " << joints_text(q, 6) << " ref "
                << joints_text(ref, 6);
            ASSERT_TRUE(reaches(target, out)) << "wrist " << wrist << " sample " << k;
            ASSERT_TRUE(within_limits(model, out)) << joints_text(out, 6);
        }
    }
}

// |sin| of the elbow's bend: 0 with the forearm in line with the upper arm.
double elbow_bend(const model_under_test &m, const double q[7]) {
    const bool parallel = m.type == 5 || m.type == 6 || m.type == 8;
    const double in_line = parallel ? 0.0 : std::atan2(m.dh.d[3], m.dh.a[3]);
    return std::fabs(std::sin(q[2] + m.dh.offset[2] - in_line));
}

TEST_P(six_axis, keeps_the_reference_joints_where_the_wrist_is_exactly_aligned) {
    sampler rng(4000u + GetParam().type * 10u + GetParam().sensor);
    for (int k = 0; k < 500; ++k) {
        double q[7], out[7];
        rng.joints(model, q);
        q[4] = 0.0;
        // With the elbow nearly in line, the target's float rounding alone
        // turns the exact solution's wrist measurably off alignment.
        if (elbow_bend(model, q) < 0.05) continue;
        const ik_frame target = float_target(dh_product(model.dh, 6, q));
        ASSERT_EQ(solve(target, q, out), k_ik_ok);
        ASSERT_TRUE(reaches(target, out));
        // Near a second singularity (shoulder) the target's rounding moves the
        // exact solution by up to about 1e-3 rad; a wrong split moves it by
        // far more.
        EXPECT_LT(max_abs_difference(out, q, 6), 5e-3)
            << joints_text(q, 6) << " got " << joints_text(out, 6);
    }
}

TEST_P(six_axis, reports_targets_out_of_reach) {
    double ref[7] = {}, out[7] = {1, 2, 3, 4, 5, 6, 7};
    const double before[7] = {1, 2, 3, 4, 5, 6, 7};
    ik_frame far{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {3.0, 0.5, 0.2}};
    EXPECT_EQ(solve(far, ref, out), k_ik_no_solution);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(out[i], before[i]) << "output written on failure";
}

TEST_P(six_axis, rejects_a_non_finite_target) {
    double ref[7] = {}, out[7];
    ik_frame bad{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {NAN, 0.1, 0.2}};
    EXPECT_EQ(solve(bad, ref, out), k_ik_bad_geometry);
}

TEST_P(six_axis, rejects_a_table_without_the_geometry_it_needs) {
    dh_table dh = model.dh;
    dh.alpha[2] = 0.3f;
    double q[7] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0}, out[7];
    const ik_frame target = float_target(dh_product(model.dh, 6, q));
    EXPECT_EQ(GetParam().solve(dh, target, q, model.limits, out), k_ik_bad_geometry);
}

TEST_P(six_axis, follows_a_changed_table_of_the_same_form) {
    // Lengths changed at run time, zero pattern kept: the solver reads the table.
    dh_table dh = model.dh;
    dh.d[0] *= 1.1f;
    dh.a[2] *= 0.9f;
    dh.d[3] += 0.02f;
    dh.d[5] += 0.05f;
    dh.d[1] = 0.03f; // a lateral shoulder offset, allowed by both forms
    sampler rng(5000u + GetParam().type);
    for (int k = 0; k < 2000; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(model, q);
        rng.near(model, q, 0.3, ref);
        const transform T = dh_product(dh, 6, q);
        const ik_frame target = float_target(T);
        ASSERT_EQ(GetParam().solve(dh, target, ref, model.limits, out), k_ik_ok)
            << joints_text(q, 6);
        const transform S = dh_product(dh, 6, out);
        ASSERT_LT(position_error(S, target), k_position_tol);
        ASSERT_LT(orientation_error(S, target), k_orientation_tol);
        ASSERT_LE(distance(out, ref, 6), distance(q, ref, 6) + 5e-3);
    }
}

INSTANTIATE_TEST_SUITE_P(
    models, six_axis,
    ::testing::Values(six_axis_case{0, 0, solver_for(0)}, six_axis_case{0, 2, solver_for(0)},
                      six_axis_case{3, 0, solver_for(3)}, six_axis_case{4, 0, solver_for(4)},
                      six_axis_case{5, 0, solver_for(5)}, six_axis_case{6, 0, solver_for(6)},
                      six_axis_case{8, 0, solver_for(8)}, six_axis_case{8, 1, solver_for(8)}),
    case_name);

TEST(six_axis_shoulder, keeps_the_reference_base_angle_with_the_wrist_over_the_base_axis) {
    // KIVO has no lateral offset: with the wrist centre on the base axis the
    // base angle is free and the reference's value is kept.
    const model_under_test m = load_model(0);
    const double a2 = m.dh.a[2], d3 = m.dh.d[3];
    for (double t2 : {0.4, 1.0, -0.7}) {
        // Frame-1 coordinates of the wrist centre (u, v); it lies on the base
        // axis when u cos t1 = v sin t1.
        const double th2 = t2 + m.dh.offset[2];
        const double u = a2 + d3 * std::sin(th2), v = -d3 * std::cos(th2);
        const double th1 = std::atan2(u, v);
        double q[7] = {0.8, th1 - m.dh.offset[1], t2, 0.5, 0.9, -1.2, 0};
        if (!within_limits(m, q)) q[1] = th1 + k_pi - m.dh.offset[1];
        ASSERT_TRUE(within_limits(m, q)) << joints_text(q, 6);
        const ik_frame target = float_target(dh_product(m.dh, 6, q));
        double out[7];
        ASSERT_EQ(ik_solve_offset_wrist(m.dh, target, q, m.limits, out), k_ik_ok);
        const transform S = dh_product(m.dh, 6, out);
        EXPECT_LT(position_error(S, target), k_position_tol);
        EXPECT_LT(orientation_error(S, target), k_orientation_tol);
        EXPECT_LT(max_abs_difference(out, q, 6), 1e-4) << joints_text(out, 6);
    }
}

} // namespace
