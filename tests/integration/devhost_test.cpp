// The development host with its simulators, driven over HTTP.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "devhost_process.h"

namespace {

// The embedded profile's roiWeightArray.
const std::string kProfileWeights(64, '1');

class Devhost : public ::testing::Test {
protected:
    void SetUp() override
    {
        host_ = std::make_unique<DevhostProcess>();
        if (!host_->Serving() && host_->ExitStatus() == kDevhostNoFuse) {
            GTEST_SKIP() << "no FUSE on this machine: " << host_->Output();
        }
        ASSERT_TRUE(host_->Serving()) << "exit " << host_->ExitStatus() << ": " << host_->Output();
    }

    HttpResult Call(const std::string& method, const std::string& target, const std::string& body = "") const
    {
        return host_->Request(method, target, body);
    }

    // A value of a JSON answer that must have come with `status`.
    std::string Value(const std::string& method, const std::string& target, const std::string& path,
                      int status = 200, const std::string& body = "") const
    {
        const HttpResult r = Call(method, target, body);
        EXPECT_EQ(r.status, status) << method << " " << target << ": " << r.body;
        JsonPtr json = ParseJson(r.body);
        return JsonAt(json.get(), path);
    }

    // The module's log lines, one text each.
    std::string LogTexts() const
    {
        JsonPtr log = ParseJson(Call("GET", "/_sim/log").body);
        std::string texts;
        json_object* lines = json_object_object_get(log.get(), "lines");
        for (size_t i = 0; i < json_object_array_length(lines); i++) {
            texts += JsonAt(json_object_array_get_idx(lines, i), "text") + "\n";
        }
        return texts;
    }

    size_t JournalLength() const
    {
        JsonPtr journal = ParseJson(Call("GET", "/_sim/journal").body);
        return json_object_array_length(json_object_object_get(journal.get(), "entries"));
    }

