// Arm and controller state queries.
#include "core/command.h"
#include "core/registry.h"
#include "ka_algo.h"

#include <cstring>

namespace {

// Bounded copy that adds no terminator when the text fills the field, as the
// fixed-width version record has always been filled.
template <size_t N> void copy_fixed(char (&field)[N], const char *text, size_t limit) {
    std::strncpy(field, text, limit < N ? limit : N);
}

// Reads the required string `key` of `object` into field; logs `what` when
// it is missing.
template <size_t N>
bool read_version(const cJSON *object, const char *key, char (&field)[N], size_t limit,
                  const char *what) {
    const char *text = MIO_JSON_GetObjectItemStr(object, key);
    if (!text) {
        ka_log_error("[ka_get_arm_software_info] %s parse err\n", what);
        return false;
    }
    copy_fixed(field, text, limit);
    ka_log_info("[ka_get_arm_software_info] %s: %s\n", what, text);
    return true;
}

// Per-joint readings in thousandths of the caller's unit.
constexpr auto joint_degree =
    cmd::joints<"get_joint_degree">("joint", scale::from_thousandths, "joint_degree");
constexpr auto joint_temperature = cmd::joints<"get_current_joint_temperature">(
    "joint_temperature", scale::from_thousandths, "current_joint_temperature");
constexpr auto joint_current = cmd::joints<"get_current_joint_current">(
    "joint_current", scale::from_thousandths, "current_joint_current");
constexpr auto joint_voltage = cmd::joints<"get_current_joint_voltage">(
    "joint_voltage", scale::from_thousandths, "current_joint_voltage");
// Answered under the query's own name.
constexpr auto joint_odom = cmd::joints<"get_joint_odom">("odom", scale::from_thousandths);

constexpr auto arm_power = cmd::set<"set_arm_power">("arm_power");
constexpr auto clear_runtime = cmd::set<"clear_system_runtime">("clear_state");
constexpr auto clear_odom = cmd::set<"clear_joint_odom">("clear_state");
constexpr auto clear_err = cmd::set<"clear_system_err">("clear_state");

// Joint error codes pass through single precision, as callers have always
// received them: codes above 2^24 lose their low bits.
int32_t through_float(int32_t v) { return scale::truncate(static_cast<float>(v)); }

} // namespace

