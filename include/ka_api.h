/*
 * ka_api.h - client library for six- and seven-axis robot arm controllers.
 *
 * One controller command per function: each call builds one JSON object,
 * sends it as one "\r\n"-terminated line over the arm's TCP connection and
 * parses the controller's reply. Beside the commands sits the in-process
 * kinematics library (ka_algo_*).
 *
 * Plain C (C99 and C++), all functions with C linkage.
 *
 * Units at this interface: joint angles in degrees, positions in metres,
 * Euler angles in radians with R = Rz(rz) * Ry(ry) * Rx(rx), quaternions
 * scalar first (w, x, y, z).
 *
 * Return codes (KA_*): 0 success, 1 refused by the controller, -1 local
 * failure (unknown handle, bad argument, send failure, disconnected),
 * -2 no reply in time, -3 unparsable reply, -4 and below family specific.
 */
#ifndef KA_API_H
#define KA_API_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* ---------------------------------------------------------------- export */
#if defined(_WIN32)
#if defined(KA_API_BUILDING)
#define KA_API __declspec(dllexport)
#else
#define KA_API __declspec(dllimport)
#endif
#else
#define KA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* --------------------------------------------------------------- version */
#define KA_API_VERSION_MAJOR 1
#define KA_API_VERSION_MINOR 0
#define KA_API_VERSION_PATCH 3
#define KA_API_VERSION_STRING "1.0.3"
#define KA_ALGO_VERSION_STRING "1.4.7"

/* ---------------------------------------------------------- return codes */
#define KA_OK 0
#define KA_REFUSED 1         /* the controller answered "false" */
#define KA_ERR_LOCAL (-1)    /* unknown handle, bad argument, send failure */
#define KA_ERR_TIMEOUT (-2)  /* no matching reply in time */
#define KA_ERR_PARSE (-3)    /* reply unparsable or a key missing */
#define KA_ERR_OUTCOME (-4)  /* done, but not as requested (other device) */
#define KA_ERR_FAMILY_5 (-5) /* family specific, e.g. blocking wait timed out */
#define KA_ERR_FAMILY_6 (-6) /* family specific, e.g. bad trajectory_connect */

/* -------------------------------------------------------------- capacities
 * Capacities the controller protocol leaves open; every copy into these
 * records is bounded by them. They may be raised when rebuilding. */
#define KA_MAX_ARMS 5        /* arms open at once */
#define KA_JOINTS 7          /* every joint array holds 7 entries */
#define KA_NAME_SIZE 12      /* frame, fence and envelope names */
#define KA_ENVELOPE_BALLS 5  /* spheres in one tool envelope */
#define KA_WIFI_SSID_SIZE 33 /* 32 characters and a terminator */
#define KA_WAYPOINT_NAME_SIZE 20
#define KA_WAYPOINT_TIME_SIZE 32      /* "YYYY-MM-DD hh:mm:ss" and room */
#define KA_WAYPOINT_LIST_CAPACITY 100 /* waypoints in one listed page */
#define KA_PROGRAM_LIST_CAPACITY 100  /* programs in one listed page */
#define KA_PROGRAM_NAME_SIZE 32
#define KA_PROGRAM_LOOPS 100 /* loop_num / loop_cont entries */
#define KA_PROJECT_PATH_SIZE 300
#define KA_FENCE_LIST_CAPACITY 10 /* stored electronic fences */
#define KA_FRAME_LIST_CAPACITY 10 /* names in one tool or work frame list */
#define KA_SEARCH_TEXT_SIZE 32

/* ------------------------------------------------------------ enumerations */
typedef enum {
    KA_ARM_MODEL_KIVO = 0,
    KA_ARM_MODEL_LUNE = 1,
    KA_ARM_MODEL_RESERVED_2 = 2, /* accepted by the kinematics, never detected */
    KA_ARM_MODEL_MARO_II = 3,    /* product text "TQ" */
    KA_ARM_MODEL_MARO_III = 4,   /* accepted by the kinematics, never detected */
    KA_ARM_MODEL_NEPAX = 5,
    KA_ARM_MODEL_NEPAZ = 6,
    KA_ARM_MODEL_QUIL = 7,
    KA_ARM_MODEL_NEPATQ = 8
} ka_robot_arm_model_e;

typedef enum {
    KA_FORCE_TYPE_B = 0,  /* standard arm, product text "-B" */
    KA_FORCE_TYPE_ZF = 1, /* one-axis sensor at the flange, "-ZF" */
    KA_FORCE_TYPE_6F = 2  /* six-axis force sensor, "-6F" */
} ka_force_type_e;

typedef enum {
    KA_THREAD_MODE_SINGLE = 0, /* no library thread; replies read by the caller */
    KA_THREAD_MODE_DUAL = 1,   /* TCP receive thread */
    KA_THREAD_MODE_TRIPLE = 2  /* TCP and UDP receive threads (default) */
} ka_thread_mode_e;

typedef enum {
    KA_TRAJECTORY_NONE = 0,
    KA_TRAJECTORY_MOVEJ = 1,
    KA_TRAJECTORY_MOVEL = 2,
    KA_TRAJECTORY_MOVEC = 3,
    KA_TRAJECTORY_MOVES = 4,
    KA_TRAJECTORY_REPLAY = 5 /* "re_trajectory" */
} ka_arm_current_trajectory_e;

typedef enum { KA_TEACH_X = 0, KA_TEACH_Y = 1, KA_TEACH_Z = 2 } ka_pos_teach_type_e;
typedef enum { KA_TEACH_RX = 0, KA_TEACH_RY = 1, KA_TEACH_RZ = 2 } ka_ort_teach_type_e;

typedef enum {
    KA_ARM_STATUS_IDLE = 0,
    KA_ARM_STATUS_MOVE_L = 1,
    KA_ARM_STATUS_MOVE_J = 2,
    KA_ARM_STATUS_MOVE_C = 3,
    KA_ARM_STATUS_MOVE_S = 4,
    KA_ARM_STATUS_MOVE_THROUGH_JOINT = 5,
    KA_ARM_STATUS_MOVE_THROUGH_POSE = 6,
    KA_ARM_STATUS_MOVE_THROUGH_FORCE_POSE = 7,
    KA_ARM_STATUS_MOVE_THROUGH_CURRENT = 8,
    KA_ARM_STATUS_STOP = 9,
    KA_ARM_STATUS_SLOW_STOP = 10,
    KA_ARM_STATUS_PAUSE = 11,
    KA_ARM_STATUS_CURRENT_DRAG = 12,
    KA_ARM_STATUS_SENSOR_DRAG = 13,
    KA_ARM_STATUS_TECH_DEMONSTRATION = 14
} ka_arm_current_status_e;

