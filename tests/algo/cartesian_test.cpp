// Frame conversions, flange/tool conversions and Cartesian moves.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/cartesian.h"
#include "algo/context.h"
#include "algo/fk.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace algo_test;

namespace {

float angle_between(ka_quat_t a, ka_quat_t b) {
    float dot = std::fabs(a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z);
    return 2.0f * std::acos(std::fmin(dot, 1.0f));
}

ka_quat_t unit(ka_quat_t q) {
    float n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    return {q.w / n, q.x / n, q.y / n, q.z / n};
}

} // namespace

// ------------------------------------------------------ frame conversions

TEST(FrameConversion, IdentityRecomputesOnlyTheQuaternion) {
    ka_pose_t p{};
    p.position = {0.3f, -0.2f, 0.5f};
    p.euler = {0.1f, 0.2f, 0.3f};
    p.quaternion = {9.0f, 9.0f, 9.0f, 9.0f}; // stale input, must not survive
    ka_pose_t out = ka_algo_base2workframe(identity4(), p);
    EXPECT_EQ(out.position.x, p.position.x);
    EXPECT_EQ(out.position.z, p.position.z);
    EXPECT_NEAR(out.euler.rx, 0.1f, 1e-6f);
    EXPECT_NEAR(out.euler.rz, 0.3f, 1e-6f);
    ka_quat_t q = euler_to_quat(p.euler);
    EXPECT_NEAR(out.quaternion.w, q.w, 1e-6f);
    EXPECT_NEAR(out.quaternion.z, q.z, 1e-6f);
}

TEST(FrameConversion, WorkFrameToBaseUndoesBaseToWorkFrame) {
    random_source rng(31);
    for (int i = 0; i < 500; ++i) {
        ka_matrix_t m = pose_euler_to_transformation_matrix(rng.pose(1.0f));
        ka_pose_t p = rng.pose_away_from_lock(1.0f);
        // The intermediate pose is stored as Euler angles: keep it away from
        // gimbal lock so that the round trip measures the conversion only.
        ka_pose_t there = ka_algo_base2workframe(m, p);
        if (std::fabs(std::cos(there.euler.ry)) < 0.25f) continue;
        ka_pose_t back = ka_algo_workframe2base(m, there);
        EXPECT_TRUE(poses_near(back, p, 5e-6f, 5e-6f)) << i;
    }
}

TEST(FrameConversion, MatrixMapsBaseIntoWorkFrame) {
    // A work frame 0.1 m above the base: its base-to-work matrix shifts down.
    ka_pose_t work{};
    work.position.z = 0.1f;
    ka_matrix_t base_to_work =
        matrix_inv_coordinate_system(pose_euler_to_transformation_matrix(work));
    ka_pose_t p{};
    p.position = {0.2f, 0.0f, 0.5f};
    EXPECT_NEAR(ka_algo_base2workframe(base_to_work, p).position.z, 0.4f, 1e-6f);
    EXPECT_NEAR(ka_algo_workframe2base(base_to_work, p).position.z, 0.6f, 1e-6f);
}

TEST(FrameConversion, InnerExportsAgree) {
    random_source rng(32);
    ka_matrix_t m = pose_euler_to_transformation_matrix(rng.pose());
    ka_pose_t p = rng.pose();
    EXPECT_TRUE(poses_near(algo_base_to_workframe(m, p), ka_algo_base2workframe(m, p), 0, 0));
    EXPECT_TRUE(poses_near(algo_workframe_to_base(m, p), ka_algo_workframe2base(m, p), 0, 0));
}

// -------------------------------------------------------------- pose move

TEST(PoseMove, WorkFrameTranslationAddsComponents) {
    ka_pose_t p{};
    p.position = {0.1f, 0.2f, 0.3f};
    p.euler = {0.4f, -0.3f, 1.0f};
    const float delta[6] = {0.1f, 0, 0, 0, 0, 0};
    ka_pose_t out = algo_pose_move(p, delta, 0);
    EXPECT_FLOAT_EQ(out.position.x, 0.2f);
    EXPECT_FLOAT_EQ(out.position.y, 0.2f);
    EXPECT_TRUE(matrices_near(euler_to_matrix(out.euler), euler_to_matrix(p.euler), 2e-6f));
}

