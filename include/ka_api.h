/**
 * @file
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
 * Each function's comment names the codes particular to it.
 *
 * Blocking calls (block or timeout arguments) depend on the thread mode set
 * with ka_init: in mode 0 they read the arm's connection themselves and take
 * block as a number of seconds; in modes 1 and 2 they wait for reports filed
 * by the receive thread.
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
/* 10003 for 1.0.3; compare with ka_api_version_number() at run time. */
#define KA_API_VERSION_NUMBER                                                                      \
    (KA_API_VERSION_MAJOR * 10000 + KA_API_VERSION_MINOR * 100 + KA_API_VERSION_PATCH)
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
 * Array sizes of the public records below. They are part of those records'
 * layout, and so of the binary interface between the library and its
 * callers: changing one changes the size and field offsets of every record
 * that embeds it, so they are not tunables and must not be redefined by a
 * caller. Every copy the library makes into these records is bounded by
 * them. */
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
 *
 * Every command takes the handle returned by ka_create_robot_arm and gives
 * KA_ERR_LOCAL for a handle that is not registered (failed, deleted or
 * never created). Joint numbers (joint_num) count from 1 to the arm's DOF.
 * ================================================================= */

/**
 * Starts the library in a thread mode (ka_thread_mode_e): 0 starts no
 * thread and every reply is read on the calling thread; 1 starts the TCP
 * receive thread; 2 also the UDP receive thread of the realtime push. Any
 * other value starts nothing, so every command then times out. Calling it
 * again stops the previous threads first. Returns KA_OK, or KA_ERR_LOCAL
 * when a thread could not be started. Without a call the library starts in
 * mode 2 when the first arm is created. The mode decides what the block
 * argument of the motion commands means.
 */
KA_API int ka_init(int mode);

/** The library version as text, KA_API_VERSION_STRING ("1.0.3"). */
KA_API const char *ka_api_version(void);

/**
 * The library version as one number, KA_API_VERSION_NUMBER (major * 10000 +
 * minor * 100 + patch, 10003 for "1.0.3"), for comparisons at run time.
 */
KA_API int ka_api_version_number(void);

/**
 * Opens the arm whose controller listens at ip (dotted IPv4, at most 20
 * characters) and TCP port (1..65535), then reads its model, frames, install
 * pose and joint limits and loads them into the kinematics. Returns the
 * arm's handle; handle->id is -1 when the connection or the initial
 * information query failed (the slot stays taken until ka_delete_robot_arm
 * or ka_destory). NULL only when all KA_MAX_ARMS slots are taken.
 */
KA_API ka_robot_handle *ka_create_robot_arm(const char *ip, int port);

/**
 * Closes one arm and frees its slot. KA_OK, or KA_ERR_LOCAL when the handle
 * is not registered. The handle stays readable (id 0) until ka_destory.
 */
KA_API int ka_delete_robot_arm(ka_robot_handle *handle);

/**
 * Closes every arm and stops the library's threads; handles become invalid.
 * A later ka_init starts the library again. Always KA_OK.
 */
KA_API int ka_destory(void);

/**
 * Copies the arm's DOF, model and force type into *info. KA_OK;
 * KA_ERR_LOCAL for an unregistered handle; KA_ERR_TIMEOUT while the DOF is
 * not yet known (0).
 */
KA_API int ka_get_robot_info(ka_robot_handle *handle, ka_robot_info_t *info);

/**
 * Registers the callback for trajectory-finished and program-finished
 * events of every arm (see ka_event_push_data_t). It runs on the TCP
 * receive thread (thread modes 1 and 2 only) and must return quickly. NULL
 * keeps the previous callback.
 */
KA_API void ka_get_arm_event_call_back(ka_event_callback_t callback);

/* =================================================================
 * Logging
 * ================================================================= */

/**
 * Sets the log sink and the threshold level: 0 writes everything (debug),
 * 1 information and above, 2 warnings and above, 3 (default) errors only,
 * 4 or more nothing. The sink receives a printf-style format and its
 * argument list, possibly from several library threads at once. NULL
 * restores the standard-error sink.
 */
KA_API void ka_set_log_call_back(ka_log_callback_t callback, int level);

/**
 * Appends all further log lines, time-stamped, to the file at path and sets
 * the threshold to 0 (everything). The file starts with a
 * "[time] Begin API Testing." line. Returns KA_OK, or KA_ERR_LOCAL (logged)
 * when the file cannot be opened.
 */
KA_API int ka_set_log_save(const char *path);

/* =================================================================
 * Realtime state push (UDP)
 * ================================================================= */

/**
 * Registers the callback for pushed arm state (one call per received
 * datagram, on the UDP receive thread of thread mode 2; errCode -3 marks a
 * datagram that did not parse). NULL keeps the previous callback.
 */
KA_API void ka_realtime_arm_state_call_back(ka_realtime_callback_t callback);

/**
 * Configures the controller's state push; see ka_realtime_push_config_t for
 * the fields that are sent and when. cycle counts controller cycles; ip and
 * port name the receiving host. Waits up to 700 ms. KA_OK, KA_REFUSED, or
 * an exchange code.
 */
KA_API int ka_set_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t config);

/**
 * Reads the push configuration into *config; custom flags read -1 when the
 * controller does not report them, force_coordinate is read only on arms
 * with a force sensor. Also remembers the port for ka_sync_robot_info.
 */
KA_API int ka_get_realtime_push(ka_robot_handle *handle, ka_realtime_push_config_t *config);

/* =================================================================
 * Point-to-point and path motion
 *
 * v: speed, a percentage 1..100 of the arm's maximum, sent as given. r:
 * blend radius, an integer the controller interprets (0 stops at the
 * target); ka_movec sends it times 1000, the others as given.
 * trajectory_connect: 0 runs the motion alone or ends a chain, 1 connects it
 * to the next motion so they are planned together (a connected motion never
 * waits, whatever block says).
 *
 * block 0 returns once the controller accepted the motion (KA_OK) or
 * refused it (KA_REFUSED). Otherwise: in thread mode 0 block is a time-out in
 * seconds (KA_ERR_FAMILY_5 when it runs out); in modes 1 and 2 the call
 * returns when the motion, or the chain of connected motions, has finished,
 * with no overall time-out. Returns KA_OK done, KA_REFUSED refused or ended
 * with a failure report, KA_ERR_PARSE unparsable report, KA_ERR_OUTCOME the
 * chain ended on another device, or an exchange code.
 * ================================================================= */

