"""The circuit: what each method records, what it refuses, and what it is equal to."""

import copy
import itertools
import pickle

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, run
from velacamplix.instructions.gates import GATES, NATIVE
from velacamplix.instructions.instruction import DETAILED, LEAVING, NON_UNITARY, Condition, Instruction, Register

NAN = float("nan")
X = [[0, 1], [1, 0]]

ONE_QUBIT = {"x": "X", "y": "Y", "z": "Z", "h": "H", "s": "S", "t": "T", "ztoy": "ZtoY", "ytoz": "YtoZ"}
ROTATIONS = {"rx": "RX", "ry": "RY", "rz": "RZ", "ph": "PH", "p": "PH"}
TWO_QUBIT = {
    "cnot": "CNOT", "cx": "CNOT", "csign": "CSIGN", "cz": "CSIGN", "swap": "SWAP", "iswap": "ISWAP", "sqrtswap": "SQRTSWAP",
}  # fmt: skip
THREE_QUBIT = {"ccnot": "CCNOT", "ccx": "CCNOT", "toffoli": "CCNOT"}


# --- What is recorded ---


@pytest.mark.parametrize("method, name", ONE_QUBIT.items())
def test_one_qubit_gate_is_recorded_with_its_controls(method, name):
    circuit = Circuit(4)
    assert getattr(circuit, method)(2) is circuit
    getattr(circuit, method)(np.int64(1), controls=[3, np.int8(0)])
    assert list(circuit) == [Instruction(name, (2,)), Instruction(name, (1,), controls=(3, 0))]


@pytest.mark.parametrize("method, name", ROTATIONS.items())
def test_rotation_is_recorded_angle_first(method, name):
    circuit = Circuit(4)
    assert getattr(circuit, method)(0.25, 2) is circuit
    getattr(circuit, method)(1, 2, controls=0)
    assert list(circuit) == [Instruction(name, (2,), (0.25,)), Instruction(name, (2,), (1.0,), (0,))]


@pytest.mark.parametrize("method, name", TWO_QUBIT.items())
def test_two_qubit_gate_is_recorded_in_order(method, name):
    assert list(getattr(Circuit(3), method)(2, 0)) == [Instruction(name, (2, 0))]


@pytest.mark.parametrize("method, name", THREE_QUBIT.items())
def test_toffoli_gate_is_recorded_in_order(method, name):
    assert list(getattr(Circuit(3), method)(2, 0, 1)) == [Instruction(name, (2, 0, 1))]


def test_every_gate_of_the_vocabulary_has_a_method():
    named = {**ONE_QUBIT, **ROTATIONS, **TWO_QUBIT, **THREE_QUBIT}
    assert set(named.values()) == NATIVE


def test_matrix_is_recorded_row_by_row():
    circuit = Circuit(2).matrix(np.arange(16).reshape(4, 4), [1, 0], check=False)
    assert circuit[0] == Instruction("matrix", (1, 0), tuple(map(complex, range(16))))
    assert all(type(entry) is complex for entry in circuit[0].params)


def test_matrix_takes_one_qubit_as_a_number():
    assert Circuit(2).matrix(X, 1, 0)[0] == Instruction("matrix", (1,), (0j, 1 + 0j, 1 + 0j, 0j), (0,))


def test_matrix_in_little_order_means_the_qubits_the_other_way_round():
    cnot = numpy_simulator.permutation([0, 1, 3, 2])
    big = Circuit(3).matrix(cnot, [2, 0])
    little = Circuit(3).matrix(cnot, [0, 2], order="little")
    assert big == little
    assert np.array_equal(numpy_simulator.unitary(big), numpy_simulator.unitary(Circuit(3).cx(2, 0)))


def test_measure_reset_and_barrier_take_several_qubits():
    circuit = Circuit(3, 2).measure([2, 0], [0, 1]).measure(1, 1).reset([0, 1]).reset(2).barrier(1, 2).barrier()
    assert list(circuit) == [
        Instruction("measure", (2, 0), clbits=(0, 1)),
        Instruction("measure", (1,), clbits=(1,)),
        Instruction("reset", (0, 1)),
        Instruction("reset", (2,)),
        Instruction("barrier", (1, 2)),
        Instruction("barrier", (0, 1, 2)),
    ]
    assert not any(instruction.is_gate for instruction in circuit)


