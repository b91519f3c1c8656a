#include "sim/commands.h"

#include <algorithm>

namespace sim {

namespace {

std::vector<int> milli_joints(const arm &a, const joint_array &joints) {
    std::vector<int> values;
    for (int j = 0; j < a.traits().dof; ++j)
        values.push_back(to_milli(joints[j]));
    return values;
}

std::vector<int> milli_limits(const arm &a, const std::array<double, 7> &limits) {
    return milli_joints(a, limits);
}

std::vector<int> speed_limits(const arm &a, const std::array<double, 7> &limits) {
    std::vector<int> values;
    for (int j = 0; j < a.traits().dof; ++j)
        values.push_back(deg_s_to_wire(limits[j]));
    return values;
}

// x, y, z in micrometres, rx, ry, rz in milliradians.
std::vector<int> wire_pose(const flange_pose &pose) {
    return {to_micro(pose.position[0]), to_micro(pose.position[1]), to_micro(pose.position[2]),
            to_milli(pose.euler[0]),    to_milli(pose.euler[1]),    to_milli(pose.euler[2])};
}

// ------------------------------------------------------------ information

void software_info(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddStringToObject(reply, "Product_version", c.target.traits().product.c_str());
    cJSON *algorithm = cJSON_AddObjectToObject(reply, "algorithm_info");
    cJSON_AddStringToObject(algorithm, "version", "SIM-ALGO-1.0");
    cJSON *ctrl = cJSON_AddObjectToObject(reply, "ctrl_info");
    cJSON_AddStringToObject(ctrl, "version", "SIM-1.0");
    cJSON_AddStringToObject(ctrl, "build_time", "2026-01-01 00:00");
    cJSON *dynamic = cJSON_AddObjectToObject(reply, "dynamic_info");
    cJSON_AddStringToObject(dynamic, "model_version", "S1");
}

void power_state(const cJSON *, cJSON *reply, command_context &) {
    cJSON_AddNumberToObject(reply, "power_state", 1);
}

// ------------------------------------------------------------ realtime push

void get_push(const cJSON *, cJSON *reply, command_context &c) {
    const push_config p = c.target.push();
    cJSON_AddNumberToObject(reply, "cycle", p.cycle);
    cJSON_AddBoolToObject(reply, "enable", p.enable);
    cJSON_AddNumberToObject(reply, "port", p.port);
    cJSON_AddStringToObject(reply, "ip", p.ip.c_str());
    cJSON_AddNumberToObject(reply, "force_coordinate", p.force_coordinate);
    cJSON *custom = cJSON_AddObjectToObject(reply, "custom");
    cJSON_AddBoolToObject(custom, "joint_speed", p.joint_speed);
    cJSON_AddBoolToObject(custom, "lift_state", p.lift_state);
    cJSON_AddBoolToObject(custom, "expand_state", p.expand_state);
    cJSON_AddBoolToObject(custom, "arm_current_status", p.arm_current_status);
}

// Keys left out of the request keep their value; the sensor frame is spelled
// "force_cordinate" on this side of the protocol.
void set_push(const cJSON *request, cJSON *reply, command_context &c) {
    push_config p = c.target.push();
    bool ok = true;
    if (auto v = json_bool(request, "enable")) p.enable = *v;
    if (auto v = json_int(request, "cycle")) {
        if (*v < 1 || *v > 100) ok = false;
        p.cycle = *v;
    }
    if (auto v = json_int(request, "port")) {
        if (*v < 1 || *v > 65535) ok = false;
        p.port = *v;
    }
    if (auto v = json_string(request, "ip")) p.ip = *v;
    if (auto v = json_int(request, "force_cordinate")) p.force_coordinate = *v;
    if (const cJSON *custom = cJSON_GetObjectItemCaseSensitive(request, "custom")) {
        if (auto v = json_bool(custom, "joint_speed")) p.joint_speed = *v;
        if (auto v = json_bool(custom, "lift_state")) p.lift_state = *v;
        if (auto v = json_bool(custom, "expand_state")) p.expand_state = *v;
        if (auto v = json_bool(custom, "arm_current_status")) p.arm_current_status = *v;
    }
    if (ok) c.target.set_push(p);
    cJSON_AddBoolToObject(reply, "state", ok);
}

// ------------------------------------------------------------ frames

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

// ------------------------------------------------------------ limits

void min_pos(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "min_pos", milli_limits(c.target, c.target.traits().min_deg));
}
void max_pos(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "max_pos", milli_limits(c.target, c.target.traits().max_deg));
}
void max_acc(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_acc", speed_limits(c.target, c.target.traits().max_acc_deg));
}
void max_speed(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint_speed", speed_limits(c.target, c.target.traits().max_speed_deg));
}

// ------------------------------------------------------------ state

void joint_degree(const cJSON *, cJSON *reply, command_context &c) {
    json_add_ints(reply, "joint", milli_joints(c.target, c.target.sample().joints));
}

void current_arm_state(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON *state = cJSON_AddObjectToObject(reply, "arm_state");
    json_add_ints(state, "joint", milli_joints(c.target, s.joints));
    json_add_ints(state, "pose", wire_pose(forward_kinematics(c.target.traits(), s.joints)));
    cJSON_AddNumberToObject(state, "arm_err", 0);
    cJSON_AddNumberToObject(state, "sys_err", 0);
}