/**
 * Joint-space move to joint (float[7], degrees, DOF entries used; sent in
 * millidegrees, truncated). KA_ERR_LOCAL when the DOF is not 6 or 7.
 */
KA_API int ka_movej(ka_robot_handle *handle, const float *joint, int v, int r,
                    int trajectory_connect, int block);

/**
 * Straight-line move of the tool to pose (position in metres, Euler angles
 * in radians, in the current work frame; the quaternion is not sent).
 */
KA_API int ka_movel(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                    int block);

/**
 * Spline move through pose; consecutive calls with trajectory_connect 1 and
 * a last one with 0 give one smooth curve. Pose as for ka_movel.
 */
KA_API int ka_moves(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                    int block);

/**
 * Circular arc through pose_via to pose_to (poses as for ka_movel). r is
 * sent times 1000, unlike the other motions; loop is the number of full
 * circles, passed through. KA_ERR_FAMILY_6 for a trajectory_connect above
 * 1, before anything is sent.
 */
KA_API int ka_movec(ka_robot_handle *handle, ka_pose_t pose_via, ka_pose_t pose_to, int v, int r,
                    int loop, int trajectory_connect, int block);

/**
 * Joint-space move to a Cartesian target pose (as for ka_movel); the
 * controller solves the joints. The threaded wait follows the running
 * trajectory by query rather than by the completion report.
 */
KA_API int ka_movej_p(ka_robot_handle *handle, ka_pose_t pose, int v, int r, int trajectory_connect,
                      int block);

/**
 * The running trajectory's kind into *type and its current data into data
 * (float[7]): joint angles in degrees (DOF entries) for none, movej and
 * replay; x, y, z (m) and rx, ry, rz (rad) for movel, movec and moves.
 * KA_ERR_LOCAL also for a reply without "type" or "data" or an unknown
 * kind.
 */
KA_API int ka_get_arm_current_trajectory(ka_robot_handle *handle, ka_arm_current_trajectory_e *type,
                                         float *data);

/* =================================================================
 * Passthrough and follow motion: sent, never answered, for streaming at a
 * steady rate chosen by the caller. KA_OK sent, KA_ERR_LOCAL not. A pose
 * whose quaternion has a squared norm inside (0.99, 1.1) is sent with the
 * quaternion, otherwise with the Euler angles.
 * ================================================================= */

/**
 * Passes joint (float[7], degrees, DOF entries) straight to the drives.
 * follow selects the controller's following mode; expand is the expansion
 * axis position sent with it (times 1000, sent even without an axis).
 */
KA_API int ka_movej_canfd(ka_robot_handle *handle, const float *joint, bool follow, float expand);

/** Passes a tool pose (metres, radians or quaternion) straight to the controller. */
KA_API int ka_movep_canfd(ka_robot_handle *handle, ka_pose_t pose, bool follow);

/** Streams a joint target (float[7], degrees) that the controller follows smoothed. */
KA_API int ka_movej_follow(ka_robot_handle *handle, const float *joint);

/** Streams a tool pose target that the controller follows smoothed. */
KA_API int ka_movep_follow(ka_robot_handle *handle, ka_pose_t pose);

/* =================================================================
 * Jogging, teaching and motion control
 *
 * v is a speed percentage 1..100. Steps take block as the motions do,
 * except that block 0 sends and pauses 500 ms without reading an answer
 * (KA_OK when sent). An axis type outside 0..2 gives KA_ERR_LOCAL before
 * anything is sent.
 * ================================================================= */

/** Moves joint joint_num (from 1) by step degrees (sent in millidegrees). */
KA_API int ka_set_joint_step(ka_robot_handle *handle, int joint_num, float step, int v, int block);

/** Moves the tool by step metres along axis type of the teach frame. */
KA_API int ka_set_pos_step(ka_robot_handle *handle, ka_pos_teach_type_e type, float step, int v,
                           int block);

/** Turns the tool by step radians about axis type of the teach frame. */
KA_API int ka_set_ort_step(ka_robot_handle *handle, ka_ort_teach_type_e type, float step, int v,
                           int block);

/**
 * Moves joint joint_num (from 1) continuously until ka_set_stop_teach;
 * direction non-zero positive, 0 negative.
 */
KA_API int ka_set_joint_teach(ka_robot_handle *handle, int joint_num, int direction, int v);

/** Moves the tool continuously along axis type until ka_set_stop_teach. */
KA_API int ka_set_pos_teach(ka_robot_handle *handle, ka_pos_teach_type_e type, int direction,
                            int v);

/** Turns the tool continuously about axis type until ka_set_stop_teach. */
KA_API int ka_set_ort_teach(ka_robot_handle *handle, ka_ort_teach_type_e type, int direction,
                            int v);

/** Ends continuous teaching. */
KA_API int ka_set_stop_teach(ka_robot_handle *handle);

/** Selects the frame of Cartesian steps and teaching (controller's numbering). */
KA_API int ka_set_teach_frame(ka_robot_handle *handle, int frame_type);

/**
 * Reads the teach frame into *frame_type; a reply without the key returns a
 * positive value and leaves *frame_type unwritten.
 */
KA_API int ka_get_teach_frame(ka_robot_handle *handle, int *frame_type);

/** Stops the arm along its planned path (slow stop). */
KA_API int ka_set_arm_slow_stop(ka_robot_handle *handle);

/** Stops the arm at once. */
KA_API int ka_set_arm_stop(ka_robot_handle *handle);

/** Pauses the running trajectory; ka_set_arm_continue resumes it. */
KA_API int ka_set_arm_pause(ka_robot_handle *handle);

/** Resumes a paused trajectory. */
KA_API int ka_set_arm_continue(ka_robot_handle *handle);

/** Discards the current trajectory (the arm should be paused or stopped). */
KA_API int ka_set_delete_current_trajectory(ka_robot_handle *handle);

