// The platform layer on Windows: Winsock 2 sockets, WSAPoll, and a datagram
// socket that wakes its own poll.
#include "core/platform.h"

#include "ka_api.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <mutex>
#include <type_traits>
#include <vector>

static_assert(std::is_same_v<platform::socket_t, SOCKET>, "socket_t must be Winsock's SOCKET");
static_assert(platform::invalid_socket == INVALID_SOCKET);

namespace platform {
namespace {

// Winsock is started on first use, once per process, and cleaned up when the
// library's static objects go (process exit or the library being unloaded).
// Constant-initialised at namespace scope: it is destroyed after every
// function-local static, so the receive threads, which are such statics and
// are stopped through a socket, are joined before Winsock goes away.
class winsock_session {
  public:
    constexpr winsock_session() = default;
    winsock_session(const winsock_session &) = delete;
    winsock_session &operator=(const winsock_session &) = delete;
    ~winsock_session() {
        // Balances the one successful WSAStartup; Winsock counts its users,
        // so an application that started it too keeps it.
        if (started_.exchange(false)) ::WSACleanup();
    }

    bool ensure() {
        std::call_once(once_, [this] {
            WSADATA data;
            int error = ::WSAStartup(MAKEWORD(2, 2), &data);
            if (error != 0)
                ka_log_error("WSAStartup ERROR %d\n", error);
            else
                started_.store(true);
        });
        return started_.load();
    }

  private:
    std::once_flag once_;
    std::atomic<bool> started_{false};
};

constinit winsock_session session;

// The last Winsock error as "code text", for debug log lines.
void log_socket_error(const char *what) {
    int code = ::WSAGetLastError();
    char text[256] = {0};
    DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                               static_cast<DWORD>(code), 0, text, sizeof text, nullptr);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == ' '))
        text[--n] = '\0';
    ka_log_debug("%s: WSA error %d %s\n", what, code, text);
}

// A socket that child processes do not inherit. Older Winsock providers
// reject the flag; a plain socket is the fallback.
SOCKET open_socket(int type, int protocol) {
    if (!session.ensure()) return INVALID_SOCKET;
    SOCKET s = ::WSASocketW(AF_INET, type, protocol, nullptr, 0,
                            WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (s == INVALID_SOCKET) s = ::socket(AF_INET, type, protocol);
    if (s == INVALID_SOCKET) log_socket_error("socket");
    return s;
}

bool set_nonblocking(SOCKET s) {
    u_long on = 1;
    return ::ioctlsocket(s, FIONBIO, &on) == 0;
}

int remaining_ms(clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Winsock's calls take int lengths.
int clamp_length(size_t size) { return size > INT_MAX ? INT_MAX : static_cast<int>(size); }

bool would_block(int error) { return error == WSAEWOULDBLOCK || error == WSAEINTR; }

} // namespace

socket_t tcp_connect(const char *ip, int port, int timeout_ms, int *stage) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = ::htons(static_cast<u_short>(port));
    SOCKET s = open_socket(SOCK_STREAM, IPPROTO_TCP);
    if (s == INVALID_SOCKET) {
        *stage = -1;
        return invalid_socket;
    }
    BOOL one = TRUE;
    // Every command is one small line; Nagle plus delayed acknowledgements
    // would hold each one back for tens of milliseconds.
    if (::setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one),
                     sizeof one) != 0) {
        log_socket_error("setsockopt TCP_NODELAY");
        ::closesocket(s);
        *stage = -2;
        return invalid_socket;
    }
    if (!set_nonblocking(s)) {
        log_socket_error("ioctlsocket FIONBIO");
        ::closesocket(s);
        *stage = -4;
        return invalid_socket;
    }
    if (::inet_pton(AF_INET, ip, &addr.sin_addr) != 1) {
        ::closesocket(s);
        *stage = -3;
        return invalid_socket;
    }
    // Connect without blocking so an address that never answers costs a
    // bounded time instead of the system's connect time-out (about 21 s).
    // select rather than WSAPoll: older WSAPoll never reports a refused
    // connect. A failure shows in the exception set.
    int r = ::connect(s, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    if (r != 0 && ::WSAGetLastError() == WSAEWOULDBLOCK) {
        fd_set writable, failed;
        FD_ZERO(&writable);
        FD_ZERO(&failed);
        FD_SET(s, &writable);
        FD_SET(s, &failed);
        timeval limit{timeout_ms / 1000, (timeout_ms % 1000) * 1000};
        int ready = ::select(0, nullptr, &writable, &failed, &limit);
        int err = WSAETIMEDOUT;
        int len = sizeof err;
        if (ready > 0) ::getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&err), &len);
        if (ready > 0 && err == 0 && !FD_ISSET(s, &writable)) err = WSAECONNREFUSED;
        ::WSASetLastError(err);
        r = err == 0 ? 0 : -1;
    }
    if (r != 0) {
        log_socket_error("connect");
        ::closesocket(s);
        *stage = -3;
        return invalid_socket;
    }
    *stage = 0;
    return s;
}

