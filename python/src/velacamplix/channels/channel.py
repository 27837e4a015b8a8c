"""A quantum channel on a few qubits."""

from __future__ import annotations

import inspect
import math
from collections.abc import Iterable, Mapping, Sequence
from typing import Any, Self

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ..basics import checks
from ..basics.elsewhere import Guiding
from ..basics.types import Order
from ..basics.words import counted, shortened
from . import forms
from .forms import MOST_QUBITS, TOLERANCE, Matrix

__all__ = ["Channel"]

# Name and value of each argument, as `repr` writes them.
_Arguments = tuple[tuple[str, Any], ...]


class Channel(Guiding):
    """What noise does to the density matrix of 1 to 4 qubits: rho -> sum of K rho K†.

    Made by one of the class methods. Channels are plain values: they do not change, are equal if they are made of the
    same operators, can be keys of a dictionary, and be pickled.

    Qubit j of the channel is bit j of the number of a row or a column of its matrices, and letter j of a Pauli string acts
    on it; ``order="big"`` turns matrices round. A gate's ``circuit.matrix`` has its first listed qubit as highest bit, so
    the matrix of such a gate is given as ``Channel.coherent(matrix, order="big")``.

    Formulas: Nielsen and Chuang, Quantum Computation and Quantum Information, section 8.3, where nothing else is said.

    Examples
    --------
    >>> noise = Channel.depolarizing(0.03)
    >>> noise, noise.n_qubits, noise.is_mixture
    (Channel.depolarizing(0.03, qubits=1), 1, True)
    >>> Channel.amplitude_damping(0.36).kraus()[0].real
    array([[1. , 0. ],
           [0. , 0.8]])
    """

    __slots__ = ("_arguments", "_key", "_n_qubits", "_name", "_operators", "_paulis", "_probabilities")

    _name: str
    _arguments: _Arguments
    _n_qubits: int
    # Of a Pauli channel, in alphabetical order and without zeros; its unitaries are made when they are asked for.
    _paulis: dict[str, float] | None
    # Of a mixture; then the operators are unitary.
    _probabilities: tuple[float, ...] | None
    _operators: tuple[Matrix, ...]
    _key: tuple[Any, ...]

    def __init__(self, *arguments: Any, **others: Any) -> None:
        raise TypeError(
            "Channel must be made by one of its class methods, as in Channel.depolarizing(0.01) or "
            "Channel.from_kraus(matrices)"
        )

    # --- Pauli channels ---

    @classmethod
    def pauli(cls, probabilities: Mapping[str, float]) -> Self:
        """Return the channel that applies Pauli strings, each with its probability.

        Parameters
        ----------
        probabilities : mapping of str to float
            Keys of 1 to 4 letters I, X, Y, Z, all of one length; letter j acts on qubit j of the channel. What is missing
            from 1 is the identity's, unless that is listed.

        Raises
        ------
        TypeError, ValueError
            If a key is no such text, or the probabilities are negative, not finite, or do not add up to 1 within 1e-12.

        Examples
        --------
        >>> Channel.pauli({"XI": 0.1, "ZZ": 0.2}).pauli_probabilities
        {'II': 0.7, 'XI': 0.1, 'ZZ': 0.2}
        """
        given = _probabilities_of_texts(probabilities)
        return cls._of_paulis("pauli", (), given)

    @classmethod
    def depolarizing(cls, p: float | None = None, qubits: int = 1, *, error_probability: float | None = None) -> Self:
        """Return rho -> (1 - p) rho + p I / D, D = 2**qubits: with probability p the qubits lose all they tell.

        The maximally mixed state is made by all 4**qubits Pauli strings, the identity among them. So an error, a string
        that is not the identity, happens with probability ``p * (1 - 4**-qubits)`` only: the parameter that some other
        packages call p or the depolarizing probability. It is taken as `error_probability`.

        Parameters
        ----------
        p : float, optional
            From 0 to 4**qubits / (4**qubits - 1): beyond 1 the state with an error is the likelier one.
        qubits : int
            How many, from 1 to 4.
        error_probability : float, optional
            In place of p, from 0 to 1.

        Raises
        ------
        TypeError, ValueError
            If a value is none of these, or not exactly one of `p` and `error_probability` is given.

        Examples
        --------
        >>> Channel.depolarizing(0.04).pauli_probabilities
        {'I': 0.97, 'X': 0.01, 'Y': 0.01, 'Z': 0.01}
        >>> Channel.depolarizing(error_probability=0.03) == Channel.depolarizing(0.04)
        True
        """
        n_qubits = checks.integer(qubits, "qubits", minimum=1, maximum=MOST_QUBITS)
        strings = 4**n_qubits
        if (p is None) == (error_probability is None):
            raise TypeError(
                "exactly one of p, the share of the maximally mixed state, and error_probability, that of any error, must be "
                f"given, got p={checks.show(p)}, error_probability={checks.show(error_probability)}"
            )
        if p is None:
            error = checks.probability(error_probability, "error_probability")
            share = error * strings / (strings - 1)
        else:
            share = checks.real(p, "p")
            if not 0 <= share * (strings - 1) / strings <= 1 + TOLERANCE:
                raise ValueError(
                    f"p must be from 0 to {strings}/{strings - 1} for {counted(n_qubits, 'qubit')}, where an error is certain, "
                    f"got {checks.show(p)}"
                )
        each = share / strings
        errors = {text: each for text in forms.pauli_texts(n_qubits)[1:]}
        return cls._of_paulis("depolarizing", (("p", share), ("qubits", n_qubits)), errors)

    @classmethod
    def bit_flip(cls, p: float) -> Self:
        """Return the channel that applies X with probability p.

        >>> Channel.bit_flip(0.25).pauli_probabilities
        {'I': 0.75, 'X': 0.25}
        """
        flip = checks.probability(p, "p")
        return cls._of_paulis("bit_flip", (("p", flip),), {"X": flip})

    @classmethod
    def phase_flip(cls, p: float) -> Self:
        """Return the channel that applies Z with probability p.

        >>> Channel.phase_flip(0.25).pauli_probabilities
        {'I': 0.75, 'Z': 0.25}
        """
        flip = checks.probability(p, "p")
        return cls._of_paulis("phase_flip", (("p", flip),), {"Z": flip})

    @classmethod
    def phase_damping(cls, gamma: float) -> Self:
        """Return the channel that multiplies the coherence rho[0, 1] by sqrt(1 - gamma).

        It is the phase flip with probability (1 - sqrt(1 - gamma)) / 2, and `kraus` tells the operators of that: the same
        channel as diag(1, sqrt(1 - gamma)) and diag(0, sqrt(gamma)).

        >>> Channel.phase_damping(0.75).pauli_probabilities
        {'I': 0.75, 'Z': 0.25}
        """
        rate = checks.probability(gamma, "gamma")
        # (1 - sqrt(1 - gamma)) / 2 without the difference of two numbers that are nearly equal.
        flip = rate / (2 * (1 + math.sqrt(1 - rate)))
        return cls._of_paulis("phase_damping", (("gamma", rate),), {"Z": flip})

    # --- Decay ---

    @classmethod
    def amplitude_damping(cls, gamma: float) -> Self:
        """Return the decay of state 1 to state 0 with probability gamma.

        Its operators are [[1, 0], [0, sqrt(1 - gamma)]] and [[0, sqrt(gamma)], [0, 0]].

        >>> Channel.amplitude_damping(0.36).kraus()[1].real
        array([[0. , 0.6],
               [0. , 0. ]])
        """
        rate = checks.probability(gamma, "gamma")
        return cls._of_operators("amplitude_damping", (("gamma", rate),), _damping(rate, 0.0))

    @classmethod
    def generalized_amplitude_damping(cls, gamma: float, excited: float) -> Self:
        """Return the decay towards a state with a share in state 1, as at a finite temperature.

        Parameters
        ----------
        gamma : float
            How much of the way is gone, from 0 to 1. Coherences are multiplied by sqrt(1 - gamma).
        excited : float
            Probability of state 1 in the state in which it ends, from 0 to 1.

        Examples
        --------
        >>> len(Channel.generalized_amplitude_damping(0.1, excited=0.02).kraus())
        4
        """
        rate, share = checks.probability(gamma, "gamma"), checks.probability(excited, "excited")
        return cls._of_operators(
            "generalized_amplitude_damping", (("gamma", rate), ("excited", share)), _damping(rate, share)
        )

    @classmethod
    def thermal_relaxation(cls, t1: float, t2: float, time: float, excited: float = 0.0) -> Self:
        """Return what a qubit does when it is left alone for a time.

        The probability of state 1 goes to `excited` as exp(-time / t1), coherences go to 0 as exp(-time / t2) (Krantz et
        al., A quantum engineer's guide to superconducting qubits, Appl. Phys. Rev. 6, 021318 (2019), section III.B).

        Parameters
        ----------
        t1, t2 : float
            Both above 0, t2 at most 2 * t1; infinity is no decay of this kind.
        time : float
            At least 0, in the unit of `t1` and `t2`.
        excited : float
            Probability of state 1 after a very long time, from 0 to 1.

        Raises
        ------
        TypeError, ValueError
            If a value is none of these.

        Examples
        --------
        >>> relaxation = Channel.thermal_relaxation(t1=50e-6, t2=70e-6, time=300e-9)
        >>> print(f"{relaxation.superoperator()[1, 1].real:.6f} {relaxation.superoperator()[3, 3].real:.6f}")
        0.995723 0.994018
        """
        first, second = _lifetime(t1, "t1"), _lifetime(t2, "t2")
        if second > 2 * first:
            raise ValueError(
                f"t2 must be at most 2 * t1, as the decay itself ends coherences, got t1={checks.show(t1)} and "
                f"t2={checks.show(t2)}"
            )
        duration = checks.real(time, "time")
        if duration < 0:
            raise ValueError(f"time must not be negative, got {checks.show(time)}")
        share = checks.probability(excited, "excited")
        arguments = (("t1", first), ("t2", second), ("time", duration), *((("excited", share),) if share else ()))
        rate, survival = -math.expm1(-duration / first), math.exp(-duration / first)
        if not rate:
            return cls._of_paulis("thermal_relaxation", arguments, {"Z": -math.expm1(-duration / second) / 2})
        # A diagonal part with and without a flip of the phase, which keeps of a coherence what is left of it; and jumps.
        stay = np.sqrt([1 - share + share * survival, share + (1 - share) * survival])
        left = min(1.0, math.exp(-duration / second) / (stay[0] * stay[1])) if stay.all() else 0.0
        operators = [
            math.sqrt((1 + left) / 2) * np.diag(stay),
            math.sqrt((1 - left) / 2) * np.diag(stay * [1, -1]),
            math.sqrt((1 - share) * rate) * np.array([[0, 1], [0, 0]]),
            math.sqrt(share * rate) * np.array([[0, 0], [1, 0]]),
        ]
        return cls._of_operators("thermal_relaxation", arguments, operators)

    @classmethod
    def reset(cls, p0: float, p1: float = 0.0) -> Self:
        """Return the channel that puts a qubit into state 0 with probability p0, into state 1 with probability p1.

        Raises
        ------
        TypeError, ValueError
            If a probability is none, or both add up to more than 1.

        Examples
        --------
        >>> Channel.reset(1.0).superoperator().real
        array([[1., 0., 0., 1.],
               [0., 0., 0., 0.],
               [0., 0., 0., 0.],
               [0., 0., 0., 0.]])
        """
        low, high = checks.probability(p0, "p0"), checks.probability(p1, "p1")
        rest = _rest((low, high), "p0 and p1")
        operators = [math.sqrt(rest) * np.eye(2)]
        for p, row in ((low, 0), (high, 1)):
            for column in (0, 1):
                jump = np.zeros((2, 2))
                jump[row, column] = math.sqrt(p)
                operators.append(jump)
        return cls._of_operators("reset", (("p0", low), ("p1", high)), operators)

    # --- By matrices ---

    @classmethod
    def coherent(cls, matrix: ArrayLike, order: Order = "little") -> Self:
        """Return an error that always happens: rho -> U rho U†.

        Parameters
        ----------
        matrix : array_like, shape (D, D)
            Unitary within 1e-12, D = 2, 4, 8 or 16.
        order : {"little", "big"}
            Whether the channel's qubit 0 is the lowest bit of a row's number or the highest.

        Examples
        --------
        >>> Channel.coherent([[1, 0], [0, 1j]])
        <Channel coherent: 1 qubit>
        """
        (operator,) = forms.matrices([matrix], "matrix", checks.order(order))
        _require_unitary(operator, "matrix")
        return cls._of_mixture("coherent", (), (1.0,), (operator,))

    @classmethod
    def from_unitaries(
        cls, probabilities: Sequence[float], matrices: Sequence[ArrayLike], order: Order = "little"
    ) -> Self:
        """Return the channel that applies one of several unitary matrices, each with its probability.

        Parameters
        ----------
        probabilities : sequence of float
            They add up to 1 within 1e-12.
        matrices : sequence of array_like, shape (D, D)
            As many, unitary within 1e-12, D = 2, 4, 8 or 16.
        order : {"little", "big"}
            Whether the channel's qubit 0 is the lowest bit of a row's number or the highest.

        Raises
        ------
        TypeError, ValueError
            If they are none of these.

        Examples
        --------
        >>> swapped = Channel.from_unitaries([0.9, 0.1], [np.eye(4), np.eye(4)[[0, 2, 1, 3]]])
        >>> swapped, swapped.probabilities
        (<Channel from_unitaries: 2 qubits, 2 operators>, (0.9, 0.1))
        """
        operators = forms.matrices(matrices, "matrices", checks.order(order))
        given = checks.sequence(probabilities, "probabilities", of="numbers", most=4**MOST_QUBITS)
        if len(given) != len(operators):
            raise ValueError(f"probabilities must be one for each matrix, got {len(given)} for {len(operators)}")
        numbers = [checks.probability(value, f"probabilities[{i}]") for i, value in enumerate(given)]
        if not abs(math.fsum(numbers) - 1) <= TOLERANCE:
            raise ValueError(
                f"probabilities must add up to 1, got {math.fsum(numbers)!r}, which is {math.fsum(numbers) - 1:.3g} off; list "
                "the identity, too, with what is left"
            )
        for i, operator in enumerate(operators):
            _require_unitary(operator, f"matrices[{i}]")
        return cls._of_mixture("from_unitaries", (), tuple(numbers), operators)

    @classmethod
    def from_kraus(cls, matrices: Sequence[ArrayLike], order: Order = "little") -> Self:
        """Return the channel with these Kraus operators: rho -> sum of K rho K†.

        Parameters
        ----------
        matrices : sequence of array_like, shape (D, D)
            The sum of K†K is the identity within 1e-12 in every entry, D = 2, 4, 8 or 16.
        order : {"little", "big"}
            Whether the channel's qubit 0 is the lowest bit of a row's number or the highest.

        Raises
        ------
        TypeError, ValueError
            If they are none of these.

        Examples
        --------
        >>> Channel.from_kraus([np.diag([1, 0.8]), [[0, 0.6], [0, 0]]]) == Channel.amplitude_damping(0.36)
        True
        """
        operators = forms.matrices(matrices, "matrices", checks.order(order))
        off = forms.deviation(operators)
        if not off <= TOLERANCE:
            raise ValueError(
                f"matrices must be complete, the sum of K†K the identity within {TOLERANCE:g}, got one with an entry that is "
                f"{off:.3g} off; the operator for the case that nothing happens must be among them, too"
            )
        return cls._of_operators("from_kraus", (), operators)

    # --- What it tells ---

    @property
    def n_qubits(self) -> int:
        """Number of qubits it acts on."""
        return self._n_qubits

    num_qubits = n_qubits

    @property
    def name(self) -> str:
        """The name of the class method that made it."""
        return self._name

    @property
    def is_mixture(self) -> bool:
        """Whether it is told as unitary matrices with probabilities, which do not depend on the state."""
        return self._probabilities is not None

    @property
    def probabilities(self) -> tuple[float, ...] | None:
        """Of a mixture, the probability of each of `unitaries`; of other channels None."""
        return self._probabilities

    @property
    def unitaries(self) -> tuple[Matrix, ...] | None:
        """Of a mixture, its matrices, which cannot be written to; of other channels None."""
        if self._paulis is not None:
            return tuple([forms.pauli_matrix(text) for text in self._paulis])
        return None if self._probabilities is None else self._operators

    @property
    def pauli_probabilities(self) -> dict[str, float] | None:
        """Of a channel made of Pauli strings, their probabilities as `pauli` takes them, without zeros; of others None.

        In alphabetical order, so that the identity is first; `unitaries` and `probabilities` have the same order.
        """
        return None if self._paulis is None else dict(self._paulis)

    def kraus(self, order: Order = "little") -> tuple[Matrix, ...]:
        """Return Kraus operators, arrays of shape (D, D) that cannot be written to; of a mixture sqrt(p) U.

        Examples
        --------
        >>> [operator.real.tolist() for operator in Channel.bit_flip(0.36).kraus()]
        [[[0.8, 0.0], [0.0, 0.8]], [[0.0, 0.6], [0.6, 0.0]]]
        """
        if not isinstance(self, Channel):
            raise TypeError(f"Channel.kraus must be asked of a channel, got {checks.show(self)}; Channel.from_kraus makes one")
        is_big = checks.order(order) == "big"
        operators = self._operators
        if self._probabilities is not None:
            assert self.unitaries is not None
            operators = tuple([forms.locked(math.sqrt(p) * u) for p, u in zip(self._probabilities, self.unitaries)])
        return tuple([forms.turned(operator) for operator in operators]) if is_big else operators

    def superoperator(self, order: Order = "little") -> Matrix:
        """Return the matrix that acts on a density matrix as on a vector: the sum of conj(K) ⊗ K.

        The flat index of rho[ket, bra] is ``bra * D + ket``, the ket in the low half (rho's columns one below the other), so
        that a gate U acts as conj(U) ⊗ U: U on the ket's qubits, its conjugate on those of the bra.

        Returns
        -------
        numpy.ndarray, shape (D**2, D**2)

        Examples
        --------
        >>> rho = np.array([[0.25, 0.4], [0.4, 0.75]])
        >>> flat = Channel.phase_flip(0.5).superoperator() @ rho.reshape(-1, order="F")
        >>> flat.reshape(2, 2, order="F").real.round(15)
        array([[0.25, 0.  ],
               [0.  , 0.75]])
        """
        return forms.superoperator(self.kraus(order))

    def choi(self, order: Order = "little") -> Matrix:
        """Return the Choi matrix, sum over i, j of \\|i><j\\| ⊗ channel(\\|i><j\\|): input in the high half, trace D.

        It is the sum of v v† over the Kraus operators, ``v[i * D + o] = K[o, i]`` (Wood, Biamonte and Cory, Tensor networks
        and graphical calculus for open quantum systems, Quant. Inf. Comp. 15, 759 (2015)).

        Returns
        -------
        numpy.ndarray, shape (D**2, D**2)
            Hermitian, without negative eigenvalues.

        Examples
        --------
        >>> Channel.depolarizing(1.0).choi().real
        array([[0.5, 0. , 0. , 0. ],
               [0. , 0.5, 0. , 0. ],
               [0. , 0. , 0.5, 0. ],
               [0. , 0. , 0. , 0.5]])
        """
        return forms.choi(self.kraus(order))

    # --- Together with others ---

    def then(self, other: Channel) -> Channel:
        """Return this channel and after it another on the same qubits, as one.

        Of two Pauli channels one is made, of two mixtures a mixture, unless it had more than 256 matrices; otherwise
        products of Kraus operators, D**2 at most.

        Raises
        ------
        TypeError, ValueError
            If `other` is no channel, or has another number of qubits.

        Examples
        --------
        >>> Channel.bit_flip(0.5).then(Channel.phase_flip(0.5)) == Channel.depolarizing(1.0)
        True
        """
        _require_channel(other)
        if other._n_qubits != self._n_qubits:
            raise ValueError(
                f"other must be a channel on {counted(self._n_qubits, 'qubit')}, got one on {other._n_qubits}; "
                "one.tensor(two) acts on further qubits"
            )
        if self._paulis is not None and other._paulis is not None:
            return _of_pauli_pairs(
                (forms.pauli_product(first, second), p * q)
                for first, p in self._paulis.items()
                for second, q in other._paulis.items()
            )
        both = self._mixed(other, lambda first, second: second @ first)
        if both is not None:
            return both
        first, second = self.kraus(), other.kraus()
        if len(first) * len(second) > 4**self._n_qubits:
            operators = forms.fewest(forms.regrouped(other.superoperator() @ self.superoperator()))
        else:
            operators = [after @ before for before in first for after in second]
        return Channel._of_operators("from_kraus", (), operators)

    def tensor(self, other: Channel) -> Channel:
        """Return this channel on its qubits, and beside it another on the qubits that follow.

        Raises
        ------
        TypeError, ValueError
            If `other` is no channel, or there are more than 4 qubits together.

        Examples
        --------
        >>> Channel.bit_flip(0.5).tensor(Channel.phase_flip(0.5)).pauli_probabilities
        {'II': 0.25, 'IZ': 0.25, 'XI': 0.25, 'XZ': 0.25}
        """
        _require_channel(other)
        together = self._n_qubits + other._n_qubits
        if together > MOST_QUBITS:
            raise ValueError(f"other must leave both on at most {MOST_QUBITS} qubits together, got {together}")
        if self._paulis is not None and other._paulis is not None:
            return _of_pauli_pairs(
                (first + second, p * q) for first, p in self._paulis.items() for second, q in other._paulis.items()
            )
        both = self._mixed(other, lambda low, high: np.kron(high, low))
        if both is not None:
            return both
        lows, highs = [
            forms.fewest(one.choi()) if len(one.kraus()) > 4**one._n_qubits else one.kraus() for one in (self, other)
        ]
        return Channel._of_operators("from_kraus", (), [np.kron(high, low) for low in lows for high in highs])

    def _mixed(self, other: Channel, product: Any) -> Channel | None:
        """Return the mixture of the products of two, None if there is none, or none that is short."""
        if self._probabilities is not None and other._probabilities is not None:
            if len(self._probabilities) * len(other._probabilities) <= 4**MOST_QUBITS:
                assert self.unitaries is not None and other.unitaries is not None
                unitaries = [product(first, second) for first in self.unitaries for second in other.unitaries]
                numbers = [p * q for p in self._probabilities for q in other._probabilities]
                return Channel._of_mixture("from_unitaries", (), numbers, unitaries)
        return None

    # --- As a value ---

    def to_dict(self) -> dict[str, Any]:
        """Return the class method that makes it and its arguments: texts, numbers and lists, which JSON can write.

        Complex numbers are pairs.

        Examples
        --------
        >>> Channel.thermal_relaxation(t1=2.0, t2=3.0, time=1.0).to_dict()
        {'name': 'thermal_relaxation', 't1': 2.0, 't2': 3.0, 'time': 1.0}
        >>> Channel.coherent([[1, 0], [0, 1j]]).to_dict()["matrices"]
        [[[[1.0, 0.0], [0.0, 0.0]], [[0.0, 0.0], [0.0, 1.0]]]]
        """
        if self._name == "pauli":
            return {"name": "pauli", "probabilities": self.pauli_probabilities}
        if self._arguments:
            return {"name": self._name, **dict(self._arguments)}
        matrices = [[[[value.real, value.imag] for value in row] for row in matrix.tolist()] for matrix in self._operators]
        if self._probabilities is None:
            return {"name": "from_kraus", "matrices": matrices}
        return {"name": "from_unitaries", "probabilities": list(self._probabilities), "matrices": matrices}

    @classmethod
    def from_dict(cls, values: Mapping[str, Any]) -> Self:
        """Return the channel that `to_dict` told.

        Raises
        ------
        TypeError, ValueError
            If the name is unknown, arguments are missing or unknown, or not what the class method takes.

        Examples
        --------
        >>> Channel.from_dict({"name": "bit_flip", "p": 0.25})
        Channel.bit_flip(0.25)
        """
        if not isinstance(values, Mapping):
            raise TypeError(f"values must be a dictionary with the name of a class method, got {checks.show(values)}")
        name = checks.choice(values.get("name"), "name", _MADE_BY)
        arguments = {str(key): value for key, value in values.items() if key != "name"}
        make = getattr(cls, name)
        parameters = inspect.signature(make).parameters
        needed = [key for key, parameter in parameters.items() if parameter.default is parameter.empty]
        if not set(needed) <= set(arguments) <= set(parameters):
            raise ValueError(f"arguments of {name} must be {', '.join(parameters)}, got {', '.join(arguments) or 'none'}")
        for key in ("matrix", "matrices"):
            if key in arguments:
                arguments[key] = _complex(arguments[key], key)
        made: Self = make(**arguments)
        return made

    def __eq__(self, other: object) -> bool:
        return self._key == other._key if isinstance(other, Channel) else NotImplemented

    def __hash__(self) -> int:
        return hash(self._key)

    # Nothing in it changes.
    def __copy__(self) -> Self:
        return self

    def __deepcopy__(self, memo: Any) -> Self:
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        # Arrays come back writable.
        parts = (self._name, self._arguments, self._paulis, self._probabilities, self._operators)
        return _restored, parts

    def __str__(self) -> str:
        values = [value for _, value in self._arguments]
        if self._name == "pauli":
            assert self._paulis is not None
            return shortened(f"pauli({', '.join([f'{text} {p:.6g}' for text, p in self._paulis.items()])})")
        if not values:
            return self._name
        return f"{self._name}({', '.join([f'{value:.12g}' for value in values if isinstance(value, float)])})"

    def __repr__(self) -> str:
        if self._name == "pauli":
            return shortened(f"Channel.pauli({self._paulis})")
        if not self._arguments:
            operators = "" if len(self._operators) == 1 else f", {len(self._operators)} operators"
            return f"<Channel {self._name}: {counted(self._n_qubits, 'qubit')}{operators}>"
        words = [repr(value) if name in ("p", "p0", "p1", "gamma") else f"{name}={value!r}" for name, value in self._arguments]
        return f"Channel.{self._name}({', '.join(words)})"

    # --- Inner workings ---

    @classmethod
    def _set(
        cls,
        name: str,
        arguments: _Arguments,
        paulis: dict[str, float] | None,
        probabilities: tuple[float, ...] | None,
        operators: tuple[Matrix, ...],
    ) -> Self:
        made = object.__new__(cls)
        made._name, made._arguments = name, arguments
        made._paulis, made._probabilities, made._operators = paulis, probabilities, operators
        if paulis is not None:
            made._n_qubits = len(next(iter(paulis)))
            made._key = tuple(paulis.items())
        else:
            made._n_qubits = len(operators[0]).bit_length() - 1
            made._key = (probabilities, *[operator.tobytes() for operator in operators])
        return made

    @classmethod
    def _of_paulis(cls, name: str, arguments: _Arguments, errors: Mapping[str, float]) -> Self:
        # Whatever is missing from 1 is the identity's.
        identity = "I" * len(next(iter(errors)))
        others = {text: errors[text] for text in sorted(errors) if text != identity and errors[text]}
        rest = errors[identity] if identity in errors else max(0.0, 1 - math.fsum(others.values()))
        paulis = {**({identity: rest} if rest else {}), **others}
        return cls._set(name, arguments, paulis, tuple(paulis.values()), ())

    @classmethod
    def _of_mixture(
        cls, name: str, arguments: _Arguments, probabilities: Sequence[float], unitaries: Iterable[Any]
    ) -> Self:
        kept = [(p, forms.locked(unitary)) for p, unitary in zip(probabilities, unitaries) if p]
        return cls._set(name, arguments, None, tuple([p for p, _ in kept]), tuple([unitary for _, unitary in kept]))

    @classmethod
    def _of_operators(cls, name: str, arguments: _Arguments, operators: Iterable[Any]) -> Self:
        kept = [np.asarray(operator) for operator in operators if np.any(operator)]
        shares = [share for operator in kept if (share := forms.share_of_unitary(operator)) is not None]
        if len(shares) == len(kept):
            return cls._of_mixture(name, arguments, shares, [one / math.sqrt(share) for one, share in zip(kept, shares)])
        return cls._set(name, arguments, None, None, tuple(map(forms.locked, kept)))


