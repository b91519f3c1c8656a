// Controller network settings: stored and returned, never applied, so the
// simulator keeps serving where it was started.
//
// The Wi-Fi, USB and RS485 settings are not answered: on a controller they
// take the link down while it changes. A setting the controller cannot take
// (a malformed address, a name or password too long for its records, an
// unsupported rate) is dropped.
#include "sim/families/family.h"
#include "sim/net/net.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t k_max_ssid = 32;
constexpr std::size_t k_min_password = 8; // WPA2
constexpr std::size_t k_max_password = 15;
constexpr int k_baud_rates[] = {9600, 19200, 38400, 57600, 115200, 230400, 460800};

bool dotted_ipv4(const std::string &text) { return net::parse_ipv4(text).has_value(); }

bool usable_ssid(const std::optional<std::string> &ssid) {
    return ssid && !ssid->empty() && ssid->size() <= k_max_ssid;
}
bool usable_password(const std::optional<std::string> &password) {
    return password && password->size() >= k_min_password && password->size() <= k_max_password;
}

void set_ip(const cJSON *request, cJSON *reply, command_context &c) {
    const auto ip = json_string(request, "ip");
    const bool ok = ip && dotted_ipv4(*ip);
    if (ok) c.target.network.wired.ip = *ip;
    cJSON_AddBoolToObject(reply, "status", ok);
}

void wifi_ap(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    const auto name = json_string(request, "wifi_name");
    const auto password = json_string(request, "password");
    if (!usable_ssid(name) || !usable_password(password)) return;
    wifi_settings &wifi = c.target.network.wifi;
    const std::string mac = wifi.mac;
    wifi = wifi_settings{};
    wifi.mac = mac;
    wifi.ssid = *name;
    wifi.password = *password;
}

// The router hands out the station address.
void wifi_sta(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    const auto router = json_string(request, "router_name");
    const auto password = json_string(request, "password");
    if (!usable_ssid(router) || !usable_password(password)) return;
    wifi_settings &wifi = c.target.network.wifi;
    wifi.mode = "sta";
    wifi.ssid = *router;
    wifi.password = *password;
    wifi.ip = "192.168.10.118";
    wifi.mask = "255.255.255.0";
}

std::optional<int> baud_rate(const cJSON *request) {
    const auto rate = json_int(request, "baudrate");
    if (!rate || std::find(std::begin(k_baud_rates), std::end(k_baud_rates), *rate) ==
                     std::end(k_baud_rates))
        return std::nullopt;
    return rate;
}

void set_usb(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    if (const auto rate = baud_rate(request)) c.target.network.usb_baudrate = *rate;
}

void set_rs485(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    if (const auto rate = baud_rate(request)) c.target.network.rs485_baudrate = *rate;
}

void wired_net(const cJSON *, cJSON *reply, command_context &c) {
    const wired_settings &wired = c.target.network.wired;
    cJSON_AddStringToObject(reply, "ip", wired.ip.c_str());
    cJSON_AddStringToObject(reply, "mask", wired.mask.c_str());
    cJSON_AddStringToObject(reply, "mac", wired.mac.c_str());
}

// Switched off, the interface has no address; the channel belongs to
// access-point mode and the network name and password to both modes.
void wifi_net(const cJSON *, cJSON *reply, command_context &c) {
    const wifi_settings &wifi = c.target.network.wifi;
    const bool off = wifi.mode == "off";
    cJSON_AddStringToObject(reply, "mode", wifi.mode.c_str());
    cJSON_AddStringToObject(reply, "ip", off ? "0.0.0.0" : wifi.ip.c_str());
    cJSON_AddStringToObject(reply, "mask", off ? "0.0.0.0" : wifi.mask.c_str());
    cJSON_AddStringToObject(reply, "mac", wifi.mac.c_str());
    if (wifi.mode == "ap") cJSON_AddNumberToObject(reply, "channel", wifi.channel);
    if (!off) {
        cJSON_AddStringToObject(reply, "ssid", wifi.ssid.c_str());
        cJSON_AddStringToObject(reply, "password", wifi.password.c_str());
    }
}

void net_default(const cJSON *, cJSON *reply, command_context &c) {
    c.target.network = network_store{};
    cJSON_AddBoolToObject(reply, "net_default_state", true);
}

void wifi_close(const cJSON *, cJSON *reply, command_context &c) {
    c.target.network.wifi.mode = "off";
    cJSON_AddBoolToObject(reply, "wifi_close_state", true);
}

constexpr command_row rows[] = {
    {"set_NetIP", "set_NetIP", set_ip},
    {"set_wifi_ap", "set_wifi_ap", wifi_ap},
    {"set_wifi_sta", "set_wifi_sta", wifi_sta},
    {"set_usb", "set_usb", set_usb},
    {"set_RS485", "set_RS485", set_rs485},
    {"get_wired_net", "get_wired_net", wired_net},
    {"get_wifi_net", "get_wifi_net", wifi_net},
    {"set_net_default", "set_net_default", net_default},
    {"set_wifi_close", "set_wifi_close", wifi_close},
};

} // namespace

const family network_family{rows};

} // namespace sim
