/*
 * What the fuzz targets share: the host records of one request whose body is
 * the fuzzer's input, and a log that formats every line and keeps none.
 */
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kxapi_common.h"
#include "vw_log.h"

struct FuzzRequest {
    tagHTTP_HEADER_S header{};
    tagHTTP_CONTENT_S content{};
    tagHTTP_CNTENT_INTER_S ctx{};
    std::string body;

    FuzzRequest(const uint8_t* data, size_t size) : body(reinterpret_cast<const char*>(data), size)
    {
        std::strcpy(header.szMethod, "PUT");
        std::strcpy(header.szUrl, "/isp?ChannelId=102");
        std::strcpy(header.szOpUser, "fuzz");
        std::strcpy(header.szOpAddr, "192.0.2.1");
        content.pcBody = body.data();
        content.ulContentLen = body.size();
    }
    ~FuzzRequest()
    {
        for (void* slot : ctx.apvSlot) {
            std::free(slot);
        }
    }
    FuzzRequest(const FuzzRequest&) = delete;
    FuzzRequest& operator=(const FuzzRequest&) = delete;
};

/* The platform log formats each line as usual and hands it to this sink. */
inline void FuzzQuietLog()
{
    VW_SetLogSink([](const VW_LOG_LINE_S*, void*) {}, nullptr);
}

#endif /* FUZZ_HOST_H */
