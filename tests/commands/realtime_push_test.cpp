// Realtime push configuration read back: the switches object (true 1,
// false 0, anything else -1), the force frame only on force-sensing arms,
// the port the handle keeps, and a record left whole when a key is missing.
#include "core/arm.h"
#include "core/registry.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;

namespace {

const std::string push_reply =
    R"("cycle":5,"port":8089,"ip":"192.168.1.100","enable":true,"force_coordinate":2,)"
    R"("custom":{"joint_speed":true,"lift_state":false,"expand_state":3})";

std::vector<int> switches(const ka_realtime_push_config_t &c) {
    return {c.custom.joint_speed, c.custom.lift_state, c.custom.expand_state,
            c.custom.arm_current_status};
}

} // namespace

TEST(realtime_push, reads_switches_and_the_force_frame_only_on_force_arms) {
    arm_session s;
    // clang-format off
    struct { const char *name; int force_type; int force_coordinate; } const rows[] = {
        {"no sensor", KA_FORCE_TYPE_B, -9},
        {"one-axis sensor", KA_FORCE_TYPE_ZF, 2},
        {"six-axis sensor", KA_FORCE_TYPE_6F, 2},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        store_public(registry_find(s.arm)->pub.force_type, r.force_type);
        ka_realtime_push_config_t c{};
        c.force_coordinate = -9;
        c.custom = {7, 7, 7, 7};
        expect_wire(s, {r.name, [&](auto h) { return ka_get_realtime_push(h, &c); },
                        line("get_realtime_push"), line("get_realtime_push", push_reply), 0});
        EXPECT_EQ(c.cycle, 5);
        EXPECT_EQ(c.port, 8089);
        EXPECT_STREQ(c.ip, "192.168.1.100");
        EXPECT_TRUE(c.enable);
        EXPECT_EQ(c.force_coordinate, r.force_coordinate);
        EXPECT_EQ(switches(c), (std::vector<int>{1, 0, -1, -1})) << "a number or a missing key";
        EXPECT_EQ(registry_find(s.arm)->push_port, 8089) << "the handle keeps the port";
    }
}

// A missing key (the force frame on a force arm included) fails the whole
// read; a non-boolean "enable" reads false; a long address is cut and
// terminated; "custom" that is no object reads every switch as -1.
TEST(realtime_push, a_failed_read_leaves_record_and_port_as_they_were) {
    arm_session s;
    store_public(registry_find(s.arm)->pub.force_type, KA_FORCE_TYPE_6F);
    registry_find(s.arm)->push_port = 1234;
    const std::string long_ip(40, '9');
    // clang-format off
    struct { const char *name; std::string reply; int result; } const rows[] = {
        {"no force frame", R"("cycle":5,"port":8089,"ip":"1.2.3.4","enable":true,"custom":{})", -3},
        {"no custom", R"("cycle":5,"port":8089,"ip":"1.2.3.4","enable":true,"force_coordinate":1)", -3},
        {"ip not text", R"("cycle":5,"port":8089,"ip":7,"enable":true,"custom":{},"force_coordinate":1)", -3},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        ka_realtime_push_config_t c{};
        std::memset(&c, 0x5a, sizeof c);
        ka_realtime_push_config_t before = c;
        expect_wire(s, {r.name, [&](auto h) { return ka_get_realtime_push(h, &c); },
                        line("get_realtime_push"), line("get_realtime_push", r.reply), r.result});
        EXPECT_EQ(std::memcmp(&c, &before, sizeof c), 0);
        EXPECT_EQ(registry_find(s.arm)->push_port, 1234);
    }
    ka_realtime_push_config_t c{};
    c.enable = true;
    const std::string odd = R"("cycle":1,"port":9,"ip":")" + long_ip +
                            R"(","enable":1,"custom":[true],"force_coordinate":0)";
    expect_wire(s, {"odd", [&](auto h) { return ka_get_realtime_push(h, &c); },
                    line("get_realtime_push"), line("get_realtime_push", odd), 0});
    EXPECT_FALSE(c.enable);
    EXPECT_EQ(std::string(c.ip), long_ip.substr(0, sizeof c.ip - 1));
    EXPECT_EQ(switches(c), (std::vector<int>{-1, -1, -1, -1}));
    EXPECT_EQ(registry_find(s.arm)->push_port, 9);
    EXPECT_EQ(ka_get_realtime_push(s.arm, nullptr), -1);
}
