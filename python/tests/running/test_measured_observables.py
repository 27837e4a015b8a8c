"""Expectation values are those after all instructions, measurements included, whatever way a circuit is run."""

import itertools
import math
import random
import warnings

import numpy as np
import numpy_outcomes as exact
import pytest

from velacamplix import Circuit, Parameter, run
from velacamplix.running import observing

MATRICES = {
    "I": np.eye(2), "X": np.array([[0, 1], [1, 0]]), "Y": np.array([[0, -1j], [1j, 0]]), "Z": np.diag([1, -1])
}  # fmt: skip


def products(n):
    return ["".join(letters) for letters in itertools.product("IXYZ", repeat=n)]


def reference(circuit, letters):
    """The trace of a product of Pauli matrices, qubit 0 leftmost, with the density matrix of the circuit's end."""
    whole = np.eye(1)
    for letter in letters:
        whole = np.kron(MATRICES[letter], whole)  # qubit 0 is the lowest bit of an index
    return np.trace(exact.density_matrix(circuit) @ whole).real


def quiet_run(circuit, **arguments):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)
        return run(circuit, **arguments)


def values(circuit, **arguments):
    return quiet_run(circuit, observables=[{letters: 1} for letters in products(circuit.n_qubits)], **arguments)


def entangled(seed, n=3, m=3):
    """Gates, then measurements of some of the qubits, perhaps more than once."""
    choose = random.Random(seed)
    circuit = Circuit(n, m)
    for _ in range(12):
        qubit = choose.randrange(n)
        getattr(circuit, choose.choice(["rx", "ry", "rz"]))(choose.uniform(-3, 3), qubit)
        circuit.cx(*choose.sample(range(n), 2))
    for _ in range(choose.randint(1, 3)):
        count = choose.randint(1, n)
        circuit.measure(choose.sample(range(n), count), choose.sample(range(m), count))
    return circuit


@pytest.mark.parametrize("seed", range(12))
@pytest.mark.parametrize("shots", [None, 5])
def test_measurements_at_the_end_are_exact(seed, shots):
    circuit = entangled(seed)
    expected = [reference(circuit, letters) for letters in products(3)]
    result = values(circuit, shots=shots, seed=seed)
    assert result.has_state
    assert result.expectation_values == pytest.approx(expected, abs=1e-12)
    measured = {qubit for step in circuit if step.name == "measure" for qubit in step.qubits}
    for letters, value in zip(products(3), result.expectation_values):
        if any(letters[qubit] in "XY" for qubit in measured):
            assert value == 0


@pytest.mark.parametrize("seed", range(10))
def test_what_stands_behind_a_measurement_makes_no_difference(seed):
    """With one more gate that asks for the outcome, the shots part; each of their states is projected."""
    circuit = entangled(seed, n=2)
    more = Circuit(3, 3).compose(circuit)
    with more.when("c", "111"):
        more.z(2)  # which is 0
    result = values(more, shots=8000, seed=seed)
    for letters, value in zip(products(3), result.expectation_values):
        assert value == pytest.approx(reference(more, letters), abs=5 / math.sqrt(8000))
        if letters[2] == "I":
            assert reference(more, letters) == pytest.approx(reference(circuit, letters[:2]), abs=1e-12)
        if reference(circuit, letters[:2]) == 0:
            assert value == 0


@pytest.mark.parametrize("seed", range(25))
def test_random_circuits(seed):
    choose = random.Random(seed)
    circuit = Circuit(3, 3)
    for _ in range(15):
        step, qubit = choose.random(), choose.randrange(3)
        context = circuit.when(choose.randrange(3), choose.randrange(2)) if choose.random() < 0.3 else None
        if context is not None:
            context.__enter__()
        if step < 0.25:
            count = choose.randint(1, 2)
            circuit.measure(choose.sample(range(3), count), choose.sample(range(3), count))
        elif step < 0.32:
            circuit.reset(qubit)
        elif step < 0.6:
            circuit.cx(*choose.sample(range(3), 2))
        else:
            circuit.h(qubit).ry(choose.uniform(-3, 3), qubit)
        if context is not None:
            context.__exit__(None, None, None)
    shots = 6000
    result = values(circuit, shots=shots, seed=seed)
    expected = [reference(circuit, letters) for letters in products(3)]
    assert result.expectation_values == pytest.approx(expected, abs=1e-11 if result.has_state else 5 / math.sqrt(shots))


def test_the_same_value_by_every_way():
    plain = Circuit(2, 2).h(0).cx(0, 1).measure(0, 0)
    asked = plain.copy()
    with asked.when(0, 1):
        asked.z(1).z(1)
    ways = {
        "no shots": quiet_run(plain, observables="X0 X1 + Z0 Z1 + 3*X0"),
        "shots": quiet_run(plain, shots=10, observables="X0 X1 + Z0 Z1 + 3*X0"),
        "shots that part": quiet_run(asked, shots=100, seed=1, observables="X0 X1 + Z0 Z1 + 3*X0"),
        "fused": quiet_run(plain, fusion=True, observables="X0 X1 + Z0 Z1 + 3*X0"),
        "single": quiet_run(plain, precision="single", observables="X0 X1 + Z0 Z1 + 3*X0"),
        "bound": quiet_run((plain + Circuit(2).rx(Parameter("a"), 1)).bind(a=0), observables="X0 X1 + Z0 Z1 + 3*X0"),
    }
    for way, result in ways.items():
        assert result.expectation_values == pytest.approx(1, abs=1e-6), way


