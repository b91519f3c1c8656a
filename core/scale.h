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

} // namespace scale
