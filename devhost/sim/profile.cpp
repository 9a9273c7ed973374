#include "profile.h"

#include <cctype>
#include <cstring>
#include <limits>
#include <sstream>
#include <vector>

namespace devhost {

namespace {

enum class FieldType { U8, U32, I32, F64, Text256 };

// One named value of a block: where it lies and where the profile gives it.
// Every byte not named here starts as 0.
struct BlockField {
    const char* service;  // "isp" or "control"
    int command;
    size_t offset;
    FieldType type;
    const char* path;  // in the profile, dot-separated; numbers index arrays
};

// Left as written: clang-format cannot lay out a macro that expands to
// braced rows.
// clang-format off
#define THERMAL(offset, type, name) {"isp", 25, offset, FieldType::type, "isp.thermal." name}
#define PLANE_POINT(i) \
    {"isp", 17, 1052 + 8 * (i), FieldType::U32, "isp.autofocus.planePoints." #i ".x"}, \
    {"isp", 17, 1056 + 8 * (i), FieldType::U32, "isp.autofocus.planePoints." #i ".y"}
#define CONTROL_CHANNEL(code) \
    {"control", code, 0, FieldType::U32, "control.channelField"}, \
    {"control", code, 4, FieldType::U32, "control.channelFieldHigh"}
// clang-format on

constexpr BlockField kFields[] = {
    {"isp", 5, 16, FieldType::F64, "isp.sensorScale.width"},
    {"isp", 5, 24, FieldType::F64, "isp.sensorScale.height"},
    {"isp", 6, 0, FieldType::U32, "isp.backlightState"},
    {"isp", 7, 0, FieldType::U32, "isp.fogState"},
    {"isp", 16, 0, FieldType::U8, "isp.exposureLock"},
    {"isp", 17, 1044, FieldType::U8, "isp.autofocus.planeEnable"},
    {"isp", 17, 1048, FieldType::U32, "isp.autofocus.pointMax"},
    PLANE_POINT(0),
    PLANE_POINT(1),
    PLANE_POINT(2),
    PLANE_POINT(3),
    {"isp", 17, 1208, FieldType::F64, "isp.autofocus.zoomRatioCur"},
    {"isp", 17, 1216, FieldType::F64, "isp.autofocus.horDegree"},
    {"isp", 17, 1224, FieldType::F64, "isp.autofocus.verDegree"},
    {"isp", 17, 1232, FieldType::U32, "isp.autofocus.calibrateState"},
    THERMAL(0, U32, "pointX"),
    THERMAL(4, U32, "pointY"),
    THERMAL(8, U32, "blindOperation"),
    THERMAL(12, U32, "correctOperation"),
    THERMAL(16, I32, "enable"),
    THERMAL(20, U32, "correctTime"),
    THERMAL(24, U32, "correctTemperature"),
    THERMAL(28, U32, "brightness"),
    THERMAL(32, U32, "contrast"),
    THERMAL(36, I32, "detailEnhace"),
    THERMAL(40, U32, "colorMode"),
    THERMAL(44, I32, "highRange"),
    THERMAL(48, I32, "midRange"),
    THERMAL(52, I32, "lowRange"),
    THERMAL(56, I32, "highMin"),
    THERMAL(60, I32, "midMax"),
    THERMAL(64, I32, "midMin"),
    THERMAL(68, I32, "lowMax"),
    THERMAL(72, I32, "colorBar"),
    THERMAL(76, U32, "afMode"),
    THERMAL(80, U32, "ctrlOperation"),
    THERMAL(84, I32, "tempAdapt"),
    THERMAL(88, U32, "afSpeed"),
    THERMAL(92, U32, "compensateTemp"),
    {"isp", 28, 200, FieldType::F64, "isp.fakeRatio"},
    CONTROL_CHANNEL(3210),
    {"control", 3210, 8, FieldType::U32, "control.speedSet"},
    CONTROL_CHANNEL(3213),
    {"control", 3213, 16, FieldType::U32, "control.fogAdapt"},
    {"control", 3213, 32, FieldType::U32, "control.speedAdapt"},
    {"control", 3213, 48, FieldType::I32, "control.backlightAdapt"},
    CONTROL_CHANNEL(3229),
    {"control", 3229, 8, FieldType::U32, "control.fusionStrength"},
    CONTROL_CHANNEL(3231),
    {"control", 3231, 8, FieldType::Text256, "control.roiWeightArray"},
};

#undef THERMAL
#undef PLANE_POINT
#undef CONTROL_CHANNEL

// The ability ranges in the order of the ability record.
constexpr const char* kAbilityNames[ABILITY_RANGE_COUNT] = {"brightness", "contrast", "saturation", "hue", "sharpness"};

constexpr const char kDefaultProfile[] = R"({
  "channels": 3,
  "isp": {
    "fakeRatio": 0.25,
    "sensorScale": {"width": 2592.0, "height": 1944.0},
    "backlightState": 0,
    "fogState": 1,
    "exposureLock": 0,
    "autofocus": {
      "zoomRatioCur": 1.0, "horDegree": 92.5, "verDegree": 51.5, "calibrateState": 1,
      "planeEnable": 1, "pointMax": 4,
      "planePoints": [{"x": 648, "y": 486}, {"x": 1944, "y": 486}, {"x": 648, "y": 1458}, {"x": 1944, "y": 1458}]
    },
    "thermal": {
      "pointX": 160, "pointY": 120, "blindOperation": 0, "correctOperation": 0, "enable": 1,
      "correctTime": 10, "correctTemperature": 3, "brightness": 50, "contrast": 50, "detailEnhace": 1,
      "colorMode": 0, "highRange": 1, "midRange": 1, "lowRange": 1, "highMin": 80, "midMax": 79,
      "midMin": 30, "lowMax": 29, "colorBar": 0, "afMode": 0, "ctrlOperation": 0, "tempAdapt": 1,
      "afSpeed": 3, "compensateTemp": 25
    }
  },
  "control": {
    "channelField": 101, "channelFieldHigh": 0,
    "roiWeightArray": "1111111111111111111111111111111111111111111111111111111111111111",
    "fusionStrength": 50,
    "fogAdapt": 2, "speedAdapt": 6, "backlightAdapt": 1, "speedSet": 0
  },
  "ability": {
    "brightness": {"begin": 0, "end": 100}, "contrast": {"begin": 0, "end": 100},
    "saturation": {"begin": 0, "end": 100}, "hue": {"begin": 0, "end": 100},
    "sharpness": {"begin": 0, "end": 100}
  }
}
)";

// Lays `over` onto `base`: objects member by member, anything else whole.
// A key that `base` does not have is a mistake in the profile.
bool Overlay(json_object* base, json_object* over, const std::string& where, std::string& error)
{
    json_object_object_foreach(over, key, value)
    {
        const std::string path = where.empty() ? key : where + "." + key;
        json_object* old = JsonGet(base, key);
        if (old == nullptr) {
            error = "unknown profile key \"" + path + "\"";
            return false;
        }
        if (json_object_is_type(old, json_type_object) && json_object_is_type(value, json_type_object)) {
            if (!Overlay(old, value, path, error)) {
                return false;
            }
        } else {
            json_object_object_add(base, key, json_object_get(value));
        }
    }
    return true;
}

json_object* Lookup(json_object* root, const char* path)
{
    std::stringstream parts(path);
    std::string part;
    json_object* at = root;
    while (at != nullptr && std::getline(parts, part, '.')) {
        if (json_object_is_type(at, json_type_array)) {
            at = json_object_array_get_idx(at, std::stoul(part));
        } else {
            at = JsonGet(at, part.c_str());
        }
    }
    return at;
}

size_t Width(FieldType type)
{
    switch (type) {
        case FieldType::U8:
            return 1;
        case FieldType::U32:
        case FieldType::I32:
            return 4;
        case FieldType::F64:
            return 8;
        case FieldType::Text256:
            return 256;
    }
    return 0;
}

const char* TypeName(FieldType type)
{
    switch (type) {
        case FieldType::U8:
            return "u8";
        case FieldType::U32:
            return "u32";
        case FieldType::I32:
            return "i32";
        case FieldType::F64:
            return "f64";
        case FieldType::Text256:
            return "text";
    }
    return "";
}

bool IsNumber(json_object* v)
{
    return json_object_is_type(v, json_type_int) || json_object_is_type(v, json_type_double);
}

bool PutField(const BlockField& f, json_object* v, Bytes& block, std::string& error)
{
    auto bad = [&](const char* what) {
        error = std::string("profile value \"") + f.path + "\" must be " + what;
        return false;
    };
    auto integer = [&](long long lo, long long hi, auto store) {
        if (!json_object_is_type(v, json_type_int) || json_object_get_int64(v) < lo || json_object_get_int64(v) > hi) {
            return bad("an integer in its range");
        }
        const auto value = static_cast<decltype(store)>(json_object_get_int64(v));
        std::memcpy(block.data() + f.offset, &value, sizeof(value));
        return true;
    };
    switch (f.type) {
        case FieldType::U8:
            return integer(0, 255, uint8_t{});
        case FieldType::U32:
            return integer(0, std::numeric_limits<uint32_t>::max(), uint32_t{});
        case FieldType::I32:
            return integer(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), int32_t{});
        case FieldType::F64: {
            if (!IsNumber(v)) {
                return bad("a number");
            }
            const double d = json_object_get_double(v);
            std::memcpy(block.data() + f.offset, &d, sizeof(d));
            return true;
        }
        case FieldType::Text256:
            if (!json_object_is_type(v, json_type_string) || json_object_get_string_len(v) > 255) {
                return bad("a text of at most 255 characters");
            }
            std::memcpy(block.data() + f.offset, json_object_get_string(v), json_object_get_string_len(v));
            return true;
    }
    return false;
}

json_object* FieldValue(const BlockField& f, const Bytes& block)
{
    const uint8_t* p = block.data() + f.offset;
    auto read = [p](auto value) {
        std::memcpy(&value, p, sizeof(value));
        return value;
    };
    switch (f.type) {
        case FieldType::U8:
            return json_object_new_int(p[0]);
        case FieldType::U32:
            return json_object_new_int64(read(uint32_t{}));
        case FieldType::I32:
            return json_object_new_int(read(int32_t{}));
        case FieldType::F64:
            return json_object_new_double(read(double{}));
        case FieldType::Text256:
            return json_object_new_string_len(reinterpret_cast<const char*>(p),
                                              static_cast<int>(strnlen(reinterpret_cast<const char*>(p), 256)));
    }
    return nullptr;
}

// Puts value at a dot-separated path below root, making the objects and
// arrays (for numeric parts) on the way.
void Place(json_object* root, const std::string& path, json_object* value)
{
    std::vector<std::string> parts;
    std::stringstream in(path);
    for (std::string part; std::getline(in, part, '.');) {
        parts.push_back(part);
    }
    json_object* at = root;
    for (size_t i = 0; i + 1 < parts.size(); i++) {
        const bool nextIsIndex = std::isdigit(static_cast<unsigned char>(parts[i + 1][0])) != 0;
        json_object* next = nullptr;
        if (json_object_is_type(at, json_type_array)) {
            const size_t index = std::stoul(parts[i]);
            next = json_object_array_get_idx(at, index);
            if (next == nullptr) {
                next = nextIsIndex ? json_object_new_array() : json_object_new_object();
                json_object_array_put_idx(at, index, next);
            }
        } else if ((next = JsonGet(at, parts[i].c_str())) == nullptr) {
            next = nextIsIndex ? json_object_new_array() : json_object_new_object();
            json_object_object_add(at, parts[i].c_str(), next);
        }
        at = next;
    }
    if (json_object_is_type(at, json_type_array)) {
        json_object_array_put_idx(at, std::stoul(parts.back()), value);
    } else {
        json_object_object_add(at, parts.back().c_str(), value);
    }
}

bool LoadAbility(json_object* root, ABILITY_PROFILE_S& ability, std::string& error)
{
    for (int i = 0; i < ABILITY_RANGE_COUNT; i++) {
        json_object* range = JsonGet(JsonGet(root, "ability"), kAbilityNames[i]);
        const std::optional<long long> begin = JsonInt(range, "begin");
        const std::optional<long long> end = JsonInt(range, "end");
        if (!begin || !end) {
            error = std::string("profile range \"ability.") + kAbilityNames[i] + "\" needs integers begin and end";
            return false;
        }
        ability.astRange[i] = {*begin, *end};
    }
    return true;
}

}  // namespace

