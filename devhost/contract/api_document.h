// The API document (OpenAPI 3.1, JSON) of the development host: the module's
// resources, generated from the member tables the module encodes and decodes
// with and from each resource's contract row; the host's own refusals; the
// simulators' routes under "/_sim/". See docs/DEVHOST.md, "The API document".
#ifndef DEVHOST_CONTRACT_API_DOCUMENT_H
#define DEVHOST_CONTRACT_API_DOCUMENT_H

#include <json-c/json.h>

#include <string>

#include "member_schema.h"

namespace devhost::contract {

inline constexpr const char* kDocumentPath = "/openapi.json";
// The module's resources, and the host's inspection and fault routes.
inline constexpr const char* kApiPrefix = "/api/isp/";
inline constexpr const char* kSimPrefix = "/_sim/";

// How a resource's stages take the query parameter ChannelId.
enum class ChannelRule {
    NotRead,      // not read at all
    NonNegative,  // read as a signed 32-bit number; refused when negative
    Unsigned,     // read as an unsigned 32-bit number; any value
    ThermalOnly,  // the thermal channel alone
};

// A command that a resource's stages send to one of the device's services.
struct DeviceCommand {
    const char* service;  // "isp": the ISP service; "control": the control process
    long long command;
};

// Everything the document says of one resource beyond its stages
// (devhost/stages/stage_table.h) and its record's member table.
struct ResourceContract {
    const char* name;
    const char* tag;
    const char* summary;
    // The record's schema (RecordSchema<Record>); null for a resource without one.
    json_object* (*schema)(const Walk& w);
    ChannelRule channel;
    bool channelSelects;  // the device's channel is ChannelId - 101; otherwise ChannelId is only checked
    const char* device;   // where the device keeps what the resource reads or writes, for the example ChannelId
    // Every command its stages send, in the order they send them: the targets
    // of the faults that hit this resource (the document's fault table).
    std::vector<DeviceCommand> commands;
    MemberRules rules;
    const char* getNote = nullptr;
    const char* putNote = nullptr;
};

// One row per resource of kResourceRows (devhost/stages/stage_table.h).
const std::vector<ResourceContract>& ResourceContracts();

// The routes of the simulators and the host ("paths" and "schemas"), as data.
json_object* HostPaths();

// Adds to the simulators' routes in `paths` what the host's own tables say:
// the fault table (which kinds each service plays, which commands the
// resources send it) and the layouts of the blocks and payloads.
void AddDeviceTables(json_object* paths);
// The fault's schema (components.schemas.SimFault): its kinds and the ranges
// of its numbers, from the host's fault table.
void AddFaultSchema(json_object* schemas);

// The whole document, built once; and as the text the host serves
// (JSON_C_TO_STRING_PRETTY, a final newline).
json_object* ApiDocument();
const std::string& ApiDocumentText();

}  // namespace devhost::contract

#endif  // DEVHOST_CONTRACT_API_DOCUMENT_H
