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

constexpr int accept_reply_size = 256;

// One planned motion. The controller accepts it with a line named like the
// command that carries "receive_state".
struct motion_command {
    const char *function; // label of the call's log lines
    const char *command;
    wait::policy wait; // the blocking wait, labelled as the blocking exchange
};

using wait::planned_motion;
constexpr motion_command movej_cmd{"ka_movej", "movej",
                                   planned_motion("ka_movej", KA_TRAJECTORY_MOVEJ)};
constexpr motion_command movel_cmd{"ka_movel", "movel",
                                   planned_motion("ka_movel", KA_TRAJECTORY_MOVEL)};
// The blocking spline move has always labelled its exchange and its device
// message as the linear move; that labelling is kept.
constexpr motion_command moves_cmd{"ka_moves", "moves",
                                   planned_motion("ka_movel", KA_TRAJECTORY_MOVES)};
constexpr motion_command movec_cmd{"ka_movec", "movec",
                                   planned_motion("ka_movec", KA_TRAJECTORY_MOVEC)};
// A joint move to a Cartesian target runs as a joint trajectory.
constexpr motion_command movej_p_cmd{"ka_movej_p", "movej_p",
                                     wait::queried_motion("ka_movej_p", KA_TRAJECTORY_MOVEJ)};

// Sends the motion with `send(label, reply, size)` (the exchange's result),
// judges "receive_state" and, for a blocking call (block given: seconds in
// thread mode 0, a flag otherwise), waits for the motion to finish. A motion
// connected to the next one never waits.
template <typename Send>
int run_motion(const motion_command &m, ka_robot_handle *handle, int connect, const int *block,
               Send send) {
    wait::session session(handle, m.wait, block != nullptr);
    char reply[accept_reply_size] = {};
    int length = send(block ? m.wait.function : m.function, reply, static_cast<int>(sizeof reply));
    if (length < 1) return length;
    int status = parse_ka_set_command(m.function, reply, "receive_state");
    if (status == 0) session.accepted();
    if (!block || status != 0 || connect == 1) return status;
    return session.wait(*block, length);
}

// The motions built from typed fields: "command", "v", the target,
// "trajectory_connect", "r".
int move(const motion_command &m, ka_robot_handle *handle, const ka_request_field &target, int v,
         int r, int connect, const int *block) {
    return run_motion(m, handle, connect, block, [&](const char *label, char *reply, int size) {
        return cmd::exchange(label, handle, m.command,
                             {cmd::number("v", v), target,
                              cmd::number("trajectory_connect", connect), cmd::number("r", r)},
                             m.command, m_nOutTime, reply, size);
    });
}

int move_joints(ka_robot_handle *handle, const float *joint, int v, int r, int connect,
                const int *block) {
    if (!joint) return -1;
    int dof = cmd::arm_dof(handle);
    if (!dof) return cmd::disconnected(movej_cmd.function);
    cmd::wire_joints wire = cmd::joints_to_wire(joint, dof);
    return move(movej_cmd, handle, cmd::numbers("joint", wire.v, wire.count), v, r, connect, block);
}

int move_to_pose(const motion_command &m, ka_robot_handle *handle, const ka_pose_t &pose, int v,
                 int r, int connect, const int *block) {
    cmd::wire_pose wire = cmd::pose_to_wire(pose);
    return move(m, handle, cmd::numbers("pose", wire.v, 6), v, r, connect, block);
}

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

