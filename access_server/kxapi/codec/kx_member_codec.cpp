#include "kx_member_codec.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "securec.h"

char* kx_json_print_copy(json_object* root)
{
    const char* text = cJSON_Print(root);
    if (text == nullptr) {
        cJSON_Delete(root);
        return nullptr;
    }
    const size_t length = std::strlen(text);
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) {
        cJSON_Delete(root);
        return nullptr;
    }
    if (memset_s(copy, length + 1, 0, length + 1) != EOK || strncpy_s(copy, length + 1, text, length) != EOK) {
        cJSON_Delete(root);
        std::free(copy);
        return nullptr;
    }
    cJSON_Delete(root);
    return copy;
}

char* kx_json_string_dup(json_object* value)
{
    const int length = json_object_get_string_len(value);
    if (length < 0) {
        return nullptr;
    }
    const size_t size = static_cast<size_t>(length) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy == nullptr) {
        return nullptr;
    }
    if (strncpy_s(copy, size, json_object_get_string(value), static_cast<size_t>(length)) != EOK) {
        std::free(copy);
        return nullptr;
    }
    return copy;
}

int kx_clock_from_text(const char* text, long long* minutes)
{
    // Midnight at the end of the day has no broken-down time of its own.
    if (std::strcmp(text, "24:00") == 0) {
        *minutes = 24 * 60;
        return 0;
    }
    struct tm when;
    std::memset(&when, 0, sizeof(when));
    const char* end = strptime(text, "%H:%M", &when);
    if (end == nullptr || *end != '\0') {
        return -1;
    }
    *minutes = when.tm_hour * 60LL + when.tm_min;
    return 0;
}

int kx_datetime_from_text(const char* text, long long* seconds)
{
    struct tm when;
    std::memset(&when, 0, sizeof(when));  // tm_isdst 0: daylight saving counts as not in force
    const char* end = strptime(text, "%Y-%m-%d %H:%M:%S", &when);
    if (end == nullptr || *end != '\0') {
        return -1;
    }
    const time_t converted = mktime(&when);
    if (converted == static_cast<time_t>(-1)) {
        return -1;
    }
    *seconds = static_cast<long long>(converted);
    return 0;
}

json_object* kx_clock_to_json(unsigned minutes)
{
    struct tm when;
    std::memset(&when, 0, sizeof(when));
    when.tm_hour = static_cast<int>(minutes / 60);
    when.tm_min = static_cast<int>(minutes % 60);
    char text[64] = {0};
    std::strftime(text, sizeof(text), "%H:%M", &when);
    return cJSON_CreateString(text);
}

json_object* kx_datetime_to_json(long long seconds)
{
    const time_t when = static_cast<time_t>(seconds);
    struct tm local;
    if (localtime_r(&when, &local) == nullptr) {
        return nullptr;
    }
    char text[64] = {0};
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return cJSON_CreateString(text);
}
