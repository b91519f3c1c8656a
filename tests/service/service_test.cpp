// KA_Service: instances share the library's arms with each other and the flat
// API; a member sends and returns what its flat function does (record overloads
// included); ka_destory through an instance releases every arm.
#include "ka_service.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

template <typename T> bool same_bytes(const T &a, const T &b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

} // namespace

TEST(service, instances_share_the_arms_and_destroy_through_one_releases_every_arm) {
    arm_session s(KA_THREAD_MODE_DUAL, "LUNE-B", 7); // arm 1 opened through the flat API
    s.peer.on("get_joint_degree",
              {reply(R"({"command":"joint_degree","joint":[-2500,0,0,0,0,0,90000]})")});
    KA_Service creator, user;
    std::vector<ka_robot_handle *> arms{s.arm};
    for (int id = 2; id <= KA_MAX_ARMS; ++id) {
        arms.push_back(creator.ka_create_robot_arm("127.0.0.1", s.peer.port()));
        ASSERT_NE(arms.back(), nullptr);
        ASSERT_EQ(arms.back()->id, id);
    }
    ASSERT_EQ(user.ka_create_robot_arm("127.0.0.1", s.peer.port()), nullptr) << "registry full";

    ka_robot_handle *arm = arms.back();
    ka_robot_info_t info{};
    ASSERT_EQ(user.ka_get_robot_info(arm, &info), 0);
    EXPECT_EQ(std::vector<int>({info.arm_dof, info.arm_model}),
              std::vector<int>({7, KA_ARM_MODEL_LUNE}));
    float via_user[7] = {}, via_flat[7] = {}, want[7] = {-2.5f, 0, 0, 0, 0, 0, 90};
    EXPECT_EQ(user.ka_get_joint_degree(arm, via_user), 0);
    EXPECT_EQ(ka_get_joint_degree(arm, via_flat), 0);
    EXPECT_TRUE(same_bytes(via_user, want) && same_bytes(via_flat, want));
    // Closed through the other instance: gone for everyone.
    EXPECT_EQ(user.ka_delete_robot_arm(arm), 0);
    EXPECT_EQ(arm->id, 0);
    EXPECT_EQ(creator.ka_get_robot_info(arm, &info), -1);
    EXPECT_EQ(ka_delete_robot_arm(arm), -1);
    EXPECT_TRUE(s.peer.wait_for_disconnect(KA_MAX_ARMS - 1, 2s));

    // A fresh instance closes the others' arms; only their pointer values are used after.
    EXPECT_EQ(KA_Service().ka_destory(), 0);
    for (int i = 0; i < KA_MAX_ARMS - 1; ++i) {
        EXPECT_TRUE(s.peer.wait_for_disconnect(i, 2s)) << i;
        EXPECT_EQ(ka_delete_robot_arm(arms[i]), -1) << i;
    }
    ASSERT_EQ(user.ka_init(KA_THREAD_MODE_DUAL), 0);
    ka_robot_handle *again = user.ka_create_robot_arm("127.0.0.1", s.peer.port());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->id, 1) << "every slot is free again";
}

