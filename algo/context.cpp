#include "algo/context.h"

#include "algo/matrix.h"
#include "algo/pose_math.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace {

constexpr float k_default_control_period = 0.002f; // s
constexpr float k_gravity = 9.81f;                 // m/s^2

struct algo_context {
    dh_table dh;
    dh_table dh_default;
    dh_table dh_compensation;
    float joint_max[7]; // rad
    float joint_min[7];
    float vel_max[7]; // rad/s
    float acc_max[7]; // rad/s^2
    float joint_config[7];
    float collision_threshold[7];
    float drag_factor[7];
    int robot_type;
    int sensor_type;
    int16_t dof;
    int system_all_dof;
    float tool_pose[6]; // x, y, z (m), rx, ry, rz (rad)
    ka_matrix_t tool_matrix;
    float payload_mass; // kg
    float payload_com[3];
    float work_pose[6];
    ka_matrix_t work_matrix;  // work frame expressed in the base frame
    ka_matrix_t work_to_base; // base coordinates into the work frame
    float install_angle[3];   // rad about X, Y, Z
    ka_matrix_t install_matrix;
    float gravity[3];
    float control_period;
    float tcp_config[4];
    float direction[7];
    float dynamics[7][10];
    float dynamics_default[7][10];
    int avoid_singularity;
    int safety_level;
    int dynamics_model_type;
    float feedback_q[7], feedback_dq[7], feedback_tau[7];
    float cmd_q[7], cmd_dq[7], cmd_ddq[7];
    const model_params *model; // nullptr while no model is loaded
};

algo_context robot;

std::mutex context_mutex;

// Install angles of the exported layer, radians, double as received.
double angleU = 0.0;
double angleV = 0.0;
double angleH = 0.0;

using guard = std::lock_guard<std::mutex>;

// Number of joint entries a per-joint copy touches: the DOF, never more
// than the 7 of every joint array.
int joint_count() { return std::clamp<int>(robot.dof, 0, 7); }

void copy_in(float (&dst)[7], const float *src) {
    if (!src) return;
    for (int i = 0; i < joint_count(); ++i)
        dst[i] = src[i];
}

void copy_out(float *dst, const float (&src)[7]) {
    if (!dst) return;
    for (int i = 0; i < joint_count(); ++i)
        dst[i] = src[i];
}

void copy_in_deg(float (&dst)[7], const float *deg) {
    if (!deg) return;
    for (int i = 0; i < joint_count(); ++i)
        dst[i] = deg_to_rad(deg[i]);
}

void copy_out_deg(float *deg, const float (&src)[7]) {
    if (!deg) return;
    for (int i = 0; i < joint_count(); ++i)
        deg[i] = rad_to_deg(src[i]);
}

ka_matrix_t frame_matrix(const float pose[6]) {
    ka_pose_t p{};
    p.position = {pose[0], pose[1], pose[2]};
    p.euler = {pose[3], pose[4], pose[5]};
    return pose_euler_to_transformation_matrix(p);
}

void update_tool_matrix() { robot.tool_matrix = frame_matrix(robot.tool_pose); }

void update_work_matrices() {
    robot.work_matrix = frame_matrix(robot.work_pose);
    robot.work_to_base = matrix_inv_coordinate_system(robot.work_matrix);
}

void update_install() {
    ka_euler_t e{robot.install_angle[0], robot.install_angle[1], robot.install_angle[2]};
    ka_matrix_t r = euler_to_matrix(e);
    robot.install_matrix = unit_matrix(4);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            robot.install_matrix.data[i][j] = r.data[i][j];
    // Gravity (0, 0, -g) of the mounting frame seen from the arm base: I^T g.
    for (int i = 0; i < 3; ++i)
        robot.gravity[i] = -k_gravity * r.data[2][i];
}

void clear_context() {
    robot = algo_context{};
    robot.control_period = k_default_control_period;
    robot.gravity[2] = -k_gravity;
    robot.tool_matrix = unit_matrix(4);
    robot.work_matrix = unit_matrix(4);
    robot.work_to_base = unit_matrix(4);
    robot.install_matrix = unit_matrix(4);
}

