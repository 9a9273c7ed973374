#include "devhost_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

HttpResult HttpRequest(unsigned short port, const std::string& method, const std::string& target,
                       const std::string& body)
{
    HttpResult result;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return result;
    }
    std::string request = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    if (!body.empty()) {
        request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    request += "\r\n" + body;
    size_t sent = 0;
    while (sent < request.size()) {
        const ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            break;
        }
        sent += static_cast<size_t>(n);
    }
    std::string answer;
    char buf[4096];
    ssize_t n;
    while ((n = recv(fd, buf, sizeof(buf), 0)) > 0) {
        answer.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    const size_t headEnd = answer.find("\r\n\r\n");
    if (answer.rfind("HTTP/1.1 ", 0) != 0 || headEnd == std::string::npos) {
        return result;
    }
    result.status = std::atoi(answer.c_str() + 9);
    result.body = answer.substr(headEnd + 4);
    return result;
}

JsonPtr ParseJson(const std::string& text) { return JsonPtr(json_tokener_parse(text.c_str())); }

std::string JsonAt(json_object* root, const std::string& path)
{
    std::stringstream parts(path);
    std::string part;
    json_object* at = root;
    while (at != nullptr && std::getline(parts, part, '.')) {
        json_object* next = nullptr;
        if (json_object_is_type(at, json_type_array)) {
            next = json_object_array_get_idx(at, std::strtoul(part.c_str(), nullptr, 10));
        } else if (!json_object_object_get_ex(at, part.c_str(), &next)) {
            return "<missing>";
        }
        at = next;
    }
    return at != nullptr ? json_object_to_json_string_ext(at, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE)
                         : "<missing>";
}

DevhostProcess::DevhostProcess(const std::vector<std::string>& extraArgs)
{
    char logTemplate[] = "/tmp/ispiaas-devhost-test-XXXXXX";
    const int logFd = mkstemp(logTemplate);
    if (logFd >= 0) {
        close(logFd);
        logPath_ = logTemplate;
    }
    std::vector<std::string> args = {ISPIAAS_DEVHOST_PATH, "--listen", "127.0.0.1:0", "--log", logPath_};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        std::vector<char*> argv;
        for (std::string& a : args) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    // The banner names the port; anything before it is a complaint.
    FILE* in = fdopen(out[0], "r");
    char line[1024];
    while (in != nullptr && std::fgets(line, sizeof(line), in) != nullptr) {
        output_ += line;
        const char* serving = std::strstr(line, "serving http://127.0.0.1:");
        if (serving != nullptr) {
            port_ = static_cast<unsigned short>(std::atoi(serving + std::strlen("serving http://127.0.0.1:")));
            break;
        }
    }
    if (port_ == 0) {
        int status = 0;
        waitpid(pid_, &status, 0);
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
    }
    // Kept open until the end, so that later output finds a reader.
    outputPipe_ = in;
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

DevhostProcess::~DevhostProcess()
{
    Stop();
    if (outputPipe_ != nullptr) {
        std::fclose(outputPipe_);
    }
    if (!logPath_.empty()) {
        unlink(logPath_.c_str());
    }
}
