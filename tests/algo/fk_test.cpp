// Forward kinematics: every closed form against the plain DH product, and
// the composition with install, tool and work frames.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/fk.h"
#include "algo/models.h"
#include "algo/pose_math.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

using namespace algo_test;

namespace {

constexpr float k_tol = 2e-5f; // metres and rotation entries, single precision chain

void random_joints(random_source &rng, float q[7], float range) {
    for (int i = 0; i < 7; ++i)
        q[i] = rng.uniform(-range, range);
}

} // namespace

// ---------------------------------------------- closed form = DH product

class ClosedFormPerModel : public ::testing::TestWithParam<std::tuple<int, int>> {
  protected:
    int type() const { return std::get<0>(GetParam()); }
    const dh_table &dh() const { return model_params_for(type())->dh[std::get<1>(GetParam())]; }
    int dof() const { return model_params_for(type())->dof; }
};

TEST_P(ClosedFormPerModel, FullTransformEqualsDhProduct) {
    random_source rng(100 + type());
    for (int i = 0; i < 3000; ++i) {
        float q[7];
        random_joints(rng, q, 2 * k_pi);
        float closed[4][4], generic[4][4];
        fk_flange(type(), dh(), q, closed);
        fk_generic_dh(dh(), dof(), q, generic);
        ASSERT_TRUE(transforms_near(closed, generic, k_tol)) << "sample " << i;
    }
}

TEST_P(ClosedFormPerModel, RotationAndPositionVariantsAgreeWithFullTransform) {
    random_source rng(200 + type());
    for (int i = 0; i < 3000; ++i) {
        float q[7];
        random_joints(rng, q, 2 * k_pi);
        float full[4][4], rot[3][3], pos[3];
        fk_flange(type(), dh(), q, full);
        fk_flange_rotation(type(), dh(), q, rot);
        fk_flange_position(type(), dh(), q, pos);
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(rot[r][c], full[r][c], 1e-6f) << i;
            ASSERT_NEAR(pos[r], full[r][3], 1e-5f) << i;
        }
    }
}

TEST_P(ClosedFormPerModel, JointsPastTheDofAreIgnored) {
    float q[7] = {0.1f, -0.4f, 0.7f, 0.2f, -1.0f, 0.5f, 0.0f};
    float a[4][4], b[4][4];
    fk_flange(type(), dh(), q, a);
    q[6] = dof() == 6 ? 2.5f : q[6];
    fk_flange(type(), dh(), q, b);
    EXPECT_TRUE(transforms_near(a, b, 0.0f));
}

