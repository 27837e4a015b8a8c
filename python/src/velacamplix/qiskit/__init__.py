"""Circuits from Qiskit, and back to it; its sampler and estimator, computed here.

>>> from qiskit import QuantumCircuit
>>> from velacamplix import run
>>> from velacamplix.qiskit import from_velacamplix, to_velacamplix
>>> theirs = QuantumCircuit(2)
>>> _ = theirs.h(0), theirs.cx(0, 1)
>>> print(to_velacamplix(theirs))
H 0
CNOT 0,1
>>> from_velacamplix(to_velacamplix(theirs)) == theirs
True
"""

from ..basics.extras import imported

imported("qiskit", "velacamplix.qiskit")

from .backend import VelacamplixBackend  # noqa: E402
from .errors import NotConverted  # noqa: E402
from .job import VelacamplixJob  # noqa: E402
from .noise import to_noise_model  # noqa: E402
from .primitives import EstimatorV2, SamplerV2  # noqa: E402
from .reading import to_velacamplix  # noqa: E402
from .writing import from_velacamplix  # noqa: E402

__all__ = [
    "EstimatorV2",
    "NotConverted",
    "SamplerV2",
    "VelacamplixBackend",
    "VelacamplixJob",
    "from_velacamplix",
    "to_noise_model",
    "to_velacamplix",
]
