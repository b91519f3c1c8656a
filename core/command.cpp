#include "core/command.h"

#include "core/transport.h"

#include <mutex>
#include <string>

namespace cmd {

int exchange(const char *function, ka_robot_handle *handle, const char *command,
             std::initializer_list<ka_request_field> fields, const char *reply, int timeout_ms,
             char *buffer, int size) {
    ka_request_field all[24];
    int count = 0;
    all[count++] = text("command", command);
    for (const auto &field : fields)
        if (count < 24) all[count++] = field;
    return ka_pack_lock_set(function, handle, all, count, reply, buffer, size, timeout_ms);
}

int run(const set_command &c, ka_robot_handle *handle,
        std::initializer_list<ka_request_field> fields) {
    reply_text reply;
    int n = exchange(c.function, handle, c.command, fields, c.reply, c.timeout_ms, reply.text,
                     sizeof reply.text);
    if (n < 1) return n;
    return parse_ka_set_command(c.function, reply.text, c.result_key);
}

int run(const query_command &q, ka_robot_handle *handle, reply_text &reply) {
    return exchange(q.function, handle, q.command, {}, q.reply, q.timeout_ms, reply.text,
                    sizeof reply.text);
}

query_result read(const query_command &q, ka_robot_handle *handle,
                  std::span<ka_reply_field> fields) {
    reply_text reply;
    query_result r{0, run(q, handle, reply), 0};
    if (r.length < 1) {
        r.status = r.length;
        return r;
    }
    bool joints = false;
    for (const auto &field : fields)
        joints = joints || field.count == per_joint;
    if (joints) {
        r.dof = arm_dof(handle);
        if (!r.dof) {
            r.status = disconnected(q.function);
            return r;
        }
        for (auto &field : fields)
            if (field.count == per_joint) field.count = r.dof;
    }
    r.status =
        common_json_parse(q.function, reply.text, fields.data(), static_cast<int>(fields.size()));
    r.unparsed = r.status != 0;
    return r;
}

int run(const joint_query &q, ka_robot_handle *handle, float *out) {
    if (!out) return -1;
    ka_reply_field field = joints_field(q.key);
    query_result r = read({q.function, q.command, q.reply}, handle, {&field, 1});
    if (r.status != 0) return r.status;
    if (!q.cache) {
        put_joints(out, field, r.dof, q.convert);
        return 0;
    }
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    put_joints(out, field, r.dof, q.convert);
    put_joints((*arm).*q.cache, field, r.dof, q.convert);
    return 0;
}

int run(const value_query &q, ka_robot_handle *handle, int32_t &value) {
    ka_reply_field field = int_field(q.key);
    query_result r = read({q.function, q.command, q.reply}, handle, {&field, 1});
    if (r.unparsed) return r.length;
    if (r.status == 0) value = field.value.i;
    return r.status;
}

int send_formatted(const char *function, const char *command, ka_robot_handle *handle,
                   const cJSON *object, bool log_text) {
    printed_ptr text(cJSON_Print(object));
    if (!text) return -1;
    std::string line(text.get());
    line += "\r\n";
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    if (log_text) ka_log_debug("send is: %s\n", text.get());
    if (send_on_arm(*arm, line.data(), line.size()) != 0) {
        ka_log_error("[%s] %s send error\n", function, command);
        return -1;
    }
    return 0;
}

int run(const page_query &q, ka_robot_handle *handle, int page_num, int page_size,
        const char *vague_search, std::vector<char> &reply) {
    ka_request_field fields[4];
    int count = 0;
    fields[count++] = text("command", q.command);
    if (vague_search) fields[count++] = text("vague_search", vague_search);
    fields[count++] = number("page_num", page_num);
    fields[count++] = number("page_size", page_size);
    reply.assign(queue_line_capacity + 1, '\0');
    return ka_pack_lock_set(q.function, handle, fields, count, q.command, reply.data(),
                            static_cast<int>(reply.size()), q.timeout_ms);
}

void forget(const ka_robot_handle *handle, const char *name) {
    if (arm_ptr arm = registry_find(handle)) purge_lines(*arm, name);
}

int disconnected(const char *function) {
    ka_log_error("[%s] The robotic arm has been disconnected\n", function);
    return -1;
}

int arm_dof(const ka_robot_handle *handle) {
    arm_ptr arm = registry_find(handle);
    int dof = arm ? load_public(arm->pub.arm_dof) : 0;
    return dof == 6 || dof == 7 ? dof : 0;
}

} // namespace cmd

extern "C" {

int ka_set_data_common(ka_robot_handle *handle, int value, const char *command, const char *key) {
    if (!command || !key) return -1;
    return cmd::run(
        cmd::set_command{"ka_set_data_common", command, command, "set_state", m_nOutTime_max},
        handle, {cmd::number(key, value)});
}

int ka_get_data_common(ka_robot_handle *handle, int *value, const char *command, const char *key) {
    if (!value || !command || !key) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{"ka_get_data_common", command, command}, handle, reply);
    if (n < 1) return n;
    ka_reply_field field = cmd::int_field(key);
    int parsed = common_json_parse("ka_get_data_common", reply.text, &field, 1);
    if (parsed == 0) *value = field.value.i;
    return parsed;
}

} // extern "C"
