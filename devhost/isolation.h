// The development host's private view of the file system: the simulators'
// "/mnt/srvfs" and "/tmp/A" exist only inside it.
#ifndef DEVHOST_ISOLATION_H
#define DEVHOST_ISOLATION_H

#include <string>

namespace devhost {

// Moves the calling process (single-threaded still) into a private mount
// namespace - as root directly, otherwise through a user namespace - with
// empty memory file systems over /tmp and /mnt and the directory
// /mnt/srvfs. Mounts made there are never seen outside, and go when the
// last process in the namespace ends. False with `error` saying what is
// needed when the machine does not allow it.
bool EnterPrivateMounts(std::string& error);

// True when /dev/fuse can be opened; otherwise `error` says why.
bool FuseAvailable(std::string& error);

}  // namespace devhost

#endif  // DEVHOST_ISOLATION_H
