// The shapes every command family is written in: request fields built in
// one line each, a standard set command, a standard query, and typed reply
// fields. A family file then only states names, keys, scaling and time-outs.
#pragma once

#include "core/exchange.h"
#include "core/scale.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <span>
#include <type_traits>
#include <vector>

namespace cmd {

inline ka_request_field text(const char *key, const char *v) {
    ka_request_field f{KA_FIELD_STRING, key, 0, {}};
    f.value.s = v;
    return f;
}
inline ka_request_field number(const char *key, int32_t v) {
    ka_request_field f{KA_FIELD_INT, key, 0, {}};
    f.value.i = v;
    return f;
}
inline ka_request_field numbers(const char *key, const int32_t *v, int count) {
    ka_request_field f{KA_FIELD_INT_ARRAY, key, count, {}};
    f.value.a = v;
    return f;
}
inline ka_request_field boolean(const char *key, bool v) {
    ka_request_field f{KA_FIELD_BOOL, key, 0, {}};
    f.value.b = v;
    return f;
}
inline ka_request_field item(const char *key, cJSON *v) {
    ka_request_field f{KA_FIELD_ITEM, key, 0, {}};
    f.value.item = v;
    return f;
}

inline ka_reply_field int_field(const char *key) { return {KA_FIELD_INT, key, 0, {}}; }
inline ka_reply_field ints_field(const char *key, int count) {
    return {KA_FIELD_INT_ARRAY, key, count, {}};
}
inline ka_reply_field text_field(const char *key) { return {KA_FIELD_STRING, key, 0, {}}; }
inline ka_reply_field bool_field(const char *key) { return {KA_FIELD_BOOL, key, 0, {}}; }
inline ka_reply_field item_field(const char *key) { return {KA_FIELD_ITEM, key, 0, {}}; }

// Wire forms of joints and poses shared by the families.
struct wire_joints {
    int32_t v[7] = {};
    int count = 0;
};
// The first dof joints (degrees) in millidegrees.
inline wire_joints joints_to_wire(const float *joint, int dof) {
    wire_joints w;
    w.count = dof < 0 ? 0 : dof > 7 ? 7 : dof;
    for (int i = 0; i < w.count; ++i)
        w.v[i] = scale::millidegrees(joint[i]);
    return w;
}
// x, y, z in micrometres and rx, ry, rz in milliradians; the quaternion is
// never sent in this form.
struct wire_pose {
    int32_t v[6] = {};
};
inline wire_pose pose_to_wire(const ka_pose_t &p) {
    return {{scale::millionths(p.position.x), scale::millionths(p.position.y),
             scale::millionths(p.position.z), scale::thousandths(p.euler.rx),
             scale::thousandths(p.euler.ry), scale::thousandths(p.euler.rz)}};
}
// The reverse: position and Euler angles of pose from six wire integers;
// the quaternion is left as it was.
inline void pose_from_wire(const int32_t *v, ka_pose_t &p) {
    p.position = {scale::from_millionths(v[0]), scale::from_millionths(v[1]),
                  scale::from_millionths(v[2])};
    p.euler = {scale::from_thousandths(v[3]), scale::from_thousandths(v[4]),
               scale::from_thousandths(v[5])};
}

// A pose target in one of its two wire forms. The caller's quaternion
// decides: a (nearly) unit one is sent as "pose_quat" (x, y, z in
// micrometres, then w, x, y, z in millionths), any other as "pose" with the
// Euler angles. Squared norm in single precision, bounds exclusive, so a
// norm of exactly 0.99 or 1.1 gives the Euler form.
struct wire_target {
    const char *key;
    int32_t v[7];
    int count;
};
inline wire_target pose_target(const ka_pose_t &p) {
    const ka_quat_t &q = p.quaternion;
    const float norm = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    if (norm > 0.99f && norm < 1.1f)
        return {"pose_quat",
                {scale::millionths(p.position.x), scale::millionths(p.position.y),
                 scale::millionths(p.position.z), scale::millionths(q.w), scale::millionths(q.x),
                 scale::millionths(q.y), scale::millionths(q.z)},
                7};
    const wire_pose euler = pose_to_wire(p);
    wire_target t{"pose", {}, 6};
    for (int i = 0; i < 6; ++i)
        t.v[i] = euler.v[i];
    return t;
}

// A record's text field, which may fill the field without a terminator, as
// text for the wire.
template <size_t N> struct field_text {
    char text[N + 1] = {};
};
template <size_t N> field_text<N> text_of(const char (&field)[N]) {
    field_text<N> t;
    std::memcpy(t.text, field, strnlen(field, N));
    return t;
}

// A C caller may pass any int where the header names an enumeration; its
// bytes are read as an int, never loaded as an enumerator out of range.
template <typename E> int32_t raw(const E &e) {
    static_assert(std::is_enum_v<E> && sizeof(E) == sizeof(int32_t));
    int32_t v;
    std::memcpy(&v, &e, sizeof v);
    return v;
}

// A time-out given in seconds as milliseconds, saturated at the int range.
constexpr int seconds_to_ms(int seconds) {
    return seconds > INT_MAX / 1000 ? INT_MAX : seconds < INT_MIN / 1000 ? INT_MIN : seconds * 1000;
}

// A reply line, zeroed.
struct reply_text {
    char text[reply_buffer_size] = {};
};

// Sends {"command": command, fields...} and waits for the line named reply
// (no wait, only the pause, when reply is null). The reply's length, or the
// exchange's code (-1 send / handle, -2 time-out).
int exchange(const char *function, ka_robot_handle *handle, const char *command,
             std::span<const ka_request_field> fields, const char *reply, int timeout_ms,
             char *buffer, int size);
int exchange(const char *function, ka_robot_handle *handle, const char *command,
             std::initializer_list<ka_request_field> fields, const char *reply, int timeout_ms,
             char *buffer, int size);

// A command's wire name as a template argument: the function label the log
// lines carry, "ka_" + the name unless given, is then made at compile time,
// and the name is typed once per command.
template <std::size_t N> struct wire_name {
    char text[N] = {};
    constexpr wire_name(const char (&name)[N]) {
        for (std::size_t i = 0; i < N; ++i)
            text[i] = name[i];
    }
};
template <wire_name Command, wire_name Label> struct names {
    static constexpr std::size_t label_size =
        sizeof Label.text > 1 ? sizeof Label.text : sizeof Command.text + 3;
    static constexpr std::array<char, label_size> label_text = [] {
        std::array<char, label_size> t{};
        if constexpr (sizeof Label.text > 1) {
            for (std::size_t i = 0; i < sizeof Label.text; ++i)
                t[i] = Label.text[i];
        } else {
            t[0] = 'k', t[1] = 'a', t[2] = '_';
            for (std::size_t i = 0; i < sizeof Command.text; ++i)
                t[i + 3] = Command.text[i];
        }
        return t;
    }();
    static constexpr const char *command = Command.text;
    static constexpr const char *label = label_text.data();
};

// How a caller's value goes on the wire (request) or comes back (reply).
// Integers pass as they are unless tagged; floats are scaled by the tag.
enum class as : uint8_t {
    plain,           // int as it is; a reply integer as it is (low bits for bytes and half-words)
    thousandths,     // scale::thousandths / from_thousandths
    millionths,      // scale::millionths / from_millionths
    joint_rate,      // scale::joint_rate / joint_rate_from
    tenths,          // newtons in tenths formed in single precision, then cut (12.7 gives 127)
    whole_tenths,    // newtons cut to whole ones first, then tenths (12.7 gives 120)
    through_float,   // a reply integer through single precision (codes above 2^24 lose bits)
    joints,          // const float *: the arm's DOF joints in millidegrees (DOF checked first)
    joints_single,   // as joints, the millidegrees formed in single precision
    pose,            // ka_pose_t as six integers; a reply pose gets its quaternion
    target,          // ka_pose_t under "pose" or "pose_quat", as pose_target decides
    six,             // const int *: six integers as they are
    six_tenths,      // const float *: six values as tenths
    six_thousandths, // const float *: six values in thousandths
    // A peripheral's ka_peripheral_read_write_params_t under key "port":
    // "port", "address", and with bus_count "num" too ("device" is a plain
    // argument of its own, since it follows the data).
    bus,
    bus_count,
    // const int *: a "data" array as long as the bus count before it makes
    // it (registers: 2 per register, coil_bytes: 8 coils per entry, rounded
    // down); a count beyond one Modbus request's (125 registers, 2000 coils)
    // gives -1 with nothing sent. As a reply out: coil_groups, rounded up.
    registers,
    coil_bytes,
    coil_groups,
    axis,      // int: arg::names[0..2] as text; another value is logged and gives -1
    direction, // int: "pos" when not 0, else "neg"
    nonzero,   // int: sent only when not 0
};
// A request key. A null key adds the value to the previous field, which
// becomes an array: {"k"}, {nullptr, as::joint_rate} sends "k":[n, v].
struct arg {
    const char *key = nullptr;
    as scale = as::plain;
    const char *const *names = nullptr; // as::axis: the three wire names
};
// A reply key: count 0 one integer (or text for a char buffer of `count`
// bytes, see text_bytes), n an array of n, per_joint one entry per joint.
struct out {
    const char *key = nullptr;
    as scale = as::plain;
    int count = 0;
};
constexpr int max_args = 7;
constexpr int max_outs = 8;

// Count of a reply array with one entry per joint of the arm; the DOF is
// only known once the reply is in.
constexpr int32_t per_joint = -1;

template <typename T> constexpr bool is_null(const T &v) {
    if constexpr (std::is_pointer_v<T>) return v == nullptr;
    return false;
}

// The request fields of one call, built from a descriptor's args and the
// caller's values. status -1 once a value cannot go out (null text or
// array, arm without a valid DOF, which is logged as disconnected).
class request {
  public:
    request(const char *function, ka_robot_handle *handle) : function_(function), handle_(handle) {}
    // A row's args with the caller's values in their order; a null pointer
    // among them gives status -1 with nothing added.
    template <typename... V> void take(const std::array<arg, max_args> &args, V... v) {
        if ((is_null(v) || ...)) {
            status = -1;
            return;
        }
        int i = 0;
        (add(args[i++], v), ...);
    }
    void add(const arg &a, int32_t v);
    void add(const arg &a, float v);
    void add(const arg &a, bool v);
    void add(const arg &a, const char *v);
    void add(const arg &a, const float *v);
    void add(const arg &a, const int *v);
    void add(const arg &a, const ka_pose_t &v);
    void add(const arg &a, const ka_peripheral_read_write_params_t &v);
    // Reply pointers are no request values.
    void add(const arg &, int32_t *) { status = -1; }
    void add(const arg &, uint8_t *) { status = -1; }
    void add(const arg &, uint16_t *) { status = -1; }
    void add(const arg &, char *) { status = -1; }
    void add(const arg &, ka_pose_t *) { status = -1; }
    std::span<const ka_request_field> fields() const { return {field_, size_t(count_)}; }
    // The arm of the handle, looked up once per call.
    const arm_ptr &arm();
    int status = 0;

