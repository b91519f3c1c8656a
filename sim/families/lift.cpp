// Lift and expansion axes. Speeds are percentages of the axis's top speed
// (negative: downwards / backwards in speed mode); the lift's height is in
// millimetres and the expansion axis's position in millidegrees.
//
// The requests carry no "block" flag, so the end of every position move is
// reported as "current_trajectory_state" with the axis's device number. A
// move cut short by another command is reported ended false, and so is a
// lift move that cannot be made (that command gets no reply), so that a
// caller waiting for it is never left waiting.
#include "sim/families/family.h"

#include <cmath>

namespace sim {

namespace {

struct axis_traits {
    int device;
    double min, max, top_speed;
};
constexpr axis_traits lift_axis{k_device_lift, k_lift_min_mm, k_lift_max_mm, k_lift_top_speed_mm_s};
constexpr axis_traits expand_axis{k_device_expand, k_expand_min_deg, k_expand_max_deg,
                                  k_expand_top_speed_deg_s};

void cut_short(axis_state &axis, const axis_traits &traits, report_list &reports) {
    if (axis.mode == axis_state::motion::position)
        reports.push_back(completion_report({false, 0, traits.device}));
    axis.mode = axis_state::motion::idle;
    axis.velocity = 0;
}

// Speed mode: -100..100 percent; 0 stops.
bool set_speed(axis_state &axis, const axis_traits &traits, const cJSON *request,
               report_list &reports) {
    const auto speed = json_int(request, "speed");
    if (!speed || *speed < -100 || *speed > 100) return false;
    cut_short(axis, traits, reports);
    if (*speed != 0) {
        axis.mode = axis_state::motion::speed;
        axis.velocity = traits.top_speed * *speed / 100.0;
    }
    return true;
}

// Position mode: speed 1..100 percent, target inside the axis's range. A
// refused move leaves the axis as it was.
bool move_to(axis_state &axis, const axis_traits &traits, std::optional<int> speed,
             std::optional<double> target, report_list &reports) {
    if (!speed || *speed < 1 || *speed > 100 || !target || *target < traits.min ||
        *target > traits.max)
        return false;
    cut_short(axis, traits, reports);
    axis.mode = axis_state::motion::position;
    axis.target = *target;
    axis.rate = traits.top_speed * *speed / 100.0;
    return true;
}

std::optional<double> scaled(std::optional<int> value, double factor) {
    if (!value) return std::nullopt;
    return *value / factor;
}

void add_axis_state(cJSON *reply, const axis_state &axis, const char *position_key, int position) {
    cJSON_AddNumberToObject(reply, position_key, position);
    cJSON_AddNumberToObject(reply, "current", drive_current_ma(axis));
    cJSON_AddNumberToObject(reply, "err_flag", 0);
    cJSON_AddNumberToObject(reply, "mode", static_cast<int>(axis.mode));
}

void lift_speed(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_state",
                          set_speed(c.target.devices.lift, lift_axis, request, c.reports));
}

// Not answered: the end of the move (or its refusal) is the only word back.
void lift_height(const cJSON *request, cJSON *, command_context &c) {
    c.silent = true;
    if (!move_to(c.target.devices.lift, lift_axis, json_int(request, "speed"),
                 scaled(json_int(request, "height"), 1.0), c.reports))
        c.reports.push_back(completion_report({false, 0, k_device_lift}));
}

void lift_state(const cJSON *, cJSON *reply, command_context &c) {
    const axis_state &lift = c.target.devices.lift;
    add_axis_state(reply, lift, "height", static_cast<int>(lift.position));
}

void expand_speed(const cJSON *request, cJSON *reply, command_context &c) {
    cJSON_AddBoolToObject(reply, "set_speed_state",
                          set_speed(c.target.devices.expand, expand_axis, request, c.reports));
}

// A refused move is answered false; the caller then waits for nothing.
void expand_pos(const cJSON *request, cJSON *reply, command_context &c) {
    const bool ok = move_to(c.target.devices.expand, expand_axis, json_int(request, "speed"),
                            scaled(json_int(request, "pos"), k_milli), c.reports);
    cJSON_AddBoolToObject(reply, "set_pos_state", ok);
}

void expand_state(const cJSON *, cJSON *reply, command_context &c) {
    const axis_state &expand = c.target.devices.expand;
    add_axis_state(reply, expand, "pos", to_milli(expand.position));
}

void advance_axis(axis_state &axis, const axis_traits &traits, double now, report_list &reports) {
    const double dt = axis.clock < 0 ? 0 : now - axis.clock;
    axis.clock = now;
    switch (axis.mode) {
    case axis_state::motion::idle:
        return;
    case axis_state::motion::speed: {
        const double end = axis.velocity > 0 ? traits.max : traits.min;
        if (step_toward(axis.position, end, std::abs(axis.velocity), dt)) {
            axis.mode = axis_state::motion::idle; // ran into the end of travel
            axis.velocity = 0;
        }
        return;
    }
    case axis_state::motion::position:
        if (step_toward(axis.position, axis.target, axis.rate, dt)) {
            axis.mode = axis_state::motion::idle;
            reports.push_back(completion_report({true, 0, traits.device}));
        }
        return;
    }
}

void on_cycle(arm &target, double now, report_list &reports) {
    advance_axis(target.devices.lift, lift_axis, now, reports);
    advance_axis(target.devices.expand, expand_axis, now, reports);
}

constexpr command_row rows[] = {
    {"set_lift_speed", "set_lift_speed", lift_speed},
    {"set_lift_height", "set_lift_height", lift_height},
    {"get_lift_state", "lift_state", lift_state},
    {"expand_set_speed", "expand_set_speed", expand_speed},
    {"expand_set_pos", "expand_set_pos", expand_pos},
    {"expand_get_state", "expand_state", expand_state},
};

} // namespace

const family lift_family{rows, on_cycle};

} // namespace sim
