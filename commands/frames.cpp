// Tool and work frames.
#include "algo/handover.h"
#include "core/reply_schema.h"
#include "core/wait.h"

namespace {

using frame = ka_frame_t;
constexpr auto thousandths = reply::scale_tag::thousandths;

// clang-format off
// Current frames: a tool name may be missing (10 characters kept), a work name not (12); poses may be longer than six; a negative centre of mass or payload is refused; the info lines keep their historical spelling.
constexpr reply::field current_tool_fields[] = {
    reply::text<&frame::frame_name>("tool_name", 10).loose().show("[%s] Tool frame Name: %s\n"),
    reply::pose<&frame::pose>("pose").at_least().named("Tool frame pose").show("[%s] Tool frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n"),
    reply::number<&frame::payload>("payload", thousandths).positive().named("Tool frame payload").show("[%s] Tool frame payloda: %.3f\n"),
    reply::numbers_into<&frame::x, &frame::y, &frame::z>("position", reply::scale_tag::millionths).at_least().positive().named("Tool frame position").show("[%s] Tool frame position: (%.3f, %.3f, %.3f)\n"),
};
constexpr reply::field current_work_fields[] = {reply::text<&frame::frame_name>("frame_name", 12).named("Work frame Name").show("[%s] Work frame Name: %s\n"),
    reply::pose<&frame::pose>("pose").at_least().named("Work frame pose").show("[%s] Work frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n")};
constexpr reply::schema current_tool_reply{current_tool_fields, -1, "[%s] Current tool frame parse err\n", "[%s] %s parse err\n"};
constexpr reply::schema current_work_reply{current_work_fields, -1, "[%s] Current Work frame parse err\n", "[%s] %s parse err\n"};
// The given frames, checked as the common parse checks.
constexpr reply::field given_tool_fields[] = {reply::text<&frame::frame_name>("tool_name", 10), reply::pose<&frame::pose>("pose"), reply::number<&frame::payload>("payload", thousandths), reply::numbers_into<&frame::x, &frame::y, &frame::z>("position", reply::scale_tag::millionths)};
constexpr reply::field given_work_fields[] = {reply::checked_text("frame_name"), reply::pose<&frame::pose>("pose")};
constexpr reply::schema given_tool_reply = reply::common(given_tool_fields);
constexpr reply::schema given_work_reply = reply::common(given_work_fields);
// Name lists: padded with "NULL" entries, under either key; an empty list leaves the caller's count alone.
constexpr reply::field frame_name_field[] = {reply::text<&ka_frame_name_t::name>(nullptr, KA_NAME_SIZE)};
constexpr reply::schema frame_name_entry{frame_name_field};
constexpr reply::field name_page_fields[] = {reply::page_list<ka_frame_name_t>("frame_names", frame_name_entry, KA_FRAME_LIST_CAPACITY).or_key("tool_names").until_null()};
constexpr reply::schema name_page_reply{name_page_fields, -2, "Get total frame name parse err\n"};
// Envelope spheres, millimetres on the wire, up to the record's room; an entry that breaks a rule ends the read, those before it filled.
using ball = ka_envelope_ball_t;
using balls = ka_envelope_balls_list_t;
constexpr reply::field ball_fields[] = {reply::text<&ball::name>("name", KA_NAME_SIZE), reply::number<&ball::radius>("radius", thousandths), reply::number<&ball::x>("x", thousandths), reply::number<&ball::y>("y", thousandths), reply::number<&ball::z>("z", thousandths)};
constexpr reply::schema ball_entry{ball_fields};
constexpr reply::field envelope_fields[] = {reply::verdict("get_state", "[%s] Get tool envelope return false! You can check if the tool frame exists.\n").loose(),
    reply::text<&balls::tool_name>("tool_name", KA_NAME_SIZE), reply::list<&balls::balls, &balls::size>("list", ball_entry, KA_ENVELOPE_BALLS).count_before()};
constexpr reply::schema envelope_reply{envelope_fields, -3, "[%s] parser error!"};
// clang-format on

// The current frame is kept on the handle, and the kinematics follow it.
template <ka_frame_t arm_record::*Kept, void (*Follow)(const ka_frame_t &)>
int keep_frame(const char *, ka_robot_handle *handle, const char *, void *record) {
    const auto &frame = *static_cast<const ka_frame_t *>(record);
    if (!reply::keep<Kept>(handle, frame)) return -1;
    Follow(frame); // outside the handle's lock: the kinematics are not the handle's
    return 0;
}

// Tool frames: payload in grams, centre of mass in micrometres, pose as six wire integers.
int send_tool(const cmd::set_command &c, ka_robot_handle *handle, const ka_frame_t &frame) {
    const auto name = cmd::text_of(frame.frame_name);
    return c(handle, name.text, frame.payload, frame.x, frame.y, frame.z, frame.pose);
}

// After a selection or deletion the current frame is read back into the handle's copy.
template <const reply::record_query &Current, ka_frame_t arm_record::*Kept>
int reread(ka_robot_handle *handle) {
    ka_frame_t frame{};
    if (arm_ptr arm = registry_find(handle)) {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        frame = (*arm).*Kept;
    }
    return Current(handle, &frame);
}

using cmd::as;
constexpr auto milli = as::thousandths;
constexpr auto micro = as::millionths;
// clang-format off
constexpr std::initializer_list<cmd::arg> tool_args = {{"tool_name"}, {"payload", milli}, {"position", micro}, {nullptr, micro}, {nullptr, micro}, {"tool_pose", as::pose}};
constexpr reply::record_query current_tool{.command = cmd::query<"get_current_tool_frame">("current_tool_frame"), .reply = &current_tool_reply, .whole = true, .then = keep_frame<&arm_record::tool_frame, algo_set_current_tool_frame>, .label = "get_current_tool_frame"};
constexpr reply::record_query current_work{.command = cmd::query<"get_current_work_frame">("current_work_frame"), .reply = &current_work_reply, .whole = true, .then = keep_frame<&arm_record::work_frame, algo_set_current_work_frame>, .label = "get_current_work_frame"};
constexpr auto change_tool = cmd::followed_by(cmd::set<"set_change_tool_frame", "ka_change_tool_frame">("change_tool_frame", nullptr, m_nOutTime, {{"tool_name"}}), reread<current_tool, &arm_record::tool_frame>);
constexpr auto delete_tool = cmd::followed_by(cmd::set<"set_delete_tool_frame", "ka_delete_tool_frame">("delete_tool_frame", nullptr, m_nOutTime, {{"tool_name"}}), reread<current_tool, &arm_record::tool_frame>);
constexpr auto change_work = cmd::followed_by(cmd::set<"set_change_work_frame", "ka_change_work_frame">("change_work_frame", nullptr, m_nOutTime, {{"frame_name"}}), reread<current_work, &arm_record::work_frame>);
constexpr auto delete_work = cmd::followed_by(cmd::set<"set_delete_work_frame", "ka_delete_work_frame">("delete_work_frame", nullptr, m_nOutTime, {{"frame_name"}}), reread<current_work, &arm_record::work_frame>);
constexpr auto auto_tool = cmd::set<"set_auto_tool_frame">("auto_tool_frame", nullptr, m_nOutTime, {{"point_num"}});
// The controller answers the generation under the calibration command's name.
constexpr auto generate_tool = cmd::set<"generate_auto_tool_frame">("auto_tool_frame", "set_auto_tool_frame", m_nOutTime, {{"tool_name"}, {"payload", milli}, {"position", micro}, {nullptr, micro}, {nullptr, micro}});
// A refusal has its own line, naming the likely cause.
constexpr auto manual_tool = cmd::refused(cmd::set<"set_manual_tool_frame">("manual_tool_frame", nullptr, m_nOutTime, tool_args), "[%s] Failed to create the tool frame system, please check if the name already exists");
// The formatted request's verdict, awaited without a second send.
constexpr auto envelope_set = cmd::refused(cmd::set<"set_tool_envelope">("set_state"), "[%s] Set tool envelope return false! You can check if the tool frame exists.\n");
constexpr auto update_tool = cmd::set<"update_tool_frame">("update_state", nullptr, m_nOutTime, tool_args);
constexpr auto auto_work = cmd::set<"set_auto_work_frame">("auto_work_frame", nullptr, m_nOutTime, {{"frame_name"}, {"point_num"}});
constexpr auto manual_work = cmd::set<"set_manual_work_frame">("manual_work_frame", nullptr, m_nOutTime, {{"frame_name"}, {"frame_pose", as::pose}});
constexpr auto update_work = cmd::set<"update_work_frame">("update_state", nullptr, m_nOutTime, {{"frame_name"}, {"frame_pose", as::pose}});
constexpr reply::record_query tool_names{.command = cmd::query<"get_total_tool_frame">("total_tool_frame"), .reply = &name_page_reply};
constexpr reply::record_query work_names{.command = cmd::query<"get_total_work_frame">("total_work_frame"), .reply = &name_page_reply};
constexpr reply::record_query given_tool{.command = cmd::query<"get_tool_frame", "ka_get_given_tool_frame">("given_tool_frame", {}, {{"tool_name"}}), .reply = &given_tool_reply};
constexpr reply::record_query given_work{.command = cmd::query<"get_work_frame", "ka_get_given_work_frame">("given_work_frame", {}, {{"frame_name"}}), .reply = &given_work_reply};
constexpr reply::record_query envelope{.command = cmd::query<"get_tool_envelope">(nullptr, {}, {{"tool_name"}}), .reply = &envelope_reply};
// clang-format on

// Irregular: a direct reader drops a refusal ("get_state") while waiting; tool and work differ.
int given(const reply::record_query &q, ka_robot_handle *h, const char *name, ka_frame_t *frame,
          bool tool) {
    const int n = q(h, frame, name);
    if (n != -2) return n;
    const cmd::query_command &c = q.command;
    const int judged = cmd::await(
        {c.function, c.command, c.command, "get_state", tool ? m_nOutTime : m_nOutTime_max}, h);
    const bool direct = wait::current_reader().direct;
    if (tool) return direct && judged < 0 ? 1 : n;
    return (judged != -1 && judged != -2) || !direct ? judged : 1;
}

} // namespace

