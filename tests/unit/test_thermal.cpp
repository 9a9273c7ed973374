// The thermal resource: its block mappings, its JSON object, and its six
// stages against the scripted ISP service.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "doubles.h"
#include "qtnapi_isp_thermal.h"

namespace {

using doubles::Call;
using doubles::Diags;
using doubles::Isp;
using doubles::OpLogs;
using doubles::Request;
using Words = std::array<uint32_t, 24>;
using Block = std::array<uint32_t, 25>;

// A service block of distinct words; colorBar (offset 72) is 11 so that it
// reads as position 11 of the record. The reserved word is set.
const Block kBlock = {4294967295u, 2, 3, 4, 1, 30, 5, 50, 60, 0xffffffffu, 7, 12, 13, 14, 0xffffffecu,
                      80, 40, 30, 11, 2, 3, 0xfffffffbu, 9, 25, 0xdeadbeefu};
// The same settings in record order, and as the operation log prints them.
const Words kWords = {4294967295u, 2, 3, 4, 1, 30, 5, 50, 60, 0xffffffffu, 7, 11, 12, 13, 14, 0xffffffecu,
                      80, 40, 30, 2, 3, 0xfffffffbu, 9, 25};
const std::string kValues =
    "BlindPointX:4294967295, BlindPointY:2, BlindOperation:3, CorrectionMode:4,AutoCorrectionEnable:1, "
    "AutoCorrectionTime:30, AutoCorrectionTemp:5, Brightness:50,Contrast:60, DetailEnhanceEnable:-1, FakeColorMode:7, "
    "ColorBarShow:11,WhiteHot_HighRangeEnable:12, WhiteHot_MidRangeEnable:13,WhiteHot_LowRangeEnable:14, "
    "WhiteHot_HighMin:-20,WhiteHot_MidMax:80, WhiteHot_MidMin:40,WhiteHot_LowMax:30, AfMode:2, AfCtrlMode:3, "
    "AfTempAdaptEnable:-5, AfSpeed:9, AfTemp:25.";
const std::string kValuesCn =
    "盲元坐标x:%u, 盲元坐标y:%u, 盲元操作:%u, 校正模式:%u,自动非均匀性校正使能:%d, 自动校正时间:%u, "
    "自动校正温度:%u, 亮度:%u,色度:%u, 细节增强使能:%d, 伪彩模式:%d, 彩条使能:%d,白热模式高范围使能:%d, "
    "白热模式中范围使能:%d,白热模式低范围使能:%d, 高范围最小值:%d,中范围最大值:%d, 中范围最小值:%d,低范围最大值:%d, "
    "聚焦模式:%u, 聚焦控制模式:%u, 温度自适应使能:%d, 聚焦速度:%u, 聚焦温度:%u.";
const std::string kWho = "admin[192.0.2.7:50123] ";

template <class To, class From>
To Cast(const From& from)
{
    static_assert(sizeof(To) <= sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof(To));
    return to;
}

std::vector<uint8_t> Bytes(const Block& b)
{
    const auto bytes = Cast<std::array<uint8_t, THERMAL_BLOCK_SIZE>>(b);
    return {bytes.begin(), bytes.end()};
}

class Thermal : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }

    // The three stages of a PUT before Format, each only after the one before
    // succeeded, over `current` as the service's block.
    static int Put(Request& req, const Block& current = kBlock)
    {
        Isp().Store(25, 2, current);
        int rc = PreProcPutIspIaasThermal(&req.header, &req.sock, &req.ctx);
        rc = rc != 0 ? rc : ParsePutIspIaasThermal(&req.header, &req.content, &req.ctx);
        return rc != 0 ? rc : RunPutIspIaasThermal(&req.header, &req.client, &req.ctx);
    }
};

