// The host's own routes in the API document: this document, and the
// simulators' inspection and fault routes under "/_sim/" (devhost/http/
// sim_routes.cpp). They have no member tables, so they are written here as
// data, in the document's own form.
#include "api_document.h"

namespace devhost::contract {

namespace {

constexpr const char kHostPaths[] = R"json({
  "paths": {
    "/openapi.json": {
      "get": {
        "operationId": "getOpenApi", "tags": ["Simulated device"], "summary": "This document",
        "responses": {"200": {"description": "the API document (OpenAPI 3.1)",
                              "content": {"application/json": {"schema": {"type": "object"}}}}}
      }
    },
    "/_sim/isp/{command}/{channel}": {
      "parameters": [
        {"name": "command", "in": "path", "required": true, "description": "the ISP service command",
         "schema": {"type": "integer", "minimum": 0, "maximum": 9999999999}},
        {"name": "channel", "in": "path", "required": true, "description": "the ISP service channel (ChannelId - 101)",
         "schema": {"type": "integer", "minimum": 0, "maximum": 9999999999}}
      ],
      "get": {
        "operationId": "getSimIspBlock", "tags": ["Simulated device"], "summary": "An ISP service block",
        "responses": {"200": {"$ref": "#/components/responses/SimBlock"},
                      "404": {"$ref": "#/components/responses/Status404"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      },
      "put": {
        "operationId": "putSimIspBlock", "tags": ["Simulated device"], "summary": "Set an ISP service block",
        "requestBody": {"$ref": "#/components/requestBodies/SimBlockChange"},
        "responses": {"200": {"$ref": "#/components/responses/SimBlock"},
                      "400": {"$ref": "#/components/responses/SimRefused"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      }
    },
    "/_sim/control/{code}": {
      "parameters": [
        {"name": "code", "in": "path", "required": true, "description": "the control process's command code",
         "schema": {"type": "integer", "minimum": 0, "maximum": 9999999999}}
      ],
      "get": {
        "operationId": "getSimControlPayload", "tags": ["Simulated device"],
        "summary": "The control process's stored payload of a command",
        "responses": {"200": {"$ref": "#/components/responses/SimBlock"},
                      "404": {"$ref": "#/components/responses/Status404"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      },
      "put": {
        "operationId": "putSimControlPayload", "tags": ["Simulated device"],
        "summary": "Set the control process's stored payload of a command",
        "requestBody": {"$ref": "#/components/requestBodies/SimBlockChange"},
        "responses": {"200": {"$ref": "#/components/responses/SimBlock"},
                      "400": {"$ref": "#/components/responses/SimRefused"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      }
    },
    "/_sim/journal": {
      "get": {
        "operationId": "getSimJournal", "tags": ["Simulated device"],
        "summary": "Every exchange of both simulators, in order",
        "parameters": [{"$ref": "#/components/parameters/Since"}],
        "responses": {"200": {"description": "the journal",
                              "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimJournal"}}}},
                      "400": {"$ref": "#/components/responses/SimRefused"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      }
    },
    "/_sim/log": {
      "get": {
        "operationId": "getSimLog", "tags": ["Simulated device"],
        "summary": "The module's diagnostic and operation-log lines",
        "parameters": [{"$ref": "#/components/parameters/Since"}],
        "responses": {"200": {"description": "the captured lines",
                              "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimLog"}}}},
                      "400": {"$ref": "#/components/responses/SimRefused"}}
      }
    },
    "/_sim/faults": {
      "get": {
        "operationId": "getSimFaults", "tags": ["Simulated device"], "summary": "The armed faults",
        "responses": {"200": {"description": "the faults each simulator holds",
                              "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimFaults"}}}},
                      "502": {"$ref": "#/components/responses/Status502"}}
      },
      "post": {
        "operationId": "postSimFault", "tags": ["Simulated device"], "summary": "Arm a fault",
        "requestBody": {"required": true,
                        "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimFault"}}}},
        "responses": {"201": {"description": "the fault as armed, with the service that plays it",
                              "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimFault"}}}},
                      "400": {"$ref": "#/components/responses/SimRefused"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      },
      "delete": {
        "operationId": "deleteSimFaults", "tags": ["Simulated device"], "summary": "Disarm every fault",
        "responses": {"200": {"$ref": "#/components/responses/SimOk"},
                      "502": {"$ref": "#/components/responses/Status502"}}
      }
    },
    "/_sim/reset": {
      "post": {
        "operationId": "postSimReset", "tags": ["Simulated device"],
        "summary": "Blocks and payloads back to the profile; journal, log and faults cleared",
        "responses": {"200": {"$ref": "#/components/responses/SimOk"},
                      "502": {"$ref": "#/components/responses/Status502"}},
        "x-confirm": true
      }
    },
    "/_sim/access": {
      "get": {
        "operationId": "getSimAccess", "tags": ["Simulated device"], "summary": "How this host admits requests",
        "responses": {"200": {"description": "the host's access mode",
                              "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimAccess"}}}}}
      }
    },
    "/_sim/constant": {
      "get": {
        "operationId": "getSimConstant", "tags": ["Simulated device"],
        "summary": "A fixed answer that touches neither the module nor the simulators",
        "responses": {"200": {"$ref": "#/components/responses/SimConstant"}}
      },
      "put": {
        "operationId": "putSimConstant", "tags": ["Simulated device"],
        "summary": "A fixed answer that touches neither the module nor the simulators",
        "responses": {"200": {"$ref": "#/components/responses/SimConstant"}}
      }
    }
  },
  "schemas": {
    "SimBlock": {
      "type": "object",
      "description": "a block of the ISP service or a payload of the control process",
      "properties": {
        "command": {"type": "integer"},
        "channel": {"type": "integer", "description": "ISP service blocks only"},
        "size": {"type": "integer", "minimum": 0},
        "hex": {"type": "string", "pattern": "^([0-9a-f]{2})*$",
          "description": "the bytes, two lower-case hex digits each"},
        "fields": {"type": "object",
          "description": "the values the profile names in the block, shaped as in the profile"}
      },
      "required": ["command", "size", "hex"],
      "additionalProperties": false
    },
    "SimBlockChange": {
      "type": "object",
      "properties": {
        "hex": {"type": "string", "pattern": "^([0-9a-fA-F]{2})*$",
          "description": "the block's new bytes; their number must be the block's size"},
        "command": {"type": "integer", "description": "when given, the path's command or code"}
      },
      "required": ["hex"]
    },
    "SimJournalEntry": {
      "type": "object",
      "properties": {
        "seq": {"type": "integer", "minimum": 1,
          "description": "shared by both simulators: the order of the exchanges"},
        "service": {"enum": ["isp", "control"]},
        "operation": {"enum": ["reset", "create", "read", "write"], "description": "ISP service exchanges"},
        "messageType": {"enum": ["read", "write"], "description": "control process exchanges"},
        "command": {"type": "integer"},
        "channel": {"type": ["integer", "null"]},
        "request": {"type": "string", "pattern": "^([0-9a-f]{2})*$"},
        "reply": {"type": ["string", "null"], "pattern": "^([0-9a-f]{2})*$",
          "description": "null when no reply was given"},
        "status": {"type": ["integer", "null"], "description": "the ISP service's reply status"},
        "result": {"type": ["integer", "null"], "description": "the control process's reply Result"},
        "fault": {"enum": ["noAnswer", "delay", "status", "shortContent", "result", "sendFailure", "down"],
                  "description": "the fault played on this exchange"}
      },
      "required": ["seq", "service", "command", "request"]
    },
    "SimJournal": {
      "type": "object",
      "properties": {
        "entries": {"type": "array", "items": {"$ref": "#/components/schemas/SimJournalEntry"}},
        "last": {"type": "integer", "minimum": 0,
          "description": "the seq of the newest exchange; pass it as since to get only newer ones"},
        "dropped": {"type": "integer", "minimum": 0,
          "description": "how many exchanges went to keep the bound (--journal-keep) since the start or the last reset"}
      },
      "required": ["entries"]
    },
    "SimLogLine": {
      "type": "object",
      "properties": {
        "kind": {"enum": ["diagnostic", "operation"]},
        "module": {"type": "integer"},
        "level": {"type": "integer", "description": "diagnostics: 0 trace to 3 error"},
        "debugFlag": {"type": "integer"},
        "file": {"type": "string"},
        "line": {"type": "integer"},
        "channel": {"type": "integer", "description": "operation-log entries: the log channel, 2 then 1"},
        "lang": {"enum": ["en", "cn", ""]},
        "text": {"type": "string"},
        "seq": {"type": "integer", "minimum": 1}
      },
      "required": ["kind", "module", "text", "seq"]
    },
    "SimLog": {
      "type": "object",
      "properties": {
        "lines": {"type": "array", "items": {"$ref": "#/components/schemas/SimLogLine"}},
        "last": {"type": "integer", "minimum": 0,
          "description": "the seq of the newest line; pass it as since to get only newer ones"},
        "dropped": {"type": "integer", "minimum": 0,
          "description": "how many lines went to keep the bound (--log-keep) since the start or the last reset"}
      },
      "required": ["lines"]
    },
    "SimFault": {
      "type": "object",
      "description": "a fault: without command it hits every command of its service, without channel every channel, without count it stays until cleared",
      "properties": {
        "kind": {"description": "the kinds: x-fault-table on POST /_sim/faults"},
        "service": {"enum": ["isp", "control"],
          "description": "follows from command when not given (from 1000 on the control process)"},
        "command": {"type": "integer"},
        "channel": {"type": "integer"},
        "ms": {"type": "integer", "description": "delay"},
        "status": {"type": "integer", "description": "status: the ISP service's reply status"},
        "length": {"type": "integer", "description": "shortContent: the content's length (default half)"},
        "result": {"type": "integer", "description": "result: the control process's reply Result"},
        "count": {"type": "integer", "minimum": 0, "description": "how many exchanges it hits"}
      },
      "required": ["kind"]
    },
    "SimAccess": {
      "type": "object",
      "properties": {
        "mode": {"enum": ["loopback", "token", "open"],
                 "description": "loopback: every request is served (a loopback address without --token); token: every request needs the host's access token (beyond loopback, or --token); open: --no-token beyond loopback, anyone who reaches the host may use it"}
      },
      "required": ["mode"],
      "additionalProperties": false
    },
    "SimFaults": {
      "type": "object",
      "properties": {
        "isp": {"type": "array", "items": {"$ref": "#/components/schemas/SimFault"}},
        "control": {"type": "array", "items": {"$ref": "#/components/schemas/SimFault"}}
      },
      "required": ["isp", "control"],
      "additionalProperties": false
    }
  },
  "responses": {
    "SimBlock": {"description": "the block as the simulator holds it",
                 "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimBlock"}}}},
    "SimRefused": {"description": "a body or value the simulator refuses",
                   "content": {"application/json": {"schema": {"$ref": "#/components/schemas/HostError"}}}},
    "SimOk": {"description": "done",
              "content": {"application/json": {"schema": {"type": "object", "properties": {"ok": {"const": true}},
                                                          "required": ["ok"], "additionalProperties": false}}}},
    "SimConstant": {"description": "always the same",
                    "content": {"application/json": {"schema": {"type": "object",
                      "properties": {"constant": {"const": true}},
                                                                "required": ["constant"],
                                                                  "additionalProperties": false}}}}
  },
  "parameters": {
    "Since": {"name": "since", "in": "query", "required": false,
              "description": "only what came after this seq (the last of an earlier answer); anything but a decimal number answers 400",
              "schema": {"type": "integer", "minimum": 0}}
  },
  "requestBodies": {
    "SimBlockChange": {"required": true,
                       "content": {"application/json": {"schema": {"$ref": "#/components/schemas/SimBlockChange"}}}}
  }
})json";

}  // namespace

json_object* HostPaths() { return json_tokener_parse(kHostPaths); }

}  // namespace devhost::contract
