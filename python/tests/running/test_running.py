"""velacamplix.run: what a circuit without surprises gives, and how the result tells it."""

import math
import pickle

import numpy as np
import numpy_outcomes as exact
import numpy_simulator as oracle
import pytest

import velacamplix
from velacamplix import Circuit, Observable, Register, Result, StateVector, run


def bell():
    return Circuit(2).h(0).cx(0, 1)


def entangling(n):
    circuit = Circuit(n)
    for qubit in range(n):
        circuit.ry(0.3 + 0.4 * qubit, qubit).rz(0.2 * qubit, qubit)
    for qubit in range(n - 1):
        circuit.cx(qubit, qubit + 1)
    return circuit.rxx(0.7, 0, n - 1)


def test_the_state_is_that_of_the_circuit(precision, tolerance):
    circuit = entangling(5)
    result = run(circuit, precision=precision)
    basic = Circuit(5)
    for step in circuit.basic_instructions():
        basic.append(step)
    assert np.abs(result.state.array - oracle.statevector(basic)).max() < 4 * tolerance
    assert result.state.precision == precision


def test_running_is_what_a_state_does_bit_for_bit(precision):
    circuit = entangling(6)
    assert run(circuit, precision=precision).state.array.tobytes() == (
        StateVector(6, precision).run(circuit).array.tobytes()
    )


# Shots


def test_a_circuit_that_measures_nothing_has_all_its_qubits_sampled():
    result = run(Circuit(3).x(1), shots=50)
    assert result.counts == {"010": 50} and result.n_bits == 3
    assert result.shots.tolist() == [2] * 50


def test_shots_are_those_of_a_state_with_the_same_seed(precision):
    result = run(entangling(5), shots=1000, seed=3, precision=precision)
    state = StateVector(5, precision, seed=3).run(entangling(5))
    assert (result.shots == state.sample(1000)).all()
    found, numbers = np.unique(result.shots, return_counts=True)
    assert result.counts == {format(outcome, "05b"): number for outcome, number in zip(found, numbers)}


def test_measured_bits_are_told_bit_0_leftmost(precision):
    circuit = Circuit(4, 5)
    for step in entangling(4):
        circuit.append(step)
    circuit.measure([3, 0, 2], [1, 4, 0])
    counts = run(circuit, shots=20_000, seed=8, precision=precision).counts
    assert all(len(outcome) == 5 and outcome[2:4] == "00" for outcome in counts)
    assert exact.p_value(counts, exact.distribution(circuit)) > 1e-4


@pytest.mark.parametrize("qubits", [[2, 0, 1], [1, 2, 0], [0, 1, 2], [2, 2, 0]], ids=str)
def test_shots_are_those_of_the_state_with_the_seed(qubits):
    gates = Circuit(3).ry(0.3, 0).ry(1.1, 1).ry(2.0, 2).cx(0, 2)
    measured = Circuit(3, 3).compose(gates)
    for clbit, qubit in enumerate(qubits):
        measured.measure(qubit, clbit)
    result = run(measured, shots=300, seed=5)
    state = StateVector(3, seed=5).run(gates)
    listed = list(dict.fromkeys(qubits))
    drawn = state.sample(300, listed)
    places = [len(listed) - 1 - listed.index(qubit) for qubit in qubits]
    assert result.shots.tolist() == [sum((int(d) >> p & 1) << 2 - i for i, p in enumerate(places)) for d in drawn]


def test_a_qubit_may_be_read_into_two_bits_and_a_bit_written_twice():
    circuit = Circuit(2, 3).h(0).measure(0, 0).measure(0, 2).measure(1, 0)
    counts = run(circuit, shots=500, seed=1).counts
    assert set(counts) == {"000", "001"}


def test_many_shots_of_few_outcomes(precision):
    counts = run(bell(), shots=10**6, seed=1, precision=precision).counts
    assert counts.shots == 10**6 and set(counts) == {"00", "11"}
    assert abs(counts["00"] - 500_000) < 5 * 500


def test_counts_of_one_register():
    registers = [Register("q", "quantum", 0, 2), Register("a", "classical", 0, 1), Register("b", "classical", 1, 2)]
    circuit = Circuit(2, 3, registers=registers).x(0).measure([0, 1], [2, 0])
    result = run(circuit, shots=10)
    assert result.counts == {"001": 10}
    assert result.register_counts("b") == {"01": 10} and result.register_counts("a") == {"0": 10}
    with pytest.raises(KeyError, match=r"one of \['a', 'b'\], got 'q'"):
        result.register_counts("q")


def test_outcomes_bit_by_bit():
    result = run(Circuit(3, 4).h(0).x(2).measure([0, 2], [3, 1]), shots=200, seed=4)
    assert result.bits.shape == (200, 4) and result.bits.dtype == np.uint8
    assert (result.bits[:, 1] == 1).all() and (result.bits[:, [0, 2]] == 0).all()
    assert (result.bits @ [8, 4, 2, 1] == result.shots).all()


