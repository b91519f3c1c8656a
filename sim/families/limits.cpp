// Joint and arm limits: the controller's joint limits (which the motion
// planner obeys), the limits held in the joint drives, the Cartesian limits
// of the tool centre point, joint enabling, zeroing and error clearing, the
// collision stage and the initial pose.
//
// Per-joint settings arrive as [joint number 1..dof, value]. Positions are
// millidegrees on the wire, speeds thousandths of rpm and accelerations
// thousandths of rpm per second (1 rpm = 6 degrees/s).
#include "sim/families/family.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

// A set command: the key of its true/false result and the rule that applies
// the request to the arm, false when refused (nothing changed then).
struct set_command {
    const char *result_key;
    bool (*apply)(const cJSON *request, command_context &c);
};
template <const set_command &command>
void answer_set(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, command.result_key, command.apply(request, c));
}

// Stored values came off the wire as integers; rounding brings them back
// exactly where truncation could lose a unit to binary fractions.
int position_to_wire(double degrees) { return static_cast<int>(std::lround(degrees * k_milli)); }
double position_from_wire(int millidegrees) { return millidegrees / k_milli; }
int rate_to_wire(double degrees_per_s) {
    return static_cast<int>(std::lround(degrees_per_s * k_rpm_per_deg_s * k_milli));
}
double rate_from_wire(int wire) { return wire / k_milli / k_rpm_per_deg_s; }

enum class quantity { min_pos, max_pos, max_speed, max_acc };

// The controller's limits in wire units.
int controller_limit(const arm &a, quantity q, int j) {
    switch (q) {
    case quantity::min_pos:
        return position_to_wire(a.limits.min_deg[j]);
    case quantity::max_pos:
        return position_to_wire(a.limits.max_deg[j]);
    case quantity::max_speed:
        return rate_to_wire(a.limits.max_speed_deg[j]);
    case quantity::max_acc:
        return rate_to_wire(a.limits.max_acc_deg[j]);
    }
    return 0;
}

void set_controller_limit(arm &a, quantity q, int j, int wire) {
    switch (q) {
    case quantity::min_pos:
        a.limits.min_deg[j] = position_from_wire(wire);
        break;
    case quantity::max_pos:
        a.limits.max_deg[j] = position_from_wire(wire);
        break;
    case quantity::max_speed:
        a.limits.max_speed_deg[j] = rate_from_wire(wire);
        break;
    case quantity::max_acc:
        a.limits.max_acc_deg[j] = rate_from_wire(wire);
        break;
    }
}

// The arm's mechanical range, which bounds the drives.
int model_limit(const arm &a, quantity q, int j) {
    const arm_traits &t = a.traits();
    switch (q) {
    case quantity::min_pos:
        return position_to_wire(t.min_deg[j]);
    case quantity::max_pos:
        return position_to_wire(t.max_deg[j]);
    case quantity::max_speed:
        return rate_to_wire(t.max_speed_deg[j]);
    case quantity::max_acc:
        return rate_to_wire(t.max_acc_deg[j]);
    }
    return 0;
}

std::array<int, 7> &drive_values(drive_limits &d, quantity q) {
    switch (q) {
    case quantity::min_pos:
        return d.min_pos;
    case quantity::max_pos:
        return d.max_pos;
    case quantity::max_speed:
        return d.max_speed;
    case quantity::max_acc:
        break;
    }
    return d.max_acc;
}

drive_limits &drives(arm &a) {
    limit_store &store = a.limit_settings;
    if (!store.drives_known) {
        for (quantity q :
             {quantity::min_pos, quantity::max_pos, quantity::max_speed, quantity::max_acc})
            for (int j = 0; j < a.traits().dof; ++j)
                drive_values(store.drives, q)[j] = model_limit(a, q, j);
        store.drives_known = true;
    }
    return store.drives;
}

// [joint number 1..dof, value] as a 0-based joint and the value.
std::optional<std::pair<int, int>> joint_value(const cJSON *request, const char *key,
                                               const arm &a) {
    const auto pair = json_ints(request, key, 2);
    if (!pair || (*pair)[0] < 1 || (*pair)[0] > a.traits().dof) return std::nullopt;
    return std::pair{(*pair)[0] - 1, (*pair)[1]};
}

