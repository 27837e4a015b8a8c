"""Channels against the formulas of the textbooks, written out with NumPy alone."""

import copy
import itertools
import math
import pickle

import numpy as np
import pytest

from velacamplix import Channel

I2, X, Y, Z = np.eye(2), np.array([[0, 1], [1, 0]]), np.array([[0, -1j], [1j, 0]]), np.diag([1, -1])
PAULIS = {"I": I2, "X": X, "Y": Y, "Z": Z}
CLOSE = 1e-14


def product(letters):
    """Letter j acts on qubit j, which is bit j: the last letter is the leftmost factor."""
    matrix = np.eye(1)
    for letter in letters:
        matrix = np.kron(PAULIS[letter], matrix)
    return matrix


def random_state(n_qubits, seed=1):
    """A density matrix of full rank with complex coherences."""
    rng = np.random.default_rng(seed)
    root = rng.normal(size=(2**n_qubits,) * 2) + 1j * rng.normal(size=(2**n_qubits,) * 2)
    return root @ root.conj().T / np.trace(root @ root.conj().T)


def random_unitary(size, seed=1):
    rng = np.random.default_rng(seed)
    return np.linalg.qr(rng.normal(size=(size, size)) + 1j * rng.normal(size=(size, size)))[0]


def random_kraus(size, count, seed=1):
    """Blocks of a matrix whose columns are orthonormal."""
    rng = np.random.default_rng(seed)
    rows = np.linalg.qr(rng.normal(size=(size * count, size)) + 1j * rng.normal(size=(size * count, size)))[0]
    return list(rows.reshape(count, size, size))


def act(operators, rho):
    return sum(operator @ rho @ np.conj(operator).T for operator in operators)


def by_superoperator(channel, rho):
    size = len(rho)
    flat = [rho[ket, bra] for bra in range(size) for ket in range(size)]
    out = channel.superoperator() @ flat
    return np.array([[out[bra * size + ket] for bra in range(size)] for ket in range(size)])


def by_choi(channel, rho):
    """trace over the input of (rho^T ⊗ 1) Choi."""
    size = len(rho)
    blocks = channel.choi().reshape(size, size, size, size)  # in, out, in', out'
    return np.einsum("iojp,ij->op", blocks, rho)


GAMMA, EXCITED, TIME, T1, T2 = 0.3, 0.2, 0.7, 2.0, 2.5
KRAUS = random_kraus(4, 3)
UNITARIES = [random_unitary(8, 1), random_unitary(8, 2)]

# A channel and what it does, by the formula.
FORMULAS = {
    "depolarizing": (Channel.depolarizing(0.3), lambda rho: 0.7 * rho + 0.3 * I2 / 2),
    "depolarizing two": (Channel.depolarizing(0.3, 2), lambda rho: 0.7 * rho + 0.3 * np.eye(4) / 4),
    "depolarizing four": (Channel.depolarizing(0.2, 4), lambda rho: 0.8 * rho + 0.2 * np.eye(16) / 16),
    "depolarizing beyond 1": (Channel.depolarizing(4 / 3), lambda rho: -rho / 3 + 4 / 3 * I2 / 2),
    "an error's probability": (
        Channel.depolarizing(error_probability=0.15, qubits=2),
        lambda rho: 0.85 * rho + 0.01 * act([product(p) for p in itertools.product("IXYZ", repeat=2)][1:], rho),
    ),
    "pauli": (
        Channel.pauli({"XYI": 0.1, "ZIY": 0.2}),
        lambda rho: 0.7 * rho + 0.1 * act([product("XYI")], rho) + 0.2 * act([product("ZIY")], rho),
    ),
    "bit flip": (Channel.bit_flip(0.1), lambda rho: 0.9 * rho + 0.1 * X @ rho @ X),
    "phase flip": (Channel.phase_flip(0.1), lambda rho: 0.9 * rho + 0.1 * Z @ rho @ Z),
    "amplitude damping": (
        Channel.amplitude_damping(GAMMA),
        lambda rho: act([np.diag([1, math.sqrt(1 - GAMMA)]), np.array([[0, math.sqrt(GAMMA)], [0, 0]])], rho),
    ),
    "generalized amplitude damping": (
        Channel.generalized_amplitude_damping(GAMMA, EXCITED),
        lambda rho: np.array(
            [
                [rho[0, 0] + GAMMA * (1 - EXCITED - rho[0, 0]), math.sqrt(1 - GAMMA) * rho[0, 1]],
                [math.sqrt(1 - GAMMA) * rho[1, 0], rho[1, 1] + GAMMA * (EXCITED - rho[1, 1])],
            ]
        ),
    ),
    "phase damping": (
        Channel.phase_damping(GAMMA),
        lambda rho: act([np.diag([1, math.sqrt(1 - GAMMA)]), np.diag([0, math.sqrt(GAMMA)])], rho),
    ),
    "reset": (
        Channel.reset(0.2, 0.3),
        lambda rho: 0.5 * rho + np.diag([0.2, 0.3]) * np.trace(rho),
    ),
    "coherent": (Channel.coherent(random_unitary(4)), lambda rho: act([random_unitary(4)], rho)),
    "unitaries": (
        Channel.from_unitaries([0.25, 0.75], UNITARIES),
        lambda rho: 0.25 * act(UNITARIES[:1], rho) + 0.75 * act(UNITARIES[1:], rho),
    ),
    "kraus": (Channel.from_kraus(KRAUS), lambda rho: act(KRAUS, rho)),
}  # fmt: skip


