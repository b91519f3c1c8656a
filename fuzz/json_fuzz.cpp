// The JSON access layer: parse, the typed getters on every key and index of
// the document and on one chosen by the input, the text printed back, and a
// copy built through the layer's own constructors.
//
// Input: a signed 16-bit index (little end first), a key length byte (its
// low five bits) and the key, then the JSON text.
#include "core/json.h"
#include "fuzz/fuzz_support.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <strings.h>

namespace {

// Containers are probed on their first children only: the lookups are
// linear, and a long array would make every run quadratic.
constexpr int probed_children = 64;

struct probe {
    const char *key; // chosen by the input
    int index;
};

int type_of(const cJSON *item) { return MIO_JSON_GetTypeFormItem(item) & 0xFF; }

// parse(print(doc)) == doc. A number that is not finite prints as null.
bool same(const cJSON *a, const cJSON *b) {
    if (!a || !b) return a == b;
    if (type_of(a) == cJSON_Number && !std::isfinite(a->valuedouble))
        return type_of(b) == cJSON_NULL;
    if (type_of(a) != type_of(b)) return false;
    switch (type_of(a)) {
    case cJSON_Number: {
        // cJSON prints 15 significant digits when they read back within a
        // rounding step of the value, so a round trip may move the last bit.
        double x = a->valuedouble, y = b->valuedouble;
        return std::fabs(x - y) <= std::fmax(std::fabs(x), std::fabs(y)) * DBL_EPSILON;
    }
    case cJSON_String:
        return std::strcmp(a->valuestring, b->valuestring) == 0;
    case cJSON_Array:
    case cJSON_Object: {
        const cJSON *x = a->child, *y = b->child;
        for (; x && y; x = x->next, y = y->next) {
            if (type_of(a) == cJSON_Object && std::strcmp(x->string, y->string) != 0) return false;
            if (!same(x, y)) return false;
        }
        return !x && !y;
    }
    default:
        return true;
    }
}

// The same document, built only through the layer.
cJSON *rebuild(const cJSON *item) {
    switch (type_of(item)) {
    case cJSON_False:
        return MIO_JSON_CreateFalse();
    case cJSON_True:
        return MIO_JSON_CreateTrue();
    case cJSON_NULL:
        return cJSON_CreateNull(); // the layer has no constructor for null
    case cJSON_Number:
        return MIO_JSON_CreateNumber(item->valuedouble);
    case cJSON_String:
        return MIO_JSON_CreateString(item->valuestring);
    case cJSON_Array: {
        cJSON *array = MIO_JSON_CreateArray();
        for (const cJSON *child = item->child; child; child = child->next)
            FUZZ_CHECK(MIO_JSON_AddItemToArray(array, rebuild(child)) == 1);
        return array;
    }
    case cJSON_Object: {
        cJSON *object = MIO_JSON_CreateObject();
        for (const cJSON *child = item->child; child; child = child->next)
            FUZZ_CHECK(MIO_JSON_AddItemToObject(object, child->string, rebuild(child)) == 1);
        return object;
    }
    default:
        FUZZ_CHECK(!"a parsed document holds only the six JSON kinds");
        return nullptr;
    }
}

// The getters' answers for one key of an object, against the item it names.
void check_key(const cJSON *object, const char *key) {
    const cJSON *item = MIO_JSON_GetObjectItem(object, key);
    if (item) FUZZ_CHECK(item->string && strcasecmp(item->string, key) == 0);

    int integer = MIO_JSON_GetObjectItemInt(object, key);
    if (!item) {
        FUZZ_CHECK(integer == -1);
    } else if (type_of(item) != cJSON_Number) {
        FUZZ_CHECK(integer == -3);
    } else {
        double v = item->valuedouble;
        if (std::isnan(v))
            FUZZ_CHECK(integer == 0);
        else if (v >= INT_MAX)
            FUZZ_CHECK(integer == INT_MAX);
        else if (v <= INT_MIN)
            FUZZ_CHECK(integer == INT_MIN);
        else
            FUZZ_CHECK(integer == static_cast<int>(std::trunc(v)));
    }

    const char *text = MIO_JSON_GetObjectItemStr(object, key);
    FUZZ_CHECK((text != nullptr) == (type_of(item) == cJSON_String));
    if (text) FUZZ_CHECK(text == item->valuestring);

    int flag = MIO_JSON_GetObjectItemBool(object, key);
    FUZZ_CHECK(flag == (type_of(item) == cJSON_True ? 1 : type_of(item) == cJSON_False ? 0 : -1));
}

// The getters' answers for one index of an array.
void check_index(const cJSON *array, int index, int size) {
    const cJSON *item = MIO_JSON_GetArrayItem(array, index);
    FUZZ_CHECK((item != nullptr) == (index >= 0 && index < size));
    int integer = MIO_JSON_GetArrayItemInt(array, index);
    if (!item || type_of(item) != cJSON_Number)
        FUZZ_CHECK(integer == -1);
    else
        FUZZ_CHECK(integer == json_int(item));
}

void check_getters(const cJSON *item, const probe &chosen) {
    int type = type_of(item);
    if (type != cJSON_Array && type != cJSON_Object) return;
    int size = MIO_JSON_GetArraySize(item);
    int counted = 0;
    for (const cJSON *child = item->child; child; child = child->next) {
        if (counted < probed_children) {
            if (type == cJSON_Object)
                check_key(item, child->string);
            else
                check_index(item, counted, size);
            check_getters(child, chosen);
        }
        ++counted;
    }
    FUZZ_CHECK(size == counted);
    if (type == cJSON_Object) check_key(item, chosen.key);
    if (type == cJSON_Array) {
        check_index(item, chosen.index, size);
        check_index(item, size, size);
        check_index(item, -1, size);
    }
    // Typed getters on the wrong kind of container find nothing.
    if (type == cJSON_Object) FUZZ_CHECK(MIO_JSON_GetArrayItemInt(item, 0) == -1);
}

void check_round_trip(const cJSON *doc, char *printed) {
    FUZZ_CHECK(printed != nullptr);
    json_ptr again(MIO_JSON_Parse(printed));
    FUZZ_CHECK(again != nullptr);
    FUZZ_CHECK(same(doc, again.get()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    probe chosen;
    chosen.index = static_cast<int16_t>(in.word());
    const std::string key = in.bytes(in.byte() % 32);
    chosen.key = key.c_str();
    const std::string text = in.rest();

    json_ptr doc(MIO_JSON_Parse(text.c_str()));
    if (!doc) return 0;
    check_getters(doc.get(), chosen);

    printed_ptr compact(MIO_JSON_PrintUnformatted(doc.get()));
    check_round_trip(doc.get(), compact.get());
    printed_ptr formatted(MIO_JSON_Print(doc.get()));
    check_round_trip(doc.get(), formatted.get());

    json_ptr copy(rebuild(doc.get()));
    printed_ptr copy_text(MIO_JSON_PrintUnformatted(copy.get()));
    FUZZ_CHECK(copy_text && std::strcmp(copy_text.get(), compact.get()) == 0);
    return 0;
}
