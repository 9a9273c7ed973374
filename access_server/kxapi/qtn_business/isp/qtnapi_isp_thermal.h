/*
 * Thermal imaging settings of the thermal channel: the settings record, its
 * JSON object, its mapping to the ISP service's thermal block, and the stages
 * of the thermal resource.
 *
 * The record is 24 consecutive 32-bit words. The service keeps the same 24
 * words in a 100-byte block, in the same order except for colorBar, which the
 * block holds after the seven white-hot words; the block's last word is
 * reserved.
 */
#ifndef QTNAPI_ISP_THERMAL_H
#define QTNAPI_ISP_THERMAL_H

#include <cstddef>
#include <cstdint>

#include "kxapi_business_common.h"

/* Automatic non-uniformity correction. */
struct _AutoCorrection {
    int enable;                      /* 1 on, 0 off */
    unsigned int correctTime;        /* one of 5, 10, 15, 20, 30, 45, 60 */
    unsigned int correctTemperature; /* one of 1, 3, 5, 10, 15 */
};

/* Non-uniformity correction. */
struct _CorrectionInfo {
    unsigned int correctOperation; /* correction mode */
    _AutoCorrection autoModeData;
};

/* Basic picture settings. */
struct _BasicData {
    unsigned int brightness;
    unsigned int contrast;
    int detailEnhace; /* detail enhancement, 1 on, 0 off */
};

/* White-hot mode: three ranges with their on/off switches and bounds. */
struct _WhiteMode {
    int highRange;
    int midRange;
    int lowRange;
    int highMin;
    int midMax;
    int midMin;
    int lowMax;
};

/* Pseudo-colour. */
struct _ColorInfo {
    unsigned int colorMode;
    int colorBar; /* colour bar shown (1) or not (0) */
    _WhiteMode whiteHotModeData;
};

/* Thermal autofocus. */
struct _TempAfInfo {
    unsigned int afMode;
    unsigned int ctrlOperation;
    int tempAdapt;
    unsigned int afSpeed;
    unsigned int compensateTemp;
};

/* The thermal settings; the blind pixel and its operation lead. */
struct _ThermalInfo {
    unsigned int pointX;
    unsigned int pointY;
    unsigned int blindOperation;
    _CorrectionInfo correctData;
    _BasicData basicData;
    _ColorInfo fakeColorData;
    _TempAfInfo thermalAfData;
};

/* Number of settings words in the record. */
#define THERMAL_WORDS 24

static_assert(sizeof(_ThermalInfo) == THERMAL_WORDS * sizeof(uint32_t), "thermal record is 24 words");
static_assert(offsetof(_ThermalInfo, fakeColorData.colorBar) == 11 * sizeof(uint32_t), "colorBar is word 11");
static_assert(offsetof(_ThermalInfo, thermalAfData.compensateTemp) == 23 * sizeof(uint32_t), "last word is 23");

/* The thermal block of the ISP service: the 24 words and a reserved word. */
#define THERMAL_BLOCK_SIZE 100
/* Offsets in the block that differ from the record's order. */
#define THERMAL_BLOCK_WHITE_HOT 44
#define THERMAL_BLOCK_COLOR_BAR 72
#define THERMAL_BLOCK_RESERVED 96
/* The thermal settings are kept on the service's channel 2. */
#define THERMAL_SRV_CHANNEL 2

template <>
struct MemberTable<_AutoCorrection> {
    static auto coders()
    {
        return std::make_tuple(member(&_AutoCorrection::enable, "enable"),
                               member(&_AutoCorrection::correctTime, "correctTime"),
                               member(&_AutoCorrection::correctTemperature, "correctTemperature"));
    }
};

template <>
struct MemberTable<_CorrectionInfo> {
    static auto coders()
    {
        return std::make_tuple(member(&_CorrectionInfo::correctOperation, "correctOperation"),
                               member(&_CorrectionInfo::autoModeData, "autoModeData"));
    }
};

template <>
struct MemberTable<_BasicData> {
    static auto coders()
    {
        return std::make_tuple(member(&_BasicData::brightness, "brightness"), member(&_BasicData::contrast, "contrast"),
                               member(&_BasicData::detailEnhace, "detailEnhace"));
    }
};

template <>
struct MemberTable<_WhiteMode> {
    static auto coders()
    {
        return std::make_tuple(member(&_WhiteMode::highRange, "highRange"), member(&_WhiteMode::midRange, "midRange"),
                               member(&_WhiteMode::lowRange, "lowRange"), member(&_WhiteMode::highMin, "highMin"),
                               member(&_WhiteMode::midMax, "midMax"), member(&_WhiteMode::midMin, "midMin"),
                               member(&_WhiteMode::lowMax, "lowMax"));
    }
};

template <>
struct MemberTable<_ColorInfo> {
    static auto coders()
    {
        return std::make_tuple(member(&_ColorInfo::colorMode, "colorMode"), member(&_ColorInfo::colorBar, "colorBar"),
                               member(&_ColorInfo::whiteHotModeData, "whiteHotModeData"));
    }
};

/* The JSON object lists the focus speed before the control operation and the
 * temperature adaptation, unlike the record. */
template <>
struct MemberTable<_TempAfInfo> {
    static auto coders()
    {
        return std::make_tuple(member(&_TempAfInfo::afMode, "afMode"), member(&_TempAfInfo::afSpeed, "afSpeed"),
                               member(&_TempAfInfo::ctrlOperation, "ctrlOperation"),
                               member(&_TempAfInfo::tempAdapt, "tempAdapt"),
                               member(&_TempAfInfo::compensateTemp, "compensateTemp"));
    }
};

/* "blindData" and its "blindPosition" have no record of their own: they
 * gather the first three members. */
template <>
struct MemberTable<_ThermalInfo> {
    static auto coders()
    {
        return std::make_tuple(
            group<_ThermalInfo>("blindData",
                                group<_ThermalInfo>("blindPosition", member(&_ThermalInfo::pointX, "pointX"),
                                                    member(&_ThermalInfo::pointY, "pointY")),
                                member(&_ThermalInfo::blindOperation, "blindOperation")),
            member(&_ThermalInfo::correctData, "correctData"), member(&_ThermalInfo::basicData, "basicData"),
            member(&_ThermalInfo::fakeColorData, "fakeColorData"),
            member(&_ThermalInfo::thermalAfData, "thermalAfData"));
    }
};

extern template KXAPI_EXPORT char* json_encode<_ThermalInfo>(_ThermalInfo const&);
extern template KXAPI_EXPORT int json_decode<_ThermalInfo>(const char*, void*, _ThermalInfo&);

/* Fills every member of the record from a thermal block of
 * THERMAL_BLOCK_SIZE bytes; the reserved word is not read. */
void ThermalFromBlock(const uint8_t* block, _ThermalInfo& info);
/* Writes the record into a thermal block of THERMAL_BLOCK_SIZE bytes, all of
 * it: the reserved word is written as 0. */
void ThermalToBlock(const _ThermalInfo& info, uint8_t* block);

KXAPI_STAGE int RunGetIspIaasThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasThermal(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                        tagHTTP_BUF_S* buf);
KXAPI_STAGE int PreProcPutIspIaasThermal(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                         tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int ParsePutIspIaasThermal(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                       tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int RunPutIspIaasThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatPutIspIaasThermal(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                        tagHTTP_BUF_S* buf);

#endif /* QTNAPI_ISP_THERMAL_H */
