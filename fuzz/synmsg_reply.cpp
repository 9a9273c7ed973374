// The command channel's reply on any byte stream: the control process's end
// of a socket pair holds the input and then closes. A command succeeds
// exactly when the input starts with a whole, well-formed reply, and then
// the reply record holds the bytes that followed its head.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "kxapi_common.h"

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
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        std::abort();
    }
    // The input fits the socket's buffer (the run's -max_len keeps it small).
    if (size != 0 && write(ends[1], data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    shutdown(ends[1], SHUT_WR);
    tagUNIX_SOCKET_S sock{};
    sock.iFd = ends[0];
    const uint64_t rc = RestSendSynUnixMsg(nullptr, VW_MSG_READ, VW_CMD_AWB, &g_body, &sock, &g_reply, 0);
    const bool ok = WellFormed(data, size);
    if ((rc == 0) != ok || (rc != 0 && rc != VW_SYN_ERR_REPLY) ||
        (ok && std::memcmp(g_reply.aucData, data + VW_SYN_REPLY_HEAD, VW_MSG_DATA_LEN) != 0)) {
        std::abort();
    }
    close(ends[0]);
    close(ends[1]);
    return 0;
}