TEST_F(Thermal, BlockMappingsMoveColorBarAndDropTheReservedWord)
{
    _ThermalInfo info;
    ThermalFromBlock(Bytes(kBlock).data(), info);
    EXPECT_EQ(Cast<Words>(info), kWords);
    EXPECT_EQ(info.fakeColorData.colorBar, 11);
    EXPECT_EQ(info.fakeColorData.whiteHotModeData.highRange, 12);

    std::vector<uint8_t> block(THERMAL_BLOCK_SIZE, 0xa5);
    ThermalToBlock(info, block.data());
    Block expected = kBlock;
    expected[24] = 0;
    EXPECT_EQ(block, Bytes(expected));
}

struct DecodeCase {
    const char* json;
    int rc;
    std::vector<std::pair<int, uint32_t>> changes;  // record position, new word
};

TEST_F(Thermal, DecodeMergesEachKeyIntoItsWordByTheConversionRules)
{
    const DecodeCase cases[] = {
        {"{}", 0, {}},
        {R"({"blindData": {"blindPosition": {"pointX": 4294967301, "pointY": -1}}})", 0, {{0, 5}, {1, 0xffffffffu}}},
        {R"({"blindData": {"blindOperation": -1.0}, "correctData": {"correctOperation": 1e12}})", 0,
         {{2, 0}, {3, 0xffffffffu}}},
        {R"({"correctData": {"autoModeData": {"enable": -2.5, "correctTime": 7.9, "correctTemperature": true}}})", 0,
         {{4, 0xfffffffeu}, {5, 7}, {6, 1}}},
        {R"({"basicData": {"detailEnhace": 3e9}, "fakeColorData": {"colorBar": false}})", 0, {{9, 0x7fffffffu}, {11, 0}}},
        {R"({"fakeColorData": {"whiteHotModeData": {"midMin": -1e12, "lowMax": 6}}})", 0, {{17, 0x80000000u}, {18, 6}}},
        {R"({"thermalAfData": {"ctrlOperation": 88, "afSpeed": 77, "tempAdapt": null}})", 0, {{20, 88}, {22, 77}}},
        {R"({"basicData": 5, "correctData": "x", "fakeColorData": [1], "blindData": {"blindPosition": true}})", 0, {}},
        {R"({"basicData": null, "thermalAfData": {"afMode": null}, "zz": 1, "correctData": {"zz": "x"}})", 0, {}},
        {"[1, 2]", 0, {}},
        {R"({"correctData": {"autoModeData": {"correctTime": "00:30"}}})", -1, {}},
        {R"({"basicData": {"contrast": {}}})", -1, {}},
        {"null", -1, {}},
        {"", -1, {}},
    };
    for (const DecodeCase& c : cases) {
        _ThermalInfo info = Cast<_ThermalInfo>(kWords);
        EXPECT_EQ(json_decode<_ThermalInfo>(c.json, nullptr, info), c.rc) << c.json;
        Words expected = kWords;
        for (const auto& [position, word] : c.changes) {
            expected[position] = word;
        }
        EXPECT_EQ(Cast<Words>(info), expected) << c.json;
    }
}

