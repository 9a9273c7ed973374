#include "way_in.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "console_files.h"

namespace devhost {

namespace {

constexpr const char* kPageFile = "way-in.html";
constexpr const char* kAssets[] = {"/console/way-in.css", "/console/way-in.js", "/console/icon.svg"};
// Where the page's file carries the reason the browser was refused.
constexpr const char* kReasonMark = "<!--reason-->";
constexpr const char* kCookiePrefix = "ispiaas-token-";

std::string Trim(const std::string& text)
{
    const size_t begin = text.find_first_not_of(" \t");
    const size_t end = text.find_last_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

std::string Lower(std::string text)
{
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string Escaped(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

MHD_Result FindTokenCookie(void* found, MHD_ValueKind, const char* key, const char*)
{
    if (key != nullptr && std::strncmp(key, kCookiePrefix, std::strlen(kCookiePrefix)) == 0) {
        *static_cast<bool*>(found) = true;
        return MHD_NO;
    }
    return MHD_YES;
}

// Why the browser was refused, in the words of a person who has to act on it.
std::string Reason(MHD_Connection* connection, const std::string& target)
{
    if (target.find("?token=") != std::string::npos || target.find("&token=") != std::string::npos) {
        return "The token in the address is not this host's. The host makes a new token each time it starts "
               "(unless it is given --token): take the URL it printed last.";
    }
    bool cookie = false;
    MHD_get_connection_values(connection, MHD_COOKIE_KIND, &FindTokenCookie, &cookie);
    if (cookie) {
        return "This browser holds a token that this host no longer takes: the host was started again with a new "
               "token. Open the URL it printed when it started this time.";
    }
    return "This host takes requests with its access token only.";
}

std::optional<std::string> PageFile()
{
    const int fd = openat(ConsoleDirectory(), kPageFile, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    std::string text;
    char chunk[4096];
    for (ssize_t got; (got = read(fd, chunk, sizeof(chunk))) > 0;) {
        text.append(chunk, static_cast<size_t>(got));
    }
    close(fd);
    return text;
}

}  // namespace

bool IsWayInAsset(const std::string& path)
{
    for (const char* asset : kAssets) {
        if (path == asset) {
            return true;
        }
    }
    return false;
}

bool PrefersHtml(const char* accept)
{
    if (accept == nullptr) {
        return false;
    }
    double html = -1;
    double json = -1;
    double application = -1;
    double any = -1;
    std::stringstream in(accept);
    for (std::string range; std::getline(in, range, ',');) {
        std::stringstream parts(range);
        std::string type;
        std::getline(parts, type, ';');
        type = Lower(Trim(type));
        double quality = 1;
        for (std::string parameter; std::getline(parts, parameter, ';');) {
            parameter = Trim(parameter);
            if (parameter.rfind("q=", 0) == 0) {
                quality = std::strtod(parameter.c_str() + 2, nullptr);
            }
        }
        double* slot = type == "text/html"          ? &html
                       : type == "application/json" ? &json
                       : type == "application/*"    ? &application
                       : type == "*/*"              ? &any
                                                    : nullptr;
        if (slot != nullptr) {
            *slot = quality;
        }
    }
    const double jsonQuality = json >= 0 ? json : application >= 0 ? application : any;
    return html > 0 && html >= jsonQuality;
}

std::optional<HttpReply> WayInPage(MHD_Connection* connection, const char* method, const std::string& path,
                                   const std::string& target, const HttpReply& denial)
{
    const bool read = std::strcmp(method, MHD_HTTP_METHOD_GET) == 0 || std::strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
    if (denial.status != MHD_HTTP_UNAUTHORIZED || !read || !IsConsolePath(path) ||
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION) != nullptr ||
        !PrefersHtml(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_ACCEPT))) {
        return std::nullopt;
    }
    std::optional<std::string> page = PageFile();
    const size_t mark = page ? page->find(kReasonMark) : std::string::npos;
    if (mark == std::string::npos) {
        return std::nullopt;
    }
    page->replace(mark, std::strlen(kReasonMark), Escaped(Reason(connection, target)));
    HttpReply reply = denial;
    reply.body = *page;
    reply.contentType = "text/html; charset=utf-8";
    reply.headers.emplace_back(MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    return reply;
}

}  // namespace devhost
