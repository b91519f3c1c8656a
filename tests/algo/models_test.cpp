// The model table: product data where it is given, and consistency of the
// designed entries.
#include "algo/models.h"

#include "ka_api.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr float k_half_pi = 1.57079632679489662f;
constexpr int k_types[] = {0, 1, 3, 4, 5, 6, 7, 8, 9};

} // namespace

TEST(ModelTable, TypesWithoutParameters) {
    EXPECT_EQ(model_params_for(2), nullptr);
    EXPECT_EQ(model_params_for(10), nullptr);
    EXPECT_EQ(model_params_for(-1), nullptr);
}

TEST(ModelTable, DegreesOfFreedomPerType) {
    for (int t : {0, 3, 4, 5, 6, 8})
        EXPECT_EQ(model_params_for(t)->dof, 6) << t;
    for (int t : {1, 7, 9})
        EXPECT_EQ(model_params_for(t)->dof, 7) << t;
}

TEST(ModelTable, KivoGeometryPerSensor) {
    const model_params *m = model_params_for(KA_ARM_MODEL_KIVO);
    ASSERT_NE(m, nullptr);
    EXPECT_FALSE(m->nominal);
    const float flange[3] = {0.144f, 0.152f, 0.1725f};
    for (int s = 0; s < 3; ++s) {
        const dh_table &dh = m->dh[s];
        EXPECT_FLOAT_EQ(dh.d[0], 0.2405f);
        EXPECT_FLOAT_EQ(dh.a[2], 0.256f);
        EXPECT_FLOAT_EQ(dh.d[3], 0.21f);
        EXPECT_FLOAT_EQ(dh.d[5], flange[s]);
        EXPECT_NEAR(dh.alpha[1], k_half_pi, 1e-7f);
        EXPECT_NEAR(dh.alpha[3], k_half_pi, 1e-7f);
        EXPECT_NEAR(dh.alpha[4], -k_half_pi, 1e-7f);
        EXPECT_NEAR(dh.alpha[5], k_half_pi, 1e-7f);
        EXPECT_NEAR(dh.offset[1], k_half_pi, 1e-7f);
        EXPECT_NEAR(dh.offset[2], k_half_pi, 1e-7f);
        EXPECT_EQ(dh.offset[0], 0.0f);
    }
}

TEST(ModelTable, KivoLimitsSpeedsAndTcp) {
    const model_params *m = model_params_for(KA_ARM_MODEL_KIVO);
    const float max[6] = {178, 130, 135, 178, 128, 360};
    const float speed[6] = {180, 180, 225, 225, 225, 225};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(m->max_pos_deg[i], max[i]);
        EXPECT_EQ(m->min_pos_deg[i], -max[i]);
        EXPECT_EQ(m->max_speed_deg[i], speed[i]);
        EXPECT_EQ(m->max_acc_deg[i], 1000.0f);
        EXPECT_EQ(m->direction[i], 1.0f);
    }
    EXPECT_FLOAT_EQ(m->tcp_config[0], 0.25f);
    EXPECT_FLOAT_EQ(m->tcp_config[1], 1.6f);
    EXPECT_FLOAT_EQ(m->tcp_config[2], 0.6f);
    EXPECT_FLOAT_EQ(m->tcp_config[3], 4.0f);
}

TEST(ModelTable, MaroLimitsAndDirections) {
    const float max[6] = {178, 178, 145, 178, 178, 360};
    const float min[6] = {-178, -178, -178, -178, -178, -360};
    const float dir[6] = {1, -1, 1, 1, 1, 1};
    for (int t : {3, 4}) {
        const model_params *m = model_params_for(t);
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(m->max_pos_deg[i], max[i]) << t << ":" << i;
            EXPECT_EQ(m->min_pos_deg[i], min[i]) << t << ":" << i;
            EXPECT_EQ(m->direction[i], dir[i]) << t << ":" << i;
        }
    }
}

