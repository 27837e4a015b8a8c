"""What a correct OpenQASM 2 program means."""

import math
import re
from pathlib import Path

import pytest
from qasm_texts import HEADER, random_program

from velacamplix import Circuit
from velacamplix.instructions.instruction import Condition, Instruction, Register
from velacamplix.qasm import read_qasm

EXAMPLES = sorted((Path(__file__).parents[3] / "examples" / "circuits").glob("*.qasm"))


def steps(text):
    """Name and numbers of each basic instruction of a program with qelib1."""
    return [str(step) for step in read_qasm(HEADER + text).basic_instructions()]


# --- Parameters ---

EXPRESSIONS = {
    "0.5": 0.5,
    ".5": 0.5,
    "2.": 2.0,
    "7": 7.0,
    "1e-3": 0.001,
    "1.5E+2": 150.0,
    ".5e1": 5.0,
    "pi": math.pi,
    "-pi": -math.pi,
    "- pi/2": -math.pi / 2,
    "3*pi/4": 3 * math.pi / 4,
    "-3 * pi / 4": -3 * math.pi / 4,
    "pi*0.25": math.pi * 0.25,
    "pi*-0.25": math.pi * -0.25,
    "0.1*pi": 0.1 * math.pi,
    "1/2": 0.5,
    "7-3-2": 2.0,
    "7-(3-2)": 6.0,
    "8/4/2": 1.0,
    "2*3^2": 18.0,
    "2^3^2": 512.0,
    "(2^3)^2": 64.0,
    "2^-1": 0.5,
    "-2^2": -4.0,
    "(-2)^2": 4.0,
    "-2*-3": 6.0,
    "--1": 1.0,
    "+1": 1.0,
    "1+2*3": 7.0,
    "(1+2)*3": 9.0,
    "sin(pi/2)": 1.0,
    "cos(0)": 1.0,
    "tan(0.5)": math.tan(0.5),
    "exp(1)": math.e,
    "ln(2)": math.log(2),
    "sqrt(2)": math.sqrt(2),
    "sin(cos(tan(0.3)))": math.sin(math.cos(math.tan(0.3))),
    "-sin(1)^2": -(math.sin(1) ** 2),
    "((((3))))": 3.0,
    "1e308": 1e308,
    "0": 0.0,
}


@pytest.mark.parametrize("text", EXPRESSIONS)
def test_value_of_an_expression(text):
    (step,) = read_qasm(HEADER + f"qreg q[1]; rx({text}) q[0];")
    assert step.params == (EXPRESSIONS[text],)


@pytest.mark.parametrize("text", EXPRESSIONS)
def test_value_of_an_expression_in_a_gate_body(text):
    # `a` is 0 and keeps the expression from being folded when it is read.
    (step,) = read_qasm(HEADER + f"gate g(a) x {{ rx(({text})+a) x; }} qreg q[1]; g(0) q[0];").basic_instructions()
    assert step.params == (EXPRESSIONS[text] + 0.0,)


LATER_EXPRESSIONS = {"asin(0.5)": math.asin(0.5), "acos(-1)": math.pi, "-2*atan(1e9)": -2 * math.atan(1e9), "sin(asin(1/3))": math.sin(math.asin(1 / 3))}


@pytest.mark.parametrize("text", LATER_EXPRESSIONS)
def test_functions_that_other_readers_know_too(text):
    wanted = LATER_EXPRESSIONS[text]
    assert read_qasm(HEADER + f"qreg q[1]; rx({text}) q[0];")[0].params == (wanted,)
    (step,) = read_qasm(HEADER + f"gate g(a) x {{ rx(({text})+a) x; }} qreg q[1]; g(0) q[0];").basic_instructions()
    assert step.params == (wanted,)
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = qasm2.loads(HEADER + f"qreg q[1]; rx({text}) q[0];", custom_classical=qasm2.LEGACY_CUSTOM_CLASSICAL)
    assert circuit.data[0].operation.params[0] == pytest.approx(wanted, rel=1e-15)


def test_names_of_later_functions_are_free():
    text = "gate acos(asin) atan { rx(asin(asin)-asin) atan; } qreg asin[1]; acos(0.5) asin[0];"
    (step,) = read_qasm(HEADER + text).basic_instructions()
    assert step.params == (math.asin(0.5) - 0.5,)


