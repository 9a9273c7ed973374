// What is particular to each resource: how a body is merged into the current
// settings and what is written, the value sets, and the block rewrites of the
// resets.
#include <gtest/gtest.h>

#include <set>

#include "world.h"

namespace {

using doubles::Control;
using doubles::GetAt;
using doubles::Isp;
using doubles::Perform;
using doubles::PutAt;
using doubles::Request;
using namespace world;

class Resource : public testing::Test {
protected:
    void SetUp() override { Install(); }

    // The content of the service's last write (op 3), or none.
    static std::vector<uint8_t> Written()
    {
        const auto& r = Isp().requests;
        return !r.empty() && r.back().op == 3 ? r.back().content : std::vector<uint8_t>{};
    }
    // The parameters of the last command, from body byte 8.
    static std::vector<uint8_t> Params(size_t size)
    {
        const auto& body = Control().sent.back().body;
        const auto params = body.begin() + at::kCmdParams;
        return {params, params + static_cast<long>(size)};
    }
};

ThermalWords Words(const _ThermalInfo& info)
{
    ThermalWords words;
    std::memcpy(words.data(), &info, sizeof(info));
    return words;
}

// ---- Thermal settings ----

// Each key lands in its word by the conversion rules of unsigned and int
// members (integers keep their low 32 bits, numbers with a fraction go toward
// zero and saturate, unsigned ones at 0, booleans give 1 or 0); groups that
// are no objects, nulls and unknown keys change nothing.
TEST_F(Resource, ThermalBodyMergesEachKeyIntoItsWord)
{
    const std::pair<const char*, std::vector<std::pair<int, uint32_t>>> cases[] = {
        {"{}", {}},
        {R"({"blindData": {"blindPosition": {"pointX": 4294967301, "pointY": -1}}})", {{0, 5}, {1, 0xffffffffu}}},
        {R"({"blindData": {"blindOperation": -1.0}, "correctData": {"correctOperation": 1e12}})",
         {{2, 0}, {3, 0xffffffffu}}},
        {R"({"correctData": {"autoModeData": {"enable": -2.5, "correctTime": 7.9, "correctTemperature": true}}})",
         {{4, 0xfffffffeu}, {5, 7}, {6, 1}}},
        {R"({"basicData": {"brightness": 1, "contrast": 2, "detailEnhace": 3e9}})", {{7, 1}, {8, 2}, {9, 0x7fffffffu}}},
        {R"({"fakeColorData": {"colorMode": 1, "colorBar": false, "whiteHotModeData": {"highRange": 2, "midRange": 3,
            "lowRange": 4, "highMin": 5, "midMax": 6, "midMin": -1e12, "lowMax": 8}}})",
         {{10, 1}, {11, 0}, {12, 2}, {13, 3}, {14, 4}, {15, 5}, {16, 6}, {17, 0x80000000u}, {18, 8}}},
        {R"({"thermalAfData": {"compensateTemp": 9, "ctrlOperation": 88, "afSpeed": 77, "afMode": 1,
            "tempAdapt": 4294967293}})",
         {{19, 1}, {20, 88}, {21, uint32_t(-3)}, {22, 77}, {23, 9}}},
        {R"({"thermalAfData": {"tempAdapt": null}, "basicData": null, "zz": 1, "correctData": {"zz": "x"}})", {}},
        {R"({"basicData": 5, "correctData": "x", "fakeColorData": [1], "blindData": {"blindPosition": true}})", {}},
        {"[1, 2]", {}},
    };
    for (const auto& [json, changes] : cases) {
        _ThermalInfo info;
        std::memcpy(&info, kThermal.data(), sizeof(info));
        EXPECT_EQ(json_decode<_ThermalInfo>(json, nullptr, info), 0) << json;
        ThermalWords expected = kThermal;
        for (const auto& [position, word] : changes) {
            expected[position] = word;
        }
        EXPECT_EQ(Words(info), expected) << json;
    }
}

TEST_F(Resource, ThermalPutWritesTheWholeMergedBlock)
{
    Request req("PUT", kUrl, R"({"fakeColorData": {"colorBar": 1}, "correctData": {"autoModeData": {"correctTime": 5,
                                  "correctTemperature": 15}}})");
    ASSERT_EQ(Perform(kThermalPut, req).result, 0);
    ThermalWords words = kThermal;
    words[11] = 1;
    words[5] = 5;
    words[6] = 15;
    std::vector<uint8_t> expected = ThermalBlock(words);
    PutAt<uint32_t>(expected, at::kThermalReserved, 0);
    EXPECT_EQ(Written(), expected);
}

