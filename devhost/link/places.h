// Where the camera's two services are reached: the places the host's
// records name for the module and the simulators serve (inside the host's
// private mounts, never the machine's own).
#ifndef DEVHOST_LINK_PLACES_H
#define DEVHOST_LINK_PLACES_H

namespace devhost {

// The directory of the ISP service's node "/mnt/srvfs/isp.iaas.qtn".
inline constexpr const char* kIspNodeDir = "/mnt/srvfs";
// The control process's Unix socket.
inline constexpr const char* kControlSocketPath = "/tmp/A";

}  // namespace devhost

#endif  // DEVHOST_LINK_PLACES_H
