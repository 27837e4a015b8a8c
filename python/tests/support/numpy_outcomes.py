"""The exact distribution of a circuit's classical bits, with everything a circuit may do in between.

Slow and literal: every outcome of every measurement and reset is followed, with a vector whose squared norm is the
probability of getting there. Gates come from `numpy_simulator`.
"""

import math

import numpy as np
import numpy_simulator


# A way that is less likely than this is not followed: loops that may last for ever come to an end.
RAREST = 1e-14


def ends(circuit, start=None, saved=None):
    """All ways through the circuit: pairs of the classical bits (bit c is bit c) and the unnormalised final vector.

    Into the dictionary `saved` goes, for every name that is saved, the list of vectors that come there.
    """
    n = circuit.n_qubits
    if start is None:
        start = np.zeros(2**n, dtype=complex)
        start[0] = 1
    ways = [(0, np.array(start, dtype=complex))]
    return _through(circuit.basic_instructions(), ways, n, {} if saved is None else saved)


def distribution(circuit, start=None):
    """A dictionary from texts, classical bit 0 leftmost, to probabilities."""
    found = {}
    for bits, vector in ends(circuit, start):
        text = format(bits, f"0{circuit.n_clbits}b")[::-1] if circuit.n_clbits else ""
        found[text] = found.get(text, 0) + np.vdot(vector, vector).real
    return found


def density_matrix(circuit):
    """The mixed state that is left when nobody looks at the classical bits."""
    return sum(np.outer(vector, vector.conj()) for _, vector in ends(circuit))


def saved_vectors(circuit):
    """For every name that is saved, the unnormalised vectors that come there."""
    found = {}
    ends(circuit, saved=found)
    return found


def holds(condition, bits):
    """Whether classical bits (bit c is bit c of a number) meet a condition."""
    if hasattr(condition, "parts"):
        answers = [holds(part, bits) for part in condition.parts]
        if condition.word == "not":
            return not answers[0]
        return {"and": all(answers), "or": any(answers), "xor": answers.count(True) % 2 == 1}[condition.word]
    value = sum((bits >> clbit & 1) << i for i, clbit in enumerate(condition.clbits))
    wanted = condition.value
    return {
        "==": value == wanted, "!=": value != wanted, "<": value < wanted,
        "<=": value <= wanted, ">": value > wanted, ">=": value >= wanted,
    }[condition.comparison]  # fmt: skip


def _through(steps, ways, n, saved):
    for step in steps:
        ways = [after for bits, vector in ways for after in _after(step, bits, vector, n, saved)]
    return ways


def _after(step, bits, vector, n, saved):
    if step.condition is not None and not holds(step.condition, bits):
        return [(bits, vector)]
    detail = step.detail
    if step.name == "if":
        return _through(detail.body if holds(detail.condition, bits) else detail.otherwise, [(bits, vector)], n, saved)
    if step.name == "while":
        done, going = [], [(bits, vector)]
        while going:
            done += [way for way in going if not holds(detail.condition, way[0])]
            going = _through(detail.body, [way for way in going if holds(detail.condition, way[0])], n, saved)
            going = _fewer(going, n)
        return done
    if step.name == "switch":
        value = sum((bits >> clbit & 1) << i for i, clbit in enumerate(detail.clbits))
        fitting = [body for values, body in detail.cases if value in values] + [detail.default]
        return _through(fitting[0], [(bits, vector)], n, saved)
    if step.name == "save":
        saved.setdefault(detail.label, []).append(vector)
        return [(bits, vector)]
    if step.name == "barrier":
        return [(bits, vector)]
    if step.name == "measure":
        ways = [(bits, vector)]
        for qubit, clbit in zip(step.qubits, step.clbits):
            ways = [
                (before & ~(1 << clbit) | value << clbit, part)
                for before, whole in ways
                for value, part in enumerate(_parts(whole, qubit))
            ]
    elif step.name == "reset":
        ways = [(bits, vector)]
        for qubit in step.qubits:
            ways = [
                (before, part if value == 0 else np.roll(part, -(2**qubit)))
                for before, whole in ways
                for value, part in enumerate(_parts(whole, qubit))
            ]
    else:
        array = vector.reshape((2,) * n + (1,)).copy()
        numpy_simulator.apply(step, array, n)
        ways = [(bits, array.reshape(-1))]
    return [way for way in ways if np.vdot(way[1], way[1]).real > RAREST]


def _fewer(ways, n):
    """Other vectors with the same mixed state for every value of the bits, not more than there are amplitudes."""
    mixed = {}
    for bits, vector in ways:
        mixed[bits] = mixed.get(bits, 0) + np.outer(vector, vector.conj())
    found = []
    for bits, density in mixed.items():
        weights, vectors = np.linalg.eigh(density)
        found += [(bits, weight**0.5 * vector) for weight, vector in zip(weights, vectors.T) if weight > RAREST]
    return found if len(found) < len(ways) else ways


def _parts(vector, qubit):
    reads_one = (np.arange(len(vector)) >> qubit & 1).astype(bool)
    return np.where(reads_one, 0, vector), np.where(reads_one, vector, 0)


def p_value(counts, probabilities):
    """How likely a deviation at least this large is, by Pearson's chi-square test. Impossible outcomes give 0.

    Outcomes that are expected less than 5 times are taken together.
    """
    shots = sum(counts.values())
    if any(probabilities.get(outcome, 0) < 1e-12 for outcome in counts):
        return 0.0
    expected, got, rare_expected, rare_got = [], [], 0.0, 0
    for outcome, probability in probabilities.items():
        if probability * shots >= 5:
            expected.append(probability * shots)
            got.append(counts.get(outcome, 0))
        else:
            rare_expected += probability * shots
            rare_got += counts.get(outcome, 0)
    if rare_expected:
        expected.append(rare_expected)
        got.append(rare_got)
    expected, got = np.array(expected), np.array(got)
    freedom = len(expected) - 1
    if freedom == 0:
        return 1.0
    square = ((got - expected) ** 2 / expected).sum()
    # Wilson and Hilferty: the cube root of chi-square over its degrees of freedom is close to normal.
    spread = 2 / (9 * freedom)
    deviation = ((square / freedom) ** (1 / 3) - (1 - spread)) / spread**0.5
    return 0.5 * math.erfc(deviation / 2**0.5)

