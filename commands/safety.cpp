// Safety configuration and arm-wide settings.
#include "core/command.h"

#include <mutex>

extern "C" int ka_get_install_pose(ka_robot_handle *handle, float *x, float *y, float *z) {
    if (!x || !y || !z) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{"ka_get_install_pose", "get_install_pose", "install_pose"},
                     handle, reply);
    if (n < 1) return n;
    ka_reply_field pose = cmd::ints_field("pose", 3);
    if (int parsed = common_json_parse("ka_get_install_pose", reply.text, &pose, 1); parsed != 0)
        return parsed;
    // Whole degrees on the wire, unscaled.
    *x = static_cast<float>(pose.value.a[0]);
    *y = static_cast<float>(pose.value.a[1]);
    *z = static_cast<float>(pose.value.a[2]);
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    arm->install[0] = *x;
    arm->install[1] = *y;
    arm->install[2] = *z;
    return 0;
}
