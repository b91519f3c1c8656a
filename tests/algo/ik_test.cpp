// Inverse kinematics by property, on every model with a solver: FK(IK(x)) = x
// in double, the solution nearest to the reference, solutions within the
// limits, singular targets; then the exported layer's checks.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/ik.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>
#include <vector>

using namespace algo_test;

namespace {

constexpr ik_redundancy k_near{0.013f, 1};
constexpr ik_redundancy k_traverse{3.14f, 0};

struct solver_case {
    int type;
    int sensor;
    // Seven-axis: share of near references for which the answer is at least
    // as near as the target's own joints (which do solve the rounded
    // target). The rest are solutions the search does not reach: an
    // in-limit stretch of a group's path narrower than the steps that look
    // for it, or a second dip of the distance beside the one descended into.
    double nearest_share;
};

void PrintTo(const solver_case &c, std::ostream *os) {
    *os << test_name(c.type) << " sensor " << c.sensor;
}

class Solver : public ::testing::TestWithParam<solver_case> {
  protected:
    model_under_test m = load_model(GetParam().type, GetParam().sensor);
    random_source rng{1000u + 10u * GetParam().type + GetParam().sensor};

    int solve_frame(const ik_frame &target, const double ref[7], double out[7], ik_redundancy r,
                    const dh_table *table = nullptr) const {
        const dh_table &dh = table ? *table : m.dh;
        if (m.type == 1) return ik_solve_arm_angle(dh, target, ref, m.limits, r, out);
        if (m.type == 7) return ik_solve_offset_elbow(dh, target, ref, m.limits, r, out);
        const bool parallel = m.type == 5 || m.type == 6 || m.type == 8;
        return parallel ? ik_solve_parallel_axes(dh, target, ref, m.limits, out)
                        : ik_solve_offset_wrist(dh, target, ref, m.limits, out);
    }

    // The solver's code; a solution must reach the target of q within the limits.
    int solve(const double q[7], const double ref[7], double out[7], ik_redundancy r = k_near) {
        const ik_frame target = rounded(dh_product(m.dh, m.dof, q));
        const int rc = solve_frame(target, ref, out, r);
        if (rc == k_ik_ok) {
            EXPECT_TRUE(within_limits(m, out)) << joints_text(out, m.dof);
            EXPECT_TRUE(frames_near(dh_product(m.dh, m.dof, out), target))
                << "q " << joints_text(q, m.dof) << " ref " << joints_text(ref, m.dof) << " got "
                << joints_text(out, m.dof);
        }
        return rc;
    }
};

TEST_P(Solver, ReachesTargetsFromANearReferenceOnItsBranch) {
    const int n = sample_count();
    int nearest = 0, nearest_traversed = 0, own_branch = 0, reference_kept = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(m, q);
        rng.near(m, q, 0.3, ref);
        ASSERT_EQ(solve(q, ref, out), k_ik_ok) << "sample " << k << " q " << joints_text(q, m.dof);
        ASSERT_FALSE(HasFailure()) << "sample " << k;
        if (max_abs_difference(out, q, m.dof) < 1e-3) ++own_branch;
        if (distance(out, ref, m.dof) <= distance(q, ref, m.dof) + 1e-3) ++nearest;
        // Six-axis: never farther than the target's own joints (up to the
        // rounding of the target near the elbow's stretch).
        if (m.dof == 6) ASSERT_LE(distance(out, ref, 6), distance(q, ref, 6) + 5e-3) << k;
        if (m.dof != 7) continue;
        // Traversing the whole range finds the nearest solution.
        if (solve(q, ref, out, k_traverse) == k_ik_ok &&
            distance(out, ref, 7) <= distance(q, ref, 7) + 1e-3)
            ++nearest_traversed;
        // A reference that itself reaches the target is the nearest solution.
        if (solve(q, q, out) == k_ik_ok && max_abs_difference(out, q, 7) < 1e-3) ++reference_kept;
    }
    if (m.dof == 6) {
        // Another branch is nearer than the target's own only close to a
        // singularity (mostly the elbow's stretch) within the reference's spread.
        EXPECT_GE(own_branch, n - n / 20) << own_branch << " of " << n;
    } else {
        EXPECT_GE(nearest, GetParam().nearest_share * n) << nearest << " of " << n;
        EXPECT_GE(nearest_traversed, n - n / 500) << nearest_traversed << " of " << n;
        EXPECT_GE(reference_kept, n - n / 500) << reference_kept << " of " << n;
    }
}

