#pragma once

#include "complex.hpp"

namespace reference {

enum class TwoQubit { SWAP, ISWAP, SQRTSWAP, HH, ZtoYZtoYConj, YtoZYtoZConj, Matrix };

// qubit1 is the high bit of the local index. params: 16 entries, row by row, for Matrix; none otherwise.
template <class T>
void apply(TwoQubit gate, State<T>& state, unsigned int qubit1, unsigned int qubit2, const Qubits& controls,
           const std::vector<Complex<T>>& params = {});

}  // namespace reference
