#include "algo/cartesian.h"

#include "algo/context.h"
#include "algo/fk.h"
#include "algo/matrix.h"
#include "algo/pose_math.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float k_axis_x[3] = {1.0f, 0.0f, 0.0f};
constexpr float k_axis_y[3] = {0.0f, 1.0f, 0.0f};
constexpr float k_axis_z[3] = {0.0f, 0.0f, 1.0f};

// Rot(axis, angle) = I + sin(angle) K + (1 - cos(angle)) K^2, K = [axis]x.
ka_matrix_t rodrigues(const float axis[3], float angle) {
    float s = std::sin(angle), c1 = 1.0f - std::cos(angle);
    float x = axis[0], y = axis[1], z = axis[2];
    ka_matrix_t m = zero_matrix(3, 3);
    m.data[0][0] = 1.0f - c1 * (y * y + z * z);
    m.data[0][1] = -s * z + c1 * x * y;
    m.data[0][2] = s * y + c1 * x * z;
    m.data[1][0] = s * z + c1 * x * y;
    m.data[1][1] = 1.0f - c1 * (x * x + z * z);
    m.data[1][2] = -s * x + c1 * y * z;
    m.data[2][0] = -s * y + c1 * x * z;
    m.data[2][1] = s * x + c1 * y * z;
    m.data[2][2] = 1.0f - c1 * (x * x + y * y);
    return m;
}

ka_pose_t complete_pose(ka_position_t position, ka_euler_t euler) {
    ka_pose_t pose{};
    pose.position = position;
    pose.euler = euler;
    pose.quaternion = euler_to_quat(euler);
    return pose;
}

ka_matrix_t translation(float x, float y, float z) {
    ka_pose_t p{};
    p.position = {x, y, z};
    return pose_euler_to_transformation_matrix(p);
}

// Current tool transform in the work frame, from the arm's base: Wb * F * Tt.
// The install rotation is not part of it (the tool move is defined on the
// arm's own base; with an upright arm it equals forward kinematics).
ka_matrix_t tool_in_work(const float q[7]) {
    ka_matrix_t F;
    forward_kinematics_e(&F, q);
    return matrix_m(context_work_to_base_matrix(), matrix_m(F, context_tool_matrix()));
}

void joints_to_radians(const float *deg, float (&rad)[7]) {
    int dof = std::clamp(context_dof(), 0, 7);
    for (int i = 0; i < 7; ++i)
        rad[i] = i < dof ? deg_to_rad(deg[i]) : 0.0f;
}

} // namespace

ka_position_t dPosMoveWork(const ka_pose_t &pose, const float delta[6]) {
    return {pose.position.x + delta[0], pose.position.y + delta[1], pose.position.z + delta[2]};
}

ka_position_t dPosMoveTool(const ka_pose_t &pose, const float delta[6]) {
    ka_matrix_t T = pose_euler_to_transformation_matrix(pose);
    ka_matrix_t d = zero_matrix(3, 1);
    d.data[0][0] = delta[0];
    d.data[1][0] = delta[1];
    d.data[2][0] = delta[2];
    ka_matrix_t moved = matrix_m(matrix_T2R(T), d);
    return {pose.position.x + moved.data[0][0], pose.position.y + moved.data[1][0],
            pose.position.z + moved.data[2][0]};
}

ka_position_t dPosMove(const ka_pose_t &pose, const float delta[6], int frame_mode) {
    if (frame_mode == 0) return dPosMoveWork(pose, delta);
    if (frame_mode == 1) return dPosMoveTool(pose, delta);
    return {0.0f, 0.0f, 0.0f};
}

ka_matrix_t Rodrigues_rotate_simplify(const ka_matrix_t &R, const float axis[3], float angle) {
    return matrix_m(rodrigues(axis, angle), matrix_T2R(R));
}

ka_matrix_t Rodrigues_rotate_simplify_tool(const ka_matrix_t &R, const float axis[3], float angle) {
    return matrix_m(matrix_T2R(R), rodrigues(axis, angle));
}

ka_euler_t rotateMove(const ka_pose_t &pose, const float delta[6], int frame_mode) {
    if (frame_mode != 0 && frame_mode != 1) return pose.euler;
    ka_matrix_t R = euler_to_matrix(pose.euler);
    const float *axes[3] = {k_axis_x, k_axis_y, k_axis_z};
    for (int k = 0; k < 3; ++k) {
        R = frame_mode == 0 ? Rodrigues_rotate_simplify(R, axes[k], delta[3 + k])
                            : Rodrigues_rotate_simplify_tool(R, axes[k], delta[3 + k]);
    }
    return matrix_to_euler(R);
}

ka_quat_t step_attitude(ka_quat_t current, ka_quat_t target, float max_step) {
    float dot =
        current.w * target.w + current.x * target.x + current.y * target.y + current.z * target.z;
    if (dot < 0.0f) { // the other sign of target is the shorter arc
        target = {-target.w, -target.x, -target.y, -target.z};
        dot = -dot;
    }
    // Half the rotation angle between the two orientations.
    float half = std::acos(std::min(dot, 1.0f));
    float half_step = 0.5f * std::max(max_step, 0.0f);
    if (half <= half_step || half < 1e-6f) return target;
    return quaternion_interpolation(half, half_step, current, target);
}

