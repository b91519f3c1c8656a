// Lift and expansion axes: the two single axes a controller can drive beside
// the arm. Speeds, moves (followed until the axis reports its end when the
// caller blocks) and state reads; the controller takes every value unscaled.
#include "core/command.h"
#include "core/wait.h"

#include <optional>

namespace {

struct axis {
    const char *move_function; // label of the move and of its wait
    cmd::query_command state;  // the state read the threaded wait follows
    const char *position_key;  // the state reply's position
};

// The controller's names put the verb first for the lift, last for the
// expansion axis.
constexpr axis lift{
    "ka_set_lift_height", {"ka_get_lift_state", "get_lift_state", "lift_state"}, "height"};
constexpr axis expand{
    "ka_set_expand_pos", {"ka_get_expand_state", "expand_get_state", "expand_state"}, "pos"};

constexpr auto lift_speed = cmd::set<"set_lift_speed">("set_state");
constexpr auto expand_speed =
    cmd::set<"expand_set_speed", "ka_set_expand_speed">("set_speed_state");
constexpr auto expand_move = cmd::set<"expand_set_pos", "ka_set_expand_pos">("set_pos_state");

int read_state(const axis &a, ka_robot_handle *handle, ka_expand_state_t *out) {
    if (!out) return -1;
    ka_reply_field fields[] = {cmd::int_field(a.position_key), cmd::int_field("current"),
                               cmd::int_field("err_flag"), cmd::int_field("mode")};
    cmd::query_result r = cmd::read(a.state, handle, fields);
    if (r.status != 0) return r.status;
    *out = {fields[0].value.i, fields[1].value.i, fields[2].value.i, fields[3].value.i};
    return 0;
}

// An axis's move is followed by its report first, its state read while the
// report is late; every report is judged as the one that ends the wait, and
// one without "trajectory_state" counts as a normal end.
constexpr wait::policy axis_wait(const char *function, int device,
                                 int (*state)(ka_robot_handle *, int *),
                                 std::optional<int> no_reader) {
    wait::policy p{function};
    p.device = device;
    p.poll = wait::poll_kind::axis_state;
    p.axis_state = state;
    p.strict_reading = false;
    p.starting_pause_ms = 50;
    p.starting_passes = 10;
    p.no_reader = no_reader;
    return p;
}

// The state read the threaded wait follows: its status, and "mode".
template <const axis &a> int axis_mode(ka_robot_handle *handle, int *mode) {
    ka_expand_state_t state{};
    const int status = read_state(a, handle, &state);
    *mode = state.mode;
    return status;
}

// Without a receive path the lift has always reported -3; the expansion
// axis gives its start reply's result.
constexpr wait::policy lift_wait = axis_wait("ka_set_lift_height", wait::lift, axis_mode<lift>, -3);
constexpr wait::policy expand_wait =
    axis_wait("ka_set_expand_pos", wait::expand, axis_mode<expand>, std::nullopt);

} // namespace

extern "C" {

int ka_set_lift_speed(ka_robot_handle *handle, int speed) {
    return cmd::run(lift_speed, handle, {cmd::number("speed", speed)});
}

// The height command is never answered: it is sent and paced by the default
// time-out, then (block) followed to the lift's report.
int ka_set_lift_height(ka_robot_handle *handle, int speed, int height, int block) {
    wait::session session(handle, lift_wait, block != 0);
    int sent = cmd::exchange(lift.move_function, handle, "set_lift_height",
                             {cmd::number("speed", speed), cmd::number("height", height)}, nullptr,
                             m_nOutTime, nullptr, 0);
    if (sent != 0) return sent;
    if (block == 0) return 0;
    return session.wait(block, sent);
}

int ka_get_lift_state(ka_robot_handle *handle, ka_expand_state_t *state) {
    return read_state(lift, handle, state);
}

int ka_set_expand_speed(ka_robot_handle *handle, int speed) {
    return cmd::run(expand_speed, handle, {cmd::number("speed", speed)});
}

int ka_set_expand_pos(ka_robot_handle *handle, int speed, int pos, int block) {
    wait::session session(handle, expand_wait, block != 0);
    int status =
        cmd::run(expand_move, handle, {cmd::number("speed", speed), cmd::number("pos", pos)});
    if (status != 0) return status;
    if (block == 0) return 0;
    return session.wait(block, status);
}

int ka_get_expand_state(ka_robot_handle *handle, ka_expand_state_t *state) {
    return read_state(expand, handle, state);
}

} // extern "C"
