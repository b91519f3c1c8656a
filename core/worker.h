// A library thread that blocks in poll and is stopped through a wake-up
// channel. Used by the TCP and UDP receive threads.
//
// Each run owns its stop flag and wake-up channel together, shared with the
// thread: a thread that had to be detached (the library was closed from one
// of its own callbacks) still finds both after the worker has moved on or
// the process is exiting.
#pragma once

#include "core/platform.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

class worker_thread {
  public:
    struct run {
        std::atomic<bool> stop{false};
        platform::wake_channel wake;
    };
    using run_ptr = std::shared_ptr<run>;

    worker_thread() = default;
    worker_thread(const worker_thread &) = delete;
    worker_thread &operator=(const worker_thread &) = delete;
    // A process that exits without closing the library ends the thread here,
    // before the state it reads goes away.
    ~worker_thread() { stop(); }

    // Starts loop(run) unless running. Each start has its own run, so a
    // thread told to stop never runs on because a newer one was started.
    template <typename Loop> void start(Loop loop) {
        std::lock_guard<std::mutex> lock(control_);
        if (thread_.joinable()) return;
        auto fresh = std::make_shared<run>();
        thread_ = std::thread(loop, fresh);
        run_ = std::move(fresh);
    }

    // Stops and joins; false when it was not running.
    bool stop() {
        std::lock_guard<std::mutex> lock(control_);
        if (!thread_.joinable()) return false;
        run_->stop.store(true);
        run_->wake.notify();
        // A callback running on this very thread may close the library: the
        // thread then ends on its own after the callback returns.
        if (thread_.get_id() == std::this_thread::get_id())
            thread_.detach();
        else
            thread_.join();
        run_.reset();
        return true;
    }

    void wake() {
        std::lock_guard<std::mutex> lock(control_);
        if (run_) run_->wake.notify();
    }

  private:
    std::mutex control_;
    std::thread thread_;
    run_ptr run_;
};
