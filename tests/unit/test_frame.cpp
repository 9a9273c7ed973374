// The helpers every stage shares: argument check, ChannelId rule,
// diagnostics, operation-log pair, records and bounds-checked fills.
#include <gtest/gtest.h>

#include "doubles.h"
#include "qtnapi_isp_frame.h"

namespace {

using doubles::Diags;
using doubles::Request;

class Frame : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

struct ArgsCase {
    IspArgs kind;
    const char* format;
};

TEST_F(Frame, ArgumentCheckNamesTheKindsPointers)
{
    const ArgsCase cases[] = {
        {IspArgs::Parse, "[KXAPI]:Invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]"},
        {IspArgs::PreProc, "[KXAPI]:Invalid param, pstHeader[%p] pstSynSock[%p] pstCtIn[%p]"},
        {IspArgs::Run, "[KXAPI]:Invalid param, header[%p] client[%p] ctIn[%p]"},
        {IspArgs::RunPst, "[KXAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]"},
    };
    int x = 0;
    for (const ArgsCase& c : cases) {
        doubles::ClearLogs();
        EXPECT_FALSE(IspArgsMissing(c.kind, &x, &x, &x));
        EXPECT_TRUE(Diags().empty());
        const int line = __LINE__ + 1;
        EXPECT_TRUE(IspArgsMissing(c.kind, &x, nullptr, &x));
        ASSERT_EQ(Diags().size(), 1u);
        const doubles::Diag& d = Diags()[0];
        EXPECT_EQ(d.format, c.format);
        EXPECT_EQ(d.module, 4);
        EXPECT_EQ(d.level, 3);
        EXPECT_EQ(d.reserved, 0);
        EXPECT_EQ(d.file, "access_server/kxapi/qtn_business/isp/qtnapi_isp_module");
        EXPECT_EQ(d.line, line);  // the caller's line, not the helper's
        EXPECT_NE(d.text.find("(nil)"), std::string::npos);
    }
}

TEST_F(Frame, DiagnosticsReadTheDebugFlagAtEachCall)
{
    Request req;
    IspStage stage("S", &req.header, &req.ctx);
    g_enDebugFlag = VW_DEBUG_ON;
    doubles::FailNth(doubles::Call::Malloc, 1);
    EXPECT_EQ(stage.Alloc<int>(), nullptr);
    g_enDebugFlag = VW_DEBUG_OFF;
    doubles::FailNth(doubles::Call::Malloc, 1);
    EXPECT_EQ(stage.Alloc<int>(), nullptr);
    ASSERT_EQ(Diags().size(), 2u);
    EXPECT_EQ(Diags()[0].debugFlag, 1);
    EXPECT_EQ(Diags()[1].debugFlag, 0);
    EXPECT_EQ(Diags()[0].text, "[KXAPI]:S: malloc fail, response for req[GET /isp?ChannelId=101]");
}

struct ChannelCase {
    const char* url;
    IspChannelRule rule;
    int result;
    int channel;
};

TEST_F(Frame, ChannelRule)
{
    using R = IspChannelRule;
    const ChannelCase cases[] = {
        {"/p?ChannelId=101", R::NonNegative, 0, 101}, {"/p?ChannelId=0", R::NonNegative, 0, 0},
        {"/p?ChannelId=-1", R::NonNegative, -1, 0},   {"/p?ChannelId=abc", R::NonNegative, 3, 0},
        {"/p?ChannelId=102", R::ThermalOnly, 0, 102}, {"/p?ChannelId=101", R::ThermalOnly, -1, 0},
    };
    for (const ChannelCase& c : cases) {
        doubles::ClearLogs();
        Request req("GET", c.url);
        IspStage stage("RunGetIspIaasX", &req.header, &req.ctx);
        int channel = 0;
        EXPECT_EQ(stage.Channel(c.rule, &channel), c.result) << c.url;
        EXPECT_EQ(channel, c.channel) << c.url;
        if (c.result == 3) {
            ASSERT_EQ(Diags().size(), 1u);
            EXPECT_EQ(Diags()[0].level, 1);
            EXPECT_EQ(Diags()[0].text, "[KXAPI]:RunGetIspIaasX, Query param get failed");
        } else if (c.result == -1) {
            ASSERT_EQ(Diags().size(), 1u);
            EXPECT_EQ(Diags()[0].level, 3);
            EXPECT_EQ(Diags()[0].format, "[KXAPI]:%d: nChannelID Error");
        } else {
            EXPECT_TRUE(Diags().empty());
        }
    }
}

TEST_F(Frame, OperationLogPairGoesToChannelTwoThenOne)
{
    Request req;
    IspStage stage("S", &req.header, &req.ctx);
    stage.OpLog("%s[%s:%llu] Get X Successfully. v:%d.", "%s[%s:%llu] 获取X成功. v:%d.", 42);
    ASSERT_EQ(doubles::OpLogs().size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        const doubles::OpLog& e = doubles::OpLogs()[i];
        EXPECT_EQ(e.channel, i == 0 ? 2 : 1);
        EXPECT_EQ(e.module, 4);
        EXPECT_EQ(e.en, "admin[192.0.2.7:50123] Get X Successfully. v:42.");
        EXPECT_EQ(e.cn, "admin[192.0.2.7:50123] 获取X成功. v:42.");
    }
}

TEST_F(Frame, FillsReportByDestination)
{
    Request req;
    IspStage stage("S", &req.header, &req.ctx);
    char block[8];
    doubles::FailNth(doubles::Call::MemsetS, 1);
    EXPECT_FALSE(stage.Zero(block, sizeof(block)));
    EXPECT_TRUE(stage.Zero(block, sizeof(block)));
    doubles::FailNth(doubles::Call::MemsetS, 1, 34);
    IspZeroScratch(block, sizeof(block));
    doubles::FailNth(doubles::Call::MemcpyS, 1, 54);
    IspCopyScratch(block, sizeof(block), "abc", 3);
    std::vector<std::string> texts;
    for (const auto& d : Diags()) {
        texts.push_back(d.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"[KXAPI]:S: memset_s failed",
                                               "[KXAPI]:[memset_s] expect Ret 0, actual Ret 34.",
                                               "[KXAPI]:[memcpy_s] expect Ret 0, actual Ret 54."}));
}

}  // namespace
