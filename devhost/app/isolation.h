// The development host's private view of the file system: the simulators'
// "/mnt/srvfs" and "/tmp/A" exist only inside it.
#ifndef DEVHOST_ISOLATION_H
#define DEVHOST_ISOLATION_H

#include <string>

namespace devhost {

// How an attempt to isolate the host ended.
enum class Isolation {
    kEntered,
    kForbidden,  // the machine allows no private mount namespace to this process
    kFailed,
};

// Moves the calling process (single-threaded still) into a private mount
// namespace - as root directly, otherwise through a user namespace - with
// empty memory file systems over /tmp and /mnt and the directory
// /mnt/srvfs. Works on a whole machine and inside a chroot alike. Mounts
// made there are never seen outside, and go when the last process in the
// namespace ends. Unless entered, `error` says what is missing or failed.
Isolation EnterPrivateMounts(std::string& error);

// True when /dev/fuse can be opened; otherwise `error` says why.
bool FuseAvailable(std::string& error);

}  // namespace devhost

#endif  // DEVHOST_ISOLATION_H
