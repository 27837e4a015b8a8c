#pragma once

#include "statevector/observables/pauli_values.hpp"

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
    using namespace velacamplix::observables;
    std::vector<thrust::complex<T>> results;
    if (observable.flip_masks.empty()) return results;
    results.reserve(observable.flip_masks.size());
    const auto add = [&](const thrust::complex<T>& value) {
        results.push_back(observable.coefficients[results.size()] * value);
    };
    const std::vector<pauli_string> strings = strings_of(observable);
    if (is_density_matrix) {
        for (const auto& value : density_values(amplitudes.get(), nqubits >> 1, strings, num_threads)) add(value);
    } else {
        for (const T value : pure_values(amplitudes.get(), size, strings, num_threads)) add(value);
    }
    return results;
}

template <class T>
std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> PybindAmplixStateVectorCPU<T>::evaluate_terms(
    std::vector<SimpleTerm<T>> terms, unsigned long shots) {
    prune_I_ops(terms);
    return _evaluate_terms(amplitudes.get(), terms, shots, rng, nqubits, num_threads, is_density_matrix);
}

}  // namespace pbamplix::cpu
