// Image tuning resources: fake ratio, automatic white balance, exposure lock
// and extreme-colour fusion.
#include "qtnapi_isp_tuning.h"

#include <algorithm>
#include <cstring>

#include "qtnapi_isp_resource.h"
#include "qtnapi_isp_srv.h"

namespace {

// ---- Fake ratio: read-only, no operation log ----

void FakeRatioFromBlock(const uint8_t* block, _FakeRatio& record)
{
    record.fakeRatio = IspBlockGet<double>(block, FAKE_RATIO_OFFSET);
}

// The ratio is read from the service's channel 0 whatever the request's
// channel; it is passed on unchecked.
constexpr IspResource<_FakeRatio> kFakeRatio = {
    .channelRule = IspChannelRule::Unread,
    .block = {ISP_CMD_FAKE_RATIO, IspFixedChannel(0), FAKE_RATIO_BLOCK_SIZE},
    .fromBlock = FakeRatioFromBlock,
};

// ---- Automatic white balance: the weights text through command 3231 ----

void AwbFromPayload(const uint8_t* payload, _AwbInfo& record)
{
    std::memcpy(record.roiWeightArray, payload + ISP_CMD_PARAMS, sizeof(record.roiWeightArray));
}

// The whole field goes out, terminator and whatever follows it.
void AwbToBody(const _AwbInfo& record, uint8_t* body)
{
    std::memcpy(body + ISP_CMD_PARAMS, record.roiWeightArray, sizeof(record.roiWeightArray));
}

// The '1's are counted over the whole field, so a tail left behind a shorter
// text counts too.
int AwbCheck(const _AwbInfo& record)
{
    const auto ones = std::count(std::begin(record.roiWeightArray), std::end(record.roiWeightArray), '1');
    if (ones < AWB_MIN_ONES) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:Setting Number 1 can't less than %d", AWB_MIN_ONES);
        return VW_ERR_BODY;
    }
    return VW_SUCCESS;
}

// The text as the log prints it: cut at the field's end when the device
// sent no terminator.
void LogAwb(const IspStage& stage, const char* english, const char* chinese, const _AwbInfo& record)
{
    char text[AWB_WEIGHTS_LEN + 1];
    std::memcpy(text, record.roiWeightArray, AWB_WEIGHTS_LEN);
    text[AWB_WEIGHTS_LEN] = '\0';
    stage.OpLog(english, chinese, static_cast<const char*>(text));
}

constexpr IspResource<_AwbInfo> kAwb = {
    .command = {VW_CMD_AWB, AWB_PAYLOAD_LEN},
    .fromBlock = AwbFromPayload,
    .toBlock = AwbToBody,
    .check = AwbCheck,
    .get = {"%s[%s:%llu] Get ISP AWB Param Successfully. RegionAwbWeight:%s.",
            "%s[%s:%llu] 获取图像白平衡参数成功. 区域白平衡权重:%s.", "%s[%s:%llu] Get ISP AWB Param Fail.",
            "%s[%s:%llu] 获取图像白平衡参数失败."},
    .put = {"%s[%s:%llu] Set ISP AWB Param Successfully. RegionAwbWeight:%s.",
            "%s[%s:%llu] 设置图像白平衡参数成功. 区域白平衡权重:%s.",
            "%s[%s:%llu] Set ISP AWB Param Fail. RegionAwbWeight:%s.",
            "%s[%s:%llu] 设置图像白平衡参数失败. 区域白平衡权重:%s."},
    .logValues = LogAwb,
    .putArgs = IspArgs::RunPst,
};

// ---- Extreme-colour fusion: the strength through command 3229 ----

void ExtreColorFromPayload(const uint8_t* payload, _ExtreColorInfo& record)
{
    record.fusionStrength = IspBlockGet<uint32_t>(payload, ISP_CMD_PARAMS);
}

