"""What those who know Qiskit, Cirq or PennyLane try first: the message shows what to write."""

import copy
import inspect
import pickle
import re

import numpy as np
import pytest
from refusals import refused

import velacamplix
from velacamplix import Circuit, Counts, Observable, Parameter, StateVector, plot_density, run
from velacamplix.basics.elsewhere import WRITE

RESULT = run(Circuit(2).h(0), shots=10, seed=1)


@pytest.mark.parametrize(
    ("act", "error", "cure"),
    [
        (lambda: Circuit(2).measure(0, 0), IndexError, "write Circuit(2, 2) for 2 bits, or call measure_all()"),
        (lambda: Circuit(1).measure(0, 0), IndexError, "write Circuit(1, 1) for 1 bit, or call measure_all()"),
        (lambda: Circuit(2, 2).measure(0), TypeError, "measure(0, 0) on a circuit with such bits, Circuit(n_qubits, n_cl"),
        (lambda: Circuit(2).measure([0, 1]), TypeError, "measure([0, 1], [0, 1])"),
        (lambda: Circuit(2).measure(0), TypeError, "or measure_all(), which measures every qubit into a bit of its own"),
        (lambda: Circuit(2).rx(0, 0.5), TypeError, "qubit must be an integer, got 0.5: angles come first, rx(angle, qubit)"),
        (lambda: StateVector(2).cp(0, 1, 0.3), TypeError, "target must be an integer, got 0.3: angles come first, cp(angle, c"),
        (lambda: Circuit(2).rx(0, Parameter("t")), TypeError, "angles come first, rx(angle, qubit)"),
        (lambda: Circuit(2).cx(0, 0), ValueError, "the qubits of cx must be distinct, got (0, 0)"),
        (lambda: StateVector(3).ccx(0, 1, 1), ValueError, "the qubits of ccx must be distinct, got (0, 1, 1)"),
        (lambda: Circuit(2).H(0), AttributeError, "'Circuit' object has no attribute 'H': here that is h"),
        (lambda: StateVector(2).CNOT(0, 1), AttributeError, "here that is cnot"),
        (lambda: Circuit(2).append("h", [0]), TypeError, "got append('h', [0]): gates are added by their methods, as in"),
        (lambda: Circuit(2).append(Circuit(2), [0, 1]), TypeError, "a circuit by circuit.compose(other, qubits)"),
        (lambda: Circuit(2).append(Circuit(2)), TypeError, "a circuit by circuit.compose(other, qubits)"),
        (lambda: Circuit(2).x(0).c_if(0, 1), AttributeError, "here that is with circuit.when(bits, value): ..."),
        (lambda: Circuit(2).assign_parameters({}), AttributeError, "here that is circuit.bind(...)"),
        (lambda: run(Circuit(2).rx(Parameter("a"), 0)), ValueError, "give them with bind(): 'a'"),
        (lambda: Circuit(2).to_gate(), AttributeError, "here that is GateDefinition(name, circuit)"),
        (lambda: Circuit(2).draw("mpl"), ValueError, "plot_circuit(circuit) paints with Matplotlib"),
        (lambda: Circuit(2).run(), AttributeError, "here that is run(circuit, shots=1000)"),
        (lambda: run("circuit.qasm"), TypeError, "Circuit.from_qasm reads a file or a text"),
        (lambda: run(Circuit(2)).counts, RuntimeError, "run was called without shots; give shots=N"),
        (lambda: RESULT.get_counts(), AttributeError, "'Result' object has no attribute 'get_counts': here that is result"),
        (lambda: RESULT.measurements, AttributeError, "here that is result.bits, or result.shots"),
        (lambda: RESULT.final_state_vector, AttributeError, "here that is result.statevector()"),
        (lambda: StateVector([1, 0]), TypeError, "it counts the qubits, which begin as 0. Then run(circuit), set_state("),
        (lambda: StateVector("01"), TypeError, 'set_basis_state("01") makes another state'),
        (lambda: StateVector(Circuit(2)), TypeError, "Then run(circuit)"),
        (lambda: StateVector(2).evolve(Circuit(2)), AttributeError, "here that is state.run(circuit)"),
        (lambda: StateVector(2).data, AttributeError, "here that is state.array"),
        (lambda: StateVector(2).expval("Z0"), AttributeError, "here that is state.expectation(observable)"),
        (lambda: StateVector(2).expectation("Z(0) @ Z(1)"), ValueError, "the number of its qubit, as in X0 at position 0"),
        (lambda: StateVector(2).expectation("z0"), ValueError, "a factor X, Y, Z or I with the number of its qubit, as in X0"),
        (lambda: StateVector(2).expectation(np.eye(4)), TypeError, "Observable.from_matrix takes a matrix"),
        (lambda: Observable(["ZZ", "XX"], [0.5, 1]), TypeError, 'as in "0.5*ZZ + XX" or {"ZZ": 0.5, "XX": 1}'),
        (lambda: Observable(["ZZ", "XX"]), TypeError, 'labels come in one text, "0.5*ZZ + XX", or in a dictionary'),
        (lambda: Observable([("ZZ", 0.5)]), ValueError, 'labels come in one text, "0.5*ZZ + XX", or in a dictionary'),
        (lambda: Observable([("ZZ", [0, 1], 0.5)]), ValueError, "must be (coefficient, letters, qubits), got ('ZZ', [0, 1], "),
        (lambda: Observable({"Z0": 1}), ValueError, 'with numbers of qubits it is a text, as in "0.5*Z0 Z3"'),
        (lambda: Observable("X0").matrix(), AttributeError, "here that is observable.to_matrix()"),
        (lambda: Counts({"0": 1}).expectation("X0"), ValueError, "observable.group_commuting() gives groups of terms"),
        (lambda: Counts({3: 5}), TypeError, "Counts.from_ints takes numbers"),
        (lambda: StateVector.from_label("01"), AttributeError, "type object 'StateVector' has no attribute 'from_label': here "),
        (lambda: Circuit.from_qasm_str(""), AttributeError, "here that is Circuit.from_qasm(text)"),
        (lambda: Observable.from_list([("ZZ", 1)]), AttributeError, 'here that is Observable({"ZZ": 0.5})'),
        (lambda: Circuit.H, AttributeError, "type object 'Circuit' has no attribute 'H': here that is h"),
        (lambda: StateVector(2).partial_trace([0]), AttributeError, "here that is state.reduced(qubits), of those that stay"),
        (lambda: Circuit(1).save_statevector(), AttributeError, "here that is circuit.save_state(name), or run(circuit).state"),
        (lambda: Circuit(1, 1).while_loop((0, 0)), AttributeError, "here that is circuit.while_((bits, value), body)"),
        (lambda: plot_density(StateVector(1)), ValueError, "reduced(qubits) of a state or a result gives one"),
        (lambda: RESULT.counts.most_common(1), AttributeError, "'Counts' object has no attribute 'most_common': here that is"),
    ],
)
def test_the_message_shows_the_cure(act, error, cure):
    with refused(error, cure):
        act()


