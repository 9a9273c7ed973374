// The control process simulator's reading of the command channel, on any
// byte stream that then ends. It reads the commands that stand one after
// another at the start of the stream, each a head with the channel's magic
// and body length and a whole body, and stops at the first that is not one.
#include <cstdlib>
#include <cstring>

#include "fuzz_host.h"
#include "kxapi_common.h"
#include "sim_frames.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t kCommandLen = VW_SYN_REQUEST_HEAD + VW_CMD_BODY_LEN;
    const FuzzStream stream(data, size);
    stream.End();
    size_t at = 0;
    const auto commandAt = [&](uint32_t* head) {
        std::memcpy(head, data + at, VW_SYN_REQUEST_HEAD);
        return head[0] == VW_SYN_MAGIC && head[3] == VW_CMD_BODY_LEN;
    };
    uint32_t head[VW_SYN_REQUEST_HEAD / 4];
    while (const std::optional<devhost::ControlCommand> command = devhost::ReadControlCommand(stream.Reader())) {
        const uint8_t* body = data + at + VW_SYN_REQUEST_HEAD;
        if (size - at < kCommandLen || !commandAt(head) || command->type != head[1] ||
            command->code != static_cast<int>(head[2]) || std::memcmp(&command->channel, body, 4) != 0 ||
            std::memcmp(command->body.data(), body, VW_CMD_BODY_LEN) != 0) {
            std::abort();
        }
        at += kCommandLen;
    }
    if (size - at >= kCommandLen && commandAt(head)) {
        std::abort();
    }
    return 0;
}
