// Every query of every family against the reply forms they share: a
// well-formed reply gives 0, a reply carrying only its name the family's
// code for a malformed reply, silence -2 on the query's own time-out, and a
// closed connection -1 at once. Then the set commands whose request is built
// by hand (motions, the tool envelope, the push settings, waypoints)
// against each verdict form. The bytes sent and the values read are the
// family tests' business; these rows only add the outcomes per command (the
// limits test and the families' set tables run the rest the same way).
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

using quiet = set_row::no_reply;
constexpr int length = query_row::reply_length;

float floats[7];
int ints[251], a, b, c, d;
uint8_t bytes[7];
uint16_t halves[2][7];
bool flag;
ka_current_arm_state_t arm_state;
ka_arm_all_state_t all_state;
ka_arm_software_version_t software;
ka_gripper_state_t gripper;
ka_expand_state_t axis;
ka_force_data_t force;
ka_fz_data_t fz;
ka_arm_current_trajectory_e trajectory;
ka_frame_t frame;
ka_pose_t pose;
ka_frame_name_t frame_names[KA_FRAME_LIST_CAPACITY];
ka_envelope_balls_list_t envelope;
char ip[16], mask[16], mac[18];
ka_wifi_net_t wifi;
ka_program_trajectorys_t programs;
ka_program_run_state_t run_state;
ka_waypoint_t waypoint;
ka_waypoint_list_t waypoints;
ka_fence_names_t fence_names[KA_FENCE_LIST_CAPACITY];
ka_fence_config_list_t fence_list[KA_FENCE_LIST_CAPACITY];
ka_fence_config_t fence;
ka_electronic_fence_enable_t fence_enable;
ka_realtime_push_config_t push;
const ka_peripheral_read_write_params_t modbus{1, 10, 2, 16};
const float joints[7] = {1, 2, 3, 4, 5, 6, 0};
const ka_pose_t target{{0.1f, -0.2f, 0.3f}, {1, 0, 0, 0}, {0, 0, 0}};
ka_waypoint_t stored = [] {
    ka_waypoint_t w{};
    std::strcpy(w.point_name, "p1");
    std::strcpy(w.work_frame, "World");
    std::strcpy(w.tool_frame, "Arm_Tip");
    return w;
}();
const ka_envelope_balls_list_t balls = [] {
    ka_envelope_balls_list_t l{};
    std::strcpy(l.tool_name, "tip");
    l.size = 1;
    std::strcpy(l.balls[0].name, "b1");
    l.balls[0].radius = 0.05f;
    return l;
}();
const ka_realtime_push_config_t push_settings = [] {
    ka_realtime_push_config_t c{};
    c.cycle = 1;
    c.enable = true;
    c.port = 8089;
    std::strcpy(c.ip, "127.0.0.1");
    return c;
}();

const std::string joints6 = "[1000,-2500,0,0,0,1]";
const std::string pose6 = "[1000000,0,-500000,3142,0,0]";
const std::string sphere = R"("form":3,"form_name":"ball","radius":50,"x":100,"y":-200,"z":300)";
const std::string point = R"("point_name":"p1","joint":)" + joints6 + R"(,"pose":)" + pose6 +
                          R"(,"work_frame":"World","tool_frame":"Arm_Tip","time":"t")";

} // namespace

