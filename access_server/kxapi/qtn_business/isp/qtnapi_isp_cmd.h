/*
 * The stages of a resource whose settings the control process keeps, read
 * and written with one command code over the synchronous command channel.
 * Everything particular to such a resource is one IspCmdResource row; its
 * stages are one call each.
 *
 * The current-settings record of a PUT is a copy of the reply payload's
 * head, so one mapping (`fromPayload`) makes a record from a reply and from
 * the current settings alike.
 */
#ifndef QTNAPI_ISP_CMD_H
#define QTNAPI_ISP_CMD_H

#include "qtnapi_isp_stage.h"

template <class T>
struct IspCmdResource {
    VW_CMD_TYPE code;
    size_t currentSize;                                    /* payload bytes kept as the current settings */
    void (*fromPayload)(const uint8_t* payload, T& record);
    /* Writes a write command's parameters; a non-zero result refuses the
     * write and becomes the stage's result. */
    int (*toParams)(const IspStage& stage, const T& record, uint8_t* params);
    IspOpTexts get;
    IspOpTexts put;
    IspLogValues<T> logValues;
};

template <class T>
int IspCmdRunGet(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                 tagHTTP_CNTENT_INTER_S* ctIn, IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    IspCmd cmd;
    const int rc = stage.Exchange(cmd, VW_MSG_READ, r.code, client->pstSynSock,
                                  [](uint8_t*) { return VW_SUCCESS; }, where);
    if (rc != VW_SUCCESS) {
        return rc;
    }
    IspOwned<T> record = stage.Alloc<T>(sizeof(T), where);
    if (record == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    r.fromPayload(cmd.Payload(), *record);
    stage.Hang(KXAPI_SLOT_RESULT, std::move(record));
    return VW_SUCCESS;
}

template <class T>
int IspCmdPreProc(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* sock,
                  tagHTTP_CNTENT_INTER_S* ctIn, IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::PreProc, header, sock, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    IspCmd cmd;
    const int rc = stage.Exchange(cmd, VW_MSG_READ, r.code, sock, [](uint8_t*) { return VW_SUCCESS; }, where);
    if (rc != VW_SUCCESS) {
        return rc;
    }
    IspOwned<uint8_t> current = stage.Alloc<uint8_t>(r.currentSize, where);
    if (current == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    if (!stage.Copy(current.get(), r.currentSize, cmd.Payload(), r.currentSize, where)) {
        return VW_ERR_PARAM;
    }
    stage.Hang(KXAPI_SLOT_CURRENT, std::move(current));
    return VW_SUCCESS;
}

template <class T>
int IspCmdParse(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, tagHTTP_CONTENT_S* content,
                tagHTTP_CNTENT_INTER_S* ctIn, IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::Parse, header, content, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    return IspParseOver<T, uint8_t>(stage, content->pcBody, r.fromPayload, where);
}

/* The server calls RunPut only after a successful Parse; should the request
 * record be missing all the same, nothing is sent ("null point", 1). */
template <class T>
int IspCmdRunPut(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                 tagHTTP_CNTENT_INTER_S* ctIn, IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::RunPst, header, client, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    IspCmd cmd;
    return stage.Exchange(
        cmd, VW_MSG_WRITE, r.code, client->pstSynSock,
        [&](uint8_t* params) {
            const T* record = stage.Required<const T>(KXAPI_SLOT_REQUEST, where);
            return record == nullptr ? VW_ERR_PARAM : r.toParams(stage, *record, params);
        },
        where);
}

template <class T>
int IspCmdFormatGet(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                    tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf, IspWhere where = IspWhere::current())
{
    return IspFormatGet<T>(name, header, result, ctIn, buf, r.get, r.logValues, where);
}

template <class T>
int IspCmdFormatPut(const IspCmdResource<T>& r, const char* name, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                    tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf, IspWhere where = IspWhere::current())
{
    return IspFormatPut<T>(name, header, result, ctIn, buf, r.put, r.logValues, IspPutFailure::Refuse, where);
}

#endif /* QTNAPI_ISP_CMD_H */
