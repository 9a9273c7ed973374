// The simulated ISP service: the node "/mnt/srvfs/isp.iaas.qtn" served
// through FUSE, one session per open, one framed request per write, its reply
// for the reads that follow.
#ifndef DEVHOST_ISP_SIM_H
#define DEVHOST_ISP_SIM_H

#include "places.h"
#include "profile.h"

namespace devhost {

inline constexpr const char* kIspNodeName = "isp.iaas.qtn";

// Runs the service in the calling process until it is told to stop (SIGINT,
// SIGTERM) or the host's link closes: mounts the node's directory at
// mountDir, answers the host's link on linkFd. Returns the exit status.
int RunIspSimulator(const DeviceImage& image, const char* mountDir, int linkFd);

}  // namespace devhost

#endif  // DEVHOST_ISP_SIM_H