def test_circuits_of_qiskit_are_told_the_way_here():
    qiskit = pytest.importorskip("qiskit", reason="needs Qiskit: pip install velacamplix[test]")
    with refused(TypeError, "Circuit.from_qiskit(circuit) makes one of it"):
        run(qiskit.QuantumCircuit(1))


def test_reset_of_one_qubit_is_told_how():
    state = StateVector(2, seed=1).h(0).cx(0, 1)
    with pytest.warns(FutureWarning, match=r"one alone is reset by if state\.measure\(qubit, collapse=True\): state\.x\(qubit\)"):
        state.reset(0)


def test_what_is_meant_without_doubt_is_taken():
    assert Circuit(3).barrier([0, 2]) == Circuit(3).barrier(0, 2) and Circuit(3).barrier([]) == Circuit(3).barrier()
    assert StateVector(2).expectation("ZZ") == StateVector(2).expectation("Z0 @ Z1") == 1


@pytest.mark.parametrize("kind", WRITE)
def test_names_of_other_packages_are_none_of_ours_and_lead_to_some(kind):
    owner = getattr(velacamplix, kind)
    for name, written in WRITE[kind].items():
        assert not hasattr(owner, name), name
        for speaks_of, word in re.findall(r"\b(circuit|counts|observable|result|state|Circuit|Observable)\.(\w+)", written):
            found = getattr(velacamplix, "StateVector" if speaks_of == "state" else speaks_of.capitalize())
            names = {*dir(found), *inspect.signature(found.__init__).parameters, "n_qubits"}
            assert word in names, (name, written)


@pytest.mark.parametrize("thing", [Circuit(1), StateVector(1), Observable("X0"), Counts({"0": 1}), RESULT], ids=type)
def test_other_names_are_missing_as_ever(thing):
    with pytest.raises(AttributeError) as caught:
        thing.not_a_name
    assert str(caught.value) == f"{type(thing).__name__!r} object has no attribute 'not_a_name'"
    assert caught.value.name == "not_a_name" and caught.value.obj is thing
    with pytest.raises(AttributeError) as caught:
        type(thing).not_a_name
    assert str(caught.value) == f"type object {type(thing).__name__!r} has no attribute 'not_a_name'"
    assert not hasattr(thing, "get_counts") and not hasattr(thing, "_H") and not hasattr(thing, "__array_interface__")
    again = type(thing).__new__(type(thing))
    with pytest.raises(AttributeError):
        again._nothing  # and no endless search in what has not been set up
    assert type(copy.copy(thing)) is type(thing) and type(pickle.loads(pickle.dumps(thing))) is type(thing)


def test_classes_that_inherit_tell_it_under_their_name():
    class Mine(Circuit):
        pass

    with refused(AttributeError, "'Mine' object has no attribute 'get_counts': here that is run(circuit, shots=1000)"):
        Mine(1).get_counts()
