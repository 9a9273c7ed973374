#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "vw_log.h"

namespace {

// Keeps each line as its fields, format and text: the caller's fields for a
// diagnostic, the channel and language for an operation-log line.
void Capture(const VW_LOG_LINE_S* l, void* user)
{
    char fields[160];
    const char* file = l->file != nullptr ? l->file : "null";
    if (l->kind == VW_LOG_DIAGNOSTIC) {
        snprintf(fields, sizeof(fields), "diag lang%d m%d L%d dbg%d r%d %s:%d <%s> ", l->lang, l->module, l->level,
                 l->debugFlag, l->reserved, file, l->line, l->format);
    } else {
        snprintf(fields, sizeof(fields), "kind%d lang%d ch%d m%d r%d %s <%s> ", l->kind, l->lang, l->channel, l->module,
                 l->reserved, file, l->format);
    }
    static_cast<std::vector<std::string>*>(user)->push_back(fields + std::string(l->text));
}

class LogTest : public testing::Test {
protected:
    void SetUp() override { VW_SetLogSink(Capture, &lines_); }
    void TearDown() override { VW_SetLogSink(nullptr, nullptr); }
    std::vector<std::string> lines_;
};

TEST_F(LogTest, CallerFieldsCutTextBothLanguagesAndStderr)
{
    VW_WriteLog(4, 3, 1, 7, "src/a.cpp", 123, "[KXAPI]:%s=%d %u", "ch", -7, 9u);
    const std::string longText(3 * VW_LOG_LINE_MAX, 'a');
    VW_WriteLog(1, 1, 0, 0, "f", 1, "%s", longText.c_str());
    // Mixed widths: a second pass over a consumed argument list would misread them.
    VW_WriteLanguageLog(2, 5, "user %s set %lld/%d/%.1f", "用户%s设置%lld/%d/%.1f", "admin", 1234567890123LL, -3, 2.5);
    EXPECT_EQ(lines_, (std::vector<std::string>{
                          "diag lang0 m4 L3 dbg1 r7 src/a.cpp:123 <[KXAPI]:%s=%d %u> [KXAPI]:ch=-7 9",
                          "diag lang0 m1 L1 dbg0 r0 f:1 <%s> " + longText.substr(0, VW_LOG_LINE_MAX - 1),
                          "kind1 lang1 ch2 m5 r0 null <user %s set %lld/%d/%.1f> user admin set 1234567890123/-3/2.5",
                          "kind1 lang2 ch2 m5 r0 null <用户%s设置%lld/%d/%.1f> 用户admin设置1234567890123/-3/2.5"}));

    // A null sink restores the writer to stderr.
    VW_SetLogSink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    VW_WriteLog(4, 3, 0, 0, "access_server/x.cpp", 123, "[KXAPI]:%s", "text");
    VW_WriteLanguageLog(2, 4, "en %d", "cn %d", 7);
    EXPECT_EQ("[diag m4 L3 dbg0] access_server/x.cpp:123 [KXAPI]:text\n[oplog ch2 EN] en 7\n[oplog ch2 CN] cn 7\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(4u, lines_.size());  // the earlier sink gets no more
}

// Two sinks that each check they get their own user pointer, swapped while
// other threads log: every line must reach one of them, correctly paired.
std::atomic<int> g_count[2], g_mispaired{0};

template <int N>
void CountingSink(const VW_LOG_LINE_S*, void* u)
{
    ++(u == &g_count[N] ? g_count[N] : g_mispaired);
}

TEST_F(LogTest, SinkSwapWhileLoggingFromThreads)
{
    constexpr int kLines = 4000;
    VW_SetLogSink(CountingSink<0>, &g_count[0]);
    const auto log = [] {
        for (int i = 0; i < kLines; i++) {
            VW_WriteLog(1, 1, 0, 0, "f", i, "%d", i);
        }
    };
    std::thread a(log), b(log);
    for (int i = 0; i < 200; i++) {
        i % 2 ? VW_SetLogSink(CountingSink<0>, &g_count[0]) : VW_SetLogSink(CountingSink<1>, &g_count[1]);
    }
    a.join();
    b.join();
    EXPECT_EQ(0, g_mispaired.load());
    EXPECT_EQ(2 * kLines, g_count[0] + g_count[1]);
}

}  // namespace
