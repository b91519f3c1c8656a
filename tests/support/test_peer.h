// Scripted stand-in for an arm controller, used by the command and service
// tests. It listens on 127.0.0.1 with an ephemeral port, records every
// "\r\n"-terminated line the library sends, and answers by rules keyed on
// the line's JSON "command" value. Lines without a matching rule get no
// answer, which is how time-outs are provoked.
//
// Threads: one accept thread, and per connection one reader (records lines
// and picks the rule) and one worker (runs the chosen actions in order). A
// delayed reply therefore never holds up recording of later lines, and the
// replies on one connection leave in the order their requests arrived.
//
// This code does not use the library under test.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ka_test {

// One step of a scripted answer. Build it with the functions below.
struct action {
    enum class kind { send, delay, split, drip, close };
    kind what = kind::send;
    std::string bytes;
    std::vector<std::size_t> cut_points;
    std::chrono::microseconds gap{0};
};

// Sends json_line followed by "\r\n" in one send().
action reply(std::string json_line);
// Sends bytes exactly as given, in one send(); several lines in one segment
// are written as raw("{...}\r\n{...}\r\n").
action raw(std::string bytes);
// Waits before the next action; cut short when the peer is destroyed.
action delay(std::chrono::milliseconds pause);
// Sends bytes in segments cut at the given byte offsets (strictly
// increasing, each inside the string), pausing `gap` between segments.
// Throws std::invalid_argument for bad offsets.
action split(std::string bytes, std::vector<std::size_t> cut_points, std::chrono::milliseconds gap);
// Sends one byte per send(), pausing `gap` between bytes.
action drip(std::string bytes, std::chrono::microseconds gap);
// Shuts the connection down in both directions; the client sees end of stream.
action close_connection();

struct received_line {
    std::size_t connection; // 0 for the first accepted connection
    std::string text;       // without the "\r\n"
};

// Computes the answer to one received line.
using answer_function = std::function<std::vector<action>(const received_line &)>;

class test_peer {
  public:
    // Binds and starts accepting; throws std::system_error on socket failure.
    test_peer();
    // Stops all threads (interrupting delays and blocked sends) and closes
    // every connection.
    ~test_peer();
    test_peer(const test_peer &) = delete;
    test_peer &operator=(const test_peer &) = delete;

    int port() const;

    // Persistent rule; replaces an earlier rule for the same command. An empty
    // action list turns the command silent again.
    void on(const std::string &command, std::vector<action> actions);
    // One-shot rule, consumed by its first match. Several for the same command
    // are used in the order given. Checked before persistent rules.
    void on_once(const std::string &command, std::vector<action> actions);
    // One-shot rule for the next received line, whatever it holds (also
    // non-JSON lines). Queued in order; checked before all other rules. An
    // empty list takes the next line and leaves it unanswered.
    void answer_next(std::vector<action> actions);
    // Persistent rule whose answer is computed from each matching line, for
    // answers that must differ per request. Replaces a plain persistent rule
    // for the same command (and on() replaces this one); one-shot rules are
    // still checked first. The function runs on the connection's reader with
    // the peer's lock held, so it must not call back into the peer.
    void on_each(const std::string &command, answer_function answer);
    // Forgets the one-shot rules (on_once, answer_next) nothing has used yet.
    void drop_one_shot_rules();

    // Stops reading from every connection, so that what the library sends
    // piles up in the socket buffers until its sends block. A read already
    // under way still completes. Lines not read are neither recorded nor
    // answered, and a connection closed meanwhile is noticed only after
    // resume_reading().
    void pause_reading();
    void resume_reading();

    // Runs actions on the current (most recently accepted) connection from the
    // calling thread and returns when they are done; used for unsolicited
    // lines such as completion reports. Throws std::logic_error if nothing
    // has connected yet.
    void push(const std::vector<action> &actions);
    // Same on the given connection index.
    void push(std::size_t connection, const std::vector<action> &actions);
    void close_current();

    // Received lines in arrival order, across all connections.
    std::vector<std::string> lines() const;
    std::vector<received_line> received() const;
    // The "command" value of each received line; empty for lines without one.
    std::vector<std::string> commands() const;
    void clear_lines();
    // True once at least n lines are recorded (counting from the last
    // clear_lines()), false on time-out.
    bool wait_for_lines(std::size_t n, std::chrono::milliseconds timeout);

    // True once the given connection has been closed by either side.
    bool wait_for_disconnect(std::size_t connection, std::chrono::milliseconds timeout);

  private:
    struct state;
    std::unique_ptr<state> state_;
};

// The nine queries the library issues when an arm is opened, in issue order.
const std::vector<std::string> &standard_arm_commands();

// The reply line (without "\r\n") a standard arm gives to one of
// standard_arm_commands(). Joint arrays have `dof` entries (1..7). Throws
// std::invalid_argument for any other command or dof.
std::string standard_reply(const std::string &command, const std::string &product_version, int dof);

// Installs persistent rules answering all of standard_arm_commands().
void serve_standard_arm(test_peer &peer, const std::string &product_version = "KIVO-B",
                        int dof = 6);

} // namespace ka_test
