// How the two simulators read their peers' byte streams: the ISP service's
// framed requests (written by the module through the node) and the control
// process's commands (on the command channel's socket). Kept apart from the
// simulators' state so that the reading can be driven on any bytes.
#ifndef DEVHOST_SIM_FRAMES_H
#define DEVHOST_SIM_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "wiro.h"

namespace devhost {

// Header key of a request frame that carries the channel.
inline constexpr int kIspChannelKey = 100;

// True when the bytes waiting on fd hold a whole request frame, or the fixed
// part of one whose declared lengths the framed message library refuses (it
// is then taken, and refused, at once). Consumes nothing.
bool IspFrameWaiting(int fd);

// What a request frame asks of the ISP service.
struct IspRequest {
    uint8_t op = 0;  // without the reply bit
    uint16_t command = 0;
    std::optional<uint32_t> channel;  // when the channel key holds 4 bytes
    std::vector<uint8_t> content;
};
IspRequest IspRequestOf(const wiro_message_t* frame);

// Moves exactly len bytes over a stream socket; false when the peer has gone.
bool StreamTransfer(int fd, void* data, size_t len, bool sending);

// One command of the synchronous command channel.
struct ControlCommand {
    uint32_t type = 0;  // VW_MSG_READ or VW_MSG_WRITE
    int code = 0;
    uint32_t channel = 0;       // the body's first word
    std::vector<uint8_t> body;  // VW_CMD_BODY_LEN bytes
};

// Reads the next command from fd; nullopt when the peer has gone or sent a
// head of another magic or body length, after which the connection closes.
std::optional<ControlCommand> ReadControlCommand(int fd);

}  // namespace devhost

#endif  // DEVHOST_SIM_FRAMES_H
