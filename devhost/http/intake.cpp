#include "intake.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "http_front.h"

namespace devhost {

namespace {

using Clock = std::chrono::steady_clock;

// How long a connection may take to send its first request head.
constexpr std::chrono::seconds kHeadWait{10};
// After a refusal, how long and how much of the rest of the request is read
// and thrown away before the connection is closed.
constexpr std::chrono::seconds kDrainWait{1};
constexpr size_t kDrainBytes = 1024 * 1024;
// How long accepting pauses when the process has no descriptor or memory
// left for a new connection, instead of trying again at once.
constexpr std::chrono::milliseconds kAcceptPause{100};
// Over a bound, when a client may try again.
constexpr const char* kRetryAfterSeconds = "1";

constexpr uint32_t kConnectionEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;

// The first line of what a connection sent, for the log: at most 120 bytes,
// without its version, as the front logs the requests it refuses.
std::string FirstLine(std::string_view seen)
{
    const size_t start = std::min(seen.find_first_not_of("\r\n"), seen.size());
    std::string_view line = seen.substr(start, std::min(seen.find_first_of("\r\n", start), seen.size()) - start);
    if (const size_t version = line.rfind(" HTTP/"); version != std::string_view::npos && version > 0) {
        line = line.substr(0, version);
    }
    return std::string(line.substr(0, 120));
}

// Over a bound: 503, and when to try again.
HttpReply Busy(const std::string& message)
{
    HttpReply reply = ErrorReply(503, message);
    reply.headers.emplace_back(MHD_HTTP_HEADER_RETRY_AFTER, kRetryAfterSeconds);
    return reply;
}

std::string AddressText(in_addr_t address)
{
    char text[INET_ADDRSTRLEN] = "";
    in_addr in{address};
    inet_ntop(AF_INET, &in, text, sizeof(text));
    return text;
}

}  // namespace

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
    listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (listenFd_ < 0 || setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(listenFd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, SOMAXCONN) != 0) {
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

void Intake::Serve(MHD_Daemon* daemon, LogTap* log, const HostNames* names, const IntakeLimits& limits)
{
    daemon_ = daemon;
    log_ = log;
    names_ = names;
    limits_ = limits;
    epollFd_ = epoll_create1(EPOLL_CLOEXEC);
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    spareFd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (const int fd : {listenFd_, wakeFd_}) {
        epoll_event event{EPOLLIN, {.fd = fd}};
        epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &event);
    }
    loop_ = std::thread([this] { Loop(); });
}

void Intake::Loop()
{
    epoll_event events[64];
    while (!stopping_) {
        const int n = epoll_wait(epollFd_, events, 64, WaitTime());
        for (int i = 0; i < n && !stopping_; i++) {
            const int fd = events[i].data.fd;
            if (fd == listenFd_) {
                AcceptAll();
            } else if (fd != wakeFd_ && waiting_.count(fd) != 0) {
                Examine(fd, events[i].events);
            }
        }
        Expire();
        // Accepting paused (descriptors ran out): listen again once the pause is over.
        if (acceptPausedUntil_ != Clock::time_point{} && Clock::now() >= acceptPausedUntil_) {
            acceptPausedUntil_ = {};
            epoll_event event{EPOLLIN, {.fd = listenFd_}};
            epoll_ctl(epollFd_, EPOLL_CTL_ADD, listenFd_, &event);
        }
    }
}

// Milliseconds until the next deadline, -1 for none.
int Intake::WaitTime() const
{
    Clock::time_point next = Clock::time_point::max();
    for (const std::deque<Deadline>* queue : {&heads_, &drains_}) {
        if (!queue->empty()) {
            next = std::min(next, queue->front().at);
        }
    }
    if (acceptPausedUntil_ != Clock::time_point{}) {
        next = std::min(next, acceptPausedUntil_);
    }
    if (next == Clock::time_point::max()) {
        return -1;
    }
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(ms, 0, 60000));
}

