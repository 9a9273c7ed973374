#define FUSE_USE_VERSION 312
#include "isp_sim.h"

#include <fuse3/fuse.h>
#include <fuse3/fuse_lowlevel.h>
#include <signal.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>

#include "link.h"
#include "isp_service.h"
#include "sim_core.h"
#include "sim_frames.h"
#include "wiro.h"

namespace devhost {

namespace {

// One open of the node. The module's frames travel through a socket pair:
// what the module writes goes into wire[0] and is read as a frame from
// wire[1] with the framed message library; replies are sent on wire[1] and
// the module's reads and polls take them from wire[0].
struct Session {
    int wire[2] = {-1, -1};
    std::mutex lock;
    fuse_pollhandle* pollHandle = nullptr;
    bool broken = false;  // the module's next read fails

    ~Session()
    {
        if (pollHandle != nullptr) {
            fuse_pollhandle_destroy(pollHandle);
        }
        close(wire[0]);
        close(wire[1]);
    }
};
using SessionPtr = std::shared_ptr<Session>;

struct IspSimulator {
    explicit IspSimulator(const DeviceImage& image) : state(image) {}

    IspState state;
    SimCore core;
    std::mutex sessionsLock;
    std::map<uint64_t, SessionPtr> sessions;
    uint64_t nextSession = 1;
    fuse_session* fuseSession = nullptr;
};

// The simulator the file system's callbacks serve (fuse_new's user data).
IspSimulator& Sim() { return *static_cast<IspSimulator*>(fuse_get_context()->private_data); }

SessionPtr SessionOf(const fuse_file_info* fi)
{
    IspSimulator& sim = Sim();
    std::lock_guard<std::mutex> guard(sim.sessionsLock);
    const auto it = sim.sessions.find(fi->fh);
    return it != sim.sessions.end() ? it->second : nullptr;
}

// Wakes a module that waits in poll() on the session.
void Notify(Session& s)
{
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.pollHandle != nullptr) {
        fuse_notify_poll(s.pollHandle);
        fuse_pollhandle_destroy(s.pollHandle);
        s.pollHandle = nullptr;
    }
}

void Break(Session& s)
{
    {
        std::lock_guard<std::mutex> guard(s.lock);
        s.broken = true;
    }
    Notify(s);
}

bool Readable(int fd)
{
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, 0) > 0;
}

// What a reply echoes of its request.
struct ReplyHead {
    uint8_t op;
    uint16_t command;
    std::optional<uint32_t> channel;
};

bool SendReply(Session& s, const ReplyHead& head, const IspReply& reply)
{
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        return false;
    }
    msg->header->op = static_cast<uint8_t>(head.op | WIRO_OP_REPLY);
    msg->header->command = head.command;
    msg->header->code = reply.status;
    bool sent = (!head.channel || wiro_header_set(msg, kIspChannelKey, &*head.channel, sizeof(uint32_t)) == 0) &&
                wiro_content_add(msg, reply.content.data(), reply.content.size(), 0) == 0 &&
                wiro_message_sendfd(msg, s.wire[1]) >= 0;
    wiro_message_put(msg);
    Notify(s);
    return sent;
}

// Answers one request frame, as the armed faults say. False when the
// module's write is to fail.
bool Answer(const SessionPtr& s, const wiro_message_t* request)
{
    IspSimulator& sim = Sim();
    const auto [op, command, channel, content] = IspRequestOf(request);
    Exchange exchange(sim.core, Service::Isp, "operation", OperationName(op), static_cast<int>(command), channel,
                      channel ? json_object_new_int64(*channel) : nullptr, ToHex(content));
    if (exchange.Unanswered()) {
        exchange.End("status", nullptr, 0);
        if (exchange.Meets(FaultKind::SendFailure)) {
            return false;
        }
        // Held until the faults are cleared; then the session fails.
        std::thread([s, &sim] {
            sim.core.faults.WaitCleared(sim.core.stop);
            Break(*s);
        }).detach();
        return true;
    }
    IspReply reply;
    if (exchange.Meets(FaultKind::Status)) {
        // A refused request changes nothing; a read still carries the block.
        reply.status = static_cast<uint16_t>(exchange.fault()->value);
        reply.content = sim.state.Get(command, channel.value_or(0)).value_or(content);
    } else {
        reply = Perform(sim.state, op, command, channel, content);
    }
    if (exchange.Meets(FaultKind::ShortContent)) {
        const long long length = exchange.fault()->value;
        const size_t keep = length >= 0 ? static_cast<size_t>(length) : reply.content.size() / 2;
        reply.content.resize(std::min(keep, reply.content.size()));
    }
    exchange.End("status", &reply.content, reply.status);

    const ReplyHead head{request->header->op, request->header->command, channel};
    if (exchange.Meets(FaultKind::Delay)) {
        std::thread([s, head, reply, delayMs = exchange.fault()->value] {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            SendReply(*s, head, reply);
        }).detach();
        return true;
    }
    return SendReply(*s, head, reply);
}