// Every member of each set is accepted, every other value from -1 to past
// the largest refused before anything is written; the time is checked first.
TEST_F(Resource, ThermalCorrectionValuesOutsideTheirSetsAreRefused)
{
    const std::set<int> times = {5, 10, 15, 20, 30, 45, 60}, temperatures = {1, 3, 5, 10, 15};
    const auto put = [](int time, int temperature) {
        Install();
        const std::string body = R"({"correctData": {"autoModeData": {"correctTime": )" + std::to_string(time) +
                                 R"(, "correctTemperature": )" + std::to_string(temperature) + "}}}";
        Request req("PUT", kUrl, body.c_str());
        return Perform(kThermalPut, req).result;
    };
    const auto check = [](int result, bool accepted, int value, size_t offset) {
        EXPECT_EQ(result, accepted ? 0 : 4) << value;
        if (accepted) {
            const std::vector<uint8_t> written = Written();
            ASSERT_EQ(written.size(), at::kThermalBlock) << value;
            EXPECT_EQ(GetAt<uint32_t>(written.data(), offset), static_cast<uint32_t>(value));
        } else {
            EXPECT_EQ(Isp().requests.size(), 1u) << value;
            EXPECT_EQ(doubles::DiagFormats().size(), 1u) << value;
            EXPECT_EQ(doubles::Diags().back().text, "[KXAPI]:Time enum is " + std::to_string(value));
        }
    };
    for (int time = -1; time <= 61; ++time) {
        check(put(time, 10), times.count(time) != 0, time, at::kThermalWord[5]);
    }
    for (int temperature = -1; temperature <= 16; ++temperature) {
        check(put(45, temperature), temperatures.count(temperature) != 0, temperature, at::kThermalWord[6]);
    }
    check(put(7, 2), false, 7, at::kThermalWord[5]);
}

// ---- White balance and extreme colour ----

// The current text is eighteen '1's with "77" behind its terminator; a new
// text and its terminator replace the start of the field, the rest stays as
// the device sent it, and the '1's are counted over all of it: 12 are enough.
TEST_F(Resource, AwbTextIsLaidOverTheCurrentField)
{
    const std::string current = std::string(18, '1') + '\0' + "77", t255(255, '1'), nul(1, '\0');
    const std::pair<std::string, std::string> cases[] = {
        // the body, what it lays over the field ("": refused)
        {"{}", current},
        {"[1, 2]", current},
        {R"({"regionAwbAttr": {"roiWeightArray": null}})", current},
        {R"({"regionAwbAttr": {"roiWeightArray": "000000000000111111111111"}})",
         std::string(12, '0') + std::string(12, '1') + nul},
        {R"({"regionAwbAttr": {"roiWeightArray": "111"}})", "111" + nul},
        {R"({"regionAwbAttr": {"roiWeightArray": ")" + t255 + R"("}})", t255 + nul},
        {R"({"regionAwbAttr": {"roiWeightArray": "11111111111)" + std::string(20, '0') + R"("}})", ""},
    };
    for (const auto& [body, field] : cases) {
        Install();
        const std::vector<uint8_t>& payload = Control().payloads[VW_CMD_AWB] = Payload(current);
        const auto text = payload.begin() + at::kCmdParams;
        std::vector<uint8_t> expected(text, text + at::kAwbText);
        Request req("PUT", kUrl, body.c_str());
        const int result = Perform(kAwbPut, req).result;
        ASSERT_EQ(Control().sent.size(), field.empty() ? 1u : 2u) << body;
        if (field.empty()) {
            EXPECT_EQ(result, 4);
            ASSERT_EQ(doubles::Diags().size(), 2u);  // the read's trace, then the refusal
            EXPECT_EQ(doubles::Diags().back().text, "[KXAPI]:Setting Number 1 can't less than 12");
            continue;
        }
        EXPECT_EQ(result, 0) << body;
        std::copy(field.begin(), field.end(), expected.begin());
        EXPECT_EQ(Params(at::kAwbText), expected) << body;
    }
}

// ---- Exposure lock ----

// The flag, as one byte of a four-byte record; the body is traced.
TEST_F(Resource, LockFlagFromEachKindOfEnable)
{
    const std::pair<const char*, uint8_t> cases[] = {
        {R"({"enable": true})", 1},
        {R"({"enable": 0.5})", 1},
        {R"({"enable": -5})", 1},
        {R"({"enable": 256})", 1},
        {R"({"enable": false})", 0},
        {R"({"enable": 0.0})", 0},
        {"{}", 0},
    };
    for (const auto& [body, flag] : cases) {
        Install();
        Request req("PUT", kUrl, body);
        EXPECT_EQ(Perform(kLock, req).result, 0) << body;
        EXPECT_EQ(Isp().requests.at(0).content, (std::vector<uint8_t>{flag, 0, 0, 0})) << body;
        EXPECT_EQ(doubles::Diags().at(0).text, std::string("[KXAPI]:ParsePutIspIaasAEExpLock,JsonData:") + body);
    }
}

// ---- Autofocus plane points ----

