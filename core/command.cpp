#include "core/command.h"

#include "core/transport.h"
#include "ka_algo.h"

#include <cstring>

#include <mutex>
#include <string>
#include <thread>

namespace cmd {

int exchange(const char *function, ka_robot_handle *handle, const char *command,
             std::span<const ka_request_field> fields, const char *reply, int timeout_ms,
             char *buffer, int size) {
    ka_request_field all[24];
    int count = 0;
    all[count++] = text("command", command);
    for (const auto &field : fields)
        if (count < 24) all[count++] = field;
    return ka_pack_lock_set(function, handle, all, count, reply, buffer, size, timeout_ms);
}

int exchange(const char *function, ka_robot_handle *handle, const char *command,
             std::initializer_list<ka_request_field> fields, const char *reply, int timeout_ms,
             char *buffer, int size) {
    return exchange(function, handle, command, std::span(fields.begin(), fields.size()), reply,
                    timeout_ms, buffer, size);
}

ka_request_field &request::next(const char *key, int32_t type) {
    ka_request_field &f = field_[count_ < max_args ? count_++ : max_args - 1];
    f = {type, key, 0, {}};
    return f;
}

void request::array(const char *key, const int32_t *v, int count) {
    ka_request_field &f = next(key, KA_FIELD_INT_ARRAY);
    int32_t *store = store_[&f - field_];
    std::copy(v, v + count, store);
    f.count = count;
    f.value.a = store;
}

namespace {
// Floats travel in thousandths unless the tag names another unit.
scale::unit unit_of(as tag) {
    switch (tag) {
    case as::millionths:
        return scale::unit::millionths;
    case as::joint_rate:
        return scale::unit::joint_rate;
    case as::tenths:
        return scale::unit::tenths;
    case as::whole_tenths:
        return scale::unit::whole_tenths;
    default:
        return scale::unit::thousandths;
    }
}
int32_t to_wire(as tag, float v) { return scale::to_wire(unit_of(tag), v); }
float from_wire(as tag, int32_t v) { return scale::from_wire(unit_of(tag), v); }
int32_t int_from_wire(as scale, int32_t v) {
    return scale == as::through_float ? scale::truncate(static_cast<float>(v)) : v;
}
} // namespace

const arm_ptr &request::arm() {
    if (!looked_up_) arm_ = registry_find(handle_);
    looked_up_ = true;
    return arm_;
}

namespace {
int dof_of(const arm_ptr &arm) {
    int dof = arm ? load_public(arm->pub.arm_dof) : 0;
    return dof == 6 || dof == 7 ? dof : 0;
}
} // namespace

void request::add(const arg &a, int32_t v) {
    if (status) return;
    if (a.scale == as::direction) return add(a, v != 0 ? "pos" : "neg");
    if (a.scale == as::nonzero && v == 0) return;
    if (a.scale == as::axis) {
        if (v >= 0 && v < 3) return add(a, a.names[v]);
        ka_log_error("[%s] axis type %d is not 0, 1 or 2\n", function_, v);
        status = -1;
        return;
    }
    if (a.key || count_ == 0) {
        next(a.key, KA_FIELD_INT).value.i = v;
        return;
    }
    // A keyless value extends the previous field into an array.
    ka_request_field &f = field_[count_ - 1];
    int32_t *store = store_[count_ - 1];
    if (f.type == KA_FIELD_INT) {
        store[0] = f.value.i;
        f = {KA_FIELD_INT_ARRAY, f.key, 1, {}};
        f.value.a = store;
    }
    if (f.count < 7) store[f.count++] = v;
}
void request::add(const arg &a, float v) { add(a, to_wire(a.scale, v)); }
void request::add(const arg &a, bool v) {
    if (!status) next(a.key, KA_FIELD_BOOL).value.b = v;
}
void request::add(const arg &a, const char *v) {
    if (!status) next(a.key, KA_FIELD_STRING).value.s = v;
}
void request::add(const arg &a, const float *v) {
    if (status) return;
    if (a.scale == as::six_tenths || a.scale == as::six_thousandths) {
        const as each = a.scale == as::six_tenths ? as::tenths : as::thousandths;
        int32_t w[6];
        for (int i = 0; i < 6; ++i)
            w[i] = to_wire(each, v[i]);
        array(a.key, w, 6);
        return;
    }
    const int dof = dof_of(arm());
    if (!dof) {
        status = disconnected(function_);
        return;
    }
    wire_joints w = joints_to_wire(v, dof);
    for (int i = 0; a.scale == as::joints_single && i < w.count; ++i)
        w.v[i] = scale::thousandths(v[i]);
    array(a.key, w.v, w.count);
}
void request::add(const arg &a, const int *v) {
    if (status) return;
    if (a.scale != as::registers && a.scale != as::coil_bytes) {
        array(a.key, v, 6);
        return;
    }
    // A bus data block: up to 250 entries, sent from the caller's array.
    const int length = bus_data_length(a.scale, bus_num_).wire;
    if (length < 0) {
        status = -1;
        return;
    }
    ka_request_field &f = next(a.key, KA_FIELD_INT_ARRAY);
    f.count = length;
    f.value.a = v;
}
void request::add(const arg &a, const ka_peripheral_read_write_params_t &v) {
    if (status) return;
    next("port", KA_FIELD_INT).value.i = v.port;
    next("address", KA_FIELD_INT).value.i = v.address;
    if (a.scale != as::bus_count) return;
    next("num", KA_FIELD_INT).value.i = v.num;
    bus_num_ = v.num;
}

bus_data bus_data_length(as shape, int32_t num) {
    switch (shape) {
    case as::registers:
        if (num >= 0 && num <= max_registers) return {num * 2, num * 2};
        break;
    case as::coil_bytes:
        if (num >= 0 && num <= max_coils) return {num / 8, num / 8};
        break;
    case as::coil_groups:
        // Fewer than 8 coils copy nothing; 12 coils receive 2 groups and
        // copy 1. Callers size their buffers by the rounded-down count.
        if (num >= 0 && num <= max_coils) return {(num + 7) / 8, num / 8};
        break;
    default:
        break;
    }
    return {};
}
void request::add(const arg &a, const ka_pose_t &v) {
    if (status) return;
    if (a.scale == as::target) {
        wire_target t = pose_target(v);
        array(t.key, t.v, t.count);
    } else {
        array(a.key, pose_to_wire(v).v, 6);
    }
}

void reply_outs::bind(const out &o, void *to, target t) {
    if (count_ == max_outs) {
        bad = true;
        return;
    }
    ka_reply_field &f = field_[count_];
    if (t == target::text)
        f = text_field(o.key);
    else if (t == target::pose)
        f = ints_field(o.key, 6);
    else
        f = o.count ? ints_field(o.key, o.count) : int_field(o.key);
    out_[count_] = o;
    to_[count_] = to;
    kind_[count_++] = t;
}

void reply_outs::put(int dof) const {
    for (int k = 0; k < count_; ++k) {
        const ka_reply_field &f = field_[k];
        const as scale = out_[k].scale;
        const int n = out_[k].count == per_joint ? dof : out_[k].count;
        switch (kind_[k]) {
        case target::f32: {
            auto *to = static_cast<float *>(to_[k]);
            if (!n) *to = from_wire(scale, f.value.i);
            put_joints(to, f, n, [&](int32_t v) { return from_wire(scale, v); });
            break;
        }
        case target::i32: {
            auto *to = static_cast<int32_t *>(to_[k]);
            if (!n) *to = int_from_wire(scale, f.value.i);
            put_joints(to, f, n, [&](int32_t v) { return int_from_wire(scale, v); });
            break;
        }
        case target::u8:
            if (!n) *static_cast<uint8_t *>(to_[k]) = low_bits<uint8_t>(f.value.i);
            put_joints(static_cast<uint8_t *>(to_[k]), f, n, low_bits<uint8_t>);
            break;
        case target::u16:
            if (!n) *static_cast<uint16_t *>(to_[k]) = low_bits<uint16_t>(f.value.i);
            put_joints(static_cast<uint16_t *>(to_[k]), f, n, low_bits<uint16_t>);
            break;
        case target::text:
            // Text that fills the buffer is left without a terminator, as the
            // fixed-width records have always been filled.
            std::strncpy(static_cast<char *>(to_[k]), f.value.s, out_[k].count);
            break;
        case target::pose: {
            auto *pose = static_cast<ka_pose_t *>(to_[k]);
            pose_from_wire(f.value.a, *pose);
            pose->quaternion = ka_algo_euler2quaternion(pose->euler);
            break;
        }
        }
    }
}

namespace {
int judge(const set_command &c, ka_robot_handle *handle, const char *reply) {
    int status = parse_ka_set_command(c.function, reply, c.result_key);
    if (status == 1 && c.refused_line) ka_log_error(c.refused_line, c.function);
    if (status != 0) return status;
    if (c.then) return c.then(handle);
    if (!c.refresh) return 0;
    float scratch[7] = {};
    return (*c.refresh)(handle, scratch);
}
} // namespace

int run(const set_command &c, ka_robot_handle *handle, std::span<const ka_request_field> fields) {
    if (!c.result_key)
        return exchange(c.function, handle, c.command, fields, nullptr, c.timeout_ms, nullptr, 0);
    if (c.forget_unread) forget(handle, c.reply);
    reply_text reply;
    int n = exchange(c.function, handle, c.command, fields, c.reply, c.timeout_ms, reply.text,
                     sizeof reply.text);
    return n < 1 ? n : judge(c, handle, reply.text);
}

int await(const set_command &c, ka_robot_handle *handle) {
    reply_text reply;
    int n =
        ka_pack_lock_wait(c.function, handle, c.reply, reply.text, sizeof reply.text, c.timeout_ms);
    return n < 1 ? n : judge(c, handle, reply.text);
}

int run(const set_command &c, ka_robot_handle *handle,
        std::initializer_list<ka_request_field> fields) {
    return run(c, handle, std::span(fields.begin(), fields.size()));
}

int stream(const set_command &c, request &r) {
    const arm_ptr &arm = r.arm();
    if (!arm) return -1;
    ka_request_field fields[max_args + 1] = {text("command", c.command)};
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

int run(const query_command &q, ka_robot_handle *handle, reply_text &reply) {
    return exchange(q.function, handle, q.command, {}, q.reply, q.timeout_ms, reply.text,
                    sizeof reply.text);
}

int run(const query_command &q, ka_robot_handle *handle, json_ptr &doc) {
    reply_text reply;
    const int n = run(q, handle, reply);
    if (n > 0) doc = json_parse(reply.text);
    return n;
}

namespace {
query_result read_into(const query_command &q, ka_robot_handle *handle,
                       std::span<ka_reply_field> fields, std::span<const ka_request_field> request,
                       reply_text &reply) {
    query_result r{0,
                   exchange(q.function, handle, q.command, request, q.reply, q.timeout_ms,
                            reply.text, sizeof reply.text),
                   0};
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
    r.status = q.parse(q.function, reply.text, fields.data(), static_cast<int>(fields.size()));
    r.unparsed = r.status != 0;
    return r;
}
} // namespace

query_result read(const query_command &q, ka_robot_handle *handle, std::span<ka_reply_field> fields,
                  std::span<const ka_request_field> request) {
    reply_text reply;
    return read_into(q, handle, fields, request, reply);
}

int run(const query_command &q, ka_robot_handle *handle, const request &req, reply_outs &o) {
    reply_text reply;
    query_result r = read_into(q, handle, o.fields(), req.fields(), reply);
    if (r.unparsed && q.missing_gives_length) return r.length;
    if (r.unparsed && q.refused_key)
        return parse_ka_set_command(q.function, reply.text, q.refused_key);
    if (r.status != 0) return r.status;
    if (!q.cache) {
        o.put(r.dof);
        return 0;
    }
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    o.put(r.dof);
    const as scale = q.outs[0].scale;
    put_joints((*arm).*q.cache, o.fields()[0], r.dof,
               [&](int32_t v) { return from_wire(scale, v); });
    return 0;
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

int failed(const char *function, const char *line, int value, int code) {
    ka_log_error(line, function, value);
    return code;
}
int disconnected(const char *function) {
    return failed(function, "[%s] The robotic arm has been disconnected\n");
}

int arm_dof(const ka_robot_handle *handle) { return dof_of(registry_find(handle)); }

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