def test_later_functions_come_back():
    text = HEADER + "gate g(a) x { rx(asin(a)*acos(a/2)-atan(-a)) x; } qreg q[1]; g(0.5) q[0];"
    circuit = read_qasm(text)
    assert read_qasm(circuit.to_qasm()) == circuit


@pytest.mark.parametrize("text", EXPRESSIONS)
def test_qiskit_gives_the_same_value(text):
    qasm2 = pytest.importorskip("qiskit.qasm2", reason="compares with Qiskit: pip install velacamplix[test]")
    circuit = qasm2.loads(HEADER + f"qreg q[1]; rx({text}) q[0];")
    assert circuit.data[0].operation.params[0] == pytest.approx(EXPRESSIONS[text], rel=1e-15)


def test_parameters_of_nested_gates():
    text = """
        gate inner(a, b) x { rx(a/b) x; rz(-a^2) x; }
        gate outer(a) x, y { inner(2*a, a+1) y; inner(sin(a), 3) x; }
        qreg q[2];
        outer(0.5) q[1], q[0];
    """
    assert [(step.name, step.qubits, step.params) for step in read_qasm(HEADER + text).basic_instructions()] == [
        ("RX", (0,), (1 / 1.5,)),
        ("RZ", (0,), (-1.0,)),
        ("RX", (1,), (math.sin(0.5) / 3,)),
        ("RZ", (1,), (-(math.sin(0.5) ** 2),)),
    ]


# --- Gates ---


def test_gate_definition_without_parameters_in_all_spellings():
    text = "gate g a { x a; } gate h2() a { h a; } gate none a, b { } qreg q[2]; g q[0]; g() q[0]; h2 q[1]; h2() q[1]; none q[0], q[1];"
    assert steps(text) == ["X 0", "X 0", "H 1", "H 1"]


def test_formal_names_may_repeat_those_of_registers_and_gates():
    assert steps("qreg a[2]; gate g(b) a, h { rx(b) a; cx h, a; } g(1) a[0], a[1];") == ["RX(1) 0", "CNOT 1,0"]


def test_barrier_in_a_gate_body_covers_its_qubits():
    assert steps("gate g a, b { x a; barrier b, a, b; x b; } qreg q[3]; g q[2], q[0];") == ["X 2", "barrier 0,2", "X 0"]


def test_a_gate_that_came_later_into_qelib1_may_be_defined_anew():
    text = "gate rzz(a) x, y { cx x, y; u1(a) y; cx x, y; } qreg q[2]; rzz(0.5) q[0], q[1];"
    assert steps(text) == ["CNOT 0,1", "PH(0.5) 1", "CNOT 0,1"]


def test_a_new_definition_does_not_change_earlier_uses():
    text = "qreg q[2]; gate old a, b { swap a, b; } swap q[0], q[1]; gate swap a, b { x a; } swap q[0], q[1]; old q[0], q[1];"
    assert steps(text) == ["SWAP 0,1", "X 0", "SWAP 0,1"]


def test_a_register_may_have_the_name_of_a_gate_that_came_later():
    assert steps("qreg p[1]; qreg u[1]; cx p[0], u[0];") == ["CNOT 0,1"]


def test_own_gates_have_names_of_their_own():
    text = "OPENQASM 2.0; gate h a { U(0,0,pi) a; } gate h_gate a { h a; h a; } gate x a { h_gate a; } qreg q[1]; h q[0]; h_gate q[0]; x q[0];"
    circuit = read_qasm(text)
    assert [step.name for step in circuit] == ["h_gate", "h_gate_gate", "x_gate"]
    assert circuit[0].definition != circuit[1].definition and len({step.definition for step in circuit}) == 3
    assert [step.name for step in circuit.basic_instructions()] == ["matrix"] * 5
    assert read_qasm(circuit.to_qasm()) == circuit


def test_own_gates_without_the_include():
    text = "OPENQASM 2.0; gate h a { U(pi/2, 0, pi) a; } gate cx a, b { CX a, b; } qreg q[2]; h q[0]; cx q[0], q[1];"
    circuit = read_qasm(text)
    assert [step.name for step in circuit] == ["h_gate", "cx_gate"]  # so that nobody takes them for the package's
    assert [step.name for step in circuit.basic_instructions()] == ["matrix", "CNOT"]


