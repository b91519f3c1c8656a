// Global waypoints: named arm configurations stored with their joints
// (millidegrees), pose (micrometres and milliradians), frame names and the
// time the client stamped them with, all returned exactly as received.
#include "sim/families/family.h"
#include "sim/families/paging.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t k_max_time_text = 28;

bool fits(const std::optional<std::string> &text, std::size_t max, bool may_be_empty) {
    return text && text->size() <= max && (may_be_empty || !text->empty());
}

// The waypoint a request describes, when every key is present and the
// joints are within the arm's limits.
std::optional<stored_waypoint> waypoint_of(const cJSON *request, const arm &target) {
    const int dof = target.traits().dof;
    stored_waypoint w;
    const auto name = json_string(request, "point_name");
    const auto joint = json_ints(request, "joint", dof);
    const auto pose = json_ints(request, "pose", 6);
    const auto work = json_string(request, "work_frame");
    const auto tool = json_string(request, "tool_frame");
    const auto time = json_string(request, "time");
    if (!fits(name, k_max_waypoint_name, false) || !joint || !pose ||
        !fits(work, k_max_frame_name, false) || !fits(tool, k_max_frame_name, false) ||
        !fits(time, k_max_time_text, true))
        return std::nullopt;
    std::array<double, 7> degrees{};
    for (int j = 0; j < dof; ++j)
        degrees[j] = (*joint)[j] / k_milli;
    if (!target.within_limits(degrees)) return std::nullopt;
    return stored_waypoint{*name, *joint, *pose, *work, *tool, *time};
}

std::vector<stored_waypoint>::iterator find_waypoint(program_store &s, const cJSON *request) {
    const auto name = json_string(request, "point_name");
    if (!name) return s.waypoints.end();
    return std::find_if(s.waypoints.begin(), s.waypoints.end(),
                        [&](const stored_waypoint &w) { return w.name == *name; });
}

void add_waypoint_keys(cJSON *object, const stored_waypoint &w) {
    cJSON_AddStringToObject(object, "point_name", w.name.c_str());
    json_add_ints(object, "joint", w.joint);
    json_add_ints(object, "pose", w.pose);
    cJSON_AddStringToObject(object, "work_frame", w.work_frame.c_str());
    cJSON_AddStringToObject(object, "tool_frame", w.tool_frame.c_str());
    cJSON_AddStringToObject(object, "time", w.time.c_str());
}

void add_waypoint(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    auto w = waypoint_of(request, c.target);
    const bool ok =
        w && s.waypoints.size() < k_max_waypoints && find_waypoint(s, request) == s.waypoints.end();
    if (ok) s.waypoints.push_back(std::move(*w));
    cJSON_AddBoolToObject(reply, "add_state", ok);
}

void update_waypoint(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    auto w = waypoint_of(request, c.target);
    const auto stored = find_waypoint(s, request);
    const bool ok = w && stored != s.waypoints.end();
    if (ok) *stored = std::move(*w);
    cJSON_AddBoolToObject(reply, "update_state", ok);
}

void delete_waypoint(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto stored = find_waypoint(s, request);
    const bool ok = stored != s.waypoints.end();
    if (ok) s.waypoints.erase(stored);
    cJSON_AddBoolToObject(reply, "delete_state", ok);
}

void given_waypoint(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto stored = find_waypoint(s, request);
    cJSON_AddBoolToObject(reply, "given_state", stored != s.waypoints.end());
    if (stored != s.waypoints.end()) add_waypoint_keys(reply, *stored);
}

// Pages count from 1; "vague_search" keeps the waypoints whose name
// contains it.
void list_waypoints(const cJSON *request, cJSON *reply, command_context &c) {
    const auto page = read_page_request(request);
    cJSON_AddBoolToObject(reply, "get_state", page.has_value());
    if (page) add_page(reply, *page, c.target.programs.waypoints, add_waypoint_keys);
}

constexpr command_row rows[] = {
    {"add_global_waypoint", "add_global_waypoint", add_waypoint},
    {"update_global_waypoint", "update_global_waypoint", update_waypoint},
    {"delete_global_waypoint", "delete_global_waypoint", delete_waypoint},
    {"given_global_waypoint", "given_global_waypoint", given_waypoint},
    {"get_global_waypoints_list", "get_global_waypoints_list", list_waypoints},
};

} // namespace

const family waypoint_family{rows};

} // namespace sim
