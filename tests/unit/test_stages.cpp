// What the stages of every resource do the same way, one table each: the
// exchanges a request makes, the ChannelId rule, failures of allocation,
// fills and services, refused bodies, and the blocks that go out for reads.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <optional>

#include "world.h"

namespace {

using doubles::AnyStage;
using doubles::Call;
using doubles::Control;
using doubles::Diags;
using doubles::Isp;
using doubles::Request;
using doubles::SrvStep;
using namespace world;

class Stages : public testing::Test {
protected:
    void SetUp() override { Install(); }
    void TearDown() override
    {
        EXPECT_EQ(Isp().opens, Isp().closes);
        EXPECT_EQ(Isp().openFlags, std::vector<int>(Isp().opens, O_RDWR));  // read-write, nothing more
        EXPECT_EQ(Isp().messagesLive, 0);
    }
};

// ---- Exchanges -------------------------------------------------------------

// One ISP service exchange: operation, command@channel ("-": no channel key),
// content length, whether it waits without bound, and whether a read's block
// went out as malloc gave it (every allocation is filled with 0xa5) rather
// than zero-filled.
std::string Shown(const doubles::SrvRequest& r)
{
    static const char* const kOps[] = {"reset", "create", "read", "write"};
    const auto all = [&r](uint8_t b) {
        return std::count(r.content.begin(), r.content.end(), b) == std::ssize(r.content);
    };
    const char* fill = r.op != 2 || all(0) ? "" : all(0xa5) ? " as allocated" : " mixed";
    return std::string(kOps[r.op]) + " " + std::to_string(r.command) + "@" +
           (r.hasChannel ? std::to_string(r.channel) : "-") + " " + std::to_string(r.content.size()) +
           (r.timed ? "" : " untimed") + fill;
}

struct ExchangeCase {
    const char* name;
    Flow flow;
    const char* url;
    std::vector<std::string> service = {};   // ISP service exchanges
    std::vector<std::string> commands = {};  // control-process commands and ability queries
    friend void PrintTo(const ExchangeCase& c, std::ostream* os) { *os << c.name; }
};

const ExchangeCase kExchanges[] = {
    {.name = "FakeRatioReadsNoChannelId", .flow = kFakeRatio, .url = "/isp", .service = {"read 28@0 608"}},
    {.name = "Capability",
     .flow = kCapability,
     .url = "/isp?ChannelId=104",
     .service = {"read 5@0 40"},
     .commands = {"ability 101/0"}},
    {.name = "AfStatus", .flow = kAfStatus, .url = "/isp?ChannelId=105", .service = {"read 17@0 1240"}},
    {.name = "AfPlaneGet", .flow = kAfPlaneGet, .url = "/isp?ChannelId=102", .service = {"read 17@1 1240"}},
    {.name = "AfPlanePut",
     .flow = kAfPlanePut,
     .url = "/isp?ChannelId=101",
     .service = {"read 17@0 1240 as allocated", "write 17@0 1240"}},
    {.name = "AwbGet", .flow = kAwbGet, .url = "/isp?ChannelId=7", .commands = {"read 3231 client"}},
    {.name = "AwbPut", .flow = kAwbPut, .url = "/isp?ChannelId=7", .commands = {"read 3231 sock", "write 3231 client"}},
    {.name = "ExtreGet", .flow = kExtreGet, .url = "/isp?ChannelId=0", .commands = {"read 3229 client"}},
    {.name = "ExtrePut",
     .flow = kExtrePut,
     .url = "/isp?ChannelId=7",
     .commands = {"read 3229 sock", "write 3229 client"}},
    {.name = "Lock", .flow = kLock, .url = "/isp?ChannelId=103", .service = {"create 16@2 4 untimed"}},
    {.name = "LockChannelWrapsBelow101",
     .flow = kLock,
     .url = "/isp?ChannelId=100",
     .service = {"create 16@4294967295 4 untimed"}},
    {.name = "ThermalGet", .flow = kThermalGet, .url = "/isp?ChannelId=102", .service = {"read 25@2 100"}},
    {.name = "ThermalPut",
     .flow = kThermalPut,
     .url = "/isp?ChannelId=102",
     .service = {"read 25@2 100 as allocated", "write 25@2 100"}},
    {.name = "RestoreReadsNoChannelId", .flow = kRestore, .url = "/isp", .service = {"write 27@- 0 untimed"}},
    {.name = "ResetThermal", .flow = kResetThermal, .url = "/isp?ChannelId=102", .service = {"reset 25@1 0 untimed"}},
    {.name = "ResetFog",
     .flow = kResetFog,
     .url = "/isp?ChannelId=103",
     .service = {"read 7@2 16 as allocated", "write 7@2 16"},
     .commands = {"read 3213 client"}},
    {.name = "ResetSpeed",
     .flow = kResetSpeed,
     .url = "/isp?ChannelId=5",
     .commands = {"read 3213 client", "write 3210 client"}},
    {.name = "ResetBacklight",
     .flow = kResetBacklight,
     .url = "/isp?ChannelId=103",
     .service = {"read 6@2 16", "write 6@2 16"},
     .commands = {"read 3213 client"}},
};

class Exchanges : public Stages, public testing::WithParamInterface<ExchangeCase> {};

// Every command goes to the control process's path without time-out, with
// the channel field 101 whatever ChannelId says, and leaves a trace line.
TEST_P(Exchanges, OfEachRequest)
{
    const ExchangeCase& c = GetParam();
    Request req("PUT", c.url, kBody);
    tagUNIX_SOCKET_S clientSock{};
    req.client.pstSynSock = &clientSock;
    doubles::FillAllocations(0xa5);
    EXPECT_EQ(doubles::Perform(c.flow, req).result, 0);
    std::vector<std::string> service, commands, traces;
    for (const auto& r : Isp().requests) {
        service.push_back(Shown(r));
        // The library's own top bit survives; the reserved byte goes out zero.
        EXPECT_EQ(r.opTopBit, 0x80) << Shown(r);
        EXPECT_EQ(r.reserved, 0) << Shown(r);
        EXPECT_EQ(r.timeout, r.timed ? 15000 : -1) << Shown(r);
    }
    for (const auto& [channel, query] : Control().abilityQueries) {
        commands.push_back("ability " + std::to_string(channel) + "/" + std::to_string(query));
    }
    for (const doubles::CmdSent& s : Control().sent) {
        commands.push_back((s.type == 0 ? "read " : "write ") + std::to_string(s.code) +
                           (s.sock == &req.sock     ? " sock"
                            : s.sock == &clientSock ? " client"
                                                    : " other"));
        EXPECT_EQ(s.path, "/tmp/A");
        EXPECT_EQ(s.timeout, 0u);
        EXPECT_EQ(doubles::GetAt<uint64_t>(s.body.data(), 0), 101u);
        traces.push_back(": httpReq[PUT " + std::string(c.url) + "] sendCmd[" + std::to_string(s.code) + "] recvMsg[" +
                         std::to_string(s.code + 1) + "] Result[0]");
    }
    EXPECT_EQ(service, c.service);
    EXPECT_EQ(commands, c.commands);
    // A success writes no diagnostic but these traces (and the lock's body).
    if (c.flow.parse == kLock.parse) {
        traces.insert(traces.begin(), std::string("[KXAPI]:ParsePutIspIaasAEExpLock,JsonData:") + kBody);
    }
    std::vector<std::string> traced;
    for (const doubles::Diag& d : Diags()) {
        const bool command = d.format == "[KXAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]";
        traced.push_back(command ? d.text.substr(d.text.find(": httpReq")) : d.text);
    }
    EXPECT_EQ(traced, traces);
}

INSTANTIATE_TEST_SUITE_P(Requests, Exchanges, testing::ValuesIn(kExchanges),
                         [](const testing::TestParamInfo<ExchangeCase>& info) { return std::string(info.param.name); });

// ---- ChannelId rule --------------------------------------------------------

struct ChannelCase {
    AnyStage stage;
    const char* url;
    int result;
    bool configFirst = false;  // the adaptation configuration is read before the rule is applied
};

// Left as written: clang-format cannot lay out a macro that expands to
// several braced rows.
// clang-format off
#define CHANNEL_CASES(kind, fn, first)                                                        \
    {.stage = STAGE(kind, fn), .url = "/isp", .result = 3, .configFirst = first},             \
    {.stage = STAGE(kind, fn), .url = "/isp?ChannelId=x", .result = 3, .configFirst = first}, \
    {.stage = STAGE(kind, fn), .url = "/isp?ChannelId=-1", .result = -1, .configFirst = first}
// clang-format on

const ChannelCase kChannels[] = {
    CHANNEL_CASES(run, RunGetIspIaasAfStatus, false),
    CHANNEL_CASES(run, RunGetIspIaasAfPlanePoint, false),
    CHANNEL_CASES(run, RunGetIspIaasCapability, false),
    CHANNEL_CASES(run, RunGetIspIaasAwb, false),
    CHANNEL_CASES(preProc, PreProcPutIspIaasAwb, false),
    CHANNEL_CASES(run, RunPutIspIaasAwb, false),
    CHANNEL_CASES(run, RunGetIspIaasExtreColor, false),
    CHANNEL_CASES(preProc, PreProcPutIspIaasExtreColor, false),
    CHANNEL_CASES(run, RunPutIspIaasExtreColor, false),
    CHANNEL_CASES(preProc, PreProcPutIspIaasAfPlanePoint, false),
    CHANNEL_CASES(run, RunPutIspIaasResetSpeedAdapt, false),
    CHANNEL_CASES(run, RunPutIspIaasResetFogAdapt, true),
    CHANNEL_CASES(run, RunPutIspIaasResetBackLightAdapt, true),
    CHANNEL_CASES(run, RunGetIspIaasThermal, false),
    CHANNEL_CASES(preProc, PreProcPutIspIaasThermal, false),
    CHANNEL_CASES(run, RunPutIspIaasThermal, false),
    {.stage = STAGE(run, RunGetIspIaasThermal), .url = "/isp?ChannelId=0", .result = -1},
    {.stage = STAGE(preProc, PreProcPutIspIaasThermal), .url = "/isp?ChannelId=101", .result = -1},
    {.stage = STAGE(run, RunPutIspIaasThermal), .url = "/isp?ChannelId=103", .result = -1},
    // The thermal reset counts an unreadable ChannelId as a refused request.
    {.stage = STAGE(run, RunPutIspIaasResetThermal), .url = "/isp", .result = 4},
    {.stage = STAGE(run, RunPutIspIaasResetThermal), .url = "/isp?ChannelId=101", .result = -1},
    // Read unsigned: a negative value is unreadable.
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint), .url = "/isp", .result = 3},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint), .url = "/isp?ChannelId=-1", .result = 3},
    {.stage = STAGE(run, RunPutIspIaasAEExpLock), .url = "/isp", .result = 3},
    {.stage = STAGE(run, RunPutIspIaasAEExpLock), .url = "/isp?ChannelId=-1", .result = 3},
};

