#pragma once

#include <velacamplix/amplitude.hpp>

namespace velacamplix::gradients {

// A rotation about X or Y: ((cosine, i sine), (i sine, cosine)) or ((cosine, -sine), (sine, cosine)).
template <class T>
struct turn {
    unsigned long bit = 0;  // one bit of an index
    bool about_x = false;
    T cosine = 1, sine = 0;
};

// Arrays of fewer amplitudes are not turned here: 2^3.
inline constexpr unsigned least_turned_bits = 3;

// Returns Im <lambda|P|psi>, P being X or Y on the bit, and turns lambda, and psi too if `turns_psi`: in one walk over
// both arrays of 2^bits amplitudes. Products are formed in T and summed in double. The order of the additions follows
// from the size of the arrays and the bit alone: not from the instruction set.
template <class T>
double sum_and_turn(thrust::complex<T>* lambda, thrust::complex<T>* psi, unsigned bits, const turn<T>& by,
                    bool turns_psi);

}  // namespace velacamplix::gradients
