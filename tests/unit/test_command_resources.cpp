// White balance and extreme colour: the settings the control process keeps,
// read and written through the synchronous command channel.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "doubles.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Control;
using doubles::Diags;
using doubles::OpLogs;
using doubles::Request;

const std::string kWho = "admin[192.0.2.7:50123] ";

// A payload of the control process: the channel field, then `text` from 8.
std::vector<uint8_t> Payload(const std::string& text, size_t size = 264)
{
    std::vector<uint8_t> p(std::max(size, 8 + text.size()), 0);
    doubles::PutAt<uint32_t>(p, 0, 101);
    std::copy(text.begin(), text.end(), p.begin() + 8);
    return p;
}

// Hangs a request record as the Parse stage would.
template <class T>
void HangRequest(Request& req, const T& record)
{
    req.ctx.apvSlot[KXAPI_SLOT_REQUEST] = std::malloc(sizeof(T));
    std::memcpy(req.ctx.apvSlot[KXAPI_SLOT_REQUEST], &record, sizeof(T));
}

struct ExchangeCase {
    doubles::AnyStage stage;
    int code;
    int type;
    int slot;  // the slot the stage fills, or -1
    friend void PrintTo(const ExchangeCase& c, std::ostream* os) { *os << c.stage.name; }
};

class CommandExchange : public testing::TestWithParam<ExchangeCase> {
protected:
    void SetUp() override { doubles::ResetAll(); }

    // A request whose Run stages send over another socket than PreProc's.
    int Call(Request& req)
    {
        req.client.pstSynSock = &clientSock;
        _AwbInfo awb{};
        std::memset(awb.roiWeightArray, '1', 12);
        if (GetParam().code == VW_CMD_AWB) {
            HangRequest(req, awb);
        } else {
            HangRequest(req, _ExtreColorInfo{77});
        }
        return doubles::Invoke(GetParam().stage, req);
    }

    tagUNIX_SOCKET_S clientSock{};
};

TEST_P(CommandExchange, SendsOneCommandWithChannelField101AndTracesTheReply)
{
    const ExchangeCase& c = GetParam();
    Request req("PUT", "/isp?ChannelId=7");
    ASSERT_EQ(Call(req), 0);
    ASSERT_EQ(Control().sent.size(), 1u);
    const doubles::CmdSent& sent = Control().sent[0];
    EXPECT_EQ(sent.path, "/tmp/A");
    EXPECT_EQ(sent.type, c.type);
    EXPECT_EQ(sent.code, c.code);
    EXPECT_EQ(sent.timeout, 0u);
    EXPECT_EQ(sent.sock, c.stage.preProc != nullptr ? &req.sock : &clientSock);
    EXPECT_EQ(doubles::GetAt<uint64_t>(sent.body.data(), 0), 101u) << "whatever ChannelId says";
    ASSERT_EQ(Diags().size(), 1u);
    EXPECT_EQ(Diags()[0].level, 0);
    EXPECT_EQ(Diags()[0].text, std::string("[KXAPI]:") + c.stage.name + ": httpReq[PUT /isp?ChannelId=7] sendCmd[" +
                                   std::to_string(c.code) + "] recvMsg[" + std::to_string(c.code + 1) + "] Result[0]");
    if (c.slot >= 0) {
        EXPECT_NE(req.Slot(c.slot), nullptr);
    }
}

TEST_P(CommandExchange, ChannelIdMustBeReadableAndNotNegative)
{
    const struct {
        const char* url;
        int result;
        const char* diag;
    } cases[] = {{"/isp", 3, "[KXAPI]:%s, Query param get failed"},
                 {"/isp?ChannelId=-1", -1, "[KXAPI]:%d: nChannelID Error"},
                 {"/isp?ChannelId=0", 0, nullptr}};
    for (const auto& k : cases) {
        doubles::ResetAll();
        Request req("PUT", k.url);
        EXPECT_EQ(Call(req), k.result) << k.url;
        EXPECT_EQ(Control().sent.size(), k.result == 0 ? 1u : 0u) << k.url;
        if (k.diag != nullptr) {
            EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{k.diag});
            EXPECT_EQ(Diags()[0].level, k.result == 3 ? 1 : 3);
        }
    }
}

