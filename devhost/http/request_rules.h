// What the host asks of every request before anything acts on it, as pure
// functions of the request's head: its syntax, its Host, its body's framing
// and, for a request that changes something, where it comes from. The intake
// applies them to a connection's first head as it arrives; the front applies
// the same rules to every request the library has parsed (later requests of
// a kept-alive connection included).
#ifndef DEVHOST_HTTP_REQUEST_RULES_H
#define DEVHOST_HTTP_REQUEST_RULES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host_limits.h"

namespace devhost {

struct HeadRefusal {
    unsigned status;
    std::string message;
};

// A parsed request head: views into text that outlives it.
struct RequestHead {
    std::string_view method;
    std::string_view target;
    std::string_view version;
    std::vector<std::pair<std::string_view, std::string_view>> headers;
};

// The names by which this host may be reached: what a request's Host must
// give, so that a page under a name of its own that resolves to this machine
// (DNS rebinding) is refused. Each name is taken with no port or with the
// port the host listens on; a name given as NAME:PORT with that port only.
class HostNames {
public:
    HostNames() = default;
    // `names`: the listen address, the loopback names and any --allow-host.
    HostNames(uint16_t port, const std::vector<std::string>& names);
    // True when a Host header's value names this host.
    bool Names(std::string_view host) const;

private:
    uint16_t port_ = 0;
    std::vector<std::string> names_;  // lower case; "NAME" or "NAME:PORT"
};

// The loopback names every host answers to.
inline constexpr const char* kLoopbackNames[] = {"localhost", "127.0.0.1", "[::1]"};

// The refusal for a request head that breaks a rule, or nullopt:
// - a Host missing on HTTP/1.1 or given twice: 400; naming another host: 421;
// - a Content-Length that is not a number: 400; over kBodyLimit (or past
//   any integer): 413; two that differ: 400;
// - a Transfer-Encoding beside a Content-Length: 400; one other than
//   "chunked": 501;
// - a method other than GET and HEAD whose Origin is not this host's own
//   ("http://" and its Host), or whose Sec-Fetch-Site is "cross-site" or
//   "same-site": 403. A request with neither header (curl, scripts,
//   generated clients) is not a browser page's and goes on.
std::optional<HeadRefusal> CheckRequest(const RequestHead& head, const HostNames& names);

// What the host refuses in the bytes a connection has sent so far: nullopt
// when they may go on (a whole head that passes CheckRequest, or the start of
// a well-formed one). `whole` is set when the head is complete; besides
// CheckRequest's refusals, a malformed request line or header line is 400, a
// version other than HTTP/1.0 and 1.1 is 505, a head over kHeadLimit is 431.
std::optional<HeadRefusal> CheckHead(std::string_view bytes, const HostNames& names, bool& whole);

}  // namespace devhost

#endif  // DEVHOST_HTTP_REQUEST_RULES_H
