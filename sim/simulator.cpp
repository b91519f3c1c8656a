#include "sim/simulator.h"

#include "sim/arm.h"
#include "sim/commands.h"
#include "sim/json.h"
#include "sim/net/net.h"
#include "sim/net/thread.h"
#include "sim/push.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace sim {

namespace {

using steady = std::chrono::steady_clock;

// A line longer than this without a line end is not a command; it is dropped.
constexpr std::size_t k_max_line = 1 << 20;
// Bytes a client may leave unread in its queue (beyond what the socket
// buffers hold) before it is disconnected: at one completion report per
// cycle that is minutes of not reading, far more than any sane pause.
constexpr std::size_t k_max_queued_bytes = 4 << 20;
// The library reads at most this many bytes of one pushed datagram.
constexpr std::size_t k_max_datagram = 1024;
// Lateness histogram: 10 microsecond buckets up to 100 ms, then one for the rest.
constexpr double k_lateness_bucket_ms = 0.01;
constexpr std::size_t k_lateness_buckets = 10000;
// What a garbage fault sends instead of the reply.
constexpr const char *k_garbage_line = "}{ not a reply \x01";

std::system_error socket_error(const std::string &what) {
    return std::system_error(net::last_error(), what);
}

// One client. Its reader answers requests; its writer sends what is queued,
// in order, so lines never interleave and nobody but the writer waits on a
// slow client.
class connection {
  public:
    using written_hook = std::function<void(const std::string &, steady::time_point)>;

    connection(net::unique_socket socket, std::string peer_name, const arm_faults &faults,
               written_hook written)
        : fd(socket.get()), peer(std::move(peer_name)), faults_(faults),
          written_(std::move(written)), socket_(std::move(socket)) {
        // Non-blocking, and every wait is a poll that also watches
        // shut_signal_: a shutdown() of the socket ends a recv() or send()
        // blocked in another thread on Linux, but not on Windows.
        net::set_non_blocking(fd);
    }
    ~connection() {
        shut();
        if (reader.joinable()) reader.join();
        if (writer_.joinable()) writer_.join();
    }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    void start_writer() {
        writer_ = std::thread([this] { write_loop(); });
    }

    // Queues one line (without "\r\n"); `close_after`: the connection is
    // shut once it has left. Never blocks on the socket. A client whose
    // queue is full is disconnected and the line is lost.
    void queue_line(std::string text, bool close_after = false) {
        {
            std::lock_guard lock(queue_mutex_);
            if (closing_) return;
            if (queued_bytes_ + text.size() > k_max_queued_bytes) {
                overflowed_ = true;
            } else {
                queued_bytes_ += text.size();
                queue_.push_back({std::move(text), close_after});
            }
        }
        if (overflowed_.load()) shut();
        queued_.notify_one();
    }

    // Sends what is queued, then shuts: for a client that has stopped
    // sending (its replies may still be read).
    void finish() {
        {
            std::lock_guard lock(queue_mutex_);
            draining_ = true;
        }
        queued_.notify_all();
    }

    // Ends the connection both ways now: the reader sees end of stream, the
    // writer drops what is queued and stops. The descriptor stays open until
    // both are joined.
    void shut() {
        {
            std::lock_guard lock(queue_mutex_);
            if (closing_) return;
            closing_ = true;
        }
        net::shutdown_both(fd);
        shut_signal_.signal();
        queued_.notify_all();
    }

    // One receive: > 0 bytes, 0 end of stream or shut, < 0 failure.
    std::ptrdiff_t receive(char *buffer, std::size_t size) {
        for (;;) {
            const std::ptrdiff_t n = net::receive_some(fd, buffer, size);
            if (n >= 0 || !net::would_block()) return n;
            if (!wait_for(net::readable)) return 0;
        }
    }

    bool overflowed() const { return overflowed_; }
    // Both threads have finished: joining them cannot wait.
    bool ended() const { return reader_done && writer_done_; }

    const net::socket_t fd;
    const std::string peer;
    std::thread reader;
    std::atomic<bool> reader_done{false}; // set by the reader as its last act

  private:
    struct outgoing {
        std::string text;
        bool close_after;
    };

