"""Shots: the right outcomes, the right frequencies, the same for the same seed."""

import threading

import numpy as np
import pytest
from full_matrices import bits, random_state
from refusals import refused

from velacamplix import Circuit, StateVector, _core, run
from velacamplix.states import sampling as _sampling


def outcome(index, qubits, order):
    """What the listed qubits read in a basis state, as a number."""
    read = [index >> qubit & 1 for qubit in qubits]
    return int("".join(map(str, read if order == "big" else read[::-1])) or "0", 2)


@pytest.fixture
def random(precision):
    """A state of 4 qubits and the probabilities of its indices."""
    amplitudes = random_state(4, seed=5)
    state = StateVector(4, precision, threads=2, seed=11).set_state(amplitudes, order="little")
    return state, np.abs(amplitudes) ** 2


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("qubits", [[0], [2, 0], [0, 2], [3, 1, 2], [0, 1, 2, 3]])
def test_a_basis_state_gives_its_own_bits(qubits, order, precision):
    for index in range(16):
        state = StateVector(4, precision)
        for qubit, bit in enumerate(bits(index, 4)):
            if bit:
                state.x(qubit)
        expected = outcome(index, qubits, order)
        assert state.sample(3, qubits, order).tolist() == [expected] * 3
        assert state.measure(qubits, order=order) == expected
        assert state.counts(3, qubits, order) == {format(expected, f"0{len(qubits)}b"): 3}


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("qubits", [None, [3, 0], [1], [2, 1, 3, 0]])
def test_frequencies_are_the_probabilities(random, qubits, order):
    state, probabilities = random
    listed = range(4) if qubits is None else qubits
    expected = np.zeros(2 ** len(listed))
    for index, probability in enumerate(probabilities):
        expected[outcome(index, listed, order)] += probability
    shots = 200_000
    seen = np.bincount(state.sample(shots, qubits, order).astype(int), minlength=len(expected))
    chi_square = ((seen - shots * expected) ** 2 / (shots * expected)).sum()
    # Mean and variance of the distribution are the degrees of freedom and twice that.
    freedom = len(expected) - 1
    assert abs(chi_square - freedom) < 5 * np.sqrt(2 * freedom)


def test_little_mirrors_big(random):
    state, _ = random
    shots = {}
    for order in ("big", "little"):
        state.seed = 3
        shots[order] = [format(outcome, "04b") for outcome in state.sample(50, order=order).tolist()]
    assert shots["little"] == [text[::-1] for text in shots["big"]]


def test_outcomes_are_unsigned_64_bit_numbers():
    sampled = StateVector(2).sample(4)
    assert sampled.dtype == np.uint64 and sampled.shape == (4,)
    assert type(StateVector(2).measure()) is int


def test_the_state_does_not_change(random):
    state, _ = random
    before = state.array.tobytes()
    state.sample(10), state.counts(10), state.measure(), state.measure([1, 3])
    assert state.array.tobytes() == before


@pytest.mark.parametrize("threads", [1, 2, 3, 7])
def test_the_same_seed_gives_the_same_shots_on_any_number_of_threads(threads, precision):
    def shots(threads):
        state = StateVector(10, precision, threads, seed=2024).set_state(random_state(10, 1), order="little")
        return state.sample(5000)

    assert (shots(threads) == shots(1)).all()


def test_shots_are_those_of_the_engine_and_a_sequential_sum():
    amplitudes = random_state(6, seed=9)
    state = StateVector(6, seed=4).set_state(amplitudes, order="little")
    sums = np.add.accumulate(state.array.real**2 + state.array.imag**2)
    expected = []
    for number in mt19937_64(4, 1000):
        index = min(int(np.searchsorted(sums, float(number) * 2.0**-64)), 63)
        expected.append(int(format(index, "06b")[::-1], 2))
    assert state.sample(1000).tolist() == expected


