// The diagnostic line: the level and source text of each diagnostic of every
// test that ran; and the fields a diagnostic takes from its call.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "doubles.h"
#include "qtnapi_isp_stage.h"

namespace {

const char* const kModule = "access_server/kxapi/qtn_business/isp/qtnapi_isp_module";
const char* const kCommon = "access_server/kxapi/inc/kxapi_business_common";

// The formats written below level 3 (the command trace at 0, the query and
// body lines at 1), and those of the response template, which name the common
// file; every other diagnostic is an error (3) of the module. The texts
// themselves are compared in full, in order, by the tests of each path.
const std::map<std::string, int> kBelowError = {{"[KXAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]", 0},
                                                {"[KXAPI]:%s, Query param get failed", 1},
                                                {"[KXAPI]:%s,JsonData:%s", 1}};
const std::set<std::string> kOfCommon = {"[KXAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]",
                                         "[KXAPI]:%s: json_encode fail", "[KXAPI]:%s: Copy2Buf fail, dataLen[%llu]"};

// After the last test: module 4, the reserved word 0, and the format's level
// and source text for every diagnostic written in this run.
class EveryDiagnostic : public testing::Environment {
public:
    void TearDown() override
    {
        for (const doubles::Diag& d : doubles::AllDiags()) {
            const auto below = kBelowError.find(d.format);
            EXPECT_EQ(d.level, below != kBelowError.end() ? below->second : 3) << d.format;
            EXPECT_EQ(d.file, kOfCommon.count(d.format) != 0 ? kCommon : kModule) << d.format;
            EXPECT_EQ(d.module, 4) << d.format;
            EXPECT_EQ(d.reserved, 0) << d.format;
        }
    }
};

testing::Environment* const g_everyDiagnostic = testing::AddGlobalTestEnvironment(new EveryDiagnostic);

// The debug flag as it is at each call, and the line of the stage's own call.
TEST(Diagnostic, TakesTheDebugFlagAndTheCallersLine)
{
    doubles::ResetAll();
    doubles::Request req;
    IspStage stage("S", &req.header, &req.ctx);
    g_enDebugFlag = VW_DEBUG_ON;
    doubles::FailNth(doubles::Call::Malloc, 1);
    const int line = __LINE__ + 1;
    EXPECT_EQ(stage.Alloc<int>(), nullptr);
    g_enDebugFlag = VW_DEBUG_OFF;
    EXPECT_TRUE(IspArgsMissing(IspArgs::Run, &req, nullptr, &req));
    ASSERT_EQ(doubles::Diags().size(), 2u);
    EXPECT_EQ(doubles::Diags()[0].debugFlag, 1);
    EXPECT_EQ(doubles::Diags()[1].debugFlag, 0);
    EXPECT_EQ(doubles::Diags()[0].line, line);
    EXPECT_EQ(doubles::Diags()[1].line, line + 2);
    EXPECT_EQ(doubles::Diags()[0].text, "[KXAPI]:S: malloc fail, response for req[GET /isp?ChannelId=101]");
}

}  // namespace
