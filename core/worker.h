// A library thread that blocks in poll and is stopped through a wake-up
// channel. Used by the TCP and UDP receive threads.
#pragma once

#include "core/platform.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

class worker_thread {
  public:
    using stop_flag = std::shared_ptr<std::atomic<bool>>;

    // Starts loop(stop) unless running. Each start has its own flag, so a
    // thread told to stop never runs on because a newer one was started.
    template <typename Loop> void start(Loop loop) {
        std::lock_guard<std::mutex> lock(control_);
        if (thread_.joinable()) return;
        stop_ = std::make_shared<std::atomic<bool>>(false);
        thread_ = std::thread(loop, stop_);
    }

    // Stops and joins; false when it was not running.
    bool stop() {
        std::lock_guard<std::mutex> lock(control_);
        if (!thread_.joinable()) return false;
        stop_->store(true);
        wake_.notify();
        // A callback running on this very thread may close the library: the
        // thread then ends on its own after the callback returns.
        if (thread_.get_id() == std::this_thread::get_id())
            thread_.detach();
        else
            thread_.join();
        return true;
    }

    void wake() { wake_.notify(); }
    platform::wake_channel &channel() { return wake_; }

  private:
    std::mutex control_;
    std::thread thread_;
    stop_flag stop_;
    platform::wake_channel wake_;
};
