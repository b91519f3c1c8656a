/*
 * ka_service.h - the flat API as member functions of one class (C++ only).
 *
 * Every member forwards to the exported function of the same name and
 * returns its result unchanged; the documentation, units and return codes
 * are those of ka_api.h and ka_algo.h. The library's state is process-wide,
 * so all instances see the same arms: an instance is only a namespace, and
 * one may be created on the stack or with new at any time.
 *
 * A member has the flat function's type (hence the decltype declarations),
 * except that an input record the flat function takes as `const T *` is
 * taken by value and passed on by address. Two names are overloaded: the
 * record forms of ka_start_multi_drag_teach and ka_set_force_position forward
 * to ka_start_multi_drag_teach_new and ka_set_force_position_new.
 *
 * Left out on purpose: ka_set_plan_speed, ka_set_usb, ka_run_project,
 * ka_send_project_lock, ka_algo_judgment_overpos, ka_algo_arm_state_set,
 * and the internal exports (ka_get_arm_dof, ka_get_cur_time,
 * ka_set_data_common, ka_get_data_common, ka_sync_robot_info, the *_block
 * and *_nblock halves of the motions and steps, the ka_log* entry points,
 * countLinesInFile, add_lines_to_file).
 */
#ifndef KA_SERVICE_H
#define KA_SERVICE_H

#ifndef __cplusplus
#error "ka_service.h is a C++ header; C callers use ka_api.h"
#endif

#include "ka_api.h"

class KA_API KA_Service {
  public:
    // Library lifecycle and arm registry
    decltype(::ka_init) ka_init;
    decltype(::ka_api_version) ka_api_version;
    decltype(::ka_api_version_number) ka_api_version_number;
    decltype(::ka_create_robot_arm) ka_create_robot_arm;
    decltype(::ka_delete_robot_arm) ka_delete_robot_arm;
    decltype(::ka_destory) ka_destory;
    decltype(::ka_get_robot_info) ka_get_robot_info;
    decltype(::ka_get_arm_event_call_back) ka_get_arm_event_call_back;

    // Logging
    decltype(::ka_set_log_call_back) ka_set_log_call_back;
    decltype(::ka_set_log_save) ka_set_log_save;

    // Realtime state push
    decltype(::ka_realtime_arm_state_call_back) ka_realtime_arm_state_call_back;
    decltype(::ka_set_realtime_push) ka_set_realtime_push;
    decltype(::ka_get_realtime_push) ka_get_realtime_push;

    // Point-to-point and path motion
    decltype(::ka_movej) ka_movej;
    decltype(::ka_movel) ka_movel;
    decltype(::ka_moves) ka_moves;
    decltype(::ka_movec) ka_movec;
    decltype(::ka_movej_p) ka_movej_p;
    decltype(::ka_get_arm_current_trajectory) ka_get_arm_current_trajectory;

    // Passthrough and follow motion
    decltype(::ka_movej_canfd) ka_movej_canfd;
    decltype(::ka_movep_canfd) ka_movep_canfd;
    decltype(::ka_movej_follow) ka_movej_follow;
    decltype(::ka_movep_follow) ka_movep_follow;

    // Jogging, teaching and motion control
    decltype(::ka_set_joint_step) ka_set_joint_step;
    decltype(::ka_set_pos_step) ka_set_pos_step;
    decltype(::ka_set_ort_step) ka_set_ort_step;
    decltype(::ka_set_joint_teach) ka_set_joint_teach;
    decltype(::ka_set_pos_teach) ka_set_pos_teach;
    decltype(::ka_set_ort_teach) ka_set_ort_teach;
    decltype(::ka_set_stop_teach) ka_set_stop_teach;
    decltype(::ka_set_teach_frame) ka_set_teach_frame;
    decltype(::ka_get_teach_frame) ka_get_teach_frame;
    decltype(::ka_set_arm_slow_stop) ka_set_arm_slow_stop;
    decltype(::ka_set_arm_stop) ka_set_arm_stop;
    decltype(::ka_set_arm_pause) ka_set_arm_pause;
    decltype(::ka_set_arm_continue) ka_set_arm_continue;
    decltype(::ka_set_delete_current_trajectory) ka_set_delete_current_trajectory;
    decltype(::ka_set_arm_delete_trajectory) ka_set_arm_delete_trajectory;