def mt19937_64(seed, count):
    """The 64-bit Mersenne Twister, from its definition."""
    mask = 2**64 - 1
    words = [seed]
    for i in range(1, 312):
        words.append((6364136223846793005 * (words[-1] ^ words[-1] >> 62) + i) & mask)
    for i in range(count):
        y = words[i] & 0xFFFFFFFF80000000 | words[i + 1] & 0x7FFFFFFF
        words.append(words[i + 156] ^ y >> 1 ^ (0xB5026F5AA96619E9 if y & 1 else 0))
        x = words[-1]
        x ^= x >> 29 & 0x5555555555555555
        x ^= x << 17 & 0x71D67FFFEDA60000
        x ^= x << 37 & 0xFFF7EEE000000000
        yield (x ^ x >> 43) & mask


def test_one_call_and_many_continue_the_same_numbers(random):
    state, _ = random
    together = state.sample(60)
    state.seed = 11
    assert np.concatenate([state.sample(10), state.sample(20), [state.measure() for _ in range(30)]]).tolist() == (
        together.tolist()
    )


def test_long_samples_are_drawn_in_pieces(random, monkeypatch):
    state, _ = random
    whole, state.seed = state.sample(1000), 11
    monkeypatch.setattr(_sampling.Sampling, "_pieces", lambda self, count: [(0, 7), (7, 400), (400, count)])
    in_pieces, state.seed = state.sample(1000), 11
    assert (whole == in_pieces).all()
    counts = state.counts(1000)
    assert counts == {format(o, "04b"): int((whole == o).sum()) for o in np.unique(whole)}


@pytest.mark.parametrize("count", [0, 1, 2**22, 2**22 + 1, 10**8])
def test_pieces_cover_every_shot_once(count):
    pieces = list(StateVector(3)._pieces(count))
    assert sum(stop - start for start, stop in pieces) == count
    assert all(earlier[1] == later[0] for earlier, later in zip(pieces, pieces[1:]))


def test_counts_are_sorted_and_add_up(random):
    state, _ = random
    counts = state.counts(500, [2, 1])
    assert list(counts) == sorted(counts) and sum(counts.values()) == 500
    assert all(type(count) is int for count in counts.values())


def test_no_shots_and_no_qubits():
    state = StateVector(2).h(0)
    assert state.sample(0).shape == (0,) and state.counts(0) == {}
    assert state.sample(3, []).tolist() == [0, 0, 0] and state.counts(3, []) == {"": 3}
    assert state.measure([]) == 0
    nothing = StateVector(0)
    assert nothing.sample(2).tolist() == [0, 0] and nothing.counts(2) == {"": 2} and nothing.measure() == 0


def test_a_single_qubit_needs_no_list():
    state = StateVector(3).x(1)
    assert state.sample(2, 1).tolist() == [1, 1] and state.counts(2, 1) == {"1": 2} and state.measure(1) == 1


# Measuring and projecting


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("qubits", [[1], [3, 0], [0, 3], [2, 0, 1], [0, 1, 2, 3], []])
def test_projection_against_the_projector(random, qubits, order, precision):
    state, _ = random
    before = state.array.astype(complex)
    for value in range(2 ** len(qubits)):
        keeps = np.array([outcome(index, qubits, order) == value for index in range(16)])
        expected = np.where(keeps, before, 0)
        expected /= np.linalg.norm(expected)
        for given in (value, format(value, f"0{len(qubits)}b") if qubits else ""):
            projected = state.copy().project(qubits, given, order)
            assert np.allclose(projected.array, expected, atol={"double": 1e-14, "single": 1e-6}[precision])

        cleared = np.zeros(16, complex)
        mask = sum(1 << qubit for qubit in qubits)
        for index in np.flatnonzero(keeps):
            cleared[index & ~mask] = expected[index]
        moved = state.copy().project_then_reset(qubits, value, order)
        assert np.allclose(moved.array, cleared, atol={"double": 1e-14, "single": 1e-6}[precision])


def test_projecting_twice_is_projecting_once(random):
    state, _ = random
    once = state.project([2, 0], "10").array.copy()
    assert np.allclose(state.project([2, 0], "10").array, once, atol=1e-6)
    assert state.probability("10", [2, 0]) == pytest.approx(1, abs=1e-6)


