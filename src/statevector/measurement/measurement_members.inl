#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/views.hpp"

#include <velacamplix/statevector.hpp>

#include <numeric>

// Members of the state vector that read probabilities, draw outcomes, project and export. Each chooses the view: in
// density-matrix mode the diagonal over n/2 qubits, otherwise the state over n.

namespace pbamplix::cpu {

template <class T>
T PybindAmplixStateVectorCPU<T>::probability(const unsigned long& state,
                                             std::optional<std::vector<unsigned int>> qubits) {
    std::vector<unsigned int> listed;
    if (qubits) {
        listed = *qubits;
    } else {
        listed.resize(is_density_matrix ? nqubits >> 1 : nqubits);
        std::iota(listed.begin(), listed.end(), 0u);
    }
    const unsigned long fixed = velacamplix::index::place_first_lowest(state, listed);
    if (is_density_matrix) {
        return cumulative_probability(velacamplix::measurement::diagonal_view(amplitudes.get(), nqubits), fixed,
                                      listed, num_threads);
    }
    return cumulative_probability(velacamplix::measurement::state_view(amplitudes.get(), nqubits), fixed, listed,
                                  num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::get_distribution(T* out, const T& threshold,
                                                     const std::vector<unsigned int>& qubits) {
    using namespace velacamplix::measurement;
    const T threshold_sq = threshold * threshold;
    if (is_density_matrix) {
        write_distribution(diagonal_view(amplitudes.get(), nqubits), out, threshold_sq, qubits, num_threads);
    } else {
        write_distribution(state_view(amplitudes.get(), nqubits), out, threshold_sq, qubits, num_threads);
    }
}

}  // namespace pbamplix::cpu
