// Focus and capability resources.
#include "qtnapi_isp_focus.h"

#include <cstring>

#include "ability.h"
#include "qtnapi_isp_resource.h"
#include "qtnapi_isp_srv.h"

namespace {

size_t PointOffset(int i, bool y) { return AF_PLANE_POINTS_OFFSET + 8 * static_cast<size_t>(i) + (y ? 4 : 0); }

// ---- Image capability ----

void LogCapability(const IspStage& stage, const char* en, const char* cn, const _IspAbility& a)
{
    const _BasicInfo& b = a.basicInfos;
    stage.OpLog(en, cn, b.brightness.begin, b.brightness.end, b.sharpeness.begin, b.sharpeness.end, b.hue.begin,
                b.hue.end, b.contrast.begin, b.contrast.end, b.saturation.begin, b.saturation.end,
                a.sensorInfos.scale.width, a.sensorInfos.scale.height);
}

// The device ability record keeps the ranges in another order than the
// record: brightness, contrast, saturation, hue, sharpness.
_ParaRange AbilityRange(const DEVICE_ABILITY_S& ability, ABILITY_RANGE_E which)
{
    return IspBlockGet<_ParaRange>(&ability, DEVICE_ABILITY_RANGES_OFFSET + which * sizeof(_ParaRange));
}

// The ranges come from the device ability record of the first channel.
bool CapabilityRanges(const IspStage& stage, _IspAbility& record)
{
    DEVICE_ABILITY_S ability;
    if (!stage.Zero(&ability, sizeof(ability))) {
        return false;
    }
    ability.uiChannel = DEVICE_ABILITY_FIRST_CHANNEL;
    ability.uiQuery = 0;
    if (GetDeviceAbility(&ability) != 0) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:%s: get device ability failed", "RunGetIspIaasCapability");
        return false;
    }
    _BasicInfo& basic = record.basicInfos;
    basic.brightness = AbilityRange(ability, ABILITY_RANGE_BRIGHTNESS);
    basic.sharpeness = AbilityRange(ability, ABILITY_RANGE_SHARPNESS);
    basic.hue = AbilityRange(ability, ABILITY_RANGE_HUE);
    basic.contrast = AbilityRange(ability, ABILITY_RANGE_CONTRAST);
    basic.saturation = AbilityRange(ability, ABILITY_RANGE_SATURATION);
    return true;
}

void CapabilityFromBlock(const uint8_t* block, _IspAbility& record)
{
    record.sensorInfos.scale.width = IspBlockGet<double>(block, CAPABILITY_WIDTH_OFFSET);
    record.sensorInfos.scale.height = IspBlockGet<double>(block, CAPABILITY_HEIGHT_OFFSET);
}

// The sensor size is read from the service's channel 0; ChannelId is only
// checked.
constexpr IspResource<_IspAbility> kCapability = {
    .block = {ISP_CMD_CAPABILITY, IspFixedChannel(0), CAPABILITY_BLOCK_SIZE},
    .fromBlock = CapabilityFromBlock,
    .prepare = CapabilityRanges,
    .get = {"%s[%s:%llu] Get ISP Capability Successfully. BrightnessMin:%lld, BrightnessMax:%lld, "
            "SharpenessMin:%lld, SharpenessMax:%lld, HueMin:%lld, HueMax:%lld, ContrastMin:%lld, ContrastMax:%lld, "
            "StaturationMin:%lld, StaturationMax:%lld, SensorHorizonSize:%lf, SensorVerticalSize:%lf.",
            "%s[%s:%llu] 获取图像能力集参数成功. 亮度最小值:%lld, 亮度最大值:%lld, 锐化最小值:%lld, 锐化最大值:%lld, "
            "色度最小值:%lld, 色度最大值:%lld, 对比度最小值:%lld, 对比度最大值:%lld, 饱和度最小值:%lld, "
            "饱和度最大值:%lld, sensor水平尺寸:%lf, sensor垂直尺寸:%lf.",
            "%s[%s:%llu] Get ISP Capability Fail.", "%s[%s:%llu] 获取图像能力集参数失败."},
    .logValues = LogCapability,
};

// ---- Autofocus status ----

