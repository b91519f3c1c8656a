// Arm and controller state queries.
#include "core/registry.h"
#include "core/reply_schema.h"

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
// Joint error codes pass through single precision, as callers have always received them.
constexpr auto all_state = cmd::query<"get_arm_all_state">("arm_all_state", {{"temperature", milli, per_joint}, {"current", milli, per_joint}, {"voltage", milli, per_joint}, {"err_flag", as::through_float, per_joint}, {"en_flag", as::plain, per_joint}, {"sys_err"}});
constexpr auto err_flags = cmd::query<"get_joint_err_flag">("joint_err_flag", {{"err_flag", as::plain, per_joint}, {"brake_state", as::plain, per_joint}});
constexpr auto controller_state = cmd::query<"get_controller_state">("controller_state", {{"voltage", milli}, {"current", milli}, {"temperature", milli}, {"err_flag"}});
constexpr auto power = cmd::value<"get_arm_power_state">("power_state", "arm_power_state");
constexpr auto runtime = cmd::query<"get_system_runtime">(nullptr, {{"day"}, {"hour"}, {"min"}, {"sec"}});
constexpr auto arm_power = cmd::set1<"set_arm_power">("arm_power");
constexpr auto clear_runtime = cmd::set<"clear_system_runtime">("clear_state");
constexpr auto clear_odom = cmd::set<"clear_joint_odom">("clear_state");
constexpr auto clear_err = cmd::set<"clear_system_err">("clear_state");
// The version texts sit in optional objects; the plan texts repeat those of "ctrl_info".
using versions = ka_arm_software_version_t;
template <auto Member> constexpr reply::field version(const char *key, int limit, const char *label, const char *line) { return reply::text<Member>(key, limit).named(label).show(line); }
constexpr reply::field algorithm[] = {version<&versions::algorithm_version>("version", 20, "Algorithm version", "[%s] Algorithm version: %s\n")};
constexpr reply::field ctrl[] = {version<&versions::ctrl_version>("version", 8, "Ctrl version", "[%s] Ctrl version: %s\n"), version<&versions::ctrl_build_time>("build_time", 20, "Ctrl build Time", "[%s] Ctrl build Time: %s\n")};
constexpr reply::field dynamic[] = {version<&versions::dynamic_model_version>("model_version", 5, "Dynamic model version", "[%s] Dynamic model version: %s\n")};
constexpr reply::field plan[] = {version<&versions::plan_version>("version", 8, "Plan version", "[%s] Plan version: %s\n"), version<&versions::plan_build_time>("build_time", 18, "Plan build Time", "[%s] Plan build Time: %s\n")};
constexpr reply::field software_fields[] = {version<&versions::product_version>("Product_version", 10, "Product version", "[%s] Product version: %s\n"),
    reply::object("algorithm_info", algorithm, "algorithm_info"), reply::object("ctrl_info", ctrl, "ctrl_info"), reply::object("dynamic_info", dynamic, "dynamic_info"), reply::object("ctrl_info", plan, "plan_info")};
constexpr reply::schema software_reply{software_fields, -1, "[%s] Arm software info parse err\n", "[%s] %s parse err\n"};
// Searched from product_version on: a full ten-character product text runs into what follows.
int detect_model(const char *, ka_robot_handle *handle, const char *, void *record) { return registry_detect_model(handle, static_cast<versions *>(record)->product_version, sizeof(versions)); }
constexpr reply::record_query software_info{.command = cmd::query<"get_arm_software_info">("arm_software_info"), .reply = &software_reply, .then = detect_model};
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
int ka_get_arm_software_info(ka_robot_handle *h, ka_arm_software_version_t *info) { return software_info(h, info); }
// clang-format on

} // extern "C"
