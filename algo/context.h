// The process-wide kinematics context: active model and sensor variant, DH
// table, joint limits, tool/work/install frames, payload and tuning values.
//
// Units inside the context (libalgo_*): radians, rad/s, rad/s^2, metres, kg.
// The invoke_libalgo_* layer converts degrees per element with the double
// k_deg_to_rad and stores float.
//
// Locking. The context is one process-wide record guarded by one mutex,
// taken once at the exported edge: every exported function (ka_algo_*,
// libalgo_*, invoke_libalgo_*, algo_*) takes it for the duration of the call
// and then calls only functions that do not take it, so a thread that
// computes for one arm never sees the context of another arm half-loaded. A
// computation that loads the context from an arm and then computes does both
// inside one context_scope; the plain accessors below serve code that holds
// one. The mutex is not recursive: code under a scope never calls an
// exported function that takes it. The registry lock of the connection core
// is never taken while the context lock is held: an arm's parameters are
// copied out of the registry first (take_arm_snapshot) and loaded afterwards.
// So a function that takes an arm handle (or a context_scope built from a
// handle) must not be called while a context_scope is already held; the core,
// which holds the registry lock when it pushes frames in, would otherwise
// deadlock against it.
//
// Install matrix: I = Rz(angle_z) * Ry(angle_y) * Rx(angle_x), the same fixed-
// axis order as the Euler angles of a pose. It maps arm-base coordinates into
// the mounting (world) frame; gravity in the arm base is I^T * (0, 0, -9.81).
#pragma once

#include "algo/handover.h"
#include "algo/models.h"
#include "ka_api.h"

#include <mutex>

// Degrees to radians, applied in double precision and stored as float.
inline constexpr double k_deg_to_rad = 0.017453292519943295;
// Radians to degrees for the way out of the conversion layer.
inline constexpr double k_rad_to_deg = 57.29577951308232;

inline float deg_to_rad(float deg) { return static_cast<float>(deg * k_deg_to_rad); }
inline float rad_to_deg(float rad) { return static_cast<float>(rad / k_deg_to_rad); }

// ------------------------------------------------------------------ locking

std::mutex &algo_context_mutex();

// An arm's parameters copied out of the registry (under the registry's own
// lock) before the context lock is taken.
struct arm_snapshot {
    bool known = false; // false: null or unknown handle; loading it changes nothing
    algo_arm_params params{};
};

// Copies the parameters of a registered arm. An unknown non-null handle logs
// the warning "The robotic arm is not connected!"; a null handle is silent.
arm_snapshot take_arm_snapshot(const ka_robot_handle *handle);

// Model defaults first, then the arm's install angles, frames and limits.
// The caller holds the context lock. Does nothing for an unknown arm.
void load_arm_snapshot(const arm_snapshot &snapshot);

// Holds the context lock for its lifetime; with a handle, first loads the
// context from that arm (snapshot taken before locking). Use one scope around
// "load from handle, then compute".
class context_scope {
  public:
    context_scope() : lock_(algo_context_mutex()) {}
    // The arm's parameters are copied before the lock is taken. A null
    // handle computes on the context as it is, with nothing to copy.
    explicit context_scope(const ka_robot_handle *handle) {
        if (!handle) {
            lock_ = std::unique_lock<std::mutex>(algo_context_mutex());
            return;
        }
        const arm_snapshot snapshot = take_arm_snapshot(handle);
        lock_ = std::unique_lock<std::mutex>(algo_context_mutex());
        load_arm_snapshot(snapshot);
    }
    explicit context_scope(const arm_snapshot &snapshot) : lock_(algo_context_mutex()) {
        load_arm_snapshot(snapshot);
    }
    context_scope(const context_scope &) = delete;
    context_scope &operator=(const context_scope &) = delete;

  private:
    std::unique_lock<std::mutex> lock_;
};

// ------------------------------------------------- plain accessors (no lock)
// For code that already holds a context_scope: copies of what the kinematics
// reads, taken once before a computation.