// A controller limit stays inside the drive's, and a position range keeps
// its minimum below its maximum.
bool set_controller(const cJSON *request, const char *key, quantity q, command_context &c) {
    arm &a = c.target;
    const auto setting = joint_value(request, key, a);
    if (!setting) return false;
    const auto [j, wire] = *setting;
    const drive_limits &d = drives(a);
    bool ok = false;
    switch (q) {
    case quantity::min_pos:
        ok = wire >= d.min_pos[j] && wire < controller_limit(a, quantity::max_pos, j);
        break;
    case quantity::max_pos:
        ok = wire <= d.max_pos[j] && wire > controller_limit(a, quantity::min_pos, j);
        break;
    case quantity::max_speed:
        ok = wire > 0 && wire <= d.max_speed[j];
        break;
    case quantity::max_acc:
        ok = wire > 0 && wire <= d.max_acc[j];
        break;
    }
    if (ok) set_controller_limit(a, q, j, wire);
    return ok;
}

// A drive limit stays inside the arm's mechanical range; the controller's
// limit is pulled inside the new drive limit.
bool set_drive(const cJSON *request, const char *key, quantity q, command_context &c) {
    arm &a = c.target;
    const auto setting = joint_value(request, key, a);
    if (!setting) return false;
    const auto [j, wire] = *setting;
    drive_limits &d = drives(a);
    bool ok = false;
    switch (q) {
    case quantity::min_pos:
        ok = wire >= model_limit(a, q, j) && wire < d.max_pos[j];
        break;
    case quantity::max_pos:
        ok = wire <= model_limit(a, q, j) && wire > d.min_pos[j];
        break;
    case quantity::max_speed:
    case quantity::max_acc:
        ok = wire > 0 && wire <= model_limit(a, q, j);
        break;
    }
    if (!ok) return false;
    drive_values(d, q)[j] = wire;
    for (quantity limited : {quantity::min_pos, quantity::max_pos}) {
        const int now = controller_limit(a, limited, j);
        set_controller_limit(a, limited, j, std::clamp(now, d.min_pos[j], d.max_pos[j]));
    }
    for (quantity limited : {quantity::max_speed, quantity::max_acc}) {
        const int now = controller_limit(a, limited, j);
        if (now > drive_values(d, limited)[j])
            set_controller_limit(a, limited, j, drive_values(d, limited)[j]);
    }
    return true;
}

// The keys of the per-joint limit commands: request array, set result, and
// the reply array of the query.
constexpr const char *k_speed_key = "joint_max_speed";
constexpr const char *k_acc_key = "joint_max_acc";
constexpr const char *k_min_key = "joint_min_pos";
constexpr const char *k_max_key = "joint_max_pos";

template <quantity q, const char *const &key>
bool controller_rule(const cJSON *request, command_context &c) {
    return set_controller(request, key, q, c);
}
template <quantity q, const char *const &key>
bool drive_rule(const cJSON *request, command_context &c) {
    return set_drive(request, key, q, c);
}

constexpr set_command set_max_speed{k_speed_key, controller_rule<quantity::max_speed, k_speed_key>};
constexpr set_command set_max_acc{k_acc_key, controller_rule<quantity::max_acc, k_acc_key>};
constexpr set_command set_min_pos{k_min_key, controller_rule<quantity::min_pos, k_min_key>};
constexpr set_command set_max_pos{k_max_key, controller_rule<quantity::max_pos, k_max_key>};
constexpr set_command set_drive_max_speed{k_speed_key,
                                          drive_rule<quantity::max_speed, k_speed_key>};
constexpr set_command set_drive_max_acc{k_acc_key, drive_rule<quantity::max_acc, k_acc_key>};
constexpr set_command set_drive_min_pos{k_min_key, drive_rule<quantity::min_pos, k_min_key>};
constexpr set_command set_drive_max_pos{k_max_key, drive_rule<quantity::max_pos, k_max_key>};

// Queries answer with dof integers under "min_pos", "max_pos", "joint_speed"
// or "joint_acc".
const char *query_key(quantity q) {
    switch (q) {
    case quantity::min_pos:
        return "min_pos";
    case quantity::max_pos:
        return "max_pos";
    case quantity::max_speed:
        return "joint_speed";
    case quantity::max_acc:
        break;
    }
    return "joint_acc";
}

template <quantity q> void get_controller(const cJSON *, cJSON *reply, command_context &c) {
    std::vector<int> values;
    for (int j = 0; j < c.target.traits().dof; ++j)
        values.push_back(controller_limit(c.target, q, j));
    json_add_ints(reply, query_key(q), values);
}

template <quantity q> void get_drive(const cJSON *, cJSON *reply, command_context &c) {
    const std::array<int, 7> &all = drive_values(drives(c.target), q);
    json_add_ints(reply, query_key(q),
                  std::vector<int>(all.begin(), all.begin() + c.target.traits().dof));
}

