/*
 * The platform as the benchmark sees it: no I/O and no log formatting. The
 * log drops its lines, the ISP service answers every read from one constant
 * block per command and echoes every write, the control process answers from
 * one constant payload per command code, and the device ability library
 * fills the adjustment ranges. Every answer is a success, so each request
 * takes its whole success path. All of it is safe on several threads.
 *
 * The same calls serve the module and the hand-written floors: the floors
 * reach the service, the command channel and the log through the very same
 * platform calls.
 */
#ifndef BENCH_NULL_PLATFORM_H
#define BENCH_NULL_PLATFORM_H

#include <cstdint>
#include <string_view>

#include "kxapi_common.h"

namespace bench {

/* Heap allocations of the calling thread so far: malloc and calloc calls,
 * and realloc calls, by anyone in the process (json-c included). */
struct AllocCount {
    uint64_t allocs;
    uint64_t reallocs;
};
AllocCount Allocations();

/* From the next call on, the process's random bytes (json-c takes its hash
 * seed from them once, at its first hashed key) are a constant, so that
 * the keys of a JSON object land in the same buckets in every run and an
 * instruction count repeats exactly. */
void FixRandomBytes();

/* The host records of one request, reused from request to request. */
struct Request {
    tagHTTP_HEADER_S header{};
    tagHTTP_CONTENT_S content{};
    tagUNIX_SOCKET_S sock{};
    tagHTTP_CLIENT_S client{};
    tagHTTP_CNTENT_INTER_S ctx{};
    tagHTTP_BUF_S buf{};
    char storage[4096];

    Request(const char* method, const char* url, const char* body);
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() { End(); }

    /* What the server does when a request is over: frees the slots and
     * empties the response buffer. */
    void End();
    std::string_view Response() const { return {buf.pcData, buf.ulLength}; }
};

}  // namespace bench

#endif /* BENCH_NULL_PLATFORM_H */
