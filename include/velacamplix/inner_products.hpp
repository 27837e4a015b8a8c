#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "work_hook.hpp"

#include <vector>

// Sums of products of amplitudes, of one state or of two. Whatever the precision of the states, products are formed and
// summed in double: in blocks of 2^16 amplitudes each in index order, the blocks' sums in order. So they have the same
// bits for every number of threads, and up to 16 qubits they are the plain sum in index order. Nothing is divided by a
// norm; amplitudes that are infinite or NaN show in every sum that meets them.

namespace pbamplix::cpu {

// <bra|ket>, the sum of conj(bra[i]) * ket[i] over `size` amplitudes of either precision. The hook counts amplitudes.
template <class Bra, class Ket>
VELACAMPLIX_API thrust::complex<double> overlap(const thrust::complex<Bra>* bra, const thrust::complex<Ket>* ket,
                                                unsigned long size, int nthreads, const work_hook& hook = {});

// The density matrix of k listed qubits of a pure state of n, the others traced out: 4^k entries to `out`, row by row,
// entry (r, c) being the sum of a[r, e] * conj(a[c, e]) over what the other qubits read, e. In a row's and a column's
// number the first listed qubit is the most significant bit. The address of `out` need only suit a double. Entries
// (r, c) and (c, r) are conjugates, those of the diagonal real.
//
// A block has the amplitudes of 2^(16-k) neighbouring e, for more than 6 qubits of 2^10. Up to 6 qubits the state is
// read once, beyond 2^(k-6) times. The hook counts amplitudes as if that were one pass; what it throws leaves `out`
// unfinished.
template <class T>
VELACAMPLIX_API void reduced_density_matrix(const thrust::complex<T>* amplitudes, unsigned int n,
                                            const std::vector<unsigned int>& qubits, thrust::complex<double>* out,
                                            int nthreads, const work_hook& hook = {});

}  // namespace pbamplix::cpu
