/*
 * What the fuzz targets share: the host records of one request whose body is
 * the fuzzer's input, a stream socket whose peer has sent the input, and a
 * log that formats every line and keeps none.
 */
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <sys/socket.h>
#include <unistd.h>

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

/* One end of a stream socket pair; the other has written the input, which
 * fits the socket's buffer (each target's -max_len keeps it small). */
class FuzzStream {
public:
    FuzzStream(const uint8_t* data, size_t size)
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0 ||
            (size != 0 && write(ends_[1], data, size) != static_cast<ssize_t>(size))) {
            std::abort();
        }
    }
    ~FuzzStream()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    FuzzStream(const FuzzStream&) = delete;
    FuzzStream& operator=(const FuzzStream&) = delete;

    int Reader() const { return ends_[0]; }
    /* The peer sends nothing more: reads past the input see the stream end. */
    void End() const { shutdown(ends_[1], SHUT_WR); }

private:
    int ends_[2] = {-1, -1};
};

/* The platform log formats each line as usual and hands it to this sink. */
inline void FuzzQuietLog()
{
    VW_SetLogSink([](const VW_LOG_LINE_S*, void*) {}, nullptr);
}

#endif /* FUZZ_HOST_H */
