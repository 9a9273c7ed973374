// Null platform of the benchmark: see null_platform.h.
#include "null_platform.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "ability.h"
#include "vw_log.h"
#include "wiro.h"

namespace bench {
namespace {

// ---- Heap allocations, counted per thread ----

__thread uint64_t t_allocs;
__thread uint64_t t_reallocs;

bool g_fixedRandom;

// ---- ISP service: one constant block per command ----

constexpr int kServiceFd = 0x5e5;

template <size_t N>
struct Block {
    uint8_t bytes[N] = {};
    template <class T>
    Block& Put(size_t offset, T value)
    {
        std::memcpy(bytes + offset, &value, sizeof(T));
        return *this;
    }
};

// Values a client would see on a working device: the thermal correction
// time and temperature are ones a PUT accepts.
const Block<608> kFakeRatio = Block<608>().Put(200, 0.75);
const Block<40> kCapability = Block<40>().Put(16, 1920.0).Put(24, 1080.0);
const Block<1240> kAf = Block<1240>()
                            .Put<uint8_t>(1044, 1)
                            .Put<uint32_t>(1048, 4)
                            .Put<uint32_t>(1052, 100)
                            .Put<uint32_t>(1056, 200)
                            .Put<uint32_t>(1060, 300)
                            .Put<uint32_t>(1064, 400)
                            .Put<uint32_t>(1068, 500)
                            .Put<uint32_t>(1072, 600)
                            .Put<uint32_t>(1076, 700)
                            .Put<uint32_t>(1080, 800)
                            .Put(1208, 2.5)
                            .Put(1216, 54.25)
                            .Put(1224, 31.5)
                            .Put<uint32_t>(1232, 1);
const Block<100> kThermal = Block<100>()
                                .Put<uint32_t>(0, 320)
                                .Put<uint32_t>(4, 240)
                                .Put<uint32_t>(20, 10)
                                .Put<uint32_t>(24, 3)
                                .Put<uint32_t>(28, 50)
                                .Put<uint32_t>(32, 50)
                                .Put<uint32_t>(72, 1)
                                .Put<uint32_t>(76, 2);
const Block<16> kAdapt = Block<16>().Put<uint32_t>(0, 3);

struct Content {
    const void* data;
    size_t size;
};

Content ServiceBlock(uint16_t command)
{
    switch (command) {
        case 5:
            return {kCapability.bytes, sizeof(kCapability.bytes)};
        case 6:
        case 7:
            return {kAdapt.bytes, sizeof(kAdapt.bytes)};
        case 17:
            return {kAf.bytes, sizeof(kAf.bytes)};
        case 25:
            return {kThermal.bytes, sizeof(kThermal.bytes)};
        case 28:
            return {kFakeRatio.bytes, sizeof(kFakeRatio.bytes)};
        default:
            return {nullptr, 0};
    }
}

// The one message of the calling thread: an exchange creates and releases
// its message before the next one starts.
struct NullMessage {
    wiro_message_t msg;
    Content content;
};
__thread NullMessage t_message;

// ---- Control process: one constant payload per command code ----

const Block<264> kAwbPayload = [] {
    Block<264> b;
    b.Put<uint32_t>(0, 101);
    std::memset(b.bytes + 8, '1', 16);
    return b;
}();
const Block<16> kExtreColorPayload = Block<16>().Put<uint32_t>(0, 101).Put<uint32_t>(8, 7);
const Block<64> kAdaptPayload =
    Block<64>().Put<uint32_t>(0, 101).Put<uint32_t>(16, 2).Put<uint32_t>(32, 5).Put<int32_t>(48, 1);

Content Payload(int code)
{
    switch (code) {
        case VW_CMD_AWB:
            return {kAwbPayload.bytes, sizeof(kAwbPayload.bytes)};
        case VW_CMD_EXTRE_COLOR:
            return {kExtreColorPayload.bytes, sizeof(kExtreColorPayload.bytes)};
        case VW_CMD_ADAPT_CONFIG_GET:
            return {kAdaptPayload.bytes, sizeof(kAdaptPayload.bytes)};
        default:
            return {nullptr, 0};
    }
}

}  // namespace

AllocCount Allocations() { return {t_allocs, t_reallocs}; }

void FixRandomBytes() { g_fixedRandom = true; }

Request::Request(const char* method, const char* url, const char* body)
{
    std::strncpy(header.szMethod, method, sizeof(header.szMethod) - 1);
    std::strncpy(header.szUrl, url, sizeof(header.szUrl) - 1);
    std::strncpy(header.szOpUser, "admin", sizeof(header.szOpUser) - 1);
    std::strncpy(header.szOpAddr, "192.0.2.7", sizeof(header.szOpAddr) - 1);
    header.ullOpPort = 50123;
    content.pcBody = const_cast<char*>(body);
    sock.iFd = -1;
    client.pstSynSock = &sock;
    HTTP_InitBuf(&buf, storage, sizeof(storage));
}

void Request::End()
{
    for (void*& slot : ctx.apvSlot) {
        std::free(slot);
        slot = nullptr;
    }
    buf.ulLength = 0;
    storage[0] = '\0';
}

}  // namespace bench

using bench::t_message;

