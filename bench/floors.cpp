// The floors of the measured requests (see cases.h): each request written
// out by hand against json-c and the platform calls, as briefly as its
// required work allows. A floor hangs each record as soon as it has it, so
// that the server's release of the slots covers every way out.
#include <fcntl.h>
#include <json-c/json.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "ability.h"
#include "cases.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_maint.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"
#include "securec.h"
#include "vw_log.h"
#include "wiro.h"

namespace bench {
namespace {

// The null log formats nothing: every entry goes out with this text and the
// entry's values.
const char kEntry[] = "%s[%s:%llu] entry";
const char kSrc[] = "bench/floors";

template <class T>
T* HangNew(Request& r, int slot, size_t size = sizeof(T))
{
    void* block = std::malloc(size);
    r.ctx.apvSlot[slot] = block;
    return static_cast<T*>(block);
}

bool Zero(void* dest, size_t size) { return memset_s(dest, size, 0, size) == EOK; }

template <class T>
T At(const void* block, size_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(block) + offset, sizeof(T));
    return value;
}

template <class T>
void PutAt(void* block, size_t offset, T value)
{
    std::memcpy(static_cast<uint8_t*>(block) + offset, &value, sizeof(T));
}

// ---- Platform calls every request makes ----

bool ChannelAtLeast0(Request& r, int* id)
{
    return GetURIQueryParamByKey<int>(&r.header, "ChannelId", id) == 0 && *id >= 0;
}

bool ThermalChannel(Request& r)
{
    int id = 0;
    return GetURIQueryParamByKey<int>(&r.header, "ChannelId", &id) == 0 && id == 102;
}

bool ChannelUnsigned(Request& r, unsigned* id)
{
    return GetURIQueryParamByKey<unsigned>(&r.header, "ChannelId", id) == 0;
}

bool Exchange(uint8_t op, uint16_t command, const uint32_t* channel, void* block, unsigned size, bool timed)
{
    const int fd = open("/mnt/srvfs/isp.iaas.qtn", O_RDWR);
    if (fd < 0) {
        return false;
    }
    wiro_message_t* m = wiro_message_new(0);
    if (m == nullptr) {
        close(fd);
        return false;
    }
    m->header->command = command;
    m->header->reserved = 0;
    m->header->op = static_cast<uint8_t>((m->header->op & WIRO_OP_REPLY) | op);
    const bool ok = (channel == nullptr || wiro_header_set(m, 100, channel, 4) == 0) &&
                    (block == nullptr || wiro_content_add(m, block, size, 0) == 0) &&
                    (timed ? wiro_message_sendfd_timeout(m, fd, 15000) : wiro_message_sendfd(m, fd)) != -1 &&
                    (timed ? wiro_message_recvfd_timeout(m, fd, 15000) : wiro_message_recvfd(m, fd)) != -1 &&
                    (block == nullptr || wiro_content_copy(m, block, size) == static_cast<int>(size)) &&
                    m->header->code == 200;
    wiro_message_put(m);
    close(fd);
    return ok;
}

bool Read(uint16_t command, uint32_t channel, void* block, unsigned size)
{
    return Exchange(2, command, &channel, block, size, true);
}

bool Write(uint16_t command, uint32_t channel, void* block, unsigned size)
{
    return Exchange(3, command, &channel, block, size, true);
}

struct Cmd {
    vwCmdBody body;
    MSG_DATA reply;
};

void Begin(Cmd& c)
{
    Zero(&c.reply, sizeof(c.reply));
    Zero(&c.body, sizeof(c.body));
    PutAt<uint32_t>(c.body.aucData, 0, 101);
    PutAt<uint32_t>(c.body.aucData, 4, 0);
}

// The reply's Result after the trace line; -1 when the command was not sent.
int Send(Request& r, Cmd& c, VW_MSG_TYPE type, VW_CMD_TYPE code, tagUNIX_SOCKET_S* sock)
{
    if (RestSendSynUnixMsg("/tmp/A", type, code, &c.body, sock, &c.reply, 0) != 0) {
        return -1;
    }
    const int result = At<int32_t>(c.reply.aucData, 176);
    VW_WriteLog(4, 0, g_enDebugFlag, 0, kSrc, __LINE__, "[KXAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]",
                "floor", r.header.szMethod, r.header.szUrl, static_cast<int>(code), At<int32_t>(c.reply.aucData, 164),
                result);
    return result;
}

template <class... Values>
void EntryAs(Request& r, const char* text, Values... values)
{
    for (int channel : {2, 1}) {
        VW_WriteLanguageLog(channel, 4, text, text, r.header.szOpUser, r.header.szOpAddr, r.header.ullOpPort,
                            values...);
    }
}

template <class... Values>
void Entry(Request& r, Values... values)
{
    EntryAs(r, kEntry, values...);
}

int Status(Request& r) { return FormatCommonStatus(&r.header, 0, &r.ctx, &r.buf); }

// ---- json-c: the response text and the values of a body ----

void Add(json_object* object, const char* key, json_object* value) { json_object_object_add(object, key, value); }

json_object* Child(json_object* parent, const char* key)
{
    json_object* child = json_object_new_object();
    Add(parent, key, child);
    return child;
}

// Prints the response, copies the text (a fresh, zero-filled block, as every
// encoder hands it on) and gives the copy to the buffer.
int Respond(Request& r, json_object* root)
{
    const char* text = json_object_to_json_string(root);
    const size_t n = std::strlen(text);
    char* copy = static_cast<char*>(std::malloc(n + 1));
    const bool copied =
        copy != nullptr && memset_s(copy, n + 1, 0, n + 1) == EOK && strncpy_s(copy, n + 1, text, n) == EOK;
    json_object_put(root);
    const int taken = copied ? r.buf.Copy2Buf(&r.buf, copy, static_cast<uint32_t>(n)) : -1;
    std::free(copy);
    return taken == -1 ? -1 : 0;
}

template <class T>
T Saturate(double d)
{
    if (std::isnan(d)) {
        return 0;
    }
    if (d >= static_cast<double>(std::numeric_limits<T>::max())) {
        return std::numeric_limits<T>::max();
    }
    if (d <= static_cast<double>(std::numeric_limits<T>::min())) {
        return std::numeric_limits<T>::min();
    }
    return static_cast<T>(d);
}

// A boolean or a number into out; false for any other JSON type.
template <class T>
bool Number(json_object* v, T& out)
{
    switch (json_object_get_type(v)) {
        case json_type_boolean:
            out = static_cast<T>(json_object_get_boolean(v) ? 1 : 0);
            return true;
        case json_type_int:
            if constexpr (std::is_same_v<T, bool>) {
                out = json_object_get_int64(v) != 0;
            } else {
                out = static_cast<T>(static_cast<uint64_t>(json_object_get_int64(v)));
            }
            return true;
        case json_type_double:
            if constexpr (std::is_same_v<T, bool>) {
                out = json_object_get_double(v) != 0.0;
            } else {
                out = Saturate<T>(json_object_get_double(v));
            }
            return true;
        default:
            return false;
    }
}

// The value under key into out; a missing or null value keeps out.
template <class T>
bool Member(json_object* parent, const char* key, T& out)
{
    json_object* v = json_object_object_get(parent, key);
    return v == nullptr || Number(v, out);
}

// The same for a 32-bit word of a block or record.
template <class T>
bool MemberAt(json_object* parent, const char* key, void* block, size_t offset)
{
    T value = At<T>(block, offset);
    if (!Member(parent, key, value)) {
        return false;
    }
    PutAt<T>(block, offset, value);
    return true;
}

// A value into the 32-bit word `word` of a record.
template <class T>
bool NumberAt(json_object* v, void* record, int word)
{
    const size_t at = 4 * static_cast<size_t>(word);
    T value = At<T>(record, at);
    if (!Number(v, value)) {
        return false;
    }
    PutAt<T>(record, at, value);
    return true;
}

json_object* Unsigned(uint64_t value) { return json_object_new_int64(static_cast<int64_t>(value)); }

// ---- Records of the command channel ----

int CmdGet(Request& r, VW_CMD_TYPE code, void* record, size_t size)
{
    Cmd c;
    Begin(c);
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    if (Send(r, c, VW_MSG_READ, code, r.client.pstSynSock) != 0) {
        return 1;
    }
    std::memcpy(record, c.reply.aucData + 208, size);
    return 0;
}

// The current-settings record: the payload's head.
uint8_t* CmdCurrent(Request& r, VW_CMD_TYPE code, size_t size)
{
    Cmd c;
    Begin(c);
    int id = 0;
    if (!ChannelAtLeast0(r, &id) || Send(r, c, VW_MSG_READ, code, &r.sock) != 0) {
        return nullptr;
    }
    auto* current = HangNew<uint8_t>(r, KXAPI_SLOT_CURRENT, size);
    return memcpy_s(current, size, c.reply.aucData + 200, size) == EOK ? current : nullptr;
}

int CmdPut(Request& r, VW_CMD_TYPE code, const void* params, size_t size)
{
    Cmd c;
    Begin(c);
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    std::memcpy(c.body.aucData + 8, params, size);
    return Send(r, c, VW_MSG_WRITE, code, r.client.pstSynSock);
}

// ---- The thermal object ----

// The thermal object as a walk: groups open an object under their parent,
// leaves name a record word and whether it is signed.
struct ThermalKey {
    int parent;
    const char* key;
    int word; /* -1 for a group */
    bool isSigned;
};

constexpr ThermalKey kThermalKeys[] = {
    {0, nullptr, -1, false}, /* the root */
    {0, "blindData", -1, false},
    {1, "blindPosition", -1, false},
    {2, "pointX", 0, false},
    {2, "pointY", 1, false},
    {1, "blindOperation", 2, false},
    {0, "correctData", -1, false},
    {6, "correctOperation", 3, false},
    {6, "autoModeData", -1, false},
    {8, "enable", 4, true},
    {8, "correctTime", 5, false},
    {8, "correctTemperature", 6, false},
    {0, "basicData", -1, false},
    {12, "brightness", 7, false},
    {12, "contrast", 8, false},
    {12, "detailEnhace", 9, true},
    {0, "fakeColorData", -1, false},
    {16, "colorMode", 10, false},
    {16, "colorBar", 11, true},
    {16, "whiteHotModeData", -1, false},
    {19, "highRange", 12, true},
    {19, "midRange", 13, true},
    {19, "lowRange", 14, true},
    {19, "highMin", 15, true},
    {19, "midMax", 16, true},
    {19, "midMin", 17, true},
    {19, "lowMax", 18, true},
    {0, "thermalAfData", -1, false},
    {27, "afMode", 19, false},
    {27, "afSpeed", 22, false},
    {27, "ctrlOperation", 20, false},
    {27, "tempAdapt", 21, true},
    {27, "compensateTemp", 23, false},
};
constexpr size_t kThermalKeyCount = sizeof(kThermalKeys) / sizeof(kThermalKeys[0]);

void ThermalFrom(const uint8_t* block, _ThermalInfo& t)
{
    std::memcpy(&t, block, 44);
    std::memcpy(&t.fakeColorData.colorBar, block + 72, 4);
    std::memcpy(&t.fakeColorData.whiteHotModeData, block + 44, 28);
    std::memcpy(&t.thermalAfData, block + 76, 20);
}

void ThermalTo(const _ThermalInfo& t, uint8_t* block)
{
    std::memcpy(block, &t, 44);
    std::memcpy(block + 72, &t.fakeColorData.colorBar, 4);
    std::memcpy(block + 44, &t.fakeColorData.whiteHotModeData, 28);
    std::memcpy(block + 76, &t.thermalAfData, 20);
    PutAt<uint32_t>(block, 96, 0);
}

void ThermalEntry(Request& r, const _ThermalInfo& t)
{
    uint32_t w[24];
    std::memcpy(w, &t, sizeof(w));
    Entry(r, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9], w[10], w[11], w[12], w[13], w[14], w[15],
          w[16], w[17], w[18], w[19], w[20], w[21], w[22], w[23]);
}

