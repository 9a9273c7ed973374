/*
 * A resource of the module as one row: where its settings live, which
 * ChannelId values its stages accept, how its record maps to and from the
 * settings' bytes, and the texts of its operation-log entries. Everything
 * particular to a resource is its row; the standard stages below are one
 * call each that takes the row. A stage that departs from them is written by
 * hand with the helpers of qtnapi_isp_stage.h and the fields of its row.
 *
 * A row is a constexpr constant and the stages take it as their template
 * argument: what a row leaves out costs its stages nothing, the ISP service
 * blocks are stack buffers of their exact size, and only the stages of a
 * control-process resource carry the command's buffers.
 *
 * Settings live in one of two places:
 * - a command of the control process, read and written with the same code
 *   over the synchronous command channel. The reply payload is laid out like
 *   the command body (the channel field, then the settings from
 *   ISP_CMD_PARAMS), and the current settings of a PUT are a copy of the
 *   payload's head, so one mapping (`fromBlock`) makes a record from a reply
 *   and from the current settings alike, and `toBlock` writes a body;
 * - a parameter block of the ISP service; the current settings of a PUT are
 *   the block as read.
 */
#ifndef QTNAPI_ISP_RESOURCE_H
#define QTNAPI_ISP_RESOURCE_H

#include <type_traits>

#include "qtnapi_isp_stage.h"

/* A command of the control process: its code (0 for none), and how many
 * bytes of its reply payload a PUT keeps as the current settings. */
struct IspCommandSource {
    VW_CMD_TYPE code;
    size_t currentSize;
};

/* The reset exchange of a reset resource: the operation it sends and how it
 * reports a message it could not create. */
struct IspResetExchange {
    uint8_t op;
    IspNewText newText;
};

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

/* What a FormatPut stage answers for a failed result. */
enum class IspPutFailure {
    Refuse, /* VW_ERR_RANGE and no body: the server answers with its own error */
    Status, /* the status envelope for the failed result */
};

/* The record of a resource that hangs none (the resets). */
struct IspNoRecord {};

/* One resource, T its record. A member a resource does not use keeps its
 * default. */
template <class T = IspNoRecord>
struct IspResource {
    using Record = T;

    IspChannelRule channelRule = IspChannelRule::NonNegative;
    IspCommandSource command = {}; /* for settings the control process keeps */
    IspBlock block = {};           /* for settings the ISP service keeps */
    IspResetExchange reset = {};   /* for a reset of the ISP service */
    void (*fromBlock)(const uint8_t* block, T& record) = nullptr;
    void (*toBlock)(const T& record, uint8_t* block) = nullptr;
    /* 0 when a request record may be written; otherwise the stage's result,
     * after the diagnostic. Nothing is written then. */
    int (*check)(const T& record) = nullptr;
    /* Fills what a GET's record takes from elsewhere than the block; false
     * after its own diagnostic. */
    bool (*prepare)(const IspStage& stage, T& record) = nullptr;
    /* Changes the current block of a PUT as read, before it is hung. */
    void (*adjust)(uint8_t* block) = nullptr;
    IspOpTexts get = {};
    IspOpTexts put = {};
    IspLogValues<T> logValues = nullptr;
    IspArgs putArgs = IspArgs::Run; /* the names the RunPut stage's "Invalid param" text gives its arguments */
    IspPutFailure onPutFailure = IspPutFailure::Refuse;
};

template <const auto& R>
using IspRecordOf = typename std::remove_cvref_t<decltype(R)>::Record;

/* The read command of a control-process resource, over `sock`: the exchange
 * with nothing to write. */
template <const auto& R>
int IspCommandRead(const IspStage& stage, IspCmd& cmd, tagUNIX_SOCKET_S* sock, IspWhere where)
{
    return stage.Exchange(
        cmd, VW_MSG_READ, R.command.code, sock, R.channelRule, [](uint8_t*) { return VW_SUCCESS; }, where);
}

/* The Run stage of a GET: reads the settings into a new record and hangs it
 * as the result record. From the control process: the read command, then
 * the record. From the ISP service: ChannelId by the row's rule, a zero-filled
 * record that `prepare` completes, then the block, read into a zero-filled
 * buffer. */