TEST(PoseMove, ToolFrameTranslationFollowsToolAxes) {
    ka_pose_t p{};
    p.euler = {0.0f, 0.0f, k_pi / 2}; // tool X along work Y
    const float delta[6] = {0.1f, 0, 0.05f, 0, 0, 0};
    ka_pose_t out = algo_pose_move(p, delta, 1);
    EXPECT_NEAR(out.position.x, 0.0f, 1e-6f);
    EXPECT_NEAR(out.position.y, 0.1f, 1e-6f);
    EXPECT_NEAR(out.position.z, 0.05f, 1e-6f);
}

TEST(PoseMove, OtherFrameModeGivesZeroPosition) {
    ka_pose_t p{};
    p.position = {1, 2, 3};
    p.euler = {0.2f, 0.1f, 0.0f};
    const float delta[6] = {0.1f, 0.1f, 0.1f, 0.3f, 0, 0};
    ka_pose_t out = algo_pose_move(p, delta, 2);
    EXPECT_EQ(out.position.x, 0.0f);
    EXPECT_EQ(out.position.y, 0.0f);
    EXPECT_EQ(out.position.z, 0.0f);
    EXPECT_TRUE(matrices_near(euler_to_matrix(out.euler), euler_to_matrix(p.euler), 1e-6f));
}

TEST(PoseMove, WorkFrameRotationFromIdentityIsEulerConvention) {
    // X, then Y, then Z about fixed axes: the same as Euler angles (a, b, c).
    ka_pose_t p{};
    const float delta[6] = {0, 0, 0, 0.3f, -0.5f, 1.1f};
    ka_pose_t out = algo_pose_move(p, delta, 0);
    EXPECT_NEAR(out.euler.rx, 0.3f, 1e-5f);
    EXPECT_NEAR(out.euler.ry, -0.5f, 1e-5f);
    EXPECT_NEAR(out.euler.rz, 1.1f, 1e-5f);
}

TEST(PoseMove, WorkAndToolRotationsMultiplyOnOppositeSides) {
    ka_pose_t p{};
    p.euler = {0.0f, 0.0f, k_pi / 2};
    const float delta[6] = {0, 0, 0, 0.3f, 0, 0};
    ka_matrix_t r = euler_to_matrix(p.euler);
    ka_pose_t work = algo_pose_move(p, delta, 0);
    ka_pose_t tool = algo_pose_move(p, delta, 1);
    EXPECT_TRUE(matrices_near(euler_to_matrix(work.euler), matrix_m(rotx(0.3f), r), 2e-6f));
    EXPECT_TRUE(matrices_near(euler_to_matrix(tool.euler), matrix_m(r, rotx(0.3f)), 2e-6f));
}

TEST(PoseMove, NullDeltaReturnsThePose) {
    ka_pose_t p{};
    p.position = {0.5f, 0.5f, 0.5f};
    p.euler = {0.1f, 0.0f, 0.0f};
    ka_pose_t out = algo_pose_move(p, nullptr, 0);
    EXPECT_EQ(out.position.y, 0.5f);
    EXPECT_EQ(out.euler.rx, 0.1f);
}

TEST(PoseMove, RodriguesAboutArbitraryAxisMatchesElementaryRotation) {
    const float axis_z[3] = {0, 0, 1};
    ka_matrix_t r = euler_to_matrix({0.2f, 0.4f, -0.1f});
    EXPECT_TRUE(
        matrices_near(Rodrigues_rotate_simplify(r, axis_z, 0.7f), matrix_m(rotz(0.7f), r), 2e-6f));
    EXPECT_TRUE(matrices_near(Rodrigues_rotate_simplify_tool(r, axis_z, 0.7f),
                              matrix_m(r, rotz(0.7f)), 2e-6f));
    const float diagonal[3] = {0.57735027f, 0.57735027f, 0.57735027f};
    // A third of a turn about (1, 1, 1) cycles the axes: X -> Y.
    ka_matrix_t cyc = Rodrigues_rotate_simplify(unit_matrix(3), diagonal, 2.0943951f);
    EXPECT_NEAR(cyc.data[1][0], 1.0f, 1e-6f);
}

