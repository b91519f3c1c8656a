// A command family: the controller's commands of one kind as rows of a
// table (the "command" value that selects the row, the name the reply
// carries in its own "command" key, and the handler that fills the reply
// from the arm's state), and what the family does on every control cycle.
//
// Handlers and cycle hooks run with the arm's lock held; they never block.
#pragma once

#include "sim/arm.h"
#include "sim/json.h"

#include <span>
#include <string>
#include <vector>

namespace sim {

struct command_context {
    arm &target;
    double now;          // simulated seconds
    report_list reports; // lines sent on every connection after this command's reply
    bool silent = false; // set by a handler: this command gets no reply at all
};

using command_handler = void (*)(const cJSON *request, cJSON *reply, command_context &context);

struct command_row {
    const char *name;  // the request's "command"
    const char *reply; // the reply's "command"
    command_handler handle;
};

// Called once per control cycle with the arm's lock held; appends the lines
// to send unasked (completion reports with the device's number, ...).
using cycle_hook = void (*)(arm &target, double now, report_list &reports);

struct family {
    std::span<const command_row> commands;
    cycle_hook on_cycle = nullptr;
};

// One per file in sim/families/.
extern const family information_family; // software info, power, realtime push settings
extern const family motion_family;      // planned, streamed and jogged motion, stops
extern const family limits_family;      // joint and arm limits
extern const family frames_family;      // tool and work frames, install pose
extern const family state_family;       // arm state queries
extern const family network_family;     // controller network settings
extern const family io_family;          // controller and tool I/O
extern const family effectors_family;   // gripper and dexterous hand
extern const family force_family;       // force sensor, drag teaching, force-position control
extern const family modbus_family;      // Modbus peripherals
extern const family lift_family;        // lift and expansion axes
extern const family program_family;     // online programming, stored trajectories
extern const family waypoint_family;    // global waypoints
extern const family safety_family;      // fences and virtual walls

// Wire scaling helpers shared by the families.
std::vector<int> milli_joints(const arm &a, const joint_array &joints);
// x, y, z in micrometres, rx, ry, rz in milliradians.
std::vector<int> wire_pose(const flange_pose &pose);
// The six integers of a wire pose to a transform.
mat4 wire_pose_matrix(const std::vector<int> &pose);

} // namespace sim
