#include "core/trajectory_save.h"

#include "core/arm.h"
#include "core/exchange.h"
#include "core/log.h"
#include "core/wait.h"

#include <algorithm>
#include <cstring>

namespace {

// At namespace scope, so it is built before the receive thread and outlives
// it when the process exits.
trajectory_save_state save_state;

void close_file(trajectory_save_state &save) {
    if (save.file) std::fclose(save.file);
    save.file = nullptr;
}

} // namespace

trajectory_save_state &trajectory_save() { return save_state; }

// Receive thread: a "point" line of a trajectory save goes to the save file.
void save_point_threaded(const char *line, size_t length, const cJSON *point) {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    if (!cJSON_IsArray(point)) {
        save.no_file = true;
        ka_log_error("Error: 'point' is not an array. %s\n", line);
    } else if (!save.file) {
        save.no_file = true;
    } else {
        std::fwrite(line, 1, length, save.file);
        std::fputs("\r\n", save.file);
        std::fflush(save.file);
        save.started = true;
        save.last_point = std::chrono::steady_clock::now();
        ++save.count;
        ka_log_debug("drag_teach_count:  %d  drag_teach_total_num: %d\n", save.count, save.total);
        if (save.count != 0 && save.count == save.total) save.complete = true;
    }
    save.changed.notify_all();
}

// Single-thread mode: the commanding thread met a "point" line.
void save_point_direct(const arm_record &arm, const std::string &line) {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    save.started = true;
    save.last_point = std::chrono::steady_clock::now();
    if (save.file) {
        save.no_file = false;
        char copy[2048];
        const size_t n = std::min(line.size(), sizeof copy - 1);
        std::memcpy(copy, line.data(), n);
        copy[n] = '\0';
        ka_log_debug("drag_save len %d robot_handle: %d drag_save:%s\n",
                     static_cast<int>(line.size()), load_public(arm.pub.id), copy);
        // The line keeps its own "\r\n" unless the copy had to cut it off.
        std::fputs(copy, save.file);
        if (!std::strstr(copy, "\r\n")) std::fputs("\r\n", save.file);
        std::fflush(save.file);
    } else {
        save.no_file = true;
    }
    save.changed.notify_all();
}

// Silence after the latest point ends the stream of a running save. The
// milliseconds left until it would end, or -1 when no save waits for it.
// Measured from the latest point, so traffic on other arms cannot put the
// end off.
int save_check_silence() {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    if (!save.started || save.complete) return -1;
    auto quiet = std::chrono::steady_clock::now() - save.last_point;
    if (quiet >= save_quiet) {
        save.complete = true;
        save.changed.notify_all();
        return -1;
    }
    return static_cast<int>(
        std::chrono::ceil<std::chrono::milliseconds>(save_quiet - quiet).count());
}

void save_receive_stopped() {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    close_file(save);
    save.no_file = true;
    save.changed.notify_all();
}

bool save_begin(const char *path) {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    save.started = false;
    save.no_file = false;
    save.complete = false;
    save.count = 0;
    save.total = 0;
    save.last_point = {};
    close_file(save);
    // Binary: each point goes out with its own "\r\n", which a text-mode
    // file on Windows would turn into "\r\r\n".
    save.file = std::fopen(path, "wb+");
    return save.file != nullptr;
}

void save_set_total(int total) {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    save.total = total;
}

int save_wait_threaded(std::chrono::milliseconds first_point) {
    auto &save = trajectory_save();
    std::unique_lock<std::mutex> lock(save.mutex);
    save.changed.wait_for(lock, first_point, [&] { return save.started || save.no_file; });
    if (!save.started || save.no_file) return -6;
    save.changed.wait(lock, [&] { return save.complete || save.no_file; });
    // A bad point line spoils the file even when the stream then reaches its
    // announced count.
    if (!save.complete || save.no_file) return -6;
    close_file(save);
    save.count = 0;
    return 0;
}

namespace {

bool save_flag(bool trajectory_save_state::*flag) {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    return save.*flag;
}

bool save_file_open() {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    return save.file != nullptr;
}

void save_close() {
    auto &save = trajectory_save();
    std::lock_guard<std::mutex> lock(save.mutex);
    close_file(save);
}

bool arm_connected(const ka_robot_handle *handle) {
    arm_ptr arm = registry_find(handle);
    return arm && arm->connected.load();
}

constexpr int direct_follow_ms = 1000; // one read while the stream runs

} // namespace

// The reads end by time-out: "point" names no reply.
int save_wait_direct(const char *function, ka_robot_handle *handle) {
    char scratch[reply_buffer_size];
    ka_pack_lock_wait(function, handle, "point", scratch, sizeof scratch, m_nOutTime);
    if (save_flag(&trajectory_save_state::started) && !save_flag(&trajectory_save_state::no_file)) {
        // A lost connection ends the stream as silence does.
        while (!save_flag(&trajectory_save_state::complete) && arm_connected(handle))
            ka_pack_lock_wait(function, handle, "point", scratch, sizeof scratch, direct_follow_ms);
        save_close();
        return 0;
    }
    if (save_file_open()) return 0;
    ka_log_error("The file is closed\n");
    return -6;
}

int save_wait(const char *function, ka_robot_handle *handle) {
    return wait::current_reader().direct ? save_wait_direct(function, handle)
                                         : save_wait_threaded(std::chrono::milliseconds(2000));
}
