// Blocking completion waits shared by the planned motions and the steps: the
// controller accepts a motion at once and reports its end later with a
// "current_trajectory_state" line; a blocking call waits for that report,
// and asks the controller what is running when the report is late.
#pragma once

#include "core/arm.h"

namespace motion {

// The report that ends a motion (or a chain of connected motions).
constexpr const char *completion_report = "current_trajectory_state";

// How the threaded wait follows a motion.
enum class follow_style {
    // The planned motions: wait for the report; when it is late, query the
    // running trajectory, 100 ms apart.
    report_first,
    // ka_movej_p: query the running trajectory, 100 ms apart; take the
    // report once the arm is idle.
    query_first,
    // The steps: as query_first, but query again at once while the step runs.
    step,
};

struct completion_wait {
    const char *function; // label of "[%s] current device is: %d \n"
    int kind;             // ka_arm_current_trajectory_e the command runs as
    follow_style style;
    int report_size; // bytes of the buffer the report is read into
};

// Held by a blocking call from before its request is sent until its wait
// ends. Reports still queued from earlier non-blocking motions are purged so
// that they cannot end this wait, and while the scope lives no lookup on the
// arm drops a completion report (the waiter's own queries included).
class blocking_scope {
  public:
    explicit blocking_scope(const ka_robot_handle *handle);
    ~blocking_scope();
    blocking_scope(const blocking_scope &) = delete;
    blocking_scope &operator=(const blocking_scope &) = delete;

  private:
    arm_ptr arm_;
};

// An accepted motion: its completion report is now expected on the arm.
void expect_completion(const ka_robot_handle *handle);

// Waits for the accepted motion to finish. Thread mode 0: block is a number
// of seconds, one read of up to 1000 ms each (-5 when they run out or block
// is 0). Modes 1 and 2: no overall limit. 0 finished, 1 ended with
// "trajectory_state" false, -3 unparsable report, -4 the chain ended on
// another device, the trajectory query's status after its sixth failure;
// any other mode gives accepted_length, the accepting exchange's result.
int wait_for_completion(ka_robot_handle *handle, const completion_wait &wait, int block,
                        int accepted_length);

} // namespace motion
