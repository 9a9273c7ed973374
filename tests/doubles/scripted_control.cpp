// The control process behind RestSendSynUnixMsg (linked with --wrap) and the
// device ability library, as the unit tests script them.
#include <algorithm>
#include <mutex>

#include "ability.h"
#include "doubles.h"

namespace doubles {
namespace {

ScriptedControl g_control;
// Held while a call touches the scripted state, for requests on several threads.
std::mutex g_controlLock;

}  // namespace

ScriptedControl& Control() { return g_control; }

}  // namespace doubles

extern "C" uint64_t __wrap_RestSendSynUnixMsg(const char* pcPath, VW_MSG_TYPE enType, VW_CMD_TYPE enCmd,
                                              const vwCmdBody* pstBody, tagUNIX_SOCKET_S* pstSock, MSG_DATA* pstReply,
                                              uint64_t ullTimeout)
{
    const std::lock_guard<std::mutex> hold(doubles::g_controlLock);
    auto& c = doubles::g_control;
    const int code = static_cast<int>(enCmd);
    c.sent.push_back({pcPath, static_cast<int>(enType), code,
                      std::vector<uint8_t>(pstBody->aucData, pstBody->aucData + sizeof(pstBody->aucData)), pstSock,
                      ullTimeout});
    if (std::find(c.unsent.begin(), c.unsent.end(), code) != c.unsent.end()) {
        return VW_SYN_ERR_CONNECT;
    }
    std::vector<uint8_t>& stored = c.payloads[code];
    if (enType == VW_MSG_WRITE) {
        stored.assign(pstBody->aucData, pstBody->aucData + 512);
    }
    const size_t n = std::min(stored.size(), sizeof(pstReply->aucData) - 200);
    std::copy_n(stored.begin(), n, pstReply->aucData + 200);
    const int32_t recvMsg = code + 1;
    const int32_t result = c.results.count(code) != 0 ? c.results[code] : 0;
    std::memcpy(pstReply->aucData + 164, &recvMsg, 4);
    std::memcpy(pstReply->aucData + 176, &result, 4);
    return 0;
}

extern "C" int GetDeviceAbility(DEVICE_ABILITY_S* pstAbility)
{
    const std::lock_guard<std::mutex> hold(doubles::g_controlLock);
    auto& c = doubles::g_control;
    c.abilityQueries.emplace_back(pstAbility->uiChannel, pstAbility->uiQuery);
    if (c.abilityFails) {
        return -1;
    }
    std::memcpy(pstAbility->aucData, c.ability.data() + 8, sizeof(pstAbility->aucData));
    return 0;
}
