"""What can be tried without ranks: what is told where MPI is missing, and what the core asks of pieces of a state."""

import subprocess
import sys

import numpy as np
import pytest

from velacamplix import Channel, Circuit, Observable, StateVector, run
from velacamplix.core import extension
from velacamplix.programs.noisy import PreparedTrajectories

BLOCKED = """
import sys
sys.modules["mpi4py"] = None  # as where it is not installed
from velacamplix import Circuit, run
for asked in ({"comm": object()}, {"distributed": True}):
    try:
        run(Circuit(2).h(0), **asked)
    except ImportError as error:
        print(error)
"""


def test_a_missing_mpi4py_is_told_with_what_to_install():
    done = subprocess.run([sys.executable, "-c", BLOCKED], capture_output=True, text=True, check=True)
    assert done.stdout.count("pip install 'velacamplix[mpi]'") == 2
    assert "openmpi-bin" in done.stdout


def test_distributed_is_a_flag():
    with pytest.raises(TypeError, match="distributed must be True or False, got 'yes'"):
        run(Circuit(2).h(0), distributed="yes")
    assert run(Circuit(2).h(0), distributed=False, comm=None).state.n_qubits == 2


@pytest.mark.parametrize("precision", ["double", "single"])
def test_values_from_pieces_are_those_of_the_whole_state(precision):
    state = StateVector(15, precision, seed=1)
    for q in range(15):
        state.ry(0.3 + q, q).rz(0.2 * q, q)
    for q in range(14):
        state.cx(q, q + 1)
    for text in ("Z0 Z14 + 0.5*X3 Y5", "X14 Z0 + Y14", "2*X14 X13 + Y14 X13 Z1"):
        observable = Observable(text).compiled()
        flip = {"Z": 0, "X14 Z": 2, "2*X14 X13": 3}[text.partition("0" if text[0] != "2" else " +")[0]]
        sums = np.zeros(extension.part_sections(15) * len(observable))
        pieces = state.array.reshape(4, -1)
        for number in range(4):
            if number & (1 << flip.bit_length() >> 1):
                continue
            extension.add_part_values(pieces[number], pieces[number ^ flip], 15, number, observable, 1, False, sums)
        values = extension.part_term_values(observable, 15, sums, None)
        assert values.tobytes() == extension.term_values(state._live(), observable).tobytes()


def test_the_core_looks_at_pieces_and_sums_itself():
    piece, observable = np.zeros(2**13, dtype=np.complex128), Observable("Z0").compiled()
    sums = np.zeros(4)
    add = extension.add_part_values
    add(piece, piece, 15, 3, observable, 1, False, sums)
    for wrong, words in (
        ((piece[:-1], piece, 15, 0, observable, 1, False, sums), "2\\^k amplitudes"),
        ((piece, piece[: 2**12], 15, 0, observable, 1, False, sums), "2\\^k amplitudes"),
        ((piece, piece, 15, 4, observable, 1, False, sums), "no piece 4"),
        ((piece, piece, 64, 0, observable, 1, False, sums), "at most 63 qubits"),
        ((piece, piece, 15, 0, observable, 1, False, sums[:3]), "sums take 4 numbers, got 3"),
        ((piece[: 2**12], piece[: 2**12], 15, 0, observable, 1, False, sums), "13 qubits at least"),
    ):
        with pytest.raises(ValueError, match=words):
            add(*wrong)
    with pytest.raises(ValueError, match="take 4 numbers"):
        extension.part_term_values(observable, 15, sums, np.zeros(3))
    with pytest.raises(TypeError):
        add(piece.astype(np.complex64), piece, 15, 0, observable, 1, False, sums)
    frozen = np.zeros(4)
    frozen.flags.writeable = False
    with pytest.raises(ValueError):
        add(piece, piece, 15, 0, observable, 1, False, frozen)


@pytest.mark.parametrize("precision", ["double", "single"])
def test_records_of_some_shots_tell_together_what_all_tell(precision):
    circuit = Circuit(4)
    for q in range(4):
        circuit.ry(0.3 + q, q).channel(Channel.amplitude_damping(0.3), q).channel(Channel.depolarizing(0.2), q)
    core = PreparedTrajectories(circuit, (), precision).whole
    observables = [Observable("Z0 X3").compiled(), Observable("Y1").compiled()]

    def told(first, shots, **more):
        return core.run(7, first, shots, 1, None, None, [], observables, True, **more)

    whole, parts = told(0, 500), [told(first, shots, keeps_records=True) for first, shots in ((499, 1), (0, 120), (120, 379))]
    histories, shots, values = map(np.concatenate, zip(*parts))
    distinct, means, errors = extension.combined_trajectories(histories, shots, values)
    assert 1 < distinct == whole[0] < len(histories)
    assert means.tobytes() == whole[1].tobytes() and errors.tobytes() == whole[2].tobytes()


def test_the_core_looks_at_records_itself():
    words, values = np.zeros(3, dtype=np.uint64), np.zeros((3, 2), dtype=np.complex128)
    for wrong in ((words[:2], words, values), (words, words[:2], values), (words, words, values[:2]), (words, words, values.reshape(-1))):
        with pytest.raises(ValueError, match="for each record"):
            extension.combined_trajectories(*wrong)
    with pytest.raises(TypeError):
        extension.combined_trajectories(words, words, values.astype(np.complex64))
    assert extension.combined_trajectories(words[:0], words[:0], values[:0])[0] == 0
