// What every exported stage does the same way: a null pointer argument is
// refused with its kind's text, before anything else happens; a record that
// an earlier stage should have hung is missing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "doubles.h"
#include "world.h"

namespace {

using doubles::AnyStage;
using doubles::Request;

const char* const kParse = "[KXAPI]:Invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]";
const char* const kPreProc = "[KXAPI]:Invalid param, pstHeader[%p] pstSynSock[%p] pstCtIn[%p]";
const char* const kRun = "[KXAPI]:Invalid param, header[%p] client[%p] ctIn[%p]";
const char* const kRunPst = "[KXAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]";
const char* const kTemplate = "[KXAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]";

struct ContractCase {
    std::string name;
    AnyStage stage;
    const char* format;
    friend void PrintTo(const ContractCase& c, std::ostream* os) { *os << c.name; }
};

// Every exported stage, taken from the stages of every request, with the
// text its kind refuses a null pointer with.
std::vector<ContractCase> EveryStage()
{
    std::vector<ContractCase> stages;
    for (const auto& [request, f] : world::kEveryRequest) {
        const std::string name = request;
        if (f.preProc != nullptr) {
            stages.push_back({name + "PreProc", {.preProc = f.preProc}, kPreProc});
        }
        if (f.parse != nullptr) {
            stages.push_back({name + "Parse", {.parse = f.parse}, kParse});
        }
        const bool pst =
            f.run == RunPutIspIaasAwb || f.run == RunPutIspIaasExtreColor || f.run == RunPutIspIaasAEExpLock;
        stages.push_back({name + "Run", {.run = f.run}, pst ? kRunPst : kRun});
        if (f.format != nullptr) {
            const char* kind = f.parse != nullptr ? "FormatPut" : "FormatGet";
            stages.push_back(
                {name + kind, {.format = f.format}, f.format == FormatGetIspIaasFakeRatio ? kTemplate : kPreProc});
        }
    }
    return stages;
}

class StageContract : public testing::TestWithParam<ContractCase> {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

// Each pointer null in turn: one level-3 diagnostic naming the three
// pointers in their order, result 1 (the response template: -1), nothing
// allocated, logged or sent, and no slot touched.
TEST_P(StageContract, NullArgumentIsRefusedBeforeAnythingElse)
{
    const ContractCase& c = GetParam();
    for (int nullArg = 0; nullArg < 3; ++nullArg) {
        doubles::ResetAll();
        Request req("PUT", "/isp?ChannelId=102", "{}");
        EXPECT_EQ(doubles::Invoke(c.stage, req, 0, nullArg), c.format == kTemplate ? -1 : 1) << nullArg;

        void* second = c.stage.parse     ? static_cast<void*>(&req.content)
                       : c.stage.preProc ? static_cast<void*>(&req.sock)
                       : c.stage.run     ? static_cast<void*>(&req.client)
                                         : static_cast<void*>(&req.ctx);
        void* third = c.stage.format ? static_cast<void*>(&req.buf) : static_cast<void*>(&req.ctx);
        void* args[3] = {&req.header, second, third};
        args[nullArg] = nullptr;
        char text[256];
        if (c.format == kTemplate) {
            std::snprintf(text, sizeof(text), c.format, "FormatCommonResponse", args[0], args[1], args[2]);
        } else {
            std::snprintf(text, sizeof(text), c.format, args[0], args[1], args[2]);
        }
        ASSERT_EQ(doubles::Diags().size(), 1u) << nullArg;
        EXPECT_EQ(doubles::Diags()[0].text, text);
        EXPECT_EQ(doubles::Diags()[0].level, 3);
        EXPECT_EQ(doubles::CallCount(doubles::Call::Malloc) + doubles::CallCount(doubles::Call::Calloc), 0);
        EXPECT_EQ(doubles::Isp().opens, 0);
        EXPECT_TRUE(doubles::Control().sent.empty());
        EXPECT_TRUE(doubles::OpLogs().empty());
        EXPECT_EQ(req.Response(), "");
        for (int slot = 0; slot < 3; ++slot) {
            EXPECT_EQ(req.Slot(slot), nullptr);
        }
    }
}

const auto ByName = [](const testing::TestParamInfo<ContractCase>& info) { return info.param.name; };

INSTANTIATE_TEST_SUITE_P(AllStages, StageContract, testing::ValuesIn(EveryStage()), ByName);

std::vector<ContractCase> FormatStages()
{
    std::vector<ContractCase> stages = EveryStage();
    std::erase_if(stages, [](const ContractCase& c) { return c.stage.format == nullptr; });
    return stages;
}

class FormatWithoutRecord : public StageContract {};

// No record on the context: a FormatGet stage answers result 0 with the
// envelope and no entry (a failed result with its failure entry and -1); a
// FormatPut stage answers -1 and writes nothing.
TEST_P(FormatWithoutRecord, GetAnswersTheEnvelopePutNothing)
{
    const AnyStage& stage = GetParam().stage;
    const bool get = GetParam().name.ends_with("FormatGet");
    const bool logs = get && stage.format != FormatGetIspIaasFakeRatio;
    for (int result : {0, 4}) {
        doubles::ResetAll();
        Request req("PUT", world::kUrl);
        const bool envelope = get && (result == 0 || !logs);
        EXPECT_EQ(doubles::Invoke(stage, req, result), envelope ? 0 : -1) << result;
        EXPECT_EQ(req.Response(),
                  envelope ? world::Envelope(world::kUrl, result, result ? "Invalid Content" : "OK") : "");
        EXPECT_EQ(doubles::OpLogs().size(), logs && result != 0 ? 2u : 0u) << result;
        EXPECT_TRUE(doubles::Diags().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(FormatStages, FormatWithoutRecord, testing::ValuesIn(FormatStages()), ByName);

// Parse needs the current settings, RunPut the request record: without it,
// "null point" and 1; nothing is sent, hung or entered in the log.
TEST(MissingRecord, StopsTheStageThatNeedsIt)
{
    const AnyStage stages[] = {STAGE(parse, ParsePutIspIaasAwb),
                               STAGE(parse, ParsePutIspIaasExtreColor),
                               STAGE(parse, ParsePutIspIaasAfPlanePoint),
                               STAGE(parse, ParsePutIspIaasThermal),
                               STAGE(run, RunPutIspIaasAwb),
                               STAGE(run, RunPutIspIaasExtreColor),
                               STAGE(run, RunPutIspIaasAfPlanePoint),
                               STAGE(run, RunPutIspIaasThermal),
                               STAGE(run, RunPutIspIaasAEExpLock)};
    for (const AnyStage& stage : stages) {
        doubles::ResetAll();
        Request req("PUT", world::kUrl, "{}");
        EXPECT_EQ(doubles::Invoke(stage, req), 1) << stage.name;
        EXPECT_EQ(doubles::DiagFormats(), std::vector<std::string>{"[KXAPI]:null point"}) << stage.name;
        EXPECT_EQ(doubles::Isp().opens, 0);
        EXPECT_TRUE(doubles::Control().sent.empty());
        EXPECT_TRUE(req.Slot(0) == nullptr && req.Slot(1) == nullptr && req.Slot(2) == nullptr);
        EXPECT_TRUE(doubles::OpLogs().empty()) << stage.name;
    }
}

}  // namespace
