"""Tools that read annotations at run time find what they name."""

import inspect
import typing

import soak

import velacamplix
from velacamplix import Circuit, GateDefinition, Instruction


def functions():
    """Every public function, method, property and constructor, and every class with annotations of its own."""
    for name, item in soak.public().items():
        owner, _, word = name.rpartition(".")
        if item is None:
            item = inspect.getattr_static(getattr(velacamplix, owner), word)
            if not isinstance(item, property):
                continue  # a field
            item = item.fget
        yield name, item
    for name in velacamplix.__all__:
        item = getattr(velacamplix, name)
        if inspect.isclass(item):
            yield name, item
            for word in ("__init__", "__new__", "__add__", "__iter__", "__eq__"):
                if inspect.isfunction(getattr(item, word, None)):
                    yield f"{name}.{word}", getattr(item, word)


def test_type_hints_can_be_read():
    failed = {}
    for name, item in functions():
        try:
            typing.get_type_hints(item)
        except NameError as error:
            failed[name] = str(error)
    assert not failed


def test_hints_are_the_classes_themselves():
    assert typing.get_type_hints(Instruction)["definition"] == typing.Optional[GateDefinition]
    assert typing.get_type_hints(GateDefinition.inverse)["return"] is GateDefinition
    assert typing.get_type_hints(Circuit.__eq__)["return"] is bool


def test_names_that_people_try_first_are_the_same_thing():
    for owner, name, alias in [
        (Circuit, "gate_counts", "count_ops"), (Circuit, "n_qubits", "num_qubits"), (Circuit, "n_clbits", "num_clbits"),
        (velacamplix.StateVector, "n_qubits", "num_qubits"), (velacamplix.StateVector, "distribution", "probabilities"),
        (Circuit, "ph", "p"), (Circuit, "csign", "cz"),
    ]:  # fmt: skip
        assert inspect.getattr_static(owner, alias) is inspect.getattr_static(owner, name)
