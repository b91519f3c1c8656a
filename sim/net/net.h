// The sockets the simulator and the tests use, one interface over BSD
// sockets and Winsock: IPv4 only, blocking unless made otherwise, never
// inherited by child processes, and no signal when the peer has gone (a
// failed send returns -1 instead). Interrupted calls are retried inside.
// Winsock is started (version 2.2) once per process by the first socket.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace sim::net {

#ifdef _WIN32
using socket_t = std::uintptr_t; // SOCKET
#else
using socket_t = int;
#endif
inline constexpr socket_t invalid_socket = static_cast<socket_t>(-1);

enum class transport { tcp, udp };

// An IPv4 address and port, both in host byte order.
struct endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
};
inline constexpr std::uint32_t loopback_address = 0x7f000001; // 127.0.0.1

// Dotted-quad text ("192.168.1.18"); nothing for anything else.
std::optional<std::uint32_t> parse_ipv4(const std::string &text);
// "a.b.c.d:port".
std::string to_text(const endpoint &where);

// Owns one socket and closes it when destroyed.
class unique_socket {
  public:
    unique_socket() = default;
    explicit unique_socket(socket_t handle) : handle_(handle) {}
    ~unique_socket() { reset(); }
    unique_socket(unique_socket &&other) noexcept
        : handle_(std::exchange(other.handle_, invalid_socket)) {}
    unique_socket &operator=(unique_socket &&other) noexcept {
        if (this != &other) reset(std::exchange(other.handle_, invalid_socket));
        return *this;
    }
    unique_socket(const unique_socket &) = delete;
    unique_socket &operator=(const unique_socket &) = delete;

    socket_t get() const { return handle_; }
    explicit operator bool() const { return handle_ != invalid_socket; }
    socket_t release() { return std::exchange(handle_, invalid_socket); }
    void reset(socket_t handle = invalid_socket);

  private:
    socket_t handle_ = invalid_socket;
};

// A new socket; empty on failure (see last_error()).
unique_socket open_socket(transport kind);
bool bind_to(socket_t socket, const endpoint &where);
bool listen_on(socket_t socket, int backlog);
std::optional<endpoint> local_endpoint(socket_t socket);
// The next connection; empty on failure. `peer` receives its address.
unique_socket accept_from(socket_t listener, endpoint *peer = nullptr);
bool connect_to(socket_t socket, const endpoint &where);

// Bytes sent or received (0 from receive_some: end of stream), -1 on
// failure. On a non-blocking socket, -1 with would_block() means "not now".
std::ptrdiff_t send_some(socket_t socket, const char *bytes, std::size_t size);
std::ptrdiff_t receive_some(socket_t socket, char *buffer, std::size_t size);
// One datagram; false when it could not leave (on a non-blocking socket,
// also when it would have had to wait).
bool send_datagram(socket_t socket, std::string_view bytes, const endpoint &to);

void set_no_delay(socket_t socket);                  // TCP_NODELAY: every send its own segment
void set_non_blocking(socket_t socket);              // FIONBIO / O_NONBLOCK
void set_reuse_address(socket_t socket);             // SO_REUSEADDR
void set_receive_buffer(socket_t socket, int bytes); // SO_RCVBUF
// Ends the connection both ways: the peer and this side's readers see end of
// stream. The socket stays open until closed.
void shutdown_both(socket_t socket);

// The error of the last failed call on this thread.
std::error_code last_error();
// The last failure only means "try again": would block, interrupted, or a
// connection that was reset before it could be accepted.
bool would_block();
bool accept_may_retry();

// Readiness for poll(). A socket that has failed or hung up is reported
// readable and writable, so that the next call returns its failure.
enum readiness : unsigned { readable = 1, writable = 2 };
struct poll_entry {
    socket_t socket = invalid_socket;
    unsigned want = readable;
    unsigned ready = 0;
};
inline constexpr std::chrono::milliseconds wait_forever{-1};
// Waits until an entry is ready or `limit` passes (wait_forever: no limit).
// Returns how many entries are ready (0 on time-out), -1 on failure.
int poll(std::span<poll_entry> entries, std::chrono::milliseconds limit);

// A wake-up that poll() sees together with sockets: once signalled, its
// handle() stays readable for good.
class wake_channel {
  public:
    // Throws std::system_error when the channel cannot be made.
    wake_channel();
    ~wake_channel();
    wake_channel(const wake_channel &) = delete;
    wake_channel &operator=(const wake_channel &) = delete;

    void signal();
    socket_t handle() const { return read_end_; }

  private:
    socket_t read_end_ = invalid_socket;
    socket_t write_end_ = invalid_socket;
};

} // namespace sim::net
