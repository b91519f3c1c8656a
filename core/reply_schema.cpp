#include "core/reply_schema.h"

#include "core/log.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace reply {
namespace {

constexpr size_t common_fields = 16;
constexpr int array_capacity = 128; // loop counters are the longest arrays (100)

struct reading {
    const schema &s; // whose lines and fail code report a failure
    const char *function;
    int dof;
};

int failed(const reading &r, const field &f, const char *label = nullptr) {
    if (r.s.field_error)
        ka_log_error(r.s.field_error, r.function, label ? label : f.label ? f.label : f.key);
    return r.s.fail;
}

// The reverse of put, for i32 and f32 members.
int32_t wire(const field &f, const void *at) {
    if (f.type != target::f32) return *static_cast<const int32_t *>(at);
    return scale::to_wire(f.tag, *static_cast<const float *>(at));
}

void put(const field &f, void *at, int32_t v) {
    switch (f.type) {
    case target::f32:
        *static_cast<float *>(at) = scale::from_wire(f.tag, v);
        break;
    case target::u8:
        *static_cast<uint8_t *>(at) = cmd::low_bits<uint8_t>(v);
        break;
    case target::u16:
        *static_cast<uint16_t *>(at) = cmd::low_bits<uint16_t>(v);
        break;
    case target::boolean:
        *static_cast<bool *>(at) = v != 0;
        break;
    default:
        *static_cast<int32_t *>(at) = v;
    }
}

void put_text(const field &f, char *out, const char *text) {
    const size_t limit = std::min(static_cast<size_t>(f.count), f.size);
    if (f.text == text_rule::padded) {
        std::strncpy(out, text, limit);
        return;
    }
    const size_t n = strnlen(text, std::min(limit, f.size - 1));
    std::memcpy(out, text, n);
    if (f.text == text_rule::cleared)
        std::memset(out + n, 0, f.size - n);
    else
        out[n] = '\0';
}

int array_count(const field &f, int dof) { return f.count == cmd::per_joint ? dof : f.count; }

// The info line of a field just read: its values as the record holds them.
void show(const field &f, const char *function, void *record, int read) {
    if (!f.shown || !f.at) return;
    float v[6] = {};
    if (f.what == kind::pose) {
        const ka_pose_t &p = *static_cast<const ka_pose_t *>(f.at(record, 0));
        v[0] = p.position.x, v[1] = p.position.y, v[2] = p.position.z;
        v[3] = p.euler.rx, v[4] = p.euler.ry, v[5] = p.euler.rz;
    } else if (f.type == target::f32) {
        for (int i = 0; i < std::min(read, 6); ++i)
            v[i] = *static_cast<const float *>(f.at(record, i));
    }
    ka_log_info(f.shown, function, v[0], v[1], v[2], v[3], v[4], v[5]);
}

int read_fields(std::span<const field> fields, const reading &r, const cJSON *object, void *record);

int read_array(const field &f, const reading &r, const cJSON *item, void *record) {
    if (!cJSON_IsArray(item)) return f.need == presence::loose ? 0 : failed(r, f);
    const int size = cJSON_GetArraySize(item);
    int count = array_count(f, r.dof);
    if (f.rule == count_rule::up_to) count = std::min(size, count);
    if ((f.rule == count_rule::exact && size != count) || size < count || count > array_capacity)
        return failed(r, f);
    int32_t v[array_capacity] = {};
    const cJSON *element = item->child;
    for (int i = 0; i < count; ++i, element = element->next) {
        if (f.rule != count_rule::up_to && !cJSON_IsNumber(element)) return failed(r, f);
        v[i] = json_int(element);
        if (f.non_negative && v[i] < 0) return failed(r, f);
    }
    if (!f.at) return 0;
    if (f.what == kind::pose)
        cmd::pose_from_wire(v, *static_cast<ka_pose_t *>(f.at(record, 0)));
    else
        for (int i = 0; i < count; ++i)
            put(f, f.at(record, i), v[i]);
    if (f.counter) *static_cast<int32_t *>(f.counter(record, 0)) = count;
    show(f, r.function, record, count);
    return 0;
}

int read_list(const field &f, const reading &r, const cJSON *item, void *record) {
    if (!cJSON_IsArray(item)) return f.need == presence::loose ? 0 : failed(r, f);
    auto *count = f.counter ? static_cast<int32_t *>(f.counter(record, 0)) : nullptr;
    if (count && f.count_first) *count = std::min(cJSON_GetArraySize(item), f.count);
    const reading inner{*f.entries, r.function, r.dof};
    std::vector<unsigned char> copy;
    int index = 0;
    for (const cJSON *element = item->child; element && index < f.count; element = element->next) {
        if (f.ends_at_null &&
            (!cJSON_IsString(element) || std::strcmp(element->valuestring, "NULL") == 0))
            break;
        auto *entry = static_cast<unsigned char *>(f.at(record, index));
        if (f.entry_cleared) std::memset(entry, 0, f.size);
        if (f.entry_atomic) copy.assign(entry, entry + f.size);
        if (read_fields(f.entries->fields, inner, element, f.entry_atomic ? copy.data() : entry) !=
            0)
            return failed(r, f, f.entry_label);
        if (f.entry_atomic) std::memcpy(entry, copy.data(), f.size);
        ++index;
        if (count && !f.count_first) *count = index;
    }
    return 0;
}

// Each switch: 1 true, 0 false, -1 missing or not a boolean.
void put_switches(const field &f, const cJSON *item, void *record) {
    for (const field &s : f.inside)
        put(s, s.at(f.at(record, 0), 0), MIO_JSON_GetObjectItemBool(item, s.key));
}

int read_field(const field &f, const reading &r, const cJSON *object, void *record) {
    if (f.what == kind::variant) {
        const schema *chosen = f.choose(record);
        return chosen ? read_fields(chosen->fields, r, object, record) : 0;
    }
    if (f.what == kind::object) {
        if (f.when && !cJSON_GetObjectItem(object, f.when)) return 0;
        return read_fields(f.inside, r, cJSON_GetObjectItem(object, f.key), record);
    }
    const cJSON *item = f.key ? cJSON_GetObjectItem(object, f.key) : object;
    if (!item && f.alt_key) item = cJSON_GetObjectItem(object, f.alt_key);
    if (!item) return f.need == presence::required ? failed(r, f) : 0;
    auto mistyped = [&] { return f.need == presence::loose ? 0 : failed(r, f); };
    switch (f.what) {
    case kind::number: {
        if (!cJSON_IsNumber(item)) return mistyped();
        const int32_t v = json_int(item);
        if (f.non_negative && v < 0) return failed(r, f);
        if (f.at) put(f, f.at(record, 0), v);
        show(f, r.function, record, 1);
        return 0;
    }
    case kind::flag:
        if (!cJSON_IsBool(item)) return mistyped();
        if (f.at) put(f, f.at(record, 0), cJSON_IsTrue(item) ? 1 : 0);
        return 0;
    case kind::text:
        if (!cJSON_IsString(item)) return mistyped();
        if (f.at) put_text(f, static_cast<char *>(f.at(record, 0)), item->valuestring);
        if (f.shown) ka_log_info(f.shown, r.function, item->valuestring);
        return 0;
    case kind::verdict:
        if (!cJSON_IsBool(item)) return mistyped();
        if (cJSON_IsTrue(item)) return 0;
        ka_log_error(f.refusal, r.function, f.key);
        return 1;
    case kind::list:
        return read_list(f, r, item, record);
    case kind::switches:
        put_switches(f, item, record);
        return 0;
    default:
        return read_array(f, r, item, record);
    }
}

int read_fields(std::span<const field> fields, const reading &r, const cJSON *object,
                void *record) {
    for (const field &f : fields)
        if (int status = read_field(f, r, object, record); status != 0) return status;
    return 0;
}

// The common path: common_json_parse reads and checks every field, then the
// record is written.
int read_common(const schema &s, const char *function, const char *text, void *record, int dof) {
    ka_reply_field fields[common_fields];
    const size_t n = std::min(s.fields.size(), common_fields);
    for (size_t i = 0; i < n; ++i) {
        const field &f = s.fields[i];
        switch (f.what) {
        case kind::text:
            fields[i] = cmd::text_field(f.key);
            break;
        case kind::flag:
            fields[i] = cmd::bool_field(f.key);
            // A non-boolean leaves the member as it was. Its byte is read as
            // a byte: a caller's record may hold any value there.
            fields[i].value.b = f.at && !f.non_bool_false &&
                                *static_cast<const unsigned char *>(f.at(record, 0)) != 0;
            break;
        case kind::switches:
            fields[i] = cmd::item_field(f.key);
            break;
        case kind::numbers:
        case kind::pose:
            fields[i] = cmd::ints_field(f.key, array_count(f, dof));
            break;
        default:
            fields[i] = cmd::int_field(f.key);
        }
    }
    const int status = common_json_parse(function, text, fields, static_cast<int>(n));
    std::vector<json_ptr> items;
    for (size_t i = 0; i < n; ++i)
        if (s.fields[i].what == kind::switches) items.emplace_back(fields[i].value.item);
    if (status != 0) return status;
    for (size_t i = 0; i < n; ++i) {
        const field &f = s.fields[i];
        const ka_reply_field &v = fields[i];
        if (!f.at) continue;
        switch (f.what) {
        case kind::text:
            put_text(f, static_cast<char *>(f.at(record, 0)), v.value.s);
            break;
        case kind::flag:
            put(f, f.at(record, 0), v.value.b ? 1 : 0);
            break;
        case kind::pose:
            cmd::pose_from_wire(v.value.a, *static_cast<ka_pose_t *>(f.at(record, 0)));
            break;
        case kind::numbers:
            for (int k = 0; k < v.count; ++k)
                put(f, f.at(record, k), v.value.a[k]);
            break;
        case kind::switches:
            put_switches(f, v.value.item, record);
            break;
        default:
            put(f, f.at(record, 0), v.value.i);
        }
    }
    return 0;
}

} // namespace

