"""Exact runs with noise: probabilities of outcomes, shots and expectation values; and Qiskit Aer, where it is."""

import json
import pickle
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from exact_runs import run_exact
from kraus_sums import by_outcome, density, random_noisy_steps, random_program

import velacamplix
from velacamplix import Channel, Circuit, DensityMatrix, Readout, StateVector
from velacamplix.instructions.instruction import Instruction
from velacamplix.results import shot_rows
from velacamplix.running import exact, observing
from velacamplix.running.exact import keyed_numbers
from velacamplix.running.initial import Start



def read(qubit, clbit, *flips):
    return Instruction("measure", (qubit,), clbits=(clbit,), detail=Readout((flips,)) if flips else None)


def probabilities(result):
    return dict(zip(map(int, shot_rows.numbers(result.outcomes)), result.probabilities.tolist()))


def literal(circuit):
    """Return the probabilities of the outcomes, classical bit 0 leftmost, and the mean of the matrices."""
    groups = by_outcome(circuit.instructions, circuit.n_qubits)
    width = circuit.n_clbits
    return {int(format(bits, f"0{width}b")[::-1], 2): rho.trace().real for bits, rho in groups.items()}, sum(
        groups.values()
    )


def noisy(n_qubits, seed, length=15):
    circuit = Circuit(n_qubits, n_qubits)
    for step in random_noisy_steps(np.random.default_rng(seed), n_qubits, length):
        circuit.append(step)
    return circuit


def check(circuit, tolerance=1e-13):
    expected, rho = literal(circuit)
    result = run_exact(circuit)
    found = probabilities(result)
    assert found.keys() >= {outcome for outcome, p in expected.items() if p > 1e-12}
    assert max(abs(found[outcome] - expected.get(outcome, 0)) for outcome in found) < tolerance
    assert sum(found.values()) == pytest.approx(1, abs=1e-14)
    places = [
        sum((i >> k & 1) << q for k, q in enumerate(result.active_qubits))
        for i in range(2 ** len(result.active_qubits))
    ]
    assert np.abs(result.density.array - rho[np.ix_(places, places)]).max() < tolerance
    return result


@pytest.mark.parametrize("seed", range(4))
def test_outcomes_at_the_end(seed):
    circuit = noisy(3, seed)
    for step in (read(2, 0, 0.1, 0.2), read(0, 1), read(1, 2, 0.05, 0.0)):
        circuit.append(step)
    check(circuit)


def test_outcomes_in_the_middle_misread_or_not():
    circuit = Circuit(4, 4).ry(0.9, 0).cx(0, 1).channel(Channel.amplitude_damping(0.2), 1)
    circuit.append(read(0, 1, 0.1, 0.3))
    with circuit.when(1, 1):
        circuit.rx(0.7, 2).channel(Channel.depolarizing(0.1, 2), [1, 2])
    circuit.h(0).reset(1).measure(2, 0).ry(0.2, 2).measure(2, 3)
    circuit.append(read(0, 2, 0.25, 0.125))
    check(circuit)


def test_loops_and_decisions():
    circuit = Circuit(2, 3).h(0).measure(0, 0)
    body = Circuit(2, 3).channel(Channel.amplitude_damping(0.4), 0).ry(0.8, 0).cx(0, 1).measure(0, 0)
    circuit.while_((0, 1), body, max_iterations=150)
    circuit.h(0).measure(0, 1)
    circuit.if_((1, 1), Circuit(2, 3).channel(Channel.bit_flip(0.1), 1), Circuit(2, 3).x(1).reset(0))
    circuit.append(read(1, 2, 0.1, 0.2))
    check(circuit)


@pytest.mark.parametrize("seed", range(15))
def test_random_programs(seed):
    circuit = random_program(np.random.default_rng(seed)).measure(1, 2)
    check(circuit, 1e-12)
    expected = literal(circuit)[1]
    assert np.abs(DensityMatrix(3).run(circuit).array - expected).max() < 1e-12


def test_a_qubit_that_is_read_twice_and_one_that_nothing_touches():
    circuit = Circuit(5, 4).ry(1.1, 3).channel(Channel.phase_damping(0.3), 3)
    circuit.append(read(3, 0, 0.1, 0.2))
    circuit.append(read(3, 2))
    circuit.append(read(1, 1, 0.25, 0.5))
    result = check(circuit)
    assert result.active_qubits == (3,)


