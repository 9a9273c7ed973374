// ispiaas-devhost: the module's resources over HTTP, on a simulated camera.
//
// Start: load the module and resolve its stages, read the profile, enter a
// private mount namespace, fork the ISP service and control process
// simulators into it, then serve HTTP until SIGINT or SIGTERM.
#include <dlfcn.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "ability.h"
#include "access.h"
#include "api_document.h"
#include "browser_urls.h"
#include "console_files.h"
#include "control_sim.h"
#include "http_front.h"
#include "install_paths.h"
#include "isolation.h"
#include "isp_sim.h"

namespace devhost {
namespace {

// Exit statuses besides 0 and 1.
constexpr int kExitUsage = 2;
constexpr int kExitUnsupported = 77;  // the machine lacks what the host needs

struct Options {
    std::string address = "127.0.0.1";
    uint16_t port = 8080;
    std::string module = HostInstallPaths().module;
    std::string profile;
    std::string log;
    bool allowMissing = false;
    std::string token;
    bool noToken = false;
    size_t journalKeep = kJournalKeepDefault;
    size_t logKeep = LogTap::kKeepDefault;
    size_t maxConnections = IntakeLimits{}.served;
    std::vector<std::string> allowHosts;
};

// The library's own bound on connections (FD_SETSIZE - 4), which the host
// keeps below.
constexpr size_t kMaxConnectionsLimit = 1000;

const char kUsage[] =
    "usage: ispiaas-devhost [--listen ADDR:PORT] [--module PATH] [--profile FILE] [--log FILE]\n"
    "                       [--allow-missing] [--journal-keep N] [--log-keep N]\n"
    "                       [--token TEXT | --no-token] [--allow-host NAME]... [--max-connections N]\n"
    "                       [--print-profile] [--print-openapi]\n"
    "  --listen ADDR:PORT  where to serve HTTP (default 127.0.0.1:8080; port 0 takes a free one)\n"
    "  --module PATH       the module to load (default: the installed one beside this program, else the build's)\n"
    "  --profile FILE      a JSON device profile; its values replace the embedded default's\n"
    "  --log FILE          write the diagnostic and operation-log lines there instead of stdout\n"
    "  --journal-keep N    keep the last N exchanges in the journal (default 2000)\n"
    "  --log-keep N        keep the last N log lines for /_sim/log (default 10000)\n"
    "  --allow-missing     serve the resources whose stages all exist instead of refusing to start\n"
    "  --token TEXT        the access token every request needs (default beyond loopback: a random one)\n"
    "  --no-token          no access token, even beyond loopback: open to the network\n"
    "  --allow-host NAME   also answer requests whose Host is NAME (or NAME:PORT); repeatable\n"
    "  --max-connections N serve at most N connections at once, each with its thread (default 256, at most 1000)\n"
    "  --print-profile     print the embedded default profile and exit\n"
    "  --print-openapi     print the API document (served at /openapi.json) and exit\n";

int Fail(int status, const std::string& message)
{
    std::fprintf(stderr, "ispiaas-devhost: %s\n", message.c_str());
    return status;
}

bool ParseListen(const std::string& text, Options& o)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon + 1 == text.size()) {
        return false;
    }
    char* end = nullptr;
    const unsigned long port = std::strtoul(text.c_str() + colon + 1, &end, 10);
    if (*end != '\0' || port > 65535) {
        return false;
    }
    o.address = text.substr(0, colon);
    o.port = static_cast<uint16_t>(port);
    return true;
}

bool ParseCount(const char* text, size_t& count)
{
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (!std::isdigit(static_cast<unsigned char>(*text)) || *end != '\0' || value == 0 || value > SIZE_MAX / 2) {
        return false;
    }
    count = static_cast<size_t>(value);
    return true;
}