void AfStatusFromBlock(const uint8_t* block, _AfStatusInfo& status)
{
    status.horDegree = IspBlockGet<double>(block, AF_HOR_DEGREE_OFFSET);
    status.verDegree = IspBlockGet<double>(block, AF_VER_DEGREE_OFFSET);
    status.zoomRatioCur = IspBlockGet<double>(block, AF_ZOOM_RATIO_OFFSET);
    status.calibrateState = IspBlockGet<uint32_t>(block, AF_CALIBRATE_STATE_OFFSET);
}

void LogAfStatus(const IspStage& stage, const char* en, const char* cn, const _AfStatusInfo& status)
{
    stage.OpLog(en, cn, status.horDegree, status.verDegree, status.zoomRatioCur, status.calibrateState);
}

// The status is read from the service's channel 0; ChannelId is only checked.
constexpr IspResource<_AfStatusInfo> kAfStatus = {
    .block = {ISP_CMD_AF, IspFixedChannel(0), AF_BLOCK_SIZE},
    .fromBlock = AfStatusFromBlock,
    .get = {"%s[%s:%llu] Get ISP Af Status Param Successfully. HorDegree: %lf, VerDegree:%lf, CurRatio:%lf "
            ",calibrateState:%u.",
            "%s[%s:%llu] 获取图像自动聚焦状态参数成功. 水平视场角: %lf, 垂直视场角:%lf, 当前倍率:%lf, "
            "聚焦标定状态:%u.",
            "%s[%s:%llu] Get ISP Af Status Param Fail.", "%s[%s:%llu] 获取图像自动聚焦状态参数失败."},
    .logValues = LogAfStatus,
};

// ---- Autofocus plane calibration points ----

// A GET reads the calibration fields into their record; a PUT keeps the
// whole block as its current and its request record, so that the bytes it
// does not change go back as read. Both address the service's channel
// ChannelId - 101.
constexpr IspBlock kAfPlaneBlock = {ISP_CMD_AF, kIspChannelOfRequest, AF_BLOCK_SIZE};

#define AF_PLANE_VALUES_EN                                                                                    \
    "Enable:%d, pointMax: %u, point1_x:%u, point1_y:%u, point2_x:%u, point2_y:%u, point3_x:%u, point3_y:%u, " \
    "point4_x:%u, point4_y:%u."
#define AF_PLANE_VALUES_CN                                                                                                    \
    "使能:%d, 点数: %u, 点1x坐标:%u, 点1y坐标:%u, 点2x坐标:%u, 点2y坐标:%u, 点3x坐标:%u, 点3y坐标:%u, " \
    "点4x坐标:%u, 点4y坐标:%u."

void LogAfPlaneValues(const IspStage& stage, const char* en, const char* cn, int enable,
                      const _AfCalibratePointAttr& plane)
{
    const _AfPlanePoint* p = plane.planePoints;
    stage.OpLog(en, cn, enable, plane.PointMax, p[0].planePointX, p[0].planePointY, p[1].planePointX, p[1].planePointY,
                p[2].planePointX, p[2].planePointY, p[3].planePointX, p[3].planePointY);
}

void LogAfPlane(const IspStage& stage, const char* en, const char* cn, const _AfCalibratePointAttr& plane)
{
    LogAfPlaneValues(stage, en, cn, static_cast<int>(plane.enable), plane);
}

constexpr IspResource<_AfCalibratePointAttr> kAfPlane = {
    .block = kAfPlaneBlock,
    .fromBlock = [](const uint8_t* block, _AfCalibratePointAttr& plane) { plane = AfPlaneFromBlock(block); },
    .get = {"%s[%s:%llu] Get ISP Af PlanePoint Param Successfully. " AF_PLANE_VALUES_EN,
            "%s[%s:%llu] 获取图像自动聚焦平面标定点参数成功. " AF_PLANE_VALUES_CN,
            "%s[%s:%llu] Get ISP Af PlanePoint Param Fail.", "%s[%s:%llu] 获取图像自动聚焦平面标定点参数失败."},
    .logValues = LogAfPlane,
};

// A PUT logs the values of the block that was (to be) sent, the switch byte
// as it stands there.
void LogAfPlaneBlock(const IspStage& stage, const char* en, const char* cn, const AfParamBlock& block)
{
    LogAfPlaneValues(stage, en, cn, block.data[AF_PLANE_ENABLE_OFFSET], AfPlaneFromBlock(block.data));
}

