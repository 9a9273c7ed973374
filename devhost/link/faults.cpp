#include "faults.h"

#include <chrono>
#include <climits>
#include <cstdint>

namespace devhost {

namespace {

// A member that must be an integer from `min` to `max` when it is there.
bool InRange(json_object* o, const char* key, long long min, long long max, std::string& error)
{
    if (JsonGet(o, key) == nullptr) {
        return true;
    }
    const std::optional<long long> value = JsonInt(o, key);
    if (value && *value >= min && *value <= max) {
        return true;
    }
    error =
        std::string("\"") + key + "\" must be an integer from " + std::to_string(min) + " to " + std::to_string(max);
    return false;
}

}  // namespace

const FaultKindRow& RowOf(FaultKind kind)
{
    for (const FaultKindRow& row : kFaultKinds) {
        if (row.kind == kind) {
            return row;
        }
    }
    return kFaultKinds[0];
}

bool Plays(Service service, FaultKind kind) { return (RowOf(kind).services & service) != 0; }

const char* ServiceName(Service service) { return service == Service::Isp ? "isp" : "control"; }

std::optional<FaultKind> FaultKindByName(const std::string& name)
{
    for (const FaultKindRow& n : kFaultKinds) {
        if (name == n.name) {
            return n.kind;
        }
    }
    return std::nullopt;
}


std::optional<Fault> FaultFromJson(json_object* o, std::string& error)
{
    const std::optional<std::string> kindName = JsonString(o, "kind");
    const std::optional<FaultKind> kind = kindName ? FaultKindByName(*kindName) : std::nullopt;
    if (!kind) {
        error = "\"kind\" must be one of";
        for (const FaultKindRow& row : kFaultKinds) {
            error += std::string(&row == kFaultKinds ? " " : ", ") + row.name;
        }
        return std::nullopt;
    }
    const FaultKindRow& row = RowOf(*kind);
    if (!InRange(o, "command", 0, kCommandMax, error) || !InRange(o, "channel", 0, kChannelMax, error) ||
        !InRange(o, "count", 0, INT64_MAX, error) ||
        (row.valueKey != nullptr && !InRange(o, row.valueKey, row.min, row.max, error))) {
        return std::nullopt;
    }
    Fault fault;
    fault.kind = *kind;
    fault.command = static_cast<int>(JsonInt(o, "command").value_or(-1));
    if (const std::optional<long long> channel = JsonInt(o, "channel")) {
        fault.channel = static_cast<uint32_t>(*channel);
    }
    fault.remaining = JsonInt(o, "count").value_or(-1);
    if (const char* key = row.valueKey) {
        const std::optional<long long> value = JsonInt(o, key);
        // A short content without a length means half the block.
        if (!value && *kind != FaultKind::ShortContent) {
            error = std::string("a \"") + *kindName + "\" fault needs the integer \"" + key + "\"";
            return std::nullopt;
        }
        fault.value = value.value_or(-1);
    }
    return fault;
}

Json FaultToJson(const Fault& fault)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "kind", json_object_new_string(FaultKindName(fault.kind)));
    if (fault.command >= 0) {
        json_object_object_add(o.get(), "command", json_object_new_int(fault.command));
    }
    if (fault.channel) {
        json_object_object_add(o.get(), "channel", json_object_new_int64(*fault.channel));
    }
    if (const char* key = RowOf(fault.kind).valueKey) {
        json_object_object_add(o.get(), key, json_object_new_int64(fault.value));
    }
    if (fault.remaining >= 0) {
        json_object_object_add(o.get(), "count", json_object_new_int64(fault.remaining));
    }
    return o;
}

void FaultTable::Arm(const Fault& fault)
{
    std::lock_guard<std::mutex> guard(lock_);
    faults_.push_back(fault);
}

void FaultTable::Clear()
{
    std::lock_guard<std::mutex> guard(lock_);
    faults_.clear();
    generation_++;
    cleared_.notify_all();
}

std::optional<Fault> FaultTable::Take(int command, std::optional<uint32_t> channel)
{
    std::lock_guard<std::mutex> guard(lock_);
    for (auto it = faults_.begin(); it != faults_.end(); ++it) {
        const bool commandMatches = it->command < 0 || it->command == command;
        const bool channelMatches = !it->channel || (channel && *channel == *it->channel);
        if (it->kind == FaultKind::Down || !commandMatches || !channelMatches) {
            continue;
        }
        const Fault fault = *it;
        if (it->remaining > 0 && --it->remaining == 0) {
            faults_.erase(it);
        }
        return fault;
    }
    return std::nullopt;
}

bool FaultTable::Armed(FaultKind kind)
{
    std::lock_guard<std::mutex> guard(lock_);
    for (const Fault& f : faults_) {
        if (f.kind == kind) {
            return true;
        }
    }
    return false;
}

Json FaultTable::ToJson()
{
    std::lock_guard<std::mutex> guard(lock_);
    Json list(json_object_new_array());
    for (const Fault& f : faults_) {
        json_object_array_add(list.get(), FaultToJson(f).release());
    }
    return list;
}

bool FaultTable::WaitCleared(const std::atomic<bool>& stop)
{
    std::unique_lock<std::mutex> guard(lock_);
    const unsigned long start = generation_;
    while (generation_ == start && !stop) {
        cleared_.wait_for(guard, std::chrono::milliseconds(100));
    }
    return generation_ != start;
}

}  // namespace devhost
