/*
 * Focus and capability resources: records and stages.
 */
#ifndef QTNAPI_ISP_FOCUS_H
#define QTNAPI_ISP_FOCUS_H

#include <cstdint>

#include "kxapi_business_common.h"

/* The autofocus parameter block (service command 17). */
#define AF_BLOCK_SIZE 1240
#define AF_PLANE_ENABLE_OFFSET 1044
#define AF_PLANE_POINT_MAX_OFFSET 1048
#define AF_PLANE_POINTS_OFFSET 1052
#define AF_ZOOM_RATIO_OFFSET 1208
#define AF_HOR_DEGREE_OFFSET 1216
#define AF_VER_DEGREE_OFFSET 1224
#define AF_CALIBRATE_STATE_OFFSET 1232
#define AF_PLANE_POINT_COUNT 4

/* The autofocus block as the context holds it between the stages of a PUT. */
struct AfParamBlock {
    uint8_t data[AF_BLOCK_SIZE];
};

/* The lens's state as the service reports it. */
struct _AfStatusInfo {
    double horDegree;
    double verDegree;
    double zoomRatioCur;
    unsigned int calibrateState;
};

struct _AfPlanePoint {
    unsigned int planePointX;
    unsigned int planePointY;
};

/* The focus plane calibration: switch, points in use, the four points. */
struct _AfCalibratePointAttr {
    bool enable;
    unsigned int PointMax;
    _AfPlanePoint planePoints[AF_PLANE_POINT_COUNT];
};

/* Image capability: the permitted range of each basic image adjustment, and
 * the sensor's size. */
struct _ParaRange {
    unsigned long long begin;
    unsigned long long end;
};

struct _BasicInfo {
    _ParaRange brightness;
    _ParaRange sharpeness;
    _ParaRange hue;
    _ParaRange contrast;
    _ParaRange saturation;
};

struct _SensorScale {
    double width;
    double height;
};

struct _SensorInfo {
    _SensorScale scale;
};

struct _IspAbility {
    _BasicInfo basicInfos;
    _SensorInfo sensorInfos;
};
static_assert(sizeof(_IspAbility) == 12 * 8, "ten 64-bit integers and two doubles");

/* Capability block (service command 5): the sensor's width and height. */
#define CAPABILITY_BLOCK_SIZE 40
#define CAPABILITY_WIDTH_OFFSET 16
#define CAPABILITY_HEIGHT_OFFSET 24

template <>
struct MemberTable<_ParaRange> {
    static auto coders()
    {
        using T = _ParaRange;
        return std::make_tuple(member(&T::begin, "begin"), member(&T::end, "end"));
    }
};

template <>
struct MemberTable<_BasicInfo> {
    static auto coders()
    {
        using T = _BasicInfo;
        return std::make_tuple(member(&T::brightness, "brightness"), member(&T::sharpeness, "sharpeness"),
                               member(&T::hue, "hue"), member(&T::contrast, "contrast"),
                               member(&T::saturation, "saturation"));
    }
};

template <>
struct MemberTable<_SensorScale> {
    static auto coders()
    {
        using T = _SensorScale;
        return std::make_tuple(member(&T::width, "width"), member(&T::height, "height"));
    }
};

template <>
struct MemberTable<_SensorInfo> {
    static auto coders() { return std::make_tuple(member(&_SensorInfo::scale, "scale")); }
};

template <>
struct MemberTable<_IspAbility> {
    static auto coders()
    {
        using T = _IspAbility;
        return std::make_tuple(member(&T::basicInfos, "basicInfos"), member(&T::sensorInfos, "sensorInfos"));
    }
};

template <>
struct MemberTable<_AfStatusInfo> {
    static auto coders()
    {
        return std::make_tuple(member(&_AfStatusInfo::horDegree, "horDegree"),
                               member(&_AfStatusInfo::verDegree, "verDegree"),
                               member(&_AfStatusInfo::zoomRatioCur, "zoomRatioCur"),
                               member(&_AfStatusInfo::calibrateState, "calibrateState"));
    }
};

template <>
struct MemberTable<_AfPlanePoint> {
    static auto coders()
    {
        return std::make_tuple(member(&_AfPlanePoint::planePointX, "planePointX"),
                               member(&_AfPlanePoint::planePointY, "planePointY"));
    }
};

template <>
struct MemberTable<_AfCalibratePointAttr> {
    static auto coders()
    {
        return std::make_tuple(member(&_AfCalibratePointAttr::enable, "enable"),
                               member(&_AfCalibratePointAttr::PointMax, "PointMax"),
                               member(&_AfCalibratePointAttr::planePoints, "planePoints"));
    }
};

/* The calibration fields of an autofocus block and back; the other bytes of
 * the block are not touched. */
_AfCalibratePointAttr AfPlaneFromBlock(const uint8_t* block);
void AfPlaneToBlock(const _AfCalibratePointAttr& plane, uint8_t* block);

KXAPI_STAGE int RunGetIspIaasCapability(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                        tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasCapability(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

KXAPI_STAGE int RunGetIspIaasAfStatus(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasAfStatus(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                         tagHTTP_BUF_S* buf);

KXAPI_STAGE int RunGetIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                             tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);
KXAPI_STAGE int PreProcPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                              tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int ParsePutIspIaasAfPlanePoint(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                            tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int RunPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatPutIspIaasAfPlanePoint(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                             tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

#endif /* QTNAPI_ISP_FOCUS_H */
