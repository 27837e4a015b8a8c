"""Arrays of amplitudes go in and come out in one order, and whoever leaves the order open is warned for one release."""

import copy
import pickle
import warnings

import numpy as np
import pytest
from full_matrices import random_state

from velacamplix import Circuit, StateVector, run

# Qubit 0 is 1: index 1 in little-endian order, 4 in big-endian.
LITTLE, BIG = np.eye(8)[1], np.eye(8)[4]


@pytest.fixture(autouse=True)
def no_other_warning():
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        yield


def state():
    return StateVector(3).x(0)


@pytest.mark.parametrize("n", [1, 4, 15, 17])
def test_what_came_out_goes_in_as_the_same_state(n, precision):
    begin = StateVector(n, precision, threads=2).set_state(random_state(n, seed=n), order="little")
    expected = begin.array.tobytes()
    # The state's own array needs no order.
    assert StateVector(n, precision).set_state(begin.array).array.tobytes() == expected
    assert run(Circuit(n), initial=begin.array, precision=precision).state.array.tobytes() == expected
    assert begin.set_state(begin.array).array.tobytes() == expected
    for order in ("little", "big"):
        copied = begin.statevector(order=order)
        assert StateVector(n, precision).set_state(copied, order=order).array.tobytes() == expected
        assert run(Circuit(n), initial=copied, initial_order=order, precision=precision).state.array.tobytes() == expected


def test_copies_and_pickles_are_silent():
    begin = StateVector(3).set_state(random_state(3, 1), order="little")
    for other in (begin.copy(), copy.copy(begin), copy.deepcopy(begin), pickle.loads(pickle.dumps(begin))):
        assert other.array.tobytes() == begin.array.tobytes()
    assert run(Circuit(3), initial=begin).state.array.tobytes() == begin.array.tobytes()


CALLS = {
    "set_state": lambda array, order=None: StateVector(3).set_state(array, order).to_dict(),
    "run": lambda array, order=None: run(Circuit(3), initial=array, initial_order=order).state.to_dict(),
}


@pytest.mark.parametrize("name", sorted(CALLS))
def test_an_array_taken_in(name):
    call = CALLS[name]
    assert call(LITTLE, "little") == call(BIG, "big") == state().to_dict()
    cure = {"set_state": 'order="little"', "run": 'initial_order="little"'}[name]
    for array in (LITTLE, LITTLE.tolist(), LITTLE.astype(np.complex64)[:, np.newaxis][:, 0]):
        with pytest.warns(FutureWarning, match=f"qubit q as bit q of the index.*0.1.*{cure}.*big") as caught:
            assert call(array) == state().to_dict()
        assert len(caught) == 1 and caught[0].filename == __file__
    # These are the same state in either order.
    for same in (np.eye(8)[0], np.eye(8)[5], np.full(8, 8**-0.5), np.array([0, 1, 1, 0, 1, 0, 0, 0]) / np.sqrt(3)):
        assert call(same) == call(same, "little") == call(same, "big")


def test_an_array_given_out():
    begin = state()
    out = np.empty(8, complex)
    for give in (begin.statevector, lambda: begin.statevector(out=out)):
        with pytest.warns(FutureWarning, match='StateVector.array.*0.1.*order="little".*big') as caught:
            assert give().tolist() == LITTLE.tolist()
        assert len(caught) == 1 and caught[0].filename == __file__
    assert begin.statevector("little").tolist() == LITTLE.tolist()
    assert begin.statevector("big").tolist() == BIG.tolist()
    assert StateVector(3).x(1).statevector().tolist() == np.eye(8)[2].tolist()


@pytest.mark.parametrize("n", [15, 16])
def test_a_difference_is_found_wherever_it_is(n):
    # Differs from its mirror image in one pair of amplitudes, in one of several pieces.
    array = np.zeros(2**n)
    array[0] = 0.6
    array[2 ** (n - 1) + 1] = array[3 << (n - 3)] = 0.8 / np.sqrt(2)
    with pytest.warns(FutureWarning):
        StateVector(n).set_state(array)
    array[3 << (n - 3)], array[2**n - 1] = 0, 0.8 / np.sqrt(2)
    StateVector(n).set_state(array)


def test_numbers_and_texts_have_qubit_0_first():
    for given in ("100", 4):
        assert run(Circuit(3), initial=given).amplitude("100") == 1
        assert StateVector(3).set_basis_state(given).to_dict() == state().to_dict()
        assert run(Circuit(3), initial=given, initial_order="big").amplitude("100") == 1
        assert run(Circuit(3), initial=given, initial_order="little").amplitude("001") == 1


def test_an_order_of_nothing_is_refused():
    for given in (None, StateVector(3)):
        with pytest.raises(TypeError, match="initial_order can only be given for a number, a text or an array"):
            run(Circuit(3), initial=given, initial_order="big")
    with pytest.raises(ValueError, match="initial_order must be 'big' or 'little', got 'middle'"):
        run(Circuit(3), initial=LITTLE, initial_order="middle")


# The old way to set a state


def test_reset_takes_nothing():
    assert state().reset().to_dict() == {"000": 1}


@pytest.mark.parametrize(
    ("given", "order", "expected", "cure"),
    [
        ("100", None, "100", "set_basis_state"),
        ("100", "little", "001", "set_basis_state"),
        (4, None, "100", "set_basis_state"),
        (0, None, "000", "set_basis_state"),
        (None, "big", "000", "set_basis_state"),
        (LITTLE, "little", "100", r"set_state\(array, order="),
        (BIG, "big", "100", r"set_state\(array, order="),
        (np.eye(8)[2], None, "010", r"set_state\(array, order="),
    ],
)
def test_reset_to_something_still_works_and_warns(given, order, expected, cure):
    arguments = {} if order is None else {"order": order}
    with pytest.warns(FutureWarning, match=f"StateVector.reset takes no arguments.*{cure}") as caught:
        assert state().reset(given, **arguments).to_dict() == {expected: 1}
    assert len(caught) == 1 and caught[0].filename == __file__


def test_reset_to_an_array_without_an_order_warns_of_both():
    with pytest.warns(FutureWarning) as caught:
        assert StateVector(3).reset(LITTLE).to_dict() == state().to_dict()
    assert len(caught) == 2 and "qubit q as bit q" in str(caught[1].message)


def test_a_class_of_the_users_own_is_where_the_warning_points():
    class Own(StateVector):
        def begin(self):
            return self.reset(4)

    with pytest.warns(FutureWarning) as caught:
        assert Own(3).begin().to_dict() == state().to_dict()
    assert caught[0].filename == __file__
