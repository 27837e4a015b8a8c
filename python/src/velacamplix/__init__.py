"""Fast, exact dense state-vector simulation of quantum circuits on CPUs.

>>> from velacamplix import Circuit, StateVector
>>> bell = Circuit(2).h(0).cx(0, 1)
>>> state = StateVector(2).run(bell)
>>> [round(float(p), 6) for p in state.distribution()]
[0.5, 0.0, 0.0, 0.5]
"""

from typing import get_type_hints

from .core import extension  # isort: skip  (before all that imports NumPy: it refuses subinterpreters clearly)

from . import qasm
from .channels.channel import Channel
from .circuit import dense as _dense
from .circuit.circuit import Circuit
from .gradients.gradient import ValueAndGradient
from .instructions.condition import Bits, CompoundCondition, Condition
from .instructions.definition import GateDefinition
from .instructions.expression import Expression, Parameter
from .instructions.flow import If, Readout, Save, Store, Switch, While
from .instructions.instruction import Instruction, Register
from .instructions.parameter_vector import ParameterVector
from .machine.limits import refresh_threads
from .machine.memory import max_qubits, memory_needed
from .noise.model import NoiseModel
from .observables.observable import CommutingGroup, Observable
from .observables.terms import Term
from .plots.bloch import plot_bloch
from .plots.circuits import plot_circuit
from .plots.density import plot_density
from .plots.plots import plot_counts, plot_probabilities, plot_state
from .programs.progress import Progress, ProgressLike
from .qasm.errors import QasmError
from .results.counts import Counts
from .results.estimate import Estimate
from .results.plan import MethodCost, Pass, Plan, Timings
from .running.batch_result import BatchResult
from .running.result import Result
from .running.run import run
from .running.saved import Saved
from .states.apply import UnsupportedInstruction
from .states.densitymatrix import DensityMatrix
from .states.parts import Schmidt
from .states.statevector import StateVector
from .storage.storage import Storage, StoragePlan

# The rooms, lowest first: a file imports from its own room and from those before it, never from one behind. In one line,
# rooms that do not know each other.
_ROOMS = (
    ("core",),
    ("basics",),
    ("machine",),
    ("channels",),
    ("instructions",),
    ("views",),
    ("qasm", "observables"),
    ("circuit", "results"),
    ("noise",),
    ("programs",),
    ("states",),
    ("storage",),
    ("running",),
    ("gradients",),
    ("distributed",),
    ("plots",),
    ("cli",),
    ("torch", "jax", "qiskit", "pennylane", "cirq"),
)

__all__ = [
    "BatchResult",
    "Bits",
    "Channel",
    "Circuit",
    "CommutingGroup",
    "CompoundCondition",
    "Condition",
    "Counts",
    "DensityMatrix",
    "Estimate",
    "Expression",
    "GateDefinition",
    "If",
    "Instruction",
    "MethodCost",
    "NoiseModel",
    "Observable",
    "Parameter",
    "ParameterVector",
    "Pass",
    "Plan",
    "Progress",
    "QasmError",
    "Readout",
    "Register",
    "Result",
    "Save",
    "Saved",
    "Schmidt",
    "StateVector",
    "Storage",
    "StoragePlan",
    "Store",
    "Switch",
    "Term",
    "Timings",
    "UnsupportedInstruction",
    "ValueAndGradient",
    "While",
    "max_qubits",
    "memory_needed",
    "plot_bloch",
    "plot_circuit",
    "plot_counts",
    "plot_density",
    "plot_probabilities",
    "plot_state",
    "refresh_threads",
    "run",
]

# One address for each public name, whatever file it stands in: in messages, documents and pickles. Annotations of fields
# are texts until they are read in that file, so they are read first.
for _name in __all__:
    _item = globals()[_name]
    if isinstance(_item, type):
        _fields = vars(_item).get("__annotations__", {})
        _hints = get_type_hints(_item)
        _fields.update({_field: _hints[_field] for _field in _fields})
    _item.__module__ = __name__
del _name, _item, _fields, _hints

qasm.read_qasm = Circuit.from_qasm

# What reads annotations at run time finds this name of a room above there.
setattr(_dense, "ProgressLike", ProgressLike)

# That of the library which was loaded.
__version__ = extension.version()
