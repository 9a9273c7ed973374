#include "sim_core.h"

#include <algorithm>
#include <cstdint>

namespace devhost {

Json HandleCoreRequest(SimCore& core, const std::string& op, json_object* request, Service service)
{
    if (op == "ping") {
        return JsonOk();
    }
    if (op == "journal") {
        const long long since = JsonInt(request, "since").value_or(0);
        const long long upTo = JsonInt(request, "upTo").value_or(INT64_MAX);
        return core.journal.ToJson(static_cast<unsigned long long>(std::max(since, 0LL)),
                                   static_cast<unsigned long long>(std::max(upTo, 0LL)));
    }
    if (op == "faults") {
        return core.faults.ToJson();
    }
    if (op == "faults.clear") {
        core.faults.Clear();
        return JsonOk();
    }
    if (op == "faults.arm") {
        std::string error;
        const std::optional<Fault> fault = FaultFromJson(JsonGet(request, "fault"), error);
        if (!fault) {
            return JsonError(error);
        }
        if (Plays(service, fault->kind)) {
            core.faults.Arm(*fault);
            return JsonOk();
        }
        return JsonError(std::string("this service cannot play the fault \"") + FaultKindName(fault->kind) + "\"");
    }
    return nullptr;
}

}  // namespace devhost