// A device's Result is the stage's result; a command that cannot be sent
// gives 1. Either way nothing is hung.
TEST_P(CommandExchange, FailuresPassTheResultOnAndHangNothing)
{
    const ExchangeCase& c = GetParam();
    Control().results[c.code] = 5;
    Request answered("PUT", "/isp?ChannelId=1");
    EXPECT_EQ(Call(answered), 5);
    EXPECT_NE(Diags().back().text.find("Result[5]"), std::string::npos);

    doubles::ResetAll();
    Control().unsent = {c.code};
    Request unsent("PUT", "/isp?ChannelId=1");
    EXPECT_EQ(Call(unsent), 1);
    EXPECT_EQ(Diags().back().text, "[KXAPI]:Send SynUnixMsg for Getting cmd[" + std::to_string(c.code) + "] failed");
    for (Request* req : {&answered, &unsent}) {
        EXPECT_EQ(req->Slot(KXAPI_SLOT_CURRENT), nullptr);
        EXPECT_EQ(req->Slot(KXAPI_SLOT_RESULT), nullptr);
    }
}

// The two buffers are scratch: a failed zero-fill is reported and the
// command still goes out.
TEST_P(CommandExchange, FailedZeroFillOfABufferIsOnlyReported)
{
    for (int nth : {1, 2}) {
        doubles::ResetAll();
        doubles::FailNth(doubles::Call::MemsetS, nth, 22);
        Request req("PUT", "/isp?ChannelId=1");
        EXPECT_EQ(Call(req), 0);
        EXPECT_EQ(Diags().at(0).text, "[KXAPI]:[memset_s] expect Ret 0, actual Ret 22.");
        EXPECT_EQ(Control().sent.size(), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Stages, CommandExchange,
    testing::Values(ExchangeCase{STAGE(run, RunGetIspIaasAwb), 3231, 0, KXAPI_SLOT_RESULT},
                    ExchangeCase{STAGE(preProc, PreProcPutIspIaasAwb), 3231, 0, KXAPI_SLOT_CURRENT},
                    ExchangeCase{STAGE(run, RunPutIspIaasAwb), 3231, 1, -1},
                    ExchangeCase{STAGE(run, RunGetIspIaasExtreColor), 3229, 0, KXAPI_SLOT_RESULT},
                    ExchangeCase{STAGE(preProc, PreProcPutIspIaasExtreColor), 3229, 0, KXAPI_SLOT_CURRENT},
                    ExchangeCase{STAGE(run, RunPutIspIaasExtreColor), 3229, 1, -1}),
    [](const testing::TestParamInfo<ExchangeCase>& info) { return std::string(info.param.stage.name); });

class CommandResource : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

const doubles::Flow kAwbGet = {.run = RunGetIspIaasAwb, .format = FormatGetIspIaasAwb};
const doubles::Flow kAwbPut = {PreProcPutIspIaasAwb, ParsePutIspIaasAwb, RunPutIspIaasAwb, FormatPutIspIaasAwb};
const doubles::Flow kExtreGet = {.run = RunGetIspIaasExtreColor, .format = FormatGetIspIaasExtreColor};
const doubles::Flow kExtrePut = {PreProcPutIspIaasExtreColor, ParsePutIspIaasExtreColor, RunPutIspIaasExtreColor,
                                 FormatPutIspIaasExtreColor};

TEST_F(CommandResource, AwbGetAnswersTheWeightsAndLogsThem)
{
    Control().payloads[3231] = Payload("1101/x");
    Request req("GET", "/isp/awb?ChannelId=101");
    const doubles::Outcome o = doubles::Perform(kAwbGet, req);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.formatted, 0);
    EXPECT_EQ(req.Response(), R"({ "regionAwbAttr": { "roiWeightArray": "1101\/x" } })");
    ASSERT_EQ(OpLogs().size(), 2u);
    EXPECT_EQ(OpLogs()[0].en, kWho + "Get ISP AWB Param Successfully. RegionAwbWeight:1101/x.");
    EXPECT_EQ(OpLogs()[1].cn, kWho + "获取图像白平衡参数成功. 区域白平衡权重:1101/x.");
}

// A text without terminator is cut at the field's end, in the response and
// in the log.
TEST_F(CommandResource, AwbTextWithoutTerminatorStopsAtTheFieldsEnd)
{
    Control().payloads[3231] = Payload(std::string(256, '1') + "22");
    Request req("GET", "/isp/awb?ChannelId=101");
    EXPECT_EQ(doubles::Perform(kAwbGet, req).formatted, 0);
    EXPECT_EQ(req.Response(), R"({ "regionAwbAttr": { "roiWeightArray": ")" + std::string(256, '1') + R"(" } })");
    EXPECT_EQ(OpLogs()[0].en, kWho + "Get ISP AWB Param Successfully. RegionAwbWeight:" + std::string(256, '1') + ".");
}

struct AwbPutCase {
    const char* name;
    std::string body;
    int result;          // of the last stage before Format
    std::string field;   // the 256-byte field as written, when it is
};

// The current text is "111111111111111111" (18 '1's) with "77" behind its
// terminator.
TEST_F(CommandResource, AwbPutMergesTheTextOverTheCurrentField)
{
    std::string current = std::string(18, '1') + std::string(1, '\0') + "77";
    const std::string t255(255, '1');
    const AwbPutCase cases[] = {
        {"EmptyBody", "{}", 0, current},
        {"NotAnObject", "[1, 2]", 0, current},
        {"NullText", R"({"regionAwbAttr": {"roiWeightArray": null}})", 0, current},
        {"ShorterTextKeepsTheTail", R"({"regionAwbAttr": {"roiWeightArray": "0000000000001111111111111"}})", 0,
         std::string(12, '0') + std::string(13, '1') + std::string(1, '\0')},
        {"TailOnesCount", R"({"regionAwbAttr": {"roiWeightArray": "111"}})", 0,
         std::string("111") + std::string(1, '\0') + std::string(14, '1') + std::string(1, '\0') + "77"},
        {"Longest", R"({"regionAwbAttr": {"roiWeightArray": ")" + t255 + R"("}})", 0, t255},
        {"ElevenOnes", R"({"regionAwbAttr": {"roiWeightArray": "11111111111)" + std::string(20, '0') + R"("}})", 4, ""},
        {"TooLong", R"({"regionAwbAttr": {"roiWeightArray": ")" + t255 + R"(1"}})", 4, ""},
        {"Number", R"({"regionAwbAttr": {"roiWeightArray": 1}})", 4, ""},
        {"Object", R"({"regionAwbAttr": {"roiWeightArray": {}}})", 4, ""},
        {"NotJson", "{", 4, ""},
    };
    for (const AwbPutCase& c : cases) {
        doubles::ResetAll();
        Control().payloads[3231] = Payload(current);
        Request req("PUT", "/isp/awb?ChannelId=101", c.body.c_str());
        const doubles::Outcome o = doubles::Perform(kAwbPut, req);
        EXPECT_EQ(o.result, c.result) << c.name;
        if (c.result != 0) {
            EXPECT_EQ(o.formatted, -1) << c.name;
            EXPECT_EQ(Control().sent.size(), 1u) << c.name << ": only the read went out";
            continue;
        }
        ASSERT_EQ(Control().sent.size(), 2u) << c.name;
        std::string field = c.field;
        field.resize(256, '\0');
        EXPECT_EQ(std::string(Control().sent[1].body.begin() + 8, Control().sent[1].body.begin() + 264), field)
            << c.name;
        EXPECT_EQ(o.formatted, 0);
    }
}

TEST_F(CommandResource, AwbRefusalsNameTheirCause)
{
    Control().payloads[3231] = Payload(std::string(11, '1'));
    Request fewOnes("PUT", "/isp/awb?ChannelId=101", "{}");
    EXPECT_EQ(doubles::Perform(kAwbPut, fewOnes).result, 4);
    EXPECT_EQ(Diags().back().text, "[KXAPI]:Setting Number 1 can't less than 12");
    ASSERT_EQ(OpLogs().size(), 2u);  // the text that was to be set
    EXPECT_EQ(OpLogs()[0].en, kWho + "Set ISP AWB Param Fail. RegionAwbWeight:" + std::string(11, '1') + ".");
    EXPECT_EQ(OpLogs()[0].cn, kWho + "设置图像白平衡参数失败. 区域白平衡权重:" + std::string(11, '1') + ".");
    EXPECT_EQ(fewOnes.Response(), "");

    doubles::ResetAll();
    Request badBody("PUT", "/isp/awb?ChannelId=101", R"({"regionAwbAttr": {"roiWeightArray": true}})");
    EXPECT_EQ(doubles::Perform(kAwbPut, badBody).result, 4);
    EXPECT_EQ(Diags().back().text.rfind("[KXAPI]:ParsePutIspIaasAwb[", 0), 0u);
    EXPECT_EQ(Diags().back().format, "[KXAPI]:%s[%d] json decode fail\n");
    EXPECT_TRUE(OpLogs().empty()) << "no request record, no entry";
}

TEST_F(CommandResource, AwbPutSuccessIsLoggedAndAnsweredWithStatus)
{
    Control().payloads[3231] = Payload(std::string(12, '1'));
    Request req("PUT", "/isp/awb?ChannelId=101", "{}");
    EXPECT_EQ(doubles::Perform(kAwbPut, req).formatted, 0);
    EXPECT_EQ(OpLogs().at(1).en, kWho + "Set ISP AWB Param Successfully. RegionAwbWeight:111111111111.");
    EXPECT_EQ(OpLogs()[1].cn, kWho + "设置图像白平衡参数成功. 区域白平衡权重:111111111111.");
    EXPECT_NE(req.Response().find(R"("StatusString": "OK")"), std::string::npos);
}

TEST_F(CommandResource, PreProcKeepsThePayloadHeadAsCurrentSettings)
{
    const struct {
        doubles::AnyStage stage;
        int code;
        size_t size;
    } cases[] = {{STAGE(preProc, PreProcPutIspIaasAwb), 3231, 264},
                 {STAGE(preProc, PreProcPutIspIaasExtreColor), 3229, 16}};
    for (const auto& c : cases) {
        doubles::ResetAll();
        std::vector<uint8_t> payload(300);
        for (size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<uint8_t>(i + 3);
        }
        Control().payloads[c.code] = payload;
        Request req("PUT", "/isp?ChannelId=101");
        ASSERT_EQ(doubles::Invoke(c.stage, req), 0);
        EXPECT_EQ(std::memcmp(req.Slot(KXAPI_SLOT_CURRENT), payload.data(), c.size), 0) << c.stage.name;

        for (const auto& [call, result, diag] :
             {std::tuple{doubles::Call::Malloc, 18, "[KXAPI]:%s: malloc fail, response for req[%s %s]"},
              std::tuple{doubles::Call::MemcpyS, 1, "[KXAPI]:%s: memcpy_s failed"}}) {
            doubles::ResetAll();
            Request failing("PUT", "/isp?ChannelId=101");
            doubles::FailNth(call, 1);
            EXPECT_EQ(doubles::Invoke(c.stage, failing), result) << c.stage.name;
            EXPECT_EQ(Diags().back().format, diag);
            EXPECT_EQ(failing.Slot(KXAPI_SLOT_CURRENT), nullptr);
        }
    }
}

// fusionStrength, current value 9: how each JSON value is stored and sent.
TEST_F(CommandResource, FusionStrengthConversions)
{
    const struct {
        const char* body;
        int result;
        uint32_t sent;
    } cases[] = {
        {"{}", 0, 9},
        {"7", 0, 9},
        {R"({"fusionStrength": null})", 0, 9},
        {R"({"fusionStrength": 7})", 0, 7},
        {R"({"fusionStrength": 7.9})", 0, 7},
        {R"({"fusionStrength": true})", 0, 1},
        {R"({"fusionStrength": -3.5})", 0, 0},
        {R"({"fusionStrength": 1e12})", 0, 4294967295u},
        {R"({"fusionStrength": -1})", 0, 4294967295u},
        {R"({"fusionStrength": 4294967301})", 0, 5},
        {R"({"fusionStrength": "7"})", 4, 0},
        {R"({"fusionStrength": [7]})", 4, 0},
        {"fusionStrength", 4, 0},
    };
    for (const auto& c : cases) {
        doubles::ResetAll();
        std::vector<uint8_t> payload = Payload("", 16);
        doubles::PutAt<uint32_t>(payload, 8, 9);
        doubles::PutAt<uint32_t>(payload, 12, 0xabcd);
        Control().payloads[3229] = payload;
        Request req("PUT", "/isp/extre?ChannelId=101", c.body);
        EXPECT_EQ(doubles::Perform(kExtrePut, req).result, c.result) << c.body;
        if (c.result == 0) {
            ASSERT_EQ(Control().sent.size(), 2u) << c.body;
            EXPECT_EQ(doubles::GetAt<uint32_t>(Control().sent[1].body.data(), 8), c.sent) << c.body;
            EXPECT_EQ(doubles::GetAt<uint32_t>(Control().sent[1].body.data(), 12), 0u) << c.body;
        }
    }
}

// The GET and PUT texts differ in punctuation.
TEST_F(CommandResource, ExtreColorEntriesAndResponses)
{
    std::vector<uint8_t> payload = Payload("", 16);
    doubles::PutAt<uint32_t>(payload, 8, 4294967295u);
    Control().payloads[3229] = payload;
    Request get("GET", "/isp/extre?ChannelId=101");
    EXPECT_EQ(doubles::Perform(kExtreGet, get).formatted, 0);
    EXPECT_EQ(get.Response(), R"({ "fusionStrength": 4294967295 })");
    EXPECT_EQ(OpLogs().at(0).en, kWho + "Get ISP Extre Color Param Successfully.FusionStrength: 4294967295.");
    EXPECT_EQ(OpLogs()[0].cn, kWho + "获取图像黑光融合参数成功. 融合强度：4294967295.");

    doubles::ResetAll();
    Request put("PUT", "/isp/extre?ChannelId=101", R"({"fusionStrength": 3})");
    EXPECT_EQ(doubles::Perform(kExtrePut, put).formatted, 0);
    EXPECT_EQ(OpLogs().at(0).en, kWho + "Set ISP Extre Color Param Successfully.FusionStrength: 3.");
    EXPECT_EQ(OpLogs()[0].cn, kWho + "设置图像黑光融合参数成功.融合强度: 3.");

    doubles::ResetAll();
    Control().results[3229] = 9;
    Request refused("PUT", "/isp/extre?ChannelId=101", R"({"fusionStrength": 3})");
    Control().payloads[3229] = payload;
    const doubles::Outcome o = doubles::Perform(kExtrePut, refused);
    EXPECT_EQ(o.result, 9);
    EXPECT_EQ(o.formatted, -1);
    EXPECT_EQ(refused.Response(), "");
}

// Parse and RunPut need the records the stages before them hang.
TEST_F(CommandResource, MissingRecordsStopTheStagesThatNeedThem)
{
    for (const doubles::Flow* flow : {&kAwbPut, &kExtrePut}) {
        doubles::ResetAll();
        Request req("PUT", "/isp?ChannelId=101", "{}");
        EXPECT_EQ(flow->parse(&req.header, &req.content, &req.ctx), 1);
        EXPECT_EQ(flow->run(&req.header, &req.client, &req.ctx), 1);
        EXPECT_EQ(doubles::DiagFormats(), (std::vector<std::string>{"[KXAPI]:null point", "[KXAPI]:null point"}));
        EXPECT_TRUE(Control().sent.empty());
        EXPECT_EQ(flow->format(&req.header, 0, &req.ctx, &req.buf), -1);
        EXPECT_TRUE(OpLogs().empty());
    }
}

}  // namespace
