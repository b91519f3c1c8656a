// Built against an installed ka_api through find_package and ka::api, using
// the C++ facade. Prints the file the library was loaded from (the driver
// checks it is the installed copy) and exits non-zero on a wrong result.
#include <ka_service.h>

#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <cstring>

int main() {
    KA_Service robot;
    int failures = 0;

    if (robot.ka_api_version_number() != KA_API_VERSION_NUMBER ||
        std::strcmp(robot.ka_api_version(), KA_API_VERSION_STRING) != 0) {
        std::fprintf(stderr, "library version %s (%d), header %s\n", robot.ka_api_version(),
                     robot.ka_api_version_number(), KA_API_VERSION_STRING);
        ++failures;
    }
    // KIVO at zero joints stands upright: flange at 0.8505 m on the base Z axis.
    float zero[7] = {};
    if (robot.ka_algo_init_sys_data(KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B) != 0) {
        std::fprintf(stderr, "ka_algo_init_sys_data failed\n");
        ++failures;
    }
    const ka_pose_t flange = robot.ka_algo_forward_kinematics(nullptr, zero);
    if (std::fabs(flange.position.x) > 1e-5f || std::fabs(flange.position.y) > 1e-5f ||
        std::fabs(flange.position.z - 0.8505f) > 1e-5f) {
        std::fprintf(stderr, "flange at zero joints: %f %f %f m\n", flange.position.x,
                     flange.position.y, flange.position.z);
        ++failures;
    }
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void *>(&ka_api_version_number), &info) || !info.dli_fname) {
        std::fprintf(stderr, "dladdr found no library\n");
        ++failures;
    } else {
        std::printf("loaded from %s\n", info.dli_fname);
    }
    return failures == 0 ? 0 : 1;
}
