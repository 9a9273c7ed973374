// The faults a simulator can play on the exchanges it serves, and the table
// of those armed.
#ifndef DEVHOST_LINK_FAULTS_H
#define DEVHOST_LINK_FAULTS_H

#include <atomic>
#include <condition_variable>
#include <climits>
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
    int command = -1;                 // -1: every command
    std::optional<uint32_t> channel;  // none: every channel
    long long value = 0;              // delay ms, status, content length, Result
    long long remaining = -1;         // exchanges it still applies to; -1 without end
};

// The two services a simulator plays.
enum Service : unsigned { Isp = 1, Control = 2 };
// "isp" or "control", as the routes and the document spell them.
const char* ServiceName(Service service);

// Every fault kind, with what the routes, the simulators, the API document
// and (through the document) the console know of it.
struct FaultKindRow {
    FaultKind kind;
    const char* name;      // as the routes spell it
    unsigned services;     // the services that play it
    const char* valueKey;  // the member carrying the fault's value, if any
    const char* about;     // what it does, in a few words
    long long min = 0;     // the value's range: what the field it lands in holds
    long long max = 0;
};

inline constexpr FaultKindRow kFaultKinds[] = {
    {FaultKind::NoAnswer, "noAnswer", Isp | Control, nullptr,
     "no reply: the exchange is held until the faults are cleared, or until the module's time-out"},
    {FaultKind::Delay, "delay", Isp | Control, "ms", "the reply comes this many milliseconds later", 0, 600000},
    {FaultKind::Status, "status", Isp, "status", "the reply carries this status code and changes nothing", 0,
     UINT16_MAX},
    {FaultKind::ShortContent, "shortContent", Isp, "length",
     "the reply's content is cut to this many bytes (without it: to half)", 0, INT32_MAX},
    {FaultKind::Result, "result", Control, "result", "the reply carries this Result and changes nothing", INT32_MIN,
     INT32_MAX},
    {FaultKind::SendFailure, "sendFailure", Isp | Control, nullptr,
     "the request cannot be sent: the module's write fails"},
    {FaultKind::Down, "down", Control, nullptr, "the socket is gone until the faults are cleared"},
};

const FaultKindRow& RowOf(FaultKind kind);
bool Plays(Service service, FaultKind kind);
// Fault names as the inspection routes spell them.
std::optional<FaultKind> FaultKindByName(const std::string& name);
inline const char* FaultKindName(FaultKind kind) { return RowOf(kind).name; }

// The largest command number and channel a fault (and the inspection
// routes) may name: a command is a signed 32-bit number on both links, a
// channel an unsigned one.
inline constexpr long long kCommandMax = INT32_MAX;
inline constexpr long long kChannelMax = UINT32_MAX;

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
