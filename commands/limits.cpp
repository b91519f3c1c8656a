// Joint and arm limits: joint rates in thousandths of rpm (deg/s over 6), the rest in thousandths.
#include "core/command.h"

namespace {

using cmd::as;
constexpr auto rate = as::joint_rate;
constexpr auto milli = as::thousandths;

// clang-format off
// Controller limits: the arm record keeps a copy that follows every read.
constexpr auto max_speed = cmd::joints<"get_joint_max_speed">("joint_speed", rate, "joint_max_speed", &arm_record::joint_max_speed);
constexpr auto max_acc = cmd::joints<"get_joint_max_acc">("joint_acc", rate, "joint_max_acc", &arm_record::joint_max_acc);
constexpr auto min_pos = cmd::joints<"get_joint_min_pos">("min_pos", milli, "joint_min_pos", &arm_record::joint_min_pos);
constexpr auto max_pos = cmd::joints<"get_joint_max_pos">("max_pos", milli, "joint_max_pos", &arm_record::joint_max_pos);
// A joint setting goes out as "key": [joint_num, value]; a controller limit's setting re-reads that limit so that the record follows.
constexpr cmd::set_command joint_setting(cmd::set_command c, as scale, const cmd::query_command *refresh = nullptr) {
    c.args = {{{c.result_key}, {nullptr, scale}}};
    c.refresh = refresh;
    return c;
}
constexpr auto set_max_speed = joint_setting(cmd::set<"set_joint_max_speed">("joint_max_speed"), rate, &max_speed);
constexpr auto set_max_acc = joint_setting(cmd::set<"set_joint_max_acc">("joint_max_acc"), rate, &max_acc);
constexpr auto set_min_pos = joint_setting(cmd::set<"set_joint_min_pos">("joint_min_pos"), milli, &min_pos);
constexpr auto set_max_pos = joint_setting(cmd::set<"set_joint_max_pos">("joint_max_pos"), milli, &max_pos);
// Limits held in the joint drives: not cached; the acceleration goes out without the division by 6 its read-back applies.
constexpr auto set_drive_max_speed = joint_setting(cmd::set<"set_joint_drive_max_speed">("joint_max_speed"), rate);
constexpr auto set_drive_max_acc = joint_setting(cmd::set<"set_joint_drive_max_acc">("joint_max_acc"), milli);
constexpr auto set_drive_min_pos = joint_setting(cmd::set<"set_joint_drive_min_pos">("joint_min_pos"), milli);
constexpr auto set_drive_max_pos = joint_setting(cmd::set<"set_joint_drive_max_pos">("joint_max_pos"), milli);
constexpr auto drive_max_speed = cmd::joints<"get_joint_drive_max_speed">("joint_speed", rate);
constexpr auto drive_max_acc = cmd::joints<"get_joint_drive_max_acc">("joint_acc", rate);
constexpr auto drive_min_pos = cmd::joints<"get_joint_drive_min_pos">("min_pos", milli);
constexpr auto drive_max_pos = cmd::joints<"get_joint_drive_max_pos">("max_pos", milli);
// The controller answers this one under a name with a trailing blank.
constexpr auto auto_limit = cmd::set1<"auto_set_joint_limit">("limit_mode", as::plain, "auto_set_joint_limit ");
constexpr auto set_en_state = joint_setting(cmd::set<"set_joint_en_state">("joint_en_state"), as::plain);
constexpr auto get_en_state = cmd::query<"get_joint_en_state">("joint_en_state", {{"en_state", as::plain, cmd::per_joint}});
constexpr auto zero_pos = cmd::set1<"set_joint_zero_pos">("joint_zero_pos");
constexpr auto clear_err = cmd::set1<"set_joint_clear_err">("joint_clear_err");
constexpr auto line_speed = cmd::set1<"set_arm_max_line_speed">("arm_line_speed", milli);
constexpr auto line_acc = cmd::set1<"set_arm_max_line_acc">("arm_line_acc", milli);
constexpr auto angular_speed = cmd::set1<"set_arm_max_angular_speed">("arm_angular_speed", milli);
constexpr auto angular_acc = cmd::set1<"set_arm_max_angular_acc">("arm_angular_acc", milli);
constexpr auto get_line_speed = cmd::value<"get_arm_max_line_speed">("arm_line_speed", "arm_max_line_speed", milli);
constexpr auto get_line_acc = cmd::value<"get_arm_max_line_acc">("arm_line_acc", "arm_max_line_acc", milli);
constexpr auto get_angular_speed = cmd::value<"get_arm_max_angular_speed">("arm_angular_speed", "arm_max_angular_speed", milli);
constexpr auto get_angular_acc = cmd::value<"get_arm_max_angular_acc">("arm_angular_acc", "arm_max_angular_acc", milli);
constexpr auto tcp_init = cmd::set<"set_arm_init", "ka_set_arm_tcp_init">("arm_init");
// Sent as a "stage", answered as a "state".
constexpr auto collision = cmd::set<"set_collision_stage", "ka_set_collision_state">("collision_state", "set_collision_state", m_nOutTime, {{"collision_stage"}});
constexpr auto get_collision = cmd::value<"get_collision_stage">("collision_stage");
constexpr auto set_init = cmd::set<"set_init_pose">("init_pose", nullptr, m_nOutTime, {{"init_pose", as::joints}});
constexpr auto init_pose = cmd::joints<"get_init_pose">("init_pose", milli, "arm_init_pose");
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_set_joint_max_speed(ka_robot_handle *h, int joint_num, float speed) { return set_max_speed(h, joint_num, speed); }
int ka_set_joint_max_acc(ka_robot_handle *h, int joint_num, float acc) { return set_max_acc(h, joint_num, acc); }
int ka_set_joint_min_pos(ka_robot_handle *h, int joint_num, float pos) { return set_min_pos(h, joint_num, pos); }
int ka_set_joint_max_pos(ka_robot_handle *h, int joint_num, float pos) { return set_max_pos(h, joint_num, pos); }
int ka_get_joint_max_speed(ka_robot_handle *h, float *speed) { return max_speed(h, speed); }
int ka_get_joint_max_acc(ka_robot_handle *h, float *acc) { return max_acc(h, acc); }
int ka_get_joint_min_pos(ka_robot_handle *h, float *pos) { return min_pos(h, pos); }
int ka_get_joint_max_pos(ka_robot_handle *h, float *pos) { return max_pos(h, pos); }
int ka_set_joint_drive_max_speed(ka_robot_handle *h, int joint_num, float speed) { return set_drive_max_speed(h, joint_num, speed); }
int ka_set_joint_drive_max_acc(ka_robot_handle *h, int joint_num, float acc) { return set_drive_max_acc(h, joint_num, acc); }
int ka_set_joint_drive_min_pos(ka_robot_handle *h, int joint_num, float pos) { return set_drive_min_pos(h, joint_num, pos); }
int ka_set_joint_drive_max_pos(ka_robot_handle *h, int joint_num, float pos) { return set_drive_max_pos(h, joint_num, pos); }
int ka_get_joint_drive_max_speed(ka_robot_handle *h, float *speed) { return drive_max_speed(h, speed); }
int ka_get_joint_drive_max_acc(ka_robot_handle *h, float *acc) { return drive_max_acc(h, acc); }
int ka_get_joint_drive_min_pos(ka_robot_handle *h, float *pos) { return drive_min_pos(h, pos); }
int ka_get_joint_drive_max_pos(ka_robot_handle *h, float *pos) { return drive_max_pos(h, pos); }
int ka_set_joint_en_state(ka_robot_handle *h, int joint_num, int en_state) { return set_en_state(h, joint_num, en_state); }
int ka_get_joint_en_state(ka_robot_handle *h, uint8_t *en_state) { return get_en_state(h, en_state); }
int ka_set_joint_zero_pos(ka_robot_handle *h, int joint_num) { return zero_pos(h, joint_num); }
int ka_set_joint_clear_err(ka_robot_handle *h, int joint_num) { return clear_err(h, joint_num); }
int ka_set_arm_max_line_speed(ka_robot_handle *h, float speed) { return line_speed(h, speed); }
int ka_set_arm_max_line_acc(ka_robot_handle *h, float acc) { return line_acc(h, acc); }
int ka_set_arm_max_angular_speed(ka_robot_handle *h, float speed) { return angular_speed(h, speed); }
int ka_set_arm_max_angular_acc(ka_robot_handle *h, float acc) { return angular_acc(h, acc); }
int ka_get_arm_max_line_speed(ka_robot_handle *h, float *speed) { return get_line_speed(h, speed); }
int ka_get_arm_max_line_acc(ka_robot_handle *h, float *acc) { return get_line_acc(h, acc); }
int ka_get_arm_max_angular_speed(ka_robot_handle *h, float *speed) { return get_angular_speed(h, speed); }
int ka_get_arm_max_angular_acc(ka_robot_handle *h, float *acc) { return get_angular_acc(h, acc); }
int ka_set_arm_tcp_init(ka_robot_handle *h) { return tcp_init(h); }
int ka_set_collision_state(ka_robot_handle *h, int stage) { return collision(h, stage); }
int ka_get_collision_stage(ka_robot_handle *h, int *stage) { return get_collision(h, stage); }
int ka_set_init_pose(ka_robot_handle *h, const float *joint) { return set_init(h, joint); }
int ka_get_init_pose(ka_robot_handle *h, float *joint) { return init_pose(h, joint); }
// clang-format on

// Irregular: the controller moves both position limits; both are re-read, the minimum's unjudged.
int ka_auto_set_joint_limit(ka_robot_handle *h, int limit_mode) {
    if (int result = auto_limit(h, limit_mode); result != 0) return result;
    float scratch[7] = {};
    min_pos(h, scratch);
    return max_pos(h, scratch);
}

} // extern "C"
