"""Expectation values in PyTorch, with their derivatives.

>>> import torch
>>> from velacamplix import Circuit, Parameter
>>> from velacamplix.torch import expectation
>>> circuit = Circuit(1).ry(Parameter("a"), 0)
>>> angle = torch.tensor([0.5], dtype=torch.float64, requires_grad=True)
>>> expectation(circuit, "X0", angle).backward()
>>> round(float(angle.grad), 4)                                         # cos(0.5)
0.8776
"""

from __future__ import annotations

import math
from collections.abc import Iterable, Sequence
from typing import Any

from .basics.extras import imported
from .circuit.circuit import Circuit
from .gradients.function import SECOND, Function
from .instructions.expression import Parameter
from .observables.observable import ObservableLike

torch = imported("torch", "velacamplix.torch")
_Layer: Any = torch.nn.Module
_Differentiated: Any = torch.autograd.Function

__all__ = ["Expectation", "expectation"]


def expectation(
    circuit: Circuit, observables: ObservableLike | Sequence[ObservableLike], values: Any, **how: Any
) -> Any:
    """Return expectation values as a tensor that can be differentiated by the circuit's parameters.

    Parameters
    ----------
    circuit : Circuit
        Of gates alone.
    observables : observable, or list of them
        With real coefficients, as for `Circuit.value_and_gradient`.
    values : torch.Tensor, shape (..., number of parameters)
        In the order of ``circuit.parameters``, in float32 or float64, in the CPU's memory; all axes but the last are a
        batch.
    **how
        ``method``, ``precision``, ``threads``, ``initial``, ``initial_order``, ``fusion`` as for `Circuit.value_and_gradient`.
        An initial state must stay as it is until `backward` is through.

    Returns
    -------
    torch.Tensor, shape (...) for one observable, (..., number of observables) for a list
        Of the dtype of `values`. The states are in double precision whatever that is, unless ``precision="single"``.

    Raises
    ------
    TypeError, ValueError, MemoryError
        As `Circuit.value_and_gradient`; also if `values` are no such tensor.
    RuntimeError
        Where a second derivative is asked for.

    Notes
    -----
    Each set of values takes one run forward and, if derivatives are asked for, one back, whatever the number of
    parameters and of observables.
    """
    return _value(Function(circuit, observables, how), values)


class Expectation(_Layer):  # type: ignore[misc]
    """Expectation values as a layer of a network: some parameters are its input, the others are trained.

    Parameters
    ----------
    circuit, observables, **how
        As for `expectation`. The circuit may grow afterwards, the layer stays as it is.
    inputs : iterable of str or Parameter
        The parameters that are the last axis of the layer's input, in this order.
    dtype : torch.dtype, optional
        Of the weights; by default PyTorch's.

    Attributes
    ----------
    weights : torch.nn.Parameter
        One for each of the other parameters, in the circuit's order, at the beginning between -pi and pi by PyTorch's
        generator.

    Examples
    --------
    >>> from velacamplix import Circuit, Parameter
    >>> from velacamplix.torch import Expectation
    >>> circuit = Circuit(2).ry(Parameter("x"), 0).cx(0, 1).ry(Parameter("w"), 1)
    >>> layer = Expectation(circuit, ["Z0", "Z1"], inputs=["x"])
    >>> layer(torch.zeros(5, 1)).shape, layer.weights.shape
    (torch.Size([5, 2]), torch.Size([1]))
    """

    def __init__(
        self,
        circuit: Circuit,
        observables: ObservableLike | Sequence[ObservableLike],
        inputs: Iterable[str | Parameter] = (),
        dtype: Any = None,
        **how: Any,
    ) -> None:
        super().__init__()
        self._function = Function(circuit, observables, how)
        self._inputs, self._order = self._function.places_of(inputs)
        count = self._function.n_values - len(self._inputs)
        self.weights = torch.nn.Parameter((2 * torch.rand(count, dtype=dtype) - 1) * math.pi)

    def forward(self, inputs: Any = None) -> Any:
        """Return the values for inputs of shape (..., number of inputs); without any, those of the weights alone."""
        if inputs is None:
            inputs = self.weights.new_zeros(0)
        if not isinstance(inputs, torch.Tensor) or inputs.shape[-1:] != (len(self._inputs),):
            got = tuple(inputs.shape) if isinstance(inputs, torch.Tensor) else repr(inputs)
            raise ValueError(f"inputs must be a tensor of {len(self._inputs)} along its last axis, got {got}")
        weights = self.weights.expand(*inputs.shape[:-1], -1)
        return _value(self._function, torch.cat([inputs.to(weights.dtype), weights], -1)[..., self._order])

    def extra_repr(self) -> str:
        """Say in `print` what goes in and comes out."""
        return f"inputs={list(self._inputs)}, weights={len(self.weights)}, values={self._function.shape}"


def _value(function: Function, values: Any) -> Any:
    if not isinstance(values, torch.Tensor) or values.dtype not in (torch.float32, torch.float64):
        got = values.dtype if isinstance(values, torch.Tensor) else type(values).__name__
        raise TypeError(f"values must be a tensor of float32 or float64, got {got}")
    if values.device.type != "cpu":
        raise ValueError(f"values must lie in the CPU's memory, got a tensor on {values.device}: pass values.cpu()")
    function.require(values.shape)
    return _Value.apply(function, values)


def _tensor(array: Any, like: Any) -> Any:
    return torch.as_tensor(array, dtype=like.dtype)


class _Value(_Differentiated):  # type: ignore[misc]
    @staticmethod
    def forward(ctx: Any, function: Function, values: Any) -> Any:
        ctx.function = function
        if not ctx.needs_input_grad[1]:
            return _tensor(function.values(values.detach().numpy()), values)
        found, kept = function.forward(values.detach().numpy())
        ctx.save_for_backward(values, _tensor(kept, values))
        return _tensor(found, values)

    @staticmethod
    def backward(ctx: Any, weights: Any) -> Any:
        return None, _Slope.apply(ctx.function, weights, *ctx.saved_tensors)


class _Slope(_Differentiated):  # type: ignore[misc]
    """The derivatives by the values, as a function of these, so that nobody takes them for constants."""

    @staticmethod
    def forward(ctx: Any, function: Function, weights: Any, values: Any, kept: Any) -> Any:
        return _tensor(function.backward(kept.numpy(), weights.numpy()), values)

    @staticmethod
    def backward(ctx: Any, *gradients: Any) -> Any:
        raise RuntimeError(SECOND)