TEST(ModelTable, NepaxAndNepatqLimitsAndDirections) {
    const float max[6] = {180, 180, 145, 140, 180, 180};
    const float min[6] = {-180, -180, -160, -140, -180, -180};
    const float dir[6] = {1, -1, 1, -1, 1, 1};
    for (int t : {5, 8}) {
        const model_params *m = model_params_for(t);
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(m->max_pos_deg[i], max[i]) << t << ":" << i;
            EXPECT_EQ(m->min_pos_deg[i], min[i]) << t << ":" << i;
            EXPECT_EQ(m->direction[i], dir[i]) << t << ":" << i;
        }
    }
}

TEST(ModelTable, SensorVariantsDifferOnlyInFlangeDistance) {
    for (int t : k_types) {
        const model_params *m = model_params_for(t);
        int last = m->dof - 1;
        for (int s = 1; s < 3; ++s) {
            for (int i = 0; i < 8; ++i) {
                EXPECT_EQ(m->dh[s].a[i], m->dh[0].a[i]) << t;
                EXPECT_EQ(m->dh[s].alpha[i], m->dh[0].alpha[i]) << t;
                EXPECT_EQ(m->dh[s].offset[i], m->dh[0].offset[i]) << t;
                if (i != last) {
                    EXPECT_EQ(m->dh[s].d[i], m->dh[0].d[i]) << t;
                }
            }
        }
        EXPECT_NEAR(m->dh[1].d[last] - m->dh[0].d[last], 0.008f, 1e-6f) << t;
        EXPECT_NEAR(m->dh[2].d[last] - m->dh[0].d[last], 0.0285f, 1e-6f) << t;
    }
}

TEST(ModelTable, EveryEntryIsConsistent) {
    for (int t : k_types) {
        const model_params *m = model_params_for(t);
        ASSERT_NE(m, nullptr) << t;
        EXPECT_EQ(m->type, t);
        EXPECT_NE(m->name, nullptr);
        for (int i = 0; i < 7; ++i) {
            if (i < m->dof) {
                EXPECT_LT(m->min_pos_deg[i], m->max_pos_deg[i]) << t << ":" << i;
                EXPECT_GT(m->max_speed_deg[i], 0.0f) << t << ":" << i;
                EXPECT_EQ(m->max_acc_deg[i], 1000.0f) << t << ":" << i;
                EXPECT_EQ(std::fabs(m->direction[i]), 1.0f) << t << ":" << i;
            } else {
                // Entries past the DOF stay empty.
                EXPECT_EQ(m->max_pos_deg[i], 0.0f) << t;
                EXPECT_EQ(m->dh[0].d[i], 0.0f) << t;
            }
            for (int k = 0; k < 8; ++k) {
                float twist = std::fabs(m->dh[0].alpha[k]);
                EXPECT_TRUE(twist == 0.0f || std::fabs(twist - k_half_pi) < 1e-6f) << t << ":" << k;
            }
        }
        for (float c : m->tcp_config)
            EXPECT_GT(c, 0.0f) << t;
    }
}

TEST(ModelTable, LinkDynamicsArePhysical) {
    for (int t : k_types) {
        const model_params *m = model_params_for(t);
        for (int s = 0; s < 3; ++s) {
            for (int i = 0; i < 7; ++i) {
                const float *v = m->dynamics[s][i].v;
                if (i >= m->dof) {
                    for (int k = 0; k < 10; ++k)
                        EXPECT_EQ(v[k], 0.0f) << t;
                    continue;
                }
                float ixx = v[0], iyy = v[3], izz = v[5], mass = v[9];
                EXPECT_GT(mass, 0.0f) << t << ":" << s << ":" << i;
                EXPECT_GT(ixx, 0.0f);
                EXPECT_GT(iyy, 0.0f);
                EXPECT_GT(izz, 0.0f);
                // Principal moments obey the triangle inequality.
                EXPECT_GE(ixx + iyy, izz * 0.999f);
                EXPECT_GE(iyy + izz, ixx * 0.999f);
                EXPECT_GE(izz + ixx, iyy * 0.999f);
            }
            // A heavier sensor variant never lightens the last link.
            if (s > 0) {
                EXPECT_GE(m->dynamics[s][m->dof - 1].v[9], m->dynamics[s - 1][m->dof - 1].v[9]);
            }
        }
    }
}
