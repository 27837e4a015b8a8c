"""Many parameters under one name."""

import copy
import pickle

import numpy as np
import pytest

from velacamplix import Circuit, Parameter, ParameterVector, run


def test_a_sequence_of_parameters():
    theta = ParameterVector("theta", 3)
    assert list(theta) == [Parameter("theta[0]"), Parameter("theta[1]"), Parameter("theta[2]")] and len(theta) == 3
    assert theta[-1] == Parameter("theta[2]") and theta[1:] == (Parameter("theta[1]"), Parameter("theta[2]"))
    assert theta == ParameterVector("theta", 3) != ParameterVector("theta", 4) and len({theta, ParameterVector("theta", 3)}) == 1
    assert pickle.loads(pickle.dumps(theta)) == copy.deepcopy(theta) == theta and repr(theta) == "ParameterVector('theta', 3)"
    assert len(ParameterVector("none", 0)) == 0 and theta.name == "theta"


def test_bind_takes_it_with_an_array():
    theta, phi = ParameterVector("theta", 4), Parameter("phi")
    circuit = Circuit(4).ry(theta, range(4)).rz(2 * theta[3] + phi, 0)
    values = np.array([0.1, 0.2, 0.3, 0.4])
    expected = Circuit(4).ry(values, range(4)).rz(2 * 0.4 + 0.5, 0)
    for bound in (
        circuit.bind({theta: values, phi: 0.5}), circuit.bind({theta: list(values)}, phi=0.5),
        circuit.bind({theta: values}).bind(phi=0.5), circuit.bind({"phi": 0.5, theta: tuple(values)}),
    ):  # fmt: skip
        assert bound == expected
        assert run(bound).state.array.tobytes() == run(expected).state.array.tobytes()


def test_the_order_is_that_of_the_vector_whatever_appears_first():
    theta = ParameterVector("theta", 2)
    circuit = Circuit(1).rx(theta[1], 0).rx(theta[0], 0)
    assert circuit.bind({theta: [0.1, 0.2]}) == Circuit(1).rx(0.2, 0).rx(0.1, 0)
    assert circuit.bind([0.1, 0.2]) == Circuit(1).rx(0.1, 0).rx(0.2, 0)  # without names that of appearance


MISTAKES = {
    "too few": (ValueError, "values of 'theta' must be 3, one for each element, got 2", lambda c, t: c.bind({t: [0.1, 0.2]})),
    "too many": (ValueError, "values of 'theta' must be 3", lambda c, t: c.bind({t: [0.1] * 4})),
    "a number": (TypeError, "values of 'theta' must be a sequence of numbers, got 0.5", lambda c, t: c.bind({t: 0.5})),
    "a text": (TypeError, r"value of 'theta\[1\]' must be a real number", lambda c, t: c.bind({t: [0.1, "a", 0.2]})),
    "infinite": (ValueError, r"value of 'theta\[2\]' must be finite", lambda c, t: c.bind({t: [0.1, 0.2, np.inf]})),
    "twice": (ValueError, r"values must give each parameter once, got 'theta\[0\]' twice", lambda c, t: c.bind({t: [1, 2, 3], t[0]: 1})),
    "not in the circuit": (ValueError, r"values must be for parameters of the circuit.*got 'phi\[0\]'", lambda c, t: c.bind({ParameterVector("phi", 1): [1]})),
    "a name that is no text": (TypeError, "name of a parameter must be a text", lambda c, t: ParameterVector(3, 3)),
    "no name": (ValueError, "must not be empty", lambda c, t: ParameterVector("", 3)),
    "a length below 0": (ValueError, "length must be an integer from 0 to 1000000, got -1", lambda c, t: ParameterVector("a", -1)),
    "a length without end": (ValueError, "length must be an integer from 0 to 1000000", lambda c, t: ParameterVector("a", 10**12)),
    "no such element": (IndexError, "out of range", lambda c, t: t[3]),
}  # fmt: skip


@pytest.mark.parametrize("case", MISTAKES)
def test_mistakes(case):
    kind, message, call = MISTAKES[case]
    theta = ParameterVector("theta", 3)
    with pytest.raises(kind, match=message):
        call(Circuit(3).rx(theta, range(3)), theta)