TEST_F(Thermal, GetReadsTheBlockAndAnswersTheObjectWithItsLogEntry)
{
    Isp().Store(25, 2, kBlock);
    Request req("GET", "/isp/thermal?ChannelId=102");
    ASSERT_EQ(RunGetIspIaasThermal(&req.header, &req.client, &req.ctx), 0);
    ASSERT_EQ(Isp().requests.size(), 1u);
    EXPECT_EQ(Isp().requests[0].op, 2);
    EXPECT_EQ(Isp().requests[0].command, 25);
    EXPECT_EQ(Isp().requests[0].channel, 2u);
    EXPECT_EQ(Isp().requests[0].content, std::vector<uint8_t>(100, 0));
    EXPECT_EQ(Cast<Words>(*static_cast<_ThermalInfo*>(req.Slot(2))), kWords);

    ASSERT_EQ(FormatGetIspIaasThermal(&req.header, 0, &req.ctx, &req.buf), 0);
    EXPECT_EQ(req.Response(),
              R"({ "blindData": { "blindPosition": { "pointX": 4294967295, "pointY": 2 }, "blindOperation": 3 }, )"
              R"("correctData": { "correctOperation": 4, "autoModeData": { "enable": 1, "correctTime": 30, )"
              R"("correctTemperature": 5 } }, "basicData": { "brightness": 50, "contrast": 60, "detailEnhace": -1 }, )"
              R"("fakeColorData": { "colorMode": 7, "colorBar": 11, "whiteHotModeData": { "highRange": 12, )"
              R"("midRange": 13, "lowRange": 14, "highMin": -20, "midMax": 80, "midMin": 40, "lowMax": 30 } }, )"
              R"("thermalAfData": { "afMode": 2, "afSpeed": 9, "ctrlOperation": 3, "tempAdapt": -5, )"
              R"("compensateTemp": 25 } })");
    ASSERT_EQ(OpLogs().size(), 2u);
    EXPECT_EQ(OpLogs()[1].en, kWho + "Get ISP Thermal Param Successfully. " + kValues);
    EXPECT_EQ(OpLogs()[1].formatCn, "%s[%s:%llu] 获取图像热成像参数成功. " + kValuesCn);
    EXPECT_TRUE(Diags().empty());
}

TEST_F(Thermal, PutMergesTheBodyAndWritesTheWholeBlock)
{
    Request req("PUT", "/isp/thermal?ChannelId=102", R"({"fakeColorData": {"colorBar": 1}})");
    ASSERT_EQ(Put(req), 0);
    ASSERT_EQ(Isp().requests.size(), 2u);
    const doubles::SrvRequest& write = Isp().requests[1];
    EXPECT_EQ(write.op, 3);
    EXPECT_EQ(write.command, 25);
    EXPECT_EQ(write.channel, 2u);
    Block sent = kBlock;
    sent[18] = 1;  // colorBar
    sent[24] = 0;  // reserved
    EXPECT_EQ(write.content, Bytes(sent));

    ASSERT_EQ(FormatPutIspIaasThermal(&req.header, 0, &req.ctx, &req.buf), 0);
    EXPECT_NE(req.Response().find("ResponseStatus"), std::string::npos);
    ASSERT_EQ(OpLogs().size(), 2u);
    std::string values = kValues;
    values.replace(values.find("ColorBarShow:11"), 15, "ColorBarShow:1");
    EXPECT_EQ(OpLogs()[0].en, kWho + "Set ISP Thermal Param Successfully." + values);
    EXPECT_EQ(OpLogs()[0].formatCn, "%s[%s:%llu] 设置图像热成像参数成功. " + kValuesCn);
}

struct ValueCase {
    const char* autoModeData;
    int rc;
    const char* diag;  // the refusal, or nullptr
    uint8_t written;   // correctTime as written
};

TEST_F(Thermal, CorrectionValuesOutsideTheirSetsAreRefusedBeforeAnyWrite)
{
    const ValueCase cases[] = {
        {R"({"correctTime": 25})", 4, "[KXAPI]:Time enum is 25", 0},
        {R"({"correctTemperature": 2})", 4, "[KXAPI]:Time enum is 2", 0},
        {R"({"correctTime": 0, "correctTemperature": 2})", 4, "[KXAPI]:Time enum is 0", 0},
        {R"({"correctTime": true})", 4, "[KXAPI]:Time enum is 1", 0},
        {R"({"correctTime": -1})", 4, "[KXAPI]:Time enum is -1", 0},
        {R"({"correctTime": 30.9, "correctTemperature": 15})", 0, nullptr, 30},
        {R"({"correctTime": 60, "correctTemperature": 1})", 0, nullptr, 60},
    };
    for (const ValueCase& c : cases) {
        doubles::ResetAll();
        Request req("PUT", "/isp/thermal?ChannelId=102",
                    (std::string(R"({"correctData": {"autoModeData": )") + c.autoModeData + "}}").c_str());
        EXPECT_EQ(Put(req), c.rc) << c.autoModeData;
        if (c.diag == nullptr) {
            EXPECT_EQ(Isp().requests.at(1).content.at(20), c.written);
            continue;
        }
        EXPECT_EQ(Isp().requests.size(), 1u) << "no write after " << c.diag;
        EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{"[KXAPI]:Time enum is %d"});
        EXPECT_EQ(Diags()[0].text, c.diag);
        EXPECT_EQ(FormatPutIspIaasThermal(&req.header, c.rc, &req.ctx, &req.buf), -1);
        EXPECT_EQ(OpLogs().at(0).en.rfind(kWho + "Set ISP Thermal Param Fail. BlindPointX:4294967295,", 0), 0u);
        EXPECT_EQ(OpLogs()[0].formatCn, "%s[%s:%llu] 设置图像热成像参数失败. " + kValuesCn);
        EXPECT_EQ(req.Response(), "");
    }
    doubles::ResetAll();  // the merged record is checked, not only the body
    Block current = kBlock;
    current[5] = 7;
    Request req("PUT", "/isp/thermal?ChannelId=102", "{}");
    EXPECT_EQ(Put(req, current), 4);
    EXPECT_EQ(Isp().requests.size(), 1u);
}

