#include "sim_session.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

namespace sim_test {

namespace net = sim::net;

sim::simulator_options options(const std::string &model, double speed) {
    sim::simulator_options o;
    o.model = model;
    o.port = 0;
    o.speed = speed;
    return o;
}

arm_session::arm_session(sim::simulator_options o, int mode) : simulator(std::move(o)) {
    port = simulator.start().at(0);
    ka_init(mode);
    install_callbacks();
    arm = ka_create_robot_arm("127.0.0.1", port);
    if (!arm || arm->id != 1) throw std::runtime_error("the simulated arm did not open");
}

arm_session::~arm_session() {
    ka_destory();
    simulator.stop();
}

line_client::line_client(int port, int receive_buffer_bytes) {
    socket_ = net::open_socket(net::transport::tcp);
    if (socket_ && receive_buffer_bytes > 0)
        net::set_receive_buffer(socket_.get(), receive_buffer_bytes);
    if (!socket_ ||
        !net::connect_to(socket_.get(), {net::loopback_address, static_cast<std::uint16_t>(port)}))
        throw std::system_error(net::last_error(), "connect");
}

line_client::~line_client() = default;

void line_client::send(const std::string &line) {
    const std::string bytes = line + "\r\n";
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const std::ptrdiff_t n =
            net::send_some(socket_.get(), bytes.data() + sent, bytes.size() - sent);
        if (n <= 0) throw std::system_error(net::last_error(), "send");
        sent += static_cast<std::size_t>(n);
    }
}

std::string line_client::read(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto end = pending_.find("\r\n");
        if (end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 2);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return "";
        net::poll_entry p{socket_.get()};
        if (net::poll({&p, 1}, left) != 1) return "";
        char chunk[4096];
        const std::ptrdiff_t n = net::receive_some(socket_.get(), chunk, sizeof chunk);
        if (n <= 0) return "";
        pending_.append(chunk, static_cast<std::size_t>(n));
    }
}

std::string line_client::ask(const std::string &line) {
    send(line);
    return read();
}

bool line_client::wait_closed(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    pending_.clear();
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        net::poll_entry p{socket_.get()};
        if (net::poll({&p, 1}, left) != 1) return false;
        char chunk[65536];
        const std::ptrdiff_t n = net::receive_some(socket_.get(), chunk, sizeof chunk);
        if (n == 0 || (n < 0 && !net::would_block())) return true;
    }
}

std::function<void(const std::string &)> log_record::sink() {
    return [this](const std::string &line) {
        {
            std::lock_guard lock(mutex_);
            lines_.push_back(line);
        }
        changed_.notify_all();
    };
}

bool log_record::wait_for(const std::string &text, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] {
        for (const std::string &line : lines_)
            if (line.find(text) != std::string::npos) return true;
        return false;
    });
}

event_record &events() {
    static event_record record;
    return record;
}

void event_record::clear() {
    std::lock_guard lock(mutex);
    events.clear();
    states.clear();
}

bool event_record::wait_events(std::size_t n, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return events.size() >= n; });
}

bool event_record::wait_states(std::size_t n, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return states.size() >= n; });
}

namespace {

void on_event(ka_event_push_data_t data) {
    event_record &record = events();
    {
        std::lock_guard lock(record.mutex);
        record.events.push_back(data);
    }
    record.changed.notify_all();
}

void on_state(ka_realtime_arm_joint_state_t state) {
    event_record &record = events();
    {
        std::lock_guard lock(record.mutex);
        record.states.push_back(state);
    }
    record.changed.notify_all();
}

} // namespace

void install_callbacks() {
    ka_get_arm_event_call_back(on_event);
    ka_realtime_arm_state_call_back(on_state);
    events().clear();
}

void expect_near_pose(const ka_pose_t &a, const ka_pose_t &b, float metres, float radians) {
    EXPECT_NEAR(a.position.x, b.position.x, metres);
    EXPECT_NEAR(a.position.y, b.position.y, metres);
    EXPECT_NEAR(a.position.z, b.position.z, metres);
    EXPECT_NEAR(a.euler.rx, b.euler.rx, radians);
    EXPECT_NEAR(a.euler.ry, b.euler.ry, radians);
    EXPECT_NEAR(a.euler.rz, b.euler.rz, radians);
}

} // namespace sim_test