// The block as read, its first word 0 and the body laid over the switch,
// PointMax and the four points.
TEST_F(Resource, AfPlaneBodyIsLaidOverTheBlockAsRead)
{
    using Change = std::vector<std::pair<size_t, uint32_t>>;  // word offset, value
    const std::pair<const char*, Change> cases[] = {
        {"{}", {}},
        {R"({"enable": null, "planePoints": null})", {}},
        {R"({"planePoints": []})", {}},
        {R"({"PointMax": 9})", {{1048, 9}}},
        {R"({"planePoints": [{"planePointX": 1, "planePointY": 2}, {"planePointX": 3}]})",
         {{1052, 1}, {1056, 2}, {1060, 3}}},
        {R"({"planePoints": [{"planePointX": 1}, {"planePointX": 2}, {"planePointX": 3}, {"planePointX": 4},
                             {"planePointX": 5}]})",
         {{1052, 1}, {1060, 2}, {1068, 3}, {1076, 4}}},
        {R"({"planePoints": [{"planePointX": 12.9, "planePointY": -5.5}, {"planePointY": -1}]})",
         {{1052, 12}, {1056, 0}, {1064, 4294967295u}}},
    };
    for (const auto& [body, change] : cases) {
        Install();
        Request req("PUT", kUrl, body);
        ASSERT_EQ(Perform(kAfPlanePut, req).result, 0) << body;
        std::vector<uint8_t> expected = AfBlock();
        PutAt<uint32_t>(expected, 0, 0);
        for (const auto& [offset, value] : change) {
            PutAt(expected, offset, value);
        }
        EXPECT_EQ(Written(), expected) << body;
    }
}

// The switch byte goes back as read unless the body names the switch.
TEST_F(Resource, AfPlaneSwitchByteIsRewrittenOnlyWhenNamed)
{
    const std::pair<const char*, uint8_t> cases[] = {{"{}", 5},
                                                     {R"({"PointMax": 1, "enable": null})", 5},
                                                     {R"({"enable": true})", 1},
                                                     {R"({"enable": 2})", 1},
                                                     {R"({"enable": 0})", 0}};
    for (const auto& [body, sent] : cases) {
        Install();
        Isp().blocks[{17, 1}][at::kAfEnable] = 5;
        Request req("PUT", kUrl, body);
        ASSERT_EQ(Perform(kAfPlanePut, req).result, 0) << body;
        EXPECT_EQ(Written().at(at::kAfEnable), sent) << body;
        EXPECT_NE(doubles::OpLogs().at(0).en.find("Enable:" + std::to_string(sent) + ","), std::string::npos);
    }
}

// ---- Adaptive resets ----

// Fog writes the configured fog value into its block's first word; a set
// backlight flag makes the state word 3, a clear one turns a 3 into 0.
TEST_F(Resource, AdaptationBlocksAreRewrittenFromTheConfiguration)
{
    const struct {
        Flow flow;
        uint16_t command;
        int32_t flag;
        uint32_t state, written;
    } cases[] = {
        {.flow = kResetFog, .command = 7, .flag = 0, .state = 5, .written = 0xf0f0},
        {.flow = kResetBacklight, .command = 6, .flag = 1, .state = 0, .written = 3},
        {.flow = kResetBacklight, .command = 6, .flag = 1, .state = 5, .written = 3},
        {.flow = kResetBacklight, .command = 6, .flag = 0, .state = 3, .written = 0},
        {.flow = kResetBacklight, .command = 6, .flag = 0, .state = 2, .written = 2},
        {.flow = kResetBacklight, .command = 6, .flag = 0, .state = 4, .written = 4},
    };
    for (const auto& c : cases) {
        Install();
        PutAt<int32_t>(Control().payloads[VW_CMD_ADAPT_CONFIG_GET], at::kConfigBacklight - at::kReplyPayload, c.flag);
        std::vector<uint8_t> block = {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        PutAt(block, 0, c.state);
        Isp().blocks[{c.command, 1}] = block;
        Request req("PUT", kUrl);
        EXPECT_EQ(Perform(c.flow, req).result, 0);
        PutAt(block, 0, c.written);
        EXPECT_EQ(Written(), block) << c.command << " " << c.flag << " " << c.state;
    }
}

// The parameters of a write command from body byte 8, the rest of the body
// zero: the fusion strength (current 4294967295) as a word and a zero word;
// the configured speed value, sent back with the set command.
TEST_F(Resource, CommandParametersAsSent)
{
    const struct {
        Flow flow;
        const char* body = nullptr;
        uint32_t value;
    } cases[] = {
        {.flow = kExtrePut, .body = "{}", .value = 4294967295u},
        {.flow = kExtrePut, .body = R"({"fusionStrength": 7})", .value = 7},
        {.flow = kResetSpeed, .value = 77},
    };
    for (const auto& c : cases) {
        Install();
        Request req("PUT", kUrl, c.body);
        EXPECT_EQ(Perform(c.flow, req).result, 0);
        std::vector<uint8_t> params(VW_CMD_BODY_LEN - at::kCmdParams, 0);
        PutAt<uint32_t>(params, 0, c.value);
        EXPECT_EQ(Params(params.size()), params) << c.value;
    }
}

}  // namespace
