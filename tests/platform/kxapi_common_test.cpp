#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "kxapi_common.h"
#include "table.h"

namespace {

// Reads ChannelId from the URL that names the row, as an int or as an unsigned.
struct QueryCase {
    const char* name;
    bool isUnsigned;
    VW_RESULT_TYPE rc;
    long long value;  // expected when rc is 0
};

constexpr int kSentinel = 4242;

const QueryCase kQueryCases[] = {
    {"/isp?a=1&ChannelId=7&b=2", false, VW_SUCCESS, 7},
    // Names are matched whole, not as a prefix or a suffix.
    {"/isp?XChannelId=4&ChannelIdX=5&ChannelId=6", false, VW_SUCCESS, 6},
    // The first parameter with the name is used, even without a value.
    {"/isp?ChannelId&ChannelId=5", false, VW_ERR_QUERY, 0},
    {"/isp?Other=1", false, VW_ERR_QUERY, 0},
    {"/isp/ChannelId=1", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=12abc", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=+1", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=-", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=%2D1", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=2147483647", false, VW_SUCCESS, INT_MAX},
    {"/isp?ChannelId=2147483648", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=-2147483648", false, VW_SUCCESS, INT_MIN},
    {"/isp?ChannelId=-2147483649", false, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=4294967295", true, VW_SUCCESS, UINT_MAX},
    {"/isp?ChannelId=4294967296", true, VW_ERR_QUERY, 0},
    {"/isp?ChannelId=0", true, VW_SUCCESS, 0},
    {"/isp?ChannelId=-0", true, VW_ERR_QUERY, 0},
};

template <class T>
void CheckQuery(const QueryCase& c)
{
    tagHTTP_HEADER_S h{};
    strncpy(h.szUrl, c.name, sizeof(h.szUrl) - 1);
    T value = kSentinel;
    EXPECT_EQ(c.rc, GetURIQueryParamByKey<T>(&h, "ChannelId", &value));
    EXPECT_EQ(c.rc == VW_SUCCESS ? T(c.value) : T(kSentinel), value);
}

class QueryTest : public testing::TestWithParam<QueryCase> {};

TEST_P(QueryTest, Parse) { GetParam().isUnsigned ? CheckQuery<unsigned>(GetParam()) : CheckQuery<int>(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Query, QueryTest, testing::ValuesIn(kQueryCases));

// Refused without a value: null pointers, an empty key (even where a parameter
// has an empty name), and a URL field without a terminator, which is not read past.
TEST(Query, BadArgumentsAndUnterminatedUrl)
{
    tagHTTP_HEADER_S h{};
    strcpy(h.szUrl, "/isp?=1");
    int v = kSentinel;
    EXPECT_EQ(VW_ERR_PARAM, GetURIQueryParamByKey<int>(nullptr, "A", &v));
    EXPECT_EQ(VW_ERR_PARAM, GetURIQueryParamByKey<int>(&h, "A", nullptr));
    EXPECT_EQ(VW_ERR_QUERY, GetURIQueryParamByKey<int>(&h, "", &v));
    std::string url = "/isp?A=" + std::string(sizeof(h.szUrl) - 7, '1');
    memcpy(h.szUrl, url.data(), sizeof(h.szUrl));
    strcpy(h.szOpUser, "&K=7");  // directly after szUrl
    EXPECT_EQ(VW_ERR_QUERY, GetURIQueryParamByKey<int>(&h, "K", &v));
    EXPECT_EQ(kSentinel, v);
}

// Appends only what fits with its NUL; a refused append writes nothing.
TEST(Copy2Buf, AppendsWithinCapacity)
{
    char storage[9];
    memset(storage, 'x', sizeof(storage));
    tagHTTP_BUF_S buf;
    HTTP_InitBuf(&buf, storage, 8);  // the ninth byte is a guard
    EXPECT_EQ(-1, buf.Copy2Buf(nullptr, "a", 1));
    EXPECT_EQ(-1, buf.Copy2Buf(&buf, nullptr, 1));
    EXPECT_EQ(3, buf.Copy2Buf(&buf, "abc", 3));
    EXPECT_EQ(-1, buf.Copy2Buf(&buf, "defgh", 5));
    EXPECT_EQ(3, buf.Copy2Buf(&buf, "", 0));
    EXPECT_STREQ("abc", storage);
    EXPECT_EQ(7, buf.Copy2Buf(&buf, "defg", 4));
    EXPECT_EQ(std::string("abcdefg\0x", 9), std::string(storage, 9));
    EXPECT_EQ(7u, buf.ulLength);
    EXPECT_EQ(VW_DEBUG_OFF, g_enDebugFlag);
}

}  // namespace
