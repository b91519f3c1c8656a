/**
 * @file
 * Exported functions that are not part of the application interface: the
 * halves that the motion and step commands dispatch to, the generic
 * exchange, the logging entry points, the local file utilities of project
 * download, and registry helpers. They stay exported so that existing
 * programs keep linking; new code calls the functions of ka_api.h.
 *
 * Included at the end of ka_api.h; do not include on its own.
 */
#ifndef KA_COMPAT_H
#define KA_COMPAT_H

#ifndef KA_API_H
#error "include ka_api.h instead"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------ lifecycle helpers */

/**
 * Puts a caller-owned handle record into the state of a handle that no
 * registry slot refers to: id 0, arm_dof 0, arm_model 0, force_type 0. Every
 * command rejects such a handle with KA_ERR_LOCAL. Handles returned by
 * ka_create_robot_arm are initialised by the library and need no call.
 * Returns KA_OK, or KA_ERR_LOCAL for a NULL handle.
 */
KA_API int ka_handle_init(ka_robot_handle *handle);

/**
 * Writes the arm's degrees of freedom into *dof and returns KA_OK when it is
 * 6 or 7; KA_ERR_LOCAL for an unregistered handle or any other DOF (0 before
 * the first information query succeeded).
 */
KA_API int ka_get_arm_dof(ka_robot_handle *handle, int *dof);

/**
 * Re-reads, in this order, the software information (model, DOF and force
 * type detection), the push configuration, the current work and tool frames,
 * the install pose and the joint minimum and maximum positions, maximum
 * accelerations and maximum speeds into the handle's cache, stopping at the
 * first query that fails and returning its code; KA_OK when all succeed. In
 * thread mode 2 an enabled push also starts listening on its port.
 * ka_create_robot_arm runs it once.
 */
KA_API int ka_sync_robot_info(ka_robot_handle *handle);

/* --------------------------------------------------------- generic exchange */

/**
 * Sends {"command":command,key:value}, waits up to 1000 ms for the reply
 * named command and returns its "set_state" result: KA_OK true,
 * KA_REFUSED false, KA_ERR_PARSE unparsable or key missing; KA_ERR_LOCAL or
 * KA_ERR_TIMEOUT from the exchange.
 */
KA_API int ka_set_data_common(ka_robot_handle *handle, int value, const char *command,
                              const char *key);

/**
 * Sends {"command":command}, waits up to 500 ms for the reply named command
 * and stores its integer field key, unscaled, in *value (written only on
 * KA_OK). KA_ERR_PARSE when the key is missing.
 */
KA_API int ka_get_data_common(ka_robot_handle *handle, int *value, const char *command,
                              const char *key);

/* ------------------------------------------------- motion and step halves */

/**
 * Non-blocking half of ka_movej: returns once the controller accepted the
 * motion (KA_OK) or refused it (KA_REFUSED). Parameters as ka_movej.
 */
KA_API int ka_movej_nblock(ka_robot_handle *handle, const float *joint, int v, int r,
                           int trajectory_connect);
/** Non-blocking half of ka_movel; parameters and codes as ka_movej_nblock. */
KA_API int ka_movel_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                           int trajectory_connect);
/** Non-blocking half of ka_moves; parameters and codes as ka_movej_nblock. */
KA_API int ka_moves_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                           int trajectory_connect);
/**
 * Non-blocking half of ka_movec; r is sent times 1000 as by ka_movec, but
 * trajectory_connect is not checked here.
 */
KA_API int ka_movec_nblock(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v,
                           int r, int loop, int trajectory_connect);
/** Non-blocking half of ka_movej_p; parameters and codes as ka_movej_nblock. */
KA_API int ka_movej_p_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                             int trajectory_connect);

/**
 * Blocking half of ka_movej: sends, then waits for the end of the motion as
 * described at ka_movej for a non-zero block (block 0 in thread mode 0 gives
 * KA_ERR_FAMILY_5 at once after the motion was accepted).
 */
KA_API int ka_movej_block(ka_robot_handle *handle, const float *joint, int v, int r,
                          int trajectory_connect, int block);
