// Joint and arm limits.
#include "core/command.h"

namespace {

// Controller limits: the arm record keeps a copy that follows every read.
constexpr auto max_speed = cmd::joints<"get_joint_max_speed">(
    "joint_speed", scale::joint_rate_from, "joint_max_speed", &arm_record::joint_max_speed);
constexpr auto max_acc = cmd::joints<"get_joint_max_acc">(
    "joint_acc", scale::joint_rate_from, "joint_max_acc", &arm_record::joint_max_acc);
constexpr auto min_pos = cmd::joints<"get_joint_min_pos">(
    "min_pos", scale::from_thousandths, "joint_min_pos", &arm_record::joint_min_pos);
constexpr auto max_pos = cmd::joints<"get_joint_max_pos">(
    "max_pos", scale::from_thousandths, "joint_max_pos", &arm_record::joint_max_pos);

// Limits held in the joint drives: not cached; these replies carry the
// query's own name.
constexpr auto drive_max_speed =
    cmd::joints<"get_joint_drive_max_speed">("joint_speed", scale::joint_rate_from);
constexpr auto drive_max_acc =
    cmd::joints<"get_joint_drive_max_acc">("joint_acc", scale::joint_rate_from);
constexpr auto drive_min_pos =
    cmd::joints<"get_joint_drive_min_pos">("min_pos", scale::from_thousandths);
constexpr auto drive_max_pos =
    cmd::joints<"get_joint_drive_max_pos">("max_pos", scale::from_thousandths);

constexpr auto init_pose =
    cmd::joints<"get_init_pose">("init_pose", scale::from_thousandths, "arm_init_pose");

// A setting under one request key, sent as "key": value or, indexed by
// joint, "key": [joint_num, value]. `refresh` re-reads the matching
// controller limit so that the record follows the controller.
struct setting {
    cmd::set_command command;
    const char *key;
    const cmd::joint_query *refresh = nullptr;
};

int set_joint(const setting &s, ka_robot_handle *handle, int joint_num, int32_t value) {
    const int32_t pair[2] = {joint_num, value};
    int result = cmd::run(s.command, handle, {cmd::numbers(s.key, pair, 2)});
    if (result != 0 || !s.refresh) return result;
    float scratch[7] = {};
    return cmd::run(*s.refresh, handle, scratch);
}

constexpr setting set_max_speed{cmd::set<"set_joint_max_speed">("joint_max_speed"),
                                "joint_max_speed", &max_speed};
constexpr setting set_max_acc{cmd::set<"set_joint_max_acc">("joint_max_acc"), "joint_max_acc",
                              &max_acc};
constexpr setting set_min_pos{cmd::set<"set_joint_min_pos">("joint_min_pos"), "joint_min_pos",
                              &min_pos};
constexpr setting set_max_pos{cmd::set<"set_joint_max_pos">("joint_max_pos"), "joint_max_pos",
                              &max_pos};
constexpr setting set_drive_max_speed{cmd::set<"set_joint_drive_max_speed">("joint_max_speed"),
                                      "joint_max_speed"};
constexpr setting set_drive_max_acc{cmd::set<"set_joint_drive_max_acc">("joint_max_acc"),
                                    "joint_max_acc"};
constexpr setting set_drive_min_pos{cmd::set<"set_joint_drive_min_pos">("joint_min_pos"),
                                    "joint_min_pos"};
constexpr setting set_drive_max_pos{cmd::set<"set_joint_drive_max_pos">("joint_max_pos"),
                                    "joint_max_pos"};
constexpr setting set_en_state{cmd::set<"set_joint_en_state">("joint_en_state"), "joint_en_state"};

constexpr setting zero_pos{cmd::set<"set_joint_zero_pos">("joint_zero_pos"), "joint_zero_pos"};
constexpr setting clear_err{cmd::set<"set_joint_clear_err">("joint_clear_err"), "joint_clear_err"};

int set_value(const setting &s, ka_robot_handle *handle, int32_t value) {
    return cmd::run(s.command, handle, {cmd::number(s.key, value)});
}

// The controller answers this one under a name with a trailing blank.
constexpr setting auto_limit{
    cmd::set<"auto_set_joint_limit">("limit_mode", "auto_set_joint_limit "), "limit_mode"};
// Cartesian limits: m/s, m/s^2, rad/s, rad/s^2 in thousandths.
constexpr setting line_speed{cmd::set<"set_arm_max_line_speed">("arm_line_speed"),
                             "arm_line_speed"};
constexpr setting line_acc{cmd::set<"set_arm_max_line_acc">("arm_line_acc"), "arm_line_acc"};
constexpr setting angular_speed{cmd::set<"set_arm_max_angular_speed">("arm_angular_speed"),
                                "arm_angular_speed"};
constexpr setting angular_acc{cmd::set<"set_arm_max_angular_acc">("arm_angular_acc"),
                              "arm_angular_acc"};
// Sent as a "stage", answered as a "state".
constexpr setting collision{cmd::set<"set_collision_stage", "ka_set_collision_state">(
                                "collision_state", "set_collision_state"),
                            "collision_stage"};
constexpr auto tcp_init = cmd::set<"set_arm_init", "ka_set_arm_tcp_init">("arm_init");
constexpr auto set_init = cmd::set<"set_init_pose">("init_pose");

constexpr auto get_line_speed =
    cmd::value<"get_arm_max_line_speed">("arm_line_speed", "arm_max_line_speed");
constexpr auto get_line_acc =
    cmd::value<"get_arm_max_line_acc">("arm_line_acc", "arm_max_line_acc");
constexpr auto get_angular_speed =
    cmd::value<"get_arm_max_angular_speed">("arm_angular_speed", "arm_max_angular_speed");
constexpr auto get_angular_acc =
    cmd::value<"get_arm_max_angular_acc">("arm_angular_acc", "arm_max_angular_acc");
constexpr auto get_collision = cmd::value<"get_collision_stage">("collision_stage");

int get_thousandths(const cmd::value_query &q, ka_robot_handle *handle, float *out) {
    if (!out) return -1;
    int32_t value = 0;
    int result = cmd::run(q, handle, value);
    if (result == 0) *out = scale::from_thousandths(value);
    return result;
}

} // namespace

