// Thermal imaging settings: the block mappings, the GET and PUT stages of the
// thermal resource, and the codec instances of the thermal record.
#include "qtnapi_isp_thermal.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "qtnapi_isp_resource.h"
#include "qtnapi_isp_srv.h"

// ---- Record and service block ----

namespace {

constexpr size_t kWord = sizeof(uint32_t);

// Block offset of each record word, in record order: the block keeps colorBar
// (word 11) after the seven white-hot words (words 12 to 18).
constexpr std::array<size_t, THERMAL_WORDS> kBlockOffset = [] {
    std::array<size_t, THERMAL_WORDS> offsets{};
    for (size_t word = 0; word < THERMAL_WORDS; ++word) {
        offsets[word] = word * kWord;
    }
    offsets[11] = THERMAL_BLOCK_COLOR_BAR;
    for (size_t word = 12; word <= 18; ++word) {
        offsets[word] = THERMAL_BLOCK_WHITE_HOT + (word - 12) * kWord;
    }
    return offsets;
}();

static_assert(kBlockOffset[10] + kWord == THERMAL_BLOCK_WHITE_HOT, "white-hot words follow the colour mode");
static_assert(kBlockOffset[18] + kWord == THERMAL_BLOCK_COLOR_BAR, "colorBar follows the white-hot words");
static_assert(kBlockOffset[19] == THERMAL_BLOCK_COLOR_BAR + kWord, "focus words follow colorBar");
static_assert(kBlockOffset[23] + kWord == THERMAL_BLOCK_RESERVED, "the reserved word ends the block");
static_assert(THERMAL_BLOCK_RESERVED + kWord == THERMAL_BLOCK_SIZE, "the block is 25 words");

}  // namespace

void ThermalFromBlock(const uint8_t* block, _ThermalInfo& info)
{
    auto* words = reinterpret_cast<uint8_t*>(&info);
    for (size_t word = 0; word < THERMAL_WORDS; ++word) {
        std::memcpy(words + word * kWord, block + kBlockOffset[word], kWord);
    }
}

void ThermalToBlock(const _ThermalInfo& info, uint8_t* block)
{
    const auto* words = reinterpret_cast<const uint8_t*>(&info);
    for (size_t word = 0; word < THERMAL_WORDS; ++word) {
        std::memcpy(block + kBlockOffset[word], words + word * kWord, kWord);
    }
    const uint32_t reserved = 0;
    std::memcpy(block + THERMAL_BLOCK_RESERVED, &reserved, kWord);
}

// ---- The resource ----

