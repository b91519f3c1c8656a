// Frame conversions, flange/tool conversions and Cartesian moves.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/fk.h"
#include "algo/matrix.h"

#include <gtest/gtest.h>

using namespace algo_test;

namespace {

// Rotations about one base axis, radians.
ka_matrix_t rotx(float a) { return ka_algo_euler2matrix({a, 0.0f, 0.0f}); }
ka_matrix_t roty(float a) { return ka_algo_euler2matrix({0.0f, a, 0.0f}); }
ka_matrix_t rotz(float a) { return ka_algo_euler2matrix({0.0f, 0.0f, a}); }

} // namespace

TEST(FrameConversion, WorkFrameToBaseUndoesBaseToWorkFrame) {
    // Identity: only the quaternion is recomputed from the Euler angles.
    ka_pose_t p{{0.3f, -0.2f, 0.5f}, {9, 9, 9, 9}, {0.1f, 0.2f, 0.3f}};
    const ka_pose_t same = ka_algo_base2workframe(unit_matrix(4), p);
    EXPECT_TRUE(poses_near(same, p, 0.0, 1e-6));
    const ka_quat_t q = euler_to_quat(p.euler);
    EXPECT_NEAR(same.quaternion.w, q.w, 1e-6f);
    EXPECT_NEAR(same.quaternion.z, q.z, 1e-6f);
    // A work frame 0.1 m above the base: its base-to-work matrix lowers z.
    ka_pose_t work{};
    work.position.z = 0.1f;
    const ka_matrix_t to_work =
        matrix_inv_coordinate_system(pose_euler_to_transformation_matrix(work));
    EXPECT_NEAR(ka_algo_base2workframe(to_work, p).position.z, 0.4f, 1e-6f);
    EXPECT_NEAR(ka_algo_workframe2base(to_work, p).position.z, 0.6f, 1e-6f);

    random_source rng(31);
    for (int i = 0; i < 500; ++i) {
        const ka_matrix_t m = pose_euler_to_transformation_matrix(rng.pose());
        p = rng.pose();
        const ka_pose_t there = ka_algo_base2workframe(m, p);
        // Stored as Euler angles: away from gimbal lock the trip measures the conversion only.
        if (std::fabs(std::cos(there.euler.ry)) < 0.25f) continue;
        EXPECT_TRUE(poses_near(ka_algo_workframe2base(m, there), p, 5e-6, 5e-6)) << i;
    }
}

class CartesianWithArm : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
        params.tool_frame.pose.position = {0.01f, -0.02f, 0.12f};
        params.tool_frame.pose.euler = {0.1f, -0.2f, 0.3f};
        params.work_frame.pose.position = {0.3f, 0.1f, 0.05f};
        params.work_frame.pose.euler = {0.0f, 0.05f, 0.8f};
        stand_in_register(&arm, params);
    }
    void TearDown() override { stand_in_clear(); }

    ka_robot_handle arm{1, 6, 0, 1};
    algo_arm_params params = stand_in_defaults(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_ZF);
    const float joints[7] = {15, -40, 60, 20, 70, -30, 0};
};

