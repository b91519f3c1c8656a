#include "sim/commands.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

const std::array<const family *, 14> &families() {
    static const std::array<const family *, 14> all{
        &information_family, &motion_family,  &limits_family,    &frames_family, &state_family,
        &network_family,     &io_family,      &effectors_family, &force_family,  &modbus_family,
        &lift_family,        &program_family, &waypoint_family,  &safety_family,
    };
    return all;
}

std::string error_reply(const char *name, const char *reason) {
    json_ptr reply = json_reply(name);
    cJSON_AddStringToObject(reply.get(), "error", reason);
    return json_print(reply.get());
}

} // namespace

std::vector<int> milli_joints(const arm &a, const joint_array &joints) {
    std::vector<int> values;
    for (int j = 0; j < a.traits().dof; ++j)
        values.push_back(to_milli(joints[j]));
    return values;
}

std::vector<int> wire_pose(const flange_pose &pose) {
    return {to_micro(pose.position[0]), to_micro(pose.position[1]), to_micro(pose.position[2]),
            to_milli(pose.euler[0]),    to_milli(pose.euler[1]),    to_milli(pose.euler[2])};
}

mat4 wire_pose_matrix(const std::vector<int> &pose) {
    return pose_matrix({pose.at(0) / k_micro, pose.at(1) / k_micro, pose.at(2) / k_micro},
                       {pose.at(3) / k_milli, pose.at(4) / k_milli, pose.at(5) / k_milli});
}

const std::vector<command_row> &command_table() {
    static const std::vector<command_row> table = [] {
        std::vector<command_row> rows;
        for (const family *f : families())
            rows.insert(rows.end(), f->commands.begin(), f->commands.end());
        return rows;
    }();
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
    if (!cJSON_IsObject(request.get())) return error_reply("error", "malformed JSON");
    const auto name = json_string(request.get(), "command");
    if (!name) return error_reply("error", "missing command");
    const command_row *row = find_command(*name);
    if (!row) return error_reply(name->c_str(), "unknown command");
    json_ptr reply = json_reply(row->reply);
    row->handle(request.get(), reply.get(), context);
    if (context.silent) return {};
    return json_print(reply.get());
}

void run_cycle_hooks(arm &target, double now, report_list &reports) {
    for (const family *f : families())
        if (f->on_cycle) f->on_cycle(target, now, reports);
}

} // namespace sim
