// Seam between the connection core and the kinematics: everything the core
// knows about an arm that the kinematics context needs. The core fills the
// record from the arm's cache; the kinematics loads it into its context.
#pragma once

#include "ka_api.h"

struct algo_arm_params {
    int model;              // ka_robot_arm_model_e as cached (mapped by the loader)
    int force_type;         // ka_force_type_e as cached (mapped by the loader)
    float install_deg[3];   // install angles about X, Y, Z, degrees
    ka_frame_t tool_frame;  // current tool frame with payload
    ka_frame_t work_frame;  // current work frame
    float joint_max_pos[7]; // degrees
    float joint_min_pos[7]; // degrees
    float joint_max_acc[7]; // degrees/s^2
    float joint_max_speed[7];
};

// Loads the kinematics context from an arm: model defaults first, then the
// arm's install angles, frames and limits. Called when an arm is opened.
void algo_load_arm_params(const algo_arm_params &params);

// A current frame read from the controller becomes the context's current
// tool or work frame (matrix included).
void algo_set_current_tool_frame(const ka_frame_t &frame);
void algo_set_current_work_frame(const ka_frame_t &frame);

// Implemented by the core: copies the cached parameters of a registered arm.
// false for an unknown handle.
bool registry_algo_params(const ka_robot_handle *handle, algo_arm_params *out);
