// Builds the API document from the stage table, the contract rows, the
// member tables and the status envelope of the common library.
#include "api_document.h"
#include "responses.h"

#include <cstdio>
#include <cstdlib>
#include <map>

#include "host_limits.h"
#include "kxapi_common.h"
#include "kxapi_business_common.h"
#include "qtnapi_isp_srv.h"
#include "stage_table.h"

namespace devhost::contract {

namespace {

// The tags in the order a person meets them; the fifth groups the host's own routes.
constexpr const char* kTags[][2] = {
    {"Image tuning", "Fake-colour ratio, white balance, exposure lock, extreme-colour fusion"},
    {"Focus and capability", "What the image and the lens can do and where the lens stands"},
    {"Thermal imaging", "The thermal channel's settings"},
    {"Maintenance", "Restore defaults and resets: they change the device without a body"},
    {"Simulated device", "The development host's inspection and fault routes, and this document"},
};

// ---- a resource's operations ---------------------------------------------------

long long ExampleChannel(ChannelRule rule)
{
    return rule == ChannelRule::ThermalOnly ? ISP_THERMAL_CHANNEL : ISP_FIRST_CHANNEL;
}

json_object* ChannelParameter(const ResourceContract& c)
{
    json_object* schema = Object();
    Put(schema, "type", Text("integer"));
    std::string description;
    switch (c.channel) {
        case ChannelRule::NotRead:
            description = "not read by this resource's stages: any value, or none, answers the same";
            break;
        case ChannelRule::NonNegative:
            Put(schema, "minimum", Integer(0));
            Put(schema, "maximum", Integer(INT32_MAX));
            description =
                "a whole decimal number from 0 to 2147483647; a negative one is refused with StatusCode "
                "-1, an unreadable one (missing, too large, with '+', blanks or escapes) with 3";
            break;
        case ChannelRule::Unsigned:
            Put(schema, "minimum", Integer(0));
            Put(schema, "maximum", Integer(UINT32_MAX));
            description =
                "a whole decimal number from 0 to 4294967295; an unreadable one (missing, negative, too "
                "large, with '+', blanks or escapes) is refused with StatusCode 3";
            break;
        case ChannelRule::ThermalOnly: {
            json_object* values = json_object_new_array();
            json_object_array_add(values, Integer(ISP_THERMAL_CHANNEL));
            Put(schema, "enum", values);
            description =
                "the thermal channel, 102, alone; another number is refused with StatusCode -1, an "
                "unreadable one with 3";
            break;
        }
    }
    if (c.channel != ChannelRule::NotRead) {
        description += c.channelSelects ? ". The device's channel is ChannelId - 101: channels from 101 on, as many "
                                          "as the device has (the profile's \"channels\")"
                                        : ". Only checked: the device's values are the same for every ChannelId";
    }
    json_object* p = Object();
    Put(p, "name", Text("ChannelId"));
    Put(p, "in", Text("query"));
    Put(p, "required", json_object_new_boolean(c.channel != ChannelRule::NotRead));
    Put(p, "description", Text(description));
    Put(p, "schema", schema);
    if (c.channel != ChannelRule::NotRead) {
        Put(p, "example", Integer(ExampleChannel(c.channel)));
    }
    json_object* list = json_object_new_array();
    json_object_array_add(list, p);
    return list;
}

json_object* Operation(const ResourceContract& c, bool put)
{
    json_object* op = Object();
    Put(op, "operationId", Text(std::string(put ? "put" : "get") + c.name));
    json_object* tags = json_object_new_array();
    json_object_array_add(tags, Text(c.tag));
    Put(op, "tags", tags);
    Put(op, "summary", Text(std::string(put ? (c.schema != nullptr ? "Change: " : "") : "Read: ") + c.summary));
    const char* note = put ? c.putNote : c.getNote;
    if (note != nullptr) {
        Put(op, "description", Text(note));
    }
    Put(op, "parameters", ChannelParameter(c));
    if (put && c.schema != nullptr) {
        json_object* body = Object();
        Put(body, "description",
            Text("the members to change; every member is optional, the others keep the "
                 "device's values"));
        Put(body, "required", json_object_new_boolean(1));
        Put(body, "content", JsonContent(Ref(std::string(kSchemas) + c.name + "Change")));
        Put(op, "requestBody", body);
    }
    json_object* responses = Object();
    if (put) {
        Put(responses, "200", Ref(std::string(kResponses) + "Status200"));
    } else {
        Put(responses, "200", Response("the device's current values", Ref(std::string(kSchemas) + c.name)));
    }
    for (const char* status : {"400", "404", "413", "414", "500", "503"}) {
        Put(responses, status, Ref(std::string(kResponses) + "Status" + status));
    }
    Put(op, "responses", responses);
    if (put && c.schema == nullptr) {
        Put(op, "x-confirm", json_object_new_boolean(1));
    }
    if (c.device != nullptr) {
        Put(op, "x-device", Text(c.device));
    }
    return op;
}

// The contract row of a resource of the stage table; a resource without one
// stops the host at once (the contract tests see it on their first run).
const ResourceContract& ContractOf(const ResourceRow& row)
{
    for (const ResourceContract& c : ResourceContracts()) {
        if (std::string(c.name) == row.name) {
            return c;
        }
    }
    std::fprintf(stderr, "ispiaas-devhost: the resource %s has no contract row\n", row.name);
    std::abort();
}

void AddResources(json_object* paths, json_object* schemas)
{
    for (const ResourceRow& row : kResourceRows) {
        const ResourceContract& c = ContractOf(row);
        json_object* item = Object();
        if ((row.stages & kRunGet) != 0) {
            Put(item, "get", Operation(c, false));
        }
        if ((row.stages & kRunPut) != 0) {
            Put(item, "put", Operation(c, true));
        }
        Put(paths, (std::string(kApiPrefix) + c.name).c_str(), item);
        if (c.schema != nullptr) {
            json_object* answer = c.schema(Walk{Form::Answer, &c.rules, ""});
            Put(answer, "description", Text(c.summary));
            Put(schemas, c.name, answer);
            json_object* change = c.schema(Walk{Form::Change, &c.rules, ""});
            Put(change, "description", Text(std::string(c.summary) + ", as a PUT names what it changes"));
            Put(schemas, (std::string(c.name) + "Change").c_str(), change);
        }
    }
}

// Every operation of a path answers the host's refusals before anything else
// (400, 401, 413, 414, 421, 501, 503), an operation that changes something
// 403, and a GET 303 when its query carries the access token.
void AddHostLimits(json_object* paths)
{
    json_object_object_foreach(paths, path, item)
    {
        (void)path;
        json_object_object_foreach(item, method, op)
        {
            json_object* responses = nullptr;
            if (json_object_object_get_ex(op, "responses", &responses)) {
                const bool get = std::string(method) == "get";
                for (const char* status : {"303", "400", "401", "403", "413", "414", "421", "501", "503"}) {
                    const bool applies = std::string(status) == "303" ? get : std::string(status) != "403" || !get;
                    if (applies && !json_object_object_get_ex(responses, status, nullptr)) {
                        Put(responses, status, Ref(std::string(kResponses) + "Status" + status));
                    }
                }
            }
        }
    }
}

// Adds every member of the object `from` to `to`, in order.
void AddAll(json_object* to, json_object* from)
{
    json_object_object_foreach(from, key, value) { Put(to, key, json_object_get(value)); }
}

json_object* Info()
{
    json_object* info = Object();
    Put(info, "title", Text("ISP settings of the camera, on the development host"));
    Put(info, "version", Text(ISPIAAS_VERSION));  // the project's one version
    Put(info, "description",
        Text("The module's resources under /api/isp/, generated from the member tables the module encodes and "
             "decodes with. A PUT changes only the members its body names. Numeric members also take a number of "
             "another kind (a boolean as 0 or 1, a fraction cut toward zero, an integer keeping its low bits) and a "
             "JSON null counts as absent; the document gives the kinds the module answers with. The host itself "
             "answers a path it does not serve with 404 (components.responses.Status404) and a method a path does "
             "not take with 405 and Allow (components.responses.Status405), without calling a stage. x-device "
             "names the /_sim/ route of the device's values for the example ChannelId; x-confirm marks operations "
             "that change the device without a body; x-capability-range names the Capability range that applies "
             "to a number. See docs/DEVHOST.md."));
    return info;
}

json_object* Build()
{
    json_object* doc = Object();
    Put(doc, "openapi", Text("3.1.0"));
    Put(doc, "info", Info());
    json_object* tags = json_object_new_array();
    for (const auto& tag : kTags) {
        json_object* t = Object();
        Put(t, "name", Text(tag[0]));
        Put(t, "description", Text(tag[1]));
        json_object_array_add(tags, t);
    }
    Put(doc, "tags", tags);

    json_object* paths = Object();
    json_object* schemas = Object();
    AddResources(paths, schemas);
    json_object* host = HostPaths();
    AddAll(paths, json_object_object_get(host, "paths"));
    AddDeviceTables(paths);
    AddHostLimits(paths);
    Put(doc, "paths", paths);

    MemberRules none;
    json_object* envelope = RecordSchema<KXAPI_RESPONSE>(Walk{Form::Answer, &none, ""});
    Put(envelope, "description", Text("the status envelope of a response without a settings record"));
    Put(schemas, "ResponseStatus", envelope);
    Put(schemas, "HostError", HostErrorSchema());
    AddAll(schemas, json_object_object_get(host, "schemas"));
    AddFaultSchema(schemas);

    json_object* responses = Object();
    for (const auto& [status, variants] : EnvelopeByHttpStatus()) {
        std::string description;
        json_object* schema = EnvelopeSchema(variants, description);
        Put(responses, ("Status" + std::to_string(status)).c_str(), Response(description, schema));
    }
    Put(responses, "Status404",
        HostErrorResponse(404, "no such path; or, under --allow-missing, a resource whose stages the module lacks",
                          nullptr));
    const AnswerHeader allow{"Allow", "the methods the path takes, e.g. \"GET, PUT\""};
    const AnswerHeader bearer{"WWW-Authenticate", "the scheme the token is given in: \"Bearer\""};
    Put(responses, "Status401",
        HostErrorResponse(401,
                          "a host listening beyond loopback (or given --token) refuses a request without its access "
                          "token (Authorization: Bearer, or the cookie that GET /?token= sets)",
                          &bearer));
    Put(responses, "Status303", TokenRedirect());
    Put(responses, "Status405", HostErrorResponse(405, "a method the path does not take", &allow));
    Put(responses, "Status413",
        HostErrorResponse(413, ("a body larger than " + std::to_string(kBodyLimit / 1024) + " KiB").c_str()));
    Put(responses, "Status414",
        HostErrorResponse(
            414, ("a request target that does not fit the module's " + std::to_string(HTTP_URL_LEN) + "-byte URL field")
                     .c_str()));
    Put(responses, "Status502", HostErrorResponse(502, "a simulator did not answer"));
    Put(responses, "Status403",
        HostErrorResponse(403,
                          "a request that changes something, from a browser page of another origin (its Origin "
                          "is not http:// and its Host, or its Sec-Fetch-Site is cross-site or same-site)"));
    Put(responses, "Status421",
        HostErrorResponse(421,
                          "a Host that does not name this host (the listen address, a loopback name, or a "
                          "name given with --allow-host)"));
    Put(responses, "Status501", HostErrorResponse(501, "a Transfer-Encoding other than chunked"));
    OrHostRefusal(json_object_object_get(responses, "Status400"), 400,
                  "a malformed request line or header line, a missing or repeated Host, a Content-Length that is not "
                  "a number or differs from another, or one beside a Transfer-Encoding");
    OrHostRefusal(json_object_object_get(responses, "Status503"), 503,
                  "a host holding as many connections as it takes (with Retry-After)");
    AddAll(responses, json_object_object_get(host, "responses"));
    json_object* components = Object();
    Put(components, "schemas", schemas);
    Put(components, "responses", responses);
    Put(components, "parameters", json_object_get(json_object_object_get(host, "parameters")));
    Put(components, "requestBodies", json_object_get(json_object_object_get(host, "requestBodies")));
    json_object_put(host);
    // The token is asked for only beyond loopback: no requirement ({}) or the bearer token.
    json_object* bearerScheme = Object();
    Put(bearerScheme, "type", Text("http"));
    Put(bearerScheme, "scheme", Text("bearer"));
    Put(bearerScheme, "description",
        Text("the host's access token, needed when it listens beyond loopback; the cookie that GET /?token= sets "
             "carries it too"));
    json_object* schemes = Object();
    Put(schemes, "accessToken", bearerScheme);
    Put(components, "securitySchemes", schemes);
    json_object* tokenRequirement = Object();
    Put(tokenRequirement, "accessToken", json_object_new_array());
    json_object* security = json_object_new_array();
    json_object_array_add(security, Object());
    json_object_array_add(security, tokenRequirement);
    Put(doc, "security", security);
    Put(doc, "components", components);
    return doc;
}

}  // namespace

json_object* ApiDocument()
{
    static json_object* const doc = Build();
    return doc;
}

const std::string& ApiDocumentText()
{
    static const std::string text =
        json_object_to_json_string_ext(ApiDocument(), JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE) +
        std::string("\n");
    return text;
}

}  // namespace devhost::contract
