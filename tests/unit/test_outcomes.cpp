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

const char* const kPlaneEn =
    "Enable:%d, pointMax: %u, point1_x:%u, point1_y:%u, point2_x:%u, point2_y:%u, "
    "point3_x:%u, point3_y:%u, point4_x:%u, point4_y:%u.";
const char* const kPlaneCn =
    "使能:%d, 点数: %u, 点1x坐标:%u, 点1y坐标:%u, 点2x坐标:%u, 点2y坐标:%u, 点3x坐标:%u, "
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

void ReadsFail() { Isp().failStep = doubles::SrvStep::Recv; }

const std::string kFail = "Operation Failed";

struct Case {
    const char* name;
    Flow flow;
    const char* method = "GET";
    const char* body = nullptr;
    std::function<void()> setup = [] {};
    int result = 0, formatted = 0;
    std::string response = "", en = "", cn = "";  // en empty: no entry
    friend void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }
};

// The resets' failures and their entries are in the failure table of every
// stage, with their diagnostics.
const Case kCases[] = {
    {.name = "FakeRatioGet", .flow = kFakeRatio, .response = R"({ "fakeRatio": 1.5 })"},
    {.name = "CapabilityGet",
     .flow = kCapability,
     .response =
         R"({ "basicInfos": { "brightness": { "begin": -1, "end": 100 }, "sharpeness": { "begin": -9, "end": 900 }, )"
         R"("hue": { "begin": -7, "end": 700 }, "contrast": { "begin": -3, "end": 300 }, )"
         R"("saturation": { "begin": -5, "end": 500 } }, "sensorInfos": { "scale": { "width": 1920.5, )"
         R"("height": 1080.25 } } })",
     .en = "Get ISP Capability Successfully. BrightnessMin:-1, BrightnessMax:100, SharpenessMin:-9, SharpenessMax:900, "
           "HueMin:-7, HueMax:700, ContrastMin:-3, ContrastMax:300, StaturationMin:-5, StaturationMax:500, "
           "SensorHorizonSize:1920.500000, SensorVerticalSize:1080.250000.",
     .cn = "获取图像能力集参数成功. 亮度最小值:-1, 亮度最大值:100, 锐化最小值:-9, 锐化最大值:900, 色度最小值:-7, "
           "色度最大值:700, 对比度最小值:-3, 对比度最大值:300, 饱和度最小值:-5, 饱和度最大值:500, "
           "sensor水平尺寸:1920.500000, sensor垂直尺寸:1080.250000."},
    {.name = "CapabilityGetFail",
     .flow = kCapability,
     .setup = [] { Control().abilityFails = true; },
     .result = 1,
     .formatted = -1,
     .en = "Get ISP Capability Fail.",
     .cn = "获取图像能力集参数失败."},
    {.name = "AfStatusGet",
     .flow = kAfStatus,
     .response = R"({ "horDegree": 60.5, "verDegree": 34.25, "zoomRatioCur": 2.5, "calibrateState": 4294967295 })",
     .en = "Get ISP Af Status Param Successfully. HorDegree: 60.500000, VerDegree:34.250000, CurRatio:2.500000 "
           ",calibrateState:4294967295.",
     .cn = "获取图像自动聚焦状态参数成功. 水平视场角: 60.500000, 垂直视场角:34.250000, 当前倍率:2.500000, "
           "聚焦标定状态:4294967295."},
    {.name = "AfStatusGetFail",
     .flow = kAfStatus,
     .setup = ReadsFail,
     .result = 1,
     .formatted = -1,
     .en = "Get ISP Af Status Param Fail.",
     .cn = "获取图像自动聚焦状态参数失败."},
    {.name = "AfPlaneGet",
     .flow = kAfPlaneGet,
     .response =
         R"({ "enable": true, "PointMax": 4000000000, "planePoints": [ { "planePointX": 4000000001, )"
         R"("planePointY": 4000000002 }, { "planePointX": 4000000003, "planePointY": 4000000004 }, { "planePointX": )"
         R"(4000000005, "planePointY": 4000000006 }, { "planePointX": 4000000007, "planePointY": 4000000008 } ] })",
     .en = "Get ISP Af PlanePoint Param Successfully. " + PlaneValues(kPlaneEn, 1, 4000000000u),
     .cn = "获取图像自动聚焦平面标定点参数成功. " + PlaneValues(kPlaneCn, 1, 4000000000u)},
    {.name = "AfPlaneGetFail",
     .flow = kAfPlaneGet,
     .setup = ReadsFail,
     .result = 1,
     .formatted = -1,
     .en = "Get ISP Af PlanePoint Param Fail.",
     .cn = "获取图像自动聚焦平面标定点参数失败."},
    {.name = "AfPlanePut",
     .flow = kAfPlanePut,
     .method = "PUT",
     .body = R"({"enable": false, "PointMax": 3})",
     .response = Envelope(kUrl, 0, "OK"),
     .en = "Set ISP Af PlanePoint Param Successfully. " + PlaneValues(kPlaneEn, 0, 3),
     .cn = "设置图像自动聚焦平面标定点参数成功. " + PlaneValues(kPlaneCn, 0, 3)},
    {.name = "AfPlanePutFail",
     .flow = kAfPlanePut,
     .method = "PUT",
     .body = R"({"enable": false, "PointMax": 3})",
     .setup = WritesFail,
     .result = 1,
     .response = Envelope(kUrl, 1, kFail),
     .en = "Set ISP Af PlanePoint Param Fail. " + PlaneValues(kPlaneEn, 0, 3),
     .cn = "设置图像自动聚焦平面标定点参数失败. " + PlaneValues(kPlaneCn, 0, 3)},
    {.name = "AwbGet",
     .flow = kAwbGet,
     .response = R"({ "regionAwbAttr": { "roiWeightArray": ")" + Escaped(AwbText()) + R"(" } })",
     .en = "Get ISP AWB Param Successfully. RegionAwbWeight:" + AwbText() + ".",
     .cn = "获取图像白平衡参数成功. 区域白平衡权重:" + AwbText() + "."},
    {.name = "AwbGetFail",
     .flow = kAwbGet,
     .setup = [] { Control().unsent = {VW_CMD_AWB}; },
     .result = 1,
     .formatted = -1,
     .en = "Get ISP AWB Param Fail.",
     .cn = "获取图像白平衡参数失败."},
    {.name = "AwbPut",
     .flow = kAwbPut,
     .method = "PUT",
     .body = "{}",
     .response = Envelope(kUrl, 0, "OK"),
     .en = "Set ISP AWB Param Successfully. RegionAwbWeight:" + AwbText() + ".",
     .cn = "设置图像白平衡参数成功. 区域白平衡权重:" + AwbText() + "."},
    {.name = "AwbPutFail",
     .flow = kAwbPut,
     .method = "PUT",
     .body = "{}",
     .setup = [] { Control().payloads[VW_CMD_AWB] = Payload(std::string("11111111111\0", 12)); },
     .result = 4,
     .formatted = -1,
     .en = "Set ISP AWB Param Fail. RegionAwbWeight:11111111111.",
     .cn = "设置图像白平衡参数失败. 区域白平衡权重:11111111111."},
    {.name = "ExtreGet",
     .flow = kExtreGet,
     .response = R"({ "fusionStrength": 4294967295 })",
     .en = "Get ISP Extre Color Param Successfully.FusionStrength: 4294967295.",
     .cn = "获取图像黑光融合参数成功. 融合强度：4294967295."},
    {.name = "ExtreGetFail",
     .flow = kExtreGet,
     .setup = [] { Control().results[VW_CMD_EXTRE_COLOR] = 7; },
     .result = 7,
     .formatted = -1,
     .en = "Get ISP Extre Color Param Fail.",
     .cn = "获取图像黑光融合参数失败."},
    {.name = "ExtrePut",
     .flow = kExtrePut,
     .method = "PUT",
     .body = R"({"fusionStrength": 3})",
     .response = Envelope(kUrl, 0, "OK"),
     .en = "Set ISP Extre Color Param Successfully.FusionStrength: 3.",
     .cn = "设置图像黑光融合参数成功.融合强度: 3."},
    {.name = "ExtrePutFail",
     .flow = {.preProc = PreProcThenRefuse,
              .parse = ParsePutIspIaasExtreColor,
              .run = RunPutIspIaasExtreColor,
              .format = FormatPutIspIaasExtreColor},
     .method = "PUT",
     .body = R"({"fusionStrength": 3})",
     .result = 9,
     .formatted = -1,
     .en = "Set ISP Extre Color Param Fail.FusionStrength: 3.",
     .cn = "设置图像黑光融合参数失败.融合强度: 3."},
    // The entry shows the flag byte as the service's copy has it (6), also
    // when the reply's status fails: the content is taken before the status.
    {.name = "LockPut",
     .flow = kLock,
     .method = "PUT",
     .body = R"({"enable": true})",
     .response = Envelope(kUrl, 0, "OK"),
     .en = "Set ISP AEExpLock Successfully. Enable:6.",
     .cn = "设置图像曝光锁定参数成功. 是否使能:6."},
    {.name = "LockPutFail",
     .flow = kLock,
     .method = "PUT",
     .body = R"({"enable": true})",
     .setup = WritesFail,
     .result = 1,
     .response = Envelope(kUrl, 1, kFail),
     .en = "Set ISP AEExpLock Fail. Enable:6.",
     .cn = "设置图像曝光锁定参数失败. 是否使能:6."},
    {.name = "ThermalGet",
     .flow = kThermalGet,
     .response =
         R"({ "blindData": { "blindPosition": { "pointX": 3000000000, "pointY": 3000000001 }, "blindOperation": )"
         R"(3000000002 }, "correctData": { "correctOperation": 3000000003, "autoModeData": { "enable": -104, )"
         R"("correctTime": 3000000005, "correctTemperature": 3000000006 } }, "basicData": { "brightness": )"
         R"(3000000007, "contrast": 3000000008, "detailEnhace": -109 }, "fakeColorData": { "colorMode": )"
         R"(3000000010, "colorBar": -111, "whiteHotModeData": { "highRange": -112, "midRange": -113, "lowRange": )"
         R"(-114, "highMin": -115, "midMax": -116, "midMin": -117, "lowMax": -118 } }, "thermalAfData": { )"
         R"("afMode": 3000000019, "afSpeed": 3000000022, "ctrlOperation": 3000000020, "tempAdapt": -121, )"
         R"("compensateTemp": 3000000023 } })",
     .en = "Get ISP Thermal Param Successfully. " + ThermalValues(kThermalEn, kThermal),
     .cn = "获取图像热成像参数成功. " + ThermalValues(kThermalCn, kThermal)},
    {.name = "ThermalGetFail",
     .flow = kThermalGet,
     .setup = ReadsFail,
     .result = 1,
     .formatted = -1,
     .en = "Get ISP Thermal Param Fail.",
     .cn = "获取图像热成像参数失败."},
    {.name = "ThermalPut",
     .flow = kThermalPut,
     .method = "PUT",
     .body = kBody,
     .response = Envelope(kUrl, 0, "OK"),
     .en = "Set ISP Thermal Param Successfully." + ThermalValues(kThermalEn, kThermalAccepted),
     .cn = "设置图像热成像参数成功. " + ThermalValues(kThermalCn, kThermalAccepted)},
    {.name = "ThermalPutFail",
     .flow = kThermalPut,
     .method = "PUT",
     .body = "{}",
     .result = 4,
     .formatted = -1,
     .en = "Set ISP Thermal Param Fail. " + ThermalValues(kThermalEn, kThermal),
     .cn = "设置图像热成像参数失败. " + ThermalValues(kThermalCn, kThermal)},
    {.name = "RestoreDefaults",
     .flow = kRestore,
     .method = "PUT",
     .en = "Restore ISP Default Param Successfully. ",
     .cn = "ISP恢复默认参数成功. "},
    {.name = "ResetThermal",
     .flow = kResetThermal,
     .method = "PUT",
     .en = "Reset ISP Thermal Param Successfully. ",
     .cn = "ISP热成像重置成功. "},
    {.name = "ResetFog",
     .flow = kResetFog,
     .method = "PUT",
     .en = "Reset ISP Fog Adapt Param Successfully. ",
     .cn = "ISP透雾自适应重置成功. "},
    {.name = "ResetSpeed",
     .flow = kResetSpeed,
     .method = "PUT",
     .en = "Reset ISP Speed Adapt Param Successfully. ",
     .cn = "ISP速度（拖影）自适应重置成功. "},
    {.name = "ResetBacklight",
     .flow = kResetBacklight,
     .method = "PUT",
     .en = "Reset ISP Backlight Adapt Param Successfully. ",
     .cn = "ISP背光自适应重置成功. "},
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
