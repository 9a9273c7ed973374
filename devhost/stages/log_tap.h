// Every diagnostic and operation-log line of the module: printed as it comes
// and kept for the inspection route "/_sim/log".
#ifndef DEVHOST_LOG_TAP_H
#define DEVHOST_LOG_TAP_H

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

#include "journal.h"
#include "vw_log.h"

namespace devhost {

// A text as the log prints it: whatever a client sent in it can never act on
// the operator's terminal. Control bytes (C0, DEL and C1) and bytes that are
// not UTF-8 are written as \xNN, and the value of every "token=" parameter
// as ***. Text of any script is kept as it is.
std::string ForTerminal(std::string_view text);

inline constexpr std::string_view kTokenParameter = "token=";

class LogTap {
public:
    static constexpr size_t kKeepDefault = 10000;

    // Installs the tap as the log's sink; lines are printed to `out`, the
    // last `keep` of them kept.
    explicit LogTap(FILE* out, size_t keep = kKeepDefault);
    ~LogTap();

    // A line of the host's own (requests, start and stop), printed only.
    // Every printed line, the module's too, goes through ForTerminal.
    void Note(const std::string& text);
    // The kept lines numbered after `since`, oldest first:
    // {"lines": [...], "last", "dropped"}; `last` is the number of the latest
    // line (0 before the first), `dropped` how many lines went to keep the
    // bound since the start or the last Clear.
    Json Lines(unsigned long long since = 0);
    // Forgets the kept lines; the numbering goes on.
    void Clear();

private:
    static void Sink(const VW_LOG_LINE_S* line, void* self);

    FILE* out_;
    std::mutex lock_;
    RecentEntries lines_;
    unsigned long long count_ = 0;
};

}  // namespace devhost

#endif  // DEVHOST_LOG_TAP_H
