"""What a circuit looks like: counts, depth, drawings, OpenQASM."""

from __future__ import annotations

from collections import Counter, defaultdict
from collections.abc import Iterable
from typing import Literal, overload

from ..basics import checks
from ..basics.words import counted
from ..channels.channel import Channel
from ..instructions.flow import bodies_of, leaves
from ..instructions.instruction import Instruction
from ..qasm.writer import write_qasm
from ..qasm.writer3 import write_qasm3
from ..views import shapes
from ..views.drawing import Drawing, draw
from ..views.svg import SCALE, SvgDrawing, write_svg
from .parameters import ParameterMethods


# Width of a picture for which nobody has named one.
_PIXELS = 900


class Figures(ParameterMethods):
    """Describes a circuit."""

    def gate_counts(self, basic: bool = False) -> dict[str, int]:
        """Return how often each gate occurs, the most frequent first.

        A gate with controls counts by itself, as ``"cRX"`` with one control, ``"c2RX"`` with two and so on; noise counts as
        ``"channel depolarizing"`` and so on. In the bodies of `if_`, `while_` and `switch` each counts once, as it is
        written.

        Parameters
        ----------
        basic : bool
            Count the library's own gates that the circuit becomes. Its parameters must have values then.

        Raises
        ------
        ValueError
            As for `basic_instructions`, if `basic` is given.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(3).h(0).h(1).rzz(0.5, 0, 1).rx(0.1, 2, controls=[0, 1]).gate_counts()
        {'H': 2, 'rzz': 1, 'c2RX': 1}
        """
        steps = self.basic_instructions() if checks.flag(basic, "basic") else iter(self._instructions)
        return dict(Counter(_counted_name(step) for step in leaves(steps) if step.is_gate or step.name == "channel").most_common())

    count_ops = gate_counts

    def depth(self) -> int:
        """Return the length of the longest chain of instructions that have to wait for each other.

        Every gate, measurement and reset counts as 1; a barrier or a channel makes its qubits wait for each other and counts as
        0. One
        with bodies counts as the deepest of them, a loop as one round; what is saved does not count. Instructions wait for
        each other if they share a qubit, or a classical bit that one of them writes or reads.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> Circuit(3).h(0).h(1).cx(0, 1).x(2).depth()
        2
        """
        return _depth(self._instructions)

    @overload
    def draw(
        self, form: int | None | Literal["text"] = None, *, width: int | None = None, ascii: bool = False, idle: bool = True
    ) -> Drawing: ...
    @overload
    def draw(
        self, form: Literal["svg"], *, width: int | None = None, ascii: bool = False, idle: bool = True
    ) -> SvgDrawing: ...
    def draw(
        self,
        form: int | str | None = None,
        *,
        width: int | None = None,
        ascii: bool = False,
        idle: bool = True,
    ) -> Drawing | SvgDrawing:
        """Return a drawing: a line for each qubit, time from left to right.

        Parameters
        ----------
        form : {"text", "svg"} or int, optional
            A text by default; an integer is its width. ``"svg"`` gives the text of an SVG file, a picture that needs no
            further package; `plot_circuit` gives one of Matplotlib.
        width : int, optional
            Longest line, at least 40; longer drawings go on below. By default that of the terminal. Of a picture the
            width in pixels, at least 300, 900 by default; it is wider where a single column is.
        ascii : bool
            Use plain characters only, in a text.
        idle : bool
            False leaves out qubits that no instruction touches.

        Returns
        -------
        Drawing or SvgDrawing
            A ``str`` that shows itself when Python, or a notebook, prints its value. Circuits of more than 2000 columns,
            and pictures higher than 21,000 pixels, are cut off, and the drawing says so.

        Raises
        ------
        TypeError, ValueError
            If `form` is neither, `width` is no integer or too small, `ascii` is asked of a picture, or the picture would
            have more than 500 lines.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> circuit = Circuit(3, 1).h(0).cx(0, 2).rx(0.5, 1).measure(2, 0)
        >>> circuit.draw(width=60, ascii=True)
        q[0]: -[H]--o------------
                    |
        q[1]: ------+--[RX(0.5)]-
                    |
        q[2]: -----(+)-[M->c[0]]-

        >>> from pathlib import Path
        >>> size = Path("circuit.svg").write_text(circuit.draw("svg"))  # doctest: +SKIP
        """
        if form is not None and not isinstance(form, str):
            if width is not None:
                raise TypeError(f"width must be given once, got {checks.show(form)} and {checks.show(width)}")
            width, form = form, None
        if form == "mpl":
            raise ValueError("form must be 'text' or 'svg', got 'mpl'; plot_circuit(circuit) paints with Matplotlib")
        kind = checks.choice("text" if form is None else form, "form", ("text", "svg"))
        if width is not None:
            width = checks.integer(width, "width", minimum=300 if kind == "svg" else 40)
        plain, all_qubits = checks.flag(ascii, "ascii"), checks.flag(idle, "idle")
        if kind == "text":
            return draw(self._n_qubits, self._registers, self._instructions, width, plain, all_qubits)
        if plain:
            raise ValueError('ascii must be False for a drawing as "svg", which has letters of any kind')
        points = (_PIXELS if width is None else width) / SCALE
        picture = shapes.picture(self._n_qubits, self._registers, self._instructions, points, all_qubits)
        return write_svg(picture, f"circuit of {counted(self._n_qubits, 'qubit')}")

    def to_qasm(self, *, definitions: bool = True) -> str:
        """Return the circuit as an OpenQASM 2 program.

        `from_qasm` makes the same circuit of it again. Gates of qelib1.inc are written by their names, others as gate
        blocks that are exact, global phase included; definitions become gate blocks. Some things come back in another
        form with the same meaning: X and CNOT with one control as CNOT and CCNOT (Z with one as CSIGN, and likewise
        beyond), controls that must be 0 as controls between X gates, a measurement or reset of several qubits that are no
        whole register as one for each qubit, and an `if_` as conditions on its instructions. Where these would not say the
        same it is refused, as `while_` and `switch` are.
        Definitions whose name the program has for something else, or two of one name, get others.

        Parameters
        ----------
        definitions : bool
            Gates that came into qelib1.inc after its publication (arXiv:1707.03429), as sx, swap and crx, are written
            with their definitions, so that every reader understands them. False leaves these definitions out, for
            readers whose file has the gates.

        Raises
        ------
        TypeError
            If `definitions` is neither True nor False.
        ValueError
            If a parameter has no value, or an instruction cannot be said in OpenQASM 2; the message names it.

        Examples
        --------
        >>> from velacamplix import Circuit
        >>> print(Circuit(2, 2).h(0).cx(0, 1).measure_all().to_qasm())
        OPENQASM 2.0;
        include "qelib1.inc";
        qreg q[2];
        creg c[2];
        h q[0];
        cx q[0],q[1];
        measure q -> c;
        <BLANKLINE>
        """
        return write_qasm(self, checks.flag(definitions, "definitions"))

    def to_qasm3(self) -> str:
        """Return the circuit as an OpenQASM 3 program.

        `from_qasm3` makes the same circuit of it again, decisions and loops included. Gates of stdgates.inc are written by
        their names, others as definitions that are exact, global phase included; controls are modifiers (``ctrl @``).
        Parameters without a value become inputs. Definitions and parameters whose name the language does not allow, or has
        for something else, get others (``theta[0]`` becomes ``theta_0_``). What bounds a ``while_`` loop
        (`max_iterations`) is not written.

        Returns
        -------
        str
            In version 3.0 of the language (``switch`` is of 3.1).

        Raises
        ------
        ValueError
            If an instruction cannot be said in OpenQASM 3: ``matrix`` and ``diagonal``, noise, and what saves results. The
            message names it.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> circuit = Circuit(2, 2).h(0).rzz(Parameter("a"), 0, 1).x(1, controls=0).measure([0, 1], [0, 1])
        >>> print(circuit.if_(("c", 1), Circuit(2, 2).x(0)).to_qasm3())
        OPENQASM 3.0;
        include "stdgates.inc";
        input float[64] a;
        gate rzz(a) q0, q1 { cx q0, q1; rz(a) q1; cx q0, q1; }
        qubit[2] q;
        bit[2] c;
        h q[0];
        rzz(a) q[0], q[1];
        ctrl @ x q[0], q[1];
        c = measure q;
        if (c == 1) {
          x q[0];
        }
        <BLANKLINE>
        """
        return write_qasm3(self)


def _counted_name(step: Instruction) -> str:
    if isinstance(step.detail, Channel):
        return f"channel {step.detail.name}"
    n = len(step.controls)
    return f"c{n if n > 1 else ''}{step.name}" if n else step.name


def _depth(steps: Iterable[Instruction]) -> int:
    qubits, clbits = defaultdict[int, int](int), defaultdict[int, int](int)
    for step in steps:
        if step.name == "save":
            continue
        touched = step.qubits + step.controls
        bits = step.clbits if step.condition is None else step.clbits + step.condition.clbits
        level = max([qubits[q] for q in touched] + [clbits[b] for b in bits], default=0)
        bodies = bodies_of(step)
        level += max(map(_depth, bodies)) if bodies else step.name not in ("barrier", "channel")
        for q in touched:
            qubits[q] = level
        for b in bits:
            clbits[b] = level
    return max([*qubits.values(), *clbits.values()], default=0)
