// Shared by the fuzz targets: a failed invariant aborts (libFuzzer saves the
// input as a crash), the input read as text or as a stream of small choices,
// and a log sink that formats every line at every level and throws it away.
#pragma once

#include "ka_api.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

namespace fuzz {

// Formatting is what can go wrong in a log line (a "%s" of a text without a
// terminator, say); writing it out would only slow the run down.
inline void format_and_drop(const char *format, va_list args) {
    char line[2048];
    if (format) std::vsnprintf(line, sizeof line, format, args);
}

// Installed before any input runs; threshold 0 lets every level through.
inline const bool log_sink_installed = (ka_set_log_call_back(&format_and_drop, 0), true);

// Reads the input front to back: single choices first, the rest as text.
class input {
  public:
    input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    bool empty() const { return size_ == 0; }

    uint8_t byte() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }

    uint16_t word() { return static_cast<uint16_t>(byte() | byte() << 8); }

    // Up to `count` bytes (fewer at the end of the input).
    std::string bytes(size_t count) {
        if (count > size_) count = size_;
        std::string out(reinterpret_cast<const char *>(data_), count);
        data_ += count;
        size_ -= count;
        return out;
    }

    std::string rest() { return bytes(size_); }

  private:
    const uint8_t *data_;
    size_t size_;
};

// The input as a terminated text, as the parsers receive a line.
inline std::string text(const uint8_t *data, size_t size) {
    return std::string(reinterpret_cast<const char *>(data), size);
}

} // namespace fuzz
