// The exported inverse kinematics and its inner layers: round trips through
// the context with tool, work and install frames, the exact unit-quaternion
// test, the reference limit check, the last-joint clamp, the redundancy
// mode, the over-speed check, and two arms solved from two threads.
#include "tests/algo/ik_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/ik.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

using namespace ik_test;

namespace {

// R = Rz(rz) Ry(ry) Rx(rx) and the translation of a pose, in double.
transform pose_transform(double x, double y, double z, double rx, double ry, double rz) {
    const double cx = std::cos(rx), sx = std::sin(rx), cy = std::cos(ry), sy = std::sin(ry);
    const double cz = std::cos(rz), sz = std::sin(rz);
    return {{{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
             {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
             {-sy, sx * cy, cx * cy}},
            {x, y, z}};
}

transform pose_transform(const ka_pose_t &p) {
    return pose_transform(p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry,
                          p.euler.rz);
}

transform multiply(const transform &A, const transform &B) {
    transform C;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            C.R[i][j] = A.R[i][0] * B.R[0][j] + A.R[i][1] * B.R[1][j] + A.R[i][2] * B.R[2][j];
        C.p[i] = A.R[i][0] * B.p[0] + A.R[i][1] * B.p[1] + A.R[i][2] * B.p[2] + A.p[i];
    }
    return C;
}

transform inverse(const transform &A) {
    transform B;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            B.R[i][j] = A.R[j][i];
    for (int i = 0; i < 3; ++i)
        B.p[i] = -(B.R[i][0] * A.p[0] + B.R[i][1] * A.p[1] + B.R[i][2] * A.p[2]);
    return B;
}

ik_frame as_frame(const transform &T) {
    ik_frame F;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            F.R[i][j] = T.R[i][j];
        F.p[i] = T.p[i];
    }
    return F;
}

// The frames an arm works in, kept in double for the checks.
struct frames {
    ka_frame_t tool{}, work{};
    float install_deg[3] = {0, 0, 0};

    // Tool pose in the work frame: W^-1 * I * F(q) * Tt, with
    // I = Rz(z) Ry(y) Rx(x) of the install angles.
    transform tool_in_work(const model_under_test &m, const double q_rad[7]) const {
        const transform I = pose_transform(0, 0, 0, install_deg[0] * k_deg, install_deg[1] * k_deg,
                                           install_deg[2] * k_deg);
        const transform F{dh_product(m.dh, m.dof, q_rad)};
        return multiply(multiply(inverse(pose_transform(work.pose)), I),
                        multiply(F, pose_transform(tool.pose)));
    }
};

frames sample_frames(int seed) {
    frames f;
    f.tool.pose.position = {0.01f * seed, -0.02f, 0.05f};
    f.tool.pose.euler = {0.1f, -0.2f, 0.3f * seed};
    f.work.pose.position = {0.2f, -0.1f * seed, 0.05f};
    f.work.pose.euler = {0.0f, 0.05f, -0.4f};
    f.install_deg[0] = 5.0f * seed;
    f.install_deg[1] = -3.0f;
    f.install_deg[2] = 20.0f;
    return f;
}

void load(int model, int sensor, const frames &f) {
    ASSERT_EQ(ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(model),
                                    static_cast<ka_force_type_e>(sensor)),
              0);
    ka_algo_set_toolframe(&f.tool);
    ka_algo_set_workframe(&f.work);
    ka_algo_set_angle(f.install_deg[0], f.install_deg[1], f.install_deg[2]);
}

// Joints in degrees within the limits the exported layer checks.
void sample_degrees(sampler &rng, const model_under_test &m, float deg[7]) {
    float lo[7] = {}, hi[7] = {};
    ka_algo_get_joint_min_limit(lo);
    ka_algo_get_joint_max_limit(hi);
    for (int i = 0; i < 7; ++i)
        deg[i] = i < m.dof ? static_cast<float>(rng.uniform(lo[i], hi[i])) : 0.0f;
}

void to_radians(const float deg[7], double rad[7]) {
    for (int i = 0; i < 7; ++i)
        rad[i] = deg[i] * k_deg;
}