// Defaults of a model; -1 (context left as is) when it has none.
int load_model_defaults(int type, int sensor) {
    if (sensor < 0 || sensor > 2) return -1;
    const model_params *m = model_params_for(type);
    if (!m) return -1;
    robot.model = m;
    robot.dof = static_cast<int16_t>(m->dof);
    robot.system_all_dof = m->dof;
    robot.dh = m->dh[sensor];
    robot.dh_default = robot.dh;
    for (int i = 0; i < 7; ++i) {
        robot.joint_max[i] = deg_to_rad(m->max_pos_deg[i]);
        robot.joint_min[i] = deg_to_rad(m->min_pos_deg[i]);
        robot.vel_max[i] = deg_to_rad(m->max_speed_deg[i]);
        robot.acc_max[i] = deg_to_rad(m->max_acc_deg[i]);
        robot.direction[i] = m->direction[i];
        for (int k = 0; k < 10; ++k)
            robot.dynamics[i][k] = m->dynamics[sensor][i].v[k];
    }
    std::memcpy(robot.dynamics_default, robot.dynamics, sizeof robot.dynamics);
    std::memcpy(robot.tcp_config, m->tcp_config, sizeof robot.tcp_config);
    return 0;
}

int clamp_model(int model) { return model >= 0 && model <= 8 ? model : 0; }
int clamp_force_type(int force_type) { return force_type >= 0 && force_type <= 2 ? force_type : 0; }

void set_frame_pose(float (&dst)[6], const ka_pose_t &pose) {
    dst[0] = pose.position.x;
    dst[1] = pose.position.y;
    dst[2] = pose.position.z;
    dst[3] = pose.euler.rx;
    dst[4] = pose.euler.ry;
    dst[5] = pose.euler.rz;
}

ka_pose_t frame_pose(const float (&src)[6]) {
    ka_pose_t pose{};
    pose.position = {src[0], src[1], src[2]};
    pose.euler = {src[3], src[4], src[5]};
    pose.quaternion = euler_to_quat(pose.euler);
    return pose;
}

void set_tool_frame(const ka_frame_t &frame) {
    set_frame_pose(robot.tool_pose, frame.pose);
    update_tool_matrix();
    robot.payload_mass = frame.payload;
    robot.payload_com[0] = frame.x;
    robot.payload_com[1] = frame.y;
    robot.payload_com[2] = frame.z;
}

void set_work_frame(const ka_frame_t &frame) {
    set_frame_pose(robot.work_pose, frame.pose);
    update_work_matrices();
}

void set_install_deg(const float deg[3]) {
    angleU = deg[0] * k_deg_to_rad;
    angleV = deg[1] * k_deg_to_rad;
    angleH = deg[2] * k_deg_to_rad;
    robot.install_angle[0] = static_cast<float>(angleU);
    robot.install_angle[1] = static_cast<float>(angleV);
    robot.install_angle[2] = static_cast<float>(angleH);
    update_install();
}

// The bodies below are shared by several exported functions; the caller
// holds the context lock.

int set_robot_and_sensor_type(int type, int sensor) {
    clear_context();
    robot.robot_type = type;
    robot.sensor_type = sensor;
    if (load_model_defaults(type, sensor) != 0) {
        clear_context();
        robot.robot_type = type;
        robot.sensor_type = sensor;
        return -1;
    }
    return 0;
}

void load_arm_params(const algo_arm_params &p) {
    set_robot_and_sensor_type(clamp_model(p.model), clamp_force_type(p.force_type));
    set_install_deg(p.install_deg);
    set_tool_frame(p.tool_frame);
    set_work_frame(p.work_frame);
    copy_in_deg(robot.joint_max, p.joint_max_pos);
    copy_in_deg(robot.joint_min, p.joint_min_pos);
    copy_in_deg(robot.acc_max, p.joint_max_acc);
    copy_in_deg(robot.vel_max, p.joint_max_speed);
}

// Limits of the model table in radians (the first DOF entries); nothing
// while no model is loaded.
void modeling_limits(float q[7], bool upper) {
    if (!q || !robot.model) return;
    const float *deg = upper ? robot.model->max_pos_deg : robot.model->min_pos_deg;
    for (int i = 0; i < joint_count(); ++i)
        q[i] = deg_to_rad(deg[i]);
}

void nothing() {}

// A record with float p[7][10] in its signature: one link's row.
using link_row = float[10];

} // namespace

// ------------------------------------------------------------- locking

std::mutex &algo_context_mutex() { return context_mutex; }

arm_snapshot take_arm_snapshot(const ka_robot_handle *handle) {
    arm_snapshot snapshot;
    if (!handle) return snapshot;
    if (!registry_algo_params(handle, &snapshot.params)) {
        ka_log_warn("The robotic arm is not connected!\n");
        return snapshot;
    }
    snapshot.known = true;
    return snapshot;
}

