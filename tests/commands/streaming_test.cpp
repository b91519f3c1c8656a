// Streaming motion and the push configuration: exact lines, scaling and
// truncation, the pose form, fire-and-forget behaviour.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>
#include <thread>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// 1.005 degrees is 1004 millidegrees in double precision, but 1.005 rad is
// 1005 milliradians and 0.7 m 700000 um in single precision.
const float joints[7] = {1.005f, -30.0006f, 0.0f, 90.0f, -90.0f, 45.5f, 7.25f};

ka_pose_t pose(ka_quat_t q) { return {{0.7f, -0.1f, 0.3f}, q, {1.005f, -0.0015f, 1.5708f}}; }

ka_realtime_push_config_t push(int cycle, int port, const char *ip, int force_frame,
                               ka_realtime_push_custom_t custom) {
    ka_realtime_push_config_t c{cycle, true, port, force_frame, {}, custom};
    std::snprintf(c.ip, sizeof c.ip, "%s", ip);
    return c;
}
const ka_realtime_push_config_t nothing_set = push(0, 0, "", 0, {-1, -1, -1, -1});

const std::string set_true = R"({"command":"set_realtime_push","state":true})";

} // namespace

TEST(streaming, lines_scaling_and_pose_form) {
    arm_session s7(KA_THREAD_MODE_DUAL, "LUNE-B", 7);
    const std::string j7 = "[1004,-30000,0,90000,-90000,45500,7250]";
    const std::string euler = "[700000,-100000,300000,1005,-1,1570]";
    // In single precision 0.994987428² is exactly 0.99f and 1 + 0.316227764²
    // exactly 1.1f: both bounds are exclusive.
    // clang-format off
    const wire_case rows[] = {
        {"joints, follow, expand", [](auto h) { return ka_movej_canfd(h, joints, true, -0.0015f); }, R"({"command":"movej_canfd","joint":)" + j7 + R"(,"follow":true,"expand":-1})", "", 0},
        {"joint follow", [](auto h) { return ka_movej_follow(h, joints); }, R"({"command":"movej_follow","joint":)" + j7 + "}", "", 0},
        {"unit quaternion", [](auto h) { return ka_movep_canfd(h, pose({1, 0, 0, 0}), true); }, R"({"command":"movep_canfd","follow":true,"pose_quat":[700000,-100000,300000,1000000,0,0,0]})", "", 0},
        {"inside the bounds", [](auto h) { return ka_movep_follow(h, pose({0.995f, 0, 0, 0})); }, R"({"command":"movep_follow","pose_quat":[700000,-100000,300000,995000,0,0,0]})", "", 0},
        {"norm exactly 0.99", [](auto h) { return ka_movep_canfd(h, pose({0.994987428f, 0, 0, 0}), false); }, R"({"command":"movep_canfd","follow":false,"pose":)" + euler + "}", "", 0},
        {"norm exactly 1.1", [](auto h) { return ka_movep_follow(h, pose({1, 0.316227764f, 0, 0})); }, R"({"command":"movep_follow","pose":)" + euler + "}", "", 0},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s7, row);
}

