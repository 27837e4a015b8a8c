#!/usr/bin/env python3
"""No library contains an instruction that multiplies and adds with a single rounding, at any instruction-set level, but
in the loops for blocks of fused gates; and nothing but opt-in fusion leads to those.

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
# The loops that may; and from there what leads to them, step by step. A function of one step may be named, in a call or as
# an address, by functions of the same step and of the next alone. The constructor of a schedule and the member that
# plans the way back of a gradient, where it ends, go by the program's flag.
fused_loops = re.compile(r"velacamplix::kernels::\(anonymous namespace\)::run_fused")
ways = [
    re.compile(r"velacamplix::kernels::(\(anonymous namespace\)::)?(\w+_)?fused_?\w*<"),
    re.compile(r"velacamplix::fusion::(\(anonymous namespace\)::)?(block_former|form_blocks|block_on|make_block_of_matrix)\b"),
    re.compile(r"velacamplix::fusion::fuse<|velacamplix::gradients::((\(anonymous namespace\)::)?block_former|fused_gates)<"),
    re.compile(r"velacamplix::replay::make_fused_passes<|velacamplix::gradients::make_plan_back<"),
    re.compile(r"velacamplix::replay::schedule<\w+>::schedule\(|pbamplix::cpu::program<\w+>::gradient\("),
]
# The address of code that an instruction names, and what stands there: `call 1234 <name+0x56>`.
target = re.compile(r"(?:# )?[0-9a-f]+ <(.+?)(?:\+0x[0-9a-f]+)?>$")


def step_of(function):
    """How far the function is from the loops, None for one that is not on the way. The outermost name counts."""
    found = [(match.start(), step) for step, way in enumerate(ways) if (match := way.search(function))]
    return min(found)[1] if found else None


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
        found, count, wide, products, fused_count = {}, 0, 0, 0, 0
        functions, references = set(), set()
        for function, mnemonic, operands in instructions(objdump, library):
            count += 1
            wide += widest_registers[level] in operands
            products += product.match(mnemonic) is not None
            if fused.match(mnemonic):
                if fused_loops.search(function):
                    fused_count += 1
                else:
                    found.setdefault(function, set()).add(mnemonic)
            functions.add(function)
            # Elsewhere than in calls aarch64 names the page of an address, which is not what stands there.
            is_exact = baseline != "aarch64" or mnemonic in ("b", "bl")
            if is_exact and (at := target.search(operands)) and at[1] != function:
                references.add((function, at[1]))
        named = set()
        for function, name in references:
            # Constants are told by whatever symbol stands before them.
            if name not in functions or (step := step_of(name)) is None:
                continue
            named.add(step)
            by = step_of(function)
            if step + 1 < len(ways) and (by is None or not step <= by <= step + 1):
                found.setdefault(function, set()).add(f"way to {name}")
        print(
            f"{level}: {count} instructions, {wide} on its widest registers, {products} products, {fused_count} fused "
            f"in loops of their own, {library}"
        )
        # Calls are seen everywhere, addresses on x86-64, where the loops are named by nothing but their addresses.
        expected = set(range(0 if baseline == "x86-64" else 1, len(ways)))
        if not expected <= named or (fused_count == 0) != (level == "x86-64"):
            print(f"  the loops of fused blocks were not found, or what leads to them: {sorted(named)}")
            failed = True
        for function, mnemonics in found.items():
            print(f"  {', '.join(sorted(mnemonics))} in {function}")
        if found or wide == 0 or products == 0:
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
