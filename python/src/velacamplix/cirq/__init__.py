"""Circuits from Cirq, and back to it; its simulator's methods, computed here.

>>> import cirq
>>> from velacamplix.cirq import from_velacamplix, to_velacamplix
>>> a, b = cirq.LineQubit.range(2)
>>> theirs = cirq.Circuit(cirq.H(a), cirq.CNOT(a, b))
>>> print(to_velacamplix(theirs))
H 0
CNOT 0,1
>>> from_velacamplix(to_velacamplix(theirs)) == theirs
True
"""

from ..basics.extras import imported

imported("cirq", "velacamplix.cirq")

from .errors import NotConverted  # noqa: E402
from .reading import to_velacamplix  # noqa: E402
from .simulator import VelacamplixSimulator  # noqa: E402
from .writing import from_velacamplix  # noqa: E402

__all__ = ["NotConverted", "VelacamplixSimulator", "from_velacamplix", "to_velacamplix"]
