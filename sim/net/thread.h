// Thread priorities for the simulator's control cycle.
#pragma once

#ifdef _WIN32
#include <mutex>
#else
#include <pthread.h>
#include <sched.h>
#endif

namespace sim::net {

#ifdef _WIN32

// Windows has no priority-inheriting lock for user code; a plain mutex
// serves, and a holder starved by the time-critical cycle still runs once
// the scheduler's anti-starvation boost lifts it.
using priority_inheriting_mutex = std::mutex;

#else

// A thread that holds this lock while a higher-priority thread waits for it
// runs at the waiter's priority until it lets go, instead of queueing behind
// every other runnable thread.
class priority_inheriting_mutex {
  public:
    priority_inheriting_mutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        pthread_mutex_init(&mutex_, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~priority_inheriting_mutex() { pthread_mutex_destroy(&mutex_); }
    priority_inheriting_mutex(const priority_inheriting_mutex &) = delete;
    priority_inheriting_mutex &operator=(const priority_inheriting_mutex &) = delete;

    void lock() { pthread_mutex_lock(&mutex_); }
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }
    void unlock() { pthread_mutex_unlock(&mutex_); }

  private:
    pthread_mutex_t mutex_;
};

#endif

// Raises the calling thread above normal threads: the lowest real-time
// (SCHED_FIFO) priority, or the time-critical class on Windows. Where the
// process may not (no CAP_SYS_NICE), the thread keeps its priority.
void raise_to_real_time();

} // namespace sim::net
