// End effectors and extra axes: gripper, dexterous hand, lift and expansion
// axes, and the force sensor.
#pragma once

namespace sim {

struct device_store {};

} // namespace sim
