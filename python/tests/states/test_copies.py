"""Copies and pickles go on as their original would; the end of a with statement releases."""

import copy
import io
import pickle
from multiprocessing import get_context

import numpy as np
import pytest
from full_matrices import random_state

from velacamplix import StateVector, _core
from velacamplix.machine import limits as _machine
from velacamplix.states import copies as _copies


def made(precision="double"):
    state = StateVector(5, precision, threads=2, seed=77).set_state(random_state(5, 3), order="little")
    state.sample(400)  # the engine is in the middle of its words
    return state


def pickled(protocol):
    return lambda state: pickle.loads(pickle.dumps(state, protocol))


COPIES = [StateVector.copy, copy.copy, copy.deepcopy, *map(pickled, range(pickle.HIGHEST_PROTOCOL + 1))]


@pytest.mark.parametrize("duplicate", COPIES)
def test_the_same_state_and_the_same_future(duplicate, precision):
    state = made(precision)
    other = duplicate(state)
    assert repr(other) == repr(state) and other.seed == 77
    assert other.array.tobytes() == state.array.tobytes()
    assert (other.sample(1000) == state.sample(1000)).all()
    assert other.estimate("X0 + Z1 Y2", 100) == state.estimate("X0 + Z1 Y2", 100)


@pytest.mark.parametrize("duplicate", COPIES)
def test_neither_disturbs_the_other(duplicate):
    state = made()
    before = state.array.tobytes()
    other = duplicate(state)
    other.h(0)
    other.seed = 1
    assert state.array.tobytes() == before and state.seed == 77
    kept = other.array.tobytes()
    state.release()
    assert other.array.tobytes() == kept


def test_pickles_with_buffers_of_their_own():
    state, buffers = made(), []
    data = pickle.dumps(state, 5, buffer_callback=buffers.append)
    assert len(buffers) == 1 and len(data) < 10_000
    assert pickle.loads(data, buffers=buffers).array.tobytes() == state.array.tobytes()


def test_a_pickle_reaches_another_process():
    state = made()
    with get_context("spawn").Pool(1) as pool:
        assert pool.apply(StateVector.counts, (state, 50)) == state.counts(50)


def test_a_pickle_from_a_larger_machine(monkeypatch):
    data = pickle.dumps(made())
    monkeypatch.setattr(_machine, "MOST_THREADS", 1)
    assert pickle.loads(data).threads == 1


def test_a_damaged_engine_is_refused():
    engine = _core.engine(made()._live())
    for wrong in ("", "1 2 3", engine[: len(engine) // 2], "x" + engine):
        with pytest.raises(ValueError, match="not the state of a random engine"):
            _copies._filled((StateVector, 5, "double", 2, wrong), made().array)


@pytest.mark.parametrize("n", [0, 1, 5, 6, 7, 8, 12])
@pytest.mark.parametrize("protocol", [2, 4, 5])
def test_pickles_of_all_sizes_by_either_implementation(n, protocol, precision):
    state = StateVector(n, precision).reset(random_state(n, 3), order="little")
    for write, read in ((pickle.dumps, pickle._loads), (pickle._dumps, pickle.loads)):
        other = read(write(state, protocol))
        assert other.array.tobytes() == state.array.tobytes()
        other.release()


def test_the_reader_of_a_pickle_does_not_keep_the_state_from_its_release():
    for protocol in (4, 5):
        reader = pickle.Unpickler(io.BytesIO(pickle.dumps(made(), protocol)))
        reader.load().release()


def test_a_gate_while_a_pickle_is_written_is_not_in_it():
    state = StateVector(12).reset("+" * 12)
    before = state.array.tobytes()

    class Acting(io.BytesIO):
        def write(self, data):
            state.x(0).z(3)
            return super().write(data)

    for protocol in (2, 4, 5):
        file = Acting()
        pickle.dump(state, file, protocol)
        assert pickle.loads(file.getvalue()).array.tobytes() == before
        state.reset("+" * 12)


class Named(StateVector):
    """A constructor with other arguments."""

    def __init__(self, name):
        super().__init__(2)
        self.name = [name]


@pytest.mark.parametrize("duplicate", COPIES)
def test_classes_that_inherit(duplicate):
    state = Named("a").x(0)
    other = duplicate(state)
    assert type(other) is Named and other.name == ["a"] and other.to_dict() == {"10": 1}
    other.y(1)
    shared = duplicate in (StateVector.copy, copy.copy)
    assert (other.name is state.name) == shared and state.to_dict() == {"10": 1}


@pytest.mark.parametrize("duplicate", COPIES)
def test_what_was_released_has_no_copy(duplicate):
    state = StateVector(1)
    state.release()
    with pytest.raises(RuntimeError, match="has been released"):
        duplicate(state)


# The statement with


def test_with_releases():
    with StateVector(3) as state:
        assert state.x(0).counts(1) == {"100": 1}
    assert "released" in repr(state)
    with pytest.raises(RuntimeError, match="has been released"):
        state.x(0)


def test_with_releases_after_an_error():
    with pytest.raises(KeyError):
        with StateVector(1) as state:
            raise KeyError
    assert "released" in repr(state)


def test_a_state_may_be_released_within():
    with StateVector(1) as state:
        state.release()
    with pytest.raises(RuntimeError, match="has been released"):
        with state:
            pass


def test_a_view_that_outlives_the_statement_is_told():
    with pytest.raises(BufferError, match="view"):
        with StateVector(1) as state:
            view = state.array
    assert view.tolist() == [1, 0]
    del view
    state.release()


def test_a_view_does_not_hide_another_error():
    with pytest.raises(KeyError):
        with StateVector(1) as state:
            view = state.array
            raise KeyError
    assert view is not None and np.shares_memory(view, state.array)
