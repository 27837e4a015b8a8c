"""Programs as users of Cirq write them: here and on Cirq's own simulators, with nothing changed but the simulator."""

from collections import Counter

import cirq
import numpy as np
import pytest
import sympy
from programs import agree

from velacamplix.cirq import VelacamplixSimulator


def decaying_echoes(simulator):
    """Noisy sampling: randomized sequences that end where they began, of several lengths, and how many do."""
    qubit, survived = cirq.LineQubit(0), []
    draw = np.random.RandomState(7)
    gates = [cirq.X, cirq.Y, cirq.H, cirq.S, cirq.X**0.5]
    for length in (2, 10, 30):
        forward = cirq.Circuit(gates[place](qubit) for place in draw.randint(len(gates), size=length))
        sequence = forward + cirq.inverse(forward) + cirq.measure(qubit, key="m")
        survived.append(Counter(simulator.run(sequence, repetitions=4000).histogram(key="m")))
    return survived


def test_decaying_echoes():
    noise = cirq.depolarize(0.01)
    ours = decaying_echoes(VelacamplixSimulator(noise=noise, seed=1))
    for counts, expected in zip(ours, decaying_echoes(cirq.DensityMatrixSimulator(noise=noise, seed=1)), strict=True):
        agree(counts, expected)
    assert ours[0][0] > ours[1][0] > ours[2][0]


def without_its_errors(simulator):
    """Error mitigation: the circuit with 1, 3 and 5 times its noise, and a line through the three values to none."""
    a, b, c = cirq.LineQubit.range(3)
    circuit = cirq.Circuit(cirq.ry(0.7)(a), cirq.CNOT(a, b), cirq.rx(0.3)(c), cirq.CNOT(b, c), cirq.ry(-0.2)(b))
    observable = cirq.Z(a) * cirq.Z(b) + 0.5 * cirq.X(c)
    values = []
    for times in (1, 3, 5):
        folded = circuit + (times // 2) * (cirq.inverse(circuit) + circuit)
        values.append(simulator.simulate_expectation_values(folded, [observable])[0].real)
    return values, np.polyfit([1, 3, 5], values, 2)[-1]


def test_without_its_errors():
    noise = cirq.depolarize(0.01)
    ours, mitigated = without_its_errors(VelacamplixSimulator(noise=noise))
    theirs, expected = without_its_errors(cirq.DensityMatrixSimulator(noise=noise, dtype=np.complex128))
    np.testing.assert_allclose(ours, theirs, atol=1e-9)
    exact = without_its_errors(VelacamplixSimulator())[0][0]
    assert mitigated == pytest.approx(expected, abs=1e-8) and abs(mitigated - exact) < 0.2 * abs(ours[0] - exact)


def ramsey_fringes(simulator):
    """A sweep over two symbols, and the contrast of what was seen."""
    qubit = cirq.LineQubit(0)
    wait, detuning = sympy.symbols("wait detuning")
    circuit = cirq.Circuit(
        cirq.X(qubit) ** 0.5, cirq.rz(wait * detuning)(qubit), cirq.X(qubit) ** 0.5, cirq.measure(qubit, key="z")
    )
    sweep = cirq.Linspace("wait", 0, 6, 7) * cirq.Points("detuning", [0.5, 1.0])
    results = simulator.run_sweep(circuit, sweep, repetitions=1000)
    return [(result.params.param_dict, float(np.mean(result.measurements["z"]))) for result in results]


def test_ramsey_fringes():
    ours, theirs = ramsey_fringes(VelacamplixSimulator(seed=2)), ramsey_fringes(cirq.Simulator(seed=2))
    assert [params for params, _ in ours] == [params for params, _ in theirs]
    np.testing.assert_allclose([p for _, p in ours], [p for _, p in theirs], atol=5 * np.sqrt(2 * 0.25 / 1000))
    np.testing.assert_allclose(  # cos^2 of half the angle
        [p for _, p in ours], [np.cos(v["wait"] * v["detuning"] / 2) ** 2 for v, _ in ours], atol=0.08
    )


def corrected_bits(simulator):
    """Dynamic circuits: a repetition code finds where an error was, by helpers that are measured and reset, and mends it."""
    data, helpers = cirq.LineQubit.range(3), cirq.LineQubit.range(3, 5)
    circuit = cirq.Circuit(cirq.ry(0.9)(data[0]), cirq.CNOT(data[0], data[1]), cirq.CNOT(data[0], data[2]))
    circuit += cirq.Circuit(cirq.rx(0.5)(qubit) for qubit in data)
    circuit += [cirq.CNOT(data[0], helpers[0]), cirq.CNOT(data[1], helpers[0])]
    circuit += [cirq.CNOT(data[1], helpers[1]), cirq.CNOT(data[2], helpers[1])]
    circuit += [cirq.measure(helpers[0], key="s0"), cirq.measure(helpers[1], key="s1"), cirq.reset_each(*helpers)]
    circuit += cirq.X(data[0]).with_classical_controls(sympy.And(sympy.Eq(sympy.Symbol("s0"), 1), sympy.Eq(sympy.Symbol("s1"), 0)))
    circuit += cirq.X(data[1]).with_classical_controls("s0", "s1")
    circuit += cirq.X(data[2]).with_classical_controls(sympy.And(sympy.Eq(sympy.Symbol("s0"), 0), sympy.Eq(sympy.Symbol("s1"), 1)))
    circuit += cirq.measure(*data, key="out")
    result = simulator.run(circuit, repetitions=500)
    return Counter(result.multi_measurement_histogram(keys=["s0", "s1", "out"]))


def test_corrected_bits():
    ours, theirs = corrected_bits(VelacamplixSimulator(seed=3)), corrected_bits(cirq.Simulator(seed=3))
    agree(ours, theirs)
    assert {out for _, _, out in ours} == {0, 7}


def cross_entropy(simulator):
    """Random circuits: amplitudes of what was sampled, against the average of all."""
    qubits = cirq.GridQubit.rect(2, 3)
    circuit = cirq.experiments.random_rotations_between_grid_interaction_layers_circuit(qubits, depth=6, seed=5)
    bitstrings = simulator.run(circuit + cirq.measure(*qubits, key="m"), repetitions=2000).measurements["m"]
    outcomes = [int("".join(map(str, row)), 2) for row in bitstrings]
    amplitudes = simulator.compute_amplitudes(circuit, outcomes, qubit_order=qubits)
    return 64 * np.mean(np.abs(amplitudes) ** 2) - 1, simulator.simulate(circuit, qubit_order=qubits).final_state_vector


def test_cross_entropy():
    ours, state = cross_entropy(VelacamplixSimulator(seed=4))
    theirs, expected = cross_entropy(cirq.Simulator(seed=4, dtype=np.complex128))
    np.testing.assert_allclose(state, expected, atol=1e-7)
    probabilities = np.abs(expected) ** 2
    deviation = 64 * np.sqrt((probabilities**3).sum() - (probabilities**2).sum() ** 2) / np.sqrt(2000)
    assert abs(ours - theirs) < 5 * np.sqrt(2) * deviation
