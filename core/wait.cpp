#include "core/wait.h"

#include "core/command.h"
#include "core/exchange.h"
#include "core/json.h"
#include "core/scale.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>
#include <optional>
#include <thread>

namespace wait {
namespace {

// What a report said.
struct report {
    int reading = 0; // parse_ka_move_command: 1 ended, 0 ended false, -3 unparsable, -1 no state
    int device = 0;
    int connect = 0; // 1 while further connected segments follow
    int finish_id = 0;
    bool readable = true; // a program finish with a numeric "finish_id"
};

// The next report within timeout_ms, read into `size` bytes at most; empty
// when none came.
std::optional<report> next_report(ka_robot_handle *handle, const policy &p, int timeout_ms,
                                  int size) {
    char text[reply_buffer_size] = {};
    size = std::clamp(size, 1, static_cast<int>(sizeof text));
    if (ka_pack_lock_wait(p.function, handle, p.report, text, size, timeout_ms) < 1)
        return std::nullopt;
    report r;
    if (p.poll == poll_kind::program) {
        json_ptr doc = json_parse(text);
        const cJSON *id = doc ? cJSON_GetObjectItem(doc.get(), "finish_id") : nullptr;
        r.readable = cJSON_IsNumber(id);
        if (r.readable) r.finish_id = json_int(id);
        return r;
    }
    r.reading = parse_ka_move_command(text, &r.device, &r.connect);
    return r;
}

// The status a report's reading ends the wait with; empty for a normal end.
std::optional<int> ended_badly(const report &r, const policy &p) {
    if (r.reading == 1) return std::nullopt;
    if (r.reading == 0) return 1;
    if (p.strict_reading || r.reading == -3) return r.reading;
    return std::nullopt;
}

// A verdict on a report: the wait's result, or empty to go on.
using verdict = std::optional<int>;

// A program's finish: its own id ends the wait, another program's is passed
// over, an unreadable one ends it with -4.
verdict judge_finish(const report &r, int id) {
    if (!r.readable) return -4;
    if (r.finish_id == id) return 0;
    return std::nullopt;
}

// A completion report: ended badly, connected segments to come, the awaited
// device's end, or another device's end (-4, logged).
verdict judge(const report &r, const policy &p, int id) {
    if (p.poll == poll_kind::program) return judge_finish(r, id);
    if (auto bad = ended_badly(r, p)) return bad;
    if (r.connect == 1) return std::nullopt;
    if (r.connect == 0 && r.device == p.device) return 0;
    ka_log_error("[%s] current device is: %d \n", p.function, r.device);
    return -4;
}

// Where a motion stands by the controller's answer to the wait's question.
enum class phase { failed, running, idle, other };
struct answer {
    phase at;
    int status = 0;
};

answer ask(ka_robot_handle *handle, const policy &p) {
    switch (p.poll) {
    case poll_kind::trajectory: {
        ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
        float data[KA_JOINTS] = {};
        if (int status = ka_get_arm_current_trajectory(handle, &kind, data); status != 0)
            return {phase::failed, status};
        if (kind == p.kind) return {phase::running};
        return {kind == KA_TRAJECTORY_NONE ? phase::idle : phase::other};
    }
    case poll_kind::axis_state: {
        ka_expand_state_t state{};
        if (int status = p.axis_state(handle, &state); status != 0) return {phase::failed, status};
        return {state.mode != 0 ? phase::running : phase::idle};
    }
    case poll_kind::program: {
        ka_program_run_state_t state{};
        if (int status = ka_get_program_run_state(handle, &state); status != 0)
            return {phase::failed, status};
        if (state.run_state == 1) return {phase::running};
        return {state.run_state == 0 ? phase::idle : phase::other};
    }
    }
    return {phase::failed, -1};
}

// Threaded, report first: every pause is spent waiting for the report, so a
// report ends it at once.
int follow_reports(ka_robot_handle *handle, const policy &p, int id) {
    int failures = 0;
    int idle = 0;
    bool seen = false;
    int report_ms = m_nOutTime;
    for (;;) {
        if (auto r = next_report(handle, p, report_ms, p.report_size)) {
            report_ms = m_nOutTime;
            if (!p.lenient_while_running) {
                if (auto done = judge(*r, p, id)) return *done;
                continue;
            }
            if (auto bad = ended_badly(*r, p)) return *bad;
            // Connected motions follow, or another device finished.
            if (r->connect == 1 || r->device != p.device) continue;
            if (r->connect == 0) return 0;
        }
        const answer a = ask(handle, p);
        if (a.at == phase::failed) {
            report_ms = m_nOutTime;
            if (++failures >= p.failure_limit) return a.status;
            continue;
        }
        if (a.at == phase::running) {
            seen = true;
            report_ms = m_nOutTime + p.running_pause_ms;
            continue;
        }
        if (a.at == phase::other) {
            report_ms = m_nOutTime + p.other_pause_ms;
            continue;
        }
        if (!seen && ++idle <= p.starting_passes) {
            report_ms = m_nOutTime + p.starting_pause_ms;
            continue;
        }
        // Seen idle: its report should be in by now.
        report_ms = m_nOutTime + p.late_pause_ms;
        if (auto r = next_report(handle, p, m_nOutTime, p.report_size)) {
            if (auto done = judge(*r, p, id)) return *done;
            report_ms = m_nOutTime;
        }
    }
}

// Threaded, question first: the report is taken once the motion was seen
// idle; the pause between two questions is spent waiting for it.
int follow_queries(ka_robot_handle *handle, const policy &p, int id) {
    int failures = 0;
    int idle = 0;
    bool seen = false;
    for (;;) {
        const answer a = ask(handle, p);
        if (a.at == phase::failed) {
            if (++failures >= p.failure_limit) return a.status;
            continue;
        }
        int pause_ms = p.starting_pause_ms;
        if (a.at == phase::running) {
            seen = true;
            if (p.requery_while_running) continue;
            pause_ms = p.running_pause_ms;
        } else if (a.at == phase::other) {
            if (p.other_pause_ms < 0) continue;
            pause_ms = p.other_pause_ms;
        } else if (seen || ++idle > p.starting_passes) {
            if (auto r = next_report(handle, p, p.idle_wait_ms, p.report_size)) {
                if (auto done = judge(*r, p, id)) return *done;
                continue;
            }
            if (p.idle_miss_ends) return -4;
        }
        if (auto r = next_report(handle, p, pause_ms, p.report_size))
            if (auto done = judge(*r, p, id)) return *done;
    }
}

// Thread mode 0: nothing files reports, so each read takes the socket.
int follow_direct(ka_robot_handle *handle, const policy &p, int seconds, int id) {
    if (p.direct == direct_read::one_read) {
        const int timeout_ms = cmd::seconds_to_ms(seconds);
        auto r = next_report(handle, p, timeout_ms, reply_buffer_size);
        return r && judge_finish(*r, id) == 0 ? 0 : -4;
    }
    if (seconds == 0) return -5;
    for (int attempt = 0; attempt < seconds; ++attempt) {
        auto r = next_report(handle, p, m_nOutTime_max, p.direct_report_size);
        if (!r) continue;
        if (auto bad = ended_badly(*r, p)) return *bad;
        if (r->device == p.device && r->connect == 0) return 0;
    }
    return -5;
}

// One read of the report within the caller's time-out (report_only).
int read_once(ka_robot_handle *handle, const policy &p, int seconds) {
    auto r = next_report(handle, p, milliseconds(seconds), p.report_size);
    if (!r) {
        if (p.log_no_report) ka_log_error("[%s] timeout error\n", p.function);
        return p.no_report;
    }
    if (auto bad = ended_badly(*r, p)) return *bad;
    if (r->device == p.device) return 0;
    ka_log_error("[%s] current device is: %d \n", p.function, r->device);
    return p.other_device;
}

// Waits ms, cut short when the arm's connection closes (nothing more can come).
void pause(arm_record &arm, int ms) {
    std::unique_lock<std::mutex> lock(arm.queue.mutex);
    arm.queue.filed.wait_for(lock, std::chrono::milliseconds(ms), [&] { return arm.queue.closed; });
}

// verdict_after, threaded: the verdict is taken in the pauses between two
// questions while the motion runs, else awaited at length once it does not.
int follow_verdict(ka_robot_handle *handle, arm_record &arm, const policy &p, int seconds) {
    pause(arm, cmd::seconds_to_ms(seconds));
    cmd::reply_text verdict;
    bool answered = false;
    while (ask(handle, p).at == phase::running) {
        if (answered)
            pause(arm, p.running_pause_ms);
        else
            answered = ka_pack_lock_wait(p.function, handle, p.report, verdict.text,
                                         sizeof verdict.text, p.running_pause_ms) > 0;
    }
    if (!answered) {
        int n = ka_pack_lock_wait(p.function, handle, p.report, verdict.text, sizeof verdict.text,
                                  p.idle_wait_ms);
        if (n < 1) {
            ka_log_error("[%s] %s revice error\n", p.function, p.report);
            return n;
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(p.settle_ms));
    return parse_ka_set_command(p.function, verdict.text, p.verdict_key);
}

} // namespace

session::session(ka_robot_handle *handle, const policy &p, bool blocking, const char *forget)
    : handle_(handle), policy_(p), arm_(blocking ? registry_find(handle) : nullptr) {
    if (arm_) {
        arm_->blocking_waits.fetch_add(1);
        purge_lines(*arm_, completion_report);
        if (std::strcmp(p.report, completion_report) != 0) purge_lines(*arm_, p.report);
    }
    if (forget) cmd::forget(handle, forget);
}

session::~session() {
    if (arm_) arm_->blocking_waits.fetch_sub(1);
}

void session::accepted() const {
    if (arm_ptr arm = registry_find(handle_)) arm->awaited_event.store(policy_.awaited_event);
}

int session::wait(int block, int accepted_length, int id) const {
    const policy &p = policy_;
    if (p.order == read_order::report_only) return read_once(handle_, p, block);
    const reader &r = current_reader();
    if (r.direct) return follow_direct(handle_, p, block, id);
    if (r.threaded)
        return p.order == read_order::report_first ? follow_reports(handle_, p, id)
                                                   : follow_queries(handle_, p, id);
    return p.no_reader.value_or(accepted_length);
}

namespace {
struct field_request {
    const command &c;
    ka_robot_handle *handle;
    std::span<const ka_request_field> fields;
};
int send_fields(const void *context, const char *label, char *reply, int size) {
    const auto &r = *static_cast<const field_request *>(context);
    const cmd::set_command &a = r.c.accept;
    return cmd::exchange(label, r.handle, a.command, r.fields, a.result_key ? a.reply : nullptr,
                         a.timeout_ms, reply, size);
}
// The request's integer under key, if it has one.
std::optional<int> int_field(std::span<const ka_request_field> fields, const char *key) {
    if (key)
        for (const auto &f : fields)
            if (f.type == KA_FIELD_INT && std::strcmp(f.key, key) == 0) return f.value.i;
    return std::nullopt;
}

// Sends the request, logged under label; the exchange's result.
using sender = int (*)(const void *context, const char *label, char *reply, int size);
int run_request(const command &c, ka_robot_handle *handle, blocking block, bool chained, int id,
                sender send, const void *context) {
    const cmd::set_command &a = c.accept;
    session s(handle, c.wait, block.has_value(), c.forget_unread ? a.reply : nullptr);
    const char *label = block ? c.wait.function : a.function;
    int length = 0;
    int status = 0;
    if (!a.result_key) {
        length = send(context, label, nullptr, 0);
        if (length != 0) return length;
    } else {
        char reply[reply_buffer_size] = {};
        length = send(context, label, reply, std::min(c.reply_size, reply_buffer_size));
        if (length < 1) return length;
        status = parse_ka_set_command(a.function, reply, a.result_key);
    }
    if (status == 0 && c.marks_accepted) s.accepted();
    if (!block || status != 0 || chained) return status;
    return s.wait(*block, length, id);
}

struct formatted_request {
    const command &c;
    ka_robot_handle *handle;
    const cJSON *object;
    bool log_text;
};
int send_object(const void *context, const char *label, char *reply, int size) {
    const auto &r = *static_cast<const formatted_request *>(context);
    const cmd::set_command &a = r.c.accept;
    if (cmd::send_formatted(label, a.command, r.handle, r.object, r.log_text) != 0) return -1;
    return reply ? ka_pack_lock_wait(label, r.handle, a.reply, reply, size, a.timeout_ms) : 0;
}
} // namespace

int run(const command &c, ka_robot_handle *handle, blocking block, bool chained,
        const cJSON *formatted) {
    const formatted_request r{c, handle, formatted, block.has_value()};
    return run_request(c, handle, block, chained, 0, send_object, &r);
}

namespace {
// verdict_after, blocking: read directly, the request is answered by its
// verdict within the caller's seconds; otherwise it is sent and the motion
// followed. A verdict left unread by a call that did not wait is dropped.
int run_verdict(const command &c, ka_robot_handle *handle, int seconds,
                std::span<const ka_request_field> fields) {
    const policy &p = c.wait;
    if (current_reader().direct) {
        cmd::set_command answered = c.accept;
        answered.reply = p.report;
        answered.result_key = p.verdict_key;
        answered.timeout_ms = cmd::seconds_to_ms(seconds);
        return cmd::run(answered, handle, fields);
    }
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    session s(handle, p, true);
    int sent = cmd::exchange(p.function, handle, c.accept.command, fields, nullptr,
                             c.accept.timeout_ms, nullptr, 0);
    return sent != 0 ? sent : follow_verdict(handle, *arm, p, seconds);
}
} // namespace

int run(const command &c, ka_robot_handle *handle, blocking block,
        std::span<const ka_request_field> fields) {
    if (block && c.wait.order == read_order::verdict_after)
        return run_verdict(c, handle, *block, fields);
    const field_request r{c, handle, fields};
    return run_request(c, handle, block, int_field(fields, c.chain_key) == 1,
                       int_field(fields, c.id_key).value_or(0), send_fields, &r);
}

const reader &current_reader() {
    static constexpr reader direct{true, false}, threaded{false, true}, none{false, false};
    switch (thread_mode()) {
    case KA_THREAD_MODE_SINGLE:
        return direct;
    case KA_THREAD_MODE_DUAL:
    case KA_THREAD_MODE_TRIPLE:
        return threaded;
    default:
        return none;
    }
}

int milliseconds(int seconds) { return scale::truncate(static_cast<double>(seconds) * 1000.0); }

} // namespace wait

// The direct wait on its own, whatever the mode.
extern "C" int ka_movecmd_singlemode_parse(ka_robot_handle *handle, int timeout, int device) {
    wait::policy p{"ka_movecmd_singlemode_parse"};
    p.device = device;
    return wait::follow_direct(handle, p, timeout, 0);
}
