// The controller's own state beside the motion: arm power, joint enable
// flags and error codes, joint odometers, drive warm-up and the runtime
// counter. Time is the simulator's simulated time in seconds.
#pragma once

#include <array>

namespace sim {

// What the drives report, in the controller's thousandths: milliamperes,
// millivolts, thousandths of a degree Celsius.
struct joint_readings {
    std::array<int, 7> current{};
    std::array<int, 7> voltage{};
    std::array<int, 7> temperature{};
};

struct controller_store {
    bool power = true;
    std::array<bool, 7> enabled{true, true, true, true, true, true, true};
    std::array<int, 7> joint_err{}; // 0 when the joint is well
    std::array<double, 7> odometer_deg{};
    // Temperature rise of each drive above its idle temperature, degrees
    // Celsius; follows the work the joint does with a time lag.
    std::array<double, 7> warm_up{};
    double runtime_start = 0;

    // The joint angles seen on the previous control cycle, for the odometer;
    // the arm starts with every joint at 0 (a command may move it before the
    // first cycle).
    std::array<double, 7> last_joints{};

    // Readings of `dof` drives at joint angles (degrees) and speeds
    // (degrees/s).
    joint_readings readings(int dof, const std::array<double, 7> &joints,
                            const std::array<double, 7> &speeds) const;
};

} // namespace sim
