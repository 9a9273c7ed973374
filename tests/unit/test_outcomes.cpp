// Every request outcome that writes an operation-log entry, and the read-only
// resource that writes none: the results, the response and the entry, in
// English and Chinese with its values in order, on channel 2 then 1.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "world.h"

namespace {

using doubles::Control;
using doubles::Isp;
using doubles::Request;
using namespace world;

// The 24 thermal values as the entries print them, in record order.
std::string ThermalValues(const char* labels, const ThermalWords& w)
{
    char text[2048];
    std::snprintf(text, sizeof(text), labels, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9], w[10], w[11],
                  w[12], w[13], w[14], w[15], w[16], w[17], w[18], w[19], w[20], w[21], w[22], w[23]);
    return text;
}
const char* const kThermalEn =
    "BlindPointX:%u, BlindPointY:%u, BlindOperation:%u, CorrectionMode:%u,AutoCorrectionEnable:%d, "
    "AutoCorrectionTime:%u, AutoCorrectionTemp:%u, Brightness:%u,Contrast:%u, DetailEnhanceEnable:%d, "
    "FakeColorMode:%d, ColorBarShow:%d,WhiteHot_HighRangeEnable:%d, WhiteHot_MidRangeEnable:%d,"
    "WhiteHot_LowRangeEnable:%d, WhiteHot_HighMin:%d,WhiteHot_MidMax:%d, WhiteHot_MidMin:%d,WhiteHot_LowMax:%d, "
    "AfMode:%u, AfCtrlMode:%u, AfTempAdaptEnable:%d, AfSpeed:%u, AfTemp:%u.";
const char* const kThermalCn =
    "盲元坐标x:%u, 盲元坐标y:%u, 盲元操作:%u, 校正模式:%u,自动非均匀性校正使能:%d, 自动校正时间:%u, "
    "自动校正温度:%u, 亮度:%u,色度:%u, 细节增强使能:%d, 伪彩模式:%d, 彩条使能:%d,白热模式高范围使能:%d, "
    "白热模式中范围使能:%d,白热模式低范围使能:%d, 高范围最小值:%d,中范围最大值:%d, 中范围最小值:%d,"
    "低范围最大值:%d, 聚焦模式:%u, 聚焦控制模式:%u, 温度自适应使能:%d, 聚焦速度:%u, 聚焦温度:%u.";
// The world's settings with the accepted correction values of kBody.
const ThermalWords kThermalAccepted = [] {
    ThermalWords w = kThermal;
    w[5] = 45;
    w[6] = 10;
    return w;
}();

const char* const kPlaneEn = "Enable:%d, pointMax: %u, point1_x:%u, point1_y:%u, point2_x:%u, point2_y:%u, "
                             "point3_x:%u, point3_y:%u, point4_x:%u, point4_y:%u.";
const char* const kPlaneCn = "使能:%d, 点数: %u, 点1x坐标:%u, 点1y坐标:%u, 点2x坐标:%u, 点2y坐标:%u, 点3x坐标:%u, "
                             "点3y坐标:%u, 点4x坐标:%u, 点4y坐标:%u.";
std::string PlaneValues(const char* labels, int enable, uint32_t pointMax)
{
    char text[512];
    std::snprintf(text, sizeof(text), labels, enable, pointMax, 4000000001u, 4000000002u, 4000000003u, 4000000004u,
                  4000000005u, 4000000006u, 4000000007u, 4000000008u);
    return text;
}

// A PreProc stage after which the device refuses every command with Result 9.
int PreProcThenRefuse(tagHTTP_HEADER_S* h, tagUNIX_SOCKET_S* s, tagHTTP_CNTENT_INTER_S* c)
{
    const int rc = PreProcPutIspIaasExtreColor(h, s, c);
    Control().results[VW_CMD_EXTRE_COLOR] = 9;
    return rc;
}

// The service answers a write or a create with status 500, the create with
// its own flag rather than the one it was sent.
void WritesFail()
{
    Isp().answer = [](const doubles::SrvRequest& r) {
        doubles::SrvReply reply = Isp().Serve(r);
        reply.status = r.op == 1 || r.op == 3 ? 500 : 200;
        return reply;
    };
}
void ReadsFail() { Isp().failStep = doubles::SrvStep::Recv; }
void Nothing() {}

const std::string kFail = "Operation Failed";

struct Case {
    const char* name;
    Flow flow;
    const char* method;
    const char* body;
    std::function<void()> setup;
    int result, formatted;
    std::string response, en, cn;  // en empty: no entry
    friend void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }
};

