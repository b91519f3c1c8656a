// One simulated arm: its joints, its queue of planned motions and its push
// configuration. Time is the simulator's simulated time in seconds; the
// control cycle calls advance() with it, commands read and change the state
// between cycles. Every member is safe to call from any thread.
#pragma once

#include "sim/model.h"

#include <array>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

using joint_array = std::array<double, 7>; // degrees, first dof entries used

// The end of one motion, reported to the clients as "current_trajectory_state".
struct motion_end {
    bool completed; // false: ended early (stopped)
    int connect;    // the motion's "trajectory_connect": 1 while a connected motion follows
};

struct push_config {
    bool enable = false;
    int cycle = 5; // control cycles between datagrams
    int port = 8089;
    std::string ip = "127.0.0.1";
    int force_coordinate = 0;
    bool joint_speed = true;
    bool lift_state = false;
    bool expand_state = false;
    bool arm_current_status = true;
};

struct arm_sample {
    joint_array joints{};
    joint_array speeds{};            // degrees/s
    const char *trajectory = "none"; // kind of the running trajectory
    const char *status = "idle";     // arm_current_status name
};

class arm {
  public:
    explicit arm(arm_traits traits);

    const arm_traits &traits() const { return traits_; }

    // Queues a joint move to `target`, at v percent of the joint speed and
    // acceleration limits. False, and nothing queued, for a target outside
    // the joint limits or v outside 1..100.
    bool queue_movej(const joint_array &target, int v, int connect, double now);
    // Moves the joints to where the motions put them at `now`; returns the
    // motions that ended on the way, in order.
    std::vector<motion_end> advance(double now);
    // Ends the running motion where the arm is and drops the queued ones.
    // Returns the motions that had ended by `now`, then the stopped one.
    std::vector<motion_end> stop(double now);

    arm_sample sample() const;
    bool within_limits(const joint_array &joints) const;

    push_config push() const;
    void set_push(const push_config &config);

  private:
    struct motion {
        joint_array target{};
        int v = 0;
        int connect = 0;
        // Planned when the motion starts: s(t) runs 0..1 along start -> target
        // on a trapezoidal profile with peak rate peak and acceleration acc.
        bool planned = false;
        joint_array start{};
        double start_time = 0, duration = 0, peak = 0, acc = 0;
    };
    void plan(motion &m, double start_time);
    static double progress(const motion &m, double t, double *rate);

    const arm_traits traits_;
    mutable std::mutex mutex_;
    joint_array joints_{};
    joint_array speeds_{};
    std::deque<motion> motions_;
    push_config push_;
};

} // namespace sim
