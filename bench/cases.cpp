// The measured requests: bodies, URLs and the module's stages.
#include "cases.h"

#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_maint.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

namespace bench {
namespace {

#define GET_FLOW(R) GetFlow<RunGetIspIaas##R, FormatGetIspIaas##R>
#define PUT_FLOW(R) PutFlow<PreProcPutIspIaas##R, ParsePutIspIaas##R, RunPutIspIaas##R, FormatPutIspIaas##R>
#define RESET_FLOW(R) ResetFlow<RunPutIspIaas##R>

const char kAwbBody[] = R"({"regionAwbAttr":{"roiWeightArray":"1111111111111111000011110000"}})";
const char kExtreColorBody[] = R"({"fusionStrength":9})";
const char kAfPlaneBody[] = R"({"enable":true,"PointMax":4,"planePoints":[{"planePointX":110,"planePointY":210},)"
                            R"({"planePointX":310,"planePointY":410},{"planePointX":510,"planePointY":610},)"
                            R"({"planePointX":710,"planePointY":810}]})";
// The whole object, as a client puts back what it read with one value changed.
const char kThermalBody[] =
    R"({"blindData":{"blindPosition":{"pointX":320,"pointY":240},"blindOperation":0},)"
    R"("correctData":{"correctOperation":0,"autoModeData":{"enable":1,"correctTime":10,"correctTemperature":3}},)"
    R"("basicData":{"brightness":50,"contrast":50,"detailEnhace":0},)"
    R"("fakeColorData":{"colorMode":0,"colorBar":1,"whiteHotModeData":{"highRange":0,"midRange":0,"lowRange":0,)"
    R"("highMin":0,"midMax":0,"midMin":0,"lowMax":0}},)"
    R"("thermalAfData":{"afMode":1,"afSpeed":0,"ctrlOperation":2,"tempAdapt":0,"compensateTemp":0}})";
const char kExpLockBody[] = R"({"enable":true})";

}  // namespace

const Case kCases[] = {
    {"FakeRatio GET", "GET", "/ISP/FakeRatio?ChannelId=101", nullptr, GET_FLOW(FakeRatio), FloorFakeRatioGet},
    {"Capability GET", "GET", "/ISP/Capability?ChannelId=101", nullptr, GET_FLOW(Capability), FloorCapabilityGet},
    {"AfStatus GET", "GET", "/ISP/AfStatus?ChannelId=101", nullptr, GET_FLOW(AfStatus), FloorAfStatusGet},
    {"Awb GET", "GET", "/ISP/Awb?ChannelId=101", nullptr, GET_FLOW(Awb), FloorAwbGet},
    {"Awb PUT", "PUT", "/ISP/Awb?ChannelId=101", kAwbBody, PUT_FLOW(Awb), FloorAwbPut},
    {"ExtreColor GET", "GET", "/ISP/ExtreColor?ChannelId=101", nullptr, GET_FLOW(ExtreColor), FloorExtreColorGet},
    {"ExtreColor PUT", "PUT", "/ISP/ExtreColor?ChannelId=101", kExtreColorBody, PUT_FLOW(ExtreColor),
     FloorExtreColorPut},
    {"AfPlanePoint GET", "GET", "/ISP/AfPlanePoint?ChannelId=101", nullptr, GET_FLOW(AfPlanePoint),
     FloorAfPlanePointGet},
    {"AfPlanePoint PUT", "PUT", "/ISP/AfPlanePoint?ChannelId=101", kAfPlaneBody, PUT_FLOW(AfPlanePoint),
     FloorAfPlanePointPut},
    {"Thermal GET", "GET", "/ISP/Thermal?ChannelId=102", nullptr, GET_FLOW(Thermal), FloorThermalGet},
    {"Thermal PUT", "PUT", "/ISP/Thermal?ChannelId=102", kThermalBody, PUT_FLOW(Thermal), FloorThermalPut},
    {"AEExpLock PUT", "PUT", "/ISP/AEExpLock?ChannelId=101", kExpLockBody,
     ParsedPutFlow<ParsePutIspIaasAEExpLock, RunPutIspIaasAEExpLock, FormatPutIspIaasAEExpLock>, FloorAEExpLockPut},
    {"RestoreDefaults RunPut", "PUT", "/ISP/RestoreDefaultParams", nullptr, RESET_FLOW(RestoreDefaultParams),
     FloorRestoreDefaults},
    {"ResetThermal RunPut", "PUT", "/ISP/ResetThermal?ChannelId=102", nullptr, RESET_FLOW(ResetThermal),
     FloorResetThermal},
    {"ResetFogAdapt RunPut", "PUT", "/ISP/ResetFogAdapt?ChannelId=101", nullptr, RESET_FLOW(ResetFogAdapt),
     FloorResetFog},
    {"ResetSpeedAdapt RunPut", "PUT", "/ISP/ResetSpeedAdapt?ChannelId=101", nullptr, RESET_FLOW(ResetSpeedAdapt),
     FloorResetSpeed},
    {"ResetBackLight RunPut", "PUT", "/ISP/ResetBackLightAdapt?ChannelId=101", nullptr, RESET_FLOW(ResetBackLightAdapt),
     FloorResetBacklight},
};
const size_t kCaseCount = sizeof(kCases) / sizeof(kCases[0]);

}  // namespace bench
