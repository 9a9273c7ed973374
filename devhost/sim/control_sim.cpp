#include "control_sim.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "kxapi_common.h"
#include "link.h"
#include "sim_core.h"
#include "sim_frames.h"

namespace devhost {

namespace {

constexpr size_t kRecvMsgOffset = 164;
constexpr size_t kResultOffset = 176;
constexpr size_t kPayloadOffset = 200;

class ControlState {
public:
    explicit ControlState(const DeviceImage& image) : image_(image), payloads_(image.controlPayloads) {}

    std::optional<Bytes> Get(int code)
    {
        std::lock_guard<std::mutex> guard(lock_);
        const auto it = payloads_.find(code);
        return it != payloads_.end() ? std::optional<Bytes>(it->second) : std::nullopt;
    }

    // Stores the first bytes of `data`, as many as the payload has.
    bool Put(int code, const uint8_t* data, size_t len)
    {
        std::lock_guard<std::mutex> guard(lock_);
        const auto it = payloads_.find(code);
        if (it == payloads_.end() || len < it->second.size()) {
            return false;
        }
        std::memcpy(it->second.data(), data, it->second.size());
        return true;
    }

    void Restore()
    {
        std::lock_guard<std::mutex> guard(lock_);
        payloads_ = image_.controlPayloads;
    }

private:
    const DeviceImage& image_;
    std::mutex lock_;
    std::map<int, Bytes> payloads_;
};

struct ControlSimulator {
    explicit ControlSimulator(const DeviceImage& image) : state(image) {}
    ControlState state;
    SimCore core;
    std::atomic<bool> listening{false};
};

template <class T>
void PutWord(uint8_t* at, T value)
{
    std::memcpy(at, &value, sizeof(value));
}

// Answers one command; false when the connection is to be closed instead.
bool Answer(ControlSimulator& sim, int fd, const ControlCommand& command)
{
    const auto& [type, code, channelField, body] = command;
    const long size = ControlPayloadSize(code);
    // The part of the body the command gives a meaning to.
    const size_t head = size > 0 ? static_cast<size_t>(size) : 16;
    Exchange exchange(sim.core, Service::Control, "messageType", type == VW_MSG_WRITE ? "write" : "read", code,
                      channelField, json_object_new_int64(channelField), ToHex(body.data(), head));
    if (exchange.Unanswered()) {
        exchange.End("result", nullptr, 0);
        if (exchange.Meets(FaultKind::NoAnswer)) {
            // Held until the faults are cleared; then the connection closes.
            sim.core.faults.WaitCleared(sim.core.stop);
        }
        return false;
    }
    if (exchange.Meets(FaultKind::Delay)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(exchange.fault()->value));
    }

    int result = 0;
    if (exchange.Meets(FaultKind::Result)) {
        result = static_cast<int>(exchange.fault()->value);
    } else if (size < 0) {
        result = kControlUnknownCommand;
    } else if (type == VW_MSG_WRITE) {
        sim.state.Put(code, body.data(), body.size());
    }
    const Bytes payload = sim.state.Get(code).value_or(Bytes());

    std::vector<uint8_t> reply(VW_SYN_REPLY_HEAD + VW_MSG_DATA_LEN, 0);
    PutWord<uint32_t>(reply.data(), VW_SYN_MAGIC);
    PutWord<uint32_t>(reply.data() + 4, VW_MSG_DATA_LEN);
    uint8_t* data = reply.data() + VW_SYN_REPLY_HEAD;
    PutWord<int32_t>(data + kRecvMsgOffset, code);
    PutWord<int32_t>(data + kResultOffset, result);
    std::memcpy(data + kPayloadOffset, payload.data(), payload.size());

    exchange.End("result", &payload, result);
    return StreamTransfer(fd, reply.data(), reply.size(), true);
}

void Serve(ControlSimulator& sim, int fd)
{
    while (const std::optional<ControlCommand> command = ReadControlCommand(fd)) {
        if (!Answer(sim, fd, *command)) {
            break;
        }
    }
    close(fd);
}

int Listen(const char* path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    unlink(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 64) != 0) {
        std::fprintf(stderr, "ispiaas-devhost: the control process cannot listen on %s: %s\n", path,
                     std::strerror(errno));
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    return fd;
}

// Accepts connections, one thread each. While a "down" fault is armed the
// socket is gone, as when the control process is not running.
void AcceptLoop(ControlSimulator& sim, const char* path, int listenFd)
{
    while (!sim.core.stop) {
        const bool down = sim.core.faults.Armed(FaultKind::Down);
        if (down && listenFd >= 0) {
            close(listenFd);
            unlink(path);
            listenFd = -1;
        } else if (!down && listenFd < 0) {
            listenFd = Listen(path);
        }
        sim.listening = listenFd >= 0;
        if (listenFd < 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        pollfd p{listenFd, POLLIN, 0};
        if (poll(&p, 1, 20) <= 0) {
            continue;
        }
        const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            std::thread([&sim, fd] { Serve(sim, fd); }).detach();
        }
    }
}

// The accept loop looks at "down" every 20 ms; a reply that arms or clears
// faults waits until it has, so that the next command already finds the
// socket gone or back.
void AwaitSocketState(ControlSimulator& sim)
{
    for (int i = 0; i < 500 && sim.listening == sim.core.faults.Armed(FaultKind::Down); i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Json HandleLink(ControlSimulator& sim, json_object* request)
{
    const std::string op = JsonString(request, "op").value_or("");
    if (op == "faults.arm" || op == "faults.clear") {
        Json reply = HandleCoreRequest(sim.core, op, request, Service::Control);
        AwaitSocketState(sim);
        return reply;
    }
    if (Json core = HandleCoreRequest(sim.core, op, request, Service::Control)) {
        return core;
    }
    if (op == "reset") {
        sim.state.Restore();
        sim.core.journal.Clear();
        sim.core.faults.Clear();
        AwaitSocketState(sim);
        return JsonOk();
    }
    const std::optional<long long> command = JsonInt(request, "command");
    if ((op != "get" && op != "put") || !command) {
        return JsonError("unknown request");
    }
    const int code = static_cast<int>(*command);
    if (op == "put") {
        const std::optional<Bytes> value = FromHex(JsonString(request, "hex").value_or("-"));
        const long size = ControlPayloadSize(code);
        if (!value) {
            return JsonError("\"hex\" must be a hex text");
        }
        if (size >= 0 && value->size() != static_cast<size_t>(size)) {
            return JsonError("the payload has " + std::to_string(size) + " bytes");
        }
        sim.state.Put(code, value->data(), value->size());
    }
    const std::optional<Bytes> payload = sim.state.Get(code);
    if (!payload) {
        return JsonError("the control process has no such command");
    }
    return BlockToJson("control", code, std::nullopt, *payload);
}

}  // namespace

int RunControlSimulator(const DeviceImage& image, const char* socketPath, int linkFd)
{
    static ControlSimulator sim(image);
    const int listenFd = Listen(socketPath);
    if (listenFd < 0) {
        return 1;
    }
    std::thread acceptor([&] { AcceptLoop(sim, socketPath, listenFd); });
    LinkServe(linkFd, [](json_object* request) { return HandleLink(sim, request); });
    sim.core.stop = true;
    acceptor.join();
    return 0;
}

}  // namespace devhost
