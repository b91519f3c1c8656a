// Inverse kinematics: exported entry point, degree layer, target
// preparation, dispatch to the per-model solvers, redundancy settings and
// the joint over-speed check.
#include "algo/ik.h"

#include "algo/context.h"
#include "algo/matrix.h"
#include "algo/pose_math.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>

namespace {

// Redundancy settings of the seven-axis solvers: "near the reference" and
// "traverse the whole range".
constexpr float k_near_range = 0.013f;
constexpr float k_full_range = 3.14f;
constexpr int k_strategy_traverse = 0;
constexpr int k_strategy_near = 1;

// Atomics so that a setter racing a solve on another thread is well defined;
// the solvers read them under the context lock.
std::atomic<float> theta_v{k_near_range};
std::atomic<int> global_is_movl{k_strategy_near};
// Set until the exported traversal-mode setter has been called once.
std::atomic<int> defaut_traversal_mode{1};

// Solve times of the over-speed variant, microseconds.
std::atomic<double> invoke_inverse_time_total_min{std::numeric_limits<double>::infinity()};
std::atomic<double> invoke_inverse_time_total_max{0.0};

// Microseconds on a monotonic clock.
double get_time_of_day() {
    using namespace std::chrono;
    return duration<double, std::micro>(steady_clock::now().time_since_epoch()).count();
}

void record_solve_time(double us) {
    double seen = invoke_inverse_time_total_min.load();
    while (us < seen && !invoke_inverse_time_total_min.compare_exchange_weak(seen, us)) {
    }
    seen = invoke_inverse_time_total_max.load();
    while (us > seen && !invoke_inverse_time_total_max.compare_exchange_weak(seen, us)) {
    }
}

int joint_count(int dof) { return std::clamp(dof, 0, 7); }

// The joint that closes the wrist: joint 7 of LUNE, joint 6 of every other type.
int last_joint_index(int robot_type) { return robot_type == 1 ? 6 : 5; }

// The context adapter of every solver: the tool target in the base frame
// becomes the flange target, the reference and the modelling limits of the
// context go in, the answer comes out in float. The seven-axis solvers get
// the flange target rounded to float, as they always have, so that their
// answers stay bit for bit what the search's tuning was measured on.
template <class Solver>
int solve_on_context(Solver solver, int dof, bool float_target, const kinematics_view &ctx,
                     const ka_matrix_t &T, const float q_ref[7], float q_out[7]) {
    ik_frame flange = ik_flange_target(T, ctx.install, ctx.tool);
    if (float_target) flange = ik_frame_from_matrix(ik_frame_to_matrix(flange));
    ik_limits limits{};
    double ref[7] = {}, out[7] = {};
    for (int i = 0; i < dof; ++i) {
        limits.lo[i] = ctx.model_min[i];
        limits.hi[i] = ctx.model_max[i];
        ref[i] = q_ref[i];
    }
    const int rc = solver(ctx.dh, flange, ref, limits, out);
    if (rc != k_ik_ok) return rc;
    for (int i = 0; i < dof; ++i)
        q_out[i] = static_cast<float>(out[i]);
    return k_ik_ok;
}

// The solver of a robot type, through the adapter above.
int solve_for_type(const kinematics_view &ctx, const ka_matrix_t &T, const float q_ref[7],
                   float q_out[7]) {
    const ik_redundancy redundancy = ikine_get_redundancy();
    auto seven = [redundancy](auto solver) {
        return [solver, redundancy](const dh_table &dh, const ik_frame &F, const double *ref,
                                    const ik_limits &limits, double *out) {
            return solver(dh, F, ref, limits, redundancy, out);
        };
    };
    switch (ctx.robot_type) {
    case 0: // KIVO
    case 3: // MARO II
    case 4: // MARO III
        return solve_on_context(ik_solve_offset_wrist, 6, false, ctx, T, q_ref, q_out);
    case 5: // NEPA series
    case 6:
    case 8:
        return solve_on_context(ik_solve_parallel_axes, 6, false, ctx, T, q_ref, q_out);
    case 1: // LUNE
        return solve_on_context(seven(ik_solve_arm_angle), 7, true, ctx, T, q_ref, q_out);
    case 7: // QUIL
        return solve_on_context(seven(ik_solve_offset_elbow), 7, true, ctx, T, q_ref, q_out);
    default:
        return k_ik_unknown_type;
    }
}

// The degree layer with the radians kept for the over-speed check.
int solve_in_degrees(const float *q_ref, const ka_pose_t &pose, float *q_out, uint8_t flag,
                     float ref_rad[7], float out_rad[7]) {
    const int dof = joint_count(context_dof());
    std::fill(ref_rad, ref_rad + 7, 0.0f);
    for (int i = 0; i < dof; ++i)
        ref_rad[i] = static_cast<float>(q_ref[i] * k_deg_to_rad);
    const int rc = inverse_kinematics(ref_rad, pose, out_rad, flag);
    if (rc != k_ik_ok) return rc;
    for (int i = 0; i < dof; ++i)
        q_out[i] = static_cast<float>(out_rad[i] * k_rad_to_deg);
    return k_ik_ok;
}

} // namespace

// ------------------------------------------------- redundancy settings

