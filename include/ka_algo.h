/**
 * @file
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

/** The kinematics version as text, KA_ALGO_VERSION_STRING ("1.4.7"). */
KA_API const char *ka_algo_version(void);

/**
 * Loads the defaults of a model (ka_robot_arm_model_e 0..8, others taken as
 * 0) and sensor variant (ka_force_type_e 0..2, others taken as 0) for
 * kinematics without a connected arm. Resets frames and limits set earlier.
 * 0, or -1 when the model has no parameters.
 */
KA_API int ka_algo_init_sys_data(ka_robot_arm_model_e model, ka_force_type_e force_type);

/** Sets the install angles of the arm base about X, Y, Z, degrees. */
KA_API void ka_algo_set_angle(float x, float y, float z);
/** Reads the install angles about X, Y, Z, degrees. */
KA_API void ka_algo_get_angle(float *x, float *y, float *z);

/**
 * Seven-axis inverse kinematics: false searches near the reference (range
 * 0.013, strategy 1); true traverses the whole redundancy range (3.14,
 * strategy 0), slower but finds solutions far from the reference.
 */
KA_API void ka_algo_set_redundant_parameter_traversal_mode(bool mode);

/** Sets the work frame from frame->pose (metres, radians); NULL is ignored. */
KA_API void ka_algo_set_workframe(const ka_frame_t *frame);
/** Reads the current work frame's pose into frame->pose. */
KA_API void ka_algo_get_curr_workframe(ka_frame_t *frame);
/** Sets the tool frame from frame->pose (metres, radians); NULL is ignored. */
KA_API void ka_algo_set_toolframe(const ka_frame_t *frame);
/** Reads the current tool frame into *frame. */
KA_API void ka_algo_get_curr_toolframe(ka_frame_t *frame);

/** Sets the upper joint position limits, float[7] degrees (first DOF used). */
KA_API void ka_algo_set_joint_max_limit(const float *joint);
/** Reads the upper joint position limits, float[7] degrees. */
KA_API void ka_algo_get_joint_max_limit(float *joint);
/** Sets the lower joint position limits, float[7] degrees (first DOF used). */
KA_API void ka_algo_set_joint_min_limit(const float *joint);
/** Reads the lower joint position limits, float[7] degrees. */
KA_API void ka_algo_get_joint_min_limit(float *joint);
/** Sets the joint speed limits, float[7] degrees/s (first DOF used). */
KA_API void ka_algo_set_joint_max_speed(const float *joint);
/** Reads the joint speed limits, float[7] degrees/s. */
KA_API void ka_algo_get_joint_max_speed(float *joint);
/** Sets the joint acceleration limits, float[7] degrees/s^2 (first DOF used). */
KA_API void ka_algo_set_joint_max_acc(const float *joint);
/** Reads the joint acceleration limits, float[7] degrees/s^2. */
KA_API void ka_algo_get_joint_max_acc(float *joint);

/** 0 when each of the first DOF joints (degrees) lies within [min, max], else -1. */
KA_API int ka_algo_judgment_overpos(const float *joint);

/**
 * Loads the kinematics from a connected arm: model, force type, install
 * angles, frames and joint limits. An unknown handle leaves it unchanged.
 */
KA_API void ka_algo_arm_state_set(ka_robot_handle *handle);

/**
 * Joint angles reaching params.q_pose (tool pose in the current work frame)
 * nearest to params.q_in (degrees), into q_out (float[7], degrees). 0
 * solved, 1 no solution within the limits, -1 reference outside the limits,
 * -2 quaternion (q_flag 0) whose squared norm is not 1.
 */
KA_API int ka_algo_inverse_kinematics(ka_robot_handle *handle,
                                      ka_inverse_kinematics_params_t params, float *q_out);

/**
 * Tool pose in the current work frame for joint (float[7], degrees); a NULL
 * joint gives a zero pose.
 */
KA_API ka_pose_t ka_algo_forward_kinematics(ka_robot_handle *handle, const float *joint);

/** Unit quaternion of Euler angles (radians). */
KA_API ka_quat_t ka_algo_euler2quaternion(ka_euler_t euler);
/** Euler angles (radians) of a unit quaternion. */
KA_API ka_euler_t ka_algo_quaternion2euler(ka_quat_t quat);
/** 3x3 rotation matrix of Euler angles (radians). */
KA_API ka_matrix_t ka_algo_euler2matrix(ka_euler_t euler);
/** 4x4 transform of a pose's position and Euler angles (the quaternion is ignored). */
KA_API ka_matrix_t ka_algo_pos2matrix(ka_pose_t pose);
/** Pose (position, quaternion and Euler angles) of a 4x4 transform. */
KA_API ka_pose_t ka_algo_matrix2pos(ka_matrix_t matrix);

/**
 * pose expressed in the work frame whose 4x4 matrix maps base coordinates
 * into the work frame.
 */
KA_API ka_pose_t ka_algo_base2workframe(ka_matrix_t matrix, ka_pose_t pose);
/** The inverse of ka_algo_base2workframe; a singular matrix gives non-finite values. */
KA_API ka_pose_t ka_algo_workframe2base(ka_matrix_t matrix, ka_pose_t pose);

/**
 * Tool pose at joint (float[7], degrees) after turning rotate_angle degrees
 * about axis rotate_axis (0 X, 1 Y, 2 Z) of choose_axis's orientation; any
 * other rotate_axis gives the tool pose unchanged.
 */
KA_API ka_pose_t ka_algo_rotate_move(ka_robot_handle *handle, const float *joint, int rotate_axis,
                                     float rotate_angle, ka_pose_t choose_axis);
/**
 * Tool pose, in the work frame, at joint (float[7], degrees) after moving
 * move_x, move_y, move_z metres along the tool's axes.
 */
KA_API ka_pose_t ka_algo_cartesian_tool(ka_robot_handle *handle, const float *joint, float move_x,
                                        float move_y, float move_z);
/**
 * pose moved by delta: dx, dy, dz (metres), drx, dry, drz (radians); about
 * and along the work frame's axes (frame_mode 0) or the tool's (1); any
 * other frame_mode gives a zero position.
 */
KA_API ka_pose_t ka_algo_pose_move(ka_robot_handle *handle, ka_pose_t pose, const float *delta,
                                   int frame_mode);
/** Tool pose in the current work frame of a flange pose (base frame). */
KA_API ka_pose_t ka_algo_end2tool(ka_robot_handle *handle, ka_pose_t end_pose);
/** Flange pose of a tool pose in the current work frame; inverse of ka_algo_end2tool. */
KA_API ka_pose_t ka_algo_tool2end(ka_robot_handle *handle, ka_pose_t tool_pose);

#ifdef __cplusplus
}
#endif

#endif /* KA_ALGO_H */