void ExtreColorToBody(const _ExtreColorInfo& record, uint8_t* body)
{
    IspBlockPut<uint32_t>(body, ISP_CMD_PARAMS, record.fusionStrength);
    IspBlockPut<uint32_t>(body, ISP_CMD_PARAMS + 4, 0);
}

void LogExtreColor(const IspStage& stage, const char* english, const char* chinese, const _ExtreColorInfo& record)
{
    stage.OpLog(english, chinese, record.fusionStrength);
}

// The Chinese texts differ in punctuation between GET and PUT.
constexpr IspResource<_ExtreColorInfo> kExtreColor = {
    .command = {VW_CMD_EXTRE_COLOR, EXTRE_COLOR_PAYLOAD_LEN},
    .fromBlock = ExtreColorFromPayload,
    .toBlock = ExtreColorToBody,
    .get = {"%s[%s:%llu] Get ISP Extre Color Param Successfully.FusionStrength: %u.",
            "%s[%s:%llu] 获取图像黑光融合参数成功. 融合强度：%u.", "%s[%s:%llu] Get ISP Extre Color Param Fail.",
            "%s[%s:%llu] 获取图像黑光融合参数失败."},
    .put = {"%s[%s:%llu] Set ISP Extre Color Param Successfully.FusionStrength: %u.",
            "%s[%s:%llu] 设置图像黑光融合参数成功.融合强度: %u.",
            "%s[%s:%llu] Set ISP Extre Color Param Fail.FusionStrength: %u.",
            "%s[%s:%llu] 设置图像黑光融合参数失败.融合强度: %u."},
    .logValues = LogExtreColor,
    .putArgs = IspArgs::RunPst,
};

// ---- Exposure lock: the flag through the ISP service's create exchange ----

// The flag as the record holds it after the exchange: the service's copy
// when the exchange got that far.
void LogAEExpLock(const IspStage& stage, const char* english, const char* chinese, const _AEExpLockInfo& record)
{
    stage.OpLog(english, chinese, static_cast<int>(IspBlockGet<uint8_t>(&record, 0)));
}

// ChannelId is read unsigned; 101 is the service's channel 0, and values
// below it wrap around. A failed request is answered with its status too.
constexpr IspResource<_AEExpLockInfo> kAEExpLock = {
    .channelRule = IspChannelRule::Unsigned,
    .block = {ISP_CMD_EXPOSURE_LOCK, kIspChannelOfRequest, sizeof(_AEExpLockInfo)},
    .put = {"%s[%s:%llu] Set ISP AEExpLock Successfully. Enable:%d.",
            "%s[%s:%llu] 设置图像曝光锁定参数成功. 是否使能:%d.", "%s[%s:%llu] Set ISP AEExpLock Fail. Enable:%d.",
            "%s[%s:%llu] 设置图像曝光锁定参数失败. 是否使能:%d."},
    .logValues = LogAEExpLock,
    .putArgs = IspArgs::RunPst,
    .onPutFailure = IspPutFailure::Status,
};

}  // namespace

// ---- Fake ratio ----

KXAPI_STAGE int RunGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kFakeRatio>(__func__, header, client, ctIn);
}

// The response template alone: no operation log.
KXAPI_STAGE int FormatGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                          tagHTTP_BUF_S* buf)
{
    return FormatCommonResponse<_FakeRatio>(header, result, ctIn, buf);
}

// ---- Automatic white balance ----

KXAPI_STAGE int RunGetIspIaasAwb(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kAwb>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasAwb(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                    tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kAwb>(__func__, header, result, ctIn, buf);
}

KXAPI_STAGE int PreProcPutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                     tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspPreProc<kAwb>(__func__, pstHeader, pstSynSock, pstCtIn);
}

// A new text replaces the start of the current one: its terminator lands
// after it and the rest of the current field stays behind.
KXAPI_STAGE int ParsePutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                   tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspParse<kAwb>(__func__, pstHeader, pstHttpContent, pstCtIn);
}

KXAPI_STAGE int RunPutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                 tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspRunPut<kAwb>(__func__, pstHeader, pstClient, pstCtIn);
}

