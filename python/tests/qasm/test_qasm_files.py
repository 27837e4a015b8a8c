"""Programs in files: how they are named, what they include, what their bytes may be."""

import os
from pathlib import Path

import pytest
from qasm_texts import HEADER

from velacamplix import Circuit
from velacamplix.qasm import QasmError, files, read_qasm

GHZ = Path(__file__).parents[3] / "examples" / "circuits" / "ghz.qasm"
PROGRAM = HEADER + "qreg q[2];\nh q[0];\n"


def write(folder, **files):
    for name, text in files.items():
        (folder / f"{name}.qasm").write_text(text)
    return folder


# --- Path or text ---


def test_path_object_text_path_and_text_give_the_same():
    from_path = Circuit.from_qasm(GHZ)
    assert len(from_path) == 17
    assert Circuit.from_qasm(str(GHZ)) == from_path
    assert Circuit.from_qasm(GHZ.read_text()) == from_path


def test_any_path_like_object(tmp_path):
    class Named(os.PathLike):
        def __fspath__(self):
            return str(write(tmp_path, a=PROGRAM) / "a.qasm")

    assert len(read_qasm(Named())) == 1


def test_path_object_is_never_a_text(tmp_path):
    odd = tmp_path / "OPENQASM 2.0; x.qasm"
    odd.write_text(PROGRAM)
    assert len(read_qasm(odd)) == 1


