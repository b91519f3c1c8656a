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

// clang-format off
namespace {

char ip[16], mask[16], mac[18];
// Records followed by guard bytes that no copy may reach.
struct { ka_wifi_net_t net; char guard[8]; } guarded_wifi;
struct { char ip[16], g1[4], mask[16], g2[4], mac[18], g3[4]; } guarded_wired;

std::string x(std::size_t n) { return std::string(n, 'x'); }
// "k1":"xx...","k2":"xx...",... with 40 x each.
std::string x40(std::initializer_list<const char *> keys) {
    std::string out;
    for (const char *key : keys) out += (out.empty() ? "\"" : ",\"") + std::string(key) + "\":\"" + x(40) + "\"";
    return out;
}
// A fixed-width field that may lack its terminator.
template <std::size_t N> std::string text(const char (&field)[N]) { return std::string(field, strnlen(field, N)); }

} // namespace
// clang-format on

// `late`: the answered settings wait their own time-out, longer than the usual
// one. `queued`: the setting does not read its answer, which must still be
// waiting afterwards.
TEST(network, every_command_sends_its_exact_line_and_bad_arguments_send_nothing) {
    arm_session s;
    log_capture log;
    std::memset(&guarded_wired, '#', sizeof guarded_wired);
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; std::string command, request, answer; int result; std::chrono::milliseconds late; bool queued; } const rows[] = {
        {CALL(ka_set_NetIP(h, "192.168.1.18")), "set_NetIP", R"("ip":"192.168.1.18")", line("set_NetIP", R"("status":false)"), 1, 1500ms, false},
        {CALL(ka_set_wifi_ap(h, "arm-ap", "12345678")), "set_wifi_ap", R"("wifi_name":"arm-ap","password":"12345678")", line("set_wifi_ap", R"("set_state":false)"), 0, 0ms, true},
        {CALL(ka_set_wifi_sta(h, "lab", "pw")), "set_wifi_sta", R"("router_name":"lab","password":"pw")", line("set_wifi_sta", R"("set_state":false)"), 0, 0ms, true},
        {CALL(ka_set_usb(h, 115200)), "set_usb", R"("baudrate":115200)", line("set_usb", "\"set_state\":false"), 0, 0ms, true},
        {CALL(ka_set_RS485(h, 9600)), "set_RS485", R"("baudrate":9600)", line("set_RS485", "\"set_state\":false"), 0, 0ms, true},
        {CALL(ka_get_wired_net(h, ip, mask, mac)), "get_wired_net", "", line("get_wired_net", R"("ip":"192.168.1.18","mask":"255.255.255.0","mac":"00:1A:2B:3C:4D:5E")"), 0, 0ms, false},
        {CALL(ka_get_wired_net(h, guarded_wired.ip, guarded_wired.mask, guarded_wired.mac)), "get_wired_net", "", line("get_wired_net", x40({"ip", "mask", "mac"})), 0, 0ms, false},
        {ka_set_net_default, "set_net_default", "", line("set_net_default", R"("net_default_state":true)"), 0, 2500ms, false},
        {ka_set_wifi_close, "set_wifi_close", "", line("set_wifi_close", R"("wifi_close_state":false)"), 1, 1500ms, false},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.command);
        s.peer.clear_lines();
        s.peer.answer_next({delay(r.late), reply(r.answer)});
        EXPECT_EQ(r.call(s.arm), r.result);
        ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
        EXPECT_EQ(s.peer.lines().front(), line(r.command, r.request));
        if (!r.queued) continue;
        char left[reply_buffer_size] = {};
        EXPECT_GT(ka_pack_lock_wait("test", s.arm, r.command.c_str(), left, sizeof left, 1000), 0)
            << "the answer was read by the setting";
        EXPECT_EQ(std::string(left), r.answer);
    }
    EXPECT_EQ(std::vector<std::string>({ip, mask, mac}),
              std::vector<std::string>({"192.168.1.18", "255.255.255.0", "00:1A:2B:3C:4D:5E"}));
    const auto &w = guarded_wired;
    EXPECT_EQ(text(w.ip) + text(w.mask) + text(w.mac), x(16 + 16 + 18));
    EXPECT_EQ(std::string(w.g1, 4) + std::string(w.g2, 4) + std::string(w.g3, 4), "############");
    EXPECT_EQ(ka_set_net_default(s.arm), -2); // no answer within its own time-out
    EXPECT_TRUE(log.contains("[ka_set_net_default] set_net_default revice error"));

    s.peer.clear_lines();
    ka_robot_handle *h = s.arm, stranger{};
    EXPECT_EQ(std::vector<int>({ka_get_wired_net(h, ip, nullptr, mac), ka_get_wifi_net(h, nullptr),
                                ka_set_NetIP(h, nullptr), ka_set_wifi_ap(h, "a", nullptr),
                                ka_set_wifi_sta(h, nullptr, "p"), ka_set_usb(&stranger, 9600)}),
              std::vector<int>(6, -1));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "bad arguments: nothing sent";
}