template <const auto& R>
int IspRunGet(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn,
              IspWhere where = IspWhere::current())
{
    using T = IspRecordOf<R>;
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if constexpr (R.command.code != 0) {
        IspCmd cmd;
        if (const int rc = IspCommandRead<R>(stage, cmd, client->pstSynSock, where); rc != VW_SUCCESS) {
            return rc;
        }
        IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
        if (record == nullptr) {
            return VW_ERR_NO_MEMORY;
        }
        R.fromBlock(cmd.Payload(), *record);
        stage.Hang(KXAPI_SLOT_RESULT, std::move(record));
        return VW_SUCCESS;
    } else {
        uint32_t channel = 0;
        if (const int rc = stage.SrvChannel(R.channelRule, R.block.channel, &channel, where); rc != VW_SUCCESS) {
            return rc;
        }
        IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
        if (record == nullptr) {
            return VW_ERR_NO_MEMORY;
        }
        if (!stage.Zero(record.get(), sizeof(T), where)) {
            return VW_ERR_PARAM;
        }
        if constexpr (R.prepare != nullptr) {
            if (!R.prepare(stage, *record)) {
                return VW_ERR_PARAM;
            }
        }
        uint8_t block[R.block.size];
        if (!stage.Zero(block, sizeof(block), where) ||
            !stage.SrvGet(R.block.command, channel, block, sizeof(block), where)) {
            return VW_ERR_PARAM;
        }
        R.fromBlock(block, *record);
        stage.Hang(KXAPI_SLOT_RESULT, std::move(record));
        return VW_SUCCESS;
    }
}

/* The PreProc stage of a PUT: reads the current settings and hangs them as
 * the current-settings record, the payload's head of the read command or the
 * service block as read (changed by `adjust`). */
template <const auto& R>
int IspPreProc(const char* name, tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* sock, tagHTTP_CNTENT_INTER_S* ctIn,
               IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::PreProc, header, sock, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if constexpr (R.command.code != 0) {
        IspCmd cmd;
        if (const int rc = IspCommandRead<R>(stage, cmd, sock, where); rc != VW_SUCCESS) {
            return rc;
        }
        IspOwned<uint8_t> current = stage.Alloc<uint8_t>(R.command.currentSize, where);
        if (current == nullptr) {
            return VW_ERR_NO_MEMORY;
        }
        if (!stage.Copy(current.get(), R.command.currentSize, cmd.Payload(), R.command.currentSize, where)) {
            return VW_ERR_PARAM;
        }
        stage.Hang(KXAPI_SLOT_CURRENT, std::move(current));
        return VW_SUCCESS;
    } else {
        uint32_t channel = 0;
        if (const int rc = stage.SrvChannel(R.channelRule, R.block.channel, &channel, where); rc != VW_SUCCESS) {
            return rc;
        }
        return IspReadCurrent(stage, R.block, channel, R.adjust, where);
    }
}

/* The Parse stage of a PUT: a new record from the current settings
 * (`fromBlock`), the body merged into it, hung as the request record. */
