// The cJSON-named layer over json-c.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "kx_cjson.h"

namespace {

std::string Printed(json_object* item)
{
    std::string text = cJSON_Print(item);
    cJSON_Delete(item);
    return text;
}

struct NumberCase {
    const char* name;
    std::function<json_object*()> make;
    const char* printed;
    friend void PrintTo(const NumberCase& c, std::ostream* os) { *os << c.name; }
};

class CreateNumber : public testing::TestWithParam<NumberCase> {};

TEST_P(CreateNumber, PrintsAsJsonC) { EXPECT_EQ(Printed(GetParam().make()), GetParam().printed); }

INSTANTIATE_TEST_SUITE_P(
    Overloads, CreateNumber,
    testing::Values(NumberCase{"Double", [] { return cJSON_CreateNumber(2.5); }, "2.5"},
                    NumberCase{"FloatSixDecimals", [] { return cJSON_CreateNumber(1.25f); }, "1.250000"},
                    NumberCase{"IntNegative", [] { return cJSON_CreateNumber(-7); }, "-7"},
                    NumberCase{"UnsignedZeroExtended", [] { return cJSON_CreateNumber(4294967295u); }, "4294967295"},
                    NumberCase{"LongSignExtended", [] { return cJSON_CreateNumber(-5L); }, "-5"},
                    NumberCase{"UnsignedLongZeroExtended", [] { return cJSON_CreateNumber(ULONG_MAX); },
                               sizeof(unsigned long) == 4 ? "4294967295" : "-1"},
                    NumberCase{"LongLong", [] { return cJSON_CreateNumber(-9000000000LL); }, "-9000000000"},
                    NumberCase{"UnsignedLongLongBitsAsSigned", [] { return cJSON_CreateNumber(ULLONG_MAX); }, "-1"}),
    [](const testing::TestParamInfo<NumberCase>& info) { return std::string(info.param.name); });

TEST(CJsonObject, AddLookUpAndAppendInOrder)
{
    json_object* object = cJSON_CreateObject();
    json_object* array = cJSON_CreateArray();
    cJSON_AddItemToArray(array, cJSON_CreateNumber(1));
    cJSON_AddItemToArray(array, cJSON_CreateString("b"));
    cJSON_AddItemToObject(object, "a", cJSON_CreateString("x"));
    cJSON_AddItemToObject(object, "n", cJSON_CreateNull());
    cJSON_AddItemToObject(object, "l", array);
    EXPECT_STREQ(json_object_get_string(cJSON_GetObjectItem(object, "a")), "x");
    // A JSON null and a missing key look the same.
    EXPECT_EQ(cJSON_GetObjectItem(object, "n"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(object, "missing"), nullptr);
    EXPECT_EQ(Printed(object), R"({ "a": "x", "n": null, "l": [ 1, "b" ] })");
}

// Lookups in what is no object or array, or past its end, find nothing; an
// item added under a null key or to no object stays the caller's.
TEST(CJsonLookup, WrongKindsAndNullsYieldNothing)
{
    json_object* array = cJSON_Parse("[1, 2]");
    json_object* number = cJSON_Parse("5");
    EXPECT_EQ(cJSON_GetObjectItem(array, "0"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(number, "a"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(nullptr, "a"), nullptr);
    EXPECT_EQ(cJSON_GetArraySize(array), 2);
    EXPECT_EQ(cJSON_GetArraySize(number), 0);
    EXPECT_EQ(json_object_get_int(cJSON_GetArrayItem(array, 1)), 2);
    EXPECT_EQ(cJSON_GetArrayItem(array, 2), nullptr);
    EXPECT_EQ(cJSON_GetArrayItem(array, -1), nullptr);
    EXPECT_EQ(cJSON_GetArrayItem(number, 0), nullptr);
    json_object* object = cJSON_CreateObject();
    cJSON_AddItemToObject(object, nullptr, number);
    cJSON_AddItemToObject(nullptr, "k", number);
    EXPECT_EQ(Printed(object), "{ }");
    cJSON_Delete(array);
    cJSON_Delete(number);  // still ours: ASan reports a leak or double free otherwise
}

TEST(CJsonParse, MalformedAndNullTextsGiveNothing)
{
    for (const char* text : {"{", "", "nul", "{\"a\":}", "null"}) {
        EXPECT_EQ(cJSON_Parse(text), nullptr) << text;
    }
    cJSON_Delete(nullptr);  // does nothing
}

}  // namespace
