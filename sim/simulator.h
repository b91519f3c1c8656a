// The controller simulator: one or more simulated arms, each served on its
// own TCP port (consecutive ports from the first), with a shared 5 ms
// control cycle that moves the arms, reports finished motions and pushes
// the realtime state over UDP.
//
// Threads: per arm one acceptor; per connection one reader, which answers
// the requests, and one writer, which alone sends on the socket; one control
// thread for all arms. Replies and reports are queued on the connection
// (never sent by the thread that made them), so a client that does not read
// cannot hold up the control cycle or another client: its queue grows up to
// a bound, and a client whose queue overflows is disconnected.
#pragma once

#include "sim/faults.h"
#include "sim/model.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace sim {

struct simulator_options {
    std::string model = "KIVO-B"; // product text; decides joint count, limits and sensor
    std::string host = "127.0.0.1";
    int port = 8080;    // first arm's port; 0 lets each arm take any free port
    int arms = 1;       // 1..5
    double speed = 1.0; // simulated seconds per real second
    // Faults set at start: (arm number 1..arms, or 0 for every arm, change).
    std::vector<std::pair<int, fault_change>> faults;
    // Seed of every random reading the arms make (sensor noise, ...): one
    // seed gives the same readings run after run.
    std::uint32_t seed = 0;
    // One line per client connect and disconnect (without a line end).
    std::function<void(const std::string &)> log;
    // For measurements: called on the connection's writer thread once a
    // line (given without "\r\n") has been sent, with the arm number
    // (1-based) and the time just before its first byte went to the socket.
    // Must be quick; may be empty.
    std::function<void(int arm, const std::string &line, std::chrono::steady_clock::time_point)>
        line_written;
};

// How late the control cycles woke, measured against their schedule.
struct cycle_lateness {
    std::uint64_t cycles = 0;
    std::uint64_t over_period = 0; // cycles that woke more than one period late
    double p50_ms = 0, p99_ms = 0, max_ms = 0;
};

inline constexpr double k_control_period_s = 0.005;

class simulator {
  public:
    // Throws std::invalid_argument for a product text naming no known model,
    // an arm count outside 1..5, a speed not above 0 or a bad host.
    explicit simulator(simulator_options options);
    ~simulator();
    simulator(const simulator &) = delete;
    simulator &operator=(const simulator &) = delete;

    // Binds every arm's port and starts serving; returns the bound ports in
    // arm order. Throws std::system_error when a port cannot be bound (and
    // leaves nothing running).
    std::vector<int> start();
    // Closes every connection and ends every thread; idempotent.
    void stop();

    std::vector<int> ports() const;
    const arm_traits &traits() const;
    // Changes the faults of arm `number` (1-based); `close` closes its
    // connections now. Throws std::out_of_range for an unknown arm.
    void set_faults(int number, const fault_change &change);
    fault_settings faults(int number) const;

    // Lateness of the control cycles run since start (or the last reset);
    // always recorded, at the cost of one histogram update per cycle.
    // Percentiles are exact to 10 microseconds up to 100 ms.
    cycle_lateness lateness() const;
    void reset_lateness();

  private:
    struct impl;
    std::unique_ptr<impl> impl_;
};

// Parses a --faults text: groups separated by ';', each "[N:]settings" where
// N is the arm number (all arms when absent) and settings as
// parse_fault_text. Nothing, with the reason in *error, when malformed.
std::optional<std::vector<std::pair<int, fault_change>>> parse_fault_groups(const std::string &text,
                                                                            std::string *error);

} // namespace sim
