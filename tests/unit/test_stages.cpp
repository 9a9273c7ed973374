// What the stages of every resource do the same way, one table each: the
// exchanges a request makes, the ChannelId rule, failures of allocation,
// fills and services, refused bodies, and the blocks that go out for reads.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>

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
    const auto all = [&r](uint8_t b) { return std::count(r.content.begin(), r.content.end(), b) == std::ssize(r.content); };
    const char* fill = r.op != 2 || all(0) ? "" : all(0xa5) ? " as allocated" : " mixed";
    return std::string(kOps[r.op]) + " " + std::to_string(r.command) + "@" +
           (r.hasChannel ? std::to_string(r.channel) : "-") + " " + std::to_string(r.content.size()) +
           (r.timed ? "" : " untimed") + fill;
}

struct ExchangeCase {
    const char* name;
    Flow flow;
    const char* url;
    std::vector<std::string> service;   // ISP service exchanges
    std::vector<std::string> commands;  // control-process commands and ability queries
    friend void PrintTo(const ExchangeCase& c, std::ostream* os) { *os << c.name; }
};

const ExchangeCase kExchanges[] = {
    {"FakeRatioReadsNoChannelId", kFakeRatio, "/isp", {"read 28@0 608"}, {}},
    {"Capability", kCapability, "/isp?ChannelId=104", {"read 5@0 40"}, {"ability 101/0"}},
    {"AfStatus", kAfStatus, "/isp?ChannelId=105", {"read 17@0 1240"}, {}},
    {"AfPlaneGet", kAfPlaneGet, "/isp?ChannelId=102", {"read 17@1 1240"}, {}},
    {"AfPlanePut", kAfPlanePut, "/isp?ChannelId=101", {"read 17@0 1240 as allocated", "write 17@0 1240"}, {}},
    {"AwbGet", kAwbGet, "/isp?ChannelId=7", {}, {"read 3231 client"}},
    {"AwbPut", kAwbPut, "/isp?ChannelId=7", {}, {"read 3231 sock", "write 3231 client"}},
    {"ExtreGet", kExtreGet, "/isp?ChannelId=0", {}, {"read 3229 client"}},
    {"ExtrePut", kExtrePut, "/isp?ChannelId=7", {}, {"read 3229 sock", "write 3229 client"}},
    {"Lock", kLock, "/isp?ChannelId=103", {"create 16@2 4 untimed"}, {}},
    {"LockChannelWrapsBelow101", kLock, "/isp?ChannelId=100", {"create 16@4294967295 4 untimed"}, {}},
    {"ThermalGet", kThermalGet, "/isp?ChannelId=102", {"read 25@2 100"}, {}},
    {"ThermalPut", kThermalPut, "/isp?ChannelId=102", {"read 25@2 100 as allocated", "write 25@2 100"}, {}},
    {"RestoreReadsNoChannelId", kRestore, "/isp", {"write 27@- 0 untimed"}, {}},
    {"ResetThermal", kResetThermal, "/isp?ChannelId=102", {"reset 25@1 0 untimed"}, {}},
    {"ResetFog", kResetFog, "/isp?ChannelId=103", {"read 7@2 16 as allocated", "write 7@2 16"}, {"read 3213 client"}},
    {"ResetSpeed", kResetSpeed, "/isp?ChannelId=5", {}, {"read 3213 client", "write 3210 client"}},
    {"ResetBacklight", kResetBacklight, "/isp?ChannelId=103", {"read 6@2 16", "write 6@2 16"}, {"read 3213 client"}},
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
                           (s.sock == &req.sock ? " sock" : s.sock == &clientSock ? " client" : " other"));
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
    size_t commandsBefore;  // commands sent before the rule is applied
};

// Left as written: clang-format cannot lay out a macro that expands to
// several braced rows.
// clang-format off
#define CHANNEL_CASES(kind, fn, ...) \
    {STAGE(kind, fn), "/isp", 3, __VA_ARGS__}, {STAGE(kind, fn), "/isp?ChannelId=x", 3, __VA_ARGS__}, \
    {STAGE(kind, fn), "/isp?ChannelId=-1", -1, __VA_ARGS__}
