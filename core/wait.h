// The one engine every blocking command waits on. The controller accepts a
// motion (of the arm, the gripper, the hand, the lift or the expansion axis)
// or a program at once and reports its end later: "current_trajectory_state"
// with the device whose move ended, or "program_run_finish" with the
// program's id. A blocking call holds a wait::session from before its
// request goes out until its wait ends, and describes its wait as data (a
// wait::policy); how the wait is carried out depends on who reads the
// connection, chosen once at ka_init (wait::reader): the caller's own thread
// (thread mode 0), the receive thread (modes 1 and 2), or nobody.
#pragma once

#include "core/arm.h"
#include "core/command.h"
#include "core/exchange.h"

#include <optional>

namespace wait {

// The report that ends a motion of any device, and the one that ends a program.
constexpr const char *completion_report = "current_trajectory_state";
constexpr const char *finish_report = "program_run_finish";

// The "device" codes of a completion report.
enum device_code : int { arm = 0, gripper = 1, hand = 2, lift = 3, expand = 4 };

// What a threaded wait asks the controller while it follows the motion.
enum class poll_kind {
    trajectory, // the running trajectory: the motion runs while it is `kind`
    axis_state, // the axis's state read (`axis_state`): it moves while "mode" is not 0
    program,    // the program run state: it runs while "run_state" is 1
};

// In which order a threaded wait reads.
enum class read_order {
    // The report; the controller is asked only while the report is late.
    report_first,
    // The question first; the report is read in the pauses between two
    // questions, and at length once the motion was seen idle.
    query_first,
    // One read of the report within the caller's time-out, in every mode.
    report_only,
    // The request's own verdict, given once the motion it starts is over:
    // the caller's seconds pass first (cut short when the connection
    // closes), then the controller is asked while the motion runs, the
    // pauses spent waiting for the verdict; read directly, the verdict is
    // the answer to the request within those seconds.
    verdict_after,
};

// How a direct read (thread mode 0) waits.
enum class direct_read {
    per_second, // `block` reads of up to one second each; -5 when none ended it
    one_read,   // one read of up to `block` seconds; -4 when it did not end it
};

struct policy {
    const char *function;                   // label of the reads and the device line
    const char *report = completion_report; // the line that ends the wait
    int device = arm;                       // whose completion report ends it
    int report_size = reply_buffer_size;    // bytes a report is read into
    int awaited_event = 1;                  // flag the accepted request sets: 1 report, 2 finish
    read_order order = read_order::report_first; // threaded modes
    poll_kind poll = poll_kind::trajectory;      // threaded modes
    int kind = 0; // ka_arm_current_trajectory_e (poll_kind::trajectory)
    // The axis's state read (poll_kind::axis_state); it moves while "mode" is not 0.
    int (*axis_state)(ka_robot_handle *handle, ka_expand_state_t *state) = nullptr;
    bool requery_while_running = false; // steps: ask again at once while the step runs
    // While the motion runs, a report of another device is passed over and one
    // with an unexpected "trajectory_connect" sends the wait back to its
    // question (the planned motions); otherwise every report is judged as
    // the one that ends the wait.
    bool lenient_while_running = false;
    // A report whose reading is not 1 (ended false 0, unparsable -3, no
    // "trajectory_state" -1) ends the wait with that reading (0 as 1); when
    // not strict, a report without "trajectory_state" counts as a normal end.
    bool strict_reading = true;
    int running_pause_ms = 100;        // between two questions while it runs
    int starting_pause_ms = 100;       // between two questions before it was seen running
    int starting_passes = 9;           // idle answers before it is taken as ended anyway
    int other_pause_ms = 100;          // after an answer of another kind; -1 asks again at once
    int late_pause_ms = 100;           // report_first: after the report was still late once idle
    int idle_wait_ms = m_nOutTime_max; // query_first, verdict_after: the read once not running
    bool idle_miss_ends = false;       // query_first: no report in that read ends it with -4
    int failure_limit = 6;             // failed questions that end the wait with the last status
    direct_read direct = direct_read::per_second;
    int direct_report_size = 256; // bytes a direct read takes (per_second)
    // report_only: results when no report came, and when another device's came.
    int no_report = -4;
    int other_device = -4;
    bool log_no_report = false; // "[%s] timeout error\n"
    // The result without a receive path (a mode other than 0, 1 and 2);
    // accepted_length when empty.
    std::optional<int> no_reader = std::nullopt;
    // verdict_after: the verdict's key in the report (0 true, 1 false, -3
    // unparsable), judged settle_ms after it came.
    const char *verdict_key = nullptr;
    int settle_ms = 0;
};

// The policies of the arm's motions. A planned motion: the report first,
// another device's report passed over while it runs.
constexpr policy planned_motion(const char *function, int kind) {
    policy p{function};
    p.kind = kind;
    p.lenient_while_running = true;
    return p;
}
// A motion followed by question (ka_movej_p, the way to a recorded
// trajectory's start, and with requery the steps).
constexpr policy queried_motion(const char *function, int kind, bool requery = false,
                                int report_size = reply_buffer_size) {
    policy p{function};
    p.kind = kind;
    p.order = read_order::query_first;
    p.requery_while_running = requery;
    p.report_size = report_size;
    return p;
}

// Held by a blocking call from before its request is sent until its wait
// ends. Reports still queued from earlier non-blocking requests are purged
// (completion reports, the policy's own report, and the lines named
// `forget`, an answer nobody read), so that they cannot end this wait, and
// while the session lives no lookup on the arm drops a completion report
// (the waiter's own questions included). Not blocking: only the lines named
// `forget` are dropped.
class session {
  public:
    session(ka_robot_handle *handle, const policy &p, bool blocking, const char *forget = nullptr);
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    // The request was accepted: its report is now expected on the arm.
    void accepted() const;
    // Waits for the accepted request to end. block: seconds in thread mode 0,
    // a flag otherwise (report_only: seconds in every mode). For a program,
    // id is the one whose finish ends the wait. 0 ended, 1 ended with
    // "trajectory_state" false, -3 unparsable report, -4 another device's
    // end, -5 none within the seconds of thread mode 0, or the last failed
    // question's status; without a receive path, the policy's no_reader or
    // accepted_length.
    int wait(int block, int accepted_length, int id = 0) const;

