// Realtime state push: the datagram parser, the status names, and the
// listener that hears the arms pushing to a port.
#include "core/realtime.h"
#include "support/arm_fixture.h"

#include <algorithm>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// Every part present, seven joints, a distinct value in every field.
const std::string full =
    R"({"arm_err":513,"sys_err":1027,"arm_current_status":"move_through_pose",)"
    R"("joint_status":{"joint_current":[1100,-2200,3300,-4400,5500,-6600,7700],)"
    R"("joint_en_flag":[1,0,1,0,1,0,2],"joint_err_code":[1,2,3,4,5,6,65535],)"
    R"("joint_position":[10001,-20002,30003,-40004,50005,-60006,70007],)"
    R"("joint_temperature":[25100,25200,25300,25400,25500,25600,25700],)"
    R"("joint_voltage":[48100,48200,48300,48400,48500,48600,48700],)"
    R"("joint_speed":[1000,-2000,3000,-4000,5000,-6000,7000]},)"
    R"("six_force_sensor":{"force":[1,2,3,4,5,6],"zero_force":[7,8,9,10,11,12],"coordinate":1},)"
    R"("one_force_sensor":{"force":[1500,-2500,3500,-4500,5500,-6500],)"
    R"("zero_force":[100,200,300,400,500,600],"coordinate":2},)"
    R"("waypoint":{"position":[123456,-234567,345678],"quat":[707107,0,707107,0],"euler":[1571,-785,3142]},)"
    R"("lift_state":{"pos":1234,"height":567,"current":89,"err_flag":3,"en_flag":1},)"
    R"("expand_state":{"pos":-4321,"current":76,"err_flag":5,"en_flag":1,"joint_id":8,"mode":2},)"
    R"("hand":{"hand_pos":321,"hand_force":45,"hand_state":6,"hand_err":7}})";

std::string with(std::string text, const std::string &from, const std::string &to) {
    return text.replace(text.find(from), from.size(), to);
}

callback_record<ka_realtime_arm_joint_state_t> received;

void on_state(ka_realtime_arm_joint_state_t state) { received.add(state); }

void send_datagram(const char *source, int port, const std::string &text) {
    namespace net = sim::net;
    net::unique_socket socket = net::open_socket(net::transport::udp);
    net::bind_to(socket.get(), {net::parse_ipv4(source).value_or(0), 0});
    net::send_datagram(socket.get(), text, {net::loopback_address, static_cast<uint16_t>(port)});
}

} // namespace

TEST(realtime, every_part_of_a_full_datagram_lands_in_its_field) {
    ka_realtime_arm_joint_state_t s;
    ASSERT_EQ(parse_ka_realtime_arm_joint_state(full.c_str(), &s), 0);
    for (int i = 0; i < 7; ++i) {
        const float k = static_cast<float>(i + 1), sign = i % 2 ? -1.0f : 1.0f;
        EXPECT_FLOAT_EQ(s.joint_current[i], sign * 1.1f * k);
        EXPECT_EQ(s.joint_en_flag[i], i % 2 == 0);
        EXPECT_EQ(s.joint_err_code[i], i < 6 ? i + 1 : 65535);
        EXPECT_FLOAT_EQ(s.joint_position[i], sign * 10.001f * k);
        EXPECT_FLOAT_EQ(s.joint_temperature[i], 25.1f + 0.1f * static_cast<float>(i));
        EXPECT_FLOAT_EQ(s.joint_voltage[i], 48.1f + 0.1f * static_cast<float>(i));
        EXPECT_FLOAT_EQ(s.joint_speed[i], sign * 6.0f * k); // 1000 on the wire: 6 degrees/s
        if (i == 6) continue; // the one-axis sensor overwrites the six-axis one
        EXPECT_FLOAT_EQ(s.force[i], sign * (0.5f + k));
        EXPECT_FLOAT_EQ(s.zero_force[i], 0.1f * k);
    }
    const ka_pose_t &w = s.waypoint; // quat is w, x, y, z on the wire
    EXPECT_EQ(std::vector<float>({w.position.x, w.position.y, w.position.z, w.quaternion.w,
                                  w.quaternion.x, w.quaternion.y, w.quaternion.z, w.euler.rx,
                                  w.euler.ry, w.euler.rz}),
              std::vector<float>({0.123456f, -0.234567f, 0.345678f, 0.707107f, 0, 0.707107f, 0,
                                  1.571f, -0.785f, 3.142f}));
    EXPECT_EQ(std::vector<float>({s.lift_pos, s.expand_pos, s.hand_force}),
              std::vector<float>({1.234f, -4.321f, 45.0f}))
        << "the hand force is not scaled";
    EXPECT_EQ(
        std::vector<int>({s.coordinate, s.arm_err, s.sys_err, s.arm_current_status, s.lift_height,
                          s.lift_current, s.lift_err_flag, s.lift_en_flag, s.expand_current,
                          s.expand_err_flag, s.expand_en_flag, s.expand_joint_id, s.expand_mode,
                          s.hand_pos, s.hand_state, s.hand_err}),
        std::vector<int>({2, 513, 1027, KA_ARM_STATUS_MOVE_THROUGH_POSE, 567, 89, 3, 1, 76, 5, 1, 8,
                          2, 321, 6, 7}));
}

