#include "stage_table.h"

#include <dlfcn.h>

namespace devhost {

namespace {

const char* KindPrefix(StageKind kind)
{
    switch (kind) {
        case kRunGet:
            return "RunGet";
        case kFormatGet:
            return "FormatGet";
        case kPreProcPut:
            return "PreProcPut";
        case kParsePut:
            return "ParsePut";
        case kRunPut:
            return "RunPut";
        case kFormatPut:
            return "FormatPut";
    }
    return "";
}

// Looks up one stage and stores it in `slot` with the stage type's signature.
template <class Stage>
void Resolve(void* module, const ResourceRow& row, StageKind kind, Stage& slot, std::vector<std::string>& missing)
{
    if ((row.stages & kind) == 0) {
        return;
    }
    const std::string name = StageName(kind, row.name);
    void* symbol = dlsym(module, name.c_str());
    if (symbol == nullptr) {
        missing.push_back(name);
        return;
    }
    slot = reinterpret_cast<Stage>(symbol);
}

}  // namespace

std::string StageName(StageKind kind, const char* resource)
{
    return std::string(KindPrefix(kind)) + "IspIaas" + resource;
}

std::vector<Resource> ResolveStages(void* module, std::vector<std::string>& missing)
{
    std::vector<Resource> resources;
    for (const ResourceRow& row : kResourceRows) {
        Resource r{row.name};
        const size_t missingBefore = missing.size();
        Resolve(module, row, kRunGet, r.runGet, missing);
        Resolve(module, row, kFormatGet, r.formatGet, missing);
        Resolve(module, row, kPreProcPut, r.preProcPut, missing);
        Resolve(module, row, kParsePut, r.parsePut, missing);
        Resolve(module, row, kRunPut, r.runPut, missing);
        Resolve(module, row, kFormatPut, r.formatPut, missing);
        if (missing.size() == missingBefore) {
            resources.push_back(r);
        }
    }
    return resources;
}

}  // namespace devhost