// clang-format off
TEST(query_outcomes, state_and_versions) {
    const query_row rows[] = {
        {"get_joint_degree", CALL(ka_get_joint_degree(h, floats)), "joint_degree", R"("joint":)" + joints6, -3, 500, quiet::always},
        {"get_current_joint_temperature", CALL(ka_get_current_joint_temperature(h, floats)), "current_joint_temperature", R"("joint_temperature":)" + joints6},
        {"get_current_joint_current", CALL(ka_get_current_joint_current(h, floats)), "current_joint_current", R"("joint_current":)" + joints6},
        {"get_current_joint_voltage", CALL(ka_get_current_joint_voltage(h, floats)), "current_joint_voltage", R"("joint_voltage":)" + joints6},
        {"get_joint_odom", CALL(ka_get_joint_odom(h, floats)), "", R"("odom":)" + joints6},
        {"get_current_arm_state", CALL(ka_get_current_arm_state(h, &arm_state)), "current_arm_state", R"("arm_state":{"arm_err":0,"sys_err":0,"joint":)" + joints6 + R"(,"pose":)" + pose6 + "}", length},
        {"get_arm_all_state", CALL(ka_get_arm_all_state(h, &all_state)), "arm_all_state", R"("temperature":)" + joints6 + R"(,"current":)" + joints6 + R"(,"voltage":)" + joints6 + R"(,"err_flag":)" + joints6 + R"(,"en_flag":[1,1,1,1,1,1],"sys_err":0)"},
        {"get_joint_err_flag", CALL(ka_get_joint_err_flag(h, halves[0], halves[1])), "joint_err_flag", R"("err_flag":)" + joints6 + R"(,"brake_state":)" + joints6},
        {"get_controller_state", CALL(ka_get_controller_state(h, &floats[0], &floats[1], &floats[2], &a)), "controller_state", R"("voltage":24000,"current":1500,"temperature":35500,"err_flag":0)"},
        {"get_arm_power_state", CALL(ka_get_arm_power_state(h, &a)), "arm_power_state", R"("power_state":1)", length},
        {"get_system_runtime", CALL(ka_get_system_runtime(h, &a, &b, &c, &d)), "", R"("day":1,"hour":2,"min":3,"sec":4)"},
        {"get_arm_software_info", CALL(ka_get_arm_software_info(h, &software)), "arm_software_info", R"("Product_version":"KIVO-B","ctrl_info":{"version":"C1","build_time":"T"},"plan_info":{})", -1},
        {"get_joint_en_state", CALL(ka_get_joint_en_state(h, bytes)), "joint_en_state", R"("en_state":[1,1,1,1,1,1])"},
        {"get_joint_software_version", CALL(ka_get_joint_software_version(h, ints)), "joint_software_version", R"("version":[1,2,3,4,5,6])"},
        {"get_tool_software_version", CALL(ka_get_tool_software_version(h, &a)), "tool_software_version", R"("version":257)"},
        {"get_arm_run_mode", CALL(ka_get_arm_run_mode(h, &a)), "", R"("mode":1)"},
        {"get_install_pose", CALL(ka_get_install_pose(h, &floats[0], &floats[1], &floats[2])), "install_pose", R"("pose":[90,0,-45])"},
    };
    expect_query_outcomes(rows);
}

TEST(query_outcomes, io_modbus_and_network) {
    const query_row rows[] = {
        {"get_IO_state", CALL(ka_get_IO_state(h, 2, &a, &b)), "IO_state", R"("IO_Num":2,"IO_Mode":3,"IO_state":1)", -3, 500, quiet::always},
        {"get_IO_input", CALL(ka_get_IO_input(h, ints)), "IO_input_state", R"("DI":[1,0,1,0])"},
        {"get_IO_output", CALL(ka_get_IO_output(h, ints)), "IO_output_state", R"("DO":[0,1,1,0])"},
        {"get_voltage", CALL(ka_get_voltage(h, &a)), "voltage_state", R"("voltage_type":3)"},
        {"get_tool_IO_state", CALL(ka_get_tool_IO_state(h, ints, ints + 2)), "tool_IO_state", R"("IO_Mode":[0,1],"IO_state":[1,0])"},
        {"get_tool_voltage", CALL(ka_get_tool_voltage(h, &a)), "tool_voltage_state", R"("voltage_type":1)"},
        {"get_controller_RS485_mode", CALL(ka_get_controller_RS485_mode(h, &a, &b, &c)), "", R"("controller_RS485_mode":2,"baudrate":115200,"modbus_timeout":20)"},
        {"get_tool_RS485_mode", CALL(ka_get_tool_RS485_mode(h, &a, &b, &c)), "", R"("tool_RS485_mode":1,"baudrate":9600,"modbus_timeout":5)"},
        {"read_coils", CALL(ka_read_coils(h, modbus, ints)), "", R"("data":5)", -3, 1000},
        {"read_input_status", CALL(ka_read_input_status(h, modbus, ints)), "", R"("data":3)", -3, 1000},
        {"read_holding_registers", CALL(ka_read_holding_registers(h, modbus, ints)), "", R"("data":-7)", -3, 1000},
        {"read_input_registers", CALL(ka_read_input_registers(h, modbus, ints)), "", R"("data":65535)", -3, 1000},
        {"read_multiple_coils", CALL(ka_read_multiple_coils(h, modbus, ints)), "", R"("data":[255,1])", -3, 3000},
        {"read_multiple_holding_registers", CALL(ka_read_multiple_holding_registers(h, modbus, ints)), "", R"("data":[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31])", -3, 1000},
        {"read_multiple_input_registers", CALL(ka_read_multiple_input_registers(h, modbus, ints)), "", R"("data":[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31])", -3, 1000},
        {"get_wired_net", CALL(ka_get_wired_net(h, ip, mask, mac)), "", R"("ip":"192.168.1.18","mask":"255.255.255.0","mac":"00:1A:2B:3C:4D:5E")"},
        {"get_wifi_net", CALL(ka_get_wifi_net(h, &wifi)), "", R"("ip":"1.2.3.4","mac":"m","mask":"255.0.0.0","mode":"sta","ssid":"lab","password":"secret")"},
    };
    expect_query_outcomes(rows);
}