/** Discards every queued trajectory. */
KA_API int ka_set_arm_delete_trajectory(ka_robot_handle *handle);

/* =================================================================
 * Joint and arm limits: degrees, degrees/s, degrees/s^2, m/s, m/s^2,
 * rad/s, rad/s^2. Joint speeds and accelerations travel in thousandths of
 * rpm (value / 6 x 1000, truncated). Joint arrays are float[7] (or
 * uint8_t[7]); DOF entries are written. joint_num counts from 1.
 * Setting a controller limit re-reads it into the handle's cache and returns
 * that read's code.
 * ================================================================= */

/** Sets joint joint_num's maximum speed, degrees per second. */
KA_API int ka_set_joint_max_speed(ka_robot_handle *handle, int joint_num, float speed);
/** Sets joint joint_num's maximum acceleration, degrees per second squared. */
KA_API int ka_set_joint_max_acc(ka_robot_handle *handle, int joint_num, float acc);
/** Sets joint joint_num's lower position limit, degrees. */
KA_API int ka_set_joint_min_pos(ka_robot_handle *handle, int joint_num, float pos);
/** Sets joint joint_num's upper position limit, degrees. */
KA_API int ka_set_joint_max_pos(ka_robot_handle *handle, int joint_num, float pos);
/** Reads every joint's maximum speed (degrees/s) into speed and the cache. */
KA_API int ka_get_joint_max_speed(ka_robot_handle *handle, float *speed);
/** Reads every joint's maximum acceleration (degrees/s^2) into acc and the cache. */
KA_API int ka_get_joint_max_acc(ka_robot_handle *handle, float *acc);
/** Reads every joint's lower position limit (degrees) into pos and the cache. */
KA_API int ka_get_joint_min_pos(ka_robot_handle *handle, float *pos);
/** Reads every joint's upper position limit (degrees) into pos and the cache. */
KA_API int ka_get_joint_max_pos(ka_robot_handle *handle, float *pos);

/** Sets the maximum speed held in joint joint_num's drive, degrees/s. */
KA_API int ka_set_joint_drive_max_speed(ka_robot_handle *handle, int joint_num, float speed);
/**
 * Sets the maximum acceleration held in joint joint_num's drive. Sent as
 * acc x 1000 without the division by 6, while ka_get_joint_drive_max_acc
 * reads with x 6 / 1000: a value set reads back six times larger.
 */
KA_API int ka_set_joint_drive_max_acc(ka_robot_handle *handle, int joint_num, float acc);
/** Sets the lower position limit held in joint joint_num's drive, degrees. */
KA_API int ka_set_joint_drive_min_pos(ka_robot_handle *handle, int joint_num, float pos);
/** Sets the upper position limit held in joint joint_num's drive, degrees. */
KA_API int ka_set_joint_drive_max_pos(ka_robot_handle *handle, int joint_num, float pos);
/** Reads the drives' maximum speeds, degrees/s (the cache is not touched). */
KA_API int ka_get_joint_drive_max_speed(ka_robot_handle *handle, float *speed);
/** Reads the drives' maximum accelerations, degrees/s^2 (see the setter). */
KA_API int ka_get_joint_drive_max_acc(ka_robot_handle *handle, float *acc);
/** Reads the drives' lower position limits, degrees. */
KA_API int ka_get_joint_drive_min_pos(ka_robot_handle *handle, float *pos);
/** Reads the drives' upper position limits, degrees. */
KA_API int ka_get_joint_drive_max_pos(ka_robot_handle *handle, float *pos);
/**
 * Switches the joint limits to the controller's limit_mode (passed through);
 * on success re-reads the position limits and returns that read's code.
 */
KA_API int ka_auto_set_joint_limit(ka_robot_handle *handle, int limit_mode);

/** Enables (en_state 1) or disables (0) joint joint_num. */
KA_API int ka_set_joint_en_state(ka_robot_handle *handle, int joint_num, int en_state);
/** Reads the joints' enable flags (uint8_t[7], 1 enabled). */
KA_API int ka_get_joint_en_state(ka_robot_handle *handle, uint8_t *en_state);
/** Makes joint joint_num's current position its zero. */
KA_API int ka_set_joint_zero_pos(ka_robot_handle *handle, int joint_num);
/** Clears joint joint_num's error. */
KA_API int ka_set_joint_clear_err(ka_robot_handle *handle, int joint_num);

/** Sets the maximum linear speed of the tool, m/s. */
KA_API int ka_set_arm_max_line_speed(ka_robot_handle *handle, float speed);
/** Sets the maximum linear acceleration of the tool, m/s^2. */
KA_API int ka_set_arm_max_line_acc(ka_robot_handle *handle, float acc);
/** Sets the maximum angular speed of the tool, rad/s. */
KA_API int ka_set_arm_max_angular_speed(ka_robot_handle *handle, float speed);
/** Sets the maximum angular acceleration of the tool, rad/s^2. */
KA_API int ka_set_arm_max_angular_acc(ka_robot_handle *handle, float acc);
/**
 * Reads the maximum linear speed, m/s; a reply without the key returns a
 * positive value and leaves *speed unwritten (so do the three reads below).
 */
KA_API int ka_get_arm_max_line_speed(ka_robot_handle *handle, float *speed);
/** Reads the maximum linear acceleration, m/s^2. */
KA_API int ka_get_arm_max_line_acc(ka_robot_handle *handle, float *acc);
/** Reads the maximum angular speed, rad/s. */
KA_API int ka_get_arm_max_angular_speed(ka_robot_handle *handle, float *speed);
/** Reads the maximum angular acceleration, rad/s^2. */
KA_API int ka_get_arm_max_angular_acc(ka_robot_handle *handle, float *acc);
/** Restores the controller's default TCP (Cartesian) speed and acceleration limits. */
KA_API int ka_set_arm_tcp_init(ka_robot_handle *handle);
/** Sets the collision detection stage (controller's numbering, passed through). */
KA_API int ka_set_collision_state(ka_robot_handle *handle, int stage);
/**
 * Reads the collision detection stage; a reply without the key returns a
 * positive value and leaves *stage unwritten.
 */
KA_API int ka_get_collision_stage(ka_robot_handle *handle, int *stage);