extern "C" {

int ka_set_joint_max_speed(ka_robot_handle *h, int joint_num, float speed) {
    return set_joint(set_max_speed, h, joint_num, scale::joint_rate(speed));
}
int ka_set_joint_max_acc(ka_robot_handle *h, int joint_num, float acc) {
    return set_joint(set_max_acc, h, joint_num, scale::joint_rate(acc));
}
int ka_set_joint_min_pos(ka_robot_handle *h, int joint_num, float pos) {
    return set_joint(set_min_pos, h, joint_num, scale::thousandths(pos));
}
int ka_set_joint_max_pos(ka_robot_handle *h, int joint_num, float pos) {
    return set_joint(set_max_pos, h, joint_num, scale::thousandths(pos));
}
int ka_get_joint_max_speed(ka_robot_handle *h, float *speed) {
    return cmd::run(max_speed, h, speed);
}
int ka_get_joint_max_acc(ka_robot_handle *h, float *acc) { return cmd::run(max_acc, h, acc); }
int ka_get_joint_min_pos(ka_robot_handle *h, float *pos) { return cmd::run(min_pos, h, pos); }
int ka_get_joint_max_pos(ka_robot_handle *h, float *pos) { return cmd::run(max_pos, h, pos); }

int ka_set_joint_drive_max_speed(ka_robot_handle *h, int joint_num, float speed) {
    return set_joint(set_drive_max_speed, h, joint_num, scale::joint_rate(speed));
}
// Sent without the division by 6 that its read-back applies; controllers
// expect it so.
int ka_set_joint_drive_max_acc(ka_robot_handle *h, int joint_num, float acc) {
    return set_joint(set_drive_max_acc, h, joint_num, scale::thousandths(acc));
}
int ka_set_joint_drive_min_pos(ka_robot_handle *h, int joint_num, float pos) {
    return set_joint(set_drive_min_pos, h, joint_num, scale::thousandths(pos));
}
int ka_set_joint_drive_max_pos(ka_robot_handle *h, int joint_num, float pos) {
    return set_joint(set_drive_max_pos, h, joint_num, scale::thousandths(pos));
}
int ka_get_joint_drive_max_speed(ka_robot_handle *h, float *speed) {
    return cmd::run(drive_max_speed, h, speed);
}
int ka_get_joint_drive_max_acc(ka_robot_handle *h, float *acc) {
    return cmd::run(drive_max_acc, h, acc);
}
int ka_get_joint_drive_min_pos(ka_robot_handle *h, float *pos) {
    return cmd::run(drive_min_pos, h, pos);
}
int ka_get_joint_drive_max_pos(ka_robot_handle *h, float *pos) {
    return cmd::run(drive_max_pos, h, pos);
}

// The controller moves both position limits: the record re-reads both, the
// status of the minimum's read being of no interest to the caller.
int ka_auto_set_joint_limit(ka_robot_handle *h, int limit_mode) {
    int result = set_value(auto_limit, h, limit_mode);
    if (result != 0) return result;
    float scratch[7] = {};
    cmd::run(min_pos, h, scratch);
    return cmd::run(max_pos, h, scratch);
}

int ka_set_joint_en_state(ka_robot_handle *h, int joint_num, int en_state) {
    return set_joint(set_en_state, h, joint_num, en_state);
}
int ka_get_joint_en_state(ka_robot_handle *h, uint8_t *en_state) {
    if (!en_state) return -1;
    ka_reply_field field = cmd::joints_field("en_state");
    cmd::query_result r = cmd::read(
        {"ka_get_joint_en_state", "get_joint_en_state", "joint_en_state"}, h, {&field, 1});
    if (r.status == 0) cmd::put_joints(en_state, field, r.dof, cmd::low_bits<uint8_t>);
    return r.status;
}
int ka_set_joint_zero_pos(ka_robot_handle *h, int joint_num) {
    return set_value(zero_pos, h, joint_num);
}
int ka_set_joint_clear_err(ka_robot_handle *h, int joint_num) {
    return set_value(clear_err, h, joint_num);
}

int ka_set_arm_max_line_speed(ka_robot_handle *h, float speed) {
    return set_value(line_speed, h, scale::thousandths(speed));
}
int ka_set_arm_max_line_acc(ka_robot_handle *h, float acc) {
    return set_value(line_acc, h, scale::thousandths(acc));
}
int ka_set_arm_max_angular_speed(ka_robot_handle *h, float speed) {
    return set_value(angular_speed, h, scale::thousandths(speed));
}
int ka_set_arm_max_angular_acc(ka_robot_handle *h, float acc) {
    return set_value(angular_acc, h, scale::thousandths(acc));
}
int ka_get_arm_max_line_speed(ka_robot_handle *h, float *speed) {
    return get_thousandths(get_line_speed, h, speed);
}
int ka_get_arm_max_line_acc(ka_robot_handle *h, float *acc) {
    return get_thousandths(get_line_acc, h, acc);
}
int ka_get_arm_max_angular_speed(ka_robot_handle *h, float *speed) {
    return get_thousandths(get_angular_speed, h, speed);
}
int ka_get_arm_max_angular_acc(ka_robot_handle *h, float *acc) {
    return get_thousandths(get_angular_acc, h, acc);
}
int ka_set_arm_tcp_init(ka_robot_handle *h) { return cmd::run(tcp_init, h); }
int ka_set_collision_state(ka_robot_handle *h, int stage) { return set_value(collision, h, stage); }
int ka_get_collision_stage(ka_robot_handle *h, int *stage) {
    if (!stage) return -1;
    int32_t value = 0;
    int result = cmd::run(get_collision, h, value);
    if (result == 0) *stage = value;
    return result;
}

// The DOF decides how many joints go out, so it is checked before sending.
int ka_set_init_pose(ka_robot_handle *h, const float *joint) {
    if (!joint) return -1;
    int dof = cmd::arm_dof(h);
    if (!dof) return cmd::disconnected("ka_set_init_pose");
    cmd::wire_joints w = cmd::joints_to_wire(joint, dof);
    return cmd::run(set_init, h, {cmd::numbers("init_pose", w.v, w.count)});
}
int ka_get_init_pose(ka_robot_handle *h, float *joint) { return cmd::run(init_pose, h, joint); }

} // extern "C"