void current_trajectory(const cJSON *, cJSON *reply, command_context &c) {
    const arm_sample s = c.target.sample();
    cJSON_AddStringToObject(reply, "type", s.trajectory);
    json_add_ints(reply, "data", milli_joints(c.target, s.joints));
}

// ------------------------------------------------------------ motion

// "joint": dof integers in millidegrees; "v" percent; "trajectory_connect"
// 0 or 1; "r" (blend radius) is accepted and not modelled.
void movej(const cJSON *request, cJSON *reply, command_context &c) {
    const int dof = c.target.traits().dof;
    const auto joints = json_ints(request, "joint", dof);
    const auto v = json_int(request, "v");
    const int connect = json_int(request, "trajectory_connect").value_or(0);
    bool ok = joints && v && (connect == 0 || connect == 1);
    if (ok) {
        joint_array target{};
        for (int j = 0; j < dof; ++j)
            target[j] = (*joints)[j] / k_milli;
        ok = c.target.queue_movej(target, *v, connect, c.now);
    }
    cJSON_AddBoolToObject(reply, "receive_state", ok);
}

// "pose": x, y, z in micrometres and rx, ry, rz in milliradians; the joint
// angles come from the inverse kinematics nearest the arm's joints, and the
// move runs as a joint move.
void movej_p(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = json_ints(request, "pose", 6);
    const auto v = json_int(request, "v");
    const int connect = json_int(request, "trajectory_connect").value_or(0);
    bool ok = pose && v && (connect == 0 || connect == 1);
    if (ok) {
        const mat4 target =
            pose_matrix({(*pose)[0] / k_micro, (*pose)[1] / k_micro, (*pose)[2] / k_micro},
                        {(*pose)[3] / k_milli, (*pose)[4] / k_milli, (*pose)[5] / k_milli});
        const auto joints = inverse_kinematics(c.target.traits(), target, c.target.sample().joints);
        ok = joints && c.target.queue_movej(*joints, *v, connect, c.now);
    }
    cJSON_AddBoolToObject(reply, "receive_state", ok);
}

void stop_with(const char *key, cJSON *reply, command_context &c) {
    c.ended = c.target.stop(c.now);
    cJSON_AddBoolToObject(reply, key, true);
}
void arm_stop(const cJSON *, cJSON *reply, command_context &c) { stop_with("arm_stop", reply, c); }
void arm_slow_stop(const cJSON *, cJSON *reply, command_context &c) {
    stop_with("arm_slow_stop", reply, c);
}

} // namespace

const std::vector<command_row> &command_table() {
    // clang-format off
    static const std::vector<command_row> table{
        {"get_arm_software_info",      "arm_software_info",      software_info},
        {"get_arm_power_state",        "arm_power_state",        power_state},
        {"get_realtime_push",          "get_realtime_push",      get_push},
        {"set_realtime_push",          "set_realtime_push",      set_push},
        {"get_current_work_frame",     "current_work_frame",     work_frame},
        {"get_current_tool_frame",     "current_tool_frame",     tool_frame},
        {"get_install_pose",           "install_pose",           install_pose},
        {"get_joint_min_pos",          "joint_min_pos",          min_pos},
        {"get_joint_max_pos",          "joint_max_pos",          max_pos},
        {"get_joint_max_acc",          "joint_max_acc",          max_acc},
        {"get_joint_max_speed",        "joint_max_speed",        max_speed},
        {"get_joint_degree",           "joint_degree",           joint_degree},
        {"get_current_arm_state",      "current_arm_state",      current_arm_state},
        {"get_arm_current_trajectory", "arm_current_trajectory", current_trajectory},
        {"movej",                      "movej",                  movej},
        {"movej_p",                    "movej_p",                movej_p},
        {"set_arm_stop",               "set_arm_stop",           arm_stop},
        {"set_arm_slow_stop",          "set_arm_slow_stop",      arm_slow_stop},
    };
    // clang-format on
    return table;
}

const command_row *find_command(const std::string &name) {
    const auto &table = command_table();
    const auto row = std::find_if(table.begin(), table.end(),
                                  [&](const command_row &r) { return name == r.name; });
    return row == table.end() ? nullptr : &*row;
}

std::string answer_line(const std::string &line, command_context &context) {
    const json_ptr request = json_parse(line);
    if (!cJSON_IsObject(request.get())) {
        json_ptr reply = json_reply("error");
        cJSON_AddStringToObject(reply.get(), "error", "malformed JSON");
        return json_print(reply.get());
    }
    const auto name = json_string(request.get(), "command");
    if (!name) {
        json_ptr reply = json_reply("error");
        cJSON_AddStringToObject(reply.get(), "error", "missing command");
        return json_print(reply.get());
    }
    const command_row *row = find_command(*name);
    if (!row) {
        json_ptr reply = json_reply(name->c_str());
        cJSON_AddStringToObject(reply.get(), "error", "unknown command");
        return json_print(reply.get());
    }
    json_ptr reply = json_reply(row->reply);
    row->handle(request.get(), reply.get(), context);
    return json_print(reply.get());
}

} // namespace sim
