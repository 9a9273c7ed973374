// What the resource tests share: each resource's stages in the server's
// order, and one scripted world whose settings tell every value apart
// (unsigned words above 2^31, signed ones negative).
#ifndef TEST_WORLD_H
#define TEST_WORLD_H

#include <array>
#include <string>

#include "ability.h"
#include "doubles.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_maint.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

namespace world {

using doubles::Flow;

inline const Flow kFakeRatio{.run = RunGetIspIaasFakeRatio, .format = FormatGetIspIaasFakeRatio};
inline const Flow kCapability{.run = RunGetIspIaasCapability, .format = FormatGetIspIaasCapability};
inline const Flow kAfStatus{.run = RunGetIspIaasAfStatus, .format = FormatGetIspIaasAfStatus};
inline const Flow kAfPlaneGet{.run = RunGetIspIaasAfPlanePoint, .format = FormatGetIspIaasAfPlanePoint};
inline const Flow kAfPlanePut{PreProcPutIspIaasAfPlanePoint, ParsePutIspIaasAfPlanePoint, RunPutIspIaasAfPlanePoint,
                              FormatPutIspIaasAfPlanePoint};
inline const Flow kAwbGet{.run = RunGetIspIaasAwb, .format = FormatGetIspIaasAwb};
inline const Flow kAwbPut{PreProcPutIspIaasAwb, ParsePutIspIaasAwb, RunPutIspIaasAwb, FormatPutIspIaasAwb};
inline const Flow kExtreGet{.run = RunGetIspIaasExtreColor, .format = FormatGetIspIaasExtreColor};
inline const Flow kExtrePut{PreProcPutIspIaasExtreColor, ParsePutIspIaasExtreColor, RunPutIspIaasExtreColor,
                            FormatPutIspIaasExtreColor};
inline const Flow kLock{.parse = ParsePutIspIaasAEExpLock, .run = RunPutIspIaasAEExpLock,
                        .format = FormatPutIspIaasAEExpLock};
inline const Flow kThermalGet{.run = RunGetIspIaasThermal, .format = FormatGetIspIaasThermal};
inline const Flow kThermalPut{PreProcPutIspIaasThermal, ParsePutIspIaasThermal, RunPutIspIaasThermal,
                              FormatPutIspIaasThermal};
inline const Flow kRestore{.run = RunPutIspIaasRestoreDefaultParams};
inline const Flow kResetThermal{.run = RunPutIspIaasResetThermal};
inline const Flow kResetFog{.run = RunPutIspIaasResetFogAdapt};
inline const Flow kResetSpeed{.run = RunPutIspIaasResetSpeedAdapt};
inline const Flow kResetBacklight{.run = RunPutIspIaasResetBackLightAdapt};

// Every request of every resource, in the order above.
inline const std::pair<const char*, Flow> kEveryRequest[] = {
    {"FakeRatio", kFakeRatio},   {"Capability", kCapability},     {"AfStatus", kAfStatus},
    {"AfPlaneGet", kAfPlaneGet}, {"AfPlanePut", kAfPlanePut},     {"AwbGet", kAwbGet},
    {"AwbPut", kAwbPut},         {"ExtreGet", kExtreGet},         {"ExtrePut", kExtrePut},
    {"Lock", kLock},             {"ThermalGet", kThermalGet},     {"ThermalPut", kThermalPut},
    {"Restore", kRestore},       {"ResetThermal", kResetThermal}, {"ResetFog", kResetFog},
    {"ResetSpeed", kResetSpeed}, {"ResetBacklight", kResetBacklight}};

// The operation-log identity of every request.
inline const std::string kWho = "admin[192.0.2.7:1099511627783] ";

// The thermal words in record order, and the same words as the service block
// keeps them: colorBar (word 11) after the seven white-hot words, then a set
// reserved word.
using ThermalWords = std::array<uint32_t, THERMAL_WORDS>;
inline const ThermalWords kThermal = {3000000000u, 3000000001u, 3000000002u, 3000000003u, uint32_t(-104),
                                      3000000005u, 3000000006u, 3000000007u, 3000000008u, uint32_t(-109),
                                      3000000010u, uint32_t(-111), uint32_t(-112), uint32_t(-113), uint32_t(-114),
                                      uint32_t(-115), uint32_t(-116), uint32_t(-117), uint32_t(-118), 3000000019u,
                                      3000000020u, uint32_t(-121), 3000000022u, 3000000023u};
inline std::vector<uint8_t> ThermalBlock(const ThermalWords& words)
{
    std::vector<uint8_t> block(THERMAL_BLOCK_SIZE);
    for (size_t i = 0; i < words.size(); ++i) {
        doubles::PutAt(block, i == 11 ? 72 : i >= 12 && i <= 18 ? 44 + 4 * (i - 12) : 4 * i, words[i]);
    }
    doubles::PutAt(block, 96, 0xdeadbeefu);
    return block;
}

// A block whose bytes differ within every 128 (a field read from a wrong
// offset shows), before the fields a test sets; none is a NUL or a digit.
inline std::vector<uint8_t> Patterned(size_t size, uint8_t seed)
{
    std::vector<uint8_t> b(size);
    for (size_t i = 0; i < size; ++i) {
        b[i] = static_cast<uint8_t>(0x80 | (i * 7 + seed));
    }
    return b;
}

// The white-balance text: 256 characters with no terminator and no repeat
// (every fourth a '1'), then more.
inline std::string AwbText()
{
    const std::string alnum = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    std::string text;
    for (size_t i = 0; i < AWB_WEIGHTS_LEN; ++i) {
        text += i % 4 == 1 ? '1' : alnum[(i * 37 + i / 62) % 62];
    }
    return text;
}

// A control-process payload: the channel field, then `params` from byte 8,
// then patterned bytes.
inline std::vector<uint8_t> Payload(const std::string& params, size_t size = 264)
{
    std::vector<uint8_t> p = Patterned(std::max(size, 8 + params.size()), 0x31);
    doubles::PutAt<uint64_t>(p, 0, 101);
    std::copy(params.begin(), params.end(), p.begin() + 8);
    return p;
}

// The autofocus block of the plane points: switch on between zero bytes,
// PointMax 4000000000, points 4000000001 to ...08.
inline std::vector<uint8_t> AfBlock()
{
    std::vector<uint8_t> b = Patterned(AF_BLOCK_SIZE, 1);
    doubles::PutAt<uint32_t>(b, AF_PLANE_ENABLE_OFFSET - 4, 0);
    doubles::PutAt<uint32_t>(b, AF_PLANE_ENABLE_OFFSET, 1);
    for (uint32_t i = 0; i < 9; ++i) {
        doubles::PutAt<uint32_t>(b, AF_PLANE_POINT_MAX_OFFSET + 4 * i, 4000000000u + i);
    }
    return b;
}

// Resets the doubles and installs the world's settings in the scripted services.
inline void Install()
{
    using doubles::Control;
    using doubles::Isp;
    using doubles::PutAt;
    doubles::ResetAll();
    PutAt(Isp().blocks[{28, 0}] = Patterned(FAKE_RATIO_BLOCK_SIZE, 2), FAKE_RATIO_OFFSET, 1.5);
    auto& status = Isp().blocks[{17, 0}] = Patterned(AF_BLOCK_SIZE, 3);
    PutAt(status, AF_ZOOM_RATIO_OFFSET, 2.5);
    PutAt(status, AF_HOR_DEGREE_OFFSET, 60.5);
    PutAt(status, AF_VER_DEGREE_OFFSET, 34.25);
    PutAt<uint32_t>(status, AF_CALIBRATE_STATE_OFFSET, 4294967295u);
    Isp().blocks[{17, 1}] = AfBlock();
    auto& capability = Isp().blocks[{5, 0}] = Patterned(CAPABILITY_BLOCK_SIZE, 4);
    PutAt(capability, CAPABILITY_WIDTH_OFFSET, 1920.5);
    PutAt(capability, CAPABILITY_HEIGHT_OFFSET, 1080.25);
    Control().ability = Patterned(Control().ability.size(), 5);
    for (int64_t i = 0; i < 10; ++i) {  // brightness, contrast, saturation, hue, sharpness
        PutAt<int64_t>(Control().ability, DEVICE_ABILITY_RANGES_OFFSET + 8 * i, i % 2 == 0 ? -(i + 1) : 100 * i);
    }
    Isp().blocks[{25, 2}] = ThermalBlock(kThermal);
    Isp().blocks[{16, 1}] = {6, 0x91, 0x92, 0x93};  // the exposure lock's flag as the service keeps it
    Control().payloads[VW_CMD_AWB] = Payload(AwbText() + "22");
    Control().payloads[VW_CMD_EXTRE_COLOR] = Payload("", 16);
    PutAt<uint32_t>(Control().payloads[VW_CMD_EXTRE_COLOR], 8, 4294967295u);
    PutAt<uint32_t>(Control().payloads[VW_CMD_EXTRE_COLOR], 12, 0xabcd);
    auto& config = Control().payloads[VW_CMD_ADAPT_CONFIG_GET] = Payload("", 64);
    PutAt<uint32_t>(config, ADAPT_REPLY_FOG - 200, 0xf0f0);
    PutAt<uint32_t>(config, ADAPT_REPLY_SPEED - 200, 77);
    PutAt<int32_t>(config, ADAPT_REPLY_BACKLIGHT - 200, 1);
}

// A text as a JSON string of the response carries it: json-c escapes every '/'.
inline std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (char c : text) {
        escaped += c == '/' ? std::string("\\/") : std::string(1, c);
    }
    return escaped;
}

// The status envelope as the response carries it.
inline std::string Envelope(const std::string& url, int code, const std::string& text)
{
    return R"({ "ResponseStatus": { "RequestURL": ")" + Escaped(url) + R"(", "StatusCode": )" +
           std::to_string(code) + R"(, "StatusString": ")" + text + R"(" } })";
}

// The request that every resource test sends unless it says otherwise: a
// ChannelId every stage accepts, and a thermal body with accepted values.
inline const char* const kUrl = "/isp?ChannelId=102";
inline const char* const kBody = R"({"correctData": {"autoModeData": {"correctTime": 45, "correctTemperature": 10}}})";

}  // namespace world

#endif /* TEST_WORLD_H */
