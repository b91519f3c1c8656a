// Wire scaling. Every number on the wire is an integer: caller values are
// multiplied and truncated toward zero (never rounded); replies are divided
// back in single precision.
#pragma once

#include <climits>
#include <cmath>
#include <cstdint>

namespace scale {

// Truncation toward zero, saturated to the int32 range (NaN gives 0).
inline int32_t truncate(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Degrees to millidegrees, the product formed in double precision.
inline int32_t millidegrees(float degrees) {
    return truncate(static_cast<double>(degrees) * 1000.0);
}
// Metres to micrometres, quaternion components to millionths (single precision).
inline int32_t millionths(float v) { return truncate(v * 1000000.0f); }
// Radians to milliradians; metres to millimetres; m/s, A, V, kg to thousandths.
inline int32_t thousandths(float v) { return truncate(v * 1000.0f); }
// Joint speed or acceleration in degrees per second (squared) to thousandths
// of a revolution per minute: divided by 6, then times 1000.
inline int32_t joint_rate(float degrees_per_second) {
    return truncate(degrees_per_second / 6.0f * 1000.0f);
}

inline float from_thousandths(int32_t v) { return static_cast<float>(v) / 1000.0f; }
inline float from_millionths(int32_t v) { return static_cast<float>(v) / 1000000.0f; }
inline float joint_rate_from(int32_t v) { return static_cast<float>(v) * 6.0f / 1000.0f; }

// The unit a float travels in as a wire integer: the one place that converts
// either way, for request arguments and reply fields alike.
enum class unit : uint8_t {
    whole,
    thousandths,
    millidegrees, // read back as thousandths
    millionths,
    joint_rate,
    tenths,       // forces, only sent
    whole_tenths, // forces, only sent
};

// Forces in newtons to tenths: formed in single precision, then cut (12.7
// gives 127); or cut to whole newtons first (12.7 gives 120).
inline int32_t tenths(float newtons) { return truncate(newtons * 10.0f); }
inline int32_t whole_tenths(float newtons) {
    return truncate(static_cast<double>(truncate(newtons)) * 10.0);
}
inline int32_t whole(float v) { return truncate(v); }
inline float unscaled(int32_t v) { return static_cast<float>(v); }

// Both ways of every unit, in unit order.
struct conversion {
    int32_t (*to_wire)(float);
    float (*from_wire)(int32_t);
};
inline constexpr conversion conversions[] = {
    {whole, unscaled},
    {thousandths, from_thousandths},
    {millidegrees, from_thousandths},
    {millionths, from_millionths},
    {joint_rate, joint_rate_from},
    {tenths, unscaled},
    {whole_tenths, unscaled},
};
inline int32_t to_wire(unit u, float v) { return conversions[static_cast<int>(u)].to_wire(v); }
inline float from_wire(unit u, int32_t v) { return conversions[static_cast<int>(u)].from_wire(v); }

} // namespace scale
