#include "http_front.h"

#include <arpa/inet.h>
#include <microhttpd.h>

#include <cstring>

#include "access.h"
#include "request_rules.h"
#include "api_document.h"
#include "kxapi_common.h"
#include "console_files.h"
#include "stage_runner.h"
#include "way_in.h"

namespace devhost {

namespace {

// Threads that run stages hold two command buffers of about 21 KB each on
// their stack, more under the sanitizers.
constexpr size_t kStageStackSize = 1024 * 1024;
// A served connection that sends nothing for this long is closed.
constexpr unsigned kConnectionTimeoutS = 60;
constexpr size_t kLibraryLimitSlack = 8;

// Where a request goes, decided once from its path by the route table.
enum class RouteKind { Resource, Sim, Document, Console, None };

struct Route {
    RouteKind kind = RouteKind::None;
    std::string rest;  // the path after the route's prefix
};

struct RouteRow {
    const char* path;
    bool prefix;  // the path begins with it, rather than is it
    RouteKind kind;
};

constexpr RouteRow kRoutes[] = {
    {contract::kApiPrefix, true, RouteKind::Resource},
    {contract::kSimPrefix, true, RouteKind::Sim},
    {contract::kDocumentPath, false, RouteKind::Document},
    {"/", false, RouteKind::Console},
    {kConsolePrefix, true, RouteKind::Console},
};

Route RouteOf(const std::string& path)
{
    for (const RouteRow& row : kRoutes) {
        const size_t length = std::strlen(row.path);
        if (row.prefix ? path.compare(0, length, row.path) == 0 : path == row.path) {
            return Route{row.kind, path.substr(row.prefix ? length : path.size())};
        }
    }
    return Route{};
}

struct RequestState {
    std::string rawUri;  // the request target exactly as sent, query included
    Route route;
    bool started = false;
    bool tooLarge = false;
    std::string body;
};

void* UriLog(void*, const char* uri, MHD_Connection* connection)
{
    Intake::Begun(connection);
    auto* state = new RequestState;
    state->rawUri = uri != nullptr ? uri : "";
    return state;
}

void Completed(void*, MHD_Connection*, void** state, MHD_RequestTerminationCode)
{
    delete static_cast<RequestState*>(*state);
    *state = nullptr;
}

// A page's policy: its own scripts, styles, images (and the empty data:
// icon that spares a favicon request) and requests, nothing inline, no other
// page may frame it. Every other answer loads nothing.
constexpr const char* kPagePolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "base-uri 'none'; form-action 'self'; frame-ancestors 'none'";
constexpr const char* kDataPolicy = "default-src 'none'; frame-ancestors 'none'";

MHD_Result Send(MHD_Connection* connection, const HttpReply& reply)
{
    MHD_Response* response =
        MHD_create_response_from_buffer(reply.body.size(), const_cast<char*>(reply.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.contentType.c_str());
    if (!reply.allow.empty()) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, reply.allow.c_str());
    }
    for (const auto& [name, value] : reply.headers) {
        MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    for (const auto& [name, value] : CommonHeaders(reply.contentType)) {
        MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    const MHD_Result rc = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return rc;
}

const Resource* FindResource(const HostParts& parts, const std::string& name)
{
    for (const Resource& r : parts.resources) {
        if (r.name == name) {
            return &r;
        }
    }
    return nullptr;
}

bool KnownResourceName(const std::string& name)
{
    for (const ResourceRow& row : kResourceRows) {
        if (name == row.name) {
            return true;
        }
    }
    return false;
}

std::string AllowedMethods(const Resource& r)
{
    std::string allow = r.runGet != nullptr ? "GET" : "";
    if (r.runPut != nullptr) {
        allow += allow.empty() ? "PUT" : ", PUT";
    }
    return allow;
}

// What a request gets before its body is read: an error for a path, method
// or size that the host refuses, nothing when it may go on.
std::optional<HttpReply> Refusal(const HostParts& parts, const std::string& path, const std::string& method,
                                 const RequestState& state)
{
    if (state.rawUri.size() >= HTTP_URL_LEN) {
        return ErrorReply(414, "the request target is longer than " + std::to_string(HTTP_URL_LEN - 1) + " bytes");
    }
    switch (state.route.kind) {
        case RouteKind::Sim:
        case RouteKind::Console:
            return std::nullopt;  // their handlers answer a wrong method themselves
        case RouteKind::None:
            return ErrorReply(404, "no resource at " + path);
        case RouteKind::Document: {
            if (method == MHD_HTTP_METHOD_GET) {
                return std::nullopt;
            }
            HttpReply reply = ErrorReply(405, path + " takes GET, not " + method);
            reply.allow = "GET";
            return reply;
        }
        case RouteKind::Resource:
            break;
    }
    const std::string& name = state.route.rest;
    const Resource* resource = FindResource(parts, name);
    if (resource == nullptr) {
        return ErrorReply(404,
                          KnownResourceName(name) ? "the module lacks stages of " + name : "no resource at " + path);
    }
    const bool allowed = (method == MHD_HTTP_METHOD_GET && resource->runGet != nullptr) ||
                         (method == MHD_HTTP_METHOD_PUT && resource->runPut != nullptr);
    if (!allowed) {
        HttpReply reply = ErrorReply(405, name + " takes " + AllowedMethods(*resource) + ", not " + method);
        reply.allow = AllowedMethods(*resource);
        return reply;
    }
    return std::nullopt;
}

MHD_Result AddHeader(void* head, MHD_ValueKind, const char* name, const char* value)
{
    static_cast<RequestHead*>(head)->headers.emplace_back(name, value != nullptr ? value : "");
    return MHD_YES;
}

// A request as the library parsed it, for the rules the intake applies to
// first heads (request_rules.h).
RequestHead HeadOf(MHD_Connection* connection, const char* method, const char* version, const RequestState& state)
{
    RequestHead head{method, state.rawUri, version, {}};
    MHD_get_connection_values(connection, MHD_HEADER_KIND, &AddHeader, &head);
    return head;
}

HttpReply RunResource(HostParts& parts, MHD_Connection* connection, bool put, const RequestState& state)
{
    const Resource& resource = *FindResource(parts, state.route.rest);
    StageRequest request;
    request.put = put;
    request.url = state.rawUri;
    request.body = state.body;
    if (const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)) {
        char text[INET6_ADDRSTRLEN] = "";
        const sockaddr* addr = info->client_addr;
        if (addr->sa_family == AF_INET) {
            const auto* in = reinterpret_cast<const sockaddr_in*>(addr);
            inet_ntop(AF_INET, &in->sin_addr, text, sizeof(text));
            request.clientPort = ntohs(in->sin_port);
        } else if (addr->sa_family == AF_INET6) {
            const auto* in6 = reinterpret_cast<const sockaddr_in6*>(addr);
            inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof(text));
            request.clientPort = ntohs(in6->sin6_port);
        }
        request.clientAddress = text;
    }
    if (const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)) {
        request.connectionFd = info->connect_fd;
    }
    const StageAnswer answer = RunStages(resource, request);
    parts.log->Note(std::string(put ? "PUT " : "GET ") + state.rawUri + " -> " + std::to_string(answer.httpStatus) +
                    " (result " + std::to_string(answer.result) + ", format " + std::to_string(answer.formatResult) +
                    ")");
    return HttpReply{answer.httpStatus, answer.body, ""};
}

