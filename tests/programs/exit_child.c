/* Opens an arm and ends the process without closing the library; the exit
 * must be clean in every thread mode.
 *
 * Arguments: the thread mode ("none": no ka_init, so the first arm starts
 * the library by itself), the controller's port on 127.0.0.1, "open" or
 * "deleted" (the arm is deleted before the end), "return" or "exit". */
#include "ka_api.h"

#include <stdlib.h>
#include <string.h>

static void on_event(ka_event_push_data_t data) { (void)data; }
static void on_state(ka_realtime_arm_joint_state_t state) { (void)state; }

int main(int argc, char **argv) {
    if (argc != 5) return 2;
    if (strcmp(argv[1], "none") != 0) ka_init(atoi(argv[1]));
    ka_get_arm_event_call_back(on_event);
    ka_realtime_arm_state_call_back(on_state);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", atoi(argv[2]));
    if (!arm || arm->id != 1) return 3;
    if (strcmp(argv[3], "deleted") == 0 && ka_delete_robot_arm(arm) != 0) return 4;
    if (strcmp(argv[4], "exit") == 0) exit(0);
    return 0;
}
