/*
 * Platform log: diagnostic lines and the bilingual operation log.
 *
 * VW_WriteLog writes one diagnostic line; VW_WriteLanguageLog writes one
 * operation-log entry in English and Chinese. Both format their text with
 * printf rules and hand every resulting line to the installed sink, which is
 * a writer to stderr unless the host installs its own with VW_SetLogSink.
 */
#ifndef VW_LOG_H
#define VW_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

#define VW_LOG_API __attribute__((visibility("default")))

/* Largest formatted text of one line; longer texts are cut. */
#define VW_LOG_LINE_MAX 2048

typedef enum {
    VW_LOG_DIAGNOSTIC = 0, /* a VW_WriteLog line */
    VW_LOG_OPERATION = 1   /* one language of a VW_WriteLanguageLog entry */
} VW_LOG_KIND_E;

typedef enum {
    VW_LOG_LANG_NONE = 0, /* diagnostics */
    VW_LOG_LANG_EN = 1,
    VW_LOG_LANG_CN = 2
} VW_LOG_LANG_E;

/* One formatted line as the sink receives it. For a diagnostic, level,
 * debugFlag, reserved, file and line are the caller's; for an operation-log
 * line, channel and lang are set and file is null. format is the caller's
 * format text of this line, so that a sink can tell lines of one kind apart
 * whatever their values. */
typedef struct {
    VW_LOG_KIND_E kind;
    int module;
    int level;
    int debugFlag;
    int channel;
    VW_LOG_LANG_E lang;
    const char* file;
    int line;
    const char* text;
    int reserved;
    const char* format;
} VW_LOG_LINE_S;

/* The line and its text are valid only during the call. The sink may be
 * called from several threads at once. */
typedef void (*VW_LOG_SINK_PF)(const VW_LOG_LINE_S* pstLine, void* pvUser);

/* Installs the sink for every later line; a null sink restores stderr. Safe
 * to call while other threads log; a line already being written when the
 * sink changes may still reach the earlier sink. */
VW_LOG_API void VW_SetLogSink(VW_LOG_SINK_PF pfSink, void* pvUser);

/* One diagnostic line: module, level, the host's debug flag, a reserved word,
 * the caller's source file and line, and a printf-style text. */
VW_LOG_API void VW_WriteLog(int module, int level, int debugFlag, int reserved, const char* file, int line,
                            const char* format, ...) __attribute__((format(printf, 7, 8)));

/* One operation-log entry on a channel: the English and the Chinese text are
 * formatted with the same values and handed on as two lines, English first. */
VW_LOG_API void VW_WriteLanguageLog(int channel, int module, const char* formatEn, const char* formatCn, ...)
    __attribute__((format(printf, 3, 5)));

#ifdef __cplusplus
}
#endif

#endif /* VW_LOG_H */
