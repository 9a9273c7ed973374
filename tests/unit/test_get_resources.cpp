// The read-only resources end to end through their Run and Format stages:
// fake ratio, autofocus status and autofocus plane points (GET).
#include <gtest/gtest.h>

#include <cstring>

#include "doubles.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Call;
using doubles::Isp;
using doubles::Request;

using RunStage = int (*)(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S*, tagHTTP_CNTENT_INTER_S*);
using FormatStage = int (*)(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);

template <class T>
void Put(std::vector<uint8_t>& block, size_t offset, T value)
{
    std::memcpy(block.data() + offset, &value, sizeof(T));
}

struct GetCase {
    const char* name;
    RunStage run;
    FormatStage format;
    const char* url;
    uint16_t command;
    uint32_t channel;  // the service channel the request must address
    size_t size;
    std::function<void(std::vector<uint8_t>&)> fill;
    const char* json;
    const char* okEn;    // null: the resource writes no operation log
    const char* okCn;
    const char* failEn;
    friend void PrintTo(const GetCase& c, std::ostream* os) { *os << c.name; }
};

const GetCase kCases[] = {
    {"FakeRatio", RunGetIspIaasFakeRatio, FormatGetIspIaasFakeRatio, "/isp/fakeRatio?ChannelId=105", 28, 0, 608,
     [](std::vector<uint8_t>& b) { Put(b, 200, 1.5); }, R"({ "fakeRatio": 1.5 })", nullptr, nullptr, nullptr},
    {"AfStatus", RunGetIspIaasAfStatus, FormatGetIspIaasAfStatus, "/isp/afStatus?ChannelId=105", 17, 0, 1240,
     [](std::vector<uint8_t>& b) {
         Put(b, 1208, 2.0);
         Put(b, 1216, 60.5);
         Put(b, 1224, 34.25);
         Put<uint32_t>(b, 1232, 3);
     },
     R"({ "horDegree": 60.5, "verDegree": 34.25, "zoomRatioCur": 2.0, "calibrateState": 3 })",
     "admin[192.0.2.7:50123] Get ISP Af Status Param Successfully. HorDegree: 60.500000, VerDegree:34.250000, "
     "CurRatio:2.000000 ,calibrateState:3.",
     "admin[192.0.2.7:50123] 获取图像自动聚焦状态参数成功. 水平视场角: 60.500000, 垂直视场角:34.250000, "
     "当前倍率:2.000000, 聚焦标定状态:3.",
     "admin[192.0.2.7:50123] Get ISP Af Status Param Fail."},
    {"AfPlanePoint", RunGetIspIaasAfPlanePoint, FormatGetIspIaasAfPlanePoint, "/isp/afPlane?ChannelId=102", 17, 1,
     1240,
     [](std::vector<uint8_t>& b) {
         b[1044] = 1;
         Put<uint32_t>(b, 1048, 9);
         for (uint32_t i = 0; i < 8; ++i) {
             Put<uint32_t>(b, 1052 + 4 * i, 10 + i);
         }
         Put<uint32_t>(b, 1084, 77);  // past the fourth point: not a point
     },
     R"({ "enable": true, "PointMax": 9, "planePoints": [ { "planePointX": 10, "planePointY": 11 }, )"
     R"({ "planePointX": 12, "planePointY": 13 }, { "planePointX": 14, "planePointY": 15 }, )"
     R"({ "planePointX": 16, "planePointY": 17 } ] })",
     "admin[192.0.2.7:50123] Get ISP Af PlanePoint Param Successfully. Enable:1, pointMax: 9, point1_x:10, "
     "point1_y:11, point2_x:12, point2_y:13, point3_x:14, point3_y:15, point4_x:16, point4_y:17.",
     "admin[192.0.2.7:50123] 获取图像自动聚焦平面标定点参数成功. 使能:1, 点数: 9, 点1x坐标:10, 点1y坐标:11, "
     "点2x坐标:12, 点2y坐标:13, 点3x坐标:14, 点3y坐标:15, 点4x坐标:16, 点4y坐标:17.",
     "admin[192.0.2.7:50123] Get ISP Af PlanePoint Param Fail."},
};

