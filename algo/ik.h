// Inverse kinematics: the exported entry point and its degree layer, the
// common preparation of the target, the dispatch to the per-model solvers,
// the redundancy settings of the seven-axis arms and the joint over-speed
// check.
//
// Every solver is closed-form and works in double precision on the DH table
// it is given (the context's current table), so a changed table still
// solves as long as it keeps the zero pattern of its model's geometry; a
// table without that pattern makes the solver fail with k_ik_bad_geometry.
//
//  - KIVO, MARO II and MARO III (one solver): base, shoulder with a lateral
//    and a forward offset, upper arm, elbow offset, forearm, spherical wrist.
//    The wrist centre gives the base angle (two branches), the shoulder-elbow
//    triangle the arm (two branches), a Z-Y-Z split the wrist (two branches).
//  - NEPA series: three parallel axes and an offset wrist. The wrist point
//    gives the base angle (two), the orientation a Z-Y-Z split of the
//    parallel-axes sum and the two wrist joints (two), a planar two-link
//    triangle the shoulder and elbow (two).
//  - LUNE: spherical shoulder, elbow, spherical wrist. Redundancy parameter:
//    the arm angle, the position of the elbow on its circle about the
//    shoulder-wrist line. For each arm angle: two shoulder, two elbow and two
//    wrist branches.
//  - QUIL: spherical shoulder, offset elbow, wrist with an offset last axis.
//    Redundancy parameter: the last joint. Fixing it places the wrist point;
//    the elbow follows from the shoulder-wrist distance (two branches), the
//    upper arm's roll from the condition that joint 5's axis is normal to
//    joint 6's (two), and the shoulder from a Z-Y-Z split (two).
//
// Every candidate is wrapped by multiples of 2*pi into the modelling joint
// limits, nearest to the reference; candidates that do not fit are dropped;
// the candidate nearest to the reference (sum of squared joint differences)
// is returned.
//
// Singular targets. Where a wrist or a spherical shoulder is aligned (its
// middle joint at 0 or pi) only the sum or the difference of its outer
// joints is defined; the free turn is shared evenly relative to the
// reference (NEPA also tries the reference's parallel-axes sum and its joint
// 6, since there the split moves the elbow). Near a stretched elbow or a
// shoulder singularity the target's float rounding can push a branch just
// out of reach; such a near miss (up to 1 mm) is finished with a few damped
// Newton steps on the DH product instead of being dropped.
//
// Seven-axis redundancy settings. For a fixed value of the redundancy
// parameter the branches form groups (LUNE: elbow sign; QUIL: elbow sign and
// the choice of joint 5's axis) whose members (shoulder and wrist branches)
// are followed continuously along the parameter. Every point of the search
// is an exact solution, so the search decides only how near the answer is;
// a last check of the pose (and a few Newton steps where a cosine rule was
// clamped by the target's rounding) closes the solve. The search starts at
// the reference's own parameter: for LUNE the arm angle whose elbow plane is
// the reference's, for QUIL the reference's last joint.
//  - strategy 1 (search near the reference): the reference's own group, and
//    any group that starts about as near, descend along the parameter to
//    their nearest point; if that leaves the limits, to the nearest in-limit
//    points on either side of it. A group with no solution at its start is
//    started at the nearest parameter that has one, probing outward in steps
//    of the solution range (doubling). Only if none of this lies within the
//    limits are the other groups tried, and then the whole range traversed
//    as below.
//  - strategy 0 (traverse the range): the same local search confined to the
//    start +- solution range (3.14 covers the whole circle), and a grid over
//    that window on every group whose nearest samples are refined; when the
//    window holds no in-limit solution the whole range is traversed.
#pragma once

#include "algo/ik_solvers.h"
#include "algo/matrix.h"
#include "ka_api.h"

#include <cstdint>

// Last-joint clamp band: a reference last joint in (2*pi, this) is read as
// 2*pi (and symmetrically below -2*pi); two degrees past one turn.
inline constexpr float k_last_joint_clamp_band = 6.318092f;
inline constexpr float k_last_joint_turn = 6.283185f;

// ------------------------------------------------- redundancy settings

void ikine_set_solution_range_lune(float range);
float ikine_get_solution_range_lune();
void ikine_set_7dof_solver_search_strategy(int strategy);
int ikine_get_7dof_solver_search_strategy();
ik_redundancy ikine_get_redundancy();
// 1 until the exported traversal-mode setter has been called once.
int ikine_default_traversal_mode();

// ------------------------------------------------------ inner layer

// Target pose (in the current work frame) as the tool transform in the base
// frame. flag 1: position and Euler angles; otherwise position and quaternion.
ka_matrix_t calc_Tbase2tool_from_Pose(const ka_pose_t &pose, int flag);

// Radians in and out. 0, k_ik_unknown_type, or the solver's code; q_out is
// written (DOF entries) only on success. The caller holds a context_scope.
int inverse_kinematics(const float q_ref[7], const ka_pose_t &pose, float q_out[7], int flag);

// 0, or the 1-based index of the first of the DOF joints whose step
// |q_new - q_prev| exceeds max speed * control period * max(factor, 0).
int joint_overspeed_judgment(const float q_prev[7], const float q_new[7], float factor);

// Shortest and longest solve times (microseconds) seen by the over-speed
// variant below; +inf / 0 before the first solve.
double ik_solve_time_min_us();
double ik_solve_time_max_us();
void ik_reset_solve_times();

extern "C" {

// Degrees in and out (first DOF entries; q_out written only on success).
// The inner result code.
KA_API int invoke_inverse_kinematics(const float *q_ref, ka_pose_t pose, float *q_out,
                                     uint8_t flag);

// As invoke_inverse_kinematics, timing the solve. A negative value is the
// solver's failure code; otherwise 0 when every joint of the solution moves
// from the reference within one control period at its maximum speed, or the
// 1-based index of the first joint that would not.
KA_API int invoke_inverse_kinematics_with_judgment_overspeed(const float *q_ref, ka_pose_t pose,
                                                             float *q_out, uint8_t flag);

} // extern "C"