// ---- file system ------------------------------------------------------------

constexpr char kNodePath[] = "/isp.iaas.qtn";

void* SimInit(fuse_conn_info*, fuse_config* cfg)
{
    cfg->direct_io = 1;
    cfg->kernel_cache = 0;
    cfg->attr_timeout = 0;
    cfg->entry_timeout = 0;
    return fuse_get_context()->private_data;  // the simulator, for every later callback
}

int SimGetattr(const char* path, struct stat* st, fuse_file_info*)
{
    std::memset(st, 0, sizeof(*st));
    if (std::strcmp(path, "/") == 0) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return 0;
    }
    if (std::strcmp(path, kNodePath) == 0) {
        st->st_mode = S_IFREG | 0666;
        st->st_nlink = 1;
        return 0;
    }
    return -ENOENT;
}

int SimReaddir(const char* path, void* buf, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    if (std::strcmp(path, "/") != 0) {
        return -ENOENT;
    }
    fill(buf, ".", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buf, "..", nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    fill(buf, kNodePath + 1, nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
    return 0;
}

int SimOpen(const char* path, fuse_file_info* fi)
{
    if (std::strcmp(path, kNodePath) != 0) {
        return -ENOENT;
    }
    auto s = std::make_shared<Session>();
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, s->wire) != 0) {
        return -errno;
    }
    fi->direct_io = 1;
    fi->nonseekable = 1;
    IspSimulator& sim = Sim();
    std::lock_guard<std::mutex> guard(sim.sessionsLock);
    fi->fh = sim.nextSession++;
    sim.sessions[fi->fh] = s;
    return 0;
}

int SimRelease(const char*, fuse_file_info* fi)
{
    IspSimulator& sim = Sim();
    std::lock_guard<std::mutex> guard(sim.sessionsLock);
    sim.sessions.erase(fi->fh);
    return 0;
}

