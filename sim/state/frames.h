// Tool and work frames: the lists the controller keeps and the ones in use,
// and the install pose.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace sim {

struct frame {
    std::string name;
    std::array<double, 6> pose{};     // x, y, z in metres, rx, ry, rz in radians
    double payload_kg = 0;            // tool frames only
    std::array<double, 3> centre_m{}; // the payload's centre of mass, tool frames only
};

struct frame_store {
    std::vector<frame> tools{frame{"Arm_Tip"}};
    std::vector<frame> works{frame{"World"}};
    std::size_t tool = 0;            // index of the current tool frame in `tools`
    std::size_t work = 0;            // index of the current work frame in `works`
    std::array<double, 3> install{}; // install pose angles, radians

    const frame &current_tool() const { return tools.at(tool); }
    const frame &current_work() const { return works.at(work); }
};

} // namespace sim