TEST_P(Solver, ReachesTargetsFromAFarReference) {
    const int n = sample_count();
    int solved = 0, traversed = 0, traversed_nearest = 0;
    double near_sum = 0, traverse_sum = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(m, q);
        rng.joints(m, ref);
        const int rc = solve(q, ref, out);
        ASSERT_FALSE(HasFailure()) << "sample " << k;
        if (m.dof == 6) {
            ASSERT_EQ(rc, k_ik_ok) << "sample " << k << " q " << joints_text(q, 6);
            ASSERT_LE(distance(out, ref, 6), distance(q, ref, 6) + 5e-3) << k;
            continue;
        }
        if (rc != k_ik_ok) continue;
        ++solved;
        near_sum += distance(out, ref, 7);
        // Traversing the whole range of the redundancy parameter finds one at least as near.
        if (solve(q, ref, out, k_traverse) != k_ik_ok) continue;
        ++traversed;
        traverse_sum += distance(out, ref, 7);
        traversed_nearest += distance(out, ref, 7) <= distance(q, ref, 7) + 1e-3;
    }
    if (m.dof == 7) {
        EXPECT_GE(solved, n - n / 1000) << solved << " of " << n;
        EXPECT_GE(traversed, n - n / 1000) << traversed << " of " << n;
        EXPECT_LE(traverse_sum, near_sum + 1e-6 * n);
        // From far away the nearest solution may need the joints fitted into
        // their limits a turn from the reference's reading.
        EXPECT_GE(traversed_nearest, n - n / 200) << traversed_nearest << " of " << n;
    }
}

TEST_P(Solver, SolvesAtAndNearSingularJoints) {
    // Joints whose zero aligns two axes: the wrist (joint 5 of six); the
    // shoulder, the stretched elbow and the wrist (joints 2, 4, 6 of seven).
    const std::vector<int> joints = m.dof == 6 ? std::vector<int>{4} : std::vector<int>{1, 3, 5};
    for (int joint : joints) {
        for (double value : {0.0, 1e-8, -1e-7, 1e-6, -1e-5, 1e-4, -1e-3}) {
            for (int k = 0; k < 200; ++k) {
                double q[7], ref[7], out[7];
                rng.joints(m, q);
                q[joint] = value;
                rng.near(m, q, 0.3, ref);
                ASSERT_EQ(solve(q, ref, out), k_ik_ok)
                    << "joint " << joint + 1 << " at " << value << " q " << joints_text(q, m.dof);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
    if (m.dof == 7) return;
    // Exactly aligned, with the reference on the target: only the sum of
    // joints 4 and 6 is defined and the reference's split is kept.
    for (int k = 0; k < 500; ++k) {
        double q[7], out[7];
        rng.joints(m, q);
        q[4] = 0.0;
        // With the elbow nearly in line the target's rounding alone turns the
        // exact solution's wrist measurably off alignment.
        const bool parallel = m.type == 5 || m.type == 6 || m.type == 8;
        const double in_line = parallel ? 0.0 : std::atan2(m.dh.d[3], m.dh.a[3]);
        if (std::fabs(std::sin(q[2] + m.dh.offset[2] - in_line)) < 0.05) continue;
        ASSERT_EQ(solve(q, q, out), k_ik_ok);
        EXPECT_LT(max_abs_difference(out, q, 6), 5e-3) << joints_text(q, 6);
    }
}

// ------------------------------------------------------ exported layer

void load(int model, int sensor, const arm_frames &f) {
    ASSERT_EQ(ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(model),
                                    static_cast<ka_force_type_e>(sensor)),
              0);
    ka_algo_set_toolframe(&f.tool);
    ka_algo_set_workframe(&f.work);
    ka_algo_set_angle(f.install_deg[0], f.install_deg[1], f.install_deg[2]);
}

ka_inverse_kinematics_params_t request(ka_quat_t quat, uint8_t flag,
                                       ka_position_t at = {0.3f, 0.1f, 0.2f}) {
    ka_inverse_kinematics_params_t p{};
    p.q_pose.position = at;
    p.q_pose.quaternion = quat;
    p.q_flag = flag;
    return p;
}

TEST_P(Solver, ExportedLayerReachesPosesThroughToolWorkAndInstallFrames) {
    const arm_frames f = sample_frames(m.type + 1);
    load(m.type, GetParam().sensor, f);
    const int n = std::max(500, sample_count() / 10);
    int solved = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], qd[7];
        rng.joints(m, q);
        ka_inverse_kinematics_params_t p{};
        for (int i = 0; i < m.dof; ++i)
            p.q_in[i] = static_cast<float>(0.98 * q[i] / k_deg); // within limits around 0
        p.q_pose = pose_of(f.tool_in_work(m, q));
        p.q_flag = 1;
        float out[7];
        const int rc = ka_algo_inverse_kinematics(nullptr, p, out);
        ASSERT_TRUE(rc == 0 || rc == 1) << rc;
        if (rc != 0) continue;
        ++solved;
        for (int i = 0; i < 7; ++i)
            qd[i] = out[i] * k_deg;
        ASSERT_TRUE(frames_near(f.tool_in_work(m, qd), frame_of(p.q_pose))) << "sample " << k;
        ASSERT_EQ(ka_algo_judgment_overpos(out), 0) << "solution outside the limits";
    }
    // Six-axis: every reachable target; seven-axis: at least 99.9 % of them.
    EXPECT_GE(solved, m.dof == 6 ? n : n - n / 1000 - 1) << solved << " of " << n;
}