// ------------------------------------------------------------ step_attitude

TEST(StepAttitude, StepsByAtMostTheGivenAngle) {
    ka_quat_t a = euler_to_quat({0, 0, 0});
    ka_quat_t b = euler_to_quat({0, 0, 1.0f});
    ka_quat_t s = step_attitude(a, b, 0.25f);
    EXPECT_NEAR(angle_between(a, s), 0.25f, 1e-5f);
    EXPECT_NEAR(angle_between(s, b), 0.75f, 1e-5f);
    ka_quat_t last = step_attitude(euler_to_quat({0, 0, 0.9f}), b, 0.25f);
    EXPECT_EQ(last.w, b.w);
    EXPECT_EQ(last.z, b.z);
}

TEST(StepAttitude, TakesTheShorterArc) {
    ka_quat_t a = euler_to_quat({0, 0, 0.1f});
    ka_quat_t b = euler_to_quat({0, 0, -0.1f});
    ka_quat_t neg_b = {-b.w, -b.x, -b.y, -b.z}; // same orientation, other sign
    ka_quat_t s = unit(step_attitude(a, neg_b, 0.05f));
    EXPECT_NEAR(angle_between(a, s), 0.05f, 1e-5f);
    EXPECT_NEAR(angle_between(s, b), 0.15f, 1e-5f);
}

// ------------------------------------------------------ handle functions

class CartesianWithArm : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
        params = stand_in_defaults(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_ZF);
        params.tool_frame.pose.position = {0.01f, -0.02f, 0.12f};
        params.tool_frame.pose.euler = {0.1f, -0.2f, 0.3f};
        params.work_frame.pose.position = {0.3f, 0.1f, 0.05f};
        params.work_frame.pose.euler = {0.0f, 0.05f, 0.8f};
        stand_in_register(&arm, params);
    }
    void TearDown() override { stand_in_clear(); }

    ka_robot_handle arm{1, 6, 0, 1};
    algo_arm_params params{};
    const float joints[7] = {15, -40, 60, 20, 70, -30, 0};
};

TEST_F(CartesianWithArm, EndToToolAndBackReturnsTheFlange) {
    random_source rng(33);
    for (int i = 0; i < 100; ++i) {
        ka_pose_t flange = rng.pose_away_from_lock(0.8f);
        ka_pose_t tool = ka_algo_end2tool(&arm, flange);
        if (std::fabs(std::cos(tool.euler.ry)) < 0.25f) continue; // see above
        ka_pose_t back = ka_algo_tool2end(&arm, tool);
        EXPECT_TRUE(poses_near(back, flange, 5e-6f, 5e-6f)) << i;
    }
}

TEST_F(CartesianWithArm, EndToToolAddsToolOffsetAndWorkFrame) {
    params.tool_frame.pose = {};
    params.tool_frame.pose.position.z = 0.1f;
    params.work_frame.pose = {};
    params.work_frame.pose.position.z = 0.1f;
    stand_in_register(&arm, params);
    ka_pose_t flange{};
    flange.position = {0.4f, 0.0f, 0.5f};
    flange.euler = {k_pi, 0.0f, 0.0f}; // flange pointing down
    ka_pose_t tool = ka_algo_end2tool(&arm, flange);
    // 0.1 m further down along the flange axis, then 0.1 m lower in the work frame.
    EXPECT_NEAR(tool.position.z, 0.5f - 0.1f - 0.1f, 1e-6f);
    EXPECT_NEAR(tool.position.x, 0.4f, 1e-6f);
}

TEST_F(CartesianWithArm, ForwardKinematicsFlangeThroughEndToToolIsToolPose) {
    ka_pose_t tool = ka_algo_forward_kinematics(&arm, joints);
    ka_pose_t flange_base = Forward_Kinematics_e(&arm, joints);
    EXPECT_TRUE(poses_near(ka_algo_end2tool(&arm, flange_base), tool, 5e-6f, 5e-6f));
}

