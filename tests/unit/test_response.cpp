// The response template: the record's text or the status envelope, and what
// the buffer's Copy2Buf answer means.
#include <gtest/gtest.h>

#include "doubles.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Request;

int g_copyAnswer = 0;
uint32_t g_copiedLength = 0;

int ScriptedCopy(tagHTTP_BUF_S*, const char*, uint32_t len)
{
    g_copiedLength = len;
    return g_copyAnswer;
}

class ResponseTemplate : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

// The server's table of results: StatusCode is the result itself, with the
// text and HTTP status docs/DECISIONS.md lists.
TEST_F(ResponseTemplate, EnvelopeForEachResultWhenNoRecord)
{
    const struct {
        int result;
        const char* text;
        unsigned httpStatus;
    } cases[] = {{0, "OK", 200},
                 {1, "Operation Failed", 500},
                 {3, "Invalid Query Parameter", 400},
                 {4, "Invalid Content", 400},
                 {18, "Out Of Resources", 503},
                 {-1, "Invalid Channel", 400},
                 {5, "Device Error", 500}};
    for (const auto& c : cases) {
        const std::string body = R"({ "ResponseStatus": { "RequestURL": "\/isp\/x?ChannelId=101", "StatusCode": )" +
                                 std::to_string(c.result) + R"(, "StatusString": ")" + c.text + R"(" } })";
        Request get("GET", "/isp/x?ChannelId=101");
        EXPECT_EQ(FormatCommonResponse<_FakeRatio>(&get.header, c.result, &get.ctx, &get.buf), 0);
        EXPECT_EQ(get.Response(), body);
        EXPECT_EQ(FillResponseStatusParam(&get.header, c.result).ullHttpStatus, c.httpStatus);

        Request put("PUT", "/isp/x?ChannelId=101");
        EXPECT_EQ(FormatCommonStatus(&put.header, c.result, &put.ctx, &put.buf), 0);
        EXPECT_EQ(put.Response(), body);
        EXPECT_EQ(put.buf.ulHttpStatus, c.httpStatus);
    }
}

TEST_F(ResponseTemplate, RecordWinsOverTheResult)
{
    Request req;
    auto* record = static_cast<_FakeRatio*>(std::malloc(sizeof(_FakeRatio)));
    record->fakeRatio = -0.125;
    req.ctx.apvSlot[KXAPI_SLOT_RESULT] = record;
    EXPECT_EQ(FormatCommonResponse<_FakeRatio>(&req.header, 1, &req.ctx, &req.buf), 0);
    EXPECT_EQ(req.Response(), R"({ "fakeRatio": -0.125 })");
}

TEST_F(ResponseTemplate, OnlyMinusOneFromCopy2BufIsAFailure)
{
    const struct {
        int answer;
        int result;
    } cases[] = {{0, 0}, {7, 0}, {-2, 0}, {-1, -1}};
    for (const auto& c : cases) {
        doubles::ClearLogs();
        Request req;
        req.buf.Copy2Buf = ScriptedCopy;
        g_copyAnswer = c.answer;
        EXPECT_EQ(FormatGetIspIaasFakeRatio(&req.header, 0, &req.ctx, &req.buf), c.result) << c.answer;
        if (c.result == -1) {
            ASSERT_EQ(doubles::Diags().size(), 1u);
            const doubles::Diag& d = doubles::Diags()[0];
            EXPECT_EQ(d.text,
                      "[KXAPI]:FormatCommonResponse: Copy2Buf fail, dataLen[" + std::to_string(g_copiedLength) + "]");
            EXPECT_EQ(d.file, "access_server/kxapi/inc/kxapi_business_common");
            EXPECT_GT(g_copiedLength, 0u);
        } else {
            EXPECT_TRUE(doubles::Diags().empty());
        }
    }
}

TEST_F(ResponseTemplate, EncoderFailureIsReportedAndNothingWritten)
{
    // The envelope's own object, then its "ResponseStatus" object, then the
    // copy of the printed text.
    const std::pair<doubles::Call, int> failures[] = {{doubles::Call::NewObject, 1},
                                                      {doubles::Call::NewObject, 2},
                                                      {doubles::Call::Malloc, 1},
                                                      {doubles::Call::MemsetS, 1},
                                                      {doubles::Call::StrncpyS, 1}};
    for (const auto& [call, nth] : failures) {
        doubles::ResetAll();
        Request req;
        doubles::FailNth(call, nth);
        EXPECT_EQ(FormatCommonResponse<_FakeRatio>(&req.header, 0, &req.ctx, &req.buf), -1);
        EXPECT_EQ(req.Response(), "");
        ASSERT_EQ(doubles::Diags().size(), 1u);
        EXPECT_EQ(doubles::Diags()[0].text, "[KXAPI]:FormatCommonResponse: json_encode fail");
    }
}

}  // namespace
