// Every exported command function, called once against the simulator in an
// order that gives each call something to act on (a frame exists before it
// is read back, a program is stored before it is run), and held to its
// documented success code. The functions that cannot succeed against any
// controller are listed with the reason and held to their failure code.
//
// The list of functions comes from the public header itself, so a command
// added to the API without a row here fails the suite.
#include "sim_session.h"

#include "ka_algo.h"
#include "sim/net/process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct call_row {
    const char *function;
    std::function<int(ka_robot_handle *)> call;
    int expected = KA_OK;
    const char *why = nullptr; // set for a call that cannot succeed by design
};

ka_pose_t shifted(ka_pose_t pose, float dx, float dy, float dz) {
    pose.position.x += dx;
    pose.position.y += dy;
    pose.position.z += dz;
    pose.quaternion = {0, 0, 0, 0}; // send the Euler form
    return pose;
}

// The pose turned about its own x and y axes (radians), the position kept.
ka_pose_t turned(ka_pose_t pose, float rx, float ry) {
    pose.euler.rx += rx;
    pose.euler.ry += ry;
    pose.quaternion = {0, 0, 0, 0};
    return pose;
}

// Passes `result` on once the arm has come to rest (a teach stop ramps down
// before the next motion is accepted); -2 when it does not within 5 s.
int settled(ka_robot_handle *arm, int result) {
    float data[7];
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_MOVEJ;
    for (int i = 0; i < 500; ++i) {
        if (ka_get_arm_current_trajectory(arm, &kind, data) == KA_OK && kind == KA_TRAJECTORY_NONE)
            return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return KA_ERR_TIMEOUT;
}

ka_frame_t tool_frame(const char *name) {
    ka_frame_t frame{};
    std::snprintf(frame.frame_name, sizeof frame.frame_name, "%s", name);
    frame.pose.position = {0, 0, 0.05f};
    frame.payload = 0.5f;
    frame.z = 0.02f;
    return frame;
}

ka_fence_config_t cube_fence(const char *name) {
    ka_fence_config_t config{};
    config.form = 1;
    std::snprintf(config.form_name, sizeof config.form_name, "%s", name);
    config.cube = {-0.5f, 0.5f, -0.5f, 0.5f, 0.0f, 0.8f};
    return config;
}

ka_peripheral_read_write_params_t modbus(int address, int num) { return {1, address, 1, num}; }

// Every function of the public headers whose first parameter is the arm
// handle: the commands.
std::set<std::string> header_commands() {
    std::string header;
    for (const char *name : {"/ka_api.h", "/ka_compat.h"}) {
        std::ifstream in(std::string(KA_INCLUDE_DIR) + name);
        std::stringstream text;
        text << in.rdbuf();
        header += text.str();
    }
    const std::regex declaration(R"(KA_API\s+[\w\s\*]*?\b(\w+)\s*\(\s*ka_robot_handle\s*\*)");
    std::set<std::string> names;
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration);
         it != std::sregex_iterator(); ++it)
        names.insert((*it)[1].str());
    return names;
}

class CommandCoverage : public ::testing::Test {
  protected:
    void SetUp() override {
        directory = std::filesystem::temp_directory_path() /
                    ("ka_coverage_" + std::to_string(sim::net::current_process_id()));
        std::filesystem::create_directories(directory);
        std::ofstream(directory / "pick.txt") << "{\"file\":6}\r\n"
                                              << "{\"name\":\"Folder\",\"num\":1,\"type\":0,"
                                                 "\"enabled\":true,\"parent_number\":0}\r\n";
        std::ofstream(directory / "points.txt") << "{\"point\":[0,0,0,0,0,0]}\r\n";
    }
    void TearDown() override { std::filesystem::remove_all(directory); }

    std::string path(const char *name) const { return (directory / name).string(); }

    std::filesystem::path directory;
};