  private:
    ka_request_field &next(const char *key, int32_t type);
    void array(const char *key, const int32_t *v, int count);
    const char *function_;
    ka_robot_handle *handle_;
    arm_ptr arm_;
    bool looked_up_ = false;
    ka_request_field field_[max_args] = {};
    int32_t store_[max_args][7] = {};
    int count_ = 0;
    int32_t bus_num_ = 0; // the last bus count sent
};

// Largest counts one Modbus request carries.
constexpr int max_registers = 125;
constexpr int max_coils = 2000;
// The "data" array length for a bus count under an as:: data tag (-1 when
// the count is out of bounds) and the entries a read copies out.
struct bus_data {
    int wire = -1;
    int copied = 0;
};
bus_data bus_data_length(as shape, int32_t num);

// Where the reply values of one call go.
class reply_outs {
  public:
    void expect(const out &o, float *to) { bind(o, to, target::f32); }
    void expect(const out &o, int32_t *to) { bind(o, to, target::i32); }
    void expect(const out &o, uint8_t *to) { bind(o, to, target::u8); }
    void expect(const out &o, uint16_t *to) { bind(o, to, target::u16); }
    void expect(const out &o, char *to) { bind(o, to, target::text); }
    void expect(const out &o, ka_pose_t *to) { bind(o, to, target::pose); }
    template <typename T> void expect(const out &, T) { bad = true; } // request values
    std::span<ka_reply_field> fields() { return {field_, size_t(count_)}; }
    // Writes every value, arrays with dof entries for per_joint.
    void put(int dof) const;
    bool bad = false;

