"""Pictures of all kinds and sizes: what the tests look at, and the gallery of the documentation shows."""

from typing import NamedTuple

import numpy as np

from velacamplix import (  # noqa: F401  (the texts of pictures use them)
    Circuit, Counts, GateDefinition, Parameter, StateVector, plot_bloch, plot_circuit, plot_counts, plot_density,
    plot_probabilities, plot_state,
)  # fmt: skip

#: Inches: a journal's column, and the size that Matplotlib has by default.
NARROW, WIDE = (3.4, 2.4), None


class Entry(NamedTuple):
    """A picture: its section in the gallery, its name, and the call that draws it."""

    section: str
    name: str
    call: str


def some_counts(n_outcomes, n_bits, seed=1):
    """Counts of so many different outcomes."""
    random = np.random.default_rng(seed)
    outcomes = {}
    while len(outcomes) < n_outcomes:
        outcomes["".join(random.choice(["0", "1"], n_bits))] = None
    return Counts({outcome: int(random.integers(1, 1000)) for outcome in outcomes})


def some_state(n_qubits, layers=3):
    """A state whose qubits are entangled."""
    random, state = np.random.default_rng(n_qubits), StateVector(n_qubits)
    for _ in range(layers):
        for q in range(n_qubits):
            state.ry(random.normal(), q).rz(random.normal(), q)
        for q in range(n_qubits - 1):
            state.cnot(q, q + 1)
    return state


def some_vectors(count):
    """Bloch vectors of all directions and lengths."""
    random = np.random.default_rng(3)
    vectors = random.normal(size=(count, 3))
    return vectors / np.linalg.norm(vectors, axis=1)[:, None] * np.linspace(1, 0, count)[:, None]


def some_density(n_qubits):
    """A mixture of two states."""
    random = np.random.default_rng(n_qubits)
    states = random.normal(size=(2, 2**n_qubits, 2)) @ [1, 1j]
    matrix = sum(np.outer(state, state.conj()) for state in states)
    return matrix / np.trace(matrix)


def some_circuit(n_qubits):
    """Gates of many kinds, measurements, conditions."""
    circuit = Circuit(n_qubits, n_qubits)
    for q in range(n_qubits):
        circuit.ry(Parameter(f"theta{q}"), q)
    for q in [*range(0, n_qubits - 1, 2), *range(1, n_qubits - 1, 2)]:
        circuit.cx(q, q + 1)
    if n_qubits > 2:
        mixer = GateDefinition("mixer", Circuit(3).swap(0, 2).rzz(0.5, 0, 1))
        circuit.gate(mixer, [0, 2, 1]).rzz(0.25, 1, 2).t(0, controls=[1, n_qubits - 1]).swap(0, 2).cz(1, n_qubits - 1)
        circuit.barrier().reset(1)
    circuit.measure(range(n_qubits), range(n_qubits))
    with circuit.when("c", 1):
        circuit.x(0)
    return circuit


def some_decisions():
    """A decision, a decision in it, a loop, a choice."""
    circuit = Circuit(4, 3).h(0).cx(0, 1).measure([0, 1], [0, 1])
    circuit.if_((0, 1), lambda body: body.x(2), lambda body: body.if_((1, 1), lambda inner: inner.cx(2, 3)).y(3))
    circuit.while_((2, 0), lambda body: body.h(3).measure(3, 2))
    return circuit.switch([0, 1], {0: lambda body: body.x(0), 3: lambda body: body.cx(0, 2)})


ENTRIES = [
    Entry("Counts", "two outcomes", 'plot_counts({"00": 489, "11": 511})'),
    Entry("Counts", "of 30 bits", "plot_counts(some_counts(8, 30))"),
    Entry("Counts", "32 outcomes", "plot_counts(some_counts(32, 5))"),
    Entry("Counts", "200 outcomes, the largest labelled", "plot_counts(some_counts(200, 8))"),
    Entry("Counts", "the largest of 2,000, and the others together", "plot_counts(some_counts(2000, 11))"),
    Entry("Counts", "all of 2,000", "plot_counts(some_counts(2000, 11), top=2000)"),
    Entry(
        "Counts", "two data sets with standard errors",
        'plot_counts([some_counts(6, 3, seed=2), some_counts(6, 3, seed=3)], labels=["ideal", "noisy"], errors=True)',
    ),
    Entry(
        "Counts", "four data sets",
        "plot_counts(\n    [some_counts(10, 4, seed=s) for s in range(4)],\n"
        '    labels=["without noise", "depolarised", "damped", "mitigated"],\n)',
    ),
    Entry("Counts", "in an order of one's own", 'plot_counts(some_counts(12, 4), outcomes=["1111", "0000", "0110"])'),
    Entry("Probabilities", "of one qubit", "plot_probabilities(some_state(1))"),
    Entry("Probabilities", "of two qubits of five", "plot_probabilities(some_state(5), [4, 0])"),
    Entry("Probabilities", "with errors", 'plot_probabilities([0.5, 0, 0.2, 0.3], errors=[0.02, 0, 0.01, 0.015])'),
    Entry("Probabilities", "states and arrays", 'plot_probabilities([some_state(2), [0.25] * 4], labels=["state", "uniform"])'),
    Entry("Amplitudes", "of one qubit", "plot_state(some_state(1))"),
    Entry("Amplitudes", "of five qubits", "plot_state(some_state(5))"),
    Entry("Amplitudes", "the largest of eleven qubits", "plot_state(some_state(11))"),
    Entry("Bloch vectors", "one", "plot_bloch([0.6, 0, 0.8])"),
    Entry("Bloch vectors", "of five entangled qubits", "plot_bloch(some_state(5, layers=1))"),
    Entry("Bloch vectors", "thirty", 'plot_bloch(some_vectors(30), labels=[f"q{i}" for i in range(30)])'),
    Entry("Density matrices", "of one qubit", "plot_density(some_density(1))"),
    Entry("Density matrices", "of two qubits", "plot_density([[0.5, 0, 0, -0.5j], [0, 0, 0, 0], [0, 0, 0, 0], [0.5j, 0, 0, 0.5]])"),
    Entry("Density matrices", "of five qubits", "plot_density(some_density(5))"),
    Entry("Circuits", "one qubit", "plot_circuit(some_circuit(1), width)"),
    Entry("Circuits", "five qubits", "plot_circuit(some_circuit(5), width)"),
    Entry("Circuits", "decisions and loops", "plot_circuit(some_decisions(), width)"),
    Entry("Circuits", "thirty qubits", "plot_circuit(some_circuit(30), width)"),
]  # fmt: skip


def drawn(entry, size):
    """Return the figure of an entry, in a new figure of the given size, or of its own where that is None."""
    from matplotlib import pyplot

    with pyplot.rc_context({} if size is None else {"figure.figsize": size}):
        names = {**globals(), "width": 6.4 if size is None else size[0]}
        result = eval(entry.call, names)
    return (result[0] if isinstance(result, tuple) else result).figure
