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
inline const Flow kAfPlanePut{.preProc = PreProcPutIspIaasAfPlanePoint,
                              .parse = ParsePutIspIaasAfPlanePoint,
                              .run = RunPutIspIaasAfPlanePoint,
                              .format = FormatPutIspIaasAfPlanePoint};
inline const Flow kAwbGet{.run = RunGetIspIaasAwb, .format = FormatGetIspIaasAwb};
inline const Flow kAwbPut{.preProc = PreProcPutIspIaasAwb,
                          .parse = ParsePutIspIaasAwb,
                          .run = RunPutIspIaasAwb,
                          .format = FormatPutIspIaasAwb};
inline const Flow kExtreGet{.run = RunGetIspIaasExtreColor, .format = FormatGetIspIaasExtreColor};
inline const Flow kExtrePut{.preProc = PreProcPutIspIaasExtreColor,
                            .parse = ParsePutIspIaasExtreColor,
                            .run = RunPutIspIaasExtreColor,
                            .format = FormatPutIspIaasExtreColor};
inline const Flow kLock{
    .parse = ParsePutIspIaasAEExpLock, .run = RunPutIspIaasAEExpLock, .format = FormatPutIspIaasAEExpLock};
inline const Flow kThermalGet{.run = RunGetIspIaasThermal, .format = FormatGetIspIaasThermal};
inline const Flow kThermalPut{.preProc = PreProcPutIspIaasThermal,
                              .parse = ParsePutIspIaasThermal,
                              .run = RunPutIspIaasThermal,
                              .format = FormatPutIspIaasThermal};
inline const Flow kRestore{.run = RunPutIspIaasRestoreDefaultParams};
inline const Flow kResetThermal{.run = RunPutIspIaasResetThermal};
inline const Flow kResetFog{.run = RunPutIspIaasResetFogAdapt};
inline const Flow kResetSpeed{.run = RunPutIspIaasResetSpeedAdapt};
inline const Flow kResetBacklight{.run = RunPutIspIaasResetBackLightAdapt};

// Every request of every resource, in the order above.
inline const std::pair<const char*, Flow> kEveryRequest[] = {{"FakeRatio", kFakeRatio},
                                                             {"Capability", kCapability},
                                                             {"AfStatus", kAfStatus},
                                                             {"AfPlaneGet", kAfPlaneGet},
                                                             {"AfPlanePut", kAfPlanePut},
                                                             {"AwbGet", kAwbGet},
                                                             {"AwbPut", kAwbPut},
                                                             {"ExtreGet", kExtreGet},
                                                             {"ExtrePut", kExtrePut},
                                                             {"Lock", kLock},
                                                             {"ThermalGet", kThermalGet},
                                                             {"ThermalPut", kThermalPut},
                                                             {"Restore", kRestore},
                                                             {"ResetThermal", kResetThermal},
                                                             {"ResetFog", kResetFog},
                                                             {"ResetSpeed", kResetSpeed},
                                                             {"ResetBacklight", kResetBacklight}};

// The operation-log identity of every request.
inline const std::string kWho = "admin[192.0.2.7:1099511627783] ";

// The stages that run before `stage` in its request (the request whose flow
// holds it), so that a test can call one stage as the server would.
inline Flow Before(const doubles::AnyStage& stage)
{
    for (const auto& [name, flow] : kEveryRequest) {
        if (flow.preProc == stage.preProc && stage.preProc != nullptr) {
            return {};
        }
        if (flow.parse == stage.parse && stage.parse != nullptr) {
            return {.preProc = flow.preProc};
        }
        if (flow.run == stage.run && stage.run != nullptr) {
            return {.preProc = flow.preProc, .parse = flow.parse};
        }
    }
    return {};
}

// The record layouts as the tests write them: where each field lies, in
// bytes, copied from the documented layouts (and matching the development
// host's simulator profile), never taken from the module, so that a wrong
// offset in the module fails a test instead of moving with it.
namespace at {
// The fake-ratio block (service command 28) and its double.
constexpr size_t kFakeRatioBlock = 608, kFakeRatio = 200;
// The capability block (service command 5): the sensor's width and height.
constexpr size_t kCapabilityBlock = 40, kSensorWidth = 16, kSensorHeight = 24;
// The autofocus block (service command 17): the plane calibration (switch
// byte, PointMax, then X and Y of four points) and the status.
constexpr size_t kAfBlock = 1240, kAfEnable = 1044, kAfPointMax = 1048, kAfPoints = 1052;
constexpr size_t kAfZoomRatio = 1208, kAfHorDegree = 1216, kAfVerDegree = 1224, kAfCalibrateState = 1232;
// The thermal block (service command 25): each record word's offset, in
// record order (colorBar, word 11, after the seven white-hot words), then
// the reserved word.
constexpr size_t kThermalBlock = 100, kThermalReserved = 96;
constexpr std::array<size_t, 24> kThermalWord = {0,  4,  8,  12, 16, 20, 24, 28, 32, 36, 40, 72,
                                                 44, 48, 52, 56, 60, 64, 68, 76, 80, 84, 88, 92};
// The device ability record: five 16-byte ranges from here, in the order
// brightness, contrast, saturation, hue, sharpness.
constexpr size_t kAbilityRanges = 888;
// A command reply: its payload starts here (where the scripted control
// process puts it); the configuration reply of command 3213 holds the fog,
// speed and backlight values at these reply offsets.
constexpr size_t kReplyPayload = 200, kConfigFog = 216, kConfigSpeed = 232, kConfigBacklight = 248;
// Command payloads: the channel field, then the settings from byte 8; the
// white-balance text (256 bytes) makes a payload of 264, the fusion strength
// and a zero word one of 16.
constexpr size_t kCmdParams = 8, kAwbText = 256, kAwbPayload = 264, kExtrePayload = 16;
}  // namespace at

