#include "request_rules.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace devhost {

namespace {

bool IsTokenChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

std::string Lowered(std::string_view text)
{
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), Lower);
    return lowered;
}

bool IEquals(std::string_view a, std::string_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view Trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string BodyTooLarge() { return "the body is larger than " + std::to_string(kBodyLimit) + " bytes"; }

// The values of every header named `name`.
std::vector<std::string_view> Values(const RequestHead& head, std::string_view name)
{
    std::vector<std::string_view> values;
    for (const auto& [key, value] : head.headers) {
        if (IEquals(key, name)) {
            values.push_back(Trimmed(value));
        }
    }
    return values;
}

std::optional<HeadRefusal> CheckHost(const RequestHead& head, const HostNames& names)
{
    const std::vector<std::string_view> hosts = Values(head, "Host");
    if (hosts.size() > 1) {
        return HeadRefusal{400, "the request has more than one Host header"};
    }
    if (hosts.empty()) {
        return head.version == "HTTP/1.0" ? std::nullopt
                                          : std::optional(HeadRefusal{400, "the request has no Host header"});
    }
    if (!names.Names(hosts[0])) {
        return HeadRefusal{421, "Host " + std::string(hosts[0]) +
                                    " is not a name of this host; start it with --allow-host NAME to be reached "
                                    "by another name"};
    }
    return std::nullopt;
}

std::optional<HeadRefusal> CheckFraming(const RequestHead& head)
{
    std::optional<unsigned long long> length;
    for (const std::string_view value : Values(head, "Content-Length")) {
        if (value.empty() || !std::all_of(value.begin(), value.end(), IsDigit)) {
            return HeadRefusal{400, "Content-Length is not a decimal number"};
        }
        // Past the limit is too large, whatever number of digits follow.
        const std::string_view digits = value.substr(std::min(value.find_first_not_of('0'), value.size()));
        const unsigned long long n = digits.size() > 18 ? kBodyLimit + 1 : std::stoull("0" + std::string(digits));
        if (length && *length != n) {
            return HeadRefusal{400, "the request has two different Content-Length values"};
        }
        length = n;
    }
    const std::vector<std::string_view> codings = Values(head, "Transfer-Encoding");
    if (!codings.empty() && length) {
        return HeadRefusal{400, "the request has both Content-Length and Transfer-Encoding"};
    }
    if (codings.size() > 1 || (codings.size() == 1 && !IEquals(codings[0], "chunked"))) {
        std::string all;
        for (const std::string_view coding : codings) {
            all += (all.empty() ? "" : ", ") + std::string(coding);
        }
        return HeadRefusal{501, "Transfer-Encoding " + all + " is not supported; the host takes chunked alone"};
    }
    if (length && *length > kBodyLimit) {
        return HeadRefusal{413, BodyTooLarge()};
    }
    return std::nullopt;
}

std::optional<HeadRefusal> CheckOrigin(const RequestHead& head)
{
    if (head.method == "GET" || head.method == "HEAD") {
        return std::nullopt;
    }
    const std::vector<std::string_view> hosts = Values(head, "Host");
    const std::string own = "http://" + std::string(hosts.empty() ? "" : hosts[0]);
    for (const std::string_view origin : Values(head, "Origin")) {
        if (!IEquals(origin, own)) {
            return HeadRefusal{403, std::string(head.method) + " from a page of " + std::string(origin) +
                                        ": this host takes changes from its own pages only (" + own + ")"};
        }
    }
    for (const std::string_view site : Values(head, "Sec-Fetch-Site")) {
        if (IEquals(site, "cross-site") || IEquals(site, "same-site")) {
            return HeadRefusal{403, std::string(head.method) + " from a " + std::string(site) +
                                        " page: this host takes changes from its own pages only"};
        }
    }
    return std::nullopt;
}

std::optional<HeadRefusal> ParseRequestLine(std::string_view line, RequestHead& head)
{
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    const HeadRefusal malformed{400, "the request line is not METHOD TARGET HTTP/1.1"};
    if (first == std::string_view::npos || first == 0 || first == last || last + 1 == line.size() ||
        !std::all_of(line.begin(), line.begin() + first, IsTokenChar) || line.find_first_not_of(' ', first) == last) {
        return malformed;
    }
    head.method = line.substr(0, first);
    head.target = Trimmed(line.substr(first + 1, last - first - 1));
    head.version = line.substr(last + 1);
    const std::string_view v = head.version;
    if (v.size() != 8 || v.substr(0, 5) != "HTTP/" || !IsDigit(v[5]) || v[6] != '.' || !IsDigit(v[7])) {
        return malformed;
    }
    if (v != "HTTP/1.1" && v != "HTTP/1.0") {
        return HeadRefusal{505, std::string(v) + " is not supported; the host speaks HTTP/1.1 and HTTP/1.0"};
    }
    return std::nullopt;
}

std::optional<HeadRefusal> ParseHeaderLine(std::string_view line, RequestHead& head)
{
    // A line starting with white space continues the one before.
    if (line[0] == ' ' || line[0] == '\t') {
        if (!head.headers.empty()) {
            head.headers.back().second = line;  // only its start is checked; the library joins the lines
        }
        return std::nullopt;
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0 ||
        !std::all_of(line.begin(), line.begin() + colon, IsTokenChar)) {
        return HeadRefusal{400, "a header line is not NAME: VALUE"};
    }
    head.headers.emplace_back(line.substr(0, colon), line.substr(colon + 1));
    return std::nullopt;
}

}  // namespace

