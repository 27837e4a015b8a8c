#!/usr/bin/env python3
"""docs/exported-names.md tells, for every name that the library exports, a header that declares it and a test.

Usage: exported_names.py LIBRARY ROOT
"""
import fnmatch
import pathlib
import re
import subprocess
import sys

namespaces = {"pbamplix", "cpu", "vela", "core", "iterator"}
# Of this class every member has a place in the table; of other classes the class.
listed_by_member = "PybindAmplixStateVectorCPU"


def without_template_arguments(text):
    while text != (text := re.sub(r"<[^<>]*>", "", text)):
        pass
    return text


def name_of(symbol):
    """The name in the table that a demangled symbol belongs to."""
    *scope, name = without_template_arguments(symbol).split("(")[0].split()[-1].split("[")[0].split("::")
    owner = scope[-1] if scope and scope[-1] not in namespaces else name
    return name if owner == listed_by_member and not name.startswith("~") else owner


def exported(library):
    command = ["nm", "--dynamic", "--demangle", "--defined-only", "--format=posix", library]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    # Behind the symbol: its type, value and size.
    return {name_of(re.sub(r" [A-Za-z]( [0-9a-f]+)*\s*$", "", line)) for line in lines}


def rows(page):
    """Names, headers and tests of every line of the table: what stands in backquotes."""
    for line in page.read_text(encoding="utf-8").splitlines():
        cells = line.split("|")
        if len(cells) == 5 and "`" in line:
            yield tuple(re.findall(r"`([^`]+)`", cell) for cell in cells[1:4])


def main(library, root):
    root = pathlib.Path(root)
    wrong = []
    listed = set()
    for names, headers, tests in rows(root / "docs" / "exported-names.md"):
        texts = [root / "include" / "velacamplix" / header for header in headers]
        paths = [root / (test if test.startswith("src/") else f"src/statevector/{test}") for test in tests]
        wrong += [f"there is no {path}" for path in texts + paths if not path.is_file()]
        if not tests:
            wrong.append(f"no test stands beside {names}")
        declared = " ".join(path.read_text(encoding="utf-8") for path in texts if path.is_file())
        words = set(re.findall(r"\w+", declared))
        for name in names:
            name = next(part for part in without_template_arguments(name).split("::") if part not in namespaces)
            listed.add(name)
            if not fnmatch.filter(words, name):
                wrong.append(f"{name} is not declared in {', '.join(headers)}")
    shown = exported(library)
    if len(shown) < 80:
        wrong.append(f"{library} shows only {len(shown)} names; the interface alone has more")
    wrong += [f"{name} is exported and not in the table" for name in sorted(shown)
              if not any(fnmatch.fnmatchcase(name, pattern) for pattern in listed)]
    print("\n".join(wrong) if wrong else f"{len(shown)} names, all in the table")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