def test_without_shots_there_are_none():
    result = run(bell())
    assert result.n_shots is None and result.seed is None
    for name in ("counts", "shots", "bits"):
        with pytest.raises(RuntimeError, match="run was called without shots; give shots=N"):
            getattr(result, name)


@pytest.mark.parametrize("n", [64, 65, 130])
def test_outcomes_of_many_bits(n):
    circuit = Circuit(n).h(0).cx(0, n - 1).x(1)
    result = run(circuit, shots=300, seed=2)
    middle = "1" + "0" * (n - 3)
    assert set(result.counts) == {"0" + middle + "0", "1" + middle + "1"}
    assert result.bits.shape == (300, n)
    for number, row in zip(result.shots[:20], result.bits):
        assert format(int(number), f"0{n}b") == "".join(map(str, row))
    assert result.counts.ints().keys() == {int(number) for number in result.shots}


# Idle qubits


def test_two_hundred_qubits_of_which_five_are_used(precision):
    circuit = Circuit(200, 200).h(3).cx(3, 150).x(60).cx(150, 199).ry(0.5, 7).measure_all()
    observables = ["Z3", "Z60", "Z7", "Z0 Z1", "X0", "Z60 Z5", "Z3 Z199", "Z199 + 2*Z60 Z150 Z3"]
    result = run(circuit, shots=2000, seed=1, precision=precision, observables=observables)
    assert result.active_qubits == (3, 7, 60, 150, 199) and result.compact_state.n_qubits == 5
    for outcome in result.counts:
        assert outcome[60] == "1" and outcome[3] == outcome[150] == outcome[199]
        assert set(outcome[:3] + outcome[8:60]) == {"0"}
    assert result.expectation_values == pytest.approx([0, -1, math.cos(0.5), 1, 0, -1, 1, -2], abs=1e-6)
    # Again, but not through with one of the qubits when all are measured.
    assert run(circuit.h(3), shots=100, seed=1, precision=precision).counts.shots == 100


def test_an_idle_qubit_may_be_measured_and_reset_in_the_middle():
    circuit = Circuit(100, 3).reset(5).measure(5, 0)
    with circuit.when(0, 0):
        circuit.x(50)
    circuit.measure(50, 1)
    result = run(circuit, shots=20)
    assert result.counts == {"010": 20} and result.active_qubits == (50,)


def test_amplitudes_of_all_qubits():
    result = run(Circuit(5).x(1).h(4).s(4))
    for index in range(32):
        expected = {0b01000: 2**-0.5, 0b01001: 1j * 2**-0.5}.get(index, 0)
        assert result.amplitude(index) == pytest.approx(expected)
        assert result.amplitude(format(index, "05b")) == result.amplitude(index)
        assert result.amplitude(format(index, "05b")[::-1], order="little") == result.amplitude(index)


def test_a_circuit_whose_qubits_are_all_idle():
    result = run(Circuit(70, 2).barrier().measure([69, 0], [0, 1]), shots=7, observables="Z3 + 0.5*X2")
    assert result.counts == {"00": 7} and result.active_qubits == () and result.compact_state.array.tolist() == [1]
    assert result.expectation_values == 1.0
    assert result.amplitude(0) == 1 and result.amplitude(1) == 0


@pytest.mark.parametrize("circuit", [Circuit(0), Circuit(0, 3), Circuit(2), Circuit(2, 2)])
def test_empty_circuits(circuit):
    result = run(circuit, shots=3, observables=2.5 * Observable("1"))
    assert result.counts == {"0" * circuit.n_qubits: 3}
    assert result.shots.tolist() == [0, 0, 0] and result.bits.shape == (3, circuit.n_qubits)
    assert result.expectation_values == 2.5
    assert result.plan.gates == 0 and result.plan.passes == ()


# Where it starts


@pytest.mark.parametrize("initial", ["1+0-", 0b1010, 0])
def test_product_states(initial, precision, tolerance):
    circuit = Circuit(4).h(1).cx(1, 0)
    expected = StateVector(4, precision).set_basis_state(initial).run(circuit)
    result = run(circuit, initial=initial, precision=precision)
    for index in range(16):
        assert abs(result.amplitude(index) - expected.to_dict().get(format(index, "04b"), 0)) < tolerance


def test_a_wide_register_that_starts_elsewhere():
    result = run(Circuit(150).x(3), initial=2**149 + 1, shots=5)
    assert result.counts == {"1001" + 145 * "0" + "1": 5} and result.active_qubits == (0, 3, 149)


@pytest.mark.parametrize("kind", [np.complex128, np.complex64, list])
def test_amplitudes_to_start_from(kind, precision, tolerance):
    generator = np.random.default_rng(1)
    amplitudes = generator.normal(size=8) + 1j * generator.normal(size=8)
    amplitudes /= np.linalg.norm(amplitudes)
    given = amplitudes.tolist() if kind is list else amplitudes.astype(kind)
    result = run(Circuit(3).x(0), initial=given, precision=precision, initial_order="big")
    # Qubit 0 is the highest bit of the given array.
    assert result.active_qubits == (0, 1, 2)
    rounding = max(tolerance, 1e-7 if kind is np.complex64 else 0)
    assert np.abs(result.state.statevector(order="big") - np.roll(amplitudes, 4)).max() < 10 * rounding


