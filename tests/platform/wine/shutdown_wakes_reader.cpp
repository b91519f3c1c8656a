// A shutdown() of a connected TCP socket ends a recv() blocked on the same
// socket in another thread on Linux (it returns 0). Under Wine the recv()
// stays blocked until the other end closes.
//
//   x86_64-w64-mingw32-g++-posix -std=c++17 -static shutdown_wakes_reader.cpp -lws2_32 -o w.exe
//   /usr/lib/wine/wine64 w.exe        ("still blocked", exit status 1)
//   g++ -std=c++17 -pthread shutdown_wakes_reader.cpp -o w && ./w   ("woke", exit status 0)
#include "socket_compat.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

int main() {
    sockets_start();
    sock client, server;
    tcp_pair(&client, &server);
    std::mutex mutex;
    std::condition_variable returned;
    bool done = false;
    std::thread reader([&] {
        char byte;
        recv(server, &byte, 1, 0);
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        returned.notify_all();
    });
    // Give the reader time to block in recv() first.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
#if defined(_WIN32)
    shutdown(server, SD_BOTH);
#else
    shutdown(server, SHUT_RDWR);
#endif
    bool woke;
    {
        std::unique_lock<std::mutex> lock(mutex);
        woke = returned.wait_for(lock, std::chrono::seconds(2), [&] { return done; });
    }
    std::printf("recv() blocked in another thread after shutdown(): %s\n",
                woke ? "woke" : "still blocked");
    close_sock(client); // ends the recv() everywhere
    reader.join();
    close_sock(server);
    return woke ? 0 : 1;
}
