// Software information, power state and the realtime push settings.
#include "sim/families/family.h"

namespace sim {

namespace {

void software_info(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddStringToObject(reply, "Product_version", c.target.traits().product.c_str());
    cJSON *algorithm = cJSON_AddObjectToObject(reply, "algorithm_info");
    cJSON_AddStringToObject(algorithm, "version", "SIM-ALGO-1.0");
    cJSON *ctrl = cJSON_AddObjectToObject(reply, "ctrl_info");
    cJSON_AddStringToObject(ctrl, "version", "SIM-1.0");
    cJSON_AddStringToObject(ctrl, "build_time", "2026-01-01 00:00");
    cJSON *dynamic = cJSON_AddObjectToObject(reply, "dynamic_info");
    cJSON_AddStringToObject(dynamic, "model_version", "S1");
}

void power_state(const cJSON *, cJSON *reply, command_context &) {
    cJSON_AddNumberToObject(reply, "power_state", 1);
}

void get_push(const cJSON *, cJSON *reply, command_context &c) {
    const push_config p = c.target.push;
    cJSON_AddNumberToObject(reply, "cycle", p.cycle);
    cJSON_AddBoolToObject(reply, "enable", p.enable);
    cJSON_AddNumberToObject(reply, "port", p.port);
    cJSON_AddStringToObject(reply, "ip", p.ip.c_str());
    cJSON_AddNumberToObject(reply, "force_coordinate", p.force_coordinate);
    cJSON *custom = cJSON_AddObjectToObject(reply, "custom");
    cJSON_AddBoolToObject(custom, "joint_speed", p.joint_speed);
    cJSON_AddBoolToObject(custom, "lift_state", p.lift_state);
    cJSON_AddBoolToObject(custom, "expand_state", p.expand_state);
    cJSON_AddBoolToObject(custom, "arm_current_status", p.arm_current_status);
}

// Keys left out of the request keep their value; the sensor frame is spelled
// "force_cordinate" on this side of the protocol.
void set_push(const cJSON *request, cJSON *reply, command_context &c) {
    push_config p = c.target.push;
    bool ok = true;
    if (auto v = json_bool(request, "enable")) p.enable = *v;
    if (auto v = json_int(request, "cycle")) {
        if (*v < 1 || *v > 100) ok = false;
        p.cycle = *v;
    }
    if (auto v = json_int(request, "port")) {
        if (*v < 1 || *v > 65535) ok = false;
        p.port = *v;
    }
    if (auto v = json_string(request, "ip")) p.ip = *v;
    if (auto v = json_int(request, "force_cordinate")) p.force_coordinate = *v;
    if (const cJSON *custom = cJSON_GetObjectItemCaseSensitive(request, "custom")) {
        if (auto v = json_bool(custom, "joint_speed")) p.joint_speed = *v;
        if (auto v = json_bool(custom, "lift_state")) p.lift_state = *v;
        if (auto v = json_bool(custom, "expand_state")) p.expand_state = *v;
        if (auto v = json_bool(custom, "arm_current_status")) p.arm_current_status = *v;
    }
    if (ok) c.target.push = p;
    cJSON_AddBoolToObject(reply, "state", ok);
}

constexpr command_row rows[] = {
    {"get_arm_software_info", "arm_software_info", software_info},
    {"get_arm_power_state", "arm_power_state", power_state},
    {"get_realtime_push", "get_realtime_push", get_push},
    {"set_realtime_push", "set_realtime_push", set_push},
};

} // namespace

const family information_family{rows};

} // namespace sim