/* ----------------------------------------------------------- core records */

/* The caller's handle to one arm. Owned by the library; stays at the same
 * address until ka_destory. id: 1..5 registered, -1 connection or
 * information query failed, 0 after ka_delete_robot_arm. */
typedef struct {
    int32_t id;
    int32_t arm_dof;    /* 6 or 7 once known, 0 before */
    int32_t arm_model;  /* ka_robot_arm_model_e */
    int32_t force_type; /* ka_force_type_e */
} ka_robot_handle;

typedef struct {
    int32_t arm_dof;
    int32_t arm_model;
    int32_t force_type;
} ka_robot_info_t;

typedef struct {
    float x, y, z; /* metres */
} ka_position_t;

typedef struct {
    float w, x, y, z;
} ka_quat_t;

typedef struct {
    float rx, ry, rz; /* radians, R = Rz(rz) * Ry(ry) * Rx(rx) */
} ka_euler_t;

typedef struct {
    ka_position_t position;
    ka_quat_t quaternion;
    ka_euler_t euler;
} ka_pose_t;

/* rows x columns of data[][] are meaningful: 4x4 transform, 3x3 rotation. */
typedef struct {
    int16_t rows;
    int16_t columns;
    float data[4][4]; /* row-major */
} ka_matrix_t;

typedef struct {
    int32_t handle_id;
    int32_t event_type; /* 1 trajectory state, 2 online program finished */
    bool trajectory_state;
    int32_t device;
    int32_t trajectory_connect;
    int32_t finish_id;
} ka_event_push_data_t;

/* ----------------------------------------------------- realtime push (UDP) */
typedef struct {
    int32_t joint_speed; /* 1 on, 0 off, negative: leave unchanged */
    int32_t lift_state;
    int32_t expand_state;
    int32_t arm_current_status;
} ka_realtime_push_custom_t;

typedef struct {
    int32_t cycle; /* controller cycles; sent when above 0 */
    bool enable;
    int32_t port;             /* sent when above 0 */
    int32_t force_coordinate; /* sent when above 0 on arms with a sensor */
    char ip[28];              /* sent when 7 to 15 characters */
    ka_realtime_push_custom_t custom;
} ka_realtime_push_config_t;

/* One pushed state datagram; 348 bytes. Zeroed before each parse. */
typedef struct {
    int32_t errCode; /* 0, or -3 when the datagram did not parse */
    char arm_ip[16];
    uint16_t arm_err;
    float joint_current[7];
    bool joint_en_flag[7];
    uint16_t joint_err_code[7];
    float joint_position[7]; /* degrees */
    float joint_temperature[7];
    float joint_voltage[7];
    float joint_speed[7]; /* degrees per second */
    float force[6];
    float zero_force[6];
    int32_t coordinate;
    uint16_t sys_err;
    ka_pose_t waypoint;
    int32_t lift_height;
    float lift_pos;
    int32_t lift_current;
    int32_t lift_err_flag;
    int32_t lift_en_flag;
    float expand_pos;
    int32_t expand_current;
    int32_t expand_err_flag;
    int32_t expand_en_flag;
    int32_t expand_joint_id;
    int32_t expand_mode;
    int32_t hand_pos;
    float hand_force;
    int32_t hand_state;
    int32_t hand_err;
    int32_t arm_current_status; /* ka_arm_current_status_e */
} ka_realtime_arm_joint_state_t;

/* ------------------------------------------------------------- callbacks */
typedef void (*ka_event_callback_t)(ka_event_push_data_t data);
typedef void (*ka_realtime_callback_t)(ka_realtime_arm_joint_state_t state);
typedef void (*ka_log_callback_t)(const char *format, va_list args);

/* ------------------------------------------------------ frames (tool/work) */
typedef struct {
    char frame_name[KA_NAME_SIZE];
    ka_pose_t pose;
    float payload; /* kg */
    float x, y, z; /* centre of mass, metres */
} ka_frame_t;

typedef struct {
    char name[KA_NAME_SIZE];
} ka_frame_name_t;

typedef struct {
    char name[KA_NAME_SIZE];
    float radius;  /* metres */
    float x, y, z; /* centre in the tool frame, metres */
} ka_envelope_ball_t;

typedef struct {
    ka_envelope_ball_t balls[KA_ENVELOPE_BALLS];
    int32_t size;
    char tool_name[KA_NAME_SIZE];
} ka_envelope_balls_list_t;

/* ------------------------------------------------------- state queries */
typedef struct {
    ka_pose_t pose;
    float joint[7];
    uint8_t arm_err;
    uint8_t sys_err;
} ka_current_arm_state_t;

typedef struct {
    float joint_current[7];
    int32_t joint_en_flag[7];
    float joint_temperature[7];
    float joint_voltage[7];
    int32_t joint_err_code[7];
    int32_t sys_err;
} ka_arm_all_state_t;

/* Fixed-width text fields, not terminated when full. */
typedef struct {
    char product_version[10];
    char algorithm_version[20];
    char ctrl_build_time[20];
    char ctrl_version[10];
    char dynamic_model_version[5];
    char plan_build_time[20];
    char plan_version[10];
} ka_arm_software_version_t;

/* ---------------------------------------------------------- network */
typedef struct {
    int32_t channel; /* access-point mode only */
    char ip[16];
    char mac[18];
    char mask[16];
    char mode[5]; /* "ap", "sta" or "off" */
    char password[16];
    char ssid[KA_WIFI_SSID_SIZE];
} ka_wifi_net_t;

/* ------------------------------------------------------ end effectors */
typedef struct {
    int32_t enable;
    int32_t status;
    int32_t error;
    int32_t mode;
    int32_t current_force;
    int32_t temperature;
    int32_t actpos;
} ka_gripper_state_t;

/* ------------------------------------------------------------- force */
typedef struct {
    float force_data[6];
    float zero_force_data[6];
    float work_zero_force_data[6];
    float tool_zero_force_data[6];
} ka_force_data_t;

typedef struct {
    float Fz;
    float zero_Fz;
    float work_zero_Fz;
    float tool_zero_Fz;
} ka_fz_data_t;

