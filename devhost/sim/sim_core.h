// What both simulators keep besides their device state, and the link
// requests they answer alike.
#ifndef DEVHOST_SIM_SIM_CORE_H
#define DEVHOST_SIM_SIM_CORE_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "faults.h"
#include "journal.h"

namespace devhost {

// What both simulators keep besides their device state, and the link
// requests they answer alike: "ping", "journal" (with "since" and "upTo"),
// "faults", "faults.arm"
// (with "fault"), "faults.clear".
struct SimCore {
    FaultTable faults;
    Journal journal;
    std::atomic<bool> stop{false};
};

// The reply to one of the shared requests, or null when `op` is another.
// `service` is the service this simulator plays (the fault kinds it takes).
Json HandleCoreRequest(SimCore& core, const std::string& op, json_object* request, Service service);

// One exchange of a simulator as its journal keeps it: begun with what was
// asked and the fault armed for it (taken, so counted as used), ended with
// what was answered, or with nothing for a fault that leaves it unanswered.
class Exchange {
public:
    // The entry's first members: the service, how the service names the
    // exchange's kind (`kindKey`: "operation", "messageType"), the command,
    // the channel (null for none), the request's bytes and the fault.
    Exchange(SimCore& core, Service service, const char* kindKey, const char* kindName, int command,
             std::optional<uint32_t> channel, json_object* channelValue, const std::string& requestHex);

    const std::optional<Fault>& fault() const { return fault_; }
    bool Meets(FaultKind kind) const { return fault_ && fault_->kind == kind; }
    // No answer ("noAnswer") or a failed send ("sendFailure").
    bool Unanswered() const { return Meets(FaultKind::NoAnswer) || Meets(FaultKind::SendFailure); }
    // Ends the entry with the reply's bytes and its code (`codeKey`:
    // "status", "result"), or with nulls when unanswered, and journals it.
    void End(const char* codeKey, const Bytes* reply, long long code);

private:
    SimCore& core_;
    std::optional<Fault> fault_;
    Json entry_;
};

}  // namespace devhost

#endif  // DEVHOST_SIM_SIM_CORE_H