def relaxed(t1, t2, time, excited):
    """Towards `excited` with 1/t1, coherences to 0 with 1/t2."""
    left, kept = math.exp(-time / t1), math.exp(-time / t2)
    return lambda rho: np.array(
        [
            [1 - excited + left * (rho[0, 0] - 1 + excited), kept * rho[0, 1]],
            [kept * rho[1, 0], excited + left * (rho[1, 1] - excited)],
        ]
    )


for name, times in {
    "ordinary": (T1, T2, TIME, 0.0),
    "short t2": (T1, 0.4, TIME, 0.0),
    "warm": (T1, T2, TIME, EXCITED),
    "full": (T1, T2, TIME, 1.0),
    "t2 = 2 t1": (T1, 2 * T1, TIME, 0.0),
    "t2 = 2 t1, warm": (T1, 2 * T1, TIME, 0.5),
    "no decay": (math.inf, T2, TIME, 0.5),
    "nothing at all": (math.inf, math.inf, TIME, 0.0),
    "very long": (T1, 2 * T1, 80 * T1, 0.0),
    "for ever": (T1, T2, 1e4 * T1, 0.1),
    "no time": (T1, T2, 0.0, 0.1),
}.items():
    FORMULAS[f"thermal relaxation, {name}"] = (Channel.thermal_relaxation(*times), relaxed(*times))


@pytest.mark.parametrize("name", FORMULAS)
def test_it_does_what_the_formula_says(name):
    channel, formula = FORMULAS[name]
    rho = random_state(channel.n_qubits)
    expected = formula(rho)
    assert np.abs(act(channel.kraus(), rho) - expected).max() < CLOSE
    assert np.abs(by_superoperator(channel, rho) - expected).max() < CLOSE
    assert np.abs(by_choi(channel, rho) - expected).max() < CLOSE
    if channel.is_mixture:
        total = sum(p * act([unitary], rho) for p, unitary in zip(channel.probabilities, channel.unitaries, strict=True))
        assert np.abs(total - expected).max() < CLOSE
        assert math.fsum(channel.probabilities) == pytest.approx(1, abs=1e-15)
    else:
        assert channel.probabilities is None and channel.unitaries is None
    if channel.pauli_probabilities is not None:
        total = sum(p * act([product(text)], rho) for text, p in channel.pauli_probabilities.items())
        assert np.abs(total - expected).max() < CLOSE
        assert tuple(channel.pauli_probabilities.values()) == channel.probabilities


