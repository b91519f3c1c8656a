/*
 * A first look at the library, in plain C.
 *
 *   quick_tour                 kinematics only, no arm needed
 *   quick_tour IP PORT         also opens the arm at IP:PORT and reads its
 *                              software version and joint limits
 */
#include "ka_api.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void print_pose(const char *label, ka_pose_t p) {
    printf("%-28s x %.4f y %.4f z %.4f m, rx %.4f ry %.4f rz %.4f rad\n", label, p.position.x,
           p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz);
}

static int kinematics_tour(void) {
    float zero[7] = {0};
    float bent[7] = {10, -20, 30, 0, 45, 0, 0};
    float solved[7] = {0};
    ka_inverse_kinematics_params_t ik;
    ka_pose_t target;
    int r;

    printf("ka_api %s, kinematics %s\n", ka_api_version(), ka_algo_version());
    /* No arm: load the model's defaults directly. */
    if (ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B) != 0) return 1;
    print_pose("flange at zero joints", ka_algo_forward_kinematics(NULL, zero));
    target = ka_algo_forward_kinematics(NULL, bent);
    print_pose("tool at (10,-20,30,0,45,0)", target);

    ik.q_pose = target;
    ik.q_flag = 1; /* orientation from the Euler angles */
    for (int i = 0; i < 7; ++i)
        ik.q_in[i] = bent[i] + 2.0f; /* a nearby reference */
    r = ka_algo_inverse_kinematics(NULL, ik, solved);
    printf("inverse kinematics: %d, joints %.3f %.3f %.3f %.3f %.3f %.3f\n", r, solved[0],
           solved[1], solved[2], solved[3], solved[4], solved[5]);
    return r == 0 ? 0 : 1;
}

static int arm_tour(const char *ip, int port) {
    ka_arm_software_version_t version;
    float max_pos[7] = {0};
    ka_robot_handle *arm;

    memset(&version, 0, sizeof version);
    ka_init(KA_THREAD_MODE_DUAL);
    arm = ka_create_robot_arm(ip, port);
    if (!arm || arm->id < 1) {
        fprintf(stderr, "could not open the arm at %s:%d\n", ip, port);
        ka_destory();
        return 1;
    }
    printf("arm %d: %d axes, model %d, sensor %d\n", arm->id, arm->arm_dof, arm->arm_model,
           arm->force_type);
    if (ka_get_arm_software_info(arm, &version) == 0)
        printf("product %.10s, controller %.10s\n", version.product_version, version.ctrl_version);
    if (ka_get_joint_max_pos(arm, max_pos) == 0)
        printf("joint 1 upper limit %.1f degrees\n", max_pos[0]);
    ka_destory();
    return 0;
}

int main(int argc, char **argv) {
    int r = kinematics_tour();
    if (argc >= 3) r |= arm_tour(argv[1], atoi(argv[2]));
    return r;
}
