/*
 * The access server's common library as its plug-in modules see it: the
 * records the server hands to every stage, the result type, the query
 * parameter reader, the status-only response and the debug flag.
 */
#ifndef KXAPI_COMMON_H
#define KXAPI_COMMON_H

#include <cstddef>
#include <cstdint>
#include <string>

#define KXAPI_HOST_API __attribute__((visibility("default")))

/* Stage result: 0 success, otherwise a failure code (see VW_RESULT_E). */
typedef int VW_RESULT_TYPE;

enum VW_RESULT_E : int {
    VW_SUCCESS = 0,
    VW_ERR_PARAM = 1,       /* bad argument, missing record, failed service or bounds-checked call */
    VW_ERR_QUERY = 3,       /* a query parameter could not be read */
    VW_ERR_BODY = 4,        /* request body or a value in it refused */
    VW_ERR_NO_MEMORY = 18,  /* a record could not be allocated */
    VW_ERR_RANGE = -1,      /* query parameter outside the stage's accepted values; Format-stage failure */
};

enum VW_DEBUG_FLAG_E : int {
    VW_DEBUG_OFF = 0,
    VW_DEBUG_ON = 1,
};

/* The server's debug switch, read by modules at every diagnostic. */
extern KXAPI_HOST_API VW_DEBUG_FLAG_E g_enDebugFlag;

#define HTTP_METHOD_LEN 12
#define HTTP_URL_LEN 1024
#define HTTP_OPLOG_TEXT_LEN 64

/* The parsed request. The URL text holds the request target with its query
 * string ("/path?ChannelId=101"); the operation-log identity names who sent
 * the request: the user, the client's address and its port. */
struct tagHTTP_HEADER_S {
    char szMethod[HTTP_METHOD_LEN];
    char szUrl[HTTP_URL_LEN];
    char szOpUser[HTTP_OPLOG_TEXT_LEN];
    char szOpAddr[HTTP_OPLOG_TEXT_LEN];
    unsigned long long ullOpPort;
};

/* The request body: pcBody (the eighth word) points to NUL-terminated text. */
struct tagHTTP_CONTENT_S {
    void* pvConn;
    uintptr_t ulContentType;
    uintptr_t ulContentLen;
    uintptr_t ulReceived;
    uintptr_t ulBufSize;
    void* pvHostPriv;
    void* pvHostPriv2;
    char* pcBody;
};

/* The socket of the synchronous command channel to the control process. */
struct tagUNIX_SOCKET_S {
    int iFd;
    char szPath[108];
};

/* One client connection. */
struct tagHTTP_CLIENT_S {
    int iConnFd;
    tagUNIX_SOCKET_S* pstSynSock;
};

/* Per-request context. The first three words are the record slots through
 * which the stages of one request hand records on; the server frees every
 * non-null slot with free() when the request ends. */
struct tagHTTP_CNTENT_INTER_S {
    void* apvSlot[3];
    void* pvHostPriv;
};

/* The response buffer. Copy2Buf (the sixth word) appends len bytes of text
 * and returns -1 when they do not fit, the new length otherwise. */
struct tagHTTP_BUF_S {
    char* pcData;
    uintptr_t ulCapacity;
    uintptr_t ulLength;
    uintptr_t ulHttpStatus;
    void* pvHostPriv;
    int (*Copy2Buf)(tagHTTP_BUF_S* pstBuf, const char* pcText, uint32_t uiLen);
};

/* The places where the server's modules find these fields. */
static_assert(offsetof(tagHTTP_HEADER_S, szUrl) == HTTP_METHOD_LEN, "the URL text follows the method text");
static_assert(offsetof(tagHTTP_CONTENT_S, pcBody) == 7 * sizeof(void*), "the body is the eighth word");
static_assert(offsetof(tagHTTP_CNTENT_INTER_S, apvSlot) == 0, "the record slots come first");
static_assert(offsetof(tagHTTP_BUF_S, Copy2Buf) == 5 * sizeof(void*), "Copy2Buf is the sixth word");

/* Makes pstBuf an empty response buffer over pcStorage (capacity bytes) with
 * the server's own Copy2Buf: it appends the bytes after ulLength only when
 * they and a terminating NUL fit into ulCapacity, keeps the text terminated,
 * and returns -1 without writing when they do not fit or a pointer is null. */
KXAPI_HOST_API void HTTP_InitBuf(tagHTTP_BUF_S* pstBuf, char* pcStorage, size_t capacity);

/* Reads query parameter `key` from the request URL as a decimal number of T.
 * Returns 0 and stores the value when the key is present with a whole,
 * in-range number; returns VW_ERR_QUERY and leaves *value unchanged for a
 * missing key, an empty or non-numeric value, or one outside T's range.
 * The query is the text after the first '?', split on '&'; the first
 * parameter whose name equals key exactly is used, even if its value is bad.
 * A number is decimal digits with an optional leading '-' for int only; a
 * '+', blanks or any other character refuse it. Values are not
 * percent-decoded, so "%2D1" is refused. A null pstHeader or value returns
 * VW_ERR_PARAM. */
template <class T>
VW_RESULT_TYPE GetURIQueryParamByKey(tagHTTP_HEADER_S* pstHeader, std::string key, T* value);

extern template KXAPI_HOST_API VW_RESULT_TYPE GetURIQueryParamByKey<int>(tagHTTP_HEADER_S*, std::string, int*);
extern template KXAPI_HOST_API VW_RESULT_TYPE GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S*, std::string,
                                                                                  unsigned int*);

/* The status envelope of a response that carries no settings record. The
 * server keeps the HTTP status it answers with in the leading word. */
struct KXAPI_RESPONSE_STATUS {
    char RequestURL[256];
    long long StatusCode;
    char StatusString[128];
};

struct KXAPI_RESPONSE {
    unsigned long long ullHttpStatus;
    KXAPI_RESPONSE_STATUS ResponseStatus;
};

/* The envelope for this request and stage result: the request URL from the
 * header, the result code as StatusCode and its text (see the README for the
 * table of codes, texts and HTTP statuses). */
KXAPI_HOST_API KXAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result);

/* Writes the envelope for `result` as the whole response into pstBuf and sets
 * the buffer's HTTP status. 0 when written; -1 for a null header or buffer,
 * or when the text could not be made or taken by the buffer. */
KXAPI_HOST_API int FormatCommonStatus(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result,
                                      tagHTTP_CNTENT_INTER_S* pstCtIn, tagHTTP_BUF_S* pstBuf);

#endif /* KXAPI_COMMON_H */
