#pragma once

#include <velacamplix/observable.hpp>

#include <vector>

namespace velacamplix::observables {

// A Pauli string without its weight, as bit masks over qubits.
struct pauli_string {
    unsigned long flip;    // X or Y
    unsigned long phase;   // Y or Z
    unsigned int y_count;  // mod 4
};

template <class T>
pauli_string string_of(const WObservable<T>& observable, unsigned long term) {
    return {observable.flip_masks[term], observable.phase_masks[term], observable.y_counts[term] & 3};
}

template <class T>
std::vector<pauli_string> strings_of(const WObservable<T>& observable) {
    std::vector<pauli_string> strings;
    strings.reserve(observable.flip_masks.size());
    for (unsigned long t = 0; t < observable.flip_masks.size(); ++t) strings.push_back(string_of(observable, t));
    return strings;
}

// <P> of every string on a pure state of `size` amplitudes, summed in the precision Sum, that of the amplitudes or a
// higher one. A string's value has the same bits whatever strings stand beside it, on any number of threads. Amplitudes
// that are infinite or NaN always show in the values of the strings that meet them. The hook counts strings.
template <class T, class Sum = T>
std::vector<Sum> pure_values(const thrust::complex<T>* state, unsigned long size,
                             const std::vector<pauli_string>& strings, int nthreads,
                             const pbamplix::work_hook& hook = {});

// Tr(rho P) of every string on a density matrix of 2^qubits x 2^qubits entries.
template <class T, class Sum = T>
std::vector<thrust::complex<Sum>> density_values(const thrust::complex<T>* matrix, unsigned int qubits,
                                                 const std::vector<pauli_string>& strings, int nthreads);

}  // namespace velacamplix::observables
