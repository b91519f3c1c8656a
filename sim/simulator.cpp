#include "sim/simulator.h"

#include "sim/arm.h"
#include "sim/commands.h"
#include "sim/json.h"
#include "sim/push.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
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
// A client that does not read its replies for this long loses them.
constexpr int k_send_timeout_s = 1;
// The library reads at most this many bytes of one pushed datagram.
constexpr std::size_t k_max_datagram = 1024;

std::system_error socket_error(const char *what) {
    return std::system_error(errno, std::generic_category(), what);
}

std::string peer_text(const sockaddr_in &address) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

struct connection {
    connection(int descriptor, std::string peer_name)
        : fd(descriptor), peer(std::move(peer_name)) {}
    ~connection() {
        if (reader.joinable()) reader.join();
        ::close(fd);
    }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    // One whole line per call; false once the connection is unusable.
    bool send_line(const std::string &text) {
        const std::string bytes = text + "\r\n";
        std::lock_guard lock(send_mutex);
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            sent += static_cast<std::size_t>(n);
        }
        return true;
    }
    // Wakes the reader with end of stream; the descriptor stays open until
    // the reader has been joined.
    void shut() { ::shutdown(fd, SHUT_RDWR); }

    const int fd;
    const std::string peer;
    std::mutex send_mutex;
    std::thread reader;
    std::atomic<bool> done{false};
};

} // namespace

struct simulator::impl {
    struct arm_server {
        int number = 0;
        std::unique_ptr<arm> state;
        // Held around every command and every control cycle of this arm.
        std::mutex state_mutex;
        arm_faults faults;
        int listen_fd = -1;
        int udp_fd = -1;
        int port = 0;
        std::thread acceptor;
        std::mutex connections_mutex;
        std::vector<std::shared_ptr<connection>> connections;
        std::uint64_t cycles = 0;

        std::vector<std::shared_ptr<connection>> clients() {
            std::lock_guard lock(connections_mutex);
            return connections;
        }
        void broadcast(const report_list &reports) {
            if (reports.empty()) return;
            for (const auto &client : clients())
                for (const std::string &line : reports)
                    client->send_line(line);
        }
    };

    simulator_options options;
    arm_traits traits;
    std::vector<std::unique_ptr<arm_server>> arms;
    std::atomic<bool> stopping{false};
    bool started = false;
    int wake_fd = -1;
    steady::time_point epoch;
    std::thread control;
    std::mutex control_mutex;
    std::condition_variable control_wake;
    std::mutex lifecycle_mutex;

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
    void close_all();
};

