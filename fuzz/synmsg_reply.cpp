// The command channel's reply on any byte stream: the control process's end
// of a socket pair holds the input and then closes. A command succeeds
// exactly when the input starts with a whole, well-formed reply, and then
// the reply record holds the bytes that followed its head.
#include <cstdlib>
#include <cstring>

#include "fuzz_host.h"

namespace {

vwCmdBody g_body;
MSG_DATA g_reply;

bool WellFormed(const uint8_t* data, size_t size)
{
    uint32_t head[2];
    if (size < VW_SYN_REPLY_HEAD + VW_MSG_DATA_LEN) {
        return false;
    }
    std::memcpy(head, data, sizeof(head));
    return head[0] == VW_SYN_MAGIC && head[1] == VW_MSG_DATA_LEN;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FuzzStream stream(data, size);
    stream.End();
    tagUNIX_SOCKET_S sock{};
    sock.iFd = stream.Reader();
    const uint64_t rc = RestSendSynUnixMsg(nullptr, VW_MSG_READ, VW_CMD_AWB, &g_body, &sock, &g_reply, 0);
    const bool ok = WellFormed(data, size);
    if ((rc == 0) != ok || (rc != 0 && rc != VW_SYN_ERR_REPLY) ||
        (ok && std::memcmp(g_reply.aucData, data + VW_SYN_REPLY_HEAD, VW_MSG_DATA_LEN) != 0)) {
        std::abort();
    }
    return 0;
}
