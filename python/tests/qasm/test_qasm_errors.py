"""Every mistake in a program is a QasmError that tells what and where."""

import pickle

import pytest
from qasm_texts import HEADER

from velacamplix import Circuit
from velacamplix.qasm import QasmError, read_qasm

# The mistake stands in the third line, at the mark `@`, which is taken out.
MISTAKES = {
    # characters
    "stray character": ("qreg q[1]; @$ x q[0];", r"unexpected character '\$'", "$"),
    "letter of another alphabet": ("qreg q[1]; @ä q[0];", "unexpected character 'ä'", "ä"),
    "name with a capital": ("qreg @Q[1];", "unexpected character 'Q', expected a name", "Q"),
    "name with an underscore in front": ("qreg @_q[1];", "unexpected character '_', expected a name", "_"),
    "number with an underscore": ("qreg q[1]; rx(1@_0) q[0];", "unexpected character '_'", "_"),
    "index with leading zeros": ("qreg q[9]; x q[@007];", "a number has no leading zeros", "007"),
    "size with a leading zero": ("qreg q[@01];", "a number has no leading zeros", "01"),
    "condition with a leading zero": ("qreg q[1]; creg c[2]; if(c==@01) x q;", "a number has no leading zeros", "01"),
    "angle with leading zeros": ("qreg q[1]; rx(@007) q[0];", "a number has no leading zeros", "007"),
    "fraction with a leading zero": ("qreg q[1]; u2(1, -@00.5) q[0];", "a number has no leading zeros", "00.5"),
    "leading zero in an expression": ("gate g(a) x { rx(a+@01) x; }", "a number has no leading zeros", "01"),
    "an angle without a real value": ("qreg q[1]; rx(@asin(2)) q[0];", "asin of 2 is not a real number", "asin"),
    "a later function without parentheses": ("qreg q[1]; rx(@atan) q[0];", "unknown parameter 'atan'", "atan"),
    "unclosed file name": ('include @"qelib1.inc;', "expected a file name in quotes", '"'),
    # syntax
    "missing semicolon": ("qreg q[1]; h q[0]\n@h q[0];", "expected ',' or ';'", "h"),
    "missing comma": ("qreg q[2]; cx q[0] @q[1];", "expected ',' or ';'", "q"),
    "comma at the end": ("qreg q[2]; cx q[0], q[1],@;", "expected a name", ";"),
    "missing argument": ("qreg q[2]; h@;", r"expected '\(' or a name", ";"),
    "missing bracket": ("qreg q[2@;", "expected ']'", ";"),
    "missing index": ("qreg q[2]; h q[@];", "expected an integer", "]"),
    "index that is a name": ("qreg q[2]; h q[@a];", "expected an integer", "a"),
    "negative index": ("qreg q[2]; h q[@-1];", "expected an integer", "-"),
    "empty parameter": ("qreg q[1]; rx(1, @) q[0];", "a number", ")"),
    "operator without operand": ("qreg q[1]; rx(1 + @) q[0];", "a number", ")"),
    "two operands": ("qreg q[1]; rx(1 @pi) q[0];", "expected", "pi"),
    "function without parentheses": ("qreg q[1]; rx(sin @pi) q[0];", r"expected '\('", "pi"),
    "function with two operands": ("qreg q[1]; rx(sin(1@,2)) q[0];", "expected", ","),
    "unclosed parenthesis": ("qreg q[1]; rx((1) @q[0];", r"expected '\)'", "q"),
    "gate without qubits": ("gate g @{ }", "expected", "{"),
    "gate inside a gate": ("gate g a { @gate h2 b { } }", "gate is a reserved word", "gate"),
    "measure inside a gate": ("gate g a { @measure a -> b; }", "measure is a reserved word", "measure"),
    "opaque with a body": ("opaque o a @{ }", "expected ';'", "{"),
    "barrier of nothing": ("barrier@;", "expected a name", ";"),
    "condition on a barrier": ("qreg q[1]; creg c[1]; if(c==1) @barrier q;", "barrier is a reserved word", "barrier"),
    "condition on an index": ("qreg q[1]; creg c[1]; if(c@[0]==1) x q;", "expected '=='", "["),
    "condition with one equals sign": ("qreg q[1]; creg c[1]; if(c@=1) x q;", "unexpected character '='", "="),
    "measure without arrow": ("qreg q[1]; creg c[1]; measure q @c;", "expected '->'", "c"),
    "header in the middle": ("@OPENQASM 2.0;", "unexpected text", "OPENQASM"),
    "reserved word as register": ("qreg @pi[2];", "pi is a reserved word", "pi"),
    "reserved word as gate": ("gate @if a { }", "if is a reserved word", "if"),
    "reserved word as parameter": ("gate g(@sin) a { }", "sin is a reserved word", "sin"),
    "reserved word as qubit": ("gate g(a) @creg { }", "creg is a reserved word", "creg"),
    "reserved word as operand": ("@sin q[0];", "sin is a reserved word", "sin"),
    # names
    "unknown gate": ("qreg q[1]; @foo q[0];", "unknown gate 'foo'", "foo"),
    "unknown gate in a body": ("gate g a { @foo a; }", "unknown gate 'foo'", "foo"),
    "gate used before its declaration": ("gate g a { @later a; } gate later a { x a; }", "unknown gate 'later'", "later"),
    "gate that calls itself": ("gate g a { x a; @g a; }", "'g' is used in its own definition", "g"),
    "unknown register": ("qreg q[1]; h @r[0];", "unknown register 'r'", "r"),
    "unknown register as a whole": ("barrier @r;", "unknown register 'r'", "r"),
    "unknown qubit in a body": ("gate g a { x @b; }", "unknown qubit 'b'", "b"),
    "global register in a body": ("qreg q[1]; gate g a { x @q; }", "unknown qubit 'q'", "q"),
    "index in a body": ("gate g a { x @a[0]; }", "has no index", "a"),
    "unknown parameter": ("gate g(a) x { rx(a+@b) x; }", "unknown parameter 'b'; known: a", "b"),
    "parameter outside of a gate": ("qreg q[1]; rx(@theta) q[0];", "unknown parameter 'theta'; known: none here", "theta"),
    "infinity is no number": ("qreg q[1]; rx(@inf) q[0];", "unknown parameter 'inf'", "inf"),
    "nan is no number": ("qreg q[1]; rx(-@nan) q[0];", "unknown parameter 'nan'", "nan"),
    "register declared twice": ("qreg q[1]; creg @q[1];", "'q' is already declared", "q"),
    "gate declared twice": ("gate g a { } gate @g a { }", "'g' is already declared", "g"),
    "gate of qelib1 declared again": ("gate @h a { }", "'h' is already declared", "h"),
    "register named like a gate of qelib1": ("qreg @x[1];", "'x' is already declared", "x"),
    "gate named like a register": ("qreg q[1]; gate @q a { }", "'q' is already declared", "q"),
    "opaque gate declared twice": ("opaque o a; opaque @o a;", "'o' is already declared", "o"),
    "parameter named twice": ("gate g(a, @a) x { }", "parameter 'a' named twice", "a"),
    "formal qubit named twice": ("gate g x, @x { }", "qubit 'x' named twice", "x"),
    "parameter and qubit of one name": ("gate g(a) @a { }", "both a parameter and a qubit", "a"),
    # numbers of things
    "too few parameters": ("qreg q[1]; @rx q[0];", "'rx' takes 1 parameter, got 0", "rx"),
    "too many parameters": ("qreg q[1]; @h(1) q[0];", "'h' takes 0 parameters, got 1", "h"),
    "empty parameter list": ("qreg q[1]; @rx() q[0];", "'rx' takes 1 parameter, got 0", "rx"),
    "too few qubits": ("qreg q[2]; @cx q[0];", "'cx' takes 2 qubits, got 1", "cx"),
    "too many qubits": ("qreg q[2]; @h q[0], q[1];", "'h' takes 1 qubit, got 2", "h"),
    "too few parameters in a body": ("gate g a { @u3(1, 2) a; }", "'u3' takes 3 parameters, got 2", "u3"),
    "too few qubits in a body": ("gate g a { @cx a; }", "'cx' takes 2 qubits, got 1", "cx"),
    "too few parameters of U": ("qreg q[1]; @U(1) q[0];", "'U' takes 3 parameters, got 1", "U"),
    "opaque gate applied": ("opaque o(a) x; qreg q[1]; @o(1) q[0];", "'o' is opaque", "o"),
    "opaque gate applied inside": ("opaque o x; gate g x { h x; o x; } qreg q[1]; @g q[0];", "'o' is opaque", "g"),
    # qubits
    "index out of range": ("qreg q[2]; h @q[2];", "index 2 is outside of register 'q' of size 2", "q"),
    "classical index out of range": ("qreg q[1]; creg c[2]; measure q[0] -> @c[5];", "index 5 is outside of register 'c'", "c"),
    "index into an empty register": ("qreg q[0]; h @q[0];", "outside of register 'q' of size 0", "q"),
    "qubit twice": ("qreg q[2]; cx q[1], @q[1];", "a qubit of 'q' is named twice", "q"),
    "qubit twice in a body": ("gate g a, b { cx a, @a; }", "qubit 'a' named twice", "a"),
    "qubit also in the register": ("qreg q[2]; cx q[0], @q;", "a qubit of 'q' is named twice", "q"),
    "registers of two sizes": ("qreg q[2]; qreg r[3]; cx q, @r;", "'q' and 'r' differ in size, 2 and 3", "r"),
    "measure into a register of another size": ("qreg q[2]; creg c[3]; measure q -> @c;", "got 2 and 3 bits", "c"),
    "measure a bit into a register": ("qreg q[2]; creg c[1]; measure q[0] -> @c;", "two bits or two registers", "c"),
    "measure a register into a bit": ("qreg q[1]; creg c[2]; measure q -> @c[0];", "two bits or two registers", "c"),
    "measure a classical bit": ("creg c[2]; measure @c -> c;", "'c' is a classical register, expected a quantum one", "c"),
    "measure into a qubit": ("qreg q[2]; measure q[0] -> @q[1];", "'q' is a quantum register, expected a classical one", "q"),
    "gate on a classical bit": ("creg c[2]; h @c[0];", "expected a quantum one", "c"),
    "reset of a classical bit": ("creg c[2]; reset @c[0];", "expected a quantum one", "c"),
    "condition on qubits": ("qreg q[2]; if(@q==1) x q[0];", "expected a classical one", "q"),
    "condition on an unknown register": ("qreg q[2]; if(@d==1) x q[0];", "unknown register 'd'", "d"),
    # numbers
    "division by zero": ("qreg q[1]; rx((1+1)@/0) q[0];", "division by zero", "/"),
    "pi divided by zero": ("qreg q[1]; rx( pi@/0) q[0];", "division by zero", "/"),
    "second parameter wrong": ("qreg q[1]; u2(pi, 2*pi@/0.0) q[0];", "division by zero", "/"),
    "logarithm of zero": ("qreg q[1]; rx(@ln(0)) q[0];", "ln of 0 is not a real number", "ln"),
    "root of a negative number": ("qreg q[1]; rx(@sqrt(-1)) q[0];", "sqrt of -1 is not a real number", "sqrt"),
    "power without a real value": ("qreg q[1]; rx((-8)@^(1/3)) q[0];", "is not a real number", "^"),
    "zero to a negative power": ("qreg q[1]; rx(0@^-1) q[0];", "is not a real number", "^"),
    "number too large": ("qreg q[1]; rx(@1e999) q[0];", "number too large", "1e999"),
    "number too large in an expression": ("qreg q[1]; rx(1/@1e999) q[0];", "number too large", "1e999"),
    "product too large": ("qreg q[1]; rx(1e200@*1e200) q[0];", "number too large", "*"),
    "exponential too large": ("qreg q[1]; rx(@exp(1000)) q[0];", "number too large", "exp"),
    "register too large": ("qreg q[@1000001];", "integer too large: a program has at most 1000000 quantum bits", "1000001"),
    "registers too large together": ("creg c[999999]; creg d[@2];", "integer too large", "2"),
    "integer of many digits": ("qreg q[1]; x q[@" + "9" * 5000 + "];", "integer too large", "9" * 57 + "..."),
    "condition that can never hold": ("qreg q[1]; creg c[2]; if(c==@4) x q[0];", "integer too large: register 'c' has 2 bits", "4"),
    # includes
    "include of a missing file": ('include @"no_such_file.inc";', "no such file", '"no_such_file.inc"'),
    "include of a folder": ('include @"/";', "no such file", '"/"'),
    "include of a device": ('include @"/dev/zero";', "no such file", '"/dev/zero"'),
    "include of a name with a zero byte": ('include @"a\0b";', "no such file|cannot be read", '"a\0b"'),
    "include of nothing": ('include @"";', "no such file", '""'),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistake(case):
    marked, message, text = MISTAKES[case]
    before, after = marked.split("@")
    with pytest.raises(QasmError, match=message) as caught:
        read_qasm(HEADER + before + after)
    error = caught.value
    assert error.line == 3 + before.count("\n")
    assert error.column == len(before.rpartition("\n")[2]) + 1
    assert error.text == text
    assert error.path is None
    assert str(error).startswith(f"<text>:{error.line}:{error.column}: {error.message}")
    assert len(str(error)) < 400


@pytest.mark.parametrize("case", [case for case, (marked, _, _) in MISTAKES.items() if "include" not in marked])
def test_mistake_is_found_at_the_same_place_when_spread_over_lines(case):
    marked, message, text = MISTAKES[case]
    before, after = (part.replace(", ", ",\n").replace(") q", ")\nq") for part in marked.split("@"))
    with pytest.raises(QasmError, match=message.replace("in line 3", r"in line \d")) as caught:
        read_qasm(HEADER + before + after)
    assert caught.value.line == 3 + before.count("\n")
    assert caught.value.column == len(before.rpartition("\n")[2]) + 1


@pytest.mark.parametrize("text", ["", " \n", "// only a comment\n", ";", "\ufeff"])
def test_a_text_without_statements_is_no_program(text):
    with pytest.raises(QasmError, match='the first statement must be "OPENQASM 2.0;"') as caught:
        read_qasm(text)
    assert (caught.value.line, caught.value.column) == (1, 1)


@pytest.mark.parametrize("read", [read_qasm, Circuit.from_qasm])
def test_a_missing_version_is_told_in_a_warning(read):
    text = 'include "qelib1.inc"; qreg q[1]; h q[0];'
    with pytest.warns(UserWarning, match='^<text>:1:1: there is no "OPENQASM 2.0;" in front; it is read as such$') as caught:
        circuit = read(text)
    assert circuit == read_qasm("OPENQASM 2.0;" + text)
    assert [warning.filename for warning in caught] == [__file__]


def test_what_has_a_version_brings_no_warning(recwarn):
    read_qasm(HEADER)
    assert not recwarn


@pytest.mark.parametrize("version", ["3.0", "3", "2.1", "1.0", "20", "02.0", "2.00"])
def test_other_versions_are_refused_by_name(version):
    with pytest.raises(QasmError, match=f"this reader knows OpenQASM 2.0, not {version}") as caught:
        read_qasm(f'OPENQASM {version};\ninclude "stdgates.inc";\nqubit[2] q;\n')
    assert (caught.value.line, caught.value.column, caught.value.text) == (1, 10, version)


def test_the_next_version_has_a_reader_of_its_own():
    with pytest.raises(QasmError, match="; Circuit.from_qasm3 reads OpenQASM 3"):
        read_qasm("OPENQASM 3.0;")


def test_forgotten_include_is_guessed():
    with pytest.raises(QasmError, match='unknown gate \'h\'; is \'include "qelib1.inc";\' missing?'):
        read_qasm("OPENQASM 2.0; qreg q[1]; h q[0];")


@pytest.mark.parametrize("text, column", [("qreg q[2]", 10), ("qreg q[2]; h q[0", 17), ("gate g a { x a;", 16), ("measure", 8)])
def test_end_in_the_middle_of_a_statement(text, column):
    with pytest.raises(QasmError, match="unexpected end of the program, expected ") as caught:
        read_qasm(HEADER + text)
    assert (caught.value.line, caught.value.column, caught.value.text) == (3, column, "")


def test_syntax_comes_before_meaning():
    with pytest.raises(QasmError, match="unexpected character") as caught:
        read_qasm(HEADER + "unknown q;\n$")
    assert caught.value.line == 4


def test_error_is_a_value_error_that_can_be_pickled():
    with pytest.raises(ValueError) as caught:
        read_qasm(HEADER + "h q;")
    error = pickle.loads(pickle.dumps(caught.value))
    assert type(error) is QasmError
    assert str(error) == str(caught.value)
    assert (error.line, error.column, error.path, error.text) == (3, 3, None, "q")


def test_the_error_stands_beside_what_raises_it():
    import velacamplix
    import velacamplix.qasm

    assert velacamplix.QasmError is velacamplix.qasm.QasmError
    with pytest.raises(velacamplix.QasmError, match="unknown gate"):
        velacamplix.Circuit.from_qasm(HEADER + "qreg q[1]; nothing q[0];")
