#include "access.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <strings.h>
#include <ifaddrs.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <unistd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace devhost {

namespace {

constexpr size_t kMinTokenLength = 16;
constexpr size_t kRandomTokenBytes = 32;  // 256 bits, 43 characters
constexpr std::string_view kBearer = "Bearer ";

// Characters that need no escaping in a URL, a header or a cookie.
bool UrlSafe(const std::string& text)
{
    for (const char c : text) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && std::strchr("-_.~", c) == nullptr) {
            return false;
        }
    }
    return true;
}

// URL-safe base64 without padding.
std::string Base64Url(const unsigned char* data, size_t size)
{
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    unsigned bits = 0;
    int held = 0;
    for (size_t i = 0; i < size; i++) {
        bits = (bits << 8) | data[i];
        for (held += 8; held >= 6; held -= 6) {
            text += kDigits[(bits >> (held - 6)) & 63];
        }
    }
    if (held > 0) {
        text += kDigits[(bits << (6 - held)) & 63];
    }
    return text;
}

bool RandomToken(std::string& token, std::string& error)
{
    unsigned char bytes[kRandomTokenBytes];
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
        error = std::string("cannot make an access token: getrandom: ") + std::strerror(errno);
        return false;
    }
    token = Base64Url(bytes, sizeof(bytes));
    return true;
}

// Equal texts, in a time that depends on the lengths only, never on where
// the first difference is.
bool SameToken(std::string_view given, std::string_view token)
{
    unsigned difference = given.size() != token.size() ? 1 : 0;
    for (size_t i = 0; i < token.size(); i++) {
        difference |=
            static_cast<unsigned char>(token[i]) ^ static_cast<unsigned char>(i < given.size() ? given[i] : 0);
    }
    return difference == 0;
}

// The parameters of a target's query: [begin, end) of each, in order.
template <class Each>
void ForEachParameter(const std::string& target, Each each)
{
    const size_t query = target.find('?');
    for (size_t begin = query; begin != std::string::npos && begin < target.size();) {
        begin++;
        const size_t end = std::min(target.find('&', begin), target.size());
        each(begin, end);
        begin = end;
    }
}

// The value of the first "token" parameter, if there is one.
std::optional<std::string> QueryToken(const std::string& target)
{
    std::optional<std::string> token;
    ForEachParameter(target, [&](size_t begin, size_t end) {
        if (!token && target.compare(begin, kTokenParameter.size(), kTokenParameter) == 0) {
            token = target.substr(begin + kTokenParameter.size(), end - begin - kTokenParameter.size());
        }
    });
    return token;
}

// The target without its "token" parameters; a query left empty goes too.
std::string WithoutTokens(const std::string& target)
{
    std::string rewritten = target.substr(0, target.find('?'));
    char separator = '?';
    ForEachParameter(target, [&](size_t begin, size_t end) {
        if (target.compare(begin, kTokenParameter.size(), kTokenParameter) == 0) {
            return;
        }
        rewritten += separator + target.substr(begin, end - begin);
        separator = '&';
    });
    return rewritten;
}

// One cookie per port, so that hosts on several ports of one machine keep
// their own tokens in the same browser.
std::string CookieName(MHD_Connection* connection)
{
    // The port the client reached: the connection's own end (the host
    // accepts connections itself and hands them to the library).
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const bool known = info != nullptr &&
                       getsockname(info->connect_fd, reinterpret_cast<sockaddr*>(&local), &length) == 0 &&
                       local.sin_family == AF_INET;
    return "ispiaas-token-" + std::to_string(known ? ntohs(local.sin_port) : 0);
}

// A target as a path of this host: "//other.example/x" (another host's
// address, relative to the scheme), "/\other.example" (the same to some
// browsers) and an absolute URL all become a path here.
std::string LocalPath(const std::string& target)
{
    const size_t scheme = target.find("://");
    const std::string rest = target.empty() || target[0] == '/' || scheme == std::string::npos
                                 ? target
                                 : target.substr(std::min(target.find('/', scheme + 3), target.size()));
    const size_t start = rest.find_first_not_of("/\\");
    return "/" + (start == std::string::npos ? "" : rest.substr(start));
}

HttpReply Unauthorized(const std::string& message)
{
    HttpReply reply = ErrorReply(401, message);
    reply.headers.emplace_back(MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    return reply;
}

}  // namespace

bool IsLoopback(const std::string& address)
{
    in_addr addr{};
    return inet_pton(AF_INET, address.c_str(), &addr) == 1 && (ntohl(addr.s_addr) >> 24) == 127;
}

