// Whole requests of every resource on many threads at once, each on its own
// context, against one set of scripted services: every request ends exactly
// as it does when the requests run one after another. Under ThreadSanitizer
// (the tsan preset) the same run shows that no stage shares state with
// another.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "doubles.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_maint.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Flow;
using doubles::Isp;
using doubles::Request;

// One request driver per resource and direction.
struct RequestDriver {
    const char* name;
    const char* method;
    const char* url;
    const char* body;
    Flow flow;
};

const RequestDriver kDrivers[] = {
    {"GetFakeRatio", "GET", "/isp?ChannelId=101", nullptr,
     {.run = RunGetIspIaasFakeRatio, .format = FormatGetIspIaasFakeRatio}},
    {"GetCapability", "GET", "/isp?ChannelId=101", nullptr,
     {.run = RunGetIspIaasCapability, .format = FormatGetIspIaasCapability}},
    {"GetAfStatus", "GET", "/isp?ChannelId=101", nullptr,
     {.run = RunGetIspIaasAfStatus, .format = FormatGetIspIaasAfStatus}},
    {"GetAwb", "GET", "/isp?ChannelId=101", nullptr, {.run = RunGetIspIaasAwb, .format = FormatGetIspIaasAwb}},
    {"PutAwb", "PUT", "/isp?ChannelId=101", R"({"regionAwbAttr": {"roiWeightArray": "1111111111110011"}})",
     {PreProcPutIspIaasAwb, ParsePutIspIaasAwb, RunPutIspIaasAwb, FormatPutIspIaasAwb}},
    {"GetExtreColor", "GET", "/isp?ChannelId=101", nullptr,
     {.run = RunGetIspIaasExtreColor, .format = FormatGetIspIaasExtreColor}},
    {"PutExtreColor", "PUT", "/isp?ChannelId=101", R"({"fusionStrength": 7})",
     {PreProcPutIspIaasExtreColor, ParsePutIspIaasExtreColor, RunPutIspIaasExtreColor, FormatPutIspIaasExtreColor}},
    {"PutAEExpLock", "PUT", "/isp?ChannelId=101", R"({"enable": true})",
     {.parse = ParsePutIspIaasAEExpLock, .run = RunPutIspIaasAEExpLock, .format = FormatPutIspIaasAEExpLock}},
    {"GetAfPlanePoint", "GET", "/isp?ChannelId=102", nullptr,
     {.run = RunGetIspIaasAfPlanePoint, .format = FormatGetIspIaasAfPlanePoint}},
    {"PutAfPlanePoint", "PUT", "/isp?ChannelId=102",
     R"({"enable": true, "PointMax": 4, "planePoints": [{"planePointX": 1, "planePointY": 2}]})",
     {PreProcPutIspIaasAfPlanePoint, ParsePutIspIaasAfPlanePoint, RunPutIspIaasAfPlanePoint,
      FormatPutIspIaasAfPlanePoint}},
    {"GetThermal", "GET", "/isp?ChannelId=102", nullptr,
     {.run = RunGetIspIaasThermal, .format = FormatGetIspIaasThermal}},
    {"PutThermal", "PUT", "/isp?ChannelId=102",
     R"({"correctData": {"autoModeData": {"correctTime": 10, "correctTemperature": 3}}, "thermalAfData": {"afMode": 1}})",
     {PreProcPutIspIaasThermal, ParsePutIspIaasThermal, RunPutIspIaasThermal, FormatPutIspIaasThermal}},
    {"RestoreDefaults", "PUT", "/isp", nullptr, {.run = RunPutIspIaasRestoreDefaultParams}},
    {"ResetThermal", "PUT", "/isp?ChannelId=102", nullptr, {.run = RunPutIspIaasResetThermal}},
    {"ResetFogAdapt", "PUT", "/isp?ChannelId=101", nullptr, {.run = RunPutIspIaasResetFogAdapt}},
    {"ResetSpeedAdapt", "PUT", "/isp?ChannelId=101", nullptr, {.run = RunPutIspIaasResetSpeedAdapt}},
    {"ResetBackLightAdapt", "PUT", "/isp?ChannelId=101", nullptr, {.run = RunPutIspIaasResetBackLightAdapt}},
};

// What a request leaves behind: its results, the response, and the head of
// the request record that a PUT handed to its Run stage.
std::string Drive(const RequestDriver& d)
{
    Request req(d.method, d.url, d.body);
    const doubles::Outcome o = doubles::Perform(d.flow, req);
    std::string outcome = std::to_string(o.result) + ' ' + std::to_string(o.formatted) + ' ' + req.Response();
    if (const auto* request = static_cast<const char*>(req.Slot(KXAPI_SLOT_REQUEST))) {
        outcome.append(request, 4);
    }
    return outcome;
}

TEST(Concurrency, ThreadsOnTheirOwnContextsGetTheSerialResults)
{
    doubles::ResetAll();
    // Distinct bytes in every block the service is asked for.
    Isp().answer = [](const doubles::SrvRequest& request) {
        auto& block = Isp().blocks[{request.command, request.channel}];
        for (size_t i = block.size(); i < request.content.size(); ++i) {
            block.push_back(static_cast<uint8_t>(i * 7 + request.command));
        }
        return Isp().Serve(request);
    };
    // A first round brings the services to what the PUTs write, so that from
    // then on every request finds the same settings, whatever ran before it.
    std::map<std::string, std::string> serial;
    for (int round = 0; round < 2; ++round) {
        for (const RequestDriver& d : kDrivers) {
            serial[d.name] = Drive(d);
        }
    }
    for (const RequestDriver& d : kDrivers) {
        EXPECT_EQ(serial[d.name].substr(0, 4), "0 0 ") << d.name << " succeeds";
    }

    constexpr int kThreads = 8;
    constexpr size_t kRounds = 10;
    const size_t drivers = std::size(kDrivers);
    std::vector<std::vector<std::pair<const char*, std::string>>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Each thread starts at another row, so that different stages overlap.
            for (size_t i = 0; i < kRounds * drivers; ++i) {
                const RequestDriver& d = kDrivers[(i + static_cast<size_t>(t)) % drivers];
                seen[t].emplace_back(d.name, Drive(d));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const auto& results : seen) {
        ASSERT_EQ(results.size(), kRounds * drivers);
        for (const auto& [name, outcome] : results) {
            ASSERT_EQ(outcome, serial[name]) << name;
        }
    }
    EXPECT_EQ(Isp().opens, Isp().closes);
    EXPECT_EQ(Isp().messagesLive, 0);
}

}  // namespace
