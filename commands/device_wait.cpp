#include "commands/device_wait.h"

#include "commands/motion_wait.h"
#include "core/exchange.h"
#include "core/scale.h"

#include <algorithm>

namespace device {

std::optional<report> next_report(ka_robot_handle *handle, const char *function, int timeout_ms,
                                  int size) {
    char text[reply_buffer_size] = {};
    size = std::clamp(size, 1, static_cast<int>(sizeof text));
    if (ka_pack_lock_wait(function, handle, motion::completion_report, text, size, timeout_ms) < 1)
        return std::nullopt;
    report r{};
    r.reading = parse_ka_move_command(text, &r.device, &r.connect);
    return r;
}

std::optional<int> ended_badly(const report &r) {
    if (r.reading == 0) return 1;
    if (r.reading == -3) return -3;
    return std::nullopt;
}

int milliseconds(int seconds) { return scale::truncate(static_cast<double>(seconds) * 1000.0); }

} // namespace device
