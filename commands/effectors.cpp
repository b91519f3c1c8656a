// End effectors on the tool flange: the electric gripper and the dexterous
// hand. Their actions are accepted at once and, when the caller blocks,
// followed until the controller reports that the effector's move has ended.
#include "core/command.h"
#include "core/wait.h"

#include <iterator>
#include <optional>

namespace {

// A gripper or hand action. The controller reports its end with the
// effector's device code; the statuses for a late report and for a report of
// another device differ between the actions and are kept as the controller's
// clients have always seen them.
struct effector_action {
    cmd::set_command accept; // the accepting line and its result key
    wait::policy wait;       // one read of the report within the caller's time-out
};

// An effector's report is read once; one without "trajectory_state" counts
// as a normal end.
constexpr effector_action effector(cmd::set_command accept, int device, int no_report,
                                   int other_device, bool log_no_report) {
    wait::policy p{accept.function};
    p.device = device;
    p.order = wait::read_order::report_only;
    p.strict_reading = false;
    p.no_report = no_report;
    p.other_device = other_device;
    p.log_no_report = log_no_report;
    return {accept, p};
}

// Every gripper action is answered under this one name, whatever was sent.
constexpr const char *gripper_reply = "set_gripper";

// clang-format off
constexpr effector_action release  = effector({"ka_set_gripper_release",  "set_gripper_release",  gripper_reply,      "state",     m_nOutTime_max}, wait::gripper, -4, -4, false);
constexpr effector_action pick     = effector({"ka_set_gripper_pick",     "set_gripper_pick",     gripper_reply,      "state",     m_nOutTime_max}, wait::gripper, -4, -5, false);
constexpr effector_action pick_on  = effector({"ka_set_gripper_pick_on",  "set_gripper_pick_on",  gripper_reply,      "state",     m_nOutTime_max}, wait::gripper, -4, -5, false);
constexpr effector_action position = effector({"ka_set_gripper_position", "set_gripper_position", gripper_reply,      "state",     m_nOutTime_max}, wait::gripper, -4, -5, true);
constexpr effector_action posture  = effector({"ka_set_hand_posture",     "set_hand_posture",     "set_hand_posture", "set_state", m_nOutTime_max}, wait::hand,    -5, -4, false);
constexpr effector_action sequence = effector({"ka_set_hand_seq",         "set_hand_seq",         "set_hand_seq",     "set_state", m_nOutTime_max}, wait::hand,    -5, -4, false);
// clang-format on

// Accepted, then with block the effector's report within `timeout` seconds.
int run_action(const effector_action &a, ka_robot_handle *handle,
               std::initializer_list<ka_request_field> fields, bool block, int timeout) {
    // Held from before the request goes out, so that the report cannot be
    // dropped by a lookup between the acceptance and the wait. An answer
    // nobody read (a gripper action that was only sent, or one that came
    // after its time-out) must not be taken for this one's.
    wait::session session(handle, a.wait, block, a.accept.reply);
    int status = cmd::run(a.accept, handle, fields);
    if (status != 0) return status;
    if (!block) return status;
    return session.wait(timeout, status);
}

// A gripper action with neither block nor time-out is only sent, and paced
// by a pause of one second; its answer is not read.
int run_gripper(const effector_action &a, ka_robot_handle *handle,
                std::initializer_list<ka_request_field> fields, bool block, int timeout) {
    if (block || timeout != 0) return run_action(a, handle, fields, block, timeout);
    return cmd::exchange(a.accept.function, handle, a.accept.command, fields, nullptr,
                         m_nOutTime_max, nullptr, 0);
}

constexpr auto route = cmd::set<"set_gripper_route">("state", nullptr, m_nOutTime_max);
constexpr auto hand_angle = cmd::set<"set_hand_angle">("set_state", nullptr, m_nOutTime_max);
constexpr auto hand_speed = cmd::set<"set_hand_speed">("set_state", nullptr, m_nOutTime_max);
constexpr auto hand_force = cmd::set<"set_hand_force">("set_state", nullptr, m_nOutTime_max);
constexpr auto gripper_state = cmd::query<"get_gripper_state">();

// The gripper state's reply keys, in record order.
constexpr struct {
    const char *key;
    int32_t ka_gripper_state_t::*member;
} gripper_state_keys[] = {
    {"enable", &ka_gripper_state_t::enable},
    {"status", &ka_gripper_state_t::status},
    {"error", &ka_gripper_state_t::error},
    {"mode", &ka_gripper_state_t::mode},
    {"current_force", &ka_gripper_state_t::current_force},
    {"temperature", &ka_gripper_state_t::temperature},
    {"actpos", &ka_gripper_state_t::actpos},
};

// The six finger angles, unscaled.
constexpr int hand_joints = 6;
struct finger_angles {
    int32_t v[hand_joints];
};
finger_angles fingers(const int *hand_angle) {
    finger_angles f{};
    for (int i = 0; i < hand_joints; ++i)
        f.v[i] = hand_angle[i];
    return f;
}

} // namespace