MHD_Result Access(void* cls, MHD_Connection* connection, const char* url, const char* method, const char* version,
                  const char* uploadData, size_t* uploadSize, void** statePtr)
{
    auto* front = static_cast<HttpFront*>(cls);
    auto* state = static_cast<RequestState*>(*statePtr);
    const std::string path = url;
    if (!state->started) {
        state->started = true;
        state->route = RouteOf(path);
        if (const std::optional<HeadRefusal> refusal =
                CheckRequest(HeadOf(connection, method, version, *state), front->Parts().names)) {
            front->Parts().log->Note(std::string(method) + " " + state->rawUri + " -> " +
                                     std::to_string(refusal->status) + " (refused by the host)");
            return Send(connection, ErrorReply(refusal->status, refusal->message));
        }
        // The way-in page's own files load before the browser has the token;
        // a browser refused a page gets that page (way_in.h).
        const std::optional<HttpReply> denial =
            IsWayInAsset(path) ? std::nullopt : AccessAnswer(front->Parts(), connection, method, state->rawUri);
        if (denial) {
            return Send(connection, WayInPage(connection, method, path, state->rawUri, *denial).value_or(*denial));
        }
        if (const std::optional<HttpReply> refusal = Refusal(front->Parts(), path, method, *state)) {
            front->Parts().log->Note(std::string(method) + " " + state->rawUri + " -> " +
                                     std::to_string(refusal->status) + " (refused by the host)");
            return Send(connection, *refusal);
        }
        return MHD_YES;
    }
    if (*uploadSize != 0) {
        if (state->body.size() + *uploadSize > kBodyLimit) {  // a chunked body
            state->tooLarge = true;
        } else {
            state->body.append(uploadData, *uploadSize);
        }
        *uploadSize = 0;
        return MHD_YES;
    }
    if (state->tooLarge) {
        return Send(connection, ErrorReply(413, "the body is larger than " + std::to_string(kBodyLimit) + " bytes"));
    }
    switch (state->route.kind) {
        case RouteKind::Document:
            return Send(connection, HttpReply{200, contract::ApiDocumentText(), ""});
        case RouteKind::Sim: {
            const size_t query = state->rawUri.find('?');
            return Send(connection, HandleSimRoute(front->Parts(), method, state->route.rest, state->body,
                                                   query == std::string::npos ? "" : state->rawUri.substr(query + 1)));
        }
        case RouteKind::Console:
            return Send(connection, ConsoleFile(method, path));
        case RouteKind::Resource:
        case RouteKind::None:  // refused before its body
            break;
    }
    return Send(connection,
                RunResource(front->Parts(), connection, std::strcmp(method, MHD_HTTP_METHOD_PUT) == 0, *state));
}

}  // namespace

