// Tool and work frames.
#include "algo/handover.h"
#include "core/command.h"
#include "core/wait.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

// The six pose integers: x, y, z in micrometres, rx, ry, rz in milliradians.
bool read_pose(const cJSON *array, ka_pose_t &pose) {
    if (!cJSON_IsArray(array) || cJSON_GetArraySize(array) < 6) return false;
    int32_t v[6];
    for (int i = 0; i < 6; ++i) {
        const cJSON *item = cJSON_GetArrayItem(array, i);
        if (!cJSON_IsNumber(item)) return false;
        v[i] = json_int(item);
    }
    cmd::pose_from_wire(v, pose);
    return true;
}

// How a current-frame reply is read: the tool frame also carries payload and
// centre of mass; the work frame requires its name.
struct frame_read {
    const char *function; // label of the log lines
    const char *api;      // the exported function
    const char *command;
    const char *reply;
    const char *name_key;
    size_t name_limit; // 10 for tool frames, 12 for work frames
    bool tool;
};

constexpr frame_read tool_read{"get_current_tool_frame",
                               "ka_get_current_tool_frame",
                               "get_current_tool_frame",
                               "current_tool_frame",
                               "tool_name",
                               10,
                               true};
constexpr frame_read work_read{"get_current_work_frame",
                               "ka_get_current_work_frame",
                               "get_current_work_frame",
                               "current_work_frame",
                               "frame_name",
                               12,
                               false};

int parse_error(const char *function, const char *what) {
    ka_log_error("[%s] %s parse err\n", function, what);
    return -1;
}

int parse_frame(const frame_read &r, const char *text, ka_frame_t &frame) {
    json_ptr doc = json_parse(text);
    const char *kind = r.tool ? "Tool frame" : "Work frame";
    if (!doc) return parse_error(r.function, r.tool ? "Current tool frame" : "Current Work frame");
    const cJSON *root = doc.get();
    const char *name = MIO_JSON_GetObjectItemStr(root, r.name_key);
    if (!name && !r.tool) return parse_error(r.function, "Work frame Name");
    if (name) {
        std::strncpy(frame.frame_name, name, r.name_limit);
        ka_log_info("[%s] %s Name: %s\n", r.function, kind, name);
    }
    if (!read_pose(cJSON_GetObjectItem(root, "pose"), frame.pose))
        return parse_error(r.function, r.tool ? "Tool frame pose" : "Work frame pose");
    const ka_pose_t &p = frame.pose;
    ka_log_info("[%s] %s pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n", r.function, kind,
                p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz);
    if (!r.tool) return 0;
    int payload = MIO_JSON_GetObjectItemInt(root, "payload");
    if (payload < 0) return parse_error(r.function, "Tool frame payload");
    frame.payload = scale::from_thousandths(payload);
    ka_log_info("[%s] Tool frame payloda: %.3f\n", r.function, frame.payload);
    // The centre of mass is never behind the flange: a negative coordinate
    // marks a reply this library does not accept.
    const cJSON *position = cJSON_GetObjectItem(root, "position");
    float com[3];
    for (int i = 0; i < 3; ++i) {
        const cJSON *item = cJSON_IsArray(position) ? cJSON_GetArrayItem(position, i) : nullptr;
        com[i] = cJSON_IsNumber(item) ? scale::from_millionths(json_int(item)) : -1.0f;
        if (com[i] < 0) return parse_error(r.function, "Tool frame position");
    }
    frame.x = com[0];
    frame.y = com[1];
    frame.z = com[2];
    ka_log_info("[%s] Tool frame position: (%.3f, %.3f, %.3f)\n", r.function, com[0], com[1],
                com[2]);
    return 0;
}

int read_current_frame(const frame_read &r, ka_robot_handle *handle, ka_frame_t *out) {
    if (!out) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{r.api, r.command, r.reply}, handle, reply);
    if (n < 1) return n;
    ka_frame_t frame = *out; // the quaternion is never sent: it stays as the caller had it
    if (int parsed = parse_frame(r, reply.text, frame); parsed != 0) return parsed;
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        (r.tool ? arm->tool_frame : arm->work_frame) = frame;
    }
    if (r.tool)
        algo_set_current_tool_frame(frame);
    else
        algo_set_current_work_frame(frame);
    *out = frame;
    return 0;
}