json_object* ThermalJson(const _ThermalInfo& t)
{
    json_object* objects[kThermalKeyCount];
    objects[0] = json_object_new_object();
    for (size_t i = 1; i < kThermalKeyCount; ++i) {
        const ThermalKey& k = kThermalKeys[i];
        if (k.word < 0) {
            objects[i] = Child(objects[k.parent], k.key);
            continue;
        }
        const uint32_t word = At<uint32_t>(&t, 4 * static_cast<size_t>(k.word));
        Add(objects[k.parent], k.key, k.isSigned ? json_object_new_int(static_cast<int32_t>(word)) : Unsigned(word));
    }
    return objects[0];
}

bool ThermalMerge(json_object* root, _ThermalInfo& t)
{
    json_object* objects[kThermalKeyCount];
    objects[0] = root;
    for (size_t i = 1; i < kThermalKeyCount; ++i) {
        const ThermalKey& k = kThermalKeys[i];
        json_object* parent = objects[k.parent];
        json_object* v = parent != nullptr ? json_object_object_get(parent, k.key) : nullptr;
        if (k.word < 0) {
            objects[i] = v;
        } else if (v != nullptr &&
                   !(k.isSigned ? NumberAt<int32_t>(v, &t, k.word) : NumberAt<uint32_t>(v, &t, k.word))) {
            return false;
        }
    }
    return true;
}