TEST(query_outcomes, safety) {
    const query_row rows[] = {
        {"get_electronic_fence_list_names", CALL(ka_get_electronic_fence_list_names(h, fence_names, &a)), "", R"("name_list":["box","ball"])"},
        {"given_electronic_fence_config", CALL(ka_get_given_electronic_fence_config(h, "ball", &fence)), "given_electronic_fence_config", R"("given_state":true,)" + sphere},
        {"get_electronic_fence_list_infos", CALL(ka_get_electronic_fence_list_infos(h, fence_list, &a)), "", R"("info_list":[{)" + sphere + "}]"},
        {"get_electronic_fence_config", CALL(ka_get_electronic_fence_config(h, &fence)), "", sphere},
        {"get_electronic_fence_enable", CALL(ka_get_electronic_fence_enable(h, &fence_enable)), "", R"("enable_state":true,"in_out_side":1,"effective_region":3)"},
        {"get_virtual_wall_config", CALL(ka_get_virtual_wall_config(h, &fence)), "", sphere},
        {"get_virtual_wall_enable", CALL(ka_get_virtual_wall_enable(h, &fence_enable)), "", R"("enable_state":false,"in_out_side":1,"effective_region":0)"},
        {"get_self_collision_enable", CALL(ka_get_self_collision_enable(h, &flag)), "", R"("enable_state":true)"},
    };
    expect_query_outcomes(rows);
}

TEST(query_outcomes, frames_waypoints_and_programs) {
    const std::string tool = R"("tool_name":"tip","pose":)" + pose6 + R"(,"payload":1500,"position":[1000,2000,3000])";
    const query_row rows[] = {
        {"get_current_tool_frame", CALL(ka_get_current_tool_frame(h, &frame)), "current_tool_frame", tool, -1},
        {"get_current_work_frame", CALL(ka_get_current_work_frame(h, &frame)), "current_work_frame", R"("frame_name":"wf","pose":)" + pose6, -1},
        {"get_total_tool_frame", CALL(ka_get_total_tool_frame(h, frame_names, &a)), "total_tool_frame", R"("frame_names":["a","bb","NULL"])", -2},
        {"get_total_work_frame", CALL(ka_get_total_work_frame(h, frame_names, &a)), "total_work_frame", R"("frame_names":["World"])", -2},
        // A missing data reply is followed by a wait for a refusal line, so
        // their silence takes longer than one time-out.
        {"get_tool_frame", CALL(ka_get_given_tool_frame(h, "tip", &frame)), "given_tool_frame", tool, -3, 500, quiet::never},
        {"get_work_frame", CALL(ka_get_given_work_frame(h, "wf", &pose)), "given_work_frame", R"("frame_name":"wf","pose":)" + pose6, -3, 500, quiet::never},
        {"get_tool_envelope", CALL(ka_get_tool_envelope(h, "tip", &envelope)), "", R"("tool_name":"tip","list":[{"name":"b1","radius":50,"x":1,"y":-30,"z":299}])"},
        {"given_global_waypoint", CALL(ka_get_given_global_waypoint(h, "p1", &waypoint)), "given_global_waypoint", point},
        {"get_global_waypoints_list", CALL(ka_get_global_waypoints_list(h, 1, 5, nullptr, &waypoints)), "", R"("get_state":true,"total_size":1,"list":[{)" + point + "}]"},
        {"get_program_trajectory_list", CALL(ka_get_program_trajectory_list(h, 1, 10, nullptr, &programs)), "", R"("total_size":1,"list":[{"id":1,"size":30,"speed":60,"trajectory_name":"pick"}])"},
        {"get_program_run_state", CALL(ka_get_program_run_state(h, &run_state)), "", R"("run_state":1,"id":4,"plan_speed":80,"loop_num":[3,2],"loop_cont":[1,0])"},
        {"get_default_run_program", CALL(ka_get_default_run_program(h, &a)), "", R"("id":9)"},
    };
    expect_query_outcomes(rows);
}

