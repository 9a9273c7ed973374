#include "sim_frames.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "kxapi_common.h"

namespace devhost {

bool IspFrameWaiting(int fd)
{
    uint8_t fixed[WIRO_FRAME_FIXED];
    if (recv(fd, fixed, sizeof(fixed), MSG_PEEK | MSG_DONTWAIT) != static_cast<ssize_t>(sizeof(fixed))) {
        return false;
    }
    uint32_t keys = 0;
    uint32_t content = 0;
    std::memcpy(&keys, fixed + 12, 4);
    std::memcpy(&content, fixed + 16, 4);
    int available = 0;
    if (ioctl(fd, FIONREAD, &available) != 0) {
        return false;
    }
    return keys > WIRO_KEYS_MAX || content > WIRO_CONTENT_MAX ||
           static_cast<uint64_t>(available) >= uint64_t{WIRO_FRAME_FIXED} + keys + content;
}

IspRequest IspRequestOf(const wiro_message_t* frame)
{
    IspRequest request;
    request.op = frame->header->op & WIRO_OP_MASK;
    request.command = frame->header->command;
    size_t len = 0;
    if (const void* value = wiro_header_get(frame, kIspChannelKey, &len); value != nullptr && len == 4) {
        uint32_t channel = 0;
        std::memcpy(&channel, value, 4);
        request.channel = channel;
    }
    request.content.assign(frame->content, frame->content + frame->content_len);
    return request;
}

bool StreamTransfer(int fd, void* data, size_t len, bool sending)
{
    auto* p = static_cast<uint8_t*>(data);
    while (len > 0) {
        const ssize_t n = sending ? send(fd, p, len, MSG_NOSIGNAL) : recv(fd, p, len, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

std::optional<ControlCommand> ReadControlCommand(int fd)
{
    uint32_t head[VW_SYN_REQUEST_HEAD / 4] = {};
    if (!StreamTransfer(fd, head, sizeof(head), false) || head[0] != VW_SYN_MAGIC || head[3] != VW_CMD_BODY_LEN) {
        return std::nullopt;
    }
    ControlCommand command;
    command.type = head[1];
    command.code = static_cast<int>(head[2]);
    command.body.resize(VW_CMD_BODY_LEN);
    if (!StreamTransfer(fd, command.body.data(), command.body.size(), false)) {
        return std::nullopt;
    }
    std::memcpy(&command.channel, command.body.data(), sizeof(command.channel));
    return command;
}

}  // namespace devhost