::testing::AssertionResult reaches(const frames &f, const model_under_test &m,
                                   const float out_deg[7], const ka_pose_t &target) {
    double q[7];
    to_radians(out_deg, q);
    const transform T = f.tool_in_work(m, q);
    const ik_frame goal = as_frame(pose_transform(target));
    const double dp = position_error(T, goal), dr = orientation_error(T, goal);
    if (dp < k_position_tol && dr < k_orientation_tol) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "position error " << dp << " m, orientation error " << dr << " rad";
}

struct model_case {
    int type;
    int sensor;
};

class exported_round_trip : public ::testing::TestWithParam<model_case> {};

TEST_P(exported_round_trip, reaches_forward_kinematics_poses_through_tool_work_and_install_frames) {
    const model_under_test m = load_model(GetParam().type, GetParam().sensor);
    const frames f = sample_frames(GetParam().type + 1);
    load(GetParam().type, GetParam().sensor, f);
    sampler rng(900u + GetParam().type);
    const int n = std::max(500, sample_count() / 10);
    int solved = 0;
    for (int k = 0; k < n; ++k) {
        float q[7], out[7];
        sample_degrees(rng, m, q);
        ka_inverse_kinematics_params_t params{};
        for (int i = 0; i < m.dof; ++i)
            params.q_in[i] = q[i] + static_cast<float>(rng.uniform(-5.0, 5.0));
        if (ka_algo_judgment_overpos(params.q_in) != 0) std::copy(q, q + 7, params.q_in);
        params.q_pose = ka_algo_forward_kinematics(nullptr, q);
        params.q_flag = 1;
        const int rc = ka_algo_inverse_kinematics(nullptr, params, out);
        ASSERT_TRUE(rc == 0 || rc == 1) << rc;
        if (rc != 0) continue;
        ++solved;
        ASSERT_TRUE(reaches(f, m, out, params.q_pose)) << "sample " << k;
        ASSERT_EQ(ka_algo_judgment_overpos(out), 0) << "solution outside the limits";
    }
    // The six-axis solvers solve every reachable target; the seven-axis ones
    // at least 99.9 % of them.
    EXPECT_GE(solved, m.dof == 6 ? n : n - n / 1000 - 1) << solved << " of " << n;
}

INSTANTIATE_TEST_SUITE_P(models, exported_round_trip,
                         ::testing::Values(model_case{0, 0}, model_case{1, 0}, model_case{3, 1},
                                           model_case{4, 0}, model_case{5, 0}, model_case{6, 2},
                                           model_case{7, 0}, model_case{8, 0}),
                         [](const ::testing::TestParamInfo<model_case> &info) {
                             return test_name(load_model(info.param.type).name);
                         });

// A KIVO request: tool pointing down (the quaternion's default) at a point
// in front of the base, or any pose given.
ka_inverse_kinematics_params_t kivo_request(ka_quat_t quat, uint8_t flag,
                                            ka_position_t at = {0.3f, 0.1f, 0.2f}) {
    ka_inverse_kinematics_params_t p{};
    p.q_pose.position = at;
    p.q_pose.quaternion = quat;
    p.q_flag = flag;
    return p;
}

TEST(exported_quaternion, accepts_float_unit_quaternions_and_solves_them) {
    const frames none;
    load(0, 0, none);
    const model_under_test m = load_model(0);
    // Tool up above the shoulder, along +x in front of it, down in front of it.
    const struct {
        ka_quat_t quat;
        ka_position_t at;
    } cases[] = {{{1, 0, 0, 0}, {0.1f, 0.05f, 0.6f}},
                 {{0.5f, 0.5f, 0.5f, 0.5f}, {0.4f, 0.05f, 0.3f}},
                 {{0, 0, 1, 0}, {0.3f, 0.1f, 0.2f}}};
    for (const auto &c : cases) {
        const ka_quat_t quat = c.quat;
        float out[7] = {};
        const ka_inverse_kinematics_params_t p = kivo_request(quat, 0, c.at);
        ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0) << quat.w << " " << quat.x;
        // The quaternion's rotation, in double.
        const double w = quat.w, x = quat.x, y = quat.y, z = quat.z;
        const transform goal{{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                              {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                              {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}},
                             {c.at.x, c.at.y, c.at.z}};
        double q[7];
        to_radians(out, q);
        const transform T = none.tool_in_work(m, q);
        EXPECT_LT(position_error(T, as_frame(goal)), k_position_tol);
        EXPECT_LT(orientation_error(T, as_frame(goal)), k_orientation_tol);
    }
}