void Intake::AcceptAll()
{
    for (;;) {
        sockaddr_in peer{};
        socklen_t len = sizeof(peer);
        int fd = accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            Admit(fd, peer);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED) {
            continue;
        }
        if ((errno == EMFILE || errno == ENFILE) && spareFd_ >= 0) {
            // The spare descriptor makes room to take this one connection
            // and tell it that the host is full.
            close(spareFd_);
            fd = accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd >= 0) {
                const std::string answer = AnswerBytes(Busy("the host has no descriptor left for a connection"));
                [[maybe_unused]] const ssize_t sent = send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
                close(fd);
            }
            spareFd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (fd >= 0 && spareFd_ >= 0) {
                continue;
            }
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            // Out of descriptors or memory: stop listening for a moment
            // rather than spin on a socket that stays readable.
            epoll_ctl(epollFd_, EPOLL_CTL_DEL, listenFd_, nullptr);
            acceptPausedUntil_ = Clock::now() + kAcceptPause;
        }
        return;
    }
}

void Intake::Admit(int fd, const sockaddr_in& peer)
{
    const in_addr_t address = peer.sin_addr.s_addr;
    const uint64_t id = ++nextId_;
    waiting_[fd] = Waiting{id, address, Stage::Head, peer};
    {
        std::lock_guard<std::mutex> guard(lock_);
        perAddress_[address]++;
    }
    epoll_event event{kConnectionEvents, {.fd = fd}};
    epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &event);
    if (waiting_.size() > limits_.waiting) {
        log_->Note(AddressText(address) + " -> 503 (" + std::to_string(limits_.waiting) + " connections waiting)");
        Refuse(fd, Busy("the host holds as many connections as it takes; try again"));
        return;
    }
    if (AddressFull(address)) {
        log_->Note(AddressText(address) + " -> 503 (" + std::to_string(limits_.perAddress) +
                   " connections from this address)");
        Refuse(fd, Busy("the host holds as many connections from this address as it takes; try again"));
        return;
    }
    heads_.push_back(Deadline{Clock::now() + kHeadWait, fd, id});
}

bool Intake::AddressFull(in_addr_t address)
{
    std::lock_guard<std::mutex> guard(lock_);
    return limits_.perAddress != 0 && perAddress_[address] > limits_.perAddress;
}

void Intake::Examine(int fd, uint32_t events)
{
    Waiting& w = waiting_.at(fd);
    if (w.stage == Stage::Draining) {
        Drain(fd);
        return;
    }
    // Only looked at: the library reads the head itself once it is whole.
    std::string bytes(kHeadLimit + 1, '\0');
    const ssize_t n = recv(fd, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
        Close(fd);  // gone before a whole request head
        return;
    }
    const std::string_view seen(bytes.data(), n > 0 ? static_cast<size_t>(n) : 0);
    bool whole = false;
    if (const std::optional<HeadRefusal> refusal = CheckHead(seen, *names_, whole)) {
        log_->Note(FirstLine(seen) + " -> " + std::to_string(refusal->status) + " (refused by the host)");
        Refuse(fd, ErrorReply(refusal->status, refusal->message));
    } else if (whole) {
        HandOver(fd);
    } else if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
        Close(fd);  // the client has stopped sending: the head cannot become whole
    }
}

void Intake::HandOver(int fd)
{
    const Waiting w = waiting_.at(fd);
    bool room = false;
    {
        std::lock_guard<std::mutex> guard(lock_);
        room = served_ < limits_.served;
        served_ += room ? 1 : 0;
    }
    if (!room) {
        log_->Note(AddressText(w.address) + " -> 503 (" + std::to_string(limits_.served) + " connections served)");
        Refuse(fd, Busy("the host serves as many connections as it takes; try again"));
        return;
    }
    // Its place in perAddress_ goes with it, until the library ends it.
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
    waiting_.erase(fd);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    // The library takes the socket over, and closes it even when it fails.
    if (MHD_add_connection(daemon_, fd, reinterpret_cast<const sockaddr*>(&w.peer), sizeof(w.peer)) != MHD_YES) {
        log_->Note(AddressText(w.address) +
                   " -> closed (the library could not take the connection: " + std::strerror(errno) + ")");
        Release(w.address, true);
    }
}

