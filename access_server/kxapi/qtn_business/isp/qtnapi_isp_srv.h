/*
 * Client of the ISP service. Every exchange opens the service node, sends one
 * framed request, waits for one reply on the same descriptor, checks it,
 * copies the reply content back into the caller's block and closes the node.
 */
#ifndef QTNAPI_ISP_SRV_H
#define QTNAPI_ISP_SRV_H

#include <cstdint>

#define ISP_SRV_NODE "/mnt/srvfs/isp.iaas.qtn"
/* Header key that carries the channel number (4 bytes). */
#define ISP_SRV_KEY_CHANNEL 100
/* Bound of the timed send and receive, in the framed library's unit. */
#define ISP_SRV_TIMEOUT 15000
#define ISP_SRV_STATUS_OK 200

/* ChannelId of the first channel; the ISP service numbers channels from 0. */
#define ISP_FIRST_CHANNEL 101
/* ChannelId of the thermal channel. */
#define ISP_THERMAL_CHANNEL 102

/* Service command numbers. */
enum IspSrvCommand : unsigned {
    ISP_CMD_CAPABILITY = 5,
    ISP_CMD_BACKLIGHT_ADAPT = 6,
    ISP_CMD_FOG_ADAPT = 7,
    ISP_CMD_EXPOSURE_LOCK = 16,
    ISP_CMD_AF = 17,
    ISP_CMD_THERMAL = 25,
    ISP_CMD_RESTORE_DEFAULTS = 27,
    ISP_CMD_FAKE_RATIO = 28,
};

/* Operation of a request (low 7 bits of the header's operation byte). */
enum IspSrvOp : uint8_t {
    ISP_OP_RESET = 0,
    ISP_OP_CREATE = 1,
    ISP_OP_READ = 2,
    ISP_OP_WRITE = 3,
};

/* How an exchange reports a failure to create its message. */
enum class IspNewText {
    MessageNew, /* "wiro_message_new failed" */
    SendMsg,    /* "new send msg failed" */
};

/* One exchange. `channel` null sends no channel key; `block` null sends no
 * content and copies none back. Timed exchanges bound their send and receive
 * by ISP_SRV_TIMEOUT; the others wait without bound. */
struct IspExchange {
    uint8_t op;
    unsigned command;
    const uint32_t* channel;
    void* block;
    unsigned size;
    bool timed;
    IspNewText newText;
};

/* 0 when the service answered with status 200 (and, with a block, content of
 * exactly its size, now in the block); -1 after a diagnostic naming the step
 * that failed. */
int IspSrvExchange(const IspExchange& exchange);

/* Read and write exchanges of a parameter block (timed). Inline, like the
 * two below, so that a stage calls the exchange itself. */
inline int GetIspSrvData(unsigned command, uint32_t channel, void* block, unsigned size)
{
    return IspSrvExchange({ISP_OP_READ, command, &channel, block, size, true, IspNewText::MessageNew});
}
inline int SetIspSrvData(unsigned command, uint32_t channel, void* block, unsigned size)
{
    return IspSrvExchange({ISP_OP_WRITE, command, &channel, block, size, true, IspNewText::SendMsg});
}
/* Create exchange: the record goes out as the content and the reply's
 * content of the same size comes back into it (untimed). */
inline int CreateIspSrvData(unsigned command, uint32_t channel, void* record, unsigned size)
{
    return IspSrvExchange({ISP_OP_CREATE, command, &channel, record, size, false, IspNewText::SendMsg});
}
/* Reset exchange: no content either way (untimed); `channel` null sends no
 * channel key. */
inline int ResetIspSrvData(unsigned command, uint8_t op, const uint32_t* channel, IspNewText newText)
{
    return IspSrvExchange({op, command, channel, nullptr, 0, false, newText});
}

#endif /* QTNAPI_ISP_SRV_H */