/** Sets the arm's initial (home) joint position, float[7] degrees. */
KA_API int ka_set_init_pose(ka_robot_handle *handle, const float *joint);
/** Reads the initial (home) joint position, float[7] degrees. */
KA_API int ka_get_init_pose(ka_robot_handle *handle, float *joint);

/* =================================================================
 * Tool and work frames
 *
 * Frame poses in metres and radians (the quaternion is neither sent nor
 * read), payload in kg, centre of mass in metres. Names up to
 * KA_NAME_SIZE - 1 characters (10 for tool frames as read back).
 * ================================================================= */

/**
 * Records the current flange position as calibration point point_num of an
 * automatic tool frame (controller's numbering).
 */
KA_API int ka_set_auto_tool_frame(ka_robot_handle *handle, int point_num);
/**
 * Computes the automatic tool frame from the recorded points and stores it
 * as tool_name with payload (kg) and centre of mass x, y, z (metres).
 */
KA_API int ka_generate_auto_tool_frame(ka_robot_handle *handle, const char *tool_name,
                                       float payload, float x, float y, float z);
/** Creates tool frame frame.frame_name; KA_REFUSED also when the name exists. */
KA_API int ka_set_manual_tool_frame(ka_robot_handle *handle, ka_frame_t frame);
/** Changes the stored tool frame frame.frame_name. */
KA_API int ka_update_tool_frame(ka_robot_handle *handle, ka_frame_t frame);
/** Stores the collision envelope (list.size spheres, metres) of tool list.tool_name. */
KA_API int ka_set_tool_envelope(ka_robot_handle *handle, ka_envelope_balls_list_t list);
/**
 * Reads tool tool_name's collision envelope into *list (at most
 * KA_ENVELOPE_BALLS spheres). KA_REFUSED when the tool frame is unknown.
 */
KA_API int ka_get_tool_envelope(ka_robot_handle *handle, const char *tool_name,
                                ka_envelope_balls_list_t *list);
/**
 * Records the current tool position as calibration point point_num of
 * automatic work frame frame_name.
 */
KA_API int ka_set_auto_work_frame(ka_robot_handle *handle, const char *frame_name, int point_num);
/** Creates work frame frame_name at pose (base frame, metres and radians). */
KA_API int ka_set_manual_work_frame(ka_robot_handle *handle, const char *frame_name,
                                    ka_pose_t pose);
/** Changes the stored work frame frame_name to pose. */
KA_API int ka_update_work_frame(ka_robot_handle *handle, const char *frame_name, ka_pose_t pose);

/**
 * Tool frame names into list (room for KA_FRAME_LIST_CAPACITY entries);
 * *count is written only when at least one name was listed.
 * KA_ERR_TIMEOUT for an unparsable list.
 */
KA_API int ka_get_total_tool_frame(ka_robot_handle *handle, ka_frame_name_t *list, int *count);
/** Work frame names into list; as ka_get_total_tool_frame. */
KA_API int ka_get_total_work_frame(ka_robot_handle *handle, ka_frame_name_t *list, int *count);
/**
 * Reads stored tool frame tool_name into *frame (name, pose, payload, centre
 * of mass); an unknown name gives KA_ERR_TIMEOUT.
 */
KA_API int ka_get_given_tool_frame(ka_robot_handle *handle, const char *tool_name,
                                   ka_frame_t *frame);
/** Reads stored work frame frame_name's pose; KA_REFUSED for an unknown name. */
KA_API int ka_get_given_work_frame(ka_robot_handle *handle, const char *frame_name,
                                   ka_pose_t *pose);

/**
 * Reads the current tool frame into *frame; also refreshes the handle's copy
 * and the kinematics' tool frame.
 */
KA_API int ka_get_current_tool_frame(ka_robot_handle *handle, ka_frame_t *frame);
/**
 * Reads the current work frame (name and pose) into *frame; also refreshes
 * the handle's copy and the kinematics' work frame.
 */
KA_API int ka_get_current_work_frame(ka_robot_handle *handle, ka_frame_t *frame);
/** Selects tool frame tool_name, then re-reads the current one (its code). */
KA_API int ka_change_tool_frame(ka_robot_handle *handle, const char *tool_name);
/** Deletes tool frame tool_name, then re-reads the current one (its code). */
KA_API int ka_delete_tool_frame(ka_robot_handle *handle, const char *tool_name);
/** Selects work frame frame_name, then re-reads the current one (its code). */
KA_API int ka_change_work_frame(ka_robot_handle *handle, const char *frame_name);
/** Deletes work frame frame_name, then re-reads the current one (its code). */
KA_API int ka_delete_work_frame(ka_robot_handle *handle, const char *frame_name);

/* =================================================================
 * Arm and controller state queries
 *
 * Joint arrays are float[7]; DOF entries are written. Currents, voltages and
 * temperatures are the controller's integers / 1000.
 * ================================================================= */

/** Reads the joint angles, degrees. */
KA_API int ka_get_joint_degree(ka_robot_handle *handle, float *joint);
/** Reads the joint angles, the tool pose (metres, radians) and the error words. */
KA_API int ka_get_current_arm_state(ka_robot_handle *handle, ka_current_arm_state_t *state);
/** Reads every joint's current, enable flag, temperature, voltage and error code. */
KA_API int ka_get_arm_all_state(ka_robot_handle *handle, ka_arm_all_state_t *state);
/** Reads the joint temperatures. */
KA_API int ka_get_current_joint_temperature(ka_robot_handle *handle, float *temperature);
/** Reads the joint currents. */
KA_API int ka_get_current_joint_current(ka_robot_handle *handle, float *current);
/** Reads the joint voltages. */
KA_API int ka_get_current_joint_voltage(ka_robot_handle *handle, float *voltage);
/** Reads the joints' travelled distance (odometer), degrees. */
KA_API int ka_get_joint_odom(ka_robot_handle *handle, float *odom);
/** Reads each joint's error flags and brake state (uint16_t[7] each). */
KA_API int ka_get_joint_err_flag(ka_robot_handle *handle, uint16_t *err_flag,
                                 uint16_t *brake_state);