TEST_P(Solver, FollowsAChangedTableAndRefusesMalformedGeometry) {
    // Lengths changed at run time with the zero pattern kept: the solver
    // reads the table it is given, not the model's defaults.
    dh_table changed = m.dh;
    if (m.dof == 6) {
        changed.d[0] *= 1.1f;
        changed.a[2] *= 0.9f;
        changed.d[3] += 0.02f;
        changed.d[5] += 0.05f;
        changed.d[1] = 0.03f; // a lateral shoulder offset, allowed by both six-axis forms
    } else {
        changed.d[0] += 0.03f;
        changed.d[2] *= 1.1f;
        changed.d[4] *= 0.9f;
        changed.d[6] += 0.04f;
    }
    const int n = 1000;
    int solved = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(m, q);
        rng.near(m, q, 0.3, ref);
        const ik_frame target = rounded(dh_product(changed, m.dof, q));
        if (solve_frame(target, ref, out, k_near, &changed) != k_ik_ok) continue;
        ++solved;
        ASSERT_TRUE(frames_near(dh_product(changed, m.dof, out), target)) << joints_text(q, m.dof);
    }
    EXPECT_GE(solved, m.dof == 6 ? n : n - n / 500) << solved << " of " << n;

    // A twist where the solver's form needs parallel or perpendicular axes,
    // and a target that is not a number: refused, output untouched.
    dh_table twisted = m.dh;
    twisted.alpha[m.dof == 6 ? 2 : 3] = m.dof == 6 ? 0.3f : 0.0f;
    const double q[7] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7};
    const ik_frame target = rounded(dh_product(m.dh, m.dof, q));
    double out[7] = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(solve_frame(target, q, out, k_near, &twisted), k_ik_bad_geometry);
    ik_frame not_a_number = target;
    not_a_number.R[1][1] = NAN;
    EXPECT_EQ(solve_frame(not_a_number, q, out, k_near), k_ik_bad_geometry);
    EXPECT_EQ(out[0], 9.0);
}

TEST(SevenAxisWindow, QuilKeepsItsLastJointWithinTheTraversedWindow) {
    // QUIL's redundancy parameter is its last joint: traversing ref +- range
    // around a reference whose window holds the target's own last joint
    // returns a solution from that window.
    const model_under_test m = load_model(7);
    random_source rng(800u);
    const double range = 0.2;
    for (int k = 0; k < 1000; ++k) {
        double q[7], ref[7], out[7];
        rng.joints(m, q);
        rng.near(m, q, 0.3, ref);
        ref[6] = std::clamp(q[6] + rng.uniform(-0.1, 0.1), double(m.limits.lo[6]),
                            double(m.limits.hi[6]));
        const ik_frame target = rounded(dh_product(m.dh, 7, q));
        ASSERT_EQ(
            ik_solve_offset_elbow(m.dh, target, ref, m.limits, ik_redundancy{float(range), 0}, out),
            k_ik_ok)
            << joints_text(q, 7);
        EXPECT_LE(std::fabs(out[6] - ref[6]), range + 1e-6) << joints_text(q, 7);
    }
}

