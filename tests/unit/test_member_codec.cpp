// The member codec on records made for the test: conversion rules, merging,
// key order and the text contract.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "doubles.h"
#include "kx_member_codec.h"

struct _Pt {
    unsigned x;
    int y;
};

struct _Rec {
    bool on;
    int i;
    unsigned u;
    char name[8];
    _Pt pt;
    _Pt pts[2];
    long long big;
    double d;
    unsigned short clock;
    int when;
    unsigned char flag;  // a boolean kept in a byte
};

template <>
struct MemberTable<_Pt> {
    static auto coders() { return std::make_tuple(member(&_Pt::x, "x"), member(&_Pt::y, "y")); }
};

template <>
struct MemberTable<_Rec> {
    static auto coders()
    {
        return std::make_tuple(member(&_Rec::on, "on"), member(&_Rec::i, "i"), member(&_Rec::u, "u"),
                               member(&_Rec::name, "name"), member(&_Rec::pt, "pt"), member(&_Rec::pts, "pts"),
                               member(&_Rec::big, "big"), member(&_Rec::d, "d"),
                               member(&_Rec::clock, "clock", KX_KIND_CLOCK),
                               member(&_Rec::when, "when", KX_KIND_DATETIME),
                               member(&_Rec::flag, "flag", KX_KIND_BOOL));
    }
};

// A record whose JSON object groups members that have no record of their own.
struct _Flat {
    unsigned a;
    unsigned b;
    int c;
};

template <>
struct MemberTable<_Flat> {
    static auto coders()
    {
        return std::make_tuple(group<_Flat>("outer", group<_Flat>("inner", member(&_Flat::a, "a")),
                                            member(&_Flat::b, "b")),
                               member(&_Flat::c, "c"));
    }
};

