#include "sim/faults.h"

#include <cstdlib>
#include <sstream>

namespace sim {

namespace {

// Large enough for any test, small enough that a count never overflows.
constexpr long k_max_setting = 10000000;

// Every setting with its name on the command line and in control lines.
struct fault_key {
    const char *name;
    std::optional<int> fault_change::*field;
    bool is_switch; // 0 or 1, written alone to mean 1
};
constexpr fault_key k_fault_keys[] = {
    {"drop", &fault_change::drop, false},
    {"delay", &fault_change::delay_ms, false},
    {"garbage", &fault_change::garbage, false},
    {"stall", &fault_change::stall_ms, false},
    {"duplicate", &fault_change::duplicate, false},
    {"stale_report", &fault_change::stale_report, false},
    {"close_after", &fault_change::close_after, false},
    {"byte_by_byte", &fault_change::byte_by_byte, true},
    {"refuse", &fault_change::refuse, true},
    {"mute_push", &fault_change::mute_push, true},
};

const fault_key *find_key(const std::string &name) {
    for (const fault_key &key : k_fault_keys)
        if (name == key.name) return &key;
    return nullptr;
}

bool in_range(const fault_key &key, long value) {
    return value >= 0 && value <= (key.is_switch ? 1 : k_max_setting);
}

bool parse_count(const std::string &value, long *out) {
    char *end = nullptr;
    *out = std::strtol(value.c_str(), &end, 10);
    return !value.empty() && *end == '\0';
}

} // namespace

std::optional<fault_change> parse_fault_text(const std::string &text, bool allow_close,
                                             std::string *error) {
    fault_change change;
    std::stringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        if (item.empty()) continue;
        const auto equals = item.find('=');
        const bool bare = equals == std::string::npos;
        const std::string name = item.substr(0, equals);
        if (name == "clear" && bare) {
            change.clear = true;
            continue;
        }
        if (name == "close" && bare && allow_close) {
            change.close = true;
            continue;
        }
        const fault_key *key = find_key(name);
        if (!key) {
            *error = "unknown fault '" + name + "'";
            return std::nullopt;
        }
        long value = 1;
        if ((!bare || !key->is_switch) &&
            (!parse_count(bare ? "" : item.substr(equals + 1), &value) || !in_range(*key, value))) {
            *error = "bad fault setting '" + item + "'";
            return std::nullopt;
        }
        change.*key->field = static_cast<int>(value);
    }
    return change;
}

std::optional<fault_change> parse_fault_json(const cJSON *line, std::string *error) {
    fault_change change;
    change.clear = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(line, "clear"));
    change.close = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(line, "close"));
    for (const fault_key &key : k_fault_keys) {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(line, key.name);
        if (!item) continue;
        if (key.is_switch && cJSON_IsBool(item)) {
            change.*key.field = cJSON_IsTrue(item) ? 1 : 0;
            continue;
        }
        // Compared as a double first: a huge number must not wrap into range.
        if (!cJSON_IsNumber(item) || item->valuedouble < 0 ||
            item->valuedouble > (key.is_switch ? 1 : k_max_setting) ||
            item->valuedouble != static_cast<double>(static_cast<long>(item->valuedouble))) {
            *error = std::string("bad value for ") + key.name;
            return std::nullopt;
        }
        change.*key.field = static_cast<int>(item->valuedouble);
    }
    return change;
}

void add_fault_settings(cJSON *object, const fault_settings &s) {
    cJSON_AddNumberToObject(object, "drop", s.drop);
    cJSON_AddNumberToObject(object, "delay", s.delay_ms);
    cJSON_AddNumberToObject(object, "garbage", s.garbage);
    cJSON_AddNumberToObject(object, "stall", s.stall_ms);
    cJSON_AddNumberToObject(object, "duplicate", s.duplicate);
    cJSON_AddNumberToObject(object, "stale_report", s.stale_report);
    cJSON_AddNumberToObject(object, "close_after", s.close_after);
    cJSON_AddBoolToObject(object, "byte_by_byte", s.byte_by_byte);
    cJSON_AddBoolToObject(object, "refuse", s.refuse);
    cJSON_AddBoolToObject(object, "mute_push", s.mute_push);
}

void arm_faults::apply(const fault_change &change) {
    {
        std::lock_guard lock(mutex_);
        if (change.clear) {
            settings_ = {};
            stall_until_ = {};
        }
        if (change.drop) settings_.drop = *change.drop;
        if (change.delay_ms) settings_.delay_ms = *change.delay_ms;
        if (change.garbage) settings_.garbage = *change.garbage;
        if (change.duplicate) settings_.duplicate = *change.duplicate;
        if (change.stale_report) settings_.stale_report = *change.stale_report;
        if (change.close_after) settings_.close_after = *change.close_after;
        if (change.byte_by_byte) settings_.byte_by_byte = *change.byte_by_byte != 0;
        if (change.refuse) settings_.refuse = *change.refuse != 0;
        if (change.mute_push) settings_.mute_push = *change.mute_push != 0;
        if (change.stall_ms) {
            settings_.stall_ms = *change.stall_ms;
            stall_until_ =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(*change.stall_ms);
        }
    }
    changed_.notify_all();
}

fault_settings arm_faults::settings() const {
    std::lock_guard lock(mutex_);
    return settings_;
}

reply_plan arm_faults::next_reply() {
    std::lock_guard lock(mutex_);
    reply_plan plan;
    if (settings_.drop > 0) {
        --settings_.drop;
        plan.what = reply_plan::fate::drop;
        return plan; // a reply never sent uses up none of the other counts
    }
    if (settings_.garbage > 0) {
        --settings_.garbage;
        plan.what = reply_plan::fate::garbage;
    }
    if (settings_.duplicate > 0) {
        --settings_.duplicate;
        plan.twice = true;
    }
    if (settings_.stale_report > 0) {
        --settings_.stale_report;
        plan.stale_first = true;
    }
    if (settings_.close_after > 0) plan.close_after = --settings_.close_after == 0;
    plan.delay_ms = settings_.delay_ms;
    return plan;
}

void arm_faults::delay_reply(int delay_ms, const std::atomic<bool> &stopping) {
    if (delay_ms <= 0) return;
    std::unique_lock lock(mutex_);
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(delay_ms);
    changed_.wait_until(lock, until, [&] { return stopping.load(); });
}

void arm_faults::wait_while_stalled(const std::atomic<bool> &stopping) {
    std::unique_lock lock(mutex_);
    while (!stopping && std::chrono::steady_clock::now() < stall_until_)
        changed_.wait_until(lock, stall_until_);
    if (std::chrono::steady_clock::now() >= stall_until_) settings_.stall_ms = 0;
}

void arm_faults::wake() {
    { std::lock_guard lock(mutex_); }
    changed_.notify_all();
}

} // namespace sim