TEST(SevenAxisSearch, PolynomialSignChangesAreFoundInOrderEvenWhenClose) {
    // QUIL's search finds where a group has solutions from the sign changes
    // of a quartic; two of them close together bound a narrow interval the
    // search must not lose.
    auto from_roots = [](const double(&r)[4], double scale, double c[5]) {
        c[0] = scale, c[1] = c[2] = c[3] = c[4] = 0.0; // scale * prod (x - r_i)
        for (double root : r)
            for (int i = 4; i >= 0; --i)
                c[i] = (i > 0 ? c[i - 1] : 0.0) - root * c[i];
    };
    random_source rng(77u);
    for (int k = 0; k < 2000; ++k) {
        // Roots at least 0.05 apart (for the conditioning), except a pair
        // 1e-4 apart in every other case: a narrow interval.
        double r[4];
        for (int i = 0; i < 4;) {
            r[i] = rng.uniform(-1.0, 1.0);
            bool apart = true;
            for (int j = 0; j < i; ++j)
                apart = apart && std::fabs(r[i] - r[j]) >= 0.05;
            i += apart;
        }
        if (k % 2) r[1] = r[0] + 1e-4;
        std::sort(r, r + 4);
        double c[5], found[4];
        from_roots(r, rng.uniform(0.1, 10.0) * (k % 3 ? 1 : -1), c);
        ASSERT_EQ(ik_polynomial_roots(c, 4, -1.0, 1.0, found), 4) << k;
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(found[i], r[i], 1e-9) << k << " root " << i;
    }
    // Only the sign changes within the range: a double root touches, the
    // others lie outside or at an end.
    double c[5];
    from_roots({0.25, 0.25, 2.0, -1.5}, 1.0, c);
    double found[4];
    EXPECT_EQ(ik_polynomial_roots(c, 4, -1.0, 1.0, found), 0);
    from_roots({0.25, 0.5, 2.0, -1.5}, 1.0, c);
    ASSERT_EQ(ik_polynomial_roots(c, 4, 0.0, 0.4, found), 1);
    EXPECT_NEAR(found[0], 0.25, 1e-12);
    const double line[2] = {-0.5, 2.0}, constant[1] = {3.0};
    ASSERT_EQ(ik_polynomial_roots(line, 1, -1.0, 1.0, found), 1);
    EXPECT_DOUBLE_EQ(found[0], 0.25);
    EXPECT_EQ(ik_polynomial_roots(constant, 0, -1.0, 1.0, found), 0);
}

INSTANTIATE_TEST_SUITE_P(Models, Solver,
                         ::testing::Values(solver_case{0, 0, 1}, solver_case{0, 2, 1},
                                           solver_case{3, 0, 1}, solver_case{4, 0, 1},
                                           solver_case{5, 0, 1}, solver_case{6, 0, 1},
                                           solver_case{8, 1, 1}, solver_case{1, 0, 0.993},
                                           solver_case{1, 2, 0.993}, solver_case{7, 0, 0.988}),
                         [](const ::testing::TestParamInfo<solver_case> &info) {
                             return test_name(info.param.type) + "_sensor" +
                                    std::to_string(info.param.sensor);
                         });

