/*
 * Image tuning resources: records and stages.
 */
#ifndef QTNAPI_ISP_TUNING_H
#define QTNAPI_ISP_TUNING_H

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

KXAPI_STAGE int RunGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                       tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int FormatGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                          tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

#endif /* QTNAPI_ISP_TUNING_H */