def test_a_single_qubit_can_be_projected():
    assert StateVector(2).h(0).h(1).project(1, "1").to_dict(1e-9).keys() == {"01", "11"}


@pytest.mark.parametrize("method", ["project", "project_then_reset"])
def test_an_impossible_outcome_is_refused_and_changes_nothing(method, precision):
    state = StateVector(3, precision).h(1)
    before = state.array.tobytes()
    with refused(ValueError, "value must be an outcome of non-zero probability", "'01'", "(0, 2)"):
        getattr(state, method)([0, 2], "01")
    assert state.array.tobytes() == before


@pytest.mark.parametrize("order", ["big", "little"])
def test_a_collapsing_measurement_keeps_what_it_found(random, order):
    state, _ = random
    for _ in range(20):
        copy = state.copy()
        copy.seed = None
        found = copy.measure([3, 1], collapse=True, order=order)
        assert copy.probability(found, [3, 1], order) == pytest.approx(1, abs=1e-6)
        assert copy.measure([3, 1], order=order) == found


def test_collapsing_leaves_the_rest_entangled():
    ghz = StateVector(3).h(0).cnot(0, 1).cnot(1, 2)
    assert ghz.measure(0, collapse=True) == ghz.measure(2) == ghz.measure(1)


def test_collapsing_never_ends_in_an_impossible_outcome(precision):
    state = StateVector(2, precision)
    # An engine that gives nothing but 0.
    _core.set_engine(state._live(), "1 " + "0 " * 312 + "0")
    assert state.measure() == 3  # impossible, but that is what a number of exactly 0 gives
    assert state.measure(collapse=True) == 0
    assert state.to_dict() == {"00": 1}


def test_a_state_of_norm_zero_has_nothing_to_collapse_to():
    state = StateVector(2).matrix(np.zeros((2, 2)), 0, check=False)
    with pytest.raises(ValueError, match="finite number above 0, got 0"):
        state.measure(collapse=True)


# Seeds


def test_the_seed_is_what_was_given(precision):
    assert StateVector(1, precision, seed=0).seed == 0
    assert StateVector(1, precision, seed=np.uint32(2**32 - 1)).seed == 2**32 - 1
    state = StateVector(1, precision)
    state.seed = 17
    assert state.seed == 17 and type(state.seed) is int


def test_seeds_come_by_chance_unless_told():
    assert len({StateVector(1).seed for _ in range(20)}) > 15
    state = StateVector(1, seed=5)
    seeds = set()
    for _ in range(20):
        state.seed = None
        seeds.add(state.seed)
    assert len(seeds) > 15


def test_a_drawn_seed_repeats_the_shots():
    state = StateVector(8).set_basis_state("+" * 8)
    assert (state.sample(50) == StateVector(8, seed=state.seed).set_basis_state("+" * 8).sample(50)).all()


@pytest.mark.parametrize("kind", [np.random.PCG64, np.random.MT19937, np.random.Philox])
def test_a_generator_gives_its_next_number(kind):
    numbers = np.random.Generator(kind(3)).integers(2**32, size=4).tolist()
    generator = np.random.Generator(kind(3))
    seeds = [StateVector(1, seed=generator).seed, StateVector(1, seed=generator).seed]
    state = StateVector(1)
    state.seed = generator
    circuit = Circuit(2).h(0).h(1)
    result = run(circuit, shots=50, seed=generator)
    assert [*seeds, state.seed, result.seed] == numbers
    assert run(circuit, shots=50, seed=numbers[3]).shots.tolist() == result.shots.tolist()


def test_a_sequence_of_seeds_gives_the_same_number_each_time():
    sequence = np.random.SeedSequence(10**40)
    first = int(np.random.SeedSequence(10**40).generate_state(1)[0])
    children = sequence.spawn(3)
    assert StateVector(1, seed=sequence).seed == StateVector(1, seed=sequence).seed == first
    assert run(Circuit(1).h(0), shots=3, seed=sequence).seed == first
    assert len({StateVector(1, seed=child).seed for child in children} | {first}) == 4


