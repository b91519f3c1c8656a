// The queries that bring a newly opened arm's record up to date.
#include "core/arm.h"

extern "C" int ka_sync_robot_info(ka_robot_handle *handle) {
    ka_arm_software_version_t software{};
    ka_realtime_push_config_t push{};
    ka_frame_t work{}, tool{};
    float x = 0, y = 0, z = 0;
    float joints[7] = {};
    int result = ka_get_arm_software_info(handle, &software);
    if (result == 0) result = ka_get_realtime_push(handle, &push);
    if (result == 0) result = ka_get_current_work_frame(handle, &work);
    if (result == 0) result = ka_get_current_tool_frame(handle, &tool);
    if (result == 0) result = ka_get_install_pose(handle, &x, &y, &z);
    if (result == 0) result = ka_get_joint_min_pos(handle, joints);
    if (result == 0) result = ka_get_joint_max_pos(handle, joints);
    if (result == 0) result = ka_get_joint_max_acc(handle, joints);
    if (result == 0) result = ka_get_joint_max_speed(handle, joints);
    if (result != 0) return result;
    if (push.enable && thread_mode() == KA_THREAD_MODE_TRIPLE) realtime_add_port(push.port);
    return 0;
}
