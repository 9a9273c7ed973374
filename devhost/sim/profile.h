// The simulated device's profile: the values every parameter block of the ISP
// service, every payload of the control process and the ability ranges start
// with, and to which the resets return.
#ifndef DEVHOST_PROFILE_H
#define DEVHOST_PROFILE_H

#include <map>
#include <string>
#include <vector>

#include "ability.h"
#include "json.h"

namespace devhost {

// Where the ISP service keeps its blocks and how large they are. Command 27
// (restore defaults) has no block.
struct IspCommandInfo {
    unsigned command;
    size_t size;
};
inline constexpr IspCommandInfo kIspCommands[] = {
    {5, 40}, {6, 16}, {7, 16}, {16, 4}, {17, 1240}, {25, 100}, {28, 608},
};
inline constexpr unsigned kIspRestoreDefaults = 27;
inline constexpr unsigned kIspThermal = 25;

// The control process's payloads: the stored head of each command's body,
// laid out as it comes back from reply byte 200 on (channel field first).
struct ControlCommandInfo {
    int code;
    size_t size;
};
inline constexpr ControlCommandInfo kControlCommands[] = {
    {3210, 16},
    {3213, 64},
    {3229, 16},
    {3231, 264},
};

// The block size of an ISP command, or -1 when the service has no block for it.
long IspBlockSize(unsigned command);
long ControlPayloadSize(int code);

struct DeviceImage {
    unsigned channels = 0;                 // ISP service channels 0 .. channels - 1
    std::map<unsigned, Bytes> ispBlocks;   // by command, the same for every channel
    std::map<int, Bytes> controlPayloads;  // by command code
    ABILITY_PROFILE_S ability{};
};

// The embedded default profile as JSON text.
const char* DefaultProfileText();

// The image for a profile text. The text's values replace the default's;
// what it leaves out keeps the default. Empty text: the default itself.
// False with `error` set when the text is not a profile.
bool LoadProfile(const std::string& text, DeviceImage& image, std::string& error);

// The named values of a block or payload ("fields" of the inspection
// routes); service is "isp" or "control". Null when none are known.
Json DecodeFields(const char* service, int command, const Bytes& block);

// Where one named value lies in a block or payload, as DecodeFields reads
// it: "type" is "u8", "u32", "i32", "f64" (little-endian, as the device
// stores them) or "text" (a NUL-terminated text of `size` bytes); `name` is
// the value's place in the profile below the service ("thermal.pointX").
struct FieldLayout {
    const char* service;
    int command;
    size_t offset;
    size_t size;
    const char* type;
    const char* name;
};

// Every named value of every block and payload, in the order of the blocks'
// table: the layouts a client decodes the journal's bytes with.
std::vector<FieldLayout> BlockLayouts();

// A block as the inspection routes show it: {"command", "channel" (ISP
// only), "size", "hex", "fields"}.
Json BlockToJson(const char* service, int command, std::optional<uint32_t> channel, const Bytes& block);

}  // namespace devhost

#endif  // DEVHOST_PROFILE_H
