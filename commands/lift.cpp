// Lift and expansion axes beside the arm: speeds, moves (followed until the
// axis reports its end when the caller blocks) and state reads, all unscaled.
#include "core/command.h"
#include "core/wait.h"

namespace {

// The state read the threaded wait follows: its status, and "mode".
template <int (*read)(ka_robot_handle *, ka_expand_state_t *)>
int axis_mode(ka_robot_handle *handle, int *mode) {
    ka_expand_state_t state{};
    const int status = read(handle, &state);
    *mode = state.mode;
    return status;
}
// An axis's move is followed by its report first, its state read while the
// report is late; every report ends the wait, one without "trajectory_state" normally.
constexpr wait::command axis_move(cmd::set_command accept, int device,
                                  int (*state)(ka_robot_handle *, int *), int no_reader) {
    wait::policy p{accept.function};
    p.device = device;
    p.poll = wait::poll_kind::axis_state;
    p.axis_state = state;
    p.strict_reading = false;
    p.starting_pause_ms = 50;
    p.starting_passes = 10;
    p.no_reader = no_reader;
    return {accept, p};
}

// The controller's names put the verb first for the lift, last for the
// expansion axis; the state reads differ in the position key.
// clang-format off
constexpr auto lift_state = cmd::query<"get_lift_state">("lift_state", {{"height"}, {"current"}, {"err_flag"}, {"mode"}});
constexpr auto expand_state = cmd::query<"expand_get_state", "ka_get_expand_state">("expand_state", {{"pos"}, {"current"}, {"err_flag"}, {"mode"}});
constexpr auto lift_speed = cmd::set<"set_lift_speed">("set_state", nullptr, m_nOutTime, {{"speed"}});
constexpr auto expand_speed = cmd::set<"expand_set_speed", "ka_set_expand_speed">("set_speed_state", nullptr, m_nOutTime, {{"speed"}});
// The height command is never answered, only paced by the default time-out;
// without a receive path the lift reports -3, the expansion axis its start reply's 0.
constexpr auto lift_height = axis_move(cmd::send<"set_lift_height">(m_nOutTime, {{"speed"}, {"height"}}), wait::lift, axis_mode<ka_get_lift_state>, -3);
constexpr auto expand_pos = axis_move(cmd::set<"expand_set_pos", "ka_set_expand_pos">("set_pos_state", nullptr, m_nOutTime, {{"speed"}, {"pos"}}), wait::expand, axis_mode<ka_get_expand_state>, 0);
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
