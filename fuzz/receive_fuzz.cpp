// One arm's receive side: a byte stream cut into reads as the input says,
// split into lines and filed in the arm's reply queue, with lines taken back
// in between, as the receive thread and the commanding threads do.
//
// Input: the arm's DOF byte (the entry point lines go to), the awaited-event
// byte, a name length byte and the name one caller waits for; then
// operations, each led by a byte:
//   below 0xE0   that many bytes of the stream follow;
//   0xE0-0xEF    take a line: the low bits pick the name (0 the waited-for
//                name, 1 the empty name of point lines, else the name of
//                the queue entry that the next byte picks), then a byte for
//                the output size;
//   0xF0-0xFD    a run: a 16-bit count, then the byte repeated;
//   0xFE-0xFF    a 16-bit length, then that many bytes of the stream.
#include "core/transport.h"
#include "fuzz/fuzz_support.h"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr size_t stream_limit = size_t{1} << 16; // bounds a run's time and memory

struct receive_session {
    std::shared_ptr<arm_record> arm = std::make_shared<arm_record>();
    std::string stream = "\r\n"; // all bytes fed, after a line end of its own
    std::string waited_name;
    bool waited_name_queued = false;
    // Without an awaited event, only the waited-for name is protected from
    // eviction, so once queued it must stay until taken.
    bool only_name_protected = false;
    uint64_t counter = 0;
};

bool queued(reply_queue &queue, const std::string &name) {
    for (const auto &entry : queue.entries)
        if (entry.used && name == entry.name) return true;
    return false;
}

// What holds after every read, whatever the bytes were.
void check_queue(receive_session &s) {
    reply_queue &queue = s.arm->queue;
    // Filing returned with the queue free for the next taker.
    FUZZ_CHECK(queue.mutex.try_lock());
    size_t used = 0;
    for (const auto &entry : queue.entries) {
        if (!entry.used) continue;
        ++used;
        FUZZ_CHECK(std::memchr(entry.name, '\0', sizeof entry.name) != nullptr);
        FUZZ_CHECK(entry.text.size() <= queue_line_capacity);
        FUZZ_CHECK(entry.text.find('\0') == std::string::npos);
        FUZZ_CHECK(entry.stamp <= queue.counter);
    }
    FUZZ_CHECK(used <= queue_entry_count);
    FUZZ_CHECK(queue.counter >= s.counter);
    s.counter = queue.counter;
    bool now = queued(queue, s.waited_name);
    if (s.only_name_protected && s.waited_name_queued) FUZZ_CHECK(now);
    s.waited_name_queued = now;
    queue.mutex.unlock();
}

void feed(receive_session &s, const std::string &bytes) {
    s.stream += bytes;
    receive_bytes(*s.arm, bytes.data(), bytes.size());
    check_queue(s);
}

// A taken line is whole: terminated, shorter than the buffer, and a line of
// the stream (a prefix of one when the buffer or the queue entry cut it).
void take(receive_session &s, const std::string &name, int size) {
    std::vector<char> out(static_cast<size_t>(size) + 1, '\x7f');
    int n = get_str_from_fifo(&s.arm->queue, name.c_str(), out.data(), size);
    FUZZ_CHECK(out[static_cast<size_t>(size)] == '\x7f');
    if (n < 0) {
        FUZZ_CHECK(n == -1);
        FUZZ_CHECK(name != s.waited_name || !s.waited_name_queued || !s.only_name_protected);
        return;
    }
    FUZZ_CHECK(n < size);
    FUZZ_CHECK(out[static_cast<size_t>(n)] == '\0');
    FUZZ_CHECK(std::strlen(out.data()) == static_cast<size_t>(n));
    bool cut = n == size - 1 || static_cast<size_t>(n) == queue_line_capacity;
    std::string line = "\r\n" + std::string(out.data(), static_cast<size_t>(n));
    if (!cut) line += "\r\n";
    FUZZ_CHECK(s.stream.find(line) != std::string::npos);
    if (name == s.waited_name) s.waited_name_queued = queued(s.arm->queue, name);
}

std::string entry_name(receive_session &s, size_t index) {
    std::lock_guard<std::mutex> lock(s.arm->queue.mutex);
    const queue_entry &entry = s.arm->queue.entries[index % queue_entry_count];
    return entry.used ? entry.name : "";
}

// 1 to 128, then steps of 160 up to twice the longest queued line.
int output_size(uint8_t choice) { return choice < 128 ? choice + 1 : (choice - 127) * 160; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    receive_session s;
    // Out of range values included: the DOF indexes the queue.
    store_public(s.arm->pub.arm_dof, in.byte() % 32 - 4);
    uint8_t event = in.byte();
    s.arm->awaited_event.store(event % 3);
    s.arm->blocking_waits.store(event / 3 % 2);
    s.only_name_protected = event % 6 == 0;
    s.waited_name = in.bytes(in.byte() % queue_name_capacity);
    s.waited_name.resize(std::strlen(s.waited_name.c_str()));
    std::optional<reply_claim> claim;
    if (!s.waited_name.empty())
        claim.emplace(*s.arm, s.waited_name.c_str(), true);
    else
        s.only_name_protected = false;

    while (!in.empty() && s.stream.size() < stream_limit) {
        uint8_t op = in.byte();
        if (op < 0xE0) {
            feed(s, in.bytes(op));
        } else if (op < 0xF0) {
            size_t pick = op & 0x0F;
            std::string name = pick == 0   ? s.waited_name
                               : pick == 1 ? ""
                                           : entry_name(s, in.byte());
            take(s, name, output_size(in.byte()));
        } else if (op < 0xFE) {
            size_t count = in.word();
            feed(s, std::string(count, static_cast<char>(in.byte())));
        } else {
            feed(s, in.bytes(in.word()));
        }
    }
    // Everything still queued can be taken whole.
    for (size_t i = 0; i < queue_entry_count; ++i) {
        std::string name = entry_name(s, i);
        if (!name.empty()) take(s, name, static_cast<int>(queue_line_capacity) + 1);
    }
    return 0;
}
