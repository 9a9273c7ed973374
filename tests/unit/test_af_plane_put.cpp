// A PUT of the autofocus plane calibration points through its four stages.
#include <gtest/gtest.h>

#include <cstring>

#include "doubles.h"
#include "qtnapi_isp_focus.h"

namespace {

using doubles::Isp;
using doubles::Request;

void SetWord(std::vector<uint8_t>& b, size_t offset, uint32_t v) { std::memcpy(b.data() + offset, &v, 4); }

// A device block where every byte is set, so that untouched bytes show.
std::vector<uint8_t> DeviceBlock()
{
    std::vector<uint8_t> b(1240);
    for (size_t i = 0; i < b.size(); ++i) {
        b[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    b[1044] = 0;
    SetWord(b, 1048, 2);
    for (uint32_t i = 0; i < 8; ++i) {
        SetWord(b, 1052 + 4 * i, 100 + i);
    }
    return b;
}

class AfPlanePut : public testing::Test {
protected:
    void SetUp() override
    {
        doubles::ResetAll();
        Isp().blocks[{17, 1}] = DeviceBlock();
    }
    void TearDown() override { EXPECT_EQ(Isp().opens, Isp().closes); }

    // Runs the stages in the server's order, each only after the one before
    // succeeded, then the Format stage with the last result.
    int Put(Request& req)
    {
        int rc = PreProcPutIspIaasAfPlanePoint(&req.header, &req.sock, &req.ctx);
        if (rc == 0) {
            rc = ParsePutIspIaasAfPlanePoint(&req.header, &req.content, &req.ctx);
        }
        if (rc == 0) {
            rc = RunPutIspIaasAfPlanePoint(&req.header, &req.client, &req.ctx);
        }
        stageResult = rc;
        return FormatPutIspIaasAfPlanePoint(&req.header, rc, &req.ctx, &req.buf);
    }

    // The block that reached the service's write, if any.
    const std::vector<uint8_t>* Written() const
    {
        for (const auto& r : Isp().requests) {
            if (r.op == 3) {
                return &r.content;
            }
        }
        return nullptr;
    }

    int stageResult = 0;
};

struct MergeCase {
    const char* name;
    const char* body;
    std::function<void(std::vector<uint8_t>&)> expect;  // changes to the device block
    friend void PrintTo(const MergeCase& c, std::ostream* os) { *os << c.name; }
};

class AfPlaneMerge : public AfPlanePut, public testing::WithParamInterface<MergeCase> {};

TEST_P(AfPlaneMerge, WritesTheCurrentBlockWithTheBodyLaidOver)
{
    Request req("PUT", "/isp/afPlane?ChannelId=102", GetParam().body);
    ASSERT_EQ(Put(req), 0);
    ASSERT_EQ(stageResult, 0);
    std::vector<uint8_t> expected = DeviceBlock();
    SetWord(expected, 0, 0);  // the first word always goes back as 0
    GetParam().expect(expected);
    ASSERT_NE(Written(), nullptr);
    EXPECT_EQ(*Written(), expected);
    EXPECT_EQ(Isp().requests.back().channel, 1u);
    EXPECT_EQ(Isp().requests.back().command, 17);
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, AfPlaneMerge,
    testing::Values(
        MergeCase{"EmptyObject", "{}", [](std::vector<uint8_t>&) {}},
        MergeCase{"OnlyEnable", R"({"enable": true})", [](std::vector<uint8_t>& b) { b[1044] = 1; }},
        MergeCase{"EnableFromNumber", R"({"enable": 2})", [](std::vector<uint8_t>& b) { b[1044] = 1; }},
        MergeCase{"PointMaxUnrelatedToSlots", R"({"PointMax": 9})", [](std::vector<uint8_t>& b) { SetWord(b, 1048, 9); }},
        MergeCase{"TwoPointsKeepTheOthers", R"({"planePoints": [{"planePointX": 1, "planePointY": 2}, {"planePointX": 3}]})",
                  [](std::vector<uint8_t>& b) {
                      SetWord(b, 1052, 1);
                      SetWord(b, 1056, 2);
                      SetWord(b, 1060, 3);
                  }},
        MergeCase{"SixPointsUseFour",
                  R"({"planePoints": [{"planePointX": 1}, {"planePointX": 2}, {"planePointX": 3}, {"planePointX": 4},
                                      {"planePointX": 5}, {"planePointX": 6}]})",
                  [](std::vector<uint8_t>& b) {
                      for (uint32_t i = 0; i < 4; ++i) {
                          SetWord(b, 1052 + 8 * i, i + 1);
                      }
                  }},
        MergeCase{"EmptyArray", R"({"planePoints": []})", [](std::vector<uint8_t>&) {}},
        MergeCase{"Conversions", R"({"planePoints": [{"planePointX": 12.9, "planePointY": -5.5}, {"planePointY": -1}]})",
                  [](std::vector<uint8_t>& b) {
                      SetWord(b, 1052, 12);
                      SetWord(b, 1056, 0);
                      SetWord(b, 1064, 4294967295u);
                  }},
        MergeCase{"NullCountsAsAbsent", R"({"enable": null, "planePoints": null})", [](std::vector<uint8_t>&) {}}),
    [](const testing::TestParamInfo<MergeCase>& info) { return std::string(info.param.name); });

