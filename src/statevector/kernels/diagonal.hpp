#pragma once

#include "statevector/kernels/kernel_call.hpp"

#include <vector>

namespace velacamplix::kernels {

// Prepares diag(d0, d1) on one qubit: d0 for target bit 0. No table, no allocation.
template <class T>
kernel_call<T> one_qubit_diagonal_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                                       thrust::complex<T> d0, thrust::complex<T> d1);

// Prepares a diagonal of 2^k entries in the gate's local order (first listed target = most significant bit). With
// `guarded`, the memory guard must first allow the sorted copy.
template <class T>
kernel_call<T> diagonal_call(unsigned long nbqbits, const std::vector<unsigned int>& targets, unsigned long controls,
                             const std::vector<thrust::complex<T>>& diag, bool guarded);

}  // namespace velacamplix::kernels