@pytest.mark.parametrize("source", ["missing.qasm", Path("missing.qasm"), Path("OPENQASM;")])
def test_missing_file(source, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with pytest.raises(FileNotFoundError):
        read_qasm(source)


def test_folder_instead_of_a_file(tmp_path):
    with pytest.raises(IsADirectoryError):
        read_qasm(tmp_path)


@pytest.mark.parametrize("source", [None, 3, b"OPENQASM 2.0;", ["OPENQASM 2.0;"], 1.5], ids=repr)
def test_what_is_neither_path_nor_text(source):
    with pytest.raises(TypeError, match="path_or_text must be a str or a path, got " + type(source).__name__):
        Circuit.from_qasm(source)


def test_error_in_a_file_names_it(tmp_path):
    path = write(tmp_path, a=PROGRAM + "h q[7];\n") / "a.qasm"
    with pytest.raises(QasmError) as caught:
        read_qasm(path)
    assert caught.value.path == str(path)
    assert str(caught.value).startswith(f"{path}:5:3: index 7")


# --- Includes ---


def test_include_is_looked_up_beside_the_including_file(tmp_path):
    (tmp_path / "parts" / "deep").mkdir(parents=True)
    write(tmp_path, main=HEADER + 'include "parts/one.qasm";\nqreg q[1];\ntwice q[0];\n')
    write(tmp_path / "parts", one='include "deep/two.qasm";\ngate twice a { once a; once a; }\n')
    write(tmp_path / "parts" / "deep", two="gate once a { x a; }\n")
    assert [str(step) for step in read_qasm(tmp_path / "main.qasm").basic_instructions()] == ["X 0", "X 0"]


def test_include_from_a_text_is_looked_up_in_the_current_folder(tmp_path, monkeypatch):
    write(tmp_path, gates="gate once a { x a; }\n")
    monkeypatch.chdir(tmp_path)
    assert len(read_qasm(HEADER + 'include "gates.qasm"; qreg q[1]; once q;')) == 1


def test_include_by_an_absolute_path(tmp_path):
    path = write(tmp_path, gates="gate once a { x a; }\n") / "gates.qasm"
    assert len(read_qasm(HEADER + f'include "{path}"; qreg q[1]; once q;')) == 1


def test_included_file_may_hold_statements_and_a_header_of_its_own(tmp_path):
    write(tmp_path, main='OPENQASM 2.0; include "rest.qasm"; h q[1];', rest=PROGRAM)
    assert [str(step) for step in read_qasm(tmp_path / "main.qasm")] == ["H 0", "H 1"]


def test_qelib1_is_built_in_whatever_lies_beside_the_file(tmp_path):
    (tmp_path / "qelib1.inc").write_text("not a program")
    assert len(read_qasm(write(tmp_path, main=PROGRAM) / "main.qasm")) == 1


def test_file_that_includes_itself(tmp_path):
    write(tmp_path, main=HEADER + 'include "main.qasm";\n')
    with pytest.raises(QasmError, match="a file includes itself") as caught:
        read_qasm(tmp_path / "main.qasm")
    assert (caught.value.line, caught.value.column) == (3, 9)


def test_circle_of_includes_is_found_under_any_name(tmp_path):
    (tmp_path / "sub").mkdir()
    write(tmp_path, a=HEADER + 'include "b.qasm";', b='include "c.qasm";', c='\ninclude "sub/../a.qasm";')
    with pytest.raises(QasmError, match="a file includes itself") as caught:
        read_qasm(tmp_path / "a.qasm")
    assert caught.value.path == str(tmp_path / "c.qasm")
    assert (caught.value.line, caught.value.column) == (2, 9)
    (tmp_path / "link.qasm").symlink_to(tmp_path / "a.qasm")
    write(tmp_path, c='include "link.qasm";')
    with pytest.raises(QasmError, match="a file includes itself"):
        read_qasm(tmp_path / "a.qasm")


def test_the_same_file_twice_in_a_row_is_no_circle(tmp_path):
    write(tmp_path, layer="h q;\n", main=HEADER + 'qreg q[2]; include "layer.qasm"; include "layer.qasm";')
    assert len(read_qasm(tmp_path / "main.qasm")) == 4


def test_chain_of_too_many_includes(tmp_path):
    for i in range(60):
        write(tmp_path, **{f"f{i}": f'include "f{i + 1}.qasm";\n'})
    with pytest.raises(QasmError, match="more than 50 files include each other"):
        read_qasm(HEADER + f'include "{tmp_path}/f0.qasm";')


def test_missing_header_is_told_but_for_includes(tmp_path, recwarn):
    write(tmp_path, main="qreg q[1]; include \"rest.qasm\";", rest="gate g a { }")
    read_qasm(tmp_path / "main.qasm")
    path = tmp_path / "main.qasm"
    assert [str(w.message) for w in recwarn] == [f'{path}:1:1: there is no "OPENQASM 2.0;" in front; it is read as such']


def test_files_that_include_each_other_twice_are_not_read_for_ever(tmp_path):
    for i in range(20):
        write(tmp_path, **{f"f{i}": f'include "f{i + 1}.qasm"; include "f{i + 1}.qasm";\n'})
    write(tmp_path, f20="")
    with pytest.raises(QasmError, match="the program includes more than 10000 files"):
        read_qasm(HEADER + f'include "{tmp_path}/f0.qasm";')


def test_what_is_read_has_a_bound(tmp_path, monkeypatch):
    monkeypatch.setattr(files, "MOST_BYTES", 3 * 2**20)
    large = " " * (2 * 2**20) + "\n"
    write(tmp_path, part=large, main=HEADER + 'include "part.qasm";', twice=HEADER + 'include "part.qasm"; include "part.qasm";')
    assert len(read_qasm(tmp_path / "main.qasm")) == 0
    with pytest.raises(QasmError, match="twice.qasm:3:30: the program includes more than 3 MiB"):
        read_qasm(tmp_path / "twice.qasm")
    write(tmp_path, large=HEADER + large * 2)
    with pytest.raises(QasmError, match="large.qasm:1:1: a program has at most 3 MiB, and this goes on"):
        read_qasm(tmp_path / "large.qasm")


def test_a_device_without_end_is_left_in_time():
    with pytest.raises(QasmError, match="/dev/zero:1:1: a program has at most 512 MiB, and this goes on"):
        read_qasm("/dev/zero")


def test_syntax_error_in_an_included_file_names_that_file(tmp_path):
    write(tmp_path, main=HEADER + 'include "broken.qasm";', broken="gate g a {\n  x a\n}\n")
    with pytest.raises(QasmError) as caught:
        read_qasm(tmp_path / "main.qasm")
    assert str(caught.value).startswith(f"{tmp_path / 'broken.qasm'}:3:1: unexpected")


def test_error_in_a_body_names_the_file_of_the_body(tmp_path):
    write(tmp_path, main=HEADER + 'include "gates.qasm";\nqreg q[1];\n\ng(0) q[0];\n', gates="gate g(a) x {\n  rx(1/b) x;\n}\n")
    with pytest.raises(QasmError, match="unknown parameter 'b'") as caught:
        read_qasm(tmp_path / "main.qasm")
    assert (caught.value.path, caught.value.line, caught.value.column) == (str(tmp_path / "gates.qasm"), 2, 8)


def test_opaque_gate_of_an_included_file(tmp_path):
    write(tmp_path, main=HEADER + 'include "gates.qasm";\nqreg q[1];\no q[0];\n', gates="opaque o a;\n")
    with pytest.raises(QasmError, match="main.qasm:5:1: gate 'o' is opaque"):
        read_qasm(tmp_path / "main.qasm")


@pytest.mark.skipif(not hasattr(os, "geteuid") or os.geteuid() == 0, reason="root may read every file")
def test_include_without_permission(tmp_path):
    write(tmp_path, secret="").joinpath("secret.qasm").chmod(0)
    with pytest.raises(QasmError, match="cannot be read: Permission denied"):
        read_qasm(HEADER + f'include "{tmp_path}/secret.qasm";')


def test_include_with_a_name_too_long():
    with pytest.raises(QasmError, match="no such file|cannot be read") as caught:
        read_qasm(HEADER + f'include "{"a" * 10_000}";')
    assert len(str(caught.value)) < 300


# --- Bytes ---


def test_comments_may_be_in_any_encoding(tmp_path):
    path = tmp_path / "a.qasm"
    for encoding in ("utf-8", "latin-1", "utf-8-sig"):
        path.write_bytes(f"// Grüße\n{PROGRAM}// Ä\n".encode(encoding))
        assert len(read_qasm(path)) == 1


@pytest.mark.parametrize("text", [PROGRAM, "// comment\n" + PROGRAM])
def test_a_byte_order_mark_is_no_part_of_a_text(text, tmp_path):
    assert read_qasm("\ufeff" + text) == read_qasm(text)
    (tmp_path / "a.qasm").write_bytes(("\ufeff" + text).encode())
    assert read_qasm(tmp_path / "a.qasm") == read_qasm(text)


def test_a_text_of_a_lying_class_is_read_as_it_is():
    class Lying(str):
        def __contains__(self, item):
            return True

        def strip(self, *_):
            return "x"

        def __str__(self):
            return "missing.qasm"

        __eq__ = __ne__ = lambda self, other: True
        __hash__ = str.__hash__

    assert read_qasm(Lying(PROGRAM)) == read_qasm(PROGRAM)
    with pytest.raises(FileNotFoundError):
        read_qasm(Lying("nowhere.qasm"))


def test_line_ends_of_all_systems(tmp_path):
    path = tmp_path / "a.qasm"
    for end in ("\n", "\r\n", "\r"):
        path.write_bytes(("// comment\n" + PROGRAM).replace("\n", end).encode())
        assert len(read_qasm(path)) == 1


def test_columns_count_characters_not_bytes(tmp_path):
    path = tmp_path / "a.qasm"
    path.write_bytes((HEADER + "qreg q[1]; // Grüße\nrx(1) ß q[0];").encode())
    with pytest.raises(QasmError, match="unexpected character 'ß'") as caught:
        read_qasm(path)
    assert (caught.value.line, caught.value.column) == (4, 7)


@pytest.mark.parametrize(
    "data",
    [b"", b"\x00" * 100, b"\xff\xfe" + PROGRAM.encode("utf-16-le"), bytes(range(256)) * 50, b"\x7fELF\x02\x01\x01", b"PK\x03\x04\n;"],
    ids=["empty", "zeros", "utf-16", "all bytes", "a library", "an archive"],
)
def test_file_that_is_no_text(tmp_path, data):
    path = tmp_path / "a.qasm"
    path.write_bytes(data)
    with pytest.raises(QasmError) as caught:
        read_qasm(path)
    assert caught.value.path == str(path)
