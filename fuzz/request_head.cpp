// The host's check of a connection's first request head, on any bytes: it
// refuses with one of its statuses or lets the bytes go on, says a head is
// whole only when its empty line is within the head limit, and answers
// the same for the lines it has seen whatever follows them.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "request_rules.h"

namespace {

const devhost::HostNames kNames(8080, {"localhost", "127.0.0.1", "[::1]", "camera.lab"});

bool KnownStatus(unsigned status)
{
    for (const unsigned known : {400u, 403u, 413u, 421u, 431u, 501u, 505u}) {
        if (status == known) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bool whole = false;
    const std::optional<devhost::HeadRefusal> refusal = devhost::CheckHead(bytes, kNames, whole);
    if (refusal && (!KnownStatus(refusal->status) || refusal->message.empty())) {
        std::abort();
    }
    if (refusal && refusal->status == 431 && size <= devhost::kHeadLimit) {
        std::abort();
    }
    if (whole && bytes.substr(0, devhost::kHeadLimit).find("\n\r\n") == std::string_view::npos &&
        bytes.substr(0, devhost::kHeadLimit).find("\n\n") == std::string_view::npos) {
        std::abort();
    }
    // The same lines give the same answer: the bytes up to their last line
    // end, if refused at all, are refused as the whole input is.
    const size_t cut = bytes.rfind('\n');
    if (refusal && cut != std::string_view::npos) {
        bool prefixWhole = false;
        const std::optional<devhost::HeadRefusal> early =
            devhost::CheckHead(bytes.substr(0, cut + 1), kNames, prefixWhole);
        if (early && early->status != refusal->status) {
            std::abort();
        }
    }
    return 0;
}