int run(const record_query &q, ka_robot_handle *handle, void *record,
        std::span<const ka_request_field> request) {
    const cmd::query_command &c = q.command;
    if (q.dof_first && !cmd::arm_dof(handle)) return cmd::disconnected(c.function);
    char text[2 * reply_buffer_size] = {};
    const int size = std::min(q.reply_size, static_cast<int>(sizeof text));
    const int n =
        cmd::exchange(c.function, handle, c.command, request, c.reply, c.timeout_ms, text, size);
    if (n < 1) return n;
    int dof = 0;
    const schema &s = q.reply_for ? *q.reply_for(handle) : *q.reply;
    const auto &fields = s.fields;
    if (std::any_of(fields.begin(), fields.end(), [](const field &f) {
            return f.what == kind::numbers && f.count == cmd::per_joint;
        })) {
        dof = cmd::arm_dof(handle);
        if (!dof) return cmd::disconnected(c.function);
    }
    const char *label = q.label ? q.label : c.function;
    if (q.first)
        if (int status = q.first(label, text); status != 0) return status;
    const int status = read(s, label, text, record, dof);
    if (status != 0 && q.refused_key)
        return parse_ka_set_command(label, text, q.refused_key) == 1 ? 1 : -3;
    if (status != 0 || !q.then) return status;
    return q.then(label, handle, text, record);
}