    // Waits until the socket is ready for `what`; false once shut.
    bool wait_for(net::readiness what) {
        std::array<net::poll_entry, 2> entries{{{fd, what}, {shut_signal_.handle()}}};
        return net::poll(entries, net::wait_forever) >= 0 && entries[1].ready == 0;
    }

    bool send_all(const char *bytes, std::size_t size) {
        std::size_t sent = 0;
        while (sent < size) {
            const std::ptrdiff_t n = net::send_some(fd, bytes + sent, size - sent);
            if (n < 0 && net::would_block()) {
                if (!wait_for(net::writable)) return false;
                continue;
            }
            if (n <= 0) return false;
            sent += static_cast<std::size_t>(n);
        }
        return true;
    }

    bool send_line(const std::string &text) {
        const std::string bytes = text + "\r\n";
        if (!faults_.settings().byte_by_byte) return send_all(bytes.data(), bytes.size());
        for (const char &byte : bytes)
            if (!send_all(&byte, 1)) return false;
        return true;
    }

    void write_loop() {
        std::unique_lock lock(queue_mutex_);
        for (;;) {
            queued_.wait(lock, [&] { return closing_ || draining_ || !queue_.empty(); });
            if (closing_ || (draining_ && queue_.empty())) break;
            outgoing next = std::move(queue_.front());
            queue_.pop_front();
            queued_bytes_ -= next.text.size();
            lock.unlock();
            const auto handed_over = steady::now();
            const bool sent = send_line(next.text);
            if (sent && written_) written_(next.text, handed_over);
            if (!sent || next.close_after) shut();
            lock.lock();
        }
        lock.unlock();
        shut();
        writer_done_ = true;
    }

    const arm_faults &faults_;
    const written_hook written_;
    net::wake_channel shut_signal_; // readable once shut
    // Closed last, once both threads have been joined.
    net::unique_socket socket_;
    std::thread writer_;
    std::mutex queue_mutex_;
    std::condition_variable queued_;
    std::deque<outgoing> queue_;
    std::size_t queued_bytes_ = 0;
    bool closing_ = false;
    bool draining_ = false;
    std::atomic<bool> overflowed_{false};
    std::atomic<bool> writer_done_{false};
};

// Control-cycle lateness, one count per 10 microseconds of lateness.
class lateness_histogram {
  public:
    void add(double late_ms) {
        const auto bucket = static_cast<std::size_t>(std::max(0.0, late_ms) / k_lateness_bucket_ms);
        std::lock_guard lock(mutex_);
        ++counts_[std::min(bucket, k_lateness_buckets)];
        ++total_;
        if (late_ms > k_control_period_s * 1000) ++over_period_;
        max_ms_ = std::max(max_ms_, late_ms);
    }
    void reset() {
        std::lock_guard lock(mutex_);
        counts_.fill(0);
        total_ = 0;
        over_period_ = 0;
        max_ms_ = 0;
    }
    cycle_lateness summary() const {
        std::lock_guard lock(mutex_);
        cycle_lateness result;
        result.cycles = total_;
        result.over_period = over_period_;
        result.max_ms = max_ms_;
        result.p50_ms = quantile(0.50);
        result.p99_ms = quantile(0.99);
        return result;
    }

  private:
    // The upper edge of the bucket holding the q-th cycle.
    double quantile(double q) const {
        if (total_ == 0) return 0;
        const auto rank = static_cast<std::uint64_t>(std::ceil(q * static_cast<double>(total_)));
        std::uint64_t seen = 0;
        for (std::size_t i = 0; i <= k_lateness_buckets; ++i) {
            seen += counts_[i];
            if (seen >= rank)
                return i == k_lateness_buckets ? max_ms_
                                               : static_cast<double>(i + 1) * k_lateness_bucket_ms;
        }
        return max_ms_;
    }

    mutable std::mutex mutex_;
    std::array<std::uint64_t, k_lateness_buckets + 1> counts_{};
    std::uint64_t total_ = 0;
    std::uint64_t over_period_ = 0;
    double max_ms_ = 0;
};

} // namespace