def test_a_condition_learns_of_a_qubit_that_is_0_and_misread():
    circuit = Circuit(3, 2)
    circuit.append(read(1, 0, 0.25, 0.0))
    with circuit.when(0, 1):
        circuit.x(2)
    assert probabilities(check(circuit.measure(2, 1))) == pytest.approx({0: 0.75, 3: 0.25})


def test_without_measurement_outcomes_are_those_of_all_qubits():
    circuit = Circuit(3).x(2).channel(Channel.bit_flip(0.25), 2)
    assert probabilities(run_exact(circuit)) == {0: 0.25, 1: 0.75}


def test_outcomes_of_more_than_64_bits():
    circuit = Circuit(70, 70).x(69).channel(Channel.bit_flip(0.25), 69).measure([69, 0], [0, 69])
    assert probabilities(run_exact(circuit)) == {0: 0.25, 1 << 69: 0.75}


def test_shots_are_those_of_the_probabilities_and_of_their_number():
    circuit = noisy(3, 9)
    circuit.measure([0, 1, 2], [0, 1, 2])
    whole = run_exact(circuit, shots=5000, seed=3)
    found = np.bincount(whole.rows[:, 0].astype(int), minlength=8) / 5000
    expected = np.zeros(8)
    expected[whole.outcomes[:, 0].astype(int)] = whole.probabilities
    assert (np.abs(found - expected) < 5 * np.sqrt(expected * (1 - expected) / 5000) + 1e-12).all()
    parts = [
        run_exact(circuit, shots=count, seed=3, first_shot=first).rows
        for first, count in [(0, 1), (1, 1234), (1235, 3765)]
    ]
    assert np.array_equal(np.concatenate(parts), whole.rows)
    assert not np.array_equal(run_exact(circuit, shots=5000, seed=4).rows, whole.rows)
    one, many = [run_exact(circuit, shots=100, seed=1, threads=threads) for threads in (1, 8)]
    assert np.array_equal(one.rows, many.rows) and one.probabilities.tobytes() == many.probabilities.tobytes()


def test_shots_are_drawn_a_few_at_a_time(monkeypatch):
    circuit = Circuit(2, 2).h(0).channel(Channel.bit_flip(0.3), 1).measure_all()
    whole, counts = run_exact(circuit, shots=1000, seed=3, first_shot=5).rows, []

    def numbers(seed, first, count):
        counts.append(count)
        return keyed_numbers(seed, first, count)

    monkeypatch.setattr(exact, "keyed_numbers", numbers)
    monkeypatch.setattr(exact, "_DRAWN_AT_ONCE", 64)
    assert np.array_equal(run_exact(circuit, shots=1000, seed=3, first_shot=5).rows, whole)
    assert max(counts) == 64 and sum(counts) == 1000


def test_numbers_of_shots_are_evenly_spread():
    numbers = keyed_numbers(1, 7, 20000)
    assert abs(numbers.mean() - 0.5) < 5 / np.sqrt(12 * 20000)
    assert np.array_equal(keyed_numbers(1, 9, 5), numbers[2:7])


def test_expectation_values_are_those_after_all_instructions():
    circuit = noisy(3, 5)
    observed = observing.checked(["X0 Y1", "0.5*Z2 + 2"], 3)
    values = run_exact(circuit, observed=observed).expectation_values
    rho = density([step for step in circuit], 3)
    for text, value in zip(("X0 Y1", "0.5*Z2 + 2"), values):
        assert value == pytest.approx(np.trace(velacamplix.Observable(text).to_matrix(3) @ rho).real, abs=1e-13)
    measured = circuit.copy().measure(0, 0)
    lost = observing.Lost()
    assert run_exact(measured, observed=observing.checked("X0", 3), lost=lost).expectation_values == 0
    assert lost == {None: {0}}
    lost = observing.Lost()
    assert run_exact(measured, observed=observing.checked("Z0", 3), lost=lost).expectation_values == pytest.approx(
        np.trace(velacamplix.Observable("Z0").to_matrix(3) @ rho).real
    )
    assert lost == {None: set()}


