#include "qtnapi_isp_stage.h"

#include <cstdlib>

bool IspArgsReport(IspArgs kind, const void* a, const void* b, const void* c, IspWhere where)
{
    switch (kind) {
        case IspArgs::Parse:
            ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:Invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]", a,
                       b, c);
            break;
        case IspArgs::PreProc:
            ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:Invalid param, pstHeader[%p] pstSynSock[%p] pstCtIn[%p]", a, b,
                       c);
            break;
        case IspArgs::Run:
            ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:Invalid param, header[%p] client[%p] ctIn[%p]", a, b, c);
            break;
        case IspArgs::RunPst:
            ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]", a, b,
                       c);
            break;
    }
    return true;
}

int IspStage::QueryFailed(IspWhere where) const
{
    ISP_LOG_AT(KXAPI_LOG_INFO, where, "[KXAPI]:%s, Query param get failed", m_name);
    return VW_ERR_QUERY;
}

int IspStage::ReadSignedChannelId(IspChannelRule rule, uint32_t* id, IspWhere where) const
{
    int nChannelID = 0;
    if (GetURIQueryParamByKey<int>(m_header, "ChannelId", &nChannelID) != VW_SUCCESS) {
        return QueryFailed(where);
    }
    const bool accepted = rule == IspChannelRule::ThermalOnly ? nChannelID == ISP_THERMAL_CHANNEL : nChannelID >= 0;
    if (!accepted) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:%d: nChannelID Error", nChannelID);
        return VW_ERR_RANGE;
    }
    if (id != nullptr) {
        *id = static_cast<uint32_t>(nChannelID);
    }
    return VW_SUCCESS;
}

int IspStage::ReadUnsignedChannelId(uint32_t* id, IspWhere where) const
{
    unsigned int nChannelID = 0;
    if (GetURIQueryParamByKey<unsigned int>(m_header, "ChannelId", &nChannelID) != VW_SUCCESS) {
        return QueryFailed(where);
    }
    if (id != nullptr) {
        *id = nChannelID;
    }
    return VW_SUCCESS;
}

void* IspStage::AllocBytes(size_t size, IspWhere where) const
{
    void* block = std::malloc(size);
    if (block == nullptr) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:%s: malloc fail, response for req[%s %s]", m_name,
                   m_header->szMethod, m_header->szUrl);
    }
    return block;
}

void* IspStage::CallocBytes(size_t size, IspWhere where) const
{
    void* block = std::calloc(1, size);
    if (block == nullptr) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:%s: calloc fail, response for req[%s %s]", m_name,
                   m_header->szMethod, m_header->szUrl);
    }
    return block;
}

void* IspStage::RequiredSlot(KxapiSlot slot, IspWhere where) const
{
    void* record = Slot(slot);
    if (record == nullptr) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:null point");
    }
    return record;
}

void IspStage::ReportFailure(const char* failure, IspWhere where) const
{
    ISP_LOG_AT(KXAPI_LOG_ERROR, where, failure, m_name);
}

int IspReadCurrent(const IspStage& stage, const IspBlock& block, uint32_t channel, void (*adjust)(uint8_t* block),
                   IspWhere where)
{
    IspOwned<uint8_t> current = stage.Alloc<uint8_t>(block.size, where);
    if (current == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    if (!stage.SrvGet(block.command, channel, current.get(), block.size, where)) {
        return VW_ERR_PARAM;
    }
    if (adjust != nullptr) {
        adjust(current.get());
    }
    stage.Hang(KXAPI_SLOT_CURRENT, std::move(current));
    return VW_SUCCESS;
}

void IspCmd::Begin(IspWhere where)
{
    IspZeroScratch(&reply, sizeof(reply), where);
    IspZeroScratch(&body, sizeof(body), where);
    IspBlockPut<uint32_t>(body.aucData, 0, ISP_CMD_CHANNEL_FIELD);
    IspBlockPut<uint32_t>(body.aucData, 4, 0);
}

std::optional<int> IspStage::Send(IspCmd& cmd, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock,
                                  IspWhere where) const
{
    if (RestSendSynUnixMsg(ISP_CMD_PATH, type, code, &cmd.body, sock, &cmd.reply, 0) != 0) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:Send SynUnixMsg for Getting cmd[%d] failed",
                   static_cast<int>(code));
        return std::nullopt;
    }
    const int result = IspBlockGet<int32_t>(cmd.reply.aucData, ISP_REPLY_RESULT);
    ISP_LOG_AT(KXAPI_LOG_TRACE, where, "[KXAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]", m_name,
               m_header->szMethod, m_header->szUrl, static_cast<int>(code),
               IspBlockGet<int32_t>(cmd.reply.aucData, ISP_REPLY_MSG), result);
    return result;
}

int IspStage::Refuse(IspWhere where) const
{
    ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:%s[%d] json decode fail\n", m_name, static_cast<int>(where.line()));
    return VW_ERR_BODY;
}

void IspZeroScratch(void* dest, size_t size, IspWhere where)
{
    const int ret = memset_s(dest, size, 0, size);
    if (ret != EOK) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:[%s] expect Ret %d, actual Ret %d.", "memset_s", EOK, ret);
    }
}

void IspCopyScratch(void* dest, size_t destMax, const void* src, size_t count, IspWhere where)
{
    const int ret = memcpy_s(dest, destMax, src, count);
    if (ret != EOK) {
        ISP_LOG_AT(KXAPI_LOG_ERROR, where, "[KXAPI]:[%s] expect Ret %d, actual Ret %d.", "memcpy_s", EOK, ret);
    }
}