// 0 to go on, or the exit status.
int ParseOptions(int argc, char** argv, Options& o)
{
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return -1;
        } else if (arg == "--print-profile") {
            std::fputs(DefaultProfileText(), stdout);
            return -1;
        } else if (arg == "--print-openapi") {
            std::fputs(contract::ApiDocumentText().c_str(), stdout);
            return -1;
        } else if (arg == "--allow-missing") {
            o.allowMissing = true;
        } else if (arg == "--no-token") {
            o.noToken = true;
        } else if (arg == "--token" && hasValue) {
            o.token = argv[++i];
        } else if (arg == "--allow-host" && hasValue) {
            o.allowHosts.emplace_back(argv[++i]);
        } else if (arg == "--max-connections" && hasValue) {
            if (!ParseCount(argv[++i], o.maxConnections) || o.maxConnections > kMaxConnectionsLimit) {
                return Fail(kExitUsage, "--max-connections takes a count from 1 to " +
                                            std::to_string(kMaxConnectionsLimit) + ", not " + argv[i]);
            }
        } else if (arg == "--listen" && hasValue) {
            if (!ParseListen(argv[++i], o)) {
                return Fail(kExitUsage, std::string("--listen takes ADDR:PORT, not ") + argv[i]);
            }
        } else if (arg == "--module" && hasValue) {
            o.module = argv[++i];
        } else if (arg == "--profile" && hasValue) {
            o.profile = argv[++i];
        } else if (arg == "--log" && hasValue) {
            o.log = argv[++i];
        } else if ((arg == "--journal-keep" || arg == "--log-keep") && hasValue) {
            if (!ParseCount(argv[++i], arg == "--log-keep" ? o.logKeep : o.journalKeep)) {
                return Fail(kExitUsage, arg + " takes a count from 1, not " + argv[i]);
            }
        } else {
            std::fputs(kUsage, stderr);
            return kExitUsage;
        }
    }
    return 0;
}

struct Child {
    const char* name;
    const char* processName;
    pid_t pid = -1;
    int link = -1;
};

// Forks a simulator that runs `body` with its end of a new link.
template <class Body>
bool Spawn(Child& child, Body body)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        return false;
    }
    std::fflush(nullptr);
    child.pid = fork();
    if (child.pid < 0) {
        return false;
    }
    if (child.pid == 0) {
        // The simulator ends with the host, however the host ends.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        prctl(PR_SET_NAME, child.processName);
        close(pair[0]);
        _exit(body(pair[1]));
    }
    close(pair[1]);
    child.link = pair[0];
    return true;
}

// Ends both simulators: SIGTERM, a second for them to go, then SIGKILL.
void Stop(Child& first, Child& second)
{
    Child* children[] = {&first, &second};
    for (Child* child : children) {
        if (child->pid > 0) {
            kill(child->pid, SIGTERM);
        }
    }
    for (int i = 0; i < 50; i++) {
        bool running = false;
        for (Child* child : children) {
            if (child->pid > 0 && waitpid(child->pid, nullptr, WNOHANG) == child->pid) {
                child->pid = -1;
            }
            running = running || child->pid > 0;
        }
        if (!running) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (Child* child : children) {
        if (child->pid > 0) {
            kill(child->pid, SIGKILL);
            waitpid(child->pid, nullptr, 0);
            child->pid = -1;
        }
    }
}

// Waiting request heads cost a descriptor each: the soft limit is raised to
// the hard one (within reason) so that the intake's bound, not the process's,
// decides how many wait.
void RaiseDescriptorLimit()
{
    constexpr rlim_t kEnough = 65536;
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < std::min(files.rlim_max, kEnough)) {
        files.rlim_cur = std::min(files.rlim_max, kEnough);
        setrlimit(RLIMIT_NOFILE, &files);
    }
}

bool ReadFile(const std::string& path, std::string& text)
{
    std::ifstream in(path);
    if (!in) {
        return false;
    }
    std::stringstream all;
    all << in.rdbuf();
    text = all.str();
    return true;
}

void PrintBanner(const Options& o, uint16_t port, const AccessGate& gate)
{
    if (gate.OpenToTheNetwork()) {
        std::printf("ispiaas-devhost: warning: --no-token: open to the network, anyone who reaches %s:%u may use "
                    "every resource and /_sim/ route\n",
                    o.address.c_str(), port);
    }
    const std::string& token = gate.Token();
    const std::string query = token.empty() ? "" : "?token=" + token;
    const std::string curl = token.empty() ? "curl" : "curl -H 'Authorization: Bearer " + token + "'";
    // URLs a browser can open: never the wildcard address itself.
    const std::vector<std::string> hosts = BrowserHosts(o.address);
    const char* first = hosts.front().c_str();
    std::printf("ispiaas-devhost: serving http://%s:%u/%s (module %s, profile %s)\n", first, port, query.c_str(),
                o.module.c_str(), o.profile.empty() ? "embedded default" : o.profile.c_str());
    for (size_t i = 1; i < hosts.size(); i++) {
        std::printf("  also at http://%s:%u/%s\n", hosts[i].c_str(), port, query.c_str());
    }
    if (!token.empty()) {
        std::printf("  every request needs the access token: open the URL above, or send it as a bearer token\n");
    }
    std::printf("  try: %s 'http://%s:%u/api/isp/Thermal?ChannelId=102'\n", curl.c_str(), first, port);
    std::printf("       %s 'http://%s:%u/_sim/journal'\n", curl.c_str(), first, port);
    std::printf("  stop with Ctrl-C\n");
    std::fflush(stdout);
}

