// The framed-message library as the unit tests see it: each message carries
// what the module put in it, and the scripted ISP service answers a receive.
#include <cerrno>
#include <cstdlib>

#include "doubles.h"
#include "wiro.h"

namespace doubles {
namespace {

ScriptedIsp g_isp;
std::mutex g_ispLock;

// What the module put into a message, kept beside the wiro record.
struct Draft : wiro_message_t {
    bool hasChannel = false;
    uint32_t channel = 0;
    std::vector<uint8_t> content;
    SrvRequest sent{};
};

Draft* DraftOf(wiro_message_t* msg) { return static_cast<Draft*>(msg); }

bool Fails(SrvStep step)
{
    if (g_isp.failStep != step) {
        return false;
    }
    errno = EIO;
    return true;
}

int Send(wiro_message_t* msg, bool timed, int timeout)
{
    const auto hold = LockIsp();
    if (Fails(SrvStep::Send)) {
        return -1;
    }
    Draft* d = DraftOf(msg);
    const wiro_header_t* h = msg->header;
    d->sent = SrvRequest{static_cast<uint8_t>(h->op & WIRO_OP_MASK),
                         static_cast<uint8_t>(h->op & WIRO_OP_REPLY),
                         h->reserved,
                         h->command,
                         d->hasChannel,
                         d->channel,
                         d->content,
                         timed,
                         timeout};
    g_isp.requests.push_back(d->sent);
    return static_cast<int>(WIRO_FRAME_FIXED + d->content.size());
}

int Receive(wiro_message_t* msg, bool /*timed*/)
{
    const auto hold = LockIsp();
    if (Fails(SrvStep::Recv)) {
        return -1;
    }
    Draft* d = DraftOf(msg);
    const SrvReply reply = g_isp.answer ? g_isp.answer(d->sent) : g_isp.Serve(d->sent);
    msg->header->code = reply.status;
    msg->header->op = static_cast<uint8_t>(msg->header->op | WIRO_OP_REPLY);
    d->content = reply.content;
    return static_cast<int>(WIRO_FRAME_FIXED + d->content.size());
}

}  // namespace

ScriptedIsp& Isp() { return g_isp; }

std::unique_lock<std::mutex> LockIsp() { return std::unique_lock<std::mutex>(g_ispLock); }

void ScriptedIsp::Reset() { *this = ScriptedIsp(); }

SrvReply ScriptedIsp::Serve(const SrvRequest& request)
{
    const auto key = std::make_pair(request.command, request.channel);
    SrvReply reply;
    if (request.op == 3) {
        blocks[key] = request.content;
        reply.content = request.content;
        return reply;
    }
    auto found = blocks.find(key);
    reply.content = found != blocks.end() ? found->second : std::vector<uint8_t>(request.content.size(), 0);
    return reply;
}

Request::Request(const char* method, const char* url, const char* text)
{
    std::strncpy(header.szMethod, method, sizeof(header.szMethod) - 1);
    std::strncpy(header.szUrl, url, sizeof(header.szUrl) - 1);
    std::strncpy(header.szOpUser, "admin", sizeof(header.szOpUser) - 1);
    std::strncpy(header.szOpAddr, "192.0.2.7", sizeof(header.szOpAddr) - 1);
    header.ullOpPort = (1ull << 40) + 7;  // above 32 bits: a value passed in the wrong width shifts the rest
    if (text != nullptr) {
        body = text;
        content.pcBody = body.data();
        content.ulContentLen = body.size();
    }
    client.pstSynSock = &sock;
    HTTP_InitBuf(&buf, storage, sizeof(storage));
}

Request::~Request()
{
    for (void* slot : ctx.apvSlot) {
        std::free(slot);
    }
}

int Invoke(const AnyStage& s, Request& r, VW_RESULT_TYPE result, int nullArg)
{
    tagHTTP_HEADER_S* header = nullArg == 0 ? nullptr : &r.header;
    tagHTTP_CNTENT_INTER_S* ctx =
        (nullArg == 2 && s.format == nullptr) || (nullArg == 1 && s.format != nullptr) ? nullptr : &r.ctx;
    const bool second = nullArg != 1;
    if (s.parse != nullptr) {
        return s.parse(header, second ? &r.content : nullptr, ctx);
    }
    if (s.preProc != nullptr) {
        return s.preProc(header, second ? &r.sock : nullptr, ctx);
    }
    if (s.run != nullptr) {
        return s.run(header, second ? &r.client : nullptr, ctx);
    }
    return s.format(header, result, ctx, nullArg == 2 ? nullptr : &r.buf);
}

Outcome Perform(const Flow& f, Request& r)
{
    int rc = f.preProc != nullptr ? f.preProc(&r.header, &r.sock, &r.ctx) : 0;
    if (rc == 0 && f.parse != nullptr) {
        rc = f.parse(&r.header, &r.content, &r.ctx);
    }
    if (rc == 0 && f.run != nullptr) {
        rc = f.run(&r.header, &r.client, &r.ctx);
    }
    return {rc, f.format != nullptr ? f.format(&r.header, rc, &r.ctx, &r.buf) : 0};
}

void ResetAll()
{
    ResetFaults();
    ClearLogs();
    g_isp.Reset();
    Control().Reset();
    g_enDebugFlag = VW_DEBUG_OFF;
}

}  // namespace doubles

