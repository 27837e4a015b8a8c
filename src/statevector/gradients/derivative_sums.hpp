#pragma once

#include <velacamplix/amplitude.hpp>

// The numbers that derivatives are made of, summed in double precision whatever the states' own. The order of the
// additions follows from the size of the arrays and the sum alone: not from the instruction set.

namespace velacamplix::gradients {

// Im <lambda|P|psi> over the indices where all bits of `controls` are 1. P|j> = i^y_count (-1)^|j & phase| |j ^ flip>,
// which flips no control.
struct pauli_sum {
    unsigned long flip = 0;
    unsigned long phase = 0;
    unsigned int y_count = 0;
    unsigned long controls = 0;

    bool is_diagonal() const { return flip == 0; }
};

// The number of Y follows from the masks.
inline bool is_same(const pauli_sum& a, const pauli_sum& b) {
    return a.flip == b.flip && a.phase == b.phase && a.controls == b.controls;
}

// The sum over arrays of 2^bits amplitudes.
template <class T>
double sum_of_flip(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits,
                   const pauli_sum& sum);

// products[i] = Im(conj(lambda[i]) psi[i]). Gates that are diagonal leave them as they are, so one product serves the
// derivatives of all neighbours of that kind.
template <class T>
void fill_products(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits, double* products);

// A diagonal sum from the products.
double sum_of_products(const double* products, unsigned bits, const pauli_sum& sum);

// The sums with one bit as phase and without controls, all in one: totals[p] that of bit p, totals[bits] the sum of
// everything. The products are lost.
void fold_products(double* products, unsigned bits, double* totals);

}  // namespace velacamplix::gradients
