"""Words that arguments take, for those who check and complete them."""

from typing import Literal

import numpy as np

#: Which end of a list of qubits is the most significant bit: the first ("big") or the last.
Order = Literal["big", "little"]

#: 8 or 16 bytes per amplitude.
Precision = Literal["single", "double"]

#: Where random numbers start. A Generator gives its next number of 32 bits, a SeedSequence the first of its state.
Seed = int | np.random.Generator | np.random.SeedSequence
