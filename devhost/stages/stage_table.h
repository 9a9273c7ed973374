// The module's resources as the development host serves them: one row per
// resource, the stages it has, and the functions dlsym found for them.
#ifndef DEVHOST_STAGE_TABLE_H
#define DEVHOST_STAGE_TABLE_H

#include <string>
#include <vector>

#include "kxapi_business_common.h"

namespace devhost {

enum StageKind : unsigned {
    kRunGet = 1u << 0,
    kFormatGet = 1u << 1,
    kPreProcPut = 1u << 2,
    kParsePut = 1u << 3,
    kRunPut = 1u << 4,
    kFormatPut = 1u << 5,
};

struct ResourceRow {
    const char* name;  // the stage suffix and the last part of the route
    unsigned stages;   // StageKind bits
};

inline constexpr unsigned kGetStages = kRunGet | kFormatGet;
inline constexpr unsigned kPutStages = kPreProcPut | kParsePut | kRunPut | kFormatPut;

inline constexpr ResourceRow kResourceRows[] = {
    {"FakeRatio", kGetStages},
    {"Awb", kGetStages | kPutStages},
    {"AEExpLock", kParsePut | kRunPut | kFormatPut},
    {"ExtreColor", kGetStages | kPutStages},
    {"RestoreDefaultParams", kRunPut},
    {"ResetThermal", kRunPut},
    {"ResetFogAdapt", kRunPut},
    {"ResetSpeedAdapt", kRunPut},
    {"ResetBackLightAdapt", kRunPut},
    {"Capability", kGetStages},
    {"AfStatus", kGetStages},
    {"AfPlanePoint", kGetStages | kPutStages},
    {"Thermal", kGetStages | kPutStages},
};

// The exported name of one stage: kind, verb, "IspIaas", resource.
std::string StageName(StageKind kind, const char* resource);

struct Resource {
    std::string name;
    KxapiRunStage runGet = nullptr;
    KxapiFormatStage formatGet = nullptr;
    KxapiPreProcStage preProcPut = nullptr;
    KxapiParseStage parsePut = nullptr;
    KxapiRunStage runPut = nullptr;
    KxapiFormatStage formatPut = nullptr;
};

// Resolves every stage of every row in the loaded module. The names of the
// stages not found go to `missing`; a resource with a missing stage is left
// out of the result.
std::vector<Resource> ResolveStages(void* module, std::vector<std::string>& missing);

}  // namespace devhost

#endif  // DEVHOST_STAGE_TABLE_H