typedef struct {
    int32_t free_axes[6];
    int32_t frame;
    int32_t singular_wall;
} ka_multi_drag_teach_t;

typedef struct {
    int32_t sensor;
    int32_t mode;
    int32_t control_mode[6];
    float desired_force[6]; /* newtons */
    float limit_vel[6];
} ka_force_position_t;

typedef struct {
    int flag; /* 1: target is pose, 0: target is joint */
    ka_pose_t pose;
    float joint[7];
    int sensor;
    int mode;
    bool follow;
    int32_t control_mode[6];
    float desired_force[6];
    float limit_vel[6];
} ka_force_position_move_t;

/* ------------------------------------------------------------- Modbus */
typedef struct {
    int32_t port;
    int32_t address;
    int32_t device;
    int32_t num;
} ka_peripheral_read_write_params_t;

/* ------------------------------------------------ lift and expansion axes */
typedef struct {
    int32_t pos;
    int32_t current;
    int32_t err_flag;
    int32_t mode; /* non-zero while moving */
} ka_expand_state_t;

/* ---------------------------------------------------- online programming */
typedef struct {
    char project_path[KA_PROJECT_PATH_SIZE];
    int32_t project_path_len;
    int32_t plan_speed;
    int32_t only_save;
    int32_t save_id;
    int32_t step_flag;
    int32_t reserved;
    int32_t convert_flag;
} ka_send_project_t;

typedef struct {
    int32_t run_state;
    int32_t id;
    int32_t edit_id;
    int32_t plan_num;
    int32_t loop_count;
    int32_t step_mode;
    int32_t plan_speed;
    int32_t loop_num[KA_PROGRAM_LOOPS];
    int32_t loop_cont[KA_PROGRAM_LOOPS];
} ka_program_run_state_t;

typedef struct {
    int32_t id;
    int32_t size;
    int32_t speed;
    char trajectory_name[KA_PROGRAM_NAME_SIZE];
} ka_program_trajectory_data_t;

typedef struct {
    int32_t page_num;
    int32_t page_size;
    int32_t total_size;
    char vague_search[KA_SEARCH_TEXT_SIZE];
    ka_program_trajectory_data_t list[KA_PROGRAM_LIST_CAPACITY];
} ka_program_trajectorys_t;

/* -------------------------------------------------------- global waypoints */
typedef struct {
    char point_name[KA_WAYPOINT_NAME_SIZE];
    float joint[7];
    ka_pose_t pose;
    char work_frame[KA_NAME_SIZE];
    char tool_frame[KA_NAME_SIZE];
    char time[KA_WAYPOINT_TIME_SIZE];
} ka_waypoint_t;

typedef struct {
    int32_t page_num;
    int32_t page_size;
    int32_t total_size;
    char vague_search[KA_SEARCH_TEXT_SIZE];
    int32_t list_len;
    ka_waypoint_t points[KA_WAYPOINT_LIST_CAPACITY];
} ka_waypoint_list_t;

/* ---------------------------------------------------------------- safety */
typedef struct {
    float x_min_limit, x_max_limit;
    float y_min_limit, y_max_limit;
    float z_min_limit, z_max_limit;
} ka_fence_cube_t;

typedef struct {
    float x1, y1, z1;
    float x2, y2, z2;
    float x3, y3, z3;
} ka_fence_plane_t;

typedef struct {
    float x, y, z;
    float radius;
} ka_fence_sphere_t;

typedef struct {
    int32_t form; /* 1 cube, 2 plane, 3 sphere */
    char form_name[KA_NAME_SIZE];
    ka_fence_cube_t cube;
    ka_fence_plane_t plane;
    ka_fence_sphere_t sphere;
} ka_fence_config_t;

typedef ka_fence_config_t ka_fence_config_list_t;

typedef struct {
    char name[KA_NAME_SIZE];
} ka_fence_names_t;

typedef struct {
    bool enable_state;
    int32_t in_out_side;
    int32_t effective_region;
} ka_electronic_fence_enable_t;

/* ------------------------------------------------------------ kinematics */
typedef struct {
    float q_in[7];    /* reference joints, degrees */
    ka_pose_t q_pose; /* target tool pose in the current work frame */
    uint8_t q_flag;   /* 0: orientation from the quaternion, 1: from Euler */
} ka_inverse_kinematics_params_t;

/* ------------------------------------------------------- layout checks
 * The layouts below are fixed by the wire and by existing callers. */
#define KA_LAYOUT_CHECK(name, cond) typedef char ka_layout_check_##name[(cond) ? 1 : -1]
KA_LAYOUT_CHECK(pose, sizeof(ka_pose_t) == 40);
KA_LAYOUT_CHECK(matrix, sizeof(ka_matrix_t) == 68);
KA_LAYOUT_CHECK(handle, sizeof(ka_robot_handle) == 16);
KA_LAYOUT_CHECK(frame, sizeof(ka_frame_t) == 68);
KA_LAYOUT_CHECK(software_version, sizeof(ka_arm_software_version_t) == 95);
#if defined(__x86_64__) || defined(_M_X64)
KA_LAYOUT_CHECK(realtime_state, sizeof(ka_realtime_arm_joint_state_t) == 348);
#endif
#undef KA_LAYOUT_CHECK

/* =================================================================
 * Library lifecycle and arm registry
 * ================================================================= */

/* Starts the library in a thread mode (ka_thread_mode_e). Returns 0, or -1
 * when a thread could not be started. Without a call the library starts in
 * mode 2 when the first arm is created. */
KA_API int ka_init(int mode);

/* "1.0.3" */
KA_API const char *ka_api_version(void);

/* Opens an arm. Returns its handle; handle->id is -1 when the connection
 * or the initial information query failed (the slot stays taken until
 * ka_delete_robot_arm). NULL only when all five slots are taken. */
KA_API ka_robot_handle *ka_create_robot_arm(const char *ip, int port);

/* Closes one arm. 0, or -1 when the handle is not registered. The handle
 * stays readable (id 0) until ka_destory. */
KA_API int ka_delete_robot_arm(ka_robot_handle *handle);

/* Closes every arm and stops the library's threads. Always 0. */
KA_API int ka_destory(void);

/* 0; -1 unregistered handle; -2 when the arm's DOF is not yet known. */
KA_API int ka_get_robot_info(ka_robot_handle *handle, ka_robot_info_t *info);

