// JSON Schema of a settings record, made from the member table that the
// module encodes and decodes the record with: one function per member kind
// (number, flag, text, group, array of records, record). Key order, nesting,
// JSON types and array sizes are the table's; what a stage enforces beyond
// the table comes from the resource's rules (MemberRule), matched by the
// member's JSON pointer.
#ifndef DEVHOST_CONTRACT_MEMBER_SCHEMA_H
#define DEVHOST_CONTRACT_MEMBER_SCHEMA_H

#include <json-c/json.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "kx_member_codec.h"

namespace devhost::contract {

// A record's schema as the module answers with it (every member present, the
// text as the device holds it) or as a PUT body names it (every member
// optional, the limits the stages enforce).
enum class Form { Answer, Change };

// What a stage enforces on one member, or what the device reports for it.
struct MemberRule {
    const char* pointer;                      // JSON pointer of the member in the record's object
    std::vector<long long> values = {};       // the value set a PUT is held to
    const char* capabilityRange = nullptr;    // the member of the Capability resource's basicInfos giving its range
    char counted = '\0';                      // a text must hold at least `count` of this character ...
    unsigned count = 0;
    const char* description = nullptr;
};

using MemberRules = std::vector<MemberRule>;

// json-c helpers: a new object, a member added in order, and values.
json_object* Object();
void Put(json_object* o, const char* key, json_object* value);
json_object* Text(const std::string& text);
json_object* Integer(long long value);

// Where the walk is: the form, the resource's rules, the member's pointer.
struct Walk {
    Form form;
    const MemberRules* rules;
    std::string pointer;

    Walk At(const char* key) const { return Walk{form, rules, pointer + "/" + key}; }
};

// Adds the rules found for w.pointer to a member's schema.
void ApplyRules(json_object* schema, const Walk& w);

// The member kinds of the codec without a record behind them.
json_object* NumberSchema(bool integral, bool isSigned, size_t bytes);
json_object* FlagSchema();
json_object* ClockSchema(bool datetime);
json_object* TextSchema(size_t arrayBytes, Form form);
json_object* ArraySchema(json_object* items, size_t count, Form form);
json_object* ObjectSchema();

template <class Record>
json_object* RecordSchema(const Walk& w);

// One member rendered by its own type and kind, as the codec does.
template <class T>
json_object* MemberSchema(int kind, const Walk& w)
{
    json_object* schema = nullptr;
    if constexpr (std::is_same_v<T, bool>) {
        schema = FlagSchema();
    } else if constexpr (std::is_arithmetic_v<T>) {
        if (std::is_integral_v<T> && kind == KX_KIND_BOOL) {
            schema = FlagSchema();
        } else if (std::is_integral_v<T> && (kind == KX_KIND_CLOCK || kind == KX_KIND_DATETIME)) {
            schema = ClockSchema(kind == KX_KIND_DATETIME);
        } else {
            schema = NumberSchema(std::is_integral_v<T>, std::is_signed_v<T>, sizeof(T));
        }
    } else if constexpr (kxcodec::is_char_array<T>) {
        schema = TextSchema(std::extent_v<T>, w.form);
    } else if constexpr (kxcodec::is_record_array<T>) {
        schema = ArraySchema(RecordSchema<std::remove_extent_t<T>>(w), std::extent_v<T>, w.form);
    } else {
        schema = RecordSchema<T>(w);
    }
    ApplyRules(schema, w);
    return schema;
}

template <class Owner, class T, class A, class D>
void AddMember(json_object* properties, json_object* required, MemberCoder<Owner, T, A, D> const& coder,
               const Walk& w)
{
    Put(properties, coder.key, MemberSchema<T>(coder.kind, w.At(coder.key)));
    if (required != nullptr) {
        json_object_array_add(required, Text(coder.key));
    }
}

template <class Tuple>
json_object* CodersSchema(Tuple const& coders, const Walk& w);

// A group is an object of its own, holding members of the same record.
template <class Owner, class... Coders>
void AddMember(json_object* properties, json_object* required, MemberGroup<Owner, Coders...> const& group,
               const Walk& w)
{
    json_object* schema = CodersSchema(group.coders, w.At(group.key));
    ApplyRules(schema, w.At(group.key));
    Put(properties, group.key, schema);
    if (required != nullptr) {
        json_object_array_add(required, Text(group.key));
    }
}

// The object of a tuple of coders, its properties in the table's order.
template <class Tuple>
json_object* CodersSchema(Tuple const& coders, const Walk& w)
{
    json_object* schema = ObjectSchema();
    json_object* properties = Object();
    json_object* required = w.form == Form::Answer ? json_object_new_array() : nullptr;
    std::apply([&](auto const&... c) { (AddMember(properties, required, c, w), ...); }, coders);
    Put(schema, "properties", properties);
    if (required != nullptr) {
        // The encoder writes exactly these members, all of them.
        Put(schema, "required", required);
        Put(schema, "additionalProperties", json_object_new_boolean(0));
    }
    return schema;
}

template <class Record>
json_object* RecordSchema(const Walk& w)
{
    return CodersSchema(MemberTable<Record>::coders(), w);
}

}  // namespace devhost::contract

#endif  // DEVHOST_CONTRACT_MEMBER_SCHEMA_H