TEST(exported_quaternion, rejects_a_squared_norm_one_ulp_off_before_loading_the_context) {
    stand_in_clear();
    ka_robot_handle handle{4, 6, KA_ARM_MODEL_NEPAX, 0};
    stand_in_register(&handle, stand_in_defaults(KA_ARM_MODEL_NEPAX, 0));
    const frames none;
    load(0, 0, none);
    float out[7] = {};
    for (float w : {std::nextafter(1.0f, 2.0f), std::nextafter(1.0f, 0.0f)}) {
        EXPECT_EQ(ka_algo_inverse_kinematics(&handle, kivo_request({w, 0, 0, 0}, 0), out), -2);
        EXPECT_EQ(libalgo_get_robot_type(), 0) << "context loaded despite the rejected quaternion";
    }
    EXPECT_NE(ka_algo_inverse_kinematics(&handle, kivo_request({1, 0, 0, 0}, 0), out), -2);
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_NEPAX);
    stand_in_clear();
}

TEST(exported_quaternion, is_not_tested_when_the_euler_angles_are_used) {
    const frames none;
    load(0, 0, none);
    float out[7] = {};
    ka_inverse_kinematics_params_t p = kivo_request({0, 0, 0, 0}, 1);
    p.q_pose.euler = {3.1f, 0.2f, -0.5f};
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
}

TEST(exported_reference, outside_the_limits_is_refused_and_on_them_accepted) {
    const frames none;
    load(0, 0, none);
    float hi[7] = {}, lo[7] = {}, out[7] = {};
    ka_algo_get_joint_max_limit(hi);
    ka_algo_get_joint_min_limit(lo);
    ka_inverse_kinematics_params_t p = kivo_request({0, 0, 1, 0}, 0);
    for (int joint = 0; joint < 6; ++joint) {
        p.q_in[joint] = hi[joint];
        EXPECT_NE(ka_algo_inverse_kinematics(nullptr, p, out), -1)
            << "joint " << joint + 1 << " at its maximum";
        p.q_in[joint] = std::nextafter(hi[joint], 1e9f);
        EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), -1)
            << "joint " << joint + 1 << " beyond";
        p.q_in[joint] = std::nextafter(lo[joint], -1e9f);
        EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), -1)
            << "joint " << joint + 1 << " below";
        p.q_in[joint] = NAN;
        EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), -1)
            << "joint " << joint + 1 << " not a number";
        p.q_in[joint] = 0.0f;
    }
    // The seventh entry is not a KIVO joint.
    p.q_in[6] = 1e6f;
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, nullptr), -1);
}

TEST(exported_failure, leaves_the_output_alone_and_reports_one) {
    const frames none;
    load(0, 0, none);
    float out[7] = {1, 2, 3, 4, 5, 6, 7};
    ka_inverse_kinematics_params_t p = kivo_request({0, 0, 1, 0}, 0);
    p.q_pose.position = {2.0f, 0.0f, 0.3f};
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 1);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(out[i], static_cast<float>(i + 1));
}

TEST(inner_dispatch, has_no_solver_for_type_2_and_types_above_8) {
    ka_pose_t pose = kivo_request({1, 0, 0, 0}, 0).q_pose;
    const float ref[7] = {};
    float out[7] = {};
    for (int type : {2, 9}) {
        libalgo_set_robot_and_sensor_type(type, 0);
        ASSERT_EQ(libalgo_get_robot_type(), type);
        EXPECT_EQ(inverse_kinematics(ref, pose, out, 0), k_ik_unknown_type) << "type " << type;
        EXPECT_EQ(invoke_inverse_kinematics(ref, pose, out, 0), k_ik_unknown_type)
            << "type " << type;
    }
    libalgo_set_robot_and_sensor_type(9, 0);
    ka_inverse_kinematics_params_t p = kivo_request({1, 0, 0, 0}, 0);
    EXPECT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 1);
}

