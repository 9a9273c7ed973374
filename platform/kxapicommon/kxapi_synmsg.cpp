/*
 * The synchronous command channel: one command and its reply over a Unix
 * stream socket (frame in kxapi_common.h).
 */
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kxapi_common.h"

namespace {

/* Waits until fd is ready for `events`; a time-out of 0 waits without bound. */
bool Ready(int fd, short events, uint64_t timeoutMs)
{
    const int wait = timeoutMs == 0 ? -1 : (timeoutMs > 0x7fffffff ? 0x7fffffff : static_cast<int>(timeoutMs));
    pollfd p{fd, events, 0};
    int rc;
    do {
        rc = poll(&p, 1, wait);
    } while (rc < 0 && errno == EINTR);
    return rc > 0;
}

uint64_t WriteAll(int fd, const unsigned char* data, size_t len, uint64_t timeoutMs)
{
    while (len > 0) {
        if (!Ready(fd, POLLOUT, timeoutMs)) {
            return VW_SYN_ERR_TIMEOUT;
        }
        const ssize_t n = send(fd, data, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return VW_SYN_ERR_SEND;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
}

uint64_t ReadAll(int fd, unsigned char* data, size_t len, uint64_t timeoutMs)
{
    while (len > 0) {
        if (!Ready(fd, POLLIN, timeoutMs)) {
            return VW_SYN_ERR_TIMEOUT;
        }
        const ssize_t n = recv(fd, data, len, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return VW_SYN_ERR_REPLY;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
}

int Connect(const char* path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path == nullptr || path[0] == '\0' || std::strlen(path) >= sizeof(addr.sun_path)) {
        return -1;
    }
    std::memcpy(addr.sun_path, path, std::strlen(path) + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

uint64_t Exchange(int fd, VW_MSG_TYPE enType, VW_CMD_TYPE enCmd, const vwCmdBody* pstBody, MSG_DATA* pstReply,
                  uint64_t timeoutMs)
{
    const uint32_t head[4] = {VW_SYN_MAGIC, static_cast<uint32_t>(enType), static_cast<uint32_t>(enCmd),
                              VW_CMD_BODY_LEN};
    uint64_t rc = WriteAll(fd, reinterpret_cast<const unsigned char*>(head), sizeof(head), timeoutMs);
    if (rc == 0) {
        rc = WriteAll(fd, pstBody->aucData, sizeof(pstBody->aucData), timeoutMs);
    }
    uint32_t replyHead[2] = {0, 0};
    if (rc == 0) {
        rc = ReadAll(fd, reinterpret_cast<unsigned char*>(replyHead), sizeof(replyHead), timeoutMs);
    }
    if (rc == 0 && (replyHead[0] != VW_SYN_MAGIC || replyHead[1] != VW_MSG_DATA_LEN)) {
        rc = VW_SYN_ERR_REPLY;
    }
    if (rc == 0) {
        rc = ReadAll(fd, pstReply->aucData, sizeof(pstReply->aucData), timeoutMs);
    }
    return rc;
}

}  // namespace

extern "C" uint64_t RestSendSynUnixMsg(const char* pcPath, VW_MSG_TYPE enType, VW_CMD_TYPE enCmd,
                                       const vwCmdBody* pstBody, tagUNIX_SOCKET_S* pstSock, MSG_DATA* pstReply,
                                       uint64_t ullTimeout)
{
    if (pstBody == nullptr || pstReply == nullptr) {
        return VW_SYN_ERR_ARG;
    }
    if (pstSock != nullptr && pstSock->iFd >= 0) {
        return Exchange(pstSock->iFd, enType, enCmd, pstBody, pstReply, ullTimeout);
    }
    const char* path = pcPath != nullptr && pcPath[0] != '\0' ? pcPath : nullptr;
    if (path == nullptr && pstSock != nullptr) {
        path = pstSock->szPath;
    }
    if (path == nullptr) {
        return VW_SYN_ERR_ARG;
    }
    const int fd = Connect(path);
    if (fd < 0) {
        return VW_SYN_ERR_CONNECT;
    }
    const uint64_t rc = Exchange(fd, enType, enCmd, pstBody, pstReply, ullTimeout);
    close(fd);
    return rc;
}
