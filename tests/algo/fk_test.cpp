// Forward kinematics: every closed form against the plain DH product, and
// the exported form through install, tool and work frames.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "algo/fk.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace algo_test;

namespace {

ik_frame frame_of(const float T[4][4]) {
    ik_frame F;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            F.R[r][c] = T[r][c];
        F.p[r] = T[r][3];
    }
    return F;
}

} // namespace

class ClosedForm : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(ClosedForm, EqualsTheDhProductAsDoItsRotationAndPositionForms) {
    const auto [type, sensor] = GetParam();
    const model_under_test m = load_model(type, sensor);
    random_source rng(100 + 3 * type + sensor);
    for (int i = 0; i < 3000; ++i) {
        float q[7];
        double qd[7];
        for (int k = 0; k < 7; ++k)
            qd[k] = q[k] = rng.uf(-2 * k_pi_f, 2 * k_pi_f);
        float closed[4][4], generic[4][4], rot[3][3], pos[3];
        fk_flange(type, m.dh, q, closed);
        fk_generic_dh(m.dh, m.dof, q, generic);
        fk_flange_rotation(type, m.dh, q, rot);
        fk_flange_position(type, m.dh, q, pos);
        const ik_frame expected = dh_product(m.dh, m.dof, qd);
        ASSERT_TRUE(frames_near(frame_of(closed), expected, 2e-5, 2e-5)) << "sample " << i;
        ASSERT_TRUE(frames_near(frame_of(generic), expected, 2e-5, 2e-5)) << "sample " << i;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(rot[r][c], closed[r][c], 1e-6f) << "sample " << i;
            ASSERT_NEAR(pos[r], closed[r][3], 1e-5f) << "sample " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllModelsAllSensors, ClosedForm,
                         ::testing::Combine(::testing::Values(0, 1, 3, 4, 5, 6, 7, 8),
                                            ::testing::Values(0, 1, 2)),
                         [](const ::testing::TestParamInfo<std::tuple<int, int>> &info) {
                             return test_name(std::get<0>(info.param)) + "_sensor" +
                                    std::to_string(std::get<1>(info.param));
                         });

class ExportedForwardKinematics : public ::testing::Test {
  protected:
    void SetUp() override {
        stand_in_clear();
        libalgo_init();
        stand_in_register(&arm, params);
    }
    void TearDown() override { stand_in_clear(); }
    ka_pose_t fk(const float deg[7]) {
        stand_in_register(&arm, params);
        return ka_algo_forward_kinematics(&arm, deg);
    }

    ka_robot_handle arm{1, 6, 0, 0};
    algo_arm_params params = stand_in_defaults(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B);
};

TEST_F(ExportedForwardKinematics, KivoStandsUprightAtZeroAndAWorkFrameOffsetLowersZ) {
    const float zero[7] = {};
    const ka_pose_t home = fk(zero);
    EXPECT_NEAR(home.position.x, 0.0f, 1e-6f);
    EXPECT_NEAR(home.position.y, 0.0f, 1e-6f);
    EXPECT_NEAR(home.position.z, 0.8505f, 1e-6f);
    params.force_type = KA_FORCE_TYPE_6F;
    EXPECT_NEAR(fk(zero).position.z, 0.879f, 1e-6f);

    const float q[7] = {10, -20, 30, 15, 40, -60, 0};
    const ka_pose_t before = fk(q);
    params.work_frame.pose.position.z = 0.1f;
    const ka_pose_t after = fk(q);
    const ka_pose_t lowered{
        {before.position.x, before.position.y, before.position.z - 0.1f}, {}, before.euler};
    EXPECT_TRUE(poses_near(after, lowered, 1e-6, 1e-6));
}

TEST_F(ExportedForwardKinematics, IsTheDhProductThroughInstallToolAndWorkFrames) {
    for (int type : {0, 1, 3, 4, 5, 6, 7, 8}) {
        const model_under_test m = load_model(type, type % 3);
        const arm_frames f = sample_frames(type + 1);
        params = stand_in_defaults(type, type % 3);
        params.tool_frame = f.tool;
        params.work_frame = f.work;
        std::copy(f.install_deg, f.install_deg + 3, params.install_deg);
        random_source rng(200 + type);
        for (int i = 0; i < 200; ++i) {
            double q[7];
            float deg[7];
            rng.joints(m, q);
            for (int k = 0; k < 7; ++k)
                deg[k] = static_cast<float>(q[k] / k_deg);
            if (m.dof == 6) deg[6] = 123.0f; // not a joint of a six-axis arm
            ASSERT_TRUE(frames_near(frame_of(fk(deg)), f.tool_in_work(m, q), 2e-5, 2e-5))
                << m.name << " sample " << i;
        }
    }
}
