// Controller network configuration: exact request lines, the settings that
// are sent without reading an answer, the fixed time-outs of the answered
// ones, and the copies into the caller's fixed-width buffers.
#include "core/exchange.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

char ip[16], mask[16], mac[18];
ka_wifi_net_t wifi;

std::string line(const std::string &command, const std::string &rest = "") {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}
const std::string wifi_sta_reply = line(
    "get_wifi_net",
    R"("ip":"10.0.0.7","mac":"aa:bb:cc:dd:ee:ff","mask":"255.0.0.0","mode":"sta","ssid":"lab","password":"secret","channel":6)");

// Records followed by guard bytes that no copy may reach.
struct {
    ka_wifi_net_t net;
    char guard[8];
} guarded_wifi;
struct {
    char ip[16], g1[4], mask[16], g2[4], mac[18], g3[4];
} guarded_wired;

// "k1":"value","k2":"value",...
std::string texts(std::initializer_list<const char *> keys, const std::string &value) {
    std::string out;
    for (const char *key : keys)
        out += (out.empty() ? "\"" : ",\"") + std::string(key) + "\":\"" + value + "\"";
    return out;
}

} // namespace

// `queued`: the setting is not answered on our side; its answer must still be
// waiting in the queue afterwards.
TEST(network, every_command_sends_its_exact_line_and_reads_its_reply) {
    arm_session s;
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; std::string command, request, answer; int result; bool queued; } const rows[] = {
        {CALL(ka_set_NetIP(h, "192.168.1.18")), "set_NetIP", R"("ip":"192.168.1.18")", line("set_NetIP", R"("status":false)"), 1, false},
        {CALL(ka_set_wifi_ap(h, "arm-ap", "12345678")), "set_wifi_ap", R"("wifi_name":"arm-ap","password":"12345678")", line("set_wifi_ap", R"("set_state":false)"), 0, true},
        {CALL(ka_set_wifi_sta(h, "lab", "pw")), "set_wifi_sta", R"("router_name":"lab","password":"pw")", line("set_wifi_sta", R"("set_state":false)"), 0, true},
        {CALL(ka_set_usb(h, 115200)), "set_usb", R"("baudrate":115200)", line("set_usb", "\"set_state\":false"), 0, true},
        {CALL(ka_set_RS485(h, 9600)), "set_RS485", R"("baudrate":9600)", line("set_RS485", "\"set_state\":false"), 0, true},
        {CALL(ka_get_wired_net(h, ip, mask, mac)), "get_wired_net", "", line("get_wired_net", R"("ip":"192.168.1.18","mask":"255.255.255.0","mac":"00:1A:2B:3C:4D:5E")"), 0, false},
        {CALL(ka_get_wifi_net(h, &wifi)), "get_wifi_net", "", wifi_sta_reply, 0, false},
        {ka_set_net_default, "set_net_default", "", line("set_net_default", R"("net_default_state":true)"), 0, false},
        {ka_set_wifi_close, "set_wifi_close", "", line("set_wifi_close", R"("wifi_close_state":false)"), 1, false},
    };
    // clang-format on
    wifi.channel = -7;
    for (const auto &r : rows) {
        expect_wire(s, {r.command, r.call, line(r.command, r.request), r.answer, r.result});
        if (!r.queued) continue;
        char left[reply_buffer_size] = {};
        EXPECT_GT(ka_pack_lock_wait("test", s.arm, r.command.c_str(), left, sizeof left, 1000), 0)
            << r.command << ": the answer was read by the setting";
        EXPECT_EQ(std::string(left), r.answer);
    }
    EXPECT_EQ(std::vector<std::string>({ip, mask, mac}),
              std::vector<std::string>({"192.168.1.18", "255.255.255.0", "00:1A:2B:3C:4D:5E"}));
    EXPECT_EQ(std::vector<std::string>(
                  {wifi.ip, wifi.mac, wifi.mask, wifi.mode, wifi.ssid, wifi.password}),
              std::vector<std::string>(
                  {"10.0.0.7", "aa:bb:cc:dd:ee:ff", "255.0.0.0", "sta", "lab", "secret"}));
    EXPECT_EQ(wifi.channel, -7) << "the channel is read in access-point mode only";
}

