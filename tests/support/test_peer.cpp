#include "support/test_peer.h"

#include "sim/net/net.h"

#include <algorithm>
#include <array>
#include <cjson/cJSON.h>
#include <condition_variable>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace ka_test {

namespace {

namespace net = sim::net;

[[noreturn]] void throw_socket_error(const char *what) {
    throw std::system_error(net::last_error(), what);
}

struct cjson_deleter {
    void operator()(cJSON *item) const { cJSON_Delete(item); }
};
struct cjson_text_deleter {
    void operator()(char *text) const { cJSON_free(text); }
};
using cjson_ptr = std::unique_ptr<cJSON, cjson_deleter>;

// Empty for lines that are not JSON objects or carry no string "command".
std::string command_of(const std::string &line) {
    cjson_ptr root(cJSON_ParseWithLength(line.data(), line.size()));
    const cJSON *command = cJSON_GetObjectItemCaseSensitive(root.get(), "command");
    return cJSON_IsString(command) ? std::string(command->valuestring) : std::string();
}

std::vector<std::string_view> segments_of(const action &step) {
    const std::string_view bytes(step.bytes);
    std::vector<std::string_view> segments;
    if (step.what == action::kind::drip) {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            segments.push_back(bytes.substr(i, 1));
        return segments;
    }
    // A plain send has no cut points and so stays one segment.
    std::size_t from = 0;
    for (std::size_t cut : step.cut_points) {
        segments.push_back(bytes.substr(from, cut - from));
        from = cut;
    }
    segments.push_back(bytes.substr(from));
    return segments;
}

struct recorded_line {
    std::size_t connection;
    std::string text;
    std::string command;
};

struct connection {
    std::size_t index = 0;

    // The reader owns the descriptor's lifetime and closes it when it exits;
    // everyone else touches it only under io_mutex and only while it is open,
    // so a reused descriptor number can never be written to by mistake.
    std::mutex io_mutex;
    net::unique_socket socket;
    bool shut_down = false; // after close_connection(): drop further sends
    // Signalled by close_connection(). A shutdown() of its own socket wakes
    // a reader blocked on it on Linux but not on Windows, so the reader is
    // told in a way every system sees.
    net::wake_channel shut_signal;

    // Guarded by test_peer::state::mutex.
    std::deque<std::vector<action>> work;
    bool finished = false;

    std::thread reader;
    std::thread worker;
};

} // namespace

struct test_peer::state {
    net::unique_socket listener;
    // Signalled once on shutdown and never drained, so every poll() that
    // includes it wakes immediately and keeps waking.
    net::wake_channel wake;
    int port = 0;

    mutable std::mutex mutex;
    // Workers and delays wait here for queued work or shutdown.
    std::condition_variable work_cv;
    // The test thread waits here for lines, connections and disconnects.
    std::condition_variable events_cv;
    bool stopping = false;
    bool reading_paused = false;
    std::map<std::string, std::vector<action>> persistent_rules;
    std::map<std::string, answer_function> computed_rules;
    std::map<std::string, std::deque<std::vector<action>>> once_rules;
    std::deque<std::vector<action>> next_line_rules;
    std::vector<recorded_line> log;
    std::vector<std::unique_ptr<connection>> connections;

    std::thread acceptor;

    void accept_loop();
    void read_loop(connection &conn);
    bool wait_until_reading();
    void work_loop(connection &conn);
    void take_line(connection &conn, std::string text);
    bool run(connection &conn, const std::vector<action> &actions);
    bool send_segments(connection &conn, const std::vector<std::string_view> &segments,
                       std::chrono::microseconds gap);
    bool send_bytes(connection &conn, std::string_view bytes);
    bool pause(std::chrono::microseconds length);
    void shut(connection &conn);
    connection &connection_at(std::size_t index);
};

void test_peer::state::accept_loop() {
    for (;;) {
        std::array<net::poll_entry, 2> entries{{{listener.get()}, {wake.handle()}}};
        if (net::poll(entries, net::wait_forever) < 0) return;
        if (entries[1].ready != 0) return;

        net::unique_socket accepted = net::accept_from(listener.get());
        if (!accepted) {
            // The listener is non-blocking, so a client that reset before
            // accept() shows up as "try again" instead of a hang.
            if (net::accept_may_retry()) continue;
            return;
        }
        // Every send() should leave as its own segment, so that split() and
        // drip() really exercise the library's reassembly.
        net::set_no_delay(accepted.get());
        // Non-blocking so that a client that stops reading cannot pin a send
        // past the destructor's wake-up.
        net::set_non_blocking(accepted.get());

        auto conn = std::make_unique<connection>();
        conn->socket = std::move(accepted);
        {
            std::lock_guard lock(mutex);
            conn->index = connections.size();
            connection &ref = *conn;
            connections.push_back(std::move(conn));
            ref.reader = std::thread([this, &ref] { read_loop(ref); });
            ref.worker = std::thread([this, &ref] { work_loop(ref); });
        }
        events_cv.notify_all();
    }
}

