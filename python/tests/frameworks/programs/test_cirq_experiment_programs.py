"""Experiments as users of Cirq write them, with this simulator and with Cirq's: nothing changes but the line that makes it."""

import numpy as np
import pytest

cirq = pytest.importorskip("cirq", reason="needs Cirq: pip install velacamplix[test]")

import sympy  # noqa: E402
from cirq.experiments.random_quantum_circuit_generation import generate_library_of_2q_circuits  # noqa: E402
from cirq.experiments.xeb_simulation import simulate_2q_xeb_circuits  # noqa: E402
from cirq.work.observable_measurement import RepetitionsStoppingCriteria, measure_observables  # noqa: E402

from velacamplix.cirq import VelacamplixSimulator  # noqa: E402

A, B, C, D, E = cirq.LineQubit.range(5)
X, Y, Z = cirq.X, cirq.Y, cirq.Z


def observed(simulator):
    """Observables measured in groups that share a basis, with each bit also read the other way round."""
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), cirq.rx(0.4)(B))
    found = measure_observables(
        circuit, [X(A) * X(B), Z(A) * Z(B), Y(A) * Y(B), Z(A) * 1.0], simulator,
        stopping_criteria=RepetitionsStoppingCriteria(4000), readout_symmetrization=True,
    )  # fmt: skip
    return [one.mean for one in sorted(found, key=lambda one: str(one.setting.observable))]


def cross_entropy(simulator):
    """What circuits of a benchmark should give, cycle by cycle."""
    circuits = generate_library_of_2q_circuits(2, two_qubit_gate=cirq.ISWAP**0.5, max_cycle_depth=4, random_state=1)
    return np.concatenate(simulate_2q_xeb_circuits(circuits, [2, 4], simulator=simulator)["pure_probs"].to_list())


def syndromes(simulator):
    """Rounds of a code that corrects a flip by what it has just measured; keys are measured again in each."""
    s, t = sympy.symbols("s t")
    one_round = cirq.FrozenCircuit(
        cirq.CNOT(A, D), cirq.CNOT(B, D), cirq.CNOT(B, E), cirq.CNOT(C, E), cirq.measure(D, key="s"), cirq.measure(E, key="t"),
        cirq.reset_each(D, E), cirq.X(A).with_classical_controls(sympy.And(sympy.Eq(s, 1), sympy.Eq(t, 0))),
        cirq.X(B).with_classical_controls("s", "t"), cirq.X(C).with_classical_controls(sympy.And(sympy.Eq(s, 0), sympy.Eq(t, 1))),
    )  # fmt: skip
    rounds = cirq.CircuitOperation(one_round, repetitions=3, use_repetition_ids=False)
    found = []
    for flipped in (A, B, C):
        circuit = cirq.Circuit(cirq.X(flipped), rounds, cirq.measure(A, B, C, key="out"))
        records = simulator.run(circuit, repetitions=3).records
        found += [records[key].ravel() for key in ("s", "t", "out")]
    return np.concatenate(found)


def walked(simulator):
    """A walk through the moments of a circuit, with a look at its qubits after each."""
    circuit = cirq.Circuit(cirq.H(A), cirq.CNOT(A, B), cirq.CZ(B, C) ** 0.3, cirq.rx(0.2).on_each(A, B, C))
    steps = simulator.simulate_moment_steps(circuit, initial_state=cirq.KET_PLUS(C) * cirq.KET_ZERO(A) * cirq.KET_ONE(B))
    return np.concatenate([[*step.bloch_vector_of(A), *step.density_matrix_of([C, B]).ravel()] for step in steps])


def landscape(simulator):
    """Expectation values over two angles, states and amplitudes along them, in another order of qubits."""
    t, s = sympy.symbols("t s")
    circuit = cirq.Circuit(cirq.ry(t)(B), cirq.ZZ(A, B) ** (s * t + 1), cirq.H(C) ** s, cirq.CNOT(C, A))
    sweep = cirq.Zip(cirq.Linspace("t", 0, 1, 4), cirq.Points("s", [0.1, 0.2, 0.5, 1]))
    observables, order = [Z(A) * Z(B) + 0.5 * X(C), Y(A) * X(B)], [C, A, B]
    energies = simulator.simulate_expectation_values_sweep(circuit, observables, sweep, qubit_order=order)
    states = [one.final_state_vector for one in simulator.simulate_sweep(circuit, sweep, qubit_order=order)]
    amplitudes = simulator.compute_amplitudes_sweep(circuit, [0, 5, 7], sweep, qubit_order=[B, C, A])
    return np.concatenate([np.ravel(energies), np.ravel(states), np.ravel(amplitudes)])


PROGRAMS = {observed: 0.1, cross_entropy: 1e-9, syndromes: 0, walked: 1e-9, landscape: 1e-9}


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.__name__)
def test_experiments_run_unchanged(program):
    ours, theirs = program(VelacamplixSimulator(seed=1)), program(cirq.Simulator(seed=1, dtype=np.complex128))
    np.testing.assert_allclose(ours, theirs, rtol=0, atol=PROGRAMS[program])


def test_a_flip_is_found_once():
    records = syndromes(VelacamplixSimulator())
    assert records.sum() == 3 * (1 + 2 + 1)  # each of 3 shots sees it in the first round, and ends in 000
