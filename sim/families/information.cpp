// Software information, power state and the realtime push settings.
#include "sim/families/family.h"

#include <utility>

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
    cJSON *plan = cJSON_AddObjectToObject(reply, "plan_info");
    cJSON_AddStringToObject(plan, "version", "SIM-P1.0");
    cJSON_AddStringToObject(plan, "build_time", "2026-01-01 00:00");
}

void power_state(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "power_state", c.target.controller.power ? 1 : 0);
}

// "arm_power" 1 powers the joints (each keeps its enable setting), 0 cuts
// them: a running motion stops where it is and the brakes hold the arm.
void set_power(const cJSON *request, cJSON *reply, command_context &c) {
    const auto power = json_int(request, "arm_power");
    const bool ok = power && (*power == 0 || *power == 1);
    if (ok) {
        if (*power == 0)
            for (const motion_end &end : c.target.stop(c.now))
                c.reports.push_back(completion_report(end));
        c.target.controller.power = *power == 1;
    }
    cJSON_AddBoolToObject(reply, "arm_power", ok);
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

// "enable" is always sent; the other keys, when left out, keep their value,
// and a key of the wrong type refuses the whole setting. The sensor frame is
// spelled "force_cordinate" on this side of the protocol.
void set_push(const cJSON *request, cJSON *reply, command_context &c) {
    push_config p = c.target.push;
    const auto present = [](const cJSON *object, const char *key) {
        return cJSON_GetObjectItemCaseSensitive(object, key) != nullptr;
    };
    const auto enable = json_bool(request, "enable");
    bool ok = enable.has_value();
    if (enable) p.enable = *enable;
    if (auto v = json_int(request, "cycle")) {
        if (*v < 1 || *v > 100) ok = false;
        p.cycle = *v;
    } else if (present(request, "cycle")) {
        ok = false;
    }
    if (auto v = json_int(request, "port")) {
        if (*v < 1 || *v > 65535) ok = false;
        p.port = *v;
    } else if (present(request, "port")) {
        ok = false;
    }
    if (auto v = json_string(request, "ip"))
        p.ip = *v;
    else if (present(request, "ip"))
        ok = false;
    if (auto v = json_int(request, "force_cordinate"))
        p.force_coordinate = *v;
    else if (present(request, "force_cordinate"))
        ok = false;
    if (const cJSON *custom = cJSON_GetObjectItemCaseSensitive(request, "custom")) {
        if (!cJSON_IsObject(custom)) ok = false;
        const std::pair<const char *, bool *> parts[] = {
            {"joint_speed", &p.joint_speed},
            {"lift_state", &p.lift_state},
            {"expand_state", &p.expand_state},
            {"arm_current_status", &p.arm_current_status},
        };
        for (const auto &[key, value] : parts) {
            if (auto v = json_bool(custom, key))
                *value = *v;
            else if (present(custom, key))
                ok = false;
        }
    }
    if (ok) c.target.push = p;
    cJSON_AddBoolToObject(reply, "state", ok);
}

constexpr command_row rows[] = {
    {"get_arm_software_info", "arm_software_info", software_info},
    {"get_arm_power_state", "arm_power_state", power_state},
    {"set_arm_power", "set_arm_power", set_power},
    {"get_realtime_push", "get_realtime_push", get_push},
    {"set_realtime_push", "set_realtime_push", set_push},
};

} // namespace

const family information_family{rows};

} // namespace sim
