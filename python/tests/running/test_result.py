"""A result answers in the circuit's own qubits, also where some of them are idle and take no memory."""

import itertools
import json
import pickle
import subprocess
import sys

import numpy as np
import numpy_simulator
import pytest

from velacamplix import Circuit, Observable, StateVector, run
from velacamplix.machine import memory as _memory

# Circuits of five qubits with idle ones below, above and between the active ones, and with none and nothing but them.
CIRCUITS = {
    "between": Circuit(5).ry(0.4, 1).cx(1, 3).rx(0.9, 3),
    "below": Circuit(5).ry(0.4, 3).cx(3, 4).t(4).h(3),
    "above": Circuit(5).ry(0.4, 0).cx(0, 1).u(0.3, 0.2, 0.1, 1),
    "all but one": Circuit(5).h(0).cx(0, 1).ry(0.3, 3).cx(1, 4).s(4).rx(0.7, 4),
    "one": Circuit(5).ry(0.8, 2).t(2),
    "none idle": Circuit(5).h(0).cx(0, 1).cx(1, 2).ry(0.7, 3).cx(3, 4).rx(0.2, 1),
    "all idle": Circuit(5).barrier(),
}
LISTS = [None, [], [2], [3, 1], [0, 4, 2], [1, 3, 0], range(5), [4, 3, 2, 1, 0], [2, 0, 4, 1, 3]]


def expected(circuit, order):
    amplitudes = numpy_simulator.statevector(circuit)  # qubit q is bit q
    return amplitudes if order == "little" else amplitudes.reshape((2,) * 5).transpose().ravel()


@pytest.fixture(params=CIRCUITS)
def circuit(request):
    return CIRCUITS[request.param]


def test_the_state_is_that_of_all_qubits(circuit, precision, tolerance):
    result = run(circuit, precision=precision)
    assert result.state.n_qubits == 5 and result.state.precision == precision
    np.testing.assert_allclose(result.state.array, expected(circuit, "little"), rtol=0, atol=tolerance)
    assert result.state is result.state
    assert (result.state is result.compact_state) == (result.active_qubits == (0, 1, 2, 3, 4))


@pytest.mark.parametrize("order", ["little", "big"])
def test_amplitudes(circuit, order, precision, tolerance):
    result = run(circuit, precision=precision)
    array = result.statevector(order)
    assert array.dtype == result.compact_state.array.dtype and array.flags.owndata
    np.testing.assert_allclose(array, expected(circuit, order), rtol=0, atol=tolerance)
    assert [result.amplitude(i, order) for i in range(32)] == array.tolist()
    array[:] = 0  # a copy
    assert result.statevector(order).any()


@pytest.mark.parametrize("piece", [1, 2, 4])
def test_what_is_copied_in_pieces_is_the_same(circuit, piece, monkeypatch):
    monkeypatch.setattr("velacamplix.running.spread._PIECE", piece)
    result = run(circuit)
    np.testing.assert_allclose(result.state.array, expected(circuit, "little"), rtol=0, atol=1e-13)
    np.testing.assert_allclose(result.statevector("big"), expected(circuit, "big"), rtol=0, atol=1e-13)
    np.testing.assert_allclose(result.distribution(), np.abs(expected(circuit, "big")) ** 2, rtol=0, atol=1e-13)


def test_the_order_of_the_array_is_the_default():
    assert np.flatnonzero(run(Circuit(5).x(1)).statevector()).tolist() == [2]


@pytest.mark.parametrize("qubits", LISTS)
@pytest.mark.parametrize("order", ["little", "big"])
def test_probabilities(circuit, qubits, order, precision, tolerance):
    result = run(circuit, precision=precision)
    state = StateVector(5, precision).run(circuit)
    got = result.distribution(qubits, order)
    assert got.dtype == np.float64
    np.testing.assert_allclose(got, state.distribution(qubits, order), rtol=0, atol=tolerance)
    k = 5 if qubits is None else len(qubits)
    for outcome in range(2**k):
        assert result.probability(outcome, qubits, order) == pytest.approx(got[outcome], abs=tolerance)
        text = format(outcome, f"0{k}b") if k else ""
        assert result.probability(text, qubits, order) == result.probability(outcome, qubits, order)


def test_expectation_values(circuit, precision, tolerance):
    observables = [{"".join(letters): 1.0} for letters in itertools.product("IXYZ", repeat=5)][::7]
    state = StateVector(5, precision).run(circuit)
    result = run(circuit, precision=precision, observables=observables)
    right = [state.expectation(observable) for observable in observables]
    assert result.expectation_values == pytest.approx(right, abs=tolerance)
    assert (result.expectation(observables) == result.expectation_values).all()
    for observable, value in zip(observables, right):
        assert result.state.expectation(observable) == pytest.approx(value, abs=tolerance)
    assert result.expectation("Z1 + 2") == result.expectation(Observable("Z1 + 2")) == result.expectation({"IZ": 1, "II": 2})
    assert result.expectation("1j*Z0").real == pytest.approx(0, abs=tolerance)


