#!/usr/bin/env python3
"""What libtalvex.so shows to the dynamic linker.

usage: exports_test.py names|linkage LIBRARY EXPORTS_LIST [--sanitized]

names    the exported names, their kinds and sizes are those of the list, without versions
linkage  libc alone is needed, relocations are bound at once and read-only, nothing is writable and executable;
         a sanitizer build brings libraries of its own and is skipped (exit status 77)
"""

import re
import subprocess
import sys

SKIPPED = 77


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def listed(path):
    exports = {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            words = line.split("#")[0].split()
            if words:
                exports[words[1]] = (words[0], int(words[2]) if words[0] == "data" else None)
    return exports


def exported(library):
    exports = {}
    for line in output_of("nm", "-D", "-S", "--defined-only", "--with-symbol-versions", library).splitlines():
        size, letter, name = re.fullmatch(r"[0-9a-f]+ (?:([0-9a-f]+) )?(\S) (.+)", line).groups()
        if letter in "BDR":
            exports[name] = ("data", int(size, 16))
        else:
            exports[name] = ("function" if letter == "T" else f"symbol of kind {letter}", None)
    return exports


def check_names(library, exports_list):
    expected, found = listed(exports_list), exported(library)
    for name in sorted(expected.keys() - found.keys()):
        yield f"not exported: {name}"
    for name in sorted(found.keys() - expected.keys()):
        yield f"exported but not listed: {name}"
    for name in sorted(expected.keys() & found.keys()):
        if expected[name] != found[name]:
            yield f"{name}: listed as {expected[name]}, exported as {found[name]}"


def check_linkage(library, _):
    dynamic = output_of("readelf", "-dW", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    if needed != ["libc.so.6"]:
        yield f"needs {needed}"
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    if soname != ["libtalvex.so.2"]:
        yield f"soname is {soname}"
    if not re.search(r"\(FLAGS\).*BIND_NOW", dynamic):
        yield "relocations are not bound at once"
    for tag in ("TEXTREL", "RPATH", "RUNPATH"):
        if tag in dynamic:
            yield f"has {tag}"

    segments = re.findall(r"^ +([A-Z_]+) +0x\S+ 0x\S+ 0x\S+ 0x\S+ 0x\S+ ([R ][W ][E ]) ",
                          output_of("readelf", "-lW", library), re.MULTILINE)
    kinds = [kind for kind, _ in segments]
    if "GNU_RELRO" not in kinds:
        yield "relocated data stay writable"
    if "GNU_STACK" not in kinds:
        yield "asks for an executable stack by saying nothing"
    for kind, flags in segments:
        if "W" in flags and "E" in flags:
            yield f"{kind} is writable and executable"

    for line in output_of("nm", "-D", "--undefined-only", library).splitlines():
        name = line.split()[-1]
        if name.startswith("_Z") or name.startswith("__gxx") or name.startswith("_Unwind"):
            yield f"needs the C++ runtime: {name}"


def main(what, library, exports_list, *options):
    if what == "linkage" and "--sanitized" in options:
        print("skipped: a sanitizer build links the sanitizers' libraries")
        return SKIPPED
    check = {"names": check_names, "linkage": check_linkage}[what]
    complaints = list(check(library, exports_list))
    print("\n".join(complaints) or "as listed")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
