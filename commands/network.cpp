// Controller network configuration: the wired address, the Wi-Fi access
// point and station modes, the USB and RS485 baud rates, the factory network
// defaults. Several of these change the very link we talk over, so they are
// sent without waiting for an answer, and the answered ones wait for their
// own fixed time rather than the usual reply time-out.
#include "core/command.h"

#include <cstring>

namespace {

using cmd::as;

// Settings that take the link down or switch it over: sent, then the
// controller is given this long (ms) before anything else goes out. Its
// answer, if any, is left unread.
constexpr int settle_ms = 800;

// clang-format off
// Answered settings, each with its fixed time-out (ms).
constexpr auto net_ip = cmd::set<"set_NetIP">("status", nullptr, 2000, {{"ip"}});
constexpr auto net_default = cmd::set<"set_net_default">("net_default_state", nullptr, 4000);
constexpr auto wifi_close = cmd::set<"set_wifi_close">("wifi_close_state", nullptr, 2000);
constexpr auto wifi_ap = cmd::send<"set_wifi_ap">(settle_ms, {{"wifi_name"}, {"password"}});
constexpr auto wifi_sta = cmd::send<"set_wifi_sta">(settle_ms, {{"router_name"}, {"password"}});
constexpr auto usb = cmd::send<"set_usb">(settle_ms, {{"baudrate"}});
constexpr auto rs485 = cmd::send<"set_RS485">(settle_ms, {{"baudrate"}});
// Caller buffers: ip and mask 16 characters, mac 18.
constexpr auto wired_net = cmd::query<"get_wired_net">(nullptr, {{"mask", as::plain, 16}, {"ip", as::plain, 16}, {"mac", as::plain, 18}});
// clang-format on
constexpr auto wifi_net = cmd::query<"get_wifi_net">();

// Copies at most n characters; text that fills the field is left without a
// terminator, as the fixed-width network records have always been filled.
template <size_t N> void copy_bounded(char (&field)[N], const ka_reply_field &from) {
    std::strncpy(field, from.value.s, N);
}

} // namespace

extern "C" {

// clang-format off
int ka_set_NetIP(ka_robot_handle *handle, const char *ip) { return net_ip(handle, ip); }
int ka_set_wifi_ap(ka_robot_handle *handle, const char *wifi_name, const char *password) { return wifi_ap(handle, wifi_name, password); }
int ka_set_wifi_sta(ka_robot_handle *handle, const char *router_name, const char *password) { return wifi_sta(handle, router_name, password); }
int ka_set_usb(ka_robot_handle *handle, int baudrate) { return usb(handle, baudrate); }
int ka_set_RS485(ka_robot_handle *handle, int baudrate) { return rs485(handle, baudrate); }
int ka_set_net_default(ka_robot_handle *handle) { return net_default(handle); }
int ka_set_wifi_close(ka_robot_handle *handle) { return wifi_close(handle); }
int ka_get_wired_net(ka_robot_handle *handle, char *ip, char *mask, char *mac) { return wired_net(handle, mask, ip, mac); }
// clang-format on

// Irregular: which keys the reply must carry depends on its "mode".
// The addresses and mode always; the channel in access-point mode; the
// network name and password unless Wi-Fi is off. In access-point mode the
// name and password read decides the status, so a reply that lacks only the
// channel still gives 0 (with the channel left as it was).
int ka_get_wifi_net(ka_robot_handle *handle, ka_wifi_net_t *wifi) {
    if (!wifi) return -1;
    cmd::reply_text reply;
    int n = cmd::run(wifi_net, handle, reply);
    if (n < 1) return n;

    ka_reply_field link[] = {cmd::text_field("mask"), cmd::text_field("ip"), cmd::text_field("mac"),
                             cmd::text_field("mode")};
    int status = common_json_parse(wifi_net.function, reply.text, link, 4);
    if (status != 0) return status;
    copy_bounded(wifi->mask, link[0]);
    copy_bounded(wifi->ip, link[1]);
    copy_bounded(wifi->mac, link[2]);
    copy_bounded(wifi->mode, link[3]);
    const char *mode = link[3].value.s;

    if (std::strcmp(mode, "ap") == 0) {
        ka_reply_field channel = cmd::int_field("channel");
        status = common_json_parse(wifi_net.function, reply.text, &channel, 1);
        if (status == 0) wifi->channel = channel.value.i;
    }
    if (std::strcmp(mode, "off") == 0) return status;

    ka_reply_field login[] = {cmd::text_field("ssid"), cmd::text_field("password")};
    status = common_json_parse(wifi_net.function, reply.text, login, 2);
    if (status != 0) return status;
    copy_bounded(wifi->ssid, login[0]);
    copy_bounded(wifi->password, login[1]);
    return 0;
}

} // extern "C"
