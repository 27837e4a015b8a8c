#pragma once

#include "complex.hpp"

namespace reference {

// Sums of conj(bra) * ket in index order; each 2^16 products make a block, and blocks are added in their order.
Complex<double> overlap(const State<double>& bra, const State<double>& ket);

// Row by row; the first listed qubit is the most significant bit of a row and of a column. Entry (r, c) sums
// a[r, e] * conj(a[c, e]) over the numbers e that the other qubits carry, in their order, in blocks that are 2^16
// amplitudes of at most 6 qubits' rows.
std::vector<Complex<double>> reduced_density_matrix(const State<double>& state, const Qubits& qubits);

}  // namespace reference
