// Passthrough and follow motion: a fresh target per call, streamed at the
// application's rate. Fire-and-forget on the hot path: one line straight onto
// the arm's socket, no reply read, then a yield of the processor.
#include "core/command.h"

namespace {

using cmd::as;

// Joints go out as DOF millidegree integers (the DOF checked first, an
// unknown handle logged as disconnected); the pose commands make no DOF
// check and say nothing about an unknown handle.
// clang-format off
constexpr auto movej_canfd = cmd::stream<"movej_canfd">({{"joint", as::joints}, {"follow"}, {"expand", as::thousandths}});
constexpr auto movej_follow = cmd::stream<"movej_follow">({{"joint", as::joints}});
constexpr auto movep_canfd = cmd::stream<"movep_canfd">({{"follow"}, {nullptr, as::target}});
constexpr auto movep_follow = cmd::stream<"movep_follow">({{nullptr, as::target}});
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_movej_canfd(ka_robot_handle *h, const float *joint, bool follow, float expand) { return movej_canfd(h, joint, follow, expand); }
int ka_movej_follow(ka_robot_handle *h, const float *joint) { return movej_follow(h, joint); }
int ka_movep_canfd(ka_robot_handle *h, ka_pose_t pose, bool follow) { return movep_canfd(h, follow, pose); }
int ka_movep_follow(ka_robot_handle *h, ka_pose_t pose) { return movep_follow(h, pose); }
// clang-format on

} // extern "C"
