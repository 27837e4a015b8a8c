"""Observables as labels of one letter per qubit, with @ between factors, and with projectors."""

import numpy as np
import pytest
from refusals import refused

from velacamplix import Circuit, Observable, StateVector, run


def test_an_at_sign_is_a_product():
    assert Observable("Z0 @ Z1") == Observable("Z0 Z1") == Observable("Z0*Z1")
    assert Observable("0.5 * X0@Y2 @ Z1 - 2") == Observable("0.5*X0 Y2 Z1 - 2")


def test_the_first_letter_of_a_label_is_qubit_0_or_the_last():
    assert Observable("ZXII").terms == ((1.0, "ZX", (0, 1)),)
    assert Observable("ZXII", order="little").terms == ((1.0, "XZ", (2, 3)),)
    assert Observable("ZXII") == Observable({"ZXII": 1}) and Observable("ZXII").n_qubits == 4
    assert Observable("X") == Observable("X0") and Observable("III").n_qubits == 3


def test_labels_in_sums():
    assert Observable("0.5*ZZI - 2 XIX + (1+2j)*IYI + 3") == Observable(
        {"ZZI": 0.5, "XIX": -2, "IYI": 1 + 2j, "III": 3}
    )


def test_a_label_means_what_the_state_says():
    state = StateVector(4).x(0)
    assert state.expectation("ZIII") == -1 and state.expectation("IIIZ") == 1
    assert state.expectation(Observable("IIIZ", order="little")) == -1
    assert run(Circuit(4).x(0), observables=["ZIII", "IIIZ"]).expectation_values.tolist() == [-1, 1]


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("text", ["|01><01|", "|1><1|", "|110> <110|", "|01><10|", "|00><11|", "|0><1|"])
def test_projectors_are_outer_products_of_basis_states(text, order):
    ket, bra = text.strip("|").replace(" ", "").split("><")
    n = len(ket)
    expected = np.zeros((2**n, 2**n))
    expected[int(ket, 2), int(bra, 2)] = 1
    # As text, the leftmost bit is the most significant: qubit 0 by default.
    assert (Observable(text, order=order).to_matrix(n, order=order) == expected).all()


def test_projectors_among_factors_and_numbers():
    assert Observable("2*|01><01| X2") == 2 * Observable.projector("01") @ Observable("X2")
    assert Observable("Z5 |1><1| @ Y3 - |00><00|") == (
        Observable("Z5 Y3") @ Observable.projector("1") - Observable.projector("00")
    )
    assert Observable("|01><01| + 2*ZZ") == Observable.projector("01") + Observable("2*Z0 Z1")
    assert Observable("|01><10| + |10><01|") == Observable("0.5*X0 X1 + 0.5*Y0 Y1")
    assert Observable("|0><0| + |1><1|") == Observable("1")


def test_projectors_tell_probabilities():
    state = StateVector(5, seed=3).set_basis_state("+++++").ry(0.4, 2).cx(2, 4).rx(1.1, 0)
    for order in ("big", "little"):
        for outcome, qubits in (("011", [3, 0, 4]), ("10", [4, 2]), (5, [1, 2, 3]), ("1", 2), ("10110", None)):
            asked = state.expectation(Observable.projector(outcome, qubits, order))
            assert asked == pytest.approx(state.probability(outcome, qubits, order=order), abs=1e-15)


def test_number_operators_count_ones():
    state = StateVector(6).x(1).x(3).x(4)
    assert state.expectation(Observable.number(range(6))) == 3
    assert state.expectation(Observable.number([0, 4])) == 1 and state.expectation(Observable.number(0)) == 0
    assert Observable.number([]) == Observable("0") and Observable.number(3).n_qubits == 4
    assert Observable.number(1) @ Observable.number(1) == Observable.number(1)


def test_a_projector_of_as_many_bits_as_there_may_be():
    assert len(Observable("|" + 16 * "1" + "><" + 16 * "1" + "|").terms) == 2**16 - 1


@pytest.mark.parametrize(
    ("text", "words"),
    [
        ("X0 + Z", "a factor X, Y, Z or I with the number of its qubit, as in X0 at position 5, got 'Z'"),
        ("Z + X0", "a label of 1 letters I, X, Y and Z, one per qubit like the first at position 4, got 'X0'"),
        ("ZZ + XXX", "a label of 2 letters I, X, Y and Z, one per qubit like the first at position 5, got 'XXX'"),
        ("ZZ XX", "'+' or '-' after a label (or a number behind every letter, as in X0 Y2) at position 3, got 'XX'"),
        ("Z @ Z", "'+' or '-' after a label (or a number behind every letter, as in X0 Y2) at position 2, got '@ Z'"),
        ("ZZ*2", "'+' or '-' after a label"),
        ("ZZ0", "with the number of its qubit, as in X0 at position 0, got 'ZZ0'"),
        ("Z(0) @ Z(1)", "with the number of its qubit, as in X0 at position 0"),
        ("Z[0]", "as in X0 at position 0"),
        ("ZQ", "as in X0 at position 0"),
        ("zz", "as in X0 at position 0"),
        ("2 @ Z0", "as in X0 at position 2, got '@ Z0'"),
        ("X0 @", "as in X0 at position 4, got the end"),
        ("|01>", "a projector, bits of the same length on both sides as in |01><01|, at position 0, got '|01>'"),
        ("|01><1|", "a projector, bits of the same length"),
        ("|0+><0+|", "a projector, bits of the same length"),
        ("|" + 17 * "0" + "><" + 17 * "0" + "|", "at most 16 bits in a projector, which has 2^k Pauli strings"),
        ("X1 |01><01|", "each qubit once in a term, but qubit 1 again at position 3"),
        ("|01><01| X1", "each qubit once in a term, but qubit 1 again at position 9"),
        ("ZZZ + |01><01|", "as many bits in a projector as letters in a label at position 6"),
        ("|0><0| + |01><01| + ZZ", "as many letters in a label as bits in a projector at position 20"),
        ("I" * 65537, "at most 65536 letters in a label at position 0"),
    ],
)
def test_mistakes_are_told_with_their_place(text, words):
    with refused(ValueError, "observable must have", words):
        Observable(text)


@pytest.mark.parametrize(
    ("arguments", "error", "words"),
    [
        ((3,), TypeError, "outcome must be a text of 0 and 1 where no qubits are given, got 3; or list them"),
        (("01", [0]), ValueError, "outcome must be a text of 1 characters"),
        (("0a",), ValueError, "outcome must be a text of 2 characters 0 and 1, one per qubit, got '0a'"),
        ((4, [0, 1]), ValueError, "outcome must be an integer from 0 to 3, got 4"),
        ((0, [0, 0]), ValueError, "qubits must be distinct"),
        (("0" * 17,), ValueError, "qubits must be at most 16 for a projector, which has 2^k Pauli strings, got 17"),
        ((0, range(17)), ValueError, "StateVector.probability"),
        (("01", [0, 1], "large"), ValueError, "order must be 'big' or 'little'"),
    ],
)
def test_wrong_projectors(arguments, error, words):
    with refused(error, words):
        Observable.projector(*arguments)


def test_wrong_number_operators():
    with refused(IndexError, "qubits[1] must be a number from 0 to 65535, got -1"):
        Observable.number([0, -1])
    with refused(ValueError, "qubits must be distinct, got 2 twice"):
        Observable.number([2, 2])
