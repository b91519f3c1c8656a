// The realtime state datagram parser, and the status names it maps.
//
// Input: the datagram text.
#include "core/realtime.h"
#include "fuzz/fuzz_support.h"

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace {

constexpr int last_status = 14; // "tech_demonstration"

bool finite(std::initializer_list<std::pair<const float *, size_t>> arrays) {
    for (const auto &[values, count] : arrays)
        for (size_t i = 0; i < count; ++i)
            if (!std::isfinite(values[i])) return false;
    return true;
}

bool all_zero(const void *area, size_t size) {
    const auto *bytes = static_cast<const unsigned char *>(area);
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != 0) return false;
    return true;
}

void check_state(const ka_realtime_arm_joint_state_t &s) {
    FUZZ_CHECK(s.arm_current_status >= 0 && s.arm_current_status <= last_status);
    // The parser leaves the delivery fields to its caller.
    FUZZ_CHECK(s.errCode == 0);
    FUZZ_CHECK(all_zero(s.arm_ip, sizeof s.arm_ip));
    const auto *flags = reinterpret_cast<const unsigned char *>(s.joint_en_flag);
    for (size_t i = 0; i < sizeof s.joint_en_flag; ++i)
        FUZZ_CHECK(flags[i] <= 1);
    // Every value comes from a saturated integer: never infinite or NaN.
    const ka_pose_t &w = s.waypoint;
    FUZZ_CHECK(finite({{s.joint_current, 7}, {s.joint_position, 7}, {s.joint_temperature, 7},
                       {s.joint_voltage, 7}, {s.joint_speed, 7},    {s.force, 6},
                       {s.zero_force, 6},    {&w.position.x, 1},    {&w.position.y, 1},
                       {&w.position.z, 1},   {&w.quaternion.w, 1},  {&w.quaternion.x, 1},
                       {&w.quaternion.y, 1}, {&w.quaternion.z, 1},  {&w.euler.rx, 1},
                       {&w.euler.ry, 1},     {&w.euler.rz, 1},      {&s.lift_pos, 1},
                       {&s.expand_pos, 1},   {&s.hand_force, 1}}));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string datagram = fuzz::text(data, size);

    ka_realtime_arm_joint_state_t state;
    std::memset(&state, 0xA5, sizeof state); // the parser must clear it first
    int result = parse_ka_realtime_arm_joint_state(datagram.c_str(), &state);
    FUZZ_CHECK(result == 0 || result == -3);
    check_state(state);

    int status = get_arm_status_from_string(datagram.c_str());
    FUZZ_CHECK(status >= 0 && status <= last_status);
    FUZZ_CHECK(parse_ka_realtime_arm_joint_state(datagram.c_str(), nullptr) == -3);
    return 0;
}
