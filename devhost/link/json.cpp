#include "json.h"

namespace devhost {

Json JsonParse(const std::string& text) { return Json(json_tokener_parse(text.c_str())); }

std::string JsonText(json_object* o) { return json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN); }

json_object* JsonGet(json_object* o, const char* key)
{
    json_object* v = nullptr;
    if (o == nullptr || !json_object_is_type(o, json_type_object) || !json_object_object_get_ex(o, key, &v)) {
        return nullptr;
    }
    return v;
}

std::optional<long long> JsonInt(json_object* o, const char* key)
{
    json_object* v = JsonGet(o, key);
    if (v == nullptr || !json_object_is_type(v, json_type_int)) {
        return std::nullopt;
    }
    // Past INT64_MAX the number is held unsigned and would read as INT64_MAX.
    const int64_t n = json_object_get_int64(v);
    if (n == INT64_MAX && json_object_get_uint64(v) != static_cast<uint64_t>(INT64_MAX)) {
        return std::nullopt;
    }
    return n;
}

std::optional<std::string> JsonString(json_object* o, const char* key)
{
    json_object* v = JsonGet(o, key);
    if (v == nullptr || !json_object_is_type(v, json_type_string)) {
        return std::nullopt;
    }
    return std::string(json_object_get_string(v), json_object_get_string_len(v));
}

Json JsonError(const std::string& message)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "error", json_object_new_string(message.c_str()));
    return o;
}

std::string ToHex(const uint8_t* data, size_t len)
{
    static const char digits[] = "0123456789abcdef";
    std::string out(len * 2, '0');
    for (size_t i = 0; i < len; i++) {
        out[2 * i] = digits[data[i] >> 4];
        out[2 * i + 1] = digits[data[i] & 15];
    }
    return out;
}

std::optional<Bytes> FromHex(const std::string& text)
{
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes out(text.size() / 2);
    for (size_t i = 0; i < out.size(); i++) {
        const int hi = nibble(text[2 * i]);
        const int lo = nibble(text[2 * i + 1]);
        if (hi < 0 || lo < 0) {
            return std::nullopt;
        }
        out[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return out;
}

Json JsonOk()
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "ok", json_object_new_boolean(1));
    return o;
}

}  // namespace devhost
