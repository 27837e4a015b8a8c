#!/usr/bin/env python3
"""Checks who includes whom: nothing points upward; and that OpenMP is spoken to in one place. Prints each line that is
wrong, and fails.

Usage: include_directions.py [ROOT]
"""
import pathlib
import re
import sys

# Folders of src/ and the other folders each may know; everyone may know itself and include/velacamplix.
may_know = {
    "version": set(),
    "circuit": set(),
    "statevector/storage": set(),
    "statevector/index": set(),
    "statevector/packs": set(),
    "statevector/kernels": {"storage", "index", "packs"},
    "statevector/gates": {"storage", "index", "packs", "kernels"},
    "statevector/object": {"storage", "index", "packs", "gates"},
    "statevector/measurement": {"storage", "index", "packs"},
    "statevector/loading": {"storage", "index", "packs"},
    "statevector/plan": {"storage", "index", "packs", "gates"},
    "statevector/fusion": {"index", "packs", "kernels", "gates", "plan"},
    "statevector/replay": {"storage", "index", "packs", "kernels", "gates", "plan", "fusion"},
    "statevector/observables": {"storage", "index", "packs", "measurement"},
    "statevector/gradients": {
        "storage", "index", "packs", "kernels", "gates", "plan", "fusion", "replay", "observables",
    },
    "statevector/channels": {
        "storage", "index", "packs", "kernels", "gates", "plan", "replay", "measurement", "observables",
    },
    "statevector/distributed": {"storage", "index", "packs", "kernels", "gates", "plan", "replay", "measurement"},
    # The doorway for hosts that call kernels; nobody knows it.
    "contract": {"index", "packs", "kernels", "observables"},
}

# The class of the state vector is known to its folder, its member files, and the two files that compile it, in src/.
class_headers = {"velacamplix/statevector.hpp", "velacamplix/velacamplix.hpp"}
include_line = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
endings = {".hpp", ".cpp", ".inl"}

# What depends on the thread it runs on breaks in a host's own parallel region. So regions open, and OpenMP is asked, in
# one header; elsewhere stand the critical section that guards engines and maps, which hosts know of, and the pause before
# a fork.
speaks_to_openmp = re.compile(r"\bomp_\w+|#\s*pragma\s+omp\b.*|<omp\.h>")
unnamed_critical_section = re.compile(r"#\s*pragma\s+omp\s+critical\s*$")
may_speak_to_openmp = {"src/statevector/storage/parallel.hpp", "python/bindings/processes.cpp"}
may_hold_critical_section = {
    "src/statevector/measurement/sampling.cpp",
    "src/statevector/measurement/gathered_entries.hpp",
}


def refusal_in_src(path, name, system):
    """Why the file `path`, relative to src/, may not include `name`; None when it may."""
    folder = path.parent.as_posix()
    test = path.name.endswith((".test.cpp", ".perf.cpp"))
    compiles_class = folder == "statevector" and path.name.startswith("instantiate_")
    of_class = compiles_class or folder == "statevector/object" or path.name.endswith("_members.inl")
    if name in class_headers and not (of_class or test):
        return "only object/, *_members.inl and the files that compile the class know the class"
    if system:
        return None
    if name.endswith("_members.inl"):
        return None if compiles_class else "member files are for the two files that compile the class"
    if compiles_class:
        return None
    target = pathlib.PurePosixPath(name).parent.as_posix()
    if target in ("support", "reference"):
        return None if test else "only tests know the folder tests/"
    if target == "." and test and path.name.endswith(".perf.cpp"):
        return None  # the harness in benchmarks/
    if target not in may_know:
        return 'write the path from src/, as in "statevector/index/bits.hpp"'
    if target == folder or folder not in may_know:
        return None
    if target.split("/")[-1] not in may_know[folder]:
        return f"{folder} may not know {target}"
    return None


def refusal_in_public_header(path, name, system):
    if system and name.startswith("velacamplix/"):
        return "headers of one folder include each other with quotes"
    if not system and "/" in name:
        return "public headers know only each other"
    return None


def refusal_in_reference(path, name, system):
    if "velacamplix" in name or name.startswith(("statevector/", "circuit/", "..")):
        return "the reference shares no code with what it judges"
    return None


def refusal_outside(path, name, system):
    if name.startswith(("statevector/", "circuit/", "..", "src/")):
        return "hosts see include/velacamplix only"
    return None


def said_to_openmp(path, line):
    """What the line of the file `path`, relative to the project, says to OpenMP and may not; None where all is well."""
    found = speaks_to_openmp.search(line.split("//")[0].rstrip())
    if not path.startswith(("src/", "include/", "python/")) or path.endswith(".test.cpp"):
        return None  # a host, who may have a team of his own
    if found is None or path in may_speak_to_openmp:
        return None
    if path in may_hold_critical_section and unnamed_critical_section.match(found[0]):
        return None
    return found[0]


rules = {
    "src": refusal_in_src,
    "include/velacamplix": refusal_in_public_header,
    "tests/reference": refusal_in_reference,
    "tests/install": refusal_outside,
    "python/bindings": refusal_outside,
    "examples": refusal_outside,
}


def main(root):
    looked_at, refused = 0, 0
    for folder, refusal in rules.items():
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in endings:
                continue
            looked_at += 1
            place = path.relative_to(root).as_posix()
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                said = said_to_openmp(place, line)
                if said is not None:
                    refused += 1
                    print(f"{place}:{number}: {said}: only storage/parallel.hpp speaks to OpenMP")
                match = include_line.match(line)
                if not match:
                    continue
                why = refusal(path.relative_to(root / folder), match[2], match[1] == "<")
                if why:
                    refused += 1
                    print(f"{place}:{number}: includes {match[2]}: {why}")
    print(f"include directions: {looked_at} files, {refused} wrong")
    return 1 if refused or not looked_at else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parents[1])))
