// The controller simulator under load, in one run:
//  1. a query's round trip through the library against the simulator, next
//     to the same query against the scripted test peer;
//  2. completion wake-up: from the simulator writing a motion's completion
//     report to the return of the library's blocking call, next to (1);
//  3. control-cycle lateness with five arms pushing every cycle and one
//     client per arm querying in a loop.
//
//   ./build/default/bench/bench_sim [load_seconds] [round_trips] [motions]
//   (defaults 60, 20000, 1000)
#include "ka_api.h"
#include "sim/simulator.h"
#include "support/test_peer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

struct stats {
    double p50, p99;
};

stats percentiles(std::vector<double> us) {
    std::sort(us.begin(), us.end());
    return {us[us.size() / 2], us[us.size() * 99 / 100]};
}

double micros(clock_type::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
}

std::vector<double> query_round_trips(ka_robot_handle *arm, int count) {
    std::vector<double> us;
    us.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        float joints[7] = {};
        const auto start = clock_type::now();
        const int r = ka_get_joint_degree(arm, joints);
        us.push_back(micros(clock_type::now() - start));
        if (r != 0) std::fprintf(stderr, "query failed: %d\n", r);
    }
    return us;
}

// When the simulator last wrote a completion report (nanoseconds of the
// steady clock), set from its writer thread.
std::atomic<long long> report_written_ns{0};

// Blocking joint moves of a hundredth of a degree, back and forth: each
// ends within a few control cycles and reports its completion.
std::vector<double> completion_wake_ups(ka_robot_handle *arm, int count) {
    std::vector<double> us;
    us.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const float joints[7] = {i % 2 ? 0.0f : 0.01f, 0, 0, 0, 0, 0, 0};
        report_written_ns = 0;
        const int r = ka_movej(arm, joints, 100, 0, 0, 1);
        const auto returned = clock_type::now().time_since_epoch();
        // The hook runs once the send has finished, which may be after the
        // library has already returned.
        long long written = 0;
        for (const auto limit = clock_type::now() + std::chrono::milliseconds(100);
             (written = report_written_ns.load()) == 0 && clock_type::now() < limit;)
            std::this_thread::yield();
        if (r != 0 || written == 0) {
            std::fprintf(stderr, "motion %d: code %d, report seen %d\n", i, r, written != 0);
            continue;
        }
        us.push_back(micros(returned - std::chrono::duration_cast<clock_type::duration>(
                                           std::chrono::nanoseconds(written))));
    }
    return us;
}

// Receives and counts the datagrams every arm pushes.
class datagram_sink {
  public:
    datagram_sink() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        socklen_t length = sizeof address;
        ::getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length);
        port_ = ntohs(address.sin_port);
        reader_ = std::thread([this] {
            char buffer[2048];
            while (!stop_) {
                pollfd p{fd_, POLLIN, 0};
                if (::poll(&p, 1, 100) == 1 && ::recv(fd_, buffer, sizeof buffer, 0) > 0) ++count_;
            }
        });
    }
    ~datagram_sink() {
        stop_ = true;
        reader_.join();
        ::close(fd_);
    }
    int port() const { return port_; }
    long long count() const { return count_; }

  private:
    int fd_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<long long> count_{0};
    std::thread reader_;
};

