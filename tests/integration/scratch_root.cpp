#include "scratch_root.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

// Every directory of `path` below `root`, made as needed.
bool MakePath(const std::string& root, const std::string& path)
{
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string dir = root + path.substr(0, slash);
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
        if (slash == std::string::npos) {
            return true;
        }
    }
}

// What a root needs to run a built program: the system's directories (their
// symbolic links copied), the devices, the processes and the build tree.
bool Populate(const std::string& root)
{
    for (const char* dir : {"/tmp", "/mnt"}) {
        if (mkdir((root + dir).c_str(), 0755) != 0) {
            return false;
        }
    }
    for (const char* top :
         {"/usr", "/etc", "/dev", "/proc", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", ISPIAAS_BUILD_DIR}) {
        struct stat st {};
        if (lstat(top, &st) != 0) {
            continue;
        }
        const std::string at = root + top;
        if (S_ISLNK(st.st_mode)) {
            char target[PATH_MAX];
            const ssize_t n = readlink(top, target, sizeof(target) - 1);
            if (n < 0 || symlink(std::string(target, static_cast<size_t>(n)).c_str(), at.c_str()) != 0) {
                return false;
            }
        } else if (!MakePath(root, top) || mount(top, at.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            return false;
        }
    }
    return true;
}

// The holder: answers one byte when the root is ready (none when it failed),
// then waits for the end of `hold`.
[[noreturn]] void Hold(const std::string& dir, int ready, int hold)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string root = dir + "/root";
    const bool made = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      mount("ispiaas-scratch", dir.c_str(), "tmpfs", 0, "mode=755,size=1m") == 0 &&
                      mount(nullptr, dir.c_str(), nullptr, MS_SHARED, nullptr) == 0 && mkdir(root.c_str(), 0755) == 0 &&
                      Populate(root);
    if (made && write(ready, "1", 1) == 1) {
        char c;
        while (read(hold, &c, 1) > 0) {
        }
    }
    _exit(made ? 0 : 1);
}

}  // namespace

ScratchRoot::ScratchRoot()
{
    char dir[] = "/tmp/ispiaas-root-XXXXXX";
    if (geteuid() != 0) {
        problem_ = "a chroot needs root";
        return;
    }
    // Inside a chroot the root is no mount point either: the host started
    // on the "whole machine" is then the chrooted host, with the mounts
    // around it as they are.
    const std::vector<std::string> mounts = MountTable(getpid());
    if (std::none_of(mounts.begin(), mounts.end(), [](const std::string& m) { return m.rfind("/ ", 0) == 0; })) {
        problem_ = "the tests run in a chroot already";
        return;
    }
    if (mkdtemp(dir) == nullptr) {
        problem_ = std::string("mkdtemp: ") + std::strerror(errno);
        return;
    }
    dir_ = dir;
    rootPath_ = dir_ + "/root";
    int ready[2];
    int hold[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(hold, O_CLOEXEC) != 0) {
        problem_ = "pipe2";
        return;
    }
    holder_ = fork();
    if (holder_ == 0) {
        close(ready[0]);
        close(hold[1]);
        Hold(dir_, ready[1], hold[0]);
    }
    close(ready[1]);
    close(hold[0]);
    hold_ = hold[1];
    char c;
    const bool made = holder_ > 0 && read(ready[0], &c, 1) == 1;
    close(ready[0]);
    if (!made) {
        problem_ = "the holder could not set up the scratch root under " + dir_;
    }
    namespacePath_ = "/proc/" + std::to_string(holder_) + "/ns/mnt";
}

ScratchRoot::~ScratchRoot()
{
    if (hold_ >= 0) {
        close(hold_);
    }
    if (holder_ > 0) {
        waitpid(holder_, nullptr, 0);
    }
    if (!dir_.empty()) {
        rmdir(dir_.c_str());
    }
}

bool ScratchRoot::Enter() const
{
    const int ns = open(namespacePath_.c_str(), O_RDONLY | O_CLOEXEC);
    const bool joined = ns >= 0 && setns(ns, CLONE_NEWNS) == 0;
    if (ns >= 0) {
        close(ns);
    }
    return joined && chroot(rootPath_.c_str()) == 0 && chdir("/") == 0;
}

std::string ScratchRoot::Outside() const { return "/proc/" + std::to_string(holder_) + "/root" + rootPath_; }

std::vector<std::string> MountTable(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/mountinfo");
    std::vector<std::string> table;
    for (std::string line; std::getline(in, line);) {
        // id parent dev root mount-point options [optional...] - type source super-options
        std::istringstream fields(line);
        std::string skip, point, field, type, source;
        fields >> skip >> skip >> skip >> skip >> point;
        while (fields >> field && field != "-") {
        }
        fields >> type >> source;
        table.push_back(point + " " + type + " " + source);
    }
    return table;
}
