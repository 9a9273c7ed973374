// The contract row of each resource: its group, what it is, how its stages
// take ChannelId, where the device keeps its values, and what its stages
// enforce beyond the member table. The generator (api_document.cpp) reads
// nothing else of a resource.
#include "api_document.h"
#include "kxapi_common.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_srv.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

namespace devhost::contract {

namespace {

constexpr const char* kTuning = "Image tuning";
constexpr const char* kFocus = "Focus and capability";
constexpr const char* kThermal = "Thermal imaging";
constexpr const char* kMaintenance = "Maintenance";
constexpr const char* kIsp = "isp";
constexpr const char* kControl = "control";

}  // namespace

const std::vector<ResourceContract>& ResourceContracts()
{
    static const std::vector<ResourceContract> rows = {
        {.name = "FakeRatio",
         .tag = kTuning,
         .summary = "Fake-colour ratio",
         .schema = &RecordSchema<_FakeRatio>,
         .channel = ChannelRule::NotRead,
         .channelSelects = false,
         .device = "/_sim/isp/28/0",
         .commands = {{kIsp, ISP_CMD_FAKE_RATIO}},
         .rules = {},
         .getNote = "Read from the ISP service's channel 0 and passed on unchecked."},
        {.name = "Awb",
         .tag = kTuning,
         .summary = "Automatic white balance: the region weights",
         .schema = &RecordSchema<_AwbInfo>,
         .channel = ChannelRule::NonNegative,
         .channelSelects = false,
         .device = "/_sim/control/3231",
         .commands = {{kControl, VW_CMD_AWB}},
         .rules = {{.pointer = "/regionAwbAttr/roiWeightArray",
                    .counted = '1',
                    .count = AWB_MIN_ONES,
                    .description = "the region weights as one text. A PUT is refused with StatusCode 4 unless the "
                                   "device's whole field holds at least 12 characters '1' after the change: a text "
                                   "shorter than the one the device holds replaces its start, and '1's in the rest "
                                   "of the field count too, so a text with 12 '1's is always taken"}},
         .putNote = "A body without \"regionAwbAttr\" or \"roiWeightArray\" writes the current text back, which "
                    "must itself pass the rule of twelve '1's."},
        {.name = "AEExpLock",
         .tag = kTuning,
         .summary = "Exposure lock",
         .schema = &RecordSchema<_AEExpLockInfo>,
         .channel = ChannelRule::Unsigned,
         .channelSelects = true,
         .device = "/_sim/isp/16/0",
         .commands = {{kIsp, ISP_CMD_EXPOSURE_LOCK}},
         .rules = {{.pointer = "/enable", .description = "true locks the exposure, false unlocks it"}},
         .putNote = "A body without \"enable\" unlocks."},
        {.name = "ExtreColor",
         .tag = kTuning,
         .summary = "Extreme-colour (black-light) fusion",
         .schema = &RecordSchema<_ExtreColorInfo>,
         .channel = ChannelRule::NonNegative,
         .channelSelects = false,
         .device = "/_sim/control/3229",
         .commands = {{kControl, VW_CMD_EXTRE_COLOR}},
         .rules = {{.pointer = "/fusionStrength", .description = "the fusion strength, passed on unchecked"}}},
        {.name = "RestoreDefaultParams",
         .tag = kMaintenance,
         .summary = "Restore the ISP defaults",
         .schema = nullptr,
         .channel = ChannelRule::NotRead,
         .channelSelects = false,
         .device = nullptr,
         .commands = {{kIsp, ISP_CMD_RESTORE_DEFAULTS}},
         .rules = {},
         .putNote = "Returns the ISP service's settings of every channel to the device's defaults: fake-colour "
                    "ratio, exposure lock, autofocus and its plane points, thermal settings, backlight and fog states. "
                    "What the control process keeps - white balance (Awb), extreme-colour fusion (ExtreColor), the "
                    "adaptation configuration - keeps its values."},
        {.name = "ResetThermal",
         .tag = kMaintenance,
         .summary = "Reset the thermal settings",
         .schema = nullptr,
         .channel = ChannelRule::ThermalOnly,
         .channelSelects = false,
         .device = "/_sim/isp/25/2",
         .commands = {{kIsp, ISP_CMD_THERMAL}},
         .rules = {},
         .putNote = "Returns the thermal settings (Thermal) to the device's defaults. An unreadable ChannelId is "
                    "refused with StatusCode 4 here, not 3."},
        {.name = "ResetFogAdapt",
         .tag = kMaintenance,
         .summary = "Reset the fog adaptation",
         .schema = nullptr,
         .channel = ChannelRule::NonNegative,
         .channelSelects = true,
         .device = "/_sim/isp/7/0",
         .commands = {{kControl, VW_CMD_ADAPT_CONFIG_GET}, {kIsp, ISP_CMD_FOG_ADAPT}},
         .rules = {},
         .putNote = "Sets the fog state from the device's adaptation configuration (/_sim/control/3213)."},
        {.name = "ResetSpeedAdapt",
         .tag = kMaintenance,
         .summary = "Reset the speed (smear) adaptation",
         .schema = nullptr,
         .channel = ChannelRule::NonNegative,
         .channelSelects = false,
         .device = "/_sim/control/3210",
         .commands = {{kControl, VW_CMD_ADAPT_CONFIG_GET}, {kControl, VW_CMD_SPEED_ADAPT_SET}},
         .rules = {},
         .putNote = "Sends the speed value of the device's adaptation configuration (/_sim/control/3213) back."},
        {.name = "ResetBackLightAdapt",
         .tag = kMaintenance,
         .summary = "Reset the backlight adaptation",
         .schema = nullptr,
         .channel = ChannelRule::NonNegative,
         .channelSelects = true,
         .device = "/_sim/isp/6/0",
         .commands = {{kControl, VW_CMD_ADAPT_CONFIG_GET}, {kIsp, ISP_CMD_BACKLIGHT_ADAPT}},
         .rules = {},
         .putNote = "Sets or clears the backlight state from the device's adaptation configuration "
                    "(/_sim/control/3213)."},
        {.name = "Capability",
         .tag = kFocus,
         .summary = "Image capability: the range of each basic adjustment, the sensor's size",
         .schema = &RecordSchema<_IspAbility>,
         .channel = ChannelRule::NonNegative,
         .channelSelects = false,
         .device = "/_sim/isp/5/0",
         .commands = {{kIsp, ISP_CMD_CAPABILITY}},
         .rules = {{.pointer = "/basicInfos",
                    .description = "the range the device permits for each basic image adjustment, from begin to "
                                   "end; members elsewhere that name one of these carry x-capability-range"}},
         .getNote = "The ranges come from the device ability library (the profile's \"ability\"), the sensor's "
                    "size from the ISP service's channel 0."},
        {.name = "AfStatus",
         .tag = kFocus,
         .summary = "Autofocus status of the lens",
         .schema = &RecordSchema<_AfStatusInfo>,
         .channel = ChannelRule::NonNegative,
         .channelSelects = false,
         .device = "/_sim/isp/17/0",
         .commands = {{kIsp, ISP_CMD_AF}},
         .rules = {}},
        {.name = "AfPlanePoint",
         .tag = kFocus,
         .summary = "Autofocus plane calibration points",
         .schema = &RecordSchema<_AfCalibratePointAttr>,
         .channel = ChannelRule::NonNegative,
         .channelSelects = true,
         .device = "/_sim/isp/17/0",
         .commands = {{kIsp, ISP_CMD_AF}},
         .rules = {{.pointer = "/enable",
                    .description = "the calibration switch; a PUT that does not name it leaves the device's byte "
                                   "as it was"},
                   {.pointer = "/PointMax", .description = "the number of points in use, passed on unchecked"}}},
        {.name = "Thermal",
         .tag = kThermal,
         .summary = "Thermal imaging settings",
         .schema = &RecordSchema<_ThermalInfo>,
         .channel = ChannelRule::ThermalOnly,
         .channelSelects = false,
         .device = "/_sim/isp/25/2",
         .commands = {{kIsp, ISP_CMD_THERMAL}},
         .rules =
             {
                 {.pointer = "/correctData/autoModeData/correctTime",
                  .values = {5, 10, 15, 20, 30, 45, 60},
                  .description = "automatic correction interval; a PUT is refused with StatusCode 4 when the "
                                 "settings after the change hold another value"},
                 {.pointer = "/correctData/autoModeData/correctTemperature",
                  .values = {1, 3, 5, 10, 15},
                  .description = "automatic correction temperature step; a PUT is refused with StatusCode 4 when "
                                 "the settings after the change hold another value"},
                 {.pointer = "/basicData/brightness",
                  .capabilityRange = "brightness",
                  .description = "the device reports its range (Capability); the module passes it on unchecked"},
                 {.pointer = "/basicData/contrast",
                  .capabilityRange = "contrast",
                  .description = "the device reports its range (Capability); the module passes it on unchecked"},
             },
         .putNote = "Members the body does not name keep the device's values; the correction time and "
                    "temperature are checked on the settings after the change."},
    };
    return rows;
}

}  // namespace devhost::contract