// The first word of the block as read goes back to the service as 0. A
// failed request is answered with its status too.
constexpr IspResource<AfParamBlock> kAfPlaneWrite = {
    .block = kAfPlaneBlock,
    .adjust = [](uint8_t* block) { IspBlockPut<uint32_t>(block, 0, 0); },
    .put = {"%s[%s:%llu] Set ISP Af PlanePoint Param Successfully. " AF_PLANE_VALUES_EN,
            "%s[%s:%llu] 设置图像自动聚焦平面标定点参数成功. " AF_PLANE_VALUES_CN,
            "%s[%s:%llu] Set ISP Af PlanePoint Param Fail. " AF_PLANE_VALUES_EN,
            "%s[%s:%llu] 设置图像自动聚焦平面标定点参数失败. " AF_PLANE_VALUES_CN},
    .logValues = LogAfPlaneBlock,
    .onPutFailure = IspPutFailure::Status,
};

#undef AF_PLANE_VALUES_EN
#undef AF_PLANE_VALUES_CN

}  // namespace

// The switch is one byte that the service keeps as 0 or 1; any other value
// is read as on, so that the record always holds a valid boolean.
_AfCalibratePointAttr AfPlaneFromBlock(const uint8_t* block)
{
    _AfCalibratePointAttr plane;
    plane.enable = block[AF_PLANE_ENABLE_OFFSET] != 0;
    plane.PointMax = IspBlockGet<uint32_t>(block, AF_PLANE_POINT_MAX_OFFSET);
    for (int i = 0; i < AF_PLANE_POINT_COUNT; ++i) {
        plane.planePoints[i].planePointX = IspBlockGet<uint32_t>(block, PointOffset(i, false));
        plane.planePoints[i].planePointY = IspBlockGet<uint32_t>(block, PointOffset(i, true));
    }
    return plane;
}

void AfPlaneToBlock(const _AfCalibratePointAttr& plane, uint8_t* block)
{
    block[AF_PLANE_ENABLE_OFFSET] = plane.enable ? 1 : 0;
    IspBlockPut<uint32_t>(block, AF_PLANE_POINT_MAX_OFFSET, plane.PointMax);
    for (int i = 0; i < AF_PLANE_POINT_COUNT; ++i) {
        IspBlockPut<uint32_t>(block, PointOffset(i, false), plane.planePoints[i].planePointX);
        IspBlockPut<uint32_t>(block, PointOffset(i, true), plane.planePoints[i].planePointY);
    }
}

// ---- Image capability ----

KXAPI_STAGE int RunGetIspIaasCapability(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                        tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kCapability>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasCapability(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kCapability>(__func__, header, result, ctIn, buf);
}

// ---- Autofocus status ----

KXAPI_STAGE int RunGetIspIaasAfStatus(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kAfStatus>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasAfStatus(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                         tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kAfStatus>(__func__, header, result, ctIn, buf);
}

// ---- Autofocus plane calibration points ----

KXAPI_STAGE int RunGetIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn)
{
    return IspRunGet<kAfPlane>(__func__, header, client, ctIn);
}

KXAPI_STAGE int FormatGetIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                             tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return IspFormatGet<kAfPlane>(__func__, header, result, ctIn, buf);
}

KXAPI_STAGE int PreProcPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                              tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    return IspPreProc<kAfPlaneWrite>(__func__, pstHeader, pstSynSock, pstCtIn);
}