// Each mode fills its own part of the record, bounded by its fields; the rest
// keeps the marker. The channel is read in access-point mode only.
TEST(network, wifi_reply_fills_what_its_mode_carries) {
    arm_session s;
    ka_wifi_net_t &wifi = guarded_wifi.net;
    const std::string link = R"("ip":"1.2.3.4","mac":"m","mask":"255.0.0.0")";
    const char *a = "1.2.3.4", *m = "255.0.0.0";
    // clang-format off
    struct { std::string fields; int result, channel; std::vector<std::string> texts; } const rows[] = {
        {link + R"(,"mode":"sta","channel":6,"ssid":"lab","password":"secret")", 0, -7, {a, m, "m", "sta", "lab", "secret"}},
        {link + R"(,"mode":"off","channel":3,"ssid":"s","password":"p")", 0, -7, {a, m, "m", "off", "#", "#"}},
        {link + R"(,"mode":"ap","channel":11,"ssid":"arm-ap","password":"12345678")", 0, 11, {a, m, "m", "ap", "arm-ap", "12345678"}},
        {link + R"(,"mode":"ap","ssid":"arm-ap","password":"p")", 0, -7, {a, m, "m", "ap", "arm-ap", "p"}},
        {link + R"(,"mode":"sta","password":"p")", -3, -7, {a, m, "m", "sta", "#", "#"}},
        {link, -3, -7, {"#", "#", "#", "#", "#", "#"}},
        {x40({"ip", "mac", "mask", "ssid", "password"}) + R"(,"mode":"sta")", 0, -7, {x(16), x(16), x(18), "sta", x(KA_WIFI_SSID_SIZE), x(16)}},
    };
    // clang-format on
    for (const auto &r : rows) {
        std::memset(&guarded_wifi, '#', sizeof guarded_wifi);
        wifi.channel = -7;
        for (char *field : {wifi.ip, wifi.mask, wifi.mac, wifi.mode, wifi.ssid, wifi.password})
            std::strcpy(field, "#");
        expect_wire(s, {r.fields, CALL(ka_get_wifi_net(h, &guarded_wifi.net)), line("get_wifi_net"),
                        line("get_wifi_net", r.fields), r.result});
        EXPECT_EQ(wifi.channel, r.channel) << r.fields;
        EXPECT_EQ(std::vector<std::string>({text(wifi.ip), text(wifi.mask), text(wifi.mac),
                                            text(wifi.mode), text(wifi.ssid), text(wifi.password)}),
                  r.texts);
        EXPECT_EQ(std::string(guarded_wifi.guard, 8), "########");
    }
}

// Every answered setting against each verdict form, no reply included (2 s,
// 4 s, 2 s). The other settings do not read their answer.
TEST(network, every_set_command_maps_each_verdict_form) {
    // clang-format off
    const set_row rows[] = {
        {"set_NetIP", CALL(ka_set_NetIP(h, "192.168.1.18")), "", "status", 2000},
        {"set_net_default", ka_set_net_default, "", "net_default_state", 4000},
        {"set_wifi_close", ka_set_wifi_close, "", "wifi_close_state", 2000},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