// A refused ChannelId ends the stage with its result and its one diagnostic
// (after the configuration read's trace where that comes first): nothing
// else is sent, no slot is hung, and no operation-log entry is written.
TEST_F(Stages, ChannelIdMustBeReadableAndInRange)
{
    for (const ChannelCase& c : kChannels) {
        Install();
        Request req("PUT", c.url, "{}");
        const std::string name = c.stage.name, url = c.url;
        EXPECT_EQ(doubles::Invoke(c.stage, req), c.result) << name << " " << url;
        std::vector<std::string> expected, texts;
        if (c.configFirst) {
            expected.push_back("[KXAPI]:" + name + ": httpReq[PUT " + url + "] sendCmd[3213] recvMsg[3214] Result[0]");
        }
        expected.push_back(c.result == -1 ? "[KXAPI]:" + url.substr(url.find('=') + 1) + ": nChannelID Error"
                                          : "[KXAPI]:" + name + ", Query param get failed");
        for (const doubles::Diag& d : Diags()) {
            texts.push_back(d.text);
        }
        EXPECT_EQ(texts, expected) << name << " " << url;
        EXPECT_EQ(Control().sent.size(), c.configFirst ? 1u : 0u) << name << " " << url;
        EXPECT_EQ(Isp().opens, 0) << name;
        EXPECT_TRUE(req.Slot(0) == nullptr && req.Slot(1) == nullptr && req.Slot(2) == nullptr) << name;
        EXPECT_TRUE(doubles::OpLogs().empty()) << name << " " << url;
    }
}

