"""Programs as users of Cirq write them, with this simulator and with Cirq's: nothing changes but the line that makes it."""

import asyncio

import numpy as np
import pytest

cirq = pytest.importorskip("cirq", reason="needs Cirq: pip install velacamplix[test]")

import sympy  # noqa: E402

from velacamplix.cirq import VelacamplixSimulator  # noqa: E402

Q = cirq.LineQubit.range(4)
A, B, C, D = Q
X, Z = cirq.X, cirq.Z


def vqe(simulator):
    symbols = sympy.symbols("a:4")
    circuit = cirq.Circuit([cirq.ry(symbol)(qubit) for symbol, qubit in zip(symbols, Q)], cirq.CZ(A, B), cirq.CNOT(B, C))
    energy = Z(A) * Z(B) + 0.5 * X(C) - Z(D)
    values, step = np.full(4, 0.3), 0.4
    for _ in range(30):
        gradient = []
        for place in range(4):
            ends = [values + sign * np.pi / 2 * np.eye(4)[place] for sign in (1, -1)]
            up, down = simulator.simulate_expectation_values_sweep(
                circuit, energy, [dict(zip(map(str, symbols), end)) for end in ends]
            )
            gradient.append((up[0] - down[0]).real / 2)
        values = values - step * np.array(gradient)
    return values


def qaoa(simulator):
    beta, gamma = sympy.symbols("beta gamma")
    ring = list(zip(Q, Q[1:] + Q[:1]))
    circuit = cirq.Circuit(cirq.H.on_each(*Q), [cirq.ZZ(*pair) ** gamma for pair in ring], [cirq.rx(2 * beta)(q) for q in Q])
    sweep = cirq.Product(cirq.Linspace("beta", 0.1, 1.5, 5), cirq.Linspace("gamma", 0.1, 0.9, 5))
    cost = sum([Z(a) * Z(b) for a, b in ring])
    return [value for (value,) in simulator.simulate_expectation_values_sweep(circuit, cost, sweep)]


def grover(simulator):
    flip = [cirq.X.on_each(*Q[:3]), cirq.CCZ(A, B, C), cirq.X.on_each(*Q[:3])]
    spread = [cirq.H.on_each(*Q[:3]), flip, cirq.H.on_each(*Q[:3])]
    circuit = cirq.Circuit(cirq.H.on_each(*Q[:3]), [[cirq.CCZ(A, B, C), spread]] * 2, cirq.measure(A, B, C, key="m"))
    ((found, times),) = simulator.run(circuit, repetitions=500).histogram(key="m").most_common(1)
    return [found, times > 440]


def phase_estimation(simulator):
    """Qubit by qubit, each turned by what was measured before."""
    begin = [cirq.X(D)]
    steps = []
    for place in range(3):
        steps += [cirq.reset(A), cirq.H(A), (cirq.CZ(A, D) ** (0.625 * 2)) ** (2 ** (2 - place))]
        for other in range(place):
            steps.append((cirq.Z(A) ** (-(2.0 ** (other - place)))).with_classical_controls(f"m{other}"))
        steps += [cirq.H(A), cirq.measure(A, key=f"m{place}")]
    records = simulator.run(cirq.Circuit(begin, steps), repetitions=20).measurements
    return sum([records[f"m{place}"][:, 0].mean() * 2**place for place in range(3)])


def tomography(simulator):
    prepare = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), cirq.S(B))
    return cirq.experiments.two_qubit_state_tomography(simulator, A, B, prepare, 8000).data


def benchmarking(simulator):
    found = cirq.experiments.single_qubit_randomized_benchmarking(
        simulator, A, num_clifford_range=[3, 9], num_circuits=2, repetitions=20
    )
    return found.data


def readout_errors(simulator):
    found = cirq.estimate_single_qubit_readout_errors(simulator, qubits=Q[:2], repetitions=20)
    return [found.zero_state_errors[A], found.one_state_errors[B]]


def collected(simulator):
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B))
    collector = cirq.PauliSumCollector(circuit, X(A) * X(B) + 2 * Z(A) * Z(B), samples_per_term=50)
    collector.collect(sampler=simulator)
    return collector.estimated_energy()


def shadows(simulator):
    """Of the expectation value of ZZ, from a few shots in random bases."""
    rng, total = np.random.default_rng(1), 0.0
    change = {0: lambda q: [cirq.H(q)], 1: lambda q: [cirq.S(q) ** -1, cirq.H(q)], 2: lambda q: []}
    for _ in range(60):
        bases = rng.integers(3, size=2)
        circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), [change[b](q) for b, q in zip(bases, Q)], cirq.measure(A, B, key="m"))
        bits = simulator.run(circuit).measurements["m"][0]
        total += 9 * (-1) ** bits.sum() if (bases == 2).all() else 0
    return total / 60


def extrapolated(simulator):
    """An expectation value with noise of one, two and three times the strength."""
    kind = VelacamplixSimulator if isinstance(simulator, VelacamplixSimulator) else cirq.DensityMatrixSimulator
    noise = [kind(noise=cirq.depolarize(0.02 * scale), seed=1) for scale in (1, 2, 3)]
    circuit = cirq.Circuit(cirq.X(A), cirq.I(A), cirq.I(A), cirq.measure(A, key="m"))
    values = [1 - 2 * one.run(circuit, repetitions=4000).measurements["m"].mean() for one in noise]
    return 3 * values[0] - 3 * values[1] + values[2]


def awaited(simulator):
    circuit = cirq.Circuit(X(A), cirq.measure(A, B, key="m"))
    return asyncio.run(simulator.run_async(circuit, repetitions=3)).measurements["m"]


PROGRAMS = {
    vqe: 1e-6, qaoa: 1e-6, grover: 0, phase_estimation: 0, tomography: 0.05, benchmarking: 0, readout_errors: 0, collected: 0,
    shadows: 0, extrapolated: 0.2, awaited: 0,
}  # fmt: skip


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.__name__)
def test_programs_run_unchanged(program):
    mine, theirs = program(VelacamplixSimulator(seed=1)), program(cirq.Simulator(seed=1, dtype=np.complex128))
    np.testing.assert_allclose(mine, theirs, rtol=0, atol=PROGRAMS[program])


def test_what_the_programs_find():
    simulator = VelacamplixSimulator(seed=2)
    assert grover(simulator) == [7, True]
    assert phase_estimation(simulator) == 5  # of 8
    assert abs(extrapolated(simulator) + 1) < 0.2
    assert np.min(np.real(qaoa(simulator))) < -1.5
