// Test harness around the scripted controller: an arm opened against a
// peer in a chosen thread mode, the "call, expected line, answer, expected
// result" wire check, and a log capture.
#pragma once

#include "ka_api.h"
#include "sim/net/net.h"
#include "support/test_peer.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace ka_test {

// Starts the library in `mode`, serves a standard arm and opens it. The
// destructor closes everything (ka_destory).
struct arm_session {
    explicit arm_session(int mode = KA_THREAD_MODE_DUAL, const std::string &product = "KIVO-B",
                         int dof = 6);
    ~arm_session();
    arm_session(const arm_session &) = delete;
    arm_session &operator=(const arm_session &) = delete;

    test_peer peer;
    ka_robot_handle *arm = nullptr;
};

// One row of a wire table: what the library must send for a call, what the
// controller answers (empty: nothing), and what the call must return.
struct wire_case {
    std::string name;
    std::function<int(ka_robot_handle *)> call;
    std::string request; // the exact line, without "\r\n"
    std::string reply;
    int result;
};

// Runs one row against an open session and checks line and result.
void expect_wire(arm_session &session, const wire_case &row);

// One set command for expect_set_outcomes: the call (fixed arguments), the
// name its verdict comes under, the boolean's key and the command's
// time-out.
struct set_row {
    // The no-reply case waits out the whole time-out: by default it runs only
    // for a time-out other than the usual 500 ms.
    enum class no_reply { when_not_default, always, never };

    std::string command; // the wire name, which the first line sent must carry
    std::function<int(ka_robot_handle *)> call;
    std::string reply; // the verdict's name; empty: the command's own
    std::string key;
    int timeout_ms = 500;
    no_reply silent = no_reply::when_not_default;
};

// On one session of its own, runs each row's call once per controller
// answer and checks the code: verdict true 0, false 1, key missing -3, key
// holding the string "true" -3, and (see set_row::no_reply) no answer -2,
// returned no earlier than the time-out and within a margin after it. Then,
// on a second session whose controller has closed the connection, each call
// gives -1 before its time-out. Failures name command and case.
void expect_set_outcomes(std::span<const set_row> rows);

// One query for expect_query_outcomes: the call, the reply's name, a
// well-formed reply's fields and what a reply with none of them gives.
struct query_row {
    // A reply without the awaited key is, for a few queries, answered with
    // the reply's length, as "nothing to report".
    static constexpr int reply_length = 1 << 30;

    std::string command; // the wire name, which the first line sent must carry
    std::function<int(ka_robot_handle *)> call;
    std::string reply;  // the reply's name; empty: the command's own
    std::string fields; // "key":value pairs of a reply the call reads whole
    int bare = -3;      // the code for a reply carrying only its name
    int timeout_ms = 500;
    set_row::no_reply silent = set_row::no_reply::when_not_default;
};

// Like expect_set_outcomes for queries: the well-formed reply gives 0, the
// bare one `bare`, no reply -2 on time (see set_row::no_reply), and a closed
// connection -1 before the time-out, on an arm of the given product. The
// values read are the family tests' business.
void expect_query_outcomes(std::span<const query_row> rows, const std::string &product = "KIVO-B");

// Lines as the controller writes them.
// {"command":"<command>"} followed by rest, a list of "key":value pairs.
std::string line(const std::string &command, const std::string &rest = "");
// {"command":"<command>","<key>":true|false}: a set command's verdict.
std::string answer(const std::string &command, const std::string &key, bool ok = true);
// The report that ends a move: "current_trajectory_state" with its
// outcome, the device that moved and "trajectory_connect".
std::string completion_report(int device = 0, bool ok = true, int connect = 0);

// A loopback port nothing listens on (for TCP or UDP).
int unused_local_port(sim::net::transport kind);

// Collects every log line (formatted) while alive; threshold 0.
class log_capture {
  public:
    log_capture();
    ~log_capture();
    std::vector<std::string> lines() const;
    bool contains(const std::string &text) const;
    // True once a line containing text has been logged, false on time-out.
    bool wait_for(const std::string &text, std::chrono::milliseconds timeout) const;
};

// What a library callback delivered, in order, for a test to wait on.
template <typename T> class callback_record {
  public:
    void add(const T &item) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(item);
        }
        changed_.notify_all();
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        items_.clear();
    }
    std::vector<T> items() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return items_;
    }
    // True once done(items) holds, false on time-out.
    template <typename Done> bool wait_until(Done done, std::chrono::milliseconds timeout) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return done(items_); });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<T> items_;
};

// Records the events the library pushes (completion reports and program
// ends) while alive. Construction clears the record and installs the
// callback, replacing whichever was installed (the library keeps its last
// one: it ignores a null callback).
class event_recorder {
  public:
    event_recorder();
    std::vector<ka_event_push_data_t> events() const;
    // Events so far, of one type (1 completion, 2 program end) or, 0, any.
    int count(int event_type = 0) const;
    // True once `count` events of the type have come, false on time-out.
    bool wait_for(int count, std::chrono::milliseconds timeout, int event_type = 0) const;
};

} // namespace ka_test
