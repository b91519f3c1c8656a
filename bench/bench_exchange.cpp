// Round trip of one query through the library (ka_get_data_common: pack,
// send, receive thread, reply queue, wake-up, parse) next to a raw socket
// ping-pong of the same bytes against the same local peer, in one run. The
// raw client is timed twice: blocking in recv, and waiting in poll before
// each recv as the library's receive thread does. The sockets are the
// simulator's portable ones, so the same program runs on Linux and, built
// for Windows, over Winsock (WSAPoll) under Wine or on Windows itself.
//
//   ./build/default/bench/bench_exchange [round_trips]
//   bench_exchange.exe [round_trips]          (windows build, KA_BUILD_BENCH=ON)
#include "ka_api.h"
#include "sim/net/net.h"
#include "support/test_peer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace net = sim::net;
using clock_type = std::chrono::steady_clock;
const std::string request = R"({"command":"get_v"})";
const std::string reply = R"({"command":"get_v","v":9})";

// A minimal controller: answers the opening queries and "get_v" on every
// connection, one blocking read loop per connection. A connection's loop
// ends when its client closes or the peer is destroyed.
class echo_peer {
  public:
    echo_peer() {
        listener_ = net::open_socket(net::transport::tcp);
        net::set_reuse_address(listener_.get());
        if (!net::bind_to(listener_.get(), {net::loopback_address, 0}) ||
            !net::listen_on(listener_.get(), 4))
            return;
        port_ = net::local_endpoint(listener_.get()).value_or(net::endpoint{}).port;
        acceptor_ = std::thread([this] { accept_loop(); });
    }
    ~echo_peer() {
        stop_.signal();
        if (acceptor_.joinable()) acceptor_.join();
        for (const net::unique_socket &connection : connections_)
            net::shutdown_both(connection.get());
        for (std::thread &thread : serve_)
            thread.join();
    }
    echo_peer(const echo_peer &) = delete;
    echo_peer &operator=(const echo_peer &) = delete;

    int port() const { return port_; }

  private:
    void accept_loop() {
        for (;;) {
            std::array<net::poll_entry, 2> entries{
                {{listener_.get(), net::readable, 0}, {stop_.handle(), net::readable, 0}}};
            if (net::poll(entries, net::wait_forever) < 0 || entries[1].ready) return;
            net::unique_socket connection = net::accept_from(listener_.get());
            if (!connection) {
                if (net::accept_may_retry()) continue;
                return;
            }
            net::set_no_delay(connection.get());
            const net::socket_t handle = connection.get();
            connections_.push_back(std::move(connection));
            serve_.emplace_back([handle] { serve(handle); });
        }
    }
    static void serve(net::socket_t socket) {
        std::string buffer;
        char chunk[4096];
        for (;;) {
            std::ptrdiff_t n = net::receive_some(socket, chunk, sizeof chunk);
            if (n <= 0) return;
            buffer.append(chunk, static_cast<size_t>(n));
            size_t end;
            while ((end = buffer.find("\r\n")) != std::string::npos) {
                std::string line = buffer.substr(0, end);
                buffer.erase(0, end + 2);
                std::string answer = line == request ? reply : answer_opening(line);
                answer += "\r\n";
                if (net::send_some(socket, answer.data(), answer.size()) < 0) return;
            }
        }
    }
    static std::string answer_opening(const std::string &line) {
        std::unique_ptr<cJSON, decltype(&cJSON_Delete)> doc(cJSON_Parse(line.c_str()),
                                                            cJSON_Delete);
        const cJSON *command = cJSON_GetObjectItem(doc.get(), "command");
        return cJSON_IsString(command) ? ka_test::standard_reply(command->valuestring, "KIVO-B", 6)
                                       : "{}";
    }

    net::unique_socket listener_;
    int port_ = 0;
    net::wake_channel stop_;
    std::thread acceptor_;
    // Touched by the acceptor only, and by the destructor after it has ended.
    std::vector<net::unique_socket> connections_;
    std::vector<std::thread> serve_;
};

struct stats {
    double p50, p99;
};

stats percentiles(std::vector<double> &us) {
    std::sort(us.begin(), us.end());
    return {us[us.size() / 2], us[us.size() * 99 / 100]};
}

