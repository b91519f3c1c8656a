// Safety configuration: electronic fences and virtual walls, stored and
// returned, and a few arm-wide settings.
#pragma once

#include <string>
#include <vector>

namespace sim {

// A zone exactly as it crossed the wire: its form (1 cube, 2 plane,
// 3 sphere) and the form's values in millimetres, in the order of the
// form's keys (see the safety family).
struct safety_zone {
    int form = 0;
    std::string name; // stored fences only
    std::vector<int> values;
};

struct zone_enable {
    bool enabled = false;
    int in_out_side = 0;      // 0 the arm stays inside the zone, 1 outside
    int effective_region = 0; // 0 the whole arm, 1 the tool only
};

inline constexpr std::size_t k_max_fences = 10;
inline constexpr std::size_t k_max_fence_name = 10; // characters

struct safety_store {
    std::vector<safety_zone> fences; // stored fences, in the order added
    // The active fence and the virtual wall start as a cube around the arm's
    // reach, disabled: x -1000..1000, y -1000..1000, z 0..1500 mm.
    safety_zone fence{1, "", {1000, -1000, 1000, -1000, 1500, 0}};
    safety_zone wall{1, "", {1000, -1000, 1000, -1000, 1500, 0}};
    zone_enable fence_enable;
    zone_enable wall_enable;
    bool self_collision = true;
    int run_mode = 1; // 0 simulation, 1 real arm
};

} // namespace sim
