// The host's command line.
#ifndef DEVHOST_APP_OPTIONS_H
#define DEVHOST_APP_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace devhost {

// Exit statuses besides 0 and 1.
inline constexpr int kExitUsage = 2;
inline constexpr int kExitUnsupported = 77;  // the machine lacks what the host needs

struct Options {
    std::string address = "127.0.0.1";
    uint16_t port = 8080;
    std::string module;  // empty: the installed one, else the build's
    std::string profile;
    std::string log;
    bool allowMissing = false;
    std::string token;
    bool noToken = false;
    size_t journalKeep;
    size_t logKeep;
    size_t maxConnections;
    std::vector<std::string> allowHosts;
};

// Writes "ispiaas-devhost: MESSAGE" to stderr; returns `status`.
int Fail(int status, const std::string& message);

// The options with their defaults filled in. 0 to go on; -1 when an option
// asked for a text that has been printed (--help, --print-*), so that the
// host ends with status 0; else the exit status, with its reason printed.
int ParseOptions(int argc, char** argv, Options& o);

}  // namespace devhost

#endif  // DEVHOST_APP_OPTIONS_H
