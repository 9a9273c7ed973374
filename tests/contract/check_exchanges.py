#!/usr/bin/python3
"""Checks every exchange the integration suite had with the development host
against the API document: each answer against the schema of its operation's
response for that HTTP status (or the host's 404 and 405 for a path or method
the document does not have, with the Allow header it names), and each request
body and ChannelId the module accepted against the operation's request schema
and parameter. Fails on any mismatch and when nothing was checked (a skip,
exit 77, when the machine has no FUSE, so that the integration tests skipped).

usage: check_exchanges.py DOCUMENT EXCHANGES"""
import json
import os
import sys
from urllib.parse import parse_qsl, urlsplit

from api_document import ApiDocument


# What the host answers before it looks at the path: a missing access token,
# the token's redirect that sets its cookie, a body or target over the limit.
HOST_FIRST = (303, 401, 413, 414)


def console_page(target, answer):
    """Whether an answer is one of the console's pages or files (the console,
    and in token mode its way-in page for a browser): the host's pages, which
    the API document does not describe."""
    if not (target.path == "/" or target.path.startswith("/console/")):
        return False
    try:
        json.loads(answer)
        return False
    except ValueError:
        return True


def check(api, exchange, counts):
    """The mismatches of one exchange."""
    method, status = exchange["method"], exchange["status"]
    target = urlsplit(exchange["target"])
    if console_page(target, exchange["answer"]):
        counts["pages"] += 1
        return []
    _, item = api.path_item(target.path)
    operation = item.get(method.lower()) if item else None
    if status in HOST_FIRST or operation is None:
        # Answered by the host before any operation: the access token, a limit, the path or the method.
        expected = status if status in HOST_FIRST else 404 if item is None else 405
        if status != expected:
            return [f"HTTP {status}, but the document has {'no such path' if item is None else 'no such method'}"]
        response = api.component_response(f"Status{status}")
        problems = []
        if status == 405 and exchange["allow"] != ", ".join(api.methods(item)):
            problems.append(f"Allow is {exchange['allow']!r}, the document has {api.methods(item)}")
    else:
        response = operation["responses"].get(str(status))
        if response is None:
            return [f"HTTP {status} is not a documented response"]
        problems = []
    if "content" not in api.resolve(response):
        # An answer without content (the access token's redirect) carries none.
        return problems + ([f"an answer where the document has none: {exchange['answer'][:80]!r}"]
                           if exchange["answer"] else [])
    try:
        answer = json.loads(exchange["answer"])
    except ValueError:
        return [f"the answer is not JSON: {exchange['answer'][:80]!r}"]
    problems += api.errors(api.response_schema(response), answer)
    counts["answers"] += 1
    accepted = operation is not None and 200 <= status < 300
    if accepted and api.request_schema(operation) is not None:
        problems += ["request: " + e for e in api.errors(api.request_schema(operation), json.loads(exchange["body"]))]
        counts["bodies"] += 1
    if accepted:
        query = dict(parse_qsl(target.query))
        for parameter in map(api.resolve, operation.get("parameters", [])):
            if parameter["in"] != "query":
                continue
            if parameter["name"] not in query:
                if parameter.get("required"):
                    problems.append(f"accepted without the required {parameter['name']}")
                continue
            problems += [f"{parameter['name']}: " + e
                         for e in api.errors(parameter["schema"], int(query[parameter["name"]]))]
            counts["parameters"] += 1
    return problems


def fuse_available():
    """Whether the host can run here, as it decides it (devhost/isolation.cpp)."""
    try:
        os.close(os.open("/dev/fuse", os.O_RDWR))
        return True
    except OSError:
        return False


def main(document, exchanges):
    api = ApiDocument(document)
    counts = {"answers": 0, "bodies": 0, "parameters": 0, "pages": 0}
    failures = 0
    with open(exchanges, encoding="utf-8") if os.path.exists(exchanges) else open(os.devnull) as f:
        for number, line in enumerate(f, 1):
            exchange = json.loads(line)
            for problem in check(api, exchange, counts):
                failures += 1
                print(f"exchange {number}: {exchange['method']} {exchange['target'][:120]} -> {exchange['status']}: "
                      f"{problem}")
    print(f"checked {counts['answers']} answers, {counts['bodies']} accepted request bodies and "
          f"{counts['parameters']} accepted ChannelId values against {document} ({counts['pages']} console pages "
          f"left out): {failures} mismatches")
    if counts["answers"] == 0 or counts["bodies"] == 0:
        if not fuse_available():
            print("no FUSE on this machine: the integration tests skipped, so this check does too")
            return 77
        print("nothing was checked: run this after the integration tests (ctest runs it last)")
        return 1
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