const Case kCases[] = {
    {"FakeRatioGet", kFakeRatio, "GET", nullptr, Nothing, 0, 0, R"({ "fakeRatio": 1.5 })", "", ""},
    {"CapabilityGet", kCapability, "GET", nullptr, Nothing, 0, 0,
     R"({ "basicInfos": { "brightness": { "begin": -1, "end": 100 }, "sharpeness": { "begin": -9, "end": 900 }, )"
     R"("hue": { "begin": -7, "end": 700 }, "contrast": { "begin": -3, "end": 300 }, )"
     R"("saturation": { "begin": -5, "end": 500 } }, "sensorInfos": { "scale": { "width": 1920.5, )"
     R"("height": 1080.25 } } })",
     "Get ISP Capability Successfully. BrightnessMin:-1, BrightnessMax:100, SharpenessMin:-9, SharpenessMax:900, "
     "HueMin:-7, HueMax:700, ContrastMin:-3, ContrastMax:300, StaturationMin:-5, StaturationMax:500, "
     "SensorHorizonSize:1920.500000, SensorVerticalSize:1080.250000.",
     "获取图像能力集参数成功. 亮度最小值:-1, 亮度最大值:100, 锐化最小值:-9, 锐化最大值:900, 色度最小值:-7, "
     "色度最大值:700, 对比度最小值:-3, 对比度最大值:300, 饱和度最小值:-5, 饱和度最大值:500, "
     "sensor水平尺寸:1920.500000, sensor垂直尺寸:1080.250000."},
    {"CapabilityGetFail", kCapability, "GET", nullptr, [] { Control().abilityFails = true; }, 1, -1, "",
     "Get ISP Capability Fail.", "获取图像能力集参数失败."},
    {"AfStatusGet", kAfStatus, "GET", nullptr, Nothing, 0, 0,
     R"({ "horDegree": 60.5, "verDegree": 34.25, "zoomRatioCur": 2.5, "calibrateState": 4294967295 })",
     "Get ISP Af Status Param Successfully. HorDegree: 60.500000, VerDegree:34.250000, CurRatio:2.500000 "
     ",calibrateState:4294967295.",
     "获取图像自动聚焦状态参数成功. 水平视场角: 60.500000, 垂直视场角:34.250000, 当前倍率:2.500000, "
     "聚焦标定状态:4294967295."},
    {"AfStatusGetFail", kAfStatus, "GET", nullptr, ReadsFail, 1, -1, "", "Get ISP Af Status Param Fail.",
     "获取图像自动聚焦状态参数失败."},
    {"AfPlaneGet", kAfPlaneGet, "GET", nullptr, Nothing, 0, 0,
     R"({ "enable": true, "PointMax": 4000000000, "planePoints": [ { "planePointX": 4000000001, )"
     R"("planePointY": 4000000002 }, { "planePointX": 4000000003, "planePointY": 4000000004 }, { "planePointX": )"
     R"(4000000005, "planePointY": 4000000006 }, { "planePointX": 4000000007, "planePointY": 4000000008 } ] })",
     "Get ISP Af PlanePoint Param Successfully. " + PlaneValues(kPlaneEn, 1, 4000000000u),
     "获取图像自动聚焦平面标定点参数成功. " + PlaneValues(kPlaneCn, 1, 4000000000u)},
    {"AfPlaneGetFail", kAfPlaneGet, "GET", nullptr, ReadsFail, 1, -1, "", "Get ISP Af PlanePoint Param Fail.",
     "获取图像自动聚焦平面标定点参数失败."},
    {"AfPlanePut", kAfPlanePut, "PUT", R"({"enable": false, "PointMax": 3})", Nothing, 0, 0, Envelope(kUrl, 0, "OK"),
     "Set ISP Af PlanePoint Param Successfully. " + PlaneValues(kPlaneEn, 0, 3),
     "设置图像自动聚焦平面标定点参数成功. " + PlaneValues(kPlaneCn, 0, 3)},
    {"AfPlanePutFail", kAfPlanePut, "PUT", R"({"enable": false, "PointMax": 3})", WritesFail, 1, 0,
     Envelope(kUrl, 1, kFail), "Set ISP Af PlanePoint Param Fail. " + PlaneValues(kPlaneEn, 0, 3),
     "设置图像自动聚焦平面标定点参数失败. " + PlaneValues(kPlaneCn, 0, 3)},
    {"AwbGet", kAwbGet, "GET", nullptr, Nothing, 0, 0,
     R"({ "regionAwbAttr": { "roiWeightArray": ")" + Escaped(AwbText()) + R"(" } })",
     "Get ISP AWB Param Successfully. RegionAwbWeight:" + AwbText() + ".",
     "获取图像白平衡参数成功. 区域白平衡权重:" + AwbText() + "."},
    {"AwbGetFail", kAwbGet, "GET", nullptr, [] { Control().unsent = {VW_CMD_AWB}; }, 1, -1, "",
     "Get ISP AWB Param Fail.", "获取图像白平衡参数失败."},
    {"AwbPut", kAwbPut, "PUT", "{}", Nothing, 0, 0, Envelope(kUrl, 0, "OK"),
     "Set ISP AWB Param Successfully. RegionAwbWeight:" + AwbText() + ".",
     "设置图像白平衡参数成功. 区域白平衡权重:" + AwbText() + "."},
    {"AwbPutFail", kAwbPut, "PUT", "{}",
     [] { Control().payloads[VW_CMD_AWB] = Payload(std::string("11111111111\0", 12)); }, 4, -1, "",
     "Set ISP AWB Param Fail. RegionAwbWeight:11111111111.", "设置图像白平衡参数失败. 区域白平衡权重:11111111111."},
    {"ExtreGet", kExtreGet, "GET", nullptr, Nothing, 0, 0, R"({ "fusionStrength": 4294967295 })",
     "Get ISP Extre Color Param Successfully.FusionStrength: 4294967295.",
     "获取图像黑光融合参数成功. 融合强度：4294967295."},
    {"ExtreGetFail", kExtreGet, "GET", nullptr, [] { Control().results[VW_CMD_EXTRE_COLOR] = 7; }, 7, -1, "",
     "Get ISP Extre Color Param Fail.", "获取图像黑光融合参数失败."},
    {"ExtrePut", kExtrePut, "PUT", R"({"fusionStrength": 3})", Nothing, 0, 0, Envelope(kUrl, 0, "OK"),
     "Set ISP Extre Color Param Successfully.FusionStrength: 3.", "设置图像黑光融合参数成功.融合强度: 3."},
    {"ExtrePutFail", {PreProcThenRefuse, ParsePutIspIaasExtreColor, RunPutIspIaasExtreColor, FormatPutIspIaasExtreColor},
     "PUT", R"({"fusionStrength": 3})", Nothing, 9, -1, "", "Set ISP Extre Color Param Fail.FusionStrength: 3.",
     "设置图像黑光融合参数失败.融合强度: 3."},
    // The entry shows the flag byte as the service's copy has it (6), also
    // when the reply's status fails: the content is taken before the status.
    {"LockPut", kLock, "PUT", R"({"enable": true})", Nothing, 0, 0,
     Envelope(kUrl, 0, "OK"), "Set ISP AEExpLock Successfully. Enable:6.", "设置图像曝光锁定参数成功. 是否使能:6."},
    {"LockPutFail", kLock, "PUT", R"({"enable": true})", WritesFail, 1, 0, Envelope(kUrl, 1, kFail),
     "Set ISP AEExpLock Fail. Enable:6.", "设置图像曝光锁定参数失败. 是否使能:6."},
    {"ThermalGet", kThermalGet, "GET", nullptr, Nothing, 0, 0,
     R"({ "blindData": { "blindPosition": { "pointX": 3000000000, "pointY": 3000000001 }, "blindOperation": )"
     R"(3000000002 }, "correctData": { "correctOperation": 3000000003, "autoModeData": { "enable": -104, )"
     R"("correctTime": 3000000005, "correctTemperature": 3000000006 } }, "basicData": { "brightness": 3000000007, )"
     R"("contrast": 3000000008, "detailEnhace": -109 }, "fakeColorData": { "colorMode": 3000000010, "colorBar": )"
     R"(-111, "whiteHotModeData": { "highRange": -112, "midRange": -113, "lowRange": -114, "highMin": -115, )"
     R"("midMax": -116, "midMin": -117, "lowMax": -118 } }, "thermalAfData": { "afMode": 3000000019, "afSpeed": )"
     R"(3000000022, "ctrlOperation": 3000000020, "tempAdapt": -121, "compensateTemp": 3000000023 } })",
     "Get ISP Thermal Param Successfully. " + ThermalValues(kThermalEn, kThermal),
     "获取图像热成像参数成功. " + ThermalValues(kThermalCn, kThermal)},
    {"ThermalGetFail", kThermalGet, "GET", nullptr, ReadsFail, 1, -1, "", "Get ISP Thermal Param Fail.",
     "获取图像热成像参数失败."},
    {"ThermalPut", kThermalPut, "PUT", kBody, Nothing, 0, 0, Envelope(kUrl, 0, "OK"),
     "Set ISP Thermal Param Successfully." + ThermalValues(kThermalEn, kThermalAccepted),
     "设置图像热成像参数成功. " + ThermalValues(kThermalCn, kThermalAccepted)},
    {"ThermalPutFail", kThermalPut, "PUT", "{}", Nothing, 4, -1, "",
     "Set ISP Thermal Param Fail. " + ThermalValues(kThermalEn, kThermal),
     "设置图像热成像参数失败. " + ThermalValues(kThermalCn, kThermal)},
    {"RestoreDefaults", kRestore, "PUT", nullptr, Nothing, 0, 0, "", "Restore ISP Default Param Successfully. ",
     "ISP恢复默认参数成功. "},
    {"RestoreDefaultsFail", kRestore, "PUT", nullptr, WritesFail, 1, 0, "", "Restore ISP Default Param Fail.",
     "ISP恢复默认参数失败."},
    {"ResetThermal", kResetThermal, "PUT", nullptr, Nothing, 0, 0, "", "Reset ISP Thermal Param Successfully. ",
     "ISP热成像重置成功. "},
    {"ResetThermalFail", kResetThermal, "PUT", nullptr, ReadsFail, 1, 0, "", "Reset ISP Thermal Param Fail.",
     "ISP热成像重置失败."},
    {"ResetFog", kResetFog, "PUT", nullptr, Nothing, 0, 0, "", "Reset ISP Fog Adapt Param Successfully. ",
     "ISP透雾自适应重置成功. "},
    {"ResetFogFail", kResetFog, "PUT", nullptr, WritesFail, 1, 0, "", "Reset ISP Fog Adapt Param Fail.",
     "ISP透气自适应重置失败."},
    {"ResetFogReadFail", kResetFog, "PUT", nullptr, ReadsFail, 1, 0, "", "Reset ISP Fog Adapt Param Fail.",
     "ISP透气自适应重置失败."},
    {"ResetSpeed", kResetSpeed, "PUT", nullptr, Nothing, 0, 0, "", "Reset ISP Speed Adapt Param Successfully. ",
     "ISP速度（拖影）自适应重置成功. "},
    // The set command's Result is the stage's, after the success entry.
    {"ResetSpeedRefused", kResetSpeed, "PUT", nullptr, [] { Control().results[VW_CMD_SPEED_ADAPT_SET] = 7; }, 7, 0,
     "", "Reset ISP Speed Adapt Param Successfully. ", "ISP速度（拖影）自适应重置成功. "},
    {"ResetSpeedFail", kResetSpeed, "PUT", nullptr, [] { Control().unsent = {VW_CMD_SPEED_ADAPT_SET}; }, 1, 0, "",
     "Reset ISP Speed Adapt Param Fail.", "ISP速度（拖影）自适应重置失败."},
    {"ResetBacklight", kResetBacklight, "PUT", nullptr, Nothing, 0, 0, "",
     "Reset ISP Backlight Adapt Param Successfully. ", "ISP背光自适应重置成功. "},
    {"ResetBacklightFail", kResetBacklight, "PUT", nullptr, WritesFail, 1, 0, "", "Reset ISP Backlight Adapt Param Fail.",
     "ISP背光自适应重置失败."},
};

