"""How far a long call has come: for a function of the caller's, or as a bar on standard error."""

from __future__ import annotations

import contextlib
import importlib
import math
import os
import sys
import time
from collections.abc import Callable, Iterator
from typing import Any, NamedTuple

from ..basics import checks
from .drive import INTERVAL

# A run that is over sooner shows no bar; an environment variable may say otherwise.
_QUIET_SECONDS = 1.0
_QUIET_VARIABLE = "VELACAMPLIX_QUIET_SECONDS"


class Progress(NamedTuple):
    """How far a call has come, as its progress function is told.

    Attributes
    ----------
    done, total : int
        Gates of a run, runs of many; elsewhere the shots, terms, entries, amplitudes or bytes that the call is about. Where
        a run has split into groups of shots with different outcomes, a gate that acted on one of them counts for that
        group's share of all shots. While a long circuit is planned, `done` stays where it is.
    seconds : float
        Since the work was begun.
    rate : float
        Gates, runs, shots, terms, entries, amplitudes or bytes per second.
    remaining : float or None
        Seconds that are left at this rate; None if it is 0.

    Examples
    --------
    >>> Progress(done=300, total=1200, seconds=2.0, rate=150.0, remaining=6.0).remaining
    6.0
    """

    done: int
    total: int
    seconds: float
    rate: float
    remaining: float | None


ProgressLike = bool | Callable[[Progress], Any] | None


class Meter:
    """Counts gates, or what else is done, and tells the one who asked, not more often than he can read.

    Parameters
    ----------
    progress : None, bool or callable
        As the caller gave it. True shows a bar once the quiet seconds have passed.
    total : int
        How much there is to do.
    unit : str
        Of what, in the plural.
    """

    def __init__(self, progress: ProgressLike, total: int, unit: str = "gates") -> None:
        self._tell = checked(progress, unit)
        self._total = total
        self._done = 0.0
        self._is_over = False
        self._started = self._told = time.perf_counter()

    def __enter__(self) -> Meter:
        self._started = self._told = time.perf_counter()
        return self

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        try:
            if error is None:
                self._update(self._total)
        finally:
            if isinstance(self._tell, _Bar):
                self._tell.close()

    def within(self, weight: float = 1.0) -> Callable[[int, int], None] | None:
        """Return what the core calls while it does a part of the work, of which every piece counts `weight`."""
        if self._tell is None:
            return None
        return lambda done, total: self._update(self._done + weight * done)

    def advance(self, count: int, weight: float = 1.0) -> None:
        """Note that something is done for good."""
        self._done += weight * count

    def tell(self) -> None:
        """Tell what has been noted, unless that was a moment ago."""
        self._update(self._done)

    def _update(self, done: float) -> None:
        if self._tell is None or self._is_over:
            return
        now = time.perf_counter()
        # Weights add up to 1 but for rounding.
        whole = min(self._total, round(done))
        self._is_over = whole == self._total
        # A run of many short programs must not call for each of them.
        if not self._is_over and now - self._told < 0.9 * INTERVAL:
            return
        self._told = now
        seconds = now - self._started
        rate = whole / seconds if seconds > 0 else 0.0
        self._tell(Progress(whole, self._total, seconds, rate, (self._total - whole) / rate if rate else None))


class _Unasked:
    """A meter that nobody looks at: what short calls spend no time on."""

    def __enter__(self) -> _Unasked:
        return self

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        pass

    def within(self, weight: float = 1.0) -> None:
        pass

    def advance(self, count: int, weight: float = 1.0) -> None:
        pass

    def tell(self) -> None:
        pass


_UNASKED = _Unasked()


AnyMeter = Meter | _Unasked


def metered(progress: ProgressLike, total: int, unit: str) -> AnyMeter:
    """Return a meter for a call that is usually short."""
    return _UNASKED if progress is None else Meter(progress, total, unit)