void ikine_set_solution_range_lune(float range) { theta_v.store(range); }
float ikine_get_solution_range_lune() { return theta_v.load(); }
void ikine_set_7dof_solver_search_strategy(int strategy) { global_is_movl.store(strategy); }
int ikine_get_7dof_solver_search_strategy() { return global_is_movl.load(); }
ik_redundancy ikine_get_redundancy() { return {theta_v.load(), global_is_movl.load()}; }
int ikine_default_traversal_mode() { return defaut_traversal_mode.load(); }

double ik_solve_time_min_us() { return invoke_inverse_time_total_min.load(); }
double ik_solve_time_max_us() { return invoke_inverse_time_total_max.load(); }
void ik_reset_solve_times() {
    invoke_inverse_time_total_min.store(std::numeric_limits<double>::infinity());
    invoke_inverse_time_total_max.store(0.0);
}

// ------------------------------------------------------------ inner layer

ka_matrix_t calc_Tbase2tool_from_Pose(const ka_pose_t &pose, int flag) {
    const ka_matrix_t T = flag == 1 ? pose_euler_to_transformation_matrix(pose)
                                    : pose_quat_to_transformation_matrix(pose);
    const ka_matrix_t work_in_base = matrix_inv_coordinate_system(context_work_to_base_matrix());
    return matrix_m(work_in_base, T);
}

int inverse_kinematics(const float q_ref[7], const ka_pose_t &pose, float q_out[7], int flag) {
    const kinematics_view ctx = context_kinematics();
    const ka_matrix_t T = calc_Tbase2tool_from_Pose(pose, flag);

    float ref[7];
    std::copy(q_ref, q_ref + 7, ref);
    float &last = ref[last_joint_index(ctx.robot_type)];
    if (last > k_last_joint_turn && last < k_last_joint_clamp_band)
        last = k_last_joint_turn;
    else if (last < -k_last_joint_turn && last > -k_last_joint_clamp_band)
        last = -k_last_joint_turn;

    float out[7] = {};
    const int rc = solve_for_type(ctx, T, ref, out);
    if (rc != k_ik_ok) return rc;
    std::copy(out, out + joint_count(ctx.dof), q_out);
    return k_ik_ok;
}

int joint_overspeed_judgment(const float q_prev[7], const float q_new[7], float factor) {
    const kinematics_view ctx = context_kinematics();
    const float k = std::max(factor, 0.0f);
    const int dof = joint_count(ctx.dof);
    for (int i = 0; i < dof; ++i)
        if (std::fabs(q_new[i] - q_prev[i]) > ctx.vel_max[i] * ctx.control_period * k) return i + 1;
    return 0;
}

// ---------------------------------------------------------- exported

extern "C" {

int invoke_inverse_kinematics(const float *q_ref, ka_pose_t pose, float *q_out, uint8_t flag) {
    if (q_ref == nullptr || q_out == nullptr) return k_ik_no_solution;
    context_scope scope;
    float ref_rad[7], out_rad[7];
    return solve_in_degrees(q_ref, pose, q_out, flag, ref_rad, out_rad);
}

int invoke_inverse_kinematics_with_judgment_overspeed(const float *q_ref, ka_pose_t pose,
                                                      float *q_out, uint8_t flag) {
    if (q_ref == nullptr || q_out == nullptr) return k_ik_no_solution;
    context_scope scope;
    float ref_rad[7], out_rad[7];
    const double start = get_time_of_day();
    const int rc = solve_in_degrees(q_ref, pose, q_out, flag, ref_rad, out_rad);
    record_solve_time(get_time_of_day() - start);
    if (rc != k_ik_ok) return rc;
    return joint_overspeed_judgment(ref_rad, out_rad, 1.0f);
}

void ka_algo_set_redundant_parameter_traversal_mode(bool mode) {
    context_scope scope;
    defaut_traversal_mode.store(0);
    theta_v.store(mode ? k_full_range : k_near_range);
    global_is_movl.store(mode ? k_strategy_traverse : k_strategy_near);
}

int ka_algo_inverse_kinematics(ka_robot_handle *handle, ka_inverse_kinematics_params_t params,
                               float *q_out) {
    if (params.q_flag == 0) {
        // Exact on purpose: the float sum of squares must be 1.0 to the bit.
        const ka_quat_t &q = params.q_pose.quaternion;
        float n = q.w * q.w;
        n += q.x * q.x;
        n += q.y * q.y;
        n += q.z * q.z;
        if (n != 1.0f) return -2;
    }
    if (q_out == nullptr) return -1;
    context_scope scope(handle);
    const int dof = joint_count(context_dof());
    float max_deg[7] = {}, min_deg[7] = {};
    context_joint_limits_deg(max_deg, min_deg);
    for (int i = 0; i < dof; ++i) {
        const float q = params.q_in[i];
        if (!(q >= min_deg[i] && q <= max_deg[i])) return -1; // also rejects NaN
    }
    if (defaut_traversal_mode.load() != 0) {
        theta_v.store(k_near_range);
        global_is_movl.store(k_strategy_near);
    }
    float ref_rad[7], out_rad[7];
    return solve_in_degrees(params.q_in, params.q_pose, q_out, params.q_flag, ref_rad, out_rad) ==
                   k_ik_ok
               ? 0
               : 1;
}

} // extern "C"
