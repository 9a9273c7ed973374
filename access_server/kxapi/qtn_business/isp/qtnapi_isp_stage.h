/*
 * The stage helpers: what every stage of the ISP module does the same way.
 * The argument check, the ChannelId rules and the service channel they give,
 * diagnostics, the operation-log pair, allocation and bounds-checked fills of
 * records, ISP service exchanges and control-process commands that report
 * their failure, and hanging records on the request context.
 *
 * Helpers that write a diagnostic take the caller's source line, so that the
 * line names the stage's own call.
 */
#ifndef QTNAPI_ISP_STAGE_H
#define QTNAPI_ISP_STAGE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "kxapi_business_common.h"
#include "qtnapi_isp_diag.h"
#include "qtnapi_isp_srv.h"

/* The argument lists of the stage kinds, as their "Invalid param" texts name them. */
enum class IspArgs {
    Parse,   /* pstHeader pstHttpContent pstCtIn */
    PreProc, /* pstHeader pstSynSock pstCtIn; Format stages print header, context, buffer */
    Run,     /* header client ctIn */
    RunPst,  /* pstHeader pstClient pstCtIn */
};

/* Writes the kind's "Invalid param" diagnostic; true. */
bool IspArgsReport(IspArgs kind, const void* a, const void* b, const void* c, IspWhere where);

/* True, after the kind's "Invalid param" diagnostic, when any pointer is null.
 * Inline, so that a stage pays three comparisons when nothing is missing. */
inline bool IspArgsMissing(IspArgs kind, const void* a, const void* b, const void* c,
                           IspWhere where = IspWhere::current())
{
    return (a == nullptr || b == nullptr || c == nullptr) && IspArgsReport(kind, a, b, c, where);
}

/* How a stage reads ChannelId and which values it accepts. */
enum class IspChannelRule {
    NonNegative, /* read signed; any value but a negative one */
    ThermalOnly, /* read signed; the thermal channel, 102, alone */
    Unsigned,    /* read unsigned; every value (below 101 it wraps around as a service channel) */
    Unread,      /* not read at all */
};

/* The channel of the ISP service that a resource's exchanges address. */
struct IspSrvChannel {
    enum Kind : uint8_t {
        Fixed,     /* `fixed`, whatever the request's ChannelId */
        OfRequest, /* ChannelId less ISP_FIRST_CHANNEL */
        Omitted,   /* none: the exchange carries no channel key */
    } kind;
    uint32_t fixed;
};
constexpr IspSrvChannel IspFixedChannel(uint32_t channel) { return {IspSrvChannel::Fixed, channel}; }
constexpr IspSrvChannel kIspChannelOfRequest = {IspSrvChannel::OfRequest, 0};
constexpr IspSrvChannel kIspNoChannel = {IspSrvChannel::Omitted, 0};

/* A parameter block of the ISP service: its service command, the channel
 * it is kept on and its size in bytes. */
struct IspBlock {
    unsigned command;
    IspSrvChannel channel;
    unsigned size;
};

/* A block of the standard allocator, freed when the owner goes out of scope
 * unless it was hung on the context. */
struct IspFree {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using IspOwned = std::unique_ptr<T, IspFree>;

/* A value of T at a byte offset of a block: a service block, a command body
 * or a command reply, all kept in host byte order. */
template <class T>
T IspBlockGet(const void* block, size_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(block) + offset, sizeof(T));
    return value;
}

template <class T>
void IspBlockPut(void* block, size_t offset, T value)
{
    std::memcpy(static_cast<uint8_t*>(block) + offset, &value, sizeof(T));
}

/* The control process's socket path, passed with every command. */
#define ISP_CMD_PATH "/tmp/A"
/* Every command body starts with this channel field (a 64-bit field: this
 * word, then 0), whatever the request's ChannelId. */
#define ISP_CMD_CHANNEL_FIELD 101u
/* Body offset of a write command's parameters. */
#define ISP_CMD_PARAMS 8
/* The reply: received message code, Result (0 success), and the payload,
 * laid out like the command body. */
#define ISP_REPLY_MSG 164
#define ISP_REPLY_RESULT 176
#define ISP_REPLY_PAYLOAD 200

/* The body and the reply of one command to the control process. A stage
 * keeps them on its own stack and nowhere else. */
struct IspCmd {
    vwCmdBody body;
    MSG_DATA reply;

    /* Zero-fills the reply, then the body (a failure is only reported: both
     * are about to be overwritten), and writes the body's channel field. */
    void Begin(IspWhere where = IspWhere::current());
    /* The reply payload, laid out like the command body. */
    const uint8_t* Payload() const { return reply.aucData + ISP_REPLY_PAYLOAD; }
};

