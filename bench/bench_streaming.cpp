// Streaming motion throughput: calls per second of ka_movej_canfd and
// ka_movep_canfd on one thread against a local peer that reads and discards,
// next to a minimal loop that builds the same object with cJSON, prints it
// unformatted, appends "\r\n" and sends it on a connected socket. The
// "paired" rows give the ratio library / loop per call.
//
//   ./build/default/bench/bench_streaming [benchmark flags]
#include "core/arm.h"
#include "ka_api.h"
#include "support/test_peer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <chrono>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Answers the queries that open an arm, then only reads and discards.
class discarding_peer {
  public:
    discarding_peer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr = loopback(0);
        ::bind(listener_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        ::listen(listener_, 4);
        socklen_t len = sizeof addr;
        ::getsockname(listener_, reinterpret_cast<sockaddr *>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        acceptor_ = std::thread([this] {
            for (int fd; (fd = ::accept(listener_, nullptr, nullptr)) >= 0;) {
                std::lock_guard<std::mutex> lock(mutex_);
                fds_.push_back(fd);
                readers_.emplace_back([this, fd] { serve(fd); });
            }
        });
    }
    ~discarding_peer() {
        ::shutdown(listener_, SHUT_RDWR);
        acceptor_.join();
        ::close(listener_);
        for (int fd : fds_)
            ::shutdown(fd, SHUT_RDWR);
        for (auto &t : readers_)
            t.join();
        for (int fd : fds_)
            ::close(fd);
    }
    static sockaddr_in loopback(int port) {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return addr;
    }
    int port() const { return port_; }
    // From now on every line is read and dropped.
    void discard() {
        std::lock_guard<std::mutex> lock(mutex_);
        discarding = true;
        for (int fd : fds_)
            batch_reads(fd);
    }

  private:
    // Woken once per 32 KiB, not once per line: a reader woken for every line
    // would mostly run on the caller's core and be timed as the caller's.
    static void batch_reads(int fd) {
        int batch = 32768;
        ::setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &batch, sizeof batch);
    }
    void serve(int fd) {
        std::string pending;
        char chunk[65536];
        for (ssize_t n; (n = ::recv(fd, chunk, sizeof chunk, 0)) > 0;) {
            if (discarding.load(std::memory_order_relaxed)) continue;
            pending.append(chunk, static_cast<size_t>(n));
            for (size_t end; (end = pending.find("\r\n")) != std::string::npos;) {
                std::string answer = opening_answer(pending.substr(0, end)) + "\r\n";
                pending.erase(0, end + 2);
                ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
        }
    }
    static std::string opening_answer(const std::string &line) {
        cJSON *doc = cJSON_Parse(line.c_str());
        const cJSON *command = cJSON_GetObjectItem(doc, "command");
        std::string answer = "{}";
        try {
            if (cJSON_IsString(command))
                answer = ka_test::standard_reply(command->valuestring, "KIVO-B", 6);
        } catch (const std::exception &) {
        }
        cJSON_Delete(doc);
        return answer;
    }

    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> discarding{false};
    std::thread acceptor_;
    std::mutex mutex_;
    std::vector<int> fds_;
    std::vector<std::thread> readers_;
};

struct setup {
    discarding_peer peer;
    ka_robot_handle *arm = nullptr;
    // The minimal loop sends on the arm's own connection: two connections
    // to one peer settle into different acknowledgement patterns, which
    // would be timed as a difference between the two paths.
    int fd = -1;

