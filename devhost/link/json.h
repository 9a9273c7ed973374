// JSON values (json-c, owned) and hex texts: what every part of the host
// and the simulators speaks.
#ifndef DEVHOST_LINK_JSON_H
#define DEVHOST_LINK_JSON_H

#include <json-c/json.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace devhost {

using Bytes = std::vector<uint8_t>;

// An owned json-c value.
struct JsonPut {
    void operator()(json_object* o) const { json_object_put(o); }
};
using Json = std::unique_ptr<json_object, JsonPut>;

Json JsonParse(const std::string& text);
std::string JsonText(json_object* o);
// The member `key` of an object, or null when o is not an object or lacks it.
json_object* JsonGet(json_object* o, const char* key);
std::optional<long long> JsonInt(json_object* o, const char* key);
std::optional<std::string> JsonString(json_object* o, const char* key);
Json JsonError(const std::string& message);

std::string ToHex(const uint8_t* data, size_t len);
inline std::string ToHex(const Bytes& b) { return ToHex(b.data(), b.size()); }
// Lower- or upper-case hex digits, two per byte; nothing else.
std::optional<Bytes> FromHex(const std::string& text);

// {"ok": true}
Json JsonOk();

}  // namespace devhost

#endif  // DEVHOST_LINK_JSON_H
