// TCP transport: the socket object, the receive thread that splits each
// arm's byte stream into lines and files them in the arm's reply queue, the
// direct reader of single-thread mode, and matching a line to a waiter.
#include "core/transport.h"
#include "core/arm.h"
#include "core/json.h"
#include "core/trajectory_save.h"
#include "core/worker.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace {

constexpr int send_timeout_ms = 3000;
constexpr int connect_timeout_ms = 3000;
constexpr const char *trajectory_event = "current_trajectory_state";
constexpr const char *program_event = "program_run_finish";

std::atomic<ka_event_callback_t> event_callback{nullptr};

worker_thread &receiver() {
    static worker_thread thread;
    return thread;
}

// The value of "command", else of "state"; empty when neither is a string.
const char *line_name(const cJSON *doc) {
    const char *name = MIO_JSON_GetObjectItemStr(doc, "command");
    if (!name) name = MIO_JSON_GetObjectItemStr(doc, "state");
    return name;
}

void copy_name(char (&dst)[queue_name_capacity], const char *src) {
    std::snprintf(dst, sizeof dst, "%s", src ? src : "");
}

int copy_out(char *out, int size, const char *text, size_t length) {
    if (!out || size < 1) return static_cast<int>(length);
    size_t n = std::min(length, static_cast<size_t>(size - 1));
    std::memcpy(out, text, n);
    out[n] = '\0';
    return static_cast<int>(n);
}

void deliver_event(const arm_record &arm, const cJSON *doc, int type) {
    ka_event_push_data_t event{};
    event.handle_id = load_public(arm.pub.id);
    event.event_type = type;
    if (type == 1) {
        event.device = MIO_JSON_GetObjectItemInt(doc, "device");
        event.trajectory_state = MIO_JSON_GetObjectItemBool(doc, "trajectory_state") == 1;
        event.trajectory_connect = MIO_JSON_GetObjectItemInt(doc, "trajectory_connect");
    } else {
        event.finish_id = MIO_JSON_GetObjectItemInt(doc, "finish_id");
    }
    if (auto callback = event_callback.load()) callback(event);
}

// Takes the first queued line named `name`; the queue's mutex is held.
int take_line(arm_record &arm, const char *name, char *out, int size) {
    reply_queue &queue = arm.queue;
    for (size_t i = 0; i < queue.entries.size(); ++i) {
        queue_entry &entry = queue.entries[i];
        if (!entry.used) continue;
        // A completion report left over from a command that did not wait for
        // it is dropped by the next lookup, so that it cannot end a later wait
        // early. A wait for the report itself takes it. While a blocking wait
        // runs on this arm, every report is kept for it.
        int flag = arm.awaited_event.load();
        bool awaited = (flag == 1 && std::strcmp(entry.name, trajectory_event) == 0) ||
                       (flag == 2 && std::strcmp(entry.name, program_event) == 0);
        if (std::strcmp(entry.name, name) == 0) {
            if (awaited) arm.awaited_event.store(0);
            int n = copy_out(out, size, entry.text.data(), entry.text.size());
            entry.used = false;
            return n;
        }
        if (awaited && arm.blocking_waits.load() == 0) {
            arm.awaited_event.store(0);
            entry.used = false;
            continue;
        }
        ka_log_debug("i is %d command is %s\n", static_cast<int>(i), entry.name);
    }
    return -1;
}

waiting_name *find_waiting(reply_queue &queue, const char *name) {
    for (auto &w : queue.waiting)
        if (w.name == name) return &w;
    return nullptr;
}

// Whether a caller on the arm waits for lines named `name`: a reply wait in
// progress, or a completion report that a blocking call expects. The
// queue's mutex is held.
bool awaited_locked(arm_record &arm, const char *name) {
    if (find_waiting(arm.queue, name)) return true;
    bool trajectory = std::strcmp(name, trajectory_event) == 0;
    bool program = std::strcmp(name, program_event) == 0;
    if (!trajectory && !program) return false;
    int flag = arm.awaited_event.load();
    return arm.blocking_waits.load() > 0 || (trajectory && flag == 1) || (program && flag == 2);
}