// ---- The autofocus plane points ----

void PlaneEntry(Request& r, int enable, const uint8_t* plane /* from PointMax */)
{
    uint32_t w[9];
    std::memcpy(w, plane, sizeof(w));
    Entry(r, enable, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8]);
}

}  // namespace

// ---- GET ----

int FloorFakeRatioGet(Request& r)
{
    auto* rec = HangNew<_FakeRatio>(r, KXAPI_SLOT_RESULT);
    uint8_t block[FAKE_RATIO_BLOCK_SIZE];
    if (!Zero(rec, sizeof(*rec)) || !Zero(block, sizeof(block)) || !Read(28, 0, block, sizeof(block))) {
        return 1;
    }
    rec->fakeRatio = At<double>(block, 200);
    json_object* root = json_object_new_object();
    Add(root, "fakeRatio", json_object_new_double(rec->fakeRatio));
    return Respond(r, root);
}

int FloorCapabilityGet(Request& r)
{
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    auto* rec = HangNew<_IspAbility>(r, KXAPI_SLOT_RESULT);
    DEVICE_ABILITY_S ability;
    if (!Zero(rec, sizeof(*rec)) || !Zero(&ability, sizeof(ability))) {
        return 1;
    }
    ability.uiChannel = 101;
    ability.uiQuery = 0;
    if (GetDeviceAbility(&ability) != 0) {
        return 1;
    }
    struct Range {
        const char* key;
        _ParaRange _BasicInfo::*member;
        size_t offset;
    };
    static const Range kRanges[] = {{"brightness", &_BasicInfo::brightness, 888},
                                    {"sharpeness", &_BasicInfo::sharpeness, 952},
                                    {"hue", &_BasicInfo::hue, 936},
                                    {"contrast", &_BasicInfo::contrast, 904},
                                    {"saturation", &_BasicInfo::saturation, 920}};
    for (const Range& range : kRanges) {
        rec->basicInfos.*range.member = At<_ParaRange>(&ability, range.offset);
    }
    uint8_t block[CAPABILITY_BLOCK_SIZE];
    if (!Zero(block, sizeof(block)) || !Read(5, 0, block, sizeof(block))) {
        return 1;
    }
    _SensorScale& scale = rec->sensorInfos.scale;
    scale.width = At<double>(block, 16);
    scale.height = At<double>(block, 24);
    const _BasicInfo& b = rec->basicInfos;
    Entry(r, b.brightness.begin, b.brightness.end, b.sharpeness.begin, b.sharpeness.end, b.hue.begin, b.hue.end,
          b.contrast.begin, b.contrast.end, b.saturation.begin, b.saturation.end, scale.width, scale.height);
    json_object* root = json_object_new_object();
    json_object* basic = Child(root, "basicInfos");
    for (const Range& range : kRanges) {
        json_object* o = Child(basic, range.key);
        Add(o, "begin", Unsigned((b.*range.member).begin));
        Add(o, "end", Unsigned((b.*range.member).end));
    }
    json_object* scaleJson = Child(Child(root, "sensorInfos"), "scale");
    Add(scaleJson, "width", json_object_new_double(scale.width));
    Add(scaleJson, "height", json_object_new_double(scale.height));
    return Respond(r, root);
}

