"""Circuits made of many instructions at once."""

import numpy as np
import pytest

from velacamplix import Channel, Circuit, Condition, GateDefinition, Instruction, Parameter, Register


def everything():
    """One instruction of every kind."""
    x = Parameter("x")
    own = GateDefinition("own", Circuit(2).ry(x, 0).cx(0, 1))
    circuit = Circuit(4, 3).h(0).cx(0, 1).rx(x / 2, 1).ccx(0, 1, 2).rzz(0.5, 2, 3).gphase(0.25).x(0, controls=[1, 2], control_values="01")
    circuit.gate(own, [3, 0], [0.5]).matrix([[0, 1], [1, 0]], 2).diagonal([1, 1j], 3).barrier().reset(0)
    circuit.measure([0, 1], [2, 0]).if_((0, 1), Circuit(4, 3).x(2)).channel(Channel.depolarizing(0.1), 0).save_state("s")
    with circuit.when(0, 1):
        circuit.z(1)
    return circuit


def test_it_is_the_circuit_made_step_by_step():
    circuit = everything()
    made = Circuit.from_instructions(iter(circuit), 4, 3)
    assert made == circuit and made.parameters == ("x",) and type(made) is Circuit
    assert made.bind(x=0.5) == circuit.bind(x=0.5)
    made.x(0)
    assert len(made) == len(circuit) + 1 and Circuit.from_instructions([], 2).parameters == ()


def test_registers_and_classes_that_inherit():
    class Mine(Circuit):
        pass

    registers = [Register("a", "quantum", 0, 2), Register("b", "classical", 0, 1)]
    made = Mine.from_instructions([Instruction("X", (1,))], 2, 1, registers=registers)
    assert type(made) is Mine and made.registers == tuple(registers) and str(made) == "X 1"


def test_numbers_become_plain():
    given = [Instruction("RX", [np.int64(1)], [np.float32(0.5)]), Instruction("CNOT", np.array([1, 0]))]
    made = Circuit.from_instructions(given, 2)
    assert [type(q) for step in made for q in step.qubits + step.params] == [int, float, int, int]


WRONG = {
    "no instruction": ([("H", (0,))], TypeError, "must be (an|one) Instruction"),
    "a qubit that is not there": ([Instruction("H", (2,))], IndexError, "qubits"),
    "a negative qubit": ([Instruction("H", (-1,))], IndexError, "qubits"),
    "a qubit twice": ([Instruction("CNOT", (1, 1))], ValueError, "twice|distinct"),
    "a qubit that is a truth value": ([Instruction("CNOT", (0, True))], TypeError, "qubits"),
    "a qubit that is a float": ([Instruction("CNOT", (0, 1)), Instruction("CNOT", (0, 1.0))], TypeError, "qubits"),
    "an angle that is none": ([Instruction("RX", (0,), (float("nan"),))], ValueError, "finite"),
    "an infinite angle": ([Instruction("RX", (0,), (float("inf"),))], ValueError, "finite"),
    "a text for an angle": ([Instruction("RX", (0,), ("0.5",))], TypeError, "params"),
    "too few qubits": ([Instruction("CNOT", (0,))], ValueError, "must be 2"),
    "too many angles": ([Instruction("H", (0,), (0.5,))], ValueError, "params of H must be 0"),
    "an unknown name": ([Instruction("nothing", (0,))], ValueError, "name must be one of"),
    "a name that cannot be hashed": ([Instruction([], (0,))], ValueError, "name must be one of"),
    "a control that is a target": ([Instruction("X", (0,), controls=(0,))], ValueError, "controls"),
    "bits of a gate": ([Instruction("X", (0,), clbits=(0,))], ValueError, "clbits"),
    "a bit that is not there": ([Instruction("measure", (0,), clbits=(1,))], IndexError, "clbits"),
    "a condition that is none": ([Instruction("X", (0,), condition=3)], TypeError, "condition"),
    "a condition on a bit that is not there": ([Instruction("X", (0,), condition=Condition((1,), 1))], IndexError, "condition"),
    "a detail of a gate": ([Instruction("X", (0,), detail=3)], TypeError, "detail"),
    "values of no controls": ([Instruction("X", (0,), control_values="0")], ValueError, "control_values"),
}


@pytest.mark.parametrize("case", WRONG)
def test_what_is_wrong_is_refused_with_its_place_as_append_does(case):
    steps, kind, message = WRONG[case]
    place = len(steps)
    with pytest.raises(kind, match=rf"^instructions\[{place}\]: .*({message})"):
        Circuit.from_instructions([Instruction("H", (0,)), *steps], 2, 1)
    circuit = Circuit(2, 1)
    with pytest.raises(kind, match=message):
        for step in steps:
            circuit.append(step)


def test_arguments_that_are_no_instructions():
    with pytest.raises(TypeError, match="instructions must be"):
        Circuit.from_instructions("H", 2)
    with pytest.raises(TypeError, match="instructions must be"):
        Circuit.from_instructions(None, 2)
    with pytest.raises(ValueError, match="n_qubits"):
        Circuit.from_instructions([], -1)