extern "C" {

// clang-format off
int ka_get_current_tool_frame(ka_robot_handle *h, ka_frame_t *frame) { return current_tool(h, frame); }
int ka_get_current_work_frame(ka_robot_handle *h, ka_frame_t *frame) { return current_work(h, frame); }
int ka_change_tool_frame(ka_robot_handle *h, const char *tool_name) { return change_tool(h, tool_name); }
int ka_delete_tool_frame(ka_robot_handle *h, const char *tool_name) { return delete_tool(h, tool_name); }
int ka_change_work_frame(ka_robot_handle *h, const char *frame_name) { return change_work(h, frame_name); }
int ka_delete_work_frame(ka_robot_handle *h, const char *frame_name) { return delete_work(h, frame_name); }
int ka_set_auto_tool_frame(ka_robot_handle *h, int point_num) { return auto_tool(h, point_num); }
int ka_generate_auto_tool_frame(ka_robot_handle *h, const char *tool_name, float payload, float x, float y, float z) { return generate_tool(h, tool_name, payload, x, y, z); }
int ka_update_tool_frame(ka_robot_handle *h, ka_frame_t frame) { return send_tool(update_tool, h, frame); }
int ka_set_manual_tool_frame(ka_robot_handle *h, ka_frame_t frame) { return send_tool(manual_tool, h, frame); }
int ka_set_auto_work_frame(ka_robot_handle *h, const char *frame_name, int point_num) { return auto_work(h, frame_name, point_num); }
int ka_set_manual_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t pose) { return manual_work(h, frame_name, pose); }
int ka_update_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t pose) { return update_work(h, frame_name, pose); }
int ka_get_tool_envelope(ka_robot_handle *h, const char *tool_name, ka_envelope_balls_list_t *list) { return envelope(h, list, tool_name); }
int ka_get_total_tool_frame(ka_robot_handle *h, ka_frame_name_t *list, int *count) { return tool_names.list(h, list, count); }
int ka_get_total_work_frame(ka_robot_handle *h, ka_frame_name_t *list, int *count) { return work_names.list(h, list, count); }
int ka_get_given_tool_frame(ka_robot_handle *h, const char *tool_name, ka_frame_t *frame) { return given(given_tool, h, tool_name, frame, true); }
// clang-format on

