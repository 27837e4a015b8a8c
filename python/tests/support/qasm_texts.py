"""What several tests of the OpenQASM reader share."""

import math
import random

HEADER = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'

# name: (number of parameters, number of qubits); u0 is left out, it does nothing
QELIB1 = {
    "u3": (3, 1), "u2": (2, 1), "u1": (1, 1), "cx": (0, 2), "id": (0, 1), "u": (3, 1), "p": (1, 1),
    "x": (0, 1), "y": (0, 1), "z": (0, 1), "h": (0, 1), "s": (0, 1), "sdg": (0, 1), "t": (0, 1), "tdg": (0, 1),
    "rx": (1, 1), "ry": (1, 1), "rz": (1, 1), "sx": (0, 1), "sxdg": (0, 1), "cz": (0, 2), "cy": (0, 2),
    "swap": (0, 2), "ch": (0, 2), "ccx": (0, 3), "cswap": (0, 3), "crx": (1, 2), "cry": (1, 2), "crz": (1, 2),
    "cu1": (1, 2), "cp": (1, 2), "cu3": (3, 2), "csx": (0, 2), "cu": (4, 2), "rxx": (1, 2), "rzz": (1, 2),
    "rccx": (0, 3), "rc3x": (0, 4), "c3x": (0, 4), "c3sqrtx": (0, 4), "c4x": (0, 5),
}  # fmt: skip


def call(name, qubits, rng):
    """A call of a qelib1 gate with random parameters."""
    n_params, _ = QELIB1[name]
    angles = ", ".join(repr(rng.uniform(-2 * math.pi, 2 * math.pi)) for _ in range(n_params))
    return f"{name}({angles}) " * bool(n_params) + f"{name} " * (not n_params) + ", ".join(qubits) + ";\n"


def random_program(seed, n_qubits=4, n_calls=25):
    """A program with gate definitions, whole registers, parameters and all gates of qelib1."""
    rng = random.Random(seed)
    text = HEADER
    own = {}
    for number in range(3):
        formals = ["a", "b", "c"][: rng.randint(1, 3)]
        params = ["s", "t"][: rng.randint(0, 2)]
        body = ""
        for _ in range(rng.randint(1, 4)):
            fitting = [name for name, shape in {**QELIB1, **own}.items() if shape[1] <= len(formals)]
            name = rng.choice(fitting)
            n_params, n_operands = {**QELIB1, **own}[name]
            terms = [rng.choice(params + ["pi", "0.3"]) + rng.choice(["", "/2", "*-1.5", "^2", "-s" if params else "-1"]) for _ in range(n_params)]
            body += f"  {name}({', '.join(terms)}) {', '.join(rng.sample(formals, n_operands))};\n"
        text += f"gate own{number}({', '.join(params)}) {', '.join(formals)}\n{{\n{body}}}\n"
        own[f"own{number}"] = (len(params), len(formals))
    first = rng.randint(1, n_qubits - 1)
    text += f"qreg a[{first}];\nqreg b[{n_qubits - first}];\n"
    places = [f"a[{i}]" for i in range(first)] + [f"b[{i}]" for i in range(n_qubits - first)]
    for _ in range(n_calls):
        name = rng.choice([name for name, shape in {**QELIB1, **own}.items() if shape[1] <= n_qubits])
        n_params, n_operands = {**QELIB1, **own}[name]
        operands = rng.sample(places, n_operands)
        if n_operands == 1 and rng.random() < 0.3:
            operands = [rng.choice("ab")]
        elif n_operands == 2 and rng.random() < 0.3:
            operands = [rng.choice(places[:first]), "b"]
        angles = [rng.choice([f"{rng.uniform(-7, 7):.10f}", "pi/3", "-3*pi/4", "sin(0.3)+ln(2)", "-(1.5-2)*pi"]) for _ in range(n_params)]
        text += f"{name}({', '.join(angles)}) {', '.join(operands)};\n"
    return text
