#include "sim_common.h"

#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include <json-c/printbuf.h>

#include "wiro.h"

namespace devhost {

Json JsonParse(const std::string& text) { return Json(json_tokener_parse(text.c_str())); }

std::string JsonText(json_object* o) { return json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN); }

json_object* JsonGet(json_object* o, const char* key)
{
    json_object* v = nullptr;
    if (o == nullptr || !json_object_is_type(o, json_type_object) || !json_object_object_get_ex(o, key, &v)) {
        return nullptr;
    }
    return v;
}

std::optional<long long> JsonInt(json_object* o, const char* key)
{
    json_object* v = JsonGet(o, key);
    if (v == nullptr || !json_object_is_type(v, json_type_int)) {
        return std::nullopt;
    }
    // Past INT64_MAX the number is held unsigned and would read as INT64_MAX.
    const int64_t n = json_object_get_int64(v);
    if (n == INT64_MAX && json_object_get_uint64(v) != static_cast<uint64_t>(INT64_MAX)) {
        return std::nullopt;
    }
    return n;
}

std::optional<std::string> JsonString(json_object* o, const char* key)
{
    json_object* v = JsonGet(o, key);
    if (v == nullptr || !json_object_is_type(v, json_type_string)) {
        return std::nullopt;
    }
    return std::string(json_object_get_string(v), json_object_get_string_len(v));
}

Json JsonError(const std::string& message)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "error", json_object_new_string(message.c_str()));
    return o;
}

std::string ToHex(const uint8_t* data, size_t len)
{
    static const char digits[] = "0123456789abcdef";
    std::string out(len * 2, '0');
    for (size_t i = 0; i < len; i++) {
        out[2 * i] = digits[data[i] >> 4];
        out[2 * i + 1] = digits[data[i] & 15];
    }
    return out;
}

std::optional<Bytes> FromHex(const std::string& text)
{
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes out(text.size() / 2);
    for (size_t i = 0; i < out.size(); i++) {
        const int hi = nibble(text[2 * i]);
        const int lo = nibble(text[2 * i + 1]);
        if (hi < 0 || lo < 0) {
            return std::nullopt;
        }
        out[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    return out;
}

// ---- link -------------------------------------------------------------------

namespace {

// The text of o in frames of at most WIRO_CONTENT_MAX content bytes. False
// with errno set when a frame could not be made or sent.
bool SendJson(int fd, json_object* o)
{
    const std::string text = JsonText(o);
    size_t at = 0;
    do {
        wiro_message_t* msg = wiro_message_new(0);
        if (msg == nullptr) {
            errno = ENOMEM;
            return false;
        }
        const size_t piece = std::min<size_t>(text.size() - at, WIRO_CONTENT_MAX);
        const bool more = at + piece < text.size();
        const uint8_t flag = 1;
        const bool sent = (!more || wiro_header_set(msg, kLinkMoreKey, &flag, sizeof(flag)) == 0) &&
                          wiro_content_add(msg, text.data() + at, piece, 0) == 0 &&
                          wiro_message_sendfd(msg, fd) >= 0;
        const int savedErrno = errno;
        wiro_message_put(msg);
        if (!sent) {
            errno = savedErrno;
            return false;
        }
        at += piece;
    } while (at < text.size());
    return true;
}

// One JSON text, gathered from as many frames as it was sent in; null when
// the peer is gone or a frame is refused.
Json RecvJson(int fd)
{
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        return nullptr;
    }
    std::string text;
    bool whole = false;
    while (wiro_message_recvfd(msg, fd) >= 0) {
        text.append(reinterpret_cast<const char*>(msg->content), msg->content_len);
        if (wiro_header_get(msg, kLinkMoreKey, nullptr) == nullptr) {
            whole = true;
            break;
        }
    }
    wiro_message_put(msg);
    return whole ? JsonParse(text) : nullptr;
}

}  // namespace

void LinkServe(int fd, const std::function<Json(json_object*)>& handle)
{
    for (;;) {
        Json request = RecvJson(fd);
        if (request == nullptr) {
            return;
        }
        Json reply = handle(request.get());
        if (reply == nullptr) {
            reply = JsonError("the simulator had no answer");
        }
        if (SendJson(fd, reply.get())) {
            // The host asks a few times a second at most: a moment to hand the
            // pages the exchanges freed (an answer of several MB among them)
            // back to the system, so that resident memory follows what is kept.
            reply.reset();
            malloc_trim(0);
            continue;
        }
        // Whatever was asked, the simulator goes on serving while its peer is
        // there: a reply it could not send becomes an error reply.
        if (errno == EPIPE || errno == ECONNRESET || errno == EBADF ||
            !SendJson(fd, JsonError(std::string("the reply could not be sent: ") + std::strerror(errno)).get())) {
            return;
        }
    }
}

Json LinkClient::Call(json_object* request)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (!SendJson(fd_, request)) {
        return JsonError(std::string("simulator unreachable: ") + std::strerror(errno));
    }
    Json reply = RecvJson(fd_);
    return reply != nullptr ? std::move(reply) : JsonError("simulator gave no reply");
}

