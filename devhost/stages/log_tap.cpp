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

// The length of the UTF-8 sequence that starts `text`, 0 when it is not one.
size_t Utf8Length(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t length = lead >= 0xf0 && lead <= 0xf4 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 ? 2 : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (size_t i = 1; i < length; i++) {
        if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80) {
            return 0;
        }
    }
    return length;
}

const char* LangName(VW_LOG_LANG_E lang) { return lang == VW_LOG_LANG_EN ? "en" : lang == VW_LOG_LANG_CN ? "cn" : ""; }

}  // namespace

std::string ForTerminal(std::string_view text)
{
    static const char kHex[] = "0123456789abcdef";
    std::string printed;
    printed.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7f) {
            // The value of every token parameter, wherever a client put one.
            if (text.compare(i, kTokenParameter.size(), kTokenParameter) == 0) {
                printed += std::string(kTokenParameter) + "***";
                i = std::min(text.find_first_of("& \t#", i), text.size());
                continue;
            }
            printed += static_cast<char>(c);
            i++;
            continue;
        }
        const size_t length = c >= 0x80 ? Utf8Length(text.substr(i)) : 0;
        // C1 controls (U+0080 to U+009F) are two bytes starting with 0xc2.
        const bool c1 = length == 2 && c == 0xc2 && static_cast<unsigned char>(text[i + 1]) < 0xa0;
        if (length != 0 && !c1) {
            printed.append(text, i, length);
            i += length;
            continue;
        }
        const size_t escaped = c1 ? 2 : 1;
        for (size_t k = 0; k < escaped; k++) {
            const auto byte = static_cast<unsigned char>(text[i + k]);
            printed += std::string("\\x") + kHex[byte >> 4] + kHex[byte & 15];
        }
        i += escaped;
    }
    return printed;
}

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
        printed = "diag  level " + std::to_string(line->level) + " " + (line->file != nullptr ? line->file : "") + ":" +
                  std::to_string(line->line) + " " + Trimmed(line->text);
    } else {
        json_object_object_add(o, "channel", json_object_new_int(line->channel));
        json_object_object_add(o, "lang", json_object_new_string(LangName(line->lang)));
        printed =
            "oplog channel " + std::to_string(line->channel) + " " + LangName(line->lang) + " " + Trimmed(line->text);
    }
    json_object_object_add(o, "text", json_object_new_string(line->text));

    std::lock_guard<std::mutex> guard(tap->lock_);
    const unsigned long long seq = ++tap->count_;
    json_object_object_add(o, "seq", json_object_new_int64(static_cast<int64_t>(seq)));
    std::fprintf(tap->out_, "%s\n", ForTerminal(printed).c_str());
    std::fflush(tap->out_);
    tap->lines_.Add(seq, JsonText(o));
}

void LogTap::Note(const std::string& text)
{
    std::lock_guard<std::mutex> guard(lock_);
    std::fprintf(out_, "host  %s\n", ForTerminal(text).c_str());
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