// ---- Failures ----------------------------------------------------------------

using Arm = std::function<void(Request&)>;
Arm Fail(Call call, int nth = 1, int code = 34)
{
    return [=](Request&) { doubles::FailNth(call, nth, code); };
}
Arm SrvFails(doubles::SrvStep step = SrvStep::Recv)
{
    return [=](Request&) { Isp().failStep = step; };
}
// The service answers every request with `status` and `extra` bytes more
// (or, negative, fewer) than were sent.
Arm Answers(uint16_t status, int extra)
{
    return [=](Request&) {
        Isp().answer = [=](const doubles::SrvRequest& r) {
            return doubles::SrvReply{status, std::vector<uint8_t>(r.content.size() + extra, 7)};
        };
    };
}
Arm Unsent(int code)
{
    return [=](Request&) { Control().unsent = {code}; };
}
Arm Refused(int code, int result)
{
    return [=](Request&) { Control().results[code] = result; };
}
Arm WritesRefused()
{
    return [](Request&) { WritesFail(); };
}

// An operation-log entry's English and Chinese texts after the identity.
struct Entry {
    const char* en;
    const char* cn;
};
const Entry kRestoreFail = {"Restore ISP Default Param Fail.", "ISP恢复默认参数失败."};
const Entry kResetThermalFail = {"Reset ISP Thermal Param Fail.", "ISP热成像重置失败."};
// The Chinese failure text of the fog reset names another word than its
// success text.
const Entry kFogFail = {"Reset ISP Fog Adapt Param Fail.", "ISP透气自适应重置失败."};
const Entry kBacklightFail = {"Reset ISP Backlight Adapt Param Fail.", "ISP背光自适应重置失败."};
const Entry kSpeedFail = {"Reset ISP Speed Adapt Param Fail.", "ISP速度（拖影）自适应重置失败."};
const Entry kSpeedDone = {"Reset ISP Speed Adapt Param Successfully. ", "ISP速度（拖影）自适应重置成功. "};

