// Cuts a TCP byte stream into "\r\n"-ended lines, the same way for the
// receive thread and for the caller's own reads in single-thread mode.
//
// A line whose text reaches max_line_bytes is dropped whole and the next line
// is read intact, however the bytes were cut into reads: one read holding the
// whole line, or many small ones.
#pragma once

#include <cstddef>
#include <string>

// A line of this many bytes or more (without its "\r\n") is never a reply.
constexpr size_t max_line_bytes = 20480;

class line_splitter {
  public:
    // Calls on_line(text, length) for each complete line, without its
    // "\r\n" (which still follows the text in memory). When on_line returns
    // false the rest of this read is dropped and assembly starts afresh.
    template <typename OnLine> void feed(const char *data, size_t length, OnLine on_line) {
        // A "\r" that ended the previous read may pair with a "\n" now.
        size_t scan_from = buffer_.empty() ? 0 : buffer_.size() - 1;
        buffer_.append(data, length);
        size_t start = 0;
        for (size_t end = buffer_.find("\r\n", scan_from); end != std::string::npos;
             end = buffer_.find("\r\n", start)) {
            size_t line_start = start;
            bool keep = !skipping_ && end - line_start < max_line_bytes;
            skipping_ = false;
            start = end + 2;
            if (keep && !on_line(buffer_.data() + line_start, end - line_start)) {
                clear();
                return;
            }
        }
        buffer_.erase(0, start);
        // Still no line end: once the text alone reaches the limit, drop it and
        // the rest of that line. A trailing "\r" is kept to pair with a "\n".
        bool pending_cr = !buffer_.empty() && buffer_.back() == '\r';
        if (buffer_.size() - (pending_cr ? 1 : 0) >= max_line_bytes) {
            buffer_.assign(pending_cr ? "\r" : "");
            skipping_ = true;
        }
    }

    void clear() {
        buffer_.clear();
        skipping_ = false;
    }

    // Bytes held of a line not yet complete.
    size_t pending() const { return buffer_.size(); }

  private:
    std::string buffer_;
    bool skipping_ = false; // dropping an over-long line up to its end
};
