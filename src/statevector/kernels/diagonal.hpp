#pragma once

#include "statevector/kernels/kernel_call.hpp"
#include "statevector/kernels/sorted_diagonal.hpp"

#include <vector>

namespace velacamplix::kernels {

// Prepares diag(d0, d1) on one qubit: d0 for target bit 0. No table, no allocation.
template <class T>
kernel_call<T> one_qubit_diagonal_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                                       thrust::complex<T> d0, thrust::complex<T> d1);

// Prepares a diagonal on the target bits `targets` of an array.
template <class T>
kernel_call<T> diagonal_call(unsigned long nbqbits, unsigned long targets, unsigned long controls,
                             shared_diagonal<T> diagonal);

// The same from 2^k entries in the gate's local order (first listed target = most significant bit). With `guarded`, the
// memory guard must first allow the sorted copy.
template <class T>
kernel_call<T> diagonal_call(unsigned long nbqbits, const std::vector<unsigned int>& targets, unsigned long controls,
                             const std::vector<thrust::complex<T>>& diag, bool guarded);

// A diagonal in a buffer that holds some of the state's index bits: its other targets are constants there, and choose
// the part of the entries that is read. Nothing is copied.
template <class T>
class diagonal_window {
public:
    // `targets`: the state's index bits. `local`: those that the buffer holds, the lowest ones among them. `controls`:
    // bits of the buffer's own index; the gate acts where all are 1.
    diagonal_window(shared_diagonal<T> diagonal, unsigned long targets, unsigned long local, unsigned long controls);

    // `base`: the state's index bits of the buffer's first amplitude.
    void run(thrust::complex<T>* buffer, unsigned long base) const;

    unsigned long outside() const { return outside_; }  // targets that the buffer does not hold

private:
    // `first` is the position that the targets outside give.
    using loop = void (*)(const kernel_call<T>& call, unsigned long first, thrust::complex<T>* buffer);

    kernel_call<T> call_;
    loop loop_;
    unsigned long outside_;
    unsigned long places_;  // the bits of a position that they give
};

}  // namespace velacamplix::kernels
