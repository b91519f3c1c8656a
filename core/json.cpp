#include "core/json.h"

#include <climits>
#include <cmath>

int json_int(const cJSON *item) {
    double v = item ? item->valuedouble : 0.0;
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

extern "C" {

cJSON *MIO_JSON_Parse(const char *text) { return text ? cJSON_Parse(text) : nullptr; }
void MIO_JSON_Delete(cJSON *item) {
    if (item) cJSON_Delete(item);
}
cJSON *MIO_JSON_CreateObject(void) { return cJSON_CreateObject(); }
cJSON *MIO_JSON_CreateArray(void) { return cJSON_CreateArray(); }
cJSON *MIO_JSON_CreateString(const char *text) { return text ? cJSON_CreateString(text) : nullptr; }
cJSON *MIO_JSON_CreateNumber(double number) { return cJSON_CreateNumber(number); }
cJSON *MIO_JSON_CreateTrue(void) { return cJSON_CreateTrue(); }
cJSON *MIO_JSON_CreateFalse(void) { return cJSON_CreateFalse(); }

int MIO_JSON_AddItemToObject(cJSON *object, const char *key, cJSON *item) {
    if (!object || !key || !item) return 0;
    return cJSON_AddItemToObject(object, key, item) ? 1 : 0;
}

int MIO_JSON_AddItemToArray(cJSON *array, cJSON *item) {
    if (!array || !item) return 0;
    return cJSON_AddItemToArray(array, item) ? 1 : 0;
}

char *MIO_JSON_Print(const cJSON *item) { return item ? cJSON_Print(item) : nullptr; }
char *MIO_JSON_PrintUnformatted(const cJSON *item) {
    return item ? cJSON_PrintUnformatted(item) : nullptr;
}

cJSON *MIO_JSON_GetObjectItem(const cJSON *object, const char *key) {
    return object && key ? cJSON_GetObjectItem(object, key) : nullptr;
}

cJSON *MIO_JSON_GetArrayItem(const cJSON *array, int index) {
    return array ? cJSON_GetArrayItem(array, index) : nullptr;
}

int MIO_JSON_GetArraySize(const cJSON *array) { return array ? cJSON_GetArraySize(array) : 0; }

int MIO_JSON_GetTypeFormItem(const cJSON *item) { return item ? item->type : 0; }

int MIO_JSON_GetObjectItemInt(const cJSON *object, const char *key) {
    if (!object || !key) return -2;
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (!item) return -1;
    if (!cJSON_IsNumber(item)) return -3;
    return json_int(item);
}

const char *MIO_JSON_GetObjectItemStr(const cJSON *object, const char *key) {
    if (!object || !key) return nullptr;
    const cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

int MIO_JSON_GetObjectItemBool(const cJSON *object, const char *key) {
    if (!object || !key) return -1;
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (cJSON_IsTrue(item)) return 1;
    if (cJSON_IsFalse(item)) return 0;
    return -1;
}

int MIO_JSON_GetArrayItemInt(const cJSON *array, int index) {
    if (!cJSON_IsArray(array)) return -1;
    const cJSON *item = cJSON_GetArrayItem(array, index);
    return cJSON_IsNumber(item) ? json_int(item) : -1;
}

} // extern "C"