@pytest.mark.parametrize("name", FORMULAS)
def test_it_is_a_plain_value(name):
    channel, _ = FORMULAS[name]
    twin = pickle.loads(pickle.dumps(channel))
    assert twin == channel and hash(twin) == hash(channel) and repr(twin) == repr(channel) and str(twin) == str(channel)
    assert copy.deepcopy(channel) is channel and copy.copy(channel) is channel
    assert channel != Channel.bit_flip(0.123) and channel != "channel"
    for matrix in (*channel.kraus(), *twin.kraus(), *(twin.unitaries or ())):
        with pytest.raises(ValueError, match="read-only"):
            matrix[0, 0] = 7
    with pytest.raises(AttributeError):
        channel.n_qubits = 3
    if repr(channel).startswith("Channel."):
        assert eval(repr(channel), {"Channel": Channel, "inf": math.inf}) == channel


def test_which_are_pauli_channels_and_which_mixtures():
    kinds = {name: (channel.pauli_probabilities is not None, channel.is_mixture) for name, (channel, _) in FORMULAS.items()}
    assert {name for name, (is_pauli, _) in kinds.items() if is_pauli} == {
        "depolarizing", "depolarizing two", "depolarizing four", "depolarizing beyond 1", "an error's probability", "pauli",
        "bit flip", "phase flip", "phase damping", "thermal relaxation, no decay", "thermal relaxation, nothing at all",
        "thermal relaxation, no time",
    }  # fmt: skip
    assert {name for name, (is_pauli, is_mixture) in kinds.items() if is_mixture and not is_pauli} == {"coherent", "unitaries"}


def test_pauli_probabilities_are_sorted_and_without_zeros():
    channel = Channel.pauli({"ZI": 0.5, "XX": 0.0, "IX": 0.25})
    assert list(channel.pauli_probabilities.items()) == [("II", 0.25), ("IX", 0.25), ("ZI", 0.5)]
    assert Channel.pauli({"X": 1}).pauli_probabilities == {"X": 1.0}
    assert Channel.depolarizing(0).pauli_probabilities == {"I": 1.0}
    channel.pauli_probabilities["II"] = 3
    assert channel.pauli_probabilities["II"] == 0.25


def test_kraus_operators_that_are_a_mixture_are_told_as_one():
    channel = Channel.from_kraus([0.8 * random_unitary(4), 0.6j * random_unitary(4, 3), np.zeros((4, 4))])
    assert channel.is_mixture and channel.probabilities == pytest.approx((0.64, 0.36), abs=1e-15)
    assert np.allclose(channel.unitaries[0], random_unitary(4), atol=1e-15)


def test_equal_channels_are_equal_however_they_are_made():
    assert Channel.bit_flip(0.25) == Channel.pauli({"X": 0.25}) == Channel.pauli({"I": 0.75, "X": 0.25})
    assert len({Channel.bit_flip(0.25), Channel.pauli({"X": 0.25}), Channel.phase_flip(0.25)}) == 2
    assert Channel.from_kraus([np.diag([1.0, 0.8]), [[0, 0.6], [-0.0, 0]]]) == Channel.amplitude_damping(0.36)
    assert Channel.coherent(X) != Channel.coherent(np.kron(X, X))


def test_big_order_is_that_of_gates():
    # CNOT with the first listed qubit as control and highest bit, as circuit.matrix takes it.
    cnot = np.eye(4)[[0, 1, 3, 2]]
    channel = Channel.coherent(cnot, order="big")
    assert np.array_equal(channel.unitaries[0], np.eye(4)[[0, 3, 2, 1]])
    assert np.array_equal(channel.kraus("big")[0], cnot)
    assert Channel.from_kraus(KRAUS, "big") == Channel.from_kraus([matrix[np.ix_([0, 2, 1, 3], [0, 2, 1, 3])] for matrix in KRAUS])
    there = Channel.from_unitaries([0.5, 0.5], UNITARIES, order="big")
    assert np.array_equal(there.superoperator("big"), Channel.from_unitaries([0.5, 0.5], UNITARIES).superoperator())
    assert np.array_equal(there.choi("big"), Channel.from_unitaries([0.5, 0.5], UNITARIES).choi())
    assert there != Channel.from_unitaries([0.5, 0.5], UNITARIES)


PAIRS = ["depolarizing", "bit flip", "amplitude damping", "generalized amplitude damping", "thermal relaxation, warm", "reset"]


