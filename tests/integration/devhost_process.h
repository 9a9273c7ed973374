// A development host started for a test, and a small HTTP client for it.
#ifndef TESTS_DEVHOST_PROCESS_H
#define TESTS_DEVHOST_PROCESS_H

#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct HttpResult {
    int status = 0;  // 0 when no answer came
    std::string body;
    std::string head;  // the status line and the headers

    // The value of a header of the answer, or "<missing>".
    std::string Header(const std::string& name) const;
};

// The value at a JSON pointer ("/a/0/b") of a JSON text, as compact JSON
// text, or "<missing>".
std::string JsonAt(const std::string& json, const std::string& pointer);
// The entries of the array at `pointer` of a JSON text, each as its values at
// the pointers `fields` joined by spaces; entries that lack one are left out.
std::vector<std::string> JsonRows(const std::string& json, const std::string& pointer,
                                  const std::vector<std::string>& fields);

class DevhostProcess {
public:
    // Starts the built host on a free port with its log thrown away, plus
    // `args`; `enter`, when given, runs in the child before the host starts
    // (failing: exit status 126). Waits until it serves or has ended.
    explicit DevhostProcess(std::vector<const char*> args = {}, const std::function<bool()>& enter = {});
    ~DevhostProcess() { Stop(); }

    bool Serving() const { return port_ != 0; }
    // When not serving: how it ended and what it said.
    int ExitStatus() const { return exitStatus_; }
    const std::string& Output() const { return output_; }

    pid_t Pid() const { return pid_; }
    unsigned short Port() const { return port_; }
    // One request with "Connection: close", the body's Content-Length and
    // `headers` (lines without their end), and "Host: 127.0.0.1" unless they
    // give a Host.
    HttpResult Request(const std::string& method, const std::string& target, const std::string& body = "",
                       const std::vector<std::string>& headers = {}) const;
    // The request text sent as it is; the answer read until the host closes
    // (with `last`, the last of the answers, for requests sent together).
    HttpResult Exchange(const std::string& request, bool last = false) const;
    // SIGTERM, then the exit status.
    int Stop();

private:
    pid_t pid_ = -1;
    unsigned short port_ = 0;
    int exitStatus_ = -1;
    std::string output_;
    // Open until the end, so that later output finds a reader.
    std::unique_ptr<FILE, void (*)(FILE*)> outputPipe_{nullptr, [](FILE* f) { std::fclose(f); }};
};

// The exit status with which the host says that the machine lacks what it
// needs: FUSE, or a private mount namespace.
inline constexpr int kDevhostUnsupported = 77;

#endif  // TESTS_DEVHOST_PROCESS_H
