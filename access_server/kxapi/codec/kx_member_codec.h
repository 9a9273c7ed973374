/*
 * Member-table JSON codec.
 *
 * A settings record is a plain structure. Its JSON form comes from its member
 * table: MemberTable<Record>::coders() returns a tuple of coders, one per
 * member, each naming the JSON key, the member and how its value is rendered.
 * Table order is the key order of the encoded object and the order in which
 * keys are looked up when decoding. MemberGroup gathers coders of the same
 * record under a key of their own, for JSON objects that have no record.
 *
 * json_encode<Record> turns a record into fresh JSON text; json_decode<Record>
 * merges JSON text into a record, changing only the members that it names.
 */
#ifndef KX_MEMBER_CODEC_H
#define KX_MEMBER_CODEC_H

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <tuple>
#include <type_traits>

#include "kx_cjson.h"
#include "securec.h"

/* Allocation policies of a coder. Records are plain and their members stored
 * in place, so nothing is obtained or released per member. */
struct NullAlloc {};
struct NullDealloc {};

/* How a member's value is rendered. */
enum MemberKind : int {
    KX_KIND_VALUE = 0,    /* by the member's own type */
    KX_KIND_BOOL = 1,     /* boolean from the member's first byte; decoded as 1 or 0 */
    KX_KIND_CLOCK = 2,    /* minutes after midnight as "HH:MM" */
    KX_KIND_DATETIME = 3, /* seconds since the epoch as local "YYYY-MM-DD HH:MM:SS" */
};

/* Specialised by every record with `static auto coders()`. */
template <class Record>
struct MemberTable;

/* Encoder of a whole record: a new JSON object with the members its table
 * names, or null when no object could be made. */
template <class Record>
struct jsonEncoder {
    static json_object* encode_nulldata(Record const& record, void* unused);
};

template <class Owner, class T, class Alloc = NullAlloc, class Dealloc = NullDealloc>
struct MemberCoder : Alloc, Dealloc {
    T Owner::*member;
    const char* key;
    int kind;

    constexpr MemberCoder(T Owner::*m, const char* k, int kd = KX_KIND_VALUE) : member(m), key(k), kind(kd) {}

    /* Renders the member and adds it to parent under the key; returns 0. */
    int encode(Owner const& owner, json_object* parent) const;
    /* 0 when the key is absent or its value was taken; -1 when refused. */
    int decode(json_object* parent, void* ctx, Owner& owner) const;
};

/* Coders of one record gathered under a key of their own. */
template <class Owner, class... Coders>
struct MemberGroup {
    const char* key;
    std::tuple<Coders...> coders;

    int encode(Owner const& owner, json_object* parent) const;
    int decode(json_object* parent, void* ctx, Owner& owner) const;
};

/* A coder for `m` under `key`, with its owner and type taken from `m`. */
template <class Owner, class T>
constexpr MemberCoder<Owner, T, NullAlloc, NullDealloc> member(T Owner::*m, const char* key, int kind = KX_KIND_VALUE)
{
    return MemberCoder<Owner, T, NullAlloc, NullDealloc>(m, key, kind);
}

template <class Owner, class... Coders>
constexpr MemberGroup<Owner, Coders...> group(const char* key, Coders... coders)
{
    return MemberGroup<Owner, Coders...>{key, std::tuple<Coders...>(coders...)};
}

/* Prints root, returns a malloc'ed copy of the text (null on failure) and
 * releases root in every case. */
char* kx_json_print_copy(json_object* root);

/* Copies JSON string text into a malloc'ed, terminated block (null on
 * failure); the caller frees it. */
char* kx_json_string_dup(json_object* value);

/* Clock and date-time texts: 0 and the value, or -1 when the text does not
 * hold one. */
int kx_clock_from_text(const char* text, long long* minutes);
int kx_datetime_from_text(const char* text, long long* seconds);
json_object* kx_clock_to_json(unsigned minutes);
json_object* kx_datetime_to_json(long long seconds);

template <class Owner, class T, class Alloc, class Dealloc, class... Rest>
int json_encode_member(Owner const& owner, json_object* parent, MemberCoder<Owner, T, Alloc, Dealloc> const& first,
                       Rest... rest);
template <class Owner, class... GroupCoders, class... Rest>
int json_encode_member(Owner const& owner, json_object* parent, MemberGroup<Owner, GroupCoders...> const& first,
                       Rest... rest);
template <class Owner, class T, class Alloc, class Dealloc, class... Rest>
int json_decode_member(json_object* parent, void* ctx, Owner& owner, MemberCoder<Owner, T, Alloc, Dealloc> const& first,
                       Rest... rest);
