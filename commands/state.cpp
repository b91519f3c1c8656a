// Arm and controller state queries.
#include "core/command.h"
#include "core/registry.h"

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

} // namespace

extern "C" int ka_get_arm_software_info(ka_robot_handle *handle, ka_arm_software_version_t *info) {
    if (!info) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{"ka_get_arm_software_info", "get_arm_software_info",
                                        "arm_software_info"},
                     handle, reply);
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