std::vector<std::string> OwnNames(const std::string& address, const std::vector<std::string>& allowed)
{
    std::vector<std::string> names(std::begin(kLoopbackNames), std::end(kLoopbackNames));
    names.push_back(address);
    if (!IsLoopback(address)) {
        ifaddrs* list = nullptr;
        if (getifaddrs(&list) == 0) {
            for (const ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
                char text[INET_ADDRSTRLEN] = "";
                if (i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET &&
                    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(i->ifa_addr)->sin_addr, text,
                              sizeof(text)) != nullptr) {
                    names.emplace_back(text);
                }
            }
            freeifaddrs(list);
        }
        char name[256] = "";
        if (gethostname(name, sizeof(name) - 1) == 0 && name[0] != '\0') {
            names.emplace_back(name);
        }
    }
    names.insert(names.end(), allowed.begin(), allowed.end());
    return names;
}

IntakeLimits LimitsFor(const std::string& address, size_t served)
{
    constexpr size_t kWaitingPerServed = 8;
    constexpr size_t kSpareDescriptors = 64;  // the host's own files, sockets and links
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const size_t descriptors = files.rlim_cur == RLIM_INFINITY ? SIZE_MAX : files.rlim_cur;
    IntakeLimits limits;
    limits.served = served;
    limits.waiting = std::min(kWaitingPerServed * served,
                              descriptors > served + kSpareDescriptors ? descriptors - served - kSpareDescriptors : 1);
    limits.perAddress = IsLoopback(address) ? 0 : std::max<size_t>(1, served / 4);
    return limits;
}

bool AccessGate::Configure(const std::string& address, const std::string& token, bool noToken, std::string& error)
{
    if (noToken && !token.empty()) {
        error = "--token and --no-token exclude each other";
        return false;
    }
    if (!token.empty() && (token.size() < kMinTokenLength || !UrlSafe(token))) {
        error = "--token takes at least " + std::to_string(kMinTokenLength) +
                " characters, each a letter, a digit or one of - _ . ~";
        return false;
    }
    open_ = noToken && !IsLoopback(address);
    token_ = token;
    return noToken || !token_.empty() || IsLoopback(address) || RandomToken(token_, error);
}

std::optional<HttpReply> AccessGate::Answer(MHD_Connection* connection, const char* method,
                                            const std::string& target) const
{
    if (token_.empty()) {
        return std::nullopt;
    }
    // A token in the query is taken from a GET alone, and never passed on:
    // it would reach the module's log lines with the target.
    if (const std::optional<std::string> given = QueryToken(target)) {
        if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 || !SameToken(*given, token_)) {
            return Unauthorized("the token in the query is not this host's (a query token is taken by a GET only)");
        }
        HttpReply reply{303, "", ""};
        reply.headers.emplace_back(MHD_HTTP_HEADER_LOCATION, LocalPath(WithoutTokens(target)));
        reply.headers.emplace_back(MHD_HTTP_HEADER_SET_COOKIE,
                                   CookieName(connection) + "=" + token_ + "; HttpOnly; SameSite=Strict; Path=/");
        return reply;
    }
    if (const char* authorization =
            MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION)) {
        // The scheme's name is case-insensitive.
        if (strncasecmp(authorization, kBearer.data(), kBearer.size()) == 0 &&
            SameToken(authorization + kBearer.size(), token_)) {
            return std::nullopt;
        }
        return Unauthorized("the Authorization header does not carry this host's access token");
    }
    const char* cookie = MHD_lookup_connection_value(connection, MHD_COOKIE_KIND, CookieName(connection).c_str());
    if (cookie != nullptr && SameToken(cookie, token_)) {
        return std::nullopt;
    }
    return Unauthorized(cookie != nullptr ? "the cookie does not carry this host's access token"
                                          : "this host takes requests with its access token only: "
                                            "'Authorization: Bearer TOKEN', or open the URL its banner prints");
}

std::optional<HttpReply> AccessAnswer(HostParts& parts, MHD_Connection* connection, const char* method,
                                      const std::string& target)
{
    std::optional<HttpReply> answer =
        parts.access != nullptr ? parts.access->Answer(connection, method, target) : std::nullopt;
    if (answer) {
        parts.log->Note(std::string(method) + " " + target + " -> " + std::to_string(answer->status) +
                        (answer->status == 303 ? " (access token taken, cookie set)" : " (no access token)"));
    }
    return answer;
}

}  // namespace devhost
