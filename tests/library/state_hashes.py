"""Runs a program at each instruction-set level and compares what it prints.

usage: state_hashes.py PROGRAM LEVEL=TUNABLE...

The first line of the output names the instruction set that was loaded; all others must be the same at every level.
Levels that this processor does not have are left out, with a line that says so.
"""

import os
import subprocess
import sys


def main(program, levels):
    outputs = {}
    for level, tunable in (each.split("=", 1) for each in levels):
        environment = dict(os.environ, GLIBC_TUNABLES=f"glibc.cpu.hwcaps={tunable}", OMP_WAIT_POLICY="passive")
        result = subprocess.run([program], env=environment, capture_output=True, text=True, check=True)
        loaded, *lines = result.stdout.splitlines()
        if loaded != f"instruction set {level}":
            print(f"{level}: left out, this machine loads {loaded.split()[-1]} instead")
            continue
        outputs[level] = lines
        print(f"{level}: {len(lines)} results")
    first, *others = outputs
    if not outputs[first]:
        sys.exit("no results")
    for level in others:
        if len(outputs[level]) != len(outputs[first]):
            sys.exit(f"{level} prints another number of results than {first}")
        for expected, got in zip(outputs[first], outputs[level]):
            if expected != got:
                sys.exit(f"{first}: {expected}\n{level}: {got}")
    print("all levels agree" if others else "only one level could be run; nothing was compared")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