// clang-format on

const ChannelCase kChannels[] = {
    CHANNEL_CASES(run, RunGetIspIaasAfStatus, 0), CHANNEL_CASES(run, RunGetIspIaasAfPlanePoint, 0),
    CHANNEL_CASES(run, RunGetIspIaasCapability, 0), CHANNEL_CASES(run, RunGetIspIaasAwb, 0),
    CHANNEL_CASES(preProc, PreProcPutIspIaasAwb, 0), CHANNEL_CASES(run, RunPutIspIaasAwb, 0),
    CHANNEL_CASES(run, RunGetIspIaasExtreColor, 0), CHANNEL_CASES(preProc, PreProcPutIspIaasExtreColor, 0),
    CHANNEL_CASES(run, RunPutIspIaasExtreColor, 0), CHANNEL_CASES(preProc, PreProcPutIspIaasAfPlanePoint, 0),
    CHANNEL_CASES(run, RunPutIspIaasResetSpeedAdapt, 0), CHANNEL_CASES(run, RunPutIspIaasResetFogAdapt, 1),
    CHANNEL_CASES(run, RunPutIspIaasResetBackLightAdapt, 1),
    CHANNEL_CASES(run, RunGetIspIaasThermal, 0), CHANNEL_CASES(preProc, PreProcPutIspIaasThermal, 0),
    CHANNEL_CASES(run, RunPutIspIaasThermal, 0),
    {STAGE(run, RunGetIspIaasThermal), "/isp?ChannelId=0", -1, 0},
    {STAGE(preProc, PreProcPutIspIaasThermal), "/isp?ChannelId=101", -1, 0},
    {STAGE(run, RunPutIspIaasThermal), "/isp?ChannelId=103", -1, 0},
    // The thermal reset counts an unreadable ChannelId as a refused request.
    {STAGE(run, RunPutIspIaasResetThermal), "/isp", 4, 0},
    {STAGE(run, RunPutIspIaasResetThermal), "/isp?ChannelId=101", -1, 0},
    // Read unsigned: a negative value is unreadable.
    {STAGE(run, RunPutIspIaasAfPlanePoint), "/isp", 3, 0}, {STAGE(run, RunPutIspIaasAfPlanePoint), "/isp?ChannelId=-1", 3, 0},
    {STAGE(run, RunPutIspIaasAEExpLock), "/isp", 3, 0}, {STAGE(run, RunPutIspIaasAEExpLock), "/isp?ChannelId=-1", 3, 0},
};

