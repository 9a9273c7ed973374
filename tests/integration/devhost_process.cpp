#include "devhost_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <json-c/json.h>
#include <json-c/json_pointer.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "exchange_record.h"

namespace {

// The value at a JSON pointer as compact JSON text.
std::string At(json_object* root, const std::string& pointer)
{
    json_object* at = nullptr;
    return json_pointer_get(root, pointer.c_str(), &at) == 0 && at != nullptr
               ? json_object_to_json_string_ext(at, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE)
               : "<missing>";
}

using Json = std::unique_ptr<json_object, decltype(&json_object_put)>;

}  // namespace

std::string JsonAt(const std::string& json, const std::string& pointer)
{
    const Json root(json_tokener_parse(json.c_str()), &json_object_put);
    return At(root.get(), pointer);
}

std::vector<std::string> JsonRows(const std::string& json, const std::string& pointer,
                                  const std::vector<std::string>& fields)
{
    const Json root(json_tokener_parse(json.c_str()), &json_object_put);
    std::vector<std::string> rows;
    json_object* entry = nullptr;
    for (size_t i = 0; json_pointer_getf(root.get(), &entry, "%s/%zu", pointer.c_str(), i) == 0; i++) {
        std::string row;
        bool whole = true;
        for (const std::string& field : fields) {
            const std::string value = At(entry, field);
            whole = whole && value != "<missing>";
            row += (row.empty() ? "" : " ") + value;
        }
        if (whole) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::string HttpResult::Header(const std::string& name) const
{
    const std::string key = "\r\n" + name + ": ";
    const size_t at = head.find(key);
    return at == std::string::npos ? "<missing>"
                                   : head.substr(at + key.size(), head.find("\r\n", at + key.size()) - at - key.size());
}

HttpResult DevhostProcess::Request(const std::string& method, const std::string& target, const std::string& body,
                                   const std::vector<std::string>& headers) const
{
    std::string request = method + " " + target + " HTTP/1.1\r\nConnection: close\r\n";
    bool host = false;
    for (const std::string& header : headers) {
        request += header + "\r\n";
        host = host || header.rfind("Host: ", 0) == 0 || header.find("\r\nHost: ") != std::string::npos;
    }
    request += host ? "" : "Host: 127.0.0.1\r\n";
    request += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    const HttpResult result = Exchange(request);
    if (result.status != 0) {
        RecordExchange(method, target, body, result.head.substr(0, result.head.size() - 2), result.status, result.body);
    }
    return result;
}

HttpResult DevhostProcess::Exchange(const std::string& request, bool last) const
{
    const sockaddr_in addr{
        .sin_family = AF_INET, .sin_port = htons(port_), .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) == 0) {
        // A blocking send hands over all of it, unless the host has answered
        // and closed before reading the body.
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char buf[4096];
        for (ssize_t n; (n = recv(fd, buf, sizeof(buf), 0)) > 0;) {
            answer.append(buf, static_cast<size_t>(n));
        }
    }
    close(fd);
    for (;;) {
        const size_t headEnd = answer.find("\r\n\r\n");
        if (answer.rfind("HTTP/1.1 ", 0) != 0 || headEnd == std::string::npos) {
            return {};
        }
        HttpResult result{std::atoi(answer.c_str() + 9), answer.substr(headEnd + 4), answer.substr(0, headEnd + 2)};
        const std::string length = result.Header("Content-Length");
        const size_t end = headEnd + 4 + (length == "<missing>" ? result.body.size() : std::stoul(length));
        if (!last || end >= answer.size()) {
            result.body = answer.substr(headEnd + 4, end - headEnd - 4);
            return result;
        }
        answer.erase(0, end);
    }
}

DevhostProcess::DevhostProcess(std::vector<const char*> argv, const std::function<bool()>& enter)
{
    argv.insert(argv.begin(), {ISPIAAS_DEVHOST_PATH, "--listen", "127.0.0.1:0", "--log", "/dev/null"});
    argv.push_back(nullptr);
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        if (enter && !enter()) {
            _exit(126);
        }
        execv(argv[0], const_cast<char* const*>(argv.data()));
        _exit(127);
    }
    close(out[1]);
    // The banner names the port; anything before it is a complaint.
    outputPipe_.reset(fdopen(out[0], "r"));
    char line[1024];
    while (outputPipe_ != nullptr && std::fgets(line, sizeof(line), outputPipe_.get()) != nullptr) {
        output_ += line;
        if (std::sscanf(line, "ispiaas-devhost: serving http://%*[0-9.]:%hu/", &port_) == 1) {
            break;
        }
    }
    // No banner: the host has ended, or is made to end, and is reaped.
    if (port_ == 0) {
        Stop();
    }
}

int DevhostProcess::Stop()
{
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
        port_ = 0;
    }
    return exitStatus_;
}
