"""Circuits of all kinds of instructions, and circuits of all gates."""

import math
import random

from velacamplix import Circuit, Instruction, Parameter
from velacamplix.instructions.gates import GATES

ANGLES = (0.0, 0.5, -1.0, 2.0, math.pi, -math.pi / 2, math.pi / 4, 2 * math.pi)


def random_circuit(seed):
    rng = random.Random(seed)
    circuit = Circuit(5, 3)
    for _ in range(40):
        a, b, c = rng.sample(range(5), 3)
        rng.choice(
            [
                lambda: circuit.h(a), lambda: circuit.cx(a, b), lambda: circuit.ccx(a, b, c), lambda: circuit.rx(0.5, a, controls=[b, c]),
                lambda: circuit.barrier(a, b), lambda: circuit.measure(a, b % 3), lambda: circuit.reset(a), lambda: circuit.rzz(0.2, a, b),
            ]
        )()  # fmt: skip
        if rng.random() < 0.1:
            with circuit.when("c", 3):
                circuit.y(a)
    return circuit


def random_gates(seed):
    """Return a circuit of up to 5 qubits, with gates of all rows of the table under up to two controls of 0 and 1, and
    numbers for its parameters: every fourth circuit has some."""
    rng = random.Random(seed)
    values = {name: rng.uniform(-3, 3) for name in ("a", "b[0]", "b[1]")}
    circuit = Circuit(rng.randint(1, 5))
    while len(circuit) < 8:
        gate = GATES[rng.choice(list(GATES))]
        if gate.n_qubits > circuit.n_qubits:
            continue
        order = tuple(rng.sample(range(circuit.n_qubits), circuit.n_qubits))
        controls = order[gate.n_qubits :][: rng.choice([0, 0, 0, 1, 2])]
        read = "".join([rng.choice("01") for _ in controls])
        angles = [rng.choice([rng.uniform(-7, 7), rng.choice(ANGLES)]) for _ in range(gate.n_params)]
        if seed % 4 == 0:
            open_one = Parameter(rng.choice(list(values)))
            angles = [rng.choice([angle, open_one, rng.uniform(-2, 2) * open_one + angle]) for angle in angles]
        step = Instruction(gate.name, order[: gate.n_qubits], tuple(angles), controls)
        circuit.append(step._replace(control_values=read if "0" in read else ""))
    return circuit, {name: values[name] for name in circuit.parameters}
