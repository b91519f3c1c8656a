// Many threads on many arms: no reply lost, crossed between arms or threads,
// or left over from an earlier request; blocked calls released at once by a
// delete or a destroy; the library called again from inside its own
// callbacks.
#include "support/arm_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <ostream>
#include <thread>
#include <vector>

using namespace ka_test;
using namespace std::chrono_literals;
using clock_type = std::chrono::steady_clock;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
#else
constexpr bool sanitized = false;
#endif

#if defined(__OPTIMIZE__)
constexpr bool optimised = !sanitized;
#else
constexpr bool optimised = false;
#endif

constexpr int arm_count = KA_MAX_ARMS;
constexpr int threads_per_arm = 4;
// A reply value is (arm + 1) * 10,000,000 + thread * 1,000,000 + sequence, so
// the sequence has room for 999,999 queries per thread.
constexpr int arm_unit = 10'000'000;
constexpr int thread_unit = 1'000'000;
// A thread that has lost this many replies stops: the run has failed already
// and each further loss would cost a full time-out.
constexpr int give_up_after = 10;

// Queries per thread: KA_LOAD_QUERIES when set, else 10,000 in an optimised
// build and 500 without optimisation or under a sanitizer.
int queries_per_thread() {
    if (const char *text = std::getenv("KA_LOAD_QUERIES")) {
        int n = std::atoi(text);
        if (n > 0) return std::min(n, thread_unit - 1);
    }
    return optimised ? 10'000 : 500;
}

std::string query_name(int thread) { return "get_load_" + std::to_string(thread); }

// The arm's controller: each thread's query has its own name, and each answer
// carries the arm, the thread and the request's sequence number on that name.
struct counting_controller {
    std::array<int, threads_per_arm> answered{}; // guarded by the peer's lock
    test_peer peer;

    explicit counting_controller(int arm) {
        serve_standard_arm(peer);
        for (int t = 0; t < threads_per_arm; ++t) {
            const std::string name = query_name(t);
            peer.on_each(name, [this, arm, t, name](const received_line &) {
                int value =
                    (arm + 1) * arm_unit + t * thread_unit + ++answered[static_cast<size_t>(t)];
                return std::vector<action>{reply(line(name, "\"v\":" + std::to_string(value)))};
            });
        }
    }
};

struct tally {
    int lost = 0;    // no reply (any non-zero code)
    int crossed = 0; // another arm's or thread's reply
    int stale = 0;   // this thread's reply, but not to this request
    std::vector<std::uint32_t> latency_us;
};

struct load_run : ::testing::TestWithParam<int> {
    void TearDown() override { ka_destory(); }
};

} // namespace