class GetResource : public testing::TestWithParam<GetCase> {
protected:
    void SetUp() override { doubles::ResetAll(); }
    void TearDown() override { EXPECT_EQ(Isp().opens, Isp().closes); }
};

TEST_P(GetResource, ReadsTheServiceAndAnswersTheRecord)
{
    const GetCase& c = GetParam();
    std::vector<uint8_t> block(c.size, 0);
    c.fill(block);
    Isp().blocks[{c.command, c.channel}] = block;

    Request req("GET", c.url);
    ASSERT_EQ(c.run(&req.header, &req.client, &req.ctx), 0);
    ASSERT_NE(req.Slot(KXAPI_SLOT_RESULT), nullptr);
    EXPECT_EQ(req.Slot(KXAPI_SLOT_CURRENT), nullptr);
    ASSERT_EQ(Isp().requests.size(), 1u);
    EXPECT_EQ(Isp().requests[0].op, 2);
    EXPECT_EQ(Isp().requests[0].command, c.command);
    EXPECT_EQ(Isp().requests[0].channel, c.channel);
    EXPECT_EQ(Isp().requests[0].content, std::vector<uint8_t>(c.size, 0)) << "a read goes out zero-filled";

    ASSERT_EQ(c.format(&req.header, 0, &req.ctx, &req.buf), 0);
    EXPECT_EQ(req.Response(), c.json);
    EXPECT_NE(req.Slot(KXAPI_SLOT_RESULT), nullptr) << "the record stays with the context";
    if (c.okEn == nullptr) {
        EXPECT_TRUE(doubles::OpLogs().empty());
    } else {
        ASSERT_EQ(doubles::OpLogs().size(), 2u);
        EXPECT_EQ(doubles::OpLogs()[0].en, c.okEn);
        EXPECT_EQ(doubles::OpLogs()[0].cn, c.okCn);
        EXPECT_EQ(doubles::OpLogs()[1].channel, 1);
        EXPECT_EQ(doubles::OpLogs()[1].en, c.okEn);
    }
    EXPECT_TRUE(doubles::Diags().empty());
}

// A failed read leaves no record: the fake ratio answers with the status
// envelope; the others log their failure entry and write no body.
TEST_P(GetResource, ServiceFailureLeavesNoRecord)
{
    const GetCase& c = GetParam();
    Isp().failStep = doubles::SrvStep::Recv;
    Request req("GET", c.url);
    EXPECT_EQ(c.run(&req.header, &req.client, &req.ctx), 1);
    EXPECT_EQ(req.Slot(KXAPI_SLOT_RESULT), nullptr);
    EXPECT_EQ(doubles::Diags().back().format, "[KXAPI]:%s: GetIspSrvData failed");
    EXPECT_NE(doubles::Diags().back().text.find(c.name), std::string::npos);

    const int formatted = c.format(&req.header, 1, &req.ctx, &req.buf);
    if (c.failEn == nullptr) {
        EXPECT_EQ(formatted, 0);
        // json-c escapes every '/' of a string.
        std::string url;
        for (const char* p = c.url; *p != '\0'; ++p) {
            url += *p == '/' ? std::string("\\/") : std::string(1, *p);
        }
        EXPECT_EQ(req.Response(), std::string(R"({ "ResponseStatus": { "RequestURL": ")") + url +
                                      R"(", "StatusCode": 1, "StatusString": "Operation Failed" } })");
        EXPECT_TRUE(doubles::OpLogs().empty());
    } else {
        EXPECT_EQ(formatted, -1);
        EXPECT_EQ(req.Response(), "");
        ASSERT_EQ(doubles::OpLogs().size(), 2u);
        EXPECT_EQ(doubles::OpLogs()[0].en, c.failEn);
    }
}