    // Joint and arm limits
    decltype(::ka_set_joint_max_speed) ka_set_joint_max_speed;
    decltype(::ka_set_joint_max_acc) ka_set_joint_max_acc;
    decltype(::ka_set_joint_min_pos) ka_set_joint_min_pos;
    decltype(::ka_set_joint_max_pos) ka_set_joint_max_pos;
    decltype(::ka_get_joint_max_speed) ka_get_joint_max_speed;
    decltype(::ka_get_joint_max_acc) ka_get_joint_max_acc;
    decltype(::ka_get_joint_min_pos) ka_get_joint_min_pos;
    decltype(::ka_get_joint_max_pos) ka_get_joint_max_pos;
    decltype(::ka_set_joint_drive_max_speed) ka_set_joint_drive_max_speed;
    decltype(::ka_set_joint_drive_max_acc) ka_set_joint_drive_max_acc;
    decltype(::ka_set_joint_drive_min_pos) ka_set_joint_drive_min_pos;
    decltype(::ka_set_joint_drive_max_pos) ka_set_joint_drive_max_pos;
    decltype(::ka_get_joint_drive_max_speed) ka_get_joint_drive_max_speed;
    decltype(::ka_get_joint_drive_max_acc) ka_get_joint_drive_max_acc;
    decltype(::ka_get_joint_drive_min_pos) ka_get_joint_drive_min_pos;
    decltype(::ka_get_joint_drive_max_pos) ka_get_joint_drive_max_pos;
    decltype(::ka_auto_set_joint_limit) ka_auto_set_joint_limit;
    decltype(::ka_set_joint_en_state) ka_set_joint_en_state;
    decltype(::ka_get_joint_en_state) ka_get_joint_en_state;
    decltype(::ka_set_joint_zero_pos) ka_set_joint_zero_pos;
    decltype(::ka_set_joint_clear_err) ka_set_joint_clear_err;
    decltype(::ka_set_arm_max_line_speed) ka_set_arm_max_line_speed;
    decltype(::ka_set_arm_max_line_acc) ka_set_arm_max_line_acc;
    decltype(::ka_set_arm_max_angular_speed) ka_set_arm_max_angular_speed;
    decltype(::ka_set_arm_max_angular_acc) ka_set_arm_max_angular_acc;
    decltype(::ka_get_arm_max_line_speed) ka_get_arm_max_line_speed;
    decltype(::ka_get_arm_max_line_acc) ka_get_arm_max_line_acc;
    decltype(::ka_get_arm_max_angular_speed) ka_get_arm_max_angular_speed;
    decltype(::ka_get_arm_max_angular_acc) ka_get_arm_max_angular_acc;
    decltype(::ka_set_arm_tcp_init) ka_set_arm_tcp_init;
    decltype(::ka_set_collision_state) ka_set_collision_state;
    decltype(::ka_get_collision_stage) ka_get_collision_stage;
    decltype(::ka_set_init_pose) ka_set_init_pose;
    decltype(::ka_get_init_pose) ka_get_init_pose;

    // Tool and work frames
    decltype(::ka_set_auto_tool_frame) ka_set_auto_tool_frame;
    decltype(::ka_generate_auto_tool_frame) ka_generate_auto_tool_frame;
    decltype(::ka_set_manual_tool_frame) ka_set_manual_tool_frame;
    decltype(::ka_update_tool_frame) ka_update_tool_frame;
    decltype(::ka_set_tool_envelope) ka_set_tool_envelope;
    decltype(::ka_get_tool_envelope) ka_get_tool_envelope;
    decltype(::ka_set_auto_work_frame) ka_set_auto_work_frame;
    decltype(::ka_set_manual_work_frame) ka_set_manual_work_frame;
    decltype(::ka_update_work_frame) ka_update_work_frame;
    decltype(::ka_get_total_tool_frame) ka_get_total_tool_frame;
    decltype(::ka_get_total_work_frame) ka_get_total_work_frame;
    decltype(::ka_get_given_tool_frame) ka_get_given_tool_frame;
    decltype(::ka_get_given_work_frame) ka_get_given_work_frame;
    decltype(::ka_get_current_tool_frame) ka_get_current_tool_frame;
    decltype(::ka_get_current_work_frame) ka_get_current_work_frame;
    decltype(::ka_change_tool_frame) ka_change_tool_frame;
    decltype(::ka_delete_tool_frame) ka_delete_tool_frame;
    decltype(::ka_change_work_frame) ka_change_work_frame;
    decltype(::ka_delete_work_frame) ka_delete_work_frame;