int FloorAfStatusGet(Request& r)
{
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    auto* rec = HangNew<_AfStatusInfo>(r, KXAPI_SLOT_RESULT);
    uint8_t block[AF_BLOCK_SIZE];
    if (!Zero(rec, sizeof(*rec)) || !Zero(block, sizeof(block)) || !Read(17, 0, block, sizeof(block))) {
        return 1;
    }
    rec->horDegree = At<double>(block, AF_HOR_DEGREE_OFFSET);
    rec->verDegree = At<double>(block, AF_VER_DEGREE_OFFSET);
    rec->zoomRatioCur = At<double>(block, AF_ZOOM_RATIO_OFFSET);
    rec->calibrateState = At<uint32_t>(block, AF_CALIBRATE_STATE_OFFSET);
    Entry(r, rec->horDegree, rec->verDegree, rec->zoomRatioCur, rec->calibrateState);
    json_object* root = json_object_new_object();
    Add(root, "horDegree", json_object_new_double(rec->horDegree));
    Add(root, "verDegree", json_object_new_double(rec->verDegree));
    Add(root, "zoomRatioCur", json_object_new_double(rec->zoomRatioCur));
    Add(root, "calibrateState", Unsigned(rec->calibrateState));
    return Respond(r, root);
}

int FloorAwbGet(Request& r)
{
    auto* rec = HangNew<_AwbInfo>(r, KXAPI_SLOT_RESULT);
    if (const int rc = CmdGet(r, VW_CMD_AWB, rec, sizeof(*rec)); rc != 0) {
        return rc;
    }
    const char* text = rec->roiWeightArray;
    const size_t len = strnlen(text, sizeof(rec->roiWeightArray));
    char cut[AWB_WEIGHTS_LEN + 1];
    if (len == sizeof(rec->roiWeightArray)) {
        std::memcpy(cut, text, len);
        cut[len] = '\0';
        text = cut;
    }
    Entry(r, text);
    json_object* root = json_object_new_object();
    Add(Child(root, "regionAwbAttr"), "roiWeightArray", json_object_new_string_len(text, static_cast<int>(len)));
    return Respond(r, root);
}

