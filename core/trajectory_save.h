// Saving a drag-taught trajectory: after "save_trajectory" the controller
// streams "point" lines, which the receive side (the receive thread, or in
// single-thread mode the caller's own reads) appends to the file the save
// command opened. One save at a time in the whole process; the file and its
// flags are touched only under the state's mutex.
#pragma once

#include "core/json.h"
#include "ka_api.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

struct arm_record;
struct trajectory_save_state {
    std::mutex mutex;
    std::condition_variable changed; // signalled on every flag change
    FILE *file = nullptr;            // owned by the save command
    bool started = false;            // first point line seen
    bool no_file = false;            // a point arrived with no file open, or a bad line
    bool complete = false;           // all points written, or the stream went quiet
    int count = 0;                   // points written (threaded receive)
    int total = 0;                   // points announced by the controller
    std::chrono::steady_clock::time_point last_point{}; // when the latest point arrived
};

trajectory_save_state &trajectory_save();

// The stream counts as finished after this much silence following a point.
constexpr std::chrono::milliseconds save_quiet{1000};

// ----------------------------------------------------------- receive side

// Receive thread: a "point" line goes to the save file.
void save_point_threaded(const char *line, size_t length, const cJSON *point);
// Single-thread mode: the same from the caller's own read of the socket.
void save_point_direct(const arm_record &arm, const std::string &line);
// Silence after the latest point ends the stream of a running save. The
// milliseconds left until it would end, or -1 when no save waits for it.
int save_check_silence();
// The receive side has stopped, so no point can arrive any more: a file left
// open is closed, and a save still waiting sees that it has no file.
void save_receive_stopped();

// ----------------------------------------------------------- command side

// Starts a save: fresh flags, the previous file closed, path created. False
// when the file cannot be opened.
bool save_begin(const char *path);
// The number of points the controller announced.
void save_set_total(int total);
// Threaded modes: the receive thread writes the points; waits up to
// first_point for the first, then for the stream's end. 0, or -6 when no
// point came, one came with no file open, or a point line was bad.
int save_wait_threaded(std::chrono::milliseconds first_point);
// Thread mode 0: the caller's thread reads (its reads labelled `function`),
// and the reading writes the points until the stream ends or the connection
// is lost; the file is then closed. With no point yet the file stays open
// for points that come later (the next save, or closing the library, closes
// it). 0, or -6 when the file is closed.
int save_wait_direct(const char *function, ka_robot_handle *handle);
// As the reader makes it: read directly, the caller's own reads write the
// points; otherwise the first is awaited 2 s.
int save_wait(const char *function, ka_robot_handle *handle);