def test_counts_and_state_agree():
    circuit = Circuit(6).x(1).x(4)
    result = run(circuit, shots=20)
    assert result.counts == {"010010": 20} == result.state.counts(20)
    assert result.probability("010010") == 1 and result.distribution().argmax() == 0b010010


def test_shots_go_on_as_those_of_a_state_of_all_qubits():
    """The state has the random numbers of the run behind it, and those that come next."""
    results = [run(Circuit(4).h(1).h(3), shots=10, seed=5) for _ in range(2)]
    assert (results[0].state.sample(50, [1, 3]) == results[1].compact_state.sample(50)).all()


def test_what_is_done_to_the_state_stays():
    result = run(Circuit(3).h(1))
    result.state.x(0)
    assert result.state.probability("1", 0) == pytest.approx(1)


# Many qubits


def test_many_qubits_of_which_few_are_active():
    circuit = Circuit(200).h(3).cx(3, 150).x(60)
    result = run(circuit, shots=50, observables=["Z150", "X3 X150 + Z60"])
    assert result.expectation_values == pytest.approx([0, 0])
    assert result.expectation(["Z3 Z150", "Z60 + 0.5*Z199"]) == pytest.approx([1, -0.5])
    assert result.probability("111", [3, 60, 150]) == pytest.approx(0.5)
    assert result.probability("1" * 200) == 0 and result.probability(0, [3, 199, 0]) == pytest.approx(0.5)
    assert result.distribution([150, 199, 3]).round(6).tolist() == [0.5, 0, 0, 0, 0, 0.5, 0, 0]
    assert result.compact_state.n_qubits == 3 and result.active_qubits == (3, 60, 150)
    with pytest.raises(RuntimeError, match=r"all 200 qubits, of which 3 are active.*at most 24.*result\.expectation.*compact_state.*active_qubits"):
        result.state  # noqa: B018
    for method in (result.statevector, result.distribution):
        with pytest.raises(MemoryError, match="200 qubits"):
            method()


def test_the_largest_that_is_expanded():
    result = run(Circuit(24).x(23), precision="single")
    assert np.flatnonzero(result.state.array).tolist() == [2**23]
    with pytest.raises(RuntimeError, match="all 25 qubits, of which 1 are active, is made for at most 24"):
        run(Circuit(25).x(24), precision="single").state  # noqa: B018
    assert run(Circuit(25).x(24), precision="single").statevector().nonzero()[0].tolist() == [2**24]


def test_no_limit_where_no_qubit_is_idle(monkeypatch):
    monkeypatch.setattr("velacamplix.running.spread.MOST_EXPANDED", 3)
    assert run(Circuit(4).h(0).h(1).h(2).h(3)).state.n_qubits == 4
    with pytest.raises(RuntimeError, match="at most 3"):
        run(Circuit(4).h(0)).state  # noqa: B018


def test_a_state_that_does_not_fit(monkeypatch):
    result = run(Circuit(20).h(3))

    def refuse(*arguments, **words):
        raise MemoryError("no room")

    monkeypatch.setattr(_memory, "require_state", refuse)
    with pytest.raises(MemoryError, match=r"no room\. result\.expectation.*compact_state"):
        result.state  # noqa: B018
    assert result.compact_state.n_qubits == 1 and result.expectation("X3") == pytest.approx(1)


# Where there is no one state


def test_where_shots_part_the_way_out_is_told():
    circuit = Circuit(3, 1).h(0).measure(0, 0).h(0)
    result = run(circuit, shots=10, seed=1)
    calls = [
        lambda: result.state, lambda: result.compact_state, lambda: result.expectation("Z0"),
        lambda: result.probability("000"), lambda: result.distribution(), lambda: result.statevector(),
    ]  # fmt: skip
    for call in calls:
        with pytest.raises(RuntimeError, match=r"no one final state.*run\(\.\.\., observables"):
            call()


@pytest.mark.parametrize(
    "call, kind, message",
    [
        (lambda r: r.probability("01", [0, 7]), IndexError, "qubits"),
        (lambda r: r.probability("01"), ValueError, "outcome must be a text of 5 characters"),
        (lambda r: r.probability(32), ValueError, "outcome must be an integer from 0 to 31"),
        (lambda r: r.distribution([1, 1]), ValueError, "distinct"),
        (lambda r: r.distribution(order="middle"), ValueError, "order"),
        (lambda r: r.statevector("middle"), ValueError, "order"),
        (lambda r: r.expectation("Z5"), ValueError, "observable must act on qubits below 5"),
        (lambda r: r.expectation("A"), ValueError, "^observable must have"),
        (lambda r: r.expectation(["Z0", "A"]), ValueError, r"observable\[1\]: "),
        (lambda r: r.expectation(3), TypeError, "observable must be an Observable"),
    ],
)
def test_wrong_arguments_are_refused(call, kind, message):
    with pytest.raises(kind, match=message):
        call(run(CIRCUITS["between"]))


