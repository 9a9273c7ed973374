// The faults a simulator can play on the exchanges it serves, and the table
// of those armed.
#ifndef DEVHOST_LINK_FAULTS_H
#define DEVHOST_LINK_FAULTS_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "json.h"

namespace devhost {

enum class FaultKind { NoAnswer, Delay, Status, ShortContent, Result, SendFailure, Down };

struct Fault {
    FaultKind kind = FaultKind::NoAnswer;
    int command = -1;                // -1: every command
    std::optional<uint32_t> channel; // none: every channel
    long long value = 0;             // delay ms, status, content length, Result
    long long remaining = -1;        // exchanges it still applies to; -1 without end
};

// Fault names as the inspection routes spell them.
std::optional<FaultKind> FaultKindByName(const std::string& name);
const char* FaultKindName(FaultKind kind);
// The member of a fault's JSON that carries its value ("ms", "status",
// "length", "result"), or null for a kind without one.
const char* FaultValueKey(FaultKind kind);
// What a fault of the kind does, in a few words.
const char* FaultKindAbout(FaultKind kind);

// The fault kinds each simulator plays.
inline constexpr FaultKind kIspFaultKinds[] = {FaultKind::NoAnswer, FaultKind::Delay, FaultKind::Status,
                                               FaultKind::ShortContent, FaultKind::SendFailure};
inline constexpr FaultKind kControlFaultKinds[] = {FaultKind::NoAnswer, FaultKind::Delay, FaultKind::Result,
                                                   FaultKind::SendFailure, FaultKind::Down};
// A fault from its JSON description; nullopt with `error` set when it is bad.
std::optional<Fault> FaultFromJson(json_object* o, std::string& error);
Json FaultToJson(const Fault& fault);

class FaultTable {
public:
    void Arm(const Fault& fault);
    // Disarms every fault and releases the exchanges held by "noAnswer".
    void Clear();
    // The first armed fault for this exchange, counted as used.
    std::optional<Fault> Take(int command, std::optional<uint32_t> channel);
    bool Armed(FaultKind kind);
    Json ToJson();
    // Blocks until the faults are cleared (or `stop` is set); true when cleared.
    bool WaitCleared(const std::atomic<bool>& stop);

private:
    std::mutex lock_;
    std::condition_variable cleared_;
    unsigned long generation_ = 0;
    std::vector<Fault> faults_;
};

}  // namespace devhost

#endif  // DEVHOST_LINK_FAULTS_H