// ---- faults -----------------------------------------------------------------

namespace {

struct FaultName {
    FaultKind kind;
    const char* name;
    const char* valueKey;  // the member carrying the fault's value, if any
    const char* about;
    long long min = 0;  // the value's range: what the field it lands in holds
    long long max = 0;
};

constexpr FaultName kFaultNames[] = {
    {FaultKind::NoAnswer, "noAnswer", nullptr,
     "no reply: the exchange is held until the faults are cleared, or until the module's time-out"},
    {FaultKind::Delay, "delay", "ms", "the reply comes this many milliseconds later", 0, 600000},
    {FaultKind::Status, "status", "status", "the reply carries this status code and changes nothing", 0, UINT16_MAX},
    {FaultKind::ShortContent, "shortContent", "length",
     "the reply's content is cut to this many bytes (without it: to half)", 0, INT32_MAX},
    {FaultKind::Result, "result", "result", "the reply carries this Result and changes nothing", INT32_MIN,
     INT32_MAX},
    {FaultKind::SendFailure, "sendFailure", nullptr, "the request cannot be sent: the module's write fails"},
    {FaultKind::Down, "down", nullptr, "the socket is gone until the faults are cleared"},
};

// A member that must be an integer from `min` to `max` when it is there.
bool InRange(json_object* o, const char* key, long long min, long long max, std::string& error)
{
    if (JsonGet(o, key) == nullptr) {
        return true;
    }
    const std::optional<long long> value = JsonInt(o, key);
    if (value && *value >= min && *value <= max) {
        return true;
    }
    error = std::string("\"") + key + "\" must be an integer from " + std::to_string(min) + " to " + std::to_string(max);
    return false;
}

const FaultName& NameOf(FaultKind kind)
{
    for (const FaultName& n : kFaultNames) {
        if (n.kind == kind) {
            return n;
        }
    }
    return kFaultNames[0];
}

}  // namespace

std::optional<FaultKind> FaultKindByName(const std::string& name)
{
    for (const FaultName& n : kFaultNames) {
        if (name == n.name) {
            return n.kind;
        }
    }
    return std::nullopt;
}

const char* FaultKindName(FaultKind kind) { return NameOf(kind).name; }

const char* FaultValueKey(FaultKind kind) { return NameOf(kind).valueKey; }

const char* FaultKindAbout(FaultKind kind) { return NameOf(kind).about; }

std::optional<Fault> FaultFromJson(json_object* o, std::string& error)
{
    const std::optional<std::string> kindName = JsonString(o, "kind");
    const std::optional<FaultKind> kind = kindName ? FaultKindByName(*kindName) : std::nullopt;
    if (!kind) {
        error = "\"kind\" must be one of noAnswer, delay, status, shortContent, result, sendFailure, down";
        return std::nullopt;
    }
    const FaultName& name = NameOf(*kind);
    if (!InRange(o, "command", 0, INT32_MAX, error) || !InRange(o, "channel", 0, UINT32_MAX, error) ||
        !InRange(o, "count", 0, INT64_MAX, error) ||
        (name.valueKey != nullptr && !InRange(o, name.valueKey, name.min, name.max, error))) {
        return std::nullopt;
    }
    Fault fault;
    fault.kind = *kind;
    fault.command = static_cast<int>(JsonInt(o, "command").value_or(-1));
    if (const std::optional<long long> channel = JsonInt(o, "channel")) {
        fault.channel = static_cast<uint32_t>(*channel);
    }
    fault.remaining = JsonInt(o, "count").value_or(-1);
    if (const char* key = NameOf(*kind).valueKey) {
        const std::optional<long long> value = JsonInt(o, key);
        // A short content without a length means half the block.
        if (!value && *kind != FaultKind::ShortContent) {
            error = std::string("a \"") + *kindName + "\" fault needs the integer \"" + key + "\"";
            return std::nullopt;
        }
        fault.value = value.value_or(-1);
    }
    return fault;
}

