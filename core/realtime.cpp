#include "core/realtime.h"

#include "core/arm.h"
#include "core/json.h"
#include "core/worker.h"

#include <cstring>
#include <memory>
#include <thread>

constexpr size_t datagram_capacity = 1024; // the controller's largest state datagram

// An open datagram socket, closed when its last holder lets go. The receive
// thread holds the sockets it reads from, so a port removed meanwhile cannot
// hand its descriptor number to a new socket under that read.
struct udp_socket {
    explicit udp_socket(platform::socket_t s) : fd(s) {}
    ~udp_socket() { platform::close_socket(fd); }
    udp_socket(const udp_socket &) = delete;
    udp_socket &operator=(const udp_socket &) = delete;
    const platform::socket_t fd;
};

struct port_entry {
    std::shared_ptr<udp_socket> socket;
    int port = 0;
    int count = 0; // arms pushing to this port
};

struct ka_udp_listener {
    std::mutex mutex;
    std::array<port_entry, KA_MAX_ARMS> entries;
};

namespace {

// At namespace scope, so it is built before the receive thread and outlives
// it when the process exits.
ka_udp_listener process_listener;

std::atomic<ka_realtime_callback_t> realtime_callback{nullptr};
std::atomic<uint16_t> udp_arm_err{0};
std::atomic<uint16_t> udp_sys_err{0};

worker_thread &udp() {
    static worker_thread thread;
    return thread;
}

constexpr const char *status_names[] = {"idle",
                                        "move_L",
                                        "move_J",
                                        "move_C",
                                        "move_S",
                                        "move_through_joint",
                                        "move_through_pose",
                                        "move_through_force_pose",
                                        "move_through_current",
                                        "stop",
                                        "slow_stop",
                                        "pause",
                                        "current_drag",
                                        "sensor_drag",
                                        "tech_demonstration"};

bool all_numbers(const cJSON *object, std::initializer_list<const char *> keys) {
    for (const char *key : keys)
        if (!cJSON_IsNumber(cJSON_GetObjectItem(object, key))) return false;
    return true;
}

int number(const cJSON *object, const char *key) {
    return json_int(cJSON_GetObjectItem(object, key));
}

// Reads up to `capacity` elements of the array `key` of object.
template <typename T, size_t N, typename F>
void read_array(const cJSON *object, const char *key, T (&out)[N], F convert) {
    const cJSON *array = cJSON_GetObjectItem(object, key);
    if (!cJSON_IsArray(array)) return;
    size_t i = 0;
    for (const cJSON *item = array->child; item && i < N; item = item->next, ++i)
        out[i] = convert(json_int(item));
}

bool read_exact(const cJSON *object, const char *key, int *out, int count) {
    const cJSON *array = cJSON_GetObjectItem(object, key);
    if (!cJSON_IsArray(array) || cJSON_GetArraySize(array) != count) return false;
    int i = 0;
    for (const cJSON *item = array->child; item; item = item->next)
        out[i++] = json_int(item);
    return true;
}

float thousandths(int v) { return static_cast<float>(v) / 1000.0f; }

void read_force(const cJSON *sensor, ka_realtime_arm_joint_state_t &s) {
    if (!sensor) return;
    read_array(sensor, "force", s.force, thousandths);
    read_array(sensor, "zero_force", s.zero_force, thousandths);
    s.coordinate = number(sensor, "coordinate");
}

int parse(const char *text, ka_realtime_arm_joint_state_t &s) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("[ka_realtime_arm_joint_state] parse err\n");
        return -3;
    }
    const cJSON *root = doc.get();
    if (const cJSON *status = cJSON_GetObjectItem(root, "arm_current_status")) {
        if (!cJSON_IsString(status)) return -3;
        s.arm_current_status = get_arm_status_from_string(status->valuestring);
    }
    if (const cJSON *hand = cJSON_GetObjectItem(root, "hand")) {
        if (!all_numbers(hand, {"hand_pos", "hand_force", "hand_state", "hand_err"})) return -3;
        s.hand_pos = number(hand, "hand_pos");
        s.hand_force = static_cast<float>(number(hand, "hand_force"));
        s.hand_state = number(hand, "hand_state");
        s.hand_err = number(hand, "hand_err");
    }
    if (const cJSON *lift = cJSON_GetObjectItem(root, "lift_state")) {
        if (!all_numbers(lift, {"pos", "height", "current", "err_flag", "en_flag"})) return -3;
        s.lift_pos = thousandths(number(lift, "pos"));
        s.lift_height = number(lift, "height");
        s.lift_current = number(lift, "current");
        s.lift_err_flag = number(lift, "err_flag");
        s.lift_en_flag = number(lift, "en_flag");
    }
    if (const cJSON *expand = cJSON_GetObjectItem(root, "expand_state")) {
        if (!all_numbers(expand, {"joint_id", "mode", "pos", "current", "err_flag", "en_flag"}))
            return -3;
        s.expand_joint_id = number(expand, "joint_id");
        s.expand_mode = number(expand, "mode");
        s.expand_pos = thousandths(number(expand, "pos"));
        s.expand_current = number(expand, "current");
        s.expand_err_flag = number(expand, "err_flag");
        s.expand_en_flag = number(expand, "en_flag");
    }
    const cJSON *joints = cJSON_GetObjectItem(root, "joint_status");
    if (!joints) return -3;
    read_array(joints, "joint_current", s.joint_current, thousandths);
    read_array(joints, "joint_en_flag", s.joint_en_flag, [](int v) { return v != 0; });
    read_array(joints, "joint_err_code", s.joint_err_code,
               [](int v) { return static_cast<uint16_t>(v); });
    read_array(joints, "joint_position", s.joint_position, thousandths);
    read_array(joints, "joint_temperature", s.joint_temperature, thousandths);
    read_array(joints, "joint_voltage", s.joint_voltage, thousandths);
    // Joint speed travels in thousandths of a revolution per minute.
    read_array(joints, "joint_speed", s.joint_speed,
               [](int v) { return static_cast<float>(v) * 6.0f / 1000.0f; });
    read_force(cJSON_GetObjectItem(root, "six_force_sensor"), s);
    read_force(cJSON_GetObjectItem(root, "one_force_sensor"), s);
    const cJSON *waypoint = cJSON_GetObjectItem(root, "waypoint");
    int quat[4], euler[3], position[3];
    if (!cJSON_IsObject(waypoint) || !read_exact(waypoint, "quat", quat, 4) ||
        !read_exact(waypoint, "euler", euler, 3) || !read_exact(waypoint, "position", position, 3))
        return -3;
    s.waypoint.position = {static_cast<float>(position[0]) / 1000000.0f,
                           static_cast<float>(position[1]) / 1000000.0f,
                           static_cast<float>(position[2]) / 1000000.0f};
    s.waypoint.quaternion = {
        static_cast<float>(quat[0]) / 1000000.0f, static_cast<float>(quat[1]) / 1000000.0f,
        static_cast<float>(quat[2]) / 1000000.0f, static_cast<float>(quat[3]) / 1000000.0f};
    s.waypoint.euler = {thousandths(euler[0]), thousandths(euler[1]), thousandths(euler[2])};
    if (!all_numbers(root, {"arm_err", "sys_err"})) return -3;
    s.arm_err = static_cast<uint16_t>(number(root, "arm_err"));
    s.sys_err = static_cast<uint16_t>(number(root, "sys_err"));
    return 0;
}

