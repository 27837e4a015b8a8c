"""Words that arguments take, for those who check and complete them."""

from typing import Literal

#: Which end of a list of qubits is the most significant bit: the first ("big") or the last.
Order = Literal["big", "little"]

#: 8 or 16 bytes per amplitude.
Precision = Literal["single", "double"]
