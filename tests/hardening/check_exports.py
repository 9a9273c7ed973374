#!/usr/bin/env python3
"""Compares the dynamic symbols that a shared library defines with a list.

usage: check_exports.py NM LIBRARY LIST

Plain (C) names must be exactly the list's [plain] section; C++ names,
demangled, exactly its [decorated] section. Names that belong to the
toolchain or the runtime are not the module's and are left out: plain names
beginning with '_' (_init, __bss_start, sanitizer and profiling hooks) and
C++ names of the standard library.
"""
import subprocess
import sys

FOREIGN_PREFIXES = ("std::", "__gnu_cxx::", "__cxxabiv1::", "typeinfo for std::", "typeinfo name for std::",
                    "vtable for std::", "guard variable for std::")


def read_list(path):
    sections = {"plain": set(), "decorated": set()}
    current = None
    with open(path, encoding="utf-8") as f:
        for raw in f:
            line = raw.strip()
            if not line or line.startswith("#"):
                continue
            if line.startswith("[") and line.endswith("]"):
                current = sections[line[1:-1]]
                continue
            current.add(line)
    return sections


def symbols(nm, library, demangle):
    args = [nm, "-D", "--defined-only"] + (["-C"] if demangle else []) + [library]
    out = subprocess.run(args, check=True, capture_output=True, text=True).stdout
    # "address type name", the name possibly holding blanks once demangled.
    return [line.split(" ", 2)[2] for line in out.splitlines() if line.count(" ") >= 2]


def main():
    nm, library, listing = sys.argv[1:4]
    expected = read_list(listing)
    raw = symbols(nm, library, False)
    shown = symbols(nm, library, True)
    if len(raw) != len(shown):
        sys.exit("nm listed the symbols differently with and without demangling")

    found = {"plain": set(), "decorated": set()}
    for mangled, name in zip(raw, shown):
        if mangled.startswith("_Z"):
            if not name.startswith(FOREIGN_PREFIXES):
                found["decorated"].add(name)
        elif not mangled.startswith("_"):
            found["plain"].add(mangled)

    failed = False
    for section in ("plain", "decorated"):
        for name in sorted(expected[section] - found[section]):
            print(f"missing {section}: {name}")
            failed = True
        for name in sorted(found[section] - expected[section]):
            print(f"unexpected {section}: {name}")
            failed = True
        print(f"{section}: {len(found[section])} exported, {len(expected[section])} expected")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
