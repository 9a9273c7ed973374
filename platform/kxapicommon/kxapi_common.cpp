/*
 * The access server's common calls that plug-in modules use: the response
 * buffer with its appender, the query parameter reader and the debug flag.
 */
#include "kxapi_common.h"

#include <climits>
#include <cstring>
#include <limits>
#include <string_view>

KXAPI_HOST_API VW_DEBUG_FLAG_E g_enDebugFlag = VW_DEBUG_OFF;

namespace {

/* The server's appender: adds uiLen bytes after the current text when they
 * and the terminating NUL fit into the capacity. */
int AppendToBuf(tagHTTP_BUF_S* pstBuf, const char* pcText, uint32_t uiLen)
{
    if (pstBuf == nullptr || pstBuf->pcData == nullptr || pcText == nullptr) {
        return -1;
    }
    uintptr_t cap = pstBuf->ulCapacity;
    uintptr_t len = pstBuf->ulLength;
    /* Written as subtractions so that no sum can wrap. */
    if (len >= cap || uiLen > cap - len - 1) {
        return -1;
    }
    uintptr_t newLen = len + uiLen;
    if (newLen > static_cast<uintptr_t>(INT_MAX)) {
        return -1;
    }
    if (uiLen != 0) {
        std::memmove(pstBuf->pcData + len, pcText, uiLen);
    }
    pstBuf->pcData[newLen] = '\0';
    pstBuf->ulLength = newLen;
    return static_cast<int>(newLen);
}

/* The raw value of the first parameter named exactly `key` in the query
 * string of `url`, or false when there is none. A parameter without '='
 * has an empty value. */
bool FindQueryValue(std::string_view url, std::string_view key, std::string_view& value)
{
    size_t q = url.find('?');
    if (q == std::string_view::npos || key.empty()) {
        return false;
    }
    std::string_view rest = url.substr(q + 1);
    while (true) {
        size_t amp = rest.find('&');
        std::string_view param = rest.substr(0, amp);
        size_t eq = param.find('=');
        std::string_view name = param.substr(0, eq);
        if (name == key) {
            value = eq == std::string_view::npos ? std::string_view() : param.substr(eq + 1);
            return true;
        }
        if (amp == std::string_view::npos) {
            return false;
        }
        rest = rest.substr(amp + 1);
    }
}

/* Parses a whole decimal number of T: digits only, with a leading '-' for
 * signed types; no '+', blanks or trailing characters; within T's range. */
template <class T>
bool ParseDecimal(std::string_view text, T& out)
{
    bool negative = false;
    if (!text.empty() && text.front() == '-' && std::numeric_limits<T>::is_signed) {
        negative = true;
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return false;
    }
    /* The magnitude limit: T's maximum, or one more for a negative value. */
    unsigned long long limit = static_cast<unsigned long long>(std::numeric_limits<T>::max());
    if (negative) {
        limit += 1;
    }
    unsigned long long magnitude = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        unsigned digit = static_cast<unsigned>(c - '0');
        if (magnitude > (limit - digit) / 10) {
            return false;
        }
        magnitude = magnitude * 10 + digit;
    }
    if (negative) {
        /* magnitude <= |min|; compute -magnitude without signed overflow. */
        out = magnitude == 0 ? T(0) : static_cast<T>(-static_cast<long long>(magnitude - 1) - 1);
    } else {
        out = static_cast<T>(magnitude);
    }
    return true;
}

}  // namespace

void HTTP_InitBuf(tagHTTP_BUF_S* pstBuf, char* pcStorage, size_t capacity)
{
    if (pstBuf == nullptr) {
        return;
    }
    pstBuf->pcData = pcStorage;
    pstBuf->ulCapacity = pcStorage != nullptr ? capacity : 0;
    pstBuf->ulLength = 0;
    pstBuf->ulHttpStatus = 0;
    pstBuf->pvHostPriv = nullptr;
    pstBuf->Copy2Buf = AppendToBuf;
    if (pcStorage != nullptr && capacity > 0) {
        pcStorage[0] = '\0';
    }
}

template <class T>
VW_RESULT_TYPE GetURIQueryParamByKey(tagHTTP_HEADER_S* pstHeader, std::string key, T* value)
{
    if (pstHeader == nullptr || value == nullptr) {
        return VW_ERR_PARAM;
    }
    /* The URL field need not be terminated; never read past it. */
    std::string_view url(pstHeader->szUrl, strnlen(pstHeader->szUrl, sizeof(pstHeader->szUrl)));
    std::string_view raw;
    T parsed{};
    if (!FindQueryValue(url, key, raw) || !ParseDecimal(raw, parsed)) {
        return VW_ERR_QUERY;
    }
    *value = parsed;
    return VW_SUCCESS;
}

template KXAPI_HOST_API VW_RESULT_TYPE GetURIQueryParamByKey<int>(tagHTTP_HEADER_S*, std::string, int*);
template KXAPI_HOST_API VW_RESULT_TYPE GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S*, std::string,
                                                                           unsigned int*);
