#include "member_schema.h"

namespace devhost::contract {

json_object* Object() { return json_object_new_object(); }

void Put(json_object* o, const char* key, json_object* value) { json_object_object_add(o, key, value); }

json_object* Text(const std::string& text) { return json_object_new_string(text.c_str()); }

json_object* Integer(long long value) { return json_object_new_int64(value); }

namespace {

json_object* Typed(const char* type)
{
    json_object* schema = Object();
    Put(schema, "type", Text(type));
    return schema;
}

// The pattern of a text that holds at least `count` of the character c.
std::string AtLeastPattern(char c, unsigned count)
{
    const std::string other = std::string("[^") + c + "]*";
    return "^(?:" + other + c + "){" + std::to_string(count) + "}";
}

}  // namespace

json_object* NumberSchema(bool integral, bool isSigned, size_t bytes)
{
    json_object* schema = Typed(integral ? "integer" : "number");
    const std::string bits = std::to_string(bytes * 8);
    // The codec prints a 64-bit member as a signed number, whatever its type.
    const bool printedSigned = isSigned || bytes >= 8;
    Put(schema, "format", Text(integral ? (printedSigned ? "int" : "uint") + bits : bytes == 4 ? "float" : "double"));
    return schema;
}

json_object* FlagSchema() { return Typed("boolean"); }

json_object* ClockSchema(bool datetime)
{
    json_object* schema = Typed("string");
    Put(schema, "description",
        Text(datetime ? "local date and time as \"YYYY-MM-DD HH:MM:SS\""
                      : "time of day as \"HH:MM\" (minutes after midnight)"));
    return schema;
}

json_object* TextSchema(size_t arrayBytes, Form form)
{
    json_object* schema = Typed("string");
    // The device's field holds arrayBytes bytes: an answer may fill it
    // without a terminator; a PUT leaves room for one.
    Put(schema, "maxLength", Integer(static_cast<long long>(form == Form::Answer ? arrayBytes : arrayBytes - 1)));
    if (form == Form::Change) {
        Put(schema, "description",
            Text("at most " + std::to_string(arrayBytes - 1) + " bytes; a longer text is refused with StatusCode 4"));
    }
    return schema;
}

json_object* ArraySchema(json_object* items, size_t count, Form form)
{
    json_object* schema = Typed("array");
    Put(schema, "items", items);
    if (form == Form::Answer) {
        Put(schema, "minItems", Integer(static_cast<long long>(count)));
        Put(schema, "maxItems", Integer(static_cast<long long>(count)));
    } else {
        Put(schema, "description",
            Text("the first " + std::to_string(count) +
                 " items change the device's items in order; further items are ignored"));
    }
    return schema;
}

json_object* ObjectSchema() { return Typed("object"); }

void ApplyRules(json_object* schema, const Walk& w)
{
    for (const MemberRule& rule : *w.rules) {
        if (w.pointer != rule.pointer) {
            continue;
        }
        if (!rule.values.empty()) {
            json_object* values = json_object_new_array();
            for (long long v : rule.values) {
                json_object_array_add(values, Integer(v));
            }
            Put(schema, "enum", values);
        }
        if (rule.capabilityRange != nullptr) {
            Put(schema, "x-capability-range", Text(rule.capabilityRange));
        }
        // A count rule holds for what a PUT writes; an answer shows the text
        // only up to its terminator, without the rest of the field.
        if (rule.count > 0 && w.form == Form::Change) {
            Put(schema, "pattern", Text(AtLeastPattern(rule.counted, rule.count)));
            json_object* count = Object();
            Put(count, "character", Text(std::string(1, rule.counted)));
            Put(count, "count", Integer(rule.count));
            Put(schema, "x-min-count", count);
        }
        if (rule.description != nullptr) {
            // The rule first, then what the member's kind says.
            json_object* had = nullptr;
            const std::string after = json_object_object_get_ex(schema, "description", &had)
                                          ? "; " + std::string(json_object_get_string(had))
                                          : "";
            Put(schema, "description", Text(rule.description + after));
        }
    }
}

}  // namespace devhost::contract