void load_arm_snapshot(const arm_snapshot &snapshot) {
    if (snapshot.known) load_arm_params(snapshot.params);
}

void algo_load_arm_params(const algo_arm_params &p) {
    guard lock(context_mutex);
    load_arm_params(p);
}

void algo_set_current_tool_frame(const ka_frame_t &frame) {
    guard lock(context_mutex);
    set_tool_frame(frame);
}

void algo_set_current_work_frame(const ka_frame_t &frame) {
    guard lock(context_mutex);
    set_work_frame(frame);
}

// ------------------------------------------------------ plain accessors

kinematics_view context_kinematics() {
    kinematics_view v{};
    v.robot_type = robot.robot_type;
    v.sensor_type = robot.sensor_type;
    v.dof = robot.dof;
    v.dh = robot.dh;
    for (int i = 0; i < 7; ++i) {
        v.model_max[i] = robot.model ? deg_to_rad(robot.model->max_pos_deg[i]) : 0.0f;
        v.model_min[i] = robot.model ? deg_to_rad(robot.model->min_pos_deg[i]) : 0.0f;
        v.user_max[i] = robot.joint_max[i];
        v.user_min[i] = robot.joint_min[i];
        v.vel_max[i] = robot.vel_max[i];
        v.acc_max[i] = robot.acc_max[i];
    }
    v.control_period = robot.control_period;
    v.tool = robot.tool_matrix;
    v.work = robot.work_matrix;
    v.work_to_base = robot.work_to_base;
    v.install = robot.install_matrix;
    return v;
}

int context_robot_type() { return robot.robot_type; }
int context_dof() { return robot.dof; }
const dh_table &context_dh() { return robot.dh; }
const dh_table &context_dh_compensation() { return robot.dh_compensation; }

ka_frame_t context_tool_frame() {
    ka_frame_t frame{};
    frame.pose = frame_pose(robot.tool_pose);
    frame.payload = robot.payload_mass;
    frame.x = robot.payload_com[0];
    frame.y = robot.payload_com[1];
    frame.z = robot.payload_com[2];
    return frame;
}

void context_joint_limits_deg(float max_deg[7], float min_deg[7]) {
    copy_out_deg(max_deg, robot.joint_max);
    copy_out_deg(min_deg, robot.joint_min);
}
const ka_matrix_t &context_install_matrix() { return robot.install_matrix; }
const ka_matrix_t &context_tool_matrix() { return robot.tool_matrix; }
const ka_matrix_t &context_work_to_base_matrix() { return robot.work_to_base; }

// ------------------------------------------------------- inner layer