int FloorExtreColorGet(Request& r)
{
    auto* rec = HangNew<_ExtreColorInfo>(r, KXAPI_SLOT_RESULT);
    if (const int rc = CmdGet(r, VW_CMD_EXTRE_COLOR, rec, sizeof(*rec)); rc != 0) {
        return rc;
    }
    Entry(r, rec->fusionStrength);
    json_object* root = json_object_new_object();
    Add(root, "fusionStrength", Unsigned(rec->fusionStrength));
    return Respond(r, root);
}

int FloorAfPlanePointGet(Request& r)
{
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    auto* rec = HangNew<_AfCalibratePointAttr>(r, KXAPI_SLOT_RESULT);
    uint8_t block[AF_BLOCK_SIZE];
    if (!Zero(rec, sizeof(*rec)) || !Zero(block, sizeof(block)) ||
        !Read(17, static_cast<uint32_t>(id - 101), block, sizeof(block))) {
        return 1;
    }
    rec->enable = block[AF_PLANE_ENABLE_OFFSET] != 0;
    std::memcpy(&rec->PointMax, block + AF_PLANE_POINT_MAX_OFFSET, 36);
    PlaneEntry(r, rec->enable, block + AF_PLANE_POINT_MAX_OFFSET);
    json_object* root = json_object_new_object();
    Add(root, "enable", json_object_new_boolean(rec->enable));
    Add(root, "PointMax", Unsigned(rec->PointMax));
    json_object* points = json_object_new_array();
    for (const _AfPlanePoint& p : rec->planePoints) {
        json_object* o = json_object_new_object();
        Add(o, "planePointX", Unsigned(p.planePointX));
        Add(o, "planePointY", Unsigned(p.planePointY));
        json_object_array_add(points, o);
    }
    Add(root, "planePoints", points);
    return Respond(r, root);
}