KXAPI_STAGE int FormatPutIspIaasAwb(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                    tagHTTP_BUF_S* buf)
{
    return IspFormatPut<kAwb>(__func__, header, result, ctIn, buf);
}

// ---- Extreme-colour fusion ----

KXAPI_STAGE int RunGetIspIaasExtreColor(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                        tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kExtreColor>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasExtreColor(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kExtreColor>(__func__, header, result, ctIn, buf);
}

KXAPI_STAGE int PreProcPutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                            tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspPreProc<kExtreColor>(__func__, pstHeader, pstSynSock, pstCtIn);
}

KXAPI_STAGE int ParsePutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                          tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspParse<kExtreColor>(__func__, pstHeader, pstHttpContent, pstCtIn);
}

KXAPI_STAGE int RunPutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                        tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspRunPut<kExtreColor>(__func__, pstHeader, pstClient, pstCtIn);
}

KXAPI_STAGE int FormatPutIspIaasExtreColor(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return IspFormatPut<kExtreColor>(__func__, header, result, ctIn, buf);
}

// ---- Exposure lock ----

// A body without "enable" unlocks: the record starts zero-filled. The body
// is traced once it is taken.
KXAPI_STAGE int ParsePutIspIaasAEExpLock(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                         tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    if (IspArgsMissing(IspArgs::Parse, pstHeader, pstHttpContent, pstCtIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, pstHeader, pstCtIn);
    IspOwned<_AEExpLockInfo> record = stage.Calloc<_AEExpLockInfo>();
    if (record == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    if (json_decode<_AEExpLockInfo>(pstHttpContent->pcBody, nullptr, *record) != 0) {
        return stage.Refuse();
    }
    ISP_DIAG(KXAPI_LOG_INFO, "[KXAPI]:%s,JsonData:%s", __func__, pstHttpContent->pcBody);
    stage.Hang(KXAPI_SLOT_REQUEST, std::move(record));
    return VW_SUCCESS;
}

// The record goes out as the create exchange's content and the service's
// reply comes back over it.
KXAPI_STAGE int RunPutIspIaasAEExpLock(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                       tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    if (IspArgsMissing(kAEExpLock.putArgs, pstHeader, pstClient, pstCtIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, pstHeader, pstCtIn);
    uint32_t channel = 0;
    if (const int rc = stage.SrvChannel(kAEExpLock.channelRule, kAEExpLock.block.channel, &channel); rc != VW_SUCCESS) {
        return rc;
    }
    auto* record = stage.Required<_AEExpLockInfo>(KXAPI_SLOT_REQUEST);
    if (record == nullptr) {
        return VW_ERR_PARAM;
    }
    if (!stage.SrvCreate(kAEExpLock.block.command, channel, record, kAEExpLock.block.size)) {
        return VW_ERR_PARAM;
    }
    return VW_SUCCESS;
}

KXAPI_STAGE int FormatPutIspIaasAEExpLock(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                          tagHTTP_BUF_S* buf)
{
    return IspFormatPut<kAEExpLock>(__func__, header, result, ctIn, buf);
}

// ---- Exported codec and response instances of the tuning records ----

template KXAPI_EXPORT char* json_encode<_FakeRatio>(_FakeRatio const&);
template KXAPI_EXPORT int FormatCommonResponse<_FakeRatio>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                                           tagHTTP_BUF_S*);
template KXAPI_EXPORT char* json_encode<_AwbInfo>(_AwbInfo const&);
template KXAPI_EXPORT int FormatCommonResponse<_AwbInfo>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                                         tagHTTP_BUF_S*);
template KXAPI_EXPORT char* json_encode<_ExtreColorInfo>(_ExtreColorInfo const&);
template KXAPI_EXPORT int FormatCommonResponse<_ExtreColorInfo>(tagHTTP_HEADER_S*, VW_RESULT_TYPE,
                                                                tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);
