// Exposure lock, image capability and the maintenance resets.
#include <gtest/gtest.h>

#include <string>

#include "doubles.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_maint.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Control;
using doubles::Diags;
using doubles::Isp;
using doubles::OpLogs;
using doubles::Request;

const std::string kWho = "admin[192.0.2.7:50123] ";
const doubles::Flow kLock = {.parse = ParsePutIspIaasAEExpLock, .run = RunPutIspIaasAEExpLock,
                             .format = FormatPutIspIaasAEExpLock};

class ServiceResources : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }
    void TearDown() override
    {
        EXPECT_EQ(Isp().opens, Isp().closes);
        EXPECT_EQ(Isp().messagesLive, 0);
    }
};

// ---- Exposure lock ----

TEST_F(ServiceResources, LockFlagFromEachKindOfEnable)
{
    const struct {
        const char* body;
        int result;
        uint8_t enable;
    } cases[] = {
        {R"({"enable": true})", 0, 1}, {R"({"enable": 1})", 0, 1},     {R"({"enable": -5})", 0, 1},
        {R"({"enable": 0.5})", 0, 1},  {R"({"enable": false})", 0, 0}, {R"({"enable": 0})", 0, 0},
        {R"({"enable": 0.0})", 0, 0},  {"{}", 0, 0},                    {R"({"enable": null})", 0, 0},
        {"[true]", 0, 0},              {R"({"enable": "true"})", 4, 0}, {R"({"enable": [1]})", 4, 0},
        {R"({"enable": {}})", 4, 0},   {"enable", 4, 0},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        Request req("PUT", "/isp/lock?ChannelId=101", c.body);
        const doubles::Outcome o = doubles::Perform(kLock, req);
        EXPECT_EQ(o.result, c.result) << c.body;
        if (c.result != 0) {
            EXPECT_EQ(Diags().back().format, "[KXAPI]:%s[%d] json decode fail\n");
            EXPECT_EQ(o.formatted, -1) << "no request record";
            EXPECT_EQ(Isp().opens, 0);
            continue;
        }
        EXPECT_EQ(Diags().at(0).level, 1);
        EXPECT_EQ(Diags()[0].text, std::string("[KXAPI]:ParsePutIspIaasAEExpLock,JsonData:") + c.body);
        ASSERT_EQ(Isp().requests.size(), 1u) << c.body;
        const doubles::SrvRequest& sent = Isp().requests[0];
        EXPECT_EQ(sent.op, 1);
        EXPECT_EQ(sent.command, 16);
        EXPECT_FALSE(sent.timed);
        EXPECT_EQ(sent.content, (std::vector<uint8_t>{c.enable, 0, 0, 0})) << c.body;
    }
}

// ChannelId is read unsigned: 101 is channel 0 and 100 wraps around.
TEST_F(ServiceResources, LockChannelArithmetic)
{
    const std::pair<const char*, uint32_t> cases[] = {
        {"/l?ChannelId=101", 0}, {"/l?ChannelId=103", 2}, {"/l?ChannelId=100", 4294967295u}, {"/l?ChannelId=0", 4294967195u}};
    for (const auto& [url, channel] : cases) {
        doubles::ResetAll();
        Request req("PUT", url, "{}");
        EXPECT_EQ(doubles::Perform(kLock, req).result, 0) << url;
        EXPECT_EQ(Isp().requests.at(0).channel, channel) << url;
    }
    for (const char* url : {"/l", "/l?ChannelId=-1"}) {
        doubles::ResetAll();
        Request req("PUT", url, "{}");
        EXPECT_EQ(doubles::Perform(kLock, req).result, 3) << url;
        EXPECT_EQ(Isp().opens, 0);
    }
}