// The refreshed current frame starts from the handle's cached one, so that
// the quaternion (never on the wire) keeps its last value.
ka_frame_t cached_frame(const frame_read &r, ka_robot_handle *handle) {
    ka_frame_t frame{};
    if (arm_ptr arm = registry_find(handle)) {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        frame = r.tool ? arm->tool_frame : arm->work_frame;
    }
    return frame;
}

// ------------------------------------------------------ creating frames

constexpr auto auto_tool = cmd::set<"set_auto_tool_frame">("auto_tool_frame");
// The controller answers the generation under the calibration command's name.
constexpr auto generate_tool =
    cmd::set<"generate_auto_tool_frame">("auto_tool_frame", "set_auto_tool_frame");
constexpr auto manual_tool = cmd::set<"set_manual_tool_frame">("manual_tool_frame");
constexpr auto update_tool = cmd::set<"update_tool_frame">("update_state");
constexpr auto auto_work = cmd::set<"set_auto_work_frame">("auto_work_frame");
constexpr auto manual_work = cmd::set<"set_manual_work_frame">("manual_work_frame");
constexpr auto update_work = cmd::set<"update_work_frame">("update_state");

// Payload in grams, centre of mass in micrometres, pose as six wire integers.
int send_tool_frame(const cmd::set_command &c, ka_robot_handle *handle, const ka_frame_t &frame) {
    const auto name = cmd::text_of(frame.frame_name);
    const int32_t com[3] = {scale::millionths(frame.x), scale::millionths(frame.y),
                            scale::millionths(frame.z)};
    cmd::wire_pose pose = cmd::pose_to_wire(frame.pose);
    return cmd::run(c, handle,
                    {cmd::text("tool_name", name.text),
                     cmd::number("payload", scale::thousandths(frame.payload)),
                     cmd::numbers("position", com, 3), cmd::numbers("tool_pose", pose.v, 6)});
}

int send_work_frame(const cmd::set_command &c, ka_robot_handle *handle, const char *name,
                    const ka_pose_t &pose) {
    if (!name) return -1;
    cmd::wire_pose wire = cmd::pose_to_wire(pose);
    return cmd::run(c, handle,
                    {cmd::text("frame_name", name), cmd::numbers("frame_pose", wire.v, 6)});
}

// ------------------------------------------- selecting and deleting frames

// A selection or deletion, after which the controller's current frame is
// read back so that the handle's copy and the kinematics follow it.
struct frame_switch {
    cmd::set_command command;
    const char *name_key;
    const frame_read *reread;
};

constexpr frame_switch change_tool{
    cmd::set<"set_change_tool_frame", "ka_change_tool_frame">("change_tool_frame"), "tool_name",
    &tool_read};
constexpr frame_switch delete_tool{
    cmd::set<"set_delete_tool_frame", "ka_delete_tool_frame">("delete_tool_frame"), "tool_name",
    &tool_read};
constexpr frame_switch change_work{
    cmd::set<"set_change_work_frame", "ka_change_work_frame">("change_work_frame"), "frame_name",
    &work_read};
constexpr frame_switch delete_work{
    cmd::set<"set_delete_work_frame", "ka_delete_work_frame">("delete_work_frame"), "frame_name",
    &work_read};

int switch_frame(const frame_switch &s, ka_robot_handle *handle, const char *name) {
    if (!name) return -1;
    int result = cmd::run(s.command, handle, {cmd::text(s.name_key, name)});
    if (result != 0) return result;
    ka_frame_t scratch = cached_frame(*s.reread, handle);
    return read_current_frame(*s.reread, handle, &scratch);
}

// ---------------------------------------------------------- name lists

struct name_list {
    const char *function;
    const char *command;
    const char *reply;
};
constexpr name_list tool_names{"ka_get_total_tool_frame", "get_total_tool_frame",
                               "total_tool_frame"};