// The arc is written by hand: its poses are nested in one object, and the
// controller has always been sent it in cJSON's formatted print.
int move_arc(ka_robot_handle *handle, const ka_pose_t &via, const ka_pose_t &to, int v, int r,
             int loop, int connect, const int *block) {
    json_ptr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "command", movec_cmd.command);
    cJSON *poses = cJSON_CreateObject();
    cJSON_AddItemToObject(poses, "pose_via", pose_array(via));
    cJSON_AddItemToObject(poses, "pose_to", pose_array(to));
    cJSON_AddItemToObject(object.get(), "pose", poses);
    cJSON_AddNumberToObject(object.get(), "v", v);
    cJSON_AddNumberToObject(object.get(), "r", arc_blend_radius(r));
    cJSON_AddNumberToObject(object.get(), "loop", loop);
    cJSON_AddNumberToObject(object.get(), "trajectory_connect", connect);
    return run_motion(
        movec_cmd, handle, connect, block, [&](const char *label, char *reply, int size) {
            if (cmd::send_formatted(label, movec_cmd.command, handle, object.get(), block) != 0)
                return -1;
            return ka_pack_lock_wait(label, handle, movec_cmd.command, reply, size, m_nOutTime);
        });
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

int ka_movej(ka_robot_handle *handle, const float *joint, int v, int r, int trajectory_connect,
             int block) {
    return block == 0 ? ka_movej_nblock(handle, joint, v, r, trajectory_connect)
                      : ka_movej_block(handle, joint, v, r, trajectory_connect, block);
}
int ka_movel(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
             int block) {
    return block == 0 ? ka_movel_nblock(handle, pose, v, r, trajectory_connect)
                      : ka_movel_block(handle, pose, v, r, trajectory_connect, block);
}
int ka_moves(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
             int block) {
    return block == 0 ? ka_moves_nblock(handle, pose, v, r, trajectory_connect)
                      : ka_moves_block(handle, pose, v, r, trajectory_connect, block);
}
int ka_movec(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v, int r, int loop,
             int trajectory_connect, int block) {
    if (trajectory_connect > 1) {
        ka_log_error("[%s] trajectory_connect check err! \n", movec_cmd.function);
        return -6;
    }
    return block == 0
               ? ka_movec_nblock(handle, pose_via, pose_to, v, r, loop, trajectory_connect)
               : ka_movec_block(handle, pose_via, pose_to, v, r, loop, trajectory_connect, block);
}
int ka_movej_p(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
               int block) {
    return block == 0 ? ka_movej_p_nblock(handle, pose, v, r, trajectory_connect)
                      : ka_movej_p_block(handle, pose, v, r, trajectory_connect, block);
}

int ka_movej_nblock(ka_robot_handle *handle, const float *joint, int v, int r,
                    int trajectory_connect) {
    return move_joints(handle, joint, v, r, trajectory_connect, nullptr);
}
int ka_movel_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect) {
    return move_to_pose(movel_cmd, handle, pose, v, r, trajectory_connect, nullptr);
}
int ka_moves_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect) {
    return move_to_pose(moves_cmd, handle, pose, v, r, trajectory_connect, nullptr);
}
int ka_movec_nblock(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v, int r,
                    int loop, int trajectory_connect) {
    return move_arc(handle, pose_via, pose_to, v, r, loop, trajectory_connect, nullptr);
}
int ka_movej_p_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                      int trajectory_connect) {
    return move_to_pose(movej_p_cmd, handle, pose, v, r, trajectory_connect, nullptr);
}

int ka_movej_block(ka_robot_handle *handle, const float *joint, int v, int r,
                   int trajectory_connect, int block) {
    return move_joints(handle, joint, v, r, trajectory_connect, &block);
}
int ka_movel_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                   int block) {
    return move_to_pose(movel_cmd, handle, pose, v, r, trajectory_connect, &block);
}
int ka_moves_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                   int block) {
    return move_to_pose(moves_cmd, handle, pose, v, r, trajectory_connect, &block);
}
int ka_movec_block(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v, int r,
                   int loop, int trajectory_connect, int block) {
    return move_arc(handle, pose_via, pose_to, v, r, loop, trajectory_connect, &block);
}
int ka_movej_p_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                     int block) {
    return move_to_pose(movej_p_cmd, handle, pose, v, r, trajectory_connect, &block);
}

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
