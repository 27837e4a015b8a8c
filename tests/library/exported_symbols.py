#!/usr/bin/env python3
"""The shared library shows what include/velacamplix declares, and nothing of the inside.

Usage: exported_symbols.py LIBRARY...    (all of them must show the same symbols)
"""
import re
import subprocess
import sys

# A mangled name whose own scope, not merely an argument, is public: a function or a static member, or the virtual
# table, type information and the like (T followed by a letter) of a class.
public = re.compile(r"_Z(T[VTIS])?(NK?)?(8pbamplix|4vela4core8iterator|11WObservable)")


def symbols(library):
    lines = subprocess.run(
        ["nm", "--dynamic", "--defined-only", "--format=posix", library], check=True, capture_output=True, text=True
    ).stdout.splitlines()
    return {line.split()[0] for line in lines}


def demangle(names):
    return subprocess.run(["c++filt"], input="\n".join(sorted(names)), check=True, capture_output=True, text=True).stdout


def main(libraries):
    failed = False
    first = symbols(libraries[0])
    if len(first) < 100:
        print(f"{libraries[0]} shows only {len(first)} symbols; the interface alone has more")
        failed = True
    for library in libraries:
        shown = symbols(library)
        inside = {name for name in shown if not public.match(name) or "14implementation" in name}
        if inside:
            print(f"{library} shows what should be hidden:\n{demangle(inside)}")
            failed = True
        if shown != first:
            print(f"{library} and {libraries[0]} differ in:\n{demangle(shown ^ first)}")
            failed = True
    print(f"{len(libraries)} libraries, {len(first)} symbols each" if not failed else "failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
