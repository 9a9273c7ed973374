// Whole requests of every resource on many threads at once, each on its own
// context, against one scripted service: every request ends exactly as it
// does when the requests run one after another. Under ThreadSanitizer (the
// tsan preset) the same run shows that no stage shares state with another.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "doubles.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

namespace {

using doubles::Isp;
using doubles::Request;

// One request as the server makes it: the stages the resource has, in the
// server's order, the Format stage whatever the earlier ones returned.
struct RequestDriver {
    const char* name;
    const char* method;
    const char* url;
    const char* body;
    KxapiPreProcStage preProc;
    KxapiParseStage parse;
    KxapiRunStage run;
    KxapiFormatStage format;
};

const RequestDriver kDrivers[] = {
    {"GetFakeRatio", "GET", "/isp/fakeRatio?ChannelId=101", nullptr, nullptr, nullptr, RunGetIspIaasFakeRatio,
     FormatGetIspIaasFakeRatio},
    {"GetAfStatus", "GET", "/isp/afStatus?ChannelId=101", nullptr, nullptr, nullptr, RunGetIspIaasAfStatus,
     FormatGetIspIaasAfStatus},
    {"GetAfPlanePoint", "GET", "/isp/afPlane?ChannelId=102", nullptr, nullptr, nullptr, RunGetIspIaasAfPlanePoint,
     FormatGetIspIaasAfPlanePoint},
    {"PutAfPlanePoint", "PUT", "/isp/afPlane?ChannelId=102",
     R"({"enable": true, "PointMax": 4, "planePoints": [{"planePointX": 1, "planePointY": 2}]})",
     PreProcPutIspIaasAfPlanePoint, ParsePutIspIaasAfPlanePoint, RunPutIspIaasAfPlanePoint,
     FormatPutIspIaasAfPlanePoint},
    {"GetThermal", "GET", "/isp/thermal?ChannelId=102", nullptr, nullptr, nullptr, RunGetIspIaasThermal,
     FormatGetIspIaasThermal},
    {"PutThermal", "PUT", "/isp/thermal?ChannelId=102",
     R"({"correctData": {"autoModeData": {"correctTime": 10, "correctTemperature": 3}}, "thermalAfData": {"afMode": 1}})",
     PreProcPutIspIaasThermal, ParsePutIspIaasThermal, RunPutIspIaasThermal, FormatPutIspIaasThermal},
    {"PutThermalRefused", "PUT", "/isp/thermal?ChannelId=102", R"({"correctData": {"autoModeData": {"correctTime": 7}}})",
     PreProcPutIspIaasThermal, ParsePutIspIaasThermal, RunPutIspIaasThermal, FormatPutIspIaasThermal},
};

// What a request leaves behind: each stage's result, the response, and the
// request record that a PUT handed to its Run stage.
std::string Drive(const RequestDriver& d)
{
    Request req(d.method, d.url, d.body);
    std::string outcome;
    int rc = 0;
    if (d.preProc != nullptr) {
        rc = d.preProc(&req.header, &req.sock, &req.ctx);
        outcome += std::to_string(rc) + ' ';
    }
    if (rc == 0 && d.parse != nullptr) {
        rc = d.parse(&req.header, &req.content, &req.ctx);
        outcome += std::to_string(rc) + ' ';
    }
    if (rc == 0) {
        rc = d.run(&req.header, &req.client, &req.ctx);
        outcome += std::to_string(rc) + ' ';
    }
    outcome += std::to_string(d.format(&req.header, rc, &req.ctx, &req.buf)) + ' ' + req.Response();
    if (const auto* request = static_cast<const uint8_t*>(req.Slot(KXAPI_SLOT_REQUEST))) {
        outcome.append(reinterpret_cast<const char*>(request), 64);
    }
    return outcome;
}

class Concurrency : public testing::Test {
protected:
    // Every block the resources read holds distinct bytes; writes are answered
    // but not kept, so that every request sees the same service whatever
    // ran before it.
    void SetUp() override
    {
        doubles::ResetAll();
        for (const auto& [command, channel, size] : {std::tuple{28, 0u, 608}, std::tuple{17, 0u, 1240},
                                                      std::tuple{17, 1u, 1240}, std::tuple{25, 2u, 100}}) {
            auto& block = Isp().blocks[{static_cast<uint16_t>(command), channel}];
            for (int i = 0; i < size; ++i) {
                block.push_back(static_cast<uint8_t>(i * 7 + command));
            }
        }
        Isp().answer = [](const doubles::SrvRequest& request) {
            doubles::SrvReply reply;
            const auto found = Isp().blocks.find({request.command, request.channel});
            reply.content = request.op == 3 || found == Isp().blocks.end() ? request.content : found->second;
            return reply;
        };
    }
};

TEST_F(Concurrency, ThreadsOnTheirOwnContextsGetTheSerialResults)
{
    std::map<std::string, std::string> serial;
    for (const RequestDriver& d : kDrivers) {
        serial[d.name] = Drive(d);
    }

    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
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

    size_t compared = 0;
    for (const auto& results : seen) {
        for (const auto& [name, outcome] : results) {
            ASSERT_EQ(outcome, serial[name]) << name;
            ++compared;
        }
    }
    EXPECT_EQ(compared, kThreads * kRounds * drivers);
    EXPECT_EQ(Isp().opens, Isp().closes);
    EXPECT_EQ(Isp().messagesLive, 0);
}

}  // namespace
