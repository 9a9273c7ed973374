// The diagnostic line: every format the module writes with its level and
// source text, checked for each diagnostic of every test that ran; and the
// fields a diagnostic takes from its call.
#include <gtest/gtest.h>

#include <map>

#include "doubles.h"
#include "qtnapi_isp_frame.h"

namespace {

const char* const kModule = "access_server/kxapi/qtn_business/isp/qtnapi_isp_module";
const char* const kCommon = "access_server/kxapi/inc/kxapi_business_common";

struct Line {
    int level;
    const char* file;
};

const std::map<std::string, Line> kFormats = {
    {"[KXAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]", {0, kModule}},
    {"[KXAPI]:%s, Query param get failed", {1, kModule}},
    {"[KXAPI]:%s,JsonData:%s", {1, kModule}},
    {"[KXAPI]:%d: nChannelID Error", {3, kModule}},
    {"[KXAPI]:Invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]", {3, kModule}},
    {"[KXAPI]:Invalid param, pstHeader[%p] pstSynSock[%p] pstCtIn[%p]", {3, kModule}},
    {"[KXAPI]:Invalid param, header[%p] client[%p] ctIn[%p]", {3, kModule}},
    {"[KXAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]", {3, kModule}},
    {"[KXAPI]:%s: malloc fail, response for req[%s %s]", {3, kModule}},
    {"[KXAPI]:%s: calloc fail, response for req[%s %s]", {3, kModule}},
    {"[KXAPI]:null point", {3, kModule}},
    {"[KXAPI]:%s[%d] json decode fail\n", {3, kModule}},
    {"[KXAPI]:%s: memset_s failed", {3, kModule}},
    {"[KXAPI]:%s: memcpy_s failed", {3, kModule}},
    {"[KXAPI]:[%s] expect Ret %d, actual Ret %d.", {3, kModule}},
    {"[KXAPI]:%s: GetIspSrvData failed", {3, kModule}},
    {"[KXAPI]:%s: SetIspSrvData failed", {3, kModule}},
    {"[KXAPI]:%s: CreateIspSrvData failed", {3, kModule}},
    {"[KXAPI]:%s: ResetIspSrvData failed", {3, kModule}},
    {"[KXAPI]:Send SynUnixMsg for Getting cmd[%d] failed", {3, kModule}},
    {"[KXAPI]:Setting Number 1 can't less than %d", {3, kModule}},
    {"[KXAPI]:Time enum is %d", {3, kModule}},
    {"[KXAPI]:%s: get device ability failed", {3, kModule}},
    {"[KXAPI]:open %s srv fail, Error: %d, %s\n", {3, kModule}},
    {"[KXAPI]:wiro_message_new failed \n", {3, kModule}},
    {"[KXAPI]:new send msg failed \n", {3, kModule}},
    {"[KXAPI]:wiro_header_set failed \n", {3, kModule}},
    {"[KXAPI]:wiro_content_append failed \n", {3, kModule}},
    {"[KXAPI]:wiro_message_sendfd failed \n", {3, kModule}},
    {"[KXAPI]:wiro_message_sendfd_timeout failed,fd:%d,err:%d,ret:%d\n", {3, kModule}},
    {"[KXAPI]:wiro_message_sendfd_timeout failed,fd:%d,err:%d,ret:%d \n", {3, kModule}},
    {"[KXAPI]:wiro_message_recvfd failed \n", {3, kModule}},
    {"[KXAPI]:wiro_message_recvfd_timeout failed,fd:%d,err:%d,ret:%d\n", {3, kModule}},
    {"[KXAPI]:wiro_message_recvfd_timeout failed,fd:%d,err:%d,ret:%d \n", {3, kModule}},
    {"[KXAPI]:wiro_content_copy failed \n", {3, kModule}},
    {"[KXAPI]:wiro_code failed \n", {3, kModule}},
    {"[KXAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]", {3, kCommon}},
    {"[KXAPI]:%s: json_encode fail", {3, kCommon}},
    {"[KXAPI]:%s: Copy2Buf fail, dataLen[%llu]", {3, kCommon}},
};

// After the last test: module 4, the reserved word 0, and the format's level
// and source text for every diagnostic written in this run.
class EveryDiagnostic : public testing::Environment {
public:
    void TearDown() override
    {
        for (const doubles::Diag& d : doubles::AllDiags()) {
            const auto found = kFormats.find(d.format);
            if (found == kFormats.end()) {
                ADD_FAILURE() << "unlisted diagnostic: " << d.format;
                continue;
            }
            EXPECT_EQ(d.level, found->second.level) << d.format;
            EXPECT_EQ(d.file, found->second.file) << d.format;
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