TEST(query_outcomes, devices_motion_and_push) {
    const query_row rows[] = {
        {"get_gripper_state", CALL(ka_get_gripper_state(h, &gripper)), "", R"("enable":1,"status":2,"error":3,"mode":4,"current_force":5,"temperature":6,"actpos":7)"},
        {"get_lift_state", CALL(ka_get_lift_state(h, &axis)), "lift_state", R"("height":7,"current":3,"err_flag":1,"mode":2)"},
        {"expand_get_state", CALL(ka_get_expand_state(h, &axis)), "expand_state", R"("pos":-4,"current":0,"err_flag":0,"mode":1)"},
        {"get_teach_frame", CALL(ka_get_teach_frame(h, &a)), "", R"("frame_type":1)", length},
        {"get_arm_current_trajectory", CALL(ka_get_arm_current_trajectory(h, &trajectory, floats)), "arm_current_trajectory", R"("type":"movej","data":)" + joints6, -1},
        {"get_realtime_push", CALL(ka_get_realtime_push(h, &push)), "", R"("cycle":1,"enable":true,"port":8089,"ip":"127.0.0.1","custom":{})"},
    };
    expect_query_outcomes(rows);
}

TEST(query_outcomes, force_readings) {
    const query_row rows[] = {
        {"get_force_data", CALL(ka_get_force_data(h, &force)), "", R"("force_data":)" + joints6 + R"(,"zero_force_data":)" + joints6 + R"(,"work_zero_force_data":)" + joints6 + R"(,"tool_zero_force_data":)" + joints6},
        {"get_Fz", CALL(ka_get_Fz(h, &fz)), "", R"("Fz":12700,"zero_Fz":-5,"work_zero_Fz":0,"tool_zero_Fz":1000)"},
        {"get_drag_teach_sensitivity", CALL(ka_get_drag_teach_sensitivity(h, &a)), "", R"("grade":60)"},
    };
    expect_query_outcomes(rows, "KIVO-6F");
}
// clang-format on

// clang-format off
TEST(set_outcomes, requests_built_by_hand) {
    const set_row rows[] = {
        {"movej", CALL(ka_movej(h, joints, 20, 0, 0, 0)), "", "receive_state", 500, quiet::always},
        {"movel", CALL(ka_movel(h, target, 20, 0, 0, 0)), "", "receive_state"},
        {"moves", CALL(ka_moves(h, target, 20, 0, 1, 0)), "", "receive_state"},
        {"movej_p", CALL(ka_movej_p(h, target, 20, 0, 0, 0)), "", "receive_state"},
        {"movec", CALL(ka_movec(h, target, target, 20, 0, 1, 0, 0)), "", "receive_state"},
        {"set_teach_frame", CALL(ka_set_teach_frame(h, 1)), "", "set_state"},
        {"set_tool_envelope", CALL(ka_set_tool_envelope(h, balls)), "", "set_state"},
        {"set_realtime_push", CALL(ka_set_realtime_push(h, push_settings)), "", "state", 700},
        {"add_global_waypoint", CALL(ka_add_global_waypoint(h, &stored)), "", "add_state"},
        {"update_global_waypoint", CALL(ka_update_global_waypoint(h, &stored)), "", "update_state"},
        {"delete_global_waypoint", CALL(ka_delete_global_waypoint(h, "p1")), "", "delete_state"},
    };
    expect_set_outcomes(rows);
}
// clang-format on
