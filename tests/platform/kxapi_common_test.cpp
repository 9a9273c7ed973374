#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "kxapi_common.h"

namespace {

tagHTTP_HEADER_S MakeHeader(const std::string& url)
{
    tagHTTP_HEADER_S h{};
    strncpy(h.szUrl, url.c_str(), sizeof(h.szUrl) - 1);
    return h;
}

template <class T>
struct QueryCase {
    const char* url;
    const char* key;
    VW_RESULT_TYPE rc;
    T value;  // expected when rc is 0
};

constexpr int kSentinel = 4242;

const QueryCase<int> kIntCases[] = {
    {"/isp?ChannelId=101", "ChannelId", VW_SUCCESS, 101},
    {"/isp?a=1&ChannelId=7&b=2", "ChannelId", VW_SUCCESS, 7},
    {"/isp?ChannelIdX=5&ChannelId=6", "ChannelId", VW_SUCCESS, 6},
    {"/isp?ChannelIdX=5", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?XChannelId=5", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=1&ChannelId=2", "ChannelId", VW_SUCCESS, 1},
    {"/isp?ChannelId=x&ChannelId=2", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?Other=1", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp/ChannelId=1", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=abc", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=12abc", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=1 ", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=+1", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=-", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=%2D1", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=-15", "ChannelId", VW_SUCCESS, -15},
    {"/isp?ChannelId=007", "ChannelId", VW_SUCCESS, 7},
    {"/isp?ChannelId=2147483647", "ChannelId", VW_SUCCESS, INT_MAX},
    {"/isp?ChannelId=2147483648", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=-2147483648", "ChannelId", VW_SUCCESS, INT_MIN},
    {"/isp?ChannelId=-2147483649", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=99999999999999999999999", "ChannelId", VW_ERR_QUERY, 0},
    {"/isp?ChannelId=1", "", VW_ERR_QUERY, 0},
};

const QueryCase<unsigned> kUintCases[] = {
    {"/isp?Gain=4294967295", "Gain", VW_SUCCESS, UINT_MAX},
    {"/isp?Gain=4294967296", "Gain", VW_ERR_QUERY, 0},
    {"/isp?Gain=0", "Gain", VW_SUCCESS, 0},
    {"/isp?Gain=-1", "Gain", VW_ERR_QUERY, 0},
    {"/isp?Gain=-0", "Gain", VW_ERR_QUERY, 0},
    {"/isp?x=1&Gain=3000000000", "Gain", VW_SUCCESS, 3000000000u},
};

template <class T>
void PrintTo(const QueryCase<T>& c, std::ostream* os)
{
    *os << c.key << " in " << c.url;
}

template <class T>
void CheckQuery(const QueryCase<T>& c)
{
    tagHTTP_HEADER_S h = MakeHeader(c.url);
    T value = kSentinel;
    EXPECT_EQ(c.rc, GetURIQueryParamByKey<T>(&h, c.key, &value));
    EXPECT_EQ(c.rc == VW_SUCCESS ? c.value : T(kSentinel), value);
}

class IntQueryTest : public testing::TestWithParam<QueryCase<int>> {};
TEST_P(IntQueryTest, Parse) { CheckQuery(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Query, IntQueryTest, testing::ValuesIn(kIntCases));

class UintQueryTest : public testing::TestWithParam<QueryCase<unsigned>> {};
TEST_P(UintQueryTest, Parse) { CheckQuery(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Query, UintQueryTest, testing::ValuesIn(kUintCases));

TEST(Query, NullPointersAreParamErrors)
{
    tagHTTP_HEADER_S h = MakeHeader("/isp?A=1");
    int v = 0;
    EXPECT_EQ(VW_ERR_PARAM, GetURIQueryParamByKey<int>(nullptr, "A", &v));
    EXPECT_EQ(VW_ERR_PARAM, GetURIQueryParamByKey<int>(&h, "A", nullptr));
}

TEST(Query, UnterminatedUrlIsNotReadPast)
{
    tagHTTP_HEADER_S h{};
    std::string url = "/isp?A=" + std::string(sizeof(h.szUrl) - 7, '1');
    memcpy(h.szUrl, url.data(), sizeof(h.szUrl));
    strcpy(h.szOpUser, "&K=7");  // directly after szUrl
    int v = kSentinel;
    EXPECT_EQ(VW_ERR_QUERY, GetURIQueryParamByKey<int>(&h, "K", &v));
}

struct BufCase {
    const char* before;
    const char* add;
    int rc;
    const char* after;
};

class Copy2BufTest : public testing::TestWithParam<BufCase> {};

TEST_P(Copy2BufTest, Append)
{
    const BufCase& c = GetParam();
    char storage[9];
    memset(storage, 'x', sizeof(storage));
    tagHTTP_BUF_S buf;
    HTTP_InitBuf(&buf, storage, 8);  // the ninth byte is a guard
    EXPECT_EQ(0u, buf.ulLength);
    ASSERT_EQ(int(strlen(c.before)), buf.Copy2Buf(&buf, c.before, strlen(c.before)));
    EXPECT_EQ(c.rc, buf.Copy2Buf(&buf, c.add, strlen(c.add)));
    EXPECT_STREQ(c.after, storage);
    EXPECT_EQ(strlen(c.after), buf.ulLength);
    EXPECT_EQ('x', storage[8]);
}

INSTANTIATE_TEST_SUITE_P(Copy2Buf, Copy2BufTest,
                         testing::Values(BufCase{"", "abc", 3, "abc"}, BufCase{"", "abcdefg", 7, "abcdefg"},
                                         BufCase{"", "abcdefgh", -1, ""}, BufCase{"abc", "defg", 7, "abcdefg"},
                                         BufCase{"abc", "defgh", -1, "abc"}, BufCase{"abc", "", 3, "abc"}));

TEST(Copy2Buf, NullPointersRefused)
{
    char storage[8];
    tagHTTP_BUF_S buf;
    HTTP_InitBuf(&buf, storage, sizeof(storage));
    EXPECT_EQ(-1, buf.Copy2Buf(nullptr, "a", 1));
    EXPECT_EQ(-1, buf.Copy2Buf(&buf, nullptr, 1));
    EXPECT_EQ(VW_DEBUG_OFF, g_enDebugFlag);
}

}  // namespace
