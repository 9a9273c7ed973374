// What the host's own tables say of the simulated device, added to the
// simulators' routes in the API document: the fault table on POST
// /_sim/faults (which kinds each service plays, which commands the resources
// send it, how long the module waits for it) and the layouts of the blocks and
// payloads on the inspection routes' GETs. Readers (the console) take both
// from here instead of keeping lists of their own.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <span>
#include <string>

#include "api_document.h"
#include "faults.h"
#include "profile.h"
#include "qtnapi_isp_srv.h"

namespace devhost::contract {

namespace {

struct ServiceRow {
    Service service;
    const char* title;
    // How long the module waits for a reply of this service, 0 without a bound,
    // and the operations it bounds (for commands that have a block).
    long long timeoutMs;
    std::initializer_list<const char*> timedOperations;
};

const ServiceRow kServices[] = {
    {Service::Isp, "ISP service", ISP_SRV_TIMEOUT, {"read", "write"}},
    {Service::Control, "control process", 0, {}},
};

long BlockSize(Service service, long long command)
{
    return service == Service::Isp ? IspBlockSize(static_cast<unsigned>(command))
                                   : ControlPayloadSize(static_cast<int>(command));
}

json_object* Texts(std::initializer_list<const char*> texts)
{
    json_object* a = json_object_new_array();
    for (const char* t : texts) {
        json_object_array_add(a, Text(t));
    }
    return a;
}

// The commands of a service: those with a block or payload and those the
// resources send, in numeric order, each with the resources that send it.
json_object* Commands(const ServiceRow& row)
{
    std::map<long long, std::vector<std::string>> by;
    if (row.service == Service::Isp) {
        for (const IspCommandInfo& c : kIspCommands) {
            by[c.command];
        }
    } else {
        for (const ControlCommandInfo& c : kControlCommands) {
            by[c.code];
        }
    }
    for (const ResourceContract& c : ResourceContracts()) {
        for (const DeviceCommand& d : c.commands) {
            if (std::string(d.service) != ServiceName(row.service)) {
                continue;
            }
            std::vector<std::string>& names = by[d.command];
            if (names.empty() || names.back() != c.name) {
                names.push_back(c.name);
            }
        }
    }
    json_object* list = json_object_new_array();
    for (const auto& [command, names] : by) {
        json_object* o = Object();
        Put(o, "command", Integer(command));
        if (const long size = BlockSize(row.service, command); size >= 0) {
            Put(o, "size", Integer(size));
        }
        json_object* resources = json_object_new_array();
        for (const std::string& name : names) {
            json_object_array_add(resources, Text(name));
        }
        Put(o, "resources", resources);
        json_object_array_add(list, o);
    }
    return list;
}

json_object* FaultTable()
{
    json_object* services = json_object_new_array();
    for (const ServiceRow& row : kServices) {
        json_object* o = Object();
        Put(o, "service", Text(ServiceName(row.service)));
        Put(o, "title", Text(row.title));
        json_object* kinds = json_object_new_array();
        for (const FaultKindRow& kind : kFaultKinds) {
            if (Plays(row.service, kind.kind)) {
                json_object_array_add(kinds, Text(kind.name));
            }
        }
        Put(o, "kinds", kinds);
        if (row.timeoutMs > 0) {
            Put(o, "timeoutMs", Integer(row.timeoutMs));
            Put(o, "timedOperations", Texts(row.timedOperations));
        }
        Put(o, "commands", Commands(row));
        json_object_array_add(services, o);
    }
    json_object* kinds = json_object_new_array();
    for (const FaultKindRow& kind : kFaultKinds) {
        json_object* o = Object();
        Put(o, "kind", Text(kind.name));
        if (kind.valueKey != nullptr) {
            Put(o, "value", Text(kind.valueKey));
        }
        Put(o, "about", Text(kind.about));
        json_object_array_add(kinds, o);
    }
    json_object* table = Object();
    Put(table, "services", services);
    Put(table, "kinds", kinds);
    return table;
}

// {"<command>": [{"name", "offset", "size", "type"}, ...]} of one service.
json_object* Layouts(const std::string& service)
{
    json_object* by = Object();
    for (const FieldLayout& f : BlockLayouts()) {
        if (service != f.service) {
            continue;
        }
        const std::string key = std::to_string(f.command);
        json_object* list = nullptr;
        if (!json_object_object_get_ex(by, key.c_str(), &list)) {
            list = json_object_new_array();
            Put(by, key.c_str(), list);
        }
        json_object* o = Object();
        Put(o, "name", Text(f.name));
        Put(o, "offset", Integer(static_cast<long long>(f.offset)));
        Put(o, "size", Integer(static_cast<long long>(f.size)));
        Put(o, "type", Text(f.type));
        json_object_array_add(list, o);
    }
    return by;
}

// Sets an integer member's range in its schema.
void Range(json_object* schema, long long min, long long max)
{
    Put(schema, "minimum", Integer(min));
    Put(schema, "maximum", Integer(max));
}

json_object* OperationOf(json_object* paths, const char* path, const char* method)
{
    json_object* item = nullptr;
    json_object* op = nullptr;
    if (!json_object_object_get_ex(paths, path, &item) || !json_object_object_get_ex(item, method, &op)) {
        std::fprintf(stderr, "ispiaas-devhost: the document has no %s %s\n", method, path);
        std::abort();
    }
    return op;
}

}  // namespace

void AddFaultSchema(json_object* schemas)
{
    json_object* properties = json_object_object_get(json_object_object_get(schemas, "SimFault"), "properties");
    json_object* kinds = json_object_new_array();
    for (const FaultKindRow& kind : kFaultKinds) {
        json_object_array_add(kinds, Text(kind.name));
        if (kind.valueKey != nullptr) {
            Range(json_object_object_get(properties, kind.valueKey), kind.min, kind.max);
        }
    }
    Put(json_object_object_get(properties, "kind"), "enum", kinds);
    Range(json_object_object_get(properties, "command"), 0, kCommandMax);
    Range(json_object_object_get(properties, "channel"), 0, kChannelMax);
}

void AddDeviceTables(json_object* paths)
{
    Put(OperationOf(paths, "/_sim/faults", "post"), "x-fault-table", FaultTable());
    Put(OperationOf(paths, "/_sim/isp/{command}/{channel}", "get"), "x-layouts", Layouts("isp"));
    Put(OperationOf(paths, "/_sim/control/{code}", "get"), "x-layouts", Layouts("control"));
}

}  // namespace devhost::contract