int FloorThermalGet(Request& r)
{
    if (!ThermalChannel(r)) {
        return -1;
    }
    auto* rec = HangNew<_ThermalInfo>(r, KXAPI_SLOT_RESULT);
    uint8_t block[THERMAL_BLOCK_SIZE];
    if (!Zero(rec, sizeof(*rec)) || !Zero(block, sizeof(block)) || !Read(25, 2, block, sizeof(block))) {
        return 1;
    }
    ThermalFrom(block, *rec);
    ThermalEntry(r, *rec);
    return Respond(r, ThermalJson(*rec));
}

// ---- PUT ----

int FloorAwbPut(Request& r)
{
    const uint8_t* current = CmdCurrent(r, VW_CMD_AWB, AWB_PAYLOAD_LEN);
    if (current == nullptr) {
        return 1;
    }
    auto* rec = HangNew<_AwbInfo>(r, KXAPI_SLOT_REQUEST);
    std::memcpy(rec->roiWeightArray, current + 8, sizeof(rec->roiWeightArray));
    json_object* root = json_tokener_parse(r.content.pcBody);
    if (root == nullptr) {
        return 4;
    }
    json_object* text = json_object_object_get(json_object_object_get(root, "regionAwbAttr"), "roiWeightArray");
    bool ok = true;
    if (text != nullptr) {
        const int len = json_object_get_string_len(text);
        ok = json_object_is_type(text, json_type_string) && len < AWB_WEIGHTS_LEN &&
             strncpy_s(rec->roiWeightArray, AWB_WEIGHTS_LEN, json_object_get_string(text), static_cast<size_t>(len)) ==
                 EOK;
    }
    json_object_put(root);
    if (!ok) {
        return 4;
    }
    if (std::count(std::begin(rec->roiWeightArray), std::end(rec->roiWeightArray), '1') < AWB_MIN_ONES) {
        return 4;
    }
    if (const int rc = CmdPut(r, VW_CMD_AWB, rec->roiWeightArray, sizeof(rec->roiWeightArray)); rc != 0) {
        return rc;
    }
    Entry(r, rec->roiWeightArray);
    return Status(r);
}

int FloorExtreColorPut(Request& r)
{
    const uint8_t* current = CmdCurrent(r, VW_CMD_EXTRE_COLOR, EXTRE_COLOR_PAYLOAD_LEN);
    if (current == nullptr) {
        return 1;
    }
    auto* rec = HangNew<_ExtreColorInfo>(r, KXAPI_SLOT_REQUEST);
    rec->fusionStrength = At<uint32_t>(current, 8);
    json_object* root = json_tokener_parse(r.content.pcBody);
    const bool ok = root != nullptr && Member(root, "fusionStrength", rec->fusionStrength);
    json_object_put(root);
    if (!ok) {
        return 4;
    }
    const uint32_t params[2] = {rec->fusionStrength, 0};
    if (const int rc = CmdPut(r, VW_CMD_EXTRE_COLOR, params, sizeof(params)); rc != 0) {
        return rc;
    }
    Entry(r, rec->fusionStrength);
    return Status(r);
}