@pytest.mark.parametrize("one, two", list(itertools.product(PAIRS, PAIRS)))
def test_one_after_another_and_beside_each_other(one, two):
    (first, before), (second, after) = FORMULAS[one], FORMULAS[two]
    rho = random_state(1)
    together = first.then(second)
    assert np.abs(act(together.kraus(), rho) - after(before(rho))).max() < CLOSE
    assert len(together.kraus()) <= 4
    assert (together.pauli_probabilities is None) == (None in (first.pauli_probabilities, second.pauli_probabilities))
    other = random_state(1, seed=2)
    beside = first.tensor(second)
    assert np.abs(act(beside.kraus(), np.kron(other, rho)) - np.kron(after(other), before(rho))).max() < CLOSE


def test_mixtures_stay_mixtures_while_they_are_short():
    mixture = Channel.from_unitaries([0.5] * 2, UNITARIES)
    for times in range(2, 9):
        mixture = mixture.then(Channel.from_unitaries([0.5] * 2, UNITARIES))
        assert mixture.is_mixture and len(mixture.unitaries) == 2**times
    longer = mixture.then(Channel.from_unitaries([0.5] * 2, UNITARIES))
    assert not longer.is_mixture and len(longer.kraus()) <= 64
    rho = random_state(3)
    expected = rho
    for _ in range(9):
        expected = 0.5 * act(UNITARIES, expected)
    assert np.abs(act(longer.kraus(), rho) - expected).max() < 1e-13


def test_many_operators_become_as_few_as_there_can_be():
    channel = Channel.from_kraus(random_kraus(2, 4))
    twice = channel.then(channel)
    assert len(twice.kraus()) == 4
    assert np.abs(twice.superoperator() - channel.superoperator() @ channel.superoperator()).max() < CLOSE


def test_four_qubits():
    damping = Channel.amplitude_damping(0.2).tensor(Channel.amplitude_damping(0.1))
    wide = damping.tensor(damping).then(Channel.depolarizing(0.25, 4))
    assert wide.n_qubits == 4 and len(wide.kraus()) <= 256
    rho = random_state(4)
    expected = 0.75 * act(damping.tensor(damping).kraus(), rho) + 0.25 * np.eye(16) / 16
    assert np.abs(act(wide.kraus(), rho) - expected).max() < 1e-13
    many = Channel.from_kraus(random_kraus(2, 5)).tensor(Channel.amplitude_damping(0.1))
    assert len(many.kraus()) == 8


def test_choi_matrices_have_the_input_in_the_high_half():
    channel = Channel.amplitude_damping(0.36)
    expected = np.zeros((4, 4), dtype=complex)
    for i, j in itertools.product(range(2), repeat=2):
        unit = np.zeros((2, 2))
        unit[i, j] = 1
        expected += np.kron(unit, act(channel.kraus(), unit))
    assert np.abs(channel.choi() - expected).max() < 1e-15