// Where a new named line goes: a free entry, else the first stale entry that
// nobody waits for. A line that a caller waits for takes the place of the
// oldest line nobody waits for (of the oldest line when every entry is
// awaited); any other line is dropped when there is no room (null).
queue_entry *entry_for(arm_record &arm, bool wanted) {
    reply_queue &queue = arm.queue;
    for (auto &entry : queue.entries)
        if (!entry.used) return &entry;
    for (auto &entry : queue.entries)
        if (queue.counter > entry.stamp + queue_stale_after && !awaited_locked(arm, entry.name))
            return &entry;
    if (!wanted) return nullptr;
    queue_entry *oldest = nullptr;
    queue_entry *oldest_unwanted = nullptr;
    for (auto &entry : queue.entries) {
        if (!oldest || entry.stamp < oldest->stamp) oldest = &entry;
        if (!awaited_locked(arm, entry.name) &&
            (!oldest_unwanted || entry.stamp < oldest_unwanted->stamp))
            oldest_unwanted = &entry;
    }
    return oldest_unwanted ? oldest_unwanted : oldest;
}

// A line with a NUL byte is no JSON text a reply parser could read.
bool has_nul(const char *line, size_t length) { return std::memchr(line, '\0', length) != nullptr; }

int event_type_of(const char *name) {
    if (!name) return 0;
    if (std::strcmp(name, trajectory_event) == 0) return 1;
    if (std::strcmp(name, program_event) == 0) return 2;
    return 0;
}

void file_line(arm_record &arm, const char *line, size_t length) {
    if (length < min_line_bytes - 1 || has_nul(line, length)) return;
    json_ptr doc(cJSON_ParseWithLength(line, length));
    if (!doc) return;
    const char *name = line_name(doc.get());
    const cJSON *point = name ? nullptr : cJSON_GetObjectItem(doc.get(), "point");
    if (!name && !point) return; // nobody can ask for it
    if (point) {
        // The save file gets every point whatever room the queue has.
        save_point_threaded(std::string(line, length).c_str(), length, point);
        if (!cJSON_IsArray(point)) return;
    }
    ka_log_debug("thread_socket_receive len %d robot_handle: %d message:%.*s\n",
                 static_cast<int>(length), load_public(arm.pub.id), static_cast<int>(length), line);
    bool filed = false;
    {
        reply_queue &queue = arm.queue;
        std::lock_guard<std::mutex> lock(queue.mutex);
        ++queue.counter;
        queue_entry *slot = nullptr;
        if (point) {
            // Point lines carry no name; they go to the entry indexed by the
            // arm's DOF, as the controller's save protocol has always done,
            // unless that entry holds a line a caller waits for.
            int dof = load_public(arm.pub.arm_dof);
            if (dof > 0 && dof < queue_entry_count) slot = &queue.entries[static_cast<size_t>(dof)];
            if (slot && slot->used && awaited_locked(arm, slot->name)) slot = nullptr;
        } else {
            slot = entry_for(arm, awaited_locked(arm, name));
        }
        if (slot) {
            copy_name(slot->name, name);
            slot->text.assign(line, std::min(length, queue_line_capacity));
            slot->stamp = queue.counter;
            slot->used = true;
            filed = true;
        }
    }
    if (filed) arm.queue.filed.notify_all();
    // Every completion report reaches the event callback, queued or not.
    if (int type = event_type_of(name)) deliver_event(arm, doc.get(), type);
}

void read_available(arm_record &arm) {
    char chunk[16384];
    for (;;) {
        long n = platform::recv_some(arm.socket->fd, chunk, sizeof chunk);
        if (n > 0) {
            receive_bytes(arm, chunk, static_cast<size_t>(n));
            continue;
        }
        if (n == 0 || n == -2) mark_disconnected(arm);
        return;
    }
}

