/*
 * Platform log. Lines are formatted here and handed to one sink; the default
 * sink writes each line to stderr with a single stdio call, so lines from
 * different threads do not interleave.
 */
#include "vw_log.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static void stderr_sink(const VW_LOG_LINE_S* pstLine, void* pvUser);

/* The installed sink and its user pointer, always read and changed together
 * under the lock so a reader never pairs one sink with another's pointer. */
static pthread_mutex_t g_sinkLock = PTHREAD_MUTEX_INITIALIZER;
static VW_LOG_SINK_PF g_pfSink = stderr_sink;
static void* g_pvSinkUser = NULL;

static void stderr_sink(const VW_LOG_LINE_S* pstLine, void* pvUser)
{
    (void)pvUser;
    const char* text = pstLine->text != NULL ? pstLine->text : "";
    size_t len = strlen(text);
    /* A text that already ends its line does not get a second newline. */
    const char* eol = (len > 0 && text[len - 1] == '\n') ? "" : "\n";

    if (pstLine->kind == VW_LOG_OPERATION) {
        const char* lang = pstLine->lang == VW_LOG_LANG_CN ? "CN" : "EN";
        fprintf(stderr, "[oplog ch%d %s] %s%s", pstLine->channel, lang, text, eol);
    } else {
        fprintf(stderr, "[diag m%d L%d dbg%d] %s:%d %s%s", pstLine->module, pstLine->level, pstLine->debugFlag,
                pstLine->file != NULL ? pstLine->file : "?", pstLine->line, text, eol);
    }
}

void VW_SetLogSink(VW_LOG_SINK_PF pfSink, void* pvUser)
{
    pthread_mutex_lock(&g_sinkLock);
    g_pfSink = pfSink != NULL ? pfSink : stderr_sink;
    g_pvSinkUser = pfSink != NULL ? pvUser : NULL;
    pthread_mutex_unlock(&g_sinkLock);
}

/* The sink is called outside the lock so that a sink may itself log or
 * change the sink; a line written while the sink is being replaced may
 * still reach the earlier one. */
static void emit(const VW_LOG_LINE_S* pstLine)
{
    pthread_mutex_lock(&g_sinkLock);
    VW_LOG_SINK_PF pfSink = g_pfSink;
    void* pvUser = g_pvSinkUser;
    pthread_mutex_unlock(&g_sinkLock);
    pfSink(pstLine, pvUser);
}

/* Formats into buf (VW_LOG_LINE_MAX bytes), cutting long texts; a null or
 * failing format leaves an empty text. */
static void format_text(char* buf, const char* format, va_list ap)
{
    buf[0] = '\0';
    if (format == NULL) {
        return;
    }
    if (vsnprintf(buf, VW_LOG_LINE_MAX, format, ap) < 0) {
        buf[0] = '\0';
    }
}

void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line, const char* format,
                 ...)
{
    char text[VW_LOG_LINE_MAX];
    va_list ap;
    va_start(ap, format);
    format_text(text, format, ap);
    va_end(ap);

    VW_LOG_LINE_S stLine = {
        .kind = VW_LOG_DIAGNOSTIC,
        .module = module,
        .level = level,
        .debugFlag = debugFlag,
        .channel = 0,
        .lang = VW_LOG_LANG_NONE,
        .file = file,
        .line = line,
        .text = text,
        .reserved = reserved,
        .format = format,
    };
    emit(&stLine);
}

void VW_WriteLanguageLog(int channel, int module, const char* formatEn, const char* formatCn, ...)
{
    char textEn[VW_LOG_LINE_MAX];
    char textCn[VW_LOG_LINE_MAX];
    va_list ap;
    va_list apCn;
    va_start(ap, formatCn);
    /* Both languages consume the same argument list from its start. */
    va_copy(apCn, ap);
    format_text(textEn, formatEn, ap);
    format_text(textCn, formatCn, apCn);
    va_end(apCn);
    va_end(ap);

    VW_LOG_LINE_S stLine = {
        .kind = VW_LOG_OPERATION,
        .module = module,
        .level = 0,
        .debugFlag = 0,
        .channel = channel,
        .lang = VW_LOG_LANG_EN,
        .file = NULL,
        .line = 0,
        .text = textEn,
        .reserved = 0,
        .format = formatEn,
    };
    emit(&stLine);
    stLine.lang = VW_LOG_LANG_CN;
    stLine.text = textCn;
    stLine.format = formatCn;
    emit(&stLine);
}
