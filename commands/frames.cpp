// Tool and work frames.
#include "algo/handover.h"
#include "core/command.h"
#include "core/reply_schema.h"
#include "core/wait.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

using reply::scale_tag;

// The current frames: a tool frame's name may be missing (and is kept to 10
// characters), a work frame's is required (12). Pose arrays may be longer
// than six; the centre of mass is never behind the flange, so a negative
// coordinate marks a reply this library does not accept. The info lines
// keep their historical spelling.
constexpr reply::field current_tool_fields[] = {
    reply::text<&ka_frame_t::frame_name>("tool_name", 10)
        .loose()
        .show("[%s] Tool frame Name: %s\n"),
    reply::pose<&ka_frame_t::pose>("pose")
        .at_least()
        .named("Tool frame pose")
        .show("[%s] Tool frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n"),
    reply::number<&ka_frame_t::payload>("payload", scale_tag::thousandths)
        .positive()
        .named("Tool frame payload")
        .show("[%s] Tool frame payloda: %.3f\n"),
    reply::numbers_into<&ka_frame_t::x, &ka_frame_t::y, &ka_frame_t::z>("position",
                                                                        scale_tag::millionths)
        .at_least()
        .positive()
        .named("Tool frame position")
        .show("[%s] Tool frame position: (%.3f, %.3f, %.3f)\n"),
};
constexpr reply::field current_work_fields[] = {
    reply::text<&ka_frame_t::frame_name>("frame_name", 12)
        .named("Work frame Name")
        .show("[%s] Work frame Name: %s\n"),
    reply::pose<&ka_frame_t::pose>("pose")
        .at_least()
        .named("Work frame pose")
        .show("[%s] Work frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n"),
};
constexpr reply::schema current_tool_reply{
    current_tool_fields, -1, "[%s] Current tool frame parse err\n", "[%s] %s parse err\n"};
constexpr reply::schema current_work_reply{
    current_work_fields, -1, "[%s] Current Work frame parse err\n", "[%s] %s parse err\n"};

// The given frames, checked as the common parse checks.
constexpr reply::field given_tool_fields[] = {
    reply::text<&ka_frame_t::frame_name>("tool_name", 10),
    reply::pose<&ka_frame_t::pose>("pose"),
    reply::number<&ka_frame_t::payload>("payload", scale_tag::thousandths),
    reply::numbers_into<&ka_frame_t::x, &ka_frame_t::y, &ka_frame_t::z>("position",
                                                                        scale_tag::millionths),
};
constexpr reply::field given_work_fields[] = {reply::checked_text("frame_name"),
                                              reply::pose<&ka_frame_t::pose>("pose")};
constexpr reply::schema given_tool_reply{given_tool_fields, -3, nullptr, nullptr, true};
constexpr reply::schema given_work_reply{given_work_fields, -3, nullptr, nullptr, true};

// Name lists: the controller pads them with "NULL" entries, and both may
// come under either key. The caller's count is left alone for an empty list.
struct name_page {
    ka_frame_name_t *items;
    int *count;
};
constexpr reply::field frame_name_field[] = {
    reply::text<&ka_frame_name_t::name>(nullptr, KA_NAME_SIZE)};
constexpr reply::schema frame_name_entry{frame_name_field};
constexpr reply::field name_page_fields[] = {
    reply::list<&name_page::items, &name_page::count>("frame_names", frame_name_entry,
                                                      KA_FRAME_LIST_CAPACITY)
        .or_key("tool_names")
        .until_null()};
constexpr reply::schema name_page_reply{name_page_fields, -2, "Get total frame name parse err\n"};

// Envelope spheres: radius and centre in millimetres. More spheres than the
// record holds are not read; an entry that breaks a rule ends the read with
// the entries before it filled.
constexpr reply::field ball_fields[] = {
    reply::text<&ka_envelope_ball_t::name>("name", KA_NAME_SIZE),
    reply::number<&ka_envelope_ball_t::radius>("radius", scale_tag::thousandths),
    reply::number<&ka_envelope_ball_t::x>("x", scale_tag::thousandths),
    reply::number<&ka_envelope_ball_t::y>("y", scale_tag::thousandths),
    reply::number<&ka_envelope_ball_t::z>("z", scale_tag::thousandths),
};
constexpr reply::schema ball_entry{ball_fields};
constexpr reply::field envelope_fields[] = {
    reply::verdict("get_state", "[%s] Get tool envelope return false! You can check if the "
                                "tool frame exists.\n")
        .loose(),
    reply::text<&ka_envelope_balls_list_t::tool_name>("tool_name", KA_NAME_SIZE),
    reply::list<&ka_envelope_balls_list_t::balls, &ka_envelope_balls_list_t::size>(
        "list", ball_entry, KA_ENVELOPE_BALLS)
        .count_before(),
};
constexpr reply::schema envelope_reply{envelope_fields, -3, "[%s] parser error!"};

struct frame_read {
    const char *function; // label of the log lines
    const char *api;      // the exported function
    const char *command;
    const char *reply;
    const reply::schema *schema;
    bool tool;
};
constexpr frame_read tool_read{"get_current_tool_frame", "ka_get_current_tool_frame",
                               "get_current_tool_frame", "current_tool_frame",
                               &current_tool_reply,      true};
constexpr frame_read work_read{"get_current_work_frame", "ka_get_current_work_frame",
                               "get_current_work_frame", "current_work_frame",
                               &current_work_reply,      false};

int read_current_frame(const frame_read &r, ka_robot_handle *handle, ka_frame_t *out) {
    if (!out) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{r.api, r.command, r.reply}, handle, reply);
    if (n < 1) return n;
    ka_frame_t frame = *out; // the quaternion is never sent: it stays as the caller had it
    if (int parsed = reply::read(*r.schema, r.function, reply.text, frame); parsed != 0)
        return parsed;
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

int read_names(const name_list &l, ka_robot_handle *handle, ka_frame_name_t *list, int *count) {
    if (!list || !count) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{l.function, l.command, l.reply}, handle, reply);
    if (n < 1) return n;
    name_page page{list, count};
    return reply::read(name_page_reply, l.function, reply.text, page);
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
    return reply::read(given_tool_reply, function, reply.text, frame);
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
    ka_frame_t frame{};
    frame.pose = pose; // the quaternion is never on the wire
    int parsed = reply::read(given_work_reply, function, reply.text, frame);
    if (parsed == 0) pose = frame.pose;
    return parsed;
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
    return reply::read(envelope_reply, "ka_get_tool_envelope", reply.text, *list);
}
}
