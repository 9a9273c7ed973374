// Who may use the development host. On a loopback address everybody, as on
// the developer's own machine; on any other address only requests that carry
// the host's access token, so that nobody else on the network reaches the
// module or the simulators (their faults and block writes included).
#ifndef DEVHOST_HTTP_ACCESS_H
#define DEVHOST_HTTP_ACCESS_H

#include <optional>
#include <string>
#include <vector>

#include "http_front.h"

struct MHD_Connection;

namespace devhost {

class AccessGate {
public:
    // The gate for a host listening on `address`: a token is needed beyond
    // loopback - `token` when given (then on loopback too), else a random
    // one - unless `noToken`. False with `error` for a token that is too
    // short or not URL-safe, or for both options at once.
    bool Configure(const std::string& address, const std::string& token, bool noToken, std::string& error);

    // The token every request needs; empty when none is needed.
    const std::string& Token() const { return token_; }
    // True when --no-token left a host beyond loopback open to everybody.
    bool OpenToTheNetwork() const { return open_; }

    // What a request gets from the gate: nothing when it may go on; 401 when
    // it lacks the token; for a GET that carries the token in its query
    // ("/?token=..." as the banner prints it), 303 to the same target without
    // it, with the token set as a cookie for the browser's later requests.
    std::optional<HttpReply> Answer(MHD_Connection* connection, const char* method, const std::string& target) const;

private:
    std::string token_;
    bool open_ = false;
};

// True for an address in 127.0.0.0/8.
bool IsLoopback(const std::string& address);

// The names by which a host listening on `address` is reached: the address,
// the loopback names, beyond loopback the machine's own IPv4 addresses and
// name, and the `allowed` ones (--allow-host).
std::vector<std::string> OwnNames(const std::string& address, const std::vector<std::string>& allowed);

// The intake's bounds for a host listening on `address` that serves
// `served` connections at once: eight heads may wait for each (fewer when
// the process has fewer descriptors), and beyond loopback one client address
// may hold a quarter of them.
IntakeLimits LimitsFor(const std::string& address, size_t served);

// The gate's answer to a request (none when `parts` has no gate), with the
// host's log line for it.
std::optional<HttpReply> AccessAnswer(HostParts& parts, MHD_Connection* connection, const char* method,
                                      const std::string& target);

}  // namespace devhost

#endif  // DEVHOST_HTTP_ACCESS_H