Json FaultToJson(const Fault& fault)
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "kind", json_object_new_string(FaultKindName(fault.kind)));
    if (fault.command >= 0) {
        json_object_object_add(o.get(), "command", json_object_new_int(fault.command));
    }
    if (fault.channel) {
        json_object_object_add(o.get(), "channel", json_object_new_int64(*fault.channel));
    }
    if (const char* key = NameOf(fault.kind).valueKey) {
        json_object_object_add(o.get(), key, json_object_new_int64(fault.value));
    }
    if (fault.remaining >= 0) {
        json_object_object_add(o.get(), "count", json_object_new_int64(fault.remaining));
    }
    return o;
}

void FaultTable::Arm(const Fault& fault)
{
    std::lock_guard<std::mutex> guard(lock_);
    faults_.push_back(fault);
}

void FaultTable::Clear()
{
    std::lock_guard<std::mutex> guard(lock_);
    faults_.clear();
    generation_++;
    cleared_.notify_all();
}

std::optional<Fault> FaultTable::Take(int command, std::optional<uint32_t> channel)
{
    std::lock_guard<std::mutex> guard(lock_);
    for (auto it = faults_.begin(); it != faults_.end(); ++it) {
        const bool commandMatches = it->command < 0 || it->command == command;
        const bool channelMatches = !it->channel || (channel && *channel == *it->channel);
        if (it->kind == FaultKind::Down || !commandMatches || !channelMatches) {
            continue;
        }
        const Fault fault = *it;
        if (it->remaining > 0 && --it->remaining == 0) {
            faults_.erase(it);
        }
        return fault;
    }
    return std::nullopt;
}

bool FaultTable::Armed(FaultKind kind)
{
    std::lock_guard<std::mutex> guard(lock_);
    for (const Fault& f : faults_) {
        if (f.kind == kind) {
            return true;
        }
    }
    return false;
}

Json FaultTable::ToJson()
{
    std::lock_guard<std::mutex> guard(lock_);
    Json list(json_object_new_array());
    for (const Fault& f : faults_) {
        json_object_array_add(list.get(), FaultToJson(f).release());
    }
    return list;
}

bool FaultTable::WaitCleared(const std::atomic<bool>& stop)
{
    std::unique_lock<std::mutex> guard(lock_);
    const unsigned long start = generation_;
    while (generation_ == start && !stop) {
        cleared_.wait_for(guard, std::chrono::milliseconds(100));
    }
    return generation_ != start;
}

// ---- journal ----------------------------------------------------------------

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
        return p == MAP_FAILED ? new std::atomic<unsigned long long>(0)
                               : new (p) std::atomic<unsigned long long>(0);
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

void TuneAllocator()
{
    mallopt(M_ARENA_MAX, 2);
    // A fixed threshold also turns glibc's dynamic one off.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

Json JsonOk()
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "ok", json_object_new_boolean(1));
    return o;
}

Json HandleCoreRequest(SimCore& core, const std::string& op, json_object* request,
                       std::span<const FaultKind> supported)
{
    if (op == "ping") {
        return JsonOk();
    }
    if (op == "journal") {
        const long long since = JsonInt(request, "since").value_or(0);
        const long long upTo = JsonInt(request, "upTo").value_or(INT64_MAX);
        return core.journal.ToJson(static_cast<unsigned long long>(std::max(since, 0LL)),
                                   static_cast<unsigned long long>(std::max(upTo, 0LL)));
    }
    if (op == "faults") {
        return core.faults.ToJson();
    }
    if (op == "faults.clear") {
        core.faults.Clear();
        return JsonOk();
    }
    if (op == "faults.arm") {
        std::string error;
        const std::optional<Fault> fault = FaultFromJson(JsonGet(request, "fault"), error);
        if (!fault) {
            return JsonError(error);
        }
        for (FaultKind kind : supported) {
            if (kind == fault->kind) {
                core.faults.Arm(*fault);
                return JsonOk();
            }
        }
        return JsonError(std::string("this service cannot play the fault \"") + FaultKindName(fault->kind) + "\"");
    }
    return nullptr;
}

}  // namespace devhost
