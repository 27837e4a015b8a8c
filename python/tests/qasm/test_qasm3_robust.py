"""No OpenQASM 3 text, however broken, deep or greedy, brings anything but a circuit or a QasmError."""

import random
import re

import pytest
import small_stacks
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from velacamplix import Circuit, QasmError
from velacamplix.qasm.reader import version_of

HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
LONG = 100_000

PROGRAM = """
    input float theta; const uint n = 3; qubit[n] q; bit[n] c; bit d; int sum = 0;
    gate twist(a, b) x, y { rx(a / 2) x; ctrl @ inv @ sx x, y; gphase(b); for int k in [1:2] { pow(k) @ s y; } }
    let ends = q[0] ++ q[{2}];
    for int i in [0:n - 1] { h q[i]; sum += i; if (sum > 2) { break; } }
    twist(theta ** 2, -pi / 4) q[0], q[1:2]; negctrl(2) @ x ends[0], ends[1], q[1]; barrier q; delay[2 * 10ns] q[0];
    c = measure q; d = measure ends[1];
    if (c[0] && !d || c == "011") { x q[0]; } else if (uint(c) >= 2) { reset q[1]; while (!c[1]) { h q[1]; c[1] = measure q[1]; } }
    switch (int(c[0:1])) { case 0, 0b11 { y q[0]; } default { switch (sum) { case 3 { z q[2]; } } } }
    if (d) p(sin(theta) * 2) q[1];
"""


def attempt(text):
    """A circuit that comes back, or a QasmError inside the text; everything else fails the test."""
    text += "\n"  # or it might be a file's name
    try:
        circuit = Circuit.from_qasm3(text, most_instructions=2000)
    except QasmError as error:
        lines = text.split("\n")
        assert 1 <= error.line <= len(lines)
        assert 1 <= error.column <= len(lines[error.line - 1]) + 1
        assert len(str(error)) < 500
        return None
    try:
        written = circuit.to_qasm3()
    except ValueError as error:
        assert "cannot be written in OpenQASM 3" in str(error)
    else:
        assert Circuit.from_qasm3(written) == circuit
    return circuit


def test_the_program_is_read():
    circuit = attempt(HEADER + PROGRAM)
    assert circuit.parameters == ("theta",) and circuit.n_qubits == 3 and len(circuit) == 12


def test_program_cut_anywhere():
    for end in range(0, len(PROGRAM), 7):
        attempt(HEADER + PROGRAM[:end])


@pytest.mark.parametrize("seed", range(10))
def test_program_with_changed_words(seed):
    rng = random.Random(seed)
    words = re.findall(r"\w+|\s+|[^\w\s]", PROGRAM)
    others = [word for word in words if not word.isspace()] + ["def", "0", "-1", "2.5", "$0", '"', "/*", "@", "1e999", "\0", "é", "**", "++"]
    read = 0
    for _ in range(60):
        changed = list(words)
        for _ in range(rng.randint(1, 2)):
            place = rng.randrange(len(changed))
            same = [word for word in others if word.isdigit() == changed[place].isdigit() and word.isalnum() == changed[place].isalnum()]
            changed[place] = rng.choice(same or others)
        read += attempt(HEADER + "".join(changed)) is not None
    assert read


WORDS = sorted(set(re.findall(r"\w+|[^\w\s]", PROGRAM))) + ["def", "$1", "end;", "\n", "{ }", "= measure q;", "h q[0];", "/* */", "//"]


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(st.sampled_from(WORDS), max_size=30))
def test_any_sequence_of_words(words):
    attempt(HEADER + "qubit[2] q; bit[2] c; " + " ".join(words))


@settings(max_examples=150, deadline=None)
@given(st.text(max_size=60))
def test_any_text(text):
    attempt(text)
    attempt(HEADER + text)


LINES = {
    "one name": "a" * LONG + " q;",
    "blanks": "x" + " " * LONG + "q" + "\n" * LONG + ";",
    "digits": "rx(1" + "0" * LONG + ") q;",
    "a fraction": "rx(0." + "1" * LONG + ") q;",
    "digits in another base": "int n = 0x" + "f" * LONG + ";",
    "underscores": "int n = 1" + "_" * LONG + "1;",
    "bits": 'const bit[8] b = "' + "01" * LONG + '";',
    "digits of an index": "x q[" + "1" * LONG + "];",
    "a power": "rx(2 ** 2 ** 2 ** 2 ** 2 ** 2 ** 2) q;",
    "arguments": "barrier " + "q," * (LONG // 10) + "q;",
    "parentheses": "rx(" + "(" * LONG,
    "signs": "rx(" + "-" * LONG + "1) q;",
    "braces": "{" * LONG,
    "brackets": "x q" + "[0]" * 5000 + ";",
    "a comment without end": "/*" + " *" * LONG,
    "a comment": "/*" + "* /" * LONG + "*/",
    "comments without end": "/* " * LONG,
    "slashes": "/" * LONG,
    "a quote without end": 'include "' + "a" * LONG,
    "semicolons": ";" * LONG,
    "a long sum": "rx(" + "1+" * (LONG // 10) + "1) q;",
    "a long open sum": "input float t; rx(" + "t-" * (LONG // 10) + "t) q;",
    "a long condition": "bit c; if (" + "c || " * 20_000 + "c) { }",
    "a chain of else": "int n = 0; " + "if (n == 1) { } else " * 3000 + "{ }",
    "modifiers": "inv @ " * 10_000 + "x q;",
    "controls": "ctrl @ " * 10_000 + "x q;",
    "a loop without end": "while (true) { }",
    "a loop that picks many bits": "qubit[1000000] r; while (true) { let a = r[1:-1]; }",
    "a loop with long texts": 'while ("' + "01" * LONG + '" != "0") { }',
    "places of a shift": "int n = 1 << 2 ** 100;",
    "a loop over everything": "for int i in [0:2 ** 62] { for int j in [0:i] { } }",
    "values of a loop": "for int i in {" + "1, " * (LONG // 10) + "1} { }",
    "a case of many values": "bit[2] c; switch (c) { case " + "0, " * (LONG // 10) + "1 { } }",
    "hardware": "x $" + "9" * LONG + ";",
    "a version": "OPENQASM 3." + "0" * LONG + ";",
}


@pytest.mark.parametrize("case", LINES)
def test_long_lines(case):
    attempt(HEADER + "qubit q;\n" + LINES[case])
    attempt(LINES[case])


def test_the_version_is_found_at_once():
    for front in ("", "/" * LONG + "\n", "/**/" * LONG, "/* // \n */ // /*\n", " \t\n" * LONG):
        assert version_of(front + "OPENQASM 3.0;") == 3
        assert version_of(front + "OPENQASM 2.0;") == version_of(front + "qreg q[1];") == version_of(front + "/*") == 2


@pytest.mark.parametrize("where", small_stacks.WHERE)
def test_deep_programs_are_read_everywhere(where):
    def work():
        gates = "".join(f"gate g{i}(t) a {{ g{i - 1}({'(' * 50}t{')' * 50}) a; }}\n" for i in range(1, 100))
        body = "if (c) {" * 45 + "g99(" + "-(" * 95 + "1.5" + ")" * 95 + ") q; c = measure q;" + "}" * 45
        circuit = Circuit.from_qasm3(HEADER + "gate g0(t) a { rx(t) a; }\n" + gates + "qubit q; bit c; " + body)
        return Circuit.from_qasm3(circuit.to_qasm3()) == circuit

    assert where(work)