int ka_get_given_work_frame(ka_robot_handle *h, const char *frame_name, ka_pose_t *pose) {
    if (!pose) return -1;
    ka_frame_t frame{};
    frame.pose = *pose; // the quaternion is never on the wire
    const int status = given(given_work, h, frame_name, &frame, false);
    if (status == 0) *pose = frame.pose;
    return status;
}

// Irregular: the one command taken in the formatted print, its reply awaited without a second send.
int ka_set_tool_envelope(ka_robot_handle *h, ka_envelope_balls_list_t list) {
    json_ptr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "command", envelope_set.command);
    cJSON_AddStringToObject(object.get(), "tool_name", cmd::text_of(list.tool_name).text);
    cJSON *balls = cJSON_AddArrayToObject(object.get(), "list");
    for (int i = 0; i < std::clamp(list.size, 0, KA_ENVELOPE_BALLS); ++i) {
        cJSON *ball = cJSON_CreateObject();
        cJSON_AddItemToArray(balls, ball);
        cJSON_AddStringToObject(ball, "name", cmd::text_of(list.balls[i].name).text);
        ka_request_field keys[std::size(ball_fields)]; // radius and centre, as read
        for (const auto &k : std::span(keys, reply::request(ball_entry, &list.balls[i], keys)))
            cJSON_AddNumberToObject(ball, k.key, k.value.i);
    }
    const char *function = envelope_set.function;
    int sent = cmd::send_formatted(function, envelope_set.command, h, object.get(), true);
    return sent != 0 ? sent : cmd::await(envelope_set, h);
}

} // extern "C"