TEST(realtime, malformed_datagrams_fail_and_odd_arrays_and_names_stay_in_bounds) {
    // clang-format off
    struct { const char *name; std::string text; int result; } const rows[] = {
        {"truncated", full.substr(0, full.size() / 2), -3},
        {"not JSON", "arm_err=1", -3},
        {"only the errors", R"({"arm_err":0,"sys_err":0})", -3},
        {"no waypoint", with(full, R"("waypoint")", R"("elsewhere")"), -3},
        {"waypoint an array", with(full, R"("waypoint")", R"("waypoint":[],"x")"), -3},
        {"quat of 3", with(full, "[707107,0,707107,0]", "[707107,0,707107]"), -3},
        {"quat of 5", with(full, "[707107,0,707107,0]", "[707107,0,707107,0,0]"), -3},
        {"euler of 4", with(full, "[1571,-785,3142]", "[1571,-785,3142,0]"), -3},
        {"position of 2", with(full, "[123456,-234567,345678]", "[123456,-234567]"), -3},
        {"no joint_status", with(full, R"("joint_status")", R"("joint_statue")"), -3},
        {"status not a string", with(full, R"("move_through_pose")", "5"), -3},
        {"hand value a string", with(full, R"("hand_force":45)", R"("hand_force":"45")"), -3},
        {"lift value null", with(full, R"("height":567)", R"("height":null)"), -3},
        {"expand mode missing", with(full, R"(,"mode":2)", ""), -3},
        {"arm_err a string", with(full, "513", R"("513")"), -3},
        {"no sys_err", with(full, R"("sys_err":1027,)", ""), -3},
        {"unknown status", with(full, "move_through_pose", "flying"), 0},
        {"long joint arrays", with(with(full, "70007]", "70007,1,2]"), "0,2]", "0,2,1,1]"), 0},
        {"long force array", with(full, "-6500]", "-6500,9000,9000]"), 0},
        {"short array", with(full, "3300,-4400,5500,-6600,7700]", "3300]"), 0},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        ka_realtime_arm_joint_state_t s;
        EXPECT_EQ(parse_ka_realtime_arm_joint_state(r.text.c_str(), &s), r.result);
        if (r.result != 0) continue;
        // Extra elements are dropped; the fields that follow keep their values.
        EXPECT_EQ(s.arm_current_status, r.text.find("flying") != std::string::npos ? 0 : 6);
        EXPECT_FLOAT_EQ(s.joint_position[6], 70.007f);
        EXPECT_FLOAT_EQ(s.joint_temperature[0], 25.1f);
        EXPECT_EQ(s.joint_err_code[0], 1);
        EXPECT_FLOAT_EQ(s.force[5], -6.5f);
        EXPECT_FLOAT_EQ(s.zero_force[0], 0.1f);
        EXPECT_FLOAT_EQ(s.joint_current[3],
                        r.text.find("3300]") != std::string::npos ? 0.0f : -4.4f);
    }
    // The last joint array too long, and no sensor part to overwrite what follows it.
    const std::string bare =
        with(with(with(full, "7000]", "7000,8000]"), "six_force", "six"), "one_force", "one");
    ka_realtime_arm_joint_state_t s;
    ASSERT_EQ(parse_ka_realtime_arm_joint_state(bare.c_str(), &s), 0);
    EXPECT_EQ(s.force[0], 0.0f);
    EXPECT_EQ(get_arm_status_from_string("tech_demonstration"), 14);
    EXPECT_EQ(get_arm_status_from_string("Move_J"), 0); // exact, case-sensitive
    EXPECT_EQ(get_arm_status_from_string(nullptr), 0);
}

