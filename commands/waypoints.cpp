// Global waypoints: the controller's table of named arm configurations.
#include "core/command.h"
#include "core/reply_schema.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace {

constexpr auto add_point = cmd::set<"add_global_waypoint">("add_state");
constexpr auto update_point = cmd::set<"update_global_waypoint">("update_state");
constexpr auto delete_point = cmd::set<"delete_global_waypoint">("delete_state");

constexpr const char *given_function = "ka_get_given_global_waypoint";
constexpr const char *given_command = "given_global_waypoint";
constexpr const char *list_function = "ka_get_global_waypoints_list";
constexpr const char *list_command = "get_global_waypoints_list";
// A page of waypoints is slow to gather: two seconds.
constexpr int list_wait = m_nOutTime_max + 1000;

// At most `limit` characters of text into field, always terminated, the rest
// of the field zeroed.
template <size_t N> void copy_text(char (&field)[N], const char *text, size_t limit) {
    size_t n = strnlen(text, std::min(limit, N - 1));
    std::memcpy(field, text, n);
    std::memset(field + n, 0, N - n);
}

// The controller stores the time the waypoint was sent at, in local time.
void stamp_local_time(char (&out)[KA_WAYPOINT_TIME_SIZE]) {
    platform::format_local_time(out, sizeof out, ':');
}

// Add and update: joints in millidegrees (DOF of them), pose as six wire
// integers, and the time stamped now.
int send_waypoint(const cmd::set_command &c, ka_robot_handle *handle, ka_waypoint_t &point,
                  int dof) {
    stamp_local_time(point.time);
    auto name = cmd::text_of(point.point_name);
    auto work = cmd::text_of(point.work_frame);
    auto tool = cmd::text_of(point.tool_frame);
    auto time = cmd::text_of(point.time);
    cmd::wire_joints joints = cmd::joints_to_wire(point.joint, dof);
    cmd::wire_pose pose = cmd::pose_to_wire(point.pose);
    return cmd::run(c, handle,
                    {cmd::text("point_name", name.text),
                     cmd::numbers("joint", joints.v, joints.count), cmd::numbers("pose", pose.v, 6),
                     cmd::text("work_frame", work.text), cmd::text("tool_frame", tool.text),
                     cmd::text("time", time.text)});
}

using reply::scale_tag;
using reply::text_rule;

// A waypoint: joints in millidegrees, one per joint of the arm; pose as six
// wire integers; the quaternion, never on the wire, stays. A given waypoint
// keeps 10 characters of its frame names and 28 of its time, a listed one
// all the record holds.
template <int Frame, int Time>
constexpr reply::field waypoint_fields[] = {
    reply::text<&ka_waypoint_t::point_name>("point_name", 16, text_rule::cleared),
    reply::numbers<&ka_waypoint_t::joint>("joint", cmd::per_joint, scale_tag::millidegrees),
    reply::pose<&ka_waypoint_t::pose>("pose"),
    reply::text<&ka_waypoint_t::work_frame>("work_frame", Frame, text_rule::cleared),
    reply::text<&ka_waypoint_t::tool_frame>("tool_frame", Frame, text_rule::cleared),
    reply::text<&ka_waypoint_t::time>("time", Time, text_rule::cleared),
};
constexpr reply::schema given_reply{waypoint_fields<10, 28>, -3, nullptr, nullptr, true};
constexpr reply::schema list_entry{waypoint_fields<KA_NAME_SIZE - 1, KA_WAYPOINT_TIME_SIZE - 1>};

// A page longer than the record holds is cut at its capacity; the first
// element that breaks a rule ends the read and the records before it stay.
constexpr reply::field page_fields[] = {
    reply::verdict("get_state", "[%s] %s: false\n"),
    reply::number<&ka_waypoint_list_t::total_size>("total_size"),
    reply::list<&ka_waypoint_list_t::points, &ka_waypoint_list_t::list_len>(
        "list", list_entry, KA_WAYPOINT_LIST_CAPACITY)
        .count_before()
        .atomic()
        .entry_named("Waypoint"),
};
constexpr reply::schema page_reply{page_fields, -3, "[%s] Waypoints list parse err\n",
                                   "[%s] %s parse err\n"};

} // namespace

namespace waypoints {

// Fills total_size, list_len and the points in reply order. Outside the
// file's own namespace so that tests can feed it pages longer than one reply
// line carries.
int parse_list(const char *text, int dof, ka_waypoint_list_t &list) {
    return reply::read(page_reply, list_function, text, list, dof);
}

} // namespace waypoints

extern "C" {

int ka_add_global_waypoint(ka_robot_handle *h, ka_waypoint_t *waypoint) {
    if (!waypoint) return -1;
    int dof = cmd::arm_dof(h);
    if (!dof) return cmd::disconnected(add_point.function);
    return send_waypoint(add_point, h, *waypoint, dof);
}

int ka_update_global_waypoint(ka_robot_handle *h, ka_waypoint_t *waypoint) {
    if (!waypoint) return -1;
    int dof = 0;
    if (ka_get_arm_dof(h, &dof) != 0) return cmd::disconnected(update_point.function);
    return send_waypoint(update_point, h, *waypoint, dof);
}

int ka_delete_global_waypoint(ka_robot_handle *h, const char *point_name) {
    if (!point_name) return -1;
    return cmd::run(delete_point, h, {cmd::text("point_name", point_name)});
}

// 1 when the controller has no such waypoint ("given_state" false).
int ka_get_given_global_waypoint(ka_robot_handle *h, const char *point_name,
                                 ka_waypoint_t *waypoint) {
    if (!point_name || !waypoint) return -1;
    cmd::reply_text reply;
    int n = cmd::exchange(given_function, h, given_command, {cmd::text("point_name", point_name)},
                          given_command, m_nOutTime, reply.text, sizeof reply.text);
    if (n < 1) return n;
    int dof = 0;
    if (ka_get_arm_dof(h, &dof) != 0) return cmd::disconnected(given_function);
    if (reply::read(given_reply, given_function, reply.text, *waypoint, dof) != 0)
        return parse_ka_set_command(given_function, reply.text, "given_state") == 1 ? 1 : -3;
    return 0;
}

// vague_search null lists every waypoint.
int ka_get_global_waypoints_list(ka_robot_handle *h, int page_num, int page_size,
                                 const char *vague_search, ka_waypoint_list_t *list) {
    if (!list) return -1;
    int dof = cmd::arm_dof(h);
    if (!dof) return cmd::disconnected(list_function);
    std::vector<char> reply;
    int n = cmd::run(cmd::page_query{list_function, list_command, list_wait}, h, page_num,
                     page_size, vague_search, reply);
    if (n < 1) return n;
    // The reply does not echo the request: the record takes it from the call.
    list->page_num = page_num;
    list->page_size = page_size;
    copy_text(list->vague_search, vague_search ? vague_search : "", KA_SEARCH_TEXT_SIZE - 1);
    return waypoints::parse_list(reply.data(), dof, *list);
}

} // extern "C"