int FloorAfPlanePointPut(Request& r)
{
    int id = 0;
    if (!ChannelAtLeast0(r, &id)) {
        return 1;
    }
    auto* current = HangNew<uint8_t>(r, KXAPI_SLOT_CURRENT, AF_BLOCK_SIZE);
    if (!Read(17, static_cast<uint32_t>(id - 101), current, AF_BLOCK_SIZE)) {
        return 1;
    }
    PutAt<uint32_t>(current, 0, 0);

    json_object* root = json_tokener_parse(r.content.pcBody);
    if (root == nullptr) {
        return 4;
    }
    bool ok = true;
    if (json_object* enable = json_object_object_get(root, "enable")) {
        bool on = false;
        ok = Number(enable, on);
        current[AF_PLANE_ENABLE_OFFSET] = on ? 1 : 0;
    }
    ok = ok && MemberAt<uint32_t>(root, "PointMax", current, AF_PLANE_POINT_MAX_OFFSET);
    json_object* points = ok ? json_object_object_get(root, "planePoints") : nullptr;
    if (points != nullptr) {
        ok = json_object_is_type(points, json_type_array);
        const size_t used = ok ? std::min<size_t>(json_object_array_length(points), AF_PLANE_POINT_COUNT) : 0;
        for (size_t i = 0; ok && i < used; ++i) {
            json_object* p = json_object_array_get_idx(points, i);
            const size_t at = AF_PLANE_POINTS_OFFSET + 8 * i;
            ok = MemberAt<uint32_t>(p, "planePointX", current, at) &&
                 MemberAt<uint32_t>(p, "planePointY", current, at + 4);
        }
    }
    json_object_put(root);
    if (!ok) {
        return 4;
    }
    auto* request = HangNew<uint8_t>(r, KXAPI_SLOT_REQUEST, AF_BLOCK_SIZE);
    if (!Zero(request, AF_BLOCK_SIZE)) {
        return 1;
    }
    memcpy_s(request, AF_BLOCK_SIZE, current, AF_BLOCK_SIZE);

    unsigned channel = 0;
    if (!ChannelUnsigned(r, &channel) || !Write(17, channel - 101, request, AF_BLOCK_SIZE)) {
        return 1;
    }
    PlaneEntry(r, request[AF_PLANE_ENABLE_OFFSET], request + AF_PLANE_POINT_MAX_OFFSET);
    return Status(r);
}

int FloorThermalPut(Request& r)
{
    if (!ThermalChannel(r)) {
        return -1;
    }
    auto* current = HangNew<uint8_t>(r, KXAPI_SLOT_CURRENT, THERMAL_BLOCK_SIZE);
    if (!Read(25, 2, current, THERMAL_BLOCK_SIZE)) {
        return 1;
    }
    auto* rec = HangNew<_ThermalInfo>(r, KXAPI_SLOT_REQUEST);
    ThermalFrom(current, *rec);
    json_object* root = json_tokener_parse(r.content.pcBody);
    const bool ok = root != nullptr && ThermalMerge(root, *rec);
    json_object_put(root);
    if (!ok) {
        return 4;
    }
    if (!ThermalChannel(r)) {
        return -1;
    }
    uint8_t block[THERMAL_BLOCK_SIZE];
    if (!Zero(block, sizeof(block))) {
        return 1;
    }
    static const unsigned kTimes[] = {5, 10, 15, 20, 30, 45, 60};
    static const unsigned kTemperatures[] = {1, 3, 5, 10, 15};
    const _AutoCorrection& a = rec->correctData.autoModeData;
    if (std::find(std::begin(kTimes), std::end(kTimes), a.correctTime) == std::end(kTimes) ||
        std::find(std::begin(kTemperatures), std::end(kTemperatures), a.correctTemperature) ==
            std::end(kTemperatures)) {
        return 4;
    }
    ThermalTo(*rec, block);
    if (!Write(25, 2, block, sizeof(block))) {
        return 1;
    }
    ThermalEntry(r, *rec);
    return Status(r);
}

