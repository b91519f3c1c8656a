// Realtime state push: the listener opened for an arm that pushes, the
// datagram parser, the status names.
#include "core/realtime.h"
#include "support/arm_fixture.h"

#include <arpa/inet.h>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

const char *full_state = R"({"arm_err":300,"sys_err":2,"arm_current_status":"move_J",
 "joint_status":{"joint_current":[1500,0,0,0,0,0],"joint_en_flag":[1,0,1,1,1,1],
   "joint_err_code":[7,0,0,0,0,0],"joint_position":[12345,0,0,0,0,-90000],
   "joint_temperature":[30000,0,0,0,0,0],"joint_voltage":[48000,0,0,0,0,0],
   "joint_speed":[1000,0,0,0,0,0]},
 "six_force_sensor":{"force":[1000,2000,0,0,0,0],"zero_force":[0,0,0,0,0,500],"coordinate":1},
 "waypoint":{"position":[100000,0,-500000],"quat":[1000000,0,0,0],"euler":[3142,0,0]},
 "lift_state":{"pos":1500,"height":300,"current":5,"err_flag":0,"en_flag":1},
 "hand":{"hand_pos":10,"hand_force":3,"hand_state":1,"hand_err":0}})";

std::mutex received_mutex;
std::condition_variable received_cv;
std::vector<ka_realtime_arm_joint_state_t> received;

void on_state(ka_realtime_arm_joint_state_t state) {
    std::lock_guard<std::mutex> lock(received_mutex);
    received.push_back(state);
    received_cv.notify_all();
}

void send_datagram(int port, const std::string &text) {
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    ::close(fd);
}

} // namespace

TEST(realtime, an_arm_that_pushes_is_heard_on_its_port) {
    int port = unused_local_port(SOCK_DGRAM);
    ka_init(KA_THREAD_MODE_TRIPLE);
    ka_realtime_arm_state_call_back(on_state);
    test_peer peer;
    serve_standard_arm(peer);
    peer.on("get_realtime_push",
            {reply(R"({"command":"get_realtime_push","cycle":1,"enable":true,"port":)" +
                   std::to_string(port) + R"(,"ip":"127.0.0.1","custom":{}})")});
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_EQ(arm->id, 1);
    {
        std::lock_guard<std::mutex> lock(received_mutex);
        received.clear();
    }
    send_datagram(port, full_state);
    send_datagram(port, "not json");
    std::unique_lock<std::mutex> lock(received_mutex);
    ASSERT_TRUE(received_cv.wait_for(lock, 5s, [] { return received.size() >= 2; }));
    const auto &s = received[0];
    EXPECT_EQ(s.errCode, 0);
    EXPECT_STREQ(s.arm_ip, "127.0.0.1");
    EXPECT_EQ(s.arm_err, 300);
    EXPECT_EQ(s.arm_current_status, KA_ARM_STATUS_MOVE_J);
    EXPECT_FLOAT_EQ(s.joint_position[0], 12.345f);
    EXPECT_FLOAT_EQ(s.joint_position[5], -90.0f);
    EXPECT_FLOAT_EQ(s.joint_speed[0], 6.0f); // thousandths of a revolution per minute
    EXPECT_FLOAT_EQ(s.joint_current[0], 1.5f);
    EXPECT_TRUE(s.joint_en_flag[0]);
    EXPECT_FALSE(s.joint_en_flag[1]);
    EXPECT_EQ(s.joint_err_code[0], 7);
    EXPECT_FLOAT_EQ(s.force[1], 2.0f);
    EXPECT_EQ(s.coordinate, 1);
    EXPECT_FLOAT_EQ(s.waypoint.position.x, 0.1f);
    EXPECT_FLOAT_EQ(s.waypoint.position.z, -0.5f);
    EXPECT_FLOAT_EQ(s.waypoint.quaternion.w, 1.0f);
    EXPECT_FLOAT_EQ(s.waypoint.euler.rx, 3.142f);
    EXPECT_EQ(s.lift_height, 300);
    EXPECT_FLOAT_EQ(s.lift_pos, 1.5f);
    EXPECT_FLOAT_EQ(s.hand_force, 3.0f);
    EXPECT_EQ(received[1].errCode, -3);
    lock.unlock();
    ka_destory();
}

TEST(realtime, required_parts_and_status_names) {
    ka_realtime_arm_joint_state_t s;
    std::string without_waypoint = full_state;
    without_waypoint.replace(without_waypoint.find("\"waypoint\""), 8 + 2, "\"elsewhere\"");
    EXPECT_EQ(parse_ka_realtime_arm_joint_state(without_waypoint.c_str(), &s), -3);
    EXPECT_EQ(parse_ka_realtime_arm_joint_state(R"({"arm_err":0,"sys_err":0})", &s), -3);
    EXPECT_EQ(parse_ka_realtime_arm_joint_state(full_state, &s), 0);
    EXPECT_EQ(get_arm_status_from_string("tech_demonstration"), 14);
    EXPECT_EQ(get_arm_status_from_string("Move_J"), 0); // exact, case-sensitive
    EXPECT_EQ(get_arm_status_from_string(nullptr), 0);
}

TEST(realtime, ports_are_reference_counted) {
    ka_udp_listener *listener = ka_udp_init();
    int port = unused_local_port(SOCK_DGRAM);
    EXPECT_EQ(ka_udp_add_port(listener, port), 0);
    EXPECT_EQ(ka_udp_add_port(listener, port), 1);
    EXPECT_EQ(ka_udp_delete_port(listener, port), 0);
    EXPECT_EQ(ka_udp_add_port(listener, port), 1); // still open once
    ka_udp_delete_port(listener, port);
    ka_udp_delete_port(listener, port);
    EXPECT_EQ(ka_udp_add_port(listener, port), 0); // closed, opened anew
    ka_udp_delete_port(listener, port);
}
