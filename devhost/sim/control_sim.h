// The simulated control process: the synchronous command channel on the Unix
// socket "/tmp/A", in the frame that RestSendSynUnixMsg speaks.
#ifndef DEVHOST_CONTROL_SIM_H
#define DEVHOST_CONTROL_SIM_H

#include "places.h"
#include "profile.h"

namespace devhost {

// Result of a command code the control process does not know.
inline constexpr int kControlUnknownCommand = 22;

// Runs the control process in the calling process until the host's link on
// linkFd closes. Returns the exit status.
int RunControlSimulator(const DeviceImage& image, const char* socketPath, int linkFd);

}  // namespace devhost

#endif  // DEVHOST_CONTROL_SIM_H
