// The ISP service simulator's reading of what the module writes to the node,
// on any byte stream. While the simulator finds a frame waiting, the framed
// message library reads it without waiting for more bytes (a frame, or a
// refusal that ends the session); once it finds none, the bytes left do not
// make a frame even when the stream ends there.
#include <cerrno>
#include <cstdlib>

#include "fuzz_host.h"
#include "sim_frames.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FuzzStream stream(data, size);
    wiro_message_t* frame = wiro_message_new(0);
    int got = 0;
    while (got >= 0 && devhost::IspFrameWaiting(stream.Reader())) {
        got = wiro_message_recvfd_timeout(frame, stream.Reader(), 0);
        if (got < 0 && errno != EPROTO) {
            std::abort();
        }
        if (got >= 0 && devhost::IspRequestOf(frame).content.size() != frame->content_len) {
            std::abort();
        }
    }
    if (got >= 0) {
        stream.End();
        if (wiro_message_recvfd_timeout(frame, stream.Reader(), 0) >= 0) {
            std::abort();
        }
    }
    wiro_message_put(frame);
    return 0;
}