def test_the_include_may_come_late_and_twice():
    text = 'OPENQASM 2.0; qreg q[1]; U(0, 0, 0) q[0]; include "qelib1.inc"; h q[0]; include "qelib1.inc"; h q[0];'
    assert [step.name for step in read_qasm(text)] == ["u", "H", "H"]


def test_opaque_gate_may_be_declared_and_left_unused():
    assert steps("opaque magic(a, b) x, y; opaque other x; gate uses x { other x; } qreg q[1]; x q;") == ["X 0"]


def test_definitions_are_kept():
    circuit = read_qasm(HEADER + "gate turn(a) x { rx(a/2) x; } gate pair(a) x, y { turn(-a) y; cx x, y; } qreg q[3]; pair(0.5) q[2], q[0];")
    (step,) = circuit
    assert (step.name, step.qubits, step.params) == ("pair", (2, 0), (0.5,))
    pair = step.definition
    assert (pair.name, pair.params, pair.n_qubits) == ("pair", ("a",), 2)
    assert [str(inner) for inner in pair.body] == ["turn(-a) 1", "CNOT 0,1"]
    assert [str(inner) for inner in pair.body[0].definition.body] == ["RX(a/2) 0"]


# --- Registers and broadcasting ---


def test_registers_are_numbered_in_order_of_declaration():
    circuit = read_qasm(HEADER + "qreg a[2]; creg m[1]; qreg b[3]; creg n[2]; x b[0]; measure a[1] -> n[1];")
    assert (circuit.n_qubits, circuit.n_clbits) == (5, 3)
    assert circuit.registers == (
        Register("a", "quantum", 0, 2),
        Register("m", "classical", 0, 1),
        Register("b", "quantum", 2, 3),
        Register("n", "classical", 1, 2),
    )
    assert [str(step) for step in circuit] == ["X 2", "measure 1 -> 2"]


def test_a_gate_on_a_register_is_applied_to_each_element():
    assert steps("qreg q[3]; h q;") == ["H 0", "H 1", "H 2"]


def test_two_registers_go_element_by_element():
    assert steps("qreg a[2]; qreg b[2]; cx a, b;") == ["CNOT 0,2", "CNOT 1,3"]


def test_a_single_qubit_is_used_with_every_element():
    assert steps("qreg a[2]; qreg b[2]; cx a[1], b; ccx b, a[0], a[1];") == [
        "CNOT 1,2", "CNOT 1,3", "CCNOT 2,0,1", "CCNOT 3,0,1",
    ]  # fmt: skip


def test_own_gate_on_registers_is_expanded_element_by_element():
    assert steps("gate g x, y { h x; cx x, y; } qreg a[2]; qreg b[2]; g a, b;") == ["H 0", "CNOT 0,2", "H 1", "CNOT 1,3"]


def test_an_empty_register_is_no_work():
    assert steps("qreg none[0]; qreg q[1]; h none; x q;") == ["X 0"]


def test_measure_of_registers_is_one_instruction():
    circuit = read_qasm(HEADER + "qreg q[3]; creg c[3]; measure q -> c; measure q[0] -> c[2];")
    assert list(circuit) == [Instruction("measure", (0, 1, 2), clbits=(0, 1, 2)), Instruction("measure", (0,), clbits=(2,))]


def test_reset_and_barrier():
    assert steps("qreg q[2]; qreg r[2]; reset q; reset r[1]; barrier r, q[1]; barrier q, q[0];") == [
        "reset 0,1", "reset 3", "barrier 2,3,1", "barrier 0,1",
    ]  # fmt: skip


def test_condition_reads_the_register_lowest_bit_first():
    (step,) = read_qasm(HEADER + "qreg q[1]; creg a[1]; creg c[3]; if (c == 6) x q[0];")
    assert step == Instruction("X", (0,), condition=Condition((1, 2, 3), 6))


def test_condition_covers_every_instruction_of_an_expansion():
    text = "gate g a, b { h a; barrier a, b; cx a, b; } qreg q[2]; creg c[1]; if(c==1) g q[0], q[1]; x q[0];"
    circuit = read_qasm(HEADER + text)
    yes = Condition((0,), 1)
    assert [(step.name, step.condition) for step in circuit] == [("g", yes), ("X", None)]
    assert [(step.name, step.condition) for step in circuit.basic_instructions()] == [("H", yes), ("barrier", None), ("CNOT", yes), ("X", None)]