def test_results_are_pickled():
    result = run(Circuit(5, 5).h(1).cx(1, 3).measure(3, 0), shots=10, seed=1)
    result.state  # noqa: B018
    again = pickle.loads(pickle.dumps(result))
    assert again.state.array.tobytes() == result.state.array.tobytes() and again.counts == result.counts
    with pytest.warns(UserWarning, match="here 3:"):
        assert again.expectation("X1 X3") == result.expectation("X1 X3") == 0


# Outcomes, and everything as plain values


def test_outcomes_are_those_of_the_measured_bits():
    circuit = Circuit(4, 6).h(0).cx(0, 2).x(3)
    assert [o for o, _ in run(circuit).outcomes()] == ["0001", "1011"]
    circuit.measure([3, 0, 1], [5, 2, 0])
    exact = run(circuit)
    assert exact.measured_bits == (0, 2, 5)
    assert [(o, round(p, 12)) for o, p in exact.outcomes()] == [("001", 0.5), ("011", 0.5)]
    assert len(exact.outcomes(1)) == 1
    drawn = run(circuit, shots=1000, seed=3)
    assert dict(drawn.outcomes()) == {o: c / 1000 for o, c in drawn.counts.marginal([0, 2, 5]).items()}
    assert drawn.outcomes(1)[0][1] >= 0.5


def test_outcomes_of_a_qubit_that_is_read_twice_and_of_bits_known_on_the_way():
    circuit = Circuit(2, 3).x(0).measure(0, 0).measure(0, 2)
    with circuit.when(0, 1):
        circuit.h(1)
    circuit.measure(1, 1)
    assert [(o, round(p, 12)) for o, p in run(circuit).outcomes()] == [("101", 0.5), ("111", 0.5)]


def test_rows_of_plain_values():
    circuit = Circuit(2, 3).h(0).ry(0.7, 1).measure([0, 1], [2, 0])
    drawn = run(circuit, shots=500, seed=4)
    rows = drawn.to_rows()
    assert [(row["outcome"], row["probability"]) for row in rows] == drawn.outcomes()
    assert [row["count"] for row in rows] == [n for _, n in drawn.counts.marginal([0, 2]).most_likely(10)]
    errors = drawn.counts.marginal([0, 2]).standard_errors()
    assert all(row["standard_error"] == errors[row["outcome"]] for row in rows) and len(drawn.to_rows(2)) == 2
    assert json.loads(json.dumps(rows)) == rows
    exact = run(circuit)
    assert [tuple(row.values()) for row in exact.to_rows()] == exact.outcomes() and len(exact.to_rows(1)) == 1


def test_frames_of_results():
    pytest.importorskip("pandas", reason="frames need pandas: pip install pandas")
    result = run(Circuit(2).h(0), shots=100, seed=1)
    assert result.to_frame().to_dict("records") == result.to_rows() and len(result.to_frame(1)) == 1
    assert list(run(Circuit(1)).to_frame().columns) == ["outcome", "probability"]


def test_frames_without_pandas():
    script = "import sys; sys.modules['pandas'] = None\nfrom velacamplix import Circuit, run\nrun(Circuit(1)).to_frame()"
    ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert ended.stderr.splitlines()[-1] == (
        "ModuleNotFoundError: Result.to_frame needs pandas; install it with: pip install pandas"
    )


@pytest.mark.parametrize("wrong, error", [(0, ValueError), (-1, ValueError), (1.0, TypeError), (True, TypeError)])
def test_a_number_of_outcomes(wrong, error):
    exact, drawn = run(Circuit(1)), run(Circuit(1), shots=2)
    for method in (exact.outcomes, drawn.to_dict, exact.to_rows, drawn.to_rows):
        with pytest.raises(error, match="k must be an integer of at least 1"):
            method(wrong)


def test_plain_values_go_through_json():
    circuit = Circuit(2, 2).h(0).measure([0, 1], [1, 0])
    for result in (
        run(circuit, shots=20, seed=1, observables=["Z0", 1j * Observable("Z1")]),
        run(circuit, precision="single"),
        run(Circuit(0)),
        run(Circuit(2, 1).h(0).measure(0, 0).reset(0).h(1), shots=5, observables="X1"),
    ):
        answer = result.to_dict()
        assert json.loads(json.dumps(answer)) == answer
        assert answer["n_qubits"] == result.n_qubits and answer["outcomes"] == dict(result.outcomes())
        assert ("counts" in answer) == (result.n_shots is not None)
