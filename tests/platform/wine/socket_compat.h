// The few socket calls the reproductions need, on Winsock and on POSIX, so
// that each one builds and runs both under Wine and natively on Linux.
#pragma once

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
using sock = SOCKET;
inline void sockets_start() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
}
inline void close_sock(sock s) { closesocket(s); }
inline int poll_sockets(WSAPOLLFD *fds, unsigned long count, int timeout_ms) {
    return WSAPoll(fds, count, timeout_ms);
}
using poll_entry = WSAPOLLFD;
constexpr short readable_event = POLLRDNORM;
using address_length = int;
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
using sock = int;
inline void sockets_start() {}
inline void close_sock(sock s) { close(s); }
inline int poll_sockets(pollfd *fds, unsigned long count, int timeout_ms) {
    return poll(fds, count, timeout_ms);
}
using poll_entry = pollfd;
constexpr short readable_event = POLLIN;
using address_length = socklen_t;
#endif

#include <cstdint>
#include <cstdio>

inline sockaddr_in ipv4(const char *text, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

inline int port_of(sock s) {
    sockaddr_in address{};
    address_length length = sizeof address;
    getsockname(s, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

// A connected loopback TCP pair: *client and *server.
inline void tcp_pair(sock *client, sock *server) {
    sock listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = ipv4("127.0.0.1", 0);
    bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address);
    listen(listener, 1);
    address = ipv4("127.0.0.1", port_of(listener));
    *client = socket(AF_INET, SOCK_STREAM, 0);
    connect(*client, reinterpret_cast<sockaddr *>(&address), sizeof address);
    *server = accept(listener, nullptr, nullptr);
    close_sock(listener);
}
