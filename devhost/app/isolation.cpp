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
Isolation EnterUserNamespace(std::string& error)
{
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        error = SystemError(
                    "a private mount namespace needs root, or unprivileged user namespaces "
                    "(sysctl kernel.unprivileged_userns_clone=1) outside a chroot; unshare") +
                "; run scripts/run as root";
        return Isolation::kForbidden;
    }
    if (!WriteFile("/proc/self/setgroups", "deny") ||
        !WriteFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
        !WriteFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) {
        error = SystemError("cannot map the user into its user namespace");
        return Isolation::kFailed;
    }
    return Isolation::kEntered;
}

// Goes up from the working directory to the top of the mount namespace:
// where "." and ".." are one directory.
bool ClimbToTheTop()
{
    for (;;) {
        struct stat here {};
        struct stat up {};
        if (stat(".", &here) != 0 || stat("..", &up) != 0) {
            return false;
        }
        if (here.st_dev == up.st_dev && here.st_ino == up.st_ino) {
            return true;
        }
        if (chdir("..") != 0) {
            return false;
        }
    }
}

// Makes every mount of the new namespace private, so that nothing mounted
// in it propagates to the namespace it was copied from. Only the root of a
// mount takes that change, and inside a chroot "/" is a directory within
// some mount: there the process steps out to the namespace's own root (a
// root moved below the working directory lets ".." climb past it; the
// namespace is this process's alone), changes the mounts from there and
// returns to its root and working directory.
bool MakeMountsPrivate(std::string& error)
{
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
        return true;
    }
    if (errno != EINVAL) {
        error = SystemError("cannot make the mounts private");
        return false;
    }
    const int root = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool left = root >= 0 && cwd >= 0 && chdir("/") == 0 && chroot("/tmp") == 0;
    const bool made =
        left && ClimbToTheTop() && chroot(".") == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!made) {
        error = SystemError("cannot make the mounts private from the root of the mount namespace (in a chroot)");
    }
    // Back into the chroot, whatever happened.
    const bool back = (!left || (fchdir(root) == 0 && chroot(".") == 0)) && (cwd < 0 || fchdir(cwd) == 0);
    if (!back) {
        error = SystemError("cannot return into the chroot");
    }
    for (const int fd : {root, cwd}) {
        if (fd >= 0) {
            close(fd);
        }
    }
    return made && back;
}

}  // namespace

Isolation EnterPrivateMounts(std::string& error)
{
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0) {
            error = SystemError("this machine allows no private mount namespace (unshare)");
            return Isolation::kForbidden;
        }
    } else if (const Isolation entered = EnterUserNamespace(error); entered != Isolation::kEntered) {
        return entered;
    }
    if (!MakeMountsPrivate(error)) {
        return Isolation::kFailed;
    }
    if (mount("ispiaas-tmp", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=16m") != 0 ||
        mount("ispiaas-mnt", "/mnt", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755,size=1m") != 0) {
        error = SystemError("cannot mount private memory file systems over /tmp and /mnt");
        return Isolation::kFailed;
    }
    if (mkdir("/mnt/srvfs", 0755) != 0) {
        error = SystemError("cannot make /mnt/srvfs");
        return Isolation::kFailed;
    }
    return Isolation::kEntered;
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