def _restored(
    name: str,
    arguments: _Arguments,
    paulis: dict[str, float] | None,
    probabilities: tuple[float, ...] | None,
    operators: tuple[Matrix, ...],
) -> Channel:
    return Channel._set(name, arguments, paulis, probabilities, tuple([forms.locked(operator) for operator in operators]))


_MADE_BY = (
    "pauli", "depolarizing", "bit_flip", "phase_flip", "phase_damping", "amplitude_damping", "generalized_amplitude_damping",
    "thermal_relaxation", "reset", "coherent", "from_unitaries", "from_kraus",
)  # fmt: skip


def _complex(pairs: Any, name: str) -> NDArray[np.complex128]:
    try:
        numbers = checks.array(pairs, np.float64)
    except (TypeError, ValueError):
        numbers = np.zeros(0)
    if numbers.ndim < 3 or numbers.shape[-1] != 2:
        raise ValueError(f"{name} must be lists of rows of pairs [real, imaginary], got {checks.show(pairs)}")
    joined: NDArray[np.complex128] = numbers[..., 0] + 1j * numbers[..., 1]
    return joined


def _of_pauli_pairs(pairs: Iterable[tuple[str, float]]) -> Channel:
    found: dict[str, list[float]] = {}
    for text, p in pairs:
        found.setdefault(text, []).append(p)
    together = {text: math.fsum(numbers) for text, numbers in found.items()}
    return Channel._of_paulis("pauli", (), together)