TEST(ExportedChecks, QuaternionMustHaveAFloatNormOfExactlyOne) {
    stand_in_clear();
    ka_robot_handle nepax{4, 6, KA_ARM_MODEL_NEPAX, 0};
    stand_in_register(&nepax, stand_in_defaults(KA_ARM_MODEL_NEPAX, 0));
    load(0, 0, {});
    const model_under_test m = load_model(0);
    // Tool up above the shoulder, along +x in front of it, down in front of it.
    const struct {
        ka_quat_t quat;
        ka_position_t at;
    } accepted[] = {{{1, 0, 0, 0}, {0.1f, 0.05f, 0.6f}},
                    {{0.5f, 0.5f, 0.5f, 0.5f}, {0.4f, 0.05f, 0.3f}},
                    {{0, 0, 1, 0}, {0.3f, 0.1f, 0.2f}}};
    for (const auto &c : accepted) {
        float out[7] = {};
        ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, request(c.quat, 0, c.at), out), 0)
            << c.quat.w << " " << c.quat.x;
        const double w = c.quat.w, x = c.quat.x, y = c.quat.y, z = c.quat.z;
        const ik_frame goal{{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                             {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                             {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}},
                            {c.at.x, c.at.y, c.at.z}};
        double q[7];
        for (int i = 0; i < 7; ++i)
            q[i] = out[i] * k_deg;
        EXPECT_TRUE(frames_near(dh_product(m.dh, 6, q), goal));
    }
    // One ulp off is refused before the arm's context is loaded.
    float out[7] = {};
    for (float w : {std::nextafter(1.0f, 2.0f), std::nextafter(1.0f, 0.0f)}) {
        EXPECT_EQ(ka_algo_inverse_kinematics(&nepax, request({w, 0, 0, 0}, 0), out), -2);
        EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
    }
    EXPECT_NE(ka_algo_inverse_kinematics(&nepax, request({1, 0, 0, 0}, 0), out), -2);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_NEPAX);
    stand_in_clear();
    // Flag 1 takes the Euler angles and does not look at the quaternion.
    load(0, 0, {});
    ka_inverse_kinematics_params_t p = request({0, 0, 0, 0}, 1);
    p.q_pose.euler = {3.1f, 0.2f, -0.5f};
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
}

TEST(ExportedChecks, ReferenceOutsideTheLimitsIsRefused) {
    load(0, 0, {});
    float hi[7] = {}, lo[7] = {}, out[7] = {1, 2, 3, 4, 5, 6, 7};
    ka_algo_get_joint_max_limit(hi);
    ka_algo_get_joint_min_limit(lo);
    ka_inverse_kinematics_params_t p = request({0, 0, 1, 0}, 0);
    for (int joint = 0; joint < 6; ++joint) {
        for (float v : {std::nextafter(hi[joint], 1e9f), std::nextafter(lo[joint], -1e9f), NAN}) {
            p.q_in[joint] = v;
            EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), -1) << joint + 1 << ": " << v;
        }
        p.q_in[joint] = hi[joint];
        EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0) << joint + 1 << " at its maximum";
        p.q_in[joint] = 0.0f;
    }
    p.q_in[6] = 1e6f; // not a KIVO joint
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, nullptr), -1);
    // Out of reach: 1, and the output is left alone.
    std::copy(hi, hi + 7, out);
    p.q_pose.position = {2.0f, 0.0f, 0.3f};
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 1);
    EXPECT_EQ(out[1], hi[1]);
}

TEST(ExportedChecks, LastJointJustPastOneTurnIsReadAsOneTurn) {
    // KIVO target with joint 6 just below one turn. The reference's wrist
    // joints make the target's own wrist A and the flipped wrist B (joints
    // 4 + pi, -5, 6 - pi) equally near for a reference joint 6 of 360.5
    // degrees: below that B is nearer, above it A. The elbow is bent far
    // enough that its other branch is out of the running.
    load(0, 0, {});
    const model_under_test m = load_model(0);
    const double last = 2 * k_pi - 0.01;
    const double q[7] = {0.3, 0.2, 1.2, -1.0, 0.5, last, 0};
    const ka_pose_t pose = pose_of(dh_product(m.dh, 6, q));
    // dA - dB = d4 - 2 r5 + pi (2 last - pi - 2 r), d4 from joint 4 at r4 = 2.1.
    const double r4 = 2.1;
    const double d4 = std::pow(-1.0 - r4, 2) - std::pow(-1.0 + k_pi - r4, 2);
    const double r5 = (d4 + k_pi * (2 * last - k_pi - 2 * (2 * k_pi * 360.5 / 360.0))) / 2.0;
    float at[3][7];
    const double last_deg[3] = {360.0, 361.0, 363.0};
    for (int k = 0; k < 3; ++k) {
        const float ref[7] = {0.3f, 0.2f, 1.2f, float(r4), float(r5), float(last_deg[k] * k_deg),
                              0};
        context_scope scope; // the inner layer runs under the caller's lock
        ASSERT_EQ(inverse_kinematics(ref, pose, at[k], 1), 0) << last_deg[k];
    }
    EXPECT_NEAR(at[0][5], last - k_pi, 1e-3) << "flipped wrist below the tie";
    EXPECT_NEAR(at[2][5], last, 1e-3) << "own wrist above the tie";
    for (int i = 0; i < 6; ++i)
        EXPECT_FLOAT_EQ(at[1][i], at[0][i]) << "joint " << i + 1;
}