constexpr name_list work_names{"ka_get_total_work_frame", "get_total_work_frame",
                               "total_work_frame"};

// The controller pads its list with "NULL" entries; names end there.
int read_names(const name_list &l, ka_robot_handle *handle, ka_frame_name_t *list, int *count) {
    if (!list || !count) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{l.function, l.command, l.reply}, handle, reply);
    if (n < 1) return n;
    json_ptr doc = json_parse(reply.text);
    if (!doc) {
        ka_log_error("Get total frame name parse err\n");
        return -2;
    }
    // Both lists may come under either key.
    const cJSON *names = cJSON_GetObjectItem(doc.get(), "frame_names");
    if (!names) names = cJSON_GetObjectItem(doc.get(), "tool_names");
    if (!cJSON_IsArray(names)) return -2;
    int copied = 0;
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, names) {
        if (copied == KA_FRAME_LIST_CAPACITY || !cJSON_IsString(entry) ||
            std::strcmp(entry->valuestring, "NULL") == 0)
            break;
        std::strncpy(list[copied].name, entry->valuestring, KA_NAME_SIZE);
        *count = ++copied;
    }
    return 0;
}

// -------------------------------------------------------- given frames

// An unknown frame name is answered under the request's own command name
// with "get_state" false instead of under the data reply's name; that line
// is awaited, without sending, once the data reply has not come. Its
// judgement, or the wait's code.
int judge_refusal(const char *function, ka_robot_handle *handle, const char *reply_name,
                  int timeout_ms) {
    cmd::reply_text reply;
    int n =
        ka_pack_lock_wait(function, handle, reply_name, reply.text, sizeof reply.text, timeout_ms);
    if (n < 1) return n;
    return parse_ka_set_command(function, reply.text, "get_state");
}

// Read directly (thread mode 0), the refusal line is dropped while the first
// wait runs.
bool refusal_dropped() { return wait::current_reader().direct; }

int read_given_tool_frame(ka_robot_handle *handle, const char *tool_name, ka_frame_t &frame) {
    constexpr const char *function = "ka_get_given_tool_frame";
    cmd::reply_text reply;
    int n = cmd::exchange(function, handle, "get_tool_frame", {cmd::text("tool_name", tool_name)},
                          "given_tool_frame", m_nOutTime, reply.text, sizeof reply.text);
    if (n == -1) return n;
    if (n < 1) {
        int judged = judge_refusal(function, handle, "get_tool_frame", m_nOutTime);
        // Single-thread mode drops the refusal line while the first wait
        // runs, so a missing or unreadable second line counts as a refusal.
        return refusal_dropped() && judged < 0 ? 1 : n;
    }
    ka_reply_field fields[] = {cmd::text_field("tool_name"), cmd::ints_field("pose", 6),
                               cmd::int_field("payload"), cmd::ints_field("position", 3)};
    if (int parsed = common_json_parse(function, reply.text, fields, 4); parsed != 0) return parsed;
    std::strncpy(frame.frame_name, fields[0].value.s, tool_read.name_limit);
    cmd::pose_from_wire(fields[1].value.a, frame.pose);
    frame.payload = scale::from_thousandths(fields[2].value.i);
    frame.x = scale::from_millionths(fields[3].value.a[0]);
    frame.y = scale::from_millionths(fields[3].value.a[1]);
    frame.z = scale::from_millionths(fields[3].value.a[2]);
    return 0;
}

int read_given_work_frame(ka_robot_handle *handle, const char *frame_name, ka_pose_t &pose) {
    constexpr const char *function = "ka_get_given_work_frame";
    cmd::reply_text reply;
    int n = cmd::exchange(function, handle, "get_work_frame", {cmd::text("frame_name", frame_name)},
                          "given_work_frame", m_nOutTime, reply.text, sizeof reply.text);
    if (n == -1) return n;
    if (n < 1) {
        int judged = judge_refusal(function, handle, "get_work_frame", m_nOutTime_max);
        bool came = judged != -1 && judged != -2;
        return came || !refusal_dropped() ? judged : 1;
    }
    ka_reply_field fields[] = {cmd::text_field("frame_name"), cmd::ints_field("pose", 6)};
    if (int parsed = common_json_parse(function, reply.text, fields, 2); parsed != 0) return parsed;
    cmd::pose_from_wire(fields[1].value.a, pose);
    return 0;
}

