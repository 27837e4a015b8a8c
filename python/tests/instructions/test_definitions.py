"""Gates of the user's own: kept as they are, expanded when a circuit runs."""

import copy
import gc
import pickle

import numpy as np
import numpy_simulator
import pytest
import small_stacks

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, StateVector
from velacamplix.instructions import definition as _circuit_definition
from velacamplix.instructions.definition import ordered

T = Parameter("t")


def pair():
    return GateDefinition("pair", Circuit(2).ry(T / 2, 0).cx(0, 1))


def chain(depth):
    """Definitions that call each other, the first inside the second and so on."""
    definition = GateDefinition("link", Circuit(1).h(0).s(0))
    for number in range(depth):
        definition = GateDefinition(f"link{number}", Circuit(1).gate(definition, 0))
    return definition


def test_attributes():
    definition = pair()
    assert (definition.name, definition.params, definition.n_qubits, definition.size) == ("pair", ("t",), 2, 3)
    assert definition.body == (Instruction("RY", (0,), (T / 2,)), Instruction("CNOT", (0, 1)))
    assert repr(definition) == "<GateDefinition pair(t): 2 qubits, 2 steps>"


def test_parameters_may_be_put_in_order():
    circuit = Circuit(1).rx(Parameter("b"), 0).rz(Parameter("a"), 0)
    assert GateDefinition("g", circuit).params == ("b", "a")
    assert GateDefinition("g", circuit, ["a", "b"]).params == ("a", "b")
    assert GateDefinition("g", circuit, ["a", Parameter("b"), "unused"]).params == ("a", "b", "unused")


def test_equal_definitions_are_one_object():
    assert pair() is pair()
    assert pickle.loads(pickle.dumps(pair())) is pair()
    assert copy.deepcopy(pair()) is pair() and copy.copy(pair()) is pair()
    assert GateDefinition("pair", Circuit(2).ry(T / 3, 0).cx(0, 1)) != pair()
    zero, minus_zero = (GateDefinition("zero", Circuit(1).rx(angle, 0)) for angle in (0.0, -0.0))
    assert zero is not minus_zero, "they are not the same angle"


def test_expansion_with_controls_and_conditions():
    circuit = Circuit(4, 1)
    with circuit.when(0, 1):
        circuit.gate(GateDefinition("outer", Circuit(2).barrier(0).gate(pair(), [1, 0], [T + 1], controls=())), [2, 0], [0.5], controls=[3])
    steps = [str(step) for step in circuit.basic_instructions()]
    assert steps == ["barrier 2", "RY(0.75) 0 controls 3 if c[0] == 1", "CNOT 0,2 controls 3 if c[0] == 1"]


def test_expansion_has_the_matrix_of_the_body():
    body = Circuit(3).h(0).cu(0.1, 0.2, 0.3, 0.4, 1, 2).rxx(T, 0, 2).iswap(1, 0, controls=2)
    whole = GateDefinition("whole", body)
    called = Circuit(3).gate(whole, [0, 1, 2], [0.9])
    expected = numpy_simulator.unitary(body.bind(t=0.9))
    np.testing.assert_allclose(numpy_simulator.unitary(called), expected, rtol=0, atol=1e-15)
    state = StateVector(3).h(0).h(1).run(called).array
    np.testing.assert_allclose(state, expected @ StateVector(3).h(0).h(1).array, rtol=0, atol=1e-14)
    controlled = np.eye(16, dtype=complex)
    controlled[8:, 8:] = expected
    np.testing.assert_allclose(numpy_simulator.unitary(Circuit(4).gate(whole, [0, 1, 2], [0.9], 3)), controlled, rtol=0, atol=1e-14)


@pytest.mark.parametrize("where", small_stacks.WHERE)
def test_definitions_nested_to_the_limit_work_everywhere_and_do_not_stay(where):
    def work():
        top = chain(99)
        circuit = Circuit(2).gate(top, 0).gate(top, 1, controls=0)
        assert top.depth == 100 and [step.name for step in circuit.basic_instructions()] == ["H", "S"] * 2
        assert [step.name for step in circuit.inverse().basic_instructions()] == ["PH", "H"] * 2
        assert top.inverse().inverse() is top and top.inverse().depth == 100
        for dump in (pickle.dumps, pickle._dumps):
            assert pickle.loads(dump(circuit)) == circuit and pickle.loads(dump(top)) is top
        assert copy.deepcopy(circuit) == circuit and hash(circuit[0]) == hash(copy.copy(circuit)[0])
        assert len(ordered([top])) == 100
        assert len(circuit.to_qasm().splitlines()) == 2 * 100 + 6
        assert Circuit.from_qasm(circuit.to_qasm()) == circuit
        return StateVector(2).run(circuit).array

    chain(99).inverse(), Circuit.from_qasm(Circuit(2).gate(chain(99), 1, controls=0).to_qasm())  # what is kept for good
    gc.collect()
    before = len(_circuit_definition._known)
    np.testing.assert_array_equal(where(work), StateVector(2).h(0).s(0).h(1, controls=0).s(1, controls=0).array)
    gc.collect()
    assert len(_circuit_definition._known) == before


def test_a_definition_beyond_the_limit_is_refused_by_name():
    with pytest.raises(ValueError, match="definitions must be nested at most 100 deep, 'link99' would be deeper: write the steps"):
        chain(100)
    assert chain(98).depth == 99
    assert GateDefinition("wide", Circuit(1).gate(chain(20), 0).gate(chain(98), 0).gate(chain(3), 0)).depth == 100


