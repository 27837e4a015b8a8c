"""States in files: what is written comes back to the last bit, and what does not fit is refused."""

import io
import os
import pickle
import signal
import stat
import subprocess
import sys
import threading
import zipfile

import numpy as np
import pytest
from full_matrices import random_state
from refusals import refused

import velacamplix
from velacamplix import Circuit, Result, StateVector, run
from velacamplix.machine import limits, memory


@pytest.fixture
def path(tmp_path):
    return tmp_path / "state.npz"


def state_of(n, precision="double", seed=7):
    state = StateVector(n, precision, threads=2, seed=seed)
    state.array[:] = random_state(n, 3)
    return state


@pytest.mark.parametrize("n", [0, 1, 5, 20])
def test_all_bits_come_back(n, precision, path):
    state = state_of(n, precision)
    state.sample(5)  # random numbers go on where they were
    state.array[0] = complex(-0.0, np.nan)
    state.save(path)
    again = StateVector.load(path)
    assert (again.n_qubits, again.precision) == (n, precision)
    assert again.array.tobytes() == state.array.tobytes()
    assert velacamplix._core.engine(again._live()) == velacamplix._core.engine(state._live())
    assert os.listdir(path.parent) == ["state.npz"]


def test_the_arguments_of_load(path):
    state = state_of(6)
    state.save(path)
    again = StateVector.load(str(path), threads=1, seed=11)
    assert again.threads == 1 and again.seed == 11
    assert StateVector.load(path, seed=np.random.default_rng(4)).seed == int(np.random.default_rng(4).integers(2**32))
    assert StateVector.load(path).sample(9).tolist() == state.copy().sample(9).tolist()
    with refused(ValueError, "threads must be"):
        StateVector.load(path, threads=0)
    with refused(TypeError, "seed must be"):
        StateVector.load(path, seed="1")
    with refused(TypeError, "progress must be"):
        StateVector.load(path, progress=7)


def test_numpy_reads_the_file(precision, path):
    state = state_of(4, precision)
    state.save(path)
    with np.load(path, allow_pickle=False) as found:
        assert found["amplitudes"].tobytes() == state.array.tobytes()
        assert found["amplitudes"].dtype == state.array.dtype
        told = {name: found[name].item() for name in found.files if name not in ("amplitudes", "engine")}
    assert told == {
        "format": 1, "kind": "StateVector", "version": velacamplix.__version__, "n": 4, "order": "little",
        "precision": precision,
    }  # fmt: skip


def test_numpys_own_writing_is_read(path):
    state = state_of(4)
    state.save(path)
    with np.load(path) as found:
        arrays = dict(found)
    np.savez(path, **arrays)
    assert StateVector.load(path).array.tobytes() == state.array.tobytes()


def test_the_same_state_makes_the_same_file(tmp_path):
    for name in ("one", "two"):
        state_of(5).save(tmp_path / name)
    assert (tmp_path / "one").read_bytes() == (tmp_path / "two").read_bytes()


def test_a_class_that_inherits_loads_itself(path):
    class Own(StateVector):
        def __init__(self):
            super().__init__(3)

    Own().x(1).save(path)
    assert type(Own.load(path)) is Own and Own.load(path).to_dict() == {"010": 1}


# Writing


def test_a_file_that_is_there_is_replaced_and_links_are_followed(tmp_path):
    real, link = tmp_path / "real.npz", tmp_path / "link.npz"
    real.write_text("old")
    link.symlink_to(real)
    state_of(3).save(link)
    assert link.is_symlink() and StateVector.load(real).n_qubits == 3
    mask = os.umask(0)
    os.umask(mask)
    assert stat.S_IMODE(real.stat().st_mode) == 0o666 & ~mask