struct FailureCase {
    AnyStage stage;  // the stages before it in its request run first
    Arm arm;
    int result;
    const char* diag;                           // every diagnostic in order, split by '|'; "{}": the stage's name
    std::optional<Entry> entry = std::nullopt;  // the entry the stage writes, if any
};

#define kMalloc "[KXAPI]:{}: malloc fail, response for req[PUT /isp?ChannelId=102]"
#define kMemset "[KXAPI]:{}: memset_s failed"
#define kMemcpy "[KXAPI]:{}: memcpy_s failed"
#define kGet "[KXAPI]:{}: GetIspSrvData failed"
#define kSet "[KXAPI]:{}: SetIspSrvData failed"
#define kReset "[KXAPI]:{}: ResetIspSrvData failed"
#define kReadRecv "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9000,err:5,ret:-1\n|"
#define kWriteRecv "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9001,err:5,ret:-1 \n|"
#define kCode "[KXAPI]:wiro_code failed \n|"
#define kScratch "[KXAPI]:[memset_s] expect Ret 0, actual Ret 34."
#define kHttpReq "httpReq[PUT /isp?ChannelId=102] "
#define kTrace(code, next) "[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[0]"
#define kTraced(code, next) kTrace(code, next) "|"

// Left as written: clang-format cannot lay out a macro that expands to
// several braced rows.
// clang-format off
#define READ_FAILURES(fn, blockFill)                                                                    \
    {.stage = STAGE(run, fn), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},                \
    {.stage = STAGE(run, fn), .arm = Fail(Call::MemsetS), .result = 1, .diag = kMemset},            \
    {.stage = STAGE(run, fn), .arm = Fail(Call::MemsetS, blockFill), .result = 1, .diag = kMemset}, \
    {.stage = STAGE(run, fn), .arm = SrvFails(), .result = 1, .diag = kReadRecv kGet}
