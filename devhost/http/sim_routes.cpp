// The inspection and fault routes under "/_sim/": each is a request over the
// link of the simulator that owns the state, or of both.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "access.h"
#include "http_front.h"
#include "faults.h"
#include "journal.h"

namespace devhost {

namespace {

// Command numbers from here on belong to the control process.
constexpr long long kFirstControlCommand = 1000;


std::vector<std::string> Split(const std::string& path)
{
    std::vector<std::string> parts;
    std::stringstream in(path);
    std::string part;
    while (std::getline(in, part, '/')) {
        parts.push_back(part);
    }
    return parts;
}

// A decimal number from 0 to `max`; nullopt for anything else, however many
// digits it has.
std::optional<unsigned long long> Number(const std::string& text, unsigned long long max)
{
    if (text.empty() || text.size() > 20 || !std::all_of(text.begin(), text.end(), ::isdigit)) {
        return std::nullopt;
    }
    errno = 0;
    const unsigned long long n = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0 && n <= max ? std::optional(n) : std::nullopt;
}

Json Request(const char* op)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "op", json_object_new_string(op));
    return o;
}

// The HTTP status of a request the link did not answer: a refused one gets
// the route's own status, a lost simulator 502.
unsigned StatusOf(const LinkReply& reply, unsigned refused)
{
    return reply.error == LinkError::Refused ? refused : 502;
}

// The simulator's answer, or its refusal with `refused`.
HttpReply Relay(LinkClient& link, json_object* request, unsigned refused)
{
    const LinkReply reply = link.Call(request);
    return reply ? JsonReply(200, reply.body.get()) : ErrorReply(StatusOf(reply, refused), reply.message);
}

HttpReply Block(LinkClient& link, const std::string& method, unsigned long long command,
                std::optional<unsigned long long> channel, const std::string& body)
{
    Json request = Request(method == "GET" ? "get" : "put");
    json_object_object_add(request.get(), "command", json_object_new_int64(static_cast<int64_t>(command)));
    if (channel) {
        json_object_object_add(request.get(), "channel", json_object_new_int64(static_cast<int64_t>(*channel)));
    }
    if (method == "PUT") {
        Json given = JsonParse(body);
        const std::optional<std::string> hex = JsonString(given.get(), "hex");
        if (!hex) {
            return ErrorReply(400, "the body must be a JSON object with the member \"hex\"");
        }
        const std::optional<long long> named = JsonInt(given.get(), "command");
        if (named && (*named < 0 || static_cast<unsigned long long>(*named) != command)) {
            return ErrorReply(400, "\"command\" differs from the path");
        }
        json_object_object_add(request.get(), "hex", json_object_new_string(hex->c_str()));
    }
    return Relay(link, request.get(), method == "GET" ? 404 : 400);
}

// The value of `since` in a query, 0 without one; nullopt when it is there
// but not a decimal number.
std::optional<unsigned long long> SinceOf(const std::string& query)
{
    std::stringstream in(query);
    std::string pair;
    while (std::getline(in, pair, '&')) {
        if (pair.rfind("since=", 0) == 0) {
            return Number(pair.substr(6), INT64_MAX);
        }
    }
    return 0;
}

// Both journals after `since`, merged in order, the newest JournalKeep() of
// them: each simulator keeps that many of its own, so the newest that many of
// all exchanges are among them.
HttpReply MergedJournal(HostParts& parts, unsigned long long since)
{
    // Read before asking: every exchange numbered up to `last` is in a journal
    // by then, and the later ones are left for the next `since=last`.
    const unsigned long long last = SharedSequence()->load();
    Json request = Request("journal");
    json_object_object_add(request.get(), "since", json_object_new_int64(static_cast<int64_t>(since)));
    json_object_object_add(request.get(), "upTo", json_object_new_int64(static_cast<int64_t>(last)));
    std::vector<json_object*> entries;
    long long kept = 0;
    long long dropped = 0;
    const LinkReply replies[] = {parts.isp->Call(request.get()), parts.control->Call(request.get())};
    for (const LinkReply& reply : replies) {
        json_object* list = JsonGet(reply.body.get(), "entries");
        if (!reply || !json_object_is_type(list, json_type_array)) {
            return ErrorReply(502, "a simulator did not give its journal");
        }
        for (size_t i = 0; i < json_object_array_length(list); i++) {
            entries.push_back(json_object_array_get_idx(list, i));
        }
        kept += JsonInt(reply.body.get(), "kept").value_or(0);
        dropped += JsonInt(reply.body.get(), "dropped").value_or(0);
    }
    std::sort(entries.begin(), entries.end(), [](json_object* a, json_object* b) {
        return JsonInt(a, "seq").value_or(0) < JsonInt(b, "seq").value_or(0);
    });
    const size_t keep = JournalKeep();
    const size_t skip = entries.size() > keep ? entries.size() - keep : 0;
    Json merged(json_object_new_array());
    for (size_t i = skip; i < entries.size(); i++) {
        json_object_array_add(merged.get(), json_object_get(entries[i]));
    }
    dropped += std::max<long long>(0, kept - static_cast<long long>(keep));
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "entries", merged.release());
    json_object_object_add(o.get(), "last", json_object_new_int64(static_cast<int64_t>(last)));
    json_object_object_add(o.get(), "dropped", json_object_new_int64(dropped));
    return JsonReply(200, o.get());
}