void Intake::Refuse(int fd, const HttpReply& reply)
{
    Waiting& w = waiting_.at(fd);
    w.stage = Stage::Draining;
    // What has come already is read first, so that the answer is not lost to
    // a reset when the connection closes.
    char sink[4096];
    for (ssize_t n; w.drained < kDrainBytes && (n = recv(fd, sink, sizeof(sink), MSG_DONTWAIT)) > 0;) {
        w.drained += static_cast<size_t>(n);
    }
    const std::string answer = AnswerBytes(reply);
    // A socket's send buffer takes the whole answer; what does not fit is not waited for.
    [[maybe_unused]] const ssize_t sent = send(fd, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(fd, SHUT_WR);
    if (waiting_.size() > limits_.waiting) {
        Close(fd);  // over the bound: no moment to read the rest
        return;
    }
    drains_.push_back(Deadline{Clock::now() + kDrainWait, fd, w.id});
}

void Intake::Drain(int fd)
{
    Waiting& w = waiting_.at(fd);
    char sink[4096];
    for (;;) {
        const ssize_t n = recv(fd, sink, sizeof(sink), MSG_DONTWAIT);
        if (n > 0 && (w.drained += static_cast<size_t>(n)) < kDrainBytes) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        }
        Close(fd);
        return;
    }
}

void Intake::Close(int fd)
{
    const auto it = waiting_.find(fd);
    if (it == waiting_.end()) {
        return;
    }
    Release(it->second.address, false);
    waiting_.erase(it);
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
    close(fd);
}

void Intake::Release(in_addr_t address, bool served)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (served) {
        served_--;
    }
    if (const auto it = perAddress_.find(address); it != perAddress_.end() && --it->second == 0) {
        perAddress_.erase(it);
    }
}

void Intake::Expire()
{
    const Clock::time_point now = Clock::now();
    for (std::deque<Deadline>* queue : {&heads_, &drains_}) {
        const Stage stage = queue == &heads_ ? Stage::Head : Stage::Draining;
        while (!queue->empty()) {
            const Deadline d = queue->front();
            const auto it = waiting_.find(d.fd);
            // An entry whose connection was closed, handed over or refused
            // before its time is dropped as it comes up.
            const bool current = it != waiting_.end() && it->second.id == d.id && it->second.stage == stage;
            if (current && d.at > now) {
                break;
            }
            queue->pop_front();
            if (current) {
                Close(d.fd);  // a head not whole in its time; a refusal read long enough
            }
        }
    }
}

void Intake::Stop()
{
    stopping_ = true;
    if (loop_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = write(wakeFd_, &one, sizeof(one));
        loop_.join();
    }
    while (!waiting_.empty()) {
        Close(waiting_.begin()->first);
    }
    for (int* fd : {&listenFd_, &epollFd_, &wakeFd_, &spareFd_}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
}

// What the intake keeps of a connection the library serves.
struct Intake::Served {
    std::atomic<bool> begun{false};  // the library has read a request of it
};

void Intake::Notify(void* self, MHD_Connection* connection, void** context, MHD_ConnectionNotificationCode code)
{
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        *context = new Served;
        return;
    }
    std::unique_ptr<Served> served(static_cast<Served*>(*context));
    *context = nullptr;
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    const auto* peer = info != nullptr ? reinterpret_cast<const sockaddr_in*>(info->client_addr) : nullptr;
    auto* intake = static_cast<Intake*>(self);
    intake->Release(peer != nullptr ? peer->sin_addr.s_addr : 0, true);
    // Every connection comes with a whole request head: one that ends before
    // the library has read it is one the library could not serve (no thread
    // could start). Its socket is still open here, and is told so.
    if (served != nullptr && !served->begun) {
        if (const MHD_ConnectionInfo* fd = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)) {
            const std::string answer = AnswerBytes(Busy("the host cannot start a thread for another connection"));
            [[maybe_unused]] const ssize_t sent =
                send(fd->connect_fd, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        intake->log_->Note((peer != nullptr ? AddressText(peer->sin_addr.s_addr) : std::string("a client")) +
                           " -> 503 (no thread for its connection)");
    }
}

void Intake::Begun(MHD_Connection* connection)
{
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    if (info != nullptr && info->socket_context != nullptr) {
        static_cast<Served*>(info->socket_context)->begun = true;
    }
}

}  // namespace devhost