def test_conditional_measure_and_reset():
    circuit = read_qasm(HEADER + "qreg q[2]; creg c[2]; if(c==0) measure q -> c; if(c==3) reset q;")
    assert list(circuit) == [
        Instruction("measure", (0, 1), clbits=(0, 1), condition=Condition((0, 1), 0)),
        Instruction("reset", (0, 1), condition=Condition((0, 1), 3)),
    ]


def test_the_same_program_built_by_hand_is_equal():
    text = HEADER + "qreg q[2]; creg c[2]; h q[0]; cx q[0], q[1]; barrier q; measure q -> c; if(c==3) x q[1];"
    circuit = Circuit(2, 2).h(0).cx(0, 1).barrier().measure([0, 1], [0, 1])
    with circuit.when("c", 3):
        circuit.x(1)
    assert read_qasm(text) == circuit


# --- Layout of the text ---

TOKENS = re.compile(r'"[^"]*"|->|==|[A-Za-z_]\w*|(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?|[^\s]')


def spread(text, blank):
    """The same tokens with `blank` between all of them."""
    return blank.join(TOKENS.findall(re.sub("//.*", "", text)))


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
@pytest.mark.parametrize("blank", ["\n", "\t ", " // comment; x q[0];\n", "\r\n\f"], ids=repr)
def test_layout_does_not_change_an_example(path, blank):
    text = path.read_text()
    assert read_qasm(spread(text, blank)) == read_qasm(text)


@pytest.mark.parametrize("seed", range(10))
def test_layout_does_not_change_a_random_program(seed):
    text = random_program(seed)
    assert read_qasm(spread(text, "\n")) == read_qasm(text)
    assert read_qasm(re.sub(r"\s+", " ", text)) == read_qasm(text)


def test_no_blanks_where_none_are_needed():
    assert steps("qreg q[2];creg c[2];rx(.5)q[0];cx q[0],q[1];measure q->c;if(c==1)x q;") == [
        "RX(0.5) 0", "CNOT 0,1", "measure 0,1 -> 0,1", 'X 0 if c[0, 1] == "10"', 'X 1 if c[0, 1] == "10"',
    ]  # fmt: skip


def test_empty_statements_are_passed_over():
    assert steps(";; qreg q[1];; gate g a { x a; }; g q;;") == ["X 0"]


def test_names_that_begin_like_keywords():
    text = "qreg if_[1]; qreg pivot[1]; creg measured[1]; gate resetting a { x a; } gate sine(pie) a { rx(pie) a; } gate u1x a { y a; }"
    text += "resetting if_; sine(1) pivot; u1x if_; barrier if_; if(measured==1) resetting pivot;"
    assert steps(text) == ["X 0", "RX(1) 1", "Y 0", "barrier 0", "X 1 if c[0] == 1"]


def test_long_names_and_long_lines():
    name = "a" * 100_000
    text = f"gate {name} x {{ x x; }} qreg q[1];" + f"{name} q[0];" * 20
    assert steps(text) == ["X 0"] * 20


def test_version_without_a_fraction():
    assert len(read_qasm("OPENQASM 2; qreg q[1]; U(0,0,0) q[0];")) == 1


def test_large_calls_without_parameters_share_their_instructions():
    # 200,000 gates would need much more memory if each were its own object.
    circuit = read_qasm(HEADER + "qreg q[2];" + "cx q[0], q[1];" * 3)
    assert circuit[0] is circuit[1] is circuit[2]


def test_a_body_without_a_value_is_told_when_it_runs():
    from velacamplix import run

    text = "gate g(a) x { rx(1/a) x; } gate around(a) x { g(2*a) x; } qreg q[1]; around(0) q[0];"
    circuit = read_qasm(HEADER + text)
    with pytest.raises(ValueError, match=r"division by zero in .*, in gate 'g' called with \(0\)"):
        run(circuit)
    with pytest.raises(ValueError, match=r"number too large in .*, in gate 'g' called with"):
        run(read_qasm(HEADER + text.replace("around(0)", "around(0.5e-320)")))