// Every plain accessor of the context: one row per exported setter and
// getter pair (or lone getter), naming the field and how values cross. Each
// row expands to functions that take the context lock once and copy.
//  VALUE  (set, get, type, field)     a scalar
//  READ   (get, type, field)          a scalar or a matrix, read only
//  JOINTS (set, get, field, in, out)  float[7], the first DOF entries, as
//                                     stored (radians) or in degrees
//  ARRAY  (set, get, field, after)    a fixed float array, whole; `after`
//                                     runs once a set has stored it
//  RECORD (set, get, type, field)     a record copied whole
// A null pointer is ignored by every row.
#define KA_CONTEXT_FIELDS(VALUE, READ, JOINTS, ARRAY, RECORD)                                      \
    VALUE(libalgo_set_system_all_dof, libalgo_get_system_all_dof, int, system_all_dof)             \
    VALUE(libalgo_set_control_loop_period, libalgo_get_control_loop_period, float, control_period) \
    VALUE(libalgo_set_safety_level, libalgo_get_safety_level, int, safety_level)                   \
    VALUE(libalgo_set_is_avoid_Singularity, libalgo_get_is_avoid_Singularity, int,                 \
          avoid_singularity)                                                                       \
    VALUE(libalgo_set_dynamics_model_type, libalgo_get_dynamics_model_type, int,                   \
          dynamics_model_type)                                                                     \
    READ(libalgo_get_robot_type, int, robot_type)                                                  \
    READ(libalgo_get_sensor_type, int, sensor_type)                                                \
    READ(libalgo_get_rbt_dof, int, dof)                                                            \
    READ(libalgo_get_tool_cs_matrix, ka_matrix_t, tool_matrix)                                     \
    READ(libalgo_get_work_cs_matrix, ka_matrix_t, work_matrix)                                     \
    READ(libalgo_get_work_cs_to_base_matrix, ka_matrix_t, work_to_base)                            \
    READ(libalgo_get_robot_install_angle_matrix, ka_matrix_t, install_matrix)                      \
    JOINTS(libalgo_set_jointlim_max, libalgo_get_jointlim_max, joint_max, copy_in, copy_out)       \
    JOINTS(libalgo_set_jointlim_min, libalgo_get_jointlim_min, joint_min, copy_in, copy_out)       \
    JOINTS(libalgo_set_joint_vel_maxlim, libalgo_get_joint_vel_maxlim, vel_max, copy_in, copy_out) \
    JOINTS(libalgo_set_joint_acc_maxlim, libalgo_get_joint_acc_maxlim, acc_max, copy_in, copy_out) \
    JOINTS(libalgo_set_joint_direction, libalgo_get_joint_direction, direction, copy_in, copy_out) \
    JOINTS(libalgo_set_joint_config, libalgo_get_joint_config, joint_config, copy_in, copy_out)    \
    JOINTS(libalgo_set_user_collision_threshold, libalgo_get_user_collision_threshold,             \
           collision_threshold, copy_in, copy_out)                                                 \
    JOINTS(invoke_libalgo_set_jointlim_max, invoke_libalgo_get_jointlim_max, joint_max,            \
           copy_in_deg, copy_out_deg)                                                              \
    JOINTS(invoke_libalgo_set_jointlim_min, invoke_libalgo_get_jointlim_min, joint_min,            \
           copy_in_deg, copy_out_deg)                                                              \
    JOINTS(invoke_libalgo_set_joint_vel_maxlim, invoke_libalgo_get_joint_vel_maxlim, vel_max,      \
           copy_in_deg, copy_out_deg)                                                              \
    JOINTS(invoke_libalgo_set_joint_acc_maxlim, invoke_libalgo_get_joint_acc_maxlim, acc_max,      \
           copy_in_deg, copy_out_deg)                                                              \
    ARRAY(libalgo_set_tool_cs_params, libalgo_get_tool_cs_params, tool_pose, update_tool_matrix)   \
    ARRAY(libalgo_set_work_cs_params, libalgo_get_work_cs_params, work_pose, update_work_matrices) \
    ARRAY(libalgo_set_robot_install_angle, libalgo_get_robot_install_angle, install_angle,         \
          update_install)                                                                          \
    ARRAY(libalgo_set_tcp_config, libalgo_get_tcp_config, tcp_config, nothing)                     \
    RECORD(libalgo_set_dh_params, libalgo_get_dh_value, dh_table, dh)                              \
    RECORD(libalgo_set_dh_params_default, libalgo_get_dh_params_default, dh_table, dh_default)     \
    RECORD(libalgo_set_dh_compensation_value, libalgo_get_dh_compensation_value, dh_table,         \
           dh_compensation)                                                                        \
    RECORD(libalgo_set_link_dynamics_params, libalgo_get_link_dynamics_params, link_row, dynamics) \
    RECORD(libalgo_set_link_dynamics_params_default, libalgo_get_link_dynamics_params_default,     \
           link_row, dynamics_default)

#define KA_CONTEXT_VALUE(set, get, type, field)                                                    \
    void set(type v) {                                                                             \
        guard lock(context_mutex);                                                                 \
        robot.field = v;                                                                           \
    }                                                                                              \
    type get(void) {                                                                               \
        guard lock(context_mutex);                                                                 \
        return robot.field;                                                                        \
    }
#define KA_CONTEXT_READ(get, type, field)                                                          \
    type get(void) {                                                                               \
        guard lock(context_mutex);                                                                 \
        return robot.field;                                                                        \
    }
#define KA_CONTEXT_JOINTS(set, get, field, in, out)                                                \
    void set(const float v[7]) {                                                                   \
        guard lock(context_mutex);                                                                 \
        in(robot.field, v);                                                                        \
    }                                                                                              \
    void get(float v[7]) {                                                                         \
        guard lock(context_mutex);                                                                 \
        out(v, robot.field);                                                                       \
    }
#define KA_CONTEXT_ARRAY(set, get, field, after)                                                   \
    void set(const float *v) {                                                                     \
        guard lock(context_mutex);                                                                 \
        if (!v) return;                                                                            \
        std::copy(v, v + std::size(robot.field), robot.field);                                     \
        after();                                                                                   \
    }                                                                                              \
    void get(float *v) {                                                                           \
        guard lock(context_mutex);                                                                 \
        if (v) std::copy(std::begin(robot.field), std::end(robot.field), v);                       \
    }
