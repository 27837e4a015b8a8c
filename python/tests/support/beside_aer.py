"""Aer's simulator, and circuits transpiled for it; what decides how is read once, because Qiskit takes half a second for it."""

from functools import cache

from qiskit.transpiler import generate_preset_pass_manager
from qiskit_aer import AerSimulator


@cache
def _manager(method):
    simulator = AerSimulator(method=method)
    return simulator, generate_preset_pass_manager(0, simulator)


def result_of(circuit, method="automatic", **how):
    """Run a circuit with Aer."""
    simulator, manager = _manager(method)
    return simulator.run(manager.run(circuit), **how).result()
