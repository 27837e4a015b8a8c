#pragma once

#include "statevector/kernels/kernel_call.hpp"

#include <vector>

namespace velacamplix::kernels {

// Prepares a dense 2^k x 2^k matrix, row-major in local indices, on the given target bits (first = most significant
// bit of the local index) where all bits of `controls` are 1.
template <class T>
kernel_call<T> dense_call(unsigned long nbqbits, const std::vector<unsigned long>& targets, unsigned long controls,
                          const std::vector<thrust::complex<T>>& matrix);

// Refuses with the memory guard's message when one copy of the matrix per thread would not fit in free memory. The
// loops share one read-only copy; hosts rely on the refusal all the same.
template <class T>
void guard_dense_matrix(unsigned long entries, int nthreads);

}  // namespace velacamplix::kernels