struct simulator::impl {
    struct arm_server {
        int number = 0;
        std::unique_ptr<arm> state;
        // Held around every command and every control cycle of this arm.
        // Lock order: state_mutex, then connections_mutex, then a
        // connection's queue; the fault settings' own lock is taken alone
        // or innermost.
        // The control thread runs at real-time priority and connection
        // threads do not; when the cycle waits for a connection thread that
        // holds the lock, priority inheritance lends that thread the cycle's
        // priority until it lets go, instead of leaving it queued behind
        // every other runnable thread (which cost the cycle up to 15 ms).
        net::priority_inheriting_mutex state_mutex;
        arm_faults faults;
        net::unique_socket listener;
        net::unique_socket udp;
        int port = 0;
        std::thread acceptor;
        std::mutex connections_mutex;
        std::vector<std::shared_ptr<connection>> connections;
        std::uint64_t cycles = 0; // control thread only

        // Queues the lines on every connection; never blocks.
        void broadcast(const report_list &reports) {
            if (reports.empty()) return;
            std::lock_guard lock(connections_mutex);
            for (const auto &client : connections)
                for (const std::string &line : reports)
                    client->queue_line(line);
        }
        // Closes every connection now but `spared`, which closes itself
        // once its queued lines have left.
        void shut_all(const connection *spared = nullptr) {
            std::lock_guard lock(connections_mutex);
            for (const auto &client : connections)
                if (client.get() != spared) client->shut();
        }
    };

    simulator_options options;
    arm_traits traits;
    std::vector<std::unique_ptr<arm_server>> arms;
    std::atomic<bool> stopping{false};
    bool started = false;
    std::unique_ptr<net::wake_channel> wake; // readable once stopping
    steady::time_point epoch;
    std::thread control;
    std::mutex control_mutex;
    std::condition_variable control_wake;
    std::mutex lifecycle_mutex;
    lateness_histogram lateness;

    double now() const {
        return std::chrono::duration<double>(steady::now() - epoch).count() * options.speed;
    }

    void log(const std::string &text) const {
        if (options.log) options.log(text);
    }

    void accept_loop(arm_server &server);
    void read_loop(arm_server &server, connection *client);
    void handle_line(arm_server &server, connection &client, const std::string &line);
    bool handle_control(arm_server &server, connection &client, const std::string &line);
    void control_loop();
    void push(arm_server &server);
    void reap(arm_server &server);
};

void simulator::impl::accept_loop(arm_server &server) {
    const std::string arm_name = "arm " + std::to_string(server.number);
    while (!stopping) {
        std::array<net::poll_entry, 2> entries{{{server.listener.get()}, {wake->handle()}}};
        if (net::poll(entries, net::wait_forever) < 0) break;
        if (stopping || (entries[1].ready & net::readable)) break;
        if (!(entries[0].ready & net::readable)) continue;
        net::endpoint address;
        net::unique_socket accepted = net::accept_from(server.listener.get(), &address);
        if (!accepted) continue;
        if (server.faults.settings().refuse) {
            accepted.reset();
            log(arm_name + " client " + net::to_text(address) + " refused");
            continue;
        }
        net::set_no_delay(accepted.get());
        reap(server);
        connection::written_hook written;
        if (options.line_written)
            written = [this, number = server.number](const std::string &line,
                                                     steady::time_point at) {
                options.line_written(number, line, at);
            };
        const std::string peer_name = net::to_text(address);
        std::shared_ptr<connection> client;
        try {
            client = std::make_shared<connection>(std::move(accepted), peer_name, server.faults,
                                                  std::move(written));
        } catch (const std::system_error &error) {
            // No wake-up for the connection's threads: it is not served.
            log(arm_name + " client " + peer_name + " dropped: " + error.what());
            continue;
        }
        log(arm_name + " client " + client->peer + " connected");
        std::lock_guard lock(server.connections_mutex);
        server.connections.push_back(client);
        // The list owns the connection; its threads only borrow it, so the
        // last owner (never one of those threads) joins them.
        client->start_writer();
        client->reader =
            std::thread([this, &server, raw = client.get()] { read_loop(server, raw); });
    }
}