extern "C" {

int ka_get_joint_degree(ka_robot_handle *h, float *joint) {
    return cmd::run(joint_degree, h, joint);
}
int ka_get_current_joint_temperature(ka_robot_handle *h, float *temperature) {
    return cmd::run(joint_temperature, h, temperature);
}
int ka_get_current_joint_current(ka_robot_handle *h, float *current) {
    return cmd::run(joint_current, h, current);
}
int ka_get_current_joint_voltage(ka_robot_handle *h, float *voltage) {
    return cmd::run(joint_voltage, h, voltage);
}
int ka_get_joint_odom(ka_robot_handle *h, float *odom) { return cmd::run(joint_odom, h, odom); }

// A reply without one of the keys gives the exchange's positive result and
// leaves the record as it was.
int ka_get_current_arm_state(ka_robot_handle *h, ka_current_arm_state_t *state) {
    if (!state) return -1;
    ka_reply_field fields[] = {cmd::int_field("arm_err"), cmd::int_field("sys_err"),
                               cmd::joints_field("joint"), cmd::ints_field("pose", 6)};
    cmd::query_result r = cmd::read(
        {"ka_get_current_arm_state", "get_current_arm_state", "current_arm_state"}, h, fields);
    if (r.unparsed) return r.length;
    if (r.status != 0) return r.status;
    cmd::put_joints(state->joint, fields[2], r.dof, scale::from_thousandths);
    state->arm_err = cmd::low_bits<uint8_t>(fields[0].value.i);
    state->sys_err = cmd::low_bits<uint8_t>(fields[1].value.i);
    cmd::pose_from_wire(fields[3].value.a, state->pose);
    state->pose.quaternion = ka_algo_euler2quaternion(state->pose.euler);
    return 0;
}

int ka_get_arm_all_state(ka_robot_handle *h, ka_arm_all_state_t *state) {
    if (!state) return -1;
    ka_reply_field fields[] = {cmd::joints_field("temperature"), cmd::joints_field("current"),
                               cmd::joints_field("voltage"),     cmd::joints_field("err_flag"),
                               cmd::joints_field("en_flag"),     cmd::int_field("sys_err")};
    cmd::query_result r =
        cmd::read({"ka_get_arm_all_state", "get_arm_all_state", "arm_all_state"}, h, fields);
    if (r.status != 0) return r.status;
    auto as_is = [](int32_t v) { return v; };
    cmd::put_joints(state->joint_temperature, fields[0], r.dof, scale::from_thousandths);
    cmd::put_joints(state->joint_current, fields[1], r.dof, scale::from_thousandths);
    cmd::put_joints(state->joint_voltage, fields[2], r.dof, scale::from_thousandths);
    cmd::put_joints(state->joint_err_code, fields[3], r.dof, through_float);
    cmd::put_joints(state->joint_en_flag, fields[4], r.dof, as_is);
    state->sys_err = fields[5].value.i;
    return 0;
}

int ka_get_joint_err_flag(ka_robot_handle *h, uint16_t *err_flag, uint16_t *brake_state) {
    if (!err_flag || !brake_state) return -1;
    ka_reply_field fields[] = {cmd::joints_field("err_flag"), cmd::joints_field("brake_state")};
    cmd::query_result r =
        cmd::read({"ka_get_joint_err_flag", "get_joint_err_flag", "joint_err_flag"}, h, fields);
    if (r.status != 0) return r.status;
    cmd::put_joints(err_flag, fields[0], r.dof, cmd::low_bits<uint16_t>);
    cmd::put_joints(brake_state, fields[1], r.dof, cmd::low_bits<uint16_t>);
    return 0;
}

int ka_get_controller_state(ka_robot_handle *h, float *voltage, float *current, float *temperature,
                            int *err_flag) {
    if (!voltage || !current || !temperature || !err_flag) return -1;
    ka_reply_field fields[] = {cmd::int_field("voltage"), cmd::int_field("current"),
                               cmd::int_field("temperature"), cmd::int_field("err_flag")};
    cmd::query_result r = cmd::read(
        {"ka_get_controller_state", "get_controller_state", "controller_state"}, h, fields);
    if (r.status != 0) return r.status;
    *voltage = scale::from_thousandths(fields[0].value.i);
    *current = scale::from_thousandths(fields[1].value.i);
    *temperature = scale::from_thousandths(fields[2].value.i);
    *err_flag = fields[3].value.i;
    return 0;
}

int ka_get_arm_power_state(ka_robot_handle *h, int *power_state) {
    if (!power_state) return -1;
    int32_t value = 0;
    int result =
        cmd::run(cmd::value<"get_arm_power_state">("power_state", "arm_power_state"), h, value);
    if (result == 0) *power_state = value;
    return result;
}

// Answered under the query's own name.
int ka_get_system_runtime(ka_robot_handle *h, int *day, int *hour, int *min, int *sec) {
    if (!day || !hour || !min || !sec) return -1;
    ka_reply_field fields[] = {cmd::int_field("day"), cmd::int_field("hour"), cmd::int_field("min"),
                               cmd::int_field("sec")};
    cmd::query_result r =
        cmd::read({"ka_get_system_runtime", "get_system_runtime", "get_system_runtime"}, h, fields);
    if (r.status != 0) return r.status;
    *day = fields[0].value.i;
    *hour = fields[1].value.i;
    *min = fields[2].value.i;
    *sec = fields[3].value.i;
    return 0;
}

int ka_set_arm_power(ka_robot_handle *h, int power) {
    return cmd::run(arm_power, h, {cmd::number("arm_power", power)});
}
int ka_clear_system_runtime(ka_robot_handle *h) { return cmd::run(clear_runtime, h); }
int ka_clear_joint_odom(ka_robot_handle *h) { return cmd::run(clear_odom, h); }
int ka_clear_system_err(ka_robot_handle *h) { return cmd::run(clear_err, h); }

} // extern "C"

extern "C" int ka_get_arm_software_info(ka_robot_handle *handle, ka_arm_software_version_t *info) {
    if (!info) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query<"get_arm_software_info">("arm_software_info"), handle, reply);
    if (n < 1) return n;
    json_ptr doc = json_parse(reply.text);
    if (!doc) {
        ka_log_error("[ka_get_arm_software_info] Arm software info parse err\n");
        return -1;
    }
    const cJSON *root = doc.get();
    if (!read_version(root, "Product_version", info->product_version, 10, "Product version"))
        return -1;
    if (const cJSON *algorithm = cJSON_GetObjectItem(root, "algorithm_info"))
        if (!read_version(algorithm, "version", info->algorithm_version, 20, "Algorithm version"))
            return -1;
    const cJSON *ctrl = cJSON_GetObjectItem(root, "ctrl_info");
    if (ctrl && (!read_version(ctrl, "version", info->ctrl_version, 8, "Ctrl version") ||
                 !read_version(ctrl, "build_time", info->ctrl_build_time, 20, "Ctrl build Time")))
        return -1;
    if (const cJSON *dynamic = cJSON_GetObjectItem(root, "dynamic_info"))
        if (!read_version(dynamic, "model_version", info->dynamic_model_version, 5,
                          "Dynamic model version"))
            return -1;
    // The plan fields repeat the controller's version and build time: the
    // controller reports them under "ctrl_info" whenever "plan_info" is there.
    if (cJSON_GetObjectItem(root, "plan_info") &&
        (!read_version(ctrl, "version", info->plan_version, 8, "Plan version") ||
         !read_version(ctrl, "build_time", info->plan_build_time, 18, "Plan build Time")))
        return -1;
    // The product text is searched from product_version onward; a full
    // ten-character product text runs on into the following fields.
    return registry_detect_model(handle, info->product_version, sizeof *info);
}