    // Arm and controller state queries
    decltype(::ka_get_joint_degree) ka_get_joint_degree;
    decltype(::ka_get_current_arm_state) ka_get_current_arm_state;
    decltype(::ka_get_arm_all_state) ka_get_arm_all_state;
    decltype(::ka_get_current_joint_temperature) ka_get_current_joint_temperature;
    decltype(::ka_get_current_joint_current) ka_get_current_joint_current;
    decltype(::ka_get_current_joint_voltage) ka_get_current_joint_voltage;
    decltype(::ka_get_joint_odom) ka_get_joint_odom;
    decltype(::ka_get_joint_err_flag) ka_get_joint_err_flag;
    decltype(::ka_get_controller_state) ka_get_controller_state;
    decltype(::ka_get_arm_power_state) ka_get_arm_power_state;
    decltype(::ka_get_system_runtime) ka_get_system_runtime;
    decltype(::ka_get_arm_software_info) ka_get_arm_software_info;
    decltype(::ka_set_arm_power) ka_set_arm_power;
    decltype(::ka_clear_system_runtime) ka_clear_system_runtime;
    decltype(::ka_clear_joint_odom) ka_clear_joint_odom;
    decltype(::ka_clear_system_err) ka_clear_system_err;

    // Controller network configuration
    decltype(::ka_set_NetIP) ka_set_NetIP;
    decltype(::ka_set_wifi_ap) ka_set_wifi_ap;
    decltype(::ka_set_wifi_sta) ka_set_wifi_sta;
    decltype(::ka_set_RS485) ka_set_RS485;
    decltype(::ka_get_wired_net) ka_get_wired_net;
    decltype(::ka_get_wifi_net) ka_get_wifi_net;
    decltype(::ka_set_net_default) ka_set_net_default;
    decltype(::ka_set_wifi_close) ka_set_wifi_close;

    // Controller and tool I/O
    decltype(::ka_set_IO_mode) ka_set_IO_mode;
    decltype(::ka_set_DO_state) ka_set_DO_state;
    decltype(::ka_get_IO_state) ka_get_IO_state;
    decltype(::ka_get_IO_input) ka_get_IO_input;
    decltype(::ka_get_IO_output) ka_get_IO_output;
    decltype(::ka_set_voltage) ka_set_voltage;
    decltype(::ka_get_voltage) ka_get_voltage;
    decltype(::ka_set_tool_DO_state) ka_set_tool_DO_state;
    decltype(::ka_set_tool_IO_mode) ka_set_tool_IO_mode;
    decltype(::ka_get_tool_IO_state) ka_get_tool_IO_state;
    decltype(::ka_set_tool_voltage) ka_set_tool_voltage;
    decltype(::ka_get_tool_voltage) ka_get_tool_voltage;
    decltype(::ka_get_controller_RS485_mode) ka_get_controller_RS485_mode;
    decltype(::ka_get_tool_RS485_mode) ka_get_tool_RS485_mode;

    // End effectors: gripper and dexterous hand
    decltype(::ka_set_gripper_route) ka_set_gripper_route;
    decltype(::ka_set_gripper_release) ka_set_gripper_release;
    decltype(::ka_set_gripper_pick) ka_set_gripper_pick;
    decltype(::ka_set_gripper_pick_on) ka_set_gripper_pick_on;
    decltype(::ka_set_gripper_position) ka_set_gripper_position;
    decltype(::ka_get_gripper_state) ka_get_gripper_state;
    decltype(::ka_set_hand_posture) ka_set_hand_posture;
    decltype(::ka_set_hand_seq) ka_set_hand_seq;
    decltype(::ka_set_hand_angle) ka_set_hand_angle;
    decltype(::ka_set_hand_follow_angle) ka_set_hand_follow_angle;
    decltype(::ka_set_hand_speed) ka_set_hand_speed;
    decltype(::ka_set_hand_force) ka_set_hand_force;