void receive_loop(const worker_thread::run_ptr &run) {
    platform::wake_channel &wake = run->wake;
    std::array<arm_ptr, KA_MAX_ARMS> arms;
    platform::socket_t sockets[KA_MAX_ARMS + 1];
    bool ready[KA_MAX_ARMS + 1];
    while (!run->stop.load()) {
        registry_connected_arms(arms);
        size_t count = 0;
        arm_record *polled[KA_MAX_ARMS + 1] = {};
        sockets[count++] = wake.read_end();
        for (auto &arm : arms)
            if (arm) {
                polled[count] = arm.get();
                sockets[count++] = arm->socket->fd;
            }
        // A quiet poll ends when a running save's silence would be long enough.
        int r = platform::poll_readable(sockets, ready, count, save_check_silence());
        if (r == 0) continue;
        if (ready[0]) wake.drain();
        for (size_t i = 1; i < count; ++i)
            if (ready[i]) read_available(*polled[i]);
        for (auto &arm : arms)
            arm.reset();
    }
}

// Single-thread mode: a "point" line met by the caller's own reads.
bool is_point_line(const cJSON *doc) {
    return doc && !line_name(doc) && cJSON_GetObjectItem(doc, "point");
}

// Lines kept for later direct waits; beyond this many the oldest go (a
// caller that stopped waiting leaves them unread).
constexpr std::size_t max_direct_pending = 64;

// Single-thread mode: read the socket on the caller's thread until the line
// named `name` arrives. Lines met before it are answers nobody waits for and
// are dropped; whole lines that came after it in the same read are kept for
// the next wait (two completion reports may share a read).
int direct_wait(arm_record &arm, const char *name, char *out, int size, int timeout_ms) {
    std::lock_guard<std::mutex> reading(arm.direct_read_mutex);
    line_splitter &lines = arm.assembly;
    if (!arm.connected.load() && arm.direct_pending.empty()) return -1;
    int found = -1;
    // The copy handed out keeps the line's "\r\n", which follows its text.
    auto on_line = [&](const char *line, size_t length) {
        size_t with_end = length + 2;
        if (found >= 0) {
            if (arm.direct_pending.size() == max_direct_pending) arm.direct_pending.pop_front();
            arm.direct_pending.emplace_back(line, with_end);
            return true;
        }
        if (with_end < min_line_bytes || has_nul(line, length)) return true;
        json_ptr doc(cJSON_ParseWithLength(line, length));
        const char *got = doc ? line_name(doc.get()) : nullptr;
        if (got && std::strcmp(got, name) == 0) {
            found = copy_out(out, size, line, with_end);
            ka_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", found,
                         load_public(arm.pub.id), out);
            return true;
        }
        if (is_point_line(doc.get())) save_point_direct(arm, std::string(line, with_end));
        return true;
    };
    while (!arm.direct_pending.empty()) {
        const std::string line = std::move(arm.direct_pending.front());
        arm.direct_pending.pop_front();
        on_line(line.data(), line.size() - 2);
        if (found >= 0) return found;
    }
    if (!arm.connected.load()) return -1;
    auto deadline = platform::clock::now() + std::chrono::milliseconds(timeout_ms);
    char chunk[4096];
    for (;;) {
        auto now = platform::clock::now();
        if (now >= deadline) break;
        // Rounded up: a wait never ends before its time-out.
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
        int w = platform::wait_readable(arm.socket->fd, static_cast<int>(left.count()));
        if (w == 0) continue;
        if (w < 0) return -2;
        long n = platform::recv_some(arm.socket->fd, chunk, sizeof chunk);
        if (n == -1) continue;
        if (n == 0 || n == -2) {
            mark_disconnected(arm);
            return n == 0 ? -1 : -2;
        }
        lines.feed(chunk, static_cast<size_t>(n), on_line);
        if (found >= 0) return found;
    }
    save_check_silence();
    return -1;
}

// Single-thread mode, before a request goes out: what has already arrived
// answers an earlier request, never this one, and nobody else reads it, so
// it is dropped (a point line still goes to a save file). The caller holds
// the arm's direct_read_mutex.
void direct_drain(arm_record &arm) {
    for (const std::string &line : arm.direct_pending) {
        json_ptr doc(cJSON_ParseWithLength(line.data(), line.size() - 2));
        if (is_point_line(doc.get())) save_point_direct(arm, line);
    }
    arm.direct_pending.clear();
    if (!arm.connected.load()) return;
    line_splitter &lines = arm.assembly;
    lines.clear();
    char chunk[4096];
    for (;;) {
        long n = platform::recv_some(arm.socket->fd, chunk, sizeof chunk);
        if (n == -1) break;
        if (n == 0 || n == -2) {
            mark_disconnected(arm);
            break;
        }
        lines.feed(chunk, static_cast<size_t>(n), [&](const char *line, size_t length) {
            if (length + 2 >= min_line_bytes && !has_nul(line, length)) {
                json_ptr doc(cJSON_ParseWithLength(line, length));
                if (is_point_line(doc.get())) save_point_direct(arm, std::string(line, length + 2));
            }
            return true;
        });
    }
    lines.clear();
}

} // namespace