TEST_F(Stages, ChannelIdMustBeReadableAndInRange)
{
    for (const ChannelCase& c : kChannels) {
        Install();
        Request req("PUT", c.url, "{}");
        EXPECT_EQ(doubles::Invoke(c.stage, req), c.result) << c.stage.name << " " << c.url;
        EXPECT_EQ(Control().sent.size(), c.commandsBefore) << c.stage.name << " " << c.url;
        EXPECT_EQ(Isp().opens, 0) << c.stage.name;
        EXPECT_TRUE(req.Slot(0) == nullptr && req.Slot(1) == nullptr && req.Slot(2) == nullptr) << c.stage.name;
        ASSERT_EQ(Diags().size(), c.commandsBefore + 1) << c.stage.name << " " << c.url;  // the commands' traces
        const std::string diag = Diags().back().text;
        if (c.result == -1) {
            EXPECT_EQ(diag, "[KXAPI]:" + std::string(std::strchr(c.url, '=') + 1) + ": nChannelID Error");
        } else {
            EXPECT_EQ(diag, "[KXAPI]:" + std::string(c.stage.name) + ", Query param get failed");
        }
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

struct FailureCase {
    Flow flow;  // the stages before `stage` run first
    AnyStage stage;
    Arm arm;
    int result;
    const char* diag;             // every diagnostic in order, split by '|'; "{}" stands for the stage's name
    const char* entry = nullptr;  // the English text of the failure entry the stage writes, if any
};

#define kMalloc "[KXAPI]:{}: malloc fail, response for req[PUT /isp?ChannelId=102]"
#define kMemset "[KXAPI]:{}: memset_s failed"
#define kMemcpy "[KXAPI]:{}: memcpy_s failed"
#define kGet "[KXAPI]:{}: GetIspSrvData failed"
#define kSet "[KXAPI]:{}: SetIspSrvData failed"
#define kReset "[KXAPI]:{}: ResetIspSrvData failed"
#define kReadRecv "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9000,err:5,ret:-1\n|"
#define kWriteRecv "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9001,err:5,ret:-1 \n|"
#define kScratch "[KXAPI]:[memset_s] expect Ret 0, actual Ret 34."
#define kHttpReq "httpReq[PUT /isp?ChannelId=102] "
#define kTraced(code, next) "[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[0]|"

// Left as written: clang-format cannot lay out a macro that expands to
// several braced rows.
// clang-format off
#define READ_FAILURES(flow, fn, blockFill)                                                    \
    {flow, STAGE(run, fn), Fail(Call::Malloc), 18, kMalloc}, {flow, STAGE(run, fn), Fail(Call::MemsetS), 1, kMemset}, \
    {flow, STAGE(run, fn), Fail(Call::MemsetS, blockFill), 1, kMemset}, {flow, STAGE(run, fn), SrvFails(), 1, kReadRecv kGet}
#define COMMAND_FAILURES(flow, kind, fn, code, next)                                                        \
    {flow, STAGE(kind, fn), Refused(code, 5), 5, "[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[5]"}, \
    {flow, STAGE(kind, fn), Unsent(code), 1, "[KXAPI]:Send SynUnixMsg for Getting cmd[" #code "] failed"},     \
    {flow, STAGE(kind, fn), Fail(Call::MemsetS, 1), 0, kScratch "|[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[0]"}, \
    {flow, STAGE(kind, fn), Fail(Call::MemsetS, 2), 0, kScratch "|[KXAPI]:{}: " kHttpReq "sendCmd[" #code "] recvMsg[" #next "] Result[0]"}

// The adaptation configuration read: refused (-1) or not sent (1), no entry.
#define ADAPT_FAILURES(flow, fn)                                                                               \
    {flow, STAGE(run, fn), Refused(3213, 6), -1, "[KXAPI]:{}: " kHttpReq "sendCmd[3213] recvMsg[3214] Result[6]"}, \
    {flow, STAGE(run, fn), Unsent(3213), 1, "[KXAPI]:Send SynUnixMsg for Getting cmd[3213] failed"}
// clang-format on

const FailureCase kFailures[] = {
    READ_FAILURES(kFakeRatio, RunGetIspIaasFakeRatio, 2),
    READ_FAILURES(kAfStatus, RunGetIspIaasAfStatus, 2),
    READ_FAILURES(kAfPlaneGet, RunGetIspIaasAfPlanePoint, 2),
    READ_FAILURES(kThermalGet, RunGetIspIaasThermal, 2),
    READ_FAILURES(kCapability, RunGetIspIaasCapability, 3),  // the record, the ability record, the block
    {kCapability, STAGE(run, RunGetIspIaasCapability), Fail(Call::MemsetS, 2), 1, kMemset},
    {kCapability, STAGE(run, RunGetIspIaasCapability), [](Request&) { Control().abilityFails = true; }, 1,
     "[KXAPI]:{}: get device ability failed"},
    {kThermalPut, STAGE(preProc, PreProcPutIspIaasThermal), Fail(Call::Malloc), 18, kMalloc},
    {kThermalPut, STAGE(preProc, PreProcPutIspIaasThermal), SrvFails(), 1, kReadRecv kGet},
    {kThermalPut, STAGE(parse, ParsePutIspIaasThermal), Fail(Call::Malloc), 18, kMalloc},
    {kThermalPut, STAGE(run, RunPutIspIaasThermal), Fail(Call::MemsetS), 1, kMemset},
    {kThermalPut, STAGE(run, RunPutIspIaasThermal), SrvFails(), 1, kWriteRecv kSet},
    // The block is zero-filled before the correction values are checked.
    {kThermalPut, STAGE(run, RunPutIspIaasThermal),
     [](Request& r) {
         static_cast<_ThermalInfo*>(r.Slot(1))->correctData.autoModeData.correctTime = 7;
         doubles::FailNth(Call::MemsetS, 1);
     },
     1, kMemset},
    {kAfPlanePut, STAGE(preProc, PreProcPutIspIaasAfPlanePoint), Fail(Call::Malloc), 18, kMalloc},
    {kAfPlanePut, STAGE(preProc, PreProcPutIspIaasAfPlanePoint), SrvFails(), 1, kReadRecv kGet},
    {kAfPlanePut, STAGE(parse, ParsePutIspIaasAfPlanePoint), Fail(Call::Malloc), 18, kMalloc},
    {kAfPlanePut, STAGE(parse, ParsePutIspIaasAfPlanePoint), Fail(Call::MemsetS), 1, kMemset},
    // The copy into the zero-filled record counts as a scratch copy.
    {kAfPlanePut, STAGE(parse, ParsePutIspIaasAfPlanePoint), Fail(Call::MemcpyS, 1, 54), 0,
     "[KXAPI]:[memcpy_s] expect Ret 0, actual Ret 54."},
    // Each step of the service exchange: a read, a write, and an untimed reset.
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), SrvFails(SrvStep::Open), 1,
     "[KXAPI]:open /mnt/srvfs/isp.iaas.qtn srv fail, Error: 2, No such file or directory\n|" kGet},
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), SrvFails(SrvStep::New), 1,
     "[KXAPI]:wiro_message_new failed \n|" kGet},
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), SrvFails(SrvStep::HeaderSet), 1,
     "[KXAPI]:wiro_header_set failed \n|" kGet},
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), SrvFails(SrvStep::Send), 1,
     "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9000,err:5,ret:-1\n|" kGet},
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), Answers(200, -1), 1, "[KXAPI]:wiro_content_copy failed \n|" kGet},
    {kFakeRatio, STAGE(run, RunGetIspIaasFakeRatio), Answers(404, 0), 1, "[KXAPI]:wiro_code failed \n|" kGet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), SrvFails(SrvStep::New), 1,
     "[KXAPI]:new send msg failed \n|" kSet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), SrvFails(SrvStep::ContentAdd), 1,
     "[KXAPI]:wiro_content_append failed \n|" kSet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), SrvFails(SrvStep::Send), 1,
     "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9001,err:5,ret:-1 \n|" kSet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), SrvFails(), 1, kWriteRecv kSet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), Answers(200, 1), 1, "[KXAPI]:wiro_content_copy failed \n|" kSet},
    {kAfPlanePut, STAGE(run, RunPutIspIaasAfPlanePoint), Answers(0, 0), 1, "[KXAPI]:wiro_code failed \n|" kSet},
    {kRestore, STAGE(run, RunPutIspIaasRestoreDefaultParams), SrvFails(SrvStep::Send), 1,
     "[KXAPI]:wiro_message_sendfd failed \n|" kReset, "Restore ISP Default Param Fail."},
    {kRestore, STAGE(run, RunPutIspIaasRestoreDefaultParams), SrvFails(), 1,
     "[KXAPI]:wiro_message_recvfd failed \n|" kReset, "Restore ISP Default Param Fail."},
    {kLock, STAGE(parse, ParsePutIspIaasAEExpLock), Fail(Call::Calloc), 18,
     "[KXAPI]:{}: calloc fail, response for req[PUT /isp?ChannelId=102]"},
    {kLock, STAGE(run, RunPutIspIaasAEExpLock), SrvFails(), 1,
     "[KXAPI]:wiro_message_recvfd failed \n|[KXAPI]:{}: CreateIspSrvData failed"},
    COMMAND_FAILURES(kAwbGet, run, RunGetIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(kAwbPut, preProc, PreProcPutIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(kAwbPut, run, RunPutIspIaasAwb, 3231, 3232),
    COMMAND_FAILURES(kExtreGet, run, RunGetIspIaasExtreColor, 3229, 3230),
    COMMAND_FAILURES(kExtrePut, preProc, PreProcPutIspIaasExtreColor, 3229, 3230),
    COMMAND_FAILURES(kExtrePut, run, RunPutIspIaasExtreColor, 3229, 3230),
    {kAwbGet, STAGE(run, RunGetIspIaasAwb), Fail(Call::Malloc), 18, kTraced(3231, 3232) kMalloc},
    {kAwbPut, STAGE(preProc, PreProcPutIspIaasAwb), Fail(Call::Malloc), 18, kTraced(3231, 3232) kMalloc},
    {kAwbPut, STAGE(preProc, PreProcPutIspIaasAwb), Fail(Call::MemcpyS), 1, kTraced(3231, 3232) kMemcpy},
    {kAwbPut, STAGE(parse, ParsePutIspIaasAwb), Fail(Call::Malloc), 18, kMalloc},
    {kExtreGet, STAGE(run, RunGetIspIaasExtreColor), Fail(Call::Malloc), 18, kTraced(3229, 3230) kMalloc},
    {kExtrePut, STAGE(preProc, PreProcPutIspIaasExtreColor), Fail(Call::MemcpyS), 1, kTraced(3229, 3230) kMemcpy},
    ADAPT_FAILURES(kResetFog, RunPutIspIaasResetFogAdapt), ADAPT_FAILURES(kResetSpeed, RunPutIspIaasResetSpeedAdapt),
    ADAPT_FAILURES(kResetBacklight, RunPutIspIaasResetBackLightAdapt),
    {kResetFog, STAGE(run, RunPutIspIaasResetFogAdapt), Fail(Call::Malloc), 18, kTraced(3213, 3214) kMalloc},
    // The command's reply, its body, then the block.
    {kResetBacklight, STAGE(run, RunPutIspIaasResetBackLightAdapt), Fail(Call::MemsetS, 3), 1,
     kTraced(3213, 3214) kMemset},
    // The two resets name a failed message creation differently.
    {kRestore, STAGE(run, RunPutIspIaasRestoreDefaultParams), SrvFails(SrvStep::New), 1,
     "[KXAPI]:new send msg failed \n|" kReset, "Restore ISP Default Param Fail."},
    {kResetThermal, STAGE(run, RunPutIspIaasResetThermal), SrvFails(SrvStep::New), 1,
     "[KXAPI]:wiro_message_new failed \n|" kReset, "Reset ISP Thermal Param Fail."},
};

// Each failure ends its stage with its result, all its diagnostics in order
// and its failure entry or none, leaves every slot as it was, and frees what
// the stage took (ASan).
TEST_F(Stages, FailuresLeaveTheSlotsAsTheyWere)
{
    for (const FailureCase& c : kFailures) {
        Install();
        Request req("PUT", kUrl, kBody);
        const bool afterPreProc = c.stage.parse != nullptr || (c.stage.run != nullptr && c.flow.parse != nullptr);
        doubles::Flow before{.preProc = afterPreProc ? c.flow.preProc : nullptr,
                             .parse = c.stage.run != nullptr ? c.flow.parse : nullptr};
        ASSERT_EQ(doubles::Perform(before, req).result, 0) << c.stage.name;
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
        std::vector<std::string> entries;
        for (const doubles::OpLog& entry : doubles::OpLogs()) {
            entries.push_back(entry.en);
        }
        EXPECT_EQ(entries, std::vector<std::string>(c.entry != nullptr ? 2 : 0, kWho + (c.entry ? c.entry : "")))
            << c.stage.name << " " << c.diag;
    }
}

// ---- Refused bodies ----------------------------------------------------------

// Bytes of the current-settings record each PUT's PreProc hangs.
size_t CurrentSize(const Flow& flow)
{
    return flow.preProc == kAwbPut.preProc ? AWB_PAYLOAD_LEN
         : flow.preProc == kExtrePut.preProc ? EXTRE_COLOR_PAYLOAD_LEN
         : flow.preProc == kAfPlanePut.preProc ? AF_BLOCK_SIZE
         : flow.preProc == kThermalPut.preProc ? THERMAL_BLOCK_SIZE : 0;
}

// A body the Parse stage cannot take (the codec refuses each JSON type in
// its own table): 4 and "json decode fail" in its name, no request record,
// the current settings as read, nothing written, no entry and no response.
TEST_F(Stages, RefusedBodiesChangeNothing)
{
    const std::string t256(256, '1');
    const std::pair<Flow, std::string> cases[] = {
        {kAwbPut, R"({"regionAwbAttr": {"roiWeightArray": 1}})"}, {kAwbPut, "{"},
        {kAwbPut, R"({"regionAwbAttr": {"roiWeightArray": ")" + t256 + R"("}})"},
        {kExtrePut, R"({"fusionStrength": "7"})"}, {kExtrePut, "fusionStrength"},
        {kLock, R"({"enable": "true"})"}, {kLock, R"({"enable": [1]})"}, {kLock, R"({"enable": {}})"}, {kLock, "enable"},
        {kAfPlanePut, R"({"enable": "yes"})"}, {kAfPlanePut, R"({"planePoints": {}})"}, {kAfPlanePut, ""},
        {kAfPlanePut, R"({"planePoints": [{"planePointY": "1"}]})"}, {kThermalPut, "null"},
        {kThermalPut, R"({"basicData": {"contrast": "x"}})"},
        {kThermalPut, R"({"correctData": {"autoModeData": {"correctTime": "00:30"}}})"},
    };
    for (const auto& [flow, body] : cases) {
        Install();
        Request req("PUT", kUrl, body.c_str());
        ASSERT_EQ(flow.preProc == nullptr || flow.preProc(&req.header, &req.sock, &req.ctx) == 0, true);
        const size_t size = CurrentSize(flow);
        const std::vector<uint8_t> current(static_cast<uint8_t*>(req.Slot(0)), static_cast<uint8_t*>(req.Slot(0)) + size);
        doubles::ClearLogs();
        const doubles::Outcome o = doubles::Perform({.parse = flow.parse, .run = flow.run, .format = flow.format}, req);
        EXPECT_EQ(o.result, 4) << body;
        EXPECT_EQ(o.formatted, -1) << body;
        // The refusal alone: a body traced on success is not traced here.
        EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{"[KXAPI]:%s[%d] json decode fail\n"}) << body;
        EXPECT_EQ(Diags().back().text.find("[KXAPI]:ParsePutIspIaas"), 0u) << body;
        EXPECT_EQ(req.Slot(1), nullptr) << body;
        EXPECT_EQ(std::vector<uint8_t>(static_cast<uint8_t*>(req.Slot(0)), static_cast<uint8_t*>(req.Slot(0)) + size),
                  current) << body;
        EXPECT_EQ(Control().sent.size(), size_t{flow.preProc == kAwbPut.preProc || flow.preProc == kExtrePut.preProc});
        EXPECT_EQ(Isp().requests.size(), size_t{flow.preProc == kAfPlanePut.preProc || flow.preProc == kThermalPut.preProc});
        EXPECT_TRUE(doubles::OpLogs().empty()) << body;
        EXPECT_EQ(req.Response(), "") << body;
    }
}

}  // namespace
