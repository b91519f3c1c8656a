#include "core/exchange.h"

#include "core/transport.h"

#include <cstring>
#include <optional>
#include <string>
#include <thread>

namespace {

const char *command_name(const ka_request_field *fields, int count) {
    return count > 0 && fields[0].type == KA_FIELD_STRING && fields[0].value.s ? fields[0].value.s
                                                                               : "";
}

cJSON *field_item(const ka_request_field &field) {
    switch (field.type) {
    case KA_FIELD_STRING:
        return cJSON_CreateString(field.value.s ? field.value.s : "");
    case KA_FIELD_INT:
        return cJSON_CreateNumber(field.value.i);
    case KA_FIELD_INT_ARRAY: {
        cJSON *array = cJSON_CreateArray();
        for (int i = 0; i < field.count && field.value.a; ++i)
            cJSON_AddItemToArray(array, cJSON_CreateNumber(field.value.a[i]));
        return array;
    }
    case KA_FIELD_BOOL:
        return cJSON_CreateBool(field.value.b);
    case KA_FIELD_ITEM:
        return field.value.item;
    default:
        return nullptr;
    }
}

int wait_reply(const char *function, const char *command, arm_record &arm, bool sent,
               const char *reply_name, char *reply, int reply_size, int timeout_ms) {
    int n = wait_for_line(arm, reply_name, reply, reply_size, timeout_ms);
    if (n >= 1) return n;
    if (!sent && std::strcmp(reply_name, "point") == 0)
        ka_log_info("[%s] %s save_trajectory complete\n", function, command);
    else if (sent)
        ka_log_error("[%s] %s revice error\n", function, command);
    return -2;
}

// Ready-made items belong to the request; a request that is never packed
// still releases them.
void release_items(const ka_request_field *fields, int count) {
    for (int i = 0; fields && i < count; ++i)
        if (fields[i].type == KA_FIELD_ITEM) cJSON_Delete(fields[i].value.item);
}

// The object to read typed fields from: inside "arm_state" or "all_state"
// when the reply has one, else the reply itself.
const cJSON *field_scope(const cJSON *doc, bool *nested) {
    for (const char *wrapper : {"arm_state", "all_state"}) {
        if (const cJSON *inner = cJSON_GetObjectItem(doc, wrapper)) {
            *nested = true;
            return inner;
        }
    }
    *nested = false;
    return doc;
}

} // namespace

extern "C" {

int common_json_pack_set(arm_record *arm, const ka_request_field *fields, int count) {
    if (!arm || !fields || count < 1) {
        release_items(fields, count);
        return -1;
    }
    json_ptr object(cJSON_CreateObject());
    for (int i = 0; i < count; ++i)
        if (cJSON *item = field_item(fields[i]))
            cJSON_AddItemToObject(object.get(), fields[i].key, item);
    printed_ptr text(cJSON_PrintUnformatted(object.get()));
    if (!text) return -1;
    ka_log_debug("send is: %s\n", text.get());
    // One buffer, one send: a line written in two pieces waits for the
    // peer's delayed acknowledgement before its second piece goes out.
    std::string line(text.get());
    line += "\r\n";
    return send_on_arm(*arm, line.data(), line.size());
}

int ka_pack_lock_set(const char *function, ka_robot_handle *handle, const ka_request_field *fields,
                     int count, const char *reply_name, char *reply, int reply_size,
                     int timeout_ms) {
    arm_ptr arm = registry_find(handle);
    if (!arm) {
        release_items(fields, count);
        return -1;
    }
    // A wait without a request is labelled with the name it waits for.
    const char *command = fields ? command_name(fields, count) : reply_name;
    // Claimed before the request goes out, so that the answer to it is never
    // purged by a later call, and an answer left over from an earlier call is.
    std::optional<reply_claim> claim;
    if (fields && reply_name) claim.emplace(*arm, reply_name, true);
    if (fields && common_json_pack_set(arm.get(), fields, count) != 0) {
        ka_log_error("[%s] %s send error\n", function, command);
        return -1;
    }
    if (!reply_name) {
        std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms));
        return 0;
    }
    return wait_reply(function, command, *arm, fields != nullptr, reply_name, reply, reply_size,
                      timeout_ms);
}

int ka_pack_lock_wait(const char *function, ka_robot_handle *handle, const char *reply_name,
                      char *reply, int reply_size, int timeout_ms) {
    return ka_pack_lock_set(function, handle, nullptr, 0, reply_name, reply, reply_size,
                            timeout_ms);
}