// Mode 0: the position limits go back to the arm's factory range; mode 1:
// they open up to the drives' limits. Both stay within the drives.
bool auto_limit(const cJSON *request, command_context &c) {
    const auto mode = json_int(request, "limit_mode");
    if (!mode || (*mode != 0 && *mode != 1)) return false;
    arm &a = c.target;
    const drive_limits &d = drives(a);
    for (int j = 0; j < a.traits().dof; ++j) {
        const int low = *mode == 0 ? std::max(model_limit(a, quantity::min_pos, j), d.min_pos[j])
                                   : d.min_pos[j];
        const int high = *mode == 0 ? std::min(model_limit(a, quantity::max_pos, j), d.max_pos[j])
                                    : d.max_pos[j];
        set_controller_limit(a, quantity::min_pos, j, low);
        set_controller_limit(a, quantity::max_pos, j, high);
    }
    return true;
}
constexpr set_command set_auto_limit{"limit_mode", auto_limit};

// ---- joint enabling, zeroing and errors

// Set on the arm and on the joint when a joint is disabled while the arm
// moves: the arm stops where it is.
constexpr int k_arm_err_joint_lost = 0x12;
constexpr int k_joint_err_disabled_in_motion = 0x0004;

bool moving(const arm &a) { return a.sample().status != std::string_view("idle"); }

bool joint_enable(const cJSON *request, command_context &c) {
    arm &a = c.target;
    const auto setting = joint_value(request, "joint_en_state", a);
    if (!setting || (setting->second != 0 && setting->second != 1)) return false;
    const auto [j, on] = *setting;
    if (on == 1) {
        if (!a.controller.power) return false; // a drive without power cannot hold
        a.controller.enabled[j] = true;
        return true;
    }
    if (moving(a)) {
        for (const motion_end &end : a.stop(c.now))
            c.reports.push_back(completion_report(end));
        a.arm_err = k_arm_err_joint_lost;
        a.controller.joint_err[j] = k_joint_err_disabled_in_motion;
    }
    a.controller.enabled[j] = false;
    return true;
}
constexpr set_command set_joint_enable{"joint_en_state", joint_enable};

void get_joint_enable(const cJSON *, cJSON *reply, command_context &c) {
    std::vector<int> flags;
    for (int j = 0; j < c.target.traits().dof; ++j)
        flags.push_back(c.target.controller.power && c.target.controller.enabled[j] ? 1 : 0);
    json_add_ints(reply, "en_state", flags);
}

std::optional<int> joint_number(const cJSON *request, const char *key, const arm &a) {
    const auto joint = json_int(request, key);
    if (!joint || *joint < 1 || *joint > a.traits().dof) return std::nullopt;
    return *joint - 1;
}

// The encoder reference of a joint can only be moved with its drive off,
// so that the joint cannot jump.
bool joint_zero(const cJSON *request, command_context &c) {
    const auto j = joint_number(request, "joint_zero_pos", c.target);
    return j && !(c.target.controller.power && c.target.controller.enabled[*j]) &&
           !moving(c.target);
}
constexpr set_command set_joint_zero{"joint_zero_pos", joint_zero};

bool joint_clear(const cJSON *request, command_context &c) {
    const auto j = joint_number(request, "joint_clear_err", c.target);
    if (!j) return false;
    c.target.controller.joint_err[*j] = 0;
    return true;
}
constexpr set_command set_joint_clear{"joint_clear_err", joint_clear};

// ---- Cartesian limits, thousandths of m/s, m/s^2, rad/s, rad/s^2

struct cartesian_setting {
    const char *key;
    int cartesian_limits::*value;
    int ceiling; // what the arm can do at all
};
constexpr cartesian_setting line_speed{"arm_line_speed", &cartesian_limits::line_speed, 3000};
constexpr cartesian_setting line_acc{"arm_line_acc", &cartesian_limits::line_acc, 10000};
constexpr cartesian_setting angular_speed{"arm_angular_speed", &cartesian_limits::angular_speed,
                                          6000};
constexpr cartesian_setting angular_acc{"arm_angular_acc", &cartesian_limits::angular_acc, 20000};

template <const cartesian_setting &s>
void set_cartesian(const cJSON *request, cJSON *reply, command_context &c) {
    const auto value = json_int(request, s.key);
    const bool ok = value && *value > 0 && *value <= s.ceiling;
    if (ok) c.target.limit_settings.cartesian.*s.value = *value;
    cJSON_AddBoolToObject(reply, s.key, ok);
}
template <const cartesian_setting &s>
void get_cartesian(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, s.key, c.target.limit_settings.cartesian.*s.value);
}

// Resets the tool centre point's speed and acceleration limits.
bool tcp_init(const cJSON *, command_context &c) {
    c.target.limit_settings.cartesian = cartesian_limits{};
    return true;
}
constexpr set_command set_tcp_init{"arm_init", tcp_init};

