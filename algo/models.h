// Per-model kinematic and dynamic parameters: one table entry per model type.
// Replacing a model's parameters is a change to models.cpp only.
#pragma once

#include <cstdint>

// Modified (Craig) Denavit-Hartenberg: link i maps frame i-1 to frame i as
// Rx(alpha[i]) * Tx(a[i]) * Rz(theta[i] + offset[i]) * Tz(d[i]).
struct dh_table {
    float d[8];      // metres
    float a[8];      // metres
    float alpha[8];  // radians
    float offset[8]; // radians
};

struct link_dynamics {
    // Ixx, Ixy, Ixz, Iyy, Iyz, Izz (kg m^2), centre of mass x, y, z (m), mass (kg)
    float v[10];
};

struct model_params {
    int type; // ka_robot_arm_model_e value (9: the second seven-axis type)
    const char *name;
    int dof;        // 6 or 7
    bool nominal;   // geometry designed for this library, not measured product data
    dh_table dh[3]; // per sensor variant 0, 1, 2 (only the flange distance differs)
    float max_pos_deg[7];
    float min_pos_deg[7];
    float max_speed_deg[7]; // degrees/s
    float max_acc_deg[7];   // degrees/s^2
    float direction[7];     // joint direction signs (data only; not applied in kinematics)
    float tcp_config[4];
    link_dynamics dynamics[3][7]; // per sensor variant, per link
};

// The entry of a model type, or nullptr when the type has no parameters
// (type 2 and types above 9).
const model_params *model_params_for(int type);
