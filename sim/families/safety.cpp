// Safety configuration: stored electronic fences, the active fence, the
// virtual wall, self-collision detection, the run mode and the joint and
// tool-board software versions. Zone geometry crosses the wire in
// millimetres and is stored exactly as received.
#include "sim/families/family.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace sim {

namespace {

enum zone_form { cube = 1, plane = 2, sphere = 3 };

struct form_keys {
    int form;
    std::vector<const char *> keys; // in wire order, the order of safety_zone::values
};

const std::array<form_keys, 3> &forms() {
    static const std::array<form_keys, 3> table{{
        {cube,
         {"x_max_limit", "x_min_limit", "y_max_limit", "y_min_limit", "z_max_limit",
          "z_min_limit"}},
        {plane, {"x1", "y1", "z1", "x2", "y2", "z2", "x3", "y3", "z3"}},
        {sphere, {"radius", "x", "y", "z"}},
    }};
    return table;
}

const form_keys *keys_of(int form) {
    for (const form_keys &f : forms())
        if (f.form == form) return &f;
    return nullptr;
}

// A zone that encloses something: a box with each maximum above its
// minimum, a plane through three points not on one line, a sphere with a
// radius.
bool proper(const safety_zone &z) {
    const std::vector<int> &v = z.values;
    switch (z.form) {
    case cube:
        return v[0] > v[1] && v[2] > v[3] && v[4] > v[5];
    case plane: {
        const double ax = v[3] - v[0], ay = v[4] - v[1], az = v[5] - v[2];
        const double bx = v[6] - v[0], by = v[7] - v[1], bz = v[8] - v[2];
        const double cx = ay * bz - az * by, cy = az * bx - ax * bz, cz = ax * by - ay * bx;
        return cx * cx + cy * cy + cz * cz > 0;
    }
    case sphere:
        return v[0] > 0;
    }
    return false;
}

// The zone a request describes, when its form is one of `accepted` and all
// of the form's keys are integers.
std::optional<safety_zone> zone_of(const cJSON *request, std::initializer_list<int> accepted) {
    const auto form = json_int(request, "form");
    if (!form || std::find(accepted.begin(), accepted.end(), *form) == accepted.end())
        return std::nullopt;
    safety_zone zone;
    zone.form = *form;
    for (const char *key : keys_of(*form)->keys) {
        const auto value = json_int(request, key);
        if (!value) return std::nullopt;
        zone.values.push_back(*value);
    }
    if (!proper(zone)) return std::nullopt;
    return zone;
}

void add_zone_keys(cJSON *object, const safety_zone &zone) {
    cJSON_AddNumberToObject(object, "form", zone.form);
    const form_keys *keys = keys_of(zone.form);
    if (!keys) return;
    for (std::size_t i = 0; i < keys->keys.size() && i < zone.values.size(); ++i)
        cJSON_AddNumberToObject(object, keys->keys[i], zone.values[i]);
}

std::optional<std::string> fence_name(const cJSON *request) {
    auto name = json_string(request, "form_name");
    if (!name || name->empty() || name->size() > k_max_fence_name) return std::nullopt;
    return name;
}

std::vector<safety_zone>::iterator find_fence(safety_store &s, const std::string &name) {
    return std::find_if(s.fences.begin(), s.fences.end(),
                        [&](const safety_zone &z) { return z.name == name; });
}

void add_fence(const cJSON *request, cJSON *reply, command_context &c) {
    safety_store &s = c.target.safety;
    auto zone = zone_of(request, {cube, plane, sphere});
    const auto name = fence_name(request);
    const bool ok =
        zone && name && s.fences.size() < k_max_fences && find_fence(s, *name) == s.fences.end();
    if (ok) {
        zone->name = *name;
        s.fences.push_back(*zone);
    }
    cJSON_AddBoolToObject(reply, "add_config", ok);
}

void update_fence(const cJSON *request, cJSON *reply, command_context &c) {
    safety_store &s = c.target.safety;
    auto zone = zone_of(request, {cube, plane, sphere});
    const auto name = fence_name(request);
    const auto stored = name ? find_fence(s, *name) : s.fences.end();
    const bool ok = zone && stored != s.fences.end();
    if (ok) {
        zone->name = *name;
        *stored = *zone;
    }
    cJSON_AddBoolToObject(reply, "update_config", ok);
}

void delete_fence(const cJSON *request, cJSON *reply, command_context &c) {
    safety_store &s = c.target.safety;
    const auto name = json_string(request, "form_name");
    const auto stored = name ? find_fence(s, *name) : s.fences.end();
    const bool ok = stored != s.fences.end();
    if (ok) s.fences.erase(stored);
    cJSON_AddBoolToObject(reply, "delete_config", ok);
}

void fence_names(const cJSON *, cJSON *reply, command_context &c) {
    cJSON *names = cJSON_AddArrayToObject(reply, "name_list");
    for (const safety_zone &z : c.target.safety.fences)
        cJSON_AddItemToArray(names, cJSON_CreateString(z.name.c_str()));
}

void given_fence(const cJSON *request, cJSON *reply, command_context &c) {
    safety_store &s = c.target.safety;
    const auto name = json_string(request, "form_name");
    const auto stored = name ? find_fence(s, *name) : s.fences.end();
    cJSON_AddBoolToObject(reply, "given_state", stored != s.fences.end());
    if (stored == s.fences.end()) return;
    cJSON_AddStringToObject(reply, "form_name", stored->name.c_str());
    add_zone_keys(reply, *stored);
}

void fence_infos(const cJSON *, cJSON *reply, command_context &c) {
    cJSON *list = cJSON_AddArrayToObject(reply, "info_list");
    for (const safety_zone &z : c.target.safety.fences) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "form_name", z.name.c_str());
        add_zone_keys(item, z);
        cJSON_AddItemToArray(list, item);
    }
}