struct kinematics_view {
    int robot_type;     // ka_robot_arm_model_e value, 9 for the second 7-axis type
    int sensor_type;    // ka_force_type_e value
    int dof;            // 6 or 7 (0 when no model is loaded)
    dh_table dh;        // current DH table (may differ from the defaults)
    float model_max[7]; // modelling joint limits of the model table, rad
    float model_min[7];
    float user_max[7]; // current (user / controller) joint limits, rad
    float user_min[7];
    float vel_max[7];         // rad/s
    float acc_max[7];         // rad/s^2
    float control_period;     // s
    ka_matrix_t tool;         // flange -> tool, 4x4
    ka_matrix_t work;         // base -> work frame pose (work frame in base), 4x4
    ka_matrix_t work_to_base; // inverse of work: maps base coordinates into the work frame
    ka_matrix_t install;      // arm base in the mounting frame, 4x4
};

kinematics_view context_kinematics();

int context_robot_type();
int context_dof();
const dh_table &context_dh();
const dh_table &context_dh_compensation();
// The tool frame with its payload, as ka_algo_get_curr_toolframe gives it.
ka_frame_t context_tool_frame();
// The current joint limits in degrees (the first DOF entries).
void context_joint_limits_deg(float max_deg[7], float min_deg[7]);
// The frames the forward transform is composed with.
const ka_matrix_t &context_install_matrix();
const ka_matrix_t &context_tool_matrix();
const ka_matrix_t &context_work_to_base_matrix();

