#!/usr/bin/env python3
"""Checks that no stage of the module needs more stack than a limit.

usage: check_stack.py OBJECT_DIR EXPORTS_LIST LIMIT_BYTES

Reads the call graphs that GCC writes beside each object of the module with
-fcallgraph-info=su (one .ci file per object: a node per function with its
frame size, an edge per call). A stage's need is its own frame plus the
deepest chain of calls into the module's own functions below it, after
inlining. Calls that leave the module (json-c, libc, the platform
libraries) count as 0: their frames are the libraries' own and small next to
the command channel's buffers, which the stages keep on their own frames.
A frame of dynamic size that GCC cannot bound fails the check, as does
recursion within the module.
"""
import glob
import os
import re
import sys

NODE = re.compile(r'node: \{ title: "([^"]*)" label: "([^"]*)"')
EDGE = re.compile(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"')
FRAME = re.compile(r"\\n(\d+) bytes \(([^)]*)\)$")


def read_graph(object_dir):
    frames, kinds, calls, names = {}, {}, {}, {}
    files = glob.glob(os.path.join(object_dir, "**", "*.ci"), recursive=True)
    if not files:
        sys.exit(f"no call graph (.ci) files under {object_dir}")
    for path in files:
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                node = NODE.match(line)
                if node:
                    frame = FRAME.search(node.group(2))
                    if frame:
                        frames[node.group(1)] = max(frames.get(node.group(1), 0), int(frame.group(1)))
                        kinds[node.group(1)] = frame.group(2)
                        names[node.group(1)] = short_name(node.group(2))
                    continue
                edge = EDGE.match(line)
                if edge:
                    calls.setdefault(edge.group(1), set()).add(edge.group(2))
    return frames, kinds, calls, names


def short_name(label):
    """The function's qualified name without its arguments or return type."""
    signature = label.split("\\n")[0]
    depth, end = 0, len(signature)
    for i, ch in enumerate(signature):
        if ch == "<":
            depth += 1
        elif ch == ">":
            depth -= 1
        elif ch == "(" and depth == 0:
            end = i
            break
    return signature[:end].split(" ")[-1]


def plain_names(listing):
    names, section = [], None
    with open(listing, encoding="utf-8") as f:
        for raw in f:
            line = raw.strip()
            if line.startswith("["):
                section = line
            elif section == "[plain]" and line and not line.startswith("#"):
                names.append(line)
    return names


def main():
    object_dir, listing, limit = sys.argv[1], sys.argv[2], int(sys.argv[3])
    frames, kinds, calls, names = read_graph(object_dir)
    problems = []
    deepest = {}

    def need(title, stack):
        """Bytes for title and its deepest chain of module calls, and that chain."""
        if title in deepest:
            return deepest[title]
        if title in stack:
            problems.append("recursion: " + " -> ".join(stack + [title]))
            return 0, []
        kind = kinds.get(title, "static")
        if "dynamic" in kind and "bounded" not in kind:
            problems.append(f"unbounded dynamic frame: {title}")
        best = (0, [])
        for callee in calls.get(title, ()):
            if callee in frames:
                best = max(best, need(callee, stack + [title]), key=lambda b: b[0])
        deepest[title] = (frames.get(title, 0) + best[0], [title] + best[1])
        return deepest[title]

    present = [s for s in plain_names(listing) if s in frames]
    print(f"{'stage':40} {'frame':>7} {'total':>7}  deepest chain")
    for stage in present:
        total, chain = need(stage, [])
        big = [f"{names[c]}({frames[c]})" for c in chain[1:] if frames[c] >= 512]
        print(f"{stage:40} {frames[stage]:>7} {total:>7}  {' '.join(big)}")
        if total > limit:
            problems.append(f"{stage} needs {total} bytes, more than {limit}")
    if not present:
        problems.append("no stage found in the call graphs")
    for p in problems:
        print(p)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