/* 0 and *dof for a 6 or 7 axis arm; -1 otherwise. */
KA_API int ka_get_arm_dof(ka_robot_handle *handle, int *dof);

/* Re-reads software info, push configuration, frames, install pose and
 * joint limits; returns the first non-zero result. */
KA_API int ka_sync_robot_info(ka_robot_handle *handle);

/* Registers the callback for trajectory and program completion events (run
 * on the TCP receive thread). NULL keeps the previous one. */
KA_API void ka_get_arm_event_call_back(ka_event_callback_t callback);

/* =================================================================
 * Logging
 * ================================================================= */

/* Sets the sink and the threshold: 0 writes everything, 3 (default) errors
 * only, 4 nothing. NULL restores the standard-error sink. */
KA_API void ka_set_log_call_back(ka_log_callback_t callback, int level);

/* Appends all further log lines, time-stamped, to the file at path, at
 * threshold 0. Returns 0, or -1 (logged) when the file cannot be opened. */
KA_API int ka_set_log_save(const char *path);

/* Passes the message when the threshold is greater than level. */
KA_API void ka_log(int level, const char *format, ...);
KA_API void ka_log_debug(const char *format, ...);
KA_API void ka_log_info(const char *format, ...);
KA_API void ka_log_warn(const char *format, ...);
KA_API void ka_log_error(const char *format, ...);

/* Current local time as "YYYY-MM-DD hh_mm_ss" (thread-local buffer). */
KA_API const char *ka_get_cur_time(void);

/* =================================================================
 * Generic exchange
 * ================================================================= */

/* Sends {"command":command,key:value}, waits 1000 ms for the reply named
 * command and returns the "set_state" result: 0 true, 1 false, -3
 * unparsable; -1 / -2 from the exchange. */
KA_API int ka_set_data_common(ka_robot_handle *handle, int value, const char *command,
                              const char *key);

/* Sends {"command":command}, waits 500 ms for the reply named command and
 * stores its integer field key in *value. */
KA_API int ka_get_data_common(ka_robot_handle *handle, int *value, const char *command,
                              const char *key);

/* =================================================================
 * Realtime state push (UDP)
 * ================================================================= */

/* Registers the callback for pushed state (run on the UDP receive thread).
 * NULL keeps the previous one. */
KA_API void ka_realtime_arm_state_call_back(ka_realtime_callback_t callback);

/* Configures the controller's push; see ka_realtime_push_config_t for the
 * fields that are sent. 0, 1 refused, or an exchange code. */
KA_API int ka_set_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t config);
/* Reads the push configuration; custom flags read -1 when not reported. */
KA_API int ka_get_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t *config);

/* =================================================================
 * Point-to-point and path motion
 *
 * block 0 returns once the controller accepted the motion. Otherwise: in
 * thread mode 0 block is a time-out in seconds (-5 when it runs out); in
 * modes 1 and 2 the call returns when the motion, or the chain of connected
 * motions, has finished. Returns 0 done, 1 ended with a failure report, -3
 * unparsable report, -4 the chain ended on another device, -6 (ka_movec) a
 * trajectory_connect above 1, or an exchange code.
 * ================================================================= */

KA_API int ka_movej(ka_robot_handle *handle, const float *joint, int v, int r,
                    int trajectory_connect, int block);
KA_API int ka_movel(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                    int block);
KA_API int ka_moves(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                    int block);
KA_API int ka_movec(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v, int r,
                    int loop, int trajectory_connect, int block);
KA_API int ka_movej_p(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                      int block);

KA_API int ka_movej_nblock(ka_robot_handle *handle, const float *joint, int v, int r,
                           int trajectory_connect);
KA_API int ka_movel_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                           int trajectory_connect);
KA_API int ka_moves_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                           int trajectory_connect);
KA_API int ka_movec_nblock(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v,
                           int r, int loop, int trajectory_connect);
KA_API int ka_movej_p_nblock(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                             int trajectory_connect);

KA_API int ka_movej_block(ka_robot_handle *handle, const float *joint, int v, int r,
                          int trajectory_connect, int block);
KA_API int ka_movel_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                          int trajectory_connect, int block);
KA_API int ka_moves_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                          int trajectory_connect, int block);
KA_API int ka_movec_block(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v,
                          int r, int loop, int trajectory_connect, int block);
KA_API int ka_movej_p_block(ka_robot_handle *handle, ka_pose_t pose, int v, int r,
                            int trajectory_connect, int block);

/* The running trajectory's kind and its data (float[7]): joint angles in
 * degrees for joint kinds, x, y, z (m) and rx, ry, rz (rad) for pose kinds. */
KA_API int ka_get_arm_current_trajectory(ka_robot_handle *handle, ka_arm_current_trajectory_e *type,
                                         float *data);

/* =================================================================
 * Passthrough and follow motion: sent, never answered. 0 sent, -1 not.
 * A pose whose quaternion has a squared norm inside (0.99, 1.1) is sent
 * with the quaternion, otherwise with the Euler angles.
 * ================================================================= */

KA_API int ka_movej_canfd(ka_robot_handle *handle, const float *joint, bool follow, float expand);
KA_API int ka_movep_canfd(ka_robot_handle *handle, ka_pose_t pose, bool follow);
KA_API int ka_movej_follow(ka_robot_handle *handle, const float *joint);
KA_API int ka_movep_follow(ka_robot_handle *handle, ka_pose_t pose);

/* =================================================================
 * Jogging, teaching and motion control
 * ================================================================= */

/* Steps: degrees, metres or radians. block as for the motions; block 0
 * sends and pauses 500 ms without reading an answer. An axis type outside
 * 0..2 gives -1 before anything is sent. */
KA_API int ka_set_joint_step(ka_robot_handle *handle, int joint_num, float step, int v, int block);
KA_API int ka_set_pos_step(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v,
                           int block);
KA_API int ka_set_ort_step(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v,
                           int block);
KA_API int ka_set_joint_step_nblock(ka_robot_handle *handle, int joint_num, float step, int v);
KA_API int ka_set_pos_step_nblock(ka_robot_handle *handle, ka_pos_teach_type_e type, float step,
                                  int v);
KA_API int ka_set_ort_step_nblock(ka_robot_handle *handle, ka_ort_teach_type_e type, float step,
                                  int v);
KA_API int ka_set_joint_step_block(ka_robot_handle *handle, int joint_num, float step, int v,
                                   int block);