namespace {

#define THERMAL_VALUES_EN                                                                                         \
    "BlindPointX:%u, BlindPointY:%u, BlindOperation:%u, CorrectionMode:%u,AutoCorrectionEnable:%d, "              \
    "AutoCorrectionTime:%u, AutoCorrectionTemp:%u, Brightness:%u,Contrast:%u, DetailEnhanceEnable:%d, "           \
    "FakeColorMode:%d, ColorBarShow:%d,WhiteHot_HighRangeEnable:%d, WhiteHot_MidRangeEnable:%d,"                  \
    "WhiteHot_LowRangeEnable:%d, WhiteHot_HighMin:%d,WhiteHot_MidMax:%d, WhiteHot_MidMin:%d,WhiteHot_LowMax:%d, " \
    "AfMode:%u, AfCtrlMode:%u, AfTempAdaptEnable:%d, AfSpeed:%u, AfTemp:%u."
#define THERMAL_VALUES_CN                                                                                                                  \
    "盲元坐标x:%u, 盲元坐标y:%u, 盲元操作:%u, 校正模式:%u,自动非均匀性校正使能:%d, 自动校正时间:%u, "      \
    "自动校正温度:%u, 亮度:%u,色度:%u, 细节增强使能:%d, 伪彩模式:%d, 彩条使能:%d,白热模式高范围使能:%d, " \
    "白热模式中范围使能:%d,白热模式低范围使能:%d, 高范围最小值:%d,中范围最大值:%d, 中范围最小值:%d,"   \
    "低范围最大值:%d, 聚焦模式:%u, 聚焦控制模式:%u, 温度自适应使能:%d, 聚焦速度:%u, 聚焦温度:%u."

// The 24 words in record order, each passed as the texts print it.
void LogThermal(const IspStage& stage, const char* english, const char* chinese, const _ThermalInfo& r)
{
    const _AutoCorrection& autoMode = r.correctData.autoModeData;
    const _BasicData& basic = r.basicData;
    const _ColorInfo& color = r.fakeColorData;
    const _WhiteMode& white = color.whiteHotModeData;
    const _TempAfInfo& af = r.thermalAfData;
    stage.OpLog(english, chinese, r.pointX, r.pointY, r.blindOperation, r.correctData.correctOperation, autoMode.enable,
                autoMode.correctTime, autoMode.correctTemperature, basic.brightness, basic.contrast, basic.detailEnhace,
                static_cast<int>(color.colorMode), color.colorBar, white.highRange, white.midRange, white.lowRange,
                white.highMin, white.midMax, white.midMin, white.lowMax, af.afMode, af.ctrlOperation, af.tempAdapt,
                af.afSpeed, af.compensateTemp);
}

// The values the service accepts for the automatic correction.
constexpr std::array<unsigned int, 7> kCorrectTimes = {5, 10, 15, 20, 30, 45, 60};
constexpr std::array<unsigned int, 5> kCorrectTemperatures = {1, 3, 5, 10, 15};

template <size_t N>
bool Accepted(const std::array<unsigned int, N>& values, unsigned int value)
{
    return std::find(values.begin(), values.end(), value) != values.end();
}

// The two correction values that the service accepts only from fixed sets;
// one text serves both checks, and the time is checked first.
int CheckCorrection(const _ThermalInfo& record)
{
    const _AutoCorrection& autoMode = record.correctData.autoModeData;
    if (!Accepted(kCorrectTimes, autoMode.correctTime)) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:Time enum is %d", static_cast<int>(autoMode.correctTime));
        return VW_ERR_BODY;
    }
    if (!Accepted(kCorrectTemperatures, autoMode.correctTemperature)) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:Time enum is %d", static_cast<int>(autoMode.correctTemperature));
        return VW_ERR_BODY;
    }
    return VW_SUCCESS;
}

// Only the thermal channel. A PUT merges the body onto the block as read:
// members the body does not name keep their current values, and the values
// are checked only when they are written.
constexpr IspResource<_ThermalInfo> kThermal = {
    .channelRule = IspChannelRule::ThermalOnly,
    .block = {ISP_CMD_THERMAL, IspFixedChannel(THERMAL_SRV_CHANNEL), THERMAL_BLOCK_SIZE},
    .fromBlock = ThermalFromBlock,
    .toBlock = ThermalToBlock,
    .check = CheckCorrection,
    .get = {"%s[%s:%llu] Get ISP Thermal Param Successfully. " THERMAL_VALUES_EN,
            "%s[%s:%llu] 获取图像热成像参数成功. " THERMAL_VALUES_CN, "%s[%s:%llu] Get ISP Thermal Param Fail.",
            "%s[%s:%llu] 获取图像热成像参数失败."},
    .put = {"%s[%s:%llu] Set ISP Thermal Param Successfully." THERMAL_VALUES_EN,
            "%s[%s:%llu] 设置图像热成像参数成功. " THERMAL_VALUES_CN,
            "%s[%s:%llu] Set ISP Thermal Param Fail. " THERMAL_VALUES_EN,
            "%s[%s:%llu] 设置图像热成像参数失败. " THERMAL_VALUES_CN},
    .logValues = LogThermal,
};

#undef THERMAL_VALUES_EN
#undef THERMAL_VALUES_CN

}  // namespace