def test_what_was_there_stays_whole_when_writing_fails(path, monkeypatch):
    state_of(3).save(path)
    before = path.read_bytes()

    def stop(progress):
        raise KeyError("enough")

    with pytest.raises(KeyError):
        state_of(18).save(path, progress=stop)
    assert path.read_bytes() == before and os.listdir(path.parent) == ["state.npz"]

    def full(*arguments):
        raise OSError(28, "No space left on device")

    monkeypatch.setattr(os, "fsync", full)
    with pytest.raises(OSError, match="No space left"):
        state_of(4).save(path)
    assert path.read_bytes() == before and os.listdir(path.parent) == ["state.npz"]


def test_a_file_that_may_not_grow(path):
    child = f"""
import resource, signal
from velacamplix import StateVector
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (2**16, 2**16))
try:
    StateVector(16).save({str(path)!r})
except OSError as error:
    print("refused", error.errno)
"""
    ended = subprocess.run([sys.executable, "-c", child], capture_output=True, text=True, timeout=100)
    assert ended.stdout == "refused 27\n", ended.stderr
    assert os.listdir(path.parent) == []


def test_paths_that_are_no_files(tmp_path):
    state, pipe = StateVector(1), tmp_path / "pipe"
    os.mkfifo(pipe)
    for wrong in (tmp_path, pipe, "/dev/null", ""):
        with refused(ValueError, "path must be that of a file", "which is a folder, device or pipe"):
            state.save(wrong)
    for wrong in (tmp_path, pipe, "/dev/zero"):
        with refused(ValueError, "path must be that of a file", "which is a folder, device or pipe"):
            StateVector.load(wrong)
    for wrong in (None, 3, b"state.npz", io.BytesIO()):
        for call in (state.save, StateVector.load, Result.load):
            with refused(TypeError, "path must be a str or a path, got"):
                call(wrong)
    with refused(FileNotFoundError, "there is no such folder to write into"):
        state.save(tmp_path / "none" / "state.npz")
    with refused(FileNotFoundError, "No such file"):
        StateVector.load(tmp_path / "none.npz")
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode) and stat.S_ISFIFO(pipe.stat().st_mode)


def test_a_released_state_has_nothing_to_save(path):
    state = StateVector(3)
    state.release()
    with refused(RuntimeError, "has been released"):
        state.save(path)
    assert not path.exists()


def test_progress_counts_bytes(path):
    state, told = state_of(20), []
    state.save(path, progress=told.append)
    StateVector.load(path, progress=told.append)
    for total in {progress.total for progress in told}:
        done = [progress.done for progress in told if progress.total == total]
        assert total >= 16 << 20 and done == sorted(done) and done[-1] == total


def test_ctrl_c_in_the_middle(path):
    # At the first piece: the rest is not written, and nothing is left.
    def interrupt(progress):
        os.kill(os.getpid(), signal.SIGINT)

    with pytest.raises(KeyboardInterrupt):
        state_of(20).save(path, progress=interrupt)
    assert os.listdir(path.parent) == []


def test_states_are_asked_for_before_they_are_made(path, monkeypatch):
    state_of(13).save(path)
    monkeypatch.setattr(memory, "SMALL_BYTES", 0)
    monkeypatch.setattr(limits, "memory", lambda root="/": limits.Memory(2**17, 2**17, None))
    assert StateVector.load(path).n_qubits == 13
    monkeypatch.setattr(limits, "memory", lambda root="/": limits.Memory(2**17 - 1, 2**17 - 1, None))
    with refused(MemoryError, "n=13 qubits in double precision need 128.0 KiB"):
        StateVector.load(path)


# Files that are not what they should be


def rewritten(path, compression=zipfile.ZIP_STORED, **changes):
    """Write the file again with other arrays; None leaves one out."""
    with np.load(path) as found:
        arrays = {**found, **changes}
    with zipfile.ZipFile(path, "w", compression) as archive:
        for name, array in arrays.items():
            if array is not None:
                data = io.BytesIO()
                np.lib.format.write_array(data, np.asanyarray(array), allow_pickle=True)
                archive.writestr(f"{name}.npy", data.getvalue())