// Drops connections whose reader has ended; they are joined and closed here,
// outside every lock.
void simulator::impl::reap(arm_server &server) {
    std::vector<std::shared_ptr<connection>> ended;
    {
        std::lock_guard lock(server.connections_mutex);
        auto &all = server.connections;
        for (auto it = all.begin(); it != all.end();) {
            if ((*it)->ended()) {
                ended.push_back(std::move(*it));
                it = all.erase(it);
            } else {
                ++it;
            }
        }
    }
}

void simulator::impl::read_loop(arm_server &server, connection *client) {
    std::string pending;
    char chunk[4096];
    while (!stopping) {
        server.faults.wait_while_stalled(stopping);
        const std::ptrdiff_t n = client->receive(chunk, sizeof chunk);
        if (n <= 0) break;
        pending.append(chunk, static_cast<std::size_t>(n));
        // Only "\r\n" ends a request: some requests are printed formatted,
        // with bare "\n" inside the object.
        while (!stopping) {
            // A project's text follows its accepted "run_project" as raw bytes.
            project_text_result text;
            {
                std::lock_guard lock(server.state_mutex);
                text = take_project_text(*server.state, client, pending, now());
            }
            if (!text.reply.empty()) client->queue_line(text.reply);
            if (text.consumed) continue;
            const std::size_t end = pending.find("\r\n");
            if (end == std::string::npos) break;
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 2);
            if (line.empty()) continue;
            server.faults.wait_while_stalled(stopping);
            handle_line(server, *client, line);
        }
        if (pending.size() > k_max_line) pending.clear();
    }
    {
        std::lock_guard lock(server.state_mutex);
        drop_project_text(*server.state, client);
    }
    client->finish();
    if (!stopping)
        log("arm " + std::to_string(server.number) + " client " + client->peer +
            (client->overflowed() ? " disconnected (did not read its replies)" : " disconnected"));
    client->reader_done = true;
}

// Control lines ({"sim":...}) are answered at once and never suffer faults.
bool simulator::impl::handle_control(arm_server &server, connection &client,
                                     const std::string &line) {
    if (line.find("\"sim\"") == std::string::npos) return false;
    const json_ptr root = json_parse(line);
    const auto topic = json_string(root.get(), "sim");
    if (!topic) return false;
    json_ptr reply(cJSON_CreateObject());
    cJSON_AddStringToObject(reply.get(), "sim", topic->c_str());
    bool close_now = false;
    if (*topic == "faults") {
        std::string error;
        if (const auto change = parse_fault_json(root.get(), &error)) {
            server.faults.apply(*change);
            close_now = change->close;
            add_fault_settings(reply.get(), server.faults.settings());
        } else {
            cJSON_AddStringToObject(reply.get(), "error", error.c_str());
        }
    } else {
        cJSON_AddStringToObject(reply.get(), "error", "unknown topic");
    }
    // The other connections are closed before the answer leaves, and this
    // one right after it: whoever reads the answer finds them all closed.
    if (close_now) server.shut_all(&client);
    client.queue_line(json_print(reply.get()), close_now);
    return true;
}

void simulator::impl::handle_line(arm_server &server, connection &client, const std::string &line) {
    if (handle_control(server, client, line)) return;
    command_context context{*server.state, now(), {}};
    std::unique_lock state_lock(server.state_mutex);
    const std::string reply = answer_line(line, context);
    bind_project_text(*server.state, &client); // the text of an accepted "run_project" follows here
    if (reply.empty()) {                       // a command the controller does not answer
        server.broadcast(context.reports);
        return;
    }
    const reply_plan plan = server.faults.next_reply();
    if (plan.delay_ms > 0) {
        // Waited out without the arm's lock: the cycle goes on meanwhile, so
        // a report may overtake the late reply, as it may on a real network.
        state_lock.unlock();
        server.faults.delay_reply(plan.delay_ms, stopping);
        state_lock.lock();
    }
    // Queued with the arm's lock held, so that the reply leaves before any
    // report of what the command started.
    if (plan.stale_first) client.queue_line(completion_report({true, 0, 0}));
    switch (plan.what) {
    case reply_plan::fate::drop:
        break;
    case reply_plan::fate::garbage:
        if (plan.twice) client.queue_line(k_garbage_line);
        client.queue_line(k_garbage_line, plan.close_after);
        break;
    case reply_plan::fate::send:
        if (plan.twice) client.queue_line(reply);
        client.queue_line(reply, plan.close_after);
        break;
    }
    server.broadcast(context.reports);
}

