// One request to a resource of the module: the host records, the stages in
// the order the module expects, the response.
#ifndef DEVHOST_STAGE_RUNNER_H
#define DEVHOST_STAGE_RUNNER_H

#include <string>

#include "stage_table.h"

namespace devhost {

// The operation-log user of every request (see docs/DEVHOST.md).
inline constexpr const char* kOperationLogUser = "admin";

struct StageRequest {
    bool put = false;
    std::string url;   // the request target with its query, as the client sent it
    std::string body;  // PUT only
    std::string clientAddress;
    unsigned clientPort = 0;
    int connectionFd = -1;
};

struct StageAnswer {
    unsigned httpStatus = 0;
    std::string body;
    int result = 0;        // of the last stage before Format (of RunPut for a reset)
    int formatResult = 0;  // of the Format stage, or of the status envelope of a reset
};

// Runs the stages of one request on the calling thread, frees the context's
// records and makes the response.
StageAnswer RunStages(const Resource& resource, const StageRequest& request);

}  // namespace devhost

#endif  // DEVHOST_STAGE_RUNNER_H
