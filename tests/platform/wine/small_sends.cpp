// How long 200 KB takes over loopback TCP when sent in 64-byte send() calls
// (3200 calls, TCP_NODELAY) to a reader that polls and reads as the
// library's receive thread does. Natively on Linux this takes a few
// milliseconds; under Wine every call is a round trip to the wineserver and
// the whole takes hundreds of milliseconds.
//
//   x86_64-w64-mingw32-g++-posix -std=c++17 -O2 -static small_sends.cpp -lws2_32 -o s.exe
//   /usr/lib/wine/wine64 s.exe
//   g++ -std=c++17 -O2 -pthread small_sends.cpp -o s && ./s
#include "socket_compat.h"

#include <chrono>
#include <string>
#include <thread>

int main() {
    sockets_start();
    sock client, server;
    tcp_pair(&client, &server);
    int one = 1;
    setsockopt(server, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one), sizeof one);
    constexpr std::size_t total = 200 * 1024, piece = 64;
    const std::string bytes(total, 'p');
    auto start = std::chrono::steady_clock::now();
    std::thread reader([&] {
        char buffer[16384];
        std::size_t got = 0;
        while (got < total) {
            poll_entry entry{};
            entry.fd = client;
            entry.events = readable_event;
            if (poll_sockets(&entry, 1, -1) <= 0) break;
            int n = static_cast<int>(recv(client, buffer, sizeof buffer, 0));
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
    });
    for (std::size_t at = 0; at < total; at += piece)
        send(server, bytes.data() + at, static_cast<int>(piece), 0);
    reader.join();
    auto ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start);
    std::printf("%zu bytes in %zu-byte sends: %.1f ms\n", total, piece, ms.count());
    close_sock(client);
    close_sock(server);
    return 0;
}