def test_measure_all_makes_a_register_only_if_there_is_none():
    circuit = Circuit(2).measure_all()
    assert circuit == Circuit(2, 2).measure([0, 1], [0, 1])
    assert Circuit(2, 3).measure_all()[0].clbits == (0, 1)
    named_c = Circuit(1, registers=[Register("c", "quantum", 0, 1)]).measure_all()
    assert [register.name for register in named_c.registers] == ["c", "meas"]
    names = ["c", "meas", "measured_bits", "measured_bits_2"]
    taken = Circuit(4, registers=[Register(name, "quantum", i, 1) for i, name in enumerate(names)]).measure_all()
    assert [register.name for register in taken.registers] == [*names, "measured_bits_3"]
    assert Circuit.from_qasm(taken.to_qasm()).registers == taken.registers and run(taken, shots=3).counts == {"0000": 3}
    with pytest.raises(ValueError, match="n_clbits must be at least n_qubits = 3 .*got 2"):
        Circuit(3, 2).measure_all()


def test_when_gives_its_condition_to_all_inside_and_nothing_after():
    circuit = Circuit(2, 2)
    with circuit.when("c", 2) as same:
        assert same is circuit
        circuit.x(0).measure(0, 1).reset(1).append(Instruction("H", (0,)))
    with circuit.when(1, 1):
        circuit.z(0)
    circuit.z(1)
    both, one = Condition((0, 1), 2), Condition((1,), 1)
    assert [instruction.condition for instruction in circuit] == [both, both, both, both, one, None]


def test_when_ends_even_after_an_error():
    circuit = Circuit(1, 1)
    with pytest.raises(IndexError):
        with circuit.when("c", 1):
            circuit.x(5)
    assert circuit.x(0)[0].condition is None


# --- What it is as a Python object ---


def test_attributes_of_a_new_circuit():
    circuit = Circuit(np.int64(3), 2)
    assert (circuit.n_qubits, circuit.n_clbits, len(circuit), circuit.instructions) == (3, 2, 0, ())
    assert circuit.registers == (Register("q", "quantum", 0, 3), Register("c", "classical", 0, 2))
    assert bool(circuit), "a circuit without instructions is still a circuit"


def test_circuit_without_qubits():
    assert (Circuit(0).n_qubits, Circuit(0).registers, len(Circuit(0))) == (0, (), 0)
    with pytest.raises(ValueError, match="qubits must hold at least 1"):
        Circuit(0).measure_all()


def test_instructions_is_a_copy():
    circuit = Circuit(1).x(0)
    before = circuit.instructions
    circuit.h(0)
    assert len(before) == 1 and len(circuit) == 2


def test_indexing_counts_from_both_ends():
    circuit = Circuit(1).x(0).h(0)
    assert (circuit[0].name, circuit[-1].name) == ("X", "H")
    assert [instruction.name for instruction in circuit[::-1]] == ["H", "X"]
    with pytest.raises(IndexError):
        circuit[2]


def test_equality_is_by_content():
    def build(n=2, m=1, angle=0.5):
        return Circuit(n, m).h(0).rx(angle, 1)

    assert build() == build()
    for other in (build(n=3), build(m=2), build(angle=0.6), build().x(0), "H 0", None):
        assert build() != other
    renamed = Circuit(2, 1, registers=[Register("a", "quantum", 0, 2), Register("c", "classical", 0, 1)])
    assert renamed.h(0).rx(0.5, 1) != build()


def test_circuit_is_not_hashable_but_its_instructions_are():
    with pytest.raises(TypeError):
        hash(Circuit(1))
    assert len({Instruction("X", (0,)), Instruction("X", (0,)), Instruction("X", (1,))}) == 2


def test_copies_are_independent():
    circuit = Circuit(2, 2).h(0).measure_all()
    for twin in (circuit.copy(), copy.copy(circuit).copy(), copy.deepcopy(circuit), pickle.loads(pickle.dumps(circuit))):
        assert twin == circuit
        twin.x(0)
        assert twin != circuit


def test_instruction_cannot_be_changed():
    with pytest.raises(AttributeError):
        Circuit(1).x(0)[0].name = "Y"


def test_texts():
    circuit = Circuit(2, 1).rx(0.5, 1, controls=0).matrix(X, 0).measure(0, 0)
    with circuit.when(0, 1):
        circuit.x(1)
    assert repr(circuit) == "<Circuit: 2 qubits, 1 classical bit, 4 instructions>"
    assert str(circuit).splitlines() == ["RX(0.5) 1 controls 0", "matrix[2x2] 0", "measure 0 -> 0", "X 1 if c[0] == 1"]