// Each mode fills its own part of the record; the rest keeps the marker.
TEST(network, wifi_reply_fills_what_its_mode_carries) {
    arm_session s;
    const std::string link = R"("ip":"1.2.3.4","mac":"m","mask":"255.0.0.0",)";
    // clang-format off
    struct { const char *name; std::string fields; int result; int channel; const char *mode, *ssid, *password; } const rows[] = {
        {"off", link + R"("mode":"off","channel":3,"ssid":"s","password":"p")", 0, -7, "off", "#", "#"},
        {"ap", link + R"("mode":"ap","channel":11,"ssid":"arm-ap","password":"12345678")", 0, 11, "ap", "arm-ap", "12345678"},
        {"ap without channel", link + R"("mode":"ap","ssid":"arm-ap","password":"p")", 0, -7, "ap", "arm-ap", "p"},
        {"sta without ssid", link + R"("mode":"sta","password":"p")", -3, -7, "sta", "#", "#"},
        {"no mode", R"("ip":"1.2.3.4","mac":"m","mask":"255.0.0.0")", -3, -7, "#", "#", "#"},
    };
    // clang-format on
    for (const auto &r : rows) {
        std::memset(&wifi, 0, sizeof wifi);
        wifi.channel = -7;
        std::strcpy(wifi.mode, "#");
        std::strcpy(wifi.ssid, "#");
        std::strcpy(wifi.password, "#");
        expect_wire(s, {r.name, CALL(ka_get_wifi_net(h, &wifi)), line("get_wifi_net"),
                        line("get_wifi_net", r.fields), r.result});
        EXPECT_EQ(wifi.channel, r.channel) << r.name;
        EXPECT_EQ(std::vector<std::string>({wifi.mode, wifi.ssid, wifi.password}),
                  std::vector<std::string>({r.mode, r.ssid, r.password}))
            << r.name;
    }
}

// Answers later than the usual reply time-outs still count; none within the
// command's own time-out gives -2.
TEST(network, answered_settings_wait_their_own_time_out) {
    arm_session s;
    log_capture log;
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; const char *command, *key; std::chrono::milliseconds late; } const rows[] = {
        {CALL(ka_set_NetIP(h, "10.0.0.2")), "set_NetIP", "status", 1500ms},
        {ka_set_wifi_close, "set_wifi_close", "wifi_close_state", 1500ms},
        {ka_set_net_default, "set_net_default", "net_default_state", 2500ms},
    };
    // clang-format on
    for (const auto &r : rows) {
        s.peer.on_once(r.command, {delay(r.late),
                                   reply(line(r.command, "\"" + std::string(r.key) + "\":true"))});
        EXPECT_EQ(r.call(s.arm), 0) << r.command;
    }
    EXPECT_EQ(ka_set_net_default(s.arm), -2);
    EXPECT_TRUE(log.contains("[ka_set_net_default] set_net_default revice error"));
}

TEST(network, copies_are_bounded_and_bad_arguments_send_nothing) {
    arm_session s;
    const std::string x40(40, 'x');
    std::memset(&guarded_wifi, '#', sizeof guarded_wifi);
    expect_wire(s, {"wifi", CALL(ka_get_wifi_net(h, &guarded_wifi.net)), line("get_wifi_net"),
                    line("get_wifi_net", texts({"ip", "mac", "mask", "ssid", "password"}, x40) +
                                             R"(,"mode":"sta")"),
                    0});
    EXPECT_EQ(std::string(guarded_wifi.guard, 8), "########");
    EXPECT_EQ(std::string(guarded_wifi.net.ssid, KA_WIFI_SSID_SIZE), x40.substr(0, 33));
    EXPECT_EQ(std::string(guarded_wifi.net.mode), "sta");

    std::memset(&guarded_wired, '#', sizeof guarded_wired);
    expect_wire(
        s, {"wired",
            CALL(ka_get_wired_net(h, guarded_wired.ip, guarded_wired.mask, guarded_wired.mac)),
            line("get_wired_net"), line("get_wired_net", texts({"ip", "mask", "mac"}, x40)), 0});
    const auto &w = guarded_wired;
    EXPECT_EQ(std::string(w.g1, 4) + std::string(w.g2, 4) + std::string(w.g3, 4),
              std::string(12, '#'));
    EXPECT_EQ(std::string(w.mac, 18), x40.substr(0, 18));

    s.peer.clear_lines();
    ka_robot_handle *h = s.arm, stranger{};
    EXPECT_EQ(std::vector<int>({ka_get_wired_net(h, ip, nullptr, mac), ka_get_wifi_net(h, nullptr),
                                ka_set_NetIP(h, nullptr), ka_set_wifi_ap(h, "a", nullptr),
                                ka_set_wifi_sta(h, nullptr, "p"), ka_set_usb(&stranger, 9600)}),
              std::vector<int>(6, -1));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";
}