// "set_enable", "in_out_side" (0 inside, 1 outside) and "effective_region"
// (0 whole arm, 1 tool only).
std::optional<zone_enable> enable_of(const cJSON *request) {
    const auto enable = json_bool(request, "set_enable");
    const auto side = json_int(request, "in_out_side");
    const auto region = json_int(request, "effective_region");
    if (!enable || !side || !region || *side < 0 || *side > 1 || *region < 0 || *region > 1)
        return std::nullopt;
    return zone_enable{*enable, *side, *region};
}

void add_enable(cJSON *reply, const zone_enable &e) {
    cJSON_AddBoolToObject(reply, "enable_state", e.enabled);
    cJSON_AddNumberToObject(reply, "in_out_side", e.in_out_side);
    cJSON_AddNumberToObject(reply, "effective_region", e.effective_region);
}

void set_fence_enable(const cJSON *request, cJSON *reply, command_context &c) {
    const auto e = enable_of(request);
    if (e) c.target.safety.fence_enable = *e;
    cJSON_AddBoolToObject(reply, "set_state", e.has_value());
}

void get_fence_enable(const cJSON *, cJSON *reply, command_context &c) {
    add_enable(reply, c.target.safety.fence_enable);
}

void set_wall_enable(const cJSON *request, cJSON *reply, command_context &c) {
    const auto e = enable_of(request);
    if (e) c.target.safety.wall_enable = *e;
    cJSON_AddBoolToObject(reply, "set_state", e.has_value());
}

void get_wall_enable(const cJSON *, cJSON *reply, command_context &c) {
    add_enable(reply, c.target.safety.wall_enable);
}

// The active fence is a box or a plane; the virtual wall a box or a sphere.
void set_fence(const cJSON *request, cJSON *reply, command_context &c) {
    const auto zone = zone_of(request, {cube, plane});
    if (zone) c.target.safety.fence = *zone;
    cJSON_AddBoolToObject(reply, "set_config", zone.has_value());
}

void get_fence(const cJSON *, cJSON *reply, command_context &c) {
    add_zone_keys(reply, c.target.safety.fence);
}

void set_wall(const cJSON *request, cJSON *reply, command_context &c) {
    const auto zone = zone_of(request, {cube, sphere});
    if (zone) c.target.safety.wall = *zone;
    cJSON_AddBoolToObject(reply, "set_config", zone.has_value());
}

void get_wall(const cJSON *, cJSON *reply, command_context &c) {
    add_zone_keys(reply, c.target.safety.wall);
}

void set_self_collision(const cJSON *request, cJSON *reply, command_context &c) {
    const auto enable = json_bool(request, "set_enable");
    if (enable) c.target.safety.self_collision = *enable;
    cJSON_AddBoolToObject(reply, "set_state", enable.has_value());
}

void get_self_collision(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "enable_state", c.target.safety.self_collision);
}

// The result key of this command is "mode" itself.
void set_run_mode(const cJSON *request, cJSON *reply, command_context &c) {
    const auto mode = json_int(request, "mode");
    const bool ok = mode && (*mode == 0 || *mode == 1);
    if (ok) c.target.safety.run_mode = *mode;
    cJSON_AddBoolToObject(reply, "mode", ok);
}

void get_run_mode(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "mode", c.target.safety.run_mode);
}

// Firmware versions as major * 10000 + minor * 100 + patch.
constexpr int k_joint_firmware = 30412; // 3.4.12
constexpr int k_tool_firmware = 20105;  // 2.1.5

void joint_versions(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(
        reply, "version",
        std::vector<int>(static_cast<std::size_t>(c.target.traits().dof), k_joint_firmware));
}

void tool_version(const cJSON *, cJSON *reply, command_context &) {
    cJSON_AddNumberToObject(reply, "version", k_tool_firmware);
}

constexpr command_row rows[] = {
    {"add_electronic_fence_config", "add_electronic_fence_config", add_fence},
    {"update_electronic_fence_config", "update_electronic_fence_config", update_fence},
    {"delete_electronic_fence_config", "delete_electronic_fence_config", delete_fence},
    {"get_electronic_fence_list_names", "get_electronic_fence_list_names", fence_names},
    {"given_electronic_fence_config", "given_electronic_fence_config", given_fence},
    {"get_electronic_fence_list_infos", "get_electronic_fence_list_infos", fence_infos},
    {"set_electronic_fence_enable", "set_electronic_fence_enable", set_fence_enable},
    {"get_electronic_fence_enable", "get_electronic_fence_enable", get_fence_enable},
    {"set_electronic_fence_config", "set_electronic_fence_config", set_fence},
    {"get_electronic_fence_config", "get_electronic_fence_config", get_fence},
    {"set_virtual_wall_enable", "set_virtual_wall_enable", set_wall_enable},
    {"get_virtual_wall_enable", "get_virtual_wall_enable", get_wall_enable},
    {"set_virtual_wall_config", "set_virtual_wall_config", set_wall},
    {"get_virtual_wall_config", "get_virtual_wall_config", get_wall},
    {"set_self_collision_enable", "set_self_collision_enable", set_self_collision},
    {"get_self_collision_enable", "get_self_collision_enable", get_self_collision},
    {"set_arm_run_mode", "set_arm_run_mode", set_run_mode},
    {"get_arm_run_mode", "get_arm_run_mode", get_run_mode},
    {"get_joint_software_version", "joint_software_version", joint_versions},
    {"get_tool_software_version", "tool_software_version", tool_version},
};

} // namespace

const family safety_family{rows};

} // namespace sim