# --- What is refused: each leaves the circuit as it was ---

REFUSED = {
    "qubit is text": (TypeError, "qubit must be an integer, got '0'", lambda c: c.x("0")),
    "qubit is a float": (TypeError, "qubit must be an integer, got 1.0", lambda c: c.h(1.0)),
    "qubit is a flag": (TypeError, "qubit must be an integer, got True", lambda c: c.h(True)),
    "qubit too large": (IndexError, "qubit must be a number from 0 to 2, got 3", lambda c: c.x(3)),
    "qubit negative": (IndexError, "qubit must be a number from 0 to 2, got -1", lambda c: c.x(-1)),
    "control too large": (IndexError, r"controls\[1\] must be a number from 0 to 2, got 9", lambda c: c.x(0, [1, 9])),
    "control repeated": (ValueError, "controls must be distinct, got 1 twice", lambda c: c.x(0, [1, 1])),
    "control is target": (ValueError, "controls must not contain a target", lambda c: c.x(0, [0])),
    "controls is text": (TypeError, "controls must be a sequence of integers, got '12'", lambda c: c.x(0, "12")),
    "angle missing": (TypeError, "rx.. takes angle, qubit; got none for qubit", lambda c: c.rx(0)),
    "angle is text": (TypeError, "angle must be a real number, got 'pi'", lambda c: c.rx("pi", 0)),
    "angle is complex": (TypeError, "angle must be a real number", lambda c: c.ph(1j, 0)),
    "angle is not a number": (ValueError, "angle must be finite, got nan", lambda c: c.rz(NAN, 0)),
    "angle and qubit exchanged": (TypeError, "qubit must be an integer, got 0.5", lambda c: c.ry(0, 0.5)),
    "control and target equal": (ValueError, "the qubits of cx must be distinct, got", lambda c: c.cx(1, 1)),
    "target too large": (IndexError, "target must be a number from 0 to 2, got 3", lambda c: c.cx(1, 3)),
    "toffoli with two equal": (ValueError, "the qubits of ccx must be distinct", lambda c: c.ccx(0, 1, 0)),
    "second qubit is a float": (TypeError, "qubit2 must be an integer, got 0.0", lambda c: c.swap(1, 0.0)),
    "matrix of wrong shape": (ValueError, "matrix must be a 4 x 4 array", lambda c: c.matrix(X, [0, 1])),
    "matrix not unitary": (ValueError, "matrix must be unitary", lambda c: c.matrix([[1, 1], [0, 1]], 0)),
    "matrix qubits repeated": (ValueError, "qubits must be distinct", lambda c: c.matrix(np.eye(4), [0, 0])),
    "matrix without qubits": (ValueError, "qubits must hold at least 1", lambda c: c.matrix([[1]], [])),
    "matrix control is target": (ValueError, "controls must not contain", lambda c: c.matrix(X, 0, 0)),
    "matrix of unknown order": (ValueError, "order must be 'big' or 'little'", lambda c: c.matrix(X, 0, order="up")),
    "measure into too large a bit": (IndexError, r"clbits\[0\] must be a number from 0 to 1, got 2", lambda c: c.measure(0, 2)),
    "measure lists of two lengths": (ValueError, "got 1 for 2", lambda c: c.measure([0, 1], [0])),
    "measure into one bit twice": (ValueError, "clbits must be distinct", lambda c: c.measure([0, 1], [0, 0])),
    "measure one qubit twice": (ValueError, "qubits must be distinct", lambda c: c.measure([0, 0], [0, 1])),
    "measure nothing": (ValueError, "qubits must hold at least 1", lambda c: c.measure([], [])),
    "reset nothing": (ValueError, "qubits must hold at least 1", lambda c: c.reset([])),
    "barrier repeated": (ValueError, "qubits must be distinct", lambda c: c.barrier(0, 0)),
    "append a text": (TypeError, r"instruction must be one Instruction, which has its qubits, got append\('X'\)", lambda c: c.append("X")),
    "append unknown name": (ValueError, "name must be one of X, Y, .*got 'x'", lambda c: c.append(Instruction("x", (0,)))),
    "append name of no kind": (ValueError, "name must be one of", lambda c: c.append(Instruction([], (0,)))),
    "append too many qubits": (ValueError, "qubits of X must be 1, got 2", lambda c: c.append(Instruction("X", (0, 1)))),
    "append too few params": (ValueError, "params of RX must be 1", lambda c: c.append(Instruction("RX", (0,)))),
    "append infinite param": (ValueError, r"params\[0\] must be finite", lambda c: c.append(Instruction("RX", (0,), (NAN,)))),
    "append params of measure": (
        ValueError, "params of measure must be 0", lambda c: c.append(Instruction("measure", (0,), (1.0,), clbits=(0,)))),
    "append controls of a reset": (ValueError, "controls of reset must be empty", lambda c: c.append(Instruction("reset", (0,), (), (2,)))),
    "append clbits of a gate": (ValueError, "clbits must name", lambda c: c.append(Instruction("X", (0,), clbits=(0,)))),
    "append measure without clbits": (ValueError, "clbits must name", lambda c: c.append(Instruction("measure", (0,)))),
    "append matrix of wrong size": (ValueError, "params of matrix must be 4", lambda c: c.append(Instruction("matrix", (0,), (1, 0)))),
    "append matrix of texts": (TypeError, "params must be a 2 x 2 array", lambda c: c.append(Instruction("matrix", (0,), ("a",) * 4))),
    "append condition of no kind": (TypeError, "condition must be a Condition", lambda c: c.append(Instruction("X", (0,), condition=1))),
    "append condition out of range": (
        ValueError, "condition.value must be an integer from 0 to 1, got 2",
        lambda c: c.append(Instruction("X", (0,), condition=Condition((0,), 2)))),
    "append condition on a missing bit": (
        IndexError, "condition.clbits", lambda c: c.append(Instruction("X", (0,), condition=Condition((7,), 0)))),
    "append barrier with a condition": (
        ValueError, "condition of barrier must be None", lambda c: c.append(Instruction("barrier", (0,), condition=Condition((0,), 0)))),
}  # fmt: skip