NAN = float("nan")
WRONG = {
    "exactly one of p, the share of the maximally mixed state, and error_probability": [
        lambda: Channel.depolarizing(), lambda: Channel.depolarizing(0.1, error_probability=0.1),
    ],
    r"p must be from 0 to 4/3 for 1 qubit, where an error is certain, got 1\.4": [lambda: Channel.depolarizing(1.4)],
    r"p must be from 0 to 16/15 for 2 qubits, .* got -0\.1": [lambda: Channel.depolarizing(-0.1, 2)],
    r"error_probability must be a probability, from 0 to 1, got 1\.01": [lambda: Channel.depolarizing(error_probability=1.01)],
    "p must be finite, got nan": [lambda: Channel.depolarizing(NAN), lambda: Channel.bit_flip(NAN)],
    "p must be a real number, got True": [lambda: Channel.bit_flip(True)],
    r"p must be a probability, from 0 to 1, got -1e-09": [lambda: Channel.bit_flip(-1e-9), lambda: Channel.phase_flip(-1e-9)],
    "gamma must be a probability, from 0 to 1, got 2": [
        lambda: Channel.amplitude_damping(2), lambda: Channel.phase_damping(2), lambda: Channel.generalized_amplitude_damping(2, 0),
    ],
    "excited must be a probability": [
        lambda: Channel.generalized_amplitude_damping(0.1, 1.5), lambda: Channel.thermal_relaxation(1, 1, 1, -0.1),
    ],
    "qubits must be an integer from 1 to 4, got 5": [lambda: Channel.depolarizing(0.1, 5)],
    "qubits must be an integer from 1 to 4, got 0": [lambda: Channel.depolarizing(0.1, 0)],
    r"probabilities must add up to at most 1, got 1\.1, which is 0\.1 more": [lambda: Channel.pauli({"X": 0.5, "Z": 0.6})],
    r"probabilities must add up to 1 where the identity is listed, .* 0\.2 less; leave 'I' out": [
        lambda: Channel.pauli({"I": 0.5, "Z": 0.3})
    ],
    r"probabilities\['X'\] must be a probability, from 0 to 1, got -0\.1": [lambda: Channel.pauli({"X": -0.1})],
    r"probabilities\['X'\] must be finite": [lambda: Channel.pauli({"X": NAN})],
    "keys of one length, got lengths 1, 2": [lambda: Channel.pauli({"X": 0.1, "XX": 0.1})],
    r'keys of one length, got none; the channel that does nothing is \{"I": 1\}': [lambda: Channel.pauli({})],
    "keys of 1 to 4 letters I, X, Y, Z, one per qubit, got 'x'": [lambda: Channel.pauli({"x": 0.1})],
    "keys of 1 to 4 letters I, X, Y, Z, one per qubit, got 'XXXXX'": [lambda: Channel.pauli({"XXXXX": 0.1})],
    "keys of 1 to 4 letters I, X, Y, Z, one per qubit, got ''": [lambda: Channel.pauli({"": 0.1})],
    "Pauli strings as keys, got 0": [lambda: Channel.pauli({0: 0.1})],
    "probabilities must be a dictionary of Pauli strings": [lambda: Channel.pauli([("X", 0.1)])],
    r"t2 must be at most 2 \* t1, as the decay itself ends coherences, got t1=1 and t2=2\.1": [
        lambda: Channel.thermal_relaxation(1, 2.1, 0.1)
    ],
    "t1 must be above 0, got 0; math.inf is no decay of this kind": [lambda: Channel.thermal_relaxation(0, 1, 1)],
    "t2 must be finite, got nan": [lambda: Channel.thermal_relaxation(1, NAN, 1)],
    "time must not be negative, got -1": [lambda: Channel.thermal_relaxation(1, 1, -1)],
    "time must be finite": [lambda: Channel.thermal_relaxation(1, 1, math.inf)],
    r"p0 and p1 must add up to at most 1, got 1\.5": [lambda: Channel.reset(0.75, 0.75)],
    r"matrix must be unitary within 1e-12, got one with an entry of U†U that is 3 off": [lambda: Channel.coherent([[2, 0], [0, 1]])],
    r"matrices\[1\] must be unitary within 1e-12": [lambda: Channel.from_unitaries([0.5, 0.5], [I2, [[1, 0], [1, 1]]])],
    r"matrices must be complete, .* within 1e-12, got one with an entry that is 0\.5 off": [
        lambda: Channel.from_kraus([math.sqrt(0.5) * I2])
    ],
    "matrices must be complete": [lambda: Channel.from_kraus([I2 * (1 + 1e-12)]), lambda: Channel.from_kraus([[[1e200, 0], [0, 1]]])],
    "matrices must hold at least one matrix, got none": [lambda: Channel.from_kraus([])],
    r"matrices must be of one size, got shape \(2, 2\) and, as matrices\[1\], \(4, 4\)": [
        lambda: Channel.from_kraus([I2, np.eye(4)])
    ],
    r"matrices\[0\] must be a square array of numbers .* got shape \(3, 3\)": [lambda: Channel.from_kraus([np.eye(3)])],
    r"matrices\[0\] must be a square array of numbers .* got shape \(32, 32\)": [lambda: Channel.from_kraus([np.eye(32)])],
    r"matrices\[0\] must be a square array of numbers .* got shape \(1, 1\)": [lambda: Channel.from_kraus([np.eye(1)])],
    r"matrices\[0\] must be a square array of numbers .* got shape \(2,\)": [lambda: Channel.from_kraus([[1, 0]])],
    r"matrices\[0\] must be a square array .* got \[\[1, 0\], \[1\]\]": [lambda: Channel.from_kraus([[[1, 0], [1]]])],
    r"matrices\[0\] must hold finite numbers only": [lambda: Channel.from_kraus([[[NAN, 0], [0, 1]]])],
    r"matrices\[0\] must be a 2 x 2 array of numbers": [lambda: Channel.from_kraus([[["a", 0], [0, 1]]])],
    "matrices must be a sequence of matrices, got 3": [lambda: Channel.from_kraus(3)],
    "probabilities must be one for each matrix, got 1 for 2": [lambda: Channel.from_unitaries([1.0], [I2, X])],
    r"probabilities must add up to 1, got 0\.9, which is -0\.1 off; list the identity": [
        lambda: Channel.from_unitaries([0.4, 0.5], [I2, X])
    ],
    r"probabilities\[1\] must be a probability, from 0 to 1, got -0\.5": [lambda: Channel.from_unitaries([1.5 - 0.5, -0.5], [I2, X])],
    "order must be 'big' or 'little', got 'huge'": [
        lambda: Channel.coherent(I2, "huge"), lambda: Channel.bit_flip(0.1).kraus("huge"), lambda: Channel.bit_flip(0.1).choi("huge"),
    ],
    "other must be a channel on 1 qubit, got one on 2; one.tensor": [lambda: Channel.bit_flip(0.1).then(Channel.depolarizing(0.1, 2))],
    "other must leave both on at most 4 qubits together, got 5": [
        lambda: Channel.depolarizing(0.1, 2).tensor(Channel.depolarizing(0.1, 3))
    ],
    "other must be a Channel, got 'X'": [lambda: Channel.bit_flip(0.1).then("X"), lambda: Channel.bit_flip(0.1).tensor("X")],
    "Channel must be made by one of its class methods": [lambda: Channel(), lambda: Channel([I2])],
    "Channel.kraus must be asked of a channel, got 3; Channel.from_kraus makes one": [lambda: Channel.kraus(3)],
}  # fmt: skip