@pytest.mark.parametrize(
    ("changes", "words"),
    [
        ({"n": None}, "it has no array 'n'"),
        ({"amplitudes": None}, "it has no array 'amplitudes'"),
        ({"engine": None}, "it has no array 'engine'"),
        ({"more": np.zeros(3)}, "it has an array 'more', which this version does not know"),
        ({"n": np.array(5)}, "amplitudes must have the type <c16 and the shape (32,), has <c16 and (16,)"),
        ({"n": np.array(-1)}, "n must be from 0 to 63, got -1"),
        ({"n": np.array(64)}, "n must be from 0 to 63, got 64"),
        ({"n": np.array(4.0)}, "n must have the type <i8 and the shape (), has <f8 and ()"),
        ({"n": np.array([4])}, "n must have the type <i8 and the shape ()"),
        ({"n": np.array("4")}, "n must have the type <i8"),
        ({"format": np.array(2)}, ("it has the format 2, of velacamplix", "this one reads 1")),
        ({"kind": np.array("Result")}, "it holds a 'Result'"),
        ({"order": np.array("big")}, "its order must be 'little', is 'big'"),
        ({"order": np.array(1)}, "order must be a text"),
        ({"precision": np.array("single")}, "amplitudes must have the type <c8"),
        ({"precision": np.array("half")}, "precision must be 'double' or 'single', is 'half'"),
        ({"engine": np.array("1 2 3")}, "engine is not the state of a random engine"),
        ({"engine": np.array("1 " + "7 " * 312 + "313")}, "engine is not the state of a random engine"),
        ({"engine": np.array("1 " + f"{2**64} " * 312 + "3")}, "engine is not the state of a random engine"),
        ({"amplitudes": np.zeros(16)}, "amplitudes must have the type <c16 and the shape (16,), has <f8"),
        ({"amplitudes": np.zeros((4, 4), complex)}, "the shape (16,), has <c16 and (4, 4)"),
        ({"amplitudes": np.zeros(16, ">c16")}, "amplitudes is no array of numbers or text"),
        ({"amplitudes": np.array([None] * 16)}, "amplitudes is no array of numbers or text"),
        ({"amplitudes": np.zeros(16, "c16,i4")}, "amplitudes is no array of numbers or text"),
        ({"amplitudes": np.zeros((2, 8), complex, order="F")}, "amplitudes is no array of numbers or text"),
    ],
    ids=lambda value: str(value)[:40],
)
def test_what_does_not_fit_is_refused(changes, words, path):
    words = words if isinstance(words, tuple) else (words,)
    state_of(4).save(path)
    rewritten(path, **changes)
    with refused(ValueError, f"path must be that of a StateVector that was saved, got {str(path)[:20]!r}"[:-1], *words):
        StateVector.load(path)


class Bomb:
    def __reduce__(self):
        return os.abort, ()


def test_nothing_is_unpickled(path):
    state_of(4).save(path)
    rewritten(path, amplitudes=np.array([Bomb()] * 16))
    with refused(ValueError, "amplitudes is no array of numbers or text"):
        StateVector.load(path)
    path.write_bytes(pickle.dumps(Bomb()))
    with refused(ValueError, "it is damaged"):
        StateVector.load(path)


def test_nothing_is_unpacked(path):
    # A file of some KiB that says it holds 16 MiB.
    state = StateVector(20)
    state.save(path)
    rewritten(path, compression=zipfile.ZIP_DEFLATED)
    assert path.stat().st_size < 2**16
    with refused(ValueError, "is compressed or encrypted"):
        StateVector.load(path)


def header(descr, shape):
    text = f"{{'descr': {descr!r}, 'fortran_order': False, 'shape': {shape}, }}\n".encode()
    return b"\x93NUMPY\x01\x00" + len(text).to_bytes(2, "little") + text


