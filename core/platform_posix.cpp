#include "core/platform.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace platform {
namespace {

bool set_nonblocking(int fd) {
    int flags = fcntl(fd, F_GETFL, 0);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool wait_for(int fd, short events, int timeout_ms) {
    pollfd p{fd, events, 0};
    for (;;) {
        int r = ::poll(&p, 1, timeout_ms);
        if (r < 0 && errno == EINTR) continue;
        return r > 0;
    }
}

int remaining_ms(clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

} // namespace

socket_t tcp_connect(const char *ip, int port, int timeout_ms, int *stage) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *stage = -1;
        return invalid_socket;
    }
    int one = 1;
    // Every command is one small line; Nagle plus delayed acknowledgements
    // would hold each one back for tens of milliseconds.
    if (::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) != 0) {
        ::close(fd);
        *stage = -2;
        return invalid_socket;
    }
    if (!set_nonblocking(fd)) {
        ::close(fd);
        *stage = -4;
        return invalid_socket;
    }
    if (::inet_pton(AF_INET, ip, &addr.sin_addr) != 1) {
        ::close(fd);
        *stage = -3;
        return invalid_socket;
    }
    // Connect without blocking so an address that never answers costs a
    // bounded time instead of the system's connect time-out.
    int r = ::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    if (r != 0 && errno == EINPROGRESS) {
        int err = ETIMEDOUT;
        socklen_t len = sizeof err;
        if (wait_for(fd, POLLOUT, timeout_ms)) ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len);
        r = err == 0 ? 0 : -1;
    }
    if (r != 0) {
        ::close(fd);
        *stage = -3;
        return invalid_socket;
    }
    *stage = 0;
    return fd;
}

int send_all(socket_t s, const char *data, size_t length, int timeout_ms) {
    if (s < 0 || !data || length == 0) return -1;
    auto deadline = clock::now() + std::chrono::milliseconds(timeout_ms);
    size_t sent = 0;
    while (sent < length) {
        // MSG_NOSIGNAL: a peer that went away must give an error code, not
        // a signal that ends the application.
        ssize_t n = ::send(s, data + sent, length - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wait_for(s, POLLOUT, remaining_ms(deadline))) return -2;
            continue;
        }
        return -2;
    }
    return 0;
}

long recv_some(socket_t s, char *buffer, size_t size) {
    for (;;) {
        ssize_t n = ::recv(s, buffer, size, 0);
        if (n >= 0) return static_cast<long>(n);
        if (errno == EINTR) continue;
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? -1 : -2;
    }
}

int wait_readable(socket_t s, int timeout_ms) {
    pollfd p{s, POLLIN, 0};
    for (;;) {
        int r = ::poll(&p, 1, timeout_ms);
        if (r < 0 && errno == EINTR) continue;
        return r < 0 ? -1 : (r > 0 ? 1 : 0);
    }
}

void shutdown_socket(socket_t s) {
    if (s >= 0) ::shutdown(s, SHUT_RDWR);
}

void close_socket(socket_t s) {
    if (s >= 0) ::close(s);
}

socket_t udp_bind(int port) {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return invalid_socket;
    int one = 1;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 || !set_nonblocking(fd) ||
        ::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return invalid_socket;
    }
    return fd;
}

long recv_datagram(socket_t s, char *buffer, size_t size, char *from_ip, size_t from_size) {
    sockaddr_in from{};
    socklen_t len = sizeof from;
    ssize_t n = ::recvfrom(s, buffer, size, 0, reinterpret_cast<sockaddr *>(&from), &len);
    if (n < 0) return (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) ? -1 : -2;
    if (from_ip && from_size > 0) {
        char text[INET_ADDRSTRLEN] = {0};
        ::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
        std::snprintf(from_ip, from_size, "%s", text);
    }
    return static_cast<long>(n);
}

wake_channel::wake_channel() {
    if (::pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0) fds_[0] = fds_[1] = invalid_socket;
}

wake_channel::~wake_channel() {
    if (fds_[0] >= 0) ::close(fds_[0]);
    if (fds_[1] >= 0) ::close(fds_[1]);
}

void wake_channel::notify() {
    char byte = 1;
    // A full pipe already guarantees a wake-up.
    [[maybe_unused]] ssize_t n = ::write(fds_[1], &byte, 1);
}

void wake_channel::drain() {
    char buffer[64];
    while (::read(fds_[0], buffer, sizeof buffer) > 0) {
    }
}

int poll_readable(const socket_t *sockets, bool *ready, size_t count, int timeout_ms) {
    std::vector<pollfd> fds(count);
    for (size_t i = 0; i < count; ++i)
        fds[i] = pollfd{sockets[i], POLLIN, 0};
    int r;
    do {
        r = ::poll(fds.data(), fds.size(), timeout_ms);
    } while (r < 0 && errno == EINTR);
    for (size_t i = 0; i < count; ++i)
        ready[i] = r > 0 && (fds[i].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) != 0;
    return r;
}

} // namespace platform
