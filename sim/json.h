// Owning wrappers around cJSON trees and printed text, and the few readers
// the simulator needs.
#pragma once

#include <cjson/cJSON.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct json_deleter {
    void operator()(cJSON *item) const { cJSON_Delete(item); }
};
using json_ptr = std::unique_ptr<cJSON, json_deleter>;

struct json_text_deleter {
    void operator()(char *text) const { cJSON_free(text); }
};

inline json_ptr json_parse(const std::string &text) { return json_ptr(cJSON_Parse(text.c_str())); }

inline std::string json_print(const cJSON *item) {
    std::unique_ptr<char, json_text_deleter> text(cJSON_PrintUnformatted(item));
    return text ? std::string(text.get()) : std::string();
}

// {"command":"<name>"}: the start of every reply.
inline json_ptr json_reply(const char *name) {
    json_ptr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "command", name);
    return root;
}

inline void json_add_ints(cJSON *object, const char *key, const std::vector<int> &values) {
    cJSON_AddItemToObject(object, key,
                          cJSON_CreateIntArray(values.data(), static_cast<int>(values.size())));
}

// A number as an int, truncated toward zero; nothing for a number outside
// the int range (or not a number), which no request may carry.
inline std::optional<int> json_number_int(const cJSON *item) {
    if (!cJSON_IsNumber(item)) return std::nullopt;
    const double value = item->valuedouble;
    if (!(value > -2147483649.0 && value < 2147483648.0)) return std::nullopt;
    return static_cast<int>(value);
}

inline std::optional<int> json_int(const cJSON *object, const char *key) {
    return json_number_int(cJSON_GetObjectItemCaseSensitive(object, key));
}

inline std::optional<bool> json_bool(const cJSON *object, const char *key) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsBool(item)) return std::nullopt;
    return cJSON_IsTrue(item) != 0;
}

inline std::optional<std::string> json_string(const cJSON *object, const char *key) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsString(item) || !item->valuestring) return std::nullopt;
    return std::string(item->valuestring);
}

// An array of numbers of exactly `count` entries, as integers.
inline std::optional<std::vector<int>> json_ints(const cJSON *object, const char *key, int count) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (!cJSON_IsArray(item) || cJSON_GetArraySize(item) != count) return std::nullopt;
    std::vector<int> values;
    for (const cJSON *element = item->child; element; element = element->next) {
        const auto value = json_number_int(element);
        if (!value) return std::nullopt;
        values.push_back(*value);
    }
    return values;
}

} // namespace sim