TEST_P(ClosedFormPerModel, ResultIsARigidTransform) {
    random_source rng(300 + type());
    float q[7];
    random_joints(rng, q, k_pi);
    float t[4][4];
    fk_flange(type(), dh(), q, t);
    ka_matrix_t r = zero_matrix(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.data[i][j] = t[i][j];
    EXPECT_TRUE(matrices_near(matrix_m(matrix_t(r), r), unit_matrix(3), 1e-5f));
    EXPECT_EQ(t[3][0], 0.0f);
    EXPECT_EQ(t[3][3], 1.0f);
}

INSTANTIATE_TEST_SUITE_P(AllModelsAllSensors, ClosedFormPerModel,
                         ::testing::Combine(::testing::Values(0, 1, 3, 4, 5, 6, 7, 8),
                                            ::testing::Values(0, 1, 2)),
                         [](const ::testing::TestParamInfo<std::tuple<int, int>> &info) {
                             return "type" + std::to_string(std::get<0>(info.param)) + "_sensor" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST(ClosedFormDispatch, TypesWithoutOwnFormUseKivo) {
    random_source rng(400);
    const dh_table &dh9 = model_params_for(9)->dh[0];
    for (int i = 0; i < 200; ++i) {
        float q[7];
        random_joints(rng, q, k_pi);
        float kivo[4][4], t9[4][4], t2[4][4], t42[4][4];
        forward_kinematics_e_kivo(dh9, q, kivo);
        fk_flange(9, dh9, q, t9);
        fk_flange(2, dh9, q, t2);
        fk_flange(42, dh9, q, t42);
        ASSERT_TRUE(transforms_near(t9, kivo, 0.0f));
        ASSERT_TRUE(transforms_near(t2, kivo, 0.0f));
        ASSERT_TRUE(transforms_near(t42, kivo, 0.0f));
    }
}

TEST(ClosedFormDispatch, NepaSeriesShareOneForm) {
    float q[7] = {0.3f, -0.2f, 0.9f, 0.1f, 0.4f, -1.3f, 0.0f};
    for (int t : {5, 6, 8}) {
        const dh_table &dh = model_params_for(t)->dh[0];
        float a[4][4], b[4][4];
        fk_flange(t, dh, q, a);
        forward_kinematics_e_nepa(dh, q, b);
        EXPECT_TRUE(transforms_near(a, b, 0.0f)) << t;
    }
}

TEST(ClosedFormGeometry, KivoStandsUprightAtZero) {
    const float q[7] = {};
    for (auto [sensor, height] :
         {std::pair{0, 0.8505f}, std::pair{1, 0.8585f}, std::pair{2, 0.879f}}) {
        float t[4][4];
        forward_kinematics_e_kivo(model_params_for(0)->dh[sensor], q, t);
        EXPECT_NEAR(t[0][3], 0.0f, 1e-6f);
        EXPECT_NEAR(t[1][3], 0.0f, 1e-6f);
        EXPECT_NEAR(t[2][3], height, 1e-6f) << sensor;
        EXPECT_NEAR(t[2][2], 1.0f, 1e-6f); // flange axis points up
    }
}

TEST(ClosedFormGeometry, BaseJointTurnsAboutVerticalAxis) {
    // Joint 1 rotates everything about the base Z axis for every model.
    for (int t : {0, 1, 3, 4, 5, 6, 7, 8}) {
        const dh_table &dh = model_params_for(t)->dh[0];
        float q[7] = {0.0f, 0.3f, -0.5f, 0.2f, 0.6f, 0.1f, 0.4f};
        float a[4][4], b[4][4];
        fk_flange(t, dh, q, a);
        q[0] = k_pi / 2;
        fk_flange(t, dh, q, b);
        EXPECT_NEAR(b[0][3], -a[1][3], 1e-5f) << t;
        EXPECT_NEAR(b[1][3], a[0][3], 1e-5f) << t;
        EXPECT_NEAR(b[2][3], a[2][3], 1e-5f) << t;
    }
}

// ------------------------------------------- exported forward kinematics

class ExportedForwardKinematics : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
        params = stand_in_defaults(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B);
        stand_in_register(&arm, params);
    }
    void TearDown() override { stand_in_clear(); }
    void update() { stand_in_register(&arm, params); }

    ka_robot_handle arm{1, 6, 0, 0};
    algo_arm_params params{};
};

TEST_F(ExportedForwardKinematics, KivoZeroPoseHeight) {
    const float q[7] = {};
    ka_pose_t p = ka_algo_forward_kinematics(&arm, q);
    EXPECT_NEAR(p.position.x, 0.0f, 1e-6f);
    EXPECT_NEAR(p.position.y, 0.0f, 1e-6f);
    EXPECT_NEAR(p.position.z, 0.8505f, 1e-6f);
    // Flange axis up; its X axis points back along base -X (half turn about Z).
    ka_matrix_t half_turn = zero_matrix(3, 3);
    half_turn.data[0][0] = -1.0f;
    half_turn.data[1][1] = -1.0f;
    half_turn.data[2][2] = 1.0f;
    EXPECT_TRUE(matrices_near(euler_to_matrix(p.euler), half_turn, 1e-6f));
}

TEST_F(ExportedForwardKinematics, SensorTwoRaisesTheFlange) {
    params.force_type = KA_FORCE_TYPE_6F;
    update();
    const float q[7] = {};
    EXPECT_NEAR(ka_algo_forward_kinematics(&arm, q).position.z, 0.879f, 1e-6f);
}

TEST_F(ExportedForwardKinematics, WorkFrameOffsetLowersZ) {
    const float q[7] = {10, -20, 30, 15, 40, -60, 0};
    ka_pose_t before = ka_algo_forward_kinematics(&arm, q);
    params.work_frame.pose.position.z = 0.1f;
    update();
    ka_pose_t after = ka_algo_forward_kinematics(&arm, q);
    EXPECT_NEAR(after.position.z, before.position.z - 0.1f, 1e-6f);
    EXPECT_NEAR(after.position.x, before.position.x, 1e-6f);
    EXPECT_TRUE(poses_near(after, {after.position, {}, before.euler}, 1e-6f, 1e-6f));
}

TEST_F(ExportedForwardKinematics, RotatedWorkFrameExpressesPoseInIt) {
    const float q[7] = {30, 20, -10, 40, 50, 60, 0};
    ka_pose_t in_base = ka_algo_forward_kinematics(&arm, q);
    params.work_frame.pose.euler.rz = k_pi / 2; // work X along base Y
    update();
    ka_pose_t p = ka_algo_forward_kinematics(&arm, q);
    // Seen from the work frame everything turns by -90 degrees about Z.
    EXPECT_NEAR(p.position.x, in_base.position.y, 1e-6f);
    EXPECT_NEAR(p.position.y, -in_base.position.x, 1e-6f);
    EXPECT_NEAR(p.position.z, in_base.position.z, 1e-6f);
    EXPECT_TRUE(matrices_near(euler_to_matrix(p.euler),
                              matrix_m(rotz(-k_pi / 2), euler_to_matrix(in_base.euler)), 2e-6f));
}

TEST_F(ExportedForwardKinematics, ToolFrameExtendsAlongFlangeAxis) {
    const float q[7] = {20, 30, -40, 10, 50, 60, 0};
    ka_pose_t flange = ka_algo_forward_kinematics(&arm, q);
    params.tool_frame.pose.position.z = 0.1f;
    update();
    ka_pose_t tool = ka_algo_forward_kinematics(&arm, q);
    ka_matrix_t r = euler_to_matrix(flange.euler);
    EXPECT_NEAR(tool.position.x, flange.position.x + 0.1f * r.data[0][2], 1e-6f);
    EXPECT_NEAR(tool.position.y, flange.position.y + 0.1f * r.data[1][2], 1e-6f);
    EXPECT_NEAR(tool.position.z, flange.position.z + 0.1f * r.data[2][2], 1e-6f);
}

TEST_F(ExportedForwardKinematics, HangingInstallTurnsTheArmUpsideDown) {
    params.install_deg[0] = 180.0f;
    update();
    const float q[7] = {};
    ka_pose_t p = ka_algo_forward_kinematics(&arm, q);
    EXPECT_NEAR(p.position.z, -0.8505f, 1e-5f);
}

TEST_F(ExportedForwardKinematics, JointsAreDegrees) {
    const float deg[7] = {90, 0, 0, 0, 0, 0, 0};
    const float q[7] = {};
    ka_pose_t turned = ka_algo_forward_kinematics(&arm, deg);
    ka_pose_t home = ka_algo_forward_kinematics(&arm, q);
    // 90 degrees at the base joint turns the whole arm a quarter turn about Z.
    EXPECT_TRUE(matrices_near(euler_to_matrix(turned.euler),
                              matrix_m(rotz(k_pi / 2), euler_to_matrix(home.euler)), 2e-6f));
    EXPECT_NEAR(turned.position.z, home.position.z, 1e-6f);
}

TEST_F(ExportedForwardKinematics, SeventhJointIgnoredForSixAxisArm) {
    float q[7] = {10, 20, 30, 40, 50, 60, 0};
    ka_pose_t a = ka_algo_forward_kinematics(&arm, q);
    q[6] = 123.0f;
    ka_pose_t b = ka_algo_forward_kinematics(&arm, q);
    EXPECT_TRUE(poses_near(a, b, 0.0f, 0.0f));
}

TEST_F(ExportedForwardKinematics, NullJointsGiveZeroPose) {
    ka_pose_t p = ka_algo_forward_kinematics(&arm, nullptr);
    const float *raw = &p.position.x;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(raw[i], 0.0f) << i;
    // The context was still loaded from the arm.
    EXPECT_EQ(libalgo_get_robot_type(), KA_ARM_MODEL_KIVO);
}

TEST_F(ExportedForwardKinematics, ResultMatchesDhProductThroughFrames) {
    params.model = KA_ARM_MODEL_QUIL;
    params.install_deg[1] = 30.0f;
    params.tool_frame.pose.position = {0.01f, 0.02f, 0.15f};
    params.tool_frame.pose.euler = {0.1f, 0.2f, 0.3f};
    params.work_frame.pose.position = {0.3f, -0.1f, 0.05f};
    params.work_frame.pose.euler = {0.0f, 0.0f, 0.7f};
    update();
    const float deg[7] = {10, -35, 20, 80, -15, 45, 100};
    ka_pose_t p = ka_algo_forward_kinematics(&arm, deg);

    float q[7], flange[4][4];
    for (int i = 0; i < 7; ++i)
        q[i] = deg[i] * 0.017453292519943295f;
    fk_generic_dh(model_params_for(KA_ARM_MODEL_QUIL)->dh[0], 7, q, flange);
    ka_matrix_t f = zero_matrix(4, 4);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            f.data[r][c] = flange[r][c];
    ka_pose_t install{};
    install.euler = {0.0f, 30.0f * 0.017453292519943295f, 0.0f};
    ka_matrix_t world = matrix_m(matrix_m(pose_euler_to_transformation_matrix(install), f),
                                 pose_euler_to_transformation_matrix(params.tool_frame.pose));
    ka_matrix_t in_work =
        matrix_m(matrix_inv(pose_euler_to_transformation_matrix(params.work_frame.pose)), world);
    EXPECT_TRUE(poses_near(p, transformation_matrix_to_pose(in_work), 2e-5f, 2e-5f));
}

// --------------------------------------------------- context-based forms

class ContextForwardKinematics : public ::testing::Test {
  protected:
    void SetUp() override {
        libalgo_set_robot_and_sensor_type(KA_ARM_MODEL_NEPAX, 1);
        const float tool[6] = {0.02f, 0.0f, 0.12f, 0.0f, 0.3f, 0.0f};
        const float work[6] = {0.1f, 0.2f, 0.0f, 0.0f, 0.0f, -0.4f};
        const float install[3] = {0.2f, 0.0f, 0.1f};
        libalgo_set_tool_cs_params(tool);
        libalgo_set_work_cs_params(work);
        libalgo_set_robot_install_angle(install);
    }
    const float q[7] = {0.3f, -0.6f, 1.1f, 0.2f, -0.9f, 2.0f, 0.0f};
};

TEST_F(ContextForwardKinematics, RotationAndPositionFormsMatchThePose) {
    context_scope scope;
    ka_pose_t pose = forward_kinematics(q);
    ka_position_t p = forward_kinematics_pos(q);
    EXPECT_NEAR(p.x, pose.position.x, 1e-6f);
    EXPECT_NEAR(p.y, pose.position.y, 1e-6f);
    EXPECT_NEAR(p.z, pose.position.z, 1e-6f);
    EXPECT_TRUE(matrices_near(forward_kinematics_rotate(q), euler_to_matrix(pose.euler), 2e-6f));
}

TEST_F(ContextForwardKinematics, UnityFormLeavesOutOnlyTheWorkFrame) {
    context_scope scope;
    ka_pose_t world = forward_kinematics_for_unity(q);
    ka_pose_t in_work = forward_kinematics(q);
    ka_pose_t expected = ka_algo_base2workframe(libalgo_get_work_cs_to_base_matrix(), world);
    EXPECT_TRUE(poses_near(in_work, expected, 1e-6f, 2e-6f));
}

TEST_F(ContextForwardKinematics, WorldToFlangeLeavesOutTheTool) {
    context_scope scope;
    ka_matrix_t wf = forward_kinematics_world_to_flange(q);
    ka_matrix_t with_tool = matrix_m(wf, libalgo_get_tool_cs_matrix());
    ka_pose_t expected = forward_kinematics_for_unity(q);
    EXPECT_TRUE(poses_near(transformation_matrix_to_pose(with_tool), expected, 1e-6f, 2e-6f));
    ka_matrix_t flange;
    forward_kinematics_e(&flange, q);
    EXPECT_TRUE(
        matrices_near(matrix_m(libalgo_get_robot_install_angle_matrix(), flange), wf, 1e-6f));
    EXPECT_TRUE(matrices_near(forward_kinematics_rotate_flange(q), matrix_T2R(flange), 1e-6f));
}

TEST_F(ContextForwardKinematics, CalibrationAddsTheCompensation) {
    context_scope scope;
    dh_table delta{};
    libalgo_set_dh_compensation_value(&delta);
    ka_position_t plain = forward_kinematics_pos(q);
    ka_position_t same = forward_kinematics_pos_calibration(q);
    EXPECT_NEAR(same.x, plain.x, 2e-6f);
    EXPECT_NEAR(same.z, plain.z, 2e-6f);
    // A longer first link lifts everything along the base axis, which the
    // install angle tilts into the mounting frame.
    delta.d[0] = 0.01f;
    libalgo_set_dh_compensation_value(&delta);
    ka_position_t lifted = forward_kinematics_pos_calibration(q);
    ka_matrix_t axis =
        matrix_m(libalgo_get_work_cs_to_base_matrix(), libalgo_get_robot_install_angle_matrix());
    EXPECT_NEAR(lifted.x - plain.x, 0.01f * axis.data[0][2], 2e-6f);
    EXPECT_NEAR(lifted.z - plain.z, 0.01f * axis.data[2][2], 2e-6f);
}

TEST_F(ContextForwardKinematics, FlangePoseIgnoresToolAndWork) {
    stand_in_clear();
    ka_robot_handle arm{2, 6, KA_ARM_MODEL_NEPAX, 1};
    algo_arm_params p = stand_in_defaults(KA_ARM_MODEL_NEPAX, 1);
    p.tool_frame.pose.position.z = 0.3f;
    p.work_frame.pose.position.x = 0.5f;
    stand_in_register(&arm, p);
    const float deg[7] = {20, -30, 40, 10, -20, 30, 0};
    ka_pose_t flange = Forward_Kinematics_e(&arm, deg);
    float rad[7] = {};
    for (int i = 0; i < 6; ++i)
        rad[i] = deg[i] * 0.017453292519943295f;
    float t[4][4];
    fk_generic_dh(model_params_for(KA_ARM_MODEL_NEPAX)->dh[1], 6, rad, t);
    EXPECT_NEAR(flange.position.x, t[0][3], 2e-5f);
    EXPECT_NEAR(flange.position.z, t[2][3], 2e-5f);
    ka_pose_t none = Forward_Kinematics_e(&arm, nullptr);
    EXPECT_EQ(none.position.z, 0.0f);
    stand_in_clear();
}
