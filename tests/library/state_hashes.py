#!/usr/bin/env python3
"""Runs a program at each instruction-set level and compares the hashes it prints, with each other and with stored ones.

usage: state_hashes.py PROGRAM [LEVEL=TUNABLE...]      compare
       state_hashes.py PROGRAM --store GROUP...        write what the program prints now over what is stored

All levels and all numbers of threads must give the same, and what stands in state_hashes.txt beside this file. There,
results of the group `exact` hold for every machine. Those of `sines` and `fused` depend on the C library's sine and
cosine, and are stored under a key that tells its values; where a machine has others, levels and numbers of threads are
compared with each other alone, and a line says so. Those of `fused` also depend on whether the processor multiplies and
adds with one rounding: levels that do and levels that do not have keys of their own, and are stored in turns, with
GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2 for those that do not. A group is stored anew, with its reason in the commit, when its
results are meant to change: fused ones whenever fusion is rewritten, the others hardly ever.

Levels that this processor does not have are left out, with a line that says so.
"""

import os
import pathlib
import re
import subprocess
import sys

stored_file = pathlib.Path(__file__).with_suffix(".txt")


def run(program, **environment):
    """The instruction set, the key of each group, and {(group, name): hash}; all numbers of threads must agree."""
    result = subprocess.run(
        [program], env={**os.environ, "OMP_WAIT_POLICY": "passive", **environment}, capture_output=True, text=True
    )
    if result.returncode != 0:
        sys.exit(f"{program} ended with status {result.returncode}\n{result.stderr}")
    loaded, keys, hashes, threads_of = None, {}, {}, {}
    for line in result.stdout.splitlines():
        fields = line.split("\t")
        if fields[0] == "instruction set":
            loaded = fields[1]
        elif fields[0] == "key":
            keys[fields[1]] = fields[2]
        else:
            group, name, threads, value = fields
            first = hashes.setdefault((group, name), value)
            if first != value:
                sys.exit(f"{loaded}: {name}: {threads_of[name]} threads give {first}, {threads} give {value}")
            threads_of[name] = threads
    return loaded, keys, hashes


def read_stored():
    """{(group, key): {name: hash}}"""
    sections, names = {}, None
    for line in stored_file.read_text().splitlines() if stored_file.exists() else []:
        heading = re.fullmatch(r"\[(\w+) (\w+)\]", line)
        if heading:
            names = sections.setdefault(heading.groups(), {})
        elif line and not line.startswith("#"):
            value, name = line.split(" ", 1)
            names[name] = value
    return sections


def write_stored(sections):
    lines = ["# Written by state_hashes.py --store, which tells what this is."]
    for (group, key), names in sorted(sections.items()):
        lines += ["", f"[{group} {key}]", *(f"{value} {name}" for name, value in names.items())]
    stored_file.write_text("\n".join(lines) + "\n")


def store(program, groups):
    _, keys, hashes = run(program)
    sections = read_stored()
    for group in groups:
        if group not in keys:
            sys.exit(f"no group is called {group}; there are {', '.join(keys)}")
        new = {name: value for (of_group, name), value in hashes.items() if of_group == group}
        changed = sum(sections.get((group, keys[group]), {}).get(name) != value for name, value in new.items())
        sections[group, keys[group]] = new
        print(f"{group}: {changed} of {len(new)} results are new or changed")
    write_stored(sections)


def compare_with_stored(seen):
    sections = read_stored()
    for (group, key), (level, got) in seen.items():
        if (group, key) not in sections:
            if group == "exact":
                sys.exit(f"{stored_file} has no results of the group exact")
            print(
                f"{group}: this machine's C library has sines and cosines of its own (key {key}), under which nothing "
                f"is stored: {len(got)} results are compared between instruction sets and numbers of threads only"
            )
            continue
        expected = sections[group, key]
        for name in [*expected, *got]:
            if expected.get(name) != got.get(name):
                sys.exit(f"{level}: {group}: {name}: stored is {expected.get(name)}, given {got.get(name)}")
        print(f"{group}, key {key}: {len(got)} results are as stored")


def main(program, levels):
    outputs = {}
    for level, tunable in (each.split("=", 1) for each in levels):
        loaded, keys, hashes = run(program, GLIBC_TUNABLES=f"glibc.cpu.hwcaps={tunable}")
        if loaded != level:
            print(f"{level}: left out, this machine loads {loaded} instead")
            continue
        outputs[level] = keys, hashes
        print(f"{level}: {len(hashes)} results")
    if not levels:
        loaded, keys, hashes = run(program)
        outputs[loaded] = keys, hashes
    first, *others = outputs
    if not outputs[first][1]:
        sys.exit("no results")
    seen = {}  # by group and key, the level that first had it and its results
    for level, (keys, hashes) in outputs.items():
        for group, key in keys.items():
            got = {name: value for (of_group, name), value in hashes.items() if of_group == group}
            earlier, expected = seen.setdefault((group, key), (level, got))
            if got.keys() != expected.keys():
                sys.exit(f"{level} prints other results than {earlier} in the group {group}")
            for name, value in got.items():
                if value != expected[name]:
                    sys.exit(f"{group}: {name}: {earlier} gives {expected[name]}, {level} gives {value}")
    print("all levels agree" if others else f"only {first} was run, so no levels were compared")
    compare_with_stored(seen)


if __name__ == "__main__":
    if sys.argv[2:3] == ["--store"]:
        store(sys.argv[1], sys.argv[3:])
    else:
        main(sys.argv[1], sys.argv[2:])
