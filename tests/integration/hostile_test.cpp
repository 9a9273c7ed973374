// The development host against hostile clients: what each attack holds, what
// a well-behaved client gets meanwhile, and the host's state afterwards.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <thread>

#include "devhost_process.h"

namespace {

using namespace ::testing;
using Clock = std::chrono::steady_clock;

constexpr auto kCaseName = [](const auto& info) { return std::string(info.param.name); };

// A limit of the host's process that the attack lowers: its soft value is set
// `headroom` above what the host uses when the attack begins.
enum class Squeeze { None, Descriptors, AddressSpace };

struct HostileCase {
    const char* name;
    std::vector<const char*> args;   // the host's options besides the test's own
    size_t connections;              // how many the attack opens
    std::string sends;               // what each of them sends first
    bool readsAnswer = false;        // each reads its answer, then keeps its connection open
    bool closes = false;             // each closes at once after sending
    bool outwaitsTheHead = false;    // the attack waits past the host's 10 s for a head
    const char* from = "127.0.0.2";  // the attack's address; the well-behaved client's is 127.0.0.1
    Squeeze squeeze = Squeeze::None;
    long long headroom = 0;
    int meanwhile = 200;      // what a well-behaved client gets while the attack holds
    size_t refused = 0;       // how many of the attack's connections get 503
    size_t refusedSlack = 0;  // give or take
    size_t threadsAbove = 1;  // the host's threads while the attack holds, at most this many above idle
    friend std::ostream& operator<<(std::ostream& os, const HostileCase& c) { return os << c.name; }
};

const std::string kHalfHead = "GET /api/isp/FakeRatio HTTP/1.1\r\nHo";
const std::string kKeptAlive = "GET /api/isp/FakeRatio HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";

const HostileCase kHostileCases[] = {
    {.name = "HalfHeadsHeld", .args = {}, .connections = 1100, .sends = kHalfHead},
    {.name = "HalfHeadsPastTheirTime", .args = {}, .connections = 300, .sends = kHalfHead, .outwaitsTheHead = true},
    {.name = "HalfHeadsThenGone", .args = {}, .connections = 300, .sends = kHalfHead, .closes = true},
    {.name = "NothingSent", .args = {}, .connections = 1100, .sends = ""},
    // Served connections each hold a thread: their bound is the threads' bound.
    {.name = "KeptAliveConnections",
     .args = {"--max-connections", "16"},
     .connections = 40,
     .sends = kKeptAlive,
     .readsAnswer = true,
     .meanwhile = 503,
     .refused = 24,
     .threadsAbove = 17},
    // Beyond loopback one address holds a quarter of the served connections.
    {.name = "OneAddressBeyondLoopback",
     .args = {"--listen", "0.0.0.0:0", "--no-token", "--max-connections", "8"},
     .connections = 6,
     .sends = kKeptAlive,
     .readsAnswer = true,
     .refused = 4,
     .threadsAbove = 3},
    // The limit counts descriptor numbers: a gap among the host's lets one
    // more connection wait.
    {.name = "DescriptorsRunOut",
     .args = {},
     .connections = 60,
     .sends = kHalfHead,
     .squeeze = Squeeze::Descriptors,
     .headroom = 20,
     .meanwhile = 503,
     .refused = 40,
     .refusedSlack = 2},
    // No memory for a thread's stack: that one connection is refused.
    {.name = "NoThreadCanStart",
     .args = {},
     .connections = 3,
     .sends = kKeptAlive,
     .readsAnswer = true,
     .squeeze = Squeeze::AddressSpace,
     .headroom = 256 * 1024,
     .meanwhile = 503,
     .refused = 3},
};

size_t Entries(const std::string& dir)
{
    const std::filesystem::directory_iterator it(dir);
    return static_cast<size_t>(std::distance(begin(it), end(it)));
}

// The host's CPU time so far, in seconds.
double CpuSeconds(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat{std::istreambuf_iterator<char>(in), {}};
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; i++) {
        ticks += i >= 14 ? std::stod(field) : 0;  // utime and stime
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long long VmSizeBytes(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("VmSize:", 0) == 0) {
            return std::stoll(line.substr(7)) * 1024;
        }
    }
    return 0;
}

// One answer of a connection that may stay open: its status, 0 for none in 2 s.
int ReadStatus(int fd)
{
    std::string answer;
    char buf[4096];
    for (pollfd p{fd, POLLIN, 0}; poll(&p, 1, 2000) > 0;) {
        const ssize_t n = recv(fd, buf, sizeof(buf), 0);
        if (n <= 0) {
            break;
        }
        answer.append(buf, static_cast<size_t>(n));
        const size_t headEnd = answer.find("\r\n\r\n");
        const size_t length = answer.find("Content-Length: ");
        if (headEnd != std::string::npos && length != std::string::npos &&
            answer.size() >= headEnd + 4 + std::stoul(answer.substr(length + 16))) {
            break;
        }
    }
    return answer.rfind("HTTP/1.1 ", 0) == 0 ? std::atoi(answer.c_str() + 9) : 0;
}