@pytest.mark.parametrize(
    "data",
    [
        header("<c16", f"({2**60},)"),
        header("<c16", f"({2**62}, {2**62}, {2**62})"),
        header("<c16", "(16,)") + b"x" * 255,
        header("<c16", "(16,)") + b"x" * 257,
        header("<c16", "(-16,)") + b"x" * 256,
        header("<c16", "(" * 5000 + "16," + ")" * 5000) + b"x" * 256,
        header("<c99", "(16,)") + b"x" * 256,
        header("<U999999999", "()"),
        b"\x93NUMPY\x02\x00\xff\xff\xff\xff" + b"x" * 100,
        b"\x93NUMPY\x01\x00\xff\xff",
        b"\x93NUMPY",
        b"",
    ],
    ids=range(12),
)
def test_headers_that_lie(data, path):
    state_of(4).save(path)
    with np.load(path) as found:
        arrays = dict(found)
    for name in ("amplitudes", "engine", "n"):
        with zipfile.ZipFile(path, "w") as archive:
            for other, array in arrays.items():
                plain = io.BytesIO()
                np.lib.format.write_array(plain, array)
                archive.writestr(f"{other}.npy", data if other == name else plain.getvalue())
        with pytest.raises(ValueError, match="path must be that of a StateVector that was saved"):
            StateVector.load(path)


def test_two_arrays_of_one_name(path):
    state_of(4).save(path)
    with zipfile.ZipFile(path, "a") as archive, pytest.warns(UserWarning, match="Duplicate name"):
        archive.writestr("n.npy", b"")
    with refused(ValueError, "it holds two arrays of one name"):
        StateVector.load(path)


def outcome(path, kind=StateVector):
    try:
        return kind.load(path)
    except ValueError as error:
        assert str(error).startswith(f"path must be that of a {kind.__name__} that was saved, got "), error
        return None


@pytest.mark.parametrize("seed", range(4))
def test_damaged_files_are_refused_or_give_what_was_written(seed, path):
    state = state_of(5)
    state.save(path)
    whole, generator = path.read_bytes(), np.random.default_rng(seed)
    found = 0
    for _ in range(150):
        data = bytearray(whole)
        for place in generator.integers(len(data), size=int(generator.integers(1, 4))).tolist():
            data[place] = int(generator.integers(256))
        path.write_bytes(data)
        again = outcome(path)
        # A change may have hit nothing that counts, or not even changed anything.
        assert again is None or again.array.tobytes() == state.array.tobytes()
        found += again is None
    assert found > 100


def test_files_that_end_too_early(path):
    state_of(5).save(path)
    whole = path.read_bytes()
    for length in [*range(0, 100), *range(100, len(whole), 97)]:
        path.write_bytes(whole[:length])
        assert outcome(path) is None
    path.write_bytes(b"\0" * 1000 + whole)  # zipfile finds the archive behind other things, as in a program
    assert outcome(path) is not None


@pytest.mark.parametrize("field", ["size", "offset", "total", "comment"])
def test_directories_that_lie(field, path):
    state_of(5).save(path)
    data = bytearray(path.read_bytes())
    end = data.rindex(b"PK\x05\x06")
    place, width = {"size": (12, 4), "offset": (16, 4), "total": (10, 2), "comment": (20, 2)}[field]
    for value in (0, 1, 2 ** (8 * width) - 2, 2 ** (8 * width - 1)):
        data[end + place : end + place + width] = value.to_bytes(width, "little")
        path.write_bytes(data)
        again = outcome(path)
        assert again is None or again.n_qubits == 5


def test_results_and_states_are_not_mistaken_for_each_other(path):
    state_of(2).save(path)
    with refused(ValueError, "path must be that of a Result that was saved", "it holds a 'StateVector'"):
        Result.load(path)
    run(Circuit(2)).save(path)
    with refused(ValueError, "path must be that of a StateVector that was saved", "it holds a 'Result'"):
        StateVector.load(path)


def test_loading_in_several_threads(path):
    state = state_of(10)
    state.save(path)
    wrong = []

    def load():
        for _ in range(10):
            if StateVector.load(path).array.tobytes() != state.array.tobytes():
                wrong.append(1)

    threads = [threading.Thread(target=load) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong
