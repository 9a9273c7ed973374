// The host's own listening socket in front of libmicrohttpd. The library
// answers a request it cannot parse with its own HTML page, holds a thread
// for every connection from its first byte, and has no notion of this host's
// names; so each connection waits here, in one event loop and without a
// thread, until its first request head is whole. A head that breaks the
// host's rules (request_rules.h) is refused with the JSON error shape; a
// whole one is handed to the library unread.
//
// The intake bounds what clients can hold: heads waiting (each a descriptor,
// no thread), connections the library serves (each a thread), and, beyond
// loopback, connections per client address. Over a bound a connection gets
// 503 with Retry-After at once.
#ifndef DEVHOST_HTTP_INTAKE_H
#define DEVHOST_HTTP_INTAKE_H

#include <microhttpd.h>
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "log_tap.h"
#include "request_rules.h"

namespace devhost {

struct HttpReply;

struct IntakeLimits {
    // Connections the library serves at once, each with its own thread
    // (--max-connections).
    size_t served = 256;
    // Connections whose first head is still coming, or whose refusal is
    // being read: a descriptor each.
    size_t waiting = 2048;
    // Connections of one client address, waiting and served together; 0: no
    // such bound (a host on loopback, where every client has one address).
    size_t perAddress = 0;
};

// libmicrohttpd's own messages (MHD_OPTION_EXTERNAL_LOGGER): into the host's
// log instead of stderr. `log` is the LogTap.
void LibraryMessage(void* log, const char* format, va_list args);

class Intake {
public:
    Intake() = default;
    Intake(const Intake&) = delete;
    Intake& operator=(const Intake&) = delete;
    ~Intake() { Stop(); }

    // Binds and listens; false with `error` set when it cannot.
    bool Listen(const sockaddr_in& address, std::string& error);
    uint16_t Port() const;
    // Accepts connections for `daemon` (started without its own listening
    // socket, with Notify as its connection notifier) until Stop(); refusals
    // are noted in `log`.
    void Serve(MHD_Daemon* daemon, LogTap* log, const HostNames* names, const IntakeLimits& limits);
    // Stops accepting and closes every connection still waiting.
    void Stop();

    // MHD_OPTION_NOTIFY_CONNECTION: a connection the library ends frees its
    // place. `intake` is this.
    static void Notify(void* intake, MHD_Connection* connection, void** context, MHD_ConnectionNotificationCode code);
    // The library has begun to read a request of `connection`.
    static void Begun(MHD_Connection* connection);

private:
    struct Served;
    enum class Stage { Head, Draining };
    struct Waiting {
        uint64_t id;
        in_addr_t address;
        Stage stage;
        sockaddr_in peer;
        size_t drained = 0;
    };
    struct Deadline {
        std::chrono::steady_clock::time_point at;
        int fd;
        uint64_t id;
    };

    void Loop();
    void AcceptAll();
    void Admit(int fd, const sockaddr_in& peer);
    void Examine(int fd, uint32_t events);
    void HandOver(int fd);
    // Writes the refusal in the JSON error shape and ends the connection:
    // what the client still sends is read for a moment before closing, so
    // that closing does not reset the connection before the client has read
    // the answer.
    void Refuse(int fd, const HttpReply& reply);
    void Drain(int fd);
    void Close(int fd);
    void Expire();
    int WaitTime() const;
    bool AddressFull(in_addr_t address);
    void Release(in_addr_t address, bool served);

    LogTap* log_ = nullptr;
    MHD_Daemon* daemon_ = nullptr;
    const HostNames* names_ = nullptr;
    IntakeLimits limits_;
    int listenFd_ = -1;
    int epollFd_ = -1;
    int wakeFd_ = -1;
    int spareFd_ = -1;  // given up to accept and refuse one connection when descriptors run out
    std::atomic<bool> stopping_{false};
    std::thread loop_;
    std::chrono::steady_clock::time_point acceptPausedUntil_{};
    uint64_t nextId_ = 0;
    std::unordered_map<int, Waiting> waiting_;
    std::deque<Deadline> heads_;   // in deadline order: every head waits as long
    std::deque<Deadline> drains_;  // the same for refusals being read

    std::mutex lock_;  // what the library's threads change too
    size_t served_ = 0;
    std::map<in_addr_t, size_t> perAddress_;
};

}  // namespace devhost

#endif  // DEVHOST_HTTP_INTAKE_H
