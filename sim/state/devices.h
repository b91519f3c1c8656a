// End effectors and extra axes: gripper, dexterous hand, lift and expansion
// axes, the force sensor, drag teaching and force-position control.
//
// Devices that move do so in the control cycle (simulated seconds); each
// keeps the time it was last advanced.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

namespace sim {

class arm;

// "device" numbers in the completion report of a motion that ended.
inline constexpr int k_device_gripper = 1;
inline constexpr int k_device_hand = 2;
inline constexpr int k_device_lift = 3;
inline constexpr int k_device_expand = 4;

// Moves `value` toward `target` by at most rate * dt; true once there.
inline bool step_toward(double &value, double target, double rate, double dt) {
    const double left = target - value;
    const double step = rate * dt;
    if (left <= step && left >= -step) {
        value = target;
        return true;
    }
    value += left > 0 ? step : -step;
    return false;
}

// Gripper positions and speeds in the controller's stroke units: 0 closed,
// 1000 fully open; speed in stroke units per second.
struct gripper_state {
    enum class action { idle = 0, release = 1, pick = 2, pick_on = 3, position = 4 };
    int min_route = 0;
    int max_route = 1000;
    double position = 1000; // starts open
    double target = 1000;
    int speed = 500;
    int force = 0;         // force asked for by the last pick, controller units 1..1000
    int holding_force = 0; // force applied while closed on a pick
    action mode = action::idle;
    bool moving = false;
    bool report_end = false; // the action was sent with "block": its end is reported
    double clock = -1;
};

// Finger angles in the controller's units, 0 open to 1000 closed; speed in
// those units per second.
struct hand_state {
    using angles = std::array<double, 6>;
    angles position{};
    std::deque<angles> legs; // targets still to reach, in order
    int speed = 500;
    int force = 500;
    int posture = 0; // last posture or sequence number started
    int seq = 0;
    bool report_end = false;
    double clock = -1;
};

// One extra axis, moving at constant speed to a target (position mode) or
// until told otherwise (speed mode).
struct axis_state {
    enum class motion { idle = 0, speed = 1, position = 2 };
    double position = 0; // lift: millimetres; expansion: degrees
    double velocity = 0; // signed, units per second, in speed mode
    double target = 0;   // in position mode
    double rate = 0;     // units per second, in position mode
    motion mode = motion::idle;
    double clock = -1;
};

// Drive current of an axis, milliamperes.
inline int drive_current_ma(const axis_state &axis) {
    return axis.mode == axis_state::motion::idle ? 400 : 1500;
}

// Axis ranges and top speeds (units as axis_state).
inline constexpr double k_lift_min_mm = 0, k_lift_max_mm = 2600, k_lift_top_speed_mm_s = 100;
inline constexpr double k_expand_min_deg = -360, k_expand_max_deg = 360,
                        k_expand_top_speed_deg_s = 60;

// Forces in newtons and torques in newton-metres, x y z then about x y z.
using wrench = std::array<double, 6>;

struct force_sensor_state {
    wrench offset{}; // taken off every zeroed reading, sensor frame
    // After a calibration the controller knows the load's weight and centre
    // of mass and takes its gravity off the zeroed readings at every pose.
    bool load_known = false;
    double load_kg = 0;
    std::array<double, 3> load_centre_m{};
    int manual_poses = 0; // postures of the manual six-axis calibration received in order
    // Seed of the measuring noise (--seed); 0: the sensor reads without noise.
    std::uint32_t noise_seed = 0;
};

struct drag_state {
    bool teaching = false;
    bool recording = false;
    bool multi = false; // started by start_multi_drag_teach
    int mode = 0, frame = 0, singular_wall = 0;
    std::array<int, 6> free_axes{};
    int sensitivity = 50;                        // percent
    std::vector<std::array<double, 7>> recorded; // joint angles, degrees
    bool replaying = false;
    bool paused = false;
};

struct force_position_state {
    bool active = false;
    int sensor = 0, mode = 0, direction = 0;
    std::array<int, 6> control_mode{};
    std::array<double, 6> desired_force_n{};
    std::array<double, 6> limit_vel{};
    bool streaming = false; // Start_Force_Position_Move .. Stop_Force_Position_Move
    int setpoints = 0;      // Force_Position_Move lines taken while streaming
};

struct device_store {
    gripper_state gripper;
    hand_state hand;
    axis_state lift;
    axis_state expand;
    force_sensor_state sensor;
    drag_state drag;
    force_position_state force_position;
};

// What the force sensor of `a` reads at its present joints: the gravity of
// the load below the sensor (a tool plate and the current tool's payload).
struct force_readout {
    wrench raw{};         // sensor frame, as measured
    wrench zeroed{};      // raw less the offset and the known load, sensor frame
    wrench zeroed_work{}; // zeroed, axes of the current work frame
    wrench zeroed_tool{}; // zeroed, axes of the current tool frame
};
force_readout read_force_sensor(const arm &a);

} // namespace sim