@pytest.mark.parametrize("case", REFUSED)
def test_refused(case):
    kind, message, call = REFUSED[case]
    circuit = Circuit(3, 2).h(0)
    with pytest.raises(kind, match=message) as caught:
        call(circuit)
    assert type(caught.value) is kind
    assert circuit == Circuit(3, 2).h(0)


@pytest.mark.parametrize(
    "kind, message, clbits, value",
    [
        (KeyError, "one of \\['c'\\], got 'd'", "d", 0),
        (KeyError, "clbits must name a classical register", "q", 0),
        (IndexError, "clbits", [2], 0),
        (ValueError, "clbits must be distinct", [0, 0], 0),
        (ValueError, "clbits must hold at least 1", [], 0),
        (ValueError, "value must be an integer from 0 to 3, got 4", "c", 4),
        (ValueError, "value must be an integer from 0 to 3, got -1", "c", -1),
        (TypeError, "value must be an integer", "c", 1.0),
    ],
)
def test_wrong_conditions_are_refused(kind, message, clbits, value):
    with pytest.raises(kind, match=message):
        with Circuit(1, 2).when(clbits, value):
            pass


def test_conditions_do_not_nest_and_barriers_take_none():
    circuit = Circuit(1, 1)
    conditioned = Instruction("X", (0,), condition=Condition((0,), 1))
    with circuit.when(0, 1):
        with pytest.raises(ValueError, match="cannot stand inside another"):
            with circuit.when(0, 0):
                pass
        with pytest.raises(ValueError, match="barrier takes no condition"):
            circuit.barrier()
        for instruction in (conditioned, Instruction("barrier", (0,))):
            with pytest.raises(ValueError, match="take the condition of when"):
                circuit.append(instruction)
    assert len(circuit.append(conditioned)) == 1


@pytest.mark.parametrize(
    "kind, arguments",
    [(TypeError, (1.0,)), (TypeError, ("2",)), (TypeError, (True,)), (ValueError, (-1,)), (ValueError, (1, -1)), (TypeError, (1, None))],
)
def test_wrong_sizes_are_refused(kind, arguments):
    with pytest.raises(kind, match="n_(qubits|clbits) must be an integer from 0 to 1000000, got"):
        Circuit(*arguments)


