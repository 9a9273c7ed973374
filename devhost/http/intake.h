// The host's own listening socket in front of libmicrohttpd. The library
// answers a request it cannot parse with its own HTML page; so the first
// request head of each connection is looked at here, without reading it, and
// what the library would refuse (a malformed request line or header line, an
// HTTP version other than 1.0 and 1.1, a head over kHeadLimit bytes) is
// refused with the JSON error shape. Every other connection is handed to the
// library unread.
#ifndef DEVHOST_HTTP_INTAKE_H
#define DEVHOST_HTTP_INTAKE_H

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "log_tap.h"

struct MHD_Daemon;

namespace devhost {

// The largest request head (request line and header lines) the host takes.
// libmicrohttpd keeps a head within its 32 KiB per connection; below that it
// is the host that refuses.
inline constexpr size_t kHeadLimit = 16 * 1024;

struct HeadRefusal {
    unsigned status;
    std::string message;
};

// What the host refuses in the bytes a connection has sent so far: nullopt
// when they may go on (a whole and well-formed head, or the start of one).
// `whole` is set when the head is complete.
std::optional<HeadRefusal> CheckHead(const std::string& bytes, bool& whole);

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
    // socket) until Stop(); refusals are noted in `log`.
    void Serve(MHD_Daemon* daemon, LogTap* log);
    // Stops accepting and waits for the connections still being looked at.
    void Stop();

private:
    void Accept();
    void Examine(int fd, sockaddr_in peer);

    LogTap* log_ = nullptr;
    MHD_Daemon* daemon_ = nullptr;
    int listenFd_ = -1;
    int wake_[2] = {-1, -1};
    std::atomic<bool> stopping_{false};
    std::thread acceptor_;
    std::mutex lock_;
    std::condition_variable idle_;
    unsigned examining_ = 0;
};

}  // namespace devhost

#endif  // DEVHOST_HTTP_INTAKE_H
