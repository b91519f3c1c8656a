// Library-wide state of a trajectory save: the controller streams "point"
// lines after "save_trajectory"; the receive side appends them to the file
// opened by the save command. One save at a time in the whole process.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

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