void test_peer::state::read_loop(connection &conn) {
    const net::socket_t fd = conn.socket.get();
    std::string pending;
    std::array<char, 4096> buffer{};
    for (;;) {
        std::array<net::poll_entry, 3> entries{
            {{fd}, {wake.handle()}, {conn.shut_signal.handle()}}};
        if (net::poll(entries, net::wait_forever) < 0) break;
        if (entries[1].ready != 0 || entries[2].ready != 0) break;
        if (!wait_until_reading()) break;
        const std::ptrdiff_t got = net::receive_some(fd, buffer.data(), buffer.size());
        if (got < 0 && net::would_block()) continue;
        if (got <= 0) break; // end of stream, reset, or our own shutdown()

        // Only the new bytes (and a "\r" left at the end) can complete a line,
        // so a long line without an end is not scanned again on every read.
        const std::size_t scan_from = pending.empty() ? 0 : pending.size() - 1;
        pending.append(buffer.data(), static_cast<std::size_t>(got));
        std::size_t start = 0;
        for (std::size_t end = pending.find("\r\n", scan_from); end != std::string::npos;
             end = pending.find("\r\n", start)) {
            take_line(conn, pending.substr(start, end - start));
            start = end + 2;
        }
        pending.erase(0, start);
    }
    // A trailing fragment without "\r\n" is not a line and is dropped.
    {
        std::lock_guard io(conn.io_mutex);
        conn.socket.reset();
    }
    {
        std::lock_guard lock(mutex);
        conn.finished = true;
    }
    events_cv.notify_all();
}

// False when the peer is stopping.
bool test_peer::state::wait_until_reading() {
    std::unique_lock lock(mutex);
    work_cv.wait(lock, [&] { return stopping || !reading_paused; });
    return !stopping;
}

void test_peer::state::take_line(connection &conn, std::string text) {
    std::string command = command_of(text);
    {
        std::lock_guard lock(mutex);
        std::vector<action> chosen;
        if (!next_line_rules.empty()) {
            chosen = std::move(next_line_rules.front());
            next_line_rules.pop_front();
        } else if (!command.empty()) {
            if (auto once = once_rules.find(command);
                once != once_rules.end() && !once->second.empty()) {
                chosen = std::move(once->second.front());
                once->second.pop_front();
            } else if (auto computed = computed_rules.find(command);
                       computed != computed_rules.end()) {
                chosen = computed->second(received_line{conn.index, text});
            } else if (auto rule = persistent_rules.find(command); rule != persistent_rules.end()) {
                chosen = rule->second;
            }
        }
        if (!chosen.empty()) conn.work.push_back(std::move(chosen));
        log.push_back({conn.index, std::move(text), std::move(command)});
    }
    events_cv.notify_all();
    work_cv.notify_all();
}

void test_peer::state::work_loop(connection &conn) {
    for (;;) {
        std::vector<action> next;
        {
            std::unique_lock lock(mutex);
            work_cv.wait(lock, [&] { return stopping || !conn.work.empty(); });
            if (stopping) return;
            next = std::move(conn.work.front());
            conn.work.pop_front();
        }
        run(conn, next);
    }
}

// Returns false when the sequence was cut short by shutdown or a dead socket.
bool test_peer::state::run(connection &conn, const std::vector<action> &actions) {
    for (const action &step : actions) {
        bool ok = true;
        switch (step.what) {
        case action::kind::send:
        case action::kind::split:
        case action::kind::drip:
            ok = send_segments(conn, segments_of(step), step.gap);
            break;
        case action::kind::delay:
            ok = pause(step.gap);
            break;
        case action::kind::close:
            shut(conn);
            break;
        }
        if (!ok) return false;
    }
    return true;
}

// Each segment goes out in its own send(), with `gap` between segments.
bool test_peer::state::send_segments(connection &conn,
                                     const std::vector<std::string_view> &segments,
                                     std::chrono::microseconds gap) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (i > 0 && !pause(gap)) return false;
        if (!send_bytes(conn, segments[i])) return false;
    }
    return true;
}

