// Forward kinematics: per-model closed-form flange transforms and their
// composition with the install, tool and work frames of the context.
//
// Joint angles are radians here; the exported entry point converts degrees.
// The closed forms bake in each model's twists (0 or +-pi/2) and joint
// offsets (0 or pi/2) and read only the link lengths and offsets that are
// non-zero in that geometry. Everything lives on the caller's stack.
#pragma once

#include "algo/models.h"
#include "ka_api.h"

// Reference product of the modified DH link transforms
// Rx(alpha) * Tx(a) * Rz(q + offset) * Tz(d) for the first dof links, in
// double precision. T: flange in the arm base frame.
void fk_generic_dh(const dh_table &dh, int dof, const float q[7], float T[4][4]);

// Closed-form flange transform of a model type, pure (no context). Types 0, 2
// and 9 and every unknown type use the KIVO form.
void fk_flange(int robot_type, const dh_table &dh, const float q[7], float T[4][4]);
void fk_flange_rotation(int robot_type, const dh_table &dh, const float q[7], float R[3][3]);
void fk_flange_position(int robot_type, const dh_table &dh, const float q[7], float p[3]);

// Per-model closed forms: full transform, rotation block, translation column.
void forward_kinematics_e_kivo(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_kivo(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_kivo(const dh_table &dh, const float q[7], float p[3]);
void forward_kinematics_e_lune(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_lune(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_lune(const dh_table &dh, const float q[7], float p[3]);
void forward_kinematics_e_maro_2(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_maro_2(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_maro_2(const dh_table &dh, const float q[7], float p[3]);
void forward_kinematics_e_maro_3(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_maro_3(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_maro_3(const dh_table &dh, const float q[7], float p[3]);
void forward_kinematics_e_nepa(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_nepa(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_nepa(const dh_table &dh, const float q[7], float p[3]);
void forward_kinematics_e_quil(const dh_table &dh, const float q[7], float T[4][4]);
void forward_kinematics_rotate_quil(const dh_table &dh, const float q[7], float R[3][3]);
void forward_kinematics_pos_quil(const dh_table &dh, const float q[7], float p[3]);

// ---------------------------------------------------------------------
// Context-based forms. The caller holds a context_scope (algo/context.h).

// Flange transform in the arm base frame for the active model; 4x4.
void forward_kinematics_e(ka_matrix_t *T, const float q[7]);
// Tool pose in the current work frame: Wb * I * F * Tt.
ka_pose_t forward_kinematics(const float q[7]);
// Tool pose in the mounting frame (install angle included, no work frame).
ka_pose_t forward_kinematics_for_unity(const float q[7]);
// 3x3 rotation of the tool in the work frame.
ka_matrix_t forward_kinematics_rotate(const float q[7]);
// 3x3 rotation of the flange in the arm base frame.
ka_matrix_t forward_kinematics_rotate_flange(const float q[7]);
// Tool position in the work frame.
ka_position_t forward_kinematics_pos(const float q[7]);
// Tool position in the work frame with the DH compensation values added to
// the DH table (general product, since compensation may touch any entry).
ka_position_t forward_kinematics_pos_calibration(const float q[7]);
// Flange transform including the install angle: I * F; 4x4.
ka_matrix_t forward_kinematics_world_to_flange(const float q[7]);

// Loads the context from the arm, then the flange pose in the arm base frame
// (no install, tool or work frame). q in degrees; NULL gives a zero pose.
// Takes the context lock itself.
ka_pose_t Forward_Kinematics_e(ka_robot_handle *handle, const float q_deg[7]);
