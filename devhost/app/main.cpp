// ispiaas-devhost: the module's resources over HTTP, on a simulated camera.
//
// Run() is the list of start-up steps; each thing the host holds has an
// owner (owners.h) that undoes it when Run() returns, however it returns.
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "ability.h"
#include "access.h"
#include "browser_urls.h"
#include "console_files.h"
#include "http_front.h"
#include "install_paths.h"
#include "isolation.h"
#include "journal.h"
#include "options.h"
#include "owners.h"
#include "process.h"

namespace devhost {
namespace {

// The device profile: the embedded default, with a file's values over it.
bool ReadProfile(const std::string& path, DeviceImage& image, std::string& error)
{
    std::string text;
    if (!path.empty()) {
        std::ifstream in(path);
        if (!in) {
            error = "cannot read the profile " + path;
            return false;
        }
        std::stringstream all;
        all << in.rdbuf();
        text = all.str();
    }
    if (!LoadProfile(text, image, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

// What must be set before the simulators are forked, since they inherit it:
// the ability profile, the shared exchange numbers and the journal's bound,
// the allocator's arenas and the descriptor limit.
void PrepareTheForks(const Options& o, DeviceImage& image)
{
    SetDeviceAbilityProfile(&image.ability);
    SharedSequence();
    SetJournalKeep(o.journalKeep);
    TuneAllocator();
    RaiseDescriptorLimit();
}

// From here on signals are taken by sigwait() alone, in every thread the
// host starts.
sigset_t TakeSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return signals;
}

// Serves until SIGINT or SIGTERM (0) or until a simulator ends (1).
int ServeUntilStopped(const sigset_t& signals, Simulators& simulators, LogTap& tap)
{
    for (;;) {
        int sig = 0;
        sigwait(&signals, &sig);
        if (sig != SIGCHLD) {
            tap.Note("stopping");
            return 0;
        }
        if (const char* ended = simulators.Ended(waitpid(-1, nullptr, WNOHANG))) {
            return Fail(1, std::string("the ") + ended + " ended; stopping");
        }
    }
}

void PrintBanner(const Options& o, uint16_t port, const AccessGate& gate)
{
    if (gate.OpenToTheNetwork()) {
        std::printf(
            "ispiaas-devhost: warning: --no-token: open to the network, anyone who reaches %s:%u may use "
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
    std::string error;
    DeviceImage image;
    if (!ReadProfile(o.profile, image, error)) {
        return Fail(kExitUsage, error);
    }
    AccessGate gate;
    if (!gate.Configure(o.address, o.token, o.noToken, error)) {
        return Fail(kExitUsage, error);
    }

    // Everything outside the private mounts is opened before entering them.
    Module module;
    if (!module.Load(o.module, error)) {
        return Fail(kExitUsage, error);
    }
    HostParts parts;
    std::vector<std::string> missing;
    parts.resources = ResolveStages(module.Handle(), missing);
    for (const std::string& name : missing) {
        std::fprintf(stderr, "ispiaas-devhost: the module %s has no stage %s\n", o.module.c_str(), name.c_str());
    }
    if (!missing.empty() && !o.allowMissing) {
        return Fail(kExitUsage, "not starting: " + std::to_string(missing.size()) + " stages missing");
    }
    LogFile logFile;
    if (!logFile.Open(o.log)) {
        return Fail(kExitUsage, "cannot open the log file " + o.log);
    }
    if (!FuseAvailable(error)) {
        return Fail(kExitUnsupported, error);
    }
    OpenConsoleDirectory(HostInstallPaths().console);
    if (const Isolation isolation = EnterPrivateMounts(error); isolation != Isolation::kEntered) {
        return Fail(isolation == Isolation::kForbidden ? kExitUnsupported : 1, error);
    }

    PrepareTheForks(o, image);
    Simulators simulators;
    if (!simulators.Start(image, error)) {
        return Fail(1, error);
    }
    const sigset_t signals = TakeSignals();
    LogTap tap(logFile.Get(), o.logKeep);
    parts.isp = &simulators.Isp();
    parts.control = &simulators.Control();
    parts.log = &tap;
    parts.access = &gate;
    parts.limits = LimitsFor(o.address, o.maxConnections);
    HttpFront front(parts);
    if (!front.Start(o.address, o.port, OwnNames(o.address, o.allowHosts), error)) {
        return Fail(1, error);
    }
    PrintBanner(o, front.Port(), gate);
    const int status = ServeUntilStopped(signals, simulators, tap);
    // The simulators go before the front, so that stages waiting on them fail
    // at once and the front's threads end.
    simulators.Stop();
    return status;
}

}  // namespace
}  // namespace devhost

int main(int argc, char** argv) { return devhost::Run(argc, argv); }
