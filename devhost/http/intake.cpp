#include "intake.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>

#include "http_front.h"

namespace devhost {

namespace {

using Clock = std::chrono::steady_clock;

// How long a connection may take to send its first request head before it
// is handed to the library anyway (which then applies its own time-out).
constexpr std::chrono::seconds kHeadWait{10};
// After a refusal, how long and how much of the rest of the request is read
// and thrown away, so that closing does not reset the connection before the
// client has read the answer.
constexpr std::chrono::seconds kLingerWait{1};
constexpr size_t kLingerBytes = 1024 * 1024;

bool IsTokenChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

std::string WithoutCr(const std::string& line)
{
    return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
}

bool IEquals(const std::string& a, const char* b)
{
    return a.size() == std::strlen(b) && std::equal(a.begin(), a.end(), b, [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

std::optional<HeadRefusal> CheckRequestLine(const std::string& line)
{
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    const HeadRefusal malformed{400, "the request line is not METHOD TARGET HTTP/1.1"};
    if (first == std::string::npos || first == 0 || first == last || last + 1 == line.size() ||
        !std::all_of(line.begin(), line.begin() + static_cast<long>(first), IsTokenChar) ||
        line.find_first_not_of(' ', first) == last) {
        return malformed;
    }
    const std::string version = line.substr(last + 1);
    if (version.size() != 8 || version.rfind("HTTP/", 0) != 0 ||
        !std::isdigit(static_cast<unsigned char>(version[5])) || version[6] != '.' ||
        !std::isdigit(static_cast<unsigned char>(version[7]))) {
        return malformed;
    }
    if (version != "HTTP/1.1" && version != "HTTP/1.0") {
        return HeadRefusal{505, version + " is not supported; the host speaks HTTP/1.1 and HTTP/1.0"};
    }
    return std::nullopt;
}

std::optional<HeadRefusal> CheckHeaderLine(const std::string& line)
{
    // A line starting with white space continues the one before.
    if (line[0] == ' ' || line[0] == '\t') {
        return std::nullopt;
    }
    const size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0 ||
        !std::all_of(line.begin(), line.begin() + static_cast<long>(colon), IsTokenChar)) {
        return HeadRefusal{400, "a header line is not NAME: VALUE"};
    }
    if (IEquals(line.substr(0, colon), MHD_HTTP_HEADER_CONTENT_LENGTH)) {
        const size_t begin = line.find_first_not_of(" \t", colon + 1);
        const size_t end = line.find_last_not_of(" \t");
        if (begin == std::string::npos ||
            !std::all_of(line.begin() + static_cast<long>(begin), line.begin() + static_cast<long>(end) + 1,
                         [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; })) {
            return HeadRefusal{400, "Content-Length is not a decimal number"};
        }
    }
    return std::nullopt;
}

// Writes the refusal, reads what the client still sends for a moment, closes.
void Refuse(int fd, const HeadRefusal& refusal)
{
    const HttpReply reply = ErrorReply(refusal.status, refusal.message);
    const std::string head =
        "HTTP/1.1 " + std::to_string(refusal.status) + " " + MHD_get_reason_phrase_for(refusal.status) +
        "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(reply.body.size()) +
        "\r\nConnection: close\r\n\r\n";
    const std::string answer = head + reply.body;
    for (size_t sent = 0; sent < answer.size();) {
        const ssize_t n = send(fd, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            break;
        }
        sent += static_cast<size_t>(n);
    }
    shutdown(fd, SHUT_WR);
    const Clock::time_point until = Clock::now() + kLingerWait;
    char sink[4096];
    for (size_t drained = 0; drained < kLingerBytes && Clock::now() < until;) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) {
            continue;
        }
        const ssize_t n = recv(fd, sink, sizeof(sink), 0);
        if (n <= 0) {
            break;
        }
        drained += static_cast<size_t>(n);
    }
    close(fd);
}

}  // namespace

std::optional<HeadRefusal> CheckHead(const std::string& bytes, bool& whole)
{
    whole = false;
    // Empty lines before the request line are passed over.
    size_t at = bytes.find_first_not_of("\r\n");
    if (at == std::string::npos) {
        return std::nullopt;
    }
    bool requestLine = true;
    for (size_t end; (end = bytes.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = WithoutCr(bytes.substr(at, end - at));
        if (end + 1 > kHeadLimit) {
            break;
        }
        if (!requestLine && line.empty()) {
            whole = true;
            return std::nullopt;
        }
        if (std::optional<HeadRefusal> refusal = requestLine ? CheckRequestLine(line) : CheckHeaderLine(line)) {
            return refusal;
        }
        requestLine = false;
    }
    if (bytes.size() > kHeadLimit) {
        return HeadRefusal{431, "the request head is larger than " + std::to_string(kHeadLimit) + " bytes"};
    }
    return std::nullopt;
}

void LibraryMessage(void* log, const char* format, va_list args)
{
    char text[1024];
    std::vsnprintf(text, sizeof(text), format, args);
    std::string line = text;
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) {
        line.pop_back();
    }
    static_cast<LogTap*>(log)->Note("libmicrohttpd: " + line);
}

bool Intake::Listen(const sockaddr_in& address, std::string& error)
{
    listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (listenFd_ < 0 || setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(listenFd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, SOMAXCONN) != 0 || pipe2(wake_, O_CLOEXEC) != 0) {
        error = std::string("cannot listen: ") + std::strerror(errno);
        return false;
    }
    return true;
}

uint16_t Intake::Port() const
{
    sockaddr_in bound{};
    socklen_t len = sizeof(bound);
    return listenFd_ >= 0 && getsockname(listenFd_, reinterpret_cast<sockaddr*>(&bound), &len) == 0
               ? ntohs(bound.sin_port)
               : 0;
}

void Intake::Serve(MHD_Daemon* daemon, LogTap* log)
{
    daemon_ = daemon;
    log_ = log;
    acceptor_ = std::thread([this] { Accept(); });
}

void Intake::Accept()
{
    while (!stopping_) {
        pollfd p[2] = {{listenFd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (poll(p, 2, -1) <= 0 || (p[1].revents & POLLIN) != 0) {
            continue;
        }
        sockaddr_in peer{};
        socklen_t len = sizeof(peer);
        const int fd = accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &len, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        {
            std::lock_guard<std::mutex> guard(lock_);
            examining_++;
        }
        std::thread([this, fd, peer] { Examine(fd, peer); }).detach();
    }
}

void Intake::Examine(int fd, sockaddr_in peer)
{
    std::string bytes(kHeadLimit + 1, '\0');
    const Clock::time_point deadline = Clock::now() + kHeadWait;
    bool handOver = true;
    while (!stopping_) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) == 0) {
            if (Clock::now() > deadline) {
                break;
            }
            continue;
        }
        const ssize_t n = recv(fd, bytes.data(), bytes.size(), MSG_PEEK);
        if (n <= 0) {
            handOver = false;  // gone before a whole request head
            break;
        }
        const std::string seen = bytes.substr(0, static_cast<size_t>(n));
        bool whole = false;
        if (const std::optional<HeadRefusal> refusal = CheckHead(seen, whole)) {
            const size_t start = seen.find_first_not_of("\r\n");
            const std::string line =
                seen.substr(start, std::min(seen.find_first_of("\r\n", start), start + 120) - start);
            log_->Note(line + " -> " + std::to_string(refusal->status) + " (refused by the host)");
            Refuse(fd, *refusal);
            handOver = false;
            fd = -1;
            break;
        }
        if (whole || Clock::now() > deadline) {
            break;
        }
        // The rest of the head is still to come.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (fd >= 0 && handOver && !stopping_) {
        // The library takes the socket over, and closes it even when it fails.
        MHD_add_connection(daemon_, fd, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer));
    } else if (fd >= 0) {
        close(fd);
    }
    std::lock_guard<std::mutex> guard(lock_);
    examining_--;
    idle_.notify_all();
}

void Intake::Stop()
{
    stopping_ = true;
    if (acceptor_.joinable()) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t n = write(wake_[1], &byte, 1);
        acceptor_.join();
    }
    {
        std::unique_lock<std::mutex> guard(lock_);
        idle_.wait(guard, [this] { return examining_ == 0; });
    }
    for (int* fd : {&listenFd_, &wake_[0], &wake_[1]}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
}

}  // namespace devhost