TEST_F(CommandCoverage, EveryCommandFunctionSucceedsAgainstTheSimulator) {
    sim_test::arm_session s(sim_test::options("NEPATQ-6F", 20.0));
    ka_robot_handle *const arm = s.arm;
    ASSERT_EQ(arm->arm_dof, 6);

    const float home[7] = {0, 20, 70, 0, 90, 0, 0};
    const float nearby[7] = {5, 22, 68, 2, 88, 3, 0};
    ASSERT_EQ(ka_movej(arm, home, 50, 0, 0, 1), KA_OK);
    const ka_pose_t start = ka_algo_forward_kinematics(arm, home);
    const ka_pose_t start_euler = shifted(start, 0, 0, 0);

    // Locals the rows read and write.
    float joints[7] = {}, values[7] = {};
    uint8_t enabled[7] = {};
    uint16_t flags[7] = {}, brakes[7] = {};
    int a = 0, b = 0, c = 0, d = 0;
    float x = 0, y = 0, z = 0;
    bool flag = false;
    ka_arm_current_trajectory_e kind{};
    ka_frame_t frame{};
    ka_pose_t pose{};
    ka_frame_name_t names[KA_FRAME_LIST_CAPACITY] = {};
    ka_envelope_balls_list_t balls{};
    std::snprintf(balls.tool_name, sizeof balls.tool_name, "grip");
    balls.size = 1;
    balls.balls[0] = {"ball", 0.05f, 0, 0, 0.05f};
    ka_current_arm_state_t arm_state{};
    ka_arm_all_state_t all_state{};
    ka_arm_software_version_t software{};
    ka_realtime_push_config_t push{};
    char ip[16] = {}, mask[16] = {}, mac[18] = {};
    ka_wifi_net_t wifi{};
    ka_gripper_state_t gripper{};
    ka_force_data_t force{};
    ka_fz_data_t fz{};
    ka_multi_drag_teach_t drag{{1, 1, 1, 0, 0, 0}, 0, 0};
    ka_force_position_t force_position{};
    force_position.control_mode[2] = 1;
    force_position.desired_force[2] = 5;
    force_position.limit_vel[2] = 0.05f;
    ka_force_position_move_t force_move{};
    force_move.flag = 0;
    std::memcpy(force_move.joint, home, sizeof force_move.joint);
    force_move.control_mode[2] = 1;
    force_move.desired_force[2] = 5;
    int registers[8] = {}, coils[8] = {};
    int to_write[4] = {0, 7, 0, 9}; // two registers, high byte first
    int coil_bits[1] = {0x5};
    ka_expand_state_t expand{};
    ka_send_project_t project{};
    std::snprintf(project.project_path, sizeof project.project_path, "%s",
                  path("pick.txt").c_str());
    project.project_path_len = static_cast<int>(std::strlen(project.project_path));
    project.plan_speed = 50;
    project.only_save = 1; // stored under save_id, run later by id
    project.save_id = 3;
    int errline = 0, count = 0, saved = 0;
    ka_program_run_state_t run_state{};
    auto programs = std::make_unique<ka_program_trajectorys_t>();
    ka_waypoint_t waypoint{};
    std::snprintf(waypoint.point_name, sizeof waypoint.point_name, "above");
    std::memcpy(waypoint.joint, home, sizeof waypoint.joint);
    waypoint.pose = start_euler;
    std::snprintf(waypoint.work_frame, sizeof waypoint.work_frame, "World");
    std::snprintf(waypoint.tool_frame, sizeof waypoint.tool_frame, "Arm_Tip");
    auto waypoints = std::make_unique<ka_waypoint_list_t>();
    ka_fence_names_t fence_names[KA_FENCE_LIST_CAPACITY] = {};
    auto fences = std::make_unique<ka_fence_config_t[]>(KA_FENCE_LIST_CAPACITY);
    ka_fence_config_t fence{};
    ka_electronic_fence_enable_t fence_enable{true, 0, 0};
    const int hand_angles[6] = {100, 200, 300, 400, 500, 600};
    const std::string program_text = "{\"file\":6}\r\n";

    const std::vector<call_row> rows = {
        // Generic exchange and realtime push.
        {"ka_set_data_common", [&](auto h) { return ka_set_data_common(h, 500, "set_hand_speed", "speed"); }},
        {"ka_get_data_common", [&](auto h) { return ka_get_data_common(h, &a, "get_drag_teach_sensitivity", "grade"); }},
        {"ka_sync_robot_info", [&](auto h) { return ka_sync_robot_info(h); }},
        {"ka_get_robot_info", [&](auto h) { ka_robot_info_t info{}; return ka_get_robot_info(h, &info); }},
        {"ka_get_arm_dof", [&](auto h) { return ka_get_arm_dof(h, &a); }},
        {"ka_get_realtime_push", [&](auto h) { return ka_get_realtime_push(h, &push); }},
        {"ka_set_realtime_push", [&](auto h) { push.enable = true; push.cycle = 5; return ka_set_realtime_push(h, push); }},

        // Planned motion, blocking and not.
        {"ka_movej", [&](auto h) { return ka_movej(h, nearby, 50, 0, 0, 1); }},
        {"ka_movej_nblock", [&](auto h) { return ka_movej_nblock(h, home, 50, 0, 0); }},
        {"ka_movej_block", [&](auto h) { return ka_movej_block(h, nearby, 50, 0, 0, 1); }},
        {"ka_movej_p", [&](auto h) { return ka_movej_p(h, start_euler, 50, 0, 0, 1); }},
        {"ka_movej_p_nblock", [&](auto h) { return ka_movej_p_nblock(h, shifted(start, 0.01f, 0, 0), 50, 0, 0); }},
        {"ka_movej_p_block", [&](auto h) { return ka_movej_p_block(h, start_euler, 50, 0, 0, 1); }},
        {"ka_movel", [&](auto h) { return ka_movel(h, shifted(start, 0.02f, 0, 0), 50, 0, 0, 1); }},
        {"ka_movel_nblock", [&](auto h) { return ka_movel_nblock(h, start_euler, 50, 0, 0); }},
        {"ka_movel_block", [&](auto h) { return ka_movel_block(h, shifted(start, 0, 0.02f, 0), 50, 0, 0, 1); }},
        {"ka_moves", [&](auto h) { return ka_moves(h, shifted(start, 0.01f, 0.01f, 0), 50, 0, 1, 1); }},
        {"ka_moves_nblock", [&](auto h) { return ka_moves_nblock(h, shifted(start, 0.02f, 0, 0), 50, 0, 1); }},
        {"ka_moves_block", [&](auto h) { return ka_moves_block(h, start_euler, 50, 0, 0, 1); }},
        {"ka_movec", [&](auto h) { return ka_movec(h, shifted(start, 0.02f, 0.02f, 0), shifted(start, 0.04f, 0, 0), 50, 0, 0, 0, 1); }},
        {"ka_movec_nblock", [&](auto h) { return ka_movec_nblock(h, shifted(start, 0.02f, -0.02f, 0), start_euler, 50, 0, 0, 0); }},
        {"ka_movec_block", [&](auto h) { return ka_movec_block(h, shifted(start, 0.02f, 0.02f, 0), shifted(start, 0.04f, 0, 0), 50, 0, 0, 0, 1); }},
        {"ka_get_arm_current_trajectory", [&](auto h) { return ka_get_arm_current_trajectory(h, &kind, values); }},
        {"ka_movej_block", [&](auto h) { return ka_movej_block(h, home, 50, 0, 0, 1); }},

        // Streaming and following: fire and forget.
        {"ka_movej_canfd", [&](auto h) { return ka_movej_canfd(h, home, false, 0); }},
        {"ka_movep_canfd", [&](auto h) { return ka_movep_canfd(h, start_euler, true); }},
        {"ka_movej_follow", [&](auto h) { return ka_movej_follow(h, home); }},
        {"ka_movep_follow", [&](auto h) { return ka_movep_follow(h, start_euler); }},

        // Jogging, teaching and motion control.
        {"ka_set_joint_step", [&](auto h) { return ka_set_joint_step(h, 1, 2.0f, 50, 1); }},
        {"ka_set_joint_step_nblock", [&](auto h) { return ka_set_joint_step_nblock(h, 1, -2.0f, 50); }},
        {"ka_set_joint_step_block", [&](auto h) { return ka_set_joint_step_block(h, 1, 2.0f, 50, 1); }},
        {"ka_set_pos_step", [&](auto h) { return ka_set_pos_step(h, KA_TEACH_Z, 0.01f, 50, 1); }},
        {"ka_set_pos_step_nblock", [&](auto h) { return ka_set_pos_step_nblock(h, KA_TEACH_Z, -0.01f, 50); }},
        {"ka_set_pos_step_block", [&](auto h) { return ka_set_pos_step_block(h, KA_TEACH_X, 0.01f, 50, 1); }},
        {"ka_set_ort_step", [&](auto h) { return ka_set_ort_step(h, KA_TEACH_RZ, 0.05f, 50, 1); }},
        {"ka_set_ort_step_nblock", [&](auto h) { return ka_set_ort_step_nblock(h, KA_TEACH_RZ, -0.05f, 50); }},
        {"ka_set_ort_step_block", [&](auto h) { return ka_set_ort_step_block(h, KA_TEACH_RX, 0.05f, 50, 1); }},
        {"ka_set_joint_teach", [&](auto h) { return ka_set_joint_teach(h, 1, 1, 10); }},
        {"ka_set_stop_teach", [&](auto h) { return settled(h, ka_set_stop_teach(h)); }},
        {"ka_set_pos_teach", [&](auto h) { return ka_set_pos_teach(h, KA_TEACH_Z, 1, 10); }},
        {"ka_set_stop_teach", [&](auto h) { return settled(h, ka_set_stop_teach(h)); }},
        {"ka_set_ort_teach", [&](auto h) { return ka_set_ort_teach(h, KA_TEACH_RZ, 1, 10); }},
        {"ka_set_stop_teach", [&](auto h) { return settled(h, ka_set_stop_teach(h)); }},
        {"ka_set_teach_frame", [&](auto h) { return ka_set_teach_frame(h, 1); }},
        {"ka_get_teach_frame", [&](auto h) { return ka_get_teach_frame(h, &a); }},
        {"ka_movej_nblock", [&](auto h) { return ka_movej_nblock(h, nearby, 5, 0, 0); }},
        {"ka_set_arm_pause", [&](auto h) { return ka_set_arm_pause(h); }},
        {"ka_set_arm_continue", [&](auto h) { return ka_set_arm_continue(h); }},
        // Trajectories are deleted from a paused arm.
        {"ka_set_arm_pause", [&](auto h) { return ka_set_arm_pause(h); }},
        {"ka_set_delete_current_trajectory", [&](auto h) { return ka_set_delete_current_trajectory(h); }},
        {"ka_set_arm_delete_trajectory", [&](auto h) { return ka_set_arm_delete_trajectory(h); }},
        {"ka_movej_nblock", [&](auto h) { return ka_movej_nblock(h, home, 5, 0, 0); }},
        {"ka_set_arm_slow_stop", [&](auto h) { return settled(h, ka_set_arm_slow_stop(h)); }},
        {"ka_movej_nblock", [&](auto h) { return ka_movej_nblock(h, home, 5, 0, 0); }},
        // The stopped motion's report follows the stop's reply; it is in before
        // the next blocking move starts (which drops reports left over).
        {"ka_set_arm_stop", [&](auto h) { return settled(h, ka_set_arm_stop(h)); }},
        {"ka_movej", [&](auto h) { return ka_movej(h, home, 50, 0, 0, 1); }},

        // Joint and arm limits.
        {"ka_get_joint_max_speed", [&](auto h) { return ka_get_joint_max_speed(h, values); }},
        {"ka_set_joint_max_speed", [&](auto h) { return ka_set_joint_max_speed(h, 1, values[0]); }},
        {"ka_get_joint_max_acc", [&](auto h) { return ka_get_joint_max_acc(h, values); }},
        {"ka_set_joint_max_acc", [&](auto h) { return ka_set_joint_max_acc(h, 1, values[0]); }},
        {"ka_get_joint_min_pos", [&](auto h) { return ka_get_joint_min_pos(h, values); }},
        {"ka_set_joint_min_pos", [&](auto h) { return ka_set_joint_min_pos(h, 1, values[0]); }},
        {"ka_get_joint_max_pos", [&](auto h) { return ka_get_joint_max_pos(h, values); }},
        {"ka_set_joint_max_pos", [&](auto h) { return ka_set_joint_max_pos(h, 1, values[0]); }},
        {"ka_get_joint_drive_max_speed", [&](auto h) { return ka_get_joint_drive_max_speed(h, values); }},
        {"ka_set_joint_drive_max_speed", [&](auto h) { return ka_set_joint_drive_max_speed(h, 1, values[0]); }},
        {"ka_get_joint_drive_max_acc", [&](auto h) { return ka_get_joint_drive_max_acc(h, values); }},
        // The drive acceleration is read back six times what was set.
        {"ka_set_joint_drive_max_acc", [&](auto h) { return ka_set_joint_drive_max_acc(h, 1, values[0] / 6); }},
        {"ka_get_joint_drive_min_pos", [&](auto h) { return ka_get_joint_drive_min_pos(h, values); }},
        {"ka_set_joint_drive_min_pos", [&](auto h) { return ka_set_joint_drive_min_pos(h, 1, values[0]); }},
        {"ka_get_joint_drive_max_pos", [&](auto h) { return ka_get_joint_drive_max_pos(h, values); }},
        {"ka_set_joint_drive_max_pos", [&](auto h) { return ka_set_joint_drive_max_pos(h, 1, values[0]); }},
        {"ka_auto_set_joint_limit", [&](auto h) { return ka_auto_set_joint_limit(h, 1); }},
        {"ka_set_joint_en_state", [&](auto h) { return ka_set_joint_en_state(h, 1, 1); }},
        {"ka_get_joint_en_state", [&](auto h) { return ka_get_joint_en_state(h, enabled); }},
        {"ka_set_joint_en_state", [&](auto h) { return ka_set_joint_en_state(h, 6, 0); }},
        {"ka_set_joint_zero_pos", [&](auto h) { return ka_set_joint_zero_pos(h, 6); }},
        {"ka_set_joint_en_state", [&](auto h) { return ka_set_joint_en_state(h, 6, 1); }},
        {"ka_set_joint_clear_err", [&](auto h) { return ka_set_joint_clear_err(h, 1); }},
        {"ka_set_arm_max_line_speed", [&](auto h) { return ka_set_arm_max_line_speed(h, 0.5f); }},
        {"ka_get_arm_max_line_speed", [&](auto h) { return ka_get_arm_max_line_speed(h, &x); }},
        {"ka_set_arm_max_line_acc", [&](auto h) { return ka_set_arm_max_line_acc(h, 1.0f); }},
        {"ka_get_arm_max_line_acc", [&](auto h) { return ka_get_arm_max_line_acc(h, &x); }},
        {"ka_set_arm_max_angular_speed", [&](auto h) { return ka_set_arm_max_angular_speed(h, 1.0f); }},
        {"ka_get_arm_max_angular_speed", [&](auto h) { return ka_get_arm_max_angular_speed(h, &x); }},
        {"ka_set_arm_max_angular_acc", [&](auto h) { return ka_set_arm_max_angular_acc(h, 2.0f); }},
        {"ka_get_arm_max_angular_acc", [&](auto h) { return ka_get_arm_max_angular_acc(h, &x); }},
        {"ka_set_arm_tcp_init", [&](auto h) { return ka_set_arm_tcp_init(h); }},
        {"ka_set_collision_state", [&](auto h) { return ka_set_collision_state(h, 3); }},
        {"ka_get_collision_stage", [&](auto h) { return ka_get_collision_stage(h, &a); }},
        {"ka_set_init_pose", [&](auto h) { return ka_set_init_pose(h, home); }},
        {"ka_get_init_pose", [&](auto h) { return ka_get_init_pose(h, joints); }},

        // Tool and work frames.
        {"ka_set_manual_tool_frame", [&](auto h) { return ka_set_manual_tool_frame(h, tool_frame("grip")); }},
        {"ka_update_tool_frame", [&](auto h) { return ka_update_tool_frame(h, tool_frame("grip")); }},
        // Three points taught with the tip on one spot: the arm turns about it.
        {"ka_set_auto_tool_frame", [&](auto h) { return ka_set_auto_tool_frame(h, 1); }},
        {"ka_movej_p", [&](auto h) { return ka_movej_p(h, turned(start, 0.3f, 0), 50, 0, 0, 1); }},
        {"ka_set_auto_tool_frame", [&](auto h) { return ka_set_auto_tool_frame(h, 2); }},
        {"ka_movej_p", [&](auto h) { return ka_movej_p(h, turned(start, 0, 0.3f), 50, 0, 0, 1); }},
        {"ka_set_auto_tool_frame", [&](auto h) { return ka_set_auto_tool_frame(h, 3); }},
        {"ka_movej", [&](auto h) { return ka_movej(h, home, 50, 0, 0, 1); }},
        {"ka_generate_auto_tool_frame", [&](auto h) { return ka_generate_auto_tool_frame(h, "auto", 0.2f, 0, 0, 0.01f); }},
        {"ka_set_tool_envelope", [&](auto h) { return ka_set_tool_envelope(h, balls); }},
        {"ka_get_tool_envelope", [&](auto h) { return ka_get_tool_envelope(h, "grip", &balls); }},
        {"ka_set_manual_work_frame", [&](auto h) { return ka_set_manual_work_frame(h, "table", shifted(ka_pose_t{}, 0.1f, 0, 0)); }},
        {"ka_update_work_frame", [&](auto h) { return ka_update_work_frame(h, "table", shifted(ka_pose_t{}, 0.2f, 0, 0)); }},
        {"ka_set_auto_work_frame", [&](auto h) { return ka_set_auto_work_frame(h, "taught", 1); }},
        {"ka_get_total_tool_frame", [&](auto h) { return ka_get_total_tool_frame(h, names, &count); }},
        {"ka_get_total_work_frame", [&](auto h) { return ka_get_total_work_frame(h, names, &count); }},
        {"ka_get_given_tool_frame", [&](auto h) { return ka_get_given_tool_frame(h, "grip", &frame); }},
        {"ka_get_given_work_frame", [&](auto h) { return ka_get_given_work_frame(h, "table", &pose); }},
        {"ka_change_tool_frame", [&](auto h) { return ka_change_tool_frame(h, "grip"); }},
        {"ka_change_work_frame", [&](auto h) { return ka_change_work_frame(h, "table"); }},
        {"ka_get_current_tool_frame", [&](auto h) { return ka_get_current_tool_frame(h, &frame); }},
        {"ka_get_current_work_frame", [&](auto h) { return ka_get_current_work_frame(h, &frame); }},
        {"ka_change_tool_frame", [&](auto h) { return ka_change_tool_frame(h, "Arm_Tip"); }},
        {"ka_change_work_frame", [&](auto h) { return ka_change_work_frame(h, "World"); }},
        {"ka_delete_tool_frame", [&](auto h) { return ka_delete_tool_frame(h, "grip"); }},
        {"ka_delete_work_frame", [&](auto h) { return ka_delete_work_frame(h, "table"); }},
        {"ka_set_install_pose", [&](auto h) { return ka_set_install_pose(h, 0, 0, 0); }},
        {"ka_get_install_pose", [&](auto h) { return ka_get_install_pose(h, &x, &y, &z); }},

        // Arm and controller state.
        {"ka_get_joint_degree", [&](auto h) { return ka_get_joint_degree(h, joints); }},
        {"ka_get_current_arm_state", [&](auto h) { return ka_get_current_arm_state(h, &arm_state); }},
        {"ka_get_arm_all_state", [&](auto h) { return ka_get_arm_all_state(h, &all_state); }},
        {"ka_get_current_joint_temperature", [&](auto h) { return ka_get_current_joint_temperature(h, values); }},
        {"ka_get_current_joint_current", [&](auto h) { return ka_get_current_joint_current(h, values); }},
        {"ka_get_current_joint_voltage", [&](auto h) { return ka_get_current_joint_voltage(h, values); }},
        {"ka_get_joint_odom", [&](auto h) { return ka_get_joint_odom(h, values); }},
        {"ka_get_joint_err_flag", [&](auto h) { return ka_get_joint_err_flag(h, flags, brakes); }},
        {"ka_get_controller_state", [&](auto h) { return ka_get_controller_state(h, &x, &y, &z, &a); }},
        {"ka_get_arm_power_state", [&](auto h) { return ka_get_arm_power_state(h, &a); }},
        {"ka_set_arm_power", [&](auto h) { return ka_set_arm_power(h, 1); }},
        {"ka_get_system_runtime", [&](auto h) { return ka_get_system_runtime(h, &a, &b, &c, &d); }},
        {"ka_clear_system_runtime", [&](auto h) { return ka_clear_system_runtime(h); }},
        {"ka_clear_joint_odom", [&](auto h) { return ka_clear_joint_odom(h); }},
        {"ka_clear_system_err", [&](auto h) { return ka_clear_system_err(h); }},
        {"ka_get_arm_software_info", [&](auto h) { return ka_get_arm_software_info(h, &software); }},
        {"ka_get_joint_software_version", [&](auto h) { int v[7] = {}; return ka_get_joint_software_version(h, v); }},
        {"ka_get_tool_software_version", [&](auto h) { return ka_get_tool_software_version(h, &a); }},
        {"ka_set_arm_run_mode", [&](auto h) { return ka_set_arm_run_mode(h, 1); }},
        {"ka_get_arm_run_mode", [&](auto h) { return ka_get_arm_run_mode(h, &a); }},

        // Network settings: stored, never applied.
        {"ka_set_NetIP", [&](auto h) { return ka_set_NetIP(h, "192.168.1.18"); }},
        {"ka_get_wired_net", [&](auto h) { return ka_get_wired_net(h, ip, mask, mac); }},
        {"ka_set_wifi_ap", [&](auto h) { return ka_set_wifi_ap(h, "cell-7", "secret12"); }},
        {"ka_set_wifi_sta", [&](auto h) { return ka_set_wifi_sta(h, "plant", "secret12"); }},
        {"ka_get_wifi_net", [&](auto h) { return ka_get_wifi_net(h, &wifi); }},
        {"ka_set_wifi_close", [&](auto h) { return ka_set_wifi_close(h); }},
        {"ka_set_usb", [&](auto h) { return ka_set_usb(h, 460800); }},
        {"ka_set_RS485", [&](auto h) { return ka_set_RS485(h, 115200); }},
        {"ka_set_net_default", [&](auto h) { return ka_set_net_default(h); }},

        // Controller and tool I/O.
        {"ka_set_IO_mode", [&](auto h) { return ka_set_IO_mode(h, 1, 1); }},
        {"ka_set_DO_state", [&](auto h) { return ka_set_DO_state(h, 1, 1); }},
        {"ka_get_IO_state", [&](auto h) { return ka_get_IO_state(h, 1, &a, &b); }},
        {"ka_get_IO_input", [&](auto h) { int di[4] = {}; return ka_get_IO_input(h, di); }},
        {"ka_get_IO_output", [&](auto h) { int out[4] = {}; return ka_get_IO_output(h, out); }},
        {"ka_set_voltage", [&](auto h) { return ka_set_voltage(h, 3); }},
        {"ka_get_voltage", [&](auto h) { return ka_get_voltage(h, &a); }},
        {"ka_set_tool_IO_mode", [&](auto h) { return ka_set_tool_IO_mode(h, 1, 1); }},
        {"ka_set_tool_DO_state", [&](auto h) { return ka_set_tool_DO_state(h, 1, 1); }},
        {"ka_get_tool_IO_state", [&](auto h) { int m[2] = {}, st[2] = {}; return ka_get_tool_IO_state(h, m, st); }},
        {"ka_set_tool_voltage", [&](auto h) { return ka_set_tool_voltage(h, 2); }},
        {"ka_get_tool_voltage", [&](auto h) { return ka_get_tool_voltage(h, &a); }},
        {"ka_get_controller_RS485_mode", [&](auto h) { return ka_get_controller_RS485_mode(h, &a, &b, &c); }},
        {"ka_get_tool_RS485_mode", [&](auto h) { return ka_get_tool_RS485_mode(h, &a, &b, &c); }},

        // Gripper and dexterous hand.
        {"ka_set_gripper_route", [&](auto h) { return ka_set_gripper_route(h, 0, 1000); }},
        {"ka_set_gripper_pick", [&](auto h) { return ka_set_gripper_pick(h, 500, 200, true, 5); }},
        {"ka_set_gripper_release", [&](auto h) { return ka_set_gripper_release(h, 500, true, 5); }},
        {"ka_set_gripper_pick_on", [&](auto h) { return ka_set_gripper_pick_on(h, 500, 200, true, 5); }},
        {"ka_set_gripper_position", [&](auto h) { return ka_set_gripper_position(h, 600, true, 5); }},
        {"ka_get_gripper_state", [&](auto h) { return ka_get_gripper_state(h, &gripper); }},
        {"ka_set_hand_posture", [&](auto h) { return ka_set_hand_posture(h, 1, true, 5); }},
        {"ka_set_hand_seq", [&](auto h) { return ka_set_hand_seq(h, 1, true, 5); }},
        {"ka_set_hand_angle", [&](auto h) { return ka_set_hand_angle(h, hand_angles); }},
        {"ka_set_hand_follow_angle", [&](auto h) { return ka_set_hand_follow_angle(h, hand_angles); }},
        {"ka_set_hand_speed", [&](auto h) { return ka_set_hand_speed(h, 500); }},
        {"ka_set_hand_force", [&](auto h) { return ka_set_hand_force(h, 500); }},

        // Force sensing, drag teaching, force-position control.
        {"ka_get_force_data", [&](auto h) { return ka_get_force_data(h, &force); }},
        {"ka_clear_force_data", [&](auto h) { return ka_clear_force_data(h); }},
        {"ka_set_force_sensor", [&](auto h) { return ka_set_force_sensor(h, true); }},
        {"ka_manual_set_force", [&](auto h) { float poses[4][7] = {}; for (auto &p : poses) std::memcpy(p, home, sizeof p); return ka_manual_set_force(h, 1, &poses[0][0], true); }},
        {"ka_stop_set_force_sensor", [&](auto h) { return ka_stop_set_force_sensor(h); }},
        {"ka_get_Fz", [&](auto h) { return ka_get_Fz(h, &fz); }},
        {"ka_clear_Fz", [&](auto h) { return ka_clear_Fz(h); }},
        {"ka_auto_set_Fz", [&](auto h) { return ka_auto_set_Fz(h, true); }},
        {"ka_manual_set_Fz", [&](auto h) { float j1[7], j2[7]; std::memcpy(j1, home, sizeof j1); std::memcpy(j2, nearby, sizeof j2); return ka_manual_set_Fz(h, j1, j2, true); }},
        {"ka_set_drag_teach_sensitivity", [&](auto h) { return ka_set_drag_teach_sensitivity(h, 50); }},
        {"ka_get_drag_teach_sensitivity", [&](auto h) { return ka_get_drag_teach_sensitivity(h, &a); }},
        {"ka_start_drag_teach", [&](auto h) { return ka_start_drag_teach(h, 1); }},
        {"ka_stop_drag_teach", [&](auto h) { return ka_stop_drag_teach(h); }},
        {"ka_save_trajectory", [&](auto h) { return ka_save_trajectory(h, path("taught.txt").c_str(), &saved); }},
        {"ka_drag_trajectory_origin", [&](auto h) { return ka_drag_trajectory_origin(h, 1); }},
        {"ka_run_drag_trajectory", [&](auto h) { return ka_run_drag_trajectory(h, 1); }},
        {"ka_pause_drag_trajectory", [&](auto h) { return ka_pause_drag_trajectory(h); }},
        {"ka_continue_drag_trajectory", [&](auto h) { return ka_continue_drag_trajectory(h); }},
        {"ka_stop_drag_trajectory", [&](auto h) { return ka_stop_drag_trajectory(h); }},
        {"ka_start_multi_drag_teach", [&](auto h) { return ka_start_multi_drag_teach(h, 2, 0); }},
        {"ka_stop_drag_teach", [&](auto h) { return ka_stop_drag_teach(h); }},
        {"ka_start_multi_drag_teach_new", [&](auto h) { return ka_start_multi_drag_teach_new(h, &drag); }},
        {"ka_stop_drag_teach", [&](auto h) { return ka_stop_drag_teach(h); }},
        {"ka_set_force_position", [&](auto h) { return ka_set_force_position(h, 1, 0, 2, 5.0f); }},
        {"ka_stop_force_position", [&](auto h) { return ka_stop_force_position(h); }},
        {"ka_set_force_position_new", [&](auto h) { return ka_set_force_position_new(h, &force_position); }},
        {"ka_stop_force_position", [&](auto h) { return ka_stop_force_position(h); }},
        {"ka_start_force_position_move", [&](auto h) { return ka_start_force_position_move(h); }},
        {"ka_force_position_move_joint", [&](auto h) { return ka_force_position_move_joint(h, home, 1, 0, 2, 5.0f, true); }},
        {"ka_force_position_move_pose", [&](auto h) { return ka_force_position_move_pose(h, start_euler, 1, 0, 2, 5.0f, true); }},
        {"ka_force_position_move", [&](auto h) { return ka_force_position_move(h, force_move); }},
        {"ka_stop_force_position_move", [&](auto h) { return ka_stop_force_position_move(h); }},

        // Modbus peripherals.
        {"ka_set_modbus_mode", [&](auto h) { return ka_set_modbus_mode(h, 1, 115200, 2); }},
        {"ka_write_single_register", [&](auto h) { return ka_write_single_register(h, modbus(10, 1), 1234); }},
        {"ka_read_holding_registers", [&](auto h) { return ka_read_holding_registers(h, modbus(10, 1), registers); }},
        {"ka_write_registers", [&](auto h) { return ka_write_registers(h, modbus(20, 2), to_write); }},
        {"ka_read_multiple_holding_registers", [&](auto h) { return ka_read_multiple_holding_registers(h, modbus(20, 2), registers); }},
        {"ka_read_input_registers", [&](auto h) { return ka_read_input_registers(h, modbus(10, 1), registers); }},
        {"ka_read_multiple_input_registers", [&](auto h) { return ka_read_multiple_input_registers(h, modbus(10, 2), registers); }},
        {"ka_write_single_coil", [&](auto h) { return ka_write_single_coil(h, modbus(3, 1), 1); }},
        {"ka_read_coils", [&](auto h) { return ka_read_coils(h, modbus(3, 1), coils); }},
        {"ka_write_coils", [&](auto h) { return ka_write_coils(h, modbus(0, 8), coil_bits); }},
        {"ka_read_multiple_coils", [&](auto h) { return ka_read_multiple_coils(h, modbus(0, 8), coils); }},
        {"ka_read_input_status", [&](auto h) { return ka_read_input_status(h, modbus(0, 1), coils); }},
        {"ka_close_modbus_mode", [&](auto h) { return ka_close_modbus_mode(h, 1); }},
        {"ka_set_modbustcp_mode", [&](auto h) { return ka_set_modbustcp_mode(h, "192.168.1.50", 502, 2); }},
        {"ka_close_modbustcp_mode", [&](auto h) { return ka_close_modbustcp_mode(h); }},

        // Lift and expansion axes.
        {"ka_set_lift_speed", [&](auto h) { return ka_set_lift_speed(h, 20); }},
        {"ka_set_lift_speed", [&](auto h) { return ka_set_lift_speed(h, 0); }},
        {"ka_set_lift_height", [&](auto h) { return ka_set_lift_height(h, 50, 100, 1); }},
        {"ka_get_lift_state", [&](auto h) { return ka_get_lift_state(h, &expand); }},
        {"ka_set_expand_speed", [&](auto h) { return ka_set_expand_speed(h, 20); }},
        {"ka_set_expand_speed", [&](auto h) { return ka_set_expand_speed(h, 0); }},
        {"ka_set_expand_pos", [&](auto h) { return ka_set_expand_pos(h, 50, 100, 1); }},
        {"ka_get_expand_state", [&](auto h) { return ka_get_expand_state(h, &expand); }},

        // Online programming.
        {"ka_set_plan_speed", [&](auto h) { return ka_set_plan_speed(h, 60); }},
        {"ka_send_project", [&](auto h) { return ka_send_project(h, &project, &errline); }},
                // A text the caller holds follows its own "run_project".
        {"ka_run_project", [&](auto h) { return ka_run_project(h, &project, static_cast<int>(program_text.size())); }},
        {"ka_send_project_lock", [&](auto h) { return ka_send_project_lock(h, program_text.c_str(), static_cast<int>(program_text.size()), &errline); }},
        {"ka_get_program_trajectory_list", [&](auto h) { return ka_get_program_trajectory_list(h, 1, 10, nullptr, programs.get()); }},
        {"ka_update_program_trajectory", [&](auto h) { return ka_update_program_trajectory(h, programs->list[0].id, 40, "pick"); }},
        {"ka_set_default_run_program", [&](auto h) { return ka_set_default_run_program(h, programs->list[0].id); }},
        {"ka_get_default_run_program", [&](auto h) { return ka_get_default_run_program(h, &a); }},
        {"ka_set_program_id_run", [&](auto h) { return ka_set_program_id_run(h, programs->list[0].id, 0, 1); }},
        {"ka_get_program_run_state", [&](auto h) { return ka_get_program_run_state(h, &run_state); }},
        {"ka_delete_program_trajectory", [&](auto h) { return ka_delete_program_trajectory(h, programs->list[0].id); }},
        {"countLinesInFile", [&](auto) { return countLinesInFile(path("pick.txt").c_str()) == 2 ? 0 : -1; }},
        {"add_lines_to_file", [&](auto h) { return add_lines_to_file(h, path("points.txt").c_str(), path("converted.txt").c_str()); }},

        // Global waypoints.
        {"ka_add_global_waypoint", [&](auto h) { return ka_add_global_waypoint(h, &waypoint); }},
        {"ka_update_global_waypoint", [&](auto h) { return ka_update_global_waypoint(h, &waypoint); }},
        {"ka_get_given_global_waypoint", [&](auto h) { return ka_get_given_global_waypoint(h, "above", &waypoint); }},
        {"ka_get_global_waypoints_list", [&](auto h) { return ka_get_global_waypoints_list(h, 1, 10, nullptr, waypoints.get()); }},
        {"ka_delete_global_waypoint", [&](auto h) { return ka_delete_global_waypoint(h, "above"); }},

        // Safety: fences, virtual walls, self collision.
        {"ka_add_electronic_fence_config", [&](auto h) { return ka_add_electronic_fence_config(h, cube_fence("cell")); }},
        {"ka_update_electronic_fence_config", [&](auto h) { return ka_update_electronic_fence_config(h, cube_fence("cell")); }},
        {"ka_get_electronic_fence_list_names", [&](auto h) { return ka_get_electronic_fence_list_names(h, fence_names, &count); }},
        {"ka_get_given_electronic_fence_config", [&](auto h) { return ka_get_given_electronic_fence_config(h, "cell", &fence); }},
        {"ka_get_electronic_fence_list_infos", [&](auto h) { return ka_get_electronic_fence_list_infos(h, fences.get(), &count); }},
        {"ka_delete_electronic_fence_config", [&](auto h) { return ka_delete_electronic_fence_config(h, "cell"); }},
        {"ka_set_electronic_fence_config", [&](auto h) { return ka_set_electronic_fence_config(h, cube_fence("cell")); }},
        {"ka_get_electronic_fence_config", [&](auto h) { return ka_get_electronic_fence_config(h, &fence); }},
        {"ka_set_electronic_fence_enable", [&](auto h) { return ka_set_electronic_fence_enable(h, fence_enable); }},
        {"ka_get_electronic_fence_enable", [&](auto h) { return ka_get_electronic_fence_enable(h, &fence_enable); }},
        {"ka_set_virtual_wall_config", [&](auto h) { return ka_set_virtual_wall_config(h, cube_fence("wall")); }},
        {"ka_get_virtual_wall_config", [&](auto h) { return ka_get_virtual_wall_config(h, &fence); }},
        {"ka_set_virtual_wall_enable", [&](auto h) { return ka_set_virtual_wall_enable(h, fence_enable); }},
        {"ka_get_virtual_wall_enable", [&](auto h) { return ka_get_virtual_wall_enable(h, &fence_enable); }},
        {"ka_set_self_collision_enable", [&](auto h) { return ka_set_self_collision_enable(h, true); }},
        {"ka_get_self_collision_enable", [&](auto h) { return ka_get_self_collision_enable(h, &flag); }},
    };

    std::set<std::string> called;
    for (const call_row &row : rows) {
        SCOPED_TRACE(row.function);
        called.insert(row.function);
        const int result = row.call(arm);
        EXPECT_EQ(result, row.expected) << row.function << (row.why ? row.why : "");
    }

    // Every command function of the headers has a row, except those that
    // take the handle but send no request: closing it, resetting a record,
    // and the single-thread mode's completion wait (which reads reports).
    const std::set<std::string> sends_nothing = {"ka_delete_robot_arm", "ka_handle_init",
                                                 "ka_movecmd_singlemode_parse"};
    std::set<std::string> missing;
    for (const std::string &name : header_commands())
        if (!called.count(name) && !sends_nothing.count(name)) missing.insert(name);
    std::string list;
    for (const auto &name : missing)
        list += name + " ";
    EXPECT_TRUE(missing.empty()) << "no coverage row for: " << list;
}

} // namespace