TEST(ExportedChecks, OverSpeedIsJudgedPerJointAndControlPeriod) {
    load(0, 0, {});
    // KIVO joint 1 at most 180 deg/s, joint 3 225 deg/s; period 2 ms.
    const float step = static_cast<float>(180.0 * k_deg * 0.002);
    const float prev[7] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.0f};
    const struct {
        int joint;
        float move;
        float factor;
        int expected;
    } cases[] = {
        {0, 0.99f * step, 1, 0},  {2, 1.1f * step, 1, 0},   {4, -2 * step, 1, 5},
        {0, -1.01f * step, 1, 1}, {0, -1.01f * step, 3, 0}, {1, 0, -1, 0},
        {1, 1e-4f, -1, 2},        {6, 10.0f, 1, 0}, // the seventh entry is not a KIVO joint
    };
    for (const auto &c : cases) {
        float next[7];
        std::copy(prev, prev + 7, next);
        next[c.joint] += c.move;
        context_scope scope;
        EXPECT_EQ(joint_overspeed_judgment(prev, next, c.factor), c.expected)
            << "joint " << c.joint + 1 << " by " << c.move << " at factor " << c.factor;
    }
    // The exported variant judges the solution against its reference.
    const float q[7] = {10, 20, 30, 40, 50, 60, 0};
    const ka_pose_t pose = ka_algo_forward_kinematics(nullptr, q);
    float ref[7], out[7];
    std::copy(q, q + 7, ref);
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(ref, pose, out, 1), 0);
    ref[1] += 10.0f;
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(ref, pose, out, 1), 2);
    ka_pose_t far = pose;
    far.position.x = 3.0f;
    EXPECT_LT(invoke_inverse_kinematics_with_judgment_overspeed(q, far, out, 1), 0);
}

TEST(ExportedChecks, ChosenRedundancyModeIsNoLongerOverridden) {
    load(1, 0, {});
    const float q[7] = {10, 20, -30, 40, 10, -20, 30};
    ka_inverse_kinematics_params_t p{};
    p.q_pose = ka_algo_forward_kinematics(nullptr, q);
    p.q_flag = 1;
    std::copy(q, q + 7, p.q_in);
    float out[7] = {};
    if (ikine_default_traversal_mode()) {
        // No mode chosen yet in this process: each call restores "near the reference".
        ikine_set_solution_range_lune(0.5f);
        ikine_set_7dof_solver_search_strategy(0);
        ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
        EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.013f);
        EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    }
    ka_algo_set_redundant_parameter_traversal_mode(true);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 3.14f);
    ikine_set_solution_range_lune(0.5f); // a choice made below the exported layer stays too
    ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.5f);
    ka_algo_set_redundant_parameter_traversal_mode(false);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.013f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
}

} // namespace

namespace {

// ------------------------------------------------ aligned shoulder (7 axes)

// Joints with every digit, so that a failing case can be replayed.
std::string exact_text(const double q[7]) {
    std::ostringstream os;
    os << std::setprecision(17);
    for (int i = 0; i < 7; ++i)
        os << (i ? " " : "(") << q[i];
    os << ")";
    return os.str();
}

// Joint 2 at or near 0: joints 1 and 3 turn about one line and trade angle,
// and along the redundancy parameter they swing through half a turn within
// a sliver of it. The answer is still the nearest candidate, in both modes.
class AlignedShoulder : public ::testing::TestWithParam<int> {
  protected:
    // Smallest singular value of the Jacobian (metres and radians per
    // radian) below which a target counts as near another singularity.
    static constexpr double k_regular_sigma = 0.05;

    model_under_test m = load_model(GetParam());
    random_source rng{2600u + GetParam()};

