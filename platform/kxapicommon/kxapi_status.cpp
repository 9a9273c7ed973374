// The status envelope of responses without a settings record.
#include <json-c/json.h>

#include <cstdio>
#include <cstring>

#include "kxapi_common.h"

namespace {

struct StatusRule {
    VW_RESULT_TYPE result;
    unsigned httpStatus;
    const char* text;
};

// How the server reports a stage result. StatusCode is the result itself, so
// that a device's own error code reaches the client unchanged.
constexpr StatusRule kRules[] = {
    {VW_SUCCESS, 200, "OK"},
    {VW_ERR_PARAM, 500, "Operation Failed"},
    {VW_ERR_QUERY, 400, "Invalid Query Parameter"},
    {VW_ERR_BODY, 400, "Invalid Content"},
    {VW_ERR_NO_MEMORY, 503, "Out Of Resources"},
    {VW_ERR_RANGE, 400, "Invalid Channel"},
};
constexpr StatusRule kDeviceRule = {0, 500, "Device Error"};

const StatusRule& RuleFor(VW_RESULT_TYPE result)
{
    for (const StatusRule& rule : kRules) {
        if (rule.result == result) {
            return rule;
        }
    }
    return kDeviceRule;
}

void CopyText(char* dest, size_t size, const char* src)
{
    const size_t len = strnlen(src, size - 1);
    std::memcpy(dest, src, len);
    dest[len] = '\0';
}

}  // namespace

KXAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result)
{
    KXAPI_RESPONSE response;
    std::memset(&response, 0, sizeof(response));
    const StatusRule& rule = RuleFor(result);
    response.ullHttpStatus = rule.httpStatus;
    response.ResponseStatus.StatusCode = result;
    CopyText(response.ResponseStatus.StatusString, sizeof(response.ResponseStatus.StatusString), rule.text);
    if (pstHeader != nullptr) {
        CopyText(response.ResponseStatus.RequestURL, sizeof(response.ResponseStatus.RequestURL), pstHeader->szUrl);
    }
    return response;
}

int FormatCommonStatus(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* /*pstCtIn*/,
                       tagHTTP_BUF_S* pstBuf)
{
    if (pstHeader == nullptr || pstBuf == nullptr || pstBuf->Copy2Buf == nullptr) {
        return -1;
    }
    const KXAPI_RESPONSE response = FillResponseStatusParam(pstHeader, result);
    json_object* root = json_object_new_object();
    json_object* status = json_object_new_object();
    if (root == nullptr || status == nullptr) {
        json_object_put(root);
        json_object_put(status);
        return -1;
    }
    json_object_object_add(status, "RequestURL", json_object_new_string(response.ResponseStatus.RequestURL));
    json_object_object_add(status, "StatusCode", json_object_new_int64(response.ResponseStatus.StatusCode));
    json_object_object_add(status, "StatusString", json_object_new_string(response.ResponseStatus.StatusString));
    json_object_object_add(root, "ResponseStatus", status);
    const char* text = json_object_to_json_string(root);
    const int taken = text != nullptr ? pstBuf->Copy2Buf(pstBuf, text, static_cast<uint32_t>(std::strlen(text))) : -1;
    json_object_put(root);
    if (taken == -1) {
        return -1;
    }
    pstBuf->ulHttpStatus = response.ullHttpStatus;
    return 0;
}
