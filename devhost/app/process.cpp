#include "process.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>

namespace devhost {

void TuneAllocator()
{
    mallopt(M_ARENA_MAX, 2);
    // A fixed threshold also turns glibc's dynamic one off.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

void RaiseDescriptorLimit()
{
    constexpr rlim_t kEnough = 65536;
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < std::min(files.rlim_max, kEnough)) {
        files.rlim_cur = std::min(files.rlim_max, kEnough);
        setrlimit(RLIMIT_NOFILE, &files);
    }
}

}  // namespace devhost