void deliver(const char *datagram, const char *from_ip) {
    ka_realtime_arm_joint_state_t state;
    state.errCode = parse_ka_realtime_arm_joint_state(datagram, &state);
    std::snprintf(state.arm_ip, sizeof state.arm_ip, "%s", from_ip);
    udp_arm_err.store(state.arm_err);
    udp_sys_err.store(state.sys_err);
    if (auto callback = realtime_callback.load()) callback(state);
}

// A port removed while the thread was polling is not read any more.
bool still_listening(ka_udp_listener &listener, const std::shared_ptr<udp_socket> &socket) {
    std::lock_guard<std::mutex> lock(listener.mutex);
    for (const auto &entry : listener.entries)
        if (entry.count > 0 && entry.socket == socket) return true;
    return false;
}

void udp_loop(const worker_thread::run_ptr &run) {
    platform::wake_channel &wake = run->wake;
    ka_udp_listener *listener = ka_udp_init();
    while (!run->stop.load()) {
        platform::socket_t sockets[KA_MAX_ARMS + 1];
        std::shared_ptr<udp_socket> held[KA_MAX_ARMS + 1];
        bool ready[KA_MAX_ARMS + 1];
        size_t count = 0;
        sockets[count++] = wake.read_end();
        {
            std::lock_guard<std::mutex> lock(listener->mutex);
            for (const auto &entry : listener->entries)
                if (entry.count > 0 && entry.socket) {
                    held[count] = entry.socket;
                    sockets[count++] = entry.socket->fd;
                }
        }
        if (platform::poll_readable(sockets, ready, count, -1) < 0) continue;
        if (ready[0]) wake.drain();
        for (size_t i = 1; i < count; ++i) {
            if (!ready[i] || !still_listening(*listener, held[i])) continue;
            char datagram[datagram_capacity + 1];
            char from[16];
            long n;
            while ((n = platform::recv_datagram(sockets[i], datagram, datagram_capacity, from,
                                                sizeof from)) > 0) {
                datagram[n] = '\0';
                deliver(datagram, from);
            }
        }
    }
}

} // namespace

