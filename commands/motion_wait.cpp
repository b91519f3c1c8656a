#include "commands/motion_wait.h"

#include "core/exchange.h"

#include <algorithm>
#include <optional>

namespace motion {
namespace {

constexpr int query_pause_ms = 100;            // between two trajectory queries
constexpr int idle_passes = 9;                 // "none" answers before the motion is given up on
constexpr int query_failures = 6;              // failed trajectory queries that end the wait
constexpr int idle_report_ms = m_nOutTime_max; // the last wait of ka_movej_p and the steps
constexpr int single_read_ms = m_nOutTime_max; // one attempt of thread mode 0
constexpr int single_report_size = 256;

struct report {
    int reading = 0; // 1 ended normally, 0 ended false, else a parse error
    int device = 0;  // 0 the arm, else another motion device of the controller
    int connect = 0; // 1 while connected motions follow
};

// The next completion report within timeout_ms; empty when none came.
std::optional<report> next_report(ka_robot_handle *handle, const char *function, int size,
                                  int timeout_ms) {
    char text[reply_buffer_size] = {};
    size = std::clamp(size, 1, static_cast<int>(sizeof text));
    if (ka_pack_lock_wait(function, handle, completion_report, text, size, timeout_ms) < 1)
        return std::nullopt;
    report r;
    r.reading = parse_ka_move_command(text, &r.device, &r.connect);
    return r;
}

std::optional<report> next_report(ka_robot_handle *handle, const completion_wait &w,
                                  int timeout_ms) {
    return next_report(handle, w.function, w.report_size, timeout_ms);
}

// A reading other than 1 ends every wait.
int ended_badly(const report &r) { return r.reading == 0 ? 1 : r.reading; }

// A report taken once the arm was seen idle: the wait's result, or empty
// while connected motions follow.
std::optional<int> judge_idle_report(const report &r, const char *function) {
    if (r.reading != 1) return ended_badly(r);
    if (r.connect == 1) return std::nullopt;
    if (r.connect == 0 && r.device == 0) return 0;
    ka_log_error("[%s] current device is: %d \n", function, r.device);
    return -4;
}

struct trajectory {
    int status;
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
};

trajectory query_trajectory(ka_robot_handle *handle) {
    trajectory t{0};
    float data[KA_JOINTS] = {};
    t.status = ka_get_arm_current_trajectory(handle, &t.kind, data);
    return t;
}

// Thread mode 0: nothing files reports, so each attempt reads the socket.
// device is the one whose report ends the wait (0, the arm, for the motions).
int wait_single(ka_robot_handle *handle, const char *function, int seconds, int device) {
    if (seconds == 0) return -5;
    for (int attempt = 0; attempt < seconds; ++attempt) {
        auto r = next_report(handle, function, single_report_size, single_read_ms);
        if (!r) continue;
        if (r->reading != 1) return ended_badly(*r);
        if (r->device == device && r->connect == 0) return 0;
    }
    return -5;
}

// The planned motions. The 100 ms between two queries is spent waiting for
// the report, so it ends the wait as soon as it comes.
int follow_reports(ka_robot_handle *handle, const completion_wait &w) {
    int failures = 0;
    int idle = 0;
    bool seen = false;
    int report_ms = m_nOutTime;
    for (;;) {
        if (auto r = next_report(handle, w, report_ms)) {
            report_ms = m_nOutTime;
            if (r->reading != 1) return ended_badly(*r);
            // Connected motions follow, or another device finished.
            if (r->connect == 1 || r->device != 0) continue;
            if (r->connect == 0) return 0;
        }
        trajectory t = query_trajectory(handle);
        if (t.status != 0) {
            report_ms = m_nOutTime;
            if (++failures >= query_failures) return t.status;
            continue;
        }
        report_ms = m_nOutTime + query_pause_ms;
        if (t.kind == w.kind) {
            seen = true;
            continue;
        }
        if (t.kind != KA_TRAJECTORY_NONE || (!seen && ++idle <= idle_passes)) continue;
        if (auto r = next_report(handle, w, m_nOutTime)) {
            if (auto done = judge_idle_report(*r, w.function)) return *done;
            report_ms = m_nOutTime;
        }
    }
}

// ka_movej_p and the steps: each pass starts with a query; the report is
// taken once the arm is idle. The pause between queries is spent waiting for
// the report, which is judged as the idle wait would judge it.
int follow_queries(ka_robot_handle *handle, const completion_wait &w) {
    int failures = 0;
    int idle = 0;
    bool seen = false;
    for (;;) {
        trajectory t = query_trajectory(handle);
        if (t.status != 0) {
            if (++failures >= query_failures) return t.status;
            continue;
        }
        if (t.kind == w.kind) {
            seen = true;
            if (w.style == follow_style::step) continue;
        } else if (t.kind == KA_TRAJECTORY_NONE && (seen || ++idle > idle_passes)) {
            if (auto r = next_report(handle, w, idle_report_ms)) {
                if (auto done = judge_idle_report(*r, w.function)) return *done;
                continue;
            }
        }
        if (auto r = next_report(handle, w, query_pause_ms))
            if (auto done = judge_idle_report(*r, w.function)) return *done;
    }
}

} // namespace

blocking_scope::blocking_scope(const ka_robot_handle *handle) : arm_(registry_find(handle)) {
    if (!arm_) return;
    arm_->blocking_waits.fetch_add(1);
    purge_lines(*arm_, completion_report);
}

blocking_scope::~blocking_scope() {
    if (arm_) arm_->blocking_waits.fetch_sub(1);
}

void expect_completion(const ka_robot_handle *handle) {
    if (arm_ptr arm = registry_find(handle)) arm->awaited_event.store(1);
}

int wait_for_completion(ka_robot_handle *handle, const completion_wait &wait, int block,
                        int accepted_length) {
    switch (thread_mode()) {
    case KA_THREAD_MODE_SINGLE:
        return wait_single(handle, wait.function, block, 0);
    case KA_THREAD_MODE_DUAL:
    case KA_THREAD_MODE_TRIPLE:
        return wait.style == follow_style::report_first ? follow_reports(handle, wait)
                                                        : follow_queries(handle, wait);
    default:
        return accepted_length;
    }
}

} // namespace motion

extern "C" int ka_movecmd_singlemode_parse(ka_robot_handle *handle, int timeout, int device) {
    return motion::wait_single(handle, "ka_movecmd_singlemode_parse", timeout, device);
}