int run(const page_record_query &q, ka_robot_handle *handle, int page_num, int page_size,
        const char *search, void *record) {
    const char *function = q.command.function;
    const int dof = q.dof_first ? cmd::arm_dof(handle) : 0;
    if (q.dof_first && !dof) return cmd::disconnected(function);
    std::vector<char> text;
    const int n = cmd::run(q.command, handle, page_num, page_size, search, text);
    if (n < 1) return n;
    if (q.echo) q.echo(record, page_num, page_size, search);
    return read(search || !q.unsearched ? *q.reply : *q.unsearched, function, text.data(), record,
                dof);
}

int request(const schema &s, const void *record, ka_request_field *out) {
    int count = 0;
    for (const field &f : s.fields)
        if (f.what == kind::number && f.at)
            out[count++] = cmd::number(
                f.key, wire(f, (f.sent ? f.sent : f.at)(const_cast<void *>(record), 0)));
    return count;
}

int read(const schema &s, const char *function, const char *text, void *record, int dof) {
    if (s.common) return read_common(s, function, text, record, dof);
    json_ptr doc = json_parse(text);
    if (!doc) {
        if (s.unparsable) ka_log_error(s.unparsable, function);
        return s.fail;
    }
    return read_fields(s.fields, {s, function, dof}, doc.get(), record);
}

} // namespace reply