TEST_F(CartesianWithArm, PoseMoveInWorkToolAndOtherFrameModes) {
    const ka_pose_t p{{0.1f, 0.2f, 0.3f}, {1, 0, 0, 0}, {0, 0, k_pi_f / 2}}; // tool X along work Y
    const ka_matrix_t r = euler_to_matrix(p.euler);
    const struct {
        int mode;
        ka_pose_t from;
        float delta[6];
        ka_position_t at;
        ka_matrix_t rotation;
    } cases[] = {
        {0, p, {0.1f, 0, 0.05f, 0.3f, 0, 0}, {0.2f, 0.2f, 0.35f}, matrix_m(rotx(0.3f), r)},
        {1, p, {0.1f, 0, 0.05f, 0.3f, 0, 0}, {0.1f, 0.3f, 0.35f}, matrix_m(r, rotx(0.3f))},
        {2, p, {0.1f, 0, 0.05f, 0.3f, 0, 0}, {0, 0, 0}, r},
        // From the identity, X then Y then Z about fixed axes are Euler angles.
        {0, {}, {0, 0, 0, 0.3f, -0.5f, 1.1f}, {0, 0, 0}, euler_to_matrix({0.3f, -0.5f, 1.1f})},
    };
    for (const auto &c : cases) {
        const ka_pose_t out = ka_algo_pose_move(&arm, c.from, c.delta, c.mode);
        EXPECT_NEAR(out.position.x, c.at.x, 1e-6f) << "mode " << c.mode;
        EXPECT_NEAR(out.position.y, c.at.y, 1e-6f) << "mode " << c.mode;
        EXPECT_NEAR(out.position.z, c.at.z, 1e-6f) << "mode " << c.mode;
        EXPECT_TRUE(matrices_near(euler_to_matrix(out.euler), c.rotation, 1e-5))
            << "mode " << c.mode;
    }
}

TEST_F(CartesianWithArm, EndToToolIsForwardKinematicsAndToolToEndUndoesIt) {
    const ka_pose_t flange_base = Forward_Kinematics_e(&arm, joints);
    EXPECT_TRUE(poses_near(ka_algo_end2tool(&arm, flange_base),
                           ka_algo_forward_kinematics(&arm, joints), 5e-6, 5e-6));
    random_source rng(33);
    for (int i = 0; i < 100; ++i) {
        const ka_pose_t flange = rng.pose(0.8f);
        const ka_pose_t tool = ka_algo_end2tool(&arm, flange);
        if (std::fabs(std::cos(tool.euler.ry)) < 0.25f) continue; // as above
        EXPECT_TRUE(poses_near(ka_algo_tool2end(&arm, tool), flange, 5e-6, 5e-6)) << i;
    }
}

TEST_F(CartesianWithArm, CartesianToolMovesAlongToolAxes) {
    const ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    const ka_matrix_t r = euler_to_matrix(fk.euler);
    const ka_pose_t moved = ka_algo_cartesian_tool(&arm, joints, 0.01f, 0.02f, 0.05f);
    float expected[3];
    for (int i = 0; i < 3; ++i)
        expected[i] = 0.01f * r.data[i][0] + 0.02f * r.data[i][1] + 0.05f * r.data[i][2];
    const ka_pose_t shifted{
        {fk.position.x + expected[0], fk.position.y + expected[1], fk.position.z + expected[2]},
        {},
        fk.euler};
    EXPECT_TRUE(poses_near(moved, shifted, 2e-6, 2e-6));
}

TEST_F(CartesianWithArm, RotateMoveTurnsAboutTheChosenAxisThroughTheToolPoint) {
    const ka_pose_t fk = ka_algo_forward_kinematics(&arm, joints);
    ka_pose_t choose{};
    choose.euler = {0.0f, 0.0f, k_pi_f / 2}; // its X axis is the work Y axis
    const struct {
        int axis;
        float degrees;
        ka_matrix_t turn;
    } cases[] = {{0, 30.0f, roty(static_cast<float>(30 * k_deg))},
                 {1, 20.0f, rotx(static_cast<float>(-20 * k_deg))},
                 {2, -45.0f, rotz(static_cast<float>(-45 * k_deg))}};
    for (const auto &c : cases) {
        const ka_pose_t out = ka_algo_rotate_move(&arm, joints, c.axis, c.degrees, choose);
        const ka_matrix_t expected = matrix_m(c.turn, euler_to_matrix(fk.euler));
        EXPECT_TRUE(poses_near(out, {fk.position, {}, out.euler}, 1e-6, 0.0)) << c.axis;
        EXPECT_TRUE(matrices_near(euler_to_matrix(out.euler), expected, 3e-6)) << c.axis;
    }
}
