// Two threads computing for two different arms through the handle functions,
// while a third changes the process-wide context, must each get the answers
// a serial run gives: each call loads its arm's context and computes under
// one lock. Run under ThreadSanitizer as well.
#include "tests/algo/algo_test_support.h"
#include "tests/algo/registry_stand_in.h"

#include "algo/context.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

using namespace algo_test;

namespace {

struct answers {
    std::vector<ka_pose_t> fk, moved;
    std::vector<std::array<float, 7>> ik;
    std::vector<int> ik_code;
    bool operator==(const answers &o) const {
        return ik_code == o.ik_code &&
               std::memcmp(fk.data(), o.fk.data(), fk.size() * sizeof(ka_pose_t)) == 0 &&
               std::memcmp(moved.data(), o.moved.data(), moved.size() * sizeof(ka_pose_t)) == 0 &&
               std::memcmp(ik.data(), o.ik.data(), ik.size() * sizeof(ik[0])) == 0;
    }
};

struct arm {
    ka_robot_handle handle;
    model_under_test model;
    std::vector<std::array<float, 7>> joints; // degrees
    std::vector<ka_inverse_kinematics_params_t> targets;

    answers compute() {
        answers a;
        for (size_t i = 0; i < joints.size(); ++i) {
            a.fk.push_back(ka_algo_forward_kinematics(&handle, joints[i].data()));
            a.moved.push_back(ka_algo_cartesian_tool(&handle, joints[i].data(), 0, 0, 0.05f));
            std::array<float, 7> out{};
            a.ik_code.push_back(ka_algo_inverse_kinematics(&handle, targets[i], out.data()));
            a.ik.push_back(out);
        }
        return a;
    }
};

arm make_arm(int id, int model, int sensor) {
    arm a{
        {id, model == KA_ARM_MODEL_LUNE ? 7 : 6, model, sensor}, load_model(model, sensor), {}, {}};
    const arm_frames f = sample_frames(id);
    algo_arm_params params = stand_in_defaults(model, sensor);
    params.tool_frame = f.tool;
    params.work_frame = f.work;
    std::copy(f.install_deg, f.install_deg + 3, params.install_deg);
    stand_in_register(&a.handle, params);
    random_source rng(50u + id);
    for (int i = 0; i < 60; ++i) {
        double q[7];
        rng.joints(a.model, q);
        std::array<float, 7> deg{};
        ka_inverse_kinematics_params_t target{};
        for (int k = 0; k < a.model.dof; ++k) {
            deg[k] = static_cast<float>(q[k] / k_deg);
            target.q_in[k] = 0.98f * deg[k];
        }
        target.q_pose = pose_of(f.tool_in_work(a.model, q));
        target.q_flag = 1;
        a.joints.push_back(deg);
        a.targets.push_back(target);
    }
    return a;
}

} // namespace

TEST(Concurrency, TwoArmsInTwoThreadsGetTheSerialAnswers) {
    stand_in_clear();
    arm arms[2] = {make_arm(1, KA_ARM_MODEL_KIVO, 0), make_arm(2, KA_ARM_MODEL_LUNE, 2)};
    const answers serial[2] = {arms[0].compute(), arms[1].compute()};
    for (const answers &s : serial) // the targets are reachable
        for (int code : s.ik_code)
            ASSERT_EQ(code, 0);
    // The arms really differ, so a mixed-up context would show.
    ASSERT_NE(std::memcmp(&serial[0].fk[0], &serial[1].fk[0], sizeof(ka_pose_t)), 0);

    std::atomic<bool> stop{false};
    std::atomic<int> mismatches{0};
    std::thread setter([&] {
        ka_frame_t frame{};
        for (float v = 0.0f; !stop.load(); v += 0.001f) {
            frame.pose.position.z = v;
            ka_algo_set_workframe(&frame);
            ka_algo_set_toolframe(&frame);
            ka_algo_set_angle(v, 0, 0);
            ka_algo_init_sys_data(KA_ARM_MODEL_QUIL, KA_FORCE_TYPE_B);
        }
    });
    auto worker = [&](int i) {
        for (int round = 0; round < 3; ++round)
            if (!(arms[i].compute() == serial[i])) ++mismatches;
    };
    std::thread t0(worker, 0), t1(worker, 1);
    t0.join();
    t1.join();
    stop = true;
    setter.join();
    EXPECT_EQ(mismatches.load(), 0);
    stand_in_clear();
}