arm_record::~arm_record() {
    if (socket) platform::close_socket(socket->fd);
}

void receiver_start() { receiver().start(receive_loop); }

// With the receive side stopped no point can arrive any more: a save file
// left open is closed, and a save still waiting sees that it has no file.
void receiver_stop() {
    receiver().stop();
    save_receive_stopped();
}

void receiver_wake() { receiver().wake(); }

void mark_disconnected(arm_record &arm) {
    if (!arm.connected.exchange(false)) return;
    ka_log_debug("connection of arm %d closed\n", load_public(arm.pub.id));
    {
        std::lock_guard<std::mutex> lock(arm.queue.mutex);
        arm.queue.closed = true;
    }
    arm.queue.filed.notify_all();
}

int send_on_arm(arm_record &arm, const char *data, size_t length) {
    if (!arm.connected.load()) return -2;
    if (socket_block_send(arm.socket.get(), data, static_cast<int>(length)) == 0) return 0;
    socket_close(arm.socket.get());
    mark_disconnected(arm);
    return -2;
}

int wait_for_line(arm_record &arm, const char *name, char *out, int size, int timeout_ms) {
    if (timeout_ms < 2 || !name) return -1;
    int mode = thread_mode();
    if (mode == KA_THREAD_MODE_SINGLE) return direct_wait(arm, name, out, size, timeout_ms);
    if (mode != KA_THREAD_MODE_DUAL && mode != KA_THREAD_MODE_TRIPLE) {
        // No reader in this mode: the wait can only run out.
        std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms));
        return -1;
    }
    reply_queue &queue = arm.queue;
    reply_claim claim(arm, name, false);
    auto deadline = platform::clock::now() + std::chrono::milliseconds(timeout_ms);
    std::unique_lock<std::mutex> lock(queue.mutex);
    for (;;) {
        int n = take_line(arm, name, out, size);
        if (n >= 0) return n;
        if (queue.closed) return -1;
        if (queue.filed.wait_until(lock, deadline) == std::cv_status::timeout)
            return take_line(arm, name, out, size);
    }
}

namespace {
void purge_locked(reply_queue &queue, const char *name) {
    for (auto &entry : queue.entries)
        if (entry.used && std::strcmp(entry.name, name) == 0) entry.used = false;
}
} // namespace

void purge_lines(arm_record &arm, const char *name) {
    std::lock_guard<std::mutex> lock(arm.queue.mutex);
    purge_locked(arm.queue, name);
}

void receive_bytes(arm_record &arm, const char *data, size_t length) {
    arm.assembly.feed(data, length, [&](const char *line, size_t n) {
        file_line(arm, line, n);
        return true;
    });
}

reply_claim::reply_claim(arm_record &arm, const char *name, bool fresh) : arm_(arm), name_(name) {
    if (!name) return;
    reply_queue &queue = arm.queue;
    if (thread_mode() == KA_THREAD_MODE_SINGLE) {
        // The caller's own reads: claims on the arm take turns with them, so
        // the lines dropped here cannot be the answer to another claim's
        // request, which goes out only after that claim is registered.
        std::lock_guard<std::mutex> reading(arm.direct_read_mutex);
        bool alone;
        {
            std::lock_guard<std::mutex> lock(queue.mutex);
            alone = queue.waiting.empty();
            queue.waiting.push_back({name, 1});
        }
        counted_ = true;
        if (fresh && alone) direct_drain(arm);
        return;
    }
    std::lock_guard<std::mutex> lock(queue.mutex);
    if (waiting_name *w = find_waiting(queue, name)) {
        ++w->callers; // concurrent calls of one name: first come, first served
    } else {
        if (fresh) purge_locked(queue, name);
        queue.waiting.push_back({name, 1});
    }
    counted_ = true;
}

