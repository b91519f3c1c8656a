#include "tests/algo/registry_stand_in.h"

#include "algo/models.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <shared_mutex>

namespace {
std::shared_mutex registry_lock;
std::map<const ka_robot_handle *, algo_arm_params> registry;
} // namespace

bool registry_algo_params(const ka_robot_handle *handle, algo_arm_params *out) {
    std::shared_lock lock(registry_lock);
    auto it = registry.find(handle);
    if (it == registry.end()) return false;
    if (out) *out = it->second;
    return true;
}

void stand_in_register(const ka_robot_handle *handle, const algo_arm_params &params) {
    std::unique_lock lock(registry_lock);
    registry[handle] = params;
}

void stand_in_clear() {
    std::unique_lock lock(registry_lock);
    registry.clear();
}

algo_arm_params stand_in_defaults(int model, int force_type) {
    algo_arm_params p{};
    p.model = model;
    p.force_type = force_type;
    if (const model_params *m = model_params_for(model)) {
        std::copy(m->max_pos_deg, m->max_pos_deg + 7, p.joint_max_pos);
        std::copy(m->min_pos_deg, m->min_pos_deg + 7, p.joint_min_pos);
        std::copy(m->max_acc_deg, m->max_acc_deg + 7, p.joint_max_acc);
        std::copy(m->max_speed_deg, m->max_speed_deg + 7, p.joint_max_speed);
    }
    p.tool_frame.pose.quaternion.w = 1.0f;
    p.work_frame.pose.quaternion.w = 1.0f;
    return p;
}
