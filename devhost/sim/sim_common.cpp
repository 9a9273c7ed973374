#include "sim_common.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <new>

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
    return json_object_get_int64(v);
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

bool SendJson(int fd, json_object* o)
{
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        return false;
    }
    const std::string text = JsonText(o);
    const bool sent = wiro_content_add(msg, text.data(), text.size(), 0) == 0 && wiro_message_sendfd(msg, fd) >= 0;
    wiro_message_put(msg);
    return sent;
}

Json RecvJson(int fd)
{
    wiro_message_t* msg = wiro_message_new(0);
    if (msg == nullptr) {
        return nullptr;
    }
    Json o;
    if (wiro_message_recvfd(msg, fd) >= 0) {
        o = JsonParse(std::string(reinterpret_cast<const char*>(msg->content), msg->content_len));
    }
    wiro_message_put(msg);
    return o;
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
        if (!SendJson(fd, reply.get())) {
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
};

constexpr FaultName kFaultNames[] = {
    {FaultKind::NoAnswer, "noAnswer", nullptr},   {FaultKind::Delay, "delay", "ms"},
    {FaultKind::Status, "status", "status"},      {FaultKind::ShortContent, "shortContent", "length"},
    {FaultKind::Result, "result", "result"},      {FaultKind::SendFailure, "sendFailure", nullptr},
    {FaultKind::Down, "down", nullptr},
};

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

std::optional<Fault> FaultFromJson(json_object* o, std::string& error)
{
    const std::optional<std::string> kindName = JsonString(o, "kind");
    const std::optional<FaultKind> kind = kindName ? FaultKindByName(*kindName) : std::nullopt;
    if (!kind) {
        error = "\"kind\" must be one of noAnswer, delay, status, shortContent, result, sendFailure, down";
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

void Journal::Add(Json entry)
{
    json_object_object_add(entry.get(), "seq", json_object_new_int64(static_cast<int64_t>(++*SharedSequence())));
    std::lock_guard<std::mutex> guard(lock_);
    entries_.push_back(std::move(entry));
}

void Journal::Clear()
{
    std::lock_guard<std::mutex> guard(lock_);
    entries_.clear();
}

Json Journal::ToJson()
{
    std::lock_guard<std::mutex> guard(lock_);
    Json list(json_object_new_array());
    for (const Json& e : entries_) {
        json_object_array_add(list.get(), json_object_get(e.get()));
    }
    return list;
}

Json JsonOk()
{
    Json o(json_object_new_object());
    json_object_object_add(o.get(), "ok", json_object_new_boolean(1));
    return o;
}

Json HandleCoreRequest(SimCore& core, const std::string& op, json_object* request,
                       std::initializer_list<FaultKind> supported)
{
    if (op == "ping") {
        return JsonOk();
    }
    if (op == "journal") {
        return core.journal.ToJson();
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