extern "C" {

int ka_set_gripper_route(ka_robot_handle *handle, int min_route, int max_route) {
    return cmd::run(route, handle, {cmd::number("min", min_route), cmd::number("max", max_route)});
}

int ka_set_gripper_release(ka_robot_handle *handle, int speed, bool block, int timeout) {
    return run_gripper(release, handle, {cmd::number("speed", speed), cmd::boolean("block", block)},
                       block, timeout);
}

int ka_set_gripper_pick(ka_robot_handle *handle, int speed, int force, bool block, int timeout) {
    return run_gripper(
        pick, handle,
        {cmd::number("speed", speed), cmd::number("force", force), cmd::boolean("block", block)},
        block, timeout);
}

int ka_set_gripper_pick_on(ka_robot_handle *handle, int speed, int force, bool block, int timeout) {
    return run_gripper(
        pick_on, handle,
        {cmd::number("speed", speed), cmd::number("force", force), cmd::boolean("block", block)},
        block, timeout);
}

int ka_set_gripper_position(ka_robot_handle *handle, int pos, bool block, int timeout) {
    return run_gripper(position, handle,
                       {cmd::number("position", pos), cmd::boolean("block", block)}, block,
                       timeout);
}

int ka_get_gripper_state(ka_robot_handle *handle, ka_gripper_state_t *state) {
    if (!state) return -1;
    ka_reply_field fields[std::size(gripper_state_keys)];
    for (size_t i = 0; i < std::size(fields); ++i)
        fields[i] = cmd::int_field(gripper_state_keys[i].key);
    cmd::query_result r = cmd::read(gripper_state, handle, fields);
    if (r.status != 0) return r.status;
    for (size_t i = 0; i < std::size(fields); ++i)
        state->*gripper_state_keys[i].member = fields[i].value.i;
    return 0;
}

int ka_set_hand_posture(ka_robot_handle *handle, int posture_num, bool block, int timeout) {
    return run_action(posture, handle,
                      {cmd::number("posture_num", posture_num), cmd::boolean("block", block)},
                      block, timeout);
}

int ka_set_hand_seq(ka_robot_handle *handle, int seq_num, bool block, int timeout) {
    return run_action(sequence, handle,
                      {cmd::number("seq_num", seq_num), cmd::boolean("block", block)}, block,
                      timeout);
}

int ka_set_hand_angle(ka_robot_handle *handle, const int *angle) {
    if (!angle) return -1;
    finger_angles f = fingers(angle);
    return cmd::run(hand_angle, handle, {cmd::numbers("hand_angle", f.v, hand_joints)});
}

// Streams finger targets: never answered, paced by a pause of one second.
int ka_set_hand_follow_angle(ka_robot_handle *handle, const int *angle) {
    if (!angle) return -1;
    finger_angles f = fingers(angle);
    return cmd::exchange("ka_set_hand_follow_angle", handle, "hand_follow_angle",
                         {cmd::numbers("hand_angle", f.v, hand_joints)}, nullptr, m_nOutTime_max,
                         nullptr, 0);
}

int ka_set_hand_speed(ka_robot_handle *handle, int speed) {
    return cmd::run(hand_speed, handle, {cmd::number("speed", speed)});
}

int ka_set_hand_force(ka_robot_handle *handle, int force) {
    return cmd::run(hand_force, handle, {cmd::number("hand_force", force)});
}

} // extern "C"
