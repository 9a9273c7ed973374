/*
 * The stage helpers, what every stage of the ISP module does the same way:
 * the argument check, the ChannelId rule, diagnostics, the operation-log
 * pair, allocation and bounds-checked fills of records, ISP service reads and
 * writes that report their failure, and hanging records on the request
 * context.
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

/* Which ChannelId values a stage accepts. */
enum class IspChannelRule {
    NonNegative, /* any value but a negative one */
    ThermalOnly, /* the thermal channel, 102, alone */
};

#define ISP_THERMAL_CHANNEL 102
/* ChannelId of the first channel; the ISP service numbers channels from 0. */
#define ISP_FIRST_CHANNEL 101

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
    uint8_t* Params() { return body.aucData + ISP_CMD_PARAMS; }
};

/* One stage call: its exported name, the request header and the context,
 * for the helpers that report in the stage's name or touch its slots. */
class IspStage {
public:
    IspStage(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CNTENT_INTER_S* ctIn)
        : m_name(name), m_header(header), m_ctIn(ctIn)
    {
    }

    /* Reads ChannelId as a signed number and checks it against the rule.
     * 0 with *channel set; otherwise the stage's result after the diagnostic
     * (VW_ERR_QUERY when unreadable, VW_ERR_RANGE when refused). A null
     * `channel` checks without keeping the value. */
    int Channel(IspChannelRule rule, int* channel = nullptr, IspWhere where = IspWhere::current()) const;
    /* Reads ChannelId as an unsigned number; there is no range to check. */
    int ChannelUnsigned(unsigned* channel, IspWhere where = IspWhere::current()) const;

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
        return Served(ResetIspSrvData(command, op, channel, newText) == 0, "[KXAPI]:%s: ResetIspSrvData failed",
                      where);
    }

    /* Sends the command in `cmd` and writes the trace line; the reply's
     * Result, or nothing after the "Send SynUnixMsg" diagnostic when the
     * command could not be sent. */
    std::optional<int> Send(IspCmd& cmd, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock,
                            IspWhere where = IspWhere::current()) const;

    /* The exchange of a settings resource with the control process: begins
     * the command, checks ChannelId (any non-negative value), lets `params`
     * write a write command's parameters (it may refuse with a result, and
     * then nothing is sent) and sends. 0 when the device answered with
     * Result 0; otherwise the stage's result: the ChannelId or parameter
     * refusal, VW_ERR_PARAM when not sent, or the device's Result itself. */
    template <class Params>
    int Exchange(IspCmd& cmd, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock, Params params,
                 IspWhere where = IspWhere::current()) const
    {
        cmd.Begin(where);
        if (const int rc = Channel(IspChannelRule::NonNegative, nullptr, where); rc != VW_SUCCESS) {
            return rc;
        }
        if (const int rc = params(cmd.Params()); rc != VW_SUCCESS) {
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

/* The Run stage of a GET whose settings the ISP service keeps: makes a
 * zeroed record of T, lets `prepare(record)` fill what comes from elsewhere
 * (it reports its own failure and returns false), reads the service block of
 * `command` on `channel` into a zeroed block of Size bytes, fills the record
 * from it with `fill(block, record)` and hangs the record as the result
 * record. */
template <class T, size_t Size, class Fill, class Prepare>
int IspReadResult(const IspStage& stage, unsigned command, uint32_t channel, Fill fill, Prepare prepare,
                  IspWhere where = IspWhere::current())
{
    IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
    if (record == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    if (!stage.Zero(record.get(), sizeof(T), where) || !prepare(*record)) {
        return VW_ERR_PARAM;
    }
    uint8_t block[Size];
    if (!stage.Zero(block, Size, where) || !stage.SrvGet(command, channel, block, Size, where)) {
        return VW_ERR_PARAM;
    }
    fill(static_cast<const uint8_t*>(block), *record);
    stage.Hang(KXAPI_SLOT_RESULT, std::move(record));
    return VW_SUCCESS;
}

template <class T, size_t Size, class Fill>
int IspReadResult(const IspStage& stage, unsigned command, uint32_t channel, Fill fill,
                  IspWhere where = IspWhere::current())
{
    return IspReadResult<T, Size>(stage, command, channel, fill, [](T&) { return true; }, where);
}

/* The PreProc stage of a PUT whose settings the ISP service keeps: reads the
 * service block of `command` on `channel` into a new block of `size` bytes
 * and hangs it as the current-settings record. The block goes out as
 * allocated, since the service's reply replaces all of it; `adjust`, when
 * given, changes the block as read before it is hung. */
int IspReadCurrent(const IspStage& stage, unsigned command, uint32_t channel, unsigned size,
                   void (*adjust)(uint8_t* block) = nullptr, IspWhere where = IspWhere::current());

/* Fills or copies a scratch buffer that is about to be overwritten anyway: a
 * failure is only reported ("expect Ret") and the stage goes on. */
void IspZeroScratch(void* dest, size_t size, IspWhere where = IspWhere::current());
void IspCopyScratch(void* dest, size_t destMax, const void* src, size_t count, IspWhere where = IspWhere::current());

/* The Parse stage of a resource whose request record is a T: starts a new
 * record from the current-settings record with `fromCurrent(current,
 * record)`, merges the body into it and hangs it as the request record. */
template <class T, class Current, class FromCurrent>
int IspParseOver(const IspStage& stage, const char* body, FromCurrent fromCurrent,
                 IspWhere where = IspWhere::current())
{
    const Current* current = stage.Required<const Current>(KXAPI_SLOT_CURRENT, where);
    if (current == nullptr) {
        return VW_ERR_PARAM;
    }
    IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
    if (record == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    fromCurrent(current, *record);
    if (json_decode<T>(body, nullptr, *record) != 0) {
        return stage.Refuse(where);
    }
    stage.Hang(KXAPI_SLOT_REQUEST, std::move(record));
    return VW_SUCCESS;
}

/* The English and Chinese texts of a resource's success and failure entries
 * for one direction (read or change). */
struct IspOpTexts {
    const char* okEn;
    const char* okCn;
    const char* failEn;
    const char* failCn;
};

/* Writes one entry of a resource with the values its texts list, taken from
 * the record. */
template <class T>
using IspLogValues = void (*)(const IspStage& stage, const char* english, const char* chinese, const T& record);

/* The FormatGet stage of a resource whose result record is a T: a failed
 * result is entered in the operation log and answered with VW_ERR_RANGE and
 * no body; a success is entered with the record's values and answered with
 * the record's JSON (or the envelope when there is no record). */
template <class T>
int IspFormatGet(const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                 tagHTTP_BUF_S* buf, const IspOpTexts& texts, IspLogValues<T> logValues,
                 IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::PreProc, header, ctIn, buf, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if (result != VW_SUCCESS) {
        stage.OpLog(texts.failEn, texts.failCn);
        return VW_ERR_RANGE;
    }
    if (const T* record = static_cast<const T*>(stage.Slot(KXAPI_SLOT_RESULT))) {
        logValues(stage, texts.okEn, texts.okCn, *record);
    }
    return FormatCommonResponse<T>(header, VW_SUCCESS, ctIn, buf);
}

/* What a FormatPut stage answers for a failed result. */
enum class IspPutFailure {
    Refuse, /* VW_ERR_RANGE and no body: the server answers with its own error */
    Status, /* the status envelope for the failed result */
};

/* The FormatPut stage of a resource whose request record is an R: without a
 * request record it answers VW_ERR_RANGE and logs nothing; otherwise the
 * outcome is entered in the operation log with the values that were (to be)
 * set, and a success is answered with the status envelope. */
template <class R>
int IspFormatPut(const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                 tagHTTP_BUF_S* buf, const IspOpTexts& texts, IspLogValues<R> logValues, IspPutFailure onFailure,
                 IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::PreProc, header, ctIn, buf, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    const R* record = static_cast<const R*>(stage.Slot(KXAPI_SLOT_REQUEST));
    if (record == nullptr) {
        return VW_ERR_RANGE;
    }
    if (result != VW_SUCCESS) {
        logValues(stage, texts.failEn, texts.failCn, *record);
        if (onFailure == IspPutFailure::Refuse) {
            return VW_ERR_RANGE;
        }
        return FormatCommonStatus(header, result, ctIn, buf);
    }
    logValues(stage, texts.okEn, texts.okCn, *record);
    return FormatCommonStatus(header, VW_SUCCESS, ctIn, buf);
}

#endif /* QTNAPI_ISP_STAGE_H */
