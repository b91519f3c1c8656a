// The closed-form solvers: pure functions of a DH table, a flange target
// in the arm base frame, a reference and the joint limits (radians), with no
// context and no lock. The context adapter in ik.cpp calls them; the tests
// and benchmarks call them directly.
#pragma once

#include "algo/ik_common.h"
#include "algo/models.h"

// ------------------------------------------------------------- codes

inline constexpr int k_ik_ok = 0;
// Target out of reach, or no candidate within the limits.
inline constexpr int k_ik_no_solution = -1;
// DH table without the zero pattern the solver needs, or a non-finite target.
inline constexpr int k_ik_bad_geometry = -2;
// Robot type without a solver (inner layer only).
inline constexpr int k_ik_unknown_type = -4;

// Redundancy settings of the seven-axis solvers.
struct ik_redundancy {
    float range;  // solution range theta_v, radians of the redundancy parameter
    int strategy; // global_is_movl: 1 near the reference, 0 traverse the range
};

// q_ref and q_out hold dof entries. Return k_ik_ok, k_ik_no_solution or
// k_ik_bad_geometry; q_out is written only on success.
int ik_solve_offset_wrist(const dh_table &dh, const ik_frame &flange, const double q_ref[6],
                          const ik_limits &limits, double q_out[6]);
int ik_solve_parallel_axes(const dh_table &dh, const ik_frame &flange, const double q_ref[6],
                           const ik_limits &limits, double q_out[6]);
int ik_solve_arm_angle(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                       const ik_limits &limits, ik_redundancy redundancy, double q_out[7]);
int ik_solve_offset_elbow(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                          const ik_limits &limits, ik_redundancy redundancy, double q_out[7]);