bool collision_stage(const cJSON *request, command_context &c) {
    const auto stage = json_int(request, "collision_stage");
    if (!stage || *stage < 0 || *stage > 8) return false;
    c.target.limit_settings.collision_stage = *stage;
    return true;
}
constexpr set_command set_collision{"collision_state", collision_stage};

void get_collision(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "collision_stage", c.target.limit_settings.collision_stage);
}

// The initial pose must be one the arm may reach.
bool init_pose(const cJSON *request, command_context &c) {
    const int dof = c.target.traits().dof;
    const auto joints = json_ints(request, "init_pose", dof);
    if (!joints) return false;
    joint_array degrees{};
    for (int j = 0; j < dof; ++j)
        degrees[j] = position_from_wire((*joints)[j]);
    if (!c.target.within_limits(degrees)) return false;
    std::copy(joints->begin(), joints->end(), c.target.limit_settings.init_pose.begin());
    return true;
}
constexpr set_command set_init{"init_pose", init_pose};

void get_init(const cJSON *, cJSON *reply, command_context &c) {
    const std::array<int, 7> &pose = c.target.limit_settings.init_pose;
    json_add_ints(reply, "init_pose",
                  std::vector<int>(pose.begin(), pose.begin() + c.target.traits().dof));
}

constexpr command_row rows[] = {
    {"get_joint_min_pos", "joint_min_pos", get_controller<quantity::min_pos>},
    {"get_joint_max_pos", "joint_max_pos", get_controller<quantity::max_pos>},
    {"get_joint_max_acc", "joint_max_acc", get_controller<quantity::max_acc>},
    {"get_joint_max_speed", "joint_max_speed", get_controller<quantity::max_speed>},
    {"set_joint_min_pos", "set_joint_min_pos", answer_set<set_min_pos>},
    {"set_joint_max_pos", "set_joint_max_pos", answer_set<set_max_pos>},
    {"set_joint_max_acc", "set_joint_max_acc", answer_set<set_max_acc>},
    {"set_joint_max_speed", "set_joint_max_speed", answer_set<set_max_speed>},
    {"get_joint_drive_min_pos", "get_joint_drive_min_pos", get_drive<quantity::min_pos>},
    {"get_joint_drive_max_pos", "get_joint_drive_max_pos", get_drive<quantity::max_pos>},
    {"get_joint_drive_max_acc", "get_joint_drive_max_acc", get_drive<quantity::max_acc>},
    {"get_joint_drive_max_speed", "get_joint_drive_max_speed", get_drive<quantity::max_speed>},
    {"set_joint_drive_min_pos", "set_joint_drive_min_pos", answer_set<set_drive_min_pos>},
    {"set_joint_drive_max_pos", "set_joint_drive_max_pos", answer_set<set_drive_max_pos>},
    {"set_joint_drive_max_acc", "set_joint_drive_max_acc", answer_set<set_drive_max_acc>},
    {"set_joint_drive_max_speed", "set_joint_drive_max_speed", answer_set<set_drive_max_speed>},
    // The controller answers this one under its name with a trailing blank.
    {"auto_set_joint_limit", "auto_set_joint_limit ", answer_set<set_auto_limit>},
    {"set_joint_en_state", "set_joint_en_state", answer_set<set_joint_enable>},
    {"get_joint_en_state", "joint_en_state", get_joint_enable},
    {"set_joint_zero_pos", "set_joint_zero_pos", answer_set<set_joint_zero>},
    {"set_joint_clear_err", "set_joint_clear_err", answer_set<set_joint_clear>},
    {"set_arm_max_line_speed", "set_arm_max_line_speed", set_cartesian<line_speed>},
    {"set_arm_max_line_acc", "set_arm_max_line_acc", set_cartesian<line_acc>},
    {"set_arm_max_angular_speed", "set_arm_max_angular_speed", set_cartesian<angular_speed>},
    {"set_arm_max_angular_acc", "set_arm_max_angular_acc", set_cartesian<angular_acc>},
    {"get_arm_max_line_speed", "arm_max_line_speed", get_cartesian<line_speed>},
    {"get_arm_max_line_acc", "arm_max_line_acc", get_cartesian<line_acc>},
    {"get_arm_max_angular_speed", "arm_max_angular_speed", get_cartesian<angular_speed>},
    {"get_arm_max_angular_acc", "arm_max_angular_acc", get_cartesian<angular_acc>},
    {"set_arm_init", "set_arm_init", answer_set<set_tcp_init>},
    // Asked as a "stage", answered as a "state".
    {"set_collision_stage", "set_collision_state", answer_set<set_collision>},
    {"get_collision_stage", "get_collision_stage", get_collision},
    {"set_init_pose", "set_init_pose", answer_set<set_init>},
    {"get_init_pose", "arm_init_pose", get_init},
};

} // namespace

const family limits_family{rows};

} // namespace sim
