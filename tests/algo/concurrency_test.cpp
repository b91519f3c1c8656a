// Two threads computing for two different arms through the handle functions
// must each get their own arm's answer: the context is loaded and used under
// one lock. Run under ThreadSanitizer as well.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"
#include "ka_api.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

using namespace algo_test;

namespace {

struct arm_case {
    ka_robot_handle handle;
    algo_arm_params params;
    std::vector<std::array<float, 7>> joints;
    std::vector<ka_pose_t> expected_fk;
    std::vector<ka_pose_t> expected_move;
};

bool same_pose(const ka_pose_t &a, const ka_pose_t &b) {
    const float *x = &a.position.x;
    const float *y = &b.position.x;
    for (int i = 0; i < 10; ++i)
        if (x[i] != y[i]) return false;
    return true;
}

arm_case make_case(int id, int model, int sensor, unsigned seed) {
    arm_case c{};
    c.handle = {id, model == KA_ARM_MODEL_LUNE ? 7 : 6, model, sensor};
    c.params = stand_in_defaults(model, sensor);
    c.params.work_frame.pose.position = {0.05f * id, -0.1f, 0.02f};
    c.params.tool_frame.pose.position.z = 0.03f * id;
    c.params.install_deg[0] = 10.0f * id;
    random_source rng(seed);
    for (int i = 0; i < 64; ++i) {
        std::array<float, 7> q{};
        for (float &v : q)
            v = rng.uniform(-90.0f, 90.0f);
        c.joints.push_back(q);
    }
    return c;
}

} // namespace

TEST(Concurrency, TwoArmsTwoThreadsGetTheirOwnResults) {
    stand_in_clear();
    arm_case a = make_case(1, KA_ARM_MODEL_KIVO, 0, 51);
    arm_case b = make_case(2, KA_ARM_MODEL_LUNE, 2, 52);
    stand_in_register(&a.handle, a.params);
    stand_in_register(&b.handle, b.params);
    const float delta[6] = {0.01f, 0.0f, -0.02f, 0.0f, 0.1f, 0.0f};

    // Single-threaded reference results.
    for (arm_case *c : {&a, &b}) {
        for (const auto &q : c->joints) {
            c->expected_fk.push_back(ka_algo_forward_kinematics(&c->handle, q.data()));
            c->expected_move.push_back(ka_algo_cartesian_tool(&c->handle, q.data(), 0, 0, 0.05f));
        }
    }
    // The two arms really differ, so a mixed-up context would show.
    ASSERT_FALSE(
        same_pose(a.expected_fk[0], ka_algo_forward_kinematics(&b.handle, a.joints[0].data())));

    std::atomic<int> mismatches{0};
    auto worker = [&](arm_case &c) {
        for (int round = 0; round < 40; ++round) {
            for (size_t i = 0; i < c.joints.size(); ++i) {
                if (!same_pose(ka_algo_forward_kinematics(&c.handle, c.joints[i].data()),
                               c.expected_fk[i]))
                    ++mismatches;
                if (!same_pose(ka_algo_cartesian_tool(&c.handle, c.joints[i].data(), 0, 0, 0.05f),
                               c.expected_move[i]))
                    ++mismatches;
                ka_pose_t p = ka_algo_end2tool(&c.handle, c.expected_fk[i]);
                (void)ka_algo_pose_move(&c.handle, p, delta, 1);
            }
        }
    };
    std::thread ta(worker, std::ref(a));
    std::thread tb(worker, std::ref(b));
    ta.join();
    tb.join();
    EXPECT_EQ(mismatches.load(), 0);
    stand_in_clear();
}

TEST(Concurrency, SettersRacingWithComputationStayConsistent) {
    stand_in_clear();
    arm_case a = make_case(3, KA_ARM_MODEL_NEPAX, 1, 53);
    stand_in_register(&a.handle, a.params);
    for (const auto &q : a.joints)
        a.expected_fk.push_back(ka_algo_forward_kinematics(&a.handle, q.data()));

    std::atomic<bool> stop{false};
    std::atomic<int> mismatches{0};
    std::thread setter([&] {
        ka_frame_t frame{};
        float v = 0.0f;
        while (!stop.load()) {
            frame.pose.position.z = v;
            v += 0.001f;
            ka_algo_set_workframe(&frame);
            ka_algo_set_toolframe(&frame);
            ka_algo_set_angle(v, 0, 0);
            ka_algo_init_sys_data(KA_ARM_MODEL_QUIL, KA_FORCE_TYPE_B);
        }
    });
    for (int round = 0; round < 20; ++round)
        for (size_t i = 0; i < a.joints.size(); ++i)
            if (!same_pose(ka_algo_forward_kinematics(&a.handle, a.joints[i].data()),
                           a.expected_fk[i]))
                ++mismatches;
    stop = true;
    setter.join();
    EXPECT_EQ(mismatches.load(), 0);
    stand_in_clear();
}
