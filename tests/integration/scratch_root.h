// A chroot for the development host, set up the way a machine with shared
// mounts (as systemd makes them) holds one: a directory that is no mount
// point, inside a shared memory file system, with bind mounts of the system
// directories, /dev, /proc and the build tree.
#ifndef TESTS_SCRATCH_ROOT_H
#define TESTS_SCRATCH_ROOT_H

#include <sys/types.h>

#include <string>
#include <vector>

class ScratchRoot {
public:
    // Forks the holder: a process in a mount namespace of its own (so that
    // nothing here reaches the machine) that keeps the mounts until the end.
    ScratchRoot();
    ~ScratchRoot();
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    // Empty once ready, else why it is not.
    const std::string& Problem() const { return problem_; }
    pid_t Holder() const { return holder_; }
    // In a forked child about to exec: joins the holder's mount namespace and
    // makes the directory its root. Async-signal-safe.
    bool Enter() const;
    // The directory as the holder's namespace sees it, reachable from here.
    std::string Outside() const;

private:
    std::string dir_;            // under /tmp; the memory file system's mount point
    std::string rootPath_;       // dir_ + "/root"
    std::string namespacePath_;  // the holder's /proc/PID/ns/mnt
    pid_t holder_ = -1;
    int hold_ = -1;  // closing it ends the holder
    std::string problem_;
};

// The mount table of a process's namespace: each mount as its mount point,
// type and source.
std::vector<std::string> MountTable(pid_t pid);

#endif  // TESTS_SCRATCH_ROOT_H