int SimWrite(const char*, const char* buf, size_t size, off_t, fuse_file_info* fi)
{
    const SessionPtr s = SessionOf(fi);
    if (s == nullptr) {
        return -EBADF;
    }
    size_t done = 0;
    while (done < size) {
        const ssize_t n = send(s->wire[0], buf + done, size - done, MSG_NOSIGNAL);
        if (n < 0) {
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    while (IspFrameWaiting(s->wire[1])) {
        wiro_message_t* request = wiro_message_new(0);
        if (request == nullptr) {
            return -ENOMEM;
        }
        const int got = wiro_message_recvfd(request, s->wire[1]);
        const int error = errno;
        const bool answered = got >= 0 && Answer(s, request);
        wiro_message_put(request);
        if (got < 0) {
            // A refused frame leaves the session without a frame boundary.
            Break(*s);
            return -error;
        }
        if (!answered) {
            return -EIO;
        }
    }
    return static_cast<int>(size);
}

int SimRead(const char*, char* buf, size_t size, off_t, fuse_file_info* fi)
{
    const SessionPtr s = SessionOf(fi);
    if (s == nullptr) {
        return -EBADF;
    }
    // Waits for a reply like a socket does; polls the session, the stop
    // request and the module's interrupt every 100 ms.
    for (;;) {
        pollfd p{s->wire[0], POLLIN, 0};
        if (poll(&p, 1, 100) > 0) {
            const ssize_t n = recv(s->wire[0], buf, size, MSG_DONTWAIT);
            if (n >= 0) {
                return static_cast<int>(n);
            }
            if (errno != EAGAIN) {
                return -errno;
            }
        }
        {
            std::lock_guard<std::mutex> guard(s->lock);
            if (s->broken) {
                return -EIO;
            }
        }
        if (fuse_session_exited(Sim().fuseSession) || Sim().core.stop) {
            return -EIO;
        }
        if (fuse_interrupted()) {
            return -EINTR;
        }
    }
}

int SimPoll(const char*, fuse_file_info* fi, fuse_pollhandle* ph, unsigned* revents)
{
    const SessionPtr s = SessionOf(fi);
    if (s == nullptr) {
        if (ph != nullptr) {
            fuse_pollhandle_destroy(ph);
        }
        return -EBADF;
    }
    std::lock_guard<std::mutex> guard(s->lock);
    if (ph != nullptr) {
        if (s->pollHandle != nullptr) {
            fuse_pollhandle_destroy(s->pollHandle);
        }
        s->pollHandle = ph;
    }
    *revents = POLLOUT | POLLWRNORM;
    if (Readable(s->wire[0])) {
        *revents |= POLLIN | POLLRDNORM;
    }
    if (s->broken) {
        *revents |= POLLIN | POLLERR;
    }
    return 0;
}

// ---- the host's link ----------------------------------------------------------

Json HandleLink(IspSimulator& sim, json_object* request)
{
    const std::string op = JsonString(request, "op").value_or("");
    if (Json core = HandleCoreRequest(sim.core, op, request, Service::Isp)) {
        return core;
    }
    if (op == "reset") {
        sim.state.Restore(0);
        sim.core.journal.Clear();
        sim.core.faults.Clear();
        return JsonOk();
    }
    const std::optional<long long> command = JsonInt(request, "command");
    const std::optional<long long> channel = JsonInt(request, "channel");
    if ((op != "get" && op != "put") || !command || !channel || *command < 0 || *channel < 0) {
        return JsonError("unknown request");
    }
    const auto cmd = static_cast<unsigned>(*command);
    const auto ch = static_cast<uint32_t>(*channel);
    if (op == "put") {
        const std::optional<Bytes> value = FromHex(JsonString(request, "hex").value_or("-"));
        if (!value) {
            return JsonError("\"hex\" must be a hex text");
        }
        if (!sim.state.Put(cmd, ch, *value)) {
            const std::optional<Bytes> block = sim.state.Get(cmd, ch);
            return JsonError(block ? "the block has " + std::to_string(block->size()) + " bytes"
                                   : std::string("the service has no such block"));
        }
    }
    const std::optional<Bytes> block = sim.state.Get(cmd, ch);
    if (!block) {
        return JsonError("the service has no such block");
    }
    return BlockToJson("isp", static_cast<int>(cmd), ch, *block);
}

}  // namespace

int RunIspSimulator(const DeviceImage& image, const char* mountDir, int linkFd)
{
    static IspSimulator sim(image);

    fuse_operations ops{};
    ops.init = SimInit;
    ops.getattr = SimGetattr;
    ops.readdir = SimReaddir;
    ops.open = SimOpen;
    ops.release = SimRelease;
    ops.read = SimRead;
    ops.write = SimWrite;
    ops.poll = SimPoll;

    char arg0[] = "ispiaas-isp-sim";
    char opt[] = "-o";
    char fsname[] = "fsname=ispiaas-sim,subtype=ispiaas";
    char* argv[] = {arg0, opt, fsname, nullptr};
    fuse_args args = FUSE_ARGS_INIT(3, argv);
    fuse* fs = fuse_new(&args, &ops, sizeof(ops), &sim);
    if (fs == nullptr) {
        std::fprintf(stderr, "ispiaas-devhost: the ISP service simulator could not start FUSE\n");
        return 1;
    }
    if (fuse_mount(fs, mountDir) != 0) {
        std::fprintf(stderr, "ispiaas-devhost: the ISP service simulator could not mount %s\n", mountDir);
        fuse_destroy(fs);
        return 1;
    }
    sim.fuseSession = fuse_get_session(fs);
    fuse_set_signal_handlers(sim.fuseSession);

    // The link answers only once the node is there, so the host's first
    // call tells it that the service is up. Its end ends the service.
    std::thread([linkFd] {
        LinkServe(linkFd, [](json_object* request) { return HandleLink(sim, request); });
        fuse_session_exit(sim.fuseSession);
        kill(getpid(), SIGTERM);
    }).detach();

    fuse_loop_config* cfg = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(cfg, 64);
    const int rc = fuse_loop_mt(fs, cfg);
    fuse_loop_cfg_destroy(cfg);
    sim.core.stop = true;
    fuse_remove_signal_handlers(sim.fuseSession);
    fuse_unmount(fs);
    fuse_destroy(fs);
    return rc == 0 ? 0 : 1;
}

}  // namespace devhost
