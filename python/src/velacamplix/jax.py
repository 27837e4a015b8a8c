"""Expectation values in JAX, with their derivatives; they work under ``jit``, ``grad`` and ``vmap``.

>>> import jax
>>> from velacamplix import Circuit, Parameter
>>> from velacamplix.jax import expectation
>>> circuit = Circuit(1).ry(Parameter("a"), 0)
>>> slope = jax.jit(jax.grad(lambda angles: expectation(circuit, "X0", angles)))
>>> round(float(slope(jax.numpy.array([0.5]))[0]), 4)                   # cos(0.5)
0.8776
"""

from __future__ import annotations

from collections.abc import Sequence
from functools import partial
from typing import Any, NamedTuple

import numpy as np

from .basics.extras import imported
from .circuit.circuit import Circuit
from .gradients.function import SECOND, Function
from .observables.observable import ObservableLike

jax = imported("jax", "velacamplix.jax")

__all__ = ["expectation"]


def expectation(
    circuit: Circuit, observables: ObservableLike | Sequence[ObservableLike], values: Any, **how: Any
) -> Any:
    """Return expectation values as an array that JAX can differentiate by the circuit's parameters.

    Parameters
    ----------
    circuit : Circuit
        Of gates alone. To ``jit`` it is a constant: what it is when the function is traced.
    observables : observable, or list of them
        With real coefficients, as for `Circuit.value_and_gradient`; constants too.
    values : array, shape (..., number of parameters)
        In the order of ``circuit.parameters``, in float32 or float64; all axes but the last are a batch.
    **how
        ``method``, ``precision``, ``threads``, ``initial``, ``initial_order``, ``fusion`` as for `Circuit.value_and_gradient`.

    Returns
    -------
    jax.Array, shape (...) for one observable, (..., number of observables) for a list
        Of the dtype of `values`. The states are in double precision whatever that is, unless ``precision="single"``.

    Raises
    ------
    TypeError, ValueError, MemoryError
        As `Circuit.value_and_gradient`; also if `values` are no such array. From a compiled function an error of JAX's
        that quotes them.
    NotImplementedError
        Where a second derivative is asked for. JAX itself refuses forward mode (``jvp``, ``jacfwd``) with a TypeError.

    Notes
    -----
    Each set of values takes one run forward and, under ``grad``, one back, whatever the number of parameters and of
    observables. Under ``vmap`` the sets are taken one after another.
    """
    array = jax.numpy.asarray(values)
    if array.dtype not in (np.float32, np.float64):
        raise TypeError(f"values must be an array of float32 or float64, got {array.dtype}")
    function = Function(circuit, observables, how)
    function.require(array.shape)
    return _value(function, array)


class _Work(NamedTuple):
    """A method of a function, on arrays; what was compiled for one of the same value serves for it."""

    function: Function
    method: str
    dtype: Any

    def __call__(self, *arrays: Any) -> Any:
        found = getattr(self.function, self.method)(*map(np.asarray, arrays))
        return jax.tree.map(lambda one: one.astype(self.dtype), found)


@partial(jax.custom_vjp, nondiff_argnums=(0,))
def _value(function: Function, values: Any) -> Any:
    return _called(function, "values", _shape(function, values), values)


def _forward(function: Function, values: Any) -> Any:
    return _called(function, "forward", (_shape(function, values), _shape_of(values)), values)


def _backward(function: Function, kept: Any, weights: Any) -> Any:
    return (_called(function, "backward", _shape_of(kept), kept, weights),)


_value.defvjp(_forward, _backward)


def _shape_of(array: Any) -> Any:
    return jax.ShapeDtypeStruct(array.shape, array.dtype)


def _shape(function: Function, values: Any) -> Any:
    return jax.ShapeDtypeStruct((*values.shape[:-1], *function.shape), values.dtype)


@partial(jax.custom_jvp, nondiff_argnums=(0, 1, 2))
def _called(function: Function, method: str, shapes: Any, *arrays: Any) -> Any:
    # A batch of vmap adds axes in front of all arrays, as batches have them anyway.
    return jax.pure_callback(
        _Work(function, method, arrays[0].dtype), shapes, *arrays, vmap_method="broadcast_all"
    )


def _refused(*_: Any) -> Any:
    raise NotImplementedError(SECOND)


_called.defjvp(_refused)
