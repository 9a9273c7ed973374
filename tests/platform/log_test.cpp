#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "vw_log.h"

namespace {

struct Captured {
    VW_LOG_LINE_S line;
    std::string file, text;
};

void Capture(const VW_LOG_LINE_S* l, void* user)
{
    static_cast<std::vector<Captured>*>(user)->push_back({*l, l->file ? l->file : "<null>", l->text});
}

class LogTest : public testing::Test {
protected:
    void SetUp() override { VW_SetLogSink(Capture, &lines_); }
    void TearDown() override { VW_SetLogSink(nullptr, nullptr); }
    std::vector<Captured> lines_;
};

TEST_F(LogTest, DiagnosticCarriesCallerFieldsAndCutsLongText)
{
    VW_WriteLog(4, 3, 1, 0, "src/a.cpp", 123, "[KXAPI]:%s=%d %u", "ch", -7, 9u);
    std::string longText(3 * VW_LOG_LINE_MAX, 'a');
    VW_WriteLog(1, 1, 0, 0, "f", 1, "%s", longText.c_str());
    ASSERT_EQ(2u, lines_.size());
    const VW_LOG_LINE_S& l = lines_[0].line;
    EXPECT_EQ(VW_LOG_DIAGNOSTIC, l.kind);
    EXPECT_EQ(VW_LOG_LANG_NONE, l.lang);
    EXPECT_EQ((std::vector<int>{4, 3, 1, 123}), (std::vector<int>{l.module, l.level, l.debugFlag, l.line}));
    EXPECT_EQ("src/a.cpp", lines_[0].file);
    EXPECT_EQ("[KXAPI]:ch=-7 9", lines_[0].text);
    EXPECT_EQ(longText.substr(0, VW_LOG_LINE_MAX - 1), lines_[1].text);
}

TEST_F(LogTest, LanguageLogFormatsBothWithSameValues)
{
    // Mixed widths: a second pass over a consumed argument list would misread them.
    VW_WriteLanguageLog(2, 5, "user %s set %lld/%d/%.1f", "用户%s设置%lld/%d/%.1f", "admin", 1234567890123LL, -3, 2.5);
    ASSERT_EQ(2u, lines_.size());
    const char* expect[] = {"user admin set 1234567890123/-3/2.5", "用户admin设置1234567890123/-3/2.5"};
    const VW_LOG_LANG_E langs[] = {VW_LOG_LANG_EN, VW_LOG_LANG_CN};
    for (int i = 0; i < 2; i++) {
        const VW_LOG_LINE_S& l = lines_[i].line;
        EXPECT_EQ(VW_LOG_OPERATION, l.kind);
        EXPECT_EQ(langs[i], l.lang);
        EXPECT_EQ(2, l.channel);
        EXPECT_EQ(5, l.module);
        EXPECT_EQ(nullptr, l.file);
        EXPECT_EQ(expect[i], lines_[i].text);
    }
}

TEST_F(LogTest, NullSinkRestoresStderr)
{
    VW_SetLogSink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    VW_WriteLog(4, 3, 0, 0, "access_server/x.cpp", 123, "[KXAPI]:%s", "text");
    VW_WriteLanguageLog(2, 4, "en %d", "cn %d", 7);
    EXPECT_EQ("[diag m4 L3 dbg0] access_server/x.cpp:123 [KXAPI]:text\n[oplog ch2 EN] en 7\n[oplog ch2 CN] cn 7\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(lines_.empty());
}

// Two sinks that each check they get their own user pointer, swapped while
// other threads log: every line must reach one of them, correctly paired.
std::atomic<int> g_countA{0}, g_countB{0}, g_mispaired{0};
int g_tagA, g_tagB;
void SinkA(const VW_LOG_LINE_S*, void* u) { ++(u == &g_tagA ? g_countA : g_mispaired); }
void SinkB(const VW_LOG_LINE_S*, void* u) { ++(u == &g_tagB ? g_countB : g_mispaired); }

TEST_F(LogTest, SinkSwapWhileLoggingFromThreads)
{
    constexpr int kThreads = 4, kLines = 2000;
    VW_SetLogSink(SinkA, &g_tagA);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++) {
        threads.emplace_back([] {
            for (int i = 0; i < kLines; i++) VW_WriteLog(1, 1, 0, 0, "f", i, "%d", i);
        });
    }
    for (int i = 0; i < 200; i++) {
        VW_SetLogSink(i % 2 ? SinkA : SinkB, i % 2 ? &g_tagA : &g_tagB);
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, g_mispaired.load());
    EXPECT_EQ(kThreads * kLines, g_countA.load() + g_countB.load());
}

}  // namespace
