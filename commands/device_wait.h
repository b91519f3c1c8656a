// Completion reports of the controller's other motion devices: the gripper,
// the dexterous hand, the lift and the expansion axis end their moves with
// the same "current_trajectory_state" line as the arm's motions, its
// "device" telling whose move ended.
#pragma once

#include "ka_api.h"

#include <optional>

namespace device {

// The "device" codes of a completion report.
enum code : int { arm = 0, gripper = 1, hand = 2, lift = 3, expand = 4 };

struct report {
    int reading; // parse_ka_move_command: 0 ended false, -3 unparsable, else ended normally
    int device;
    int connect; // 1 while further connected segments follow
};

// The next completion report within timeout_ms, read into `size` bytes at
// most; empty when none came (at once for a time-out below 2 ms).
std::optional<report> next_report(ka_robot_handle *handle, const char *function, int timeout_ms,
                                  int size);

// The status a report ends the wait with whatever its device: 1 when the
// move ended false, -3 when the report could not be parsed; empty when the
// move ended normally. A report without "trajectory_state" counts as a
// normal end, as the move parser reads it.
std::optional<int> ended_badly(const report &r);

// A caller's time-out in seconds as milliseconds, saturated.
int milliseconds(int seconds);

} // namespace device