using doubles::Draft;
using doubles::Fails;
using doubles::SrvStep;

extern "C" {

wiro_message_t* wiro_message_new(int /*flags*/)
{
    if (Fails(SrvStep::New)) {
        return nullptr;
    }
    auto* d = new Draft();
    *static_cast<wiro_message_t*>(d) = wiro_message_t{};
    const auto hold = doubles::LockIsp();
    d->header = &d->header_storage;
    d->header_storage.version = WIRO_VERSION;
    // The library's own bits in the operation byte must survive the module.
    d->header_storage.op = WIRO_OP_REPLY;
    d->header_storage.reserved = 0x5a;
    doubles::g_isp.messagesLive++;
    return d;
}

void wiro_message_put(wiro_message_t* msg)
{
    if (msg != nullptr) {
        const auto hold = doubles::LockIsp();
        doubles::g_isp.messagesLive--;
        delete doubles::DraftOf(msg);
    }
}

int wiro_header_set(wiro_message_t* msg, int key, const void* value, size_t len)
{
    if (Fails(SrvStep::HeaderSet)) {
        return -1;
    }
    if (key == 100 && len == 4) {
        Draft* d = doubles::DraftOf(msg);
        d->hasChannel = true;
        std::memcpy(&d->channel, value, 4);
    }
    return 0;
}

const void* wiro_header_get(const wiro_message_t*, int, size_t*) { return nullptr; }

int wiro_content_add(wiro_message_t* msg, const void* data, size_t size, int /*flags*/)
{
    if (Fails(SrvStep::ContentAdd)) {
        return -1;
    }
    auto& content = doubles::DraftOf(msg)->content;
    const auto* bytes = static_cast<const uint8_t*>(data);
    content.insert(content.end(), bytes, bytes + size);
    return 0;
}

int wiro_content_copy(const wiro_message_t* msg, void* buf, size_t size)
{
    const auto& content = static_cast<const Draft*>(msg)->content;
    if (content.size() > size) {
        return -1;
    }
    if (!content.empty()) {
        std::memcpy(buf, content.data(), content.size());
    }
    return static_cast<int>(content.size());
}

int wiro_message_sendfd(wiro_message_t* msg, int /*fd*/) { return doubles::Send(msg, false, -1); }
int wiro_message_sendfd_timeout(wiro_message_t* msg, int /*fd*/, int timeout_ms)
{
    return doubles::Send(msg, true, timeout_ms);
}
int wiro_message_recvfd(wiro_message_t* msg, int /*fd*/) { return doubles::Receive(msg, false); }
int wiro_message_recvfd_timeout(wiro_message_t* msg, int /*fd*/, int /*timeout_ms*/)
{
    return doubles::Receive(msg, true);
}

}  // extern "C"
