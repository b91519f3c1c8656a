// Null-safe access layer over cJSON, used by every reply parser, plus RAII
// owners for cJSON trees and printed text.
#pragma once

#include "ka_api.h"

#include <cjson/cJSON.h>
#include <cstdlib>
#include <memory>

extern "C" {
KA_API cJSON *MIO_JSON_Parse(const char *text);
KA_API void MIO_JSON_Delete(cJSON *item);
KA_API cJSON *MIO_JSON_CreateObject(void);
KA_API cJSON *MIO_JSON_CreateArray(void);
KA_API cJSON *MIO_JSON_CreateString(const char *text);
KA_API cJSON *MIO_JSON_CreateNumber(double number);
KA_API cJSON *MIO_JSON_CreateTrue(void);
KA_API cJSON *MIO_JSON_CreateFalse(void);
KA_API int MIO_JSON_AddItemToObject(cJSON *object, const char *key, cJSON *item);
KA_API int MIO_JSON_AddItemToArray(cJSON *array, cJSON *item);
KA_API char *MIO_JSON_Print(const cJSON *item);
KA_API char *MIO_JSON_PrintUnformatted(const cJSON *item);
KA_API cJSON *MIO_JSON_GetObjectItem(const cJSON *object, const char *key);
KA_API cJSON *MIO_JSON_GetArrayItem(const cJSON *array, int index);
KA_API int MIO_JSON_GetArraySize(const cJSON *array);
KA_API int MIO_JSON_GetTypeFormItem(const cJSON *item);
// The integer value; -2 null object or key, -1 key missing, -3 not a number.
KA_API int MIO_JSON_GetObjectItemInt(const cJSON *object, const char *key);
// The string, or NULL when missing or not a string.
KA_API const char *MIO_JSON_GetObjectItemStr(const cJSON *object, const char *key);
// 1 true, 0 false, -1 missing, null or not a boolean.
KA_API int MIO_JSON_GetObjectItemBool(const cJSON *object, const char *key);
// The element's integer; -1 when not an array, out of range or not a number.
KA_API int MIO_JSON_GetArrayItemInt(const cJSON *array, int index);
}

struct json_deleter {
    void operator()(cJSON *item) const { cJSON_Delete(item); }
};
using json_ptr = std::unique_ptr<cJSON, json_deleter>;

struct printed_deleter {
    void operator()(char *text) const { cJSON_free(text); }
};
using printed_ptr = std::unique_ptr<char, printed_deleter>;

inline json_ptr json_parse(const char *text) {
    return json_ptr(text ? cJSON_Parse(text) : nullptr);
}

// Integer value of a number item, saturated to the int range (cJSON keeps
// numbers as double; huge values must not overflow a conversion).
int json_int(const cJSON *item);
