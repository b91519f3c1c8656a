// Point-to-point and path motion, returning once accepted or once reported finished.
#include "core/wait.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace {

using cmd::as;
using wait::planned_motion;

// clang-format off
// Each motion goes out as "v", its target, "trajectory_connect", "r".
constexpr auto movej = wait::motion<"movej">(planned_motion("ka_movej", KA_TRAJECTORY_MOVEJ), {{"v"}, {"joint", as::joints}, {"trajectory_connect"}, {"r"}});
constexpr auto movel = wait::motion<"movel">(planned_motion("ka_movel", KA_TRAJECTORY_MOVEL), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
// The blocking spline move has always labelled its exchange and device message as the linear move.
constexpr auto moves = wait::motion<"moves">(planned_motion("ka_movel", KA_TRAJECTORY_MOVES), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
// A joint move to a Cartesian target runs as a joint trajectory.
constexpr auto movej_p = wait::motion<"movej_p">(wait::queried_motion("ka_movej_p", KA_TRAJECTORY_MOVEJ), {{"v"}, {"pose", as::pose}, {"trajectory_connect"}, {"r"}});
constexpr auto movec = wait::motion<"movec">(planned_motion("ka_movec", KA_TRAJECTORY_MOVEC), {});
constexpr auto trajectory = cmd::query<"get_arm_current_trajectory">("arm_current_trajectory");
// The running trajectory's "type" texts in enumeration order, logged names, and whether "data" is a pose.
struct trajectory_kind { std::string_view type; const char *name; bool pose; };
constexpr trajectory_kind trajectory_kinds[] = {{"none", "None", false}, {"movej", "MoveJ", false}, {"movel", "MoveL", true}, {"movec", "MoveC", true}, {"moves", "MoveS", true}, {"re_trajectory", "Re-Trajectory", false}};
// clang-format on

// Irregular: the arc nests its poses in one object and goes out in cJSON's formatted print.
int move_arc(ka_robot_handle *handle, const ka_pose_t &via, const ka_pose_t &to, int v, int r,
             int loop, int connect, wait::blocking block) {
    json_ptr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "command", movec.accept.command);
    cJSON *poses = cJSON_AddObjectToObject(object.get(), "pose");
    cJSON_AddItemToObject(poses, "pose_via", cJSON_CreateIntArray(cmd::pose_to_wire(via).v, 6));
    cJSON_AddItemToObject(poses, "pose_to", cJSON_CreateIntArray(cmd::pose_to_wire(to).v, 6));
    cJSON_AddNumberToObject(object.get(), "v", v);
    // The blend radius goes out in thousandths of the caller's value, unlike every other motion's.
    cJSON_AddNumberToObject(object.get(), "r", scale::truncate(static_cast<double>(r) * 1000.0));
    cJSON_AddNumberToObject(object.get(), "loop", loop);
    cJSON_AddNumberToObject(object.get(), "trajectory_connect", connect);
    return wait::run(movec, handle, block, connect == 1, object.get());
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
// Only this form checks the chaining flag: the arc takes no value above 1.
int ka_movec(ka_robot_handle *h, ka_pose_t via, ka_pose_t to, int v, int r, int loop, int connect, int block) { return connect <= 1 ? move_arc(h, via, to, v, r, loop, connect, wait::when(block)) : cmd::failed(movec.accept.function, "[%s] trajectory_connect check err! \n", connect, -6); }
// clang-format on

// Irregular: the reply's "type" decides whether "data" is a pose or joints, and both are logged.
int ka_get_arm_current_trajectory(ka_robot_handle *handle, ka_arm_current_trajectory_e *type,
                                  float *data) {
    if (!type || !data) return -1;
    json_ptr doc;
    if (int n = cmd::run(trajectory, handle, doc); n < 1) return n;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(trajectory.function);
    const cJSON *items = doc ? cJSON_GetObjectItem(doc.get(), "data") : nullptr;
    const char *kind_text = doc ? MIO_JSON_GetObjectItemStr(doc.get(), "type") : nullptr;
    if (!items || !kind_text || !cJSON_IsArray(items))
        return cmd::failed(trajectory.function,
                           items && kind_text ? "[%s] Data type parse err\n"
                                              : "[%s] Get arm current trajectory parse err\n");
    // Only the first seven entries carry meaning; the rest are counted.
    int32_t v[KA_JOINTS] = {};
    int count = 0;
    for (const cJSON *item = items->child; item; item = item->next, ++count)
        if (count < KA_JOINTS) v[count] = json_int(item);
    ka_log_info("[ka_get_arm_current_trajectory] Current trajectory data size: %d, data : (%d, "
                "%d, %d, %d, %d, %d, %d)\n",
                count, v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
    const trajectory_kind *kind =
        std::ranges::find(trajectory_kinds, std::string_view(kind_text), &trajectory_kind::type);
    if (kind == std::end(trajectory_kinds)) return -1;
    *type = static_cast<ka_arm_current_trajectory_e>(kind - trajectory_kinds);
    // A pose: x, y, z in micrometres, then angles in thousandths; joints in millidegrees.
    char text[256] = {};
    for (int i = 0, used = 0; i < (kind->pose ? 6 : dof); ++i) {
        data[i] =
            kind->pose && i < 3 ? scale::from_millionths(v[i]) : scale::from_thousandths(v[i]);
        used += std::snprintf(text + used, sizeof text - used, i ? ", %.3f" : "%.3f", data[i]);
    }
    ka_log_info("[ka_get_arm_current_trajectory] Current trajectory is %s!\n", kind->name);
    ka_log_info("[ka_get_arm_current_trajectory] %s%s\n",
                kind->pose ? "End effector pose:  " : "Joint Angles: ", text);
    return 0;
}

} // extern "C"