HttpReply ErrorReply(unsigned status, const std::string& message)
{
    Json error(json_object_new_object());
    json_object_object_add(error.get(), "status", json_object_new_int(static_cast<int>(status)));
    json_object_object_add(error.get(), "message", json_object_new_string(message.c_str()));
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "error", error.release());
    return JsonReply(status, o.get());
}

HttpReply JsonReply(unsigned status, json_object* body)
{
    return HttpReply{status,
                     json_object_to_json_string_ext(body, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE) +
                         std::string("\n"),
                     ""};
}

std::vector<std::pair<std::string, std::string>> CommonHeaders(const std::string& contentType)
{
    const bool page = contentType.rfind("text/html", 0) == 0;
    return {{"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"},
            {"Content-Security-Policy", page ? kPagePolicy : kDataPolicy}};
}

std::string AnswerBytes(const HttpReply& reply)
{
    std::string bytes = "HTTP/1.1 " + std::to_string(reply.status) + " " + MHD_get_reason_phrase_for(reply.status) +
                        "\r\nContent-Type: " + reply.contentType +
                        "\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\nConnection: close\r\n";
    for (const auto& [name, value] : reply.headers) {
        bytes += name + ": " + value + "\r\n";
    }
    for (const auto& [name, value] : CommonHeaders(reply.contentType)) {
        bytes += name + ": " + value + "\r\n";
    }
    return bytes + "\r\n" + reply.body;
}

bool HttpFront::Start(const std::string& address, uint16_t port, const std::vector<std::string>& names,
                      std::string& error)
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
        error = "not an IPv4 address: " + address;
        return false;
    }
    // The intake listens and hands connections over (intake.h).
    if (!intake_.Listen(addr, error)) {
        error += " (" + address + ":" + std::to_string(port) + ")";
        return false;
    }
    parts_.names = HostNames(intake_.Port(), names);
    // The intake keeps the library within parts_.limits; the library's own
    // bound is only a backstop above it.
    const auto libraryLimit = static_cast<unsigned>(parts_.limits.served + kLibraryLimitSlack);
    daemon_ = MHD_start_daemon(MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
                                   MHD_USE_ERROR_LOG | MHD_USE_NO_LISTEN_SOCKET,
                               0, nullptr, nullptr, &Access, this, MHD_OPTION_EXTERNAL_LOGGER, &LibraryMessage,
                               parts_.log, MHD_OPTION_URI_LOG_CALLBACK, &UriLog, nullptr, MHD_OPTION_NOTIFY_COMPLETED,
                               &Completed, nullptr, MHD_OPTION_NOTIFY_CONNECTION, &Intake::Notify, &intake_,
                               MHD_OPTION_THREAD_STACK_SIZE, kStageStackSize, MHD_OPTION_CONNECTION_LIMIT, libraryLimit,
                               MHD_OPTION_CONNECTION_TIMEOUT, kConnectionTimeoutS, MHD_OPTION_END);
    if (daemon_ == nullptr) {
        error = "cannot listen on " + address + ":" + std::to_string(port);
        return false;
    }
    intake_.Serve(daemon_, parts_.log, &parts_.names, parts_.limits);
    return true;
}

uint16_t HttpFront::Port() const { return intake_.Port(); }

void HttpFront::Stop()
{
    intake_.Stop();
    if (daemon_ != nullptr) {
        MHD_stop_daemon(daemon_);
        daemon_ = nullptr;
    }
}

}  // namespace devhost
