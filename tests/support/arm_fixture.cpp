#include "support/arm_fixture.h"

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>

namespace ka_test {

arm_session::arm_session(int mode, const std::string &product, int dof) {
    ka_init(mode);
    serve_standard_arm(peer, product, dof);
    arm = ka_create_robot_arm("127.0.0.1", peer.port());
    // An arm whose opening queries went unanswered has a handle but no DOF;
    // every row would then fail on its own, slowly. Reported as the test's
    // failure, where a null arm would crash it.
    ka_robot_info_t info{};
    if (!arm || ka_get_robot_info(arm, &info) != 0) {
        ka_destory();
        throw std::runtime_error(
            std::string(arm ? "the arm's opening queries failed" : "the arm did not open") +
            " against the test peer on port " + std::to_string(peer.port()));
    }
    peer.clear_lines();
}

arm_session::~arm_session() { ka_destory(); }

void expect_wire(arm_session &session, const wire_case &row) {
    SCOPED_TRACE(row.name);
    session.peer.clear_lines();
    if (!row.reply.empty()) session.peer.answer_next({reply(row.reply)});
    int result = row.call(session.arm);
    EXPECT_EQ(result, row.result);
    ASSERT_TRUE(session.peer.wait_for_lines(1, std::chrono::seconds(2)));
    EXPECT_EQ(session.peer.lines().front(), row.request);
}

namespace {
// Only a hang or a missed wake-up goes past it; scheduling on a loaded
// machine does not.
constexpr std::chrono::milliseconds late_margin{400};

// The call's first line went out under the command's name; the family
// tests pin its exact bytes.
void expect_sent(arm_session &session, const std::string &command, const std::string &what) {
    ASSERT_TRUE(session.peer.wait_for_lines(1, std::chrono::seconds(2)))
        << command << ", " << what << ": nothing sent";
    EXPECT_EQ(session.peer.commands().front(), command) << command << ", " << what;
}

// What a row is, seen by the outcome checks common to sets and queries.
struct row_view {
    const std::string &command;
    const std::function<int(ka_robot_handle *)> &call;
    int timeout_ms;
    set_row::no_reply silent;
};

// One answer and the code it must give.
void expect_answered(arm_session &session, const row_view &row, const char *what,
                     const std::string &answer, int result) {
    SCOPED_TRACE(row.command + ", " + what);
    session.peer.clear_lines();
    session.peer.answer_next({reply(answer)});
    const int got = row.call(session.arm);
    if (result == query_row::reply_length)
        EXPECT_GT(got, 0) << row.command << ", " << what;
    else
        EXPECT_EQ(got, result) << row.command << ", " << what;
    expect_sent(session, row.command, what);
}

// No answer: -2, no earlier than the time-out and within a margin after it.
void expect_timed_out(arm_session &session, const row_view &row) {
    const bool usual = row.timeout_ms == 500;
    if (row.silent == set_row::no_reply::never ||
        (usual && row.silent == set_row::no_reply::when_not_default))
        return;
    SCOPED_TRACE(row.command + ", no reply");
    session.peer.clear_lines();
    session.peer.answer_next({}); // takes the request, whatever persistent rule there is
    const auto start = std::chrono::steady_clock::now();
    const int result = row.call(session.arm);
    // Not rounded: a wait cut short by a fraction of a millisecond still ran
    // out early.
    const auto took = std::chrono::steady_clock::now() - start;
    const std::chrono::milliseconds timeout{row.timeout_ms};
    const double took_ms = std::chrono::duration<double, std::milli>(took).count();
    EXPECT_EQ(result, -2) << row.command << ", no reply";
    EXPECT_GE(took, timeout) << row.command << ", no reply: returned early, after " << took_ms
                             << " ms of " << row.timeout_ms;
    EXPECT_LE(took, timeout + late_margin) << row.command << ", no reply: returned late, after "
                                           << took_ms << " ms of " << row.timeout_ms;
    expect_sent(session, row.command, "no reply");
}

// On a session whose controller closed the connection, once the receive
// thread has seen the close, every call gives -1 without waiting out its
// time-out.
void expect_disconnected(std::span<const row_view> rows, const std::string &product = "KIVO-B") {
    log_capture log;
    arm_session session(KA_THREAD_MODE_DUAL, product);
    session.peer.close_current();
    ASSERT_TRUE(session.peer.wait_for_disconnect(0, std::chrono::seconds(2)));
    ASSERT_TRUE(log.wait_for("connection of arm", std::chrono::seconds(2)))
        << "the receive thread never noticed the closed connection";
    for (const row_view &row : rows) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(row.call(session.arm), -1) << row.command << ", connection closed";
        EXPECT_LT(std::chrono::steady_clock::now() - start,
                  std::chrono::milliseconds(row.timeout_ms))
            << row.command << ", connection closed: waited out its time-out";
    }
}
} // namespace

