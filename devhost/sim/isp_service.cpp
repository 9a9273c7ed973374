#include "isp_service.h"

namespace devhost {

const char* OperationName(uint8_t op)
{
    static const char* const names[] = {"reset", "create", "read", "write"};
    return op < 4 ? names[op] : "unknown";
}

IspReply Perform(IspState& state, uint8_t op, unsigned command, std::optional<uint32_t> channel, const Bytes& content)
{
    const uint32_t ch = channel.value_or(0);
    IspReply reply;
    if (op == kOpWrite && command == kIspRestoreDefaults) {
        state.Restore(0);
        return reply;
    }
    if (op == kOpReset && command == kIspThermal) {
        // The reset names the thermal reset channel; the settings it returns
        // to the profile are those of every channel.
        state.Restore(kIspThermal);
        return reply;
    }
    const bool stores = op == kOpWrite || (op == kOpCreate && command == 16);
    if (op != kOpRead && !stores) {
        reply.status = kStatusBadRequest;
        return reply;
    }
    if (stores && !state.Put(command, ch, content)) {
        reply.status = state.Get(command, ch) ? kStatusBadRequest : kStatusNoBlock;
        return reply;
    }
    const std::optional<Bytes> block = state.Get(command, ch);
    if (!block) {
        reply.status = kStatusNoBlock;
        return reply;
    }
    reply.content = *block;
    return reply;
}

}  // namespace devhost
