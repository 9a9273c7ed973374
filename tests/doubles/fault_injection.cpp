// Interception of the module's allocation, file and bounds-checked calls
// (linked with --wrap), with failures a test can arm.
#include <fcntl.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include "doubles.h"
#include <json-c/json.h>
#include "securec.h"

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t n, size_t size);
int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real_close(int fd);
errno_t __real_memset_s(void* dest, size_t destMax, int c, size_t count);
errno_t __real_memcpy_s(void* dest, size_t destMax, const void* src, size_t count);
errno_t __real_strncpy_s(char* dest, size_t destMax, const char* src, size_t count);
json_object* __real_json_object_new_object(void);
}

namespace doubles {
namespace {

constexpr size_t kCalls = 6;

struct Arm {
    std::atomic<int> count{0};
    std::atomic<int> failAt{0};
    std::atomic<int> code{0};
};

std::array<Arm, kCalls> g_arms;
std::atomic<int> g_fill{-1};

Arm& ArmOf(Call call) { return g_arms[static_cast<size_t>(call)]; }

// Counts the call; true when this is the one armed to fail.
bool Trips(Call call)
{
    Arm& arm = ArmOf(call);
    const int n = ++arm.count;
    return arm.failAt.load() != 0 && n == arm.failAt.load();
}

// Descriptors handed out for the ISP service node; far above real ones.
constexpr int kFirstFakeFd = 9000;

}  // namespace

void FailNth(Call call, int n, int code)
{
    Arm& arm = ArmOf(call);
    arm.failAt = arm.count + n;
    arm.code = code;
}

int CallCount(Call call) { return ArmOf(call).count; }

void ResetFaults()
{
    for (Arm& arm : g_arms) {
        arm.count = 0;
        arm.failAt = 0;
        arm.code = 0;
    }
    g_fill = -1;
}

void FillAllocations(uint8_t pattern) { g_fill = pattern; }

}  // namespace doubles

using doubles::Call;

extern "C" {

void* __wrap_malloc(size_t size)
{
    void* block = doubles::Trips(Call::Malloc) ? nullptr : __real_malloc(size);
    const int fill = doubles::g_fill;
    return block != nullptr && fill >= 0 ? std::memset(block, fill, size) : block;
}

void* __wrap_calloc(size_t n, size_t size) { return doubles::Trips(Call::Calloc) ? nullptr : __real_calloc(n, size); }

static int OpenIspNode(int flags)
{
    const auto hold = doubles::LockIsp();
    auto& isp = doubles::Isp();
    if (isp.failStep == doubles::SrvStep::Open) {
        errno = ENOENT;
        return -1;
    }
    isp.openFlags.push_back(flags);
    return doubles::kFirstFakeFd + isp.opens++;
}

// The ISP service node is the scripted service's; every other path is
// opened for real.
static int OpenPath(int (*real)(const char*, int, ...), const char* path, int flags, va_list ap)
{
    if (std::strcmp(path, "/mnt/srvfs/isp.iaas.qtn") == 0) {
        return OpenIspNode(flags);
    }
    const int mode = (flags & O_CREAT) != 0 ? va_arg(ap, int) : 0;
    return real(path, flags, mode);
}

// open and open64 alike.
#define WRAP_OPEN(real)                                          \
    int __wrap_##real(const char* path, int flags, ...)          \
    {                                                            \
        va_list ap;                                              \
        va_start(ap, flags);                                     \
        const int fd = OpenPath(__real_##real, path, flags, ap); \
        va_end(ap);                                              \
        return fd;                                               \
    }
WRAP_OPEN(open)
WRAP_OPEN(open64)

int __wrap_close(int fd)
{
    if (fd >= doubles::kFirstFakeFd) {
        const auto hold = doubles::LockIsp();
        doubles::Isp().closes++;
        return 0;
    }
    return __real_close(fd);
}

errno_t __wrap_memset_s(void* dest, size_t destMax, int c, size_t count)
{
    if (doubles::Trips(Call::MemsetS)) {
        return doubles::ArmOf(Call::MemsetS).code;
    }
    return __real_memset_s(dest, destMax, c, count);
}

errno_t __wrap_memcpy_s(void* dest, size_t destMax, const void* src, size_t count)
{
    if (doubles::Trips(Call::MemcpyS)) {
        return doubles::ArmOf(Call::MemcpyS).code;
    }
    return __real_memcpy_s(dest, destMax, src, count);
}

errno_t __wrap_strncpy_s(char* dest, size_t destMax, const char* src, size_t count)
{
    if (doubles::Trips(Call::StrncpyS)) {
        return doubles::ArmOf(Call::StrncpyS).code;
    }
    return __real_strncpy_s(dest, destMax, src, count);
}

json_object* __wrap_json_object_new_object(void)
{
    return doubles::Trips(Call::NewObject) ? nullptr : __real_json_object_new_object();
}

}  // extern "C"
