// A datagram sent from a UDP socket bound to 127.0.0.2 must arrive from
// 127.0.0.2. Linux and Windows deliver it so; Wine binds the host socket to
// the wildcard address and the datagram arrives from 127.0.0.1.
//
//   x86_64-w64-mingw32-g++-posix -std=c++17 -static udp_source_address.cpp -lws2_32 -o r.exe
//   /usr/lib/wine/wine64 r.exe        (prints 127.0.0.1, exit status 1)
//   g++ -std=c++17 udp_source_address.cpp -o r && ./r   (prints 127.0.0.2, exit status 0)
#include "socket_compat.h"

#include <cstring>

int main() {
    sockets_start();
    sock receiver = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in any = ipv4("0.0.0.0", 0);
    bind(receiver, reinterpret_cast<sockaddr *>(&any), sizeof any);
    sock sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in source = ipv4("127.0.0.2", 0);
    if (bind(sender, reinterpret_cast<sockaddr *>(&source), sizeof source) != 0) {
        std::printf("bind to 127.0.0.2 failed\n");
        return 2;
    }
    sockaddr_in to = ipv4("127.0.0.1", port_of(receiver));
    sendto(sender, "x", 1, 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    char byte;
    sockaddr_in from{};
    address_length length = sizeof from;
    recvfrom(receiver, &byte, 1, 0, reinterpret_cast<sockaddr *>(&from), &length);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
    std::printf("sent from a socket bound to 127.0.0.2, received from %s\n", text);
    close_sock(sender);
    close_sock(receiver);
    return std::strcmp(text, "127.0.0.2") == 0 ? 0 : 1;
}
