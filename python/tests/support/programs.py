"""How the samples of two simulators are compared."""

import math


def agree(counts, expected, deviations=5):
    """Each outcome occurs as often in two samples, within so many standard deviations of the difference."""
    shots, others = sum(counts.values()), sum(expected.values())
    for outcome in {**counts, **expected}:
        one, two = counts.get(outcome, 0) / shots, expected.get(outcome, 0) / others
        share = (one * shots + two * others) / (shots + others)
        # Of an outcome that is seen once a second time proves nothing.
        allowed = deviations * math.sqrt(share * (1 - share) * (1 / shots + 1 / others)) + 5 / min(shots, others)
        assert abs(one - two) <= allowed, f"{outcome}: {one:.4f} of {shots} shots here, {two:.4f} of {others} there"
