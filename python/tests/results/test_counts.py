"""Counts: a dict of bit strings with what one does to shots."""

import copy
import json
import pickle
import subprocess
import sys
from collections import Counter

import numpy as np
import pytest

from velacamplix import Circuit, Counts, StateVector, run
from velacamplix.results import shot_rows


def test_order_is_that_of_the_numbers():
    counts = Counts({"110": 1, "001": 2, "010": 3})
    assert list(counts) == ["001", "010", "110"] and list(counts.ints()) == [1, 2, 6]
    assert repr(counts) == "{'001': 2, '010': 3, '110': 1}"


@pytest.mark.parametrize("n_bits", [0, 1, 2, 7, 9, 10, 11, 12, 63, 64, 65, 130])
def test_shots_are_counted_one_by_one(n_bits):
    generator = np.random.default_rng(n_bits)
    bits = generator.integers(0, 2, (2000, n_bits)) * (generator.random(n_bits) < 0.1)
    bits[:, :1] |= np.arange(2000)[:, np.newaxis] % 2  # at least two outcomes, the highest bit among them
    texts = ["".join(map(str, row)) for row in bits.tolist()]
    words = max(1, -(-n_bits // 64))
    octets = b"".join(int(text or "0", 2).to_bytes(8 * words, "big") for text in texts)
    counts = shot_rows.tally(np.frombuffer(octets, dtype=">u8").reshape(2000, words).astype(np.uint64), n_bits)
    assert list(counts.items()) == sorted(Counter(texts).items()) and counts.n_bits == n_bits


def test_a_dict_in_every_respect():
    counts = Counts({"1": 2, "0": 1})
    assert counts == {"0": 1, "1": 2} and {"1": 2, "0": 1} == counts and counts != {"0": 1}
    assert isinstance(counts, dict) and json.loads(json.dumps(counts)) == counts
    assert counts.get("2") is None and sum(counts.values()) == counts.shots == 3


@pytest.mark.parametrize("again", [lambda c: pickle.loads(pickle.dumps(c)), copy.copy, copy.deepcopy, Counts.copy])
@pytest.mark.parametrize("counts", [Counts({"10": 4, "01": 1}), Counts({}, 5), Counts({"": 7})], ids=str)
def test_copies_and_pickles(counts, again):
    twin = again(counts)
    assert type(twin) is Counts and twin == counts and list(twin) == list(counts) and twin.n_bits == counts.n_bits
    twin["0" * twin.n_bits] = 99
    assert counts["0" * counts.n_bits] != 99


def test_an_outcome_that_never_came_was_counted_zero_times():
    counts = Counts({"00": 5})
    assert counts["11"] == 0 and "11" not in counts and len(counts) == 1
    for key in ("1", "111", "2x", 0, None):
        with pytest.raises(KeyError):
            counts[key]


def test_counts_that_grow_by_hand():
    counts = Counts({})
    counts["01"] = 2
    assert counts.n_bits == 2 and counts["10"] == 0 and counts.marginal(1) == {"1": 2}


def test_most_likely():
    counts = Counts({"00": 3, "01": 9, "10": 3, "11": 1})
    assert counts.most_likely() == [("01", 9)]
    assert counts.most_likely(3) == [("01", 9), ("00", 3), ("10", 3)]
    assert counts.most_likely(0) == [] and len(counts.most_likely(100)) == 4 and Counts({}).most_likely(2) == []


def test_marginals_are_counts_of_fewer_qubits():
    state = StateVector(6, seed=3).set_basis_state("++++++").ry(0.4, 2)
    all_six = state.counts(3000)
    state.seed = 3
    some = state.counts(3000, [4, 2, 0])  # other shots, but both are fair
    marginal = all_six.marginal([4, 2, 0])
    assert marginal.shots == 3000 and list(marginal) == sorted(marginal) and set(marginal) == set(some)
    by_hand = {}
    for outcome, times in all_six.items():
        part = outcome[4] + outcome[2] + outcome[0]
        by_hand[part] = by_hand.get(part, 0) + times
    assert marginal == by_hand
    assert all_six.marginal([]) == {"": 3000} and all_six.marginal(range(6)) == all_six
    assert Counts({}, 3).marginal([1]) == {} and Counts({}, 3).marginal([1]).n_bits == 1


def test_numbers_and_hexadecimal_texts():
    counts = Counts({"0" * 70: 1, "1" * 70: 2})
    assert counts.ints() == {0: 1, 2**70 - 1: 2} and counts.hex() == {"0x0": 1, hex(2**70 - 1): 2}
    assert Counts({"": 3}).ints() == {0: 3} and Counts.from_ints({0: 3}, 0) == {"": 3}
    assert Counts.from_ints({np.uint64(2): np.int64(5), 1: 0}, 2) == {"01": 0, "10": 5}


def test_probabilities():
    assert Counts({"0": 1, "1": 3}).probabilities() == {"0": 0.25, "1": 0.75}
    assert Counts({}).probabilities() == {} and Counts({"0": 0}).probabilities() == {}


def test_states_return_counts(precision):
    state = StateVector(3, precision, seed=1).h(0).cnot(0, 2)
    counts = state.counts(100, order="little")
    assert type(counts) is Counts and counts.shots == 100 and counts.n_bits == 3 and set(counts) == {"000", "101"}
    assert type(counts["000"]) is int
    assert state.counts(0).n_bits == 3 and state.counts(7, []) == {"": 7} and state.counts(0, []) == {}


def test_sums_are_the_counts_of_all_shots():
    one, two = Counts({"01": 3, "11": 1}), Counts({"00": 2, "11": 4})
    both = one + two
    assert both == {"00": 2, "01": 3, "11": 5} and list(both) == ["00", "01", "11"] and type(both) is Counts
    assert one == {"01": 3, "11": 1} and sum([one, two, one]) == one + (two + one) and sum([one]) is not one
    state = StateVector(3, seed=8).h(0).h(1)
    assert (state.counts(100) + state.counts(50)).shots == 150


def test_sums_of_nothing():
    assert Counts({}) + Counts({"01": 3}) == Counts({"01": 3}) + Counts({}) == {"01": 3}
    assert (Counts({}, 3) + Counts({})).n_bits == (Counts({}) + Counts({}, 3)).n_bits == 3
    assert Counts({"": 2}) + Counts({"": 3}) == {"": 5}


def test_the_counts_of_a_result_are_added_to_others():
    result = run(Circuit(2).x(1), shots=10)
    total = result.counts + result.counts
    total["01"] += 1
    assert total == {"01": 21} and result.counts == {"01": 10}
    summed = result.counts
    summed += result.counts
    assert summed == {"01": 20} and result.counts == {"01": 10}


@pytest.mark.parametrize("other", [{"0": 1}, 1, 0.0, False, None, "0"])
def test_what_is_not_counts_is_not_added(other):
    for act in (lambda: Counts({"0": 1}) + other, lambda: other + Counts({"0": 1})):
        with pytest.raises(TypeError):
            act()


def test_counts_of_different_lengths_are_not_added():
    with pytest.raises(ValueError, match="counts must have as many bits to be added, got 1 and 2"):
        Counts({"0": 1}) + Counts({"00": 1})
    with pytest.raises(ValueError, match="as many bits"):
        Counts({"0": 1}) + Counts({}, 2)
    with pytest.raises(ValueError, match="counts\\['0'\\] must be an integer from 0 to"):
        Counts({"0": 2**63 - 1}) + Counts({"0": 1})


def test_standard_errors_are_the_spread_of_the_probabilities():
    counts = Counts({"00": 0, "01": 20, "10": 80})
    assert list(counts.standard_errors()) == list(counts.probabilities())
    assert counts.standard_errors() == {"00": 0, "01": 0.04, "10": 0.04} and Counts({"0": 0}).standard_errors() == {}
    state = StateVector(1, seed=6).ry(1.0, 0)
    shares = [state.counts(400).probabilities()["1"] for _ in range(300)]
    assert np.std(shares) == pytest.approx(state.counts(400).standard_errors()["1"], rel=0.2)


def test_to_frame():
    pandas = pytest.importorskip("pandas")
    frame = Counts({"01": 1, "00": 3}).to_frame()
    assert frame.to_dict("list") == {
        "outcome": ["00", "01"], "count": [3, 1], "probability": [0.75, 0.25], "standard_error": [np.sqrt(3) / 8] * 2,
    }  # fmt: skip
    empty = Counts({}, 2).to_frame()
    assert list(empty.columns) == list(frame.columns) and len(empty) == 0
    assert [str(kind) for kind in frame.dtypes[1:]] == ["int64", "float64", "float64"] and isinstance(frame, pandas.DataFrame)


def test_to_frame_without_pandas():
    # A real interpreter in which importing pandas fails as it does where it is not installed.
    script = "import sys; sys.modules['pandas'] = None\nfrom velacamplix import Counts\nCounts({'0': 1}).to_frame()"
    ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert ended.stderr.splitlines()[-1] == (
        "ModuleNotFoundError: Counts.to_frame needs pandas; install it with: pip install pandas"
    )


@pytest.mark.parametrize(
    ("make", "error", "words"),
    [
        (lambda: Counts([("0", 1)]), TypeError, "counts must be a mapping"),
        (lambda: Counts("01"), TypeError, "counts must be a mapping"),
        (lambda: Counts({0: 1}), TypeError, "bit strings for keys, got 0"),
        (lambda: Counts({"0": 1, "01": 1}), ValueError, "keys of 1 characters, got '01'"),
        (lambda: Counts({"01": 1}, 3), ValueError, "keys of 3 characters, got '01'"),
        (lambda: Counts({"0x1": 1}), ValueError, "characters 0 and 1, got '0x1'"),
        (lambda: Counts({"0 1": 1}), ValueError, "characters 0 and 1, got '0 1'"),
        (lambda: Counts({"0": -1}), ValueError, "counts['0'] must be an integer from 0 to 9223372036854775807, got -1"),
        (lambda: Counts({"0": 0.5}), TypeError, "counts['0']"),
        (lambda: Counts({"0": True}), TypeError, "counts['0']"),
        (lambda: Counts({}, -1), ValueError, "n_bits"),
        (lambda: Counts.from_ints({4: 1}, 2), ValueError, "outcome must be an integer from 0 to 3, got 4"),
        (lambda: Counts.from_ints({"0": 1}, 2), TypeError, "outcome"),
        (lambda: Counts.from_ints([1], 2), TypeError, "counts must be a mapping"),
        (lambda: Counts({"00": 1}).marginal(2), IndexError, "positions[0] must be a number from 0 to 1, got 2"),
        (lambda: Counts({"00": 1}).marginal([-1]), IndexError, "positions[0]"),
        (lambda: Counts({"00": 1}).marginal([1, 1]), ValueError, "positions must be distinct"),
        (lambda: Counts({"00": 1}).most_likely(-1), ValueError, "k must be"),
        (lambda: Counts({"00": 1}).most_likely("2"), TypeError, "k must be"),
    ],
)
def test_bad_input(make, error, words):
    with pytest.raises(error) as raised:
        make()
    assert words in str(raised.value)


# No way in for what is no outcome, and none to change what a result tells


CHANGES = {
    "item": lambda counts: counts.__setitem__("0", 7),
    "sum": lambda counts: counts.__setitem__("0", counts["0"] + 1),
    "update": lambda counts: counts.update({"1": 7}),
    "update by pairs": lambda counts: counts.update([("1", 7)]),
    "or": lambda counts: counts.__ior__({"1": 7}),
    "setdefault": lambda counts: counts.setdefault("1", 7),
    "delete": lambda counts: counts.__delitem__("0"),
    "pop": lambda counts: counts.pop("0"),
    "popitem": lambda counts: counts.popitem(),
    "clear": lambda counts: counts.clear(),
}


@pytest.mark.parametrize("change", CHANGES.values(), ids=CHANGES)
@pytest.mark.parametrize("again", [lambda result: result, lambda result: pickle.loads(pickle.dumps(result)), copy.deepcopy])
def test_counts_of_a_result_do_not_change(change, again):
    result = run(Circuit(1), shots=5)
    assert result.counts == {"0": 5}
    result = again(result)
    with pytest.raises(TypeError, match=r"belong to a result and do not change.*result\.counts\.copy\(\)"):
        change(result.counts)
    assert result.counts == {"0": 5} and result.counts.shots == 5 and list(result.counts) == ["0"]
    for own in (result.counts.copy(), copy.copy(result.counts), pickle.loads(pickle.dumps(result.counts))):
        change(own)
        assert result.counts == {"0": 5} != own


def test_shots_of_a_result_do_not_change():
    result = run(Circuit(1), shots=5)
    with pytest.raises(ValueError, match="read-only"):
        result.shots[0] = 1
    result.bits[:] = 1
    assert result.counts == {"0": 5} and result.shots.copy().flags.writeable


@pytest.mark.parametrize(
    ("key", "times", "kind", "message"),
    [
        ("000", 1, ValueError, "keys of 2 characters, got '000'"),
        ("", 1, ValueError, "keys of 2 characters"),
        ("0x", 1, ValueError, "keys of characters 0 and 1, got '0x'"),
        (0, 1, TypeError, "bit strings for keys, got 0"),
        ("00", -1, ValueError, r"counts\['00'\] must be an integer from 0 to [0-9]+, got -1"),
        ("00", 0.5, TypeError, r"counts\['00'\] must be an integer"),
        ("00", None, TypeError, r"counts\['00'\] must be an integer"),
    ],
)
def test_keys_that_are_no_outcomes_are_refused(key, times, kind, message):
    counts = Counts({"01": 3})
    changes = [
        lambda: counts.__setitem__(key, times), lambda: counts.update({key: times}), lambda: counts.__ior__({key: times}),
        lambda: counts.update({"10": 1, key: times}), lambda: counts.setdefault(key, times),
        lambda: counts.update([(key, times)]),
    ]  # fmt: skip
    for change in changes:
        with pytest.raises(kind, match=message):
            change()
    assert counts == {"01": 3} and counts.marginal(0) == {"0": 3}


def test_changes_by_hand():
    counts = Counts()
    assert counts.n_bits == 0 and counts.copy().n_bits == 0
    counts["01"] = 1
    counts["01"] += 1
    counts.update({"10": np.int64(3)}, **{"11": 1})
    counts |= {"00": 4}
    assert counts == {"01": 2, "10": 3, "11": 1, "00": 4} and type(counts["10"]) is int and counts.n_bits == 2
    assert counts.setdefault("01", 9) == 2 and counts.pop("11") == 1 and counts.pop("11", None) is None
    del counts["01"]
    assert counts.popitem() == ("00", 4) and counts == {"10": 3}
    counts.clear()
    assert counts.n_bits == 2 and counts.shots == 0
    with pytest.raises(ValueError, match="keys of 3 characters"):
        Counts({}, 3)["01"] = 1
    with pytest.raises(ValueError, match="keys of 2 characters, got '0'"):
        Counts().update({"01": 1, "0": 1})
    assert Counts.fromkeys(["00", "01"], 2).shots == 4
