#include "sim/net/net.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace sim::net {

namespace {

// Winsock 2.2, started once per process and left running until it ends.
void start_winsock() {
    static std::once_flag started;
    std::call_once(started, [] {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
    });
}

SOCKET native(socket_t socket) { return static_cast<SOCKET>(socket); }

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
    ::setsockopt(native(socket), level, name, reinterpret_cast<const char *>(&value), sizeof value);
}

int clamp_size(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, 0x7fffffff));
}

} // namespace

std::optional<std::uint32_t> parse_ipv4(const std::string &text) {
    start_winsock();
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

std::string to_text(const endpoint &where) {
    start_winsock();
    sockaddr_in address = to_sockaddr(where);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(where.port);
}

void unique_socket::reset(socket_t handle) {
    if (handle_ != invalid_socket) ::closesocket(native(handle_));
    handle_ = handle;
}

unique_socket open_socket(transport kind) {
    start_winsock();
    const int type = kind == transport::tcp ? SOCK_STREAM : SOCK_DGRAM;
    const int protocol = kind == transport::tcp ? IPPROTO_TCP : IPPROTO_UDP;
    const SOCKET made = ::WSASocketW(AF_INET, type, protocol, nullptr, 0,
                                     WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    return unique_socket(made == INVALID_SOCKET ? invalid_socket : static_cast<socket_t>(made));
}

bool bind_to(socket_t socket, const endpoint &where) {
    const sockaddr_in address = to_sockaddr(where);
    return ::bind(native(socket), reinterpret_cast<const sockaddr *>(&address), sizeof address) ==
           0;
}

bool listen_on(socket_t socket, int backlog) { return ::listen(native(socket), backlog) == 0; }

std::optional<endpoint> local_endpoint(socket_t socket) {
    sockaddr_in address{};
    int length = sizeof address;
    if (::getsockname(native(socket), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return std::nullopt;
    return from_sockaddr(address);
}

unique_socket accept_from(socket_t listener, endpoint *peer) {
    sockaddr_in address{};
    int length = sizeof address;
    SOCKET accepted;
    do
        accepted = ::accept(native(listener), reinterpret_cast<sockaddr *>(&address), &length);
    while (accepted == INVALID_SOCKET && WSAGetLastError() == WSAEINTR);
    if (accepted == INVALID_SOCKET) return {};
    // An accepted socket takes the listener's inheritance; a child process
    // must not hold a client's connection open.
    ::SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
    if (peer) *peer = from_sockaddr(address);
    return unique_socket(static_cast<socket_t>(accepted));
}

bool connect_to(socket_t socket, const endpoint &where) {
    const sockaddr_in address = to_sockaddr(where);
    return ::connect(native(socket), reinterpret_cast<const sockaddr *>(&address),
                     sizeof address) == 0;
}

std::ptrdiff_t send_some(socket_t socket, const char *bytes, std::size_t size) {
    int sent;
    do
        sent = ::send(native(socket), bytes, clamp_size(size), 0);
    while (sent == SOCKET_ERROR && WSAGetLastError() == WSAEINTR);
    return sent;
}

std::ptrdiff_t receive_some(socket_t socket, char *buffer, std::size_t size) {
    int got;
    do
        got = ::recv(native(socket), buffer, clamp_size(size), 0);
    while (got == SOCKET_ERROR && WSAGetLastError() == WSAEINTR);
    return got;
}

bool send_datagram(socket_t socket, std::string_view bytes, const endpoint &to) {
    const sockaddr_in address = to_sockaddr(to);
    const int sent = ::sendto(native(socket), bytes.data(), clamp_size(bytes.size()), 0,
                              reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return sent == static_cast<int>(bytes.size());
}

void set_no_delay(socket_t socket) { set_int_option(socket, IPPROTO_TCP, TCP_NODELAY, 1); }

void set_non_blocking(socket_t socket) {
    u_long on = 1;
    ::ioctlsocket(native(socket), FIONBIO, &on);
}

void set_reuse_address(socket_t socket) { set_int_option(socket, SOL_SOCKET, SO_REUSEADDR, 1); }

void set_receive_buffer(socket_t socket, int bytes) {
    set_int_option(socket, SOL_SOCKET, SO_RCVBUF, bytes);
}

void shutdown_both(socket_t socket) { ::shutdown(native(socket), SD_BOTH); }

std::error_code last_error() { return {WSAGetLastError(), std::system_category()}; }

bool would_block() {
    const int error = WSAGetLastError();
    return error == WSAEWOULDBLOCK || error == WSAEINTR;
}

bool accept_may_retry() {
    const int error = WSAGetLastError();
    return would_block() || error == WSAECONNRESET || error == WSAECONNABORTED;
}

int poll(std::span<poll_entry> entries, std::chrono::milliseconds limit) {
    std::vector<WSAPOLLFD> fds(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        fds[i].fd = native(entries[i].socket);
        // WSAPoll refuses the priority-band events that POLLIN also asks for.
        fds[i].events = static_cast<SHORT>(((entries[i].want & readable) ? POLLRDNORM : 0) |
                                           ((entries[i].want & writable) ? POLLWRNORM : 0));
    }
    const int timeout =
        limit < std::chrono::milliseconds::zero() ? -1 : static_cast<int>(limit.count());
    const int count = ::WSAPoll(fds.data(), static_cast<ULONG>(fds.size()), timeout);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const SHORT got = count > 0 ? fds[i].revents : 0;
        const bool failed = (got & (POLLERR | POLLHUP | POLLNVAL)) != 0;
        entries[i].ready = ((got & POLLRDNORM) || failed ? readable : 0u) |
                           ((got & POLLWRNORM) || failed ? writable : 0u);
    }
    return count == SOCKET_ERROR ? -1 : count;
}

// Windows has no pipe that WSAPoll can watch, so the channel is a connected
// pair of loopback sockets; a byte sent on one end makes the other readable.
wake_channel::wake_channel() {
    unique_socket listener = open_socket(transport::tcp);
    unique_socket writer = open_socket(transport::tcp);
    const auto fail = [](const char *what) {
        throw std::system_error(last_error(), std::string("wake channel: ") + what);
    };
    if (!listener || !writer) fail("socket");
    if (!bind_to(listener.get(), {loopback_address, 0}) || !listen_on(listener.get(), 1))
        fail("listen");
    const auto where = local_endpoint(listener.get());
    if (!where || !connect_to(writer.get(), *where)) fail("connect");
    const auto own = local_endpoint(writer.get());
    if (!own) fail("getsockname");
    // Another local program may connect first; only our own end is kept.
    unique_socket reader;
    for (endpoint peer; !reader;) {
        reader = accept_from(listener.get(), &peer);
        if (!reader) fail("accept");
        if (peer.port != own->port || peer.address != own->address) reader.reset();
    }
    set_no_delay(writer.get());
    set_non_blocking(writer.get());
    read_end_ = reader.release();
    write_end_ = writer.release();
}

wake_channel::~wake_channel() {
    ::closesocket(native(read_end_));
    ::closesocket(native(write_end_));
}

void wake_channel::signal() {
    const char byte = 1;
    // A full buffer is readable already, so a failed send loses nothing.
    ::send(native(write_end_), &byte, 1, 0);
}

} // namespace sim::net