void realtime_start() { udp().start(udp_loop); }

void realtime_stop() {
    if (!udp().stop()) return;
    ka_udp_listener *listener = ka_udp_init();
    std::lock_guard<std::mutex> ports(listener->mutex);
    for (auto &entry : listener->entries)
        entry = port_entry{};
}

int realtime_add_port(int port) { return ka_udp_add_port(ka_udp_init(), port); }

extern "C" {

void ka_realtime_arm_state_call_back(ka_realtime_callback_t callback) {
    if (callback) realtime_callback.store(callback);
}

int parse_ka_realtime_arm_joint_state(const char *text, ka_realtime_arm_joint_state_t *state) {
    if (!state) return -3;
    std::memset(state, 0, sizeof *state);
    return parse(text, *state);
}

int get_arm_status_from_string(const char *name) {
    if (!name) return 0;
    for (size_t i = 0; i < std::size(status_names); ++i)
        if (std::strcmp(name, status_names[i]) == 0) return static_cast<int>(i);
    return 0;
}

ka_udp_listener *ka_udp_init(void) { return &process_listener; }

int ka_udp_add_port(ka_udp_listener *listener, int port) {
    if (!listener) return -1;
    int result;
    {
        std::lock_guard<std::mutex> lock(listener->mutex);
        for (auto &entry : listener->entries)
            if (entry.count > 0 && entry.port == port) {
                ++entry.count;
                return 1;
            }
        port_entry *free_entry = nullptr;
        for (auto &entry : listener->entries)
            if (entry.count == 0) {
                free_entry = &entry;
                break;
            }
        if (!free_entry) return -2;
        int socket = ka_udp_create_connect(port);
        if (socket > 0) {
            auto fd = static_cast<platform::socket_t>(socket);
            *free_entry = port_entry{std::make_shared<udp_socket>(fd), port, 1};
            result = 0;
        } else {
            free_entry->socket.reset();
            result = -1;
        }
    }
    udp().wake();
    return result;
}

int ka_udp_delete_port(ka_udp_listener *listener, int port) {
    if (!listener) return 0;
    {
        std::lock_guard<std::mutex> lock(listener->mutex);
        for (auto &entry : listener->entries) {
            if (entry.count > 0 && entry.port == port) --entry.count;
            if (entry.count < 1) entry = port_entry{};
        }
    }
    udp().wake();
    return 0;
}

int ka_udp_create_connect(int port) {
    platform::socket_t s = platform::udp_bind(port);
    if (s == platform::invalid_socket) {
        ka_log_error("bind failed");
        return -2;
    }
    // The exported form carries the socket as an int; Winsock's handles are
    // small values that fit.
    return static_cast<int>(s);
}

void ka_udp_close(int socket) {
    if (socket > 0) platform::close_socket(static_cast<platform::socket_t>(socket));
}

void *thread_udp_receive(void *) {
    udp_loop(std::make_shared<worker_thread::run>());
    return nullptr;
}

} // extern "C"