// A switch byte other than 0 or 1 goes back as the service gave it unless the
// body names the switch; the entry shows the byte that was sent.
TEST_F(AfPlanePut, SwitchByteIsRewrittenOnlyWhenTheBodyNamesIt)
{
    const std::pair<const char*, uint8_t> cases[] = {
        {"{}", 5}, {R"({"PointMax": 1, "enable": null})", 5}, {R"({"enable": true})", 1}, {R"({"enable": 0})", 0}};
    for (const auto& [body, sent] : cases) {
        doubles::ResetAll();
        std::vector<uint8_t> block = DeviceBlock();
        block[1044] = 5;
        Isp().blocks[{17, 1}] = block;
        Request req("PUT", "/isp/afPlane?ChannelId=102", body);
        ASSERT_EQ(Put(req), 0) << body;
        ASSERT_NE(Written(), nullptr);
        EXPECT_EQ(Written()->at(1044), sent) << body;
        EXPECT_NE(doubles::OpLogs().at(0).en.find("Enable:" + std::to_string(sent) + ","), std::string::npos);
    }
}

TEST_F(AfPlanePut, SuccessIsLoggedWithTheValuesSentAndAnsweredWithStatus)
{
    Request req("PUT", "/isp/afPlane?ChannelId=102", R"({"enable": true, "PointMax": 3})");
    ASSERT_EQ(Put(req), 0);
    ASSERT_EQ(doubles::OpLogs().size(), 2u);
    EXPECT_EQ(doubles::OpLogs()[0].en,
              "admin[192.0.2.7:50123] Set ISP Af PlanePoint Param Successfully. Enable:1, pointMax: 3, point1_x:100, "
              "point1_y:101, point2_x:102, point2_y:103, point3_x:104, point3_y:105, point4_x:106, point4_y:107.");
    EXPECT_EQ(doubles::OpLogs()[1].cn,
              "admin[192.0.2.7:50123] 设置图像自动聚焦平面标定点参数成功. 使能:1, 点数: 3, 点1x坐标:100, 点1y坐标:101, "
              "点2x坐标:102, 点2y坐标:103, 点3x坐标:104, 点3y坐标:105, 点4x坐标:106, 点4y坐标:107.");
    EXPECT_EQ(req.Response(), R"({ "ResponseStatus": { "RequestURL": "\/isp\/afPlane?ChannelId=102", "StatusCode": 0, )"
                              R"("StatusString": "OK" } })");
    EXPECT_TRUE(doubles::Diags().empty());
}

TEST_F(AfPlanePut, FailedWriteIsLoggedAndAnsweredWithItsStatus)
{
    Isp().answer = [](const doubles::SrvRequest& r) {
        doubles::SrvReply reply;
        reply.content = r.op == 3 ? r.content : Isp().blocks[{17, 1}];
        reply.status = r.op == 3 ? 500 : 200;
        return reply;
    };
    Request req("PUT", "/isp/afPlane?ChannelId=102", R"({"PointMax": 4})");
    EXPECT_EQ(Put(req), 0);  // the status response was written
    EXPECT_EQ(stageResult, 1);
    EXPECT_EQ(doubles::Diags().back().text, "[KXAPI]:RunPutIspIaasAfPlanePoint: SetIspSrvData failed");
    ASSERT_EQ(doubles::OpLogs().size(), 2u);
    EXPECT_EQ(doubles::OpLogs()[0].en.rfind("admin[192.0.2.7:50123] Set ISP Af PlanePoint Param Fail. Enable:0, "
                                            "pointMax: 4,",
                                            0),
              0u);
    EXPECT_NE(req.Response().find(R"("StatusCode": 1)"), std::string::npos);
}

TEST_F(AfPlanePut, RefusedBodyWritesNothingAndLogsNothing)
{
    for (const char* body : {R"({"enable": "yes"})", R"({"planePoints": {}})", R"({"PointMax": [1]})",
                             R"({"planePoints": [{"planePointY": "1"}]})", "not json", ""}) {
        doubles::ResetAll();
        Isp().blocks[{17, 1}] = DeviceBlock();
        Request req("PUT", "/isp/afPlane?ChannelId=102", body);
        EXPECT_EQ(Put(req), -1) << body;
        EXPECT_EQ(stageResult, 4) << body;
        EXPECT_EQ(Written(), nullptr) << body;
        EXPECT_EQ(req.Slot(KXAPI_SLOT_REQUEST), nullptr);
        EXPECT_TRUE(doubles::OpLogs().empty());
        EXPECT_EQ(doubles::Diags().back().format, "[KXAPI]:%s[%d] json decode fail\n");
        // The current block stays as it was read.
        std::vector<uint8_t> current(1240);
        std::memcpy(current.data(), req.Slot(KXAPI_SLOT_CURRENT), 1240);
        std::vector<uint8_t> read = DeviceBlock();
        SetWord(read, 0, 0);
        EXPECT_EQ(current, read) << body;
    }
}