void simulator::impl::push(arm_server &server) {
    push_config config;
    std::string datagram;
    {
        std::lock_guard lock(server.state_mutex);
        config = server.state->push;
        if (!config.enable || config.cycle < 1 ||
            server.cycles % static_cast<std::uint64_t>(config.cycle) != 0)
            return;
        datagram = push_datagram(*server.state);
    }
    if (server.faults.settings().mute_push) return;
    const auto address = net::parse_ipv4(config.ip);
    if (!address) return;
    if (datagram.size() > k_max_datagram) return; // cannot happen with seven joints; never sent cut
    // A non-blocking socket: a datagram that cannot leave at once is lost,
    // as on a busy network, rather than holding up the cycle.
    net::send_datagram(server.udp.get(), datagram,
                       {*address, static_cast<std::uint16_t>(config.port)});
}

void simulator::impl::control_loop() {
    // A controller's control cycle runs at real-time priority, above the
    // threads that serve connections. Where the process may not, the cycle
    // runs at normal priority; only its punctuality suffers.
    net::raise_to_real_time();
    const auto period = std::chrono::duration_cast<steady::duration>(
        std::chrono::duration<double>(k_control_period_s));
    auto next = steady::now() + period;
    std::unique_lock lock(control_mutex);
    while (!stopping) {
        control_wake.wait_until(lock, next, [&] { return stopping.load(); });
        if (stopping) break;
        lock.unlock();
        lateness.add(std::chrono::duration<double, std::milli>(steady::now() - next).count());
        const double t = now();
        for (auto &server : arms) {
            {
                std::lock_guard state_lock(server->state_mutex);
                report_list reports;
                for (const motion_end &end : server->state->advance(t))
                    reports.push_back(completion_report(end));
                run_cycle_hooks(*server->state, t, reports);
                server->broadcast(reports); // only queued: a slow client costs nothing here
            }
            ++server->cycles;
            push(*server);
        }
        lock.lock();
        next += period;
        if (next < steady::now()) next = steady::now() + period; // fell behind: no burst of cycles
    }
}

simulator::simulator(simulator_options options) : impl_(std::make_unique<impl>()) {
    const auto traits = arm_traits_for(options.model);
    if (!traits) throw std::invalid_argument("unknown arm model '" + options.model + "'");
    if (options.arms < 1 || options.arms > 5) throw std::invalid_argument("arm count must be 1..5");
    if (!(options.speed > 0)) throw std::invalid_argument("speed must be above 0");
    if (!net::parse_ipv4(options.host))
        throw std::invalid_argument("bad host address '" + options.host + "'");
    if (options.port < 0 || options.port + options.arms - 1 > 65535)
        throw std::invalid_argument("bad port");
    impl_->traits = *traits;
    for (int i = 1; i <= options.arms; ++i) {
        auto server = std::make_unique<impl::arm_server>();
        server->number = i;
        server->state = std::make_unique<arm>(*traits);
        if (options.seed != 0) // each arm its own noise; never 0, which means none
            server->state->devices.sensor.noise_seed =
                std::max<std::uint32_t>(1, options.seed * 31 + static_cast<std::uint32_t>(i));
        impl_->arms.push_back(std::move(server));
    }
    for (const auto &[number, change] : options.faults) {
        if (number < 0 || number > options.arms)
            throw std::invalid_argument("fault for an unknown arm");
        for (auto &server : impl_->arms)
            if (number == 0 || number == server->number) server->faults.apply(change);
    }
    impl_->options = std::move(options);
}

simulator::~simulator() { stop(); }

