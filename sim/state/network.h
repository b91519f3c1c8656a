// Network settings: stored and returned, never applied.
#pragma once

#include <string>

namespace sim {

struct wired_settings {
    std::string ip = "192.168.1.18";
    std::string mask = "255.255.255.0";
    std::string mac = "02:4b:41:00:01:18";
};

struct wifi_settings {
    std::string mode = "ap"; // "ap", "sta" or "off"
    std::string ssid = "ka-arm";
    std::string password = "ka123456";
    int channel = 6; // access-point mode
    std::string ip = "192.168.33.80";
    std::string mask = "255.255.255.0";
    std::string mac = "02:4b:41:00:02:18";
};

struct network_store {
    wired_settings wired;
    wifi_settings wifi;
    int usb_baudrate = 460800;
    int rs485_baudrate = 115200;
};

} // namespace sim
