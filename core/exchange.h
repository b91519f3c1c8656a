// Command exchange engine: typed request fields packed into one JSON line,
// the send-and-wait for the reply that carries a given name, and the reply
// parsers. Every command family is written on top of this.
#pragma once

#include "core/arm.h"
#include "core/json.h"

#include <cstdint>

// Request field: one key of the command object, added in list order.
enum ka_field_type : int32_t {
    KA_FIELD_STRING = 0,
    KA_FIELD_INT = 1,
    KA_FIELD_INT_ARRAY = 2,
    KA_FIELD_BOOL = 3,
    KA_FIELD_ITEM = 4,      // a ready-made cJSON item; the command object takes it over
    KA_FIELD_INT_BLOCK = 5, // reply only: exactly count integers into value.block, any count
};

struct ka_request_field {
    int32_t type;
    const char *key;
    int32_t count; // elements of an integer array
    union {
        const char *s;
        int32_t i;
        const int32_t *a;
        bool b;
        cJSON *item;
    } value;
};

// Reply field: filled by common_json_parse.
constexpr int reply_value_bytes = 96;
constexpr int reply_array_capacity = 24;
struct ka_reply_field {
    int32_t type;
    const char *key;
    int32_t count; // exact element count expected for an integer array
    union {
        char s[reply_value_bytes]; // terminated; longer strings are cut
        int32_t i;
        int32_t a[reply_array_capacity];
        bool b;
        cJSON *item;    // deep copy; the caller deletes it
        int32_t *block; // the caller's room for count integers
    } value;
};

// How parse_fields looks keys up and labels its lines: common_json_parse's
// rules for a function, or (null function) top-level keys and unlabelled
// lines, where a missing entry at optional_at ends the read with 0 after
// the optional_line warning.
struct field_rules {
    const char *function;
    int optional_at = -1;
    const char *optional_line = nullptr;
};
// 0, or -3.
int parse_fields(const field_rules &rules, const char *text, ka_reply_field *fields, int count);

// Reply time-outs, milliseconds.
constexpr int m_nOutTime = 500;
constexpr int m_nOutTime_max = 1000;
constexpr int reply_buffer_size = 1024;

extern "C" {
// Packs the fields (the first is "command") and sends the line. 0 sent, -1
// no fields or nothing printable, -2 send failure.
KA_API int common_json_pack_set(arm_record *arm, const ka_request_field *fields, int count);

// Looks the handle up, sends the fields (when given) and waits for the line
// named reply_name (when given; otherwise pauses timeout_ms). The reply's
// length (> 0), 0 (no reply awaited), -1 unknown handle or send failure, -2
// no reply in time.
KA_API int ka_pack_lock_set(const char *function, ka_robot_handle *handle,
                            const ka_request_field *fields, int count, const char *reply_name,
                            char *reply, int reply_size, int timeout_ms);

// Waits for a line without sending anything. Its length, or -1 / -2.
KA_API int ka_pack_lock_wait(const char *function, ka_robot_handle *handle, const char *reply_name,
                             char *reply, int reply_size, int timeout_ms);

// 0 when key is true, 1 when false, -3 when not JSON or key missing.
KA_API int parse_ka_set_command(const char *function, const char *text, const char *key);

// 1 ended normally, 0 ended false (-1 when "trajectory_state" is missing),
// -3 unparsable or device / trajectory_connect missing.
KA_API int parse_ka_move_command(const char *text, int *device, int *trajectory_connect);

// Fills the fields from the reply (keys looked up inside "arm_state" or
// "all_state" when present). 0, or -3.
KA_API int common_json_parse(const char *function, const char *text, ka_reply_field *fields,
                             int count);

// Builds {"command":name} into buffer with "\r\n" and sends it. 0, -1, -2.
KA_API int common_json_pack_get(arm_record *arm, const char *name, char *buffer, int size);
}