TEST_F(Thermal, UndecodableBodyHangsNothingAndFormatPutLogsNothing)
{
    for (const char* body : {"not json", R"({"basicData": {"contrast": "x"}})"}) {
        doubles::ResetAll();
        Request req("PUT", "/isp/thermal?ChannelId=102", body);
        EXPECT_EQ(Put(req), 4);
        EXPECT_EQ(req.Slot(1), nullptr);
        EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{"[KXAPI]:%s[%d] json decode fail\n"});
        EXPECT_EQ(FormatPutIspIaasThermal(&req.header, 4, &req.ctx, &req.buf), -1);
        EXPECT_TRUE(OpLogs().empty());
    }
}

TEST_F(Thermal, OnlyChannel102IsServed)
{
    using StageFn = int (*)(Request&);
    const StageFn stages[] = {
        [](Request& r) { return RunGetIspIaasThermal(&r.header, &r.client, &r.ctx); },
        [](Request& r) { return PreProcPutIspIaasThermal(&r.header, &r.sock, &r.ctx); },
        [](Request& r) { return RunPutIspIaasThermal(&r.header, &r.client, &r.ctx); },
    };
    const std::pair<const char*, int> cases[] = {{"/t?ChannelId=0", -1},  {"/t?ChannelId=101", -1},
                                                 {"/t?ChannelId=103", -1}, {"/t?ChannelId=-1", -1},
                                                 {"/t", 3},                {"/t?ChannelId=102", 0}};
    for (StageFn stage : stages) {
        for (const auto& [url, rc] : cases) {
            doubles::ResetAll();
            Request req("PUT", url);
            _ThermalInfo valid = Cast<_ThermalInfo>(kWords);
            req.ctx.apvSlot[1] = std::malloc(sizeof(valid));
            std::memcpy(req.ctx.apvSlot[1], &valid, sizeof(valid));
            EXPECT_EQ(stage(req), rc) << url;
            ASSERT_EQ(Isp().requests.size(), rc == 0 ? 1u : 0u) << url;
            if (rc == 0) {
                EXPECT_EQ(Isp().requests[0].channel, 2u);
            } else {
                EXPECT_EQ(Diags().at(0).format,
                          rc == 3 ? "[KXAPI]:%s, Query param get failed" : "[KXAPI]:%d: nChannelID Error");
                EXPECT_EQ(req.Slot(0), nullptr);
                EXPECT_EQ(req.Slot(2), nullptr);
            }
        }
    }
}

struct FailureCase {
    int stage;  // 0 RunGet, 1 PreProc, 2 Parse, 3 RunPut
    Call call;
    int nth;  // 0: the service exchange fails instead
    int rc;
    const char* diag;
};

