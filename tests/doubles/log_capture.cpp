// The platform log as the unit tests see it: every call is kept with all of
// its arguments and its formatted text.
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "doubles.h"
#include "vw_log.h"

namespace doubles {
namespace {

std::mutex g_lock;
std::vector<Diag> g_diags;
std::vector<Diag> g_allDiags;
std::vector<OpLog> g_oplogs;

std::string Format(const char* format, va_list ap)
{
    char text[4096];
    std::vsnprintf(text, sizeof(text), format, ap);
    return text;
}

}  // namespace

std::vector<Diag>& Diags() { return g_diags; }
std::vector<OpLog>& OpLogs() { return g_oplogs; }

void ClearLogs()
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_diags.clear();
    g_oplogs.clear();
}

std::vector<Diag> AllDiags()
{
    std::lock_guard<std::mutex> hold(g_lock);
    return g_allDiags;
}

std::vector<std::string> DiagFormats()
{
    std::vector<std::string> formats;
    for (const Diag& d : g_diags) {
        formats.push_back(d.format);
    }
    return formats;
}

}  // namespace doubles

extern "C" void VW_SetLogSink(VW_LOG_SINK_PF, void*) {}

extern "C" void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line,
                            const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    doubles::Diag d{module, level, debugFlag, reserved, file, line, format, doubles::Format(format, ap)};
    va_end(ap);
    std::lock_guard<std::mutex> hold(doubles::g_lock);
    doubles::g_allDiags.push_back(d);
    doubles::g_diags.push_back(std::move(d));
}

extern "C" void VW_WriteLanguageLog(int channel, int module, const char* formatEn, const char* formatCn, ...)
{
    va_list ap;
    va_start(ap, formatCn);
    va_list again;
    va_copy(again, ap);
    doubles::OpLog entry{channel, module, formatEn, formatCn, doubles::Format(formatEn, ap),
                         doubles::Format(formatCn, again)};
    va_end(again);
    va_end(ap);
    std::lock_guard<std::mutex> hold(doubles::g_lock);
    doubles::g_oplogs.push_back(std::move(entry));
}
