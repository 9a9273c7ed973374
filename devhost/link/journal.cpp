#include "journal.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include <json-c/printbuf.h>

namespace devhost {

void RecentEntries::Add(unsigned long long seq, const std::string& text)
{
    const Entry entry{seq, texts_.size(), text.size()};
    texts_ += text;
    if (ring_.size() < keep_) {
        ring_.push_back(entry);
    } else {
        ring_[first_] = entry;
        first_ = (first_ + 1) % ring_.size();
        dropped_++;
    }
    start_ = At(0).offset;
    if (start_ > texts_.size() - start_) {
        texts_.erase(0, start_);
        for (Entry& e : ring_) {
            e.offset -= start_;
        }
        start_ = 0;
    }
}

size_t RecentEntries::FirstAfter(unsigned long long since) const
{
    size_t lo = 0;
    size_t hi = ring_.size();
    while (lo < hi) {
        const size_t mid = lo + (hi - lo) / 2;
        if (At(mid).seq <= since) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return lo;
}

Json RecentEntries::After(unsigned long long since, unsigned long long upTo) const
{
    Json list(json_object_new_array());
    for (size_t i = FirstAfter(since); i < ring_.size() && At(i).seq <= upTo; i++) {
        json_object_array_add(list.get(), JsonParse(texts_.substr(At(i).offset, At(i).length)).release());
    }
    return list;
}

namespace {

// Writes a string value's text as it is, as JSON.
int VerbatimJson(json_object* o, printbuf* out, int, int)
{
    return printbuf_memappend(out, json_object_get_string(o), json_object_get_string_len(o));
}

}  // namespace

Json RecentEntries::AfterAsText(unsigned long long since, unsigned long long upTo) const
{
    std::string text = "[";
    for (size_t i = FirstAfter(since); i < ring_.size() && At(i).seq <= upTo; i++) {
        text.append(text.size() > 1 ? "," : "").append(texts_, At(i).offset, At(i).length);
    }
    text += "]";
    Json list(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    json_object_set_serializer(list.get(), VerbatimJson, nullptr, nullptr);
    return list;
}

void RecentEntries::Clear()
{
    ring_.clear();
    first_ = 0;
    texts_.clear();
    start_ = 0;
    dropped_ = 0;
}

std::atomic<unsigned long long>* SharedSequence()
{
    // Mapped once, before the simulators are forked, so that all processes
    // count on the same word.
    static std::atomic<unsigned long long>* sequence = [] {
        void* p = mmap(nullptr, sizeof(std::atomic<unsigned long long>), PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        return p == MAP_FAILED ? new std::atomic<unsigned long long>(0) : new (p) std::atomic<unsigned long long>(0);
    }();
    return sequence;
}

namespace {
size_t g_journalKeep = kJournalKeepDefault;
}  // namespace

void SetJournalKeep(size_t keep) { g_journalKeep = keep; }

size_t JournalKeep() { return g_journalKeep; }

void Journal::Add(Json entry)
{
    // Numbered and kept in one step: once the host has read the counter, every
    // exchange numbered up to it is in a journal by the time its request is
    // served.
    std::lock_guard<std::mutex> guard(lock_);
    const unsigned long long seq = ++*SharedSequence();
    json_object_object_add(entry.get(), "seq", json_object_new_int64(static_cast<int64_t>(seq)));
    entries_.Add(seq, JsonText(entry.get()));
}

void Journal::Clear()
{
    std::lock_guard<std::mutex> guard(lock_);
    entries_.Clear();
}

Json Journal::ToJson(unsigned long long since, unsigned long long upTo)
{
    std::lock_guard<std::mutex> guard(lock_);
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "entries", entries_.AfterAsText(since, upTo).release());
    json_object_object_add(o.get(), "kept", json_object_new_int64(static_cast<int64_t>(entries_.Kept())));
    json_object_object_add(o.get(), "dropped", json_object_new_int64(static_cast<int64_t>(entries_.Dropped())));
    return o;
}

}  // namespace devhost
