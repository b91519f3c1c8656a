// End effectors on the tool flange: the electric gripper and the dexterous hand.
#include "core/wait.h"

namespace {

// An action's report is read once, no "trajectory_state" a normal end; an unread answer is dropped.
constexpr wait::command effector(cmd::set_command accept, int device, int no_report,
                                 int other_device, bool log_no_report) {
    return {.accept = accept,
            .wait = {.function = accept.function,
                     .device = device,
                     .order = wait::read_order::report_only,
                     .strict_reading = false,
                     .no_report = no_report,
                     .other_device = other_device,
                     .log_no_report = log_no_report},
            .forget_unread = true};
}
constexpr const char *gripper_reply = "set_gripper";
constexpr int slow = m_nOutTime_max;
// clang-format off
// Every gripper action is answered under "set_gripper", whatever was sent; late and other-device results are per action.
constexpr auto release  = effector(cmd::set<"set_gripper_release">("state", gripper_reply, slow, {{"speed"}, {"block"}}), wait::gripper, -4, -4, false);
constexpr auto pick     = effector(cmd::set<"set_gripper_pick">("state", gripper_reply, slow, {{"speed"}, {"force"}, {"block"}}), wait::gripper, -4, -5, false);
constexpr auto pick_on  = effector(cmd::set<"set_gripper_pick_on">("state", gripper_reply, slow, {{"speed"}, {"force"}, {"block"}}), wait::gripper, -4, -5, false);
constexpr auto position = effector(cmd::set<"set_gripper_position">("state", gripper_reply, slow, {{"position"}, {"block"}}), wait::gripper, -4, -5, true);
constexpr auto posture  = effector(cmd::set<"set_hand_posture">("set_state", nullptr, slow, {{"posture_num"}, {"block"}}), wait::hand, -5, -4, false);
constexpr auto sequence = effector(cmd::set<"set_hand_seq">("set_state", nullptr, slow, {{"seq_num"}, {"block"}}), wait::hand, -5, -4, false);
constexpr auto route = cmd::set<"set_gripper_route">("state", nullptr, slow, {{"min"}, {"max"}});
// The six finger angles go out unscaled.
constexpr auto hand_angle = cmd::set<"set_hand_angle">("set_state", nullptr, slow, {{"hand_angle", cmd::as::six}});
// Streams finger targets: never answered, paced by one second's pause.
constexpr auto follow_angle = cmd::send<"hand_follow_angle", "ka_set_hand_follow_angle">(slow, {{"hand_angle", cmd::as::six}});
constexpr auto hand_speed = cmd::set<"set_hand_speed">("set_state", nullptr, slow, {{"speed"}});
constexpr auto hand_force = cmd::set<"set_hand_force">("set_state", nullptr, slow, {{"hand_force"}});
constexpr auto gripper_state = cmd::query<"get_gripper_state">(nullptr, {{"enable"}, {"status"}, {"error"}, {"mode"}, {"current_force"}, {"temperature"}, {"actpos"}});
// clang-format on

} // namespace

extern "C" {

// clang-format off
// A gripper action with neither block nor time-out is only sent, paced by one second's pause.
int ka_set_gripper_route(ka_robot_handle *h, int min_route, int max_route) { return route(h, min_route, max_route); }
int ka_set_gripper_release(ka_robot_handle *h, int speed, bool block, int timeout) { return block || timeout ? release(h, wait::when(block, timeout), speed, block) : release.sent(h, speed, block); }
int ka_set_gripper_pick(ka_robot_handle *h, int speed, int force, bool block, int timeout) { return block || timeout ? pick(h, wait::when(block, timeout), speed, force, block) : pick.sent(h, speed, force, block); }
int ka_set_gripper_pick_on(ka_robot_handle *h, int speed, int force, bool block, int timeout) { return block || timeout ? pick_on(h, wait::when(block, timeout), speed, force, block) : pick_on.sent(h, speed, force, block); }
int ka_set_gripper_position(ka_robot_handle *h, int pos, bool block, int timeout) { return block || timeout ? position(h, wait::when(block, timeout), pos, block) : position.sent(h, pos, block); }
int ka_get_gripper_state(ka_robot_handle *h, ka_gripper_state_t *s) { return s ? gripper_state(h, &s->enable, &s->status, &s->error, &s->mode, &s->current_force, &s->temperature, &s->actpos) : -1; }
int ka_set_hand_posture(ka_robot_handle *h, int posture_num, bool block, int timeout) { return posture(h, wait::when(block, timeout), posture_num, block); }
int ka_set_hand_seq(ka_robot_handle *h, int seq_num, bool block, int timeout) { return sequence(h, wait::when(block, timeout), seq_num, block); }
int ka_set_hand_angle(ka_robot_handle *h, const int *angle) { return hand_angle(h, angle); }
int ka_set_hand_follow_angle(ka_robot_handle *h, const int *angle) { return follow_angle(h, angle); }
int ka_set_hand_speed(ka_robot_handle *h, int speed) { return hand_speed(h, speed); }
int ka_set_hand_force(ka_robot_handle *h, int force) { return hand_force(h, force); }
// clang-format on

} // extern "C"