TEST(service, members_send_the_lines_and_return_the_results_of_their_flat_functions) {
    arm_session s(KA_THREAD_MODE_DUAL, "KIVO-6F", 6);
    KA_Service svc;
    const float joints[7] = {12.3456f, -0.7f, 0, 90, -179.9999f, 0.0004f, 55};
    float degrees[7] = {};
    // The integer and record forms of the force scale differently (12.7 N: whole
    // newtons x 10 gives 120, tenths give 127), showing which function an overload reached.
    const ka_multi_drag_teach_t drag{{1, 0, 1, 0, 0, 1}, 1, 1};
    const ka_force_position_t force{1, 2, {0, 1, 2, 3, 4, 5}, {12.7f, -0.15f}, {0.5f}};
    // clang-format off
    struct row { std::string name; std::function<int(ka_robot_handle *)> member, flat; std::string request, reply; int result; };
    const row rows[] = {
        {"set", [&](auto h) { return svc.ka_set_arm_power(h, 1); }, [](auto h) { return ka_set_arm_power(h, 1); }, line("set_arm_power", R"("arm_power":1)"), line("set_arm_power", R"("arm_power":true)"), 0},
        {"refused", [&](auto h) { return svc.ka_set_arm_power(h, 0); }, [](auto h) { return ka_set_arm_power(h, 0); }, line("set_arm_power", R"("arm_power":0)"), line("set_arm_power", R"("arm_power":false)"), 1},
        {"timed out", [&](auto h) { return svc.ka_get_joint_degree(h, degrees); }, [&](auto h) { return ka_get_joint_degree(h, degrees); }, R"({"command":"get_joint_degree"})", "", -2},
        {"unparsable", [&](auto h) { return svc.ka_get_joint_degree(h, degrees); }, [&](auto h) { return ka_get_joint_degree(h, degrees); }, R"({"command":"get_joint_degree"})", line("joint_degree", R"("joint":[1,2])"), -3},
        {"movej", [&](auto h) { return svc.ka_movej(h, joints, 20, 0, 0, 0); }, [&](auto h) { return ka_movej(h, joints, 20, 0, 0, 0); }, line("movej", R"("v":20,"joint":[12345,-699,0,90000,-179999,0],"trajectory_connect":0,"r":0)"), line("movej", R"("receive_state":true)"), 0},
        {"multi drag, integers", [&](auto h) { return svc.ka_start_multi_drag_teach(h, 2, 1); }, [](auto h) { return ka_start_multi_drag_teach(h, 2, 1); }, line("start_multi_drag_teach", R"("mode":2,"singular_wall":1)"), line("start_multi_drag_teach", R"("set_state":true)"), 0},
        {"multi drag, record", [&](auto h) { return svc.ka_start_multi_drag_teach(h, drag); }, [&](auto h) { return ka_start_multi_drag_teach_new(h, &drag); }, line("start_multi_drag_teach", R"("frame":1,"singular_wall":1,"free_axes":[1,0,1,0,0,1])"), line("start_multi_drag_teach", R"("set_state":false)"), 1},
        {"force position, integers", [&](auto h) { return svc.ka_set_force_position(h, 0, 0, 2, 12.7f); }, [](auto h) { return ka_set_force_position(h, 0, 0, 2, 12.7f); }, line("set_force_position", R"("sensor":0,"mode":0,"direction":2,"N":120)"), line("set_force_position", R"("set_state":true)"), 0},
        {"force position, record", [&](auto h) { return svc.ka_set_force_position(h, force); }, [&](auto h) { return ka_set_force_position_new(h, &force); }, line("set_force_position", R"("mode":2,"sensor":1,"desired_force":[127,-1,0,0,0,0],"control_mode":[0,1,2,3,4,5],"limit_vel":[500,0,0,0,0,0])"), line("set_force_position", R"("set_state":true)"), 0},
    };
    // clang-format on
    for (const auto &r : rows) {
        expect_wire(s, {r.name + " (member)", r.member, r.request, r.reply, r.result});
        expect_wire(s, {r.name + " (flat)", r.flat, r.request, r.reply, r.result});
    }
    s.peer.clear_lines();
    EXPECT_EQ(svc.ka_get_joint_degree(s.arm, nullptr), -1);
    EXPECT_EQ(svc.ka_movej(s.arm, nullptr, 20, 0, 0, 0), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "a null pointer sends nothing";
}

TEST(service, kinematics_members_compute_what_the_flat_functions_compute) {
    KA_Service svc;
    ASSERT_EQ(svc.ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B),
              ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B));
    EXPECT_STREQ(svc.ka_algo_version(), ka_algo_version());
    const float joints[7] = {10, -20, 30, -40, 50, -60, 0};
    const ka_pose_t bare = ka_algo_forward_kinematics(nullptr, joints);
    EXPECT_TRUE(same_bytes(svc.ka_algo_forward_kinematics(nullptr, joints), bare));
    const ka_euler_t turn{0.3f, -0.2f, 1.1f};
    EXPECT_TRUE(same_bytes(svc.ka_algo_euler2quaternion(turn), ka_algo_euler2quaternion(turn)));
    // The member's by-value frame moves the pose exactly as the flat one's does.
    ka_frame_t frame{}, none{};
    frame.pose = {{0.1f, -0.2f, 0.3f}, {}, {0, 0, 1.5f}};
    svc.ka_algo_set_workframe(frame);
    const ka_pose_t via_member = ka_algo_forward_kinematics(nullptr, joints);
    ka_algo_set_workframe(&none);
    ka_algo_set_workframe(&frame);
    const ka_pose_t via_flat = ka_algo_forward_kinematics(nullptr, joints);
    EXPECT_FALSE(same_bytes(via_member, bare));
    EXPECT_TRUE(same_bytes(via_member, via_flat));
    ka_algo_set_workframe(&none);
}
