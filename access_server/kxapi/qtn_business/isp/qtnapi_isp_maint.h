/*
 * Maintenance resources: restore the ISP defaults, reset the thermal
 * settings, and reset the fog, speed and backlight adaptation. Each is one
 * Run stage of a PUT without a body; it writes its own operation-log entry.
 */
#ifndef QTNAPI_ISP_MAINT_H
#define QTNAPI_ISP_MAINT_H

#include "kxapi_business_common.h"

/* The fog (service command 7) and backlight (6) adaptation blocks: their
 * first word is the one a reset sets. */
#define ADAPT_BLOCK_SIZE 16
/* The backlight state word that the backlight flag stands for. */
#define BACKLIGHT_STATE_SET 3u
/* What the adaptation configuration (command 3213) replies, by reply offset. */
#define ADAPT_REPLY_FOG 216
#define ADAPT_REPLY_SPEED 232
#define ADAPT_REPLY_BACKLIGHT 248
/* The thermal service channel a thermal reset addresses. */
#define THERMAL_RESET_CHANNEL 1u

KXAPI_STAGE int RunPutIspIaasRestoreDefaultParams(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                  tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int RunPutIspIaasResetThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int RunPutIspIaasResetFogAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                           tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int RunPutIspIaasResetSpeedAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                             tagHTTP_CNTENT_INTER_S* ctIn);
KXAPI_STAGE int RunPutIspIaasResetBackLightAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                 tagHTTP_CNTENT_INTER_S* ctIn);

#endif /* QTNAPI_ISP_MAINT_H */
