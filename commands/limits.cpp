// Joint and arm limits.
#include "core/command.h"

#include <mutex>

namespace {

// A joint-array read: the controller answers `reply` with DOF integers under
// `key`; `cache` (when set) is the arm record's copy that follows the read.
struct joint_read {
    const char *function;
    const char *command;
    const char *reply;
    const char *key;
    float (*convert)(int32_t);
    float (arm_record::*cache)[7];
};

int read_joints(const joint_read &r, ka_robot_handle *handle, float *out) {
    if (!out) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{r.function, r.command, r.reply}, handle, reply);
    if (n < 1) return n;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(r.function);
    ka_reply_field field = cmd::ints_field(r.key, dof);
    int parsed = common_json_parse(r.function, reply.text, &field, 1);
    if (parsed != 0) return parsed;
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    for (int i = 0; i < dof; ++i) {
        out[i] = r.convert(field.value.a[i]);
        if (r.cache) ((*arm).*r.cache)[i] = out[i];
    }
    return 0;
}

constexpr joint_read max_speed{"ka_get_joint_max_speed", "get_joint_max_speed", "joint_max_speed",
                               "joint_speed", scale::joint_rate_from, &arm_record::joint_max_speed};
constexpr joint_read max_acc{"ka_get_joint_max_acc", "get_joint_max_acc", "joint_max_acc",
                             "joint_acc", scale::joint_rate_from, &arm_record::joint_max_acc};
constexpr joint_read min_pos{"ka_get_joint_min_pos", "get_joint_min_pos", "joint_min_pos",
                             "min_pos", scale::from_thousandths, &arm_record::joint_min_pos};
constexpr joint_read max_pos{"ka_get_joint_max_pos", "get_joint_max_pos", "joint_max_pos",
                             "max_pos", scale::from_thousandths, &arm_record::joint_max_pos};

} // namespace

extern "C" {
int ka_get_joint_max_speed(ka_robot_handle *h, float *speed) { return read_joints(max_speed, h, speed); }
int ka_get_joint_max_acc(ka_robot_handle *h, float *acc) { return read_joints(max_acc, h, acc); }
int ka_get_joint_min_pos(ka_robot_handle *h, float *pos) { return read_joints(min_pos, h, pos); }
int ka_get_joint_max_pos(ka_robot_handle *h, float *pos) { return read_joints(max_pos, h, pos); }
}
