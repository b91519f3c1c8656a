/*
 * ka_algo.h - in-process kinematics of the supported arm models.
 * Included by ka_api.h; do not include on its own.
 *
 * Joint angles in degrees at this layer; positions in metres; Euler angles
 * in radians, R = Rz(rz) * Ry(ry) * Rx(rx); quaternions (w, x, y, z).
 * The functions never allocate. Functions that take an arm handle first load
 * the kinematics context from that arm.
 */
#ifndef KA_ALGO_H
#define KA_ALGO_H

#ifndef KA_API_H
#error "include ka_api.h instead"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* "1.4.7" */
KA_API const char *ka_algo_version(void);

/* Loads the defaults of a model (0..8, others taken as 0) and sensor variant
 * (0..2, others taken as 0). 0, or -1 when the model has no parameters. */
KA_API int ka_algo_init_sys_data(ka_robot_arm_model_e model, ka_force_type_e force_type);

/* Install angles about X, Y, Z, degrees. */
KA_API void ka_algo_set_angle(float x, float y, float z);
KA_API void ka_algo_get_angle(float *x, float *y, float *z);

/* false: search near the reference (range 0.013, strategy 1);
 * true: traverse the whole redundancy range (3.14, strategy 0). */
KA_API void ka_algo_set_redundant_parameter_traversal_mode(bool mode);

KA_API void ka_algo_set_workframe(const ka_frame_t *frame);
KA_API void ka_algo_get_curr_workframe(ka_frame_t *frame);
KA_API void ka_algo_set_toolframe(const ka_frame_t *frame);
KA_API void ka_algo_get_curr_toolframe(ka_frame_t *frame);

/* float[7]; the first DOF entries are used. Degrees, degrees/s, degrees/s^2. */
KA_API void ka_algo_set_joint_max_limit(const float *joint);
KA_API void ka_algo_get_joint_max_limit(float *joint);
KA_API void ka_algo_set_joint_min_limit(const float *joint);
KA_API void ka_algo_get_joint_min_limit(float *joint);
KA_API void ka_algo_set_joint_max_speed(const float *joint);
KA_API void ka_algo_get_joint_max_speed(float *joint);
KA_API void ka_algo_set_joint_max_acc(const float *joint);
KA_API void ka_algo_get_joint_max_acc(float *joint);

/* 0 when each of the first DOF joints lies within [min, max], else -1. */
KA_API int ka_algo_judgment_overpos(const float *joint);

/* Loads the context from a connected arm. */
KA_API void ka_algo_arm_state_set(ka_robot_handle *handle);

/* 0 solved (q_out in degrees), 1 no solution, -1 reference outside the
 * limits, -2 quaternion (q_flag 0) whose float squared norm is not 1. */
KA_API int ka_algo_inverse_kinematics(ka_robot_handle *handle,
                                      ka_inverse_kinematics_params_t params, float *q_out);

/* Tool pose in the current work frame; a NULL joint gives a zero pose. */
KA_API ka_pose_t ka_algo_forward_kinematics(ka_robot_handle *handle, const float *joint);

KA_API ka_quat_t ka_algo_euler2quaternion(ka_euler_t euler);
KA_API ka_euler_t ka_algo_quaternion2euler(ka_quat_t quat);
KA_API ka_matrix_t ka_algo_euler2matrix(ka_euler_t euler); /* 3x3 */
KA_API ka_matrix_t ka_algo_pos2matrix(ka_pose_t pose);     /* 4x4 */
KA_API ka_pose_t ka_algo_matrix2pos(ka_matrix_t matrix);

/* matrix maps base coordinates into the work frame. */
KA_API ka_pose_t ka_algo_base2workframe(ka_matrix_t matrix, ka_pose_t pose);
KA_API ka_pose_t ka_algo_workframe2base(ka_matrix_t matrix, ka_pose_t pose);

KA_API ka_pose_t ka_algo_rotate_move(ka_robot_handle *handle, const float *joint, int rotate_axis,
                                     float rotate_angle, ka_pose_t choose_axis);
KA_API ka_pose_t ka_algo_cartesian_tool(ka_robot_handle *handle, const float *joint, float move_x,
                                        float move_y, float move_z);
/* delta: dx, dy, dz (metres), drx, dry, drz (radians); frame_mode 0 work
 * frame, 1 tool frame. */
KA_API ka_pose_t ka_algo_pose_move(ka_robot_handle *handle, ka_pose_t pose, const float *delta,
                                   int frame_mode);
KA_API ka_pose_t ka_algo_end2tool(ka_robot_handle *handle, ka_pose_t end_pose);
KA_API ka_pose_t ka_algo_tool2end(ka_robot_handle *handle, ka_pose_t tool_pose);

#ifdef __cplusplus
}
#endif

#endif /* KA_ALGO_H */
