#include "link.h"

#include <malloc.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "wiro.h"

namespace devhost {

namespace {

// The text of o in frames of at most WIRO_CONTENT_MAX content bytes. False
// with errno set when a frame could not be made or sent.
bool SendJson(int fd, json_object* o)
{
    const std::string text = JsonText(o);
    size_t at = 0;
    do {
        wiro_message_t* msg = wiro_message_new(0);
        if (msg == nullptr) {
            errno = ENOMEM;
            return false;
        }
        const size_t piece = std::min<size_t>(text.size() - at, WIRO_CONTENT_MAX);
        const bool more = at + piece < text.size();
        const uint8_t flag = 1;
        const bool sent = (!more || wiro_header_set(msg, kLinkMoreKey, &flag, sizeof(flag)) == 0) &&
                          wiro_content_add(msg, text.data() + at, piece, 0) == 0 && wiro_message_sendfd(msg, fd) >= 0;
        const int savedErrno = errno;
        wiro_message_put(msg);
        if (!sent) {
            errno = savedErrno;
            return false;
        }
        at += piece;
    } while (at < text.size());
    return true;
}

// One JSON text, gathered from as many frames as it was sent in; null when
// the peer is gone or a frame is refused.
Json RecvJson(int fd)
{
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        return nullptr;
    }
    std::string text;
    bool whole = false;
    while (wiro_message_recvfd(msg, fd) >= 0) {
        text.append(reinterpret_cast<const char*>(msg->content), msg->content_len);
        if (wiro_header_get(msg, kLinkMoreKey, nullptr) == nullptr) {
            whole = true;
            break;
        }
    }
    wiro_message_put(msg);
    return whole ? JsonParse(text) : nullptr;
}

}  // namespace

void LinkServe(int fd, const std::function<Json(json_object*)>& handle)
{
    for (;;) {
        Json request = RecvJson(fd);
        if (request == nullptr) {
            return;
        }
        Json reply = handle(request.get());
        if (reply == nullptr) {
            reply = JsonError("the simulator had no answer");
        }
        if (SendJson(fd, reply.get())) {
            // The host asks a few times a second at most: a moment to hand the
            // pages the exchanges freed (an answer of several MB among them)
            // back to the system, so that resident memory follows what is kept.
            reply.reset();
            malloc_trim(0);
            continue;
        }
        // Whatever was asked, the simulator goes on serving while its peer is
        // there: a reply it could not send becomes an error reply.
        if (errno == EPIPE || errno == ECONNRESET || errno == EBADF ||
            !SendJson(fd, JsonError(std::string("the reply could not be sent: ") + std::strerror(errno)).get())) {
            return;
        }
    }
}

LinkReply LinkClient::Call(json_object* request)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (!SendJson(fd_, request)) {
        return {nullptr, LinkError::Lost, std::string("the simulator is unreachable: ") + std::strerror(errno)};
    }
    Json reply = RecvJson(fd_);
    if (reply == nullptr) {
        return {nullptr, LinkError::Lost, "the simulator gave no reply"};
    }
    if (const std::optional<std::string> refusal = JsonString(reply.get(), "error")) {
        return {std::move(reply), LinkError::Refused, *refusal};
    }
    return {std::move(reply), LinkError::None, ""};
}

}  // namespace devhost