int FloorAEExpLockPut(Request& r)
{
    auto* rec = static_cast<_AEExpLockInfo*>(std::calloc(1, sizeof(_AEExpLockInfo)));
    r.ctx.apvSlot[KXAPI_SLOT_REQUEST] = rec;
    json_object* root = json_tokener_parse(r.content.pcBody);
    bool enable = false;
    const bool ok = root != nullptr && Member(root, "enable", enable);
    rec->enable = enable ? 1 : 0;
    json_object_put(root);
    if (!ok) {
        return 4;
    }
    VW_WriteLog(4, 1, g_enDebugFlag, 0, kSrc, __LINE__, "[KXAPI]:%s,JsonData:%s", "floor", r.content.pcBody);
    unsigned channel = 0;
    if (!ChannelUnsigned(r, &channel)) {
        return 3;
    }
    const uint32_t serviceChannel = channel - 101;
    if (!Exchange(1, 16, &serviceChannel, rec, sizeof(*rec), false)) {
        return 1;
    }
    Entry(r, static_cast<int>(At<uint8_t>(rec, 0)));
    return Status(r);
}

// ---- Resets ----

int FloorRestoreDefaults(Request& r)
{
    const bool ok = Exchange(3, 27, nullptr, nullptr, 0, false);
    Entry(r);
    return ok ? 0 : 1;
}

int FloorResetThermal(Request& r)
{
    if (!ThermalChannel(r)) {
        return -1;
    }
    const uint32_t channel = 1;
    const bool ok = Exchange(0, 25, &channel, nullptr, 0, false);
    Entry(r);
    return ok ? 0 : 1;
}

int FloorResetFog(Request& r)
{
    Cmd c;
    Begin(c);
    if (Send(r, c, VW_MSG_READ, VW_CMD_ADAPT_CONFIG_GET, r.client.pstSynSock) != 0) {
        return -1;
    }
    auto* block = static_cast<uint8_t*>(std::malloc(ADAPT_BLOCK_SIZE));
    int id = 0;
    bool ok = ChannelAtLeast0(r, &id);
    const uint32_t channel = static_cast<uint32_t>(id) - 101;
    ok = ok && Read(7, channel, block, ADAPT_BLOCK_SIZE);
    if (ok) {
        PutAt<uint32_t>(block, 0, At<uint32_t>(c.reply.aucData, ADAPT_REPLY_FOG));
        ok = Write(7, channel, block, ADAPT_BLOCK_SIZE);
    }
    std::free(block);
    Entry(r);
    return ok ? 0 : 1;
}

int FloorResetSpeed(Request& r)
{
    Cmd c;
    Begin(c);
    int id = 0;
    if (!ChannelAtLeast0(r, &id) || Send(r, c, VW_MSG_READ, VW_CMD_ADAPT_CONFIG_GET, r.client.pstSynSock) != 0) {
        return 1;
    }
    const uint32_t speed = At<uint32_t>(c.reply.aucData, ADAPT_REPLY_SPEED);
    Begin(c);
    PutAt<uint32_t>(c.body.aucData, 8, speed);
    const int result = Send(r, c, VW_MSG_WRITE, VW_CMD_SPEED_ADAPT_SET, r.client.pstSynSock);
    Entry(r);
    return result;
}

int FloorResetBacklight(Request& r)
{
    Cmd c;
    Begin(c);
    if (Send(r, c, VW_MSG_READ, VW_CMD_ADAPT_CONFIG_GET, r.client.pstSynSock) != 0) {
        return -1;
    }
    uint8_t block[ADAPT_BLOCK_SIZE];
    int id = 0;
    if (!Zero(block, sizeof(block)) || !ChannelAtLeast0(r, &id)) {
        return 1;
    }
    const uint32_t channel = static_cast<uint32_t>(id) - 101;
    bool ok = Read(6, channel, block, sizeof(block));
    if (ok) {
        const uint32_t state = At<uint32_t>(block, 0);
        if (At<int32_t>(c.reply.aucData, ADAPT_REPLY_BACKLIGHT) != 0) {
            PutAt<uint32_t>(block, 0, BACKLIGHT_STATE_SET);
        } else if (state == BACKLIGHT_STATE_SET) {
            PutAt<uint32_t>(block, 0, 0);
        }
        ok = Write(6, channel, block, sizeof(block));
    }
    Entry(r);
    return ok ? 0 : 1;
}

}  // namespace bench
