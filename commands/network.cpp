// Controller network configuration: wired address, Wi-Fi, USB and RS485 rates, factory defaults.
#include "core/reply_schema.h"

namespace {

using cmd::as;

// Settings that take the link down or switch it over are only sent, then given this long (ms).
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
// Wi-Fi records: at most the field's size copied, a full one left without a terminator.
using net = ka_wifi_net_t;
template <auto Member> constexpr reply::field text(const char *key) { return reply::text<Member>(key, sizeof(net{}.*Member)); }
constexpr reply::field link_fields[] = {text<&net::mask>("mask"), text<&net::ip>("ip"), text<&net::mac>("mac"), text<&net::mode>("mode")};
constexpr reply::field channel_field[] = {reply::number<&net::channel>("channel")};
constexpr reply::field login_fields[] = {text<&net::ssid>("ssid"), text<&net::password>("password")};
constexpr reply::schema link_reply = reply::common(link_fields);
constexpr reply::schema channel_reply = reply::common(channel_field);
constexpr reply::schema login_reply = reply::common(login_fields);
// clang-format on

// The channel in access-point mode (missing, it stays: 0), the login unless Wi-Fi is off.
int read_mode(const char *function, ka_robot_handle *, const char *text, void *record) {
    auto &wifi = *static_cast<ka_wifi_net_t *>(record);
    if (std::strncmp(wifi.mode, "ap", sizeof wifi.mode) == 0)
        reply::read(channel_reply, function, text, wifi);
    if (std::strncmp(wifi.mode, "off", sizeof wifi.mode) == 0) return 0;
    return reply::read(login_reply, function, text, wifi);
}
constexpr reply::record_query wifi_net{
    .command = cmd::query<"get_wifi_net">(), .reply = &link_reply, .then = read_mode};

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
int ka_get_wifi_net(ka_robot_handle *handle, ka_wifi_net_t *wifi) { return wifi_net(handle, wifi); }
// clang-format on

} // extern "C"
