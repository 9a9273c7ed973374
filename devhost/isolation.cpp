#include "isolation.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace devhost {

namespace {

bool WriteFile(const char* path, const std::string& text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return ok;
}

std::string SystemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// Makes the caller root of a new user namespace, mapped to its own user.
bool EnterUserNamespace(std::string& error)
{
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        error = SystemError("a private mount namespace needs root or unprivileged user namespaces "
                            "(sysctl kernel.unprivileged_userns_clone=1); unshare") +
                "; run scripts/run as root";
        return false;
    }
    if (!WriteFile("/proc/self/setgroups", "deny") ||
        !WriteFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
        !WriteFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) {
        error = SystemError("cannot map the user into its user namespace");
        return false;
    }
    return true;
}

}  // namespace

bool EnterPrivateMounts(std::string& error)
{
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0) {
            error = SystemError("cannot make a private mount namespace (unshare)");
            return false;
        }
    } else if (!EnterUserNamespace(error)) {
        return false;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        error = SystemError("cannot make the mounts private");
        return false;
    }
    if (mount("ispiaas-tmp", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=16m") != 0 ||
        mount("ispiaas-mnt", "/mnt", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755,size=1m") != 0) {
        error = SystemError("cannot mount private memory file systems over /tmp and /mnt");
        return false;
    }
    if (mkdir("/mnt/srvfs", 0755) != 0) {
        error = SystemError("cannot make /mnt/srvfs");
        return false;
    }
    return true;
}

bool FuseAvailable(std::string& error)
{
    const int fd = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        error = SystemError("this machine offers no FUSE (/dev/fuse)");
        return false;
    }
    close(fd);
    return true;
}

}  // namespace devhost
