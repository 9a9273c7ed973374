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
#include "sim_core.h"
#include "sim_frames.h"
#include "wiro.h"

namespace devhost {

namespace {

constexpr uint16_t kStatusOk = 200;
constexpr uint16_t kStatusBadRequest = 400;
constexpr uint16_t kStatusNoBlock = 404;

enum IspOperation : uint8_t { kOpReset = 0, kOpCreate = 1, kOpRead = 2, kOpWrite = 3 };

const char* OperationName(uint8_t op)
{
    static const char* const names[] = {"reset", "create", "read", "write"};
    return op < 4 ? names[op] : "unknown";
}

// The service's parameter blocks, per command and channel, made from the
// profile when first used.
class IspState {
public:
    explicit IspState(const DeviceImage& image) : image_(image) {}

    // A copy of the block, or nullopt when the service has none there.
    std::optional<Bytes> Get(unsigned command, uint32_t channel)
    {
        std::lock_guard<std::mutex> guard(lock_);
        Bytes* block = Find(command, channel);
        return block != nullptr ? std::optional<Bytes>(*block) : std::nullopt;
    }

    // Stores the block when the service has one of that size there.
    bool Put(unsigned command, uint32_t channel, const Bytes& value)
    {
        std::lock_guard<std::mutex> guard(lock_);
        Bytes* block = Find(command, channel);
        if (block == nullptr || block->size() != value.size()) {
            return false;
        }
        *block = value;
        return true;
    }

    // Returns the blocks of one command (or of all, for 0) to the profile.
    void Restore(unsigned command)
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (auto it = blocks_.begin(); it != blocks_.end();) {
            it = command == 0 || it->first.first == command ? blocks_.erase(it) : std::next(it);
        }
    }

private:
    Bytes* Find(unsigned command, uint32_t channel)
    {
        const auto profile = image_.ispBlocks.find(command);
        if (profile == image_.ispBlocks.end() || channel >= image_.channels) {
            return nullptr;
        }
        return &blocks_.try_emplace({command, channel}, profile->second).first->second;
    }

