// Lift and expansion axes: speeds, moves (followed to their report) and state reads, unscaled.
#include "core/wait.h"

namespace {

// A move: its report first, its state read while late; no "trajectory_state" is a normal end.
constexpr wait::command axis_move(cmd::set_command accept, int device,
                                  decltype(wait::policy::axis_state) state, int no_reader) {
    return {accept,
            {.function = accept.function,
             .device = device,
             .poll = wait::poll_kind::axis_state,
             .axis_state = state,
             .strict_reading = false,
             .starting_pause_ms = 50,
             .starting_passes = 10,
             .no_reader = no_reader}};
}

// clang-format off
// The controller's names put the verb first for the lift, last for the expansion axis; the state reads differ in the position key.
constexpr auto lift_state = cmd::query<"get_lift_state">("lift_state", {{"height"}, {"current"}, {"err_flag"}, {"mode"}});
constexpr auto expand_state = cmd::query<"expand_get_state", "ka_get_expand_state">("expand_state", {{"pos"}, {"current"}, {"err_flag"}, {"mode"}});
constexpr auto lift_speed = cmd::set<"set_lift_speed">("set_state", nullptr, m_nOutTime, {{"speed"}});
constexpr auto expand_speed = cmd::set<"expand_set_speed", "ka_set_expand_speed">("set_speed_state", nullptr, m_nOutTime, {{"speed"}});
// The height command is never answered, only paced; without a receive path the lift reports -3, the expansion axis 0.
constexpr auto lift_height = axis_move(cmd::send<"set_lift_height">(m_nOutTime, {{"speed"}, {"height"}}), wait::lift, ka_get_lift_state, -3);
constexpr auto expand_pos = axis_move(cmd::set<"expand_set_pos", "ka_set_expand_pos">("set_pos_state", nullptr, m_nOutTime, {{"speed"}, {"pos"}}), wait::expand, ka_get_expand_state, 0);
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_set_lift_speed(ka_robot_handle *h, int speed) { return lift_speed(h, speed); }
int ka_set_lift_height(ka_robot_handle *h, int speed, int height, int block) { return lift_height(h, wait::when(block), speed, height); }
int ka_get_lift_state(ka_robot_handle *h, ka_expand_state_t *state) { return state ? lift_state(h, &state->pos, &state->current, &state->err_flag, &state->mode) : -1; }
int ka_set_expand_speed(ka_robot_handle *h, int speed) { return expand_speed(h, speed); }
int ka_set_expand_pos(ka_robot_handle *h, int speed, int pos, int block) { return expand_pos(h, wait::when(block), speed, pos); }
int ka_get_expand_state(ka_robot_handle *h, ka_expand_state_t *state) { return state ? expand_state(h, &state->pos, &state->current, &state->err_flag, &state->mode) : -1; }
// clang-format on

} // extern "C"
