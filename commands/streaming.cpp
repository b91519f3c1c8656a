// Passthrough and follow motion: a line per target straight onto the arm's socket, unanswered.
#include "core/command.h"

namespace {

using cmd::as;

// clang-format off
// Joints go out in millidegrees (the DOF checked, an unknown handle logged as disconnected); poses go unchecked and unlogged.
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
