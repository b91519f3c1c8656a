#include "core/log.h"
#include "core/platform.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

namespace {

// Threshold: the least severe level that is written. 3 (errors only) until
// the application says otherwise; a log file lowers it to 0.
std::atomic<unsigned> log_threshold{3};
std::atomic<ka_log_callback_t> log_sink{&default_log};

struct file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};
std::mutex log_file_mutex;
std::unique_ptr<FILE, file_closer> log_file;

void format_time(char *out, size_t size) { platform::format_local_time(out, size, '_'); }

void pass(const char *format, va_list args) { log_sink.load()(format, args); }

} // namespace

extern "C" {

void default_log(const char *format, va_list args) {
    if (format) std::vfprintf(stderr, format, args);
}

void custom_api_log(const char *format, va_list args) {
    if (!format) {
        std::fputs("Error: message is a null pointer\n", stderr);
        return;
    }
    char message[1024]; // longer messages are cut
    std::vsnprintf(message, sizeof message, format, args);
    char stamp[32];
    format_time(stamp, sizeof stamp);
    std::lock_guard<std::mutex> lock(log_file_mutex);
    if (!log_file) return;
    std::fprintf(log_file.get(), "[%s]: %s\n", stamp, message);
    std::fflush(log_file.get());
}

const char *ka_get_cur_time(void) {
    thread_local char stamp[32];
    format_time(stamp, sizeof stamp);
    return stamp;
}

void ka_set_log_call_back(ka_log_callback_t callback, int level) {
    log_sink.store(callback ? callback : &default_log);
    log_threshold.store(static_cast<unsigned>(level));
}

int ka_set_log_save(const char *path) {
    FILE *file = path ? std::fopen(path, "a") : nullptr;
    if (!file) {
        ka_log_error("Failed to open log file: %s\n", path ? path : "(null)");
        return -1;
    }
    std::fprintf(file, "[%s] Begin API Testing.\n", ka_get_cur_time());
    std::fflush(file);
    {
        std::lock_guard<std::mutex> lock(log_file_mutex);
        log_file.reset(file);
    }
    log_sink.store(&custom_api_log);
    log_threshold.store(0);
    return 0;
}

// The generic entry passes when the threshold is above the level; the four
// level entries pass when the level is at or above the threshold.
void ka_log(int level, const char *format, ...) {
    if (!(log_threshold.load() > static_cast<unsigned>(level))) return;
    va_list args;
    va_start(args, format);
    pass(format, args);
    va_end(args);
}

#define KA_LEVEL_ENTRY(name, level)                                                                \
    void name(const char *format, ...) {                                                           \
        if (log_threshold.load() > (level)) return;                                                \
        va_list args;                                                                              \
        va_start(args, format);                                                                    \
        pass(format, args);                                                                        \
        va_end(args);                                                                              \
    }
KA_LEVEL_ENTRY(ka_log_debug, 0u)
KA_LEVEL_ENTRY(ka_log_info, 1u)
KA_LEVEL_ENTRY(ka_log_warn, 2u)
KA_LEVEL_ENTRY(ka_log_error, 3u)
#undef KA_LEVEL_ENTRY

} // extern "C"
