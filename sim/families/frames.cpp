// Tool and work frames and the install pose.
#include "sim/families/family.h"

namespace sim {

namespace {

void work_frame(const cJSON *, cJSON *reply, command_context &) {
    cJSON_AddStringToObject(reply, "frame_name", "World");
    json_add_ints(reply, "pose", {0, 0, 0, 0, 0, 0});
}

void tool_frame(const cJSON *, cJSON *reply, command_context &) {
    cJSON_AddStringToObject(reply, "tool_name", "Arm_Tip");
    json_add_ints(reply, "pose", {0, 0, 0, 0, 0, 0});
    cJSON_AddNumberToObject(reply, "payload", 0); // grams
    json_add_ints(reply, "position", {0, 0, 0});  // centre of mass, micrometres
}

void install_pose(const cJSON *, cJSON *reply, command_context &) {
    json_add_ints(reply, "pose", {0, 0, 0});
}

constexpr command_row rows[] = {
    {"get_current_work_frame", "current_work_frame", work_frame},
    {"get_current_tool_frame", "current_tool_frame", tool_frame},
    {"get_install_pose", "install_pose", install_pose},
};

} // namespace

const family frames_family{rows};

} // namespace sim
