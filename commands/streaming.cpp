// Passthrough and follow motion: a fresh target per call, streamed at the
// application's rate. Fire-and-forget: one line out, no reply read, then a
// yield of the processor. Rows of the set kind, run here rather than through
// cmd::exchange: this is the hot path, so the line goes straight onto the
// arm's socket, without the exchange's lock and pause.
#include "core/command.h"

#include <thread>

namespace {

using cmd::as;

// Joints go out as DOF millidegree integers (the DOF checked first, an
// unknown handle logged as disconnected); the pose commands make no DOF
// check and say nothing about an unknown handle.
// clang-format off
constexpr auto movej_canfd = cmd::send<"movej_canfd">(0, {{"joint", as::joints}, {"follow"}, {"expand", as::thousandths}});
constexpr auto movej_follow = cmd::send<"movej_follow">(0, {{"joint", as::joints}});
constexpr auto movep_canfd = cmd::send<"movep_canfd">(0, {{"follow"}, {nullptr, as::target}});
constexpr auto movep_follow = cmd::send<"movep_follow">(0, {{nullptr, as::target}});
// clang-format on

// Sends the row's line on the arm's socket and yields once. 0, or -1 (after
// the send-error line for a failed send).
template <typename... V> int stream(const cmd::set_command &c, ka_robot_handle *handle, V... v) {
    cmd::request r(c.function, handle);
    r.take(c.args, v...);
    if (r.status) return r.status;
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    ka_request_field fields[cmd::max_args + 1] = {cmd::text("command", c.command)};
    int count = 1;
    for (const auto &field : r.fields())
        fields[count++] = field;
    if (common_json_pack_set(arm.get(), fields, count) != 0) {
        ka_log_error("[%s] %s send error\n", c.function, c.command);
        return -1;
    }
    std::this_thread::yield();
    return 0;
}

} // namespace

extern "C" {

// clang-format off
int ka_movej_canfd(ka_robot_handle *h, const float *joint, bool follow, float expand) { return stream(movej_canfd, h, joint, follow, expand); }
int ka_movej_follow(ka_robot_handle *h, const float *joint) { return stream(movej_follow, h, joint); }
int ka_movep_canfd(ka_robot_handle *h, ka_pose_t pose, bool follow) { return stream(movep_canfd, h, follow, pose); }
int ka_movep_follow(ka_robot_handle *h, ka_pose_t pose) { return stream(movep_follow, h, pose); }
// clang-format on

} // extern "C"
