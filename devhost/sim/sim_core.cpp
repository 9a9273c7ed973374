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

Exchange::Exchange(SimCore& core, Service service, const char* kindKey, const char* kindName, int command,
                   std::optional<uint32_t> channel, json_object* channelValue, const std::string& requestHex)
    : core_(core), fault_(core.faults.Take(command, channel)), entry_(json_object_new_object())
{
    json_object* o = entry_.get();
    json_object_object_add(o, "service", json_object_new_string(ServiceName(service)));
    json_object_object_add(o, kindKey, json_object_new_string(kindName));
    json_object_object_add(o, "command", json_object_new_int(command));
    json_object_object_add(o, "channel", channelValue);
    json_object_object_add(o, "request", json_object_new_string(requestHex.c_str()));
    if (fault_) {
        json_object_object_add(o, "fault", json_object_new_string(FaultKindName(fault_->kind)));
    }
}

void Exchange::End(const char* codeKey, const Bytes* reply, long long code)
{
    json_object* o = entry_.get();
    json_object_object_add(o, "reply", reply != nullptr ? json_object_new_string(ToHex(*reply).c_str()) : nullptr);
    json_object_object_add(o, codeKey, reply != nullptr ? json_object_new_int(static_cast<int>(code)) : nullptr);
    core_.journal.Add(std::move(entry_));
}

}  // namespace devhost
