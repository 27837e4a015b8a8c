"""Gates at several places in one call."""

import numpy as np
import pytest

from velacamplix import Circuit, Parameter, StateVector
from velacamplix.instructions.gates import GATES

METHODS = [(method, gate, n) for gate in GATES.values() for method, n in gate.methods.items() if gate.qubits]


@pytest.mark.parametrize("method, gate, n_controls", METHODS, ids=[method for method, _, _ in METHODS])
def test_lists_are_the_calls_one_by_one(method, gate, n_controls):
    k, n = gate.n_qubits + n_controls, 6
    rows = [tuple(range(k)), tuple(range(k))[::-1], tuple(range(n - k, n))]
    rows = list(dict.fromkeys(rows))
    angles = [[0.1 * (row + 1) + place for row in range(len(rows))] for place in range(gate.n_params)]
    one_by_one = Circuit(n)
    for place, row in enumerate(rows):
        getattr(one_by_one, method)(*[values[place] for values in angles], *row)
    columns = list(zip(*rows))
    for kind in (list, tuple, np.array):
        assert getattr(Circuit(n), method)(*map(kind, angles), *map(kind, columns)) == one_by_one
    several = getattr(StateVector(n).h(range(n)), method)(*angles, *columns)
    single = StateVector(n).h(range(n))
    for place, row in enumerate(rows):
        getattr(single, method)(*[values[place] for values in angles], *row)
    assert several.array.tobytes() == single.array.tobytes()


def test_numbers_stand_beside_lists():
    a = Parameter("a")
    assert Circuit(3).rx(a, range(3)) == Circuit(3).rx(a, 0).rx(a, 1).rx(a, 2)
    assert Circuit(3).cx(0, [1, 2]) == Circuit(3).cx(0, 1).cx(0, 2)
    assert Circuit(3).cx([1, 2], 0) == Circuit(3).cx(1, 0).cx(2, 0)
    assert Circuit(3).rx([a, 2 * a], [2, 0]) == Circuit(3).rx(a, 2).rx(2 * a, 0)
    assert Circuit(4).h([0, 1], controls=[2, 3]) == Circuit(4).h(0, controls=[2, 3]).h(1, controls=[2, 3])
    assert Circuit(3).rx(theta=np.array([0.1, 0.2]), qubit=range(2)) == Circuit(3).rx(0.1, 0).rx(0.2, 1)


def test_what_gives_its_numbers_once():
    assert Circuit(4).h(iter([0, 1]), controls=iter([2, 3])) == Circuit(4).h([0, 1], controls=[2, 3])


def test_lists_of_none_and_of_one():
    assert Circuit(3).h([]) == Circuit(3) == Circuit(3).cx([], []) == Circuit(3).cx(0, [])
    assert Circuit(0).h(range(0)) == Circuit(0)
    assert Circuit(3).h([2]) == Circuit(3).h(2) == Circuit(3).h(np.array(2))


def test_inside_when():
    circuit = Circuit(2, 1).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x([0, 1])
    assert [step.condition is not None for step in circuit] == [False, True, True]


MISTAKES = {
    "lengths": (ValueError, r"rx\(\) takes lists of one length, got 2 of angle and 3 of qubit", lambda c: c.rx([1, 2], [0, 1, 2])),
    "lengths of qubits": (ValueError, r"cx\(\) takes lists of one length, got 2 of control and 1 of target", lambda c: c.cx([0, 1], [2])),
    "angles for one qubit": (TypeError, r"angle must be a real number where qubit is one qubit, got \[1, 2\]", lambda c: c.rx([1, 2], 0)),
    "a qubit twice": (ValueError, r"h\(\) takes lists of different qubits, got \(1,\) twice", lambda c: c.h([0, 1, 1])),
    "a pair twice": (ValueError, r"cx\(\) takes lists of different qubits, got \(0, 1\) twice", lambda c: c.cx([0, 0], [1, 1])),
    "one of them too large": (IndexError, r"qubit\[1\] must be a number from 0 to 2, got 3", lambda c: c.h([0, 3])),
    "one of them no number": (TypeError, r"target\[1\] must be an integer, got '2'", lambda c: c.cx(0, [1, "2"])),
    "one angle infinite": (ValueError, r"angle\[2\] must be finite, got inf", lambda c: c.rz([0, 1, np.inf], range(3))),
    "control and target equal": (ValueError, "the qubits of cx must be distinct", lambda c: c.cx(0, [1, 0])),
    "a control among the targets": (ValueError, "controls must not contain a target", lambda c: c.h([0, 1], controls=1)),
    "a text": (TypeError, "qubit must be an integer, got '012'", lambda c: c.h("012")),
    "a mapping": (TypeError, "qubit must be an integer", lambda c: c.h({0: 1})),
    "a table": (TypeError, r"qubit\[0\] must be an integer", lambda c: c.h(np.zeros((2, 2), dtype=int))),
    "angles for no qubit": (TypeError, r"angle must be a real number, got \[1, 2\]", lambda c: c.gphase([1, 2])),
    "without end": (ValueError, "qubit must be a sequence of at most", lambda c: c.h(range(10**12))),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes_leave_everything_as_it_was(case):
    kind, message, call = MISTAKES[case]
    circuit, state = Circuit(3), StateVector(3).h(0)
    before = state.array.copy()
    for target in (circuit, state):
        with pytest.raises(kind, match=message):
            call(target)
    assert len(circuit) == 0 and (state.array == before).all()