extern "C" {

// ---- Allocation counting: the C library's allocator, one count per call ----

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) noexcept
{
    ++bench::t_allocs;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept
{
    ++bench::t_allocs;
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) noexcept
{
    ++bench::t_reallocs;
    return __libc_realloc(block, size);
}

// ---- Random bytes: the kernel's, or a constant once fixed ----

__attribute__((visibility("default"))) ssize_t getrandom(void* buf, size_t size, unsigned flags)
{
    if (bench::g_fixedRandom) {
        std::memset(buf, 0x5a, size);
        return static_cast<ssize_t>(size);
    }
    return syscall(SYS_getrandom, buf, size, flags);
}

// ---- The service node: open and close of it do nothing ----

int __real_open(const char* path, int flags, ...);
int __real_close(int fd);

int __wrap_open(const char* path, int flags, ...)
{
    if (std::strcmp(path, "/mnt/srvfs/isp.iaas.qtn") == 0) {
        return bench::kServiceFd;
    }
    va_list ap;
    va_start(ap, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(ap, int) : 0;
    va_end(ap);
    return __real_open(path, flags, mode);
}

int __wrap_open64(const char* path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(ap, int) : 0;
    va_end(ap);
    return __wrap_open(path, flags, mode);
}

int __wrap_close(int fd) { return fd == bench::kServiceFd ? 0 : __real_close(fd); }

// ---- The framed message library ----

wiro_message_t* wiro_message_new(int /*flags*/)
{
    t_message = {};
    t_message.msg.header = &t_message.msg.header_storage;
    t_message.msg.header_storage.version = WIRO_VERSION;
    return &t_message.msg;
}

void wiro_message_put(wiro_message_t* /*msg*/) {}

int wiro_header_set(wiro_message_t* /*msg*/, int /*key*/, const void* /*value*/, size_t /*len*/) { return 0; }

const void* wiro_header_get(const wiro_message_t* /*msg*/, int /*key*/, size_t* len)
{
    if (len != nullptr) {
        *len = 0;
    }
    return nullptr;
}

int wiro_content_add(wiro_message_t* /*msg*/, const void* data, size_t size, int /*flags*/)
{
    t_message.content = {data, size};
    return 0;
}

int wiro_content_copy(const wiro_message_t* /*msg*/, void* buf, size_t size)
{
    const bench::Content& c = t_message.content;
    if (c.size > size) {
        return -1;
    }
    std::memmove(buf, c.data, c.size);
    return static_cast<int>(c.size);
}

int wiro_message_sendfd(wiro_message_t* /*msg*/, int /*fd*/)
{
    return static_cast<int>(WIRO_FRAME_FIXED + t_message.content.size);
}

int wiro_message_sendfd_timeout(wiro_message_t* msg, int fd, int /*timeout_ms*/)
{
    return wiro_message_sendfd(msg, fd);
}

// A read is answered with the command's block, a write or a create with its
// own content, a reset with none.
int wiro_message_recvfd(wiro_message_t* msg, int /*fd*/)
{
    wiro_header_t* h = msg->header;
    switch (h->op & WIRO_OP_MASK) {
        case 2:
            t_message.content = bench::ServiceBlock(h->command);
            break;
        case 0:
            t_message.content = {nullptr, 0};
            break;
        default:
            break;
    }
    h->code = 200;
    h->op = static_cast<uint8_t>(h->op | WIRO_OP_REPLY);
    return static_cast<int>(WIRO_FRAME_FIXED + t_message.content.size);
}

int wiro_message_recvfd_timeout(wiro_message_t* msg, int fd, int /*timeout_ms*/)
{
    return wiro_message_recvfd(msg, fd);
}

// ---- The log drops every line ----

void VW_SetLogSink(VW_LOG_SINK_PF /*sink*/, void* /*user*/) {}
void VW_WriteLog(int, int, int, int, const char*, int, const char*, ...) {}
void VW_WriteLanguageLog(int, int, const char*, const char*, ...) {}

// ---- The device ability library ----

int GetDeviceAbility(DEVICE_ABILITY_S* ability)
{
    static const ABILITY_RANGE_S kRanges[ABILITY_RANGE_COUNT] = {{0, 100}, {0, 100}, {0, 100}, {0, 100}, {0, 255}};
    std::memcpy(ability->aucData + DEVICE_ABILITY_RANGES_OFFSET - 8, kRanges, sizeof(kRanges));
    return 0;
}

}  // extern "C"

// ---- The control process answers at once ----

extern "C" uint64_t __wrap_RestSendSynUnixMsg(const char* /*path*/, VW_MSG_TYPE type, VW_CMD_TYPE code,
                                              const vwCmdBody* /*body*/, tagUNIX_SOCKET_S* /*sock*/, MSG_DATA* reply,
                                              uint64_t /*timeout*/)
{
    if (type == VW_MSG_READ) {
        const bench::Content payload = bench::Payload(code);
        std::memcpy(reply->aucData + 200, payload.data, payload.size);
    }
    const int32_t recvMsg = code + 1;
    const int32_t result = 0;
    std::memcpy(reply->aucData + 164, &recvMsg, sizeof(recvMsg));
    std::memcpy(reply->aucData + 176, &result, sizeof(result));
    return 0;
}
