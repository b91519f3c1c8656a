// Thin platform layer: sockets, a wake-up channel, poll, a monotonic clock
// and the local time. platform_posix.cpp implements it with BSD sockets,
// platform_win.cpp with Winsock 2; nothing else in the library sees either.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace platform {

#if defined(_WIN32)
// Winsock's SOCKET (UINT_PTR), named here without pulling <winsock2.h> and
// its macros into every file; platform_win.cpp checks that the types agree.
using socket_t = std::uintptr_t;
constexpr socket_t invalid_socket = ~socket_t{0};
#else
using socket_t = int;
constexpr socket_t invalid_socket = -1;
#endif

using clock = std::chrono::steady_clock;

// Connects a TCP stream socket; the result is non-blocking with TCP_NODELAY.
// Returns the socket, or invalid_socket with *stage set: -1 socket creation,
// -2 options, -3 connect (refused, unreachable or no answer in time), -4
// switching to non-blocking.
socket_t tcp_connect(const char *ip, int port, int timeout_ms, int *stage);

// Sends every byte, waiting for buffer space up to timeout_ms in all.
// 0, -1 bad arguments, -2 failure or time-out.
int send_all(socket_t s, const char *data, size_t length, int timeout_ms);

// One receive. > 0 bytes read, 0 peer closed, -1 nothing available, -2 error.
long recv_some(socket_t s, char *buffer, size_t size);

// Waits until s is readable. 1 readable (or closed), 0 time-out, -1 error.
int wait_readable(socket_t s, int timeout_ms);

void shutdown_socket(socket_t s);
void close_socket(socket_t s);

// UDP socket bound to any local address at port, non-blocking. Returns the
// socket or invalid_socket.
socket_t udp_bind(int port);

// One datagram; > 0 length, -1 nothing available, -2 error. from_ip receives
// the sender's dotted address (at most from_size - 1 characters).
long recv_datagram(socket_t s, char *buffer, size_t size, char *from_ip, size_t from_size);

// Wakes a thread blocked in poll_readable: the read end is pollable.
class wake_channel {
  public:
    wake_channel();
    ~wake_channel();
    wake_channel(const wake_channel &) = delete;
    wake_channel &operator=(const wake_channel &) = delete;
    void notify();
    void drain();
    socket_t read_end() const { return fds_[0]; }

  private:
    // Read and write ends; one socket serves as both where the system has no
    // pollable pipe.
    socket_t fds_[2] = {invalid_socket, invalid_socket};
};

// Blocks until one of the sockets is readable or timeout_ms passes (-1: no
// limit). ready[i] is set for each readable (or hung-up) socket. Returns the
// number ready, 0 on time-out, -1 on error.
int poll_readable(const socket_t *sockets, bool *ready, size_t count, int timeout_ms);

// The local time now as "YYYY-MM-DD hh?mm?ss", the time of day joined by
// `separator`, cut to size - 1 characters.
inline void format_local_time(char *out, size_t size, char separator) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
#if defined(_WIN32)
    localtime_s(&local, &now);
#else
    localtime_r(&now, &local);
#endif
    std::snprintf(out, size, "%04d-%02d-%02d %02d%c%02d%c%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, separator, local.tm_min,
                  separator, local.tm_sec);
}

} // namespace platform
