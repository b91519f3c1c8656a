// Realtime state push configuration, by hand: "custom" is an object of switches, the force frame
// only on force-sensing arms.
#include "core/command.h"

namespace {

bool has_force_sensor(const arm_record *arm) {
    int type = arm ? load_public(arm->pub.force_type) : 0;
    return type == KA_FORCE_TYPE_ZF || type == KA_FORCE_TYPE_6F;
}

// "custom": 1 on, 0 off; a negative one is not sent (the setting stays), a missing one reads -1.
using custom = ka_realtime_push_custom_t;
// clang-format off
constexpr std::pair<const char *, int32_t custom::*> switches[] = {{"joint_speed", &custom::joint_speed}, {"lift_state", &custom::lift_state}, {"expand_state", &custom::expand_state}, {"arm_current_status", &custom::arm_current_status}};
// clang-format on

} // namespace

// Irregular: "custom" is built only once the arm is held, so it cannot be left unowned.
extern "C" int ka_set_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t config) {
    constexpr const char *function = "ka_set_realtime_push";
    constexpr const char *command = "set_realtime_push";
    arm_ptr arm = registry_find(handle);
    if (!arm) {
        ka_log_error("[%s] handle is NULL!\n", "ka_get_robot_info"); // names the lookup, kept so
        return -1;
    }
    cJSON *on_off = cJSON_CreateObject();
    for (const auto &[key, member] : switches)
        if (config.custom.*member >= 0)
            cJSON_AddBoolToObject(on_off, key, config.custom.*member != 0);
    ka_request_field fields[7] = {cmd::text("command", command),
                                  cmd::boolean("enable", config.enable)};
    int count = 2;
    if (config.cycle > 0) fields[count++] = cmd::number("cycle", config.cycle);
    if (config.port > 0) fields[count++] = cmd::number("port", config.port);
    size_t ip_length = strnlen(config.ip, sizeof config.ip);
    if (ip_length >= 7 && ip_length <= 15) fields[count++] = cmd::text("ip", config.ip);
    // Spelled so on the set side; the controller reports "force_coordinate".
    if (config.force_coordinate > 0 && has_force_sensor(arm.get()))
        fields[count++] = cmd::number("force_cordinate", config.force_coordinate);
    fields[count++] = cmd::item("custom", on_off);
    if (common_json_pack_set(arm.get(), fields, count) != 0) {
        ka_log_error("[%s] %s send error\n", function, command);
        return -1;
    }
    cmd::reply_text reply;
    if (wait_for_line(*arm, command, reply.text, sizeof reply.text, m_nOutTime + 200) < 1) {
        ka_log_error("[%s] %s revice error\n", function, command);
        return -2;
    }
    return parse_ka_set_command(function, reply.text, "state");
}

// The handle keeps the port the controller pushes to.
extern "C" int ka_get_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t *config) {
    if (!config) return -1;
    ka_reply_field fields[] = {cmd::int_field("cycle"),   cmd::int_field("port"),
                               cmd::text_field("ip"),     cmd::bool_field("enable"),
                               cmd::item_field("custom"), cmd::int_field("force_coordinate")};
    const bool force = has_force_sensor(registry_find(handle).get());
    cmd::query_result r =
        cmd::read(cmd::query<"get_realtime_push">(), handle, std::span(fields, force ? 6 : 5));
    json_ptr on_off(fields[4].value.item);
    if (r.status != 0) return r.status;
    config->cycle = fields[0].value.i;
    config->port = fields[1].value.i;
    std::snprintf(config->ip, sizeof config->ip, "%s", fields[2].value.s);
    config->enable = fields[3].value.b;
    if (force) config->force_coordinate = fields[5].value.i;
    for (const auto &[key, member] : switches)
        config->custom.*member = MIO_JSON_GetObjectItemBool(on_off.get(), key);
    if (arm_ptr arm = registry_find(handle)) {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        arm->push_port = config->port;
    }
    return 0;
}