  private:
    enum class target : uint8_t { f32, i32, u8, u16, text, pose };
    void bind(const out &o, void *to, target t);
    ka_reply_field field_[max_outs] = {};
    out out_[max_outs] = {};
    void *to_[max_outs] = {};
    target kind_[max_outs] = {};
    int count_ = 0;
};

// A set command: the request from `args`, answered under `reply` with a
// boolean under `result_key`. Without result_key it is only sent, then
// timeout_ms pass before anything else goes out; its answer is not read.
// With refresh, a true answer is followed by that read (into scratch), or with
// then by that call; its status is the call's. Streamed, the line goes
// straight onto the arm's socket (no exchange lock, no pause) and the
// processor is yielded once.
struct query_command;
struct set_command {
    const char *function;
    const char *command;
    const char *reply;
    const char *result_key;
    int timeout_ms = m_nOutTime;
    std::array<arg, max_args> args = {};
    const query_command *refresh = nullptr;
    bool streamed = false;
    int (*then)(ka_robot_handle *handle) = nullptr;
    const char *refused_line = nullptr; // logged (with the label) after a false answer
    bool forget_unread = false; // an answered request first drops an unread answer under reply

    // The caller's values in args order; a null pointer among them gives -1
    // with nothing sent.
    template <typename... V> int operator()(ka_robot_handle *handle, V... v) const;
};
// 0 true, 1 false, -3 unparsable, or the exchange's code (0 when only sent).
int run(const set_command &c, ka_robot_handle *handle, std::span<const ka_request_field> fields);
int run(const set_command &c, ka_robot_handle *handle,
        std::initializer_list<ka_request_field> fields = {});
// The answer to a request that went out otherwise, awaited without a send and
// judged as run judges it.
int await(const set_command &c, ka_robot_handle *handle);
// A streamed row with its request built: 0, or -1 for an unknown handle or a
// failed send (after the send-error line).
int stream(const set_command &c, request &r);

// A query: {"command": command, args...} answered under `reply`, read into
// `outs`. A reply that lacks a key gives -3, or with missing_gives_length the
// exchange's positive result (how the controller has always answered
// "nothing to report"). With cache, the arm record's copy follows the first
// (per-joint, float) value.
struct query_command {
    const char *function;
    const char *command;
    const char *reply;
    int timeout_ms = m_nOutTime;
    std::array<arg, max_args> args = {};
    std::array<out, max_outs> outs = {};
    bool missing_gives_length = false;
    // A reply without the outs reports why the controller did not answer:
    // the verdict under this key (1 false, -3 unreadable).
    const char *refused_key = nullptr;
    float (arm_record::*cache)[7] = nullptr;
    int (*parse)(const char *, const char *, ka_reply_field *, int) = common_json_parse;

