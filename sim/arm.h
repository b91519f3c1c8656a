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
#include "sim/state/controller.h"
#include "sim/state/devices.h"
#include "sim/state/frames.h"
#include "sim/state/io.h"
#include "sim/state/limits.h"
#include "sim/state/modbus.h"
#include "sim/state/network.h"
#include "sim/state/programs.h"
#include "sim/state/safety.h"

#include <array>
#include <deque>
#include <memory>
#include <optional>
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
    bool pose_kind = false;          // the trajectory reports a pose, not joints
};

// Error code ("arm_err") set when a motion accepted earlier cannot be run
// from where the arm is when its turn comes (a target out of reach from
// there); the motion ends with a false completion report.
inline constexpr int k_arm_err_path_unreachable = 0x21;

// Which trajectory kind a planned motion reports while it runs.
enum class motion_kind { movej, movel, movec, moves };

// The teach commands' axes: a joint, or a translation or a rotation of the
// tool along/about x, y or z of the teach frame.
enum class teach_axis { joint, position, orientation };

class arm {
  public:
    explicit arm(arm_traits traits);

    const arm_traits &traits() const { return traits_; }

    // Planned motions, queued behind those already accepted. v is the
    // percentage of the speed limits (1..100), r the blend radius (0: stop
    // at the target; above 0 with connect 1: the next motion starts during
    // this one's deceleration), connect 1 when a motion follows in the same
    // chain. Each returns false, and queues nothing, when a parameter is out
    // of range, the target is out of reach or the path leaves the joint
    // limits; nothing moves towards a refused target.
    bool queue_movej(const joint_array &target, int v, int r, int connect, double now);
    // A joint move to the joints that put the tool at `target` (in the work
    // frame), nearest where the queue leaves the arm.
    bool queue_movej_p(const mat4 &target, int v, int r, int connect, double now);
    bool queue_movel(const mat4 &target, int v, int r, int connect, double now);
    bool queue_movec(const mat4 &via, const mat4 &to, int v, int r, int loop, int connect,
                     double now);
    // Spline points: connected points are held until the chain's last point
    // (or another kind of motion) arrives, then run as one curve through all.
    bool queue_moves(const mat4 &target, int v, int r, int connect, double now);
    // Moves one joint (0-based) by `degrees`, as a joint move.
    bool queue_joint_step(int joint, double degrees, int v, double now);
    // Moves the tool by `amount` (metres or radians) along/about `axis`
    // (0 x, 1 y, 2 z) of the teach frame, as a straight-line move.
    bool queue_tool_step(teach_axis kind, int axis, double amount, int v, double now);

    // Continuous teaching: moves until stop_teach (or a limit). False while
    // a planned motion or a stream runs, or for a bad axis or v.
    bool start_teach(teach_axis kind, int axis, bool positive, int v, double now);
    // Ramps a teach motion down to rest; true also when none runs.
    bool stop_teach();
    // The frame the Cartesian teach and step commands use: 0 the work
    // frame, 1 the tool frame.
    int teach_frame = 0;

    // A streamed target (fire-and-forget): followed at the stream's own
    // cadence, by linear interpolation between targets (passthrough) or,
    // with `smooth`, through a first-order filter as well. Ignored (the arm
    // stays put) when out of the limits or while a planned motion or a teach
    // motion runs.
    void stream_joints(const joint_array &target, bool smooth, double now);
    void stream_pose(const mat4 &target, bool smooth, double now);

    // Moves the joints to where the motions put them at `now`; returns the
    // motions that ended on the way, in order.
    std::vector<motion_end> advance(double now);
    // Simulated time of the last advance(), seconds.
    double clock() const { return last_now_; }
    // Ends the running motion where the arm is and drops the queued ones.
    // Returns the motions that had ended by `now`, then the stopped one.
    std::vector<motion_end> stop(double now);
    // Slows the running motion down along its path to rest within
    // k_slow_stop_s, then ends it as stop() does.
    void slow_stop();
    // Slows the motion to rest along its path and holds it there; resume()
    // speeds it up again. Both true whatever the arm is doing.
    void pause();
    void resume();
    bool paused() const { return paused_; }
    // While paused: drops the motion that was running (reported as not
    // completed); the queued ones run after resume(). Refused (false) while
    // a motion runs unpaused.
    bool delete_current(std::vector<motion_end> &ended);
    // While paused or at rest: drops every motion. Refused while running.
    bool delete_all(std::vector<motion_end> &ended);

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
    limit_store limit_settings;
    frame_store frames;
    io_store io;
    device_store devices;
    network_store network;
    program_store programs;
    modbus_store modbus;
    safety_store safety;
    controller_store controller;

  private:
    struct motion;
    struct teach_state;
    struct stream_state;
    struct spline_chain;

    bool queue(motion m, double now);
    bool plan_path(motion &m) const;
    void time_profile(motion &m) const;
    joint_array joints_at(motion &m, double s) const;
    mat4 tool_matrix(const joint_array &joints) const;
    std::optional<joint_array> solve(const mat4 &target, const joint_array &seed) const;
    std::optional<mat4> stepped(const joint_array &from, teach_axis kind, int axis,
                                double amount) const;
    bool start(motion &m, double tau);
    joint_array queue_end() const;
    bool flush_spline(double now, int connect);
    double tau_at(double now) const;
    void step_teach(double dt);
    void step_stream(double now, double dt);
    void clear_motions();
    bool busy() const;

    const arm_traits traits_;
    joint_array joints_{};
    joint_array speeds_{};
    std::deque<motion> motions_;
    std::unique_ptr<spline_chain> spline_;
    std::unique_ptr<teach_state> teach_;
    std::unique_ptr<stream_state> stream_;
    // Motions run on their own clock tau, which runs at `rate_` (0..1) of
    // simulated time: pause and slow stop ramp the rate down, so the arm
    // slows along its path instead of leaving it.
    double last_now_ = 0, tau_ = 0, prev_tau_ = 0, rate_ = 1, rate_goal_ = 1;
    bool paused_ = false, slow_stopping_ = false;

  public:
    arm(const arm &) = delete;
    arm &operator=(const arm &) = delete;
    ~arm();
};

} // namespace sim