@pytest.mark.parametrize("number", [-1, 2**32, 0.5, None, "7"])
def test_a_generator_that_gives_no_seed(number):
    class Odd(np.random.Generator):
        def integers(self, *arguments, **others):
            return number

    with pytest.raises((TypeError, ValueError), match="seed must be an integer from 0 to 4294967295"):
        StateVector(1, seed=Odd(np.random.PCG64(1)))


def test_what_other_generators_are_told():
    for wrong in (np.random.RandomState(1), np.random.PCG64(1), np.random.default_rng):
        with refused(TypeError, "a numpy.random.Generator or a SeedSequence, which takes integers of any size"):
            StateVector(1, seed=wrong)


@pytest.mark.parametrize("seed", [-1, 2**32, 10**30])
def test_seeds_out_of_range(seed):
    with refused(ValueError, "seed must be an integer from 0 to 4294967295"):
        StateVector(1, seed=seed)
    state = StateVector(1, seed=1)
    with refused(ValueError, "seed must be"):
        state.seed = seed
    assert state.seed == 1


@pytest.mark.parametrize("seed", [True, 1.0, "1", [1]])
def test_seeds_of_a_wrong_kind(seed):
    with refused(TypeError, "seed must be an integer"):
        StateVector(1, seed=seed)


# Wrong arguments


@pytest.mark.parametrize("method", ["sample", "counts"])
@pytest.mark.parametrize(
    ("shots", "error"),
    [(-1, ValueError), (True, TypeError), (10.0, TypeError), ("10", TypeError), (None, TypeError), (2**63, ValueError)],
)
def test_bad_numbers_of_shots(method, shots, error):
    state = StateVector(2, seed=1)
    with refused(error, "shots must be an integer from 0 to"):
        getattr(state, method)(shots)
    assert state.seed == 1


def test_more_shots_than_memory_holds():
    with pytest.raises(MemoryError, match=r"an array of 1000000000000 shots needs 7\.3 TiB; .* are available"):
        StateVector(2).sample(10**12)


@pytest.mark.parametrize("method", ["sample", "counts", "measure", "project", "project_then_reset"])
@pytest.mark.parametrize(
    ("qubits", "error", "words"),
    [
        ([3], IndexError, "qubits[0] must be a number from 0 to 2, got 3"),
        ([0, -1], IndexError, "qubits[1] must be a number from 0 to 2, got -1"),
        ([1, 1], ValueError, "qubits must be distinct, got 1 twice"),
        ([0.0], TypeError, "qubits[0] must be an integer"),
        ("01", TypeError, "qubits must be a sequence of integers, got '01'"),
        (True, TypeError, "must be"),
    ],
)
def test_bad_qubits(method, qubits, error, words):
    state = StateVector(3)
    with refused(error, words):
        if method in ("sample", "counts"):
            getattr(state, method)(5, qubits)
        elif method == "measure":
            state.measure(qubits)
        else:
            getattr(state, method)(qubits, 0)


@pytest.mark.parametrize(
    ("value", "error"),
    [(4, ValueError), (-1, ValueError), ("0", ValueError), ("012", ValueError), ("0a", ValueError), (None, TypeError)],
)
def test_bad_values_to_project_onto(value, error):
    with refused(error, "value must be"):
        StateVector(3).project([0, 1], value)


def test_projection_names_its_qubits():
    with refused(TypeError, "qubits must be a sequence of integers, got None"):
        StateVector(2).project(None, 0)


@pytest.mark.parametrize("method", ["sample", "counts"])
def test_bad_orders(method):
    with refused(ValueError, "order must be 'big' or 'little', got 'middle'"):
        getattr(StateVector(2), method)(1, order="middle")
    with refused(TypeError, "collapse must be True or False, got 'little'"):
        StateVector(2).measure([0], "little")


def test_two_threads_on_one_state_take_turns():
    state = StateVector(12, seed=3).set_basis_state("+" * 12)
    expected = np.sort(state.sample(4000))
    state.seed = 3
    drawn = []
    workers = [threading.Thread(target=lambda: drawn.extend(state.sample(100).tolist())) for _ in range(40)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    # Whoever came first, each number of the engine decided one shot.
    assert (np.sort(drawn) == expected).all()
