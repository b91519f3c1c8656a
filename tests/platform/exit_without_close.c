/* Starts the library's threads in the given thread mode and ends the process
 * without closing the library, by returning from main or by exit(). The
 * process must end cleanly (status 0): no crash or hang in the library's
 * clean-up at exit. No arm is needed.
 *
 * Arguments: the thread mode (0, 1 or 2), "return" or "exit". */
#include "ka_api.h"

#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv) {
    if (argc != 3) return 2;
    if (ka_init(atoi(argv[1])) != 0) return 3;
    if (strcmp(argv[2], "exit") == 0) exit(0);
    return 0;
}
