#include "sim/faults.h"

#include <cstdlib>
#include <sstream>

namespace sim {

namespace {

bool parse_count(const std::string &value, int *out) {
    char *end = nullptr;
    const long parsed = std::strtol(value.c_str(), &end, 10);
    if (value.empty() || *end != '\0' || parsed < 0 || parsed > 10000000) return false;
    *out = static_cast<int>(parsed);
    return true;
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
        const std::string key = item.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : item.substr(equals + 1);
        if (key == "clear" && equals == std::string::npos) {
            change.clear = true;
            continue;
        }
        if (key == "close" && equals == std::string::npos && allow_close) {
            change.close = true;
            continue;
        }
        int count = 0;
        if (!parse_count(value, &count)) {
            *error = "bad fault setting '" + item + "'";
            return std::nullopt;
        }
        if (key == "drop")
            change.drop = count;
        else if (key == "delay")
            change.delay_ms = count;
        else if (key == "garbage")
            change.garbage = count;
        else if (key == "stall")
            change.stall_ms = count;
        else {
            *error = "unknown fault '" + key + "'";
            return std::nullopt;
        }
    }
    return change;
}

std::optional<fault_change> parse_fault_json(const cJSON *line, std::string *error) {
    fault_change change;
    change.clear = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(line, "clear"));
    change.close = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(line, "close"));
    const struct {
        const char *key;
        std::optional<int> fault_change::*field;
    } counts[] = {{"drop", &fault_change::drop},
                  {"delay", &fault_change::delay_ms},
                  {"garbage", &fault_change::garbage},
                  {"stall", &fault_change::stall_ms}};
    for (const auto &count : counts) {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(line, count.key);
        if (!item) continue;
        if (!cJSON_IsNumber(item) || item->valuedouble < 0 || item->valuedouble > 10000000) {
            *error = std::string("bad value for ") + count.key;
            return std::nullopt;
        }
        change.*count.field = static_cast<int>(item->valuedouble);
    }
    return change;
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

arm_faults::reply_fate arm_faults::next_reply() {
    std::lock_guard lock(mutex_);
    if (settings_.drop > 0) {
        --settings_.drop;
        return reply_fate::drop;
    }
    if (settings_.garbage > 0) {
        --settings_.garbage;
        return reply_fate::garbage;
    }
    return reply_fate::send;
}

void arm_faults::delay_reply(const std::atomic<bool> &stopping) {
    std::unique_lock lock(mutex_);
    if (settings_.delay_ms <= 0) return;
    const auto until =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(settings_.delay_ms);
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
