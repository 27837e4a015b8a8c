"""Feeds the OpenQASM readers and writers with texts.

Whatever the text, a reader gives a circuit or a QasmError whose place is inside the text. A circuit is written, in version 2
in both ways, and read again as the same. Everything else ends the run with the input that did it.

    python python/fuzz/qasm_reader.py --stored        the stored inputs and mixtures of them, the same every time
    python python/fuzz/qasm_reader.py FILE ...        these inputs: to see again what was found
    python python/fuzz/qasm_reader.py -max_total_time=60 FOLDER ...     inputs that atheris makes up
    python python/fuzz/qasm_reader.py --store FILE ...      add inputs to the stored ones
    python python/fuzz/qasm_reader.py --unpack FOLDER       write the stored ones, for atheris to begin with

The third takes libFuzzer's options; tools/fuzz calls it. An input's first byte tells by its lowest bit whether the usual two
lines stand in front of the rest, and by the next whether it is version 3.
"""

import hashlib
import inspect
import json
import os
import random
import sys
import tempfile
import warnings
from contextlib import contextmanager
from pathlib import Path

from velacamplix import Circuit, qasm
from velacamplix.qasm import QasmError, read_qasm

MOST_INSTRUCTIONS = 2000
MIXTURES = 100_000
HEADER = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'
HEADER_3 = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
STORED = Path(__file__).with_name("qasm_corpus.json")
WORDS = Path(__file__).with_name("qasm_words.txt")


def one_input(data: bytes) -> None:
    kind = data[0] if data else 0
    text = data[1:].decode("utf-8", errors="replace") + "\n"
    if kind & 2:
        check_3(HEADER_3 + text if kind & 1 else text)
    else:
        check(HEADER + text if kind & 1 else text)


def check(text: str) -> None:
    try:
        circuit = read_qasm(text, most_instructions=MOST_INSTRUCTIONS)
    except QasmError as error:
        check_place(error, text)
        return
    for definitions in (True, False):
        check_written(circuit, definitions)


def check_3(text: str) -> None:
    try:
        circuit = Circuit.from_qasm3(text, most_instructions=MOST_INSTRUCTIONS)
    except QasmError as error:
        check_place(error, text)
        return
    try:
        written = circuit.to_qasm3()
    except ValueError as error:
        # Such as the matrix that a root of a gate is.
        assert "cannot be written in OpenQASM 3" in str(error), error
        return
    assert Circuit.from_qasm3(written, most_instructions=10 * MOST_INSTRUCTIONS) == circuit, written


def check_place(error: QasmError, text: str) -> None:
    if error.path is not None:  # in an included file
        return
    lines = text.split("\n")
    assert 1 <= error.line <= len(lines), error
    assert 1 <= error.column <= len(lines[error.line - 1]) + 1, error
    assert len(str(error)) < 1000, error


def check_written(circuit, definitions: bool) -> None:
    try:
        text = circuit.to_qasm(definitions=definitions)
    except ValueError as error:
        # Reading takes a name or bit pattern that writing must refuse only in these cases.
        assert "cannot be written in OpenQASM 2" in str(error), error
        return
    again = read_qasm(text, most_instructions=10 * MOST_INSTRUCTIONS)
    assert again.n_qubits == circuit.n_qubits and again.n_clbits == circuit.n_clbits
    assert again == circuit, text


# --- The same every time ---


def stored() -> list:
    """The stored inputs. JSON holds texts, whose characters are the bytes here."""
    return [text.encode("latin-1") for text in json.loads(STORED.read_text())]


def store(inputs: list) -> None:
    """Add inputs to the stored ones."""
    texts = sorted({data.decode("latin-1") for data in [*stored(), *inputs]}, key=lambda text: (len(text), text))
    STORED.write_text(json.dumps(texts, indent=0) + "\n")
    print(f"{len(texts)} inputs are stored")


def unpack(folder: Path) -> None:
    """Write every stored input into a file of its own."""
    for data in stored():
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def mixtures(inputs: list, count: int, seed: int):
    """Inputs made of pieces of others and of the words, with a few bytes changed."""
    rng = random.Random(seed)
    words = [json.loads(line) for line in WORDS.read_text().splitlines() if line.startswith('"')]
    pieces = [piece + b";" for data in inputs for piece in data[1:].split(b";")] + [word.encode() for word in words]
    for _ in range(count):
        data = bytearray(rng.choice(inputs))
        for _ in range(rng.randint(1, 4)):
            start = rng.randint(1, max(1, len(data)))
            end = min(len(data), start + rng.choice([0, 0, 1, 1, 5, 20]))
            data[start:end] = rng.choice([rng.choice(pieces), b"", bytes([rng.randrange(256)]), data[start : start + 10] * 2])
        yield bytes(data[:4096])


def replay(inputs) -> int:
    """Try inputs; the first that fails is kept in a file and told."""
    count = 0
    for data in inputs:
        try:
            one_input(data)
        except BaseException:
            name = Path(tempfile.gettempdir()) / f"qasm-{hashlib.sha1(data).hexdigest()[:12]}"
            name.write_bytes(data)
            print(f"failed: {data!r}\nagain: {sys.executable} {__file__} {name}", file=sys.stderr, flush=True)
            raise
        count += 1
    return count


@contextmanager
def a_folder_of_its_own():
    """Includes are looked up in the current folder; it must hold nothing but what belongs to the run."""
    before = os.getcwd()
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        Path("loop.inc").write_text('include "loop.inc";\n')
        Path("part.inc").write_text("gate part(a) x { rx(1/a) x; }\n")
        try:
            yield
        finally:
            os.chdir(before)


# --- Random ---


def watch_branches(atheris) -> None:
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
    warnings.simplefilter("ignore", UserWarning)  # of texts without a version
    arguments = [_absolute(item) for item in sys.argv]
    if arguments[1:2] == ["--store"]:
        store([Path(item).read_bytes() for item in arguments[2:]])
        return
    if arguments[1:2] == ["--unpack"]:
        unpack(Path(arguments[2]))
        return
    with a_folder_of_its_own():
        if arguments[1:] == ["--stored"]:
            inputs = stored()
            print(f"{replay(inputs)} stored inputs and {replay(mixtures(inputs, MIXTURES, seed=1))} mixtures: as they should be")
        elif arguments[1:] and all(os.path.isfile(item) for item in arguments[1:]):
            print(f"{replay([Path(item).read_bytes() for item in arguments[1:]])} inputs: as they should be")
        else:
            import atheris

            watch_branches(atheris)
            atheris.Setup(arguments, one_input)
            atheris.Fuzz()


if __name__ == "__main__":
    main()