    const DeviceImage& image_;
    std::mutex lock_;
    std::map<std::pair<unsigned, uint32_t>, Bytes> blocks_;
};

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

IspSimulator* g_sim = nullptr;

SessionPtr SessionOf(const fuse_file_info* fi)
{
    std::lock_guard<std::mutex> guard(g_sim->sessionsLock);
    const auto it = g_sim->sessions.find(fi->fh);
    return it != g_sim->sessions.end() ? it->second : nullptr;
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

struct IspReply {
    uint16_t status = kStatusOk;
    Bytes content;
};

// What the service does with one request, without faults.
IspReply Perform(uint8_t op, unsigned command, std::optional<uint32_t> channel, const Bytes& content)
{
    IspState& state = g_sim->state;
    const uint32_t ch = channel.value_or(0);
    IspReply reply;
    if (op == kOpWrite && command == kIspRestoreDefaults) {
        state.Restore(0);
        return reply;
    }
    if (op == kOpReset && command == kIspThermal) {
        // The reset names the thermal reset channel; the settings it returns
        // to the profile are those of every channel.
        state.Restore(kIspThermal);
        return reply;
    }
    const bool stores = op == kOpWrite || (op == kOpCreate && command == 16);
    if (op != kOpRead && !stores) {
        reply.status = kStatusBadRequest;
        return reply;
    }
    if (stores && !state.Put(command, ch, content)) {
        reply.status = state.Get(command, ch) ? kStatusBadRequest : kStatusNoBlock;
        return reply;
    }
    const std::optional<Bytes> block = state.Get(command, ch);
    if (!block) {
        reply.status = kStatusNoBlock;
        return reply;
    }
    reply.content = *block;
    return reply;
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
    const auto [op, command, channel, content] = IspRequestOf(request);
    const std::optional<Fault> fault = g_sim->core.faults.Take(static_cast<int>(command), channel);

    Json entry(json_object_new_object());
    json_object_object_add(entry.get(), "service", json_object_new_string("isp"));
    json_object_object_add(entry.get(), "operation", json_object_new_string(OperationName(op)));
    json_object_object_add(entry.get(), "command", json_object_new_int(static_cast<int>(command)));
    json_object_object_add(entry.get(), "channel", channel ? json_object_new_int64(*channel) : nullptr);
    json_object_object_add(entry.get(), "request", json_object_new_string(ToHex(content).c_str()));
    if (fault) {
        json_object_object_add(entry.get(), "fault", json_object_new_string(FaultKindName(fault->kind)));
    }
    const FaultKind kind = fault ? fault->kind : FaultKind::Delay;
    if (fault && (kind == FaultKind::NoAnswer || kind == FaultKind::SendFailure)) {
        json_object_object_add(entry.get(), "reply", nullptr);
        json_object_object_add(entry.get(), "status", nullptr);
        g_sim->core.journal.Add(std::move(entry));
        if (kind == FaultKind::SendFailure) {
            return false;
        }
        // Held until the faults are cleared; then the session fails.
        std::thread([s] {
            g_sim->core.faults.WaitCleared(g_sim->core.stop);
            Break(*s);
        }).detach();
        return true;
    }

    IspReply reply;
    if (fault && kind == FaultKind::Status) {
        // A refused request changes nothing; a read still carries the block.
        reply.status = static_cast<uint16_t>(fault->value);
        reply.content = g_sim->state.Get(command, channel.value_or(0)).value_or(content);
    } else {
        reply = Perform(op, command, channel, content);
    }
    if (fault && kind == FaultKind::ShortContent) {
        const size_t keep = fault->value >= 0 ? static_cast<size_t>(fault->value) : reply.content.size() / 2;
        reply.content.resize(std::min(keep, reply.content.size()));
    }
    json_object_object_add(entry.get(), "reply", json_object_new_string(ToHex(reply.content).c_str()));
    json_object_object_add(entry.get(), "status", json_object_new_int(reply.status));
    g_sim->core.journal.Add(std::move(entry));

    const ReplyHead head{request->header->op, request->header->command, channel};
    if (fault && kind == FaultKind::Delay) {
        std::thread([s, head, reply, delayMs = fault->value] {
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
    return nullptr;
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
    std::lock_guard<std::mutex> guard(g_sim->sessionsLock);
    fi->fh = g_sim->nextSession++;
    g_sim->sessions[fi->fh] = s;
    return 0;
}

int SimRelease(const char*, fuse_file_info* fi)
{
    std::lock_guard<std::mutex> guard(g_sim->sessionsLock);
    g_sim->sessions.erase(fi->fh);
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
        if (fuse_session_exited(g_sim->fuseSession) || g_sim->core.stop) {
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

Json HandleLink(json_object* request)
{
    const std::string op = JsonString(request, "op").value_or("");
    if (Json core = HandleCoreRequest(g_sim->core, op, request, Service::Isp)) {
        return core;
    }
    if (op == "reset") {
        g_sim->state.Restore(0);
        g_sim->core.journal.Clear();
        g_sim->core.faults.Clear();
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
        if (!g_sim->state.Put(cmd, ch, *value)) {
            const std::optional<Bytes> block = g_sim->state.Get(cmd, ch);
            return JsonError(block ? "the block has " + std::to_string(block->size()) + " bytes"
                                   : std::string("the service has no such block"));
        }
    }
    const std::optional<Bytes> block = g_sim->state.Get(cmd, ch);
    if (!block) {
        return JsonError("the service has no such block");
    }
    return BlockToJson("isp", static_cast<int>(cmd), ch, *block);
}

}  // namespace

int RunIspSimulator(const DeviceImage& image, const char* mountDir, int linkFd)
{
    static IspSimulator sim(image);
    g_sim = &sim;

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
    fuse* fs = fuse_new(&args, &ops, sizeof(ops), nullptr);
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
        LinkServe(linkFd, HandleLink);
        fuse_session_exit(g_sim->fuseSession);
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
