#pragma once

#include <velacamplix/observable.hpp>
#include <velacamplix/statevector.hpp>

// Members of the state vector that evaluate observables. In density-matrix mode the array holds n/2 qubits twice.

namespace pbamplix::cpu {

template <class T>
thrust::complex<T> PybindAmplixStateVectorCPU<T>::expectation_value(WObservable<T> observable) {
    if (is_density_matrix) {
        return _expectation_value_density_matrix(amplitudes.get(), std::move(observable), num_threads, nqubits >> 1);
    }
    return _expectation_value(amplitudes.get(), std::move(observable), size, num_threads);
}

template <class T>
std::vector<thrust::complex<T>> PybindAmplixStateVectorCPU<T>::terms_expectations_values(WObservable<T> observable) {
    if (is_density_matrix) {
        return term_values_density_matrix(amplitudes.get(), observable, num_threads, nqubits >> 1);
    }
    return term_values(amplitudes.get(), observable, size, num_threads);
}

template <class T>
std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> PybindAmplixStateVectorCPU<T>::evaluate_terms(
    std::vector<SimpleTerm<T>> terms, unsigned long shots) {
    prune_I_ops(terms);
    return _evaluate_terms(amplitudes.get(), terms, shots, rng, nqubits, num_threads, is_density_matrix);
}

}  // namespace pbamplix::cpu