HttpReply ArmFault(HostParts& parts, const std::string& body)
{
    Json fault = JsonParse(body);
    if (fault == nullptr || !json_object_is_type(fault.get(), json_type_object)) {
        return ErrorReply(400, "the body must be a JSON object describing the fault");
    }
    // The service is named, or follows from the kind (when one service alone
    // plays it) or from the command.
    std::string service = JsonString(fault.get(), "service").value_or("");
    if (service.empty()) {
        const std::optional<long long> command = JsonInt(fault.get(), "command");
        const std::optional<FaultKind> kind = FaultKindByName(JsonString(fault.get(), "kind").value_or(""));
        if (kind && RowOf(*kind).services != (Service::Isp | Service::Control)) {
            service = ServiceName(RowOf(*kind).services == Service::Isp ? Service::Isp : Service::Control);
        } else if (!command) {
            return ErrorReply(400, "a fault names its \"command\" or its \"service\" (\"isp\" or \"control\")");
        } else {
            service = *command >= kFirstControlCommand ? "control" : "isp";
        }
    }
    if (service != "isp" && service != "control") {
        return ErrorReply(400, "\"service\" must be \"isp\" or \"control\"");
    }
    Json request = Request("faults.arm");
    json_object_object_add(request.get(), "fault", json_object_get(fault.get()));
    HttpReply reply = Relay(service == "isp" ? *parts.isp : *parts.control, request.get(), 400);
    if (reply.status == 200) {
        json_object_object_add(fault.get(), "service", json_object_new_string(service.c_str()));
        reply = JsonReply(201, fault.get());
    }
    return reply;
}

HttpReply Faults(HostParts& parts)
{
    Json o(json_object_new_object());
    for (const auto& [name, link] : {std::pair{"isp", parts.isp}, std::pair{"control", parts.control}}) {
        LinkReply reply = link->Call(Request("faults").get());
        if (!reply) {
            return ErrorReply(StatusOf(reply, 502), reply.message);
        }
        json_object_object_add(o.get(), name, reply.body.release());
    }
    return JsonReply(200, o.get());
}

// How the host admits requests: what the console shows of it.
HttpReply AccessMode(const HostParts& parts)
{
    const bool token = parts.access != nullptr && !parts.access->Token().empty();
    const bool open = parts.access != nullptr && parts.access->OpenToTheNetwork();
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "mode", json_object_new_string(token ? "token" : open ? "open" : "loopback"));
    return JsonReply(200, o.get());
}

HttpReply Both(HostParts& parts, const char* op)
{
    for (LinkClient* link : {parts.isp, parts.control}) {
        const LinkReply reply = link->Call(Request(op).get());
        if (!reply) {
            return ErrorReply(502, reply.message);
        }
    }
    return JsonReply(200, JsonOk().get());
}

}  // namespace

HttpReply HandleSimRoute(HostParts& parts, const std::string& method, const std::string& path, const std::string& body,
                         const std::string& query)
{
    const std::vector<std::string> p = Split(path);
    const bool get = method == "GET";
    const bool put = method == "PUT";
    auto wrongMethod = [&](const char* allow) {
        HttpReply reply = ErrorReply(405, "/_sim/" + path + " takes " + allow + ", not " + method);
        reply.allow = allow;
        return reply;
    };
    if (p.size() == 3 && p[0] == "isp") {
        const std::optional<unsigned long long> command = Number(p[1], static_cast<unsigned long long>(kCommandMax));
        const std::optional<unsigned long long> channel = Number(p[2], static_cast<unsigned long long>(kChannelMax));
        if (!command || !channel) {
            return ErrorReply(404, "use /_sim/isp/<command>/<channel> with decimal numbers up to " +
                                       std::to_string(kCommandMax) + " and " + std::to_string(kChannelMax));
        }
        return get || put ? Block(*parts.isp, method, *command, channel, body) : wrongMethod("GET, PUT");
    }
    if (p.size() == 2 && p[0] == "control") {
        const std::optional<unsigned long long> code = Number(p[1], static_cast<unsigned long long>(kCommandMax));
        if (!code) {
            return ErrorReply(404,
                              "use /_sim/control/<code> with a decimal number up to " + std::to_string(kCommandMax));
        }
        return get || put ? Block(*parts.control, method, *code, std::nullopt, body) : wrongMethod("GET, PUT");
    }
    if (path == "access") {
        return get ? AccessMode(parts) : wrongMethod("GET");
    }
    if (path == "constant") {
        // A fixed body that asks nothing of the simulators or the module: what
        // the HTTP front alone costs a request (scripts/bench-e2e's baseline).
        return get || put ? HttpReply{200, "{\"constant\": true}\n", ""} : wrongMethod("GET, PUT");
    }
    if (path == "journal" || path == "log") {
        if (!get) {
            return wrongMethod("GET");
        }
        const std::optional<unsigned long long> since = SinceOf(query);
        if (!since) {
            return ErrorReply(400, "\"since\" takes the decimal sequence number of the last entry seen");
        }
        return path == "journal" ? MergedJournal(parts, *since) : JsonReply(200, parts.log->Lines(*since).get());
    }
    if (path == "faults") {
        if (method == "POST") {
            return ArmFault(parts, body);
        }
        if (method == "DELETE") {
            return Both(parts, "faults.clear");
        }
        return get ? Faults(parts) : wrongMethod("GET, POST, DELETE");
    }
    if (path == "reset") {
        if (method != "POST") {
            return wrongMethod("POST");
        }
        parts.log->Clear();
        return Both(parts, "reset");
    }
    return ErrorReply(404, "no inspection route /_sim/" + path);
}

}  // namespace devhost