class RequestOutcome : public testing::TestWithParam<Case> {
protected:
    void SetUp() override { Install(); }
};

TEST_P(RequestOutcome, ResultResponseAndOperationLogEntry)
{
    const Case& c = GetParam();
    c.setup();
    Request req(c.method, kUrl, c.body);
    const doubles::Outcome o = doubles::Perform(c.flow, req);
    EXPECT_EQ(o.result, c.result);
    EXPECT_EQ(o.formatted, c.formatted);
    EXPECT_EQ(req.Response(), c.response);
    ASSERT_EQ(doubles::OpLogs().size(), c.en.empty() ? 0u : 2u);
    for (size_t i = 0; i < doubles::OpLogs().size(); ++i) {
        const doubles::OpLog& entry = doubles::OpLogs()[i];
        EXPECT_EQ(entry.channel, i == 0 ? 2 : 1);
        EXPECT_EQ(entry.module, 4);
        EXPECT_EQ(entry.en, kWho + c.en);
        EXPECT_EQ(entry.cn, kWho + c.cn);
    }
    EXPECT_EQ(Isp().opens, Isp().closes);
    EXPECT_EQ(Isp().messagesLive, 0);
}

INSTANTIATE_TEST_SUITE_P(Entries, RequestOutcome, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

}  // namespace
