#!/usr/bin/env python3
"""No library contains an instruction that multiplies and adds with a single rounding, at any instruction-set level.

Usage: no_fused_arithmetic.py OBJDUMP BASELINE LIBRARY...    (BASELINE is x86-64 or aarch64)
"""
import pathlib
import re
import subprocess
import sys

# By processor: fused instructions; products; and per level what its widest registers look like. The last two prove
# that a library was really built for its level, and that the disassembly was understood.
processors = {
    "x86-64": (
        re.compile(r"v?fn?m(add|sub|addsub|subadd)[0-9ps]"),
        re.compile(r"v?mul[ps]"),
        {"x86-64": "%xmm", "x86-64-v3": "%ymm", "x86-64-v4": "%zmm"},
    ),
    "aarch64": (
        re.compile(r"fn?(madd|msub|mla|mls|mad|msb)|f[cm]mla|bf(ml|mm|dot)|frecps|frsqrts"),
        re.compile(r"fn?mul"),
        {"aarch64": ".2d"},
    ),
}
# A line of GNU's or LLVM's objdump: address, mnemonic, operands.
code = re.compile(r"\s*[0-9a-f]+:\s+(\S+)\s*(.*)")


def instructions(objdump, library):
    """Yields (function, mnemonic, operands)."""
    process = subprocess.Popen(
        [objdump, "--disassemble", "--demangle", "--no-show-raw-insn", library], stdout=subprocess.PIPE, text=True
    )
    function = "?"
    for line in process.stdout:
        if line.endswith(">:\n"):
            function = line[line.find("<") + 1 : -3]
            continue
        if found := code.match(line):
            yield function, found[1], found[2]
    if process.wait() != 0:
        sys.exit(f"objdump failed on {library}")


def main(objdump, baseline, libraries):
    failed = False
    fused, product, widest_registers = processors[baseline]
    for library in libraries:
        level = next((name for name in widest_registers if name == pathlib.Path(library).parent.name), baseline)
        found, count, wide, products = {}, 0, 0, 0
        for function, mnemonic, operands in instructions(objdump, library):
            count += 1
            wide += widest_registers[level] in operands
            products += product.match(mnemonic) is not None
            if fused.match(mnemonic):
                found.setdefault(function, set()).add(mnemonic)
        print(f"{level}: {count} instructions, {wide} on its widest registers, {products} products, {library}")
        for function, mnemonics in found.items():
            print(f"  {', '.join(sorted(mnemonics))} in {function}")
        if found or wide == 0 or products == 0:
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