bool test_peer::state::send_bytes(connection &conn, std::string_view bytes) {
    std::lock_guard io(conn.io_mutex);
    if (!conn.socket || conn.shut_down) return false;
    while (!bytes.empty()) {
        // The socket is non-blocking, so a client that stops reading cannot
        // pin this thread past the destructor's wake-up.
        const std::ptrdiff_t sent = net::send_some(conn.socket.get(), bytes.data(), bytes.size());
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (!net::would_block()) return false;
        std::array<net::poll_entry, 2> entries{
            {{conn.socket.get(), net::writable}, {wake.handle()}}};
        if (net::poll(entries, net::wait_forever) < 0) return false;
        if (entries[1].ready != 0) return false;
    }
    return true;
}

// Returns false if the peer is shutting down.
bool test_peer::state::pause(std::chrono::microseconds length) {
    if (length <= std::chrono::microseconds::zero()) return true;
    std::unique_lock lock(mutex);
    return !work_cv.wait_for(lock, length, [&] { return stopping; });
}

void test_peer::state::shut(connection &conn) {
    std::lock_guard io(conn.io_mutex);
    // shutdown() rather than close(): the reader, which owns the descriptor,
    // leaves its poll() on the signal and closes it itself.
    if (conn.socket && !conn.shut_down) {
        net::shutdown_both(conn.socket.get());
        conn.shut_signal.signal();
    }
    conn.shut_down = true;
}

connection &test_peer::state::connection_at(std::size_t index) {
    std::lock_guard lock(mutex);
    if (index >= connections.size())
        throw std::logic_error("test_peer: no connection " + std::to_string(index));
    return *connections[index];
}

action reply(std::string json_line) {
    action made;
    made.bytes = std::move(json_line) + "\r\n";
    return made;
}

action raw(std::string bytes) {
    action made;
    made.bytes = std::move(bytes);
    return made;
}

action delay(std::chrono::milliseconds pause) {
    action made;
    made.what = action::kind::delay;
    made.gap = pause;
    return made;
}

action split(std::string bytes, std::vector<std::size_t> cut_points,
             std::chrono::milliseconds gap) {
    std::size_t previous = 0;
    for (std::size_t cut : cut_points) {
        if (cut <= previous || cut >= bytes.size())
            throw std::invalid_argument("split: cut points must increase strictly and lie "
                                        "inside the bytes");
        previous = cut;
    }
    action made;
    made.what = action::kind::split;
    made.bytes = std::move(bytes);
    made.cut_points = std::move(cut_points);
    made.gap = gap;
    return made;
}

action drip(std::string bytes, std::chrono::microseconds gap) {
    action made;
    made.what = action::kind::drip;
    made.bytes = std::move(bytes);
    made.gap = gap;
    return made;
}

action close_connection() {
    action made;
    made.what = action::kind::close;
    return made;
}

test_peer::test_peer() : state_(std::make_unique<state>()) {
    state_->listener = net::open_socket(net::transport::tcp);
    if (!state_->listener) throw_socket_error("socket");
    net::set_non_blocking(state_->listener.get());
    net::set_reuse_address(state_->listener.get());
    // Port 0: ephemeral, so parallel test runs never collide.
    if (!net::bind_to(state_->listener.get(), {net::loopback_address, 0}))
        throw_socket_error("bind");
    if (!net::listen_on(state_->listener.get(), 16)) throw_socket_error("listen");
    const auto bound = net::local_endpoint(state_->listener.get());
    if (!bound) throw_socket_error("getsockname");
    state_->port = bound->port;

    state_->acceptor = std::thread([s = state_.get()] { s->accept_loop(); });
}

test_peer::~test_peer() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->work_cv.notify_all();
    state_->wake.signal();
    state_->acceptor.join();
    // No new connections can appear once the acceptor has stopped.
    for (const auto &conn : state_->connections) {
        conn->reader.join();
        conn->worker.join();
    }
}

int test_peer::port() const { return state_->port; }

void test_peer::on(const std::string &command, std::vector<action> actions) {
    std::lock_guard lock(state_->mutex);
    state_->computed_rules.erase(command);
    state_->persistent_rules[command] = std::move(actions);
}

void test_peer::on_each(const std::string &command, answer_function answer) {
    std::lock_guard lock(state_->mutex);
    state_->persistent_rules.erase(command);
    state_->computed_rules[command] = std::move(answer);
}

