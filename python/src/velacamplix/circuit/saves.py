"""What a run keeps of its state on the way: `save_state`, `save_probabilities`, `save_expectation`."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Self

from ..basics import checks
from ..instructions.flow import Save
from ..instructions.instruction import Instruction
from ..observables.observable import Observable, ObservableLike
from .record import Record


class SaveMethods(Record):
    """Instructions that change nothing: with them or without, a run gives the same, but for other shots by trajectories."""

    def save_state(self, name: str) -> Self:
        """Keep a copy of the state at this place: ``run(circuit).saved[name]`` is a `StateVector` of all qubits.

        There is one only if all shots that come here had the same outcomes before, and a measurement that is read at the
        end could have no other. Where that is not so, asking for it raises RuntimeError; `save_probabilities` and
        `save_expectation` tell means. With noise it is a `DensityMatrix`, the mean over all outcomes, and the run an exact one.

        Parameters
        ----------
        name : str
            Each of a circuit once.

        Raises
        ------
        TypeError, ValueError
            If `name` is no text, or empty.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> run(Circuit(2).x(0).save_state("before").h(0)).saved["before"].to_dict()
        {'10': (1+0j)}
        """
        return self._save("state", name)

    def save_probabilities(self, name: str, qubits: None | int | Sequence[int] = None) -> Self:
        """Keep the probabilities of all outcomes of some qubits at this place.

        ``run(circuit).saved[name]`` is an array as `StateVector.distribution` gives it. Where outcomes before have parted
        the shots, it is the mean over those that come here.

        Parameters
        ----------
        name : str
            Each of a circuit once.
        qubits : int or sequence of int, optional
            k qubits, the first the most significant bit of a position; all by default.

        Raises
        ------
        TypeError, IndexError, ValueError
            If `name` is no text, or empty, or a qubit does not exist or is named twice.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(2, 1).x(1).save_probabilities("p", [1, 0]).h(1).measure(1, 0))
        >>> result.saved["p"].tolist()
        [0.0, 0.0, 1.0, 0.0]
        """
        listed = range(self._n_qubits) if qubits is None else qubits
        return self._save("probabilities", name, checks.qubits(listed, self._n_qubits, at_least=0))

    def save_expectation(self, name: str, observable: ObservableLike) -> Self:
        """Keep the exact expectation value of an observable at this place: ``run(circuit).saved[name]`` is a number.

        Where outcomes before have parted the shots, it is the mean over those that come here. As everywhere in a run, a
        term with X or Y on a qubit that has been measured counts 0 from then on, until something acts on the qubit.

        Parameters
        ----------
        name : str
            Each of a circuit once.
        observable : Observable, str, dict or list
            On the circuit's qubits.

        Raises
        ------
        TypeError, ValueError
            If `name` is no text, or empty, or this is no observable, or one on more qubits.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> result = run(Circuit(2).save_expectation("a", "2*Z0 + 1").x(0).save_expectation("b", "2*Z0 + 1"))
        >>> dict(result.saved)
        {'a': 3.0, 'b': -1.0}
        """
        checked = observable if isinstance(observable, Observable) else Observable(observable)
        if checked.n_qubits > self._n_qubits:
            raise ValueError(
                f"observable must act on qubits below {self._n_qubits}, those of the circuit, got one on qubit "
                f"{checked.n_qubits - 1}"
            )
        terms = [(term.coefficient, term.paulis, term.qubits) for term in checked.terms]
        terms.append((checked.constant, "", ()))
        touched = sorted({qubit for term in checked.terms for qubit in term.qubits})
        return self._save("expectation", name, tuple(touched), tuple(terms))

    def _save(self, kind: str, name: Any, qubits: tuple[int, ...] = (), terms: Any = ()) -> Self:
        if not isinstance(name, str):
            raise TypeError(f"name must be a text, got {checks.show(name)}")
        label = checks.plain(name)
        if not label:
            raise ValueError("name must not be empty")
        self._append(Instruction("save", qubits, condition=self._condition, detail=Save(kind, label, terms)))
        return self
