// Realtime state push: configuration commands.
#include "core/command.h"

#include <cstring>
#include <mutex>
#include <utility>

namespace {

bool has_force_sensor(const arm_record *arm) {
    int type = arm ? load_public(arm->pub.force_type) : 0;
    return type == KA_FORCE_TYPE_ZF || type == KA_FORCE_TYPE_6F;
}

} // namespace

// Written on the engine's parts rather than through cmd::run: the "custom"
// item is handed to the line only once the arm is held, so a handle that
// goes away in between cannot leave it unowned.
extern "C" int ka_set_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t config) {
    constexpr const char *function = "ka_set_realtime_push";
    constexpr const char *command = "set_realtime_push";
    arm_ptr arm = registry_find(handle);
    if (!arm) {
        // The line names the lookup, not this function; kept so.
        ka_log_error("[%s] handle is NULL!\n", "ka_get_robot_info");
        return -1;
    }
    // Each part: 1 on, 0 off, negative leaves the controller's setting as it is.
    cJSON *custom = cJSON_CreateObject();
    const std::pair<const char *, int32_t> parts[] = {
        {"joint_speed", config.custom.joint_speed},
        {"lift_state", config.custom.lift_state},
        {"expand_state", config.custom.expand_state},
        {"arm_current_status", config.custom.arm_current_status}};
    for (const auto &[key, value] : parts)
        if (value >= 0) cJSON_AddBoolToObject(custom, key, value != 0);

    ka_request_field fields[7];
    int count = 0;
    fields[count++] = cmd::text("command", command);
    fields[count++] = cmd::boolean("enable", config.enable);
    if (config.cycle > 0) fields[count++] = cmd::number("cycle", config.cycle);
    if (config.port > 0) fields[count++] = cmd::number("port", config.port);
    size_t ip_length = strnlen(config.ip, sizeof config.ip);
    if (ip_length >= 7 && ip_length <= 15) fields[count++] = cmd::text("ip", config.ip);
    // Spelled so on the set side; the controller reports "force_coordinate".
    if (config.force_coordinate > 0 && has_force_sensor(arm.get()))
        fields[count++] = cmd::number("force_cordinate", config.force_coordinate);
    fields[count++] = cmd::item("custom", custom);

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

// Written by hand: "custom" is an object of switches, and "force_coordinate"
// is read only when the arm has a force sensor.
extern "C" int ka_get_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t *config) {
    constexpr const char *function = "ka_get_realtime_push";
    if (!config) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{function, "get_realtime_push", "get_realtime_push"}, handle,
                     reply);
    if (n < 1) return n;
    ka_reply_field fields[] = {cmd::int_field("cycle"),   cmd::int_field("port"),
                               cmd::text_field("ip"),     cmd::bool_field("enable"),
                               cmd::item_field("custom"), cmd::int_field("force_coordinate")};
    int count = has_force_sensor(registry_find(handle).get()) ? 6 : 5;
    int parsed = common_json_parse(function, reply.text, fields, count);
    json_ptr custom(fields[4].value.item);
    if (parsed != 0) return parsed;
    config->cycle = fields[0].value.i;
    config->port = fields[1].value.i;
    std::snprintf(config->ip, sizeof config->ip, "%s", fields[2].value.s);
    config->enable = fields[3].value.b;
    if (count == 6) config->force_coordinate = fields[5].value.i;
    config->custom.joint_speed = MIO_JSON_GetObjectItemBool(custom.get(), "joint_speed");
    config->custom.lift_state = MIO_JSON_GetObjectItemBool(custom.get(), "lift_state");
    config->custom.expand_state = MIO_JSON_GetObjectItemBool(custom.get(), "expand_state");
    config->custom.arm_current_status =
        MIO_JSON_GetObjectItemBool(custom.get(), "arm_current_status");
    if (arm_ptr arm = registry_find(handle)) {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        arm->push_port = config->port;
    }
    return 0;
}
