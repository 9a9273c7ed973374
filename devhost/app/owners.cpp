#include "owners.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "control_sim.h"
#include "isp_sim.h"
#include "places.h"

namespace devhost {

void Module::Close::operator()(void* handle) const { dlclose(handle); }

bool Module::Load(const std::string& path, std::string& error)
{
    handle_.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!handle_) {
        error = std::string("cannot load the module: ") + dlerror();
    }
    return handle_ != nullptr;
}

bool LogFile::Open(const std::string& path)
{
    if (!path.empty()) {
        file_.reset(std::fopen(path.c_str(), "a"));
    }
    return path.empty() || file_ != nullptr;
}

// Forks a simulator that runs `body` with its end of a new link.
template <class Body>
bool Simulators::Spawn(Child& child, Body body)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        return false;
    }
    std::fflush(nullptr);
    child.pid = fork();
    if (child.pid < 0) {
        close(pair[0]);
        close(pair[1]);
        return false;
    }
    if (child.pid == 0) {
        // The simulator ends with the host, however the host ends.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        prctl(PR_SET_NAME, child.processName);
        close(pair[0]);
        _exit(body(pair[1]));
    }
    close(pair[1]);
    child.link = pair[0];
    return true;
}

bool Simulators::Start(const DeviceImage& image, std::string& error)
{
    if (!Spawn(isp_, [&](int link) { return RunIspSimulator(image, kIspNodeDir, link); }) ||
        !Spawn(control_, [&](int link) { return RunControlSimulator(image, kControlSocketPath, link); })) {
        error = "cannot start the simulators";
        return false;
    }
    ispLink_.emplace(isp_.link);
    controlLink_.emplace(control_.link);
    Json ping(json_object_new_object());
    json_object_object_add(ping.get(), "op", json_object_new_string("ping"));
    for (const auto& [link, child] : {std::pair{&*ispLink_, &isp_}, std::pair{&*controlLink_, &control_}}) {
        if (!link->Call(ping.get())) {
            error = std::string("the ") + child->name + " did not start";
            return false;
        }
    }
    return true;
}

const char* Simulators::Ended(pid_t pid)
{
    for (Child* child : {&isp_, &control_}) {
        if (pid > 0 && pid == child->pid) {
            child->pid = -1;
            return child->name;
        }
    }
    return nullptr;
}

void Simulators::Stop()
{
    Child* children[] = {&isp_, &control_};
    for (Child* child : children) {
        if (child->pid > 0) {
            kill(child->pid, SIGTERM);
        }
    }
    for (int i = 0; i < 50; i++) {
        bool running = false;
        for (Child* child : children) {
            if (child->pid > 0 && waitpid(child->pid, nullptr, WNOHANG) == child->pid) {
                child->pid = -1;
            }
            running = running || child->pid > 0;
        }
        if (!running) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (Child* child : children) {
        if (child->pid > 0) {
            kill(child->pid, SIGKILL);
            waitpid(child->pid, nullptr, 0);
            child->pid = -1;
        }
    }
}

Simulators::~Simulators()
{
    Stop();
    // The links go last: the front may still be calling them until it stops.
    for (Child* child : {&isp_, &control_}) {
        if (child->link >= 0) {
            close(child->link);
        }
    }
}

}  // namespace devhost
