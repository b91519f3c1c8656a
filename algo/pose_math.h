// Conversions between Euler angles, quaternions, rotation matrices,
// homogeneous transforms and poses. Pure functions, no context.
//
// Euler angles (rx, ry, rz) in radians denote R = Rz(rz) * Ry(ry) * Rx(rx)
// (fixed axes X, then Y, then Z). Quaternions are (w, x, y, z). Converting a
// rotation back to Euler angles lifts any angle below -3.13 by 2*pi, so
// results lie in (-3.13, pi + 0.0116).
#pragma once

#include "ka_api.h"

ka_matrix_t euler_to_matrix(ka_euler_t euler); // 3x3
// Reads only the rotation block, so a 4x4 transform may be passed.
ka_euler_t matrix_to_euler(const ka_matrix_t &rotation);
ka_quat_t euler_to_quat(ka_euler_t euler); // not normalised
ka_euler_t quat_to_euler(ka_quat_t quat);
// Normalises implicitly; a quaternion of squared norm <= 1e-6 is the identity.
ka_matrix_t quat_to_matrix(ka_quat_t quat); // 3x3
// The sign of w is not normalised.
ka_quat_t matrix_to_quat(const ka_matrix_t &rotation);
// 4x4 from position and Euler angles (the quaternion is ignored).
ka_matrix_t pose_euler_to_transformation_matrix(const ka_pose_t &pose);
// 4x4 from position and quaternion (the Euler angles are ignored).
ka_matrix_t pose_quat_to_transformation_matrix(const ka_pose_t &pose);
// Position, quaternion and Euler angles all filled.
ka_pose_t transformation_matrix_to_pose(const ka_matrix_t &T);
// (sin(angle - step) q0 + sin(step) q1) / sin(angle), per component; angle is
// the angle between q0 and q1, step the angle travelled.
ka_quat_t quaternion_interpolation(float angle, float step_angle, ka_quat_t q0, ka_quat_t q1);

extern "C" {
KA_API ka_matrix_t algo_euler_to_matrix(ka_euler_t euler);
KA_API ka_matrix_t algo_pose_to_matrix(ka_pose_t pose);
KA_API ka_pose_t algo_matrix_to_pose(ka_matrix_t matrix);
}