/* One stage call: its exported name, the request header and the context,
 * for the helpers that report in the stage's name or touch its slots. */
class IspStage {
public:
    IspStage(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CNTENT_INTER_S* ctIn)
        : m_name(name), m_header(header), m_ctIn(ctIn)
    {
    }

    /* Reads ChannelId by the rule and checks it: 0, with *id set to the value
     * (as a 32-bit word) unless `id` is null or the rule reads nothing;
     * otherwise the stage's result after the diagnostic (VW_ERR_QUERY when
     * unreadable, VW_ERR_RANGE when refused). */
    int ChannelId(IspChannelRule rule, uint32_t* id = nullptr, IspWhere where = IspWhere::current()) const
    {
        switch (rule) {
            case IspChannelRule::Unread:
                return VW_SUCCESS;
            case IspChannelRule::Unsigned:
                return ReadUnsignedChannelId(id, where);
            default:
                return ReadSignedChannelId(rule, id, where);
        }
    }

    /* Reads ChannelId by the rule and gives the service channel that
     * `channel` names for this request: 0 with *srvChannel set; otherwise the
     * stage's result after the diagnostic. */
    int SrvChannel(IspChannelRule rule, IspSrvChannel channel, uint32_t* srvChannel,
                   IspWhere where = IspWhere::current()) const
    {
        uint32_t id = 0;
        if (const int rc = ChannelId(rule, &id, where); rc != VW_SUCCESS) {
            return rc;
        }
        *srvChannel = channel.kind == IspSrvChannel::OfRequest ? id - ISP_FIRST_CHANNEL : channel.fixed;
        return VW_SUCCESS;
    }

    /* size bytes from malloc for a record of T; null after the
     * "malloc fail" diagnostic. */
    template <class T>
    IspOwned<T> Alloc(size_t size = sizeof(T), IspWhere where = IspWhere::current()) const
    {
        return IspOwned<T>(static_cast<T*>(AllocBytes(size, where)));
    }

    /* A zero-filled record of T from calloc; null after the "calloc fail"
     * diagnostic. */
    template <class T>
    IspOwned<T> Calloc(IspWhere where = IspWhere::current()) const
    {
        return IspOwned<T>(static_cast<T*>(CallocBytes(sizeof(T), where)));
    }

    /* Zero-fills a record or a block whose contents decide the result; false
     * after the "memset_s failed" diagnostic. */
    bool Zero(void* dest, size_t size, IspWhere where = IspWhere::current()) const
    {
        return Served(memset_s(dest, size, 0, size) == EOK, "[KXAPI]:%s: memset_s failed", where);
    }
    /* Copies into a record; false after the "memcpy_s failed" diagnostic. */
    bool Copy(void* dest, size_t destMax, const void* src, size_t count, IspWhere where = IspWhere::current()) const
    {
        return Served(memcpy_s(dest, destMax, src, count) == EOK, "[KXAPI]:%s: memcpy_s failed", where);
    }

    /* Reads or writes an ISP service block; false after the stage's
     * "GetIspSrvData failed" or "SetIspSrvData failed" diagnostic. */
    bool SrvGet(unsigned command, uint32_t channel, void* block, unsigned size,
                IspWhere where = IspWhere::current()) const
    {
        return Served(GetIspSrvData(command, channel, block, size) == 0, "[KXAPI]:%s: GetIspSrvData failed", where);
    }
    bool SrvSet(unsigned command, uint32_t channel, void* block, unsigned size,
                IspWhere where = IspWhere::current()) const
    {
        return Served(SetIspSrvData(command, channel, block, size) == 0, "[KXAPI]:%s: SetIspSrvData failed", where);
    }
    /* The create and reset exchanges; false after the stage's
     * "CreateIspSrvData failed" or "ResetIspSrvData failed" diagnostic. */
    bool SrvCreate(unsigned command, uint32_t channel, void* record, unsigned size,
                   IspWhere where = IspWhere::current()) const
    {
        return Served(CreateIspSrvData(command, channel, record, size) == 0, "[KXAPI]:%s: CreateIspSrvData failed",
                      where);
    }
    bool SrvReset(unsigned command, uint8_t op, const uint32_t* channel, IspNewText newText,
                  IspWhere where = IspWhere::current()) const
    {
        return Served(ResetIspSrvData(command, op, channel, newText) == 0, "[KXAPI]:%s: ResetIspSrvData failed", where);
    }

