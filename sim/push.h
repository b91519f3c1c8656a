// The realtime datagram an arm pushes over UDP.
#pragma once

#include "sim/arm.h"

#include <string>

namespace sim {

// The datagram for the arm's state now, with the fields its push settings
// ask for. The arm's lock is held.
std::string push_datagram(const arm &a);

} // namespace sim
