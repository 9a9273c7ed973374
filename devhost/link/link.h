// The link between the host and a simulator.
#ifndef DEVHOST_LINK_LINK_H
#define DEVHOST_LINK_LINK_H

#include <functional>
#include <mutex>
#include <string>

#include "json.h"

namespace devhost {

// One request and one reply, each a JSON object carried as the content of
// framed messages (the framed message library's own frame) over a socket
// pair. A text longer than a frame's content limit travels in several frames,
// each but the last marked with the header key kLinkMoreKey, so that a reply
// of any size arrives whole.
inline constexpr int kLinkMoreKey = 1;

// Serves requests on fd until the peer closes it. A reply that cannot be sent
// is answered with an {"error"} object instead; only a lost peer ends it.
// After each reply the process's free memory is returned to the system.
void LinkServe(int fd, const std::function<Json(json_object* request)>& handle);

// What became of a request over the link, as a value the routes map to an
// HTTP status.
enum class LinkError {
    None,     // answered
    Refused,  // the simulator answered {"error": message}: the request was wrong
    Lost,     // no answer: the simulator is gone
};

struct LinkReply {
    Json body;  // the simulator's reply; null when Lost
    LinkError error = LinkError::None;
    std::string message;  // what went wrong
    explicit operator bool() const { return error == LinkError::None; }
};

class LinkClient {
public:
    explicit LinkClient(int fd) : fd_(fd) {}
    LinkReply Call(json_object* request);

private:
    std::mutex lock_;
    int fd_;
};

}  // namespace devhost

#endif  // DEVHOST_LINK_LINK_H