namespace {

_Rec Sample()
{
    _Rec r{};
    r.on = true;
    r.i = -3;
    r.u = 4294967294u;
    std::strcpy(r.name, "cam");
    r.pt = {1, -1};
    r.pts[0] = {2, 3};
    r.pts[1] = {4, 5};
    r.big = -9000000000LL;
    r.d = 0.25;
    r.clock = 1440;
    r.when = 0;
    r.flag = 7;
    return r;
}

std::string Encoded(const _Rec& r)
{
    char* text = json_encode(r);
    std::string out = text != nullptr ? text : "<null>";
    std::free(text);
    return out;
}

class MemberCodec : public testing::Test {
protected:
    void SetUp() override
    {
        doubles::ResetAll();
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

TEST_F(MemberCodec, EncodesEveryTypeInTableOrder)
{
    EXPECT_EQ(Encoded(Sample()), R"({ "on": true, "i": -3, "u": 4294967294, "name": "cam", "pt": { "x": 1, "y": -1 }, )"
                                 R"("pts": [ { "x": 2, "y": 3 }, { "x": 4, "y": 5 } ], "big": -9000000000, "d": 0.25, )"
                                 R"("clock": "24:00", "when": "1970-01-01 00:00:00", "flag": true })");
}

TEST_F(MemberCodec, GroupsNestMembersOfOneRecord)
{
    _Flat f{1, 2, -3};
    char* text = json_encode(f);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, R"({ "outer": { "inner": { "a": 1 }, "b": 2 }, "c": -3 })");
    std::free(text);

    ASSERT_EQ(json_decode(R"({"outer": {"inner": {"a": 7}}, "c": 9})", nullptr, f), 0);
    EXPECT_EQ(f.a, 7u);
    EXPECT_EQ(f.b, 2u);
    EXPECT_EQ(f.c, 9);
    EXPECT_EQ(json_decode(R"({"outer": {"b": "x"}})", nullptr, f), -1);
}

// Each case: the body, the result, and what it changes in the sample record
// (the whole record is compared through its encoding). The conversions of
// numbers into int and unsigned members are checked on the thermal record,
// whose words are of both kinds (test_resources.cpp).
struct DecodeCase {
    const char* name;
    const char* json;
    int rc;
    std::function<void(_Rec&)> change;
    friend void PrintTo(const DecodeCase& c, std::ostream* os) { *os << c.name; }
};

class Decode : public MemberCodec, public testing::WithParamInterface<DecodeCase> {};

TEST_P(Decode, MergesByTheConversionRules)
{
    _Rec r = Sample(), expected = Sample();
    EXPECT_EQ(json_decode(GetParam().json, nullptr, r), GetParam().rc);
    GetParam().change(expected);
    EXPECT_EQ(Encoded(r), Encoded(expected));
    EXPECT_EQ(reinterpret_cast<const unsigned char&>(r.on), r.on ? 1 : 0);  // a bool is stored as 0 or 1
    EXPECT_EQ(r.flag, expected.flag);
}

void Unchanged(_Rec&) {}

INSTANTIATE_TEST_SUITE_P(
    Rules, Decode,
    testing::Values(
        DecodeCase{"EmptyObject", "{}", 0, Unchanged}, DecodeCase{"TopLevelArray", "[1,2]", 0, Unchanged},
        DecodeCase{"TopLevelNumber", "5", 0, Unchanged}, DecodeCase{"NullText", "null", -1, Unchanged},
        DecodeCase{"NoText", nullptr, -1, Unchanged}, DecodeCase{"Malformed", "{\"u\":", -1, Unchanged},
        DecodeCase{"NullValuesCountAsAbsent", R"({"u": null, "pt": null, "pts": null, "name": null})", 0, Unchanged},
        DecodeCase{"UnknownKeysIgnored", R"({"zz": "text"})", 0, Unchanged},
        DecodeCase{"BoolFromNumbers", R"({"on": 0.0})", 0, [](_Rec& r) { r.on = false; }},
        DecodeCase{"BoolFromInteger", R"({"on": 2})", 0, Unchanged},
        DecodeCase{"ByteFlagNegative", R"({"flag": -5})", 0, [](_Rec& r) { r.flag = 1; }},
        DecodeCase{"ByteFlagPast8Bits", R"({"flag": 256})", 0, [](_Rec& r) { r.flag = 1; }},
        DecodeCase{"ByteFlagFraction", R"({"flag": 0.5})", 0, [](_Rec& r) { r.flag = 1; }},
        DecodeCase{"StringForNumberFailsAfterEarlierMembers", R"({"i": 8, "u": "7"})", -1, [](_Rec& r) { r.i = 8; }},
        DecodeCase{"ObjectForNumberFails", R"({"u": {}})", -1, Unchanged},
        DecodeCase{"ArrayForBoolFails", R"({"on": []})", -1, Unchanged},
        DecodeCase{"TextThatFits", R"({"name": "1234567"})", 0, [](_Rec& r) { std::strcpy(r.name, "1234567"); }},
        DecodeCase{"TextTooLong", R"({"name": "12345678"})", -1, Unchanged},
        DecodeCase{"NumberForTextFails", R"({"name": 5})", -1, Unchanged},
        DecodeCase{"RecordMerges", R"({"pt": {"y": 9}})", 0, [](_Rec& r) { r.pt.y = 9; }},
        DecodeCase{"RecordGivenAsNumberIsLeft", R"({"pt": 5})", 0, Unchanged},
        DecodeCase{"ArrayLongerUsesFirstN", R"({"pts": [{"x": 7}, {"y": 8}, {"x": 99}]})", 0,
                   [](_Rec& r) { r.pts[0].x = 7, r.pts[1].y = 8; }},
        DecodeCase{"ArrayShorterKeepsRest", R"({"pts": [{"x": 7}]})", 0, [](_Rec& r) { r.pts[0].x = 7; }},
        DecodeCase{"ArrayElementBadTypeFails", R"({"pts": [{"x": "a"}]})", -1, Unchanged},
        DecodeCase{"NonArrayForArrayFails", R"({"pts": {}})", -1, Unchanged},
        DecodeCase{"ClockText", R"({"clock": "7:05"})", 0, [](_Rec& r) { r.clock = 425; }},
        DecodeCase{"ClockEndOfDay", R"({"clock": "24:00"})", 0, Unchanged},
        DecodeCase{"ClockTrailingJunk", R"({"clock": "07:05x"})", -1, Unchanged},
        DecodeCase{"ClockNumberAsKindZero", R"({"clock": 90})", 0, [](_Rec& r) { r.clock = 90; }},
        DecodeCase{"DateTimeText", R"({"when": "1970-01-02 00:00:01"})", 0, [](_Rec& r) { r.when = 86401; }},
        DecodeCase{"DateTimeBadText", R"({"when": "1970-01-02"})", -1, Unchanged}),
    [](const testing::TestParamInfo<DecodeCase>& info) { return std::string(info.param.name); });

TEST_F(MemberCodec, EncodeArrayOfNoItemsIsEmpty)
{
    _Pt pts[1] = {{1, 2}};
    json_object* array = json_encode_array(pts, 0);
    EXPECT_STREQ(cJSON_Print(array), "[ ]");
    cJSON_Delete(array);
}

TEST_F(MemberCodec, DecodeTextCopyFailureRefuses)
{
    _Rec r = Sample();
    doubles::FailNth(doubles::Call::Malloc, 1);
    EXPECT_EQ(json_decode(R"({"clock": "01:00"})", nullptr, r), -1);
    EXPECT_EQ(r.clock, 1440);
}

}  // namespace
