// Global waypoints: the controller's table of named arm configurations.
#include "core/command.h"

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

// The parts of a waypoint reply, checked, and how much of each text is kept.
struct waypoint_reply {
    const char *name;
    const char *work;
    const char *tool;
    const char *time;
    const int32_t *joints; // DOF entries, millidegrees
    const int32_t *pose;   // six wire integers
};
struct text_limits {
    size_t name, frame, time;
};
constexpr text_limits given_limits{16, 10, 28};
// List entries keep their frame names and time whole, as far as the record holds them.
constexpr text_limits list_limits{16, KA_NAME_SIZE - 1, KA_WAYPOINT_TIME_SIZE - 1};

// Writes the reply into the record; the quaternion, never on the wire, stays.
void store(ka_waypoint_t &point, const waypoint_reply &r, const text_limits &limits, int dof) {
    copy_text(point.point_name, r.name, limits.name);
    for (int i = 0; i < dof && i < KA_JOINTS; ++i)
        point.joint[i] = scale::from_thousandths(r.joints[i]);
    cmd::pose_from_wire(r.pose, point.pose);
    copy_text(point.work_frame, r.work, limits.frame);
    copy_text(point.tool_frame, r.tool, limits.frame);
    copy_text(point.time, r.time, limits.time);
}

int list_parse_error(const char *what) {
    ka_log_error("[%s] %s parse err\n", list_function, what);
    return -3;
}

// An array of exactly count numbers into out (room for count).
bool read_integers(const cJSON *array, int count, int32_t *out) {
    if (!cJSON_IsArray(array) || cJSON_GetArraySize(array) != count) return false;
    int i = 0;
    for (const cJSON *element = array->child; element; element = element->next, ++i) {
        if (!cJSON_IsNumber(element)) return false;
        out[i] = json_int(element);
    }
    return true;
}

// One element of the listed page; false when it breaks a rule.
bool read_list_point(const cJSON *element, int dof, ka_waypoint_t &point) {
    int32_t joints[KA_JOINTS] = {};
    int32_t pose[6] = {};
    waypoint_reply r{MIO_JSON_GetObjectItemStr(element, "point_name"),
                     MIO_JSON_GetObjectItemStr(element, "work_frame"),
                     MIO_JSON_GetObjectItemStr(element, "tool_frame"),
                     MIO_JSON_GetObjectItemStr(element, "time"),
                     joints,
                     pose};
    if (!r.name || !r.work || !r.tool || !r.time) return false;
    if (!read_integers(cJSON_GetObjectItem(element, "joint"), dof, joints) ||
        !read_integers(cJSON_GetObjectItem(element, "pose"), 6, pose))
        return false;
    store(point, r, list_limits, dof);
    return true;
}

} // namespace

namespace waypoints {

// Fills total_size, list_len and the points in reply order. A page longer
// than the record holds is cut at its capacity; the first element that breaks
// a rule ends the parse (-3) and the records before it stay. Outside the
// file's own namespace so that tests can feed it pages longer than one reply
// line carries.
int parse_list(const char *text, int dof, ka_waypoint_list_t &list) {
    json_ptr doc = json_parse(text);
    if (!doc) return list_parse_error("Waypoints list");
    if (const cJSON *state = cJSON_GetObjectItem(doc.get(), "get_state")) {
        if (cJSON_IsFalse(state)) {
            ka_log_error("[%s] %s: false\n", list_function, "get_state");
            return 1;
        }
        if (!cJSON_IsTrue(state)) return list_parse_error("get_state");
    }
    const cJSON *total = cJSON_GetObjectItem(doc.get(), "total_size");
    if (!cJSON_IsNumber(total)) return list_parse_error("total_size");
    list.total_size = json_int(total);
    const cJSON *points = cJSON_GetObjectItem(doc.get(), "list");
    if (!cJSON_IsArray(points)) return list_parse_error("list");
    list.list_len = std::min(cJSON_GetArraySize(points), KA_WAYPOINT_LIST_CAPACITY);
    int index = 0;
    for (const cJSON *element = points->child; element && index < list.list_len;
         element = element->next, ++index)
        if (!read_list_point(element, dof, list.points[index])) return list_parse_error("Waypoint");
    return 0;
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
    ka_reply_field fields[] = {cmd::text_field("point_name"), cmd::ints_field("joint", dof),
                               cmd::ints_field("pose", 6),    cmd::text_field("work_frame"),
                               cmd::text_field("tool_frame"), cmd::text_field("time")};
    if (common_json_parse(given_function, reply.text, fields, 6) != 0)
        return parse_ka_set_command(given_function, reply.text, "given_state") == 1 ? 1 : -3;
    store(*waypoint,
          {fields[0].value.s, fields[3].value.s, fields[4].value.s, fields[5].value.s,
           fields[1].value.a, fields[2].value.a},
          given_limits, dof);
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