    setup() {
        ka_init(KA_THREAD_MODE_DUAL);
        arm = ka_create_robot_arm("127.0.0.1", peer.port());
        peer.discard();
        if (arm_ptr record = registry_find(arm)) fd = record->socket->fd;
    }
    ~setup() { ka_destory(); }
};

std::unique_ptr<setup> opened; // closed in main, before the library's statics go

setup &env() {
    if (!opened) opened = std::make_unique<setup>();
    return *opened;
}

bool arm_ready(benchmark::State &state) {
    if (env().arm && env().arm->arm_dof == 6 && env().fd >= 0) return true;
    state.SkipWithError("could not open the arm");
    return false;
}

// The minimal loop's send: print, append "\r\n", one send.
bool send_minimal(cJSON *object) {
    char *text = cJSON_PrintUnformatted(object);
    cJSON_Delete(object);
    char line[512];
    size_t n = std::min(std::strlen(text), sizeof line - 2); // our lines are far shorter
    std::memcpy(line, text, n);
    std::memcpy(line + n, "\r\n", 2);
    cJSON_free(text);
    // The socket does not block: wait for room when the peer falls behind.
    for (size_t sent = 0; sent < n + 2;) {
        ssize_t r = ::send(env().fd, line + sent, n + 2 - sent, MSG_NOSIGNAL);
        if (r > 0) {
            sent += static_cast<size_t>(r);
        } else if (r < 0 && errno == EAGAIN) {
            pollfd room{env().fd, POLLOUT, 0};
            ::poll(&room, 1, 1000);
        } else {
            return false;
        }
    }
    return true;
}

void add_ints(cJSON *object, const char *key, const int *v, int count) {
    cJSON *array = cJSON_CreateArray();
    for (int i = 0; i < count; ++i)
        cJSON_AddItemToArray(array, cJSON_CreateNumber(v[i]));
    cJSON_AddItemToObject(object, key, array);
}

float joints[7] = {0.0f, 10.0f, -20.0f, 30.0f, -40.0f, 50.0f, 0.0f};
const ka_pose_t pose = {{0.3f, -0.1f, 0.4f}, {1.0f, 0.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 0.0f}};

bool library_movej() {
    joints[0] += 0.001f;
    return ka_movej_canfd(env().arm, joints, false, 0.0f) == 0;
}

bool minimal_movej() {
    joints[0] += 0.001f;
    int wire[6];
    for (int i = 0; i < 6; ++i)
        wire[i] = static_cast<int>(static_cast<double>(joints[i]) * 1000.0);
    cJSON *object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "command", "movej_canfd");
    add_ints(object, "joint", wire, 6);
    cJSON_AddBoolToObject(object, "follow", false);
    cJSON_AddNumberToObject(object, "expand", 0);
    return send_minimal(object);
}

bool library_movep() { return ka_movep_canfd(env().arm, pose, false) == 0; }

bool minimal_movep() {
    const ka_position_t &p = pose.position;
    const ka_quat_t &q = pose.quaternion;
    const int wire[7] = {static_cast<int>(p.x * 1000000.0f), static_cast<int>(p.y * 1000000.0f),
                         static_cast<int>(p.z * 1000000.0f), static_cast<int>(q.w * 1000000.0f),
                         static_cast<int>(q.x * 1000000.0f), static_cast<int>(q.y * 1000000.0f),
                         static_cast<int>(q.z * 1000000.0f)};
    cJSON *object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "command", "movep_canfd");
    cJSON_AddBoolToObject(object, "follow", false);
    add_ints(object, "pose_quat", wire, 7);
    return send_minimal(object);
}

// Calls per second of one path.
void calls(benchmark::State &state, bool (*call)()) {
    if (!arm_ready(state)) return;
    for (auto _ : state)
        if (!call()) state.SkipWithError("send failed");
    state.SetItemsProcessed(state.iterations());
}

// Both paths in alternating batches of 64 calls, so that load from elsewhere
// on the machine falls on both alike. Medians of the per-call times, and the
// median of the ratios of neighbouring batches (the machine's state changes
// more slowly than a pair of batches takes).
void paired(benchmark::State &state, bool (*library)(), bool (*minimal)()) {
    if (!arm_ready(state)) return;
    using clock = std::chrono::steady_clock;
    constexpr int batch = 64;
    std::vector<double> library_ns, minimal_ns, ratios;
    auto time_batch = [&](bool (*call)(), std::vector<double> &out) {
        auto start = clock::now();
        for (int i = 0; i < batch; ++i)
            if (!call()) state.SkipWithError("send failed");
        out.push_back(std::chrono::duration<double, std::nano>(clock::now() - start).count() /
                      batch);
    };
    bool library_first = true;
    for (auto _ : state) {
        if (library_first) time_batch(library, library_ns);
        time_batch(minimal, minimal_ns);
        if (!library_first) time_batch(library, library_ns);
        library_first = !library_first;
        ratios.push_back(library_ns.back() / minimal_ns.back());
    }
    auto median = [](std::vector<double> &v) {
        std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
        return v[v.size() / 2];
    };
    if (ratios.empty()) return;
    state.counters["library_ns"] = median(library_ns);
    state.counters["minimal_ns"] = median(minimal_ns);
    state.counters["ratio"] = median(ratios);
}

BENCHMARK_CAPTURE(calls, library_movej_canfd, library_movej);
BENCHMARK_CAPTURE(calls, minimal_movej_canfd, minimal_movej);
BENCHMARK_CAPTURE(calls, library_movep_canfd, library_movep);
BENCHMARK_CAPTURE(calls, minimal_movep_canfd, minimal_movep);
BENCHMARK_CAPTURE(paired, movej_canfd, library_movej, minimal_movej);
BENCHMARK_CAPTURE(paired, movep_canfd, library_movep, minimal_movep);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    opened.reset(); // before the library's own statics are destroyed
    benchmark::Shutdown();
    return 0;
}
