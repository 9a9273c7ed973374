// The command channel's reply on any byte stream: the control process's end
// of a socket pair holds the input and then closes. A command succeeds
// exactly when the input starts with a whole, well-formed reply, and then
// the reply record holds the bytes that followed its head.
#include <cstdlib>
#include <cstring>

#include "fuzz_host.h"
#include "kxapi_common.h"

namespace {

vwCmdBody g_body;
MSG_DATA g_reply;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FuzzStream stream(data, size);
    stream.End();
    tagUNIX_SOCKET_S sock{};
    sock.iFd = stream.Reader();
    const uint64_t rc = RestSendSynUnixMsg(nullptr, VW_MSG_READ, VW_CMD_AWB, &g_body, &sock, &g_reply, 0);
    const uint32_t head[2] = {VW_SYN_MAGIC, VW_MSG_DATA_LEN};
    const bool ok = size >= VW_SYN_REPLY_HEAD + VW_MSG_DATA_LEN && std::memcmp(data, head, sizeof(head)) == 0;
    if ((rc == 0) != ok || (rc != 0 && rc != VW_SYN_ERR_REPLY) ||
        (ok && std::memcmp(g_reply.aucData, data + VW_SYN_REPLY_HEAD, VW_MSG_DATA_LEN) != 0)) {
        std::abort();
    }
    return 0;
}