long IspBlockSize(unsigned command)
{
    for (const IspCommandInfo& c : kIspCommands) {
        if (c.command == command) {
            return static_cast<long>(c.size);
        }
    }
    return -1;
}

long ControlPayloadSize(int code)
{
    for (const ControlCommandInfo& c : kControlCommands) {
        if (c.code == code) {
            return static_cast<long>(c.size);
        }
    }
    return -1;
}

const char* DefaultProfileText() { return kDefaultProfile; }

bool LoadProfile(const std::string& text, DeviceImage& image, std::string& error)
{
    Json root = JsonParse(kDefaultProfile);
    if (!text.empty()) {
        Json over = JsonParse(text);
        if (over == nullptr || !json_object_is_type(over.get(), json_type_object)) {
            error = "the profile is not a JSON object";
            return false;
        }
        if (!Overlay(root.get(), over.get(), "", error)) {
            return false;
        }
    }
    const std::optional<long long> channels = JsonInt(root.get(), "channels");
    if (!channels || *channels < 1 || *channels > 64) {
        error = "profile value \"channels\" must be an integer from 1 to 64";
        return false;
    }
    DeviceImage out;
    out.channels = static_cast<unsigned>(*channels);
    for (const IspCommandInfo& c : kIspCommands) {
        out.ispBlocks[c.command] = Bytes(c.size, 0);
    }
    for (const ControlCommandInfo& c : kControlCommands) {
        out.controlPayloads[c.code] = Bytes(c.size, 0);
    }
    for (const BlockField& f : kFields) {
        json_object* v = Lookup(root.get(), f.path);
        Bytes& block = std::strcmp(f.service, "isp") == 0 ? out.ispBlocks[static_cast<unsigned>(f.command)]
                                                          : out.controlPayloads[f.command];
        if (v == nullptr) {
            error = std::string("profile value \"") + f.path + "\" is missing";
            return false;
        }
        if (!PutField(f, v, block, error)) {
            return false;
        }
    }
    if (!LoadAbility(root.get(), out.ability, error)) {
        return false;
    }
    image = std::move(out);
    return true;
}

