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
    if (!arm) {
        // Reported as the test's failure, where a null arm would crash it.
        ka_destory();
        throw std::runtime_error("the arm did not open against the test peer on port " +
                                 std::to_string(peer.port()));
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
void expect_sent(arm_session &session, const set_row &row, const std::string &what) {
    ASSERT_TRUE(session.peer.wait_for_lines(1, std::chrono::seconds(2)))
        << row.command << ", " << what << ": nothing sent";
    EXPECT_EQ(session.peer.commands().front(), row.command) << row.command << ", " << what;
}

void expect_row_outcomes(arm_session &session, const set_row &row) {
    const std::string name = row.reply.empty() ? row.command : row.reply;
    const std::string key = "\"" + row.key + "\":";
    const struct {
        const char *what;
        std::string answer;
        int result;
    } cases[] = {
        {"verdict true", line(name, key + "true"), 0},
        {"verdict false", line(name, key + "false"), 1},
        {"verdict key missing", line(name), -3},
        {"verdict as a string", line(name, key + "\"true\""), -3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(row.command + ", " + c.what);
        session.peer.clear_lines();
        session.peer.answer_next({reply(c.answer)});
        EXPECT_EQ(row.call(session.arm), c.result) << row.command << ", " << c.what;
        expect_sent(session, row, c.what);
    }
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
    expect_sent(session, row, "no reply");
}
} // namespace

void expect_set_outcomes(std::span<const set_row> rows) {
    arm_session session;
    for (const set_row &row : rows)
        expect_row_outcomes(session, row);
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
