// End effectors: gripper and dexterous hand. All values are unscaled
// integers in the controller's units (gripper stroke 0..1000, finger angles
// 0..1000, speeds and forces 1..1000).
//
// An action sent with "block" true has its end reported as
// "current_trajectory_state" with the effector's device number; without it
// nobody waits, so nothing is reported (a stray report would be taken by the
// next blocking call of any device).
#include "sim/families/family.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr int k_effector_max = 1000;
constexpr int k_postures = 40; // stored postures and sequences, numbered 1..40
// Posture n closes every finger to n / 40 of the way.
constexpr double k_posture_step = static_cast<double>(k_effector_max) / k_postures;

bool in_range(std::optional<int> value, int low, int high) {
    return value && *value >= low && *value <= high;
}

// ------------------------------------------------------------------ gripper

// Ends a running blocking action early when another one replaces it.
void supersede(gripper_state &g, report_list &reports) {
    if (g.moving && g.report_end)
        reports.push_back(completion_report({false, 0, k_device_gripper}));
    g.report_end = false;
}

void start_gripper(command_context &c, gripper_state::action mode, double target, bool block) {
    gripper_state &g = c.target.devices.gripper;
    supersede(g, c.reports);
    g.mode = mode;
    g.target = target;
    g.moving = true;
    g.report_end = block;
    g.holding_force = 0;
}

void gripper_route(const cJSON *request, cJSON *reply, command_context &c) {
    gripper_state &g = c.target.devices.gripper;
    const auto low = json_int(request, "min");
    const auto high = json_int(request, "max");
    const bool ok = in_range(low, 0, k_effector_max) && in_range(high, 0, k_effector_max) &&
                    *low < *high && !g.moving;
    if (ok) {
        g.min_route = *low;
        g.max_route = *high;
    }
    cJSON_AddBoolToObject(reply, "state", ok);
}

void gripper_release(const cJSON *request, cJSON *reply, command_context &c) {
    const auto speed = json_int(request, "speed");
    const auto block = json_bool(request, "block");
    const bool ok = in_range(speed, 1, k_effector_max) && block;
    if (ok) {
        c.target.devices.gripper.speed = *speed;
        start_gripper(c, gripper_state::action::release, c.target.devices.gripper.max_route,
                      *block);
    }
    cJSON_AddBoolToObject(reply, "state", ok);
}

// Closes to the lower stroke limit; pick_on keeps the force on afterwards.
void gripper_close(const cJSON *request, cJSON *reply, command_context &c,
                   gripper_state::action mode) {
    const auto speed = json_int(request, "speed");
    const auto force = json_int(request, "force");
    const auto block = json_bool(request, "block");
    const bool ok =
        in_range(speed, 1, k_effector_max) && in_range(force, 1, k_effector_max) && block;
    if (ok) {
        gripper_state &g = c.target.devices.gripper;
        g.speed = *speed;
        g.force = *force;
        start_gripper(c, mode, g.min_route, *block);
    }
    cJSON_AddBoolToObject(reply, "state", ok);
}
void gripper_pick(const cJSON *request, cJSON *reply, command_context &c) {
    gripper_close(request, reply, c, gripper_state::action::pick);
}
void gripper_pick_on(const cJSON *request, cJSON *reply, command_context &c) {
    gripper_close(request, reply, c, gripper_state::action::pick_on);
}

// Moves at the speed of the last release or pick.
void gripper_position(const cJSON *request, cJSON *reply, command_context &c) {
    const gripper_state &g = c.target.devices.gripper;
    const auto position = json_int(request, "position");
    const auto block = json_bool(request, "block");
    const bool ok = in_range(position, g.min_route, g.max_route) && block;
    if (ok) start_gripper(c, gripper_state::action::position, *position, *block);
    cJSON_AddBoolToObject(reply, "state", ok);
}

void gripper_state_query(const cJSON *, cJSON *reply, command_context &c) {
    const gripper_state &g = c.target.devices.gripper;
    cJSON_AddNumberToObject(reply, "enable", 1);
    // 0 still, 1 moving, 2 closed and holding its force
    cJSON_AddNumberToObject(reply, "status", g.moving ? 1 : (g.holding_force > 0 ? 2 : 0));
    cJSON_AddNumberToObject(reply, "error", 0);
    cJSON_AddNumberToObject(reply, "mode", static_cast<int>(g.mode));
    cJSON_AddNumberToObject(reply, "current_force", g.holding_force);
    cJSON_AddNumberToObject(reply, "temperature", 32); // degrees Celsius
    cJSON_AddNumberToObject(reply, "actpos", static_cast<int>(g.position));
}

void advance_gripper(gripper_state &g, double dt, report_list &reports) {
    if (!g.moving) return;
    if (!step_toward(g.position, g.target, g.speed, dt)) return;
    g.moving = false;
    const bool closed =
        g.mode == gripper_state::action::pick || g.mode == gripper_state::action::pick_on;
    g.holding_force = closed ? g.force : 0;
    if (g.report_end) reports.push_back(completion_report({true, 0, k_device_gripper}));
    g.report_end = false;
}

