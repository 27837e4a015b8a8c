"""A range takes no room, so that a short line of Python can ask for more than there is memory."""

import re

import pytest

import velacamplix

_LONG = range(10**12)


@pytest.mark.parametrize(
    "call",
    [
        lambda: velacamplix.StateVector(3).overlap(_LONG),
        lambda: velacamplix.StateVector(3).set_state(_LONG, order="little"),
        lambda: velacamplix.Circuit(3).initialize(_LONG, [0, 1]),
        lambda: velacamplix.Circuit(3).unitary(_LONG, 0),
        lambda: velacamplix.Circuit(3).unitary([_LONG, _LONG], 0),
        lambda: velacamplix.Circuit(3).diagonal(_LONG, 0),
        lambda: velacamplix.Observable.from_matrix(_LONG),
        lambda: velacamplix.Channel.coherent(_LONG),
        lambda: velacamplix.Channel.from_dict({"name": "from_unitaries", "probabilities": [1.0], "matrices": _LONG}),
        lambda: velacamplix.NoiseModel().readout(_LONG),
        lambda: velacamplix.run(
            velacamplix.Circuit(1).rx(velacamplix.Parameter("a"), 0), values={"a": _LONG}, observables="Z0"
        ),
    ],
)
def test_long_range_in_the_place_of_an_array_is_shown_and_never_made_one(call):
    # NumPy's own error, a MemoryError without a word, comes for lengths that cannot be; shorter ones would fill the memory.
    with pytest.raises((TypeError, ValueError), match=re.escape(str(_LONG))):
        call()
