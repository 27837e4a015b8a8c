"""Observables of other packages, which are imported when they are needed."""

from __future__ import annotations

from typing import Any, Self

from ..basics import checks
from ..basics.extras import imported
from .base import ObservableBase


class Frameworks(ObservableBase):
    """Conversions from and to other packages."""

    @classmethod
    def from_openfermion(cls, operator: Any) -> Self:
        """Return the observable that an operator of OpenFermion's is, term by term and in its order.

        Parameters
        ----------
        operator : openfermion.QubitOperator
            Qubit q there is qubit q here. Coefficients may be complex. Operators of fermions become one by
            ``openfermion.jordan_wigner`` and its like.

        Raises
        ------
        ImportError
            If OpenFermion is not installed.
        TypeError
            If `operator` is no ``QubitOperator``, or a coefficient is no number: SymPy's symbols are refused.
        ValueError
            If a coefficient is not finite, or a qubit is above 65535.

        Examples
        --------
        >>> from openfermion import FermionOperator, QubitOperator, jordan_wigner
        >>> Observable.from_openfermion(QubitOperator("X0 Y2", 0.5) + QubitOperator("", 3))
        Observable('0.5*X0 Y2 + 3.0')
        >>> Observable.from_openfermion(jordan_wigner(FermionOperator("1^ 1")))
        Observable('-0.5*Z1 + 0.5')
        """
        openfermion = imported("openfermion", "Observable.from_openfermion")
        if not isinstance(operator, openfermion.QubitOperator):
            raise TypeError(
                f"operator must be a QubitOperator of OpenFermion's, got {checks.show(operator)}"
                "; openfermion.jordan_wigner makes one of an operator of fermions"
            )
        return cls(
            [
                (coefficient, "".join(letter for _, letter in factors), [qubit for qubit, _ in factors])
                for factors, coefficient in operator.terms.items()
            ]
        )

    def to_openfermion(self) -> Any:
        """Return the same sum as a ``QubitOperator`` of OpenFermion's.

        Terms of the same product become one, since OpenFermion's operators hold each product once.

        Returns
        -------
        openfermion.QubitOperator
            Qubit q here is qubit q there. The constant is its term without factors, left out where it is 0.

        Raises
        ------
        ImportError
            If OpenFermion is not installed.

        Examples
        --------
        >>> Observable("0.5*X0 Y2 - 1.2*Z1 + 3").to_openfermion().terms
        {((0, 'X'), (2, 'Y')): 0.5, ((1, 'Z'),): -1.2, (): 3.0}
        """
        made = imported("openfermion", "Observable.to_openfermion").QubitOperator()
        for term in self.simplify().terms:
            made.terms[tuple(zip(term.qubits, term.paulis))] = term.coefficient
        if self.constant:
            made.terms[()] = self.constant
        return made