#define KA_CONTEXT_RECORD(set, get, type, field)                                                   \
    void set(const type *v) {                                                                      \
        guard lock(context_mutex);                                                                 \
        if (v) std::memcpy(&robot.field, v, sizeof robot.field);                                   \
    }                                                                                              \
    void get(type *v) {                                                                            \
        guard lock(context_mutex);                                                                 \
        if (v) std::memcpy(v, &robot.field, sizeof robot.field);                                   \
    }

extern "C" {

KA_CONTEXT_FIELDS(KA_CONTEXT_VALUE, KA_CONTEXT_READ, KA_CONTEXT_JOINTS, KA_CONTEXT_ARRAY,
                  KA_CONTEXT_RECORD)

// The rest does more than copy a field, each as its comment says.

// Loads KIVO with sensor 0.
int libalgo_init(void) { return libalgo_set_robot_and_sensor_type(0, 0); }

void libalgo_clear(void) {
    guard lock(context_mutex);
    clear_context();
}

// Clears the context and loads a model's defaults.
int libalgo_set_robot_and_sensor_type(int type, int sensor) {
    guard lock(context_mutex);
    return set_robot_and_sensor_type(type, sensor);
}

// Compares the table with the defaults, entry by entry.
int libalgo_check_dh_params_is_default(void) {
    guard lock(context_mutex);
    auto differs = [](float x, float y) {
        return !(std::fabs(static_cast<double>(x) - static_cast<double>(y)) < 1e-10);
    };
    for (int i = 0; i < joint_count(); ++i) {
        if (differs(robot.dh.d[i], robot.dh_default.d[i]) ||
            differs(robot.dh.a[i], robot.dh_default.a[i]) ||
            differs(robot.dh.alpha[i], robot.dh_default.alpha[i]) ||
            differs(robot.dh.offset[i], robot.dh_default.offset[i]))
            return 0;
    }
    return 1;
}

// Two values in one call.
void libalgo_set_payload_params(float mass, const float com[3]) {
    guard lock(context_mutex);
    robot.payload_mass = mass;
    if (com) std::copy(com, com + 3, robot.payload_com);
}

void libalgo_get_payload_params(float *mass, float com[3]) {
    guard lock(context_mutex);
    if (mass) *mass = robot.payload_mass;
    if (com) std::copy(robot.payload_com, robot.payload_com + 3, com);
}

// Derived from the install angles when they are set.
void libalgo_get_robot_gravity_acc(float g[3]) {
    guard lock(context_mutex);
    if (g) std::copy(robot.gravity, robot.gravity + 3, g);
}

// From the model table, not the context's own limits.
void libalgo_get_modeling_jointlim_max(float q[7]) {
    guard lock(context_mutex);
    modeling_limits(q, true);
}

void libalgo_get_modeling_jointlim_min(float q[7]) {
    guard lock(context_mutex);
    modeling_limits(q, false);
}

void invoke_libalgo_get_modeling_jointlim_max(float deg[7]) {
    guard lock(context_mutex);
    float rad[7] = {};
    modeling_limits(rad, true);
    if (robot.model) copy_out_deg(deg, rad);
}

void invoke_libalgo_get_modeling_jointlim_min(float deg[7]) {
    guard lock(context_mutex);
    float rad[7] = {};
    modeling_limits(rad, false);
    if (robot.model) copy_out_deg(deg, rad);
}

// Aliases of the link dynamics.
void libalgo_set_dynamics_identification_params(const float p[7][10]) {
    libalgo_set_link_dynamics_params(p);
}

void libalgo_get_dynamics_params(float p[7][10]) { libalgo_get_link_dynamics_params(p); }

// Written only.
void libalgo_set_drag_regulation_factor(const float factor[7]) {
    guard lock(context_mutex);
    copy_in(robot.drag_factor, factor);
}

// Three joint arrays in one call.
void libalgo_update_feedback_data(const float q[7], const float dq[7], const float tau[7]) {
    guard lock(context_mutex);
    copy_in(robot.feedback_q, q);
    copy_in(robot.feedback_dq, dq);
    copy_in(robot.feedback_tau, tau);
}

void libalgo_get_robot_feedback_data(float q[7], float dq[7], float tau[7]) {
    guard lock(context_mutex);
    copy_out(q, robot.feedback_q);
    copy_out(dq, robot.feedback_dq);
    copy_out(tau, robot.feedback_tau);
}

void libalgo_set_joint_cmd(const float q[7], const float dq[7], const float ddq[7]) {
    guard lock(context_mutex);
    copy_in(robot.cmd_q, q);
    copy_in(robot.cmd_dq, dq);
    copy_in(robot.cmd_ddq, ddq);
}

void libalgo_get_joint_cmd(float q[7], float dq[7], float ddq[7]) {
    guard lock(context_mutex);
    copy_out(q, robot.cmd_q);
    copy_out(dq, robot.cmd_dq);
    copy_out(ddq, robot.cmd_ddq);
}

// ------------------------------------------------------ degree layer

int invoke_libalgo_init(void) { return libalgo_init(); }

// Install angles: all three, in degrees, with the matrix and gravity updated.
void invoke_libalgo_set_robot_install_angle(const float deg[3]) {
    guard lock(context_mutex);
    if (!deg) return;
    for (int i = 0; i < 3; ++i)
        robot.install_angle[i] = deg_to_rad(deg[i]);
    update_install();
}

void invoke_libalgo_get_robot_install_angle(float deg[3]) {
    guard lock(context_mutex);
    if (!deg) return;
    for (int i = 0; i < 3; ++i)
        deg[i] = rad_to_deg(robot.install_angle[i]);
}

// ------------------------------------------------------ exported layer

const char *ka_algo_version(void) { return KA_ALGO_VERSION_STRING; }

int ka_algo_init_sys_data(ka_robot_arm_model_e model, ka_force_type_e force_type) {
    guard lock(context_mutex);
    const int m = clamp_model(static_cast<int>(model));
    const int f = clamp_force_type(static_cast<int>(force_type));
    set_robot_and_sensor_type(0, 0);
    return set_robot_and_sensor_type(m, f);
}

void ka_algo_set_angle(float x, float y, float z) {
    guard lock(context_mutex);
    const float deg[3] = {x, y, z};
    set_install_deg(deg);
}

void ka_algo_get_angle(float *x, float *y, float *z) {
    if (!x || !y || !z) return;
    float deg[3];
    invoke_libalgo_get_robot_install_angle(deg);
    *x = deg[0];
    *y = deg[1];
    *z = deg[2];
}

void ka_algo_set_workframe(const ka_frame_t *frame) {
    if (frame) algo_set_current_work_frame(*frame);
}

void ka_algo_get_curr_workframe(ka_frame_t *frame) {
    if (!frame) return;
    guard lock(context_mutex);
    frame->pose = frame_pose(robot.work_pose);
}

void ka_algo_set_toolframe(const ka_frame_t *frame) {
    if (frame) algo_set_current_tool_frame(*frame);
}

void ka_algo_get_curr_toolframe(ka_frame_t *frame) {
    if (!frame) return;
    guard lock(context_mutex);
    const ka_frame_t tool = context_tool_frame();
    frame->pose = tool.pose;
    frame->payload = tool.payload;
    frame->x = tool.x;
    frame->y = tool.y;
    frame->z = tool.z;
}

void ka_algo_set_joint_max_limit(const float *joint) { invoke_libalgo_set_jointlim_max(joint); }
void ka_algo_get_joint_max_limit(float *joint) { invoke_libalgo_get_jointlim_max(joint); }
void ka_algo_set_joint_min_limit(const float *joint) { invoke_libalgo_set_jointlim_min(joint); }
void ka_algo_get_joint_min_limit(float *joint) { invoke_libalgo_get_jointlim_min(joint); }
void ka_algo_set_joint_max_speed(const float *joint) { invoke_libalgo_set_joint_vel_maxlim(joint); }
void ka_algo_get_joint_max_speed(float *joint) { invoke_libalgo_get_joint_vel_maxlim(joint); }
void ka_algo_set_joint_max_acc(const float *joint) { invoke_libalgo_set_joint_acc_maxlim(joint); }
void ka_algo_get_joint_max_acc(float *joint) { invoke_libalgo_get_joint_acc_maxlim(joint); }

int ka_algo_judgment_overpos(const float *joint) {
    if (!joint) return -1;
    guard lock(context_mutex);
    float max_deg[7] = {};
    float min_deg[7] = {};
    context_joint_limits_deg(max_deg, min_deg);
    // Written so that a NaN joint counts as outside.
    for (int i = 0; i < joint_count(); ++i) {
        if (!(joint[i] >= min_deg[i] && joint[i] <= max_deg[i])) return -1;
    }
    return 0;
}

void ka_algo_arm_state_set(ka_robot_handle *handle) { context_scope scope(handle); }

} // extern "C"
