// What both simulators keep besides their device state, and the link
// requests they answer alike.
#ifndef DEVHOST_SIM_SIM_CORE_H
#define DEVHOST_SIM_SIM_CORE_H

#include <atomic>
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

}  // namespace devhost

#endif  // DEVHOST_SIM_SIM_CORE_H
