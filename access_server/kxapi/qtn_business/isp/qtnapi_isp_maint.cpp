// Maintenance resources: restore defaults and the four resets.
#include "qtnapi_isp_maint.h"

#include "qtnapi_isp_resource.h"
#include "qtnapi_isp_srv.h"

namespace {

// Reads no ChannelId: the defaults are restored for the whole ISP.
constexpr IspResource<> kRestore = {
    .channelRule = IspChannelRule::Unread,
    .block = {ISP_CMD_RESTORE_DEFAULTS, kIspNoChannel, 0},
    .reset = {ISP_OP_WRITE, IspNewText::SendMsg},
    .put = {"%s[%s:%llu] Restore ISP Default Param Successfully. ", "%s[%s:%llu] ISP恢复默认参数成功. ",
            "%s[%s:%llu] Restore ISP Default Param Fail.", "%s[%s:%llu] ISP恢复默认参数失败."},
};

// Only the thermal channel.
constexpr IspResource<> kResetThermal = {
    .channelRule = IspChannelRule::ThermalOnly,
    .block = {ISP_CMD_THERMAL, IspFixedChannel(THERMAL_RESET_CHANNEL), 0},
    .reset = {ISP_OP_RESET, IspNewText::MessageNew},
    .put = {"%s[%s:%llu] Reset ISP Thermal Param Successfully. ", "%s[%s:%llu] ISP热成像重置成功. ",
            "%s[%s:%llu] Reset ISP Thermal Param Fail.", "%s[%s:%llu] ISP热成像重置失败."},
};

// The fog block's first word takes the configured fog value.
constexpr IspResource<> kFog = {
    .block = {ISP_CMD_FOG_ADAPT, kIspChannelOfRequest, ADAPT_BLOCK_SIZE},
    .put = {"%s[%s:%llu] Reset ISP Fog Adapt Param Successfully. ", "%s[%s:%llu] ISP透雾自适应重置成功. ",
            "%s[%s:%llu] Reset ISP Fog Adapt Param Fail.", "%s[%s:%llu] ISP透气自适应重置失败."},
};

// The configured speed value goes back with the set command.
constexpr IspResource<> kSpeed = {
    .command = {VW_CMD_SPEED_ADAPT_SET, 0},
    .put = {"%s[%s:%llu] Reset ISP Speed Adapt Param Successfully. ", "%s[%s:%llu] ISP速度（拖影）自适应重置成功. ",
            "%s[%s:%llu] Reset ISP Speed Adapt Param Fail.", "%s[%s:%llu] ISP速度（拖影）自适应重置失败."},
};

// The backlight flag sets the block's state word to 3; a clear flag turns a
// 3 into 0 and leaves any other state as it is.
constexpr IspResource<> kBacklight = {
    .block = {ISP_CMD_BACKLIGHT_ADAPT, kIspChannelOfRequest, ADAPT_BLOCK_SIZE},
    .put = {"%s[%s:%llu] Reset ISP Backlight Adapt Param Successfully. ", "%s[%s:%llu] ISP背光自适应重置成功. ",
            "%s[%s:%llu] Reset ISP Backlight Adapt Param Fail.", "%s[%s:%llu] ISP背光自适应重置失败."},
};

// The entry of the reset or write itself, success or failure.
[[gnu::always_inline]] inline void LogOutcome(const IspStage& stage, const IspOpTexts& texts, bool ok)
{
    stage.OpLog(ok ? texts.okEn : texts.failEn, ok ? texts.okCn : texts.failCn);
}

// Enters the outcome of the reset or write in the operation log and answers
// with its result.
[[gnu::always_inline]] inline int Finish(const IspStage& stage, const IspOpTexts& texts, bool ok)
{
    LogOutcome(stage, texts, ok);
    return ok ? VW_SUCCESS : VW_ERR_PARAM;
}

// The reset exchange of the ISP service. An unreadable ChannelId counts as a
// refused request here (4), not as a query failure.
template <const auto& R>
int ResetService(const char* name, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn,
                 IspWhere where = IspWhere::current())
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn, where)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(name, header, ctIn);
    if (const int rc = stage.ChannelId(R.channelRule, nullptr, where); rc != VW_SUCCESS) {
        return rc == VW_ERR_QUERY ? VW_ERR_BODY : rc;
    }
    const uint32_t channel = R.block.channel.fixed;
    const uint32_t* key = R.block.channel.kind == IspSrvChannel::Omitted ? nullptr : &channel;
    return Finish(stage, R.put, stage.SrvReset(R.block.command, R.reset.op, key, R.reset.newText, where));
}