/** Blocking half of ka_movel; as ka_movej_block. */
KA_API int ka_movel_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                          int trajectory_connect, int block);
/** Blocking half of ka_moves; as ka_movej_block. */
KA_API int ka_moves_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                          int trajectory_connect, int block);
/** Blocking half of ka_movec; as ka_movej_block, trajectory_connect unchecked. */
KA_API int ka_movec_block(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v,
                          int r, int loop, int trajectory_connect, int block);
/** Blocking half of ka_movej_p; as ka_movej_block. */
KA_API int ka_movej_p_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                            int trajectory_connect, int block);

/**
 * Non-blocking half of ka_set_joint_step: sends, then pauses 500 ms without
 * reading the controller's answer. KA_OK when sent, KA_ERR_LOCAL otherwise.
 */
KA_API int ka_set_joint_step_nblock(ka_robot_handle *handle, int joint_num, float step, int v);
/** Non-blocking half of ka_set_pos_step; as ka_set_joint_step_nblock. */
KA_API int ka_set_pos_step_nblock(ka_robot_handle *handle, ka_pos_teach_type_e type, float step,
                                  int v);
/** Non-blocking half of ka_set_ort_step; as ka_set_joint_step_nblock. */
KA_API int ka_set_ort_step_nblock(ka_robot_handle *handle, ka_ort_teach_type_e type, float step,
                                  int v);
/** Blocking half of ka_set_joint_step: waits for the end of the step as ka_movej_block. */
KA_API int ka_set_joint_step_block(ka_robot_handle *handle, int joint_num, float step, int v,
                                   int block);
/** Blocking half of ka_set_pos_step; as ka_set_joint_step_block. */
KA_API int ka_set_pos_step_block(ka_robot_handle *handle, ka_pos_teach_type_e type, float step,
                                 int v, int block);
/** Blocking half of ka_set_ort_step; as ka_set_joint_step_block. */
KA_API int ka_set_ort_step_block(ka_robot_handle *handle, ka_ort_teach_type_e type, float step,
                                 int v, int block);

/**
 * The completion wait of thread mode 0 (no receive thread), on its own: makes
 * up to timeout attempts, each reading the arm's connection for up to 1000 ms
 * for a "current_trajectory_state" report. Returns KA_OK for a report that
 * the motion ended normally on device (0 the arm) with no connected motion
 * following; KA_REFUSED for a report that a motion ended with
 * "trajectory_state" false; KA_ERR_PARSE for an unparsable report;
 * KA_ERR_FAMILY_5 when timeout is 0 or the attempts run out. Reports of
 * other devices, or with connected motions following, are skipped. Meant for
 * thread mode 0; in the threaded modes it reads the receive queue instead.
 */
KA_API int ka_movecmd_singlemode_parse(ka_robot_handle *handle, int timeout, int device);

/* ----------------------------------------------------------------- logging */

/**
 * Passes the printf-style message to the log sink when the threshold set
 * with ka_set_log_call_back is greater than level (the reverse of the four
 * entries below).
 */
KA_API void ka_log(int level, const char *format, ...);
/** Debug line (level 0): written only at threshold 0. */
KA_API void ka_log_debug(const char *format, ...);
/** Information line (level 1): written at threshold 1 or less. */
KA_API void ka_log_info(const char *format, ...);
/** Warning line (level 2): written at threshold 2 or less. */
KA_API void ka_log_warn(const char *format, ...);
/** Error line (level 3): written at threshold 3 (the default) or less. */
KA_API void ka_log_error(const char *format, ...);

/**
 * Current local time as "YYYY-MM-DD hh_mm_ss", in a buffer owned by the
 * calling thread and overwritten by its next call.
 */
KA_API const char *ka_get_cur_time(void);

/* ---------------------------------------------------- project file helpers */

/**
 * Number of lines of the text file at path (read 1023 characters at a time,
 * so a longer line counts more than once); -1 when it cannot be read.
 */
KA_API int countLinesInFile(const char *path);

/**
 * Writes to target the project header for the arm ({"file":DOF} and the
 * folder line carrying source's line count), then source's lines unchanged.
 * Returns 0, or -1 when nothing could be written (unregistered handle, DOF
 * not 6 or 7, source unreadable or target not creatable).
 */
KA_API int add_lines_to_file(ka_robot_handle *handle, const char *source, const char *target);

#ifdef __cplusplus
}
#endif

#endif /* KA_COMPAT_H */
