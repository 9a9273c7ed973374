// What must hold on the camera's 32-bit ARM as on the development host: the
// host records' layout and the widths of the service words. The values passed
// through the variadic log calls after the 64-bit port are checked by the
// operation-log table, whose requests carry a port above 32 bits, when the
// suite runs cross-built under qemu-user (the armhf preset).

#include "doubles.h"
#include "qtnapi_isp_focus.h"

// Service blocks are read and written as 4-byte words and 8-byte doubles;
// the channel travels as a 4-byte header key.
static_assert(sizeof(unsigned int) == 4 && sizeof(int) == 4, "service words are 4 bytes");
static_assert(sizeof(double) == 8 && sizeof(unsigned long long) == 8, "doubles and 64-bit values are 8 bytes");
// 64-bit members are 8-aligned on the camera's ABI (ARM EABI) as on x86-64,
// so the host records have the same layout on both.
static_assert(offsetof(tagHTTP_HEADER_S, ullOpPort) == 1168, "the operation-log port follows the texts");
static_assert(offsetof(KXAPI_RESPONSE, ResponseStatus) == 8, "the envelope's status follows one 64-bit word");
static_assert(offsetof(KXAPI_RESPONSE_STATUS, StatusCode) == 256, "the status code follows the URL");
static_assert(sizeof(KXAPI_RESPONSE) == 400, "the envelope is 400 bytes");
static_assert(offsetof(_AfStatusInfo, calibrateState) == 24 && sizeof(_AfStatusInfo) == 32,
              "the focus status is three doubles and a word");
static_assert(sizeof(_AfCalibratePointAttr) == 40, "the plane calibration is a switch word and nine words");
