// The shapes every command family is written in: request fields built in
// one line each, a standard set command, a standard query, and typed reply
// fields. A family file then only states names, keys, scaling and time-outs.
#pragma once

#include "core/exchange.h"
#include "core/scale.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <span>
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

// A set command: the controller answers under `reply` with a boolean under
// `result_key`.
struct set_command {
    const char *function;
    const char *command;
    const char *reply;
    const char *result_key;
    int timeout_ms = m_nOutTime;
};
// The set command named Command (label "ka_" + Command unless Label), its
// reply under its own name unless `reply` is given.
template <wire_name Command, wire_name Label = "">
constexpr set_command set(const char *result_key, const char *reply = nullptr,
                          int timeout_ms = m_nOutTime) {
    using n = names<Command, Label>;
    return {n::label, n::command, reply ? reply : n::command, result_key, timeout_ms};
}
// 0 true, 1 false, -3 unparsable, or the exchange's code.
int run(const set_command &c, ka_robot_handle *handle,
        std::initializer_list<ka_request_field> fields = {});

// A query: {"command": command} answered under `reply`.
struct query_command {
    const char *function;
    const char *command;
    const char *reply;
    int timeout_ms = m_nOutTime;
};
template <wire_name Command, wire_name Label = "">
constexpr query_command query(const char *reply = nullptr, int timeout_ms = m_nOutTime) {
    using n = names<Command, Label>;
    return {n::label, n::command, reply ? reply : n::command, timeout_ms};
}
// The reply's length (> 0) or the exchange's code.
int run(const query_command &q, ka_robot_handle *handle, reply_text &reply);

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

// Count of a reply array with one entry per joint of the arm; the DOF is
// only known once the reply is in.
constexpr int32_t per_joint = -1;
inline ka_reply_field joints_field(const char *key) { return ints_field(key, per_joint); }

// What a query that reads typed fields came to.
struct query_result {
    int status;            // 0 when every field was read, else what the call returns
    int length;            // the exchange's result: the reply's length when above 0
    int dof;               // the arm's DOF when the reply had per-joint arrays
    bool unparsed = false; // the reply arrived but lacked a field or had the wrong shape
};
// Exchanges q and reads the fields from its reply. With per-joint arrays
// among them the arm's DOF is checked after the exchange (so the command has
// gone out either way; a DOF other than 6 or 7 logs the disconnected line
// and gives -1), and those arrays are read with DOF entries. Status: 0, the
// exchange's code, -1, or the parse's status (-3).
query_result read(const query_command &q, ka_robot_handle *handle,
                  std::span<ka_reply_field> fields);

// A query of one array with one entry per joint, converted to floats. When
// `cache` is set, the arm record's copy follows the read.
struct joint_query {
    const char *function;
    const char *command;
    const char *reply;
    const char *key;
    float (*convert)(int32_t);
    float (arm_record::*cache)[7] = nullptr;
};
template <wire_name Command, wire_name Label = "">
constexpr joint_query joints(const char *key, float (*convert)(int32_t),
                             const char *reply = nullptr, float (arm_record::*cache)[7] = nullptr) {
    using n = names<Command, Label>;
    return {n::label, n::command, reply ? reply : n::command, key, convert, cache};
}
// Writes DOF entries of out (room for 7); entries beyond are left alone.
// 0, -1 (null out, bad DOF, arm gone), the parse's status, or the
// exchange's code.
int run(const joint_query &q, ka_robot_handle *handle, float *out);

// Writes the first dof integers of an array field through convert.
template <typename T, typename Convert>
void put_joints(T *out, const ka_reply_field &field, int dof, Convert convert) {
    for (int i = 0; i < dof && i < reply_array_capacity; ++i)
        out[i] = convert(field.value.a[i]);
}
// The low bits of a wire integer that fit T (flags and states kept as bytes
// or half-words).
template <typename T> T low_bits(int32_t v) { return static_cast<T>(static_cast<uint32_t>(v)); }

// A query of one integer under `key`. A reply without the key leaves the
// output unwritten and gives the exchange's positive result: that is how the
// controller has always answered "nothing to report", and callers see it as
// a non-zero status.
struct value_query {
    const char *function;
    const char *command;
    const char *reply;
    const char *key;
};
template <wire_name Command, wire_name Label = "">
constexpr value_query value(const char *key, const char *reply = nullptr) {
    using n = names<Command, Label>;
    return {n::label, n::command, reply ? reply : n::command, key};
}
// 0 with value written, the reply's length, or the exchange's code.
int run(const value_query &q, ka_robot_handle *handle, int32_t &value);

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

// The DOF of a registered 6 or 7 axis arm, else 0.
int arm_dof(const ka_robot_handle *handle);

} // namespace cmd
