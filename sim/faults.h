// Faults a simulated arm can be told to show, one set per arm: dropped
// replies, delayed replies, garbage instead of replies, a stalled reader and
// a connection closed at once. All are off until set and can be cleared.
#pragma once

#include <cjson/cJSON.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

namespace sim {

struct fault_settings {
    int drop = 0;     // the next N replies are not sent
    int delay_ms = 0; // every reply leaves this much later
    int garbage = 0;  // the next N replies are replaced by a line that is not JSON
    int stall_ms = 0; // reading stops for this long (from when it was set)
};

// A change to an arm's faults: only the named settings change. `clear`
// resets all settings first; `close` closes the arm's connections at once.
struct fault_change {
    bool clear = false;
    bool close = false;
    std::optional<int> drop, delay_ms, garbage, stall_ms;
};

// "drop=2,delay=50,garbage=1,stall=300,clear". Nothing on a malformed text,
// with the reason in *error. "close" is taken only when allow_close is set.
std::optional<fault_change> parse_fault_text(const std::string &text, bool allow_close,
                                             std::string *error);
// The same settings as members of a control line {"sim":"faults",...}.
std::optional<fault_change> parse_fault_json(const cJSON *line, std::string *error);

class arm_faults {
  public:
    enum class reply_fate { send, drop, garbage };

    // Applies everything but `close`, which the connection layer carries out.
    void apply(const fault_change &change);
    fault_settings settings() const;

    // Decides what happens to the next reply and uses up one count.
    reply_fate next_reply();

    // Waits out a delay or a stall; returns early when `stopping` becomes
    // true (after wake()) or the stall is cleared.
    void delay_reply(const std::atomic<bool> &stopping);
    void wait_while_stalled(const std::atomic<bool> &stopping);
    void wake();

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    fault_settings settings_;
    std::chrono::steady_clock::time_point stall_until_{};
};

} // namespace sim
