// KA_Service: one forwarding member per flat function. Each definition below
// is generated from the flat function's own type, so a member cannot drift
// from its target: parameter and result types come from decltype(::target),
// the arguments are passed on in order, and a definition whose arity or
// types differ from the header's declaration does not compile.
#include "ka_service.h"

#include <cstddef>
#include <tuple>
#include <type_traits>

namespace {

// An input record the flat function takes as `const T *` is taken by value.
template <typename T> struct member_type { using type = T; };
template <typename T>
requires std::is_class_v<T>
struct member_type<const T *> {
    using type = T;
};

template <typename F> struct signature;
template <typename R, typename... A> struct signature<R(A...)> {
    using result = R;
    template <std::size_t I> using flat = std::tuple_element_t<I, std::tuple<A...>>;
    template <std::size_t I> using member = typename member_type<flat<I>>::type;
};

// The member's parameter as the flat function wants it: unchanged, or the
// address of the by-value record (the parameter is the caller's copy).
template <typename Flat, typename Member> Flat pass_on(Member &value) {
    if constexpr (std::is_same_v<Flat, Member>)
        return value;
    else
        return &value;
}

} // namespace

#define KA_PARAM(target, i) signature<decltype(::target)>::member<i> a##i
#define KA_ARG(target, i) pass_on<signature<decltype(::target)>::flat<i>>(a##i)

#define KA_PARAMS_0(t)
#define KA_PARAMS_1(t) KA_PARAM(t, 0)
#define KA_PARAMS_2(t) KA_PARAMS_1(t), KA_PARAM(t, 1)
#define KA_PARAMS_3(t) KA_PARAMS_2(t), KA_PARAM(t, 2)
#define KA_PARAMS_4(t) KA_PARAMS_3(t), KA_PARAM(t, 3)
#define KA_PARAMS_5(t) KA_PARAMS_4(t), KA_PARAM(t, 4)
#define KA_PARAMS_6(t) KA_PARAMS_5(t), KA_PARAM(t, 5)
#define KA_PARAMS_7(t) KA_PARAMS_6(t), KA_PARAM(t, 6)
#define KA_PARAMS_8(t) KA_PARAMS_7(t), KA_PARAM(t, 7)

#define KA_ARGS_0(t)
#define KA_ARGS_1(t) KA_ARG(t, 0)
#define KA_ARGS_2(t) KA_ARGS_1(t), KA_ARG(t, 1)
#define KA_ARGS_3(t) KA_ARGS_2(t), KA_ARG(t, 2)
#define KA_ARGS_4(t) KA_ARGS_3(t), KA_ARG(t, 3)
#define KA_ARGS_5(t) KA_ARGS_4(t), KA_ARG(t, 4)
#define KA_ARGS_6(t) KA_ARGS_5(t), KA_ARG(t, 5)
#define KA_ARGS_7(t) KA_ARGS_6(t), KA_ARG(t, 6)
#define KA_ARGS_8(t) KA_ARGS_7(t), KA_ARG(t, 7)