/** Reads the controller's voltage, current, temperature and error flag. */
KA_API int ka_get_controller_state(ka_robot_handle *handle, float *voltage, float *current,
                                   float *temperature, int *err_flag);
/** Reads whether the arm is powered (1) or not (0). */
KA_API int ka_get_arm_power_state(ka_robot_handle *handle, int *power_state);
/** Reads the controller's accumulated running time. */
KA_API int ka_get_system_runtime(ka_robot_handle *handle, int *day, int *hour, int *min, int *sec);
/**
 * Reads the software versions into *info; also detects and stores the
 * handle's model, DOF and force type (KA_ERR_LOCAL for an unknown product).
 */
KA_API int ka_get_arm_software_info(ka_robot_handle *handle, ka_arm_software_version_t *info);
/** Powers the arm on (arm_power 1) or off (0). */
KA_API int ka_set_arm_power(ka_robot_handle *handle, int arm_power);
/** Resets the accumulated running time. */
KA_API int ka_clear_system_runtime(ka_robot_handle *handle);
/** Resets the joint odometers. */
KA_API int ka_clear_joint_odom(ka_robot_handle *handle);
/** Clears the system error. */
KA_API int ka_clear_system_err(ka_robot_handle *handle);

/* =================================================================
 * Controller network configuration
 *
 * The Wi-Fi, USB and RS485 settings change the link itself: they are sent,
 * never answered, and return KA_OK about 800 ms later (KA_ERR_LOCAL when
 * not sent).
 * ================================================================= */

/** Sets the controller's wired IP address (dotted IPv4); waits 2 s. */
KA_API int ka_set_NetIP(ka_robot_handle *handle, const char *ip);
/** Makes the controller a Wi-Fi access point named wifi_name. */
KA_API int ka_set_wifi_ap(ka_robot_handle *handle, const char *wifi_name, const char *password);
/** Joins the controller to the Wi-Fi network router_name. */
KA_API int ka_set_wifi_sta(ka_robot_handle *handle, const char *router_name, const char *password);
/** Sets the controller's USB serial baud rate. */
KA_API int ka_set_usb(ka_robot_handle *handle, int baudrate);
/** Sets the controller's RS485 baud rate. */
KA_API int ka_set_RS485(ka_robot_handle *handle, int baudrate);
/** Reads the wired address; ip and mask need room for 16 characters, mac for 18. */
KA_API int ka_get_wired_net(ka_robot_handle *handle, char *ip, char *mask, char *mac);
/** Reads the Wi-Fi settings into *wifi_net. */
KA_API int ka_get_wifi_net(ka_robot_handle *handle, ka_wifi_net_t *wifi_net);
/** Restores the network defaults; waits 4 s. */
KA_API int ka_set_net_default(ka_robot_handle *handle);
/** Switches Wi-Fi off; waits 2 s. */
KA_API int ka_set_wifi_close(ka_robot_handle *handle);

/* =================================================================
 * Controller and tool I/O (unscaled integers; io_num counts from 1)
 * ================================================================= */

/** Sets controller I/O port io_num's mode (controller's numbering). */
KA_API int ka_set_IO_mode(ka_robot_handle *handle, int io_num, int io_mode);
/** Sets controller digital output io_num to state (1 high, 0 low). */
KA_API int ka_set_DO_state(ka_robot_handle *handle, int io_num, int state);
/** Reads controller I/O port io_num's state and mode. */
KA_API int ka_get_IO_state(ka_robot_handle *handle, int io_num, int *state, int *mode);
/** Reads the controller's digital inputs (int[4]). */
KA_API int ka_get_IO_input(ka_robot_handle *handle, int *DI);
/** Reads the controller's digital outputs (int[4]). */
KA_API int ka_get_IO_output(ka_robot_handle *handle, int *DO);
/** Sets the controller's supply voltage type (controller's numbering). */
KA_API int ka_set_voltage(ka_robot_handle *handle, int voltage_type);
/** Reads the controller's supply voltage type. */
KA_API int ka_get_voltage(ka_robot_handle *handle, int *voltage_type);
/** Sets tool digital output io_num to state. */
KA_API int ka_set_tool_DO_state(ka_robot_handle *handle, int io_num, int state);
/** Sets tool I/O port io_num's mode. */
KA_API int ka_set_tool_IO_mode(ka_robot_handle *handle, int io_num, int io_mode);
/** Reads the tool I/O modes and states (int[2] each). */
KA_API int ka_get_tool_IO_state(ka_robot_handle *handle, int *mode, int *state);
/** Sets the tool's supply voltage type. */
KA_API int ka_set_tool_voltage(ka_robot_handle *handle, int voltage_type);
/** Reads the tool's supply voltage type. */
KA_API int ka_get_tool_voltage(ka_robot_handle *handle, int *voltage_type);
/**
 * Reads the controller RS485 port's mode and baud rate; modbus_timeout is 0
 * when the port is not in Modbus-RTU mode.
 */
KA_API int ka_get_controller_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate,
                                        int *modbus_timeout);
/** Reads the tool RS485 port's mode, baud rate and Modbus time-out. */
KA_API int ka_get_tool_RS485_mode(ka_robot_handle *handle, int *mode, int *baudrate,
                                  int *modbus_timeout);

/* =================================================================
 * End effectors: gripper and dexterous hand
 *
 * Speeds, forces, positions and numbers are the controller's, passed
 * through. timeout in seconds. Gripper actions with block false and timeout
 * 0 are sent and return KA_OK a second later; otherwise the accepting reply
 * is read, and with block the end of the action is awaited:
 *   gripper release        no report -4, report from another device -4;
 *   gripper pick, pick on,
 *   position               no report -4, another device -5;
 *   hand posture, sequence no report -5, another device -4.
 * A report with "trajectory_state" false gives KA_REFUSED.
 * ================================================================= */

/** Sets the gripper's opening range, min_route..max_route. */
KA_API int ka_set_gripper_route(ka_robot_handle *handle, int min_route, int max_route);
/** Opens the gripper at speed. */
KA_API int ka_set_gripper_release(ka_robot_handle *handle, int speed, bool block, int timeout);
/** Closes the gripper at speed until force is reached. */
KA_API int ka_set_gripper_pick(ka_robot_handle *handle, int speed, int force, bool block,
                               int timeout);