TEST_P(load_run, five_arms_four_threads_each_get_every_reply_once_and_their_own) {
    const int queries = queries_per_thread();
    ka_init(GetParam());
    std::vector<std::unique_ptr<counting_controller>> controllers;
    std::vector<ka_robot_handle *> arms;
    for (int a = 0; a < arm_count; ++a) {
        controllers.push_back(std::make_unique<counting_controller>(a));
        arms.push_back(ka_create_robot_arm("127.0.0.1", controllers.back()->peer.port()));
        ASSERT_NE(arms.back(), nullptr);
        ASSERT_EQ(arms.back()->id, a + 1);
    }

    std::vector<tally> tallies(arm_count * threads_per_arm);
    std::mutex start_mutex;
    std::condition_variable start_cv;
    bool go = false;
    std::vector<std::thread> threads;
    for (int a = 0; a < arm_count; ++a)
        for (int t = 0; t < threads_per_arm; ++t)
            threads.emplace_back([&, a, t] {
                tally &mine = tallies[static_cast<size_t>(a * threads_per_arm + t)];
                mine.latency_us.reserve(static_cast<size_t>(queries));
                const std::string name = query_name(t);
                const int own = (a + 1) * arm_unit + t * thread_unit;
                {
                    std::unique_lock<std::mutex> lock(start_mutex);
                    start_cv.wait(lock, [&] { return go; });
                }
                for (int i = 1; i <= queries && mine.lost < give_up_after; ++i) {
                    int value = 0;
                    auto sent = clock_type::now();
                    int code =
                        ka_get_data_common(arms[static_cast<size_t>(a)], &value, name.c_str(), "v");
                    auto took = clock_type::now() - sent;
                    mine.latency_us.push_back(static_cast<std::uint32_t>(
                        std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
                    if (code != 0)
                        ++mine.lost;
                    else if (value - value % thread_unit != own)
                        ++mine.crossed;
                    else if (value % thread_unit != i)
                        ++mine.stale;
                }
            });
    auto start = clock_type::now();
    {
        std::lock_guard<std::mutex> lock(start_mutex);
        go = true;
    }
    start_cv.notify_all();
    for (auto &thread : threads)
        thread.join();
    const double seconds = std::chrono::duration<double>(clock_type::now() - start).count();

    tally all;
    for (const tally &t : tallies) {
        all.lost += t.lost;
        all.crossed += t.crossed;
        all.stale += t.stale;
        all.latency_us.insert(all.latency_us.end(), t.latency_us.begin(), t.latency_us.end());
    }
    EXPECT_EQ(all.lost, 0);
    EXPECT_EQ(all.crossed, 0);
    EXPECT_EQ(all.stale, 0);
    ASSERT_EQ(all.latency_us.size(), static_cast<size_t>(arm_count * threads_per_arm * queries));

    std::sort(all.latency_us.begin(), all.latency_us.end());
    auto percentile = [&](double p) {
        return all
            .latency_us[static_cast<size_t>(p * static_cast<double>(all.latency_us.size() - 1))];
    };
    std::printf("load: mode %d, %d arms x %d threads x %d queries%s: %.0f queries/s, p50 %u us, "
                "p99 %u us\n",
                GetParam(), arm_count, threads_per_arm, queries,
                optimised ? "" : " (unoptimised or sanitized build)",
                static_cast<double>(all.latency_us.size()) / seconds, percentile(0.50),
                percentile(0.99));
}

INSTANTIATE_TEST_SUITE_P(modes, load_run,
                         ::testing::Values(KA_THREAD_MODE_DUAL, KA_THREAD_MODE_TRIPLE),
                         [](const auto &info) {
                             return info.param == KA_THREAD_MODE_DUAL ? "dual" : "triple";
                         });

namespace {

// The longest a blocked call may take to return once its arm goes away (it
// takes about 1 ms). A sanitizer slows every thread that takes part several
// times over, so there the bound is widened; a missed wake-up would still
// show as the full 1000 ms time-out.
constexpr auto release_bound = sanitized ? 50ms : 10ms;

struct blocked_call {
    std::thread thread;
    int code = 0;
    clock_type::time_point returned;
};

// Each released call logs its failure; what is measured is the release, not
// the writes to standard error.
struct release_run : ::testing::TestWithParam<int> {
    void SetUp() override { ka_set_log_call_back(nullptr, 4); }
    void TearDown() override {
        ka_destory();
        ka_set_log_call_back(nullptr, 3);
    }
};

} // namespace

// Every peer stays silent, so each call waits in its 1000 ms time-out until
// the delete or the destroy releases it.
TEST_P(release_run, blocked_calls_return_within_10_ms_of_a_delete_or_a_destroy) {
    ka_init(GetParam());
    std::vector<std::unique_ptr<test_peer>> peers;
    std::vector<ka_robot_handle *> arms;
    for (int a = 0; a < arm_count; ++a) {
        peers.push_back(std::make_unique<test_peer>());
        serve_standard_arm(*peers.back());
        arms.push_back(ka_create_robot_arm("127.0.0.1", peers.back()->port()));
        ASSERT_NE(arms.back(), nullptr);
        ASSERT_EQ(arms.back()->id, a + 1);
        peers.back()->clear_lines();
    }
    std::vector<blocked_call> calls(arm_count * threads_per_arm);
    // Should a check below fail early, the calls are still released and joined.
    struct release_on_exit {
        std::vector<blocked_call> &calls;
        ~release_on_exit() {
            ka_destory();
            for (auto &call : calls)
                if (call.thread.joinable()) call.thread.join();
        }
    } release{calls};
    for (int a = 0; a < arm_count; ++a)
        for (int t = 0; t < threads_per_arm; ++t) {
            blocked_call &call = calls[static_cast<size_t>(a * threads_per_arm + t)];
            call.thread = std::thread([&call, arm = arms[static_cast<size_t>(a)], t] {
                call.code = ka_set_data_common(arm, t, "hold", "k");
                call.returned = clock_type::now();
            });
        }
    // Each request has reached its controller: every call is waiting.
    for (auto &peer : peers)
        ASSERT_TRUE(peer->wait_for_lines(threads_per_arm, 2s)) << "not every call was sent";

    auto check = [&](size_t first, size_t last, clock_type::time_point released, const char *by) {
        for (size_t i = first; i < last; ++i) {
            calls[i].thread.join();
            // Ended by the connection going away, as any wait whose arm is closed.
            EXPECT_EQ(calls[i].code, -2) << by << ", call " << i;
            auto latency = calls[i].returned - released;
            EXPECT_LE(latency, release_bound)
                << by << ", call " << i << " returned after "
                << std::chrono::duration<double, std::milli>(latency).count() << " ms";
        }
    };
    auto deleted = clock_type::now();
    EXPECT_EQ(ka_delete_robot_arm(arms[0]), 0);
    check(0, threads_per_arm, deleted, "delete");
    auto destroyed = clock_type::now();
    EXPECT_EQ(ka_destory(), 0);
    check(threads_per_arm, calls.size(), destroyed, "destroy");
}

INSTANTIATE_TEST_SUITE_P(modes, release_run,
                         ::testing::Values(KA_THREAD_MODE_DUAL, KA_THREAD_MODE_TRIPLE),
                         [](const auto &info) {
                             return info.param == KA_THREAD_MODE_DUAL ? "dual" : "triple";
                         });

// ---- calling the library from inside its callbacks ----

namespace {

enum class reentry { none, destroy, delete_arm, init };
enum class trigger { event, realtime };

std::atomic<reentry> pending{reentry::none};
std::atomic<ka_robot_handle *> reentry_target{nullptr};
std::mutex callback_mutex;
std::condition_variable callback_cv;
int reentries_done = 0;
int events_seen = 0;
int states_seen = 0;

void reenter() {
    switch (pending.exchange(reentry::none)) {
    case reentry::none:
        return;
    case reentry::destroy:
        ka_destory();
        break;
    case reentry::delete_arm:
        ka_delete_robot_arm(reentry_target.load());
        break;
    case reentry::init:
        ka_init(KA_THREAD_MODE_TRIPLE);
        break;
    }
    // Notified under the lock: after a destroy from its own callback the
    // library's thread is detached, and only the test's next lock of this
    // mutex orders its last touch of the condition variable before exit.
    std::lock_guard<std::mutex> lock(callback_mutex);
    ++reentries_done;
    callback_cv.notify_all();
}

void on_event(ka_event_push_data_t) {
    {
        std::lock_guard<std::mutex> lock(callback_mutex);
        ++events_seen;
        callback_cv.notify_all();
    }
    reenter();
}

void on_state(ka_realtime_arm_joint_state_t) {
    {
        std::lock_guard<std::mutex> lock(callback_mutex);
        ++states_seen;
        callback_cv.notify_all();
    }
    reenter();
}

template <typename Predicate> bool wait_callbacks(Predicate done) {
    std::unique_lock<std::mutex> lock(callback_mutex);
    return callback_cv.wait_for(lock, 5s, done);
}

void send_datagram(int port, const std::string &text) {
    namespace net = sim::net;
    net::unique_socket socket = net::open_socket(net::transport::udp);
    net::send_datagram(socket.get(), text, {net::loopback_address, static_cast<uint16_t>(port)});
}

// A standard arm whose controller pushes its state to push_port.
void serve_pushing_arm(test_peer &peer, int push_port) {
    serve_standard_arm(peer);
    peer.on("get_realtime_push",
            {reply(R"({"command":"get_realtime_push","cycle":1,"enable":true,"port":)" +
                   std::to_string(push_port) + R"(,"ip":"127.0.0.1","custom":{}})")});
    peer.on("get_v", {reply(line("get_v", "\"v\":9"))});
}

int get_v(ka_robot_handle *arm) {
    int v = 0;
    int code = ka_get_data_common(arm, &v, "get_v", "v");
    return code == 0 ? v : code;
}

// Fires the callback of the given kind once more; true when it ran.
bool fire(trigger how, test_peer &peer, int push_port) {
    std::unique_lock<std::mutex> lock(callback_mutex);
    const int events = events_seen;
    const int states = states_seen;
    lock.unlock();
    if (how == trigger::event)
        peer.push({reply(completion_report())});
    else
        send_datagram(push_port, R"({"arm_err":0})");
    return wait_callbacks(
        [&] { return how == trigger::event ? events_seen > events : states_seen > states; });
}

struct reentry_row {
    const char *name;
    trigger from;
    reentry call;
};

void PrintTo(const reentry_row &row, std::ostream *os) { *os << row.name; }

const reentry_row reentry_rows[] = {
    {"destroy_from_event", trigger::event, reentry::destroy},
    {"delete_from_event", trigger::event, reentry::delete_arm},
    {"init_from_event", trigger::event, reentry::init},
    {"destroy_from_realtime", trigger::realtime, reentry::destroy},
    {"delete_from_realtime", trigger::realtime, reentry::delete_arm},
    {"init_from_realtime", trigger::realtime, reentry::init},
};

struct reentrant : ::testing::TestWithParam<reentry_row> {
    void TearDown() override {
        pending = reentry::none;
        ka_destory();
    }
};

} // namespace

TEST_P(reentrant, a_callback_closing_the_library_or_its_arm_neither_hangs_nor_breaks_it) {
    const reentry_row &row = GetParam();
    const int push_port = unused_local_port(sim::net::transport::udp);
    ka_init(KA_THREAD_MODE_TRIPLE);
    ka_get_arm_event_call_back(on_event);
    ka_realtime_arm_state_call_back(on_state);
    test_peer peer;
    serve_pushing_arm(peer, push_port);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(arm, nullptr);
    ASSERT_EQ(arm->id, 1);

    int done_before = 0;
    {
        std::lock_guard<std::mutex> lock(callback_mutex);
        done_before = reentries_done;
    }
    reentry_target = arm;
    pending = row.call;
    ASSERT_TRUE(fire(row.from, peer, push_port)) << "the callback never ran";
    ASSERT_TRUE(wait_callbacks([&] { return reentries_done > done_before; }))
        << "the call from inside the callback did not return";

    // The arm is gone in every case: its calls fail at once.
    auto start = clock_type::now();
    EXPECT_EQ(get_v(arm), -1);
    EXPECT_LT(clock_type::now() - start, 100ms);

    // Usable afterwards: an arm opens (restarting the library after a
    // destroy), answers, and both callbacks are still delivered.
    ka_robot_handle *fresh = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(fresh, nullptr);
    ASSERT_GT(fresh->id, 0);
    EXPECT_EQ(get_v(fresh), 9);
    EXPECT_TRUE(fire(trigger::event, peer, push_port)) << "no event after the re-entry";
    EXPECT_TRUE(fire(trigger::realtime, peer, push_port)) << "no pushed state after the re-entry";
}

INSTANTIATE_TEST_SUITE_P(callbacks, reentrant, ::testing::ValuesIn(reentry_rows),
                         [](const auto &info) { return std::string(info.param.name); });
