#include "log_tap.h"

#include <cstring>

namespace devhost {

namespace {

// The text without the line ends some diagnostics carry.
std::string Trimmed(const char* text)
{
    size_t len = std::strlen(text);
    while (len > 0 && (text[len - 1] == '\n' || text[len - 1] == ' ')) {
        len--;
    }
    return std::string(text, len);
}

const char* LangName(VW_LOG_LANG_E lang)
{
    return lang == VW_LOG_LANG_EN ? "en" : lang == VW_LOG_LANG_CN ? "cn" : "";
}

}  // namespace

LogTap::LogTap(FILE* out, size_t keep) : out_(out), lines_(keep) { VW_SetLogSink(&LogTap::Sink, this); }

LogTap::~LogTap() { VW_SetLogSink(nullptr, nullptr); }

void LogTap::Sink(const VW_LOG_LINE_S* line, void* self)
{
    auto* tap = static_cast<LogTap*>(self);
    Json entry(json_object_new_object());
    json_object* o = entry.get();
    const bool diagnostic = line->kind == VW_LOG_DIAGNOSTIC;
    json_object_object_add(o, "kind", json_object_new_string(diagnostic ? "diagnostic" : "operation"));
    json_object_object_add(o, "module", json_object_new_int(line->module));
    // Printed whole: the log library has already cut its text at
    // VW_LOG_LINE_MAX - 1 characters; nothing here cuts it again.
    std::string printed;
    if (diagnostic) {
        json_object_object_add(o, "level", json_object_new_int(line->level));
        json_object_object_add(o, "debugFlag", json_object_new_int(line->debugFlag));
        json_object_object_add(o, "file", json_object_new_string(line->file != nullptr ? line->file : ""));
        json_object_object_add(o, "line", json_object_new_int(line->line));
        printed = "diag  level " + std::to_string(line->level) + " " + (line->file != nullptr ? line->file : "") +
                  ":" + std::to_string(line->line) + " " + Trimmed(line->text);
    } else {
        json_object_object_add(o, "channel", json_object_new_int(line->channel));
        json_object_object_add(o, "lang", json_object_new_string(LangName(line->lang)));
        printed = "oplog channel " + std::to_string(line->channel) + " " + LangName(line->lang) + " " +
                  Trimmed(line->text);
    }
    json_object_object_add(o, "text", json_object_new_string(line->text));

    std::lock_guard<std::mutex> guard(tap->lock_);
    const unsigned long long seq = ++tap->count_;
    json_object_object_add(o, "seq", json_object_new_int64(static_cast<int64_t>(seq)));
    std::fprintf(tap->out_, "%s\n", printed.c_str());
    std::fflush(tap->out_);
    tap->lines_.Add(seq, JsonText(o));
}

void LogTap::Note(const std::string& text)
{
    std::lock_guard<std::mutex> guard(lock_);
    std::fprintf(out_, "host  %s\n", text.c_str());
    std::fflush(out_);
}

Json LogTap::Lines(unsigned long long since)
{
    std::lock_guard<std::mutex> guard(lock_);
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "lines", lines_.After(since, count_).release());
    json_object_object_add(o.get(), "last", json_object_new_int64(static_cast<int64_t>(count_)));
    json_object_object_add(o.get(), "dropped", json_object_new_int64(static_cast<int64_t>(lines_.Dropped())));
    return o;
}

void LogTap::Clear()
{
    std::lock_guard<std::mutex> guard(lock_);
    lines_.Clear();
}

}  // namespace devhost