@pytest.mark.parametrize("message", WRONG)
def test_what_is_wrong_is_told(message):
    for call in WRONG[message]:
        with pytest.raises((TypeError, ValueError), match=message):
            call()


def test_rounding_is_no_reason_to_refuse():
    tenths = {"X": 0.1, "Y": 0.2, "Z": 0.7}  # 0.1 + 0.2 + 0.7 may be next to 1
    assert Channel.pauli(tenths).pauli_probabilities == tenths
    assert Channel.depolarizing(4**3 / (4**3 - 1), 3).pauli_probabilities.get("III", 0.0) < 1e-15
    hadamard = np.array([[1, 1], [1, -1]]) * 0.7071067811865475
    assert Channel.coherent(hadamard).is_mixture


def test_texts():
    assert str(Channel.depolarizing(0.01, 2)) == "depolarizing(0.01)"
    assert repr(Channel.depolarizing(0.01, 2)) == "Channel.depolarizing(0.01, qubits=2)"
    assert str(Channel.thermal_relaxation(t1=50e-6, t2=70e-6, time=300e-9)) == "thermal_relaxation(5e-05, 7e-05, 3e-07)"
    assert repr(Channel.thermal_relaxation(2, 3, 1)) == "Channel.thermal_relaxation(t1=2.0, t2=3.0, time=1.0)"
    assert str(Channel.pauli({"XI": 0.25})) == "pauli(II 0.75, XI 0.25)" and len(str(Channel.depolarizing(0.1, 4).then(Channel.depolarizing(0.1, 4)))) <= 200
    assert repr(Channel.pauli({"XI": 0.25})) == "Channel.pauli({'II': 0.75, 'XI': 0.25})"
    assert repr(Channel.from_kraus(KRAUS)) == "<Channel from_kraus: 2 qubits, 3 operators>" and str(Channel.from_kraus(KRAUS)) == "from_kraus"
    assert repr(Channel.reset(0.25)) == "Channel.reset(0.25, 0.0)"