// Allocation and fills fail in turn; each ends the stage with its result,
// frees what it took (ASan) and hangs nothing.
TEST_P(GetResource, ResourceFailuresFreeAndHangNothing)
{
    const GetCase& c = GetParam();
    const struct {
        Call call;
        int nth;
        int result;
        const char* format;
    } failures[] = {{Call::Malloc, 1, 18, "[KXAPI]:%s: malloc fail, response for req[%s %s]"},
                    {Call::MemsetS, 1, 1, "[KXAPI]:%s: memset_s failed"},
                    {Call::MemsetS, 2, 1, "[KXAPI]:%s: memset_s failed"}};
    for (const auto& f : failures) {
        doubles::ResetAll();
        doubles::FailNth(f.call, f.nth);
        Request req("GET", c.url);
        EXPECT_EQ(c.run(&req.header, &req.client, &req.ctx), f.result);
        EXPECT_EQ(req.Slot(KXAPI_SLOT_RESULT), nullptr);
        EXPECT_TRUE(Isp().requests.empty());
        ASSERT_EQ(doubles::Diags().size(), 1u);
        EXPECT_EQ(doubles::Diags()[0].format, f.format);
    }
}

TEST_P(GetResource, NullArgumentsAreRefused)
{
    const GetCase& c = GetParam();
    Request req("GET", c.url);
    EXPECT_EQ(c.run(nullptr, &req.client, &req.ctx), 1);
    EXPECT_EQ(c.run(&req.header, nullptr, &req.ctx), 1);
    EXPECT_EQ(c.run(&req.header, &req.client, nullptr), 1);
    EXPECT_EQ(doubles::Diags()[0].format, "[KXAPI]:Invalid param, header[%p] client[%p] ctIn[%p]");
    const int refused = c.okEn == nullptr ? -1 : 1;  // the template itself answers -1
    EXPECT_EQ(c.format(&req.header, 0, nullptr, &req.buf), refused);
    EXPECT_EQ(c.format(&req.header, 0, &req.ctx, nullptr), refused);
    EXPECT_TRUE(Isp().requests.empty());
    EXPECT_EQ(doubles::CallCount(Call::Malloc), 0);
}

INSTANTIATE_TEST_SUITE_P(Resources, GetResource, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<GetCase>& info) { return std::string(info.param.name); });

struct NamedRun {
    const char* name;
    RunStage run;
    friend void PrintTo(const NamedRun& r, std::ostream* os) { *os << r.name; }
};

class ChannelChecked : public testing::TestWithParam<NamedRun> {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

TEST_P(ChannelChecked, ChannelIdMustBeReadableAndNotNegative)
{
    const struct {
        const char* url;
        int result;
    } cases[] = {{"/p", 3}, {"/p?ChannelId=x", 3}, {"/p?ChannelId=-1", -1}, {"/p?ChannelId=0", 0}};
    for (const auto& c : cases) {
        Request req("GET", c.url);
        EXPECT_EQ(GetParam().run(&req.header, &req.client, &req.ctx), c.result) << c.url;
    }
    // Only the accepted request reached the service.
    EXPECT_EQ(Isp().requests.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Stages, ChannelChecked,
                         testing::Values(NamedRun{"AfStatus", RunGetIspIaasAfStatus},
                                         NamedRun{"AfPlanePoint", RunGetIspIaasAfPlanePoint}),
                         [](const testing::TestParamInfo<NamedRun>& info) { return std::string(info.param.name); });

TEST(FakeRatio, ReadsNoQueryParameter)
{
    doubles::ResetAll();
    Request req("GET", "/isp/fakeRatio");
    EXPECT_EQ(RunGetIspIaasFakeRatio(&req.header, &req.client, &req.ctx), 0);
    ASSERT_EQ(Isp().requests.size(), 1u);
    EXPECT_EQ(Isp().requests[0].channel, 0u);
}

}  // namespace