KA_API int ka_set_pos_step_block(ka_robot_handle *handle, ka_pos_teach_type_e type, float step,
                                 int v, int block);
KA_API int ka_set_ort_step_block(ka_robot_handle *handle, ka_ort_teach_type_e type, float step,
                                 int v, int block);

/* Continuous teaching until ka_set_stop_teach; direction non-zero positive. */
KA_API int ka_set_joint_teach(ka_robot_handle *handle, int joint_num, int direction, int v);
KA_API int ka_set_pos_teach(ka_robot_handle *handle, ka_pos_teach_type_e type, int direction,
                            int v);
KA_API int ka_set_ort_teach(ka_robot_handle *handle, ka_ort_teach_type_e type, int direction,
                            int v);
KA_API int ka_set_stop_teach(ka_robot_handle *handle);
KA_API int ka_set_teach_frame(ka_robot_handle *handle, int frame_type);
KA_API int ka_get_teach_frame(ka_robot_handle *handle, int *frame_type);

KA_API int ka_set_arm_slow_stop(ka_robot_handle *handle);
KA_API int ka_set_arm_stop(ka_robot_handle *handle);
KA_API int ka_set_arm_pause(ka_robot_handle *handle);
KA_API int ka_set_arm_continue(ka_robot_handle *handle);
KA_API int ka_set_delete_current_trajectory(ka_robot_handle *handle);
KA_API int ka_set_arm_delete_trajectory(ka_robot_handle *handle);

/* =================================================================
 * Joint and arm limits: degrees, degrees/s, degrees/s^2, m/s, m/s^2,
 * rad/s, rad/s^2. Joint arrays are float[7] (or uint8_t[7]); DOF entries
 * are written.
 * ================================================================= */

KA_API int ka_set_joint_max_speed(ka_robot_handle *handle, int joint_num, float speed);
KA_API int ka_set_joint_max_acc(ka_robot_handle *handle, int joint_num, float acc);
KA_API int ka_set_joint_min_pos(ka_robot_handle *handle, int joint_num, float pos);
KA_API int ka_set_joint_max_pos(ka_robot_handle *handle, int joint_num, float pos);
KA_API int ka_get_joint_max_speed(ka_robot_handle *handle, float *speed);
KA_API int ka_get_joint_max_acc(ka_robot_handle *handle, float *acc);
KA_API int ka_get_joint_min_pos(ka_robot_handle *handle, float *pos);
KA_API int ka_get_joint_max_pos(ka_robot_handle *handle, float *pos);

KA_API int ka_set_joint_drive_max_speed(ka_robot_handle *handle, int joint_num, float speed);
KA_API int ka_set_joint_drive_max_acc(ka_robot_handle *handle, int joint_num, float acc);
KA_API int ka_set_joint_drive_min_pos(ka_robot_handle *handle, int joint_num, float pos);
KA_API int ka_set_joint_drive_max_pos(ka_robot_handle *handle, int joint_num, float pos);
KA_API int ka_get_joint_drive_max_speed(ka_robot_handle *handle, float *speed);
KA_API int ka_get_joint_drive_max_acc(ka_robot_handle *handle, float *acc);
KA_API int ka_get_joint_drive_min_pos(ka_robot_handle *handle, float *pos);
KA_API int ka_get_joint_drive_max_pos(ka_robot_handle *handle, float *pos);
KA_API int ka_auto_set_joint_limit(ka_robot_handle *handle, int limit_mode);

KA_API int ka_set_joint_en_state(ka_robot_handle *handle, int joint_num, int en_state);
KA_API int ka_get_joint_en_state(ka_robot_handle *handle, uint8_t *en_state);
KA_API int ka_set_joint_zero_pos(ka_robot_handle *handle, int joint_num);
KA_API int ka_set_joint_clear_err(ka_robot_handle *handle, int joint_num);

KA_API int ka_set_arm_max_line_speed(ka_robot_handle *handle, float speed);
KA_API int ka_set_arm_max_line_acc(ka_robot_handle *handle, float acc);
KA_API int ka_set_arm_max_angular_speed(ka_robot_handle *handle, float speed);
KA_API int ka_set_arm_max_angular_acc(ka_robot_handle *handle, float acc);
KA_API int ka_get_arm_max_line_speed(ka_robot_handle *handle, float *speed);
KA_API int ka_get_arm_max_line_acc(ka_robot_handle *handle, float *acc);
KA_API int ka_get_arm_max_angular_speed(ka_robot_handle *handle, float *speed);
KA_API int ka_get_arm_max_angular_acc(ka_robot_handle *handle, float *acc);
KA_API int ka_set_arm_tcp_init(ka_robot_handle *handle);
KA_API int ka_set_collision_state(ka_robot_handle *handle, int stage);
KA_API int ka_get_collision_stage(ka_robot_handle *handle, int *stage);

KA_API int ka_set_init_pose(ka_robot_handle *handle, const float *joint);
KA_API int ka_get_init_pose(ka_robot_handle *handle, float *joint);

/* =================================================================
 * Tool and work frames
 * ================================================================= */

KA_API int ka_set_auto_tool_frame(ka_robot_handle *handle, int point_num);
KA_API int ka_generate_auto_tool_frame(ka_robot_handle *handle, const char *tool_name,
                                       float payload, float x, float y, float z);
KA_API int ka_set_manual_tool_frame(ka_robot_handle *handle, ka_frame_t frame);
KA_API int ka_update_tool_frame(ka_robot_handle *handle, ka_frame_t frame);
KA_API int ka_set_tool_envelope(ka_robot_handle *handle, ka_envelope_balls_list_t list);
KA_API int ka_get_tool_envelope(ka_robot_handle *handle, const char *tool_name,
                                ka_envelope_balls_list_t *list);
KA_API int ka_set_auto_work_frame(ka_robot_handle *handle, const char *frame_name, int point_num);
KA_API int ka_set_manual_work_frame(ka_robot_handle *handle, const char *frame_name,
                                    ka_pose_t pose);
KA_API int ka_update_work_frame(ka_robot_handle *handle, const char *frame_name, ka_pose_t pose);

/* Frame names into list (room for KA_FRAME_LIST_CAPACITY entries); *count
 * is written only when at least one name was listed. */
