// Realtime state push: configuration commands.
#include "core/command.h"

#include <cstring>
#include <mutex>

namespace {

bool has_force_sensor(const ka_robot_handle *handle) {
    arm_ptr arm = registry_find(handle);
    int type = arm ? load_public(arm->pub.force_type) : 0;
    return type == KA_FORCE_TYPE_ZF || type == KA_FORCE_TYPE_6F;
}

} // namespace

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
    int count = has_force_sensor(handle) ? 6 : 5;
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
    config->custom.arm_current_status = MIO_JSON_GetObjectItemBool(custom.get(), "arm_current_status");
    if (arm_ptr arm = registry_find(handle)) {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        arm->push_port = config->port;
    }
    return 0;
}