// ------------------------------------------------------- tool envelope

constexpr const char *envelope_keys[] = {"radius", "x", "y", "z"};

int send_envelope(ka_robot_handle *handle, const ka_envelope_balls_list_t &list) {
    constexpr const char *function = "ka_set_tool_envelope";
    json_ptr object(cJSON_CreateObject());
    cJSON_AddItemToObject(object.get(), "command", cJSON_CreateString("set_tool_envelope"));
    cJSON_AddItemToObject(object.get(), "tool_name",
                          cJSON_CreateString(cmd::text_of(list.tool_name).text));
    cJSON *balls = cJSON_CreateArray();
    cJSON_AddItemToObject(object.get(), "list", balls);
    int size = std::clamp(list.size, 0, KA_ENVELOPE_BALLS);
    for (int i = 0; i < size; ++i) {
        const ka_envelope_ball_t &b = list.balls[i];
        cJSON *ball = cJSON_CreateObject();
        cJSON_AddItemToObject(ball, "name", cJSON_CreateString(cmd::text_of(b.name).text));
        // Radius and centre in millimetres.
        const float values[] = {b.radius, b.x, b.y, b.z};
        for (int k = 0; k < 4; ++k)
            cJSON_AddItemToObject(ball, envelope_keys[k],
                                  cJSON_CreateNumber(scale::thousandths(values[k])));
        cJSON_AddItemToArray(balls, ball);
    }
    // The controller takes this one command in the formatted print.
    return cmd::send_formatted(function, "set_tool_envelope", handle, object.get(), true);
}

int parse_envelope(const char *text, ka_envelope_balls_list_t &list) {
    constexpr const char *function = "ka_get_tool_envelope";
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("[%s] parser error!", function);
        return -3;
    }
    const cJSON *root = doc.get();
    if (MIO_JSON_GetObjectItemBool(root, "get_state") == 0) {
        ka_log_error("[%s] Get tool envelope return false! You can check if the tool frame "
                     "exists.\n",
                     function);
        return 1;
    }
    const char *tool_name = MIO_JSON_GetObjectItemStr(root, "tool_name");
    if (!tool_name) return -3;
    std::strncpy(list.tool_name, tool_name, KA_NAME_SIZE);
    const cJSON *balls = cJSON_GetObjectItem(root, "list");
    if (!cJSON_IsArray(balls)) return -3;
    // More spheres than the record holds are not read.
    list.size = std::min(cJSON_GetArraySize(balls), KA_ENVELOPE_BALLS);
    for (int i = 0; i < list.size; ++i) {
        const cJSON *entry = cJSON_GetArrayItem(balls, i);
        ka_envelope_ball_t &b = list.balls[i];
        const char *name = MIO_JSON_GetObjectItemStr(entry, "name");
        if (!name) return -3;
        std::strncpy(b.name, name, KA_NAME_SIZE);
        float *values[] = {&b.radius, &b.x, &b.y, &b.z};
        for (int k = 0; k < 4; ++k) {
            const cJSON *item = cJSON_GetObjectItem(entry, envelope_keys[k]);
            if (!cJSON_IsNumber(item)) return -3;
            *values[k] = scale::from_thousandths(json_int(item));
        }
    }
    return 0;
}

} // namespace

