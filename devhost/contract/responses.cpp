// The document's responses: the module's status envelope, read from the
// common library's FillResponseStatusParam, and the host's own refusals.
#include "responses.h"

#include "kxapi_common.h"
#include "kxapi_business_common.h"

namespace devhost::contract {

namespace {

// The stage results the module answers with, in the order of the envelope's
// table; a device's own code stands for every other.
struct ResultMeaning {
    VW_RESULT_TYPE result;
    const char* meaning;
};
constexpr ResultMeaning kResults[] = {
    {VW_SUCCESS, "success"},
    {VW_ERR_PARAM, "failed service, command or record"},
    {VW_ERR_QUERY, "ChannelId unreadable"},
    {VW_ERR_BODY, "body or a value in it refused"},
    {VW_ERR_NO_MEMORY, "out of memory"},
    {VW_ERR_RANGE, "ChannelId outside the accepted values, or a Format stage failed"},
};
constexpr VW_RESULT_TYPE kSomeDeviceCode = static_cast<VW_RESULT_TYPE>(5);

}  // namespace

json_object* Ref(const std::string& target)
{
    json_object* o = Object();
    Put(o, "$ref", Text(target));
    return o;
}

json_object* Texts(std::initializer_list<const char*> texts)
{
    json_object* a = json_object_new_array();
    for (const char* t : texts) {
        json_object_array_add(a, Text(t));
    }
    return a;
}

json_object* JsonContent(json_object* schema)
{
    json_object* media = Object();
    Put(media, "schema", schema);
    json_object* content = Object();
    Put(content, "application/json", media);
    return content;
}

json_object* Response(const std::string& description, json_object* schema)
{
    json_object* r = Object();
    Put(r, "description", Text(description));
    Put(r, "content", JsonContent(schema));
    return r;
}

namespace {

// {"allOf": [the schema `name`, `refinement`]}: a shared schema narrowed.
json_object* Refined(const char* name, json_object* refinement)
{
    json_object* allOf = json_object_new_array();
    json_object_array_add(allOf, Ref(std::string(kSchemas) + name));
    json_object_array_add(allOf, refinement);
    json_object* schema = Object();
    Put(schema, "allOf", allOf);
    return schema;
}

}  // namespace

// ---- the status envelope ---------------------------------------------------

std::map<unsigned, std::vector<StatusVariant>> EnvelopeByHttpStatus()
{
    std::map<unsigned, std::vector<StatusVariant>> by;
    for (const ResultMeaning& r : kResults) {
        const KXAPI_RESPONSE e = FillResponseStatusParam(nullptr, r.result);
        by[static_cast<unsigned>(e.ullHttpStatus)].push_back(
            {r.result, e.ResponseStatus.StatusString, r.meaning, false});
    }
    const KXAPI_RESPONSE device = FillResponseStatusParam(nullptr, kSomeDeviceCode);
    by[static_cast<unsigned>(device.ullHttpStatus)].push_back(
        {kSomeDeviceCode, device.ResponseStatus.StatusString, "the device's own error code", true});
    return by;
}

namespace {

// {"properties": {"ResponseStatus": {"properties": {"StatusCode": ..., "StatusString": ...}}}}
json_object* StatusPair(json_object* code, const std::string& text)
{
    json_object* props = Object();
    Put(props, "StatusCode", code);
    json_object* textSchema = Object();
    Put(textSchema, "const", Text(text));
    Put(props, "StatusString", textSchema);
    json_object* inner = Object();
    Put(inner, "properties", props);
    json_object* outerProps = Object();
    Put(outerProps, "ResponseStatus", inner);
    json_object* outer = Object();
    Put(outer, "properties", outerProps);
    return outer;
}

}  // namespace

json_object* EnvelopeSchema(const std::vector<StatusVariant>& variants, std::string& description)
{
    json_object* oneOf = json_object_new_array();
    for (const StatusVariant& v : variants) {
        json_object* code = Object();
        if (v.device) {
            json_object* known = json_object_new_array();
            for (const ResultMeaning& r : kResults) {
                json_object_array_add(known, Integer(r.result));
            }
            json_object* notKnown = Object();
            Put(notKnown, "enum", known);
            Put(code, "type", Text("integer"));
            Put(code, "not", notKnown);
            description += "; any other StatusCode: " + std::string(v.meaning) + " (\"" + v.text + "\")";
        } else {
            Put(code, "const", Integer(v.code));
            description += std::string(description.empty() ? "" : "; ") + "StatusCode " + std::to_string(v.code) +
                           ": " + v.meaning + " (\"" + v.text + "\")";
        }
        json_object_array_add(oneOf, StatusPair(code, v.text));
    }
    json_object* variant = Object();
    Put(variant, "oneOf", oneOf);
    return Refined("ResponseStatus", variant);
}

// ---- the host's own refusals ------------------------------------------------

json_object* HostErrorSchema()
{
    json_object* status = Object();
    Put(status, "type", Text("integer"));
    Put(status, "description", Text("the HTTP status"));
    json_object* message = Object();
    Put(message, "type", Text("string"));
    json_object* props = Object();
    Put(props, "status", status);
    Put(props, "message", message);
    json_object* error = Object();
    Put(error, "type", Text("object"));
    Put(error, "properties", props);
    Put(error, "required", Texts({"status", "message"}));
    Put(error, "additionalProperties", json_object_new_boolean(0));
    json_object* outerProps = Object();
    Put(outerProps, "error", error);
    json_object* schema = Object();
    Put(schema, "type", Text("object"));
    Put(schema, "properties", outerProps);
    Put(schema, "required", Texts({"error"}));
    Put(schema, "additionalProperties", json_object_new_boolean(0));
    Put(schema, "description", Text("a request the host answers itself, without calling a stage"));
    return schema;
}

namespace {

// A header an answer always carries, with what it holds.
// Adds the headers to the response object `r`.
void AddHeaders(json_object* r, std::initializer_list<AnswerHeader> list)
{
    json_object* headers = Object();
    for (const AnswerHeader& h : list) {
        json_object* schema = Object();
        Put(schema, "type", Text("string"));
        json_object* header = Object();
        Put(header, "description", Text(h.description));
        Put(header, "required", json_object_new_boolean(1));
        Put(header, "schema", schema);
        Put(headers, h.name, header);
    }
    Put(r, "headers", headers);
}

}  // namespace

namespace {

// The host's own error shape with its status fixed.
json_object* HostErrorSchemaFor(unsigned status)
{
    json_object* statusConst = Object();
    Put(statusConst, "const", Integer(status));
    json_object* errorProps = Object();
    Put(errorProps, "status", statusConst);
    json_object* error = Object();
    Put(error, "properties", errorProps);
    json_object* props = Object();
    Put(props, "error", error);
    json_object* exact = Object();
    Put(exact, "properties", props);
    return Refined("HostError", exact);
}

}  // namespace

json_object* HostErrorResponse(unsigned status, const char* description, const AnswerHeader* with)
{
    json_object* r = Response(description, HostErrorSchemaFor(status));
    if (with != nullptr) {
        AddHeaders(r, {*with});
    }
    return r;
}

// A status that both the module (its envelope) and the host (its error
// shape, before any stage) answer with: `response` widened to either.
void OrHostRefusal(json_object* response, unsigned status, const std::string& also)
{
    json_object* media = json_object_object_get(json_object_object_get(response, "content"), "application/json");
    json_object* oneOf = json_object_new_array();
    json_object_array_add(oneOf, json_object_get(json_object_object_get(media, "schema")));
    json_object_array_add(oneOf, HostErrorSchemaFor(status));
    json_object* schema = Object();
    Put(schema, "oneOf", oneOf);
    Put(media, "schema", schema);
    Put(response, "description",
        Text(json_object_get_string(json_object_object_get(response, "description")) +
             std::string("; or, from the host before any stage, ") + also));
}

// The answer to a GET whose query carries the access token: no content, the
// same target without the token, and the cookie that carries it from then on.
json_object* TokenRedirect()
{
    json_object* r = Object();
    Put(r, "description", Text("a GET whose query carries the host's access token (token=): taken, set as a cookie"));
    AddHeaders(r, {{"Location", "the request target without its token parameter"},
                   {"Set-Cookie", "ispiaas-token-PORT=TOKEN; HttpOnly; SameSite=Strict; Path=/"}});
    return r;
}

}  // namespace devhost::contract