TEST(realtime, two_arms_pushing_to_one_port_are_heard_and_share_one_counted_entry) {
    received.clear(); // no receive thread runs yet
    int port = unused_local_port(sim::net::transport::udp);
    ka_init(KA_THREAD_MODE_TRIPLE);
    ka_realtime_arm_state_call_back(on_state);
    test_peer peers[2];
    for (auto &peer : peers) {
        serve_standard_arm(peer);
        peer.on("get_realtime_push",
                {reply(R"({"command":"get_realtime_push","cycle":1,"enable":true,"port":)" +
                       std::to_string(port) + R"(,"ip":"127.0.0.1","custom":{}})")});
        ASSERT_NE(ka_create_robot_arm("127.0.0.1", peer.port()), nullptr);
    }
    // Longer than a datagram is read: cut at 1024 bytes, it no longer parses.
    const std::string oversized =
        with(full, R"({"arm_err":513)", R"({"pad":")" + std::string(300, 'x') + R"(","arm_err":3)");
    ka_realtime_arm_joint_state_t whole;
    ASSERT_GT(oversized.size(), 1024u);
    ASSERT_EQ(parse_ka_realtime_arm_joint_state(oversized.c_str(), &whole), 0);
    send_datagram("127.0.0.1", port, with(full, "513", "1"));
    send_datagram("127.0.0.2", port, with(full, "513", "2"));
    send_datagram("127.0.0.1", port, oversized);
    ASSERT_TRUE(received.wait_until([](const auto &states) { return states.size() >= 3; }, 5s));
    std::vector<std::string> seen;
    for (const auto &s : received.items()) {
        seen.push_back(std::string(s.arm_ip) + " " + std::to_string(s.arm_err) + " " +
                       std::to_string(s.errCode));
        if (s.errCode == 0) EXPECT_FLOAT_EQ(s.joint_position[6], 70.007f) << "the parsed state";
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, std::vector<std::string>({"127.0.0.1 0 -3", "127.0.0.1 1 0", "127.0.0.2 2 0"}));
    // One entry for both arms: four more ports fit among the five. The entry
    // is counted: a removal leaves it open, the last one closes it.
    ka_udp_listener *listener = ka_udp_init();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(ka_udp_add_port(listener, unused_local_port(sim::net::transport::udp)), 0);
    EXPECT_EQ(ka_udp_add_port(listener, port), 1);
    EXPECT_EQ(ka_udp_delete_port(listener, port), 0);
    ka_udp_delete_port(listener, port);
    EXPECT_EQ(ka_udp_add_port(listener, port), 1) << "still open once";
    ka_udp_delete_port(listener, port);
    ka_udp_delete_port(listener, port);
    EXPECT_EQ(ka_udp_add_port(listener, port), 0) << "closed, opened anew";
    ka_destory();
}
