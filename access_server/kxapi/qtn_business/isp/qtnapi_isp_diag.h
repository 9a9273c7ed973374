/*
 * Diagnostics of the ISP module: every line names the module's fixed source
 * path text and the line of the call. Helpers that report for a stage take
 * the stage's place (IspWhere, defaulted at the stage's own call) and write
 * with ISP_LOG_AT, so that the line is the stage's, not the helper's.
 */
#ifndef QTNAPI_ISP_DIAG_H
#define QTNAPI_ISP_DIAG_H

#include <source_location>

#include "kxapi_diag.h"

#define ISP_MODULE_SRC "access_server/kxapi/qtn_business/isp/qtnapi_isp_module"

using IspWhere = std::source_location;

/* A diagnostic line at the line of this call. */
#define ISP_DIAG(level, ...) KXAPI_WRITE_LOG(ISP_MODULE_SRC, (level), __LINE__, __VA_ARGS__)
/* A diagnostic line at the place `where`. */
#define ISP_LOG_AT(level, where, ...) \
    KXAPI_WRITE_LOG(ISP_MODULE_SRC, (level), static_cast<int>((where).line()), __VA_ARGS__)

#endif /* QTNAPI_ISP_DIAG_H */