  private:
    ka_robot_handle *handle_;
    const policy &policy_;
    arm_ptr arm_;
};

// Who reads the connection, as the mode given to ka_init makes it.
struct reader {
    bool direct;   // the caller's own thread reads (thread mode 0)
    bool threaded; // the receive thread files every line (modes 1 and 2)
};
const reader &current_reader();

// A caller's time-out in seconds as milliseconds, saturated.
int milliseconds(int seconds);

// How a call to a waited command blocks: empty for a call that returns once
// the request is accepted, else `block` for session::wait.
using blocking = std::optional<int>;
// A caller's block argument: 0 does not wait.
constexpr blocking when(int block) { return block != 0 ? blocking(block) : std::nullopt; }
// The effectors' pair: a flag, and the seconds the report is read within.
constexpr blocking when(bool block, int timeout) {
    return block ? blocking(timeout) : std::nullopt;
}

// A command the controller accepts at once and reports the end of later
// (motions, steps, effector actions, axis moves). The request is `accept`
// (its label that of the call that does not block; with a result key its
// verdict, read into reply_size bytes, else only sent and paced); the
// blocking call is labelled as `wait` and, once accepted, waits by it for
// the report, with the accepting exchange's result as its accepted length.
struct command {
    cmd::set_command accept;
    policy wait;
    int reply_size = reply_buffer_size;
    // An accepted request, blocking or not, tells the receive side that its
    // report is expected (the planned motions).
    bool marks_accepted = false;
    // An answer under the reply's name that nobody read (a late one, or one
    // to a request that was only sent) is dropped before the request goes out.
    bool forget_unread = false;
    // A request whose chain_key is 1 is followed by a connected one: its
    // report comes only at the chain's end, so the call never waits.
    const char *chain_key = nullptr;
    // The request's integer under this key names the program whose finish
    // ends the wait.
    const char *id_key = nullptr;
    // Labels the call that only sends the request (see sent) when given.
    const char *sent_label = nullptr;

    // The caller's values in accept.args order; a null pointer gives -1 with
    // nothing sent. 0 (or the accepted wait's result), 1 refused, -3
    // unparsable, or the exchange's code.
    template <typename... V> int operator()(ka_robot_handle *handle, blocking block, V... v) const;
    // The call that neither waits nor reads the verdict: the request only
    // sent, then paced by the accepting time-out.
    template <typename... V> int sent(ka_robot_handle *handle, V... v) const {
        return cmd::sent_only(accept, accept.timeout_ms, sent_label)(handle, v...);
    }
};
// A request no row can carry, built by the caller and sent in cJSON's
// formatted print (its text logged when the call blocks).
int run(const command &c, ka_robot_handle *handle, blocking block, bool chained,
        const cJSON *formatted);
int run(const command &c, ka_robot_handle *handle, blocking block,
        std::span<const ka_request_field> fields);

template <typename... V>
int command::operator()(ka_robot_handle *handle, blocking block, V... v) const {
    cmd::request r(accept.function, handle);
    r.take(accept.args, v...);
    return r.status ? r.status : run(*this, handle, block, r.fields());
}

// A request only sent whose verdict, under `key` in a line of the command's
// own name, comes once the motion of `kind` it starts is over (verdict_after,
// asked every running_pause_ms). Without a wait it is only sent.
template <cmd::wire_name Command>
constexpr command verdict_after(const char *key, int kind, int running_pause_ms, int settle_ms) {
    command c{cmd::send<Command>(0), policy{nullptr}};
    c.wait.function = c.accept.function;
    c.wait.report = c.accept.command;
    c.wait.order = read_order::verdict_after;
    c.wait.kind = kind;
    c.wait.running_pause_ms = running_pause_ms;
    c.wait.verdict_key = key;
    c.wait.settle_ms = settle_ms;
    return c;
}

// A planned motion accepted under its own name with "receive_state".
template <cmd::wire_name Command>
constexpr command motion(const policy &p, std::initializer_list<cmd::arg> args) {
    command c{cmd::set<Command>("receive_state", nullptr, m_nOutTime, args), p, 256, true};
    c.chain_key = "trajectory_connect";
    return c;
}

} // namespace wait