#define COMMAND_FAILURES(kind, fn, code, next)                                           \
    {.stage = STAGE(kind, fn), .arm = Refused(code, 5), .result = 5,                     \
     .diag = "[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[5]"}, \
    {.stage = STAGE(kind, fn), .arm = Unsent(code), .result = 1,                     \
         .diag = "[KXAPI]:Send SynUnixMsg for Getting cmd[" #code "] failed"},           \
    {.stage = STAGE(kind, fn), .arm = Fail(Call::MemsetS, 1), .result = 0,           \
         .diag = kScratch "|" kTrace(code, next)},                                       \
    {.stage = STAGE(kind, fn), .arm = Fail(Call::MemsetS, 2), .result = 0, .diag = kScratch "|" kTrace(code, next)}

// The adaptation configuration read: refused (-1) or not sent (1), no entry.
#define CONFIG_FAILURES(fn)                                                    \
    {.stage = STAGE(run, fn), .arm = Refused(3213, 6), .result = -1,           \
     .diag = "[KXAPI]:{}: " kHttpReq "sendCmd[3213] recvMsg[3214] Result[6]"}, \
    {.stage = STAGE(run, fn), .arm = Unsent(3213), .result = 1,            \
         .diag = "[KXAPI]:Send SynUnixMsg for Getting cmd[3213] failed"}
// An adaptation block's read and its write, each failing with the reset's
// failure entry; a block that was not read is not written back.
#define ADAPT_BLOCK_FAILURES(fn, failed)                                                                       \
    {.stage = STAGE(run, fn), .arm = SrvFails(), .result = 1, .diag = kTraced(3213, 3214) kReadRecv kGet,      \
     .entry = failed},                                                                                         \
    {.stage = STAGE(run, fn), .arm = WritesRefused(), .result = 1, .diag = kTraced(3213, 3214) kCode kSet, \
         .entry = failed}
// clang-format on

const FailureCase kFailures[] = {
    READ_FAILURES(RunGetIspIaasFakeRatio, 2),
    READ_FAILURES(RunGetIspIaasAfStatus, 2),
    READ_FAILURES(RunGetIspIaasAfPlanePoint, 2),
    READ_FAILURES(RunGetIspIaasThermal, 2),
    READ_FAILURES(RunGetIspIaasCapability, 3),  // the record, the ability record, the block
    {.stage = STAGE(run, RunGetIspIaasCapability), .arm = Fail(Call::MemsetS, 2), .result = 1, .diag = kMemset},
    {.stage = STAGE(run, RunGetIspIaasCapability),
     .arm = [](Request&) { Control().abilityFails = true; },
     .result = 1,
     .diag = "[KXAPI]:{}: get device ability failed"},
    {.stage = STAGE(preProc, PreProcPutIspIaasThermal), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},
    {.stage = STAGE(preProc, PreProcPutIspIaasThermal), .arm = SrvFails(), .result = 1, .diag = kReadRecv kGet},
    {.stage = STAGE(parse, ParsePutIspIaasThermal), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},
    {.stage = STAGE(run, RunPutIspIaasThermal), .arm = Fail(Call::MemsetS), .result = 1, .diag = kMemset},
    {.stage = STAGE(run, RunPutIspIaasThermal), .arm = SrvFails(), .result = 1, .diag = kWriteRecv kSet},
    // The block is zero-filled before the correction values are checked.
    {.stage = STAGE(run, RunPutIspIaasThermal),
     .arm =
         [](Request& r) {
             static_cast<_ThermalInfo*>(r.Slot(1))->correctData.autoModeData.correctTime = 7;
             doubles::FailNth(Call::MemsetS, 1);
         },
     .result = 1,
     .diag = kMemset},
    {.stage = STAGE(preProc, PreProcPutIspIaasAfPlanePoint), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},
    {.stage = STAGE(preProc, PreProcPutIspIaasAfPlanePoint), .arm = SrvFails(), .result = 1, .diag = kReadRecv kGet},
    {.stage = STAGE(parse, ParsePutIspIaasAfPlanePoint), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},
    {.stage = STAGE(parse, ParsePutIspIaasAfPlanePoint), .arm = Fail(Call::MemsetS), .result = 1, .diag = kMemset},
    // The copy into the zero-filled record counts as a scratch copy.
    {.stage = STAGE(parse, ParsePutIspIaasAfPlanePoint),
     .arm = Fail(Call::MemcpyS, 1, 54),
     .result = 0,
     .diag = "[KXAPI]:[memcpy_s] expect Ret 0, actual Ret 54."},
    // Each step of the service exchange: a read, a write, and an untimed reset.
    {.stage = STAGE(run, RunGetIspIaasFakeRatio),
     .arm = SrvFails(SrvStep::Open),
     .result = 1,
     .diag = "[KXAPI]:open /mnt/srvfs/isp.iaas.qtn srv fail, Error: 2, No such file or directory\n|" kGet},
    {.stage = STAGE(run, RunGetIspIaasFakeRatio),
     .arm = SrvFails(SrvStep::New),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_new failed \n|" kGet},
    {.stage = STAGE(run, RunGetIspIaasFakeRatio),
     .arm = SrvFails(SrvStep::HeaderSet),
     .result = 1,
     .diag = "[KXAPI]:wiro_header_set failed \n|" kGet},
    {.stage = STAGE(run, RunGetIspIaasFakeRatio),
     .arm = SrvFails(SrvStep::Send),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9000,err:5,ret:-1\n|" kGet},
    {.stage = STAGE(run, RunGetIspIaasFakeRatio),
     .arm = Answers(200, -1),
     .result = 1,
     .diag = "[KXAPI]:wiro_content_copy failed \n|" kGet},
    {.stage = STAGE(run, RunGetIspIaasFakeRatio), .arm = Answers(404, 0), .result = 1, .diag = kCode kGet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint),
     .arm = SrvFails(SrvStep::New),
     .result = 1,
     .diag = "[KXAPI]:new send msg failed \n|" kSet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint),
     .arm = SrvFails(SrvStep::ContentAdd),
     .result = 1,
     .diag = "[KXAPI]:wiro_content_append failed \n|" kSet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint),
     .arm = SrvFails(SrvStep::Send),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9001,err:5,ret:-1 \n|" kSet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint), .arm = SrvFails(), .result = 1, .diag = kWriteRecv kSet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint),
     .arm = Answers(200, 1),
     .result = 1,
     .diag = "[KXAPI]:wiro_content_copy failed \n|" kSet},
    {.stage = STAGE(run, RunPutIspIaasAfPlanePoint), .arm = Answers(0, 0), .result = 1, .diag = kCode kSet},
    {.stage = STAGE(run, RunPutIspIaasRestoreDefaultParams),
     .arm = SrvFails(SrvStep::Send),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_sendfd failed \n|" kReset,
     .entry = kRestoreFail},
    {.stage = STAGE(run, RunPutIspIaasRestoreDefaultParams),
     .arm = SrvFails(),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_recvfd failed \n|" kReset,
     .entry = kRestoreFail},
    {.stage = STAGE(run, RunPutIspIaasRestoreDefaultParams),
     .arm = WritesRefused(),
     .result = 1,
     .diag = kCode kReset,
     .entry = kRestoreFail},
    {.stage = STAGE(run, RunPutIspIaasResetThermal),
     .arm = SrvFails(),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_recvfd failed \n|" kReset,
     .entry = kResetThermalFail},
    // The two resets name a failed message creation differently.
    {.stage = STAGE(run, RunPutIspIaasRestoreDefaultParams),
     .arm = SrvFails(SrvStep::New),
     .result = 1,
     .diag = "[KXAPI]:new send msg failed \n|" kReset,
     .entry = kRestoreFail},
    {.stage = STAGE(run, RunPutIspIaasResetThermal),
     .arm = SrvFails(SrvStep::New),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_new failed \n|" kReset,
     .entry = kResetThermalFail},
    {.stage = STAGE(parse, ParsePutIspIaasAEExpLock),
     .arm = Fail(Call::Calloc),
     .result = 18,
     .diag = "[KXAPI]:{}: calloc fail, response for req[PUT /isp?ChannelId=102]"},
    {.stage = STAGE(run, RunPutIspIaasAEExpLock),
     .arm = SrvFails(),
     .result = 1,
     .diag = "[KXAPI]:wiro_message_recvfd failed \n|[KXAPI]:{}: CreateIspSrvData failed"},
    COMMAND_FAILURES(run, RunGetIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(preProc, PreProcPutIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(run, RunPutIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(run, RunGetIspIaasExtreColor, 3229, 3230),
    COMMAND_FAILURES(preProc, PreProcPutIspIaasExtreColor, 3229, 3230),
    COMMAND_FAILURES(run, RunPutIspIaasExtreColor, 3229, 3230),
    {.stage = STAGE(run, RunGetIspIaasAwb),
     .arm = Fail(Call::Malloc),
     .result = 18,
     .diag = kTraced(3231, 3232) kMalloc},
    {.stage = STAGE(preProc, PreProcPutIspIaasAwb),
     .arm = Fail(Call::Malloc),
     .result = 18,
     .diag = kTraced(3231, 3232) kMalloc},
    {.stage = STAGE(preProc, PreProcPutIspIaasAwb),
     .arm = Fail(Call::MemcpyS),
     .result = 1,
     .diag = kTraced(3231, 3232) kMemcpy},
    {.stage = STAGE(parse, ParsePutIspIaasAwb), .arm = Fail(Call::Malloc), .result = 18, .diag = kMalloc},
    {.stage = STAGE(run, RunGetIspIaasExtreColor),
     .arm = Fail(Call::Malloc),
     .result = 18,
     .diag = kTraced(3229, 3230) kMalloc},
    {.stage = STAGE(preProc, PreProcPutIspIaasExtreColor),
     .arm = Fail(Call::MemcpyS),
     .result = 1,
     .diag = kTraced(3229, 3230) kMemcpy},
    CONFIG_FAILURES(RunPutIspIaasResetFogAdapt),
    ADAPT_BLOCK_FAILURES(RunPutIspIaasResetFogAdapt, kFogFail),
    CONFIG_FAILURES(RunPutIspIaasResetBackLightAdapt),
    ADAPT_BLOCK_FAILURES(RunPutIspIaasResetBackLightAdapt, kBacklightFail),
    CONFIG_FAILURES(RunPutIspIaasResetSpeedAdapt),
    // The set command: not sent, the failure entry; refused, its Result
    // after the success entry.
    {.stage = STAGE(run, RunPutIspIaasResetSpeedAdapt),
     .arm = Unsent(3210),
     .result = 1,
     .diag = kTraced(3213, 3214) "[KXAPI]:Send SynUnixMsg for Getting cmd[3210] failed",
     .entry = kSpeedFail},
    {.stage = STAGE(run, RunPutIspIaasResetSpeedAdapt),
     .arm = Refused(3210, 7),
     .result = 7,
     .diag = kTraced(3213, 3214) "[KXAPI]:{}: " kHttpReq "sendCmd[3210] recvMsg[3211] Result[7]",
     .entry = kSpeedDone},
    {.stage = STAGE(run, RunPutIspIaasResetFogAdapt),
     .arm = Fail(Call::Malloc),
     .result = 18,
     .diag = kTraced(3213, 3214) kMalloc},
    // The command's reply, its body, then the block.
    {.stage = STAGE(run, RunPutIspIaasResetBackLightAdapt),
     .arm = Fail(Call::MemsetS, 3),
     .result = 1,
     .diag = kTraced(3213, 3214) kMemset},
};

// Each failure ends its stage with its result, all its diagnostics in order
// and its entry or none, leaves every slot as it was, and frees what the
// stage took (ASan).
TEST_F(Stages, FailuresLeaveTheSlotsAsTheyWere)
{
    for (const FailureCase& c : kFailures) {
        Install();
        Request req("PUT", kUrl, kBody);
        ASSERT_EQ(doubles::Perform(Before(c.stage), req).result, 0) << c.stage.name;
        const std::array<void*, 3> slots = {req.Slot(0), req.Slot(1), req.Slot(2)};
        c.arm(req);
        doubles::ClearLogs();
        EXPECT_EQ(doubles::Invoke(c.stage, req), c.result) << c.stage.name << " " << c.diag;
        if (c.result != 0) {
            EXPECT_TRUE((std::array<void*, 3>{req.Slot(0), req.Slot(1), req.Slot(2)} == slots)) << c.stage.name;
        }
        std::string expected = c.diag, texts;
        for (size_t at; (at = expected.find("{}")) != std::string::npos;) {
            expected.replace(at, 2, c.stage.name);
        }
        for (const doubles::Diag& d : Diags()) {
            texts += (texts.empty() ? "" : "|") + d.text;
        }
        EXPECT_EQ(texts, expected) << c.stage.name;
        std::vector<std::string> entries, expectedEntries;
        for (const doubles::OpLog& entry : doubles::OpLogs()) {
            entries.push_back(std::to_string(entry.channel) + " " + entry.en + "|" + entry.cn);
        }
        for (const char* channel : {"2 ", "1 "}) {
            if (c.entry) {
                expectedEntries.push_back(channel + kWho + c.entry->en + "|" + kWho + c.entry->cn);
            }
        }
        EXPECT_EQ(entries, expectedEntries) << c.stage.name << " " << c.diag;
    }
}

// ---- Refused bodies ----------------------------------------------------------

// Bytes of the current-settings record each PUT's PreProc hangs.
size_t CurrentSize(const Flow& flow)
{
    return flow.preProc == kAwbPut.preProc       ? at::kAwbPayload
           : flow.preProc == kExtrePut.preProc   ? at::kExtrePayload
           : flow.preProc == kAfPlanePut.preProc ? at::kAfBlock
           : flow.preProc == kThermalPut.preProc ? at::kThermalBlock
                                                 : 0;
}

// A body the Parse stage cannot take (the codec refuses each JSON type in
// its own table): 4 and "json decode fail" in its name, no request record,
// the current settings as read, nothing written, no entry and no response.
TEST_F(Stages, RefusedBodiesChangeNothing)
{
    const std::string t256(256, '1');
    const std::pair<Flow, std::string> cases[] = {
        {kAwbPut, R"({"regionAwbAttr": {"roiWeightArray": 1}})"},
        {kAwbPut, "{"},
        {kAwbPut, R"({"regionAwbAttr": {"roiWeightArray": ")" + t256 + R"("}})"},
        {kExtrePut, R"({"fusionStrength": "7"})"},
        {kExtrePut, "fusionStrength"},
        {kLock, R"({"enable": "true"})"},
        {kLock, R"({"enable": [1]})"},
        {kLock, R"({"enable": {}})"},
        {kLock, "enable"},
        {kAfPlanePut, R"({"enable": "yes"})"},
        {kAfPlanePut, R"({"planePoints": {}})"},
        {kAfPlanePut, ""},
        {kAfPlanePut, R"({"planePoints": [{"planePointY": "1"}]})"},
        {kThermalPut, "null"},
        {kThermalPut, R"({"basicData": {"contrast": "x"}})"},
        {kThermalPut, R"({"correctData": {"autoModeData": {"correctTime": "00:30"}}})"},
    };
    for (const auto& [flow, body] : cases) {
        Install();
        Request req("PUT", kUrl, body.c_str());
        ASSERT_EQ(flow.preProc == nullptr || flow.preProc(&req.header, &req.sock, &req.ctx) == 0, true);
        const size_t size = CurrentSize(flow);
        const std::vector<uint8_t> current(static_cast<uint8_t*>(req.Slot(0)),
                                           static_cast<uint8_t*>(req.Slot(0)) + size);
        doubles::ClearLogs();
        const doubles::Outcome o = doubles::Perform({.parse = flow.parse, .run = flow.run, .format = flow.format}, req);
        EXPECT_EQ(o.result, 4) << body;
        EXPECT_EQ(o.formatted, -1) << body;
        // The refusal alone: a body traced on success is not traced here.
        EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{"[KXAPI]:%s[%d] json decode fail\n"}) << body;
        EXPECT_EQ(Diags().back().text.find("[KXAPI]:ParsePutIspIaas"), 0u) << body;
        EXPECT_EQ(req.Slot(1), nullptr) << body;
        EXPECT_EQ(std::vector<uint8_t>(static_cast<uint8_t*>(req.Slot(0)), static_cast<uint8_t*>(req.Slot(0)) + size),
                  current)
            << body;
        EXPECT_EQ(Control().sent.size(), size_t{flow.preProc == kAwbPut.preProc || flow.preProc == kExtrePut.preProc});
        EXPECT_EQ(Isp().requests.size(),
                  size_t{flow.preProc == kAfPlanePut.preProc || flow.preProc == kThermalPut.preProc});
        EXPECT_TRUE(doubles::OpLogs().empty()) << body;
        EXPECT_EQ(req.Response(), "") << body;
    }
}

}  // namespace
