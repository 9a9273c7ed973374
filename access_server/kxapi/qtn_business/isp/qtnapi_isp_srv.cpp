#include "qtnapi_isp_srv.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "qtnapi_isp_diag.h"
#include "wiro.h"

namespace {

// The read exchange and the untimed ones print their send and receive
// failures without a trailing blank; the write exchange with one.
int SendRequest(const IspExchange& x, wiro_message_t* msg, int fd)
{
    if (!x.timed) {
        if (wiro_message_sendfd(msg, fd) == -1) {
            ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_message_sendfd failed \n");
            return -1;
        }
        return 0;
    }
    const int ret = wiro_message_sendfd_timeout(msg, fd, ISP_SRV_TIMEOUT);
    if (ret == -1) {
        ISP_DIAG(KXAPI_LOG_ERROR,
                 x.op == ISP_OP_WRITE ? "[KXAPI]:wiro_message_sendfd_timeout failed,fd:%d,err:%d,ret:%d \n"
                                      : "[KXAPI]:wiro_message_sendfd_timeout failed,fd:%d,err:%d,ret:%d\n",
                 fd, errno, ret);
        return -1;
    }
    return 0;
}

int ReceiveReply(const IspExchange& x, wiro_message_t* msg, int fd)
{
    if (!x.timed) {
        if (wiro_message_recvfd(msg, fd) == -1) {
            ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_message_recvfd failed \n");
            return -1;
        }
        return 0;
    }
    const int ret = wiro_message_recvfd_timeout(msg, fd, ISP_SRV_TIMEOUT);
    if (ret == -1) {
        ISP_DIAG(KXAPI_LOG_ERROR,
                 x.op == ISP_OP_WRITE ? "[KXAPI]:wiro_message_recvfd_timeout failed,fd:%d,err:%d,ret:%d \n"
                                      : "[KXAPI]:wiro_message_recvfd_timeout failed,fd:%d,err:%d,ret:%d\n",
                 fd, errno, ret);
        return -1;
    }
    return 0;
}

int Talk(const IspExchange& x, wiro_message_t* msg, int fd)
{
    wiro_header_t* header = msg->header;
    header->command = static_cast<uint16_t>(x.command);
    header->reserved = 0;
    header->op = static_cast<uint8_t>((header->op & WIRO_OP_REPLY) | (x.op & WIRO_OP_MASK));

    if (x.channel != nullptr && wiro_header_set(msg, ISP_SRV_KEY_CHANNEL, x.channel, sizeof(*x.channel)) != 0) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_header_set failed \n");
        return -1;
    }
    if (x.block != nullptr && wiro_content_add(msg, x.block, x.size, 0) != 0) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_content_append failed \n");
        return -1;
    }
    if (SendRequest(x, msg, fd) != 0 || ReceiveReply(x, msg, fd) != 0) {
        return -1;
    }
    // The content is taken before the status is looked at; callers ignore
    // the block when the exchange fails.
    if (x.block != nullptr && wiro_content_copy(msg, x.block, x.size) != static_cast<int>(x.size)) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_content_copy failed \n");
        return -1;
    }
    if (msg->header->code != ISP_SRV_STATUS_OK) {
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:wiro_code failed \n");
        return -1;
    }
    return 0;
}

}  // namespace

int IspSrvExchange(const IspExchange& x)
{
    const int fd = open(ISP_SRV_NODE, O_RDWR);
    if (fd < 0) {
        const int err = errno;
        ISP_DIAG(KXAPI_LOG_ERROR, "[KXAPI]:open %s srv fail, Error: %d, %s\n", ISP_SRV_NODE, err, strerror(err));
        return -1;
    }
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        ISP_DIAG(KXAPI_LOG_ERROR, x.newText == IspNewText::SendMsg ? "[KXAPI]:new send msg failed \n"
                                                                   : "[KXAPI]:wiro_message_new failed \n");
        close(fd);
        return -1;
    }
    const int rc = Talk(x, msg, fd);
    wiro_message_put(msg);
    close(fd);
    return rc;
}