// The body is merged into the calibration fields of the current block; the
// merged block, copied whole, becomes the request record.
KXAPI_STAGE int ParsePutIspIaasAfPlanePoint(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                            tagHTTP_CNTENT_INTER_S* pstCtIn)
{
    if (IspArgsMissing(IspArgs::Parse, pstHeader, pstHttpContent, pstCtIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, pstHeader, pstCtIn);
    auto* current = stage.Required<AfParamBlock>(KXAPI_SLOT_CURRENT);
    if (current == nullptr) {
        return VW_ERR_PARAM;
    }
    _AfCalibratePointAttr plane = AfPlaneFromBlock(current->data);
    bool enableNamed = false;
    if (kxcodec::merge_text(pstHttpContent->pcBody, nullptr, plane, "enable", &enableNamed) != 0) {
        return stage.Refuse();
    }
    // A body that does not name the switch sends its byte back as read.
    const uint8_t enableAsRead = current->data[AF_PLANE_ENABLE_OFFSET];
    AfPlaneToBlock(plane, current->data);
    if (!enableNamed) {
        current->data[AF_PLANE_ENABLE_OFFSET] = enableAsRead;
    }
    IspOwned<AfParamBlock> request = stage.Alloc<AfParamBlock>();
    if (request == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    if (!stage.Zero(request.get(), sizeof(AfParamBlock))) {
        return VW_ERR_PARAM;
    }
    IspCopyScratch(request.get(), sizeof(AfParamBlock), current, sizeof(AfParamBlock));
    stage.Hang(KXAPI_SLOT_REQUEST, std::move(request));
    return VW_SUCCESS;
}

// The request record is the block itself, written as it is. ChannelId is
// read unsigned here: a negative value is unreadable. The server calls this
// stage only after PreProc and Parse succeeded; should the request record
// still be missing, nothing is written.
KXAPI_STAGE int RunPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn)
{
    if (IspArgsMissing(kAfPlaneWrite.putArgs, header, client, ctIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, header, ctIn);
    uint32_t channel = 0;
    if (const int rc = stage.SrvChannel(IspChannelRule::Unsigned, kAfPlaneWrite.block.channel, &channel);
        rc != VW_SUCCESS) {
        return rc;
    }
    auto* request = stage.Required<AfParamBlock>(KXAPI_SLOT_REQUEST);
    if (request == nullptr) {
        return VW_ERR_PARAM;
    }
    if (!stage.SrvSet(kAfPlaneWrite.block.command, channel, request, kAfPlaneWrite.block.size)) {
        return VW_ERR_PARAM;
    }
    return VW_SUCCESS;
}

KXAPI_STAGE int FormatPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                             tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return IspFormatPut<kAfPlaneWrite>(__func__, header, result, ctIn, buf);
}

// ---- Exported codec and response instances of the focus and capability records ----

using PointMaxCoder = MemberCoder<_AfCalibratePointAttr, unsigned int, NullAlloc, NullDealloc>;
using PlanePointsCoder =
    MemberCoder<_AfCalibratePointAttr, _AfPlanePoint[AF_PLANE_POINT_COUNT], NullAlloc, NullDealloc>;

using RangeCoder = MemberCoder<_BasicInfo, _ParaRange, NullAlloc, NullDealloc>;
using ScaleCoder = MemberCoder<_SensorInfo, _SensorScale, NullAlloc, NullDealloc>;

template KXAPI_EXPORT char* json_encode<_IspAbility>(_IspAbility const&);
template KXAPI_EXPORT int FormatCommonResponse<_IspAbility>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                                            tagHTTP_BUF_S*);
template KXAPI_EXPORT int RangeCoder::encode(_BasicInfo const&, json_object*) const;
template KXAPI_EXPORT json_object* json_encode_obj<_SensorInfo, ScaleCoder>(_SensorInfo const&, ScaleCoder);
template KXAPI_EXPORT char* json_encode<_AfStatusInfo>(_AfStatusInfo const&);
template KXAPI_EXPORT int FormatCommonResponse<_AfStatusInfo>(tagHTTP_HEADER_S*, VW_RESULT_TYPE,
                                                              tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);
template KXAPI_EXPORT char* json_encode<_AfCalibratePointAttr>(_AfCalibratePointAttr const&);
template KXAPI_EXPORT int json_decode<_AfCalibratePointAttr>(const char*, void*, _AfCalibratePointAttr&);
template KXAPI_EXPORT int json_encode_member<_AfCalibratePointAttr, unsigned int, NullAlloc, NullDealloc,
                                             PlanePointsCoder>(_AfCalibratePointAttr const&, json_object*,
                                                               PointMaxCoder const&, PlanePointsCoder);
template KXAPI_EXPORT json_object* json_encode_array<_AfPlanePoint>(_AfPlanePoint const*, int);
template KXAPI_EXPORT int FormatCommonResponse<_AfCalibratePointAttr>(tagHTTP_HEADER_S*, VW_RESULT_TYPE,
                                                                      tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);