void expect_set_outcomes(std::span<const set_row> rows) {
    std::vector<row_view> views;
    {
        arm_session session;
        for (const set_row &row : rows) {
            const row_view view{row.command, row.call, row.timeout_ms, row.silent};
            const std::string name = row.reply.empty() ? row.command : row.reply;
            const std::string key = "\"" + row.key + "\":";
            expect_answered(session, view, "verdict true", line(name, key + "true"), 0);
            expect_answered(session, view, "verdict false", line(name, key + "false"), 1);
            expect_answered(session, view, "verdict key missing", line(name), -3);
            expect_answered(session, view, "verdict as a string", line(name, key + "\"true\""), -3);
            expect_timed_out(session, view);
            views.push_back(view);
        }
    }
    expect_disconnected(views);
}

void expect_query_outcomes(std::span<const query_row> rows, const std::string &product) {
    std::vector<row_view> views;
    {
        arm_session session(KA_THREAD_MODE_DUAL, product);
        for (const query_row &row : rows) {
            const row_view view{row.command, row.call, row.timeout_ms, row.silent};
            const std::string name = row.reply.empty() ? row.command : row.reply;
            expect_answered(session, view, "well-formed reply", line(name, row.fields), 0);
            expect_answered(session, view, "reply without its fields", line(name), row.bare);
            expect_timed_out(session, view);
            views.push_back(view);
        }
    }
    expect_disconnected(views, product);
}

int unused_local_port(sim::net::transport kind) {
    // The port the system hands out for a fresh bind, released again.
    sim::net::unique_socket probe = sim::net::open_socket(kind);
    if (!probe || !sim::net::bind_to(probe.get(), {sim::net::loopback_address, 0})) return 0;
    const auto bound = sim::net::local_endpoint(probe.get());
    return bound ? bound->port : 0;
}

namespace {
std::mutex capture_mutex;
std::condition_variable capture_changed;
std::vector<std::string> captured;

bool any_contains(const std::string &text) {
    return std::any_of(captured.begin(), captured.end(), [&](const std::string &line) {
        return line.find(text) != std::string::npos;
    });
}

void capture_sink(const char *format, va_list args) {
    char text[2048];
    std::vsnprintf(text, sizeof text, format, args);
    {
        std::lock_guard<std::mutex> lock(capture_mutex);
        captured.emplace_back(text);
    }
    capture_changed.notify_all();
}
} // namespace

log_capture::log_capture() {
    {
        std::lock_guard<std::mutex> lock(capture_mutex);
        captured.clear();
    }
    ka_set_log_call_back(capture_sink, 0);
}

log_capture::~log_capture() { ka_set_log_call_back(nullptr, 3); }

std::vector<std::string> log_capture::lines() const {
    std::lock_guard<std::mutex> lock(capture_mutex);
    return captured;
}

bool log_capture::contains(const std::string &text) const {
    std::lock_guard<std::mutex> lock(capture_mutex);
    return any_contains(text);
}

bool log_capture::wait_for(const std::string &text, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(capture_mutex);
    return capture_changed.wait_for(lock, timeout, [&] { return any_contains(text); });
}

namespace {
callback_record<ka_event_push_data_t> recorded;

void record_event(ka_event_push_data_t event) { recorded.add(event); }

int count_of(const std::vector<ka_event_push_data_t> &events, int event_type) {
    return static_cast<int>(std::count_if(events.begin(), events.end(), [&](const auto &e) {
        return event_type == 0 || e.event_type == event_type;
    }));
}
} // namespace

event_recorder::event_recorder() {
    recorded.clear();
    ka_get_arm_event_call_back(record_event);
}

std::vector<ka_event_push_data_t> event_recorder::events() const { return recorded.items(); }

int event_recorder::count(int event_type) const { return count_of(recorded.items(), event_type); }

bool event_recorder::wait_for(int count, std::chrono::milliseconds timeout, int event_type) const {
    return recorded.wait_until(
        [&](const auto &events) { return count_of(events, event_type) >= count; }, timeout);
}

std::string line(const std::string &command, const std::string &rest) {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}

std::string answer(const std::string &command, const std::string &key, bool ok) {
    return line(command, "\"" + key + "\":" + (ok ? "true" : "false"));
}

std::string completion_report(int device, bool ok, int connect) {
    return std::string(R"({"state":"current_trajectory_state","trajectory_state":)") +
           (ok ? "true" : "false") + R"(,"device":)" + std::to_string(device) +
           R"(,"trajectory_connect":)" + std::to_string(connect) + "}";
}

} // namespace ka_test