void simulator::impl::accept_loop(arm_server &server) {
    while (!stopping) {
        pollfd fds[2] = {{server.listen_fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (stopping || (fds[1].revents & POLLIN)) break;
        if (!(fds[0].revents & POLLIN)) continue;
        sockaddr_in address{};
        socklen_t length = sizeof address;
        const int fd = ::accept4(server.listen_fd, reinterpret_cast<sockaddr *>(&address), &length,
                                 SOCK_CLOEXEC);
        if (fd < 0) continue;
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        const timeval send_timeout{k_send_timeout_s, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
        reap(server);
        auto client = std::make_shared<connection>(fd, peer_text(address));
        log("arm " + std::to_string(server.number) + " client " + client->peer + " connected");
        std::lock_guard lock(server.connections_mutex);
        server.connections.push_back(client);
        // The list owns the connection; its reader only borrows it, so the
        // last owner (never the reader itself) joins the reader.
        client->reader =
            std::thread([this, &server, raw = client.get()] { read_loop(server, raw); });
    }
}

// Drops connections whose reader has ended (joined in the destructor).
void simulator::impl::reap(arm_server &server) {
    std::vector<std::shared_ptr<connection>> ended;
    {
        std::lock_guard lock(server.connections_mutex);
        auto &all = server.connections;
        for (auto it = all.begin(); it != all.end();) {
            if ((*it)->done) {
                ended.push_back(*it);
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
        const ssize_t n = ::recv(client->fd, chunk, sizeof chunk, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        pending.append(chunk, static_cast<std::size_t>(n));
        std::size_t end;
        while (!stopping && (end = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.empty()) continue;
            server.faults.wait_while_stalled(stopping);
            handle_line(server, *client, line);
        }
        if (pending.size() > k_max_line) pending.clear();
    }
    client->shut();
    if (!stopping)
        log("arm " + std::to_string(server.number) + " client " + client->peer + " disconnected");
    client->done = true;
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
            const fault_settings now = server.faults.settings();
            cJSON_AddNumberToObject(reply.get(), "drop", now.drop);
            cJSON_AddNumberToObject(reply.get(), "delay", now.delay_ms);
            cJSON_AddNumberToObject(reply.get(), "garbage", now.garbage);
            cJSON_AddNumberToObject(reply.get(), "stall", now.stall_ms);
        } else {
            cJSON_AddStringToObject(reply.get(), "error", error.c_str());
        }
    } else {
        cJSON_AddStringToObject(reply.get(), "error", "unknown topic");
    }
    client.send_line(json_print(reply.get()));
    if (close_now)
        for (const auto &other : server.clients())
            other->shut();
    return true;
}

void simulator::impl::handle_line(arm_server &server, connection &client, const std::string &line) {
    if (handle_control(server, client, line)) return;
    command_context context{*server.state, now(), {}};
    std::string reply;
    {
        std::lock_guard lock(server.state_mutex);
        reply = answer_line(line, context);
    }
    if (reply.empty()) { // a command the controller does not answer
        server.broadcast(context.reports);
        return;
    }
    switch (server.faults.next_reply()) {
    case arm_faults::reply_fate::drop:
        break;
    case arm_faults::reply_fate::garbage:
        server.faults.delay_reply(stopping);
        client.send_line("}{ not a reply \x01");
        break;
    case arm_faults::reply_fate::send:
        server.faults.delay_reply(stopping);
        client.send_line(reply);
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
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(static_cast<std::uint16_t>(config.port));
    if (::inet_pton(AF_INET, config.ip.c_str(), &target.sin_addr) != 1) return;
    if (datagram.size() > k_max_datagram) return; // cannot happen with seven joints; never sent cut
    ::sendto(server.udp_fd, datagram.data(), datagram.size(), 0,
             reinterpret_cast<const sockaddr *>(&target), sizeof target);
}

void simulator::impl::control_loop() {
    const auto period = std::chrono::duration_cast<steady::duration>(
        std::chrono::duration<double>(k_control_period_s));
    auto next = steady::now() + period;
    std::unique_lock lock(control_mutex);
    while (!stopping) {
        control_wake.wait_until(lock, next, [&] { return stopping.load(); });
        if (stopping) break;
        lock.unlock();
        const double t = now();
        for (auto &server : arms) {
            report_list reports;
            {
                std::lock_guard state_lock(server->state_mutex);
                for (const motion_end &end : server->state->advance(t))
                    reports.push_back(completion_report(end));
                run_cycle_hooks(*server->state, t, reports);
            }
            server->broadcast(reports);
            ++server->cycles;
            push(*server);
        }
        lock.lock();
        next += period;
        if (next < steady::now()) next = steady::now() + period; // fell behind: no burst of cycles
    }
}

void simulator::impl::close_all() {
    for (auto &server : arms) {
        for (const auto &client : server->clients())
            client->shut();
        server->faults.wake();
    }
}

simulator::simulator(simulator_options options) : impl_(std::make_unique<impl>()) {
    const auto traits = arm_traits_for(options.model);
    if (!traits) throw std::invalid_argument("unknown arm model '" + options.model + "'");
    if (options.arms < 1 || options.arms > 5) throw std::invalid_argument("arm count must be 1..5");
    if (!(options.speed > 0)) throw std::invalid_argument("speed must be above 0");
    in_addr host{};
    if (::inet_pton(AF_INET, options.host.c_str(), &host) != 1)
        throw std::invalid_argument("bad host address '" + options.host + "'");
    if (options.port < 0 || options.port + options.arms - 1 > 65535)
        throw std::invalid_argument("bad port");
    impl_->traits = *traits;
    for (int i = 1; i <= options.arms; ++i) {
        auto server = std::make_unique<impl::arm_server>();
        server->number = i;
        server->state = std::make_unique<arm>(*traits);
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
            if (server->listen_fd >= 0) ::close(server->listen_fd);
            if (server->udp_fd >= 0) ::close(server->udp_fd);
            server->listen_fd = server->udp_fd = -1;
        }
    };
    for (auto &server : impl_->arms) {
        server->listen_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        server->udp_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (server->listen_fd < 0 || server->udp_fd < 0) {
            auto error = socket_error("socket");
            cleanup();
            throw error;
        }
        const int one = 1;
        ::setsockopt(server->listen_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        ::inet_pton(AF_INET, impl_->options.host.c_str(), &address.sin_addr);
        const int wanted = impl_->options.port == 0 ? 0 : impl_->options.port + server->number - 1;
        address.sin_port = htons(static_cast<std::uint16_t>(wanted));
        socklen_t length = sizeof address;
        if (::bind(server->listen_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) !=
                0 ||
            ::listen(server->listen_fd, 16) != 0 ||
            ::getsockname(server->listen_fd, reinterpret_cast<sockaddr *>(&address), &length) !=
                0) {
            auto error = socket_error(("bind port " + std::to_string(wanted)).c_str());
            cleanup();
            throw error;
        }
        server->port = ntohs(address.sin_port);
    }
    impl_->wake_fd = ::eventfd(0, EFD_CLOEXEC);
    if (impl_->wake_fd < 0) {
        auto error = socket_error("eventfd");
        cleanup();
        throw error;
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
    const std::uint64_t one = 1;
    if (::write(impl_->wake_fd, &one, sizeof one) < 0) { /* the acceptors also see `stopping` */
    }
    { std::lock_guard lock(impl_->control_mutex); }
    impl_->control_wake.notify_all();
    if (impl_->control.joinable()) impl_->control.join();
    for (auto &server : impl_->arms)
        if (server->acceptor.joinable()) server->acceptor.join();
    impl_->close_all();
    for (auto &server : impl_->arms) {
        std::vector<std::shared_ptr<connection>> clients;
        {
            std::lock_guard lock(server->connections_mutex);
            clients.swap(server->connections);
        }
        clients.clear(); // joins each reader, then closes its socket
        ::close(server->listen_fd);
        ::close(server->udp_fd);
        server->listen_fd = server->udp_fd = -1;
    }
    ::close(impl_->wake_fd);
    impl_->wake_fd = -1;
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
    if (change.close)
        for (const auto &client : server->clients())
            client->shut();
}

fault_settings simulator::faults(int number) const {
    return impl_->arms.at(static_cast<std::size_t>(number - 1))->faults.settings();
}

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
