// Faults a simulated arm can be told to show, one set per arm: replies
// dropped, delayed, replaced by garbage, sent twice or preceded by a stale
// completion report; requests left unread for a while; lines written one
// byte per send; connections closed at once, after a number of replies, or
// refused; the realtime push stopped. All are off until set and can be
// cleared.
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
    int drop = 0;              // the next N replies are not sent
    int delay_ms = 0;          // every reply leaves this much later
    int garbage = 0;           // the next N replies are replaced by a line that is not JSON
    int stall_ms = 0;          // reading stops for this long (from when it was set)
    int duplicate = 0;         // the next N replies are sent twice
    int stale_report = 0;      // the next N replies follow a report of a motion that never ran
    int close_after = 0;       // the connection carrying the Nth reply from now closes after it
    bool byte_by_byte = false; // every line leaves one byte per send
    bool refuse = false;       // new connections are accepted and closed at once
    bool mute_push = false;    // no realtime datagrams
};

// A change to an arm's faults: only the named settings change. `clear`
// resets all settings first; `close` closes the arm's connections at once.
// The three switches take 0 (off) or 1 (on).
struct fault_change {
    bool clear = false;
    bool close = false;
    std::optional<int> drop, delay_ms, garbage, stall_ms, duplicate, stale_report, close_after;
    std::optional<int> byte_by_byte, refuse, mute_push;
};

// "drop=2,delay=50,byte_by_byte,refuse=0,clear": counts as NAME=N, switches
// as NAME (on) or NAME=0/1. Nothing on a malformed text, with the reason in
// *error. "close" is taken only when allow_close is set.
std::optional<fault_change> parse_fault_text(const std::string &text, bool allow_close,
                                             std::string *error);
// The same settings as members of a control line {"sim":"faults",...}:
// counts as numbers, switches as booleans or 0/1.
std::optional<fault_change> parse_fault_json(const cJSON *line, std::string *error);
// Adds the settings in force to a control line's answer.
void add_fault_settings(cJSON *object, const fault_settings &settings);

// What happens to one reply, decided when it is ready to leave.
struct reply_plan {
    enum class fate { send, drop, garbage } what = fate::send;
    bool twice = false;       // sent a second time right after
    bool stale_first = false; // a stale completion report goes just before it
    bool close_after = false; // its connection closes once it has left
    int delay_ms = 0;
};

class arm_faults {
  public:
    // Applies everything but `close`, which the connection layer carries out.
    void apply(const fault_change &change);
    fault_settings settings() const;

    // Decides what happens to the next reply and uses up its counts.
    reply_plan next_reply();

    // Waits out a delay or a stall; returns early when `stopping` becomes
    // true (after wake()) or the stall is cleared.
    void delay_reply(int delay_ms, const std::atomic<bool> &stopping);
    void wait_while_stalled(const std::atomic<bool> &stopping);
    void wake();

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    fault_settings settings_;
    std::chrono::steady_clock::time_point stall_until_{};
};

} // namespace sim
