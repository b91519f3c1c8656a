// Five arms queried at once from several threads each (ka_get_data_common,
// receive thread, reply queue), against five local scripted controllers that
// answer every query with a value of its own. Prints queries per second and
// the p50 / p99 / p99.9 round trip, and counts replies that were lost or not
// the caller's own.
//
//   ./build/default/bench/bench_load [queries_per_thread] [threads_per_arm] [mode]
#include "ka_api.h"
#include "support/test_peer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr int arm_count = KA_MAX_ARMS;
constexpr int max_threads_per_arm = 16;
constexpr int arm_unit = 10'000'000; // value = (arm + 1) * arm_unit + thread * thread_unit + n
constexpr int thread_unit = 100'000;

std::string query_name(int thread) { return "get_load_" + std::to_string(thread); }

struct controller {
    std::array<int, max_threads_per_arm> answered{}; // guarded by the peer's lock
    ka_test::test_peer peer;

    controller(int arm, int threads) {
        ka_test::serve_standard_arm(peer);
        for (int t = 0; t < threads; ++t) {
            const std::string name = query_name(t);
            peer.on_each(name, [this, arm, t, name](const ka_test::received_line &) {
                int value =
                    (arm + 1) * arm_unit + t * thread_unit + ++answered[static_cast<size_t>(t)];
                return std::vector<ka_test::action>{ka_test::reply(
                    R"({"command":")" + name + R"(","v":)" + std::to_string(value) + "}")};
            });
        }
    }
};

} // namespace

int main(int argc, char **argv) {
    const int queries = argc > 1 ? std::clamp(std::atoi(argv[1]), 1, thread_unit - 1) : 10'000;
    const int threads = argc > 2 ? std::clamp(std::atoi(argv[2]), 1, max_threads_per_arm) : 4;
    const int mode = argc > 3 ? std::atoi(argv[3]) : KA_THREAD_MODE_DUAL;
    ka_init(mode);
    std::vector<std::unique_ptr<controller>> controllers;
    std::vector<ka_robot_handle *> arms;
    for (int a = 0; a < arm_count; ++a) {
        controllers.push_back(std::make_unique<controller>(a, threads));
        ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", controllers.back()->peer.port());
        if (!arm || arm->id != a + 1) {
            std::fprintf(stderr, "could not open arm %d\n", a + 1);
            return 1;
        }
        arms.push_back(arm);
    }

    std::vector<std::vector<std::uint32_t>> latencies(static_cast<size_t>(arm_count * threads));
    std::atomic<int> wrong{0};
    std::latch go(1);
    std::vector<std::thread> workers;
    for (int a = 0; a < arm_count; ++a)
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([&, a, t] {
                auto &mine = latencies[static_cast<size_t>(a * threads + t)];
                mine.reserve(static_cast<size_t>(queries));
                const std::string name = query_name(t);
                go.wait();
                for (int i = 1; i <= queries; ++i) {
                    int value = 0;
                    auto sent = clock_type::now();
                    int code =
                        ka_get_data_common(arms[static_cast<size_t>(a)], &value, name.c_str(), "v");
                    mine.push_back(static_cast<std::uint32_t>(
                        std::chrono::duration_cast<std::chrono::microseconds>(clock_type::now() -
                                                                              sent)
                            .count()));
                    if (code != 0 || value != (a + 1) * arm_unit + t * thread_unit + i) ++wrong;
                }
            });
    auto start = clock_type::now();
    go.count_down();
    for (auto &worker : workers)
        worker.join();
    const double seconds = std::chrono::duration<double>(clock_type::now() - start).count();
    ka_destory();

    std::vector<std::uint32_t> all;
    for (const auto &v : latencies)
        all.insert(all.end(), v.begin(), v.end());
    std::sort(all.begin(), all.end());
    auto at = [&](double p) {
        return all[static_cast<size_t>(p * static_cast<double>(all.size() - 1))];
    };
    std::printf("mode %d, %d arms x %d threads x %d queries: %.0f queries/s, round trip p50 %u us, "
                "p99 %u us, p99.9 %u us, %d lost or not the caller's own\n",
                mode, arm_count, threads, queries, static_cast<double>(all.size()) / seconds,
                at(0.50), at(0.99), at(0.999), wrong.load());
    return wrong.load() == 0 ? 0 : 1;
}