TEST(inner_dispatch, reads_a_last_joint_just_past_one_turn_as_one_turn) {
    // KIVO target with joint 6 just below one turn. The reference's wrist
    // joints are chosen so that the target's own wrist A and the flipped
    // wrist B (joints 4 + pi, -5, 6 - pi) are equally near for a reference
    // joint 6 of 360.5 degrees: below that B is nearer, above it A. The
    // elbow is bent far enough that its other branch is out of the running.
    const frames none;
    load(0, 0, none);
    const model_under_test m = load_model(0);
    const double last = 2 * k_pi - 0.01;
    const double q[7] = {0.3, 0.2, 1.2, -1.0, 0.5, last, 0};
    const ik_frame flange = as_frame(dh_product(m.dh, 6, q));
    ka_matrix_t T{};
    T.rows = T.columns = 4;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            T.data[i][j] = static_cast<float>(flange.R[i][j]);
        T.data[i][3] = static_cast<float>(flange.p[i]);
    }
    T.data[3][3] = 1.0f;
    const ka_pose_t pose = algo_matrix_to_pose(T);
    // dA - dB = d4 - 2 r5 + pi (2 last - pi - 2 r) with d4 from joint 4 at
    // r4 = 2.1, r5 joint 5 and r joint 6 of the reference.
    const double r4 = 2.1;
    const double d4 = std::pow(-1.0 - r4, 2) - std::pow(-1.0 + k_pi - r4, 2);
    const double tie = 2 * k_pi * 360.5 / 360.0;
    const double r5 = (d4 + k_pi * (2 * last - k_pi - 2 * tie)) / 2.0;
    auto solve_with_last = [&](double last_deg, float out[7]) {
        const float ref[7] = {0.3f,
                              0.2f,
                              1.2f,
                              static_cast<float>(r4),
                              static_cast<float>(r5),
                              static_cast<float>(last_deg * k_deg),
                              0};
        return inverse_kinematics(ref, pose, out, 1);
    };
    float at_360[7], at_361[7], at_363[7];
    ASSERT_EQ(solve_with_last(360.0, at_360), 0);
    ASSERT_EQ(solve_with_last(361.0, at_361), 0);
    ASSERT_EQ(solve_with_last(363.0, at_363), 0);
    EXPECT_NEAR(at_360[5], last - k_pi, 1e-3) << "flipped wrist below the tie";
    EXPECT_NEAR(at_363[5], last, 1e-3) << "own wrist above the tie";
    for (int i = 0; i < 6; ++i)
        EXPECT_FLOAT_EQ(at_361[i], at_360[i]) << "joint " << i + 1;
}

TEST(redundancy_mode, defaults_until_chosen_then_keeps_the_choice) {
    const frames none;
    load(1, 0, none);
    float out[7] = {};
    ka_inverse_kinematics_params_t p{};
    const float q[7] = {10, 20, -30, 40, 10, -20, 30};
    p.q_pose = ka_algo_forward_kinematics(nullptr, q);
    p.q_flag = 1;
    std::copy(q, q + 7, p.q_in);
    if (ikine_default_traversal_mode()) {
        // No mode chosen yet in this process: each exported call restores
        // "near the reference".
        ikine_set_solution_range_lune(0.5f);
        ikine_set_7dof_solver_search_strategy(0);
        ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
        EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.013f);
        EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    }
    ka_algo_set_redundant_parameter_traversal_mode(true);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    EXPECT_EQ(ikine_default_traversal_mode(), 0);
    ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 3.14f);
    // A choice made below the exported layer is not overridden either.
    ikine_set_solution_range_lune(0.5f);
    ASSERT_EQ(ka_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.5f);
    ka_algo_set_redundant_parameter_traversal_mode(false);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_lune(), 0.013f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
}

TEST(overspeed, reports_the_first_joint_that_moves_too_far_in_one_period) {
    const frames none;
    load(0, 0, none);
    // KIVO joint 1 at most 180 deg/s, joint 3 225 deg/s; period 2 ms.
    const float step1 = static_cast<float>(180.0 * k_deg * 0.002);
    const float prev[7] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.0f};
    float next[7];
    std::copy(prev, prev + 7, next);
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 0);
    next[0] = prev[0] + 0.99f * step1;
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 0);
    next[2] = prev[2] + 1.1f * step1; // within joint 3's larger allowance
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 0);
    next[4] = prev[4] - 2.0f * step1;
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 5);
    next[0] = prev[0] - 1.01f * step1;
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 1);
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 3.0f), 0);
    // A negative factor allows no motion at all.
    std::copy(prev, prev + 7, next);
    EXPECT_EQ(joint_overspeed_judgment(prev, next, -1.0f), 0);
    for (float &v : next)
        v += 1e-4f;
    EXPECT_EQ(joint_overspeed_judgment(prev, next, -1.0f), 1);
    // The seventh entry is not a KIVO joint.
    std::copy(prev, prev + 7, next);
    next[6] = 10.0f;
    EXPECT_EQ(joint_overspeed_judgment(prev, next, 1.0f), 0);
}