// The entry shows the flag the service sent back; a failed request gets its
// failure entry and still a status response.
TEST_F(ServiceResources, LockOutcomeIsLoggedWithTheServicesFlagAndAnswered)
{
    Isp().answer = [](const doubles::SrvRequest&) { return doubles::SrvReply{200, {0, 9, 9, 9}}; };
    Request ok("PUT", "/isp/lock?ChannelId=101", R"({"enable": true})");
    EXPECT_EQ(doubles::Perform(kLock, ok).formatted, 0);
    EXPECT_EQ(OpLogs().at(0).en, kWho + "Set ISP AEExpLock Successfully. Enable:0.");
    EXPECT_EQ(OpLogs()[1].cn, kWho + "设置图像曝光锁定参数成功. 是否使能:0.");

    doubles::ResetAll();
    Isp().answer = [](const doubles::SrvRequest& r) { return doubles::SrvReply{500, r.content}; };
    Request failed("PUT", "/isp/lock?ChannelId=101", R"({"enable": 1})");
    const doubles::Outcome o = doubles::Perform(kLock, failed);
    EXPECT_EQ(o.result, 1);
    EXPECT_EQ(o.formatted, 0);
    EXPECT_EQ(doubles::DiagFormats().back(), "[KXAPI]:%s: CreateIspSrvData failed");
    EXPECT_EQ(OpLogs().at(0).en, kWho + "Set ISP AEExpLock Fail. Enable:1.");
    EXPECT_EQ(OpLogs()[0].cn, kWho + "设置图像曝光锁定参数失败. 是否使能:1.");
    EXPECT_NE(failed.Response().find(R"("StatusCode": 1,)"), std::string::npos);

    doubles::ResetAll();
    doubles::FailNth(doubles::Call::Calloc, 1);
    Request noMemory("PUT", "/isp/lock?ChannelId=101", "{}");
    EXPECT_EQ(doubles::Perform(kLock, noMemory).result, 18);
    EXPECT_EQ(Diags().back().text, "[KXAPI]:ParsePutIspIaasAEExpLock: calloc fail, response for req[PUT "
                                   "/isp/lock?ChannelId=101]");
}

// ---- Image capability ----

// The ability record keeps brightness, contrast, saturation, hue, sharpness
// from byte 888; the response lists brightness, sharpeness, hue, contrast,
// saturation.
TEST_F(ServiceResources, CapabilityMapsTheAbilityRangesAndTheSensorSize)
{
    for (int64_t i = 0; i < 10; ++i) {
        doubles::PutAt<int64_t>(Control().ability, 888 + 8 * i, i % 2 == 0 ? -(i + 1) : 100 * i);
    }
    std::vector<uint8_t> block(40, 0);
    doubles::PutAt(block, 16, 1920.5);
    doubles::PutAt(block, 24, 1080.25);
    Isp().blocks[{5, 0}] = block;
    Request req("GET", "/isp/cap?ChannelId=104");
    const doubles::Outcome o = doubles::Perform({.run = RunGetIspIaasCapability, .format = FormatGetIspIaasCapability}, req);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.formatted, 0);
    EXPECT_EQ(Control().abilityQueries, (std::vector<std::pair<uint32_t, uint32_t>>{{101, 0}}));
    EXPECT_EQ(Isp().requests.at(0).channel, 0u);
    EXPECT_EQ(req.Response(),
              R"({ "basicInfos": { "brightness": { "begin": -1, "end": 100 }, "sharpeness": { "begin": -9, "end": 900 }, )"
              R"("hue": { "begin": -7, "end": 700 }, "contrast": { "begin": -3, "end": 300 }, )"
              R"("saturation": { "begin": -5, "end": 500 } }, "sensorInfos": { "scale": { "width": 1920.5, )"
              R"("height": 1080.25 } } })");
    EXPECT_EQ(OpLogs().at(0).en,
              kWho + "Get ISP Capability Successfully. BrightnessMin:-1, BrightnessMax:100, SharpenessMin:-9, "
                     "SharpenessMax:900, HueMin:-7, HueMax:700, ContrastMin:-3, ContrastMax:300, StaturationMin:-5, "
                     "StaturationMax:500, SensorHorizonSize:1920.500000, SensorVerticalSize:1080.250000.");
    EXPECT_EQ(OpLogs()[1].cn,
              kWho + "获取图像能力集参数成功. 亮度最小值:-1, 亮度最大值:100, 锐化最小值:-9, 锐化最大值:900, 色度最小值:-7, "
                     "色度最大值:700, 对比度最小值:-3, 对比度最大值:300, 饱和度最小值:-5, 饱和度最大值:500, "
                     "sensor水平尺寸:1920.500000, sensor垂直尺寸:1080.250000.");
}

