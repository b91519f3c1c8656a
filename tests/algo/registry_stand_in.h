// Stand-in for the connection core's registry in the kinematics suite: the
// tests register arm records by handle address and the kinematics reads them
// through registry_algo_params as it would from connected arms.
#pragma once

#include "algo/handover.h"

// Registers (or replaces) the record returned for a handle.
void stand_in_register(const ka_robot_handle *handle, const algo_arm_params &params);
void stand_in_clear();

// A record for a model with its table defaults as the controller limits,
// no install angle and identity frames.
algo_arm_params stand_in_defaults(int model, int force_type);
