// Realtime state push configuration: where and how often the controller pushes the arm's state.
#include "core/reply_schema.h"

namespace {

bool has_force_sensor(const arm_record *arm) {
    int type = arm ? load_public(arm->pub.force_type) : 0;
    return type == KA_FORCE_TYPE_ZF || type == KA_FORCE_TYPE_6F;
}

// "custom": 1 on, 0 off; a negative one is not sent (the setting stays), a missing one reads -1.
using custom = ka_realtime_push_custom_t;
using push = ka_realtime_push_config_t;

// The handle keeps the port the controller pushes to.
int keep_port(const char *, ka_robot_handle *handle, const char *, void *record) {
    reply::keep<&arm_record::push_port>(handle, static_cast<const push *>(record)->port);
    return 0;
}

// clang-format off
constexpr reply::field switches[] = {reply::number<&custom::joint_speed>("joint_speed"), reply::number<&custom::lift_state>("lift_state"), reply::number<&custom::expand_state>("expand_state"), reply::number<&custom::arm_current_status>("arm_current_status")};
// A non-boolean "enable" reads false; the force frame is read only on force-sensing arms.
constexpr reply::field push_fields[] = {reply::number<&push::cycle>("cycle"), reply::number<&push::port>("port"), reply::text<&push::ip>("ip", sizeof push{}.ip - 1, reply::text_rule::terminated), reply::flag<&push::enable>("enable").or_false(), reply::switches<&push::custom>("custom", switches), reply::number<&push::force_coordinate>("force_coordinate")};
constexpr reply::schema with_force = reply::common(push_fields);
constexpr reply::schema without_force = reply::common(std::span(push_fields).first(5));
constexpr auto set_push = cmd::set<"set_realtime_push">("state", nullptr, m_nOutTime + 200);
constexpr reply::record_query get_push{.command = cmd::query<"get_realtime_push">(), .reply = &with_force, .then = keep_port, .reply_for = [](ka_robot_handle *h) { return has_force_sensor(registry_find(h).get()) ? &with_force : &without_force; }};
// clang-format on

} // namespace

// Irregular: each key goes only when set; "custom" is built once the handle is known.
extern "C" int ka_set_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t config) {
    const arm_ptr arm = registry_find_logged("ka_get_robot_info", handle); // the line names it so
    if (!arm) return -1;
    ka_request_field fields[6] = {cmd::boolean("enable", config.enable)};
    int count = 1;
    if (config.cycle > 0) fields[count++] = cmd::number("cycle", config.cycle);
    if (config.port > 0) fields[count++] = cmd::number("port", config.port);
    size_t ip_length = strnlen(config.ip, sizeof config.ip);
    if (ip_length >= 7 && ip_length <= 15) fields[count++] = cmd::text("ip", config.ip);
    // Spelled so on the set side; the controller reports "force_coordinate".
    if (config.force_coordinate > 0 && has_force_sensor(arm.get()))
        fields[count++] = cmd::number("force_cordinate", config.force_coordinate);
    cJSON *on_off = cJSON_CreateObject();
    for (const reply::field &f : switches)
        if (const int32_t on = *static_cast<int32_t *>(f.at(&config.custom, 0)); on >= 0)
            cJSON_AddBoolToObject(on_off, f.key, on != 0);
    fields[count++] = cmd::item("custom", on_off);
    return cmd::run(set_push, handle, std::span(fields, count));
}

extern "C" int ka_get_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t *config) {
    return get_push(handle, config);
}