extern "C" {
int ka_get_current_tool_frame(ka_robot_handle *h, ka_frame_t *frame) {
    return read_current_frame(tool_read, h, frame);
}
int ka_get_current_work_frame(ka_robot_handle *h, ka_frame_t *frame) {
    return read_current_frame(work_read, h, frame);
}

int ka_change_tool_frame(ka_robot_handle *h, const char *tool_name) {
    return switch_frame(change_tool, h, tool_name);
}
int ka_delete_tool_frame(ka_robot_handle *h, const char *tool_name) {
    return switch_frame(delete_tool, h, tool_name);
}
int ka_change_work_frame(ka_robot_handle *h, const char *frame_name) {
    return switch_frame(change_work, h, frame_name);
}
int ka_delete_work_frame(ka_robot_handle *h, const char *frame_name) {
    return switch_frame(delete_work, h, frame_name);
}

int ka_set_auto_tool_frame(ka_robot_handle *h, int point_num) {
    return cmd::run(auto_tool, h, {cmd::number("point_num", point_num)});
}

int ka_generate_auto_tool_frame(ka_robot_handle *h, const char *tool_name, float payload, float x,
                                float y, float z) {
    if (!tool_name) return -1;
    const int32_t com[3] = {scale::millionths(x), scale::millionths(y), scale::millionths(z)};
    return cmd::run(generate_tool, h,
                    {cmd::text("tool_name", tool_name),
                     cmd::number("payload", scale::thousandths(payload)),
                     cmd::numbers("position", com, 3)});
}

int ka_set_manual_tool_frame(ka_robot_handle *h, ka_frame_t frame) {
    int result = send_tool_frame(manual_tool, h, frame);
    if (result == 1)
        ka_log_error("[%s] Failed to create the tool frame system, please check if the name "
                     "already exists",
                     manual_tool.function);
    return result;
}

int ka_update_tool_frame(ka_robot_handle *h, ka_frame_t frame) {
    return send_tool_frame(update_tool, h, frame);
}

int ka_set_auto_work_frame(ka_robot_handle *h, const char *frame_name, int point_num) {
    if (!frame_name) return -1;
    return cmd::run(auto_work, h,
                    {cmd::text("frame_name", frame_name), cmd::number("point_num", point_num)});
}

int ka_set_manual_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t pose) {
    return send_work_frame(manual_work, h, frame_name, pose);
}

int ka_update_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t pose) {
    return send_work_frame(update_work, h, frame_name, pose);
}

int ka_get_total_tool_frame(ka_robot_handle *h, ka_frame_name_t *list, int *count) {
    return read_names(tool_names, h, list, count);
}
int ka_get_total_work_frame(ka_robot_handle *h, ka_frame_name_t *list, int *count) {
    return read_names(work_names, h, list, count);
}

int ka_get_given_tool_frame(ka_robot_handle *h, const char *tool_name, ka_frame_t *frame) {
    if (!tool_name || !frame) return -1;
    return read_given_tool_frame(h, tool_name, *frame);
}
int ka_get_given_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t *pose) {
    if (!frame_name || !pose) return -1;
    return read_given_work_frame(h, frame_name, *pose);
}

// The formatted request, then the reply awaited without a second send.
int ka_set_tool_envelope(ka_robot_handle *h, ka_envelope_balls_list_t list) {
    if (int sent = send_envelope(h, list); sent != 0) return sent;
    cmd::reply_text reply;
    int n = ka_pack_lock_wait("ka_set_tool_envelope", h, "set_tool_envelope", reply.text,
                              sizeof reply.text, m_nOutTime);
    if (n < 1) return n;
    int result = parse_ka_set_command("ka_set_tool_envelope", reply.text, "set_state");
    if (result == 1)
        ka_log_error("[%s] Set tool envelope return false! You can check if the tool frame "
                     "exists.\n",
                     "ka_set_tool_envelope");
    return result;
}

int ka_get_tool_envelope(ka_robot_handle *h, const char *tool_name,
                         ka_envelope_balls_list_t *list) {
    if (!tool_name || !list) return -1;
    cmd::reply_text reply;
    int n = cmd::exchange("ka_get_tool_envelope", h, "get_tool_envelope",
                          {cmd::text("tool_name", tool_name)}, "get_tool_envelope", m_nOutTime,
                          reply.text, sizeof reply.text);
    if (n < 1) return n;
    return parse_envelope(reply.text, *list);
}
}