def test_a_result_without_shots_tells_the_probabilities(tmp_path):
    circuit = Circuit(3, 4).h(0).cx(0, 2).channel(Channel.bit_flip(0.125), 2)
    result = velacamplix.run(circuit, method="exact")
    assert dict(result.outcomes()) == pytest.approx({"000": 0.4375, "101": 0.4375, "001": 0.0625, "100": 0.0625})
    assert [outcome for outcome, _ in result.outcomes(3)] == ["000", "101", "001"]
    assert json.loads(json.dumps(result.to_dict()))["outcomes"] == dict(result.outcomes())
    assert result.to_rows(1) == [{"outcome": "000", "probability": pytest.approx(0.4375)}]
    measured = circuit.copy().append(read(2, 3, 0.0, 0.5)).append(read(0, 1))
    told = velacamplix.run(measured, method="exact")
    assert dict(told.outcomes()) == pytest.approx({"00": 0.46875, "11": 0.21875, "10": 0.28125, "01": 0.03125})
    for kept in result, told, velacamplix.run(Circuit(70).x(69), method="exact"):
        kept.save(tmp_path / "kept.npz")
        for again in (velacamplix.Result.load(tmp_path / "kept.npz"), pickle.loads(pickle.dumps(kept))):
            assert again.outcomes() == kept.outcomes()
    assert velacamplix.run(Circuit(70).x(69), method="exact").outcomes() == [("0" * 69 + "1", 1.0)]
    with pytest.raises(RuntimeError, match="save_state at the end keeps it as a DensityMatrix"):
        result.distribution()


def test_a_measurement_whose_bit_is_written_again_is_one_all_the_same():
    circuit = Circuit(2, 1).h(0).measure(0, 0).measure(1, 0)
    lost = observing.Lost()
    assert run_exact(circuit, observed=observing.checked("X0", 2), lost=lost).expectation_values == 0 and lost == {None: {0}}
    assert np.abs(check(circuit).density.array - 0.5 * np.eye(2)).max() < 1e-15


def test_the_state_to_begin_with():
    circuit = Circuit(2).cx(0, 1).channel(Channel.depolarizing(0.2, 2), [0, 1])
    bell = StateVector(2).h(0)
    expected = DensityMatrix.from_statevector(bell).run(circuit).array
    for initial in (bell, bell.array, "+0", DensityMatrix.from_statevector(bell)):
        assert np.abs(run_exact(circuit, start=Start(initial, 2, None)).density.array - expected).max() < 1e-15
    with pytest.raises(ValueError, match="initial must be a state of 2 qubits"):
        velacamplix.run(circuit, initial=DensityMatrix(3))
    with pytest.raises(TypeError, match="initial_order"):
        velacamplix.run(circuit, initial=DensityMatrix(2), initial_order="big")


def test_matrices_that_do_not_fit_are_refused_with_the_way_out():
    with pytest.raises(MemoryError, match=r"n=28 qubits .* available.*trajectories"):
        run_exact(Circuit(28).h(list(range(28))))


def test_20_random_noisy_circuits_are_those_of_aer():
    pytest.importorskip("qiskit_aer", reason="needs Qiskit Aer: pip install velacamplix[test]")
    circuits = [noisy(n_qubits, 50 + seed, 25) for seed, n_qubits in enumerate([2, 3, 3, 4] * 5)]
    told = []
    for circuit in circuits:
        steps = []
        for step in circuit:
            if step.name == "channel":
                matrices, qubits = step.detail.kraus(), step.qubits
            else:
                qubits = step.controls + step.qubits
                place = {qubit: i for i, qubit in enumerate(qubits)}
                own = step._replace(
                    qubits=tuple(place[q] for q in step.qubits), controls=tuple(place[q] for q in step.controls)
                )
                matrices = [Circuit(len(qubits)).append(own).to_matrix()]
            if qubits:
                pairs = [np.stack([np.real(m), np.imag(m)], axis=-1).tolist() for m in matrices]
                steps.append(["kraus" if step.name == "channel" else "unitary", pairs, qubits])
        told.append([circuit.n_qubits, steps])
    script = Path(__file__).parents[1] / "support/aer_density.py"
    done = subprocess.run(
        [sys.executable, str(script)], input=json.dumps(told), stdout=subprocess.PIPE, text=True, check=True, timeout=300
    )
    for circuit, rows in zip(circuits, json.loads(done.stdout)):
        matrix = np.array(rows)[..., 0] + 1j * np.array(rows)[..., 1]
        assert np.abs(DensityMatrix(circuit.n_qubits).run(circuit).array - matrix).max() < 1e-13