template <const auto& R>
int IspParse(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CONTENT_S* content, tagHTTP_CNTENT_INTER_S* ctIn,
             IspWhere where = IspWhere::current())
{
    using T = IspRecordOf<R>;
    if (IspArgsMissing(IspArgs::Parse, header, content, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    const uint8_t* current = stage.Required<const uint8_t>(KXAPI_SLOT_CURRENT, where);
    if (current == nullptr) {
        return VW_ERR_PARAM;
    }
    IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
    if (record == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    R.fromBlock(current, *record);
    if (json_decode<T>(content->pcBody, nullptr, *record) != 0) {
        return stage.Refuse(where);
    }
    stage.Hang(KXAPI_SLOT_REQUEST, std::move(record));
    return VW_SUCCESS;
}

/* Checks the request record and writes it into a block; 0, or the check's
 * refusal. */
template <const auto& R>
int IspToBlock(const IspRecordOf<R>& record, uint8_t* block)
{
    if constexpr (R.check != nullptr) {
        if (const int rc = R.check(record); rc != VW_SUCCESS) {
            return rc;
        }
    }
    R.toBlock(record, block);
    return VW_SUCCESS;
}

/* The RunPut stage of a PUT: writes the request record. To the control
 * process: the write command, its body from the record. To the ISP service:
 * ChannelId by the row's rule, then the whole block, zero-filled and written
 * from the record. The server calls this stage only after a successful Parse
 * stage; should the request record be missing all the same, nothing is
 * written ("null point", VW_ERR_PARAM). */
template <const auto& R>
int IspRunPut(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn,
              IspWhere where = IspWhere::current())
{
    using T = IspRecordOf<R>;
    if (IspArgsMissing(R.putArgs, header, client, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if constexpr (R.command.code != 0) {
        IspCmd cmd;
        return stage.Exchange(
            cmd, VW_MSG_WRITE, R.command.code, client->pstSynSock, R.channelRule,
            [&](uint8_t* body) {
                const T* record = stage.Required<const T>(KXAPI_SLOT_REQUEST, where);
                return record == nullptr ? VW_ERR_PARAM : IspToBlock<R>(*record, body);
            },
            where);
    } else {
        uint32_t channel = 0;
        if (const int rc = stage.SrvChannel(R.channelRule, R.block.channel, &channel, where); rc != VW_SUCCESS) {
            return rc;
        }
        const T* record = stage.Required<const T>(KXAPI_SLOT_REQUEST, where);
        if (record == nullptr) {
            return VW_ERR_PARAM;
        }
        uint8_t block[R.block.size];
        if (!stage.Zero(block, sizeof(block), where)) {
            return VW_ERR_PARAM;
        }
        if (const int rc = IspToBlock<R>(*record, block); rc != VW_SUCCESS) {
            return rc;
        }
        if (!stage.SrvSet(R.block.command, channel, block, sizeof(block), where)) {
            return VW_ERR_PARAM;
        }
        return VW_SUCCESS;
    }
}

/* The FormatGet stage: a failed result is entered in the operation log and
 * answered with VW_ERR_RANGE and no body; a success is entered with the
 * record's values and answered with the record's JSON (or the envelope when
 * there is no record). */
template <const auto& R>
int IspFormatGet(const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                 tagHTTP_BUF_S* buf, IspWhere where = IspWhere::current())
{
    using T = IspRecordOf<R>;
    if (IspArgsMissing(IspArgs::PreProc, header, ctIn, buf, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if (result != VW_SUCCESS) {
        stage.OpLog(R.get.failEn, R.get.failCn);
        return VW_ERR_RANGE;
    }
    if (const T* record = static_cast<const T*>(stage.Slot(KXAPI_SLOT_RESULT))) {
        R.logValues(stage, R.get.okEn, R.get.okCn, *record);
    }
    return FormatCommonResponse<T>(header, VW_SUCCESS, ctIn, buf);
}

/* The FormatPut stage: without a request record it answers VW_ERR_RANGE and
 * logs nothing; otherwise the outcome is entered in the operation log with
 * the values that were (to be) set, a success is answered with the status
 * envelope and a failure as the row says. */
template <const auto& R>
int IspFormatPut(const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                 tagHTTP_BUF_S* buf, IspWhere where = IspWhere::current())
{
    using T = IspRecordOf<R>;
    if (IspArgsMissing(IspArgs::PreProc, header, ctIn, buf, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    const T* record = static_cast<const T*>(stage.Slot(KXAPI_SLOT_REQUEST));
    if (record == nullptr) {
        return VW_ERR_RANGE;
    }
    if (result != VW_SUCCESS) {
        R.logValues(stage, R.put.failEn, R.put.failCn, *record);
        if (R.onPutFailure == IspPutFailure::Refuse) {
            return VW_ERR_RANGE;
        }
        return FormatCommonStatus(header, result, ctIn, buf);
    }
    R.logValues(stage, R.put.okEn, R.put.okCn, *record);
    return FormatCommonStatus(header, VW_SUCCESS, ctIn, buf);
}

#endif /* QTNAPI_ISP_RESOURCE_H */
