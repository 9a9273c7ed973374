/*
 * The diagnostic line of the access server's business modules: one
 * VW_WriteLog call with the module number, a level, the server's debug flag
 * as it is at the call, the reserved word, a source path text and line.
 */
#ifndef KXAPI_DIAG_H
#define KXAPI_DIAG_H

#include "kxapi_common.h"
#include "vw_log.h"

/* Module number of every diagnostic and operation-log line of this module. */
#define KXAPI_LOG_MODULE 4

/* Diagnostic levels. */
#define KXAPI_LOG_TRACE 0
#define KXAPI_LOG_INFO 1
#define KXAPI_LOG_ERROR 3

#define KXAPI_WRITE_LOG(file, level, line, ...) \
    VW_WriteLog(KXAPI_LOG_MODULE, (level), g_enDebugFlag, 0, (file), (line), __VA_ARGS__)

#endif /* KXAPI_DIAG_H */