double micros_since(clock_type::time_point start) {
    return std::chrono::duration<double, std::micro>(clock_type::now() - start).count();
}

int failures = 0;

std::vector<double> library_round_trips(ka_robot_handle *arm, int count) {
    std::vector<double> us;
    us.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        int v = 0;
        auto start = clock_type::now();
        int r = ka_get_data_common(arm, &v, "get_v", "v");
        us.push_back(micros_since(start));
        if (r != 0 || v != 9) ++failures;
    }
    return us;
}

// How the raw client waits for the reply's bytes.
enum class raw_wait { blocking_recv, poll_then_recv };

std::vector<double> raw_round_trips(int port, int count, raw_wait wait) {
    net::unique_socket socket = net::open_socket(net::transport::tcp);
    net::set_no_delay(socket.get());
    if (!net::connect_to(socket.get(), {net::loopback_address, static_cast<uint16_t>(port)})) {
        failures += count;
        return std::vector<double>(static_cast<size_t>(count), 0.0);
    }
    const std::string line = request + "\r\n";
    const size_t expected = reply.size() + 2;
    std::vector<double> us;
    us.reserve(static_cast<size_t>(count));
    char buffer[256];
    for (int i = 0; i < count; ++i) {
        auto start = clock_type::now();
        if (net::send_some(socket.get(), line.data(), line.size()) !=
            static_cast<std::ptrdiff_t>(line.size()))
            ++failures;
        size_t got = 0;
        while (got < 2 || std::memcmp(buffer + got - 2, "\r\n", 2) != 0) {
            if (wait == raw_wait::poll_then_recv) {
                std::array<net::poll_entry, 1> entry{{{socket.get(), net::readable, 0}}};
                if (net::poll(entry, net::wait_forever) <= 0) break;
            }
            std::ptrdiff_t n = net::receive_some(socket.get(), buffer + got, sizeof buffer - got);
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        us.push_back(micros_since(start));
        if (got != expected) ++failures;
    }
    return us;
}

void print_row(const char *name, const stats &s) {
    std::printf("%-32s %10.1f %10.1f\n", name, s.p50, s.p99);
}

} // namespace

int main(int argc, char **argv) {
    int count = argc > 1 ? std::atoi(argv[1]) : 20000;
    if (count < 2) count = 2;
    echo_peer peer;
    if (peer.port() == 0) {
        std::fprintf(stderr, "could not listen on the loopback: %s\n",
                     net::last_error().message().c_str());
        return 1;
    }
    ka_init(KA_THREAD_MODE_DUAL);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    if (!arm || arm->id != 1) {
        std::fprintf(stderr, "could not open the arm\n");
        return 1;
    }
    // Warm up every path, then interleave halves so drift hits all alike.
    library_round_trips(arm, 1000);
    raw_round_trips(peer.port(), 1000, raw_wait::blocking_recv);
    raw_round_trips(peer.port(), 1000, raw_wait::poll_then_recv);
    failures = 0;
    std::vector<double> lib, raw, polled;
    for (int half = 0; half < 2; ++half) {
        std::vector<double> l = library_round_trips(arm, count / 2);
        std::vector<double> r = raw_round_trips(peer.port(), count / 2, raw_wait::blocking_recv);
        std::vector<double> p = raw_round_trips(peer.port(), count / 2, raw_wait::poll_then_recv);
        lib.insert(lib.end(), l.begin(), l.end());
        raw.insert(raw.end(), r.begin(), r.end());
        polled.insert(polled.end(), p.begin(), p.end());
    }
    stats l = percentiles(lib), r = percentiles(raw), p = percentiles(polled);
    std::printf("%-32s %10s %10s\n", "round trip (us)", "p50", "p99");
    print_row("raw socket ping-pong", r);
    print_row("raw ping-pong, poll then recv", p);
    print_row("ka_get_data_common", l);
    std::printf("%-32s %10.2f %10.2f\n", "ratio library / raw", l.p50 / r.p50, l.p99 / r.p99);
    std::printf("%-32s %10.2f %10.2f\n", "ratio library / poll then recv", l.p50 / p.p50,
                l.p99 / p.p99);
    ka_destory();
    if (failures != 0) {
        std::fprintf(stderr, "%d round trips gave a wrong reply\n", failures);
        return 1;
    }
    return 0;
}
