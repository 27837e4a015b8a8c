"""The observable: a weighted sum of products of Pauli operators."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any, NamedTuple

from ..instructions.instruction import Instruction
from .algebra import Algebra
from .base import ObservableBase, ObservableLike
from .frameworks import Frameworks
from .grouping import commuting, turned_to_z
from .matrices import Matrices
from .projectors import Projectors
from .terms import Number, Term

__all__ = ["CommutingGroup", "Observable", "ObservableBase", "ObservableLike"]


class Observable(Algebra, Matrices, Projectors, Frameworks):
    """A weighted sum of products of Pauli operators, plus a constant. Does not change once made.

    Observables and numbers are added, subtracted and multiplied with ``+``, ``-``, ``*`` and ``/``; ``@`` and ``*``
    between two observables are the product of the operators, the right one acting first. A sum keeps its terms as they
    were given until `simplify`; a product has every string once. Products of Hermitian observables that do not commute
    are not Hermitian: they have complex coefficients (`is_complex`), and so have their expectation values.

    Parameters
    ----------
    terms : str, dict, or list of tuples
        A text such as ``"0.5*X0 Y2 - 1.2*Z1 + 3"``, where ``X0`` is X on qubit 0; complex coefficients stand in
        parentheses. Or a text of labels, ``"0.5*ZZI - XIX"``, all of one letter I, X, Y or Z per qubit. Either may have
        projectors, ``"|01><01|"``, on as many qubits as they have bits, from qubit 0 on, at most 16; and other operators
        between basis states, ``"|01><10|"``. Or a dictionary from labels to coefficients. Or a list of
        (coefficient, letters, qubits), where letter i acts on qubit i of the tuple's own list.
    order : {"big", "little"}
        Whether the first letter of a label, and the first bit of a projector, belongs to qubit 0 or to the last qubit.
        Where qubits are told by numbers it makes no difference.

    Raises
    ------
    TypeError, ValueError
        If a coefficient is no finite number, a letter is unknown, a qubit is named twice in a term or is not from 0 to
        65535, or a text is malformed; then the message tells the position.
    MemoryError
        If the 2**k Pauli strings of a projector on k qubits do not fit.

    Examples
    --------
    >>> energy = Observable("0.5*X0 Y2 - 1.2*Z1 + 3")
    >>> energy.terms
    (Term(coefficient=0.5, paulis='XY', qubits=(0, 2)), Term(coefficient=-1.2, paulis='Z', qubits=(1,)))
    >>> energy.constant, energy.n_qubits
    (3.0, 3)
    >>> energy == Observable({"XIY": 0.5, "IZI": -1.2, "III": 3}) == Observable("0.5*XIY - 1.2*IZI + 3")
    True
    >>> energy == Observable([(0.5, "YX", [2, 0]), (-1.2, "Z", [1]), (3, "", [])])
    True
    >>> Observable("XIY", order="little")
    Observable('1.0*Y0 X2')
    >>> 2 * energy - 1
    Observable('1.0*X0 Y2 - 2.4*Z1 + 5.0')
    >>> Observable("X0 + Z1") @ Observable("X0 - Z1")
    Observable('0.0')
    >>> Observable("X0") @ Observable("Y0")
    Observable('1j*Z0')
    >>> Observable("|11><11|")
    Observable('-0.25*Z0 - 0.25*Z1 + 0.25*Z0 Z1 + 0.25')
    """

    def group_commuting(self) -> tuple[CommutingGroup, ...]:
        """Return groups of terms that can be measured in the same shots, each with the gates to do so.

        Terms of a group commute qubit by qubit: where two of them act on the same qubit they have the same letter. Groups
        are found greedily, terms on many qubits first; there may be fewer, but to find the fewest is as hard as colouring
        a graph.

        Returns
        -------
        tuple of CommutingGroup
            In the order of their first terms. They add up to this observable; the constant is in the first.

        Examples
        --------
        >>> from velacamplix import Circuit, run
        >>> energy = Observable("2*Z0 Z1 + X0 X1 - 3*Z1 + 1")
        >>> groups = energy.group_commuting()
        >>> [str(group.observable) for group in groups]
        ['2.0*Z0 Z1 - 3.0*Z1 + 1.0', '1.0*X0 X1']
        >>> bell, mean = Circuit(2).h(0).cx(0, 1), 0.0
        >>> for group in groups:
        ...     turned = bell.copy().extend(group.gates)
        ...     mean += run(turned, shots=1000, seed=1).counts.expectation(group.diagonal).mean
        >>> abs(mean - run(bell, observables=energy).expectation_values) < 0.5
        True
        """
        found = commuting(self._terms) or [([], "", ())] * bool(self._constant)
        groups: list[CommutingGroup] = []
        for members, letters, qubits in found:
            terms, constant = [self._terms[member] for member in members], 0.0 if groups else self._constant
            diagonal = [term._replace(paulis="Z" * len(term.qubits)) for term in terms]
            groups.append(
                CommutingGroup(
                    self._of(terms, constant, self._n_qubits),
                    self._of(diagonal, constant, self._n_qubits),
                    letters,
                    qubits,
                    turned_to_z(letters, qubits),
                )
            )
        return tuple(groups)

    def __reduce__(self) -> tuple[Any, ...]:
        return _unpickled, (type(self), tuple(map(tuple, self._terms)), self._constant, self._n_qubits)


class CommutingGroup(NamedTuple):
    """Terms of an observable that are measured in the same shots.

    Attributes
    ----------
    observable : Observable
        The terms.
    diagonal : Observable
        The same with Z for every letter: what is measured once the gates have acted.
    paulis : str
        The letter that is measured on each of the qubits.
    qubits : tuple of int
        In increasing order.
    gates : tuple of Instruction
        What turns the letters to Z: H for X, S† and H for Y. `Circuit.extend` adds them to a circuit.

    >>> [group] = Observable("X0 Y1 + 3*X0").group_commuting()
    >>> group.diagonal, group.paulis, group.qubits
    (Observable('1.0*Z0 Z1 + 3.0*Z0'), 'XY', (0, 1))
    >>> print(*group.gates, sep=", ")
    H 0, sdg 1, H 1
    """

    observable: Observable
    diagonal: Observable
    paulis: str
    qubits: tuple[int, ...]
    gates: tuple[Instruction, ...]


def _unpickled(
    kind: type[Observable], terms: Iterable[tuple[Number, str, tuple[int, ...]]], constant: Number, n_qubits: int
) -> Observable:
    return kind._of([Term(*term) for term in terms], constant, n_qubits)
