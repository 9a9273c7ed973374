/*
 * cJSON-style names over json-c. The item type is json-c's json_object; JSON
 * null is the null pointer, as json-c gives it. Every function is a thin
 * mapping onto one json-c call and is exported under its C++ name.
 */
#ifndef KX_CJSON_H
#define KX_CJSON_H

#include <json-c/json.h>

#define KX_JSON_API __attribute__((visibility("default")))

KX_JSON_API json_object* cJSON_CreateObject();
KX_JSON_API json_object* cJSON_CreateArray();
KX_JSON_API json_object* cJSON_CreateString(char const* text);
KX_JSON_API json_object* cJSON_CreateNull();
KX_JSON_API json_object* cJSON_CreateNumber(double value);
KX_JSON_API json_object* cJSON_CreateNumber(float value);
KX_JSON_API json_object* cJSON_CreateNumber(int value);
KX_JSON_API json_object* cJSON_CreateNumber(unsigned int value);
KX_JSON_API json_object* cJSON_CreateNumber(long value);
KX_JSON_API json_object* cJSON_CreateNumber(unsigned long value);
KX_JSON_API json_object* cJSON_CreateNumber(long long value);
KX_JSON_API json_object* cJSON_CreateNumber(unsigned long long value);

/* Adds item under key; the object takes it over. Nothing happens when the
 * object or the key is null (the caller keeps the item). */
KX_JSON_API void cJSON_AddItemToObject(json_object* object, char const* key, json_object* item);
/* The array takes the item over; a null or non-array takes nothing. */
KX_JSON_API void cJSON_AddItemToArray(json_object* array, json_object* item);

/* Null when the key is missing, its value is JSON null, or object is not an
 * object. */
KX_JSON_API json_object* cJSON_GetObjectItem(json_object* object, char const* key);
KX_JSON_API json_object* cJSON_GetArrayItem(json_object* array, int index);
KX_JSON_API int cJSON_GetArraySize(json_object* array); /* 0 for a non-array */

/* The text belongs to the object and lives until the object is released. */
KX_JSON_API char const* cJSON_Print(json_object* item);
KX_JSON_API json_object* cJSON_Parse(char const* text);
KX_JSON_API void cJSON_Delete(json_object* item);

#endif /* KX_CJSON_H */
