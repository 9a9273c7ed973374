#!/usr/bin/python3
"""Checks that the API document is exactly as strict as the module, against a
running development host: for every value set and limit the document gives a
PUT body member or a ChannelId, generated from the document, the values in it
are accepted and the values just outside are refused (StatusCode 4 for a body
member, HTTP 400 for ChannelId), and a refused PUT leaves the device's values
(x-device) as they were. Also checks that the host serves the document byte for
byte, and that the fault table (x-fault-table) names for each resource exactly
the commands its operations send the device (from the journal). Exits 77 when the machine cannot run the host (no FUSE).

usage: check_strictness.py DOCUMENT DEVHOST"""
import json
import os
import sys

from api_document import ApiDocument

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from devhost import Host  # noqa: E402 (found through the path above)

REFUSED = 4


def body_at(pointer, value):
    """A body that names only the member at the JSON pointer."""
    body = value
    for key in reversed(pointer.strip("/").split("/")):
        body = {key: body}
    return body


def leaves(api, schema, pointer=""):
    """(pointer, schema) of every member of a request schema that is not an object."""
    schema = api.resolve(schema)
    if schema.get("type") == "object":
        for key, member in schema.get("properties", {}).items():
            yield from leaves(api, member, f"{pointer}/{key}")
    else:
        yield pointer, schema


def integer_cases(schema):
    """(value, inside) for an integer's value set and limits."""
    cases = []
    if "enum" in schema:
        inside = set(schema["enum"])
        cases += [(v, True) for v in sorted(inside)]
        cases += [(v, False) for v in sorted({n for v in inside for n in (v - 1, v + 1)} - inside)]
    if "minimum" in schema:
        cases += [(schema["minimum"], True), (schema["minimum"] - 1, False)]
    if "maximum" in schema:
        cases += [(schema["maximum"], True), (schema["maximum"] + 1, False)]
    return cases


def text_cases(schema):
    """(text, inside, prior) for a text's length limit and count rule. `prior`, written first, leaves no counted
    character behind the text in the device's field, whose whole length the count covers."""
    rule = schema.get("x-min-count")
    counted, count = (rule["character"], rule["count"]) if rule else ("", 0)
    filler = "0" if counted != "0" else "2"
    longest = schema.get("maxLength")
    prior = counted * count + filler * (longest - count) if rule and longest else None
    cases = []
    if longest is not None:
        cases += [(counted * count + filler * (longest - count), True, None),
                  (counted * count + filler * (longest + 1 - count), False, None)]
    if rule:
        cases += [(counted * count, True, prior), (counted * (count - 1), False, prior)]
    return cases


def main(document, executable):
    api = ApiDocument(document)
    host = Host(executable)
    failures, checked = [], 0
    try:
        with open(document, encoding="utf-8") as f:
            if host.call("GET", "/openapi.json")[1] != f.read():
                failures.append(f"GET /openapi.json differs from {document}: regenerate it with scripts/openapi")
        sent = {}  # by resource: the (service, command) its operations sent
        for path, method, operation in api.api_operations():
            channel = next((p for p in map(api.resolve, operation.get("parameters", []))
                            if p["name"] == "ChannelId"), None)
            example = f"?ChannelId={channel['example']}" if channel and "example" in channel else ""
            body = "{}" if api.request_schema(operation) else None
            device = operation.get("x-device")
            if device and host.call("GET", device)[0] != 200:
                failures.append(f"{method.upper()} {path}: x-device {device} is not a device route")
            host.call("POST", "/_sim/reset")
            last = json.loads(host.call("GET", "/_sim/journal")[1])["last"]
            host.call(method.upper(), path + example, body)
            entries = json.loads(host.call("GET", f"/_sim/journal?since={last}")[1])["entries"]
            sent.setdefault(path.rsplit("/", 1)[1], set()).update((e["service"], e["command"]) for e in entries)

            def expect(target, sent, inside, code, label, prior=None):
                nonlocal checked
                host.call("POST", "/_sim/reset")
                if prior is not None and host.call(method.upper(), target, prior)[0] != 200:
                    failures.append(f"{method.upper()} {path} {label}: the text written first was refused")
                before = host.call("GET", device)[1] if device else None
                status, text = host.call(method.upper(), target, sent)
                got = json.loads(text).get("ResponseStatus", {}).get("StatusCode") if text.startswith("{") else None
                ok = (status != 400 if inside else status == 400) if code is None else \
                     (got == 0 if inside else got == code)
                if ok and not inside and device and host.call("GET", device)[1] != before:
                    failures.append(f"{method.upper()} {path} {label}: refused, but the device changed")
                elif not ok:
                    failures.append(f"{method.upper()} {path} {label}: {'in' if inside else 'outside'} the "
                                    f"document, answered HTTP {status}, StatusCode {got}")
                checked += 1

            if channel and channel.get("required"):
                for value, inside in integer_cases(channel["schema"]):
                    expect(f"{path}?ChannelId={value}", body, inside, None, f"ChannelId={value}")
                expect(path, body, False, None, "without ChannelId")
            elif channel:
                # Not read at all: what no reader of it would take is taken too.
                for value in ("-1", "abc", ""):
                    expect(f"{path}?ChannelId={value}", body, True, None, f"ChannelId={value}")
            schema = api.request_schema(operation)
            if schema is None:
                continue
            for pointer, member in leaves(api, schema):
                cases = []
                if member.get("type") == "integer":
                    cases = [(v, inside, None) for v, inside in integer_cases(member)]
                elif member.get("type") == "string":
                    cases = text_cases(member)
                for value, inside, prior in cases:
                    prior_body = None if prior is None else json.dumps(body_at(pointer, prior))
                    label = f"{pointer}={value if len(str(value)) < 20 else f'<{len(value)} characters>'}"
                    expect(path + example, json.dumps(body_at(pointer, value)), inside, REFUSED, label, prior_body)
        table = api.doc["paths"]["/_sim/faults"]["post"]["x-fault-table"]
        for name, commands in sent.items():
            listed = {(s["service"], c["command"]) for s in table["services"] for c in s["commands"]
                      if name in c["resources"]}
            if listed != commands:
                failures.append(f"x-fault-table: {name} sends {sorted(commands)}, the table lists {sorted(listed)}")
            checked += 1
    finally:
        host.stop()
    for failure in failures:
        print(failure)
    print(f"{checked} values at and beyond the document's value sets and limits: {len(failures)} disagreements")
    return 1 if failures or checked == 0 else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