// --------------------------------------------------------------------- hand

hand_state::angles posture_angles(int posture) {
    hand_state::angles a;
    a.fill(posture * k_posture_step);
    return a;
}

void start_hand(command_context &c, std::deque<hand_state::angles> legs, bool block) {
    hand_state &h = c.target.devices.hand;
    if (!h.legs.empty() && h.report_end)
        c.reports.push_back(completion_report({false, 0, k_device_hand}));
    h.legs = std::move(legs);
    h.report_end = block;
}

void hand_posture(const cJSON *request, cJSON *reply, command_context &c) {
    const auto posture = json_int(request, "posture_num");
    const auto block = json_bool(request, "block");
    const bool ok = in_range(posture, 1, k_postures) && block;
    if (ok) {
        c.target.devices.hand.posture = *posture;
        start_hand(c, {posture_angles(*posture)}, *block);
    }
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

// Sequence n closes to posture n and opens again.
void hand_seq(const cJSON *request, cJSON *reply, command_context &c) {
    const auto seq = json_int(request, "seq_num");
    const auto block = json_bool(request, "block");
    const bool ok = in_range(seq, 1, k_postures) && block;
    if (ok) {
        c.target.devices.hand.seq = *seq;
        start_hand(c, {posture_angles(*seq), posture_angles(0)}, *block);
    }
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

// Six finger targets 0..1000; -1 leaves a finger where it is heading.
std::optional<hand_state::angles> finger_targets(const cJSON *request, const hand_state &h) {
    const auto values = json_ints(request, "hand_angle", 6);
    if (!values) return std::nullopt;
    hand_state::angles target = h.legs.empty() ? h.position : h.legs.back();
    for (std::size_t i = 0; i < target.size(); ++i) {
        const int v = (*values)[i];
        if (v < -1 || v > k_effector_max) return std::nullopt;
        if (v >= 0) target[i] = v;
    }
    return target;
}

void hand_angle(const cJSON *request, cJSON *reply, command_context &c) {
    const auto target = finger_targets(request, c.target.devices.hand);
    if (target) start_hand(c, {*target}, false);
    cJSON_AddBoolToObject(reply, "set_state", target.has_value());
}

// Streamed finger targets: followed at once, never answered.
void hand_follow_angle(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    hand_state &h = c.target.devices.hand;
    if (const auto target = finger_targets(request, h)) {
        start_hand(c, {}, false);
        h.position = *target;
    }
}

void hand_speed(const cJSON *request, cJSON *reply, command_context &c) {
    const auto speed = json_int(request, "speed");
    const bool ok = in_range(speed, 1, k_effector_max);
    if (ok) c.target.devices.hand.speed = *speed;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void hand_force(const cJSON *request, cJSON *reply, command_context &c) {
    const auto force = json_int(request, "hand_force");
    const bool ok = in_range(force, 1, k_effector_max);
    if (ok) c.target.devices.hand.force = *force;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

// All fingers share one pace so they arrive together.
void advance_hand(hand_state &h, double dt, report_list &reports) {
    while (!h.legs.empty() && dt > 0) {
        const hand_state::angles &target = h.legs.front();
        double longest = 0;
        for (std::size_t i = 0; i < target.size(); ++i)
            longest = std::max(longest, std::abs(target[i] - h.position[i]));
        const double needed = longest / h.speed;
        if (needed > dt) {
            for (std::size_t i = 0; i < target.size(); ++i)
                h.position[i] += (target[i] - h.position[i]) * dt / needed;
            return;
        }
        h.position = target;
        dt -= needed;
        h.legs.pop_front();
        if (h.legs.empty() && h.report_end) {
            reports.push_back(completion_report({true, 0, k_device_hand}));
            h.report_end = false;
        }
    }
}

void on_cycle(arm &target, double now, report_list &reports) {
    gripper_state &g = target.devices.gripper;
    hand_state &h = target.devices.hand;
    if (g.clock >= 0) advance_gripper(g, now - g.clock, reports);
    if (h.clock >= 0) advance_hand(h, now - h.clock, reports);
    g.clock = h.clock = now;
}

// Every gripper action is answered under the one name "set_gripper".
constexpr command_row rows[] = {
    {"set_gripper_route", "set_gripper_route", gripper_route},
    {"set_gripper_release", "set_gripper", gripper_release},
    {"set_gripper_pick", "set_gripper", gripper_pick},
    {"set_gripper_pick_on", "set_gripper", gripper_pick_on},
    {"set_gripper_position", "set_gripper", gripper_position},
    {"get_gripper_state", "get_gripper_state", gripper_state_query},
    {"set_hand_posture", "set_hand_posture", hand_posture},
    {"set_hand_seq", "set_hand_seq", hand_seq},
    {"set_hand_angle", "set_hand_angle", hand_angle},
    {"hand_follow_angle", "hand_follow_angle", hand_follow_angle},
    {"set_hand_speed", "set_hand_speed", hand_speed},
    {"set_hand_force", "set_hand_force", hand_force},
};

} // namespace

const family effectors_family{rows, on_cycle};

} // namespace sim