HostNames::HostNames(uint16_t port, const std::vector<std::string>& names) : port_(port)
{
    for (const std::string& name : names) {
        names_.push_back(Lowered(name));
    }
}

bool HostNames::Names(std::string_view host) const
{
    // NAME or NAME:PORT, where an IPv6 NAME is in brackets.
    const size_t close = host.size() > 0 && host[0] == '[' ? host.find(']') : 0;
    if (close == std::string_view::npos) {
        return false;
    }
    const size_t colon = host.find(':', close);
    const std::string name = Lowered(host.substr(0, colon));
    std::optional<std::string_view> port;
    if (colon != std::string_view::npos) {
        port = host.substr(colon + 1);
        if (port->empty() || port->size() > 5 || !std::all_of(port->begin(), port->end(), IsDigit)) {
            return false;
        }
    }
    const std::string ownPort = std::to_string(port_);
    return std::any_of(names_.begin(), names_.end(), [&](const std::string& allowed) {
        return allowed == name ? !port || *port == ownPort : port && allowed == name + ":" + std::string(*port);
    });
}

std::optional<HeadRefusal> CheckRequest(const RequestHead& head, const HostNames& names)
{
    if (std::optional<HeadRefusal> refusal = CheckHost(head, names)) {
        return refusal;
    }
    if (std::optional<HeadRefusal> refusal = CheckFraming(head)) {
        return refusal;
    }
    return CheckOrigin(head);
}

std::optional<HeadRefusal> CheckHead(std::string_view bytes, const HostNames& names, bool& whole)
{
    whole = false;
    // Empty lines before the request line are passed over.
    size_t at = bytes.find_first_not_of("\r\n");
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    RequestHead head;
    bool requestLine = true;
    for (size_t end; (end = bytes.find('\n', at)) != std::string_view::npos && end + 1 <= kHeadLimit; at = end + 1) {
        std::string_view line = bytes.substr(at, end - at);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!requestLine && line.empty()) {
            whole = true;
            return CheckRequest(head, names);
        }
        if (std::optional<HeadRefusal> refusal =
                requestLine ? ParseRequestLine(line, head) : ParseHeaderLine(line, head)) {
            return refusal;
        }
        requestLine = false;
    }
    if (bytes.size() > kHeadLimit) {
        return HeadRefusal{431, "the request head is larger than " + std::to_string(kHeadLimit) + " bytes"};
    }
    return std::nullopt;
}

}  // namespace devhost