TEST_F(ServiceResources, CapabilityFailuresFreeTheRecordAndLogTheFailure)
{
    const struct {
        const char* name;
        std::function<void()> arm;
        int result;
        const char* diag;
        size_t serviceRequests;
    } cases[] = {
        {"Ability", [] { Control().abilityFails = true; }, 1, "[KXAPI]:%s: get device ability failed", 0},
        {"AbilityZeroFill", [] { doubles::FailNth(doubles::Call::MemsetS, 2); }, 1, "[KXAPI]:%s: memset_s failed", 0},
        {"BlockZeroFill", [] { doubles::FailNth(doubles::Call::MemsetS, 3); }, 1, "[KXAPI]:%s: memset_s failed", 0},
        {"Service", [] { Isp().failStep = doubles::SrvStep::Recv; }, 1, "[KXAPI]:%s: GetIspSrvData failed", 1},
        {"Query", [] {}, 3, "[KXAPI]:%s, Query param get failed", 0},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        c.arm();
        Request req("GET", c.result == 3 ? "/isp/cap" : "/isp/cap?ChannelId=101");
        const doubles::Outcome o =
            doubles::Perform({.run = RunGetIspIaasCapability, .format = FormatGetIspIaasCapability}, req);
        EXPECT_EQ(o.result, c.result) << c.name;
        EXPECT_EQ(o.formatted, -1) << c.name;
        EXPECT_EQ(Diags().back().format, c.diag) << c.name;
        EXPECT_EQ(Isp().requests.size(), c.serviceRequests) << c.name;
        EXPECT_EQ(req.Slot(KXAPI_SLOT_RESULT), nullptr);
        EXPECT_EQ(OpLogs().at(0).en, kWho + "Get ISP Capability Fail.");
        EXPECT_EQ(OpLogs()[0].cn, kWho + "获取图像能力集参数失败.");
        EXPECT_EQ(req.Response(), "");
    }
}

// ---- Maintenance resets ----

struct ResetCase {
    const char* name;
    KxapiRunStage stage;
    const char* okEn;
    const char* okCn;
    const char* failEn;
    const char* failCn;
    friend void PrintTo(const ResetCase& c, std::ostream* os) { *os << c.name; }
};

const ResetCase kResets[] = {
    {"RestoreDefaults", RunPutIspIaasRestoreDefaultParams, "Restore ISP Default Param Successfully. ",
     "ISP恢复默认参数成功. ", "Restore ISP Default Param Fail.", "ISP恢复默认参数失败."},
    {"Thermal", RunPutIspIaasResetThermal, "Reset ISP Thermal Param Successfully. ", "ISP热成像重置成功. ",
     "Reset ISP Thermal Param Fail.", "ISP热成像重置失败."},
    {"Fog", RunPutIspIaasResetFogAdapt, "Reset ISP Fog Adapt Param Successfully. ", "ISP透雾自适应重置成功. ",
     "Reset ISP Fog Adapt Param Fail.", "ISP透气自适应重置失败."},
    {"Speed", RunPutIspIaasResetSpeedAdapt, "Reset ISP Speed Adapt Param Successfully. ",
     "ISP速度（拖影）自适应重置成功. ", "Reset ISP Speed Adapt Param Fail.", "ISP速度（拖影）自适应重置失败."},
    {"Backlight", RunPutIspIaasResetBackLightAdapt, "Reset ISP Backlight Adapt Param Successfully. ",
     "ISP背光自适应重置成功. ", "Reset ISP Backlight Adapt Param Fail.", "ISP背光自适应重置失败."},
};

class Reset : public ServiceResources, public testing::WithParamInterface<ResetCase> {
protected:
    int Run(Request& req) { return GetParam().stage(&req.header, &req.client, &req.ctx); }

    void ExpectEntry(bool ok)
    {
        ASSERT_EQ(OpLogs().size(), 2u);
        for (size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(OpLogs()[i].channel, i == 0 ? 2 : 1);
            EXPECT_EQ(OpLogs()[i].en, kWho + (ok ? GetParam().okEn : GetParam().failEn));
            EXPECT_EQ(OpLogs()[i].cn, kWho + (ok ? GetParam().okCn : GetParam().failCn));
        }
    }
};

TEST_P(Reset, SuccessIsEnteredByTheRunStage)
{
    Request req("PUT", "/isp/reset?ChannelId=102");
    EXPECT_EQ(Run(req), 0);
    ExpectEntry(true);
}

// A failed service exchange is the reset's own failure: entered, result 1.
TEST_P(Reset, FailedServiceExchangeIsEntered)
{
    if (GetParam().stage == RunPutIspIaasResetSpeedAdapt) {
        Control().unsent = {3210};  // the speed reset's own write is a command
    } else {
        Isp().answer = [](const doubles::SrvRequest& r) { return doubles::SrvReply{404, r.content}; };
    }
    Request req("PUT", "/isp/reset?ChannelId=102");
    EXPECT_EQ(Run(req), 1);
    ExpectEntry(false);
}

INSTANTIATE_TEST_SUITE_P(Resets, Reset, testing::ValuesIn(kResets),
                         [](const testing::TestParamInfo<ResetCase>& info) { return std::string(info.param.name); });

