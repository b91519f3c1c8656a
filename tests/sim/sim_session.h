// Test harness for the simulator: a simulator started in this process, the
// library opened against its first arm, a plain line client for talking to
// the simulator directly, and recorders for the library's callbacks.
#pragma once

#include "ka_api.h"
#include "sim/net/net.h"
#include "sim/simulator.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sim_test {

sim::simulator_options options(const std::string &model = "KIVO-B", double speed = 1.0);

// Starts `options` in-process and opens its first arm in `mode`; the
// destructor closes the library (ka_destory) and stops the simulator.
struct arm_session {
    explicit arm_session(sim::simulator_options options, int mode = KA_THREAD_MODE_DUAL);
    ~arm_session();
    arm_session(const arm_session &) = delete;
    arm_session &operator=(const arm_session &) = delete;

    sim::simulator simulator;
    int port = 0;
    ka_robot_handle *arm = nullptr;
};

// One TCP connection that sends and receives whole "\r\n" lines.
class line_client {
  public:
    // receive_buffer_bytes above 0 shrinks the socket's receive buffer
    // (set before connecting), so that a client that does not read fills
    // it quickly. Throws std::system_error.
    explicit line_client(int port, int receive_buffer_bytes = 0);
    ~line_client();
    line_client(const line_client &) = delete;
    line_client &operator=(const line_client &) = delete;

    void send(const std::string &line);
    // The next line without "\r\n", or "" when none came within the limit or
    // the connection ended.
    std::string read(std::chrono::milliseconds limit = std::chrono::seconds(2));
    // send() then read().
    std::string ask(const std::string &line);
    // True once the simulator has closed the connection (everything it sent
    // before is read and dropped), false when it has not within the limit.
    bool wait_closed(std::chrono::milliseconds limit = std::chrono::seconds(2));

  private:
    sim::net::unique_socket socket_;
    std::string pending_;
};

// Completion reports and realtime datagrams the library delivered, in order.
// The library keeps one callback of each kind per process; these forward to
// the recorder, which tests clear before use.
struct event_record {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<ka_event_push_data_t> events;
    std::vector<ka_realtime_arm_joint_state_t> states;

    void clear();
    // True once at least n events (states) have been recorded.
    bool wait_events(std::size_t n, std::chrono::milliseconds limit);
    bool wait_states(std::size_t n, std::chrono::milliseconds limit);
};
event_record &events();
void install_callbacks();

// The simulator's log lines (client connects and disconnects), kept for
// tests that wait for one: install with `options.log = log.sink()`.
class log_record {
  public:
    std::function<void(const std::string &)> sink();
    // True once a line containing `text` has been logged.
    bool wait_for(const std::string &text, std::chrono::milliseconds limit);

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

// Expects position within `metres` and Euler angles within `radians`.
void expect_near_pose(const ka_pose_t &a, const ka_pose_t &b, float metres, float radians);

} // namespace sim_test
