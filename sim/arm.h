// One simulated arm: its joints, its queue of planned motions, its joint
// limits, frames and push configuration, and the stores of every command
// family (I/O, end effectors, programs, ...). Time is the simulator's
// simulated time in seconds.
//
// Not locked inside: the simulator holds the arm's lock around every
// command and every control cycle, so a command sees and changes the whole
// state at once.
#pragma once

#include "sim/model.h"
#include "sim/state/devices.h"
#include "sim/state/frames.h"
#include "sim/state/io.h"
#include "sim/state/modbus.h"
#include "sim/state/network.h"
#include "sim/state/programs.h"
#include "sim/state/safety.h"

#include <array>
#include <deque>
#include <string>
#include <vector>

namespace sim {

using joint_array = std::array<double, 7>; // degrees, first dof entries used

// A line the controller sends unasked on every connection of the arm, after
// the reply of the command that caused it (completion reports and the like).
using report_list = std::vector<std::string>;

// The end of one motion of a device, reported as "current_trajectory_state".
struct motion_end {
    bool completed; // false: ended early (stopped) or refused while running
    int connect;    // the motion's "trajectory_connect": 1 while a connected motion follows
    int device = 0; // 0 the arm; other numbers the controller's other motion devices
};
// {"state":"current_trajectory_state","trajectory_state":..,"device":..,"trajectory_connect":..}
std::string completion_report(const motion_end &end);

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

// The joint limits in force; they start as the model's and the limit
// commands change them.
struct joint_limits {
    std::array<double, 7> min_deg{};
    std::array<double, 7> max_deg{};
    std::array<double, 7> max_speed_deg{}; // degrees/s
    std::array<double, 7> max_acc_deg{};   // degrees/s^2
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

    // The tool frame's pose in the current work frame for joint angles
    // (degrees): what the controller reports as the arm's pose.
    flange_pose tool_pose(const joint_array &joints) const;
    // Joint angles (degrees) that put the current tool at `target` (in the
    // current work frame), nearest `seed`; nothing when unreachable. Joint
    // limits are not checked here.
    std::optional<joint_array> joints_for(const mat4 &target, const joint_array &seed) const;

    // Error codes the state queries and the push report ("arm_err",
    // "sys_err"); 0 when all is well.
    int arm_err = 0;
    int sys_err = 0;

    push_config push;
    joint_limits limits;
    frame_store frames;
    io_store io;
    device_store devices;
    network_store network;
    program_store programs;
    modbus_store modbus;
    safety_store safety;

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
    joint_array joints_{};
    joint_array speeds_{};
    std::deque<motion> motions_;
};

} // namespace sim
