/*
 * Declarations shared by every stage of the access server's business
 * modules: the export of stage functions, the diagnostic and operation-log
 * conventions, and the record slots of the request context.
 */
#ifndef KXAPI_BUSINESS_COMMON_H
#define KXAPI_BUSINESS_COMMON_H

#include <cstring>

#include "kx_member_codec.h"
#include "kxapi_common.h"
#include "kxapi_diag.h"
#include "securec.h"

/* Stage functions are called by the server under their plain names. */
#define KXAPI_STAGE extern "C" __attribute__((visibility("default")))
/* Template instances the server and other modules link against. */
#define KXAPI_EXPORT __attribute__((visibility("default")))

/* Operation-log channels; every entry goes to both, primary first. */
#define KXAPI_OPLOG_PRIMARY 2
#define KXAPI_OPLOG_SECONDARY 1

/* The four kinds of stage, as the server calls them. */
using KxapiParseStage = int (*)(tagHTTP_HEADER_S* pstHeader, tagHTTP_CONTENT_S* pstHttpContent,
                                tagHTTP_CNTENT_INTER_S* pstCtIn);
using KxapiPreProcStage = int (*)(tagHTTP_HEADER_S* pstHeader, tagUNIX_SOCKET_S* pstSynSock,
                                  tagHTTP_CNTENT_INTER_S* pstCtIn);
using KxapiRunStage = int (*)(tagHTTP_HEADER_S* pstHeader, tagHTTP_CLIENT_S* pstClient,
                              tagHTTP_CNTENT_INTER_S* pstCtIn);
using KxapiFormatStage = int (*)(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* pstCtIn,
                                 tagHTTP_BUF_S* pstBuf);

#define KXAPI_COMMON_SRC "access_server/kxapi/inc/kxapi_business_common"

/* The record slots of tagHTTP_CNTENT_INTER_S. */
enum KxapiSlot : int {
    KXAPI_SLOT_CURRENT = 0, /* current settings, hung by PreProc, read by Parse */
    KXAPI_SLOT_REQUEST = 1, /* request record, hung by Parse, read by RunPut and FormatPut */
    KXAPI_SLOT_RESULT = 2,  /* result record, hung by RunGet, read by FormatGet */
};

inline void* KxapiSlotGet(tagHTTP_CNTENT_INTER_S* pstCtIn, KxapiSlot slot) { return pstCtIn->apvSlot[slot]; }

/* The status envelope as JSON: "ResponseStatus" holding "RequestURL",
 * "StatusCode" and "StatusString". */
template <>
struct MemberTable<KXAPI_RESPONSE_STATUS> {
    static auto coders()
    {
        return std::make_tuple(member(&KXAPI_RESPONSE_STATUS::RequestURL, "RequestURL"),
                               member(&KXAPI_RESPONSE_STATUS::StatusCode, "StatusCode"),
                               member(&KXAPI_RESPONSE_STATUS::StatusString, "StatusString"));
    }
};

template <>
struct MemberTable<KXAPI_RESPONSE> {
    static auto coders() { return std::make_tuple(member(&KXAPI_RESPONSE::ResponseStatus, "ResponseStatus")); }
};

/* An envelope whose "ResponseStatus" object cannot be made is no envelope:
 * its encoder gives null, as for any other failure to build it. */
template <>
json_object* jsonEncoder<KXAPI_RESPONSE>::encode_nulldata(KXAPI_RESPONSE const& envelope, void* unused);

extern template KXAPI_EXPORT char* json_encode<KXAPI_RESPONSE>(KXAPI_RESPONSE const&);

/* Writes the JSON response of a GET into pstBuf: the result record's text
 * when the context holds one, otherwise the status envelope for `result`.
 * 0 on success, -1 on a null argument or when the text could not be made or
 * taken by the buffer. The record stays on the context. */
template <class T>
int FormatCommonResponse(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* pstCtInt,
                         tagHTTP_BUF_S* pstBuf)
{
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr) {
        KXAPI_WRITE_LOG(KXAPI_COMMON_SRC, KXAPI_LOG_ERROR, __LINE__,
                        "[KXAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]", "FormatCommonResponse",
                        static_cast<void*>(pstHeader), static_cast<void*>(pstCtInt), static_cast<void*>(pstBuf));
        return -1;
    }
    char* text = nullptr;
    if (const T* record = static_cast<const T*>(KxapiSlotGet(pstCtInt, KXAPI_SLOT_RESULT))) {
        text = json_encode<T>(*record);
    } else {
        const KXAPI_RESPONSE envelope = FillResponseStatusParam(pstHeader, result);
        text = json_encode<KXAPI_RESPONSE>(envelope);
    }
    if (text == nullptr) {
        KXAPI_WRITE_LOG(KXAPI_COMMON_SRC, KXAPI_LOG_ERROR, __LINE__, "[KXAPI]:%s: json_encode fail",
                        "FormatCommonResponse");
        return -1;
    }
    const uint32_t length = static_cast<uint32_t>(std::strlen(text));
    const int taken = pstBuf->Copy2Buf(pstBuf, text, length);
    std::free(text);
    if (taken == -1) {
        KXAPI_WRITE_LOG(KXAPI_COMMON_SRC, KXAPI_LOG_ERROR, __LINE__, "[KXAPI]:%s: Copy2Buf fail, dataLen[%llu]",
                        "FormatCommonResponse", static_cast<unsigned long long>(length));
        return -1;
    }
    return 0;
}

#endif /* KXAPI_BUSINESS_COMMON_H */
