// A development host started for a test, and a small HTTP client for it.
#ifndef TESTS_DEVHOST_PROCESS_H
#define TESTS_DEVHOST_PROCESS_H

#include <json-c/json.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct HttpResult {
    int status = 0;  // 0 when no answer came
    std::string body;
};

// One request with "Connection: close"; the body is sent when not empty.
HttpResult HttpRequest(unsigned short port, const std::string& method, const std::string& target,
                       const std::string& body = "");

struct JsonDeleter {
    void operator()(json_object* o) const { json_object_put(o); }
};
using JsonPtr = std::unique_ptr<json_object, JsonDeleter>;

JsonPtr ParseJson(const std::string& text);
// The value at a dot-separated path ("a.b.0.c") as compact JSON text, or
// "<missing>".
std::string JsonAt(json_object* root, const std::string& path);

class DevhostProcess {
public:
    // Starts the built host with a free port and its log in a file of its
    // own, plus `extraArgs`. Waits until it serves or has ended.
    explicit DevhostProcess(const std::vector<std::string>& extraArgs = {});
    ~DevhostProcess();

    bool Serving() const { return port_ != 0; }
    // When not serving: how it ended and what it said.
    int ExitStatus() const { return exitStatus_; }
    const std::string& Output() const { return output_; }

    unsigned short Port() const { return port_; }
    pid_t Pid() const { return pid_; }
    HttpResult Request(const std::string& method, const std::string& target, const std::string& body = "") const
    {
        return HttpRequest(port_, method, target, body);
    }
    // SIGTERM, then the exit status.
    int Stop();

private:
    pid_t pid_ = -1;
    unsigned short port_ = 0;
    int exitStatus_ = -1;
    std::string output_;
    std::string logPath_;
    FILE* outputPipe_ = nullptr;
};

// The exit status with which the host says that the machine has no FUSE.
inline constexpr int kDevhostNoFuse = 77;

#endif  // TESTS_DEVHOST_PROCESS_H
