// The journal of exchanges each simulator keeps, bounded, and the numbers
// that order the exchanges of both.
#ifndef DEVHOST_LINK_JOURNAL_H
#define DEVHOST_LINK_JOURNAL_H

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "json.h"

namespace devhost {

// Entries numbered in increasing order, each kept as its compact JSON text,
// of which only the last `keep` stay; the older ones are counted as dropped.
// The entries are a ring, their texts lie one after the other in one buffer
// whose dropped head is cut off once it is larger than the rest: the buffer
// grows to at most twice what `keep` entries take and both are then reused, so that the memory stays bounded
// and flat however long the host serves (a block per text, freed first-in
// first-out among the exchanges' short-lived blocks, left the heap ever more
// fragmented). Not locked: its owner locks.
class RecentEntries {
public:
    explicit RecentEntries(size_t keep) : keep_(keep) {}
    void Add(unsigned long long seq, const std::string& text);
    // The kept entries numbered after `since`, up to `upTo`, as a JSON array.
    Json After(unsigned long long since, unsigned long long upTo) const;
    // The same array as a value that is written out as the kept texts are,
    // without parsing them: a simulator's answer of thousands of entries then
    // takes a few large blocks instead of a tree of small ones.
    Json AfterAsText(unsigned long long since, unsigned long long upTo) const;
    size_t Kept() const { return ring_.size(); }
    unsigned long long Dropped() const { return dropped_; }
    // Forgets the entries and the count of dropped ones.
    void Clear();

private:
    struct Entry {
        unsigned long long seq;
        size_t offset;  // in texts_
        size_t length;
    };
    const Entry& At(size_t i) const { return ring_[(first_ + i) % ring_.size()]; }
    // The position of the first entry numbered after `since`.
    size_t FirstAfter(unsigned long long since) const;

    size_t keep_;
    std::vector<Entry> ring_;  // grows to `keep` entries, then is reused
    size_t first_ = 0;         // where in ring_ the oldest entry is
    std::string texts_;
    size_t start_ = 0;  // where the oldest kept text begins
    unsigned long long dropped_ = 0;
};

// Exchange numbers shared by both simulators, so that the host can merge
// their journals in the order the exchanges happened. They keep counting
// across a reset, so that a watcher's `since` stays valid.
std::atomic<unsigned long long>* SharedSequence();

// How many exchanges the journal keeps: set by the host before the
// simulators are forked, so that both inherit it.
inline constexpr size_t kJournalKeepDefault = 2000;
void SetJournalKeep(size_t keep);
size_t JournalKeep();

class Journal {
public:
    Journal() : entries_(JournalKeep()) {}
    // Stamps the entry with the next exchange number and keeps it.
    void Add(Json entry);
    void Clear();
    // {"entries": [...], "kept", "dropped"}: the entries numbered after
    // `since` and up to `upTo`, with the counts of the whole journal.
    Json ToJson(unsigned long long since, unsigned long long upTo);

private:
    std::mutex lock_;
    RecentEntries entries_;
};

}  // namespace devhost

#endif  // DEVHOST_LINK_JOURNAL_H