class Attack {
public:
    Attack(const HostileCase& c, unsigned short port) : case_(c)
    {
        sockaddr_in from{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {}, .sin_zero = {}};
        inet_pton(AF_INET, c.from, &from.sin_addr);
        const sockaddr_in to{
            .sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        for (size_t i = 0; i < c.connections; i++) {
            const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof(from)) != 0 ||
                connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) != 0) {
                close(fd);
                continue;
            }
            send(fd, c.sends.data(), c.sends.size(), MSG_NOSIGNAL);
            if (c.closes) {
                close(fd);
                continue;
            }
            fds_.push_back(fd);
            if (c.readsAnswer) {
                statuses_.push_back(ReadStatus(fd));
            }
        }
    }
    ~Attack() { Release(); }

    // How many connections got 503 (read by now for those that read no answer).
    size_t Refused()
    {
        if (!case_.readsAnswer) {
            for (const int fd : fds_) {
                char buf[16] = "";
                statuses_.push_back(recv(fd, buf, sizeof(buf) - 1, MSG_DONTWAIT) > 0 ? std::atoi(buf + 9) : 0);
            }
        }
        return static_cast<size_t>(std::count(statuses_.begin(), statuses_.end(), 503));
    }
    // True when the host has closed every connection the attack holds.
    bool AllClosedByTheHost() const
    {
        return std::all_of(fds_.begin(), fds_.end(), [](int fd) {
            char buf[4096];
            ssize_t n;
            while ((n = recv(fd, buf, sizeof(buf), MSG_DONTWAIT)) > 0) {
            }
            // Closed with the unread head still there, the connection is reset.
            return n == 0 || (n < 0 && errno == ECONNRESET);
        });
    }
    size_t Opened() const { return fds_.size() + (case_.closes ? case_.connections : 0); }
    void Release()
    {
        for (const int fd : fds_) {
            close(fd);
        }
        fds_.clear();
    }

private:
    const HostileCase& case_;
    std::vector<int> fds_;
    std::vector<int> statuses_;
};

class HostileClient : public TestWithParam<HostileCase> {
protected:
    static void SetUpTestSuite()
    {
        // A thousand connections need as many descriptors in this process.
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
};

TEST_P(HostileClient, LeavesOthersAnAnswerAndTheHostBoundedAndStoppable)
{
    const HostileCase& c = GetParam();
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_cur < c.connections + 64) {
        GTEST_SKIP() << "this process may open " << files.rlim_cur << " descriptors";
    }
    auto host = std::make_unique<DevhostProcess>(c.args);
    if (host->ExitStatus() == kDevhostUnsupported) {
        GTEST_SKIP() << "the machine does not let the host run: " << host->Output();
    }
    ASSERT_TRUE(host->Serving()) << host->Output();
    const std::string proc = "/proc/" + std::to_string(host->Pid());
    const size_t idleThreads = Entries(proc + "/task");
    const size_t idleFds = Entries(proc + "/fd");
    const __rlimit_resource resource = c.squeeze == Squeeze::Descriptors ? RLIMIT_NOFILE : RLIMIT_AS;
    rlimit before{};
    prlimit(host->Pid(), resource, nullptr, &before);
    if (c.squeeze != Squeeze::None) {
        const long long used =
            c.squeeze == Squeeze::Descriptors ? static_cast<long long>(idleFds) : VmSizeBytes(host->Pid());
        const rlimit squeezed{static_cast<rlim_t>(used + c.headroom), before.rlim_max};
        ASSERT_EQ(prlimit(host->Pid(), resource, &squeezed, nullptr), 0) << std::strerror(errno);
    }

    auto attack = std::make_unique<Attack>(c, host->Port());
    ASSERT_EQ(attack->Opened(), c.connections);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const double cpuBefore = CpuSeconds(host->Pid());
    const Clock::time_point asked = Clock::now();
    const HttpResult meanwhile = host->Request("GET", "/api/isp/FakeRatio");
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - asked).count();
    RecordProperty("meanwhile_ms", static_cast<int>(took));
    EXPECT_EQ(meanwhile.status, c.meanwhile) << meanwhile.body;
    EXPECT_LT(took, 2000) << "the answer did not come at once";
    if (c.meanwhile == 503) {
        EXPECT_EQ(JsonAt(meanwhile.body, "/error/status"), "503");
        EXPECT_EQ(meanwhile.Header("Retry-After"), "1");
    }
    EXPECT_LE(Entries(proc + "/task"), idleThreads + c.threadsAbove);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    // Waiting heads cost no polling: the host is all but idle while they wait.
    EXPECT_LT(CpuSeconds(host->Pid()) - cpuBefore, 0.2);
    EXPECT_NEAR(static_cast<double>(attack->Refused()), static_cast<double>(c.refused),
                static_cast<double>(c.refusedSlack));
    if (c.outwaitsTheHead) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10200));
        EXPECT_TRUE(attack->AllClosedByTheHost());
    }

    // Afterwards: everything the attack held is given back, and the host serves.
    attack->Release();
    if (c.squeeze != Squeeze::None) {
        prlimit(host->Pid(), resource, &before, nullptr);
    }
    for (int i = 0; i < 40 && Entries(proc + "/fd") > idleFds + 2; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_LE(Entries(proc + "/fd"), idleFds + 2);
    EXPECT_EQ(host->Request("GET", "/api/isp/FakeRatio").status, 200);

    // SIGTERM ends the host, simulators included, at once while an attack holds.
    attack = std::make_unique<Attack>(c, host->Port());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const Clock::time_point stopped = Clock::now();
    EXPECT_EQ(host->Stop(), 0);
    EXPECT_LT(Clock::now() - stopped, std::chrono::seconds(2));
}

INSTANTIATE_TEST_SUITE_P(Attacks, HostileClient, ValuesIn(kHostileCases), kCaseName);

}  // namespace
