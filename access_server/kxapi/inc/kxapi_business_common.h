/*
 * Declarations shared by every stage of the access server's business
 * modules: the export of stage functions, the diagnostic and operation-log
 * conventions, and the record slots of the request context.
 */
#ifndef KXAPI_BUSINESS_COMMON_H
#define KXAPI_BUSINESS_COMMON_H

#include "kxapi_common.h"
#include "securec.h"
#include "vw_log.h"

/* Stage functions are called by the server under their plain names. */
#define KXAPI_STAGE extern "C" __attribute__((visibility("default")))
/* Template instances the server and other modules link against. */
#define KXAPI_EXPORT __attribute__((visibility("default")))

/* Module number of every diagnostic and operation-log line of this module. */
#define KXAPI_LOG_MODULE 4

/* Diagnostic levels. */
#define KXAPI_LOG_TRACE 0
#define KXAPI_LOG_INFO 1
#define KXAPI_LOG_ERROR 3

/* Operation-log channels; every entry goes to both, primary first. */
#define KXAPI_OPLOG_PRIMARY 2
#define KXAPI_OPLOG_SECONDARY 1

/* One diagnostic line: the module, a level, the server's debug flag as it is
 * now, the reserved word, the source path text and line, and the text. */
#define KXAPI_WRITE_LOG(file, level, line, ...) \
    VW_WriteLog(KXAPI_LOG_MODULE, (level), g_enDebugFlag, 0, (file), (line), __VA_ARGS__)

#define KXAPI_COMMON_SRC "access_server/kxapi/inc/kxapi_business_common"

/* The record slots of tagHTTP_CNTENT_INTER_S. */
enum KxapiSlot : int {
    KXAPI_SLOT_CURRENT = 0, /* current settings, hung by PreProc, read by Parse */
    KXAPI_SLOT_REQUEST = 1, /* request record, hung by Parse, read by RunPut and FormatPut */
    KXAPI_SLOT_RESULT = 2,  /* result record, hung by RunGet, read by FormatGet */
};

inline void* KxapiSlotGet(tagHTTP_CNTENT_INTER_S* pstCtIn, KxapiSlot slot) { return pstCtIn->apvSlot[slot]; }

#endif /* KXAPI_BUSINESS_COMMON_H */