Json DecodeFields(const char* service, int command, const Bytes& block)
{
    Json fields;
    for (const BlockField& f : kFields) {
        if (std::strcmp(f.service, service) != 0 || f.command != command || block.size() < f.offset + Width(f.type)) {
            continue;
        }
        if (fields == nullptr) {
            fields.reset(json_object_new_object());
        }
        // Shaped as in the profile, below the service: {"thermal": {"pointX": ...}}.
        Place(fields.get(), std::strchr(f.path, '.') + 1, FieldValue(f, block));
    }
    return fields;
}

std::vector<FieldLayout> BlockLayouts()
{
    std::vector<FieldLayout> layouts;
    for (const BlockField& f : kFields) {
        layouts.push_back(
            {f.service, f.command, f.offset, Width(f.type), TypeName(f.type), std::strchr(f.path, '.') + 1});
    }
    return layouts;
}

Json BlockToJson(const char* service, int command, std::optional<uint32_t> channel, const Bytes& block)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "command", json_object_new_int(command));
    if (channel) {
        json_object_object_add(o.get(), "channel", json_object_new_int64(*channel));
    }
    json_object_object_add(o.get(), "size", json_object_new_int64(static_cast<int64_t>(block.size())));
    json_object_object_add(o.get(), "hex", json_object_new_string(ToHex(block).c_str()));
    if (Json fields = DecodeFields(service, command, block)) {
        json_object_object_add(o.get(), "fields", fields.release());
    }
    return o;
}

}  // namespace devhost