KXAPI_STAGE int RunGetIspIaasThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kThermal>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasThermal(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                        tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kThermal>(__func__, header, result, ctIn, buf);
}

KXAPI_STAGE int PreProcPutIspIaasThermal(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                         tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspPreProc<kThermal>(__func__, pstHeader, pstSynSock, pstCtIn);
}

KXAPI_STAGE int ParsePutIspIaasThermal(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                       tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspParse<kThermal>(__func__, pstHeader, pstHttpContent, pstCtIn);
}

// A refused correction value leaves the service untouched.
KXAPI_STAGE int RunPutIspIaasThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunPut<kThermal>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatPutIspIaasThermal(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                        tagHTTP_BUF_S* buf)
{
    return IspFormatPut<kThermal>(__func__, header, result, ctIn, buf);
}

// ---- Codec instances, exported for the server and the other modules ----

using CorrectionCoder = MemberCoder<_ThermalInfo, _CorrectionInfo, NullAlloc, NullDealloc>;
using BasicCoder = MemberCoder<_ThermalInfo, _BasicData, NullAlloc, NullDealloc>;
using ColorCoder = MemberCoder<_ThermalInfo, _ColorInfo, NullAlloc, NullDealloc>;
using TempAfCoder = MemberCoder<_ThermalInfo, _TempAfInfo, NullAlloc, NullDealloc>;
using ColorBarCoder = MemberCoder<_ColorInfo, int, NullAlloc, NullDealloc>;
using WhiteHotCoder = MemberCoder<_ColorInfo, _WhiteMode, NullAlloc, NullDealloc>;
using CorrectOperationCoder = MemberCoder<_CorrectionInfo, unsigned int, NullAlloc, NullDealloc>;
using AutoModeCoder = MemberCoder<_CorrectionInfo, _AutoCorrection, NullAlloc, NullDealloc>;
using WhiteModeWordCoder = MemberCoder<_WhiteMode, int, NullAlloc, NullDealloc>;

template KXAPI_EXPORT char* json_encode<_ThermalInfo>(_ThermalInfo const&);
template KXAPI_EXPORT int json_decode<_ThermalInfo>(const char*, void*, _ThermalInfo&);
template KXAPI_EXPORT int json_encode_member<_ThermalInfo, _CorrectionInfo, NullAlloc, NullDealloc, BasicCoder,
                                             ColorCoder, TempAfCoder>(_ThermalInfo const&, json_object*,
                                                                      CorrectionCoder const&, BasicCoder, ColorCoder,
                                                                      TempAfCoder);
template KXAPI_EXPORT int json_encode_member<_ThermalInfo, _ColorInfo, NullAlloc, NullDealloc, TempAfCoder>(
    _ThermalInfo const&, json_object*, ColorCoder const&, TempAfCoder);
template KXAPI_EXPORT int json_encode_member<_ColorInfo, int, NullAlloc, NullDealloc, WhiteHotCoder>(
    _ColorInfo const&, json_object*, ColorBarCoder const&, WhiteHotCoder);
template KXAPI_EXPORT json_object* jsonEncoder<_WhiteMode>::encode_nulldata(_WhiteMode const&, void*);
template KXAPI_EXPORT int json_decode_member<_CorrectionInfo, unsigned int, NullAlloc, NullDealloc, AutoModeCoder>(
    json_object*, void*, _CorrectionInfo&, CorrectOperationCoder const&, AutoModeCoder);
template KXAPI_EXPORT int json_decode_member<_ThermalInfo, _ColorInfo, NullAlloc, NullDealloc, TempAfCoder>(
    json_object*, void*, _ThermalInfo&, ColorCoder const&, TempAfCoder);
template KXAPI_EXPORT int WhiteModeWordCoder::decode(json_object*, void*, _WhiteMode&) const;
template KXAPI_EXPORT int FormatCommonResponse<_ThermalInfo>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                                             tagHTTP_BUF_S*);