void test_peer::drop_one_shot_rules() {
    std::lock_guard lock(state_->mutex);
    state_->once_rules.clear();
    state_->next_line_rules.clear();
}

void test_peer::pause_reading() {
    std::lock_guard lock(state_->mutex);
    state_->reading_paused = true;
}

void test_peer::resume_reading() {
    {
        std::lock_guard lock(state_->mutex);
        state_->reading_paused = false;
    }
    state_->work_cv.notify_all();
}

void test_peer::on_once(const std::string &command, std::vector<action> actions) {
    std::lock_guard lock(state_->mutex);
    state_->once_rules[command].push_back(std::move(actions));
}

void test_peer::answer_next(std::vector<action> actions) {
    std::lock_guard lock(state_->mutex);
    state_->next_line_rules.push_back(std::move(actions));
}

void test_peer::push(const std::vector<action> &actions) {
    std::size_t current = 0;
    {
        std::lock_guard lock(state_->mutex);
        if (state_->connections.empty())
            throw std::logic_error("test_peer: nothing has connected yet");
        current = state_->connections.size() - 1;
    }
    push(current, actions);
}

void test_peer::push(std::size_t connection, const std::vector<action> &actions) {
    // Connections are never removed before the destructor, so the reference
    // stays valid after the lock is released.
    state_->run(state_->connection_at(connection), actions);
}

void test_peer::close_current() { push({close_connection()}); }

std::vector<std::string> test_peer::lines() const {
    std::lock_guard lock(state_->mutex);
    std::vector<std::string> texts;
    texts.reserve(state_->log.size());
    std::transform(state_->log.begin(), state_->log.end(), std::back_inserter(texts),
                   [](const recorded_line &line) { return line.text; });
    return texts;
}

std::vector<received_line> test_peer::received() const {
    std::lock_guard lock(state_->mutex);
    std::vector<received_line> copy;
    copy.reserve(state_->log.size());
    std::transform(state_->log.begin(), state_->log.end(), std::back_inserter(copy),
                   [](const recorded_line &line) {
                       return received_line{line.connection, line.text};
                   });
    return copy;
}

std::vector<std::string> test_peer::commands() const {
    std::lock_guard lock(state_->mutex);
    std::vector<std::string> names;
    names.reserve(state_->log.size());
    std::transform(state_->log.begin(), state_->log.end(), std::back_inserter(names),
                   [](const recorded_line &line) { return line.command; });
    return names;
}

void test_peer::clear_lines() {
    std::lock_guard lock(state_->mutex);
    state_->log.clear();
}

bool test_peer::wait_for_lines(std::size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock lock(state_->mutex);
    return state_->events_cv.wait_for(lock, timeout, [&] { return state_->log.size() >= n; });
}

bool test_peer::wait_for_disconnect(std::size_t connection, std::chrono::milliseconds timeout) {
    std::unique_lock lock(state_->mutex);
    return state_->events_cv.wait_for(lock, timeout, [&] {
        return connection < state_->connections.size() && state_->connections[connection]->finished;
    });
}

// ---- standard arm -------------------------------------------------------

namespace {

// Joint limits as the controller reports them, positions in millidegrees; the
// seventh entry is only sent by 7-DOF arms.
constexpr std::array<int, 7> joint_min_pos{-178000, -130000, -135000, -178000,
                                           -128000, -360000, -360000};
constexpr std::array<int, 7> joint_max_pos{178000, 130000, 135000, 178000, 128000, 360000, 360000};
constexpr std::array<int, 7> joint_max_speed{30000, 30000, 37500, 37500, 37500, 37500, 37500};
constexpr int joint_max_acc = 166666;

std::string print(const cjson_ptr &root) {
    std::unique_ptr<char, cjson_text_deleter> text(cJSON_PrintUnformatted(root.get()));
    if (!text) throw std::bad_alloc();
    return text.get();
}

cjson_ptr reply_object(const char *name) {
    cjson_ptr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "command", name);
    return root;
}

void add_ints(cJSON *object, const char *key, const int *values, int count) {
    cJSON_AddItemToObject(object, key, cJSON_CreateIntArray(values, count));
}

template <std::size_t N> void add_ints(cJSON *object, const char *key, const int (&values)[N]) {
    add_ints(object, key, values, static_cast<int>(N));
}

} // namespace

