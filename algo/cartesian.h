// Cartesian moves and frame conversions. Poses: metres, radians, Euler
// R = Rz * Ry * Rx; an input pose is read through its position and Euler
// angles, an output pose has position, quaternion and Euler angles filled.
#pragma once

#include "ka_api.h"

// Position after a translation: frame_mode 0 adds (dx, dy, dz) in the work
// frame, 1 along the pose's own (tool) axes; any other mode gives zeros.
ka_position_t dPosMove(const ka_pose_t &pose, const float delta[6], int frame_mode);
ka_position_t dPosMoveWork(const ka_pose_t &pose, const float delta[6]);
ka_position_t dPosMoveTool(const ka_pose_t &pose, const float delta[6]);

// Orientation after rotations by drx, dry, drz: frame_mode 0 about the fixed
// work-frame axes X, then Y, then Z (R' = Rz Ry Rx R); frame_mode 1 about the
// pose's own axes X, then Y, then Z (R' = R Rx Ry Rz); any other mode leaves
// the orientation unchanged.
ka_euler_t rotateMove(const ka_pose_t &pose, const float delta[6], int frame_mode);

// Rodrigues rotation of a 3x3 rotation R by angle (radians) about a unit
// axis given in the reference frame (Rot * R) or in R's own frame (R * Rot).
ka_matrix_t Rodrigues_rotate_simplify(const ka_matrix_t &R, const float axis[3], float angle);
ka_matrix_t Rodrigues_rotate_simplify_tool(const ka_matrix_t &R, const float axis[3], float angle);

// One attitude step from current towards target along the shortest arc, at
// most max_step radians of rotation; target itself once within reach. Unit
// quaternions in and out.
ka_quat_t step_attitude(ka_quat_t current, ka_quat_t target, float max_step);

extern "C" {
// Frame conversions without context; matrix maps base coordinates into the
// work frame.
KA_API ka_pose_t algo_base_to_workframe(ka_matrix_t matrix, ka_pose_t pose);
KA_API ka_pose_t algo_workframe_to_base(ka_matrix_t matrix, ka_pose_t pose);
// delta: dx, dy, dz (m), drx, dry, drz (rad). A NULL delta returns the pose.
KA_API ka_pose_t algo_pose_move(ka_pose_t pose, const float *delta, int frame_mode);
// On the current context; joints in degrees, NULL gives a zero pose.
KA_API ka_pose_t algo_cartesian_tool(const float *joint, float move_x, float move_y, float move_z);
// rotate_axis 0, 1, 2 picks the X, Y or Z axis of choose_axis's orientation
// (a pose in the work frame); the tool turns by rotate_angle degrees about
// that axis through the tool point, so its position stays. Another
// rotate_axis leaves the current tool pose unchanged.
KA_API ka_pose_t algo_rotate_move(const float *joint, int rotate_axis, float rotate_angle,
                                  ka_pose_t choose_axis);
}
