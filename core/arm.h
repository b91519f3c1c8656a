// The library's record of one arm: connection, reply queue, cached
// parameters, and the public handle that callers hold a pointer to.
#pragma once

#include "core/line_splitter.h"
#include "core/platform.h"
#include "ka_api.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Protocol limits of the receive side.
constexpr int queue_entry_count = 20;         // lines held per arm
constexpr size_t queue_name_capacity = 54;    // "command"/"state" value kept per line
constexpr size_t queue_line_capacity = 10240; // longest line that is filed
constexpr uint64_t queue_stale_after = 50;    // an entry is stale after 50 further lines
constexpr size_t min_line_bytes = 6;          // shorter texts are never a reply

struct ka_socket_object {
    platform::socket_t fd = platform::invalid_socket;
    char ip[20] = {};
    int port = 0;
    std::mutex send_mutex; // a line goes out whole, never interleaved
};

struct queue_entry {
    bool used = false;
    char name[queue_name_capacity] = {};
    std::string text;
    uint64_t stamp = 0;
};

struct arm_record;

// A reply name that callers on the arm are waiting for, and how many.
struct waiting_name {
    std::string name;
    int callers = 0;
};

// Lines received for one arm, waiting to be taken by the command that asked
// for them. Filed by the receive thread, taken by the commanding threads.
struct reply_queue {
    explicit reply_queue(arm_record &owner) : owner(owner) {}
    arm_record &owner; // whose awaited-event flag the lookups follow
    std::mutex mutex;
    std::condition_variable filed;
    std::array<queue_entry, queue_entry_count> entries;
    uint64_t counter = 0; // lines filed so far
    bool closed = false;  // the connection is gone: waiters stop waiting
    // Names callers wait for right now. A line under one of them is never
    // dropped or overwritten for lack of room.
    std::vector<waiting_name> waiting;
};

struct arm_record {
    std::unique_ptr<ka_socket_object> socket;
    reply_queue queue{*this};
    ka_robot_handle pub{}; // the caller's handle points here

    // Cache filled by the queries run at creation (and refreshed by later
    // reads of the same values); handed to the kinematics.
    std::mutex cache_mutex;
    ka_frame_t tool_frame{};
    ka_frame_t work_frame{};
    float install[3] = {}; // degrees
    float joint_max_pos[7] = {};
    float joint_min_pos[7] = {};
    float joint_max_acc[7] = {};
    float joint_max_speed[7] = {};
    int push_port = 0;

    std::atomic<bool> connected{false};

    // Awaited-event flag: 0 none, 1 a motion's completion report is expected,
    // 2 a program's. While it is set, a lookup for any other line drops a
    // queued report of that kind (it belongs to a command nobody waits for);
    // see get_str_from_fifo.
    std::atomic<int> awaited_event{0};
    // Blocking waits in progress on this arm. While there is one, no lookup
    // drops a completion report: the waiter's own queries must not discard
    // the report it waits for.
    std::atomic<int> blocking_waits{0};

    // Line assembly: used by the receive thread (modes 1, 2) or, under
    // direct_read_mutex, by the commanding thread (mode 0).
    line_splitter assembly;
    std::mutex direct_read_mutex;
    // Mode 0: whole lines that arrived in the same read after the one a
    // direct wait took, kept (with their "\r\n") for the next wait.
    std::deque<std::string> direct_pending;

    ~arm_record();
};

using arm_ptr = std::shared_ptr<arm_record>;

// The public fields are read and written from several threads; the library
// accesses them atomically (callers read them as plain ints).
inline int32_t load_public(const int32_t &field) {
    return std::atomic_ref<int32_t>(const_cast<int32_t &>(field)).load();
}
inline void store_public(int32_t &field, int32_t value) {
    std::atomic_ref<int32_t>(field).store(value);
}

// Registry (registry.cpp). Looks a handle up among the registered arms; the
// returned pointer keeps the record alive while a command uses it.
arm_ptr registry_find(const ka_robot_handle *handle);
// As registry_find; an unknown handle is logged as "[label] handle is NULL!".
arm_ptr registry_find_logged(const char *label, const ka_robot_handle *handle);
// Current thread mode (ka_thread_mode_e; 2 until ka_init says otherwise).
int thread_mode();
// Snapshot of the registered, connected arms (for the receive thread).
void registry_connected_arms(std::array<arm_ptr, KA_MAX_ARMS> &out);

// Receive side (transport.cpp).
void receiver_start();
void receiver_stop();
void receiver_wake(); // the set of arms changed
void mark_disconnected(arm_record &arm);
// Sends bytes on the arm's connection, waiting for room up to the send
// time-out. 0 sent, -2 not connected or failed. A send that fails leaves the
// stream cut inside a line, so the connection is closed: later calls fail at
// once instead of talking into a stream the controller can no longer read.
int send_on_arm(arm_record &arm, const char *data, size_t length);
// Mode 0 and threaded waiting for the line named `name`; see handle_revice_data.
int wait_for_line(arm_record &arm, const char *name, char *out, int size, int timeout_ms);
// Drops queued lines with this name (a new wait must not take an old one).
void purge_lines(arm_record &arm, const char *name);
// Feeds bytes received on the arm's connection into its line assembly and
// files every complete line, as the receive thread does.
void receive_bytes(arm_record &arm, const char *data, size_t length);

// Held by a call from before its request goes out until its wait for the
// line named `name` ends: the arm then knows someone waits for that name.
// A fresh claim first drops what is still queued under the name (a late
// answer to an earlier call, a duplicate), unless another call on the arm
// waits for it at this moment; in single-thread mode it drops the lines
// already received on the connection.
class reply_claim {
  public:
    reply_claim(arm_record &arm, const char *name, bool fresh);
    ~reply_claim();
    reply_claim(const reply_claim &) = delete;
    reply_claim &operator=(const reply_claim &) = delete;

  private:
    arm_record &arm_;
    const char *name_;
    bool counted_ = false;
};

// Realtime push (realtime.cpp).
void realtime_start();
void realtime_stop();
int realtime_add_port(int port);
