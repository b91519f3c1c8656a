// Point-to-point and path motion: five planned motions, each sent on its
// own (the call returns once the controller accepted it) or blocking (the
// call returns once the controller reported it finished), and the query of
// the running trajectory that the blocking waits use.
#include "core/command.h"
#include "core/wait.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

namespace {

using cmd::as;
using wait::planned_motion;

// clang-format off
// Each motion goes out as "v", its target, "trajectory_connect", "r".
constexpr auto movej = wait::motion<"movej">(planned_motion("ka_movej", KA_TRAJECTORY_MOVEJ), {{"v"}, {"joint", as::joints}, {"trajectory_connect"}, {"r"}});
constexpr auto movel = wait::motion<"movel">(planned_motion("ka_movel", KA_TRAJECTORY_MOVEL), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
// The blocking spline move has always labelled its exchange and its device
// message as the linear move; that labelling is kept.
constexpr auto moves = wait::motion<"moves">(planned_motion("ka_movel", KA_TRAJECTORY_MOVES), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
// A joint move to a Cartesian target runs as a joint trajectory.
constexpr auto movej_p = wait::motion<"movej_p">(wait::queried_motion("ka_movej_p", KA_TRAJECTORY_MOVEJ), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
constexpr auto movec = wait::motion<"movec">(planned_motion("ka_movec", KA_TRAJECTORY_MOVEC), {});
// clang-format on

cJSON *pose_array(const ka_pose_t &pose) {
    cmd::wire_pose wire = cmd::pose_to_wire(pose);
    cJSON *array = cJSON_CreateArray();
    for (int32_t value : wire.v)
        cJSON_AddItemToArray(array, cJSON_CreateNumber(value));
    return array;
}

// The arc's blend radius goes out in thousandths of the caller's value,
// unlike every other motion's.
int32_t arc_blend_radius(int r) { return scale::truncate(static_cast<double>(r) * 1000.0); }

struct arc_request {
    ka_robot_handle *handle;
    const cJSON *object;
    bool blocking; // the blocking call logs the text it sends
};
int send_arc(const void *context, const char *label, char *reply, int size) {
    const auto &a = *static_cast<const arc_request *>(context);
    if (cmd::send_formatted(label, movec.accept.command, a.handle, a.object, a.blocking) != 0)
        return -1;
    return ka_pack_lock_wait(label, a.handle, movec.accept.command, reply, size, m_nOutTime);
}

// The arc is written by hand: its poses are nested in one object, and the
// controller has always been sent it in cJSON's formatted print.
int move_arc(ka_robot_handle *handle, const ka_pose_t &via, const ka_pose_t &to, int v, int r,
             int loop, int connect, wait::blocking block) {
    json_ptr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "command", movec.accept.command);
    cJSON *poses = cJSON_CreateObject();
    cJSON_AddItemToObject(poses, "pose_via", pose_array(via));
    cJSON_AddItemToObject(poses, "pose_to", pose_array(to));
    cJSON_AddItemToObject(object.get(), "pose", poses);
    cJSON_AddNumberToObject(object.get(), "v", v);
    cJSON_AddNumberToObject(object.get(), "r", arc_blend_radius(r));
    cJSON_AddNumberToObject(object.get(), "loop", loop);
    cJSON_AddNumberToObject(object.get(), "trajectory_connect", connect);
    const arc_request request{handle, object.get(), block.has_value()};
    return wait::run(movec, handle, block, connect == 1, send_arc, &request);
}

// The "type" strings of the running trajectory, in enumeration order.
struct trajectory_kind {
    const char *type;
    const char *name; // as logged
    bool pose;        // data holds a pose, else joint angles
};
constexpr trajectory_kind trajectory_kinds[] = {
    {"none", "None", false},  {"movej", "MoveJ", false}, {"movel", "MoveL", true},
    {"movec", "MoveC", true}, {"moves", "MoveS", true},  {"re_trajectory", "Re-Trajectory", false},
};

constexpr const char *trajectory_function = "ka_get_arm_current_trajectory";

void log_trajectory_data(const float *data, bool pose, int dof) {
    if (pose)
        ka_log_info("[ka_get_arm_current_trajectory] End effector pose:  %.3f, %.3f, %.3f, %.3f, "
                    "%.3f, %.3f\n",
                    data[0], data[1], data[2], data[3], data[4], data[5]);
    else if (dof == 6)
        ka_log_info("[ka_get_arm_current_trajectory] Joint Angles: %.3f, %.3f, %.3f, %.3f, %.3f, "
                    "%.3f\n",
                    data[0], data[1], data[2], data[3], data[4], data[5]);
    else
        ka_log_info("[ka_get_arm_current_trajectory] Joint Angles: %.3f, %.3f, %.3f, %.3f, %.3f, "
                    "%.3f, %.3f\n",
                    data[0], data[1], data[2], data[3], data[4], data[5], data[6]);
}

} // namespace

extern "C" {

// clang-format off
int ka_movej(ka_robot_handle *h, const float *joint, int v, int r, int connect, int block) { return movej(h, wait::when(block), v, joint, connect, r); }
int ka_movel(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return movel(h, wait::when(block), v, pose, connect, r); }
int ka_moves(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return moves(h, wait::when(block), v, pose, connect, r); }
int ka_movej_p(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return movej_p(h, wait::when(block), v, pose, connect, r); }
int ka_movej_nblock(ka_robot_handle *h, const float *joint, int v, int r, int connect) { return movej(h, {}, v, joint, connect, r); }
int ka_movel_nblock(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect) { return movel(h, {}, v, pose, connect, r); }
int ka_moves_nblock(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect) { return moves(h, {}, v, pose, connect, r); }
int ka_movec_nblock(ka_robot_handle *h, ka_pose_t via, ka_pose_t to, int v, int r, int loop, int connect) { return move_arc(h, via, to, v, r, loop, connect, {}); }
int ka_movej_p_nblock(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect) { return movej_p(h, {}, v, pose, connect, r); }
int ka_movej_block(ka_robot_handle *h, const float *joint, int v, int r, int connect, int block) { return movej(h, block, v, joint, connect, r); }
int ka_movel_block(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return movel(h, block, v, pose, connect, r); }
int ka_moves_block(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return moves(h, block, v, pose, connect, r); }
int ka_movec_block(ka_robot_handle *h, ka_pose_t via, ka_pose_t to, int v, int r, int loop, int connect, int block) { return move_arc(h, via, to, v, r, loop, connect, block); }
int ka_movej_p_block(ka_robot_handle *h, ka_pose_t pose, int v, int r, int connect, int block) { return movej_p(h, block, v, pose, connect, r); }
// clang-format on

// Only this form checks the chaining flag: the arc takes no value above 1.
int ka_movec(ka_robot_handle *h, ka_pose_t via, ka_pose_t to, int v, int r, int loop, int connect,
             int block) {
    if (connect > 1) {
        ka_log_error("[%s] trajectory_connect check err! \n", movec.accept.function);
        return -6;
    }
    return move_arc(h, via, to, v, r, loop, connect, wait::when(block));
}

// Written by hand: the reply's "type" decides whether "data" is a pose or
// joints, and both are logged.
int ka_get_arm_current_trajectory(ka_robot_handle *handle, ka_arm_current_trajectory_e *type,
                                  float *data) {
    if (!type || !data) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{trajectory_function, "get_arm_current_trajectory",
                                        "arm_current_trajectory"},
                     handle, reply);
    if (n < 1) return n;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(trajectory_function);
    json_ptr doc = json_parse(reply.text);
    const cJSON *items = doc ? cJSON_GetObjectItem(doc.get(), "data") : nullptr;
    const char *kind_text = doc ? MIO_JSON_GetObjectItemStr(doc.get(), "type") : nullptr;
    if (!items || !kind_text) {
        ka_log_error("[ka_get_arm_current_trajectory] Get arm current trajectory parse err\n");
        return -1;
    }
    if (!cJSON_IsArray(items)) {
        ka_log_error("[ka_get_arm_current_trajectory] Data type parse err\n");
        return -1;
    }
    // Only the first seven entries carry meaning; the rest are counted.
    int32_t v[KA_JOINTS] = {};
    int count = 0;
    for (const cJSON *item = items->child; item; item = item->next, ++count)
        if (count < KA_JOINTS) v[count] = json_int(item);
    ka_log_info("[ka_get_arm_current_trajectory] Current trajectory data size: %d, data : (%d, "
                "%d, %d, %d, %d, %d, %d)\n",
                count, v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    int index = 0;
    while (index < static_cast<int>(std::size(trajectory_kinds)) &&
           std::strcmp(trajectory_kinds[index].type, kind_text) != 0)
        ++index;
    if (index == static_cast<int>(std::size(trajectory_kinds))) return -1;
    const trajectory_kind &kind = trajectory_kinds[index];
    *type = static_cast<ka_arm_current_trajectory_e>(index);
    if (kind.pose) {
        ka_pose_t pose{};
        cmd::pose_from_wire(v, pose);
        const float values[6] = {pose.position.x, pose.position.y, pose.position.z,
                                 pose.euler.rx,   pose.euler.ry,   pose.euler.rz};
        std::copy(std::begin(values), std::end(values), data);
    } else {
        for (int i = 0; i < dof; ++i)
            data[i] = scale::from_thousandths(v[i]);
    }
    ka_log_info("[ka_get_arm_current_trajectory] Current trajectory is %s!\n", kind.name);
    log_trajectory_data(data, kind.pose, dof);
    return 0;
}

} // extern "C"
