/*
 * Built against an installed ka_api through pkg-config. Prints the file the
 * library was loaded from (the driver checks it is the installed copy) and
 * exits non-zero when the library disagrees with its own header or the
 * kinematics give a wrong pose.
 */
#define _GNU_SOURCE
#include <ka_api.h>

#include <dlfcn.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    float zero[7] = {0};
    ka_pose_t flange;
    Dl_info info;
    int failures = 0;

    if (ka_api_version_number() != KA_API_VERSION_NUMBER) {
        fprintf(stderr, "library version %d, header %d\n", ka_api_version_number(),
                KA_API_VERSION_NUMBER);
        ++failures;
    }
    if (strcmp(ka_api_version(), KA_API_VERSION_STRING) != 0) {
        fprintf(stderr, "library version \"%s\", header \"%s\"\n", ka_api_version(),
                KA_API_VERSION_STRING);
        ++failures;
    }
    /* KIVO at zero joints stands upright: the flange lies on the base Z axis
       at 0.2405 + 0.256 + 0.21 + 0.144 = 0.8505 m. */
    if (ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B) != 0) {
        fprintf(stderr, "ka_algo_init_sys_data failed\n");
        ++failures;
    }
    flange = ka_algo_forward_kinematics(NULL, zero);
    if (fabsf(flange.position.x) > 1e-5f || fabsf(flange.position.y) > 1e-5f ||
        fabsf(flange.position.z - 0.8505f) > 1e-5f) {
        fprintf(stderr, "flange at zero joints: %f %f %f m\n", flange.position.x, flange.position.y,
                flange.position.z);
        ++failures;
    }
    if (!dladdr((void *)ka_api_version_number, &info) || !info.dli_fname) {
        fprintf(stderr, "dladdr found no library\n");
        ++failures;
    } else {
        printf("loaded from %s\n", info.dli_fname);
    }
    return failures == 0 ? 0 : 1;
}
