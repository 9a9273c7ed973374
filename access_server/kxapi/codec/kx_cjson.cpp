#include "kx_cjson.h"

#include <cstdio>

#include "securec.h"

json_object* cJSON_CreateObject() { return json_object_new_object(); }

json_object* cJSON_CreateArray() { return json_object_new_array(); }

json_object* cJSON_CreateString(char const* text) { return json_object_new_string(text); }

json_object* cJSON_CreateNull() { return nullptr; }

json_object* cJSON_CreateNumber(double value) { return json_object_new_double(value); }

// A float is printed with six decimals ("0.500000"), the precision it was
// meant with, rather than with the digits its widening to double invents.
json_object* cJSON_CreateNumber(float value)
{
    double widened = value;
    char text[64] = {0};
    if (snprintf_s(text, sizeof(text), sizeof(text) - 1, "%f", widened) <= 0) {
        std::puts("snprintf_s err");
    }
    return json_object_new_double_s(widened, text);
}

json_object* cJSON_CreateNumber(int value) { return json_object_new_int(value); }

json_object* cJSON_CreateNumber(unsigned int value) { return json_object_new_int64(static_cast<int64_t>(value)); }

json_object* cJSON_CreateNumber(long value) { return json_object_new_int64(static_cast<int64_t>(value)); }

json_object* cJSON_CreateNumber(unsigned long value)
{
    return json_object_new_int64(static_cast<int64_t>(static_cast<uint64_t>(value)));
}

json_object* cJSON_CreateNumber(long long value) { return json_object_new_int64(value); }

json_object* cJSON_CreateNumber(unsigned long long value) { return json_object_new_int64(static_cast<int64_t>(value)); }

void cJSON_AddItemToObject(json_object* object, char const* key, json_object* item)
{
    if (object == nullptr || key == nullptr) {
        return;
    }
    json_object_object_add(object, key, item);
}

// json-c asserts on array calls made on anything but an array; here a
// non-array simply has no elements and takes none.
void cJSON_AddItemToArray(json_object* array, json_object* item)
{
    if (json_object_is_type(array, json_type_array)) {
        json_object_array_add(array, item);
    }
}

json_object* cJSON_GetObjectItem(json_object* object, char const* key) { return json_object_object_get(object, key); }

json_object* cJSON_GetArrayItem(json_object* array, int index)
{
    if (index < 0 || !json_object_is_type(array, json_type_array)) {
        return nullptr;
    }
    return json_object_array_get_idx(array, static_cast<size_t>(index));
}

int cJSON_GetArraySize(json_object* array)
{
    if (!json_object_is_type(array, json_type_array)) {
        return 0;
    }
    return static_cast<int>(json_object_array_length(array));
}

char const* cJSON_Print(json_object* item) { return json_object_to_json_string(item); }

json_object* cJSON_Parse(char const* text) { return json_tokener_parse(text); }

// Every tree here has a single owner, so dropping the root's one reference
// releases the whole tree at once.
void cJSON_Delete(json_object* item)
{
    if (item != nullptr) {
        json_object_put(item);
    }
}