TEST(streaming, bad_handle_or_joints_send_nothing_and_a_lost_connection_is_a_send_error) {
    arm_session s;
    log_capture log;
    ka_robot_handle stranger{};
    EXPECT_EQ(ka_movej_canfd(s.arm, nullptr, false, 0), -1);
    EXPECT_EQ(ka_movej_follow(s.arm, nullptr), -1);
    EXPECT_EQ(ka_movep_canfd(&stranger, pose({1, 0, 0, 0}), false), -1);
    EXPECT_EQ(ka_movep_follow(&stranger, pose({1, 0, 0, 0})), -1);
    EXPECT_TRUE(log.lines().empty()); // the pose commands say nothing
    EXPECT_EQ(ka_movej_follow(&stranger, joints), -1);
    EXPECT_TRUE(log.contains("[ka_movej_follow] The robotic arm has been disconnected\n"));
    EXPECT_EQ(ka_set_realtime_push(&stranger, nothing_set), -1);
    EXPECT_TRUE(log.contains("[ka_get_robot_info] handle is NULL!\n"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    s.peer.close_current();
    ASSERT_TRUE(log.wait_for("connection of arm", 2s)) << "the close was never noticed";
    EXPECT_EQ(ka_movej_follow(s.arm, joints), -1);
    EXPECT_TRUE(log.contains("[ka_movej_follow] movej_follow send error\n"));
}

TEST(streaming, six_joints_on_a_six_axis_arm_and_an_answer_is_never_read) {
    // clang-format off
    const wire_case six = {"6 dof", [](auto h) { return ka_movej_canfd(h, joints, false, 12.5f); }, R"({"command":"movej_canfd","joint":[1004,-30000,0,90000,-90000,45500],"follow":false,"expand":12500})", "", 0};
    // clang-format on
    for (int mode : {KA_THREAD_MODE_SINGLE, KA_THREAD_MODE_DUAL}) {
        SCOPED_TRACE(mode);
        arm_session s(mode);
        s.peer.on("movej_canfd", {reply(R"({"command":"movej_canfd","state":true})")});
        for (int i = 0; i < 3; ++i)
            expect_wire(s, six); // the answer to the one before does not disturb it
        s.peer.on_once("set_realtime_push", {reply(set_true)});
        EXPECT_EQ(ka_set_realtime_push(s.arm, nothing_set), 0);
    }
}

TEST(realtime_push, set_sends_only_the_parts_given) {
    const std::string head = R"({"command":"set_realtime_push","enable":true,)";
    const ka_realtime_push_config_t full = push(5, 8089, "192.168.1.10", 1, {1, 0, -1, 1});
    const std::string full_line = head + R"("cycle":5,"port":8089,"ip":"192.168.1.10",)";
    const std::string custom =
        R"("custom":{"joint_speed":true,"lift_state":false,"arm_current_status":true}})";
    auto set = [](ka_realtime_push_config_t c) {
        return [=](ka_robot_handle *h) { return ka_set_realtime_push(h, c); };
    };
    // clang-format off
    const wire_case force_arm_rows[] = {
        {"force arm", set(full), full_line + R"("force_cordinate":1,)" + custom, set_true, 0},
        {"frame 0", set(push(5, 8089, "192.168.1.10", 0, {1, 0, -1, 1})), full_line + custom, set_true, 0},
    };
    const wire_case rows[] = {
        {"no sensor", set(full), full_line + custom, R"({"command":"set_realtime_push","state":false})", 1},
        {"ip of 6", set(push(0, -1, "1.2.3.", 0, {0, 0, 0, 0})), head + R"("custom":{"joint_speed":false,"lift_state":false,"expand_state":false,"arm_current_status":false}})", set_true, 0},
        {"ip of 7", set(push(0, 0, "1.2.3.4", 0, {-1, -1, 1, -1})), head + R"("ip":"1.2.3.4","custom":{"expand_state":true}})", set_true, 0},
        {"ip of 15", set(push(0, 0, "192.168.100.100", 0, {-1, -1, -1, -1})), head + R"("ip":"192.168.100.100","custom":{}})", set_true, 0},
        {"ip of 16", set(push(0, 0, "192.168.100.1000", 0, {-1, -1, -1, -1})), head + R"("custom":{}})", set_true, 0},
        {"result under state only", set(full), full_line + custom, R"({"command":"set_realtime_push","set_state":true})", -3},
    };
    // clang-format on
    {
        arm_session sensor(KA_THREAD_MODE_DUAL, "KIVO-6F");
        for (const auto &row : force_arm_rows)
            expect_wire(sensor, row);
    }
    arm_session s;
    for (const auto &row : rows)
        expect_wire(s, row);
}

TEST(realtime_push, set_waits_past_the_default_time_out) {
    arm_session s;
    log_capture log;
    s.peer.on_once("set_realtime_push", {delay(600ms), reply(set_true)});
    EXPECT_EQ(ka_set_realtime_push(s.arm, nothing_set), 0);
    EXPECT_EQ(ka_set_realtime_push(s.arm, nothing_set), -2);
    EXPECT_TRUE(log.contains("[ka_set_realtime_push] set_realtime_push revice error\n"));
}
