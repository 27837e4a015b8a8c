"""No text, however broken, deep or greedy, brings anything but a circuit or a QasmError."""

import random
import sys
import threading
import warnings
from pathlib import Path

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st
from qasm_texts import HEADER, random_program

from velacamplix.instructions.instruction import Instruction
from velacamplix.qasm import QasmError, read_qasm

EXAMPLES = {path.stem: path.read_text() for path in sorted((Path(__file__).parents[3] / "examples" / "circuits").glob("*.qasm"))}
DEEP = 10_000  # beyond Python's own limit of nested calls
LONG = 1_000_000


def attempt(text):
    """A circuit or a QasmError inside the text; everything else fails the test."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", UserWarning)  # of texts without a version
            return read_qasm(text, most_instructions=100_000)
    except QasmError as error:
        lines = text.split("\n")
        assert 1 <= error.line <= len(lines)
        assert 1 <= error.column <= len(lines[error.line - 1]) + 1
        assert len(str(error)) < 500
        return None


# --- Broken texts ---


@pytest.mark.parametrize("name", EXAMPLES)
def test_file_cut_anywhere(name):
    text = EXAMPLES[name]
    rng = random.Random(name)
    for _ in range(60):
        attempt(text[: rng.randrange(len(text))] + "\n")


@pytest.mark.parametrize("name", EXAMPLES)
def test_file_with_changed_characters(name):
    rng = random.Random(name)
    for _ in range(60):
        text = list(EXAMPLES[name])
        for _ in range(rng.randint(1, 4)):
            text[rng.randrange(len(text))] = rng.choice(";,()[]{}\"->=+-*/^ \n0129.eqxpi$\0é")
        attempt("".join(text))


@pytest.mark.parametrize("seed", range(60))
def test_program_with_exchanged_pieces(seed):
    rng = random.Random(seed)
    pieces = random_program(seed).split(" ")
    for _ in range(5):
        i, j = rng.randrange(len(pieces)), rng.randrange(len(pieces))
        pieces[i], pieces[j] = pieces[j], pieces[i]
    attempt(" ".join(pieces))


WORDS = [
    "OPENQASM", "2.0", "include", '"qelib1.inc"', "gate", "opaque", "qreg", "creg", "barrier", "if", "measure", "reset", "pi", "sin",
    "h", "cx", "rx", "u3", "q", "c", "a", "[", "]", "(", ")", "{", "}", ";", ",", "->", "==", "+", "-", "*", "/", "^", "0", "1", "3.5", "\n",
]  # fmt: skip


@settings(max_examples=300, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(st.sampled_from(WORDS), max_size=40))
def test_any_sequence_of_words(words):
    attempt(HEADER + "qreg q[2]; creg c[2];" + " ".join(words))


@settings(max_examples=300, deadline=None)
@given(st.text(max_size=60))
def test_any_text(text):
    attempt(text + ";")
    attempt(HEADER + text)


# --- Deep and long texts ---


NESTED = {
    "parentheses": lambda n: "(" * n + "1" + ")" * n,
    "signs and parentheses": lambda n: "-(" * n + "1" + ")" * n,
    "powers": lambda n: "1^" * n + "1",
    "functions": lambda n: "cos(" * n + "1" + ")" * n,
    "products": lambda n: "1" + "*(1" * n + ")" * n,
}


@pytest.mark.parametrize("name", NESTED)
def test_expressions_are_nested_up_to_a_limit(name):
    (step,) = read_qasm(HEADER + f"qreg q[1]; rx({NESTED[name](100)}) q[0];")
    # Of names an operation for each level.
    text = HEADER + f"gate g(a) x {{ rx({NESTED[name](100).replace('1', 'a')}) x; }} qreg q[1]; g(1) q[0];"
    (in_body,) = read_qasm(text).basic_instructions()
    assert in_body == step
    for n in (102, DEEP, LONG):
        with pytest.raises(QasmError, match="an expression may be nested at most 100 deep: take parentheses away") as caught:
            read_qasm(HEADER + f"qreg q[1];\nrx({NESTED[name](n)}) q[0];")
        assert caught.value.line == 4 and caught.value.column > 100


def test_operations_on_names_are_nested_up_to_a_limit():
    def text(n):
        return HEADER + f"gate g(a) x {{\nrx(a{'/a' * n}) x; }} qreg q[1]; g(1) q[0];"

    assert [step.params for step in read_qasm(text(100)).basic_instructions()] == [(1.0,)]
    with pytest.raises(QasmError, match="expression must be nested at most 100 deep") as caught:
        read_qasm(text(101))
    assert (caught.value.line, caught.value.column, caught.value.text) == (4, 5 + 2 * 100, "/")


def test_long_sums_and_products_do_not_nest():
    n = LONG // 20
    assert read_qasm(HEADER + f"qreg q[1]; rx({'-' * n}1) q[0];")[0].params == (1.0,)
    for sign in "+-*":
        text = HEADER + f"gate g(a) x {{ rx(a{f'{sign}a' * n}) x; }} qreg q[1]; g(1) q[0]; rx(1{f'{sign}1' * n}) q[0];"
        in_body, constant = read_qasm(text).basic_instructions()
        assert in_body == constant


def test_definitions_are_nested_up_to_a_limit():
    def text(n):
        return HEADER + "gate g0 x { h x; }\n" + "".join(f"gate g{i} x {{ g{i - 1} x; }}\n" for i in range(1, n)) + f"qreg q[1]; g{n - 1} q[0];"

    assert list(read_qasm(text(100)).basic_instructions()) == [Instruction("H", (0,))]
    with pytest.raises(QasmError, match="definitions must be nested at most 100 deep, 'g100' would be deeper") as caught:
        read_qasm(text(101))
    assert (caught.value.line, caught.value.column) == (103, 6)


def test_unclosed_parentheses_at_the_end():
    with pytest.raises(QasmError, match="unexpected end"):
        read_qasm(HEADER + "qreg q[1]; rx(" + "(" * 100)


LINES = {
    "many calls": "x q[0];" * (LONG // 50),
    "one name": "a" * LONG + " q[0];",
    "blanks in a call": "x" + " " * LONG + "q[0]" + " " * LONG + ";",
    "blanks in an unfinished call": "x" + " " * LONG + "q[0]" + " " * LONG,
    "blanks around a fraction": "rx(" + " " * LONG + "pi" + " " * LONG + "/" + " " * LONG + "2" + " " * LONG + ")" + " " * LONG,
    "digits": "rx(1" + "0" * LONG + ") q[0];",
    "digits without end": "rx(" + "1" * LONG + "." + "1" * LONG + "e" + "1" * LONG,
    "digits of an index": "x q[" + "1" * LONG + "];",
    "arguments": "cx " + "q[0]," * (LONG // 50) + "q[1];",
    "arguments without end": "cx q[0]" + ",q[0]" * (LONG // 50),
    "parameters": "rx(" + "1," * (LONG // 50) + "1) q[0];",
    "parameters without end": "rx(" + "1," * (LONG // 50),
    "calls that never close": "rx(1)a" * (LONG // 6),
    "a comment": "//" + "x" * LONG,
    "a quote without end": 'include "' + "a" * LONG,
    "semicolons": ";" * (LONG // 10),
    "closing parentheses": "rx(" + ") a," * (LONG // 4),
    "opening parentheses": "rx" + "(" * LONG,
    "signs": "rx(" + "-" * LONG + "1) q[0];",
    "functions": "rx(" + "sin(" * (LONG // 4) + "1" + ")" * (LONG // 4) + ") q[0];",
    "a long sum in a body": "gate g(a) x { rx(" + "a+" * (LONG // 4) + "b) x; }",
    "names of a gate's qubits": "gate g " + "a," * (LONG // 2),
    "a body that never closes": "gate g a {" + "h a;" * (LONG // 10),
    "line ends": "cx q[0]" + "\n" * LONG + "," + "\r\n" * LONG + "q[1]" + "\f" * LONG,
    "blanks in a condition": "if(" + " " * LONG + "c" + " " * LONG + "==" + " " * LONG + "1" + " " * LONG,
    "slashes": "/ /" * (LONG // 3),
    "quotes": '"' * LONG,
    "many qubits, the last twice": "qreg r[100000]; h " + ",".join(f"r[{i}]" for i in range(100_000)) + ",r[99999];",
}


@pytest.mark.parametrize("case", LINES)
def test_line_of_a_million_characters(case):
    # Patterns that go back and forth over a line would take hours here.
    attempt(HEADER + "qreg q[2];\n" + LINES[case])


# --- Greedy texts ---


def doubled(depth, innermost):
    return f"gate g0 x {{ {innermost} }}\n" + "".join(f"gate g{i} x {{ g{i - 1} x; g{i - 1} x; }}\n" for i in range(1, depth + 1))


@pytest.mark.parametrize("innermost", ["h x;", ""], ids=["gates", "empty bodies"])
@pytest.mark.parametrize("depth", [30, 99])
def test_expansion_without_measure_is_refused_before_it_begins(depth, innermost):
    text = HEADER + doubled(depth, innermost) + f"qreg q[1];\ng{depth} q[0];"
    with pytest.raises(QasmError, match="expands to more than 10000000 instructions") as caught:
        read_qasm(text)
    assert caught.value.text == f"g{depth}"


def test_definitions_that_are_not_used_cost_nothing():
    circuit = read_qasm(HEADER + doubled(99, "h x;") + "qreg q[1]; g3 q[0];")
    assert len(circuit) == 1 and len(list(circuit.basic_instructions())) == 8


def test_limit_of_instructions_is_exact_for_library_gates():
    text = HEADER + "qreg q[10]; h q; h q;"
    assert len(read_qasm(text, most_instructions=20)) == 20
    with pytest.raises(QasmError, match="more than 19 instructions"):
        read_qasm(text, most_instructions=19)


@pytest.mark.parametrize("statement", ["h q;", "reset q;", "measure q -> c;", "barrier q;", "barrier q, q;", "cx q[0], r;"])
def test_every_statement_on_registers_counts(statement):
    text = HEADER + "qreg q[1000]; creg c[1000]; qreg r[1000];" + statement * 11
    with pytest.raises(QasmError, match="more than 10000 instructions"):
        read_qasm(text, most_instructions=10_000)


def test_many_conditions_on_a_large_register_share_its_bits():
    circuit = read_qasm(HEADER + "qreg q[1]; creg c[1000000];" + "if(c==1) x q[0];" * 100)
    assert len(circuit) == 100
    assert circuit[0].condition.clbits is circuit[99].condition.clbits


# --- What was found ---

FOUND = {
    "a reset of no qubits": "qreg q[0];reset q;tt q;t q;",
    "a reset of no qubits, and nothing else wrong": "qreg q[0]; reset q; reset q;",
    "the same without a header": "/qreg q[0];reset q;tt q;t q;",
    "a measurement of no qubits": "qreg q[0]; creg c[0]; measure q->c;",
    "a gate, a barrier and a condition on nothing": "qreg q[0]; creg c[0]; h q; barrier q; if(c==0) reset q;",
}


@pytest.mark.parametrize("name", FOUND)
def test_found_by_fuzzing(name):
    for text in (FOUND[name], HEADER + FOUND[name], FOUND[name] + "\n", HEADER + FOUND[name] + "\n"):
        circuit = attempt(text)
        assert circuit is None or read_qasm(circuit.to_qasm()) == circuit


def test_registers_without_bits():
    circuit = read_qasm(HEADER + "qreg q[0]; creg c[0]; reset q; measure q -> c; h q; if(c==0) reset q;")
    assert len(circuit) == 0 and [register.size for register in circuit.registers] == [0, 0]


# --- Side effects ---


def test_reading_leaves_the_recursion_limit_alone():
    before = sys.getrecursionlimit()
    read_qasm(HEADER + "qreg q[1]; rx(" + "(" * 100 + "1" + ")" * 100 + ") q[0];")
    assert sys.getrecursionlimit() == before


def test_threads_read_at_the_same_time():
    expected = {name: read_qasm(text) for name, text in EXAMPLES.items()}
    wrong = []

    def work():
        for name, text in EXAMPLES.items():
            if read_qasm(text) != expected[name]:
                wrong.append(name)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


def test_a_large_file_keeps_order_and_angles():
    rng = random.Random(1)
    rows = [(rng.uniform(-3, 3), *rng.sample(range(20), 2)) for _ in range(20_000)]
    text = "".join(f"rz({angle}) q[{a}];\ncx q[{a}], q[{b}];\n" for angle, a, b in rows)
    circuit = read_qasm(HEADER + "qreg q[20];\n" + text)
    expected = [step for angle, a, b in rows for step in (("RZ", (a,), (angle,)), ("CNOT", (a, b), ()))]
    assert [(step.name, step.qubits, step.params) for step in circuit] == expected