    // Force sensing, drag teaching and force-position control
    decltype(::ka_get_force_data) ka_get_force_data;
    decltype(::ka_clear_force_data) ka_clear_force_data;
    decltype(::ka_set_force_sensor) ka_set_force_sensor;
    decltype(::ka_manual_set_force) ka_manual_set_force;
    decltype(::ka_stop_set_force_sensor) ka_stop_set_force_sensor;
    decltype(::ka_get_Fz) ka_get_Fz;
    decltype(::ka_clear_Fz) ka_clear_Fz;
    decltype(::ka_auto_set_Fz) ka_auto_set_Fz;
    decltype(::ka_manual_set_Fz) ka_manual_set_Fz;
    decltype(::ka_start_drag_teach) ka_start_drag_teach;
    decltype(::ka_stop_drag_teach) ka_stop_drag_teach;
    decltype(::ka_start_multi_drag_teach) ka_start_multi_drag_teach;
    // Forwards to ka_start_multi_drag_teach_new.
    int ka_start_multi_drag_teach(ka_robot_handle *handle, ka_multi_drag_teach_t param);
    decltype(::ka_set_drag_teach_sensitivity) ka_set_drag_teach_sensitivity;
    decltype(::ka_get_drag_teach_sensitivity) ka_get_drag_teach_sensitivity;
    decltype(::ka_drag_trajectory_origin) ka_drag_trajectory_origin;
    decltype(::ka_run_drag_trajectory) ka_run_drag_trajectory;
    decltype(::ka_pause_drag_trajectory) ka_pause_drag_trajectory;
    decltype(::ka_continue_drag_trajectory) ka_continue_drag_trajectory;
    decltype(::ka_stop_drag_trajectory) ka_stop_drag_trajectory;
    decltype(::ka_set_force_position) ka_set_force_position;
    // Forwards to ka_set_force_position_new.
    int ka_set_force_position(ka_robot_handle *handle, ka_force_position_t param);
    decltype(::ka_stop_force_position) ka_stop_force_position;
    decltype(::ka_start_force_position_move) ka_start_force_position_move;
    decltype(::ka_stop_force_position_move) ka_stop_force_position_move;
    decltype(::ka_force_position_move_joint) ka_force_position_move_joint;
    decltype(::ka_force_position_move_pose) ka_force_position_move_pose;
    decltype(::ka_force_position_move) ka_force_position_move;

    // Modbus RTU and TCP peripherals
    decltype(::ka_set_modbus_mode) ka_set_modbus_mode;
    decltype(::ka_close_modbus_mode) ka_close_modbus_mode;
    decltype(::ka_set_modbustcp_mode) ka_set_modbustcp_mode;
    decltype(::ka_close_modbustcp_mode) ka_close_modbustcp_mode;
    decltype(::ka_read_coils) ka_read_coils;
    decltype(::ka_read_input_status) ka_read_input_status;
    decltype(::ka_read_holding_registers) ka_read_holding_registers;
    decltype(::ka_read_input_registers) ka_read_input_registers;
    decltype(::ka_write_single_coil) ka_write_single_coil;
    decltype(::ka_write_single_register) ka_write_single_register;
    decltype(::ka_write_registers) ka_write_registers;
    decltype(::ka_write_coils) ka_write_coils;
    decltype(::ka_read_multiple_coils) ka_read_multiple_coils;
    decltype(::ka_read_multiple_holding_registers) ka_read_multiple_holding_registers;
    decltype(::ka_read_multiple_input_registers) ka_read_multiple_input_registers;

    // Lift and expansion axes
    decltype(::ka_set_lift_speed) ka_set_lift_speed;
    decltype(::ka_set_lift_height) ka_set_lift_height;
    decltype(::ka_get_lift_state) ka_get_lift_state;
    decltype(::ka_set_expand_speed) ka_set_expand_speed;
    decltype(::ka_set_expand_pos) ka_set_expand_pos;
    decltype(::ka_get_expand_state) ka_get_expand_state;

    // Online programming: projects and stored trajectories
    decltype(::ka_send_project) ka_send_project;
    decltype(::ka_get_program_trajectory_list) ka_get_program_trajectory_list;
    decltype(::ka_get_program_run_state) ka_get_program_run_state;
    decltype(::ka_delete_program_trajectory) ka_delete_program_trajectory;
    decltype(::ka_update_program_trajectory) ka_update_program_trajectory;
    decltype(::ka_set_default_run_program) ka_set_default_run_program;
    decltype(::ka_get_default_run_program) ka_get_default_run_program;
    decltype(::ka_set_program_id_run) ka_set_program_id_run;
    decltype(::ka_save_trajectory) ka_save_trajectory;

    // Global waypoints
    decltype(::ka_add_global_waypoint) ka_add_global_waypoint;
    decltype(::ka_update_global_waypoint) ka_update_global_waypoint;
    decltype(::ka_delete_global_waypoint) ka_delete_global_waypoint;
    decltype(::ka_get_given_global_waypoint) ka_get_given_global_waypoint;
    decltype(::ka_get_global_waypoints_list) ka_get_global_waypoints_list;

