// Arm and controller state queries.
#include "core/command.h"
#include "core/registry.h"

#include <cstring>

namespace {

using cmd::as;
using cmd::per_joint;
constexpr auto milli = as::thousandths;

// clang-format off
// Per-joint readings in thousandths of the caller's unit; odom and runtime answered under their own name.
constexpr auto joint_degree = cmd::joints<"get_joint_degree">("joint", milli, "joint_degree");
constexpr auto joint_temperature = cmd::joints<"get_current_joint_temperature">("joint_temperature", milli, "current_joint_temperature");
constexpr auto joint_current = cmd::joints<"get_current_joint_current">("joint_current", milli, "current_joint_current");
constexpr auto joint_voltage = cmd::joints<"get_current_joint_voltage">("joint_voltage", milli, "current_joint_voltage");
constexpr auto joint_odom = cmd::joints<"get_joint_odom">("odom", milli);
constexpr auto arm_state = cmd::or_length(cmd::query<"get_current_arm_state">("current_arm_state", {{"arm_err"}, {"sys_err"}, {"joint", milli, per_joint}, {"pose", as::pose}}));
// Joint error codes pass through single precision, as callers have always
// received them: codes above 2^24 lose their low bits.
constexpr auto all_state = cmd::query<"get_arm_all_state">("arm_all_state", {{"temperature", milli, per_joint}, {"current", milli, per_joint}, {"voltage", milli, per_joint}, {"err_flag", as::through_float, per_joint}, {"en_flag", as::plain, per_joint}, {"sys_err"}});
constexpr auto err_flags = cmd::query<"get_joint_err_flag">("joint_err_flag", {{"err_flag", as::plain, per_joint}, {"brake_state", as::plain, per_joint}});
constexpr auto controller_state = cmd::query<"get_controller_state">("controller_state", {{"voltage", milli}, {"current", milli}, {"temperature", milli}, {"err_flag"}});
constexpr auto power = cmd::value<"get_arm_power_state">("power_state", "arm_power_state");
constexpr auto runtime = cmd::query<"get_system_runtime">(nullptr, {{"day"}, {"hour"}, {"min"}, {"sec"}});
constexpr auto arm_power = cmd::set1<"set_arm_power">("arm_power");
constexpr auto clear_runtime = cmd::set<"clear_system_runtime">("clear_state");
constexpr auto clear_odom = cmd::set<"clear_joint_odom">("clear_state");
constexpr auto clear_err = cmd::set<"clear_system_err">("clear_state");
constexpr auto software_info = cmd::query<"get_arm_software_info">("arm_software_info");
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_get_joint_degree(ka_robot_handle *h, float *joint) { return joint_degree(h, joint); }
int ka_get_current_joint_temperature(ka_robot_handle *h, float *temperature) { return joint_temperature(h, temperature); }
int ka_get_current_joint_current(ka_robot_handle *h, float *current) { return joint_current(h, current); }
int ka_get_current_joint_voltage(ka_robot_handle *h, float *voltage) { return joint_voltage(h, voltage); }
int ka_get_joint_odom(ka_robot_handle *h, float *odom) { return joint_odom(h, odom); }
int ka_get_current_arm_state(ka_robot_handle *h, ka_current_arm_state_t *s) { return s ? arm_state(h, &s->arm_err, &s->sys_err, s->joint, &s->pose) : -1; }
int ka_get_arm_all_state(ka_robot_handle *h, ka_arm_all_state_t *s) { return s ? all_state(h, s->joint_temperature, s->joint_current, s->joint_voltage, s->joint_err_code, s->joint_en_flag, &s->sys_err) : -1; }
int ka_get_joint_err_flag(ka_robot_handle *h, uint16_t *err_flag, uint16_t *brake_state) { return err_flags(h, err_flag, brake_state); }
int ka_get_controller_state(ka_robot_handle *h, float *voltage, float *current, float *temperature, int *err_flag) { return controller_state(h, voltage, current, temperature, err_flag); }
int ka_get_arm_power_state(ka_robot_handle *h, int *power_state) { return power(h, power_state); }
int ka_get_system_runtime(ka_robot_handle *h, int *day, int *hour, int *min, int *sec) { return runtime(h, day, hour, min, sec); }
int ka_set_arm_power(ka_robot_handle *h, int power) { return arm_power(h, power); }
int ka_clear_system_runtime(ka_robot_handle *h) { return clear_runtime(h); }
int ka_clear_joint_odom(ka_robot_handle *h) { return clear_odom(h); }
int ka_clear_system_err(ka_robot_handle *h) { return clear_err(h); }
// clang-format on

// Irregular: the version texts sit in optional objects; plan texts repeat those of "ctrl_info".
int ka_get_arm_software_info(ka_robot_handle *handle, ka_arm_software_version_t *info) {
    if (!info) return -1;
    json_ptr doc;
    if (int n = cmd::run(software_info, handle, doc); n < 1) return n;
    if (!doc) {
        ka_log_error("[ka_get_arm_software_info] Arm software info parse err\n");
        return -1;
    }
    // clang-format off
    const struct { const char *when, *from, *key; char *field; size_t bytes; const char *what; } texts[] = {
        {nullptr, nullptr, "Product_version", info->product_version, 10, "Product version"},
        {"algorithm_info", "algorithm_info", "version", info->algorithm_version, 20, "Algorithm version"},
        {"ctrl_info", "ctrl_info", "version", info->ctrl_version, 8, "Ctrl version"},
        {"ctrl_info", "ctrl_info", "build_time", info->ctrl_build_time, 20, "Ctrl build Time"},
        {"dynamic_info", "dynamic_info", "model_version", info->dynamic_model_version, 5, "Dynamic model version"},
        {"plan_info", "ctrl_info", "version", info->plan_version, 8, "Plan version"},
        {"plan_info", "ctrl_info", "build_time", info->plan_build_time, 18, "Plan build Time"},
    };
    // clang-format on
    for (const auto &t : texts) {
        if (t.when && !cJSON_GetObjectItem(doc.get(), t.when)) continue;
        const cJSON *from = t.from ? cJSON_GetObjectItem(doc.get(), t.from) : doc.get();
        const char *text = MIO_JSON_GetObjectItemStr(from, t.key);
        if (!text) {
            ka_log_error("[ka_get_arm_software_info] %s parse err\n", t.what);
            return -1;
        }
        std::strncpy(t.field, text, t.bytes);
        ka_log_info("[ka_get_arm_software_info] %s: %s\n", t.what, text);
    }
    // Searched from product_version on: a full ten-character product text runs into what follows.
    return registry_detect_model(handle, info->product_version, sizeof *info);
}

} // extern "C"