KA_API int ka_get_total_tool_frame(ka_robot_handle *handle, ka_frame_name_t *list, int *count);
KA_API int ka_get_total_work_frame(ka_robot_handle *handle, ka_frame_name_t *list, int *count);
KA_API int ka_get_given_tool_frame(ka_robot_handle *handle, const char *tool_name,
                                   ka_frame_t *frame);
KA_API int ka_get_given_work_frame(ka_robot_handle *handle, const char *frame_name,
                                   ka_pose_t *pose);

/* Current frames; also refresh the handle's copy and the kinematics. */
KA_API int ka_get_current_tool_frame(ka_robot_handle *handle, ka_frame_t *frame);
KA_API int ka_get_current_work_frame(ka_robot_handle *handle, ka_frame_t *frame);
/* Select or delete a frame, then re-read the current one. */
KA_API int ka_change_tool_frame(ka_robot_handle *handle, const char *tool_name);
KA_API int ka_delete_tool_frame(ka_robot_handle *handle, const char *tool_name);
KA_API int ka_change_work_frame(ka_robot_handle *handle, const char *frame_name);
KA_API int ka_delete_work_frame(ka_robot_handle *handle, const char *frame_name);

/* =================================================================
 * Arm and controller state queries
 * ================================================================= */

KA_API int ka_get_joint_degree(ka_robot_handle *handle, float *joint);
KA_API int ka_get_current_arm_state(ka_robot_handle *handle, ka_current_arm_state_t *state);
KA_API int ka_get_arm_all_state(ka_robot_handle *handle, ka_arm_all_state_t *state);
KA_API int ka_get_current_joint_temperature(ka_robot_handle *handle, float *temperature);
KA_API int ka_get_current_joint_current(ka_robot_handle *handle, float *current);
KA_API int ka_get_current_joint_voltage(ka_robot_handle *handle, float *voltage);
KA_API int ka_get_joint_odom(ka_robot_handle *handle, float *odom);
KA_API int ka_get_joint_err_flag(ka_robot_handle *handle, uint16_t *err_flag,
                                 uint16_t *brake_state);
KA_API int ka_get_controller_state(ka_robot_handle *handle, float *voltage, float *current,
                                   float *temperature, int *err_flag);
KA_API int ka_get_arm_power_state(ka_robot_handle *handle, int *power_state);
KA_API int ka_get_system_runtime(ka_robot_handle *handle, int *day, int *hour, int *min, int *sec);
/* Software versions; also sets the handle's model and force type. */
KA_API int ka_get_arm_software_info(ka_robot_handle *handle, ka_arm_software_version_t *info);
KA_API int ka_set_arm_power(ka_robot_handle *handle, int arm_power);
KA_API int ka_clear_system_runtime(ka_robot_handle *handle);
KA_API int ka_clear_joint_odom(ka_robot_handle *handle);
KA_API int ka_clear_system_err(ka_robot_handle *handle);

/* =================================================================
 * Controller network configuration
 *
 * The Wi-Fi, USB and RS485 settings change the link itself: they are sent,
 * never answered, and return 0 about 800 ms later (-1 when not sent).
 * ================================================================= */

KA_API int ka_set_NetIP(ka_robot_handle *handle, const char *ip); /* waits 2 s */
KA_API int ka_set_wifi_ap(ka_robot_handle *handle, const char *wifi_name, const char *password);
KA_API int ka_set_wifi_sta(ka_robot_handle *handle, const char *router_name, const char *password);
KA_API int ka_set_usb(ka_robot_handle *handle, int baudrate);
KA_API int ka_set_RS485(ka_robot_handle *handle, int baudrate);
/* ip and mask: room for 16 characters, mac for 18. */
KA_API int ka_get_wired_net(ka_robot_handle *handle, char *ip, char *mask, char *mac);
KA_API int ka_get_wifi_net(ka_robot_handle *handle, ka_wifi_net_t *wifi_net);
KA_API int ka_set_net_default(ka_robot_handle *handle); /* waits 4 s */
KA_API int ka_set_wifi_close(ka_robot_handle *handle);  /* waits 2 s */

/* =================================================================
 * Controller and tool I/O (unscaled integers)
 * ================================================================= */

KA_API int ka_set_IO_mode(ka_robot_handle *handle, int io_num, int io_mode);
KA_API int ka_set_DO_state(ka_robot_handle *handle, int io_num, int state);
KA_API int ka_get_IO_state(ka_robot_handle *handle, int io_num, int *state, int *mode);
KA_API int ka_get_IO_input(ka_robot_handle *handle, int *DI);  /* int[4] */
KA_API int ka_get_IO_output(ka_robot_handle *handle, int *DO); /* int[4] */
KA_API int ka_set_voltage(ka_robot_handle *handle, int voltage_type);
KA_API int ka_get_voltage(ka_robot_handle *handle, int *voltage_type);
KA_API int ka_set_tool_DO_state(ka_robot_handle *handle, int io_num, int state);
KA_API int ka_set_tool_IO_mode(ka_robot_handle *handle, int io_num, int io_mode);
KA_API int ka_get_tool_IO_state(ka_robot_handle *handle, int *mode, int *state); /* int[2] each */
KA_API int ka_set_tool_voltage(ka_robot_handle *handle, int voltage_type);
KA_API int ka_get_tool_voltage(ka_robot_handle *handle, int *voltage_type);
/* modbus_timeout is 0 when the port is not in Modbus-RTU mode. */
KA_API int ka_get_controller_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate,
                                        int *modbus_timeout);
KA_API int ka_get_tool_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate,
                                  int *modbus_timeout);

/* =================================================================
 * End effectors: gripper and dexterous hand
 *
 * timeout in seconds. Gripper actions with block false and timeout 0 are
 * sent and return 0 a second later; otherwise the accepting reply is read,
 * and with block the end of the action is awaited:
 *   gripper release        no report -4, report from another device -4;
 *   gripper pick, pick on,
 *   position               no report -4, another device -5;
 *   hand posture, sequence no report -5, another device -4.
 * A report with "trajectory_state" false gives 1.
 * ================================================================= */

KA_API int ka_set_gripper_route(ka_robot_handle *handle, int min_route, int max_route);
KA_API int ka_set_gripper_release(ka_robot_handle *handle, int speed, bool block, int timeout);
KA_API int ka_set_gripper_pick(ka_robot_handle *handle, int speed, int force, bool block,
                               int timeout);
KA_API int ka_set_gripper_pick_on(ka_robot_handle *handle, int speed, int force, bool block,
                                  int timeout);