template <class Owner, class... GroupCoders, class... Rest>
int json_decode_member(json_object* parent, void* ctx, Owner& owner, MemberGroup<Owner, GroupCoders...> const& first,
                       Rest... rest);
template <class Record>
json_object* json_encode_array(Record const* items, int count);

namespace kxcodec {

// Left as written: clang-format 14 breaks the requires-expression's braces
// like a function's and reads the && of these variable templates as a
// reference.
// clang-format off
template <class T>
concept Record = requires { MemberTable<T>::coders(); };

template <class T>
inline constexpr bool is_char_array = std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, char>;

template <class T>
inline constexpr bool is_record_array = std::is_array_v<T> && Record<std::remove_extent_t<T>>;
// clang-format on

/* The JSON value of a member rendered by its own type. */
template <class T>
json_object* encode_value(T const& value)
{
    if constexpr (std::is_same_v<T, bool>) {
        return json_object_new_boolean(value ? 1 : 0);
    } else if constexpr (std::is_integral_v<T> && sizeof(T) < sizeof(int)) {
        return cJSON_CreateNumber(static_cast<int>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        return cJSON_CreateNumber(value);
    } else if constexpr (is_char_array<T>) {
        // A member that fills its array without a NUL is cut at the array's end.
        return json_object_new_string_len(value, static_cast<int>(strnlen(value, std::extent_v<T>)));
    } else if constexpr (is_record_array<T>) {
        return json_encode_array(&value[0], static_cast<int>(std::extent_v<T>));
    } else {
        static_assert(Record<T>, "member type has no JSON rendering");
        return jsonEncoder<T>::encode_nulldata(value, nullptr);
    }
}

/* The member's leading bytes as an Int, for the kinds that read the member
 * as a raw flag, clock or date-time. */
template <class Int, class T>
Int leading_bits(T const& value)
{
    Int out{};
    std::memcpy(&out, &value, sizeof(T) < sizeof(Int) ? sizeof(T) : sizeof(Int));
    return out;
}

template <class T>
json_object* encode_kind(T const& value, int kind)
{
    if constexpr (std::is_integral_v<T>) {
        switch (kind) {
            case KX_KIND_BOOL:
                return json_object_new_boolean(leading_bits<uint8_t>(value) != 0 ? 1 : 0);
            case KX_KIND_CLOCK:
                return kx_clock_to_json(static_cast<uint16_t>(value));
            case KX_KIND_DATETIME:
                if constexpr (std::is_signed_v<T>) {
                    return kx_datetime_to_json(static_cast<int32_t>(value));
                } else {
                    return kx_datetime_to_json(static_cast<uint32_t>(value));
                }
            default:
                break;
        }
    }
    (void)kind;
    return encode_value(value);
}

/* A floating-point value converted toward zero into T, saturating at T's
 * range; not-a-number gives 0. */
template <class T>
T saturate(double d)
{
    if (std::isnan(d)) {
        return 0;
    }
    const double limit = std::ldexp(1.0, std::numeric_limits<T>::digits);
    if (d >= limit) {
        return std::numeric_limits<T>::max();
    }
    if constexpr (std::is_signed_v<T>) {
        if (d < -limit) {
            return std::numeric_limits<T>::min();
        }
    } else if (d < 0) {
        return 0;
    }
    return static_cast<T>(std::trunc(d));
}

/* A JSON boolean or number into an arithmetic member; -1 for other types. */
template <class T>
int decode_number(json_object* value, T& out)
{
    switch (json_object_get_type(value)) {
        case json_type_boolean:
            out = static_cast<T>(json_object_get_boolean(value) ? 1 : 0);
            return 0;
        case json_type_int: {
            const int64_t i = json_object_get_int64(value);
            if constexpr (std::is_same_v<T, bool>) {
                out = i != 0;
            } else if constexpr (std::is_integral_v<T>) {
                // Integers keep their low bits, so -1 stores the all-ones pattern.
                out = static_cast<T>(static_cast<uint64_t>(i));
            } else {
                out = static_cast<T>(i);
            }
            return 0;
        }
        case json_type_double: {
            const double d = json_object_get_double(value);
            if constexpr (std::is_same_v<T, bool>) {
                out = d != 0.0;
            } else if constexpr (std::is_integral_v<T>) {
                out = saturate<T>(d);
            } else {
                out = static_cast<T>(d);
            }
            return 0;
        }
        default:
            return -1;
    }
}

template <class T>
int decode_kind(json_object* value, int kind, T& out)
{
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
        // A boolean member of another integral type takes what a bool would:
        // 1 for true and for any number that is not 0, else 0.
        if (kind == KX_KIND_BOOL) {
            bool flag = false;
            const int rc = decode_number(value, flag);
            if (rc == 0) {
                out = static_cast<T>(flag ? 1 : 0);
            }
            return rc;
        }
        if ((kind == KX_KIND_CLOCK || kind == KX_KIND_DATETIME) && json_object_is_type(value, json_type_string)) {
            char* text = kx_json_string_dup(value);
            if (text == nullptr) {
                return -1;
            }
            long long converted = 0;
            const int rc =
                kind == KX_KIND_CLOCK ? kx_clock_from_text(text, &converted) : kx_datetime_from_text(text, &converted);
            std::free(text);
            if (rc != 0) {
                return -1;
            }
            out = static_cast<T>(converted);
            return 0;
        }
    }
    (void)kind;
    return decode_number(value, out);
}

template <std::size_t N>
int decode_text(json_object* value, char (&out)[N])
{
    if (!json_object_is_type(value, json_type_string)) {
        return -1;
    }
    const int len = json_object_get_string_len(value);
    if (len < 0 || static_cast<std::size_t>(len) > N - 1) {
        return -1;
    }
    return strncpy_s(out, N, json_object_get_string(value), static_cast<std::size_t>(len)) == EOK ? 0 : -1;
}

template <class Owner, class Tuple>
int encode_all(Owner const& owner, json_object* parent, Tuple const& coders)
{
    return std::apply([&](auto const&... c) { return json_encode_member(owner, parent, c...); }, coders);
}

template <class Owner, class Tuple>
int decode_all(json_object* parent, void* ctx, Owner& owner, Tuple const& coders)
{
    return std::apply([&](auto const&... c) { return json_decode_member(parent, ctx, owner, c...); }, coders);
}

}  // namespace kxcodec

