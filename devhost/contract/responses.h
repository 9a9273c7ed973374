// The responses of the API document: the module's status envelope by HTTP
// status, and the host's own refusals. Shared by the document's builders.
#ifndef DEVHOST_CONTRACT_RESPONSES_H
#define DEVHOST_CONTRACT_RESPONSES_H

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "member_schema.h"

namespace devhost::contract {

inline constexpr const char* kSchemas = "#/components/schemas/";
inline constexpr const char* kResponses = "#/components/responses/";

json_object* Ref(const std::string& target);
json_object* Texts(std::initializer_list<const char*> texts);
// {"application/json": {"schema": schema}}
json_object* JsonContent(json_object* schema);
json_object* Response(const std::string& description, json_object* schema);

// The envelope's variants by HTTP status, as FillResponseStatusParam makes them.
struct StatusVariant {
    long long code;
    std::string text;
    const char* meaning;
    bool device;
};
std::map<unsigned, std::vector<StatusVariant>> EnvelopeByHttpStatus();
// The envelope's schema for the variants of one status, and its description.
json_object* EnvelopeSchema(const std::vector<StatusVariant>& variants, std::string& description);

// The host's error shape: {"error": {"status", "message"}}.
json_object* HostErrorSchema();

// A header of an answer, for a response's "headers".
struct AnswerHeader {
    const char* name;
    const char* description;
};
json_object* HostErrorResponse(unsigned status, const char* description, const AnswerHeader* with = nullptr);
// A status that both the module (its envelope) and the host (its error
// shape, before any stage) answer with: `response` widened to either.
void OrHostRefusal(json_object* response, unsigned status, const std::string& also);
// The answer to a GET whose query carries the access token.
json_object* TokenRedirect();

}  // namespace devhost::contract

#endif  // DEVHOST_CONTRACT_RESPONSES_H