    int solve(const ik_frame &target, const double ref[7], ik_redundancy r, double out[7]) const {
        return m.type == 1 ? ik_solve_arm_angle(m.dh, target, ref, m.limits, r, out)
                           : ik_solve_offset_elbow(m.dh, target, ref, m.limits, r, out);
    }

    // Solved in both modes from ref; true when both answers are within the
    // limits, reach the target and are at least as near as q itself.
    ::testing::AssertionResult nearest_both_modes(const double q[7], const double ref[7]) const {
        const ik_frame target = rounded(dh_product(m.dh, 7, q));
        for (ik_redundancy r : {k_near, k_traverse}) {
            double out[7];
            if (solve(target, ref, r, out) != k_ik_ok)
                return ::testing::AssertionFailure() << "no solution, strategy " << r.strategy;
            if (!within_limits(m, out) || !frames_near(dh_product(m.dh, 7, out), target))
                return ::testing::AssertionFailure() << "invalid " << joints_text(out, 7);
            if (distance(out, ref, 7) > distance(q, ref, 7) + 1e-3)
                return ::testing::AssertionFailure()
                       << std::setprecision(17) << "strategy " << r.strategy << ": q "
                       << exact_text(q) << " ref " << exact_text(ref) << " got "
                       << joints_text(out, 7) << ", " << distance(out, ref, 7)
                       << " rad from the reference against " << distance(q, ref, 7);
        }
        return ::testing::AssertionSuccess();
    }
};

TEST_P(AlignedShoulder, ReportedCasesReturnTheSolutionBesideTheReference) {
    if (m.type != 1) GTEST_SKIP() << "cases reported on LUNE";
    const double q[7] = {0, 0, 120 * k_deg, 60 * k_deg, 0, 30 * k_deg, 0};
    double ref[7];
    std::copy(q, q + 7, ref);
    ref[1] = 0.5 * k_deg;
    EXPECT_TRUE(nearest_both_modes(q, ref));
    const double own[7] = {146.7 * k_deg, 0,           -103.7 * k_deg, -65.1 * k_deg, -85.4 * k_deg,
                           -3.5 * k_deg,  57.8 * k_deg};
    EXPECT_TRUE(nearest_both_modes(own, own));
}

TEST_P(AlignedShoulder, EveryTargetWithJoint2NearZeroGetsTheNearestCandidate) {
    // Joint 2 exactly 0 or within 1 degree of it, the arm otherwise regular
    // (the aligned shoulder itself is not singular for a seven-axis arm: the
    // Jacobian keeps its rank). References: the target's
    // own joints, joints within 0.05 rad of them (a path's previous sample,
    // a jog) and within 0.3 rad; the nearest candidate in every case of the
    // first two, and at least as often as elsewhere (the share of the
    // general test) from the farther references.
    const int n = std::max(600, sample_count() / 5); // 2,000 in the optimised build
    const double spreads[3] = {0.0, 0.05, 0.3};
    int nearest[3] = {}, shown = 0;
    for (int k = 0; k < n; ++k) {
        double q[7], ref[7];
        do { // away from the singular configurations (the elbow's stretch, the wrist's alignment)
            rng.joints(m, q);
            q[1] = k % 2 ? 0.0 : static_cast<float>(rng.uniform(-k_deg, k_deg));
        } while (smallest_singular_value(m, q) < k_regular_sigma);
        for (int c = 0; c < 3; ++c) {
            rng.near(m, q, spreads[c], ref);
            const auto result = nearest_both_modes(q, ref);
            nearest[c] += static_cast<bool>(result);
            if (c < 2 && !result && ++shown <= 5)
                ADD_FAILURE() << "sample " << k << ": " << result.message();
        }
    }
    EXPECT_EQ(nearest[0], n);
    EXPECT_EQ(nearest[1], n);
    EXPECT_GE(nearest[2], (m.type == 1 ? 0.993 : 0.988) * n) << nearest[2] << " of " << n;
    std::printf("%s aligned shoulder, nearest in both modes: own joints %d, within 0.05 rad %d, "
                "within 0.3 rad %d of %d\n",
                m.name, nearest[0], nearest[1], nearest[2], n);
}

INSTANTIATE_TEST_SUITE_P(SevenAxis, AlignedShoulder, ::testing::Values(1, 7),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return test_name(info.param);
                         });

} // namespace
