#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "securec.h"
#include "table.h"

namespace {

constexpr size_t kBuf = 8;
const std::string kUntouched(kBuf, 'x');
const char kUnterminated[4] = {'w', 'x', 'y', 'z'};

// kMem runs memcpy_s and memset_s, which share their refusals; kFmt formats src with "%s".
enum Call { kMem, kStr, kFmt };

struct SecurecCase {
    const char* name;
    Call call;
    const char* src;  // null: a null source
    size_t destMax, count;
    int rc;
    const char* expect;  // kStr, kFmt: the string left in dest; null: dest untouched
    bool nullDest = false;
};

class SecurecTest : public testing::TestWithParam<SecurecCase> {};

// A refused call writes nothing, apart from the empty string the string calls leave in a usable destination.
TEST_P(SecurecTest, Call)
{
    const SecurecCase& c = GetParam();
    char buf[kBuf];
    memset(buf, 'x', kBuf);
    char* dest = c.nullDest ? nullptr : buf;
    if (c.call == kMem) {
        EXPECT_EQ(c.rc, memcpy_s(dest, c.destMax, c.src, c.count));
        EXPECT_EQ(c.rc ? kUntouched : std::string(c.src, c.count) + kUntouched.substr(c.count), std::string(buf, kBuf));
        memset(buf, 'x', kBuf);
        EXPECT_EQ(c.src ? c.rc : EOK, memset_s(dest, c.destMax, '0', c.count));
        EXPECT_EQ(c.rc && c.src ? kUntouched : std::string(c.count, '0') + kUntouched.substr(c.count),
                  std::string(buf, kBuf));
        return;
    }
    EXPECT_EQ(c.rc, c.call == kStr ? strncpy_s(dest, c.destMax, c.src, c.count)
                                   : snprintf_s(dest, c.destMax, c.count, "%s", c.src));
    EXPECT_EQ(c.expect ? std::string(c.expect) : kUntouched, std::string(buf, c.expect ? strnlen(buf, kBuf) : kBuf));
}

const SecurecCase kCases[] = {
    {"MemNullDest", kMem, "abcdefgh", kBuf, 4, SECUREC_EINVAL, nullptr, true},
    {"MemNullSrc", kMem, nullptr, kBuf, 4, SECUREC_EINVAL, nullptr},
    {"MemZeroSize", kMem, "abcdefgh", 0, 0, SECUREC_ERANGE, nullptr},
    {"MemSizeOverMax", kMem, "abcdefgh", SECUREC_MEM_MAX_LEN + 1, 4, SECUREC_ERANGE, nullptr},
    {"MemCountOverSize", kMem, "abcdefgh", 4, 5, SECUREC_ERANGE, nullptr},
    {"MemExactFit", kMem, "abcdefgh", kBuf, kBuf, EOK, nullptr},
    {"MemZeroCount", kMem, "abcdefgh", kBuf, 0, EOK, nullptr},
    {"StrExactFit", kStr, "abcdefg", kBuf, 7, EOK, "abcdefg"},
    {"StrNoRoomForNul", kStr, "abcdefgh", kBuf, 8, SECUREC_ERANGE, ""},
    // src is read no further than count, so it need not be terminated.
    {"StrCountLimitsUnterminatedSrc", kStr, kUnterminated, kBuf, 3, EOK, "wxy"},
    {"StrCountOverSize", kStr, "abc", kBuf, kBuf + 1, SECUREC_ERANGE, ""},
    {"StrZeroCount", kStr, "abc", kBuf, 0, EOK, ""},
    {"StrNullSrc", kStr, nullptr, kBuf, 3, SECUREC_EINVAL, ""},
    {"StrZeroSize", kStr, "abc", 0, 0, SECUREC_ERANGE, nullptr},
    {"StrSizeOverMax", kStr, "abc", SECUREC_MEM_MAX_LEN + 1, 3, SECUREC_ERANGE, nullptr},
    {"FmtCountFits", kFmt, "abcde", kBuf, 5, 5, "abcde"},
    {"FmtCountIsSize", kFmt, "abcdefg", kBuf, kBuf, 7, "abcdefg"},
    {"FmtCutByCount", kFmt, "abcdefg", kBuf, 6, -1, ""},
    {"FmtCutBySize", kFmt, "abcdefgh", kBuf, kBuf, -1, ""},
    {"FmtCountOverSize", kFmt, "abc", kBuf, kBuf + 1, -1, ""},
    {"FmtZeroSize", kFmt, "abc", 0, 0, -1, nullptr},
};

INSTANTIATE_TEST_SUITE_P(Securec, SecurecTest, testing::ValuesIn(kCases), RowName);

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

}  // namespace
