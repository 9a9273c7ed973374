/*
 * The requests the benchmark measures: one per resource and direction, each
 * with the module's stages as the server calls them and the request's floor.
 *
 * A floor is what the request costs at the least, written by hand with
 * nothing of the module's: json-c's own work (parse the body, look up the
 * keys a merge needs, build and print the response), the zero-fills, copies
 * and records the stage contract demands, and the same platform calls the
 * module must make (the ChannelId reads, the service exchanges, the command
 * channel, the operation-log entries and the server's status response),
 * which the null platform answers at no cost of their own. Anything a
 * request costs beyond its floor is the module's overhead.
 */
#ifndef BENCH_CASES_H
#define BENCH_CASES_H

#include <cstddef>

#include "kxapi_business_common.h"
#include "null_platform.h"

namespace bench {

/* The stages of one request, in the server's order; absent stages are null. */
struct Flow {
    KxapiPreProcStage preProc;
    KxapiParseStage parse;
    KxapiRunStage run;
    KxapiFormatStage format;
};

using Floor = int (*)(Request& request);

struct Case {
    const char* name; /* resource and direction, as the tables print it */
    const char* method;
    const char* url;
    const char* body;
    Flow module;
    Floor floor;
};

extern const Case kCases[];
extern const size_t kCaseCount;

/* Calls the stages as the server does: each only after the one before
 * succeeded, then the Format stage with the last result. The Format stage's
 * result, or the Run stage's when there is no Format stage. */
int RunModule(const Flow& flow, Request& request);

/* The floors, one per case. */
int FloorFakeRatioGet(Request& r);
int FloorCapabilityGet(Request& r);
int FloorAfStatusGet(Request& r);
int FloorAwbGet(Request& r);
int FloorAwbPut(Request& r);
int FloorExtreColorGet(Request& r);
int FloorExtreColorPut(Request& r);
int FloorAfPlanePointGet(Request& r);
int FloorAfPlanePointPut(Request& r);
int FloorThermalGet(Request& r);
int FloorThermalPut(Request& r);
int FloorAEExpLockPut(Request& r);
int FloorRestoreDefaults(Request& r);
int FloorResetThermal(Request& r);
int FloorResetFog(Request& r);
int FloorResetSpeed(Request& r);
int FloorResetBacklight(Request& r);

}  // namespace bench

#endif /* BENCH_CASES_H */
