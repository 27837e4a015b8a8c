"""Circuits from PennyLane, and back to it; its devices, computed here.

>>> import pennylane as qml
>>> from velacamplix.pennylane import from_velacamplix, to_velacamplix
>>> print(to_velacamplix([qml.Hadamard(0), qml.CNOT([0, 1])]))
H 0
CNOT 0,1
>>> from_velacamplix(to_velacamplix([qml.Hadamard(0), qml.CNOT([0, 1])])).operations
[H(0), CNOT(wires=[0, 1])]
"""

from ..basics.extras import imported

imported("pennylane", "velacamplix.pennylane")

from .device import VelacamplixQubit  # noqa: E402
from .errors import NotConverted  # noqa: E402
from .mixed import VelacamplixMixed  # noqa: E402
from .reading import to_velacamplix  # noqa: E402
from .writing import from_velacamplix  # noqa: E402

__all__ = ["NotConverted", "VelacamplixMixed", "VelacamplixQubit", "from_velacamplix", "to_velacamplix"]