TEST_F(AfPlanePut, ParseWithoutCurrentBlockIsRefused)
{
    Request req("PUT", "/isp/afPlane?ChannelId=102", "{}");
    EXPECT_EQ(ParsePutIspIaasAfPlanePoint(&req.header, &req.content, &req.ctx), 1);
    EXPECT_EQ(doubles::Diags().back().text, "[KXAPI]:null point");
    EXPECT_EQ(RunPutIspIaasAfPlanePoint(&req.header, &req.client, &req.ctx), 1);
    EXPECT_TRUE(Isp().requests.empty());
}

TEST_F(AfPlanePut, ChannelRules)
{
    // PreProc refuses a negative ChannelId; the Run stage reads it unsigned.
    Request negative("PUT", "/isp/afPlane?ChannelId=-1", "{}");
    EXPECT_EQ(PreProcPutIspIaasAfPlanePoint(&negative.header, &negative.sock, &negative.ctx), -1);
    EXPECT_EQ(RunPutIspIaasAfPlanePoint(&negative.header, &negative.client, &negative.ctx), 3);
    Request missing("PUT", "/isp/afPlane", "{}");
    EXPECT_EQ(PreProcPutIspIaasAfPlanePoint(&missing.header, &missing.sock, &missing.ctx), 3);
    EXPECT_TRUE(Isp().requests.empty());

    Isp().blocks[{17, 0}] = DeviceBlock();
    Request first("PUT", "/isp/afPlane?ChannelId=101", "{}");
    EXPECT_EQ(Put(first), 0);
    EXPECT_EQ(Isp().requests.front().channel, 0u);
    EXPECT_EQ(Isp().requests.back().channel, 0u);
}

TEST_F(AfPlanePut, StageFailuresFreeAndHangNothing)
{
    const struct {
        const char* name;
        doubles::Call call;
        int nth;
        int (*stage)(Request&);
        int result;
        int slot;
    } cases[] = {
        {"PreProcMalloc", doubles::Call::Malloc, 1,
         [](Request& r) { return PreProcPutIspIaasAfPlanePoint(&r.header, &r.sock, &r.ctx); }, 18, KXAPI_SLOT_CURRENT},
        {"ParseMalloc", doubles::Call::Malloc, 1,
         [](Request& r) { return ParsePutIspIaasAfPlanePoint(&r.header, &r.content, &r.ctx); }, 18, KXAPI_SLOT_REQUEST},
        {"ParseMemset", doubles::Call::MemsetS, 1,
         [](Request& r) { return ParsePutIspIaasAfPlanePoint(&r.header, &r.content, &r.ctx); }, 1, KXAPI_SLOT_REQUEST},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        Isp().blocks[{17, 1}] = DeviceBlock();
        Request req("PUT", "/isp/afPlane?ChannelId=102", "{}");
        if (c.slot == KXAPI_SLOT_REQUEST) {
            ASSERT_EQ(PreProcPutIspIaasAfPlanePoint(&req.header, &req.sock, &req.ctx), 0);
        }
        doubles::FailNth(c.call, c.nth);
        EXPECT_EQ(c.stage(req), c.result) << c.name;
        EXPECT_EQ(req.Slot(c.slot), nullptr) << c.name;
    }
}

TEST_F(AfPlanePut, CopyFailureIsReportedAndTheStageGoesOn)
{
    Request req("PUT", "/isp/afPlane?ChannelId=102", "{}");
    ASSERT_EQ(PreProcPutIspIaasAfPlanePoint(&req.header, &req.sock, &req.ctx), 0);
    doubles::FailNth(doubles::Call::MemcpyS, 1, 54);
    EXPECT_EQ(ParsePutIspIaasAfPlanePoint(&req.header, &req.content, &req.ctx), 0);
    EXPECT_NE(req.Slot(KXAPI_SLOT_REQUEST), nullptr);
    EXPECT_EQ(doubles::Diags().back().text, "[KXAPI]:[memcpy_s] expect Ret 0, actual Ret 54.");
}

TEST_F(AfPlanePut, FormatWithoutRequestRecordWritesNothing)
{
    Request req("PUT", "/isp/afPlane?ChannelId=102");
    EXPECT_EQ(FormatPutIspIaasAfPlanePoint(&req.header, 0, &req.ctx, &req.buf), -1);
    EXPECT_EQ(FormatPutIspIaasAfPlanePoint(&req.header, 4, &req.ctx, &req.buf), -1);
    EXPECT_EQ(FormatPutIspIaasAfPlanePoint(&req.header, 0, &req.ctx, nullptr), 1);
    EXPECT_TRUE(doubles::OpLogs().empty());
    EXPECT_EQ(req.Response(), "");
}

}  // namespace