/** Closes the gripper and keeps holding with force (continuous pick). */
KA_API int ka_set_gripper_pick_on(ka_robot_handle *handle, int speed, int force, bool block,
                                  int timeout);
/** Moves the gripper to position. */
KA_API int ka_set_gripper_position(ka_robot_handle *handle, int position, bool block, int timeout);
/** Reads the gripper's state. */
KA_API int ka_get_gripper_state(ka_robot_handle *handle, ka_gripper_state_t *state);
/** Runs stored hand posture posture_num. */
KA_API int ka_set_hand_posture(ka_robot_handle *handle, int posture_num, bool block, int timeout);
/** Runs stored hand sequence seq_num. */
KA_API int ka_set_hand_seq(ka_robot_handle *handle, int seq_num, bool block, int timeout);
/** Sets the six finger angles (int[6], controller's units). */
KA_API int ka_set_hand_angle(ka_robot_handle *handle, const int *hand_angle);
/** Streams finger targets (int[6]): sent, then a 1000 ms pause; never answered. */
KA_API int ka_set_hand_follow_angle(ka_robot_handle *handle, const int *hand_angle);
/** Sets the hand's speed. */
KA_API int ka_set_hand_speed(ka_robot_handle *handle, int speed);
/** Sets the hand's force threshold. */
KA_API int ka_set_hand_force(ka_robot_handle *handle, int hand_force);

/* =================================================================
 * Force sensing, drag teaching and force-position control
 *
 * Forces are sent in newtons x 10 and read in thousandths of the
 * controller's unit. Joint arrays are float[7] degrees, DOF entries used.
 * ================================================================= */

/** Reads the six-axis force data: raw, zeroed, in the work frame and in the tool frame. */
KA_API int ka_get_force_data(ka_robot_handle *handle, ka_force_data_t *data);
/** Zeroes the six-axis force sensor. */
KA_API int ka_clear_force_data(ka_robot_handle *handle);
/**
 * Starts the automatic six-axis sensor calibration; block waits up to 30 s
 * for its result, otherwise it only sends.
 */
KA_API int ka_set_force_sensor(ka_robot_handle *handle, bool block);
/**
 * Six-axis calibration from four postures: type 1..4 in turn, each with the
 * posture's joint angles (others KA_ERR_LOCAL). Types 1..3 only send; type
 * 4 with block waits up to 30 s for the result.
 */
KA_API int ka_manual_set_force(ka_robot_handle *handle, int type, float *joint, bool block);
/** Stops a running sensor calibration. */
KA_API int ka_stop_set_force_sensor(ka_robot_handle *handle);
/**
 * Reads the one-axis (Z) force data. Answered on arms with the six-axis
 * sensor ("-6F") only: KA_ERR_TIMEOUT on others.
 */
KA_API int ka_get_Fz(ka_robot_handle *handle, ka_fz_data_t *data);
/** Zeroes the one-axis force sensor. */
KA_API int ka_clear_Fz(ka_robot_handle *handle);
/** Starts the automatic one-axis calibration; block waits up to 30 s for its result. */
KA_API int ka_auto_set_Fz(ka_robot_handle *handle, bool block);
/** One-axis calibration from two postures (float[7] degrees each). */
KA_API int ka_manual_set_Fz(ka_robot_handle *handle, float *joint1, float *joint2, bool block);

/** Starts drag teaching; trajectory_record 1 records the dragged trajectory. */
KA_API int ka_start_drag_teach(ka_robot_handle *handle, int trajectory_record);
/** Ends drag teaching. */
KA_API int ka_stop_drag_teach(ka_robot_handle *handle);
/** Starts force-sensor drag teaching in mode, with singular_wall on (1) or off (0). */
KA_API int ka_start_multi_drag_teach(ka_robot_handle *handle, int mode, int singular_wall);
/** Starts force-sensor drag teaching with free axes, frame and singular wall from param. */
KA_API int ka_start_multi_drag_teach_new(ka_robot_handle *handle,
                                         const ka_multi_drag_teach_t *param);
/** Sets the drag sensitivity grade (controller's scale, passed through). */
KA_API int ka_set_drag_teach_sensitivity(ka_robot_handle *handle, int grade);
/** Reads the drag sensitivity grade. */
KA_API int ka_get_drag_teach_sensitivity(ka_robot_handle *handle, int *grade);
/**
 * Moves to the recorded trajectory's first point; block waits for the end
 * of the motion as the planned motions do.
 */
KA_API int ka_drag_trajectory_origin(ka_robot_handle *handle, int block);
/**
 * Replays the recorded trajectory. timeout in seconds: 0 only sends;
 * otherwise waits that long, then until the replay has ended.
 */
KA_API int ka_run_drag_trajectory(ka_robot_handle *handle, int timeout);
/** Pauses the replay. */
KA_API int ka_pause_drag_trajectory(ka_robot_handle *handle);
/** Resumes the replay. */
KA_API int ka_continue_drag_trajectory(ka_robot_handle *handle);
/** Stops the replay. */
KA_API int ka_stop_drag_trajectory(ka_robot_handle *handle);

/**
 * Starts force-position control with sensor, mode and direction, force N
 * newtons (truncated to whole newtons before the x 10 scaling).
 */
KA_API int ka_set_force_position(ka_robot_handle *handle, int sensor, int mode, int direction,
                                 float N);
/** Starts force-position control per axis from param (forces in newtons). */
KA_API int ka_set_force_position_new(ka_robot_handle *handle, const ka_force_position_t *param);
/** Ends force-position control. */
KA_API int ka_stop_force_position(ka_robot_handle *handle);
/** Enters force-position passthrough, for the ka_force_position_move* calls. */
KA_API int ka_start_force_position_move(ka_robot_handle *handle);
/** Leaves force-position passthrough. */
KA_API int ka_stop_force_position_move(ka_robot_handle *handle);
/**
 * Force-position passthrough to joint (float[7] degrees): sent, never
 * answered; KA_OK when sent. force in newtons.
 */
KA_API int ka_force_position_move_joint(ka_robot_handle *handle, const float *joint, int sensor,
                                        int mode, int dir, float force, bool follow);
