// Round trip of one query through the library (ka_get_data_common: pack,
// send, receive thread, reply queue, wake-up, parse) next to a raw blocking
// socket ping-pong of the same bytes against the same local peer, in one run.
//
//   ./build/default/bench/bench_exchange [round_trips]
#include "ka_api.h"
#include "support/test_peer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;
const std::string request = R"({"command":"get_v"})";
const std::string reply = R"({"command":"get_v","v":9})";

// A minimal controller: answers the opening queries and "get_v" on every
// connection, one blocking read loop per connection.
class echo_peer {
  public:
    echo_peer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        ::listen(listener_, 4);
        socklen_t len = sizeof addr;
        ::getsockname(listener_, reinterpret_cast<sockaddr *>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        acceptor_ = std::thread([this] {
            for (;;) {
                int fd = ::accept(listener_, nullptr, nullptr);
                if (fd < 0) return;
                int one = 1;
                ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                fds_.push_back(fd);
                serve_.emplace_back([fd] { serve(fd); });
            }
        });
    }
    ~echo_peer() {
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        acceptor_.join();
        for (int fd : fds_)
            ::shutdown(fd, SHUT_RDWR);
        for (auto &t : serve_)
            t.join();
        for (int fd : fds_)
            ::close(fd);
    }
    int port() const { return port_; }

  private:
    static void serve(int fd) {
        std::string buffer;
        char chunk[4096];
        for (;;) {
            ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0) return;
            buffer.append(chunk, static_cast<size_t>(n));
            size_t end;
            while ((end = buffer.find("\r\n")) != std::string::npos) {
                std::string line = buffer.substr(0, end);
                buffer.erase(0, end + 2);
                std::string answer = line == request ? reply : answer_opening(line);
                answer += "\r\n";
                ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
        }
    }
    static std::string answer_opening(const std::string &line) {
        cJSON *doc = cJSON_Parse(line.c_str());
        const cJSON *command = cJSON_GetObjectItem(doc, "command");
        std::string answer = cJSON_IsString(command)
                                 ? ka_test::standard_reply(command->valuestring, "KIVO-B", 6)
                                 : "{}";
        cJSON_Delete(doc);
        return answer;
    }

    int listener_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    std::vector<int> fds_;
    std::vector<std::thread> serve_;
};

struct stats {
    double p50, p99;
};

stats percentiles(std::vector<double> &us) {
    std::sort(us.begin(), us.end());
    return {us[us.size() / 2], us[us.size() * 99 / 100]};
}

std::vector<double> library_round_trips(ka_robot_handle *arm, int count) {
    std::vector<double> us;
    us.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        int v = 0;
        auto start = clock_type::now();
        int r = ka_get_data_common(arm, &v, "get_v", "v");
        auto stop = clock_type::now();
        if (r != 0 || v != 9) std::fprintf(stderr, "unexpected result %d\n", r);
        us.push_back(std::chrono::duration<double, std::micro>(stop - start).count());
    }
    return us;
}

std::vector<double> raw_round_trips(int port, int count) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    std::string line = request + "\r\n";
    std::vector<double> us;
    us.reserve(static_cast<size_t>(count));
    char buffer[256];
    for (int i = 0; i < count; ++i) {
        auto start = clock_type::now();
        ::send(fd, line.data(), line.size(), 0);
        size_t got = 0;
        while (got < 2 || std::memcmp(buffer + got - 2, "\r\n", 2) != 0) {
            ssize_t n = ::recv(fd, buffer + got, sizeof buffer - got, 0);
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        us.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - start).count());
    }
    ::close(fd);
    return us;
}

} // namespace

int main(int argc, char **argv) {
    int count = argc > 1 ? std::atoi(argv[1]) : 20000;
    echo_peer peer;
    ka_init(KA_THREAD_MODE_DUAL);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    if (!arm || arm->id != 1) {
        std::fprintf(stderr, "could not open the arm\n");
        return 1;
    }
    // Warm up both paths, then interleave halves so drift hits both alike.
    library_round_trips(arm, 1000);
    raw_round_trips(peer.port(), 1000);
    std::vector<double> lib = library_round_trips(arm, count / 2);
    std::vector<double> raw = raw_round_trips(peer.port(), count / 2);
    std::vector<double> lib2 = library_round_trips(arm, count / 2);
    std::vector<double> raw2 = raw_round_trips(peer.port(), count / 2);
    lib.insert(lib.end(), lib2.begin(), lib2.end());
    raw.insert(raw.end(), raw2.begin(), raw2.end());
    stats l = percentiles(lib), r = percentiles(raw);
    std::printf("%-28s %10s %10s\n", "round trip (us)", "p50", "p99");
    std::printf("%-28s %10.1f %10.1f\n", "raw socket ping-pong", r.p50, r.p99);
    std::printf("%-28s %10.1f %10.1f\n", "ka_get_data_common", l.p50, l.p99);
    std::printf("%-28s %10.2f %10.2f\n", "ratio library / raw", l.p50 / r.p50, l.p99 / r.p99);
    ka_destory();
    return 0;
}
