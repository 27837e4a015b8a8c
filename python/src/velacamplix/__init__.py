"""Fast, exact dense state-vector simulation of quantum circuits on CPUs.

>>> from velacamplix import Circuit, StateVector
>>> bell = Circuit(2).h(0).cx(0, 1)
>>> state = StateVector(2).run(bell)
>>> [round(float(p), 6) for p in state.distribution()]
[0.5, 0.0, 0.0, 0.5]
"""

from . import _stacks  # noqa: F401, I001  (before the extension)
from . import _waiting  # noqa: F401  (the first to load the extension)
from . import _processes  # noqa: F401  (fork becomes safe when the package is imported)
from . import _circuit_definition, instruction
from ._core import version as _version
from ._circuit_definition import GateDefinition
from ._expectations import Estimate
from ._machine import refresh_threads
from ._memory import max_qubits, memory_needed
from ._plan import Pass, Plan, Timings
from ._progress import Progress
from ._run import UnsupportedInstruction
from .circuit import Circuit
from .counts import Counts
from .instruction import Condition, Instruction, Register
from .observable import Observable, Term
from .parameter import Expression, Parameter
from .plotting import plot_counts, plot_probabilities, plot_state
from .qasm.errors import QasmError
from .result import Result
from .running import run
from .statevector import StateVector

__all__ = [
    "Circuit",
    "Condition",
    "Counts",
    "Estimate",
    "Expression",
    "GateDefinition",
    "Instruction",
    "Observable",
    "Parameter",
    "Pass",
    "Plan",
    "Progress",
    "QasmError",
    "Register",
    "Result",
    "StateVector",
    "Term",
    "Timings",
    "UnsupportedInstruction",
    "max_qubits",
    "memory_needed",
    "plot_counts",
    "plot_probabilities",
    "plot_state",
    "refresh_threads",
    "run",
]

# Named in annotations of modules that cannot import them: so `typing.get_type_hints` finds them.
setattr(instruction, "GateDefinition", GateDefinition)
setattr(_circuit_definition, "Circuit", Circuit)

# That of the library which was loaded.
__version__ = _version()