/** Force-position passthrough to a tool pose; as ka_force_position_move_joint. */
KA_API int ka_force_position_move_pose(ka_robot_handle *handle, ka_pose_t pose, int sensor,
                                       int mode, int dir, float force, bool follow);
/**
 * Force-position passthrough to param's pose (flag 1) or joints (flag 0),
 * per-axis; KA_ERR_LOCAL for joints when the DOF is not 6 or 7.
 */
KA_API int ka_force_position_move(ka_robot_handle *handle, ka_force_position_move_t param);

/* =================================================================
 * Modbus RTU and TCP peripherals through the controller
 *
 * params: port (controller's numbering), address of the first coil or
 * register, device (slave id) and num (how many). Register data travel as
 * two integers per register, coil data as one integer per group of 8 coils.
 * ================================================================= */

/**
 * Puts RS485 port into Modbus-RTU master mode; port, baudrate and the
 * timeout unit are the controller's, passed through. Waits up to 1000 ms.
 */
KA_API int ka_set_modbus_mode(ka_robot_handle *handle, int port, int baudrate, int timeout);
/** Takes port out of Modbus-RTU mode. */
KA_API int ka_close_modbus_mode(ka_robot_handle *handle, int port);
/** Connects the controller to the Modbus-TCP server at ip:port (timeout passed through). */
KA_API int ka_set_modbustcp_mode(ka_robot_handle *handle, const char *ip, int port, int timeout);
/** Closes the Modbus-TCP connection. */
KA_API int ka_close_modbustcp_mode(ka_robot_handle *handle);
/** Reads one coil into *data. */
KA_API int ka_read_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                         int *data);
/** Reads one discrete input into *data. */
KA_API int ka_read_input_status(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                int *data);
/** Reads one holding register into *data. */
KA_API int ka_read_holding_registers(ka_robot_handle *handle,
                                     ka_peripheral_read_write_params_t params, int *data);
/** Reads one input register into *data. */
KA_API int ka_read_input_registers(ka_robot_handle *handle,
                                   ka_peripheral_read_write_params_t params, int *data);
/** Writes one coil. */
KA_API int ka_write_single_coil(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                int data);
/** Writes one holding register. */
KA_API int ka_write_single_register(ka_robot_handle *handle,
                                    ka_peripheral_read_write_params_t params, int data);
/** Writes num registers; data holds num x 2 integers. */
KA_API int ka_write_registers(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                              int *data);
/** Writes num coils; data holds num / 8 integers (rounded down). */
KA_API int ka_write_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                          int *data);
/**
 * Reads num coils: receives num / 8 groups rounded up and writes num / 8
 * rounded down, so fewer than 8 coils leave data untouched.
 */
KA_API int ka_read_multiple_coils(ka_robot_handle *handle, ka_peripheral_read_write_params_t params,
                                  int *data);
/** Reads num holding registers; data receives num x 2 integers. */
KA_API int ka_read_multiple_holding_registers(ka_robot_handle *handle,
                                              ka_peripheral_read_write_params_t params, int *data);
/** Reads num input registers; data receives num x 2 integers. */
KA_API int ka_read_multiple_input_registers(ka_robot_handle *handle,
                                            ka_peripheral_read_write_params_t params, int *data);

/* =================================================================
 * Lift and expansion axes (speeds, heights and positions in the
 * controller's units, unscaled)
 *
 * block non-zero waits for the axis to finish: KA_OK done, KA_REFUSED ended
 * false, KA_ERR_PARSE unparsable report, KA_ERR_OUTCOME report from another
 * device.
 * ================================================================= */

/** Moves the lift at speed (controller's units, passed through). */
KA_API int ka_set_lift_speed(ka_robot_handle *handle, int speed);
/** Moves the lift to height at speed. */
KA_API int ka_set_lift_height(ka_robot_handle *handle, int speed, int height, int block);
/** Reads the lift's position, current, error flag and moving flag. */
KA_API int ka_get_lift_state(ka_robot_handle *handle, ka_expand_state_t *state);
/** Moves the expansion axis at speed (controller's units, passed through). */
KA_API int ka_set_expand_speed(ka_robot_handle *handle, int speed);
/** Moves the expansion axis to pos at speed. */
KA_API int ka_set_expand_pos(ka_robot_handle *handle, int speed, int pos, int block);
/** Reads the expansion axis' state. */
KA_API int ka_get_expand_state(ka_robot_handle *handle, ka_expand_state_t *state);

/* =================================================================
 * Online programming: projects and stored trajectories
 * ================================================================= */

/**
 * Announces a project of file_size bytes to the controller (the text itself
 * is sent by ka_send_project_lock).
 */
KA_API int ka_run_project(ka_robot_handle *handle, ka_send_project_t *project, int file_size);
/**
 * Downloads the file at project->project_path (first project_path_len
 * characters) and rewrites the path with the name sent. plan_speed is a
 * percentage; only_save 1 stores without running. KA_ERR_OUTCOME a
 * converted file's path without "/", KA_ERR_FAMILY_5 the file cannot be
 * read; *errline -1, or the controller's first faulty line.
 */
KA_API int ka_send_project(ka_robot_handle *handle, ka_send_project_t *project, int *errline);
/**
 * Sends len bytes of project text and waits for the download verdict;
 * *errline as for ka_send_project.
 */
KA_API int ka_send_project_lock(ka_robot_handle *handle, const char *text, int len, int *errline);
/** Sets the running program's speed, percentage 1..100. */
KA_API int ka_set_plan_speed(ka_robot_handle *handle, int speed);
/**
 * Lists stored programs, page page_num of page_size entries; vague_search
 * NULL lists everything. At most KA_PROGRAM_LIST_CAPACITY records are
 * written.
 */
KA_API int ka_get_program_trajectory_list(ka_robot_handle *handle, int page_num, int page_size,
                                          const char *vague_search, ka_program_trajectorys_t *list);
/** Reads the program run state into *state. */
KA_API int ka_get_program_run_state(ka_robot_handle *handle, ka_program_run_state_t *state);
/** Deletes stored program id. */
KA_API int ka_delete_program_trajectory(ka_robot_handle *handle, int id);
/** Changes stored program id's speed (percentage) and name. */
KA_API int ka_update_program_trajectory(ka_robot_handle *handle, int id, int plan_speed,
                                        const char *project_name);
