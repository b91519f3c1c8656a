// Tool and work frames.
#include "algo/handover.h"
#include "core/command.h"

#include <cstring>
#include <mutex>

namespace {

// The six pose integers: x, y, z in micrometres, rx, ry, rz in milliradians.
bool read_pose(const cJSON *array, ka_pose_t &pose) {
    if (!cJSON_IsArray(array) || cJSON_GetArraySize(array) < 6) return false;
    int v[6];
    for (int i = 0; i < 6; ++i) {
        const cJSON *item = cJSON_GetArrayItem(array, i);
        if (!cJSON_IsNumber(item)) return false;
        v[i] = json_int(item);
    }
    pose.position = {scale::from_millionths(v[0]), scale::from_millionths(v[1]),
                     scale::from_millionths(v[2])};
    pose.euler = {scale::from_thousandths(v[3]), scale::from_thousandths(v[4]),
                  scale::from_thousandths(v[5])};
    return true;
}

// How a current-frame reply is read: the tool frame also carries payload and
// centre of mass; the work frame requires its name.
struct frame_read {
    const char *function; // label of the log lines
    const char *api;      // the exported function
    const char *command;
    const char *reply;
    const char *name_key;
    size_t name_limit; // 10 for tool frames, 12 for work frames
    bool tool;
};

constexpr frame_read tool_read{"get_current_tool_frame", "ka_get_current_tool_frame",
                               "get_current_tool_frame", "current_tool_frame", "tool_name", 10,
                               true};
constexpr frame_read work_read{"get_current_work_frame", "ka_get_current_work_frame",
                               "get_current_work_frame", "current_work_frame", "frame_name", 12,
                               false};

int parse_error(const char *function, const char *what) {
    ka_log_error("[%s] %s parse err\n", function, what);
    return -1;
}

int parse_frame(const frame_read &r, const char *text, ka_frame_t &frame) {
    json_ptr doc = json_parse(text);
    const char *kind = r.tool ? "Tool frame" : "Work frame";
    if (!doc) return parse_error(r.function, r.tool ? "Current tool frame" : "Current Work frame");
    const cJSON *root = doc.get();
    const char *name = MIO_JSON_GetObjectItemStr(root, r.name_key);
    if (!name && !r.tool) return parse_error(r.function, "Work frame Name");
    if (name) {
        std::strncpy(frame.frame_name, name, r.name_limit);
        ka_log_info("[%s] %s Name: %s\n", r.function, kind, name);
    }
    if (!read_pose(cJSON_GetObjectItem(root, "pose"), frame.pose))
        return parse_error(r.function, r.tool ? "Tool frame pose" : "Work frame pose");
    const ka_pose_t &p = frame.pose;
    ka_log_info("[%s] %s pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n", r.function, kind,
                p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz);
    if (!r.tool) return 0;
    int payload = MIO_JSON_GetObjectItemInt(root, "payload");
    if (payload < 0) return parse_error(r.function, "Tool frame payload");
    frame.payload = scale::from_thousandths(payload);
    ka_log_info("[%s] Tool frame payloda: %.3f\n", r.function, frame.payload);
    // The centre of mass is never behind the flange: a negative coordinate
    // marks a reply this library does not accept.
    const cJSON *position = cJSON_GetObjectItem(root, "position");
    float com[3];
    for (int i = 0; i < 3; ++i) {
        const cJSON *item = cJSON_IsArray(position) ? cJSON_GetArrayItem(position, i) : nullptr;
        com[i] = cJSON_IsNumber(item) ? scale::from_millionths(json_int(item)) : -1.0f;
        if (com[i] < 0) return parse_error(r.function, "Tool frame position");
    }
    frame.x = com[0];
    frame.y = com[1];
    frame.z = com[2];
    ka_log_info("[%s] Tool frame position: (%.3f, %.3f, %.3f)\n", r.function, com[0], com[1], com[2]);
    return 0;
}

int read_current_frame(const frame_read &r, ka_robot_handle *handle, ka_frame_t *out) {
    if (!out) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{r.api, r.command, r.reply}, handle, reply);
    if (n < 1) return n;
    ka_frame_t frame = *out; // the quaternion is never sent: it stays as the caller had it
    if (int parsed = parse_frame(r, reply.text, frame); parsed != 0) return parsed;
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    {
        std::lock_guard<std::mutex> lock(arm->cache_mutex);
        (r.tool ? arm->tool_frame : arm->work_frame) = frame;
    }
    if (r.tool)
        algo_set_current_tool_frame(frame);
    else
        algo_set_current_work_frame(frame);
    *out = frame;
    return 0;
}

} // namespace

extern "C" {
int ka_get_current_tool_frame(ka_robot_handle *h, ka_frame_t *frame) {
    return read_current_frame(tool_read, h, frame);
}
int ka_get_current_work_frame(ka_robot_handle *h, ka_frame_t *frame) {
    return read_current_frame(work_read, h, frame);
}
}
