"""Whether two simulators found the same. Answers are what `simulators.Prepared.answer` gives, as tuples of arrays."""

from __future__ import annotations

from typing import Tuple

import numpy as np

Answer = Tuple[np.ndarray, ...]

# Rounding errors of 1400 gates grow to about 1e-14 and 1e-5 of the largest amplitude; what is not rounding, such as a
# wrong qubit order, changes the first digit.
TOLERANCE = {"double": 1e-10, "single": 1e-3}
# Standard errors. With 10^6 shots, about 100 numbers per comparison and 1000 comparisons a chance of 1e-4 in all.
SIGMAS = 6.5


def difference(kind: str, precision: str, n: int, ours: Answer, theirs: Answer) -> str:
    """Say how the two differ by more than rounding and chance; empty when they agree."""
    if kind == "shots":
        return _shots(n, ours, theirs)
    a, b = np.asarray(ours[0]), np.asarray(theirs[0])
    if a.shape != b.shape:
        return f"one has shape {a.shape}, the other {b.shape}"
    if not (np.isfinite(a).all() and np.isfinite(b).all()):
        return "there are numbers that are not finite"
    if kind in ("amplitudes", "state"):
        b = b * _phase(a, b)
    # Of a Pauli sum the coefficients, each at most 1, set the scale, since the value may be near 0.
    scale = 1.0 if kind in ("paulis", "step") else np.abs(a).max()
    if scale == 0:
        return "all numbers that are compared are 0"
    found = float(np.abs(a - b).max() / scale)
    return "" if found <= TOLERANCE[precision] else f"they differ by {found:.1e} of the largest"


def _phase(a: np.ndarray, b: np.ndarray) -> complex:
    """The factor that brings `b` to the global phase of `a`."""
    overlap = np.vdot(b, a)
    return complex(overlap / abs(overlap)) if overlap != 0 else 1.0


def _shots(n: int, ours: Answer, theirs: Answer) -> str:
    a, b = _bit_means(n, *ours), _bit_means(n, *theirs)
    # Of two independent samples; a mean of bits has at most this standard error.
    error = np.sqrt(0.25 / ours[1].sum() + 0.25 / theirs[1].sum())
    found = float(np.abs(a - b).max() / error)
    return "" if found <= SIGMAS else f"means of bits and of parities differ by {found:.1f} standard errors"


def _bit_means(n: int, outcomes: np.ndarray, counts: np.ndarray) -> np.ndarray:
    """How often each qubit reads 1, and each qubit differs from the next."""
    outcomes = outcomes.astype(np.uint64)
    bits = [(outcomes >> np.uint64(q)) & np.uint64(1) for q in range(n)]
    means = bits + [bits[q] ^ bits[q + 1] for q in range(n - 1)]
    return np.array([float((values * counts.astype(np.uint64)).sum()) for values in means]) / counts.sum()