KA_API int ka_set_gripper_position(ka_robot_handle *handle, int position, bool block, int timeout);
KA_API int ka_get_gripper_state(ka_robot_handle *handle, ka_gripper_state_t *state);
KA_API int ka_set_hand_posture(ka_robot_handle *handle, int posture_num, bool block, int timeout);
KA_API int ka_set_hand_seq(ka_robot_handle *handle, int seq_num, bool block, int timeout);
KA_API int ka_set_hand_angle(ka_robot_handle *handle, const int *hand_angle); /* int[6] */
/* Streams finger targets: sent, then a 1 s pause; never answered. */
KA_API int ka_set_hand_follow_angle(ka_robot_handle *handle, const int *hand_angle);
KA_API int ka_set_hand_speed(ka_robot_handle *handle, int speed);
KA_API int ka_set_hand_force(ka_robot_handle *handle, int hand_force);

/* =================================================================
 * Force sensing, drag teaching and force-position control
 *
 * Forces are sent in newtons x 10 and read in thousandths.
 * ================================================================= */

KA_API int ka_get_force_data(ka_robot_handle *handle, ka_force_data_t *data);
KA_API int ka_clear_force_data(ka_robot_handle *handle);
KA_API int ka_set_force_sensor(ka_robot_handle *handle, bool block);
/* Six-axis calibration from four postures, type 1..4 in turn (others -1);
 * only type 4 with block waits (30 s) for the result. */
KA_API int ka_manual_set_force(ka_robot_handle *handle, int type, float *joint, bool block);
KA_API int ka_stop_set_force_sensor(ka_robot_handle *handle);
/* Answered on arms with the six-axis sensor ("-6F") only: -2 on others. */
KA_API int ka_get_Fz(ka_robot_handle *handle, ka_fz_data_t *data);
KA_API int ka_clear_Fz(ka_robot_handle *handle);
KA_API int ka_auto_set_Fz(ka_robot_handle *handle, bool block);
KA_API int ka_manual_set_Fz(ka_robot_handle *handle, float *joint1, float *joint2, bool block);

KA_API int ka_start_drag_teach(ka_robot_handle *handle, int trajectory_record);
KA_API int ka_stop_drag_teach(ka_robot_handle *handle);
KA_API int ka_start_multi_drag_teach(ka_robot_handle *handle, int mode, int singular_wall);
KA_API int ka_start_multi_drag_teach_new(ka_robot_handle *handle,
                                         const ka_multi_drag_teach_t *param);
KA_API int ka_set_drag_teach_sensitivity(ka_robot_handle *handle, int grade);
KA_API int ka_get_drag_teach_sensitivity(ka_robot_handle *handle, int *grade);
/* Moves to the recorded trajectory's first point; block waits for the end
 * of the motion as the planned motions do. */
KA_API int ka_drag_trajectory_origin(ka_robot_handle *handle, int block);
/* Replays the recorded trajectory; timeout in seconds, 0 only sends. */
KA_API int ka_run_drag_trajectory(ka_robot_handle *handle, int timeout);
KA_API int ka_pause_drag_trajectory(ka_robot_handle *handle);
KA_API int ka_continue_drag_trajectory(ka_robot_handle *handle);
KA_API int ka_stop_drag_trajectory(ka_robot_handle *handle);

/* N is truncated to whole newtons before the x 10 scaling. */
KA_API int ka_set_force_position(ka_robot_handle *handle, int sensor, int mode, int direction,
                                 float N);
KA_API int ka_set_force_position_new(ka_robot_handle *handle, const ka_force_position_t *param);
KA_API int ka_stop_force_position(ka_robot_handle *handle);
KA_API int ka_start_force_position_move(ka_robot_handle *handle);
KA_API int ka_stop_force_position_move(ka_robot_handle *handle);
/* Force-position passthrough: sent, never answered. */
KA_API int ka_force_position_move_joint(ka_robot_handle *handle, const float *joint, int sensor,
                                        int mode, int dir, float force, bool follow);
KA_API int ka_force_position_move_pose(ka_robot_handle *handle, ka_pose_t pose, int sensor,
                                       int mode, int dir, float force, bool follow);
KA_API int ka_force_position_move(ka_robot_handle *handle, ka_force_position_move_t param);

/* =================================================================
 * Modbus RTU and TCP peripherals through the controller
 *
 * Register data travel as two integers per register, coil data as one
 * integer per group of 8 coils.
 * ================================================================= */

KA_API int ka_set_modbus_mode(ka_robot_handle *handle, int port, int baudrate, int timeout);
KA_API int ka_close_modbus_mode(ka_robot_handle *handle, int port);
KA_API int ka_set_modbustcp_mode(ka_robot_handle *handle, const char *ip, int port, int timeout);
KA_API int ka_close_modbustcp_mode(ka_robot_handle *handle);
KA_API int ka_read_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                         int *data);
KA_API int ka_read_input_status(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                int *data);
KA_API int ka_read_holding_registers(ka_robot_handle *handle,
                                     ka_peripheral_read_write_params_t params, int *data);
KA_API int ka_read_input_registers(ka_robot_handle *handle,
                                   ka_peripheral_read_write_params_t params, int *data);
KA_API int ka_write_single_coil(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                int data);
KA_API int ka_write_single_register(ka_robot_handle *handle,
                                    ka_peripheral_read_write_params_t params, int data);
/* data: num x 2 integers. */
KA_API int ka_write_registers(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                              int *data);
/* data: num / 8 integers (rounded down). */
KA_API int ka_write_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                          int *data);
/* Reads num / 8 groups rounded up and writes num / 8 rounded down: fewer
 * than 8 coils leave data untouched. */
KA_API int ka_read_multiple_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                  int *data);
/* data: num x 2 integers. */
KA_API int ka_read_multiple_holding_registers(ka_robot_handle *handle,
                                              ka_peripheral_read_write_params_t params, int *data);
KA_API int ka_read_multiple_input_registers(ka_robot_handle *handle,
                                            ka_peripheral_read_write_params_t params, int *data);

/* =================================================================
 * Lift and expansion axes
 *
 * block non-zero waits for the axis to finish: 0 done, 1 ended false, -3
 * unparsable report, -4 report from another device.
 * ================================================================= */