int Run(int argc, char** argv)
{
    Options o;
    if (const int status = ParseOptions(argc, argv, o)) {
        return status < 0 ? 0 : status;
    }

    std::string profileText;
    if (!o.profile.empty() && !ReadFile(o.profile, profileText)) {
        return Fail(kExitUsage, "cannot read the profile " + o.profile);
    }
    DeviceImage image;
    std::string error;
    AccessGate gate;
    if (!gate.Configure(o.address, o.token, o.noToken, error)) {
        return Fail(kExitUsage, error);
    }
    if (!LoadProfile(profileText, image, error)) {
        return Fail(kExitUsage, o.profile + ": " + error);
    }

    // Everything outside the namespace is opened before entering it.
    void* module = dlopen(o.module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        return Fail(kExitUsage, std::string("cannot load the module: ") + dlerror());
    }
    HostParts parts;
    std::vector<std::string> missing;
    parts.resources = ResolveStages(module, missing);
    for (const std::string& name : missing) {
        std::fprintf(stderr, "ispiaas-devhost: the module %s has no stage %s\n", o.module.c_str(), name.c_str());
    }
    if (!missing.empty() && !o.allowMissing) {
        return Fail(kExitUsage, "not starting: " + std::to_string(missing.size()) + " stages missing");
    }
    FILE* out = stdout;
    if (!o.log.empty() && (out = std::fopen(o.log.c_str(), "a")) == nullptr) {
        return Fail(kExitUsage, "cannot open the log file " + o.log);
    }
    if (!FuseAvailable(error)) {
        return Fail(kExitUnsupported, error);
    }
    OpenConsoleDirectory();
    if (const Isolation isolation = EnterPrivateMounts(error); isolation != Isolation::kEntered) {
        return Fail(isolation == Isolation::kForbidden ? kExitUnsupported : 1, error);
    }
    SetDeviceAbilityProfile(&image.ability);
    SharedSequence();
    SetJournalKeep(o.journalKeep);
    TuneAllocator();  // before the forks: the simulators inherit it
    RaiseDescriptorLimit();

    Child isp{"ISP service simulator", "ispiaas-isp-sim"};
    Child control{"control process simulator", "ispiaas-ctl-sim"};
    const bool spawned =
        Spawn(isp, [&](int link) { return RunIspSimulator(image, kIspNodeDir, link); }) &&
        Spawn(control, [&](int link) { return RunControlSimulator(image, kControlSocketPath, link); });

    // From here on signals are taken by sigwait() alone, in every thread.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    LinkClient ispLink(isp.link);
    LinkClient controlLink(control.link);
    parts.isp = &ispLink;
    parts.control = &controlLink;
    LogTap tap(out, o.logKeep);
    parts.log = &tap;
    parts.access = &gate;
    parts.limits = LimitsFor(o.address, o.maxConnections);
    HttpFront front(parts);
    int status = 0;
    Json ping(json_object_new_object());
    json_object_object_add(ping.get(), "op", json_object_new_string("ping"));
    if (!spawned) {
        status = Fail(1, "cannot start the simulators");
    } else if (JsonGet(ispLink.Call(ping.get()).get(), "error") != nullptr ||
               JsonGet(controlLink.Call(ping.get()).get(), "error") != nullptr) {
        status = Fail(1, "a simulator did not start");
    } else if (!front.Start(o.address, o.port, OwnNames(o.address, o.allowHosts), error)) {
        status = Fail(1, error);
    } else {
        PrintBanner(o, front.Port(), gate);
        for (;;) {
            int sig = 0;
            sigwait(&signals, &sig);
            if (sig != SIGCHLD) {
                tap.Note("stopping");
                break;
            }
            const pid_t gone = waitpid(-1, nullptr, WNOHANG);
            if (gone == isp.pid || gone == control.pid) {
                Child& ended = gone == isp.pid ? isp : control;
                ended.pid = -1;
                status = Fail(1, std::string("the ") + ended.name + " ended; stopping");
                break;
            }
        }
    }
    // The simulators go first, so that stages waiting on them fail at once
    // and the HTTP threads can be joined.
    Stop(isp, control);
    front.Stop();
    close(isp.link);
    close(control.link);
    if (out != stdout) {
        std::fclose(out);
    }
    dlclose(module);
    return status;
}

}  // namespace
}  // namespace devhost

int main(int argc, char** argv) { return devhost::Run(argc, argv); }
