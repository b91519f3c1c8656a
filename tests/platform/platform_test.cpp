// The platform layer on its own: the wake-up channel with poll, connect
// failures, argument checks and the local-time text. Run on every system the
// library builds for; the Winsock build is where most of this differs.
#include "core/platform.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>

namespace {

// Polls the channel's read end alone.
int poll_channel(const platform::wake_channel &wake, int timeout_ms, bool *ready) {
    platform::socket_t s = wake.read_end();
    return platform::poll_readable(&s, ready, 1, timeout_ms);
}

} // namespace

// A fresh channel is quiet; a notify makes it readable; drain makes it quiet
// again, however many notifies came before (70000: more than a 64 KiB pipe
// or a loopback datagram queue holds; a notify must never block when full).
TEST(wake_channel, notify_drain_cycle) {
    platform::wake_channel wake;
    ASSERT_NE(wake.read_end(), platform::invalid_socket);
    bool ready = true;
    EXPECT_EQ(poll_channel(wake, 0, &ready), 0);
    EXPECT_FALSE(ready);
    struct {
        int notifies;
    } const rows[] = {{1}, {2}, {70000}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.notifies);
        for (int i = 0; i < r.notifies; ++i)
            wake.notify();
        EXPECT_EQ(poll_channel(wake, -1, &ready), 1);
        EXPECT_TRUE(ready);
        wake.drain();
        EXPECT_EQ(poll_channel(wake, 0, &ready), 0);
        EXPECT_FALSE(ready);
    }
}

// A poll with no time limit returns when another thread notifies: this is
// how the receive threads are stopped. A lost wake-up hangs here.
TEST(wake_channel, wakes_a_blocked_poll) {
    for (int round = 0; round < 50; ++round) {
        platform::wake_channel wake, other;
        platform::socket_t sockets[2] = {other.read_end(), wake.read_end()};
        bool ready[2] = {true, false};
        std::thread notifier([&] { wake.notify(); });
        int r = platform::poll_readable(sockets, ready, 2, -1);
        notifier.join();
        ASSERT_EQ(r, 1) << "round " << round;
        EXPECT_FALSE(ready[0]);
        EXPECT_TRUE(ready[1]);
    }
}

// Connecting: a port nobody listens on is refused, and text that is not a
// dotted IPv4 address is refused before any packet goes out; both report
// the connect stage and leave no socket.
TEST(tcp_connect, failures_report_the_connect_stage) {
    // Port 1 (tcpmux) has no listener on a test machine; 127.0.0.1 answers
    // a connect to it with a reset at once.
    struct {
        const char *ip;
        int port;
    } const rows[] = {
        {"127.0.0.1", 1},
        {"not an address", 8080},
        {"256.1.1.1", 8080},
        {"", 8080},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.ip) + ":" + std::to_string(r.port));
        int stage = 0;
        EXPECT_EQ(platform::tcp_connect(r.ip, r.port, 3000, &stage), platform::invalid_socket);
        EXPECT_EQ(stage, -3);
    }
}

// Bad arguments are refused before any system call.
TEST(send_all, refuses_bad_arguments) {
    platform::wake_channel wake;
    const char byte = 'x';
    EXPECT_EQ(platform::send_all(platform::invalid_socket, &byte, 1, 0), -1);
    EXPECT_EQ(platform::send_all(wake.read_end(), nullptr, 1, 0), -1);
    EXPECT_EQ(platform::send_all(wake.read_end(), &byte, 0, 0), -1);
}

// A datagram socket binds to a free port and is closed again; the same port
// can then be bound anew.
TEST(udp_bind, binds_and_releases_a_port) {
    platform::socket_t s = platform::invalid_socket;
    int port = 0;
    for (int candidate = 47000; candidate < 47100 && s == platform::invalid_socket; ++candidate) {
        s = platform::udp_bind(candidate);
        port = candidate;
    }
    ASSERT_NE(s, platform::invalid_socket);
    char buffer[16], from[16];
    EXPECT_EQ(platform::recv_datagram(s, buffer, sizeof buffer, from, sizeof from), -1)
        << "a fresh socket has nothing to read and must not block";
    platform::close_socket(s);
    platform::socket_t again = platform::udp_bind(port);
    EXPECT_NE(again, platform::invalid_socket);
    platform::close_socket(again);
}

// "YYYY-MM-DD hh?mm?ss" with the separator asked for, cut to the buffer.
TEST(format_local_time, layout_and_cut) {
    struct {
        char separator;
        size_t size;
        const char *pattern;
    } const rows[] = {
        {'_', 40, R"(\d{4}-\d{2}-\d{2} \d{2}_\d{2}_\d{2})"},
        {':', 40, R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})"},
        {':', 11, R"(\d{4}-\d{2}-\d{2})"},
        {':', 1, ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.size);
        char text[40];
        std::memset(text, '#', sizeof text);
        platform::format_local_time(text, r.size, r.separator);
        EXPECT_TRUE(std::regex_match(std::string(text), std::regex(r.pattern))) << text;
    }
}
