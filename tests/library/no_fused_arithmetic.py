#!/usr/bin/env python3
"""No library contains an instruction that multiplies and adds with a single rounding, at any instruction-set level.

Usage: no_fused_arithmetic.py LIBRARY...
"""
import re
import subprocess
import sys

fused = re.compile(r"^v?fn?m(add|sub|addsub|subadd)[0-9ps]")
# What proves that a level's library was really built for its level, and that the disassembly was understood.
widest_register = {"x86-64-v3": "%ymm", "x86-64-v4": "%zmm"}


def instructions(library):
    """Yields (function, mnemonic, operands)."""
    process = subprocess.Popen(
        ["objdump", "--disassemble", "--demangle", "--no-show-raw-insn", library], stdout=subprocess.PIPE, text=True
    )
    function = "?"
    for line in process.stdout:
        if line.endswith(">:\n"):
            function = line[line.find("<") + 1 : -3]
            continue
        address, separator, code = line.partition(":\t")
        if separator:
            mnemonic, _, operands = code.strip().partition(" ")
            yield function, mnemonic, operands
    if process.wait() != 0:
        sys.exit(f"objdump failed on {library}")


def main(libraries):
    failed = False
    for library in libraries:
        level = next((name for name in widest_register if name in library), "x86-64")
        found, count, wide, products = {}, 0, 0, 0
        for function, mnemonic, operands in instructions(library):
            count += 1
            wide += widest_register.get(level, "%xmm") in operands
            products += mnemonic.lstrip("v").startswith(("mulp", "muls"))
            if fused.match(mnemonic):
                found.setdefault(function, set()).add(mnemonic)
        print(f"{level}: {count} instructions, {wide} on its widest registers, {products} products, {library}")
        for function, mnemonics in found.items():
            print(f"  {', '.join(sorted(mnemonics))} in {function}")
        if found or wide == 0 or products == 0:
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
