// Global waypoints: the controller's table of named arm configurations.
#include "core/reply_schema.h"

namespace {

constexpr const char *list_function = "ka_get_global_waypoints_list";

// Add and update: the controller stores the local time the waypoint was sent at.
int send_waypoint(const cmd::set_command &c, ka_robot_handle *handle, ka_waypoint_t &point) {
    if (!cmd::arm_dof(handle)) return cmd::disconnected(c.function);
    platform::format_local_time(point.time, sizeof point.time, ':');
    const auto name = cmd::text_of(point.point_name);
    const auto work = cmd::text_of(point.work_frame);
    const auto tool = cmd::text_of(point.tool_frame);
    const auto time = cmd::text_of(point.time);
    return c(handle, name.text, static_cast<const float *>(point.joint), point.pose, work.text,
             tool.text, time.text);
}

using reply::text_rule;
// clang-format off
// The quaternion is never on the wire; a given waypoint keeps 10 characters of its frame names and 28
// of its time, a listed one all the record holds.
using point = ka_waypoint_t;
template <int Frame, int Time>
constexpr reply::field waypoint_fields[] = {reply::text<&point::point_name>("point_name", 16, text_rule::cleared), reply::numbers<&point::joint>("joint", cmd::per_joint, reply::scale_tag::millidegrees), reply::pose<&point::pose>("pose"),
    reply::text<&point::work_frame>("work_frame", Frame, text_rule::cleared), reply::text<&point::tool_frame>("tool_frame", Frame, text_rule::cleared), reply::text<&point::time>("time", Time, text_rule::cleared)};
constexpr reply::schema given_reply = reply::common(waypoint_fields<10, 28>);
constexpr reply::schema list_entry{waypoint_fields<KA_NAME_SIZE - 1, KA_WAYPOINT_TIME_SIZE - 1>};

// A page is cut at the record's capacity; a bad entry ends the read, those before it stay.
constexpr reply::field page_fields[] = {reply::verdict("get_state", "[%s] %s: false\n"), reply::number<&ka_waypoint_list_t::total_size>("total_size"),
    reply::list<&ka_waypoint_list_t::points, &ka_waypoint_list_t::list_len>("list", list_entry, KA_WAYPOINT_LIST_CAPACITY).count_before().atomic().entry_named("Waypoint")};
constexpr reply::schema page_reply{page_fields, -3, "[%s] Waypoints list parse err\n", "[%s] %s parse err\n"};

constexpr std::initializer_list<cmd::arg> point_args = {{"point_name"}, {"joint", cmd::as::joints}, {"pose", cmd::as::pose}, {"work_frame"}, {"tool_frame"}, {"time"}};
constexpr auto add_point = cmd::set<"add_global_waypoint">("add_state", nullptr, m_nOutTime, point_args);
constexpr auto update_point = cmd::set<"update_global_waypoint">("update_state", nullptr, m_nOutTime, point_args);
constexpr auto delete_point = cmd::set<"delete_global_waypoint">("delete_state", nullptr, m_nOutTime, {{"point_name"}});
// 1 when the controller has no such waypoint ("given_state" false).
constexpr reply::record_query given_point{.command = cmd::query<"given_global_waypoint", "ka_get_given_global_waypoint">(nullptr, {}, {{"point_name"}}), .reply = &given_reply, .refused_key = "given_state"};
// Slow to gather (two seconds); the record takes the request's page and search text.
constexpr reply::page_record_query list_page{.command = {list_function, "get_global_waypoints_list", m_nOutTime_max + 1000}, .reply = &page_reply, .dof_first = true, .echo = reply::echo_page<ka_waypoint_list_t>};
// clang-format on

} // namespace

namespace waypoints {

// Outside the file's namespace: tests feed it pages longer than one reply line carries.
int parse_list(const char *text, int dof, ka_waypoint_list_t &list) {
    return reply::read(page_reply, list_function, text, list, dof);
}

} // namespace waypoints

extern "C" {

// clang-format off
int ka_add_global_waypoint(ka_robot_handle *h, ka_waypoint_t *waypoint) { return waypoint ? send_waypoint(add_point, h, *waypoint) : -1; }
int ka_update_global_waypoint(ka_robot_handle *h, ka_waypoint_t *waypoint) { return waypoint ? send_waypoint(update_point, h, *waypoint) : -1; }
int ka_delete_global_waypoint(ka_robot_handle *h, const char *point_name) { return delete_point(h, point_name); }
int ka_get_given_global_waypoint(ka_robot_handle *h, const char *point_name, ka_waypoint_t *waypoint) { return given_point(h, waypoint, point_name); }
int ka_get_global_waypoints_list(ka_robot_handle *h, int page_num, int page_size, const char *vague_search, ka_waypoint_list_t *list) { return list_page(h, page_num, page_size, vague_search, list); }
// clang-format on

} // extern "C"
