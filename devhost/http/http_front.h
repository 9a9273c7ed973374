// The development host's HTTP front: the module's resources under
// "/api/isp/<Resource>", the simulators' inspection and faults under "/_sim/",
// the console at "/".
#ifndef DEVHOST_HTTP_FRONT_H
#define DEVHOST_HTTP_FRONT_H

#include <cstdint>
#include <string>
#include <vector>

#include "intake.h"
#include "log_tap.h"
#include "request_rules.h"
#include "link.h"
#include "stage_table.h"

struct MHD_Daemon;

namespace devhost {

class AccessGate;


struct HostParts {
    std::vector<Resource> resources;
    LinkClient* isp = nullptr;
    LinkClient* control = nullptr;
    LogTap* log = nullptr;
    const AccessGate* access = nullptr;  // null: every request may go on
    HostNames names;                     // the names a request's Host may give
    IntakeLimits limits;
};

struct HttpReply {
    unsigned status = 200;
    std::string body;
    std::string allow;  // the Allow header of a 405
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers = {};  // further headers
};

// A JSON error body: {"error": {"status", "message"}}.
HttpReply ErrorReply(unsigned status, const std::string& message);
HttpReply JsonReply(unsigned status, json_object* body);

// The headers every answer carries besides its own: no guessing of types, no
// referrer, and no framing by other pages; for an HTML page, a policy that
// lets it load and ask only this host.
std::vector<std::pair<std::string, std::string>> CommonHeaders(const std::string& contentType);
// An answer as the bytes of an HTTP/1.1 response that closes the connection
// (the intake's refusals, written before the library has the connection).
std::string AnswerBytes(const HttpReply& reply);

// The inspection and fault routes (path without the "/_sim/" prefix; the
// query as sent, without the '?').
HttpReply HandleSimRoute(HostParts& parts, const std::string& method, const std::string& path, const std::string& body,
                         const std::string& query);

class HttpFront {
public:
    explicit HttpFront(HostParts& parts) : parts_(parts) {}
    ~HttpFront() { Stop(); }

    // Listens on address:port (port 0: any free port) with a thread per
    // served connection, within the parts' limits and for the parts' names
    // (each taken with the port listened on); false with `error` set when it
    // cannot.
    bool Start(const std::string& address, uint16_t port, const std::vector<std::string>& names, std::string& error);
    uint16_t Port() const;
    void Stop();

    HostParts& Parts() { return parts_; }

private:
    HostParts& parts_;
    Intake intake_;
    MHD_Daemon* daemon_ = nullptr;
};

}  // namespace devhost

#endif  // DEVHOST_HTTP_FRONT_H
