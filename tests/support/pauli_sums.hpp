#pragma once

#include "reference/observables.hpp"
#include "support/random_state.hpp"

#include <velacamplix/observable.hpp>

#include <bit>
#include <cmath>

// Pauli strings and sums, and states to read them on.
namespace support {

// A string as a host writes it: the number of Y follows from the masks.
inline reference::PauliString pauli(unsigned long flip, unsigned long phase) {
    return {flip, phase, static_cast<unsigned int>(std::popcount(flip & phase))};
}

// The same sum in the library's type.
template <class T>
WObservable<T> compiled(const reference::PauliSum<T>& sum) {
    WObservable<T> observable;
    for (const auto& c : sum.coefficients) observable.coefficients.push_back({c.re, c.im});
    for (const auto& p : sum.strings) {
        observable.flip_masks.push_back(p.flip);
        observable.phase_masks.push_back(p.phase);
        observable.y_counts.push_back(p.y_count);
    }
    observable.constant = thrust::complex<T>(sum.constant.re, sum.constant.im);
    return observable;
}

// Random strings of n qubits on `flips` flip masks in turn, the first of them 0.
template <class T>
reference::PauliSum<T> random_sum(unsigned int n, unsigned int terms, unsigned int flips, unsigned int seed) {
    std::mt19937_64 engine(seed);
    std::vector<unsigned long> flip_masks;
    for (unsigned int f = 0; f < flips; ++f) flip_masks.push_back(f == 0 ? 0 : engine() & ((1ul << n) - 1));
    reference::PauliSum<T> sum;
    sum.coefficients = random_coefficients<T>(terms, seed);
    for (unsigned int t = 0; t < terms; ++t) {
        sum.strings.push_back(pauli(flip_masks[t % flips], engine() & ((1ul << n) - 1)));
    }
    sum.constant = {T(0.25), T(-0.5)};
    return sum;
}

// Parts are -1/16, 0 or 1/16: every product and every sum of them is exact, in any order.
template <class T>
reference::State<T> dyadic_state(unsigned int n, unsigned int seed) {
    std::mt19937 engine(seed);
    reference::State<T> state(1ul << n);
    for (auto& a : state) {
        a.re = static_cast<T>(static_cast<int>(engine() % 3) - 1) / T(16);
        a.im = static_cast<T>(static_cast<int>(engine() % 3) - 1) / T(16);
    }
    return state;
}

template <class T>
T norm_of(const reference::State<T>& state) {
    T sum = T(0);
    for (const auto& a : state) sum += a.re * a.re + a.im * a.im;
    return sum;
}

template <class T>
reference::State<T> normalised(reference::State<T> state) {
    const T root = std::sqrt(norm_of(state));
    for (auto& a : state) a = {a.re / root, a.im / root};
    return state;
}

// |psi><psi| with the ket index in the low half of the flat index: entry (r, s) = psi[s] * conj(psi[r]).
template <class T>
reference::State<T> density_of(const reference::State<T>& psi) {
    reference::State<T> matrix;
    for (const auto& bra : psi) {
        for (const auto& ket : psi) {
            matrix.push_back({ket.re * bra.re + ket.im * bra.im, ket.im * bra.re - ket.re * bra.im});
        }
    }
    return matrix;
}

template <class T>
const thrust::complex<T>* amplitudes_of(const reference::State<T>& state) {
    return reinterpret_cast<const thrust::complex<T>*>(state.data());
}

}  // namespace support