def checked(progress: Any, unit: str = "gates") -> Callable[[Progress], Any] | None:
    """Return the function that hears of progress, or None."""
    if progress is None or progress is False:
        return None
    if progress is True:
        return _Bar(unit)
    if not callable(progress):
        raise TypeError(
            f"progress must be None, True, False or a function of one Progress, got {checks.show(progress)}"
        )
    return progress  # type: ignore[no-any-return]


class _Bar:
    """Shows a bar by tqdm, where it is installed, or one line; nothing where standard error takes nothing."""

    def __init__(self, unit: str) -> None:
        self._unit = unit
        self._quiet = _quiet_seconds()
        self._shown: Any = None

    def __call__(self, progress: Progress) -> None:
        if self._shown is None and progress.seconds < self._quiet:
            return
        with self._harmless():
            if self._shown is None:
                self._shown = _first_available(progress, self._unit)
            self._shown.show(progress)

    def close(self) -> None:
        if self._shown is not None:
            with self._harmless():
                self._shown.close()

    @contextlib.contextmanager
    def _harmless(self) -> Iterator[None]:
        # A standard error that is closed or full is no reason to lose a run; what a signal handler raises meanwhile,
        # often a TimeoutError, which is an OSError without a number of the system, is one.
        try:
            yield
        except (OSError, ValueError) as error:
            is_closed = getattr(sys.stderr, "closed", True) and not isinstance(error, OSError)
            if not is_closed and getattr(error, "errno", None) is None:
                raise
            self._shown = _Nothing()


def _quiet_seconds() -> float:
    text = os.environ.get(_QUIET_VARIABLE, "").strip()
    if not text:
        return _QUIET_SECONDS
    try:
        seconds = float(text)
    except ValueError:
        seconds = math.nan
    if not 0 <= seconds < math.inf:
        raise ValueError(
            f"environment variable {_QUIET_VARIABLE} is {text!r}; expected a number of seconds, 0 or more"
        )
    return seconds


def _first_available(progress: Progress, unit: str) -> Any:
    if sys.stderr is None:
        return _Nothing()
    try:
        return _Tqdm(progress, unit)
    except ImportError:
        return _Line(unit)


class _Nothing:
    def show(self, progress: Progress) -> None:
        pass

    def close(self) -> None:
        pass


class _Tqdm:
    def __init__(self, progress: Progress, unit: str) -> None:
        tqdm: Any = importlib.import_module("tqdm")
        # The bar appears late: what was done before belongs to it, the time it took would not.
        self._bar = tqdm.tqdm(
            total=progress.total, initial=progress.done, unit=f" {unit}", unit_scale=True, file=sys.stderr
        )

    def show(self, progress: Progress) -> None:
        self._bar.update(progress.done - self._bar.n)

    def close(self) -> None:
        self._bar.close()


class _Line:
    """One line that is written again and again, without a terminal's help but for the carriage return."""

    def __init__(self, unit: str) -> None:
        self._unit = unit
        self._width = 0

    def show(self, progress: Progress) -> None:
        share = progress.done / progress.total if progress.total else 1.0
        text = f"{progress.done} of {progress.total} {self._unit} ({share:.0%}), {_rate(progress, self._unit)}"
        self._width = max(self._width, len(text))
        sys.stderr.write("\r" + text.ljust(self._width))
        sys.stderr.flush()

    def close(self) -> None:
        sys.stderr.write("\n")
        sys.stderr.flush()


def _rate(progress: Progress, unit: str) -> str:
    text = f"{progress.rate:.3g} {unit}/s" if progress.rate < 1000 else f"{progress.rate:,.0f} {unit}/s"
    if progress.remaining is None:
        return text
    minutes, seconds = divmod(round(progress.remaining), 60)
    hours, minutes = divmod(minutes, 60)
    left = f"{hours}:{minutes:02}:{seconds:02}" if hours else f"{minutes}:{seconds:02}"
    return f"{text}, {left} left"
