"""Circuits of all kinds of instructions."""

import random

from velacamplix import Circuit


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