    std::unique_ptr<DevhostProcess> host_;
};

// ---- every resource: a GET and a PUT, the PUT's effect seen on the device -

struct ResourceCase {
    const char* resource;
    const char* query;
    const char* getPath;  // null: the resource has no GET (405)
    const char* getValue;
    const char* setupTarget;  // a PUT that changes the device first, or null
    const char* setupBody;
    const char* putBody;  // null: the resource has no PUT (405)
    const char* deviceRoute;
    const char* deviceField;
    const char* deviceValue;  // the field after the PUT
};

void PrintTo(const ResourceCase& c, std::ostream* os) { *os << c.resource; }

const ResourceCase kResourceCases[] = {
    {"FakeRatio", "", "fakeRatio", "0.25", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
    {"Capability", "?ChannelId=101", "sensorInfos.scale.width", "2592.0", nullptr, nullptr, nullptr, nullptr,
     nullptr, nullptr},
    {"AfStatus", "?ChannelId=101", "horDegree", "92.5", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
    {"AfPlanePoint", "?ChannelId=101", "planePoints.1.planePointX", "1944", nullptr, nullptr,
     R"({"PointMax": 3, "planePoints": [{"planePointX": 10, "planePointY": 20}]})", "/_sim/isp/17/0",
     "autofocus.planePoints.0.y", "20"},
    {"Thermal", "?ChannelId=102", "basicData.brightness", "50", nullptr, nullptr,
     R"({"basicData": {"brightness": 60}, "fakeColorData": {"colorBar": 1}})", "/_sim/isp/25/2",
     "thermal.colorBar", "1"},
    {"Awb", "?ChannelId=101", "regionAwbAttr.roiWeightArray", "\"1111111111111111111111111111111111111111111111111111111111111111\"",
     nullptr, nullptr, R"({"regionAwbAttr": {"roiWeightArray": "111111111111222"}})", "/_sim/control/3231",
     "roiWeightArray", "\"111111111111222\""},
    {"ExtreColor", "?ChannelId=101", "fusionStrength", "50", nullptr, nullptr, R"({"fusionStrength": 70})",
     "/_sim/control/3229", "fusionStrength", "70"},
    {"AEExpLock", "?ChannelId=102", nullptr, nullptr, nullptr, nullptr, R"({"enable": true})", "/_sim/isp/16/1",
     "exposureLock", "1"},
    {"RestoreDefaultParams", "", nullptr, nullptr, "/api/isp/Thermal?ChannelId=102",
     R"({"basicData": {"brightness": 60}})", "", "/_sim/isp/25/2", "thermal.brightness", "50"},
    {"ResetThermal", "?ChannelId=102", nullptr, nullptr, "/api/isp/Thermal?ChannelId=102",
     R"({"thermalAfData": {"afSpeed": 9}})", "", "/_sim/isp/25/2", "thermal.afSpeed", "3"},
    // The resets carry the control process's configuration into the device.
    {"ResetFogAdapt", "?ChannelId=101", nullptr, nullptr, nullptr, nullptr, "", "/_sim/isp/7/0", "fogState", "2"},
    {"ResetSpeedAdapt", "?ChannelId=101", nullptr, nullptr, nullptr, nullptr, "", "/_sim/control/3210", "speedSet",
     "6"},
    {"ResetBackLightAdapt", "?ChannelId=102", nullptr, nullptr, nullptr, nullptr, "", "/_sim/isp/6/1",
     "backlightState", "3"},
};

class ResourceExchange : public Devhost, public ::testing::WithParamInterface<ResourceCase> {};

TEST_P(ResourceExchange, GetAnswersFromTheProfileAndPutReachesTheDevice)
{
    const ResourceCase& c = GetParam();
    const std::string target = std::string("/api/isp/") + c.resource + c.query;
    if (c.getPath != nullptr) {
        EXPECT_EQ(Value("GET", target, c.getPath), c.getValue);
    } else {
        EXPECT_EQ(Call("GET", target).status, 405);
    }
    if (c.putBody == nullptr) {
        EXPECT_EQ(Call("PUT", target, "{}").status, 405);
        return;
    }
    if (c.setupTarget != nullptr) {
        ASSERT_EQ(Call("PUT", c.setupTarget, c.setupBody).status, 200);
    }
    EXPECT_EQ(Value("PUT", target, "ResponseStatus.StatusCode", 200, c.putBody), "0");
    EXPECT_EQ(Value("GET", c.deviceRoute, std::string("fields.") + c.deviceField), c.deviceValue);
}

INSTANTIATE_TEST_SUITE_P(EveryResource, ResourceExchange, ::testing::ValuesIn(kResourceCases),
                         [](const auto& info) { return std::string(info.param.resource); });

// ---- refused PUTs change nothing -----------------------------------------

struct RefusedCase {
    const char* name;
    const char* target;
    const char* body;
    const char* deviceRoute;
};

void PrintTo(const RefusedCase& c, std::ostream* os) { *os << c.name; }

const RefusedCase kRefusedCases[] = {
    // Eleven '1' over the whole current text (a shorter text would keep the
    // current one's tail, whose '1' count too).
    {"AwbWithElevenOnes", "/api/isp/Awb?ChannelId=101",
     R"({"regionAwbAttr": {"roiWeightArray": "1111111111100000000000000000000000000000000000000000000000000000"}})",
     "/_sim/control/3231"},
    {"ThermalCorrectionTime", "/api/isp/Thermal?ChannelId=102",
     R"({"correctData": {"autoModeData": {"correctTime": 7}}})", "/_sim/isp/25/2"},
    {"ThermalOnAnotherChannel", "/api/isp/Thermal?ChannelId=101", R"({"basicData": {"brightness": 1}})",
     "/_sim/isp/25/2"},
    {"PlanePointAsText", "/api/isp/AfPlanePoint?ChannelId=101", R"({"PointMax": "three"})", "/_sim/isp/17/0"},
    {"FusionStrengthAsText", "/api/isp/ExtreColor?ChannelId=101", R"({"fusionStrength": "strong"})",
     "/_sim/control/3229"},
    {"ExposureLockNotJson", "/api/isp/AEExpLock?ChannelId=101", "{enable", "/_sim/isp/16/0"},
};

class RefusedPut : public Devhost, public ::testing::WithParamInterface<RefusedCase> {};

TEST_P(RefusedPut, LeavesTheDeviceUnchanged)
{
    const RefusedCase& c = GetParam();
    const std::string before = Call("GET", c.deviceRoute).body;
    const HttpResult r = Call("PUT", c.target, c.body);
    EXPECT_EQ(r.status, 400) << r.body;
    EXPECT_EQ(Call("GET", c.deviceRoute).body, before);
}

INSTANTIATE_TEST_SUITE_P(Refusals, RefusedPut, ::testing::ValuesIn(kRefusedCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- what the host refuses never reaches the module ------------------------

struct HostRefusalCase {
    const char* name;
    const char* method;
    std::string target;
    std::string body;
    int status;
};

void PrintTo(const HostRefusalCase& c, std::ostream* os) { *os << c.name; }

const HostRefusalCase kHostRefusals[] = {
    {"UnknownResource", "GET", "/api/isp/Nothing?ChannelId=101", "", 404},
    {"OutsideTheApi", "GET", "/index.html", "", 404},
    {"PostToAResource", "POST", "/api/isp/Thermal?ChannelId=102", "{}", 405},
    {"GetOfAReset", "GET", "/api/isp/ResetThermal?ChannelId=102", "", 405},
    {"BodyOverTheLimit", "PUT", "/api/isp/Thermal?ChannelId=102", std::string(64 * 1024 + 1, ' '), 413},
    {"TargetOverTheUrlField", "GET", "/api/isp/Thermal?ChannelId=102&" + std::string(1100, 'x'), "", 414},
};

class HostRefusal : public Devhost, public ::testing::WithParamInterface<HostRefusalCase> {};

TEST_P(HostRefusal, AnswersWithAJsonErrorAndCallsNoStage)
{
    const HostRefusalCase& c = GetParam();
    const HttpResult r = Call(c.method, c.target, c.body);
    EXPECT_EQ(r.status, c.status);
    JsonPtr json = ParseJson(r.body);
    EXPECT_EQ(JsonAt(json.get(), "error.status"), std::to_string(c.status)) << r.body;
    EXPECT_EQ(JournalLength(), 0u);
    EXPECT_EQ(LogTexts(), "");
}

INSTANTIATE_TEST_SUITE_P(Refusals, HostRefusal, ::testing::ValuesIn(kHostRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- faults of the services ------------------------------------------------

struct FaultCase {
    const char* name;
    const char* fault;
    const char* target;
    int status;
    const char* statusCode;  // of the envelope, or null when the answer is a record
    const char* diagnostic;  // a text the module must have logged
};

void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }

const FaultCase kFaultCases[] = {
    {"ServiceStatus", R"({"command": 28, "kind": "status", "status": 404})", "/api/isp/FakeRatio", 500, "1",
     "[KXAPI]:wiro_code failed"},
    {"ShortContent", R"({"command": 17, "kind": "shortContent", "length": 100})", "/api/isp/AfStatus?ChannelId=101",
     500, "1", "[KXAPI]:wiro_content_copy failed"},
    {"SendFailure", R"({"command": 25, "channel": 2, "kind": "sendFailure"})", "/api/isp/Thermal?ChannelId=102", 500,
     "1", "[KXAPI]:wiro_message_sendfd_timeout failed"},
    {"DelayWithinTheTimeOut", R"({"command": 28, "kind": "delay", "ms": 200})", "/api/isp/FakeRatio", 200, nullptr,
     ""},
    {"CommandResult", R"({"command": 3229, "kind": "result", "result": 5})", "/api/isp/ExtreColor?ChannelId=101",
     500, "5", "sendCmd[3229] recvMsg[3229] Result[5]"},
    {"ControlProcessDown", R"({"kind": "down"})", "/api/isp/Awb?ChannelId=101", 500, "1",
     "[KXAPI]:Send SynUnixMsg for Getting cmd[3231] failed"},
    {"ControlSendFailure", R"({"command": 3213, "kind": "sendFailure"})", "/api/isp/ResetSpeedAdapt?ChannelId=101",
     500, "1", "[KXAPI]:Send SynUnixMsg for Getting cmd[3213] failed"},
};

class ServiceFault : public Devhost, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(ServiceFault, ReachesTheClientAsTheModuleReportsIt)
{
    const FaultCase& c = GetParam();
    ASSERT_EQ(Call("POST", "/_sim/faults", c.fault).status, 201);
    const bool put = std::string(c.target).find("Reset") != std::string::npos;
    const HttpResult r = Call(put ? "PUT" : "GET", c.target);
    EXPECT_EQ(r.status, c.status) << r.body;
    if (c.statusCode != nullptr) {
        JsonPtr json = ParseJson(r.body);
        EXPECT_EQ(JsonAt(json.get(), "ResponseStatus.StatusCode"), c.statusCode) << r.body;
    }
    EXPECT_NE(LogTexts().find(c.diagnostic), std::string::npos) << LogTexts();

    // Cleared faults leave a working device.
    ASSERT_EQ(Call("DELETE", "/_sim/faults").status, 200);
    EXPECT_EQ(Call(put ? "PUT" : "GET", c.target).status, 200);
}

INSTANTIATE_TEST_SUITE_P(Faults, ServiceFault, ::testing::ValuesIn(kFaultCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The module waits 15000 ms for a reply: this is the one case that waits.
TEST_F(Devhost, ServiceWithoutAnswerFailsAtTheModulesTimeOut)
{
    ASSERT_EQ(Call("POST", "/_sim/faults", R"({"command": 28, "kind": "noAnswer"})").status, 201);
    const HttpResult r = Call("GET", "/api/isp/FakeRatio");
    EXPECT_EQ(r.status, 500) << r.body;
    EXPECT_NE(LogTexts().find("[KXAPI]:wiro_message_recvfd_timeout failed,fd:"), std::string::npos) << LogTexts();
    EXPECT_NE(LogTexts().find(",err:" + std::to_string(ETIMEDOUT) + ","), std::string::npos) << LogTexts();
}

// ---- inspection routes -----------------------------------------------------

TEST_F(Devhost, BlockSetThroughTheInspectionRouteIsWhatTheModuleReads)
{
    JsonPtr block = ParseJson(Call("GET", "/_sim/isp/28/0").body);
    std::string hex = JsonAt(block.get(), "hex");
    hex = hex.substr(1, hex.size() - 2);
    // 1.5 as a little-endian double at byte 200.
    hex.replace(400, 16, "000000000000f83f");
    EXPECT_EQ(Call("PUT", "/_sim/isp/28/0", R"({"hex": ")" + hex + "\"}").status, 200);
    EXPECT_EQ(Value("GET", "/api/isp/FakeRatio", "fakeRatio"), "1.5");
    EXPECT_EQ(Call("PUT", "/_sim/isp/28/0", R"({"hex": "00"})").status, 400);
    EXPECT_EQ(Call("GET", "/_sim/isp/28/9").status, 404);
}

TEST_F(Devhost, JournalAndLogShowAResetInOrder)
{
    ASSERT_EQ(Call("PUT", "/api/isp/ResetFogAdapt?ChannelId=101").status, 200);
    JsonPtr journal = ParseJson(Call("GET", "/_sim/journal").body);
    json_object* entries = json_object_object_get(journal.get(), "entries");
    std::vector<std::string> steps;
    for (size_t i = 0; i < json_object_array_length(entries); i++) {
        json_object* e = json_object_array_get_idx(entries, i);
        steps.push_back(JsonAt(e, "service") + " " + JsonAt(e, "command") + " " + JsonAt(e, "channel"));
    }
    EXPECT_EQ(steps, (std::vector<std::string>{"\"control\" 3213 101", "\"isp\" 7 0", "\"isp\" 7 0"}));

    // The operation log names the client, on channel 2 then 1.
    JsonPtr log = ParseJson(Call("GET", "/_sim/log").body);
    std::vector<std::string> entries2;
    json_object* lines = json_object_object_get(log.get(), "lines");
    for (size_t i = 0; i < json_object_array_length(lines); i++) {
        json_object* line = json_object_array_get_idx(lines, i);
        if (JsonAt(line, "kind") == "\"operation\"") {
            entries2.push_back(JsonAt(line, "channel") + " " + JsonAt(line, "lang"));
            EXPECT_EQ(JsonAt(line, "text").rfind("\"admin[127.0.0.1:", 0), 0u) << JsonAt(line, "text");
        }
    }
    EXPECT_EQ(entries2, (std::vector<std::string>{"2 \"en\"", "2 \"cn\"", "1 \"en\"", "1 \"cn\""}));

    ASSERT_EQ(Call("POST", "/_sim/reset").status, 200);
    EXPECT_EQ(JournalLength(), 0u);
    EXPECT_EQ(LogTexts(), "");
    EXPECT_EQ(Value("GET", "/_sim/isp/7/0", "fields.fogState"), "1");
}

// ---- concurrency -----------------------------------------------------------

TEST_F(Devhost, ConcurrentClientsGetConsistentAnswers)
{
    const std::string thermal = Call("GET", "/api/isp/Thermal?ChannelId=102").body;
    const std::string status = Call("GET", "/api/isp/AfStatus?ChannelId=101").body;
    constexpr int kClients = 8;
    constexpr int kRounds = 10;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> clients;
    for (int t = 0; t < kClients; t++) {
        clients.emplace_back([&, t] {
            for (int i = 0; i < kRounds; i++) {
                const HttpResult put = Call("PUT", "/api/isp/ExtreColor?ChannelId=101",
                                            "{\"fusionStrength\": " + std::to_string(100 + t) + "}");
                mismatches += put.status != 200;
                mismatches += Call("GET", "/api/isp/Thermal?ChannelId=102").body != thermal;
                mismatches += Call("GET", "/api/isp/AfStatus?ChannelId=101").body != status;
            }
        });
    }
    for (std::thread& c : clients) {
        c.join();
    }
    EXPECT_EQ(mismatches, 0);
    const int strength = std::stoi(Value("GET", "/api/isp/ExtreColor?ChannelId=101", "fusionStrength"));
    EXPECT_GE(strength, 100);
    EXPECT_LT(strength, 100 + kClients);
    // Each PUT is a read and a write of the control process, each GET one read.
    EXPECT_EQ(JournalLength(), 2u + kClients * kRounds * 4 + 1);
}

// ---- start and stop --------------------------------------------------------

std::set<pid_t> ChildrenOf(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
    std::set<pid_t> children;
    pid_t child;
    while (in >> child) {
        children.insert(child);
    }
    return children;
}

bool MountedHere(const std::string& point)
{
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    while (std::getline(in, line)) {
        if (line.find(" " + point + " ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(Devhost, KeepsItsMountsPrivateAndLeavesNothingBehind)
{
    EXPECT_FALSE(MountedHere("/mnt/srvfs"));
    struct stat st;
    EXPECT_NE(stat("/tmp/A", &st), 0) << "the host's /tmp/A is visible outside its namespace";
    const std::set<pid_t> simulators = ChildrenOf(host_->Pid());
    EXPECT_EQ(simulators.size(), 2u);
    EXPECT_EQ(host_->Stop(), 0);
    for (pid_t pid : simulators) {
        EXPECT_NE(kill(pid, 0), 0) << "simulator " << pid << " still runs";
    }
}

TEST(DevhostStart, RefusesAModuleWithoutItsStagesNamingTheFirst)
{
    DevhostProcess host({"--module", ISPIAAS_STAGELESS_LIBRARY});
    EXPECT_FALSE(host.Serving());
    EXPECT_EQ(host.ExitStatus(), 2);
    EXPECT_NE(host.Output().find("has no stage RunGetIspIaasFakeRatio"), std::string::npos) << host.Output();
}

struct ProfileCase {
    const char* name;
    const char* text;
    const char* message;
};

void PrintTo(const ProfileCase& c, std::ostream* os) { *os << c.name; }

const ProfileCase kBadProfiles[] = {
    {"UnknownKey", R"({"isp": {"fakeRatios": 1}})", "unknown profile key \"isp.fakeRatios\""},
    {"WrongType", R"({"control": {"fusionStrength": "high"}})", "\"control.fusionStrength\" must be an integer"},
    {"NoChannels", R"({"channels": 0})", "\"channels\" must be an integer from 1 to 64"},
    {"NotJson", "{channels", "the profile is not a JSON object"},
};

// A host started with `text` as its profile file.
std::unique_ptr<DevhostProcess> WithProfile(const std::string& text)
{
    char path[] = "/tmp/ispiaas-profile-XXXXXX";
    const int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    auto host = std::make_unique<DevhostProcess>(std::vector<std::string>{"--profile", path});
    unlink(path);
    return host;
}

class BadProfile : public ::testing::TestWithParam<ProfileCase> {};

TEST_P(BadProfile, StopsTheStartWithItsReason)
{
    const std::unique_ptr<DevhostProcess> host = WithProfile(GetParam().text);
    EXPECT_EQ(host->ExitStatus(), 2);
    EXPECT_NE(host->Output().find(GetParam().message), std::string::npos) << host->Output();
}

TEST(DevhostStart, ProfileFileReplacesTheDefaultsItNames)
{
    const std::unique_ptr<DevhostProcess> host =
        WithProfile(R"({"isp": {"fakeRatio": 0.75}, "ability": {"hue": {"begin": -180, "end": 180}}})");
    if (host->ExitStatus() == kDevhostNoFuse) {
        GTEST_SKIP() << "no FUSE on this machine: " << host->Output();
    }
    ASSERT_TRUE(host->Serving()) << host->Output();
    JsonPtr ratio = ParseJson(host->Request("GET", "/api/isp/FakeRatio").body);
    EXPECT_EQ(JsonAt(ratio.get(), "fakeRatio"), "0.75");
    JsonPtr capability = ParseJson(host->Request("GET", "/api/isp/Capability?ChannelId=101").body);
    EXPECT_EQ(JsonAt(capability.get(), "basicInfos.hue.begin"), "-180");
    EXPECT_EQ(JsonAt(capability.get(), "basicInfos.sharpeness.end"), "100");
}

INSTANTIATE_TEST_SUITE_P(Profiles, BadProfile, ::testing::ValuesIn(kBadProfiles),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
