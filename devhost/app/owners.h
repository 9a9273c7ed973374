// Owners of what the host holds while it runs: each undoes what it did when
// it goes, so that start-up is a list of steps with no clean-up by hand.
#ifndef DEVHOST_APP_OWNERS_H
#define DEVHOST_APP_OWNERS_H

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "link.h"
#include "profile.h"

namespace devhost {

// The module, loaded with dlopen; closed with its owner.
class Module {
public:
    // False with `error` set when it cannot be loaded.
    bool Load(const std::string& path, std::string& error);
    void* Handle() const { return handle_.get(); }

private:
    struct Close {
        void operator()(void* handle) const;
    };
    std::unique_ptr<void, Close> handle_;
};

// Where the log lines go: stdout, or a file opened for appending and closed
// with its owner.
class LogFile {
public:
    // An empty path is stdout; false when the file cannot be opened.
    bool Open(const std::string& path);
    FILE* Get() const { return file_ ? file_.get() : stdout; }

private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<FILE, Close> file_;
};

// The ISP service and control process simulators, each forked with its end
// of a link; stopped with their owner (or by Stop() before), their links
// closed with their owner.
class Simulators {
public:
    Simulators() = default;
    Simulators(const Simulators&) = delete;
    Simulators& operator=(const Simulators&) = delete;
    ~Simulators();

    // Forks both into the current mounts and waits until each answers;
    // false with `error` set when one could not start.
    bool Start(const DeviceImage& image, std::string& error);
    LinkClient& Isp() { return *ispLink_; }
    LinkClient& Control() { return *controlLink_; }
    // The name of the simulator whose process `pid` was (reaped), or null.
    const char* Ended(pid_t pid);
    // SIGTERM to both, a second for them to go, then SIGKILL.
    void Stop();

private:
    struct Child {
        const char* name;
        const char* processName;
        pid_t pid = -1;
        int link = -1;
    };
    template <class Body>
    static bool Spawn(Child& child, Body body);

    Child isp_{"ISP service simulator", "ispiaas-isp-sim"};
    Child control_{"control process simulator", "ispiaas-ctl-sim"};
    std::optional<LinkClient> ispLink_;
    std::optional<LinkClient> controlLink_;
};

}  // namespace devhost

#endif  // DEVHOST_APP_OWNERS_H