// Defines member `member` (arity parameters) as a call of ::target. The
// trailing static_assert lets each use end with a semicolon.
#define KA_FORWARD_TO(member, target, arity)                                                       \
    signature<decltype(::target)>::result KA_Service::member(KA_PARAMS_##arity(target)) {          \
        return ::target(KA_ARGS_##arity(target));                                                  \
    }                                                                                              \
    static_assert(true)
#define KA_FORWARD(name, arity) KA_FORWARD_TO(name, name, arity)

// Library lifecycle and arm registry
KA_FORWARD(ka_init, 1);
KA_FORWARD(ka_api_version, 0);
KA_FORWARD(ka_api_version_number, 0);
KA_FORWARD(ka_create_robot_arm, 2);
KA_FORWARD(ka_delete_robot_arm, 1);
KA_FORWARD(ka_destory, 0);
KA_FORWARD(ka_get_robot_info, 2);
KA_FORWARD(ka_get_arm_event_call_back, 1);

// Logging
KA_FORWARD(ka_set_log_call_back, 2);
KA_FORWARD(ka_set_log_save, 1);

// Realtime state push
KA_FORWARD(ka_realtime_arm_state_call_back, 1);
KA_FORWARD(ka_set_realtime_push, 2);
KA_FORWARD(ka_get_realtime_push, 2);

// Point-to-point and path motion
KA_FORWARD(ka_movej, 6);
KA_FORWARD(ka_movel, 6);
KA_FORWARD(ka_moves, 6);
KA_FORWARD(ka_movec, 8);
KA_FORWARD(ka_movej_p, 6);
KA_FORWARD(ka_get_arm_current_trajectory, 3);

// Passthrough and follow motion
KA_FORWARD(ka_movej_canfd, 4);
KA_FORWARD(ka_movep_canfd, 3);
KA_FORWARD(ka_movej_follow, 2);
KA_FORWARD(ka_movep_follow, 2);

// Jogging, teaching and motion control
KA_FORWARD(ka_set_joint_step, 5);
KA_FORWARD(ka_set_pos_step, 5);
KA_FORWARD(ka_set_ort_step, 5);
KA_FORWARD(ka_set_joint_teach, 4);
KA_FORWARD(ka_set_pos_teach, 4);
KA_FORWARD(ka_set_ort_teach, 4);
KA_FORWARD(ka_set_stop_teach, 1);
KA_FORWARD(ka_set_teach_frame, 2);
KA_FORWARD(ka_get_teach_frame, 2);
KA_FORWARD(ka_set_arm_slow_stop, 1);
KA_FORWARD(ka_set_arm_stop, 1);
KA_FORWARD(ka_set_arm_pause, 1);
KA_FORWARD(ka_set_arm_continue, 1);
KA_FORWARD(ka_set_delete_current_trajectory, 1);
KA_FORWARD(ka_set_arm_delete_trajectory, 1);

// Joint and arm limits
KA_FORWARD(ka_set_joint_max_speed, 3);
KA_FORWARD(ka_set_joint_max_acc, 3);
KA_FORWARD(ka_set_joint_min_pos, 3);
KA_FORWARD(ka_set_joint_max_pos, 3);
KA_FORWARD(ka_get_joint_max_speed, 2);
KA_FORWARD(ka_get_joint_max_acc, 2);
KA_FORWARD(ka_get_joint_min_pos, 2);
KA_FORWARD(ka_get_joint_max_pos, 2);
KA_FORWARD(ka_set_joint_drive_max_speed, 3);
KA_FORWARD(ka_set_joint_drive_max_acc, 3);
KA_FORWARD(ka_set_joint_drive_min_pos, 3);
KA_FORWARD(ka_set_joint_drive_max_pos, 3);
KA_FORWARD(ka_get_joint_drive_max_speed, 2);
KA_FORWARD(ka_get_joint_drive_max_acc, 2);
KA_FORWARD(ka_get_joint_drive_min_pos, 2);
KA_FORWARD(ka_get_joint_drive_max_pos, 2);
KA_FORWARD(ka_auto_set_joint_limit, 2);
KA_FORWARD(ka_set_joint_en_state, 3);
KA_FORWARD(ka_get_joint_en_state, 2);
KA_FORWARD(ka_set_joint_zero_pos, 2);
KA_FORWARD(ka_set_joint_clear_err, 2);
KA_FORWARD(ka_set_arm_max_line_speed, 2);
KA_FORWARD(ka_set_arm_max_line_acc, 2);
KA_FORWARD(ka_set_arm_max_angular_speed, 2);
KA_FORWARD(ka_set_arm_max_angular_acc, 2);
KA_FORWARD(ka_get_arm_max_line_speed, 2);
KA_FORWARD(ka_get_arm_max_line_acc, 2);
KA_FORWARD(ka_get_arm_max_angular_speed, 2);
KA_FORWARD(ka_get_arm_max_angular_acc, 2);
KA_FORWARD(ka_set_arm_tcp_init, 1);
KA_FORWARD(ka_set_collision_state, 2);
KA_FORWARD(ka_get_collision_stage, 2);
KA_FORWARD(ka_set_init_pose, 2);
KA_FORWARD(ka_get_init_pose, 2);

// Tool and work frames
KA_FORWARD(ka_set_auto_tool_frame, 2);
KA_FORWARD(ka_generate_auto_tool_frame, 6);
KA_FORWARD(ka_set_manual_tool_frame, 2);
KA_FORWARD(ka_update_tool_frame, 2);
KA_FORWARD(ka_set_tool_envelope, 2);
KA_FORWARD(ka_get_tool_envelope, 3);
KA_FORWARD(ka_set_auto_work_frame, 3);
KA_FORWARD(ka_set_manual_work_frame, 3);
KA_FORWARD(ka_update_work_frame, 3);
KA_FORWARD(ka_get_total_tool_frame, 3);
KA_FORWARD(ka_get_total_work_frame, 3);
KA_FORWARD(ka_get_given_tool_frame, 3);
KA_FORWARD(ka_get_given_work_frame, 3);
KA_FORWARD(ka_get_current_tool_frame, 2);
KA_FORWARD(ka_get_current_work_frame, 2);
KA_FORWARD(ka_change_tool_frame, 2);
KA_FORWARD(ka_delete_tool_frame, 2);
KA_FORWARD(ka_change_work_frame, 2);
KA_FORWARD(ka_delete_work_frame, 2);

// Arm and controller state queries
KA_FORWARD(ka_get_joint_degree, 2);
KA_FORWARD(ka_get_current_arm_state, 2);
KA_FORWARD(ka_get_arm_all_state, 2);
KA_FORWARD(ka_get_current_joint_temperature, 2);
KA_FORWARD(ka_get_current_joint_current, 2);
KA_FORWARD(ka_get_current_joint_voltage, 2);
KA_FORWARD(ka_get_joint_odom, 2);
KA_FORWARD(ka_get_joint_err_flag, 3);
KA_FORWARD(ka_get_controller_state, 5);
KA_FORWARD(ka_get_arm_power_state, 2);
KA_FORWARD(ka_get_system_runtime, 5);
KA_FORWARD(ka_get_arm_software_info, 2);
KA_FORWARD(ka_set_arm_power, 2);
KA_FORWARD(ka_clear_system_runtime, 1);
KA_FORWARD(ka_clear_joint_odom, 1);
KA_FORWARD(ka_clear_system_err, 1);

// Controller network configuration
KA_FORWARD(ka_set_NetIP, 2);
KA_FORWARD(ka_set_wifi_ap, 3);
KA_FORWARD(ka_set_wifi_sta, 3);
KA_FORWARD(ka_set_RS485, 2);
KA_FORWARD(ka_get_wired_net, 4);
KA_FORWARD(ka_get_wifi_net, 2);
KA_FORWARD(ka_set_net_default, 1);
KA_FORWARD(ka_set_wifi_close, 1);

// Controller and tool I/O
KA_FORWARD(ka_set_IO_mode, 3);
KA_FORWARD(ka_set_DO_state, 3);
KA_FORWARD(ka_get_IO_state, 4);
KA_FORWARD(ka_get_IO_input, 2);
KA_FORWARD(ka_get_IO_output, 2);
KA_FORWARD(ka_set_voltage, 2);
KA_FORWARD(ka_get_voltage, 2);
KA_FORWARD(ka_set_tool_DO_state, 3);
KA_FORWARD(ka_set_tool_IO_mode, 3);
KA_FORWARD(ka_get_tool_IO_state, 3);
KA_FORWARD(ka_set_tool_voltage, 2);
KA_FORWARD(ka_get_tool_voltage, 2);
KA_FORWARD(ka_get_controller_RS485_mode, 4);
KA_FORWARD(ka_get_tool_RS485_mode, 4);

// End effectors: gripper and dexterous hand
KA_FORWARD(ka_set_gripper_route, 3);
KA_FORWARD(ka_set_gripper_release, 4);
KA_FORWARD(ka_set_gripper_pick, 5);
KA_FORWARD(ka_set_gripper_pick_on, 5);
KA_FORWARD(ka_set_gripper_position, 4);
KA_FORWARD(ka_get_gripper_state, 2);
KA_FORWARD(ka_set_hand_posture, 4);
KA_FORWARD(ka_set_hand_seq, 4);
KA_FORWARD(ka_set_hand_angle, 2);
KA_FORWARD(ka_set_hand_follow_angle, 2);
KA_FORWARD(ka_set_hand_speed, 2);
KA_FORWARD(ka_set_hand_force, 2);

// Force sensing, drag teaching and force-position control
KA_FORWARD(ka_get_force_data, 2);
KA_FORWARD(ka_clear_force_data, 1);
KA_FORWARD(ka_set_force_sensor, 2);
KA_FORWARD(ka_manual_set_force, 4);
KA_FORWARD(ka_stop_set_force_sensor, 1);
KA_FORWARD(ka_get_Fz, 2);
KA_FORWARD(ka_clear_Fz, 1);
KA_FORWARD(ka_auto_set_Fz, 2);
KA_FORWARD(ka_manual_set_Fz, 4);
KA_FORWARD(ka_start_drag_teach, 2);
KA_FORWARD(ka_stop_drag_teach, 1);
KA_FORWARD(ka_start_multi_drag_teach, 3);
KA_FORWARD_TO(ka_start_multi_drag_teach, ka_start_multi_drag_teach_new, 2);
KA_FORWARD(ka_set_drag_teach_sensitivity, 2);
KA_FORWARD(ka_get_drag_teach_sensitivity, 2);
KA_FORWARD(ka_drag_trajectory_origin, 2);
KA_FORWARD(ka_run_drag_trajectory, 2);
KA_FORWARD(ka_pause_drag_trajectory, 1);
KA_FORWARD(ka_continue_drag_trajectory, 1);
KA_FORWARD(ka_stop_drag_trajectory, 1);
KA_FORWARD(ka_set_force_position, 5);
KA_FORWARD_TO(ka_set_force_position, ka_set_force_position_new, 2);
KA_FORWARD(ka_stop_force_position, 1);
KA_FORWARD(ka_start_force_position_move, 1);
KA_FORWARD(ka_stop_force_position_move, 1);
KA_FORWARD(ka_force_position_move_joint, 7);
KA_FORWARD(ka_force_position_move_pose, 7);
KA_FORWARD(ka_force_position_move, 2);

// Modbus RTU and TCP peripherals
KA_FORWARD(ka_set_modbus_mode, 4);
KA_FORWARD(ka_close_modbus_mode, 2);
KA_FORWARD(ka_set_modbustcp_mode, 4);
KA_FORWARD(ka_close_modbustcp_mode, 1);
KA_FORWARD(ka_read_coils, 3);
KA_FORWARD(ka_read_input_status, 3);
KA_FORWARD(ka_read_holding_registers, 3);
KA_FORWARD(ka_read_input_registers, 3);
KA_FORWARD(ka_write_single_coil, 3);
KA_FORWARD(ka_write_single_register, 3);
KA_FORWARD(ka_write_registers, 3);
KA_FORWARD(ka_write_coils, 3);
KA_FORWARD(ka_read_multiple_coils, 3);
KA_FORWARD(ka_read_multiple_holding_registers, 3);
KA_FORWARD(ka_read_multiple_input_registers, 3);

// Lift and expansion axes
KA_FORWARD(ka_set_lift_speed, 2);
KA_FORWARD(ka_set_lift_height, 4);
KA_FORWARD(ka_get_lift_state, 2);
KA_FORWARD(ka_set_expand_speed, 2);
KA_FORWARD(ka_set_expand_pos, 4);
KA_FORWARD(ka_get_expand_state, 2);

// Online programming: projects and stored trajectories
KA_FORWARD(ka_send_project, 3);
KA_FORWARD(ka_get_program_trajectory_list, 5);
KA_FORWARD(ka_get_program_run_state, 2);
KA_FORWARD(ka_delete_program_trajectory, 2);
KA_FORWARD(ka_update_program_trajectory, 4);
KA_FORWARD(ka_set_default_run_program, 2);
KA_FORWARD(ka_get_default_run_program, 2);
KA_FORWARD(ka_set_program_id_run, 4);
KA_FORWARD(ka_save_trajectory, 3);

// Global waypoints
KA_FORWARD(ka_add_global_waypoint, 2);
KA_FORWARD(ka_update_global_waypoint, 2);
KA_FORWARD(ka_delete_global_waypoint, 2);
KA_FORWARD(ka_get_given_global_waypoint, 3);
KA_FORWARD(ka_get_global_waypoints_list, 5);

// Safety configuration
KA_FORWARD(ka_add_electronic_fence_config, 2);
KA_FORWARD(ka_update_electronic_fence_config, 2);
KA_FORWARD(ka_delete_electronic_fence_config, 2);
KA_FORWARD(ka_get_electronic_fence_list_names, 3);
KA_FORWARD(ka_get_given_electronic_fence_config, 3);
KA_FORWARD(ka_get_electronic_fence_list_infos, 3);
KA_FORWARD(ka_set_electronic_fence_enable, 2);
KA_FORWARD(ka_get_electronic_fence_enable, 2);
KA_FORWARD(ka_set_electronic_fence_config, 2);
KA_FORWARD(ka_get_electronic_fence_config, 2);
KA_FORWARD(ka_set_virtual_wall_enable, 2);
KA_FORWARD(ka_get_virtual_wall_enable, 2);
KA_FORWARD(ka_set_virtual_wall_config, 2);
KA_FORWARD(ka_get_virtual_wall_config, 2);
KA_FORWARD(ka_set_self_collision_enable, 2);
KA_FORWARD(ka_get_self_collision_enable, 2);
KA_FORWARD(ka_set_arm_run_mode, 2);
KA_FORWARD(ka_get_arm_run_mode, 2);
KA_FORWARD(ka_set_install_pose, 4);
KA_FORWARD(ka_get_install_pose, 4);
KA_FORWARD(ka_get_joint_software_version, 2);
KA_FORWARD(ka_get_tool_software_version, 2);

// Kinematics (no connection needed)
KA_FORWARD(ka_algo_version, 0);
KA_FORWARD(ka_algo_init_sys_data, 2);
KA_FORWARD(ka_algo_set_angle, 3);
KA_FORWARD(ka_algo_get_angle, 3);
KA_FORWARD(ka_algo_set_redundant_parameter_traversal_mode, 1);
KA_FORWARD(ka_algo_set_workframe, 1);
KA_FORWARD(ka_algo_get_curr_workframe, 1);
KA_FORWARD(ka_algo_set_toolframe, 1);
KA_FORWARD(ka_algo_get_curr_toolframe, 1);
KA_FORWARD(ka_algo_set_joint_max_limit, 1);
KA_FORWARD(ka_algo_get_joint_max_limit, 1);
KA_FORWARD(ka_algo_set_joint_min_limit, 1);
KA_FORWARD(ka_algo_get_joint_min_limit, 1);
KA_FORWARD(ka_algo_set_joint_max_speed, 1);
KA_FORWARD(ka_algo_get_joint_max_speed, 1);
KA_FORWARD(ka_algo_set_joint_max_acc, 1);
KA_FORWARD(ka_algo_get_joint_max_acc, 1);
KA_FORWARD(ka_algo_inverse_kinematics, 3);
KA_FORWARD(ka_algo_forward_kinematics, 2);
KA_FORWARD(ka_algo_euler2quaternion, 1);
KA_FORWARD(ka_algo_quaternion2euler, 1);
KA_FORWARD(ka_algo_euler2matrix, 1);
KA_FORWARD(ka_algo_pos2matrix, 1);
KA_FORWARD(ka_algo_matrix2pos, 1);
KA_FORWARD(ka_algo_base2workframe, 2);
KA_FORWARD(ka_algo_workframe2base, 2);
KA_FORWARD(ka_algo_rotate_move, 5);
KA_FORWARD(ka_algo_cartesian_tool, 5);
KA_FORWARD(ka_algo_pose_move, 4);
KA_FORWARD(ka_algo_end2tool, 2);
KA_FORWARD(ka_algo_tool2end, 2);