TEST(overspeed, checks_the_solution_against_the_reference_and_times_the_solve) {
    const frames none;
    load(0, 0, none);
    ik_reset_solve_times();
    const float q[7] = {10, 20, 30, 40, 50, 60, 0};
    const ka_pose_t pose = ka_algo_forward_kinematics(nullptr, q);
    float out[7];
    // The reference itself: no motion.
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(q, pose, out, 1), 0);
    // From a reference 10 degrees away on joint 2 only, joint 2 is the one.
    float ref[7];
    std::copy(q, q + 7, ref);
    ref[1] += 10.0f;
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(ref, pose, out, 1), 2);
    // A failed solve reports the solver's negative code.
    ka_pose_t far = pose;
    far.position.x = 3.0f;
    EXPECT_LT(invoke_inverse_kinematics_with_judgment_overspeed(q, far, out, 1), 0);
    EXPECT_GT(ik_solve_time_min_us(), 0.0);
    EXPECT_LE(ik_solve_time_min_us(), ik_solve_time_max_us());
}

TEST(exported_concurrency, two_arms_solved_from_two_threads_each_reach_their_own_targets) {
    stand_in_clear();
    struct arm {
        ka_robot_handle handle;
        int model;
        frames f;
    };
    arm arms[2] = {{{1, 6, KA_ARM_MODEL_KIVO, 0}, KA_ARM_MODEL_KIVO, sample_frames(1)},
                   {{2, 7, KA_ARM_MODEL_LUNE, 0}, KA_ARM_MODEL_LUNE, sample_frames(2)}};
    for (arm &a : arms) {
        algo_arm_params params = stand_in_defaults(a.model, 0);
        params.tool_frame = a.f.tool;
        params.work_frame = a.f.work;
        std::copy(a.f.install_deg, a.f.install_deg + 3, params.install_deg);
        stand_in_register(&a.handle, params);
    }
    // Targets computed beforehand from each arm's own frames, in double.
    constexpr int n = 150;
    struct request {
        ka_inverse_kinematics_params_t params;
    };
    std::vector<request> requests[2];
    for (int a = 0; a < 2; ++a) {
        const model_under_test m = load_model(arms[a].model);
        sampler rng(1000u + a);
        for (int k = 0; k < n; ++k) {
            double q[7];
            rng.joints(m, q);
            const transform T = arms[a].f.tool_in_work(m, q);
            ka_matrix_t M{};
            M.rows = M.columns = 4;
            for (int i = 0; i < 3; ++i) {
                for (int j = 0; j < 3; ++j)
                    M.data[i][j] = static_cast<float>(T.R[i][j]);
                M.data[i][3] = static_cast<float>(T.p[i]);
            }
            M.data[3][3] = 1.0f;
            request r{};
            r.params.q_pose = algo_matrix_to_pose(M);
            r.params.q_flag = 1;
            for (int i = 0; i < m.dof; ++i)
                r.params.q_in[i] = static_cast<float>(q[i] / k_deg) * 0.98f;
            requests[a].push_back(r);
        }
    }
    std::atomic<int> failures{0};
    auto worker = [&](int a) {
        const model_under_test m = load_model(arms[a].model);
        for (int round = 0; round < 3; ++round) {
            for (const request &r : requests[a]) {
                float out[7];
                if (ka_algo_inverse_kinematics(&arms[a].handle, r.params, out) != 0 ||
                    !reaches(arms[a].f, m, out, r.params.q_pose))
                    ++failures;
            }
        }
    };
    std::thread t0(worker, 0), t1(worker, 1);
    t0.join();
    t1.join();
    EXPECT_EQ(failures.load(), 0);
    stand_in_clear();
}

} // namespace
