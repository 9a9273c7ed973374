/*
 * Test doubles of the platform for the module's objects.
 *
 * The unit-test executable links the module's objects with the real
 * bounds-checked, common and log libraries (the log's lines go to a sink that
 * keeps them), and with the doubles below in place of the framed-message
 * library. Calls of malloc, calloc, open, close, the bounds-checked calls and
 * json-c's object creation are routed through the linker's --wrap, so a test
 * can make the n-th such call fail.
 */
#ifndef TEST_DOUBLES_H
#define TEST_DOUBLES_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kxapi_business_common.h"

namespace doubles {

/* ---- Fault injection ---------------------------------------------------- */

enum class Call { Malloc, Calloc, MemsetS, MemcpyS, StrncpyS, NewObject };

/* Makes the n-th call (1 = the next) of `call` fail: allocations return null,
 * bounds-checked calls return `code` without doing anything. */
void FailNth(Call call, int n, int code = 34);
/* Number of calls of `call` since the last ResetFaults(). */
int CallCount(Call call);
void ResetFaults();
/* From now until ResetFaults(), every block from malloc comes filled with
 * `pattern`, so that a block that goes out as allocated shows. */
void FillAllocations(uint8_t pattern);

/* ---- Captured log ------------------------------------------------------- */

struct Diag {
    int module, level, debugFlag, reserved;
    std::string file;
    int line;
    std::string format;
    std::string text;
};

struct OpLog {
    int channel, module;
    std::string en, cn;
};

std::vector<Diag>& Diags();
std::vector<OpLog>& OpLogs();
void ClearLogs();
/* Every diagnostic since the process started; ClearLogs() keeps them. */
std::vector<Diag> AllDiags();
/* The formats of the captured diagnostics, in order. */
std::vector<std::string> DiagFormats();

/* ---- Scripted ISP service ----------------------------------------------- */

/* Steps of an exchange that a test can make fail. */
enum class SrvStep { None, Open, New, HeaderSet, ContentAdd, Send, Recv };

struct SrvRequest {
    uint8_t op;       /* low 7 bits of the operation byte */
    uint8_t opTopBit; /* top bit as the module left it */
    uint8_t reserved; /* header byte 2 */
    uint16_t command;
    bool hasChannel;
    uint32_t channel;
    std::vector<uint8_t> content;
    bool timed;
    int timeout;
};

struct SrvReply {
    uint16_t status = 200;
    std::vector<uint8_t> content;
};

class ScriptedIsp {
public:
    /* Fails the given step of the next exchange(s): with ENOENT to open the
     * node, EIO to send or receive. */
    SrvStep failStep = SrvStep::None;
    /* Optional replacement of the service's answer; the default keeps one
     * block per command and channel: a read answers the stored block (zeros
     * of the request's size when none is stored), a write stores the request
     * content and answers it. */
    std::function<SrvReply(const SrvRequest&)> answer;

    std::map<std::pair<uint16_t, uint32_t>, std::vector<uint8_t>> blocks;
    std::vector<SrvRequest> requests;
    int opens = 0;
    std::vector<int> openFlags; /* the flags of each open of the service node that succeeded */
    int closes = 0;
    int messagesLive = 0;

    void Reset();
    SrvReply Serve(const SrvRequest& request);
};

ScriptedIsp& Isp();
/* Held by the doubles while they touch the scripted service's state, so that
 * requests on several threads can share it. The `answer` hook runs under it. */
std::unique_lock<std::mutex> LockIsp();

/* ---- Scripted control process and device ability ------------------------ */

/* One command as the module handed it to RestSendSynUnixMsg. */
struct CmdSent {
    std::string path;
    int type;
    int code;
    std::vector<uint8_t> body; /* the whole body */
    const tagUNIX_SOCKET_S* sock;
    uint64_t timeout;
};

/* The device's other services. The control process keeps one payload per
 * command code: a read answers it (zeros when none is stored) from reply
 * byte 200, a write stores the body's head there. Every reply carries
 * recvMsg = code + 1 and the code's scripted Result (0 unless set). */
class ScriptedControl {
public:
    std::map<int, std::vector<uint8_t>> payloads;
    std::map<int, int> results;
    std::vector<int> unsent; /* codes whose call fails */
    std::vector<CmdSent> sent;

    /* The ability record GetDeviceAbility copies out from byte 8, and the
     * input words of each call. */
    std::vector<uint8_t> ability = std::vector<uint8_t>(4832, 0);
    bool abilityFails = false;
    std::vector<std::pair<uint32_t, uint32_t>> abilityQueries;

    void Reset() { *this = ScriptedControl(); }
};

ScriptedControl& Control();

/* ---- Byte helpers --------------------------------------------------------- */

template <class T>
void PutAt(std::vector<uint8_t>& bytes, size_t offset, T value)
{
    if (bytes.size() < offset + sizeof(T)) {
        bytes.resize(offset + sizeof(T));
    }
    std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

template <class T>
T GetAt(const void* bytes, size_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(bytes) + offset, sizeof(T));
    return value;
}

/* ---- Host records of one request ---------------------------------------- */

struct Request {
    tagHTTP_HEADER_S header{};
    tagHTTP_CONTENT_S content{};
    tagUNIX_SOCKET_S sock{};
    tagHTTP_CLIENT_S client{};
    tagHTTP_CNTENT_INTER_S ctx{};
    tagHTTP_BUF_S buf{};
    char storage[16384] = {0};
    std::string body;

    explicit Request(const char* method = "GET", const char* url = "/isp?ChannelId=101", const char* text = nullptr);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    void* Slot(int i) const { return ctx.apvSlot[i]; }
    std::string Response() const { return std::string(buf.pcData, buf.ulLength); }
};

/* ---- Stages ---------------------------------------------------------------- */

/* A stage of any kind. */
struct AnyStage {
    const char* name = nullptr;
    KxapiParseStage parse = nullptr;
    KxapiPreProcStage preProc = nullptr;
    KxapiRunStage run = nullptr;
    KxapiFormatStage format = nullptr;
};

// Left as written: clang-format takes this designated initialiser for a class.
// clang-format off
#define STAGE(kind, fn) doubles::AnyStage{.name = #fn, .kind = fn}
// clang-format on

/* Calls the stage with the request's records; `result` goes to a Format
 * stage. `nullArg` (0 to 2) passes that pointer argument as null instead
 * (for Format stages: header, context, buffer). */
int Invoke(const AnyStage& stage, Request& req, VW_RESULT_TYPE result = 0, int nullArg = -1);

/* The stages of one request to a resource, in the server's order; absent
 * stages are null. */
struct Flow {
    KxapiPreProcStage preProc = nullptr;
    KxapiParseStage parse = nullptr;
    KxapiRunStage run = nullptr;
    KxapiFormatStage format = nullptr;
};

struct Outcome {
    int result;    /* of the last stage before Format */
    int formatted; /* of the Format stage, or 0 when there is none */
};

/* Calls the stages as the server does: each only after the one before
 * succeeded, then the Format stage with the last result. */
Outcome Perform(const Flow& flow, Request& req);

/* Resets faults, logs and the scripted services; for every test's SetUp. */
void ResetAll();

}  // namespace doubles

#endif /* TEST_DOUBLES_H */
