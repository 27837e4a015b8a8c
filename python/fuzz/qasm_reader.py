"""Feeds the OpenQASM reader with texts that a coverage-guided fuzzer makes up.

Whatever the text, the reader gives a circuit or a QasmError whose place is inside the text; everything else ends the run
with the input that did it. A circuit must survive being written and read again.

Run by tools/fuzz_qasm, or by hand: python python/fuzz/qasm_reader.py [options of libFuzzer] [folder for inputs ...]
"""

import inspect
import os
import sys
import tempfile

import atheris

from velacamplix import qasm
from velacamplix.qasm import QasmError, read_qasm

MOST_INSTRUCTIONS = 2000
HEADER = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'


def one_input(data: bytes) -> None:
    provider = atheris.FuzzedDataProvider(data)
    with_header = provider.ConsumeBool()
    rest = provider.ConsumeBytes(provider.remaining_bytes()).decode("utf-8", errors="replace")
    text = HEADER + rest if with_header else rest
    try:
        circuit = read_qasm(text + "\n", most_instructions=MOST_INSTRUCTIONS)
    except QasmError as error:
        check_place(error, text + "\n")
        if "cannot be understood" in str(error):
            raise AssertionError(f"the patterns and the messages differ: {error}") from error
        return
    check_written(circuit)


def check_place(error: QasmError, text: str) -> None:
    if error.path is not None:  # in an included file
        return
    lines = text.split("\n")
    assert 1 <= error.line <= len(lines), error
    assert 1 <= error.column <= len(lines[error.line - 1]) + 1, error
    assert len(str(error)) < 1000, error


def check_written(circuit) -> None:
    try:
        text = circuit.to_qasm()
    except ValueError as error:
        # Reading takes a name or bit pattern that writing must refuse only in these cases.
        assert "cannot be written in OpenQASM 2" in str(error), error
        return
    again = read_qasm(text, most_instructions=10 * MOST_INSTRUCTIONS)
    assert again.n_qubits == circuit.n_qubits and again.n_clbits == circuit.n_clbits
    assert again == circuit, text


def watch_branches() -> None:
    """Let the fuzzer see which way every function of the reader goes."""
    # After the import: its own way, while modules are loaded, does not know the loaders of editable installations.
    modules = [module for name, module in sys.modules.items() if name.startswith(qasm.__name__ + ".")]
    for module in modules:
        holders = [module, *(kind for _, kind in inspect.getmembers(module, inspect.isclass))]
        for holder in holders:
            for function in list(vars(holder).values()):
                if inspect.isfunction(function) and function.__module__ == module.__name__:
                    atheris.instrument_func(function)


def _absolute(argument: str) -> str:
    option, equals, value = argument.rpartition("=")
    # A slash at the end means "in this folder" to the fuzzer.
    return option + equals + (os.path.join(os.getcwd(), value) if os.path.exists(value) else value)


def main() -> None:
    # Includes are looked up in the current folder; it must hold nothing but what belongs to the run.
    with tempfile.TemporaryDirectory() as folder:
        arguments = [_absolute(item) for item in sys.argv]
        os.chdir(folder)
        with open("loop.inc", "w") as file:
            file.write('include "loop.inc";\n')
        with open("part.inc", "w") as file:
            file.write("gate part(a) x { rx(1/a) x; }\n")
        watch_branches()
        atheris.Setup(arguments, one_input)
        atheris.Fuzz()


if __name__ == "__main__":
    main()