    // The request values for args, then one pointer per out; a null pointer
    // gives -1 with nothing sent. Every out is written only once all were read.
    template <typename... V> int operator()(ka_robot_handle *handle, V... v) const;
};
// The reply's length (> 0) or the exchange's code.
int run(const query_command &q, ka_robot_handle *handle, reply_text &reply);
// The same with the reply parsed into doc (null when it is no JSON), for the
// irregular replies read by hand.
int run(const query_command &q, ka_robot_handle *handle, json_ptr &doc);

// A row's names, written once: label "ka_" + Command unless Label, reply
// under the command's own name unless given.
template <wire_name Command, wire_name Label = "">
constexpr set_command set(const char *result_key, const char *reply = nullptr,
                          int timeout_ms = m_nOutTime, std::initializer_list<arg> args = {}) {
    using n = names<Command, Label>;
    set_command c{n::label, n::command, reply ? reply : n::command, result_key, timeout_ms};
    std::copy(args.begin(), args.end(), c.args.begin());
    return c;
}
// A set whose one argument goes under its result key.
template <wire_name Command, wire_name Label = "">
constexpr set_command set1(const char *key, as scale = as::plain, const char *reply = nullptr,
                           int timeout_ms = m_nOutTime) {
    return set<Command, Label>(key, reply, timeout_ms, {{key, scale}});
}
// Sent only, then pause_ms before anything else goes out.
template <wire_name Command, wire_name Label = "">
constexpr set_command send(int pause_ms, std::initializer_list<arg> args = {}) {
    set_command c = set<Command, Label>(nullptr, nullptr, pause_ms, args);
    c.reply = nullptr;
    return c;
}
// Streamed: sent on the arm's socket, never answered, no pause.
template <wire_name Command, wire_name Label = "">
constexpr set_command stream(std::initializer_list<arg> args) {
    set_command c = send<Command, Label>(0, args);
    c.streamed = true;
    return c;
}
// A row's request only sent, then pause_ms; labelled `label` when given.
constexpr set_command sent_only(set_command c, int pause_ms, const char *label = nullptr) {
    c.function = label ? label : c.function;
    c.result_key = c.reply = nullptr;
    c.timeout_ms = pause_ms;
    return c;
}
// A row whose false answer logs line.
constexpr set_command refused(set_command c, const char *line) {
    c.refused_line = line;
    return c;
}
// A row whose answer left unread by an earlier call cannot be taken for its own.
constexpr set_command forgetting(set_command c) {
    c.forget_unread = true;
    return c;
}
// A row whose true answer is followed by then.
constexpr set_command followed_by(set_command c, int (*then)(ka_robot_handle *)) {
    c.then = then;
    return c;
}
template <wire_name Command, wire_name Label = "">
constexpr query_command query(const char *reply = nullptr, std::initializer_list<out> outs = {},
                              std::initializer_list<arg> args = {}) {
    using n = names<Command, Label>;
    query_command q{n::label, n::command, reply ? reply : n::command};
    std::copy(outs.begin(), outs.end(), q.outs.begin());
    std::copy(args.begin(), args.end(), q.args.begin());
    return q;
}
// A query whose reply without one of its keys gives the exchange's result.
constexpr query_command or_length(query_command q) {
    q.missing_gives_length = true;
    return q;
}
// One integer under key; a reply without it gives the exchange's result.
template <wire_name Command, wire_name Label = "">
constexpr query_command value(const char *key, const char *reply = nullptr, as scale = as::plain) {
    return or_length(query<Command, Label>(reply, {{key, scale}}));
}
// One array with one entry per joint, as floats scaled by `scale`.
template <wire_name Command, wire_name Label = "">
constexpr query_command joints(const char *key, as scale, const char *reply = nullptr,
                               float (arm_record::*cache)[7] = nullptr) {
    query_command q = query<Command, Label>(reply, {{key, scale, per_joint}});
    q.cache = cache;
    return q;
}

// A page of a stored list: {"command", ["vague_search"], "page_num",
// "page_size"} answered under the command's own name with a reply as long as
// the receive side files (10240 bytes). The search text is left out when
// null.
struct page_query {
    const char *function;
    const char *command;
    int timeout_ms = m_nOutTime;
};
// Fills reply (resized to hold the longest line) and gives the reply's
// length (> 0) or the exchange's code.
int run(const page_query &q, ka_robot_handle *handle, int page_num, int page_size,
        const char *vague_search, std::vector<char> &reply);

inline ka_reply_field joints_field(const char *key) { return ints_field(key, per_joint); }

// What a query that reads typed fields came to.
struct query_result {
    int status;            // 0 when every field was read, else what the call returns
    int length;            // the exchange's result: the reply's length when above 0
    int dof;               // the arm's DOF when the reply had per-joint arrays
    bool unparsed = false; // the reply arrived but lacked a field or had the wrong shape
};
// Exchanges q (with the request fields) and reads the fields from its reply.
// With per-joint arrays among them the arm's DOF is checked after the
// exchange (so the command has gone out either way; a DOF other than 6 or 7
// logs the disconnected line and gives -1), and those arrays are read with
// DOF entries. Status: 0, the exchange's code, -1, or the parse's status (-3).
query_result read(const query_command &q, ka_robot_handle *handle, std::span<ka_reply_field> fields,
                  std::span<const ka_request_field> request = {});
// Runs q with the fields built for one call.
int run(const query_command &q, ka_robot_handle *handle, const request &r, reply_outs &o);

template <typename... V> int set_command::operator()(ka_robot_handle *handle, V... v) const {
    request r(function, handle);
    r.take(args, v...);
    if (r.status) return r.status;
    return streamed ? stream(*this, r) : run(*this, handle, r.fields());
}

template <typename... V> int query_command::operator()(ka_robot_handle *handle, V... v) const {
    if ((is_null(v) || ...)) return -1;
    int arg_count = 0;
    while (arg_count < max_args && args[arg_count].key)
        ++arg_count;
    request r(function, handle);
    reply_outs o;
    int i = 0;
    auto take = [&](auto value) {
        if (i < arg_count)
            r.add(args[i], value);
        else
            o.expect(outs[i - arg_count], value);
        ++i;
    };
    (take(v), ...);
    if (r.status || o.bad) return -1;
    return run(*this, handle, r, o);
}

// Writes the first dof integers of an array field through convert.
template <typename T, typename Convert>
void put_joints(T *out, const ka_reply_field &field, int dof, Convert convert) {
    for (int i = 0; i < dof && i < reply_array_capacity; ++i)
        out[i] = convert(field.value.a[i]);
}
// The low bits of a wire integer that fit T (flags and states kept as bytes
// or half-words).
template <typename T> T low_bits(int32_t v) { return static_cast<T>(static_cast<uint32_t>(v)); }

// The few commands the controller takes in cJSON's formatted print: prints
// object, appends "\r\n" and sends it on the handle's connection (logging
// the text at debug level when log_text). 0, or -1 for an unknown handle, an
// unprintable object or a failed send (with the send-error line).
int send_formatted(const char *function, const char *command, ka_robot_handle *handle,
                   const cJSON *object, bool log_text);

// Drops the lines named `name` still queued on the handle's arm, so that an
// answer nobody read (a late one, or one to a call that did not wait) is
// never taken for the answer to the next request.
void forget(const ka_robot_handle *handle, const char *name);

// Logs "[%s] The robotic arm has been disconnected\n" and gives -1.
int disconnected(const char *function);
// Logs line as an error (the label, then value, as far as its format takes them) and gives code.
int failed(const char *function, const char *line, int value = 0, int code = -1);

// The DOF of a registered 6 or 7 axis arm, else 0.
int arm_dof(const ka_robot_handle *handle);

} // namespace cmd