namespace {

// The tool moved in its own frame, and rotated about an axis; the caller
// holds the context.
ka_pose_t cartesian_tool(const float *joint, float move_x, float move_y, float move_z) {
    if (!joint) return ka_pose_t{};
    float q[7];
    joints_to_radians(joint, q);
    // The translation is applied in the tool frame, so it multiplies on the right.
    ka_matrix_t T = matrix_m(tool_in_work(q), translation(move_x, move_y, move_z));
    return transformation_matrix_to_pose(T);
}

ka_pose_t rotate_move(const float *joint, int rotate_axis, float rotate_angle,
                      ka_pose_t choose_axis) {
    if (!joint) return ka_pose_t{};
    float q[7];
    joints_to_radians(joint, q);
    ka_pose_t current = forward_kinematics(q);
    if (rotate_axis < 0 || rotate_axis > 2) return current;
    ka_matrix_t frame = euler_to_matrix(choose_axis.euler);
    const float axis[3] = {frame.data[0][rotate_axis], frame.data[1][rotate_axis],
                           frame.data[2][rotate_axis]};
    ka_matrix_t R =
        Rodrigues_rotate_simplify(euler_to_matrix(current.euler), axis, deg_to_rad(rotate_angle));
    return complete_pose(current.position, matrix_to_euler(R));
}

} // namespace

extern "C" {

ka_pose_t algo_base_to_workframe(ka_matrix_t matrix, ka_pose_t pose) {
    return transformation_matrix_to_pose(
        matrix_m(matrix, pose_euler_to_transformation_matrix(pose)));
}

ka_pose_t algo_workframe_to_base(ka_matrix_t matrix, ka_pose_t pose) {
    return transformation_matrix_to_pose(
        matrix_m(matrix_inv(matrix), pose_euler_to_transformation_matrix(pose)));
}

ka_pose_t algo_pose_move(ka_pose_t pose, const float *delta, int frame_mode) {
    if (!delta) return complete_pose(pose.position, pose.euler);
    return complete_pose(dPosMove(pose, delta, frame_mode), rotateMove(pose, delta, frame_mode));
}

ka_pose_t algo_cartesian_tool(const float *joint, float move_x, float move_y, float move_z) {
    context_scope scope;
    return cartesian_tool(joint, move_x, move_y, move_z);
}

ka_pose_t algo_rotate_move(const float *joint, int rotate_axis, float rotate_angle,
                           ka_pose_t choose_axis) {
    context_scope scope;
    return rotate_move(joint, rotate_axis, rotate_angle, choose_axis);
}

ka_pose_t ka_algo_base2workframe(ka_matrix_t matrix, ka_pose_t pose) {
    return algo_base_to_workframe(matrix, pose);
}

ka_pose_t ka_algo_workframe2base(ka_matrix_t matrix, ka_pose_t pose) {
    return algo_workframe_to_base(matrix, pose);
}

ka_pose_t ka_algo_end2tool(ka_robot_handle *handle, ka_pose_t end_pose) {
    context_scope scope(handle);
    const ka_frame_t tool = context_tool_frame();
    ka_matrix_t tool_in_base =
        matrix_m(ka_algo_pos2matrix(end_pose), ka_algo_pos2matrix(tool.pose));
    return ka_algo_base2workframe(context_work_to_base_matrix(),
                                  transformation_matrix_to_pose(tool_in_base));
}

ka_pose_t ka_algo_tool2end(ka_robot_handle *handle, ka_pose_t tool_pose) {
    context_scope scope(handle);
    const ka_frame_t tool = context_tool_frame();
    ka_pose_t in_base = ka_algo_workframe2base(context_work_to_base_matrix(), tool_pose);
    ka_matrix_t flange =
        matrix_m(ka_algo_pos2matrix(in_base), matrix_inv(ka_algo_pos2matrix(tool.pose)));
    return transformation_matrix_to_pose(flange);
}

ka_pose_t ka_algo_pose_move(ka_robot_handle *handle, ka_pose_t pose, const float *delta,
                            int frame_mode) {
    context_scope scope(handle);
    return algo_pose_move(pose, delta, frame_mode);
}

ka_pose_t ka_algo_cartesian_tool(ka_robot_handle *handle, const float *joint, float move_x,
                                 float move_y, float move_z) {
    context_scope scope(handle);
    return cartesian_tool(joint, move_x, move_y, move_z);
}

ka_pose_t ka_algo_rotate_move(ka_robot_handle *handle, const float *joint, int rotate_axis,
                              float rotate_angle, ka_pose_t choose_axis) {
    context_scope scope(handle);
    return rotate_move(joint, rotate_axis, rotate_angle, choose_axis);
}

} // extern "C"