// Reads the device's adaptation configuration into cmd: 0; VW_ERR_PARAM when
// the command was not sent; VW_ERR_RANGE when the device refused it.
int ReadAdaptConfig(const IspStage& stage, IspCmd& cmd, tagUNIX_SOCKET_S* sock, IspWhere where = IspWhere::current())
{
    const std::optional<int> result = stage.Send(cmd, VW_MSG_READ, VW_CMD_ADAPT_CONFIG_GET, sock, where);
    if (!result) {
        return VW_ERR_PARAM;
    }
    return *result != 0 ? VW_ERR_RANGE : VW_SUCCESS;
}

// Reads the adaptation block of the row on the request's channel into
// `block`, lets `change` set it from the configuration, and writes it back.
// A block that could not be read is not written back: the reset has failed.
template <const auto& R, class Change>
int RewriteAdaptBlock(const IspStage& stage, uint8_t* block, Change change, IspWhere where = IspWhere::current())
{
    uint32_t channel = 0;
    if (const int rc = stage.SrvChannel(R.channelRule, R.block.channel, &channel, where); rc != VW_SUCCESS) {
        return rc;
    }
    if (!stage.SrvGet(R.block.command, channel, block, R.block.size, where)) {
        return Finish(stage, R.put, false);
    }
    change(block);
    return Finish(stage, R.put, stage.SrvSet(R.block.command, channel, block, R.block.size, where));
}

}  // namespace

KXAPI_STAGE int RunPutIspIaasRestoreDefaultParams(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                  tagHTTP_CNTENT_INTER_S* ctIn)
{
    return ResetService<kRestore>(__func__, header, client, ctIn);
}

KXAPI_STAGE int RunPutIspIaasResetThermal(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                          tagHTTP_CNTENT_INTER_S* ctIn)
{
    return ResetService<kResetThermal>(__func__, header, client, ctIn);
}

// ChannelId is checked only once the configuration has been read.
KXAPI_STAGE int RunPutIspIaasResetFogAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                           tagHTTP_CNTENT_INTER_S* ctIn)
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, header, ctIn);
    IspCmd cmd;
    cmd.Begin();
    if (const int rc = ReadAdaptConfig(stage, cmd, client->pstSynSock); rc != VW_SUCCESS) {
        return rc;
    }
    IspOwned<uint8_t> block = stage.Alloc<uint8_t>(kFog.block.size);
    if (block == nullptr) {
        return VW_ERR_NO_MEMORY;
    }
    const uint32_t fog = IspBlockGet<uint32_t>(cmd.reply.aucData, ADAPT_REPLY_FOG);
    return RewriteAdaptBlock<kFog>(stage, block.get(), [fog](uint8_t* b) { IspBlockPut<uint32_t>(b, 0, fog); });
}

// ChannelId is checked before anything is sent. The set command's Result is
// the stage's result, and its success entry is written whatever that Result
// is. The second command reuses the first one's buffers, zero-filled again,
// once the value has been taken from the first reply.
KXAPI_STAGE int RunPutIspIaasResetSpeedAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                             tagHTTP_CNTENT_INTER_S* ctIn)
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, header, ctIn);
    IspCmd cmd;
    cmd.Begin();
    if (const int rc = stage.ChannelId(kSpeed.channelRule); rc != VW_SUCCESS) {
        return rc;
    }
    if (const int rc = ReadAdaptConfig(stage, cmd, client->pstSynSock); rc != VW_SUCCESS) {
        return rc;
    }
    const uint32_t speed = IspBlockGet<uint32_t>(cmd.reply.aucData, ADAPT_REPLY_SPEED);
    cmd.Begin();
    IspBlockPut<uint32_t>(cmd.body.aucData, ISP_CMD_PARAMS, speed);
    const std::optional<int> result = stage.Send(cmd, VW_MSG_WRITE, kSpeed.command.code, client->pstSynSock);
    LogOutcome(stage, kSpeed.put, result.has_value());
    return result ? *result : VW_ERR_PARAM;
}

KXAPI_STAGE int RunPutIspIaasResetBackLightAdapt(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                 tagHTTP_CNTENT_INTER_S* ctIn)
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, header, ctIn);
    IspCmd cmd;
    cmd.Begin();
    if (const int rc = ReadAdaptConfig(stage, cmd, client->pstSynSock); rc != VW_SUCCESS) {
        return rc;
    }
    uint8_t block[kBacklight.block.size];
    if (!stage.Zero(block, sizeof(block))) {
        return VW_ERR_PARAM;
    }
    const bool flag = IspBlockGet<int32_t>(cmd.reply.aucData, ADAPT_REPLY_BACKLIGHT) != 0;
    return RewriteAdaptBlock<kBacklight>(stage, block, [flag](uint8_t* b) {
        const uint32_t state = IspBlockGet<uint32_t>(b, 0);
        if (flag) {
            IspBlockPut<uint32_t>(b, 0, BACKLIGHT_STATE_SET);
        } else if (state == BACKLIGHT_STATE_SET) {
            IspBlockPut<uint32_t>(b, 0, 0);
        }
    });
}