def test_greedy_definitions_are_refused_before_they_begin():
    definition = GateDefinition("d", Circuit(1).x(0))
    for number in range(99):
        definition = GateDefinition(f"d{number}", Circuit(1).gate(definition, 0).gate(definition, 0))
    assert definition.size == 2**62
    with pytest.raises(ValueError, match="gate 'd98' must expand to at most 10000000 steps"):
        list(Circuit(1).gate(definition, 0).basic_instructions())


def test_an_angle_without_value_inside_names_the_gate():
    definition = GateDefinition("turn", Circuit(1).rx(1 / T, 0))
    circuit = Circuit(1).gate(definition, 0, [0.0])
    with pytest.raises(ValueError, match=r"division by zero in .*, in gate 'turn' called with \(0\)"):
        list(circuit.basic_instructions())
    with pytest.raises(ValueError, match="division by zero"):
        StateVector(1).run(circuit)


MEASURED = Circuit(1, 1).measure(0, 0)
CONDITIONED = Circuit(1, 1)
with CONDITIONED.when(0, 1):
    CONDITIONED.x(0)

REFUSED = {
    "name is a number": (TypeError, "name must be a text, got 3", lambda: GateDefinition(3, Circuit(1))),
    "name is empty": (ValueError, "name must be new", lambda: GateDefinition("", Circuit(1))),
    "name of a library gate": (ValueError, "name must be new.*got 'H'", lambda: GateDefinition("H", Circuit(1))),
    "name of a composite gate": (ValueError, "name must be new.*got 'u3'", lambda: GateDefinition("u3", Circuit(1))),
    "name of a library gate in small letters": (ValueError, "capital or small.*got 'h'", lambda: GateDefinition("h", Circuit(1).x(0))),
    "name of a composite gate in capitals": (ValueError, "name must be new.*got 'RZZ'", lambda: GateDefinition("RZZ", Circuit(2))),
    "name of a gate of OpenQASM": (ValueError, "name must be new.*got 'cx'", lambda: GateDefinition("cx", Circuit(2))),
    "name of an instruction": (ValueError, "name must be new", lambda: GateDefinition("measure", Circuit(1))),
    "no circuit": (TypeError, "circuit must be a Circuit, got 'h'", lambda: GateDefinition("g", "h")),
    "no qubits": (ValueError, "at least 1 qubit", lambda: GateDefinition("g", Circuit(0))),
    "measurement": (ValueError, "gates and barriers without conditions only, got measure", lambda: GateDefinition("g", MEASURED)),
    "condition": (ValueError, "gates and barriers without conditions only, got X", lambda: GateDefinition("g", CONDITIONED)),
    "reset": (ValueError, "gates and barriers", lambda: GateDefinition("g", Circuit(1).reset(0))),
    "parameter not listed": (ValueError, r"\['t'\] are missing", lambda: GateDefinition("g", Circuit(1).rx(T, 0), [])),
    "parameter listed twice": (ValueError, "params must be distinct", lambda: GateDefinition("g", Circuit(1), ["a", "a"])),
    "params are a text": (TypeError, "params must be a sequence of names", lambda: GateDefinition("g", Circuit(1), "a")),
    "params are numbers": (TypeError, "params must be names of parameters, got 1", lambda: GateDefinition("g", Circuit(1), [1])),
    "call with too few qubits": (ValueError, "qubits of pair must be 2, got 1", lambda: Circuit(3).gate(pair(), 0, [1])),
    "call with too few parameters": (ValueError, "params of pair must be 1 number", lambda: Circuit(3).gate(pair(), [0, 1])),
    "call with a wrong parameter": (TypeError, r"params\[0\] must be a real number", lambda: Circuit(3).gate(pair(), [0, 1], ["x"])),
    "call with a control among the targets": (ValueError, "controls must not contain a target", lambda: Circuit(3).gate(pair(), [0, 1], [1], 1)),
    "instruction with another name": (
        ValueError, "name must be 'pair'", lambda: Circuit(3).append(Instruction("other", (0, 1), (1.0,), definition=pair()))),
    "instruction with no definition": (
        TypeError, "definition must be a GateDefinition", lambda: Circuit(3).append(Instruction("pair", (0, 1), definition="pair"))),
}  # fmt: skip


@pytest.mark.parametrize("case", REFUSED)
def test_refused(case):
    kind, message, call = REFUSED[case]
    with pytest.raises(kind, match=message):
        call()


# Names


def test_names_by_which_openqasm_calls_gates_are_taken():
    from velacamplix.instructions.instruction import BY_ENTRIES, NON_UNITARY
    from velacamplix.instructions.gates import GATES
    from velacamplix.qasm import qelib1

    listed = [*GATES, *BY_ENTRIES, *NON_UNITARY, *qelib1.GATES, *qelib1.LANGUAGE]
    assert {name.lower() for name in listed} == _circuit_definition._TAKEN
    for name in {word for one in listed for word in (one, one.lower(), one.upper())}:
        with pytest.raises(ValueError, match="name must be new"):
            GateDefinition(name, Circuit(1).x(0))


def test_an_inverse_has_no_taken_name_either():
    gate = GateDefinition("h_dg", Circuit(1).s(0))
    assert gate.inverse().name == "h_dg_dg" and gate.inverse().inverse() is gate
    assert GateDefinition("own_dg", Circuit(1).s(0)).inverse().name == "own"
    nameless = GateDefinition("_dg", Circuit(1).s(0))
    assert nameless.inverse().name == "_dg_dg" and nameless.inverse().inverse() is nameless


def test_a_definition_tells_its_size():
    assert repr(GateDefinition("one", Circuit(1).s(0))) == "<GateDefinition one: 1 qubit, 1 step>"
    assert repr(GateDefinition("two", Circuit(2).rx(T, 0).x(1))) == "<GateDefinition two(t): 2 qubits, 2 steps>"
