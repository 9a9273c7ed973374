#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "securec.h"

namespace {

constexpr size_t kBuf = 8;
const std::string kUntouched(kBuf, 'x');

struct MemCase {
    const char* name;
    bool nullDest, nullSrc;
    size_t destMax, count;
    errno_t rc;
};

// memcpy_s and memset_s share their refusals; a refused call writes nothing.
class MemTest : public testing::TestWithParam<MemCase> {};

TEST_P(MemTest, CopyAndSet)
{
    const MemCase& c = GetParam();
    const char src[kBuf + 1] = "abcdefgh";
    char dest[kBuf];
    memset(dest, 'x', kBuf);
    EXPECT_EQ(c.rc, memcpy_s(c.nullDest ? nullptr : dest, c.destMax, c.nullSrc ? nullptr : src, c.count));
    EXPECT_EQ(c.rc ? kUntouched : std::string(src, c.count) + kUntouched.substr(c.count), std::string(dest, kBuf));
    if (!c.nullSrc) {
        memset(dest, 'x', kBuf);
        EXPECT_EQ(c.rc, memset_s(c.nullDest ? nullptr : dest, c.destMax, '0', c.count));
        EXPECT_EQ(c.rc ? kUntouched : std::string(c.count, '0') + kUntouched.substr(c.count), std::string(dest, kBuf));
    }
}

INSTANTIATE_TEST_SUITE_P(Securec, MemTest,
                         testing::Values(MemCase{"NullDest", true, false, kBuf, 4, SECUREC_EINVAL},
                                         MemCase{"NullSrc", false, true, kBuf, 4, SECUREC_EINVAL},
                                         MemCase{"ZeroSize", false, false, 0, 0, SECUREC_ERANGE},
                                         MemCase{"SizeOverMax", false, false, SECUREC_MEM_MAX_LEN + 1, 4,
                                                 SECUREC_ERANGE},
                                         MemCase{"CountOverSize", false, false, 4, 5, SECUREC_ERANGE},
                                         MemCase{"ExactFit", false, false, kBuf, kBuf, EOK},
                                         MemCase{"ZeroCount", false, false, kBuf, 0, EOK}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Securec, OverlapRefusedAdjacentAccepted)
{
    char buf[16] = "abcdefghijklmno";
    EXPECT_EQ(SECUREC_EOVERLAP, memcpy_s(buf + 2, 8, buf, 4));
    EXPECT_EQ(SECUREC_EOVERLAP, memcpy_s(buf, 8, buf + 3, 4));
    EXPECT_STREQ("abcdefghijklmno", buf);
    EXPECT_EQ(EOK, memcpy_s(buf + 4, 8, buf, 4));
    EXPECT_STREQ("abcdabcdijklmno", buf);
    EXPECT_EQ(SECUREC_EOVERLAP, strncpy_s(buf + 1, 8, buf, 3));
    EXPECT_EQ('\0', buf[1]);
}

const char kUnterminated[4] = {'w', 'x', 'y', 'z'};

struct StrCase {
    const char* name;
    const char* src;
    size_t destMax, count;
    errno_t rc;
    const char* expect;  // null: dest untouched
};

class StrTest : public testing::TestWithParam<StrCase> {};

TEST_P(StrTest, Strncpy)
{
    const StrCase& c = GetParam();
    char dest[kBuf];
    memset(dest, 'x', kBuf);
    EXPECT_EQ(c.rc, strncpy_s(dest, c.destMax, c.src, c.count));
    if (c.expect == nullptr) {
        EXPECT_EQ(kUntouched, std::string(dest, kBuf));
    } else {
        EXPECT_STREQ(c.expect, dest);
    }
}

INSTANTIATE_TEST_SUITE_P(Securec, StrTest,
                         testing::Values(StrCase{"Fits", "abc", kBuf, 3, EOK, "abc"},
                                         StrCase{"ExactFit", "abcdefg", kBuf, 7, EOK, "abcdefg"},
                                         StrCase{"NoRoomForNul", "abcdefgh", kBuf, 8, SECUREC_ERANGE, ""},
                                         StrCase{"CountLimitsCopy", "abcdefghij", kBuf, 3, EOK, "abc"},
                                         StrCase{"UnterminatedWithinCount", kUnterminated, kBuf, 4, EOK, "wxyz"},
                                         StrCase{"CountOverSize", "abc", kBuf, kBuf + 1, SECUREC_ERANGE, ""},
                                         StrCase{"ZeroCount", "abc", kBuf, 0, EOK, ""},
                                         StrCase{"NullSrc", nullptr, kBuf, 3, SECUREC_EINVAL, ""},
                                         StrCase{"ZeroSize", "abc", 0, 0, SECUREC_ERANGE, nullptr},
                                         StrCase{"SizeOverMax", "abc", SECUREC_MEM_MAX_LEN + 1, 3, SECUREC_ERANGE,
                                                 nullptr}),
                         [](const auto& info) { return std::string(info.param.name); });

struct FmtCase {
    size_t destMax, count;
    int rc;
    const char* expect;  // null: dest untouched
};

class FmtTest : public testing::TestWithParam<FmtCase> {};

TEST_P(FmtTest, Snprintf)
{
    const FmtCase& c = GetParam();
    char dest[16];
    memset(dest, 'x', sizeof(dest));
    EXPECT_EQ(c.rc, snprintf_s(dest, c.destMax, c.count, "%s-%d", "ab", 12));  // "ab-12": 5 chars
    if (c.expect == nullptr) {
        EXPECT_EQ(std::string(sizeof(dest), 'x'), std::string(dest, sizeof(dest)));
    } else {
        EXPECT_STREQ(c.expect, dest);
    }
}

INSTANTIATE_TEST_SUITE_P(Securec, FmtTest,
                         testing::Values(FmtCase{16, 15, 5, "ab-12"}, FmtCase{6, 5, 5, "ab-12"},
                                         FmtCase{6, 6, 5, "ab-12"}, FmtCase{5, 4, -1, ""}, FmtCase{16, 4, -1, ""},
                                         FmtCase{6, 7, -1, ""}, FmtCase{0, 0, -1, nullptr}));

}  // namespace