/** Makes stored program id the one the controller runs by default. */
KA_API int ka_set_default_run_program(ka_robot_handle *handle, int id);
/** Reads the default program's id. */
KA_API int ka_get_default_run_program(ka_robot_handle *handle, int *id);
/**
 * Starts stored program id at speed (percentage; 0 keeps the stored speed).
 * timeout in seconds, non-zero waits for the program to finish
 * (KA_ERR_OUTCOME when no finish report for id arrives).
 */
KA_API int ka_set_program_id_run(ka_robot_handle *handle, int id, int speed, int timeout);
/**
 * Saves the drag-taught trajectory into the file at path (one point line
 * per text line) and the point count into *num. KA_ERR_OUTCOME the file
 * cannot be created, KA_ERR_FAMILY_6 no points arrived.
 */
KA_API int ka_save_trajectory(ka_robot_handle *handle, const char *path, int *num);

/* =================================================================
 * Global waypoints (joints float[7] degrees, pose metres and radians)
 * ================================================================= */

/** Stores a new waypoint; overwrites waypoint->time with the current local time. */
KA_API int ka_add_global_waypoint(ka_robot_handle *handle, ka_waypoint_t *waypoint);
/** Changes waypoint->point_name; overwrites waypoint->time with the current local time. */
KA_API int ka_update_global_waypoint(ka_robot_handle *handle, ka_waypoint_t *waypoint);
/** Deletes waypoint point_name. */
KA_API int ka_delete_global_waypoint(ka_robot_handle *handle, const char *point_name);
/** Reads waypoint point_name into *waypoint. */
KA_API int ka_get_given_global_waypoint(ka_robot_handle *handle, const char *point_name,
                                        ka_waypoint_t *waypoint);
/**
 * Lists waypoints, page page_num of page_size; vague_search NULL lists
 * everything. At most KA_WAYPOINT_LIST_CAPACITY points are written.
 */
KA_API int ka_get_global_waypoints_list(ka_robot_handle *handle, int page_num, int page_size,
                                        const char *vague_search, ka_waypoint_list_t *list);

/* =================================================================
 * Safety configuration
 *
 * Geometry in metres, sent in millimetres (truncated). A cube is sent with
 * its x_min_limit under "z_min_limit" as well, as the controller expects.
 * ================================================================= */

/** Stores a new electronic fence (cube, plane or sphere) named config.form_name. */
KA_API int ka_add_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
/** Changes the stored fence config.form_name. */
KA_API int ka_update_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
/** Deletes the stored fence form_name. */
KA_API int ka_delete_electronic_fence_config(ka_robot_handle *handle, const char *form_name);
/** Fence names into names (room for KA_FENCE_LIST_CAPACITY); *len the listed count. */
KA_API int ka_get_electronic_fence_list_names(ka_robot_handle *handle, ka_fence_names_t *names,
                                              int *len);
/** Reads the stored fence form_name into *config. */
KA_API int ka_get_given_electronic_fence_config(ka_robot_handle *handle, const char *form_name,
                                                ka_fence_config_t *config);
/** Every stored fence into list (room for KA_FENCE_LIST_CAPACITY); *len the count. */
KA_API int ka_get_electronic_fence_list_infos(ka_robot_handle *handle, ka_fence_config_list_t *list,
                                              int *len);
/** Switches the active electronic fence on or off, inside or outside, and its region. */
KA_API int ka_set_electronic_fence_enable(ka_robot_handle *handle,
                                          ka_electronic_fence_enable_t state);
/** Reads the electronic fence switch. */
KA_API int ka_get_electronic_fence_enable(ka_robot_handle *handle,
                                          ka_electronic_fence_enable_t *state);
/** Sets the active electronic fence's geometry: a cube or a plane. */
KA_API int ka_set_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t config);
/** Reads the active electronic fence's geometry. */
KA_API int ka_get_electronic_fence_config(ka_robot_handle *handle, ka_fence_config_t *config);
/** Switches the virtual wall on or off. */
KA_API int ka_set_virtual_wall_enable(ka_robot_handle *handle, ka_electronic_fence_enable_t state);
/** Reads the virtual wall switch. */
KA_API int ka_get_virtual_wall_enable(ka_robot_handle *handle, ka_electronic_fence_enable_t *state);
/** Sets the virtual wall's geometry: a cube or a sphere. */
KA_API int ka_set_virtual_wall_config(ka_robot_handle *handle, ka_fence_config_t config);
/** Reads the virtual wall's geometry. */
KA_API int ka_get_virtual_wall_config(ka_robot_handle *handle, ka_fence_config_t *config);
/** Switches self-collision detection on or off. */
KA_API int ka_set_self_collision_enable(ka_robot_handle *handle, bool enable);
/** Reads the self-collision detection switch. */
KA_API int ka_get_self_collision_enable(ka_robot_handle *handle, bool *enable);
/** Sets the arm's run mode: any non-zero mode is sent as 1, 0 as 0. */
KA_API int ka_set_arm_run_mode(ka_robot_handle *handle, int mode);
/** Reads the arm's run mode. */
KA_API int ka_get_arm_run_mode(ka_robot_handle *handle, int *mode);

/**
 * Sets the install angles of the arm base about X, Y, Z, whole degrees
 * (fractions are dropped on the way out); then re-reads them (its code).
 */
KA_API int ka_set_install_pose(ka_robot_handle *handle, float x, float y, float z);
/** Reads the install angles, degrees; also refreshes the handle's copy. */
KA_API int ka_get_install_pose(ka_robot_handle *handle, float *x, float *y, float *z);
/** Reads each joint's software version (DOF integers). */
KA_API int ka_get_joint_software_version(ka_robot_handle *handle, int *version);
/** Reads the tool board's software version (one integer). */
KA_API int ka_get_tool_software_version(ka_robot_handle *handle, int *version);

#ifdef __cplusplus
}
#endif

#include "ka_algo.h"
#include "ka_compat.h"

#endif /* KA_API_H */