TEST_F(ServiceResources, ResetExchangesOfTheIspService)
{
    Request restore("PUT", "/isp/restore");
    EXPECT_EQ(RunPutIspIaasRestoreDefaultParams(&restore.header, &restore.client, &restore.ctx), 0);
    Request thermal("PUT", "/isp/rt?ChannelId=102");
    EXPECT_EQ(RunPutIspIaasResetThermal(&thermal.header, &thermal.client, &thermal.ctx), 0);
    ASSERT_EQ(Isp().requests.size(), 2u);
    const doubles::SrvRequest& r = Isp().requests[0];
    const doubles::SrvRequest& t = Isp().requests[1];
    EXPECT_EQ((std::tuple{r.op, r.command, r.hasChannel, r.content.size(), r.timed, r.reserved}),
              (std::tuple{uint8_t{3}, uint16_t{27}, false, size_t{0}, false, uint8_t{0}}));
    EXPECT_EQ((std::tuple{t.op, t.command, t.hasChannel, t.channel, t.content.size(), t.timed}),
              (std::tuple{uint8_t{0}, uint16_t{25}, true, 1u, size_t{0}, false}));

    // The two resets name a failed message creation differently.
    Isp().failStep = doubles::SrvStep::New;
    doubles::ClearLogs();
    EXPECT_EQ(RunPutIspIaasRestoreDefaultParams(&restore.header, &restore.client, &restore.ctx), 1);
    EXPECT_EQ(RunPutIspIaasResetThermal(&thermal.header, &thermal.client, &thermal.ctx), 1);
    EXPECT_EQ(doubles::DiagFormats(),
              (std::vector<std::string>{"[KXAPI]:new send msg failed \n", "[KXAPI]:%s: ResetIspSrvData failed",
                                        "[KXAPI]:wiro_message_new failed \n", "[KXAPI]:%s: ResetIspSrvData failed"}));
}

// ChannelId rules of the resets, and where they are checked: the thermal
// reset answers an unreadable one with 4; the speed reset checks before it
// sends, fog and backlight only after the configuration was read. None of
// these writes an entry.
TEST_F(ServiceResources, ResetChannelRules)
{
    const struct {
        KxapiRunStage stage;
        const char* url;
        int result;
        size_t commands;
    } cases[] = {
        {RunPutIspIaasResetThermal, "/r", 4, 0},          {RunPutIspIaasResetThermal, "/r?ChannelId=101", -1, 0},
        {RunPutIspIaasResetSpeedAdapt, "/r", 3, 0},       {RunPutIspIaasResetSpeedAdapt, "/r?ChannelId=-1", -1, 0},
        {RunPutIspIaasResetFogAdapt, "/r", 3, 1},         {RunPutIspIaasResetFogAdapt, "/r?ChannelId=-1", -1, 1},
        {RunPutIspIaasResetBackLightAdapt, "/r", 3, 1},   {RunPutIspIaasResetBackLightAdapt, "/r?ChannelId=-2", -1, 1},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        Request req("PUT", c.url);
        EXPECT_EQ(c.stage(&req.header, &req.client, &req.ctx), c.result) << c.url;
        EXPECT_EQ(Control().sent.size(), c.commands) << c.url;
        EXPECT_EQ(Isp().opens, 0) << c.url;
        EXPECT_TRUE(OpLogs().empty()) << c.url;
    }
}

// The configuration read (command 3213) fails: -1 for a refusal, 1 when not
// sent; nothing else happens and nothing is entered.
TEST_F(ServiceResources, FailedConfigurationReadStopsTheAdaptiveResets)
{
    for (KxapiRunStage stage : {RunPutIspIaasResetFogAdapt, RunPutIspIaasResetSpeedAdapt,
                                RunPutIspIaasResetBackLightAdapt}) {
        for (bool sent : {true, false}) {
            doubles::ResetAll();
            if (sent) {
                Control().results[3213] = 6;
            } else {
                Control().unsent = {3213};
            }
            Request req("PUT", "/r?ChannelId=102");
            EXPECT_EQ(stage(&req.header, &req.client, &req.ctx), sent ? -1 : 1);
            EXPECT_EQ(Control().sent.size(), 1u);
            EXPECT_EQ(Isp().opens, 0);
            EXPECT_TRUE(OpLogs().empty());
        }
    }
}

