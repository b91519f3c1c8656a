// Arm state queries.
#include "sim/families/family.h"

namespace sim {

namespace {

void joint_degree(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint", milli_joints(c.target, c.target.sample().joints));
}

void current_arm_state(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON *state = cJSON_AddObjectToObject(reply, "arm_state");
    json_add_ints(state, "joint", milli_joints(c.target, s.joints));
    json_add_ints(state, "pose", wire_pose(c.target.tool_pose(s.joints)));
    cJSON_AddNumberToObject(state, "arm_err", c.target.arm_err);
    cJSON_AddNumberToObject(state, "sys_err", c.target.sys_err);
}

constexpr command_row rows[] = {
    {"get_joint_degree", "joint_degree", joint_degree},
    {"get_current_arm_state", "current_arm_state", current_arm_state},
};

} // namespace

const family state_family{rows};

} // namespace sim
