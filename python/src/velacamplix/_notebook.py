"""How objects show themselves in a notebook: small HTML, without styles or scripts of the page's own."""

from __future__ import annotations

import html
from typing import TYPE_CHECKING, List, Sequence, Tuple

from . import _memory
from ._outcomes import most_probable
from ._words import counted

if TYPE_CHECKING:
    from .circuit import Circuit
    from .counts import Counts
    from .result import Result
    from .statevector import StateVector

_ROWS = 12
# Showing a state should not take longer than making it; above this only its size is told.
_LARGEST_SHOWN = 18
_LONGEST_CIRCUIT, _LINES, _WIDTH = 400, 60, 400
_MONOSPACE = "font-family:monospace;text-align:left"
_PRE = "white-space:pre;overflow-x:auto;line-height:1.15;font-family:monospace"


def of_counts(counts: Counts) -> str:
    """Return a table of the most frequent outcomes."""
    best = counts.most_likely(_ROWS)
    shots, shown = counts.shots, sum(times for _, times in best)
    rows = [(_code(outcome), str(times), _bar(times / shots if shots else 0.0)) for outcome, times in best]
    if len(counts) > len(best):
        rows.append((f"{len(counts) - len(best)} others", str(shots - shown), ""))
    return _titled(f"Counts: {counted(shots, 'shot')}", _table(("outcome", "count", ""), rows))


def of_state(state: StateVector, order: str = "qubit 0 leftmost") -> str:
    """Return what a state is and, unless it is large, a table of its largest amplitudes; `order` tells its qubits."""
    try:
        array = state.array
    except RuntimeError:  # released
        return _titled(repr(state), "")
    n = state.n_qubits
    title = (
        f"StateVector: {counted(n, 'qubit')}, {state.precision} precision, {counted(state.threads, 'thread')}, "
        f"{_memory.human(array.nbytes)}"
    )
    if n > _LARGEST_SHOWN:
        return _titled(title, "")
    best = most_probable(state, _ROWS + 1, range(n))
    rows = []
    for outcome, probability in best[:_ROWS]:
        # Qubit q is bit q of the index; texts have qubit 0 leftmost.
        amplitude = array[int(outcome[::-1] or "0", 2)]
        rows.append((_code(outcome), f"{amplitude.real:.4f}{amplitude.imag:+.4f}j", _bar(float(probability))))
    if len(best) > _ROWS:
        rows.append(("others", "", _bar(max(0.0, 1.0 - sum(float(p) for _, p in best[:_ROWS])))))
    return _titled(title, _table((order, "amplitude", "probability"), rows))


def of_circuit(circuit: Circuit) -> str:
    """Return the drawing of a circuit, or of a long one the first instructions."""
    title = repr(circuit).strip("<>")
    if len(circuit) > _LONGEST_CIRCUIT:
        lines = [str(circuit[place]) for place in range(_LINES)] + [f"… {len(circuit) - _LINES} more"]
        return _titled(title, _pre("\n".join(lines)))
    # The page scrolls where lines are long; of wide registers only what is used is shown.
    return _titled(title, _pre(circuit.draw(width=_WIDTH, idle=circuit.n_qubits <= _ROWS)))


def of_result(result: Result) -> str:
    """Return what a run was like, and its counts or else its state, and its expectation values."""
    plan, seconds = result.plan, result.timings.total
    title = f"Result: {counted(result.n_qubits, 'qubit')} ({len(result.active_qubits)} active), {plan}, {seconds:.3g} s"
    parts = []
    if result.expectation_values is not None:
        values = result.expectation_values
        listed = values.tolist() if hasattr(values, "tolist") else [values]
        shown = [f"{value:.6g}" for value in listed[:_ROWS]] + ["…"] * (len(listed) > _ROWS)
        parts.append(f"<div>{html.escape('expectation values: ' + ', '.join(shown))}</div>")
    if result.n_shots is not None:
        parts.append(of_counts(result.counts))
    elif result.has_state:
        active = result.active_qubits
        listed = ", ".join(map(str, active[:_ROWS])) + (", …" if len(active) > _ROWS else "")
        parts.append(of_state(result.compact_state, *[] if len(active) == result.n_qubits else [f"qubits {listed}"]))
    return _titled(title, "".join(parts))


def _titled(title: str, body: str) -> str:
    return f"<div><div>{html.escape(title)}</div>{body}</div>"


def _pre(text: str) -> str:
    return f'<pre style="{_PRE}">{html.escape(text)}</pre>'


def _code(text: str) -> str:
    return f'<span style="{_MONOSPACE}">{html.escape(text)}</span>'


def _bar(share: float) -> str:
    width = min(100.0, max(0.0, 100 * share))
    return (
        f'<div style="display:inline-block;width:8em;vertical-align:middle">'
        f'<div style="width:{width:.1f}%;min-width:1px;height:0.7em;background:#31688e"></div></div> {share:.4f}'
    )


def _table(titles: Sequence[str], rows: Sequence[Tuple[str, ...]]) -> str:
    """Return a table; its cells are HTML already."""
    parts: List[str] = ["<table><thead><tr>"]
    parts += [f'<th style="text-align:left">{html.escape(title)}</th>' for title in titles]
    parts.append("</tr></thead><tbody>")
    for row in rows:
        parts.append("<tr>" + "".join(f'<td style="text-align:left">{cell}</td>' for cell in row) + "</tr>")
    parts.append("</tbody></table>")
    return "".join(parts)