int parse_ka_set_command(const char *function, const char *text, const char *key) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        if (!text || std::strcmp(text, "given_state") != 0)
            ka_log_error("[%s] %s parse err\n", function, text ? text : "");
        return -3;
    }
    int result = MIO_JSON_GetObjectItemBool(doc.get(), key);
    if (result == 1) {
        ka_log_debug("[%s] %s: true\n", function, key);
        return 0;
    }
    if (result == 0) {
        ka_log_error("[%s] %s: false\n", function, key);
        return 1;
    }
    if (!key || std::strcmp(key, "given_state") != 0)
        ka_log_error("[%s] %s command parse err\n", function, key ? key : "");
    return -3;
}

int parse_ka_move_command(const char *text, int *device, int *trajectory_connect) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("Set command parse err\n");
        return -3;
    }
    int state = MIO_JSON_GetObjectItemBool(doc.get(), "trajectory_state");
    int dev = MIO_JSON_GetObjectItemInt(doc.get(), "device");
    int connect = MIO_JSON_GetObjectItemInt(doc.get(), "trajectory_connect");
    if (dev < 0 || connect < 0) {
        ka_log_error("Move command parse err\n");
        return -3;
    }
    if (device) *device = dev;
    if (trajectory_connect) *trajectory_connect = connect;
    // A missing "trajectory_state" reads as -1 and takes the accepted branch.
    if (state != 0) {
        ka_log_debug("Move command result is: true, current Device: %d, trajectory_connect: %d\n",
                     dev, connect);
        return state;
    }
    ka_log_error("Move command result is: false, current Device: %d, trajectory_connect: %d\n", dev,
                 connect);
    return 0;
}

int common_json_parse(const char *function, const char *text, ka_reply_field *fields, int count) {
    return count == 0 ? 0 : parse_fields({function}, text, fields, count);
}

int common_json_pack_get(arm_record *arm, const char *name, char *buffer, int size) {
    if (!arm || !name || !buffer || size < 3) return -1;
    json_ptr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "command", name);
    printed_ptr text(cJSON_PrintUnformatted(object.get()));
    if (!text) return -1;
    int length = static_cast<int>(std::strlen(text.get()));
    if (length >= size - 2) return -1;
    std::snprintf(buffer, static_cast<size_t>(size), "%s\r\n", text.get());
    return socket_send(arm->socket.get(), buffer, length + 2);
}

} // extern "C"

int parse_fields(const field_rules &rules, const char *text, ka_reply_field *fields, int count) {
    json_ptr doc = json_parse(text);
    if (!doc) {
        ka_log_error("Error parsing JSON\n");
        return -3;
    }
    bool nested = false;
    const cJSON *scope = rules.function ? field_scope(doc.get(), &nested) : doc.get();
    const std::string label = rules.function ? std::string("[") + rules.function + "] " : "";
    const char *l = label.c_str();
    for (int i = 0; fields && i < count; ++i) {
        ka_reply_field &field = fields[i];
        auto fail = [&](const char *line) {
            ka_log_error(line, l, field.key);
            return -3;
        };
        const cJSON *item = cJSON_GetObjectItem(scope, field.key);
        if (!item && i == rules.optional_at) {
            ka_log_warn(rules.optional_line);
            return 0;
        }
        if (!item) return fail("%s%s parsing error\n");
        switch (field.type) {
        case KA_FIELD_STRING:
            if (!cJSON_IsString(item)) return fail("%s%s is not a string\n");
            std::snprintf(field.value.s, sizeof field.value.s, "%s", item->valuestring);
            ka_log_info("%s%s parse result: %s\n", l, field.key, field.value.s);
            break;
        case KA_FIELD_INT:
            field.value.i = json_int(item);
            ka_log_info("%s%s parse result: %d\n", l, field.key, field.value.i);
            break;
        case KA_FIELD_INT_ARRAY:
        case KA_FIELD_INT_BLOCK: {
            if (!cJSON_IsArray(item)) return fail("%s%s is not an array\n");
            const bool block = field.type == KA_FIELD_INT_BLOCK;
            int size = cJSON_GetArraySize(item);
            if (size != field.count || (!block && size > reply_array_capacity))
                return fail("%sArray size mismatch for key %s\n");
            ka_log_info("%s%s parse result:\n", l, field.key);
            int32_t *to = block ? field.value.block : field.value.a;
            int index = 0;
            for (const cJSON *element = item->child; element; element = element->next, ++index) {
                to[index] = json_int(element);
                ka_log_info(" %d\n", to[index]);
            }
            break;
        }
        case KA_FIELD_BOOL:
            // Anything but a boolean leaves the entry as it was.
            if (cJSON_IsBool(item)) field.value.b = cJSON_IsTrue(item);
            ka_log_info("%s%s parse result: %d\n", l, field.key, field.value.b ? 1 : 0);
            break;
        case KA_FIELD_ITEM:
            if (rules.function && !nested) {
                field.value.item = cJSON_Duplicate(item, 1);
                break;
            }
            [[fallthrough]];
        default:
            return fail("%sUnsupported JSON value type for key %s\n");
        }
    }
    return 0;
}