std::vector<int> simulator::start() {
    std::lock_guard lifecycle(impl_->lifecycle_mutex);
    if (impl_->started) return ports();
    auto cleanup = [&] {
        for (auto &server : impl_->arms) {
            server->listener.reset();
            server->udp.reset();
        }
    };
    const std::uint32_t host = *net::parse_ipv4(impl_->options.host);
    for (auto &server : impl_->arms) {
        server->listener = net::open_socket(net::transport::tcp);
        server->udp = net::open_socket(net::transport::udp);
        if (!server->listener || !server->udp) {
            auto error = socket_error("socket");
            cleanup();
            throw error;
        }
        net::set_non_blocking(server->udp.get());
        net::set_reuse_address(server->listener.get());
        const int wanted = impl_->options.port == 0 ? 0 : impl_->options.port + server->number - 1;
        std::optional<net::endpoint> bound;
        if (!net::bind_to(server->listener.get(), {host, static_cast<std::uint16_t>(wanted)}) ||
            !net::listen_on(server->listener.get(), 16) ||
            !(bound = net::local_endpoint(server->listener.get()))) {
            auto error = socket_error("bind port " + std::to_string(wanted));
            cleanup();
            throw error;
        }
        server->port = bound->port;
    }
    try {
        impl_->wake = std::make_unique<net::wake_channel>();
    } catch (...) {
        cleanup();
        throw;
    }
    impl_->epoch = steady::now();
    impl_->stopping = false;
    for (auto &server : impl_->arms)
        server->acceptor = std::thread([this, s = server.get()] { impl_->accept_loop(*s); });
    impl_->control = std::thread([this] { impl_->control_loop(); });
    impl_->started = true;
    return ports();
}

void simulator::stop() {
    std::lock_guard lifecycle(impl_->lifecycle_mutex);
    if (!impl_->started) return;
    impl_->stopping = true;
    impl_->wake->signal();
    { std::lock_guard lock(impl_->control_mutex); }
    impl_->control_wake.notify_all();
    if (impl_->control.joinable()) impl_->control.join();
    for (auto &server : impl_->arms)
        if (server->acceptor.joinable()) server->acceptor.join();
    for (auto &server : impl_->arms) {
        server->shut_all();
        server->faults.wake();
    }
    for (auto &server : impl_->arms) {
        std::vector<std::shared_ptr<connection>> clients;
        {
            std::lock_guard lock(server->connections_mutex);
            clients.swap(server->connections);
        }
        clients.clear(); // joins each reader, then closes its socket
        server->listener.reset();
        server->udp.reset();
    }
    impl_->wake.reset();
    impl_->started = false;
}

std::vector<int> simulator::ports() const {
    std::vector<int> bound;
    for (const auto &server : impl_->arms)
        bound.push_back(server->port);
    return bound;
}

const arm_traits &simulator::traits() const { return impl_->traits; }

void simulator::set_faults(int number, const fault_change &change) {
    auto &server = impl_->arms.at(static_cast<std::size_t>(number - 1));
    server->faults.apply(change);
    if (change.close) server->shut_all();
}

fault_settings simulator::faults(int number) const {
    return impl_->arms.at(static_cast<std::size_t>(number - 1))->faults.settings();
}

cycle_lateness simulator::lateness() const { return impl_->lateness.summary(); }

void simulator::reset_lateness() { impl_->lateness.reset(); }

std::optional<std::vector<std::pair<int, fault_change>>> parse_fault_groups(const std::string &text,
                                                                            std::string *error) {
    std::vector<std::pair<int, fault_change>> groups;
    std::stringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ';')) {
        if (part.empty()) continue;
        int number = 0;
        const auto colon = part.find(':');
        if (colon != std::string::npos) {
            const std::string head = part.substr(0, colon);
            char *end = nullptr;
            const long parsed = std::strtol(head.c_str(), &end, 10);
            if (head.empty() || *end != '\0' || parsed < 1 || parsed > 5) {
                *error = "bad arm number '" + head + "'";
                return std::nullopt;
            }
            number = static_cast<int>(parsed);
            part = part.substr(colon + 1);
        }
        auto change = parse_fault_text(part, false, error);
        if (!change) return std::nullopt;
        groups.emplace_back(number, *change);
    }
    return groups;
}

} // namespace sim
