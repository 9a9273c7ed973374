#include "stage_runner.h"

#include <cstdlib>
#include <vector>

#include "places.h"

namespace devhost {

namespace {

// Larger than any response of the module.
constexpr size_t kResponseCapacity = 64 * 1024;

template <size_t N>
void CopyText(char (&dest)[N], const std::string& text)
{
    const size_t len = text.size() < N - 1 ? text.size() : N - 1;
    text.copy(dest, len);
    dest[len] = '\0';
}

}  // namespace

StageAnswer RunStages(const Resource& resource, const StageRequest& request)
{
    tagHTTP_HEADER_S header{};
    CopyText(header.szMethod, request.put ? "PUT" : "GET");
    CopyText(header.szUrl, request.url);
    CopyText(header.szOpUser, kOperationLogUser);
    CopyText(header.szOpAddr, request.clientAddress);
    header.ullOpPort = request.clientPort;

    std::string bodyText = request.body;  // pcBody is not const
    tagHTTP_CONTENT_S content{};
    content.ulContentLen = bodyText.size();
    content.ulReceived = bodyText.size();
    content.ulBufSize = bodyText.size() + 1;
    content.pcBody = bodyText.data();

    // Each command connects to the control process's path on its own.
    tagUNIX_SOCKET_S synSock{};
    synSock.iFd = -1;
    CopyText(synSock.szPath, kControlSocketPath);
    tagHTTP_CLIENT_S client{request.connectionFd, &synSock};

    tagHTTP_CNTENT_INTER_S context{};
    std::vector<char> storage(kResponseCapacity);
    tagHTTP_BUF_S buf{};
    HTTP_InitBuf(&buf, storage.data(), storage.size());

    StageAnswer answer;
    if (!request.put) {
        answer.result = resource.runGet(&header, &client, &context);
        answer.formatResult = resource.formatGet(&header, answer.result, &context, &buf);
    } else {
        int result = 0;
        if (resource.preProcPut != nullptr) {
            result = resource.preProcPut(&header, &synSock, &context);
        }
        if (result == 0 && resource.parsePut != nullptr) {
            result = resource.parsePut(&header, &content, &context);
        }
        if (result == 0) {
            result = resource.runPut(&header, &client, &context);
        }
        answer.result = result;
        // A reset has no Format stage: it answers with the status envelope.
        answer.formatResult = resource.formatPut != nullptr ? resource.formatPut(&header, result, &context, &buf)
                                                            : FormatCommonStatus(&header, result, &context, &buf);
    }
    for (void*& slot : context.apvSlot) {
        std::free(slot);
        slot = nullptr;
    }

    // Where the Format stage wrote nothing, the envelope of the first
    // failure; the HTTP status is the one the envelope's table gives.
    const int code = answer.result != 0 ? answer.result : answer.formatResult;
    if (buf.ulLength == 0) {
        buf.ulHttpStatus = 0;
        FormatCommonStatus(&header, code, &context, &buf);
    }
    answer.httpStatus = buf.ulHttpStatus != 0
                            ? static_cast<unsigned>(buf.ulHttpStatus)
                            : static_cast<unsigned>(FillResponseStatusParam(&header, code).ullHttpStatus);
    answer.body.assign(buf.pcData, buf.ulLength);
    return answer;
}

}  // namespace devhost