// The thermal words in record order, and the same words as the service block
// keeps them, with a set reserved word.
using ThermalWords = std::array<uint32_t, 24>;
inline const ThermalWords kThermal = {3000000000u,    3000000001u,    3000000002u,    3000000003u,    uint32_t(-104),
                                      3000000005u,    3000000006u,    3000000007u,    3000000008u,    uint32_t(-109),
                                      3000000010u,    uint32_t(-111), uint32_t(-112), uint32_t(-113), uint32_t(-114),
                                      uint32_t(-115), uint32_t(-116), uint32_t(-117), uint32_t(-118), 3000000019u,
                                      3000000020u,    uint32_t(-121), 3000000022u,    3000000023u};
inline std::vector<uint8_t> ThermalBlock(const ThermalWords& words)
{
    std::vector<uint8_t> block(at::kThermalBlock);
    for (size_t i = 0; i < words.size(); ++i) {
        doubles::PutAt(block, at::kThermalWord[i], words[i]);
    }
    doubles::PutAt(block, at::kThermalReserved, 0xdeadbeefu);
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
    for (size_t i = 0; i < at::kAwbText; ++i) {
        text += i % 4 == 1 ? '1' : alnum[(i * 37 + i / 62) % 62];
    }
    return text;
}

// A control-process payload: the channel field, then `params` from byte 8,
// then patterned bytes.
inline std::vector<uint8_t> Payload(const std::string& params, size_t size = at::kAwbPayload)
{
    std::vector<uint8_t> p = Patterned(std::max(size, at::kCmdParams + params.size()), 0x31);
    doubles::PutAt<uint64_t>(p, 0, 101);
    std::copy(params.begin(), params.end(), p.begin() + at::kCmdParams);
    return p;
}

// The autofocus block of the plane points: switch on between zero bytes,
// PointMax 4000000000, points 4000000001 to ...08.
inline std::vector<uint8_t> AfBlock()
{
    std::vector<uint8_t> b = Patterned(at::kAfBlock, 1);
    doubles::PutAt<uint32_t>(b, at::kAfEnable - 4, 0);
    doubles::PutAt<uint32_t>(b, at::kAfEnable, 1);
    doubles::PutAt<uint32_t>(b, at::kAfPointMax, 4000000000u);
    for (uint32_t i = 0; i < 8; ++i) {  // X then Y of each point
        doubles::PutAt<uint32_t>(b, at::kAfPoints + 4 * i, 4000000001u + i);
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
    PutAt(Isp().blocks[{28, 0}] = Patterned(at::kFakeRatioBlock, 2), at::kFakeRatio, 1.5);
    auto& status = Isp().blocks[{17, 0}] = Patterned(at::kAfBlock, 3);
    PutAt(status, at::kAfZoomRatio, 2.5);
    PutAt(status, at::kAfHorDegree, 60.5);
    PutAt(status, at::kAfVerDegree, 34.25);
    PutAt<uint32_t>(status, at::kAfCalibrateState, 4294967295u);
    Isp().blocks[{17, 1}] = AfBlock();
    auto& capability = Isp().blocks[{5, 0}] = Patterned(at::kCapabilityBlock, 4);
    PutAt(capability, at::kSensorWidth, 1920.5);
    PutAt(capability, at::kSensorHeight, 1080.25);
    Control().ability = Patterned(Control().ability.size(), 5);
    for (int64_t i = 0; i < 10; ++i) {  // brightness, contrast, saturation, hue, sharpness
        PutAt<int64_t>(Control().ability, at::kAbilityRanges + 8 * i, i % 2 == 0 ? -(i + 1) : 100 * i);
    }
    Isp().blocks[{25, 2}] = ThermalBlock(kThermal);
    Isp().blocks[{16, 1}] = {6, 0x91, 0x92, 0x93};  // the exposure lock's flag as the service keeps it
    Control().payloads[VW_CMD_AWB] = Payload(AwbText() + "22");
    Control().payloads[VW_CMD_EXTRE_COLOR] = Payload("", at::kExtrePayload);
    PutAt<uint32_t>(Control().payloads[VW_CMD_EXTRE_COLOR], at::kCmdParams, 4294967295u);
    PutAt<uint32_t>(Control().payloads[VW_CMD_EXTRE_COLOR], at::kCmdParams + 4, 0xabcd);
    auto& config = Control().payloads[VW_CMD_ADAPT_CONFIG_GET] = Payload("", 64);
    PutAt<uint32_t>(config, at::kConfigFog - at::kReplyPayload, 0xf0f0);
    PutAt<uint32_t>(config, at::kConfigSpeed - at::kReplyPayload, 77);
    PutAt<int32_t>(config, at::kConfigBacklight - at::kReplyPayload, 1);
}

// The service answers a write or a create with status 500 (a create with
// its own content rather than the one it was sent) and serves the rest.
inline void WritesFail()
{
    doubles::Isp().answer = [](const doubles::SrvRequest& r) {
        doubles::SrvReply reply = doubles::Isp().Serve(r);
        reply.status = r.op == 1 || r.op == 3 ? 500 : 200;
        return reply;
    };
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
    return R"({ "ResponseStatus": { "RequestURL": ")" + Escaped(url) + R"(", "StatusCode": )" + std::to_string(code) +
           R"(, "StatusString": ")" + text + R"(" } })";
}

// The request that every resource test sends unless it says otherwise: a
// ChannelId every stage accepts, and a thermal body with accepted values.
inline const char* const kUrl = "/isp?ChannelId=102";
inline const char* const kBody = R"({"correctData": {"autoModeData": {"correctTime": 45, "correctTemperature": 10}}})";

}  // namespace world

#endif /* TEST_WORLD_H */