TEST_F(CartesianWithArm, CartesianToolWithoutMoveIsForwardKinematicsOfAnUprightArm) {
    ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    ka_pose_t same = ka_algo_cartesian_tool(&arm, joints, 0, 0, 0);
    EXPECT_TRUE(poses_near(same, fk, 1e-6f, 1e-6f));
}

TEST_F(CartesianWithArm, CartesianToolMovesAlongToolAxes) {
    ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    ka_matrix_t r = euler_to_matrix(fk.euler);
    ka_pose_t moved = ka_algo_cartesian_tool(&arm, joints, 0.0f, 0.02f, 0.05f);
    EXPECT_NEAR(moved.position.x, fk.position.x + 0.02f * r.data[0][1] + 0.05f * r.data[0][2],
                2e-6f);
    EXPECT_NEAR(moved.position.y, fk.position.y + 0.02f * r.data[1][1] + 0.05f * r.data[1][2],
                2e-6f);
    EXPECT_NEAR(moved.position.z, fk.position.z + 0.02f * r.data[2][1] + 0.05f * r.data[2][2],
                2e-6f);
    EXPECT_TRUE(poses_near(moved, {moved.position, {}, fk.euler}, 0.0f, 2e-6f));
    EXPECT_EQ(ka_algo_cartesian_tool(&arm, nullptr, 0.1f, 0, 0).position.x, 0.0f);
}

TEST_F(CartesianWithArm, RotateMoveTurnsAboutChosenAxisThroughToolPoint) {
    ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    ka_pose_t choose{};
    choose.euler = {0.0f, 0.0f, k_pi / 2}; // its X axis is the work Y axis
    ka_pose_t rotated = ka_algo_rotate_move(&arm, joints, 0, 30.0f, choose);
    EXPECT_TRUE(poses_near(rotated, {fk.position, {}, rotated.euler}, 1e-6f, 0.0f));
    ka_matrix_t expected = matrix_m(roty(30.0f * 0.017453292519943295f), euler_to_matrix(fk.euler));
    EXPECT_TRUE(matrices_near(euler_to_matrix(rotated.euler), expected, 3e-6f));
}

TEST_F(CartesianWithArm, RotateMoveAxisSelection) {
    ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    ka_pose_t choose{};
    ka_pose_t about_z = ka_algo_rotate_move(&arm, joints, 2, -45.0f, choose);
    ka_matrix_t expected =
        matrix_m(rotz(-45.0f * 0.017453292519943295f), euler_to_matrix(fk.euler));
    EXPECT_TRUE(matrices_near(euler_to_matrix(about_z.euler), expected, 3e-6f));
    ka_pose_t unchanged = ka_algo_rotate_move(&arm, joints, 3, 45.0f, choose);
    EXPECT_TRUE(poses_near(unchanged, fk, 0.0f, 0.0f));
    ka_pose_t none = ka_algo_rotate_move(&arm, nullptr, 0, 45.0f, choose);
    EXPECT_EQ(none.euler.rx, 0.0f);
}

TEST_F(CartesianWithArm, PoseMoveThroughHandle) {
    ka_pose_t p{};
    p.position = {0.1f, 0.1f, 0.1f};
    const float delta[6] = {0.1f, 0, 0, 0, 0, 0};
    ka_pose_t out = ka_algo_pose_move(&arm, p, delta, 0);
    EXPECT_FLOAT_EQ(out.position.x, 0.2f);
    EXPECT_EQ(ka_algo_pose_move(&arm, p, delta, 2).position.x, 0.0f);
}

TEST(FrameConversion, SingularMatrixGivesNonFinitePose) {
    ka_matrix_t m = zero_matrix(4, 4); // no inverse
    m.data[3][3] = 1.0f;
    ka_pose_t p{};
    p.position = {0.1f, 0.2f, 0.3f};
    ka_pose_t out = ka_algo_workframe2base(m, p);
    EXPECT_FALSE(std::isfinite(out.position.x) && std::isfinite(out.position.y) &&
                 std::isfinite(out.position.z));
}