// Fog and backlight rewrite the first word of their block on the request's
// channel and send the rest back as read; a block that could not be read is
// not written.
TEST_F(ServiceResources, AdaptationBlocksAreRewrittenOnTheRequestsChannel)
{
    std::vector<uint8_t> config(64, 0);
    doubles::PutAt<uint32_t>(config, 16, 0xf0f0);  // reply 216: the fog value
    const struct {
        KxapiRunStage stage;
        uint16_t command;
        int32_t flag;
        uint32_t state;
        uint32_t written;
    } cases[] = {
        {RunPutIspIaasResetFogAdapt, 7, 0, 5, 0xf0f0}, {RunPutIspIaasResetBackLightAdapt, 6, 1, 0, 3},
        {RunPutIspIaasResetBackLightAdapt, 6, 1, 5, 3}, {RunPutIspIaasResetBackLightAdapt, 6, 0, 3, 0},
        {RunPutIspIaasResetBackLightAdapt, 6, 0, 5, 5},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        doubles::PutAt<int32_t>(config, 48, c.flag);  // reply 248: the backlight flag
        Control().payloads[3213] = config;
        std::vector<uint8_t> block = {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        doubles::PutAt<uint32_t>(block, 0, c.state);
        Isp().blocks[{c.command, 2}] = block;
        Request req("PUT", "/r?ChannelId=103");
        EXPECT_EQ(c.stage(&req.header, &req.client, &req.ctx), 0);
        ASSERT_EQ(Isp().requests.size(), 2u);
        EXPECT_EQ(Isp().requests[0].op, 2);
        EXPECT_EQ(Isp().requests[1].op, 3);
        EXPECT_EQ(Isp().requests[1].channel, 2u);
        doubles::PutAt<uint32_t>(block, 0, c.written);
        EXPECT_EQ(Isp().requests[1].content, block) << c.command << " " << c.flag << " " << c.state;
    }
    for (KxapiRunStage stage : {RunPutIspIaasResetFogAdapt, RunPutIspIaasResetBackLightAdapt}) {
        doubles::ResetAll();
        Isp().failStep = doubles::SrvStep::Recv;
        Request req("PUT", "/r?ChannelId=103");
        EXPECT_EQ(stage(&req.header, &req.client, &req.ctx), 1);
        EXPECT_EQ(Isp().requests.size(), 1u);
        EXPECT_EQ(Diags().back().format, "[KXAPI]:%s: GetIspSrvData failed");
        EXPECT_EQ(OpLogs().size(), 2u);
    }
}

// The speed value goes back with the set command; its Result is the
// stage's, after the success entry.
TEST_F(ServiceResources, SpeedResetSendsTheValueBackAndPassesTheResultOn)
{
    std::vector<uint8_t> config(64, 0);
    doubles::PutAt<uint32_t>(config, 32, 77);  // reply 232
    Control().payloads[3213] = config;
    Control().results[3210] = 7;
    Request req("PUT", "/r?ChannelId=5");
    EXPECT_EQ(RunPutIspIaasResetSpeedAdapt(&req.header, &req.client, &req.ctx), 7);
    ASSERT_EQ(Control().sent.size(), 2u);
    const doubles::CmdSent& set = Control().sent[1];
    EXPECT_EQ((std::tuple{set.code, set.type}), (std::tuple{3210, 1}));
    EXPECT_EQ(doubles::GetAt<uint32_t>(set.body.data(), 0), 101u);
    EXPECT_EQ(doubles::GetAt<uint32_t>(set.body.data(), 8), 77u);
    EXPECT_EQ(std::count(set.body.begin() + 12, set.body.end(), 0), static_cast<long>(set.body.size() - 12));
    EXPECT_EQ(OpLogs().at(0).en, kWho + "Reset ISP Speed Adapt Param Successfully. ");
}

TEST_F(ServiceResources, AdaptationResourceFailures)
{
    doubles::FailNth(doubles::Call::Malloc, 1);
    Request fog("PUT", "/r?ChannelId=101");
    EXPECT_EQ(RunPutIspIaasResetFogAdapt(&fog.header, &fog.client, &fog.ctx), 18);
    doubles::FailNth(doubles::Call::MemsetS, 3);  // reply, body, then the block
    Request backlight("PUT", "/r?ChannelId=101");
    EXPECT_EQ(RunPutIspIaasResetBackLightAdapt(&backlight.header, &backlight.client, &backlight.ctx), 1);
    EXPECT_EQ(doubles::DiagFormats().back(), "[KXAPI]:%s: memset_s failed");
    EXPECT_EQ(Isp().opens, 0);
    EXPECT_TRUE(OpLogs().empty());
}

}  // namespace