// ------------------------------------------------------- exported layers
extern "C" {

// Loads KIVO with sensor 0. Returns the result of the model load.
KA_API int libalgo_init(void);
// Clears the whole context (no model loaded, DOF 0, identity frames).
KA_API void libalgo_clear(void);
// Clears the context and loads the defaults of a model and sensor variant.
// 0, or -1 (context left cleared) for type 2, a type above 9, or a sensor
// outside 0..2.
KA_API int libalgo_set_robot_and_sensor_type(int type, int sensor);
KA_API int libalgo_get_robot_type(void);
KA_API int libalgo_get_sensor_type(void);
KA_API int libalgo_get_rbt_dof(void);
KA_API void libalgo_set_system_all_dof(int dof);
KA_API int libalgo_get_system_all_dof(void);

// Whole DH table (metres, radians).
KA_API void libalgo_set_dh_params(const dh_table *dh);
KA_API void libalgo_get_dh_value(dh_table *dh);
KA_API void libalgo_set_dh_params_default(const dh_table *dh);
KA_API void libalgo_get_dh_params_default(dh_table *dh);
// 1 when the first DOF rows equal the defaults within 1e-10, else 0.
KA_API int libalgo_check_dh_params_is_default(void);
// Calibration offsets added to the DH table by forward_kinematics_pos_calibration.
KA_API void libalgo_set_dh_compensation_value(const dh_table *delta);
KA_API void libalgo_get_dh_compensation_value(dh_table *delta);

// Frames as x, y, z (metres), rx, ry, rz (radians); the matrices follow.
KA_API void libalgo_set_tool_cs_params(const float pose[6]);
KA_API void libalgo_get_tool_cs_params(float pose[6]);
KA_API ka_matrix_t libalgo_get_tool_cs_matrix(void);
KA_API void libalgo_set_work_cs_params(const float pose[6]);
KA_API void libalgo_get_work_cs_params(float pose[6]);
KA_API ka_matrix_t libalgo_get_work_cs_matrix(void);
// Maps base coordinates into the work frame (inverse of the work frame).
KA_API ka_matrix_t libalgo_get_work_cs_to_base_matrix(void);

// Payload mass (kg) and centre of mass (metres, tool frame).
KA_API void libalgo_set_payload_params(float mass, const float com[3]);
KA_API void libalgo_get_payload_params(float *mass, float com[3]);

// Install angles about X, Y, Z (radians); see the order above.
KA_API void libalgo_set_robot_install_angle(const float angle[3]);
KA_API void libalgo_get_robot_install_angle(float angle[3]);
KA_API ka_matrix_t libalgo_get_robot_install_angle_matrix(void);
// Gravity acceleration in the arm base frame, m/s^2.
KA_API void libalgo_get_robot_gravity_acc(float g[3]);

// Joint arrays: float[7], the first DOF entries are read or written.
KA_API void libalgo_set_jointlim_max(const float q[7]);
KA_API void libalgo_get_jointlim_max(float q[7]);
KA_API void libalgo_set_jointlim_min(const float q[7]);
KA_API void libalgo_get_jointlim_min(float q[7]);
// Limits of the model table, independent of the current (user) limits.
KA_API void libalgo_get_modeling_jointlim_max(float q[7]);
KA_API void libalgo_get_modeling_jointlim_min(float q[7]);
KA_API void libalgo_set_joint_vel_maxlim(const float v[7]);
KA_API void libalgo_get_joint_vel_maxlim(float v[7]);
KA_API void libalgo_set_joint_acc_maxlim(const float a[7]);
KA_API void libalgo_get_joint_acc_maxlim(float a[7]);
KA_API void libalgo_set_joint_direction(const float sign[7]);
KA_API void libalgo_get_joint_direction(float sign[7]);

// Link dynamics: per link Ixx, Ixy, Ixz, Iyy, Iyz, Izz, com x, y, z, mass.
KA_API void libalgo_set_link_dynamics_params(const float p[7][10]);
KA_API void libalgo_get_link_dynamics_params(float p[7][10]);
KA_API void libalgo_set_link_dynamics_params_default(const float p[7][10]);
KA_API void libalgo_get_link_dynamics_params_default(float p[7][10]);
// Identified dynamics (per link, same layout) replace the working set.
KA_API void libalgo_set_dynamics_identification_params(const float p[7][10]);
KA_API void libalgo_get_dynamics_params(float p[7][10]);
KA_API void libalgo_set_drag_regulation_factor(const float factor[7]);

KA_API void libalgo_set_control_loop_period(float seconds);
KA_API float libalgo_get_control_loop_period(void);
KA_API void libalgo_set_tcp_config(const float config[4]);
KA_API void libalgo_get_tcp_config(float config[4]);
// Per-joint tuning values.
KA_API void libalgo_set_joint_config(const float config[7]);
KA_API void libalgo_get_joint_config(float config[7]);
KA_API void libalgo_set_safety_level(int level);
KA_API int libalgo_get_safety_level(void);
KA_API void libalgo_set_user_collision_threshold(const float threshold[7]);
KA_API void libalgo_get_user_collision_threshold(float threshold[7]);
KA_API void libalgo_set_is_avoid_Singularity(int flag);
KA_API int libalgo_get_is_avoid_Singularity(void);
KA_API void libalgo_set_dynamics_model_type(int type);
KA_API int libalgo_get_dynamics_model_type(void);

// Measured joint state (rad, rad/s, N m) and the planner's joint command.
KA_API void libalgo_update_feedback_data(const float q[7], const float dq[7], const float tau[7]);
KA_API void libalgo_get_robot_feedback_data(float q[7], float dq[7], float tau[7]);
KA_API void libalgo_set_joint_cmd(const float q[7], const float dq[7], const float ddq[7]);
KA_API void libalgo_get_joint_cmd(float q[7], float dq[7], float ddq[7]);

// Degree layer over the above.
KA_API int invoke_libalgo_init(void);
KA_API void invoke_libalgo_set_jointlim_max(const float deg[7]);
KA_API void invoke_libalgo_get_jointlim_max(float deg[7]);
KA_API void invoke_libalgo_set_jointlim_min(const float deg[7]);
KA_API void invoke_libalgo_get_jointlim_min(float deg[7]);
KA_API void invoke_libalgo_get_modeling_jointlim_max(float deg[7]);
KA_API void invoke_libalgo_get_modeling_jointlim_min(float deg[7]);
KA_API void invoke_libalgo_set_joint_vel_maxlim(const float deg_s[7]);
KA_API void invoke_libalgo_get_joint_vel_maxlim(float deg_s[7]);
KA_API void invoke_libalgo_set_joint_acc_maxlim(const float deg_s2[7]);
KA_API void invoke_libalgo_get_joint_acc_maxlim(float deg_s2[7]);
KA_API void invoke_libalgo_set_robot_install_angle(const float deg[3]);
KA_API void invoke_libalgo_get_robot_install_angle(float deg[3]);

} // extern "C"
