// Tool and work frames: the lists the controller keeps and the ones in use,
// the points taught for automatic frames, and the install pose.
#pragma once

#include "sim/model.h"

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// One sphere of a tool's collision envelope, in the tool frame.
struct envelope_ball {
    std::string name;
    int radius_mm = 0;
    std::array<int, 3> centre_mm{};
};

struct frame {
    std::string name;
    std::array<double, 6> pose{};        // x, y, z in metres, rx, ry, rz in radians
    double payload_kg = 0;               // tool frames only
    std::array<double, 3> centre_m{};    // the payload's centre of mass, tool frames only
    std::vector<envelope_ball> envelope; // tool frames only
};

inline frame named_frame(std::string name) {
    frame f;
    f.name = std::move(name);
    return f;
}

struct frame_store {
    // The first entry of each list is built in: always there, never changed.
    std::vector<frame> tools{named_frame("Arm_Tip")};
    std::vector<frame> works{named_frame("World")};
    std::size_t tool = 0;             // index of the current tool frame in `tools`
    std::size_t work = 0;             // index of the current work frame in `works`
    std::array<int, 3> install_deg{}; // install pose angles about x, y, z, whole degrees

    // Points taught for an automatic tool frame: the flange in the base frame
    // at each point number.
    std::map<int, mat4> tool_points;
    // Points taught for an automatic work frame: the tool centre point in the
    // base frame (metres) at each point number, for the frame being taught.
    std::string work_points_for;
    std::map<int, std::array<double, 3>> work_points;

    const frame &current_tool() const { return tools.at(tool); }
    const frame &current_work() const { return works.at(work); }
};

} // namespace sim