def test_a_measurement_under_a_condition_counts_where_it_is_made():
    for first, expected in (("0", 1.0), ("1", 0.0)):
        circuit = Circuit(2, 2).h(1).measure(0, 0)
        with circuit.when(0, 1):
            circuit.measure(1, 1)
        result = quiet_run(circuit, initial=first + "0", observables="X1")
        assert result.expectation_values == pytest.approx(expected)
    circuit = Circuit(2, 2).h(0).h(1).measure(0, 0)
    with circuit.when(0, 1):
        circuit.measure(1, 1)
    result = quiet_run(circuit, shots=1000, seed=3, observables=["X1", "Z0"])
    zeros = (1 + result.expectation_values[1]) / 2
    assert 0.4 < zeros < 0.6 and result.expectation_values[0] == pytest.approx(zeros)


def test_gates_and_resets_behind_a_measurement_make_it_one_in_the_middle():
    # The value is that of what came after, here a turn into the X axis.
    circuit = Circuit(1, 1).x(0).measure(0, 0).h(0)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert run(circuit, observables="X0").expectation_values == pytest.approx(-1)
        assert run(Circuit(1, 1).x(0).measure(0, 0).reset(0), observables="X0 + Z0").expectation_values == 1


# The warning


@pytest.mark.parametrize(
    "observables, told",
    [("X0", "0"), ("Y2 X0 + Z1", "0, 2"), (["Z0", {"XI": 2}], "0"), ([(1, "ZX", [0, 2])], "2"), ("Z0 + 1j*Y0", "0")],
)
def test_a_term_that_vanishes_is_told_with_its_qubits(observables, told):
    circuit = Circuit(3, 3).h(0).h(1).cx(0, 2).measure([0, 2], [0, 2])
    with pytest.warns(UserWarning, match=f"count 0 on qubits that are measured at the end, here {told}: .*leave it away") as caught:
        run(circuit, shots=5, observables=observables)
    assert len(caught) == 1 and caught[0].filename == __file__


def test_shots_that_part_warn_once():
    circuit = Circuit(2, 2).h(0).h(1).measure([0, 1], [0, 1])
    with circuit.when(0, 1):
        circuit.measure(1, 0)
    circuit.measure(0, 1)
    with pytest.warns(UserWarning, match="here 0, 1:") as caught:
        run(circuit, shots=200, seed=1, observables=["X0", "X0 X1"])
    assert len(caught) == 1


def not_met():
    circuit = Circuit(2, 2).h(1).measure(0, 0)
    with circuit.when(0, 1):
        circuit.measure(1, 1)
    return circuit


QUIET = {
    "nothing measured": (Circuit(2).h(0), "X0"),
    "another qubit": (Circuit(2, 1).h(0).h(1).measure(1, 0), "X0"),
    "only Z": (Circuit(2, 2).h(0).h(1).measure([0, 1], [0, 1]), "Z0 Z1 + 2"),
    "an idle qubit": (Circuit(2, 2).h(0).measure(1, 0), "X1"),
    "a term that is 0 for another reason": (Circuit(2, 2).h(0).measure(0, 0), "X0 X1"),
    "a coefficient of 0": (Circuit(2, 2).h(0).measure(0, 0), "0*X0 + Z0"),
    "a measurement that is not made": (not_met(), "X1"),
    "no observables": (Circuit(1, 1).h(0).measure(0, 0), None),
}


@pytest.mark.parametrize("case", QUIET)
def test_where_nothing_is_lost_nothing_is_said(case):
    circuit, observables = QUIET[case]
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        run(circuit, shots=4, seed=1, observables=observables)


def test_the_ways_out():
    circuit = Circuit(2, 2).h(0).cx(0, 1)
    without = run(circuit, observables="X0 X1").expectation_values
    result = run(circuit.measure([0, 1], [0, 1]), shots=5)
    assert result.state.expectation("X0 X1") == pytest.approx(without) == pytest.approx(1)
    with pytest.warns(UserWarning, match="here 0, 1:"):
        assert result.expectation("X0 X1") == 0
    assert result.expectation("Z0 Z1") == pytest.approx(1)


def test_the_command_tells_it_too(command, tmp_path):
    (tmp_path / "a.qasm").write_text(
        'OPENQASM 2.0;\ninclude "qelib1.inc";\nqreg q[2];\ncreg c[2];\nh q[0];\nh q[1];\nmeasure q[0] -> c[0];\n'
    )
    for options in ([], ["--shots", "20"]):
        ended = command("run", "a.qasm", "--observable", "X0 + X1", *options)
        assert ended.returncode == 0 and "1.000000" in ended.stdout
        assert ended.stderr.startswith("velacamplix: terms with X or Y count 0") and ended.stderr.count("\n") == 1


def test_observables_that_fit_a_state_of_all_qubits_are_taken_as_they_are():
    asked = observing.checked(["X0 Z1 + 2", "Z0"], 2)
    assert [one is mine for one, mine in zip(asked.on((0, 1), frozenset()), asked.observables)] == [True, True]
    # Of an idle qubit, or behind a measurement, others are made.
    assert [str(one) for one in asked.on((0,), frozenset())] == ["1.0*X0 + 2.0", "1.0*Z0"]
    assert [str(one) for one in asked.on((0, 1), frozenset({0}))] == ["2.0", "1.0*Z0"]
    assert [str(one) for one in asked.on((1,), frozenset())] == ["2.0", "1.0"]
    assert asked.lost((0, 1), [frozenset()]) == set()
    assert asked.lost((0, 1), [frozenset(), frozenset({0, 1})]) == {0}
