#include "sim/net/net.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace sim::net {

namespace {

#ifdef MSG_NOSIGNAL
constexpr int k_send_flags = MSG_NOSIGNAL;
#else
constexpr int k_send_flags = 0;
#endif

sockaddr_in to_sockaddr(const endpoint &where) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(where.address);
    address.sin_port = htons(where.port);
    return address;
}

endpoint from_sockaddr(const sockaddr_in &address) {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

void set_int_option(socket_t socket, int level, int name, int value) {
    ::setsockopt(socket, level, name, &value, sizeof value);
}

} // namespace

std::optional<std::uint32_t> parse_ipv4(const std::string &text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

std::string to_text(const endpoint &where) {
    const sockaddr_in address = to_sockaddr(where);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(where.port);
}

void unique_socket::reset(socket_t handle) {
    if (handle_ != invalid_socket) ::close(handle_);
    handle_ = handle;
}

unique_socket open_socket(transport kind) {
    const int type = kind == transport::tcp ? SOCK_STREAM : SOCK_DGRAM;
    return unique_socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
}

bool bind_to(socket_t socket, const endpoint &where) {
    const sockaddr_in address = to_sockaddr(where);
    return ::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

bool listen_on(socket_t socket, int backlog) { return ::listen(socket, backlog) == 0; }

std::optional<endpoint> local_endpoint(socket_t socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return std::nullopt;
    return from_sockaddr(address);
}

unique_socket accept_from(socket_t listener, endpoint *peer) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    int accepted;
    do
        accepted =
            ::accept4(listener, reinterpret_cast<sockaddr *>(&address), &length, SOCK_CLOEXEC);
    while (accepted < 0 && errno == EINTR);
    if (accepted >= 0 && peer) *peer = from_sockaddr(address);
    return unique_socket(accepted);
}

bool connect_to(socket_t socket, const endpoint &where) {
    const sockaddr_in address = to_sockaddr(where);
    return ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

std::ptrdiff_t send_some(socket_t socket, const char *bytes, std::size_t size) {
    ssize_t sent;
    do
        sent = ::send(socket, bytes, size, k_send_flags);
    while (sent < 0 && errno == EINTR);
    return sent;
}

std::ptrdiff_t receive_some(socket_t socket, char *buffer, std::size_t size) {
    ssize_t got;
    do
        got = ::recv(socket, buffer, size, 0);
    while (got < 0 && errno == EINTR);
    return got;
}

bool send_datagram(socket_t socket, std::string_view bytes, const endpoint &to) {
    const sockaddr_in address = to_sockaddr(to);
    ssize_t sent;
    do
        sent = ::sendto(socket, bytes.data(), bytes.size(), k_send_flags,
                        reinterpret_cast<const sockaddr *>(&address), sizeof address);
    while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

void set_no_delay(socket_t socket) { set_int_option(socket, IPPROTO_TCP, TCP_NODELAY, 1); }

void set_non_blocking(socket_t socket) {
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
}

void set_reuse_address(socket_t socket) { set_int_option(socket, SOL_SOCKET, SO_REUSEADDR, 1); }

void set_receive_buffer(socket_t socket, int bytes) {
    set_int_option(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

void shutdown_both(socket_t socket) { ::shutdown(socket, SHUT_RDWR); }

std::error_code last_error() { return {errno, std::generic_category()}; }

bool would_block() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

bool accept_may_retry() { return would_block() || errno == ECONNABORTED; }

int poll(std::span<poll_entry> entries, std::chrono::milliseconds limit) {
    std::vector<pollfd> fds(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        fds[i].fd = entries[i].socket;
        fds[i].events = static_cast<short>(((entries[i].want & readable) ? POLLIN : 0) |
                                           ((entries[i].want & writable) ? POLLOUT : 0));
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int timeout = -1;
        if (limit >= std::chrono::milliseconds::zero())
            timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(
                0, std::chrono::ceil<std::chrono::milliseconds>(deadline -
                                                                std::chrono::steady_clock::now())
                       .count()));
        const int count = ::poll(fds.data(), fds.size(), timeout);
        if (count < 0 && errno == EINTR) continue;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const short got = count > 0 ? fds[i].revents : 0;
            const bool failed = (got & (POLLERR | POLLHUP | POLLNVAL)) != 0;
            entries[i].ready = ((got & POLLIN) || failed ? readable : 0u) |
                               ((got & POLLOUT) || failed ? writable : 0u);
        }
        return count;
    }
}

wake_channel::wake_channel() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe2");
    read_end_ = ends[0];
    write_end_ = ends[1];
}

wake_channel::~wake_channel() {
    ::close(read_end_);
    ::close(write_end_);
}

void wake_channel::signal() {
    const char byte = 1;
    // A full pipe is readable already, so a failed write loses nothing.
    [[maybe_unused]] const ssize_t written = ::write(write_end_, &byte, 1);
}

} // namespace sim::net
