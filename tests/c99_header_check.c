/* Compiled as strict C99: the public header must be plain C. */
#include "ka_api.h"

#include <stdio.h>
#include <string.h>

int main(void) {
    ka_realtime_arm_joint_state_t state;
    ka_robot_info_t info;
    memset(&state, 0, sizeof state);
    /* Calls that need no arm: version text and an unregistered handle. */
    if (strcmp(ka_api_version(), KA_API_VERSION_STRING) != 0) return 1;
    if (ka_get_robot_info(NULL, &info) != KA_ERR_LOCAL) return 2;
    printf("ka_api %s, state record %u bytes\n", ka_api_version(), (unsigned)sizeof state);
    return 0;
}