@pytest.mark.parametrize("given", ["double", "single"])
def test_a_state_to_start_from_is_copied(given, precision, tolerance):
    begin = StateVector(3, given).run(entangling(3))
    before = begin.array.copy()
    result = run(Circuit(3).x(2), initial=begin, precision=precision)
    assert np.abs(result.state.array - np.roll(before, 4)).max() < 4e-7
    assert (begin.array == before).all()


# Expectation values


def test_one_observable_gives_a_number_a_list_gives_an_array(precision, tolerance):
    one = run(bell(), observables="Z0 Z1", precision=precision).expectation_values
    assert type(one) is float and one == pytest.approx(1, abs=10 * tolerance)
    many = run(bell(), observables=["Z0 Z1", {"XX": 2.0}, Observable("Y0 Y1 + 3"), [(1, "Z", [0])]]).expectation_values
    assert many.dtype == np.float64 and many == pytest.approx([1, 2, 2, 0])
    assert run(bell(), observables=[(2, "ZZ", [0, 1]), (1, "X", [0])]).expectation_values == pytest.approx(2)
    assert run(bell(), observables=("Z0",)).expectation_values.shape == (1,)
    assert run(bell(), observables=[]).expectation_values.shape == (0,)
    assert run(bell()).expectation_values is None


def test_complex_observables():
    value = run(bell(), observables="(1+2j)*Z0 Z1").expectation_values
    assert value == pytest.approx(1 + 2j)


def test_measurements_at_the_end_leave_the_state():
    circuit = Circuit(1, 1).h(0).measure(0, 0)
    result = run(circuit, shots=10, observables="Z0")
    assert result.expectation_values == pytest.approx(0)
    assert np.abs(result.state.array - 2**-0.5).max() < 1e-12


# What else the result tells


def test_the_plan(precision):
    circuit = entangling(20)
    result = run(Circuit(30).append(circuit[0]), precision=precision)
    assert result.plan.gates == 1
    result = run(circuit, threads=2, precision=precision)
    plan = result.plan
    assert plan.gates == len(circuit) and plan.sweeps > 0
    assert plan.passes[0].first_gate == 0 and plan.passes[-1].last_gate == plan.gates
    assert all(0 <= p.first_gate < p.last_gate <= plan.gates for p in plan.passes)
    assert all(set(p.local_qubits) <= set(range(20)) for p in plan.passes)
    assert str(plan).startswith(f"{plan.gates} gates in {len(plan.passes)} passes")
    assert str(run(Circuit(2).h(0), precision=precision).plan).startswith("1 gate in 1 pass, ")
    assert str(run(Circuit(2), precision=precision).plan) == "0 gates in 0 passes, 0 sweeps over memory"


def test_local_qubits_are_those_of_the_circuit():
    circuit = Circuit(60)
    for qubit in range(30, 50):
        circuit.h(qubit)
    local = {qubit for stage in run(circuit).plan.passes for qubit in stage.local_qubits}
    assert local and local <= set(range(30, 50))


def test_timings():
    timings = run(entangling(12), shots=1000, observables="Z0").timings
    assert all(seconds >= 0 for seconds in timings) and timings.total == pytest.approx(sum(timings))
    assert timings.simulate > 0 and timings.sample > 0


def test_results_tell_themselves_and_pickle():
    result = run(entangling(3), shots=100, seed=1, observables="Z0")
    assert repr(result).startswith("<Result: 3 qubits (3 active), 100 shots, seed 1")
    again = pickle.loads(pickle.dumps(result))
    assert isinstance(again, Result) and again.counts == result.counts
    assert again.state.array.tobytes() == result.state.array.tobytes()
    assert again.plan == result.plan and again.timings == result.timings


def test_the_same_circuit_runs_again_and_changes_nothing():
    circuit = Circuit(2, 2).h(0).measure(0, 0).h(0).measure(0, 1)
    before = circuit.copy()
    first, second = run(circuit, shots=100, seed=1), run(circuit, shots=100, seed=1)
    assert (first.shots == second.shots).all() and circuit == before


def test_it_is_a_name_of_the_package():
    assert velacamplix.run is run and "run" in velacamplix.__all__


def test_fifty_thousand_gates():
    circuit = Circuit(10)
    for i in range(25_000):
        circuit.rx(0.001 * i, i % 10).cx(i % 10, (i + 3) % 10)
    result = run(circuit)
    assert result.plan.gates == 50_000
    assert np.linalg.norm(result.state.array) == pytest.approx(1, abs=1e-10)


def test_a_diagonal_on_ten_qubits(precision, tolerance):
    phases = np.exp(1j * np.arange(1024))
    for circuit in (
        Circuit(10).diagonal(phases, range(10)),
        Circuit(10).matrix(np.diag(phases), range(10)),
    ):
        state = run(circuit, initial="+" * 10, precision=precision).state
        assert np.abs(state.statevector(order="big") - phases / 32).max() < tolerance