def _damping(rate: float, share: float) -> list[Any]:
    kept, lost = math.sqrt(1 - rate), math.sqrt(rate)
    down, up = math.sqrt(1 - share), math.sqrt(share)
    return [
        down * np.diag([1, kept]),
        down * np.array([[0, lost], [0, 0]]),
        up * np.diag([kept, 1]),
        up * np.array([[0, 0], [lost, 0]]),
    ]


def _rest(numbers: Sequence[float], name: str) -> float:
    total = math.fsum(numbers)
    if total > 1 + TOLERANCE:
        raise ValueError(f"{name} must add up to at most 1, got {total!r}, which is {total - 1:.3g} more")
    return max(0.0, 1 - total)


def _lifetime(value: Any, name: str) -> float:
    number = math.inf if isinstance(value, float) and value == math.inf else checks.real(value, name)
    if number <= 0:
        raise ValueError(f"{name} must be above 0, got {checks.show(value)}; math.inf is no decay of this kind")
    return number


def _require_unitary(operator: Matrix, name: str) -> None:
    off = forms.deviation([operator])
    if not off <= TOLERANCE:
        raise ValueError(f"{name} must be unitary within {TOLERANCE:g}, got one with an entry of U†U that is {off:.3g} off")


def _require_channel(value: Any) -> None:
    if not isinstance(value, Channel):
        raise TypeError(f"other must be a Channel, got {checks.show(value)}")