void compare_round_trips_and_wake_ups(int round_trips, int motions) {
    sim::simulator_options o;
    o.port = 0;
    o.speed = 1.0;
    o.line_written = [](int, const std::string &line, clock_type::time_point at) {
        if (line.find("current_trajectory_state") != std::string::npos)
            report_written_ns =
                std::chrono::duration_cast<std::chrono::nanoseconds>(at.time_since_epoch()).count();
    };
    sim::simulator simulator(o);
    const int sim_port = simulator.start().at(0);
    ka_test::test_peer peer;
    ka_test::serve_standard_arm(peer);
    peer.on("get_joint_degree",
            {ka_test::reply(R"({"command":"joint_degree","joint":[0,0,0,0,0,0]})")});

    ka_init(KA_THREAD_MODE_DUAL);
    ka_robot_handle *simulated = ka_create_robot_arm("127.0.0.1", sim_port);
    ka_robot_handle *scripted = ka_create_robot_arm("127.0.0.1", peer.port());
    if (!simulated || simulated->id < 1 || !scripted || scripted->id < 1) {
        std::fprintf(stderr, "could not open the arms\n");
        std::exit(1);
    }
    // Warm up both, then interleave halves so drift hits both alike.
    query_round_trips(simulated, 1000);
    query_round_trips(scripted, 1000);
    std::vector<double> on_sim = query_round_trips(simulated, round_trips / 2);
    std::vector<double> on_peer = query_round_trips(scripted, round_trips / 2);
    std::vector<double> more = query_round_trips(simulated, round_trips / 2);
    on_sim.insert(on_sim.end(), more.begin(), more.end());
    more = query_round_trips(scripted, round_trips / 2);
    on_peer.insert(on_peer.end(), more.begin(), more.end());
    const std::vector<double> wake_ups = completion_wake_ups(simulated, motions);
    ka_destory();

    const stats s = percentiles(on_sim), p = percentiles(on_peer), w = percentiles(wake_ups);
    std::printf("%-44s %10s %10s\n", "microseconds", "p50", "p99");
    std::printf("%-44s %10.1f %10.1f\n", "query round trip, test peer", p.p50, p.p99);
    std::printf("%-44s %10.1f %10.1f\n", "query round trip, simulator", s.p50, s.p99);
    std::printf("%-44s %10.2f %10.2f\n", "ratio simulator / test peer", s.p50 / p.p50,
                s.p99 / p.p99);
    std::printf("%-44s %10.1f %10.1f\n", "completion report written -> blocking return", w.p50,
                w.p99);
    std::printf("%-44s %10.2f %10.2f\n", "ratio wake-up / simulator round trip", w.p50 / s.p50,
                w.p99 / s.p99);
    std::printf("(%zu of %d motions measured)\n\n", wake_ups.size(), motions);
}

void cycle_lateness_under_load(int seconds) {
    constexpr int arms = 5;
    datagram_sink sink;
    sim::simulator_options o;
    o.port = 0;
    o.arms = arms;
    sim::simulator simulator(o);
    const std::vector<int> ports = simulator.start();

    ka_init(KA_THREAD_MODE_DUAL);
    std::vector<ka_robot_handle *> handles;
    for (int port : ports) {
        ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", port);
        if (!arm || arm->id < 1) {
            std::fprintf(stderr, "could not open the arm on port %d\n", port);
            std::exit(1);
        }
        ka_realtime_push_config_t config{};
        config.enable = true;
        config.cycle = 1; // every 5 ms cycle
        config.port = sink.port();
        std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
        config.custom = {1, 0, 0, 1};
        if (ka_set_realtime_push(arm, config) != 0) std::fprintf(stderr, "push not set\n");
        handles.push_back(arm);
    }

    std::atomic<bool> done{false};
    std::atomic<long long> queries{0}, failures{0};
    std::vector<std::thread> clients;
    simulator.reset_lateness();
    const long long datagrams_before = sink.count();
    const auto start = clock_type::now();
    for (ka_robot_handle *arm : handles)
        clients.emplace_back([&, arm] {
            while (!done) {
                float joints[7] = {};
                if (ka_get_joint_degree(arm, joints) == 0)
                    ++queries;
                else
                    ++failures;
            }
        });
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    done = true;
    for (auto &client : clients)
        client.join();
    const double elapsed = std::chrono::duration<double>(clock_type::now() - start).count();
    const sim::cycle_lateness late = simulator.lateness();
    const long long datagrams = sink.count() - datagrams_before;
    ka_destory();

    std::printf("%d arms pushing every cycle, %d querying clients, %.0f s\n", arms, arms, elapsed);
    std::printf("%-44s %10s %10s %10s\n", "control cycle lateness (ms)", "p50", "p99", "max");
    std::printf("%-44s %10.2f %10.2f %10.2f\n", "", late.p50_ms, late.p99_ms, late.max_ms);
    std::printf("cycles later than one period: %llu\n",
                static_cast<unsigned long long>(late.over_period));
    std::printf("cycles %llu (%.0f per s), datagrams %lld (%.0f per s), queries %lld (%.0f per s), "
                "failed %lld\n",
                static_cast<unsigned long long>(late.cycles), late.cycles / elapsed, datagrams,
                datagrams / elapsed, queries.load(), queries / elapsed, failures.load());
}

} // namespace

int main(int argc, char **argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    const int round_trips = argc > 2 ? std::atoi(argv[2]) : 20000;
    const int motions = argc > 3 ? std::atoi(argv[3]) : 1000;
    if (seconds < 1 || round_trips < 2 || motions < 1) {
        std::fprintf(stderr, "usage: bench_sim [load_seconds] [round_trips] [motions]\n");
        return 2;
    }
    compare_round_trips_and_wake_ups(round_trips, motions);
    cycle_lateness_under_load(seconds);
    return 0;
}