const std::vector<std::string> &standard_arm_commands() {
    static const std::vector<std::string> commands{
        "get_arm_software_info",  "get_realtime_push", "get_current_work_frame",
        "get_current_tool_frame", "get_install_pose",  "get_joint_min_pos",
        "get_joint_max_pos",      "get_joint_max_acc", "get_joint_max_speed"};
    return commands;
}

std::string standard_reply(const std::string &command, const std::string &product_version,
                           int dof) {
    if (dof < 1 || dof > static_cast<int>(joint_min_pos.size()))
        throw std::invalid_argument("standard_reply: dof must be 1..7");

    if (command == "get_arm_software_info") {
        cjson_ptr root = reply_object("arm_software_info");
        cJSON_AddStringToObject(root.get(), "Product_version", product_version.c_str());
        cJSON *algorithm = cJSON_AddObjectToObject(root.get(), "algorithm_info");
        cJSON_AddStringToObject(algorithm, "version", "A1.0");
        cJSON *ctrl = cJSON_AddObjectToObject(root.get(), "ctrl_info");
        cJSON_AddStringToObject(ctrl, "version", "C1.0");
        cJSON_AddStringToObject(ctrl, "build_time", "2025-01-01 10:00");
        cJSON *dynamic = cJSON_AddObjectToObject(root.get(), "dynamic_info");
        cJSON_AddStringToObject(dynamic, "model_version", "M1");
        return print(root);
    }
    if (command == "get_realtime_push") {
        // The reply to this query carries the query's own name.
        cjson_ptr root = reply_object("get_realtime_push");
        cJSON_AddNumberToObject(root.get(), "cycle", 5);
        cJSON_AddBoolToObject(root.get(), "enable", false);
        cJSON_AddNumberToObject(root.get(), "port", 8089);
        cJSON_AddStringToObject(root.get(), "ip", "127.0.0.1");
        // Sent by every controller; read by the library only for sensor arms.
        cJSON_AddNumberToObject(root.get(), "force_coordinate", 0);
        cJSON *custom = cJSON_AddObjectToObject(root.get(), "custom");
        cJSON_AddBoolToObject(custom, "joint_speed", true);
        cJSON_AddBoolToObject(custom, "lift_state", false);
        cJSON_AddBoolToObject(custom, "expand_state", false);
        cJSON_AddBoolToObject(custom, "arm_current_status", true);
        return print(root);
    }
    if (command == "get_current_work_frame") {
        cjson_ptr root = reply_object("current_work_frame");
        cJSON_AddStringToObject(root.get(), "frame_name", "World");
        add_ints(root.get(), "pose", {0, 0, 0, 0, 0, 0});
        return print(root);
    }
    if (command == "get_current_tool_frame") {
        // Pose in micrometres and milliradians, centre of mass in micrometres.
        cjson_ptr root = reply_object("current_tool_frame");
        cJSON_AddStringToObject(root.get(), "tool_name", "Arm_Tip");
        add_ints(root.get(), "pose", {0, 0, 100000, 0, 0, 0});
        cJSON_AddNumberToObject(root.get(), "payload", 500);
        add_ints(root.get(), "position", {0, 0, 20000});
        return print(root);
    }
    if (command == "get_install_pose") {
        cjson_ptr root = reply_object("install_pose");
        add_ints(root.get(), "pose", {0, 0, 0});
        return print(root);
    }
    if (command == "get_joint_min_pos") {
        cjson_ptr root = reply_object("joint_min_pos");
        add_ints(root.get(), "min_pos", joint_min_pos.data(), dof);
        return print(root);
    }
    if (command == "get_joint_max_pos") {
        cjson_ptr root = reply_object("joint_max_pos");
        add_ints(root.get(), "max_pos", joint_max_pos.data(), dof);
        return print(root);
    }
    if (command == "get_joint_max_acc") {
        cjson_ptr root = reply_object("joint_max_acc");
        const std::vector<int> acc(static_cast<std::size_t>(dof), joint_max_acc);
        add_ints(root.get(), "joint_acc", acc.data(), dof);
        return print(root);
    }
    if (command == "get_joint_max_speed") {
        cjson_ptr root = reply_object("joint_max_speed");
        add_ints(root.get(), "joint_speed", joint_max_speed.data(), dof);
        return print(root);
    }
    throw std::invalid_argument("standard_reply: not an arm-opening query: " + command);
}

void serve_standard_arm(test_peer &peer, const std::string &product_version, int dof) {
    for (const std::string &command : standard_arm_commands())
        peer.on(command, {reply(standard_reply(command, product_version, dof))});
}

} // namespace ka_test