@pytest.mark.parametrize(
    "kind, message, registers",
    [
        (TypeError, "sequence of Register", "q"),
        (TypeError, "hold Register objects", ["q"]),
        (ValueError, "cover 2 qubits and 0 classical bits, got 1 and 0", [Register("q", "quantum", 0, 1)]),
        (ValueError, "without gaps", [Register("a", "quantum", 0, 1), Register("b", "quantum", 0, 1)]),
        (ValueError, "distinct names", [Register("a", "quantum", 0, 1), Register("a", "quantum", 1, 1)]),
        (ValueError, "kind of a register", [Register("a", "qubits", 0, 2)]),
        (TypeError, "name of a register", [Register(1, "quantum", 0, 2)]),
        (ValueError, "size of a register", [Register("a", "quantum", 0, -2)]),
        (TypeError, "size of a register", [Register("a", "quantum", 0, 2.0)]),
    ],
)
def test_registers_that_do_not_fit_are_refused(kind, message, registers):
    with pytest.raises(kind, match=message):
        Circuit(2, registers=registers)


def test_append_makes_plain_values():
    loose = Instruction("RX", [np.int64(1)], [np.float32(0.5)], np.array([0]), [], Condition([np.int8(0)], np.int8(1)))
    stored = Circuit(2, 1).append(loose)[0]
    assert stored == Instruction("RX", (1,), (0.5,), (0,), (), Condition((0,), 1))
    assert type(stored.qubits[0]) is int and type(stored.params[0]) is float and type(stored.condition.value) is int


def test_append_takes_every_instruction_a_method_makes():
    circuit = Circuit(3, 3)
    for method in ONE_QUBIT:
        getattr(circuit, method)(1, [0, 2])
    for method in ROTATIONS:
        getattr(circuit, method)(0.1, 1, [0, 2])
    for method in TWO_QUBIT:
        getattr(circuit, method)(1, 0)
    circuit.ccx(2, 1, 0).matrix(np.eye(4), [2, 0], 1).measure_all().reset(1).barrier()
    with circuit.when("c", 5):
        circuit.x(0).measure([0, 1], [1, 0])
    again = Circuit(3, 3)
    for instruction in circuit:
        again.append(instruction)
    assert again == circuit
    assert {instruction.name for instruction in circuit} == {*NATIVE, "matrix", *NON_UNITARY} - DETAILED - LEAVING


def test_append_takes_every_gate():
    again, circuit = Circuit(5, 1), Circuit(5, 1)
    for name, gate in GATES.items():
        instruction = Instruction(name, tuple(range(gate.n_qubits)), (0.5,) * gate.n_params, (4,))
        circuit.append(instruction)
        assert circuit[-1] == instruction
    for instruction in circuit:
        again.append(instruction)
    assert again == circuit


# --- The definitions the tests themselves rest on ---


@pytest.mark.parametrize("name", sorted(NATIVE))
def test_the_reference_matrix_of_each_gate_is_unitary(name):
    shape = GATES[name]
    matrix = numpy_simulator.MATRICES[name](*[0.3] * shape.n_params)
    assert matrix.shape == (2**shape.n_qubits,) * 2
    np.testing.assert_allclose(matrix @ matrix.conj().T, np.eye(len(matrix)), atol=1e-15)


def test_the_reference_applies_controls_and_qubits_in_order():
    for control, target, other in itertools.permutations(range(3)):
        state = numpy_simulator.statevector(Circuit(3).x(control).cx(control, target))
        assert np.argmax(np.abs(state)) == (1 << control) | (1 << target)
        same = numpy_simulator.unitary(Circuit(3).x(target, controls=control))
        assert np.array_equal(same, numpy_simulator.unitary(Circuit(3).cx(control, target)))
        twice = Circuit(3).x(target, controls=[control, other])
        assert np.array_equal(numpy_simulator.unitary(twice), numpy_simulator.unitary(Circuit(3).ccx(other, control, target)))


def test_a_circuit_without_classical_bits_says_how_to_get_some():
    cure = r"it has none: write Circuit\(2, 2\) for 2 bits, or call measure_all\(\)"
    for clbits in (0, [0, 1], []):
        with pytest.raises(IndexError, match=f"clbits must be classical bits of the circuit.*{cure}"):
            Circuit(2).measure([0, 1], clbits)
    with pytest.raises(IndexError, match=cure):
        with Circuit(2).when(0, 1):
            pass
    with pytest.raises(KeyError, match="clbits must name a classical register, of which there is none, got 'c'"):
        with Circuit(2).when("c", 1):
            pass
    with pytest.raises(IndexError, match="qubit must be a number, but there is none to choose, got 0"):
        Circuit(0).x(0)