def _probabilities_of_texts(value: Any) -> dict[str, float]:
    if not isinstance(value, Mapping):
        raise TypeError(
            'probabilities must be a dictionary of Pauli strings and probabilities, as in {"X": 0.1, "Z": 0.2}, got '
            f"{checks.show(value)}"
        )
    found: dict[str, float] = {}
    for text, p in value.items():
        if not isinstance(text, str):
            raise TypeError(f"probabilities must have Pauli strings as keys, got {checks.show(text)}")
        letters = checks.plain(text)
        if not 1 <= len(letters) <= MOST_QUBITS or set(letters) - set(forms.LETTERS):
            raise ValueError(
                f"probabilities must have keys of 1 to {MOST_QUBITS} letters I, X, Y, Z, one per qubit, got "
                f"{checks.show(letters)}"
            )
        found[letters] = checks.probability(p, f"probabilities[{letters!r}]")
    lengths = sorted({len(letters) for letters in found})
    if len(lengths) != 1:
        raise ValueError(
            "probabilities must have keys of one length, got "
            + (f"lengths {', '.join(map(str, lengths))}" if lengths else 'none; the channel that does nothing is {"I": 1}')
        )
    rest = _rest(tuple(found.values()), "probabilities")
    if "I" * lengths[0] in found and rest > TOLERANCE:
        raise ValueError(
            f"probabilities must add up to 1 where the identity is listed, got {1 - rest!r}, which is {rest:.3g} less; leave "
            f"{'I' * lengths[0]!r} out, and it gets what is missing"
        )
    return found