int send_all(socket_t s, const char *data, size_t length, int timeout_ms) {
    if (s == invalid_socket || !data || length == 0) return -1;
    auto deadline = clock::now() + std::chrono::milliseconds(timeout_ms);
    size_t sent = 0;
    while (sent < length) {
        // Winsock raises no signal for a peer that went away: the error code
        // is all there is.
        int n = ::send(s, data + sent, clamp_length(length - sent), 0);
        if (n > 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        int error = ::WSAGetLastError();
        if (n == SOCKET_ERROR && would_block(error)) {
            WSAPOLLFD p{s, POLLWRNORM, 0};
            if (::WSAPoll(&p, 1, remaining_ms(deadline)) <= 0) return -2;
            continue;
        }
        log_socket_error("send");
        return -2;
    }
    return 0;
}

long recv_some(socket_t s, char *buffer, size_t size) {
    int n = ::recv(s, buffer, clamp_length(size), 0);
    if (n >= 0) return n;
    int error = ::WSAGetLastError();
    if (would_block(error)) return -1;
    log_socket_error("recv");
    return -2;
}

int wait_readable(socket_t s, int timeout_ms) {
    WSAPOLLFD p{s, POLLRDNORM, 0};
    int r = ::WSAPoll(&p, 1, timeout_ms);
    return r == SOCKET_ERROR ? -1 : (r > 0 ? 1 : 0);
}

void shutdown_socket(socket_t s) {
    if (s != invalid_socket) ::shutdown(s, SD_BOTH);
}

void close_socket(socket_t s) {
    if (s != invalid_socket) ::closesocket(s);
}

socket_t udp_bind(int port) {
    SOCKET s = open_socket(SOCK_DGRAM, IPPROTO_UDP);
    if (s == INVALID_SOCKET) return invalid_socket;
    BOOL one = TRUE;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = ::htons(static_cast<u_short>(port));
    addr.sin_addr.s_addr = ::htonl(INADDR_ANY);
    if (::setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char *>(&one),
                     sizeof one) != 0 ||
        !set_nonblocking(s) || ::bind(s, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        log_socket_error("udp bind");
        ::closesocket(s);
        return invalid_socket;
    }
    return s;
}

long recv_datagram(socket_t s, char *buffer, size_t size, char *from_ip, size_t from_size) {
    sockaddr_in from{};
    int len = sizeof from;
    int n = ::recvfrom(s, buffer, clamp_length(size), 0, reinterpret_cast<sockaddr *>(&from), &len);
    if (n == SOCKET_ERROR) {
        int error = ::WSAGetLastError();
        // A datagram longer than the buffer arrives cut to its size, as a
        // POSIX receive delivers it; Winsock reports the cut as an error.
        if (error == WSAEMSGSIZE)
            n = clamp_length(size);
        else if (would_block(error) || error == WSAECONNRESET)
            return -1; // WSAECONNRESET: an earlier send's ICMP, not this socket's fault
        else {
            log_socket_error("recvfrom");
            return -2;
        }
    }
    if (from_ip && from_size > 0) {
        char text[INET_ADDRSTRLEN] = {0};
        ::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
        std::snprintf(from_ip, from_size, "%s", text);
    }
    return n;
}

// Windows has no pipe that WSAPoll can wait on: a datagram socket bound to
// the loopback address and connected to itself serves as both ends. A
// notify that finds the queue full is not needed: the queued datagrams
// already wake the poll.
wake_channel::wake_channel() {
    SOCKET s = open_socket(SOCK_DGRAM, IPPROTO_UDP);
    if (s == INVALID_SOCKET) return;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    int len = sizeof addr;
    if (::bind(s, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        ::getsockname(s, reinterpret_cast<sockaddr *>(&addr), &len) != 0 ||
        ::connect(s, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        !set_nonblocking(s)) {
        log_socket_error("wake channel");
        ::closesocket(s);
        return;
    }
    fds_[0] = fds_[1] = s;
}

wake_channel::~wake_channel() {
    if (fds_[0] != invalid_socket) ::closesocket(fds_[0]);
}

void wake_channel::notify() {
    char byte = 1;
    if (fds_[1] != invalid_socket) ::send(fds_[1], &byte, 1, 0);
}

void wake_channel::drain() {
    char buffer[64];
    if (fds_[0] == invalid_socket) return;
    while (::recv(fds_[0], buffer, sizeof buffer, 0) > 0) {
    }
}

int poll_readable(const socket_t *sockets, bool *ready, size_t count, int timeout_ms) {
    std::vector<WSAPOLLFD> fds(count);
    for (size_t i = 0; i < count; ++i)
        fds[i] = WSAPOLLFD{sockets[i], POLLRDNORM, 0};
    int r = ::WSAPoll(fds.data(), static_cast<ULONG>(fds.size()), timeout_ms);
    if (r == SOCKET_ERROR) log_socket_error("WSAPoll");
    for (size_t i = 0; i < count; ++i)
        ready[i] = r > 0 && (fds[i].revents & (POLLRDNORM | POLLHUP | POLLERR | POLLNVAL)) != 0;
    return r == SOCKET_ERROR ? -1 : r;
}

} // namespace platform