    /* Sends the command in `cmd` and writes the trace line; the reply's
     * Result, or nothing after the "Send SynUnixMsg" diagnostic when the
     * command could not be sent. */
    std::optional<int> Send(IspCmd& cmd, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock,
                            IspWhere where = IspWhere::current()) const;

    /* The exchange of a settings resource with the control process: begins
     * the command, checks ChannelId by the rule, lets `write` fill a write
     * command's body after the channel field (it may refuse with a result, and
     * then nothing is sent) and sends. 0 when the device answered with
     * Result 0; otherwise the stage's result: the ChannelId or `write`'s
     * refusal, VW_ERR_PARAM when not sent, or the device's Result itself. */
    template <class Write>
    int Exchange(IspCmd& cmd, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock, IspChannelRule rule,
                 Write write, IspWhere where = IspWhere::current()) const
    {
        cmd.Begin(where);
        if (const int rc = ChannelId(rule, nullptr, where); rc != VW_SUCCESS) {
            return rc;
        }
        if (const int rc = write(cmd.body.aucData); rc != VW_SUCCESS) {
            return rc;
        }
        const std::optional<int> result = Send(cmd, type, code, sock, where);
        return result ? *result : VW_ERR_PARAM;
    }

    /* Logs the Parse stage's refusal of a body ("json decode fail", with the
     * stage's line as a value) and returns VW_ERR_BODY. */
    int Refuse(IspWhere where = IspWhere::current()) const;

    void* Slot(KxapiSlot slot) const { return KxapiSlotGet(m_ctIn, slot); }

    /* The record an earlier stage hung, or null after the "null point"
     * diagnostic when there is none. */
    template <class T>
    T* Required(KxapiSlot slot, IspWhere where = IspWhere::current()) const
    {
        return static_cast<T*>(RequiredSlot(slot, where));
    }

    /* Hands a complete record to the context, which owns it from now on. */
    template <class T>
    void Hang(KxapiSlot slot, IspOwned<T> record) const
    {
        m_ctIn->apvSlot[slot] = record.release();
    }

    /* One operation-log entry: the English and Chinese texts with the
     * header's identity and the entry's values, on both channels. Two
     * straight calls rather than a loop over the channels: the loop costs the
     * short reset stages some 16 instructions of their ~260. */
    template <class... Values>
    void OpLog(const char* english, const char* chinese, Values... values) const
    {
        VW_WriteLanguageLog(KXAPI_OPLOG_PRIMARY, KXAPI_LOG_MODULE, english, chinese, m_header->szOpUser,
                            m_header->szOpAddr, m_header->ullOpPort, values...);
        VW_WriteLanguageLog(KXAPI_OPLOG_SECONDARY, KXAPI_LOG_MODULE, english, chinese, m_header->szOpUser,
                            m_header->szOpAddr, m_header->ullOpPort, values...);
    }

private:
    int ReadSignedChannelId(IspChannelRule rule, uint32_t* id, IspWhere where) const;
    int ReadUnsignedChannelId(uint32_t* id, IspWhere where) const;
    int QueryFailed(IspWhere where) const;
    void* AllocBytes(size_t size, IspWhere where) const;
    void* CallocBytes(size_t size, IspWhere where) const;
    /* `served` as it is, after the failure text (with the stage's name) when false. */
    bool Served(bool served, const char* failure, IspWhere where) const
    {
        if (!served) {
            ReportFailure(failure, where);
        }
        return served;
    }
    void ReportFailure(const char* failure, IspWhere where) const;
    void* RequiredSlot(KxapiSlot slot, IspWhere where) const;

    const char* m_name;
    tagHTTP_HEADER_S* m_header;
    tagHTTP_CNTENT_INTER_S* m_ctIn;
};

/* Reads `block` of the ISP service on `channel` into a new allocation of
 * the block's size and hangs it as the current-settings record of a PUT. The
 * allocation goes out as it is, since the service's reply replaces all of
 * it; `adjust`, when given, changes the block as read before it is hung. */
int IspReadCurrent(const IspStage& stage, const IspBlock& block, uint32_t channel,
                   void (*adjust)(uint8_t* block) = nullptr, IspWhere where = IspWhere::current());

/* Fills or copies a scratch buffer that is about to be overwritten anyway: a
 * failure is only reported ("expect Ret") and the stage goes on. */
void IspZeroScratch(void* dest, size_t size, IspWhere where = IspWhere::current());
void IspCopyScratch(void* dest, size_t destMax, const void* src, size_t count, IspWhere where = IspWhere::current());

#endif /* QTNAPI_ISP_STAGE_H */
