"""NumPy's arrays in the core's hands: where a call lets other threads go on, they stay where they are."""

import threading
import time
import weakref

import numpy as np
import pytest

from velacamplix import Circuit, _core

N = 4
STATES = {"single": _core.StateVectorSingle, "double": _core.StateVectorDouble}
PROGRAMS = {"single": _core.ProgramSingle, "double": _core.ProgramDouble}
COMPLEX = {"single": np.complex64, "double": np.complex128}


def words(count=1000):
    return np.arange(count, dtype=np.uint64)


def basis_state(entries=2**N, kind=np.complex128):
    return np.eye(1, entries, dtype=kind)[0].copy()


# Of every call that waits for a state's turn: its arrays, and the call.
CALLS = {
    "sample": lambda state, own: ([words()], lambda shots: _core.sample(state, shots, [0, 1])),
    "sample_keyed": lambda state, own: (
        [words(), words()],
        lambda outcomes, shots: _core.sample_keyed(state, outcomes, 7, shots, 0, [0, 1]),
    ),
    "copy_amplitudes": lambda state, own: (
        [basis_state(kind=own)],
        lambda out: _core.copy_amplitudes(state, out, permuted=True),
    ),
    "reset_from": lambda state, own: ([basis_state(kind=own)], lambda given: state.reset_from(given, permuted=True)),
    "prepare": lambda state, own: ([basis_state()], lambda data: _core.prepare(state, data, list(range(N)))),
    "qram": lambda state, own: ([basis_state()], lambda data: _core.qram(state, data, list(range(N)), 2)),
    "binary_qram": lambda state, own: ([words(4) % 4], lambda data: _core.binary_qram(state, data, list(range(N)), 2)),
}


@pytest.mark.parametrize("precision", STATES)
@pytest.mark.parametrize("call", CALLS)
def test_no_array_can_be_resized_while_a_call_waits_for_the_state(call, precision):
    state, program = STATES[precision](N), PROGRAMS[precision](N)
    state.reset()
    program.add(Circuit(N).h(0).instructions, list(range(N)))
    arrays, act = CALLS[call](state, COMPLEX[precision])
    waiting = threading.Thread(target=act, args=arrays, daemon=True)
    told = []

    def while_the_state_is_taken(done, total):
        if told:
            return
        waiting.start()
        until = time.monotonic() + 60
        while weakref.getweakrefcount(arrays[0]) == 0 and time.monotonic() < until:
            time.sleep(1e-3)
        for array in arrays:
            try:
                array.resize(0, refcheck=False)
                told.append("resized")
            except ValueError:
                told.append("refused")

    program.run(state, while_the_state_is_taken, 0.0)
    waiting.join(60)
    assert not waiting.is_alive()
    assert told == ["refused"] * len(arrays)
    # Nothing holds them any more.
    for array in arrays:
        array.resize(0, refcheck=False)


@pytest.mark.parametrize("call", ["first", "second"])
def test_words_at_odd_addresses_are_refused(call):
    state = _core.StateVectorDouble(N)
    state.reset()
    odd = np.zeros(8 * 5 + 1, np.uint8)[1:].view(np.uint64)
    arrays = (odd, words(5)) if call == "first" else (words(5), odd)
    with pytest.raises(ValueError, match="odd addresses"):
        _core.sample_keyed(state, arrays[0], 7, arrays[1], 0, [0])
    with pytest.raises(ValueError, match="odd addresses"):
        _core.shot_words(arrays[0], 7, arrays[1], 0, 0)