namespace kxcodec {

/* The walks after their first coder: the remaining coders, if any. */
template <class Owner, class... Rest>
int encode_rest(Owner const& owner, json_object* parent, Rest... rest)
{
    if constexpr (sizeof...(Rest) > 0) {
        return json_encode_member(owner, parent, rest...);
    }
    return 0;
}

template <class Owner, class... Rest>
int decode_rest(json_object* parent, void* ctx, Owner& owner, Rest... rest)
{
    if constexpr (sizeof...(Rest) > 0) {
        return json_decode_member(parent, ctx, owner, rest...);
    }
    return 0;
}

}  // namespace kxcodec

/* Encodes the first coder's member into parent, then the others in order;
 * returns 0. A record-valued member whose object cannot be built is added
 * under its key as JSON null and the walk goes on. */
template <class Owner, class T, class Alloc, class Dealloc, class... Rest>
int json_encode_member(Owner const& owner, json_object* parent, MemberCoder<Owner, T, Alloc, Dealloc> const& first,
                       Rest... rest)
{
    first.encode(owner, parent);
    return kxcodec::encode_rest(owner, parent, rest...);
}

template <class Owner, class... GroupCoders, class... Rest>
int json_encode_member(Owner const& owner, json_object* parent, MemberGroup<Owner, GroupCoders...> const& first,
                       Rest... rest)
{
    first.encode(owner, parent);
    return kxcodec::encode_rest(owner, parent, rest...);
}

/* Decodes the coders in order; stops at the first refusal and returns -1. */
template <class Owner, class T, class Alloc, class Dealloc, class... Rest>
int json_decode_member(json_object* parent, void* ctx, Owner& owner, MemberCoder<Owner, T, Alloc, Dealloc> const& first,
                       Rest... rest)
{
    return first.decode(parent, ctx, owner) != 0 ? -1 : kxcodec::decode_rest(parent, ctx, owner, rest...);
}

template <class Owner, class... GroupCoders, class... Rest>
int json_decode_member(json_object* parent, void* ctx, Owner& owner, MemberGroup<Owner, GroupCoders...> const& first,
                       Rest... rest)
{
    return first.decode(parent, ctx, owner) != 0 ? -1 : kxcodec::decode_rest(parent, ctx, owner, rest...);
}

template <class Owner, class T, class Alloc, class Dealloc>
int MemberCoder<Owner, T, Alloc, Dealloc>::encode(Owner const& owner, json_object* parent) const
{
    cJSON_AddItemToObject(parent, key, kxcodec::encode_kind(owner.*member, kind));
    return 0;
}

