// Pieces shared by the development host and its two device simulators: JSON
// values, hex texts, the link over which the host asks a simulator about its
// state, the armed faults and the journal of exchanges.
#ifndef DEVHOST_SIM_COMMON_H
#define DEVHOST_SIM_COMMON_H

#include <json-c/json.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace devhost {

using Bytes = std::vector<uint8_t>;

// An owned json-c value.
struct JsonPut {
    void operator()(json_object* o) const { json_object_put(o); }
};
using Json = std::unique_ptr<json_object, JsonPut>;

Json JsonParse(const std::string& text);
std::string JsonText(json_object* o);
// The member `key` of an object, or null when o is not an object or lacks it.
json_object* JsonGet(json_object* o, const char* key);
std::optional<long long> JsonInt(json_object* o, const char* key);
std::optional<std::string> JsonString(json_object* o, const char* key);
Json JsonError(const std::string& message);

std::string ToHex(const uint8_t* data, size_t len);
inline std::string ToHex(const Bytes& b) { return ToHex(b.data(), b.size()); }
// Lower- or upper-case hex digits, two per byte; nothing else.
std::optional<Bytes> FromHex(const std::string& text);

// ---- the link between the host and a simulator ----------------------------
// One request and one reply, each a JSON object carried as the content of
// framed messages (the framed message library's own frame) over a socket
// pair. A text longer than a frame's content limit travels in several frames,
// each but the last marked with the header key kLinkMoreKey, so that a reply
// of any size arrives whole.
inline constexpr int kLinkMoreKey = 1;

// Serves requests on fd until the peer closes it. A reply that cannot be sent
// is answered with an {"error"} object instead; only a lost peer ends it.
// After each reply the process's free memory is returned to the system.
void LinkServe(int fd, const std::function<Json(json_object* request)>& handle);

class LinkClient {
public:
    explicit LinkClient(int fd) : fd_(fd) {}
    // The reply, or an {"error"} object when the simulator is gone.
    Json Call(json_object* request);

private:
    std::mutex lock_;
    int fd_;
};

// ---- faults ---------------------------------------------------------------

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

// ---- journal --------------------------------------------------------------

// Entries numbered in increasing order, each kept as its compact JSON text,
// of which only the last `keep` stay; the older ones are counted as dropped.
// The entries are a ring, their texts lie one after the other in one buffer
// whose dropped head is cut off once it is larger than the rest: the buffer
// grows to at most twice what `keep` entries take and both are then reused, so that the memory stays bounded
// and flat however long the host serves (a block per text, freed first-in
// first-out among the exchanges' short-lived blocks, left the heap ever more
// fragmented). Not locked: its owner locks.
class RecentEntries {
public:
    explicit RecentEntries(size_t keep) : keep_(keep) {}
    void Add(unsigned long long seq, const std::string& text);
    // The kept entries numbered after `since`, up to `upTo`, as a JSON array.
    Json After(unsigned long long since, unsigned long long upTo) const;
    // The same array as a value that is written out as the kept texts are,
    // without parsing them: a simulator's answer of thousands of entries then
    // takes a few large blocks instead of a tree of small ones.
    Json AfterAsText(unsigned long long since, unsigned long long upTo) const;
    size_t Kept() const { return ring_.size(); }
    unsigned long long Dropped() const { return dropped_; }
    // Forgets the entries and the count of dropped ones.
    void Clear();

private:
    struct Entry {
        unsigned long long seq;
        size_t offset;  // in texts_
        size_t length;
    };
    const Entry& At(size_t i) const { return ring_[(first_ + i) % ring_.size()]; }
    // The position of the first entry numbered after `since`.
    size_t FirstAfter(unsigned long long since) const;

    size_t keep_;
    std::vector<Entry> ring_;  // grows to `keep` entries, then is reused
    size_t first_ = 0;         // where in ring_ the oldest entry is
    std::string texts_;
    size_t start_ = 0;  // where the oldest kept text begins
    unsigned long long dropped_ = 0;
};

// Exchange numbers shared by both simulators, so that the host can merge
// their journals in the order the exchanges happened. They keep counting
// across a reset, so that a watcher's `since` stays valid.
std::atomic<unsigned long long>* SharedSequence();

// How many exchanges the journal keeps: set by the host before the
// simulators are forked, so that both inherit it.
inline constexpr size_t kJournalKeepDefault = 2000;
void SetJournalKeep(size_t keep);
size_t JournalKeep();

class Journal {
public:
    Journal() : entries_(JournalKeep()) {}
    // Stamps the entry with the next exchange number and keeps it.
    void Add(Json entry);
    void Clear();
    // {"entries": [...], "kept", "dropped"}: the entries numbered after
    // `since` and up to `upTo`, with the counts of the whole journal.
    Json ToJson(unsigned long long since, unsigned long long upTo);

private:
    std::mutex lock_;
    RecentEntries entries_;
};

// Called by the host before it forks the simulators: at most two allocator
// arenas, and blocks from 128 KiB up always mapped on their own. Threads come
// and go in all three processes (a thread per HTTP and per control
// connection, FUSE workers with their large request buffers, held and
// delayed replies); with glibc's defaults each new thread could take another
// arena that keeps what was freed in it, and once a buffer of several MB (the
// journal's, the log's) had been freed the threshold for mapping a block on
// its own rose with it, so that the workers' buffers came from the heap and
// stayed there: resident memory crept up for as long as the host served.
void TuneAllocator();

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
// `supported` lists the fault kinds this simulator can play.
Json HandleCoreRequest(SimCore& core, const std::string& op, json_object* request,
                       std::span<const FaultKind> supported);

Json JsonOk();

}  // namespace devhost

#endif  // DEVHOST_SIM_COMMON_H
