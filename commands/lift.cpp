// Lift and expansion axes: the two single axes a controller can drive beside
// the arm. Speeds, moves (followed until the axis reports its end when the
// caller blocks) and state reads; the controller takes every value unscaled.
#include "commands/device_wait.h"
#include "commands/motion_wait.h"
#include "core/command.h"

#include <optional>

namespace {

struct axis {
    const char *move_function; // label of the move and of its wait
    int device;                // whose completion report ends the move
    cmd::query_command state;  // the state read the threaded wait follows
    const char *position_key;  // the state reply's position
};

// The controller's names put the verb first for the lift, last for the
// expansion axis.
constexpr axis lift{"ka_set_lift_height",
                    device::lift,
                    {"ka_get_lift_state", "get_lift_state", "lift_state"},
                    "height"};
constexpr axis expand{"ka_set_expand_pos",
                      device::expand,
                      {"ka_get_expand_state", "expand_get_state", "expand_state"},
                      "pos"};

constexpr cmd::set_command lift_speed{"ka_set_lift_speed", "set_lift_speed", "set_lift_speed",
                                      "set_state"};
constexpr cmd::set_command expand_speed{"ka_set_expand_speed", "expand_set_speed",
                                        "expand_set_speed", "set_speed_state"};
constexpr cmd::set_command expand_move{"ka_set_expand_pos", "expand_set_pos", "expand_set_pos",
                                       "set_pos_state"};

int read_state(const axis &a, ka_robot_handle *handle, ka_expand_state_t *out) {
    if (!out) return -1;
    ka_reply_field fields[] = {cmd::int_field(a.position_key), cmd::int_field("current"),
                               cmd::int_field("err_flag"), cmd::int_field("mode")};
    cmd::query_result r = cmd::read(a.state, handle, fields);
    if (r.status != 0) return r.status;
    *out = {fields[0].value.i, fields[1].value.i, fields[2].value.i, fields[3].value.i};
    return 0;
}

constexpr int single_read_ms = m_nOutTime_max; // one attempt of thread mode 0
constexpr int single_report_size = 256;
constexpr int moving_pause_ms = 100;  // between two state reads while the axis moves
constexpr int starting_pause_ms = 50; // between two state reads before it was seen moving
constexpr int starting_passes = 10;   // idle reads before the report is awaited anyway
constexpr int late_pause_ms = 100;    // after the last wait found no report
constexpr int state_failures = 6;     // failed state reads that end the wait

// Thread mode 0: nothing files reports, so each of the `seconds` attempts
// reads the socket for up to one second.
int wait_single(const axis &a, ka_robot_handle *handle, int seconds) {
    if (seconds == 0) return -5;
    for (int attempt = 0; attempt < seconds; ++attempt) {
        auto r = device::next_report(handle, a.move_function, single_read_ms, single_report_size);
        if (!r) continue;
        if (auto bad = device::ended_badly(*r)) return *bad;
        if (r->device == a.device && r->connect == 0) return 0;
    }
    return -5;
}

// Threaded modes: the report, or while it is late the axis's state. Every
// pause is spent waiting for the report, so a report ends it at once.
int wait_threaded(const axis &a, ka_robot_handle *handle) {
    int failures = 0;
    int idle = 0;
    bool moving_seen = false;
    int report_ms = m_nOutTime;
    for (;;) {
        auto r = device::next_report(handle, a.move_function, report_ms, reply_buffer_size);
        report_ms = m_nOutTime;
        if (!r) {
            ka_expand_state_t state{};
            if (int status = read_state(a, handle, &state); status != 0) {
                if (++failures >= state_failures) return status;
                continue;
            }
            if (state.mode != 0) {
                moving_seen = true;
                report_ms += moving_pause_ms;
                continue;
            }
            if (!moving_seen && ++idle <= starting_passes) {
                report_ms += starting_pause_ms;
                continue;
            }
            r = device::next_report(handle, a.move_function, m_nOutTime, reply_buffer_size);
            if (!r) {
                report_ms += late_pause_ms;
                continue;
            }
        }
        if (auto bad = device::ended_badly(*r)) return *bad;
        if (r->connect == 1) continue; // further segments follow
        if (r->device == a.device && r->connect == 0) return 0;
        ka_log_error("[%s] current device is: %d \n", a.move_function, r->device);
        return -4;
    }
}

// Waits for the accepted move to end (block: seconds in thread mode 0, a
// flag otherwise). A thread mode without a receive path gives other_mode.
int wait_for_axis(const axis &a, ka_robot_handle *handle, int block, int other_mode) {
    switch (thread_mode()) {
    case KA_THREAD_MODE_SINGLE:
        return wait_single(a, handle, block);
    case KA_THREAD_MODE_DUAL:
    case KA_THREAD_MODE_TRIPLE:
        return wait_threaded(a, handle);
    default:
        return other_mode;
    }
}

} // namespace

extern "C" {

int ka_set_lift_speed(ka_robot_handle *handle, int speed) {
    return cmd::run(lift_speed, handle, {cmd::number("speed", speed)});
}

// The height command is never answered: it is sent and paced by the default
// time-out, then (block) followed to the lift's report.
int ka_set_lift_height(ka_robot_handle *handle, int speed, int height, int block) {
    std::optional<motion::blocking_scope> scope;
    if (block != 0) scope.emplace(handle);
    int sent = cmd::exchange(lift.move_function, handle, "set_lift_height",
                             {cmd::number("speed", speed), cmd::number("height", height)}, nullptr,
                             m_nOutTime, nullptr, 0);
    if (sent != 0) return sent;
    if (block == 0) return 0;
    // Without a receive path the lift has always reported -3 here.
    return wait_for_axis(lift, handle, block, -3);
}

int ka_get_lift_state(ka_robot_handle *handle, ka_expand_state_t *state) {
    return read_state(lift, handle, state);
}

int ka_set_expand_speed(ka_robot_handle *handle, int speed) {
    return cmd::run(expand_speed, handle, {cmd::number("speed", speed)});
}

int ka_set_expand_pos(ka_robot_handle *handle, int speed, int pos, int block) {
    std::optional<motion::blocking_scope> scope;
    if (block != 0) scope.emplace(handle);
    int status =
        cmd::run(expand_move, handle, {cmd::number("speed", speed), cmd::number("pos", pos)});
    if (status != 0) return status;
    if (block == 0) return 0;
    // Without a receive path the start reply is the result.
    return wait_for_axis(expand, handle, block, status);
}

int ka_get_expand_state(ka_robot_handle *handle, ka_expand_state_t *state) {
    return read_state(expand, handle, state);
}

} // extern "C"
