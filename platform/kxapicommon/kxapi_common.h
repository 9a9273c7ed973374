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
    VW_ERR_PARAM = 1,      /* bad argument, missing record, failed service or bounds-checked call */
    VW_ERR_QUERY = 3,      /* a query parameter could not be read */
    VW_ERR_BODY = 4,       /* request body or a value in it refused */
    VW_ERR_NO_MEMORY = 18, /* a record could not be allocated */
    VW_ERR_RANGE = -1,     /* query parameter outside the stage's accepted values; Format-stage failure */
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

/* The socket of the synchronous command channel to the control process:
 * iFd is a connected socket, or negative when each command connects to
 * szPath (see RestSendSynUnixMsg). */
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

/* ---- Synchronous command channel to the control process ----
 *
 * RestSendSynUnixMsg sends one command over a Unix stream socket and waits
 * for its reply. Frame, all integers in host byte order (both ends share a
 * machine):
 *
 *   request:  offset 0  4 bytes  magic VW_SYN_MAGIC
 *                    4  4 bytes  message type (VW_MSG_TYPE)
 *                    8  4 bytes  command code (VW_CMD_TYPE)
 *                   12  4 bytes  body length, always VW_CMD_BODY_LEN
 *                   16  the command body (vwCmdBody)
 *   reply:    offset 0  4 bytes  magic VW_SYN_MAGIC
 *                    4  4 bytes  reply length, always VW_MSG_DATA_LEN
 *                    8  the reply record (MSG_DATA)
 *
 * The reply record carries the received message code at byte 164, the
 * command's Result at 176 (0 success) and the payload from 200, laid out
 * like the command body.
 */
#define VW_SYN_MAGIC 0x4e595356u /* "VSYN" in little-endian byte order */
#define VW_CMD_BODY_LEN 21208
#define VW_MSG_DATA_LEN 21408
#define VW_SYN_REQUEST_HEAD 16
#define VW_SYN_REPLY_HEAD 8

enum VW_MSG_TYPE : int {
    VW_MSG_READ = 0,
    VW_MSG_WRITE = 1,
};

/* Command codes of the control process. */
enum VW_CMD_TYPE : int {
    VW_CMD_SPEED_ADAPT_SET = 3210,
    VW_CMD_ADAPT_CONFIG_GET = 3213,
    VW_CMD_EXTRE_COLOR = 3229,
    VW_CMD_AWB = 3231,
};

struct vwCmdBody {
    unsigned char aucData[VW_CMD_BODY_LEN];
};

struct MSG_DATA {
    unsigned char aucData[VW_MSG_DATA_LEN];
};

/* What RestSendSynUnixMsg returns besides 0. */
enum VW_SYN_ERR_E : int {
    VW_SYN_ERR_ARG = 1,     /* a null body or reply, or no socket to use */
    VW_SYN_ERR_CONNECT = 2, /* the control process could not be reached */
    VW_SYN_ERR_SEND = 3,    /* the command could not be written */
    VW_SYN_ERR_REPLY = 4,   /* the peer closed, or the reply was short or malformed */
    VW_SYN_ERR_TIMEOUT = 5, /* no whole reply within the time-out */
};

/* Sends one command and receives its reply into pstReply. The socket used is
 * the one pstSock already holds when its iFd is not negative (it stays
 * open); otherwise a new connection is made to pcPath (or, when pcPath is
 * null or empty, to pstSock->szPath) for this one command and closed again.
 * The time-out is in milliseconds and bounds each wait for the peer; 0 means
 * wait as long as the peer takes, which is how every module calls it.
 * Returns 0 when the reply was received whole, a VW_SYN_ERR_E otherwise; the
 * reply buffer's contents are then not to be used. No SIGPIPE is raised. */
extern "C" KXAPI_HOST_API uint64_t RestSendSynUnixMsg(const char* pcPath, VW_MSG_TYPE enType, VW_CMD_TYPE enCmd,
                                                      const vwCmdBody* pstBody, tagUNIX_SOCKET_S* pstSock,
                                                      MSG_DATA* pstReply, uint64_t ullTimeout);

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
 * header, the result code as StatusCode and its text (see docs/DECISIONS.md for the
 * table of codes, texts and HTTP statuses). */
KXAPI_HOST_API KXAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result);

/* Writes the envelope for `result` as the whole response into pstBuf and sets
 * the buffer's HTTP status. 0 when written; -1 for a null header or buffer,
 * or when the text could not be made or taken by the buffer. */
KXAPI_HOST_API int FormatCommonStatus(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result,
                                      tagHTTP_CNTENT_INTER_S* pstCtIn, tagHTTP_BUF_S* pstBuf);

#endif /* KXAPI_COMMON_H */
