#include "options.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "api_document.h"
#include "install_paths.h"
#include "intake.h"
#include "journal.h"
#include "log_tap.h"
#include "profile.h"

namespace devhost {

namespace {

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

}  // namespace

int Fail(int status, const std::string& message)
{
    std::fprintf(stderr, "ispiaas-devhost: %s\n", message.c_str());
    return status;
}

namespace {

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

}  // namespace

int ParseOptions(int argc, char** argv, Options& o)
{
    o.module = HostInstallPaths().module;
    o.journalKeep = kJournalKeepDefault;
    o.logKeep = LogTap::kKeepDefault;
    o.maxConnections = IntakeLimits{}.served;
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

}  // namespace devhost