template <class Owner, class T, class Alloc, class Dealloc>
int MemberCoder<Owner, T, Alloc, Dealloc>::decode(json_object* parent, void* ctx, Owner& owner) const
{
    json_object* value = cJSON_GetObjectItem(parent, key);
    if (value == nullptr) {
        return 0;  // absent or JSON null: the member keeps its value
    }
    T& target = owner.*member;
    if constexpr (kxcodec::is_char_array<T>) {
        return kxcodec::decode_text(value, target);
    } else if constexpr (kxcodec::is_record_array<T>) {
        if (!json_object_is_type(value, json_type_array)) {
            return -1;
        }
        const int given = cJSON_GetArraySize(value);
        const int used = given < static_cast<int>(std::extent_v<T>) ? given : static_cast<int>(std::extent_v<T>);
        for (int i = 0; i < used; ++i) {
            if (kxcodec::decode_all(cJSON_GetArrayItem(value, i), ctx, target[i],
                                    MemberTable<std::remove_extent_t<T>>::coders()) != 0) {
                return -1;
            }
        }
        return 0;
    } else if constexpr (kxcodec::Record<T>) {
        // Anything but an object has no keys, so it leaves the record as it is.
        return kxcodec::decode_all(value, ctx, target, MemberTable<T>::coders());
    } else {
        return kxcodec::decode_kind(value, kind, target);
    }
}

template <class Owner, class... Coders>
int MemberGroup<Owner, Coders...>::encode(Owner const& owner, json_object* parent) const
{
    json_object* object = cJSON_CreateObject();
    if (object != nullptr && kxcodec::encode_all(owner, object, coders) != 0) {
        cJSON_Delete(object);
        object = nullptr;
    }
    cJSON_AddItemToObject(parent, key, object);
    return 0;
}

template <class Owner, class... Coders>
int MemberGroup<Owner, Coders...>::decode(json_object* parent, void* ctx, Owner& owner) const
{
    json_object* object = cJSON_GetObjectItem(parent, key);
    if (object == nullptr) {
        return 0;
    }
    return kxcodec::decode_all(object, ctx, owner, coders);
}

/* A new object holding the members that the coders name, in order; null when
 * the object cannot be made or its members cannot be encoded. */
template <class Record, class... Coders>
json_object* json_encode_obj(Record const& record, Coders... coders)
{
    json_object* object = cJSON_CreateObject();
    if (object == nullptr) {
        return nullptr;
    }
    if (json_encode_member(record, object, coders...) != 0) {
        cJSON_Delete(object);
        return nullptr;
    }
    return object;
}

template <class Record>
json_object* jsonEncoder<Record>::encode_nulldata(Record const& record, void* /*unused*/)
{
    return std::apply([&](auto const&... c) { return json_encode_obj(record, c...); }, MemberTable<Record>::coders());
}

/* A new array of count objects, one per item; null when the array or an
 * element cannot be made. */
template <class Record>
json_object* json_encode_array(Record const* items, int count)
{
    json_object* array = cJSON_CreateArray();
    if (array == nullptr || count < 1) {
        return array;
    }
    for (int i = 0; i < count; ++i) {
        json_object* element = jsonEncoder<Record>::encode_nulldata(items[i], nullptr);
        if (element == nullptr) {
            cJSON_Delete(array);
            return nullptr;
        }
        cJSON_AddItemToArray(array, element);
    }
    return array;
}

/* The record as JSON text in a malloc'ed block that the caller frees, or
 * null when it cannot be produced. */
template <class Record>
char* json_encode(Record const& record)
{
    json_object* root = jsonEncoder<Record>::encode_nulldata(record, nullptr);
    if (root == nullptr) {
        return nullptr;
    }
    return kx_json_print_copy(root);
}

namespace kxcodec {

/* Merges JSON text into the record (see json_decode). When `noted` is given,
 * it tells whether the text's top level names `key` with a value that is
 * not null. */
template <class Record>
int merge_text(const char* text, void* ctx, Record& record, const char* key = nullptr, bool* noted = nullptr)
{
    if (text == nullptr) {
        return -1;
    }
    json_object* root = cJSON_Parse(text);
    if (root == nullptr) {
        return -1;
    }
    const int rc = decode_all(root, ctx, record, MemberTable<Record>::coders());
    if (noted != nullptr) {
        *noted = cJSON_GetObjectItem(root, key) != nullptr;
    }
    cJSON_Delete(root);
    return rc;
}

}  // namespace kxcodec

/* Merges JSON text into the record: 0 on success, -1 when the text does not
 * parse or a value is refused (members decoded before it keep their new
 * values, so callers discard the record on -1). */
template <class Record>
int json_decode(const char* text, void* ctx, Record& record)
{
    return kxcodec::merge_text(text, ctx, record);
}

#endif /* KX_MEMBER_CODEC_H */