    // Safety configuration
    decltype(::ka_add_electronic_fence_config) ka_add_electronic_fence_config;
    decltype(::ka_update_electronic_fence_config) ka_update_electronic_fence_config;
    decltype(::ka_delete_electronic_fence_config) ka_delete_electronic_fence_config;
    decltype(::ka_get_electronic_fence_list_names) ka_get_electronic_fence_list_names;
    decltype(::ka_get_given_electronic_fence_config) ka_get_given_electronic_fence_config;
    decltype(::ka_get_electronic_fence_list_infos) ka_get_electronic_fence_list_infos;
    decltype(::ka_set_electronic_fence_enable) ka_set_electronic_fence_enable;
    decltype(::ka_get_electronic_fence_enable) ka_get_electronic_fence_enable;
    decltype(::ka_set_electronic_fence_config) ka_set_electronic_fence_config;
    decltype(::ka_get_electronic_fence_config) ka_get_electronic_fence_config;
    decltype(::ka_set_virtual_wall_enable) ka_set_virtual_wall_enable;
    decltype(::ka_get_virtual_wall_enable) ka_get_virtual_wall_enable;
    decltype(::ka_set_virtual_wall_config) ka_set_virtual_wall_config;
    decltype(::ka_get_virtual_wall_config) ka_get_virtual_wall_config;
    decltype(::ka_set_self_collision_enable) ka_set_self_collision_enable;
    decltype(::ka_get_self_collision_enable) ka_get_self_collision_enable;
    decltype(::ka_set_arm_run_mode) ka_set_arm_run_mode;
    decltype(::ka_get_arm_run_mode) ka_get_arm_run_mode;
    decltype(::ka_set_install_pose) ka_set_install_pose;
    decltype(::ka_get_install_pose) ka_get_install_pose;
    decltype(::ka_get_joint_software_version) ka_get_joint_software_version;
    decltype(::ka_get_tool_software_version) ka_get_tool_software_version;

    // Kinematics (no connection needed)
    decltype(::ka_algo_version) ka_algo_version;
    decltype(::ka_algo_init_sys_data) ka_algo_init_sys_data;
    decltype(::ka_algo_set_angle) ka_algo_set_angle;
    decltype(::ka_algo_get_angle) ka_algo_get_angle;
    decltype(::ka_algo_set_redundant_parameter_traversal_mode)
        ka_algo_set_redundant_parameter_traversal_mode;
    void ka_algo_set_workframe(ka_frame_t frame);
    decltype(::ka_algo_get_curr_workframe) ka_algo_get_curr_workframe;
    void ka_algo_set_toolframe(ka_frame_t frame);
    decltype(::ka_algo_get_curr_toolframe) ka_algo_get_curr_toolframe;
    decltype(::ka_algo_set_joint_max_limit) ka_algo_set_joint_max_limit;
    decltype(::ka_algo_get_joint_max_limit) ka_algo_get_joint_max_limit;
    decltype(::ka_algo_set_joint_min_limit) ka_algo_set_joint_min_limit;
    decltype(::ka_algo_get_joint_min_limit) ka_algo_get_joint_min_limit;
    decltype(::ka_algo_set_joint_max_speed) ka_algo_set_joint_max_speed;
    decltype(::ka_algo_get_joint_max_speed) ka_algo_get_joint_max_speed;
    decltype(::ka_algo_set_joint_max_acc) ka_algo_set_joint_max_acc;
    decltype(::ka_algo_get_joint_max_acc) ka_algo_get_joint_max_acc;
    decltype(::ka_algo_inverse_kinematics) ka_algo_inverse_kinematics;
    decltype(::ka_algo_forward_kinematics) ka_algo_forward_kinematics;
    decltype(::ka_algo_euler2quaternion) ka_algo_euler2quaternion;
    decltype(::ka_algo_quaternion2euler) ka_algo_quaternion2euler;
    decltype(::ka_algo_euler2matrix) ka_algo_euler2matrix;
    decltype(::ka_algo_pos2matrix) ka_algo_pos2matrix;
    decltype(::ka_algo_matrix2pos) ka_algo_matrix2pos;
    decltype(::ka_algo_base2workframe) ka_algo_base2workframe;
    decltype(::ka_algo_workframe2base) ka_algo_workframe2base;
    decltype(::ka_algo_rotate_move) ka_algo_rotate_move;
    decltype(::ka_algo_cartesian_tool) ka_algo_cartesian_tool;
    decltype(::ka_algo_pose_move) ka_algo_pose_move;
    decltype(::ka_algo_end2tool) ka_algo_end2tool;
    decltype(::ka_algo_tool2end) ka_algo_tool2end;
};

#endif /* KA_SERVICE_H */
