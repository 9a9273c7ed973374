// Every diagnostic and operation-log line of the module: printed as it comes
// and kept for the inspection route "/_sim/log".
#ifndef DEVHOST_LOG_TAP_H
#define DEVHOST_LOG_TAP_H

#include <cstdio>
#include <deque>
#include <mutex>
#include <string>

#include "sim_common.h"
#include "vw_log.h"

namespace devhost {

class LogTap {
public:
    // Installs the tap as the log's sink; lines are printed to `out`.
    explicit LogTap(FILE* out);
    ~LogTap();

    // A line of the host's own (requests, start and stop), printed only.
    void Note(const std::string& text);
    // The kept lines, oldest first: {"lines": [...]}.
    Json Lines();
    void Clear();

private:
    static constexpr size_t kKeep = 10000;
    static void Sink(const VW_LOG_LINE_S* line, void* self);

    FILE* out_;
    std::mutex lock_;
    std::deque<Json> lines_;
    unsigned long long count_ = 0;
};

}  // namespace devhost

#endif  // DEVHOST_LOG_TAP_H