KA_API int ka_set_lift_speed(ka_robot_handle *handle, int speed);
KA_API int ka_set_lift_height(ka_robot_handle *handle, int speed, int height, int block);
KA_API int ka_get_lift_state(ka_robot_handle *handle, ka_expand_state_t *state);
KA_API int ka_set_expand_speed(ka_robot_handle *handle, int speed);
KA_API int ka_set_expand_pos(ka_robot_handle *handle, int speed, int pos, int block);
KA_API int ka_get_expand_state(ka_robot_handle *handle, ka_expand_state_t *state);

/* =================================================================
 * Online programming: projects and stored trajectories
 * ================================================================= */

KA_API int ka_run_project(ka_robot_handle *handle, ka_send_project_t *project, int file_size);
/* Downloads the file at project->project_path (first project_path_len
 * characters) and rewrites the path with the name sent. -4 a converted
 * file's path without "/", -5 the file cannot be read; *errline -1, or the
 * controller's first faulty line. */
KA_API int ka_send_project(ka_robot_handle *handle, ka_send_project_t *project, int *errline);
KA_API int ka_send_project_lock(ka_robot_handle *handle, const char *text, int len, int *errline);
KA_API int ka_set_plan_speed(ka_robot_handle *handle, int speed);
/* vague_search NULL lists everything; at most KA_PROGRAM_LIST_CAPACITY
 * records are written. */
KA_API int ka_get_program_trajectory_list(ka_robot_handle *handle, int page_num, int page_size,
                                          const char *vague_search, ka_program_trajectorys_t *list);
KA_API int ka_get_program_run_state(ka_robot_handle *handle, ka_program_run_state_t *state);
KA_API int ka_delete_program_trajectory(ka_robot_handle *handle, int id);
KA_API int ka_update_program_trajectory(ka_robot_handle *handle, int id, int plan_speed,
                                        const char *project_name);
KA_API int ka_set_default_run_program(ka_robot_handle *handle, int id);
KA_API int ka_get_default_run_program(ka_robot_handle *handle, int *id);
/* Starts stored program id; timeout non-zero waits for it to finish (-4
 * when no finish report for id arrives). speed 0 keeps the stored speed. */
KA_API int ka_set_program_id_run(ka_robot_handle *handle, int id, int speed, int timeout);
/* Saves the drag-taught trajectory into the file at path (one point line
 * per text line). -4 the file cannot be created, -6 no points arrived. */
KA_API int ka_save_trajectory(ka_robot_handle *handle, const char *path, int *num);

/* Lines of a text file (a line longer than 1023 characters counts more
 * than once); -1 when it cannot be read. */
KA_API int countLinesInFile(const char *path);
/* Writes the project header for the arm, then source's lines, to target.
 * 0, or -1 when nothing could be written. */
KA_API int add_lines_to_file(ka_robot_handle *handle, const char *source, const char *target);

/* =================================================================
 * Global waypoints
 * ================================================================= */

/* add and update overwrite waypoint->time with the current local time. */
KA_API int ka_add_global_waypoint(ka_robot_handle *handle, ka_waypoint_t *waypoint);
KA_API int ka_update_global_waypoint(ka_robot_handle *handle, ka_waypoint_t *waypoint);
KA_API int ka_delete_global_waypoint(ka_robot_handle *handle, const char *point_name);
KA_API int ka_get_given_global_waypoint(ka_robot_handle *handle, const char *point_name,
                                        ka_waypoint_t *waypoint);
/* At most KA_WAYPOINT_LIST_CAPACITY points are written. */
KA_API int ka_get_global_waypoints_list(ka_robot_handle *handle, int page_num, int page_size,
                                        const char *vague_search, ka_waypoint_list_t *list);

/* =================================================================
 * Safety configuration
 *
 * Geometry in metres, sent in millimetres (truncated). A cube is sent with
 * its x_min_limit under "z_min_limit" as well, as the controller expects.
 * ================================================================= */

KA_API int ka_add_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
KA_API int ka_update_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
KA_API int ka_delete_electronic_fence_config(ka_robot_handle *handle, const char *form_name);
/* names: room for KA_FENCE_LIST_CAPACITY entries; *len the listed count. */
KA_API int ka_get_electronic_fence_list_names(ka_robot_handle *handle, ka_fence_names_t *names,
                                              int *len);
KA_API int ka_get_given_electronic_fence_config(ka_robot_handle *handle, const char *form_name,
                                                ka_fence_config_t *config);
/* list: room for KA_FENCE_LIST_CAPACITY entries. */
KA_API int ka_get_electronic_fence_list_infos(ka_robot_handle *handle, ka_fence_config_list_t *list,
                                              int *len);
KA_API int ka_set_electronic_fence_enable(ka_robot_handle *handle,
                                          ka_electronic_fence_enable_t state);
KA_API int ka_get_electronic_fence_enable(ka_robot_handle *handle,
                                          ka_electronic_fence_enable_t *state);
/* Cube or plane. */
KA_API int ka_set_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
KA_API int ka_get_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t *config);
KA_API int ka_set_virtual_wall_enable(ka_robot_handle *handle, ka_electronic_fence_enable_t state);
KA_API int ka_get_virtual_wall_enable(ka_robot_handle *handle, ka_electronic_fence_enable_t *state);
/* Cube or sphere. */
KA_API int ka_set_virtual_wall_config(ka_robot_handle *handle, ka_fence_config_t config);
KA_API int ka_get_virtual_wall_config(ka_robot_handle *handle, ka_fence_config_t *config);
KA_API int ka_set_self_collision_enable(ka_robot_handle *handle, bool enable);
KA_API int ka_get_self_collision_enable(ka_robot_handle *handle, bool *enable);
KA_API int ka_set_arm_run_mode(ka_robot_handle *handle, int mode);
KA_API int ka_get_arm_run_mode(ka_robot_handle *handle, int *mode);

/* Install angles of the arm base, whole degrees (fractions are dropped on
 * the way out). Setting re-reads them. */
KA_API int ka_set_install_pose(ka_robot_handle *handle, float x, float y, float z);
KA_API int ka_get_install_pose(ka_robot_handle *handle, float *x, float *y, float *z);
/* version: DOF integers. */
KA_API int ka_get_joint_software_version(ka_robot_handle *handle, int *version);
KA_API int ka_get_tool_software_version(ka_robot_handle *handle, int *version);

#ifdef __cplusplus
}
#endif

#include "ka_algo.h"

#endif /* KA_API_H */