TEST_F(Thermal, FailuresFreeWhatTheyAllocatedAndHangNothing)
{
    const FailureCase cases[] = {
        {0, Call::Malloc, 1, 18, "RunGetIspIaasThermal: malloc fail, response for req[PUT /isp/thermal?ChannelId=102]"},
        {0, Call::MemsetS, 1, 1, "RunGetIspIaasThermal: memset_s failed"},
        {0, Call::MemsetS, 2, 1, "RunGetIspIaasThermal: memset_s failed"},
        {0, Call::Malloc, 0, 1, "RunGetIspIaasThermal: GetIspSrvData failed"},
        {1, Call::Malloc, 1, 18, "PreProcPutIspIaasThermal: malloc fail, response for req[PUT /isp/thermal?ChannelId=102]"},
        {1, Call::Malloc, 0, 1, "PreProcPutIspIaasThermal: GetIspSrvData failed"},
        {2, Call::Malloc, 1, 18, "ParsePutIspIaasThermal: malloc fail, response for req[PUT /isp/thermal?ChannelId=102]"},
        {3, Call::MemsetS, 1, 1, "RunPutIspIaasThermal: memset_s failed"},
        {3, Call::Malloc, 0, 1, "RunPutIspIaasThermal: SetIspSrvData failed"},
    };
    for (const FailureCase& c : cases) {
        doubles::ResetAll();
        Request req("PUT", "/isp/thermal?ChannelId=102", "{}");
        Isp().Store(25, 2, kBlock);
        ASSERT_TRUE(c.stage < 2 || PreProcPutIspIaasThermal(&req.header, &req.sock, &req.ctx) == 0);
        ASSERT_TRUE(c.stage < 3 || ParsePutIspIaasThermal(&req.header, &req.content, &req.ctx) == 0);
        const std::array<void*, 3> slots = {req.Slot(0), req.Slot(1), req.Slot(2)};
        if (c.nth > 0) {
            doubles::FailNth(c.call, c.nth);
        } else {
            Isp().failStep = doubles::SrvStep::Recv;
        }
        const int rc = c.stage == 0   ? RunGetIspIaasThermal(&req.header, &req.client, &req.ctx)
                       : c.stage == 1 ? PreProcPutIspIaasThermal(&req.header, &req.sock, &req.ctx)
                       : c.stage == 2 ? ParsePutIspIaasThermal(&req.header, &req.content, &req.ctx)
                                      : RunPutIspIaasThermal(&req.header, &req.client, &req.ctx);
        EXPECT_EQ(rc, c.rc) << c.diag;
        EXPECT_EQ(Diags().back().text, std::string("[KXAPI]:") + c.diag);
        EXPECT_EQ((std::array<void*, 3>{req.Slot(0), req.Slot(1), req.Slot(2)}), slots) << c.diag;
        if (c.stage == 0 && c.nth == 0) {  // a failed GET is logged without values and answered without body
            EXPECT_EQ(FormatGetIspIaasThermal(&req.header, rc, &req.ctx, &req.buf), -1);
            EXPECT_EQ(OpLogs().at(1).en, kWho + "Get ISP Thermal Param Fail.");
            EXPECT_EQ(OpLogs()[1].cn, kWho + "获取图像热成像参数失败.");
            EXPECT_EQ(req.Response(), "");
        }
    }
}

TEST_F(Thermal, MissingRecordsStopTheStagesThatNeedThem)
{
    Request req("PUT", "/isp/thermal?ChannelId=102", "{}");
    EXPECT_EQ(ParsePutIspIaasThermal(&req.header, &req.content, &req.ctx), 1);
    EXPECT_EQ(RunPutIspIaasThermal(&req.header, &req.client, &req.ctx), 1);
    EXPECT_EQ(FormatPutIspIaasThermal(&req.header, 0, &req.ctx, &req.buf), -1);
    EXPECT_EQ(doubles::DiagFormats(), (std::vector<std::string>{"[KXAPI]:null point", "[KXAPI]:null point"}));
    EXPECT_TRUE(OpLogs().empty());
    EXPECT_TRUE(Isp().requests.empty());
}

}  // namespace
