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

#include "../unit/world.h"

namespace {

using namespace world;

// What a request leaves behind: its results, the response, and the head of
// the request record that a PUT handed to its Run stage.
std::string Drive(const Flow& flow)
{
    doubles::Request req("PUT", kUrl, kBody);
    const doubles::Outcome o = doubles::Perform(flow, req);
    std::string outcome = std::to_string(o.result) + ' ' + std::to_string(o.formatted) + ' ' + req.Response();
    if (const auto* request = static_cast<const char*>(req.Slot(KXAPI_SLOT_REQUEST))) {
        outcome.append(request, 4);
    }
    return outcome;
}

TEST(Concurrency, ThreadsOnTheirOwnContextsGetTheSerialResults)
{
    Install();
    // A first round brings the services to what the PUTs write, so that from
    // then on every request finds the same settings, whatever ran before it.
    std::map<std::string, std::string> serial;
    for (int round = 0; round < 2; ++round) {
        for (const auto& [name, flow] : kEveryRequest) {
            serial[name] = Drive(flow);
        }
    }
    for (const auto& [name, flow] : kEveryRequest) {
        EXPECT_EQ(serial[name].substr(0, 4), "0 0 ") << name << " succeeds";
    }

    constexpr int kThreads = 8;
    constexpr size_t kRounds = 10;
    const size_t requests = std::size(kEveryRequest);
    std::vector<std::vector<std::pair<const char*, std::string>>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Each thread starts at another row, so that different stages overlap.
            for (size_t i = 0; i < kRounds * requests; ++i) {
                const auto& [name, flow] = kEveryRequest[(i + static_cast<size_t>(t)) % requests];
                seen[t].emplace_back(name, Drive(flow));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const auto& results : seen) {
        ASSERT_EQ(results.size(), kRounds * requests);
        for (const auto& [name, outcome] : results) {
            ASSERT_EQ(outcome, serial[name]) << name;
        }
    }
    EXPECT_EQ(doubles::Isp().opens, doubles::Isp().closes);
    EXPECT_EQ(doubles::Isp().messagesLive, 0);
}

}  // namespace
