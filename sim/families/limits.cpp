// Joint and arm limits.
#include "sim/families/family.h"

namespace sim {

namespace {

std::vector<int> milli_limits(const arm &a, const std::array<double, 7> &limits) {
    return milli_joints(a, limits);
}

std::vector<int> speed_limits(const arm &a, const std::array<double, 7> &limits) {
    std::vector<int> values;
    for (int j = 0; j < a.traits().dof; ++j)
        values.push_back(deg_s_to_wire(limits[j]));
    return values;
}

void min_pos(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "min_pos", milli_limits(c.target, c.target.limits.min_deg));
}
void max_pos(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "max_pos", milli_limits(c.target, c.target.limits.max_deg));
}
void max_acc(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_acc", speed_limits(c.target, c.target.limits.max_acc_deg));
}
void max_speed(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_speed", speed_limits(c.target, c.target.limits.max_speed_deg));
}

constexpr command_row rows[] = {
    {"get_joint_min_pos", "joint_min_pos", min_pos},
    {"get_joint_max_pos", "joint_max_pos", max_pos},
    {"get_joint_max_acc", "joint_max_acc", max_acc},
    {"get_joint_max_speed", "joint_max_speed", max_speed},
};

} // namespace

const family limits_family{rows};

} // namespace sim
