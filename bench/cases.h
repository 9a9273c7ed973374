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

/* One whole request: the module's stages, or a floor. */
using Whole = int (*)(Request& request);

struct Case {
    const char* name; /* resource and direction, as the tables print it */
    const char* method;
    const char* url;
    const char* body;
    Whole module; /* the request's flow of stages */
    Whole floor;
};

extern const Case kCases[];
extern const size_t kCaseCount;

/* The stages of one request as the server calls them: each only after the
 * one before succeeded, then the Format stage with the last result. The
 * stages are template arguments, so the calls are direct: what is measured
 * is the stages, not a driver. */
template <KxapiRunStage Run, KxapiFormatStage Format>
int GetFlow(Request& r)
{
    return Format(&r.header, Run(&r.header, &r.client, &r.ctx), &r.ctx, &r.buf);
}

template <KxapiParseStage Parse, KxapiRunStage Run, KxapiFormatStage Format>
int ParsedPutFlow(Request& r)
{
    int rc = Parse(&r.header, &r.content, &r.ctx);
    if (rc == 0) {
        rc = Run(&r.header, &r.client, &r.ctx);
    }
    return Format(&r.header, rc, &r.ctx, &r.buf);
}

template <KxapiPreProcStage PreProc, KxapiParseStage Parse, KxapiRunStage Run, KxapiFormatStage Format>
int PutFlow(Request& r)
{
    const int rc = PreProc(&r.header, &r.sock, &r.ctx);
    return rc == 0 ? ParsedPutFlow<Parse, Run, Format>(r) : Format(&r.header, rc, &r.ctx, &r.buf);
}

/* A reset: its Run stage alone. */
template <KxapiRunStage Run>
int ResetFlow(Request& r)
{
    return Run(&r.header, &r.client, &r.ctx);
}

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
