"""Derivatives by a circuit's parameters, handed on to the room that takes them."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import TYPE_CHECKING, Any, Literal

import numpy as np

from ..basics.types import Order, Precision
from ..observables.observable import ObservableLike
from .record import Record

if TYPE_CHECKING:
    from ..gradients.gradient import ValueAndGradient
    from ..programs.progress import ProgressLike
    from ..results.estimate import Estimate
    from ..running.initial import InitialLike

Values = Mapping[Any, float] | Sequence[float] | np.ndarray
Method = Literal["adjoint", "parameter-shift", "finite-shots"]


class Derivatives(Record):
    """Values of observables and their derivatives."""

    def value_and_gradient(
        self,
        observable: ObservableLike,
        values: Values | Sequence[Values] | None = None,
        *,
        method: Method = "adjoint",
        shots: int | None = None,
        seed: int | None = None,
        precision: Precision = "double",
        threads: int | None = None,
        initial: InitialLike = None,
        initial_order: Order | None = None,
        fusion: bool = False,
        progress: ProgressLike = None,
    ) -> ValueAndGradient:
        """Return the expectation value of an observable and its derivatives by the circuit's parameters.

        Parameters
        ----------
        observable : Observable, str, dict or list of terms
            With real coefficients.
        values : mapping or sequence of float, optional
            A number for each of `parameters`: by name (or `Parameter`), or in their order. Several sets of them, as rows of
            an array or as a list, give an array of values and a row of derivatives for each. Nothing for a circuit without
            parameters.
        method : {"adjoint", "parameter-shift", "finite-shots"}
            How: one run forward and one back, whatever the number of parameters; two runs for each angle that depends on a
            parameter, four if it is a rotation's under controls; the same from shots, with standard errors.
        shots : int, optional
            For "finite-shots": of each term of the observable in each run.
        seed : int, optional
            For "finite-shots", of 32 bits. By default drawn by chance.
        precision : {"double", "single"}
            16 or 8 bytes per amplitude; "single" for the adjoint method alone. Derivatives are summed in double.
        threads : int, optional
            As for `StateVector`. The result does not depend on it.
        initial, initial_order
            The state to begin with, as for `run`; a constant.
        fusion : bool
            For the adjoint method: whether neighbouring gates may be multiplied together, forward and back. Results are
            equal up to rounding, and the same for any number of threads.
        progress : None, bool or callable
            As for `run`; counts gates on one state, or runs.

        Returns
        -------
        ValueAndGradient
            A tuple of value and gradient, a ``float`` and an array of shape (number of parameters,), in the order of
            `parameters`; both are `Estimate` from shots. Its attribute `return_error` tells how much was rounded.

        Raises
        ------
        TypeError
            If an argument is of the wrong kind.
        ValueError
            If the circuit measures, resets or acts on a condition, a parameter has no value, an angle or its derivative is
            not finite, the observable is complex or acts on qubits the circuit lacks, a matrix is not unitary, or
            `shots`, `seed`, `precision` or `fusion` do not go with the method.
        MemoryError
            If two states do not fit.
        KeyboardInterrupt
            After Ctrl-C, between two passes over the states.

        Notes
        -----
        Qubits that no gate touches take no memory. A derivative is 0 exactly where no gate joins the parameter's qubits to
        those of the observable. All gates with angles have derivatives, under controls and inside definitions too; gates
        given by matrices and diagonals are constants.

        The adjoint method takes the time of about four runs and two states; each observable more (`jacobian`) that of about
        two runs and one state (arXiv:2009.02823). Where many gates act on the same pairs of qubits, ``fusion=True`` takes half
        of that. The other methods take two to four runs for each angle and one state.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> a, b = Parameter("a"), Parameter("b")
        >>> circuit = Circuit(2).rx(a, 0).cx(0, 1).ry(2 * b, 1)
        >>> value, gradient = circuit.value_and_gradient("Z1", {"a": 0.5, "b": 0.25})      # cos(a) cos(2 b)
        >>> round(value, 6), gradient.round(6).tolist()
        (0.770151, [-0.420735, -0.841471])
        >>> values, gradients = circuit.value_and_gradient("Z1", [[0.5, 0.25], [0.0, 0.0]])
        >>> values.round(6).tolist(), gradients.shape
        ([0.770151, 1.0], (2, 2))
        """
        from ..gradients import gradient

        return gradient.value_and_gradient(
            self, observable, values, method=method, shots=shots, seed=seed, precision=precision, threads=threads,
            initial=initial, initial_order=initial_order, fusion=fusion, progress=progress,
        )  # fmt: skip

    def gradient(
        self, observable: ObservableLike, values: Values | Sequence[Values] | None = None, **how: Any
    ) -> np.ndarray | Estimate:
        """Return the derivatives of `value_and_gradient` alone; it takes the same arguments.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> Circuit(1).ry(Parameter("a"), 0).gradient("X0", [0.0]).tolist()
        [1.0]
        """
        from ..gradients import gradient

        return gradient.gradient(self, observable, values, **how)

    def jacobian(
        self, observables: ObservableLike | Sequence[ObservableLike], values: Values | None = None, **how: Any
    ) -> np.ndarray | Estimate:
        """Return the derivatives of several observables by the circuit's parameters, a row for each.

        Parameters
        ----------
        observables : list of observables
            Each as for `value_and_gradient`. For one alone the result is its gradient.
        values, **how
            As for `value_and_gradient`; one set of values.

        Returns
        -------
        numpy.ndarray, shape (number of observables, number of parameters)
            From shots an `Estimate` of two such arrays.

        Raises
        ------
        TypeError, ValueError, MemoryError, KeyboardInterrupt
            As for `value_and_gradient`.

        Notes
        -----
        The adjoint method holds a state for each of 30 observables at a time, if they fit, and one.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> Circuit(1).ry(Parameter("a"), 0).jacobian(["X0", "Z0"], [0.0]).tolist()
        [[1.0], [0.0]]
        """
        from ..gradients import gradient

        return gradient.jacobian(self, observables, values, **how)

    def vjp(
        self, observables: Sequence[ObservableLike], values: Values | None, vector: Sequence[float], **how: Any
    ) -> np.ndarray:
        """Return `vector` times the Jacobian: the derivatives of the sum of the observables, each times its number.

        That takes one gradient and two states, whatever the number of observables.

        Parameters
        ----------
        observables, values
            As for `jacobian`.
        vector : sequence of float
            A number for each observable.
        **how
            As for `value_and_gradient`, but for shots.

        Returns
        -------
        numpy.ndarray, shape (number of parameters,)

        Raises
        ------
        TypeError, ValueError, MemoryError, KeyboardInterrupt
            As for `value_and_gradient`.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> Circuit(1).ry(Parameter("a"), 0).vjp(["X0", "Z0"], [0.0], [2.0, 5.0]).tolist()
        [2.0]
        """
        from ..gradients import gradient

        return gradient.vjp(self, observables, values, vector, **how)

    def jvp(
        self,
        observables: ObservableLike | Sequence[ObservableLike],
        values: Values | None,
        tangent: Values | None,
        **how: Any,
    ) -> np.ndarray | float:
        """Return the Jacobian times `tangent`: the derivatives of the observables where the parameters move that way.

        Parameters
        ----------
        observables, values
            As for `jacobian`.
        tangent : mapping or sequence of float
            A number for each parameter, as `values`.
        **how
            As for `value_and_gradient`, but for shots.

        Returns
        -------
        numpy.ndarray, shape (number of observables,)
            For one observable alone a ``float``.

        Raises
        ------
        TypeError, ValueError, MemoryError, KeyboardInterrupt
            As for `value_and_gradient`.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> Circuit(1).ry(Parameter("a"), 0).jvp(["X0", "Z0"], [0.0], [0.5]).tolist()
        [0.5, 0.0]
        """
        from ..gradients import gradient

        return gradient.jvp(self, observables, values, tangent, **how)

    def metric_tensor(
        self,
        values: Values | None = None,
        *,
        threads: int | None = None,
        initial: InitialLike = None,
        initial_order: Order | None = None,
        progress: ProgressLike = None,
    ) -> np.ndarray:
        """Return the Fubini-Study metric of the circuit's states, in blocks: what natural gradient descent divides by.

        Gates with angles that may all stand first among those from some gate on are a block; entries between blocks are
        left 0. For two angles of a block the entry is Re<A B> - <A><B> in the state before it, A and B being their
        generators: exactly Re<da psi|db psi> - <da psi|psi><psi|db psi>, a quarter of the quantum Fisher information
        (arXiv:1909.02108). Entries by parameters follow by the chain rule.

        Parameters
        ----------
        values
            One set, as for `value_and_gradient`.
        threads, initial, initial_order, progress
            As for `value_and_gradient`.

        Returns
        -------
        numpy.ndarray, shape (number of parameters, number of parameters)
            Symmetric.

        Raises
        ------
        TypeError, ValueError, MemoryError, KeyboardInterrupt
            As for `value_and_gradient`; also if a gate with an angle has more than 6 controls.

        Examples
        --------
        >>> from velacamplix import Circuit, Parameter
        >>> circuit = Circuit(1).ry(Parameter("a"), 0).rz(Parameter("b"), 0)
        >>> circuit.metric_tensor([0.5, 0.1]).round(4).tolist()             # 1/4 and sin(a)^2 / 4
        [[0.25, 0.0], [0.0, 0.0575]]
        """
        from ..gradients import metric

        return metric.metric_tensor(
            self, values, threads=threads, initial=initial, initial_order=initial_order, progress=progress
        )
