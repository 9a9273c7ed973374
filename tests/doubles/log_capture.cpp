// The platform log as the unit tests see it: a sink keeps every line with
// the caller's fields, its format and its formatted text.
#include <mutex>

#include "doubles.h"
#include "vw_log.h"

namespace doubles {
namespace {

std::mutex g_lock;
std::vector<Diag> g_diags;
std::vector<Diag> g_allDiags;
std::vector<OpLog> g_oplogs;
// The English line of the entry whose Chinese line comes next on this thread.
thread_local std::string t_english;

void Keep(const VW_LOG_LINE_S* l, void*)
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (l->kind == VW_LOG_DIAGNOSTIC) {
        g_allDiags.push_back({l->module, l->level, l->debugFlag, l->reserved, l->file, l->line, l->format, l->text});
        g_diags.push_back(g_allDiags.back());
    } else if (l->lang == VW_LOG_LANG_EN) {
        t_english = l->text;
    } else {
        g_oplogs.push_back({l->channel, l->module, t_english, l->text});
    }
}

const bool g_keeping = (VW_SetLogSink(Keep, nullptr), true);

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
