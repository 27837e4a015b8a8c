"""What many runs of one circuit give back."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any, overload

import numpy as np

from ..basics import extras
from ..basics.words import counted, shortened
from ..results.counts import Counts
from ..results.plan import Timings
from ..views import html
from .observing import Observed
from .result import Result

__all__ = ["BatchResult"]


class BatchResult(Sequence[Result]):
    """What `velacamplix.run` returns for ``values``: a sequence of `Result`, one for each set. Made by it, not by hand.

    Member i is what ``run(circuit.bind(set i), seed=seeds[i])`` gives with the same other arguments, bit for bit. Its
    state is not kept: it is made when it is asked for, by another run.

    Attributes
    ----------
    values : dict of str to numpy.ndarray
        Of every parameter the numbers, ``float64`` of shape (number of sets,). They are locked against writing.
    seed : int or None
        Where the seeds of the members come from; given again, it gives the same shots. None without shots.
    seeds : tuple of int or None
        Of each member: ``numpy.random.SeedSequence(seed).generate_state(number of sets)``. None without shots.
    expectation_values : numpy.ndarray or None
        Of shape (number of sets,) for one observable, (number of sets, number of observables) for a list; None without.
    standard_errors : numpy.ndarray or None
        Of the expectation values with noise, in the same shape; as those of `Result`. None without noise.
    timings : Timings
        Of all members together.

    Examples
    --------
    >>> import numpy as np
    >>> from velacamplix import Circuit, Parameter, run
    >>> circuit = Circuit(1).rx(Parameter("angle"), 0)
    >>> batch = run(circuit, values={"angle": [0, np.pi / 2, np.pi]}, shots=100, observables=["Z0", "X0"], seed=1)
    >>> batch.expectation_values.round(6).tolist()
    [[1.0, 0.0], [0.0, 0.0], [-1.0, 0.0]]
    >>> len(batch), batch[2].counts, batch.counts[0]
    (3, {'1': 100}, {'0': 100})
    >>> [round(result.probability("1"), 6) for result in batch]
    [0.0, 0.5, 1.0]
    """

    def __init__(
        self, results: Sequence[Result], values: Mapping[str, np.ndarray], seed: int | None, observed: Observed | None
    ) -> None:
        self._results = tuple(results)
        self.values = dict(values)
        self.seed = seed
        self.seeds = None if seed is None else tuple([result.seed for result in results])
        self.expectation_values: Any = None
        self.standard_errors: Any = None
        if observed is not None:
            shape = (len(results), len(observed.observables)) if observed.are_many else (len(results),)
            self.expectation_values = np.array([result.expectation_values for result in results]).reshape(shape)
            if any(result.standard_errors is not None for result in results):
                self.standard_errors = np.array([result.standard_errors for result in results]).reshape(shape)
        every = [Timings(0.0, 0.0, 0.0, 0.0), *[result.timings for result in results]]
        self.timings = Timings(*map(sum, zip(*every)))

    def __repr__(self) -> str:
        return f"<BatchResult: {self._about}>"

    @property
    def _about(self) -> str:
        shots = "no shots" if self.seed is None else f"seed {self.seed}"
        sets = f"{counted(len(self), 'set')} of {counted(len(self.values), 'number')}"
        return f"{sets}, {shots}, {self.timings.total:.3g} s"

    def __len__(self) -> int:
        return len(self._results)

    @overload
    def __getitem__(self, place: int) -> Result: ...

    @overload
    def __getitem__(self, place: slice) -> tuple[Result, ...]: ...

    def __getitem__(self, place: int | slice) -> Result | tuple[Result, ...]:
        return self._results[place]

    @property
    def counts(self) -> list[Counts]:
        """The counts of every member.

        Raises
        ------
        RuntimeError
            If the run had no shots.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter, run
        >>> run(Circuit(1).rx(Parameter("a"), 0), values={"a": [0.0, 0.0]}, shots=5).counts
        [{'0': 5}, {'0': 5}]
        """
        return [result.counts for result in self._results]

    def to_rows(self) -> list[dict[str, Any]]:
        """Return a table: a dictionary of plain values for each set.

        Returns
        -------
        list of dict
            The number of every parameter by its name; with shots ``seed``; with one observable ``expectation_value``,
            with a list ``expectation_values[0]`` and so on; with noise also ``standard_error``, ``standard_errors[0]``. A
            parameter of such a name is ``values['seed']``.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter, run
        >>> circuit = Circuit(1).x(0).p(Parameter("a"), 0)
        >>> run(circuit, values={"a": [0.5, 1.5]}, observables="Z0").to_rows()
        [{'a': 0.5, 'expectation_value': -1.0}, {'a': 1.5, 'expectation_value': -1.0}]
        """
        return [dict(zip(self._titles, row)) for row in zip(*[column.tolist() for column in self._columns])]

    def to_frame(self) -> Any:
        """Return a ``pandas.DataFrame``, one row for each set, with the columns of `to_rows`.

        Raises
        ------
        ImportError
            If pandas is not installed.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter, run
        >>> run(Circuit(1).x(0).p(Parameter("a"), 0), values={"a": [0.5, 1.5]}, observables="Z0").to_frame()
             a  expectation_value
        0  0.5               -1.0
        1  1.5               -1.0
        """
        pandas = extras.imported("pandas", "BatchResult.to_frame")
        return pandas.DataFrame(dict(zip(self._titles, self._columns)))

    @property
    def _told(self) -> dict[str, np.ndarray]:
        """The columns of a table besides the parameters."""
        told: dict[str, np.ndarray] = {}
        if self.seeds is not None:
            told["seed"] = np.array(self.seeds, dtype=np.int64)
        for word, numbers in ("expectation_value", self.expectation_values), ("standard_error", self.standard_errors):
            if numbers is not None and numbers.ndim == 1:
                told[word] = numbers
            elif numbers is not None:
                told.update((f"{word}s[{i}]", column) for i, column in enumerate(numbers.T))
        return told

    @property
    def _titles(self) -> list[str]:
        told = self._told
        return [f"values[{name!r}]" if name in told else name for name in self.values] + list(told)

    @property
    def _columns(self) -> list[np.ndarray]:
        return [*self.values.values(), *self._told.values()]

    def _repr_html_(self) -> str:
        titles = [shortened(title, 30) for title in self._titles[: html.ROWS]]
        columns = [column[: html.ROWS].tolist() for column in self._columns[: html.ROWS]]
        rows = [tuple(str(one) if type(one) is int else f"{one:.6g}" for one in row) for row in zip(*columns)]
        if len(self) > len(rows):
            rows.append((f"{len(self) - len(rows)} others", *[""] * (len(columns) - 1)))
        return html.titled(f"BatchResult: {self._about}", html.table(titles, rows))
