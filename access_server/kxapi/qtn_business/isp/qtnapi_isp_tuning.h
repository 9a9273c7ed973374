/*
 * Image tuning resources: records and stages.
 */
#ifndef QTNAPI_ISP_TUNING_H
#define QTNAPI_ISP_TUNING_H

#include <cstdint>

#include "kxapi_business_common.h"

/* The fake-colour ratio as the ISP service holds it. */
struct _FakeRatio {
    double fakeRatio;
};

template <>
struct MemberTable<_FakeRatio> {
    static auto coders() { return std::make_tuple(member(&_FakeRatio::fakeRatio, "fakeRatio")); }
};

/* Fake-ratio block (service command 28): the ratio is the double at 200. */
#define FAKE_RATIO_BLOCK_SIZE 608
#define FAKE_RATIO_OFFSET 200

/* Automatic white balance: the region weights as one text of at most 255
 * characters. */
#define AWB_WEIGHTS_LEN 256
/* A write is refused unless the weights hold at least this many '1'. */
#define AWB_MIN_ONES 12

struct _AwbInfo {
    char roiWeightArray[AWB_WEIGHTS_LEN];
};

template <>
struct MemberTable<_AwbInfo> {
    static auto coders()
    {
        using T = _AwbInfo;
        return std::make_tuple(group<T>("regionAwbAttr", member(&T::roiWeightArray, "roiWeightArray")));
    }
};

/* Extreme-colour (black-light) fusion: its strength, unchecked. */
struct _ExtreColorInfo {
    unsigned int fusionStrength;
};

template <>
struct MemberTable<_ExtreColorInfo> {
    static auto coders() { return std::make_tuple(member(&_ExtreColorInfo::fusionStrength, "fusionStrength")); }
};

/* Payloads of the white-balance and extreme-colour commands: the channel
 * field, then the settings from byte 8. The current-settings record of a PUT
 * is this much of the reply payload. */
#define AWB_PAYLOAD_LEN 264
#define EXTRE_COLOR_PAYLOAD_LEN 16

/* Exposure lock: exactly the four bytes the ISP service's create exchange
 * carries, sent and copied back. The flag is a byte rather than a bool: the
 * service's reply byte is copied over it, and any value it sends stays a
 * defined value (the JSON reads it as a boolean, the log as its number). */
struct _AEExpLockInfo {
    uint8_t enable; /* 1 locks, 0 unlocks */
    uint8_t reserved[3];
};
static_assert(sizeof(_AEExpLockInfo) == 4, "the lock record is the exchange's four bytes");

template <>
struct MemberTable<_AEExpLockInfo> {
    static auto coders() { return std::make_tuple(member(&_AEExpLockInfo::enable, "enable", KX_KIND_BOOL)); }
};

KXAPI_STAGE int RunGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                       tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                          tagHTTP_BUF_S* buf);

KXAPI_STAGE int RunGetIspIaasAwb(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasAwb(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                    tagHTTP_BUF_S* buf);
KXAPI_STAGE int PreProcPutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                     tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int ParsePutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                   tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int RunPutIspIaasAwb(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                 tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int FormatPutIspIaasAwb(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                    tagHTTP_BUF_S* buf);

KXAPI_STAGE int RunGetIspIaasExtreColor(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                        tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasExtreColor(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);
KXAPI_STAGE int PreProcPutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                            tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int ParsePutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                          tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int RunPutIspIaasExtreColor(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                        tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int FormatPutIspIaasExtreColor(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

KXAPI_STAGE int ParsePutIspIaasAEExpLock(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                         tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int RunPutIspIaasAEExpLock(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                                       tagHTTP_CNTENT_INTER_S* pstCtIn);
KXAPI_STAGE int FormatPutIspIaasAEExpLock(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                          tagHTTP_BUF_S* buf);

#endif /* QTNAPI_ISP_TUNING_H */