reply_claim::~reply_claim() {
    if (!counted_) return;
    std::lock_guard<std::mutex> lock(arm_.queue.mutex);
    auto &waiting = arm_.queue.waiting;
    for (auto it = waiting.begin(); it != waiting.end(); ++it)
        if (it->name == name_) {
            if (--it->callers == 0) waiting.erase(it);
            return;
        }
}

extern "C" {

ka_socket_object *ka_socket_handle_init(const char *ip, int port) {
    // The text need not be terminated: no more is read than the field takes.
    if (!ip || port < 1) return nullptr;
    size_t length = strnlen(ip, sizeof(ka_socket_object::ip) + 1);
    if (length > sizeof(ka_socket_object::ip)) return nullptr;
    auto object = new ka_socket_object;
    std::memcpy(object->ip, ip, length);
    object->port = port;
    return object;
}

void ka_socket_handle_destroy(ka_socket_object *object) {
    if (!object) return;
    platform::close_socket(object->fd);
    delete object;
}

int socket_connect(ka_socket_object *object) {
    if (!object) return -1;
    char ip[sizeof object->ip + 1] = {};
    std::memcpy(ip, object->ip, sizeof object->ip);
    int stage = 0;
    object->fd = platform::tcp_connect(ip, object->port, connect_timeout_ms, &stage);
    return object->fd != platform::invalid_socket ? static_cast<int>(object->fd) : stage;
}

int socket_send(ka_socket_object *object, const char *buffer, int length) {
    if (!object || !buffer || length < 1) return -1;
    std::lock_guard<std::mutex> lock(object->send_mutex);
    return platform::send_all(object->fd, buffer, static_cast<size_t>(length), 0) == 0 ? 0 : -2;
}

int socket_block_send(ka_socket_object *object, const char *buffer, int length) {
    if (!object || !buffer || length < 1) return -1;
    std::lock_guard<std::mutex> lock(object->send_mutex);
    return platform::send_all(object->fd, buffer, static_cast<size_t>(length), send_timeout_ms);
}

int socket_receive(ka_socket_object *object, char *buffer, int length) {
    if (!object || !buffer || length < 1) return -1;
    long n = platform::recv_some(object->fd, buffer, static_cast<size_t>(length));
    if (n < 0) return -2;
    ka_log_debug("buf:is %.*s\n", static_cast<int>(n), buffer);
    return static_cast<int>(n);
}

int socket_blocking_recive(ka_socket_object *object, char *buffer, int length) {
    if (!object || !buffer || length < 1) return -2;
    long n = platform::recv_some(object->fd, buffer, static_cast<size_t>(length));
    if (n > 0) return static_cast<int>(n);
    return n == 0 ? -1 : -2;
}

// Shuts the connection down at once; the descriptor itself is released with
// the arm's record, so a receive thread polling it never sees a reused number.
int socket_close(ka_socket_object *object) {
    if (object) platform::shutdown_socket(object->fd);
    return 0;
}

int add_str_to_fifo(arm_record *arm, const char *line, int length) {
    if (!arm || !line || length < 1) return -1;
    file_line(*arm, line, static_cast<size_t>(length));
    return 0;
}

int get_str_from_fifo(reply_queue *queue, const char *name, char *out, int size) {
    if (!queue || !name) return -1;
    std::lock_guard<std::mutex> lock(queue->mutex);
    return take_line(queue->owner, name, out, size);
}

int handle_revice_data(arm_record *arm, const char *name, char *out, int size, int timeout_ms) {
    if (!arm) return -1;
    if (out && size > 0) out[0] = '\0';
    return wait_for_line(*arm, name, out, size, timeout_ms);
}

void *thread_socket_receive(void *) {
    receive_loop(std::make_shared<worker_thread::run>());
    return nullptr;
}

void ka_get_arm_event_call_back(ka_event_callback_t callback) {
    if (callback) event_callback.store(callback);
}

} // extern "C"
