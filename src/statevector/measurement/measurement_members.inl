#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/projection.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/measurement/views.hpp"

#include <velacamplix/statevector.hpp>

#include <memory>
#include <numeric>

// Members of the state vector that read probabilities, draw outcomes, project and export. Each chooses the view: in
// density-matrix mode the diagonal over n/2 qubits, otherwise the state over n.

namespace velacamplix::measurement {

// With fewer than 256 entries the threshold's square counts whatever the sign of the threshold; with more, a threshold
// of 0 or less keeps everything. Hosts rely on both.
template <class Seq, class Out, class T>
void copy_permuted(Seq view, Out* out, T threshold, int nthreads) {
    using namespace pbamplix::cpu;
    constexpr unsigned long smallest_in_squares = 256;
    const T threshold_sq = threshold * threshold;
    if (view.dim < smallest_in_squares) {
        _permute_and_copy_vector_no_simd(view, out, threshold_sq, nthreads);
    } else if (threshold > T(0)) {
        _permute_and_copy_vector_fast<true>(view, out, nthreads, threshold_sq);
    } else {
        _permute_and_copy_vector_fast<false>(view, out, nthreads, threshold_sq);
    }
}

}  // namespace velacamplix::measurement

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
        return cumulative_probability(velacamplix::measurement::diagonal_view(amplitudes.get(), nqubits), fixed, listed,
                                      num_threads);
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

template <class T>
void PybindAmplixStateVectorCPU<T>::sample(unsigned long* shots, unsigned long nshots) {
    sample_subset(shots, {}, nshots);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::sample_subset(unsigned long* shots, const std::vector<unsigned int>& qubits,
                                                  unsigned long nshots) {
    using namespace velacamplix::measurement;
    if (is_density_matrix) {
        pick_shots_state(diagonal_view(amplitudes.get(), nqubits), shots, rng, nshots, num_threads, qubits);
    } else {
        pick_shots_state(state_view(amplitudes.get(), nqubits), shots, rng, nshots, num_threads, qubits);
    }
}

template <class T>
unsigned long PybindAmplixStateVectorCPU<T>::measure(const std::vector<unsigned int>& qubits) {
    using namespace velacamplix::measurement;
    if (is_density_matrix) return draw_outcome(diagonal_view(amplitudes.get(), nqubits), rng, qubits, num_threads);
    return draw_outcome(state_view(amplitudes.get(), nqubits), rng, qubits, num_threads);
}

// A density matrix is projected like a state over its 2m stored qubits.
template <class T>
void PybindAmplixStateVectorCPU<T>::project(const std::vector<unsigned int>& qubits, unsigned long value) {
    _project(amplitudes.get(), size, qubits, value, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::project_then_reset(const std::vector<unsigned int>& qubits, unsigned long value) {
    project(qubits, value);
    velacamplix::measurement::move_to_zero(amplitudes.get(), nqubits, qubits, value, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::get_permuted_statevector(thrust::complex<T>* out, const T& threshold) {
    using namespace velacamplix::measurement;
    copy_permuted(state_view(amplitudes.get(), nqubits), out, threshold, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::get_permuted_density_diag(T* out, const T& threshold) {
    using namespace velacamplix::measurement;
    copy_permuted(diagonal_view(amplitudes.get(), nqubits), out, threshold, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::get_permuted_density_matrix(thrust::complex<T>* out, const T& threshold) {
    using namespace velacamplix::measurement;
    copy_permuted(state_view(amplitudes.get(), nqubits), out, threshold, num_threads);
}

template <class T>
std::map<unsigned long, thrust::complex<T>>* PybindAmplixStateVectorCPU<T>::get_mapped_statevector(const T& threshold) {
    auto map = std::make_unique<std::map<unsigned long, thrust::complex<T>>>();
    const T threshold_sq = threshold * threshold;
    permute_and_map_vector(velacamplix::measurement::state_view(amplitudes.get(), nqubits), map.get(), threshold_sq,
                           num_threads);
    return map.release();
}

template <class T>
std::map<unsigned long, T>* PybindAmplixStateVectorCPU<T>::get_mapped_density_diag(const T& threshold) {
    auto map = std::make_unique<std::map<unsigned long, T>>();
    const T threshold_sq = threshold * threshold;
    permute_and_map_vector(velacamplix::measurement::diagonal_view(amplitudes.get(), nqubits), map.get(), threshold_sq,
                           num_threads);
    return map.release();
}

template <class T>
std::map<unsigned long, T>* PybindAmplixStateVectorCPU<T>::get_mapped_distribution(
    const T& threshold, const std::vector<unsigned int>& qubits) {
    using namespace velacamplix::measurement;
    const T threshold_sq = threshold * threshold;
    if (is_density_matrix) {
        return map_marginal_distribution(diagonal_view(amplitudes.get(), nqubits), threshold_sq, qubits, num_threads);
    }
    return map_marginal_distribution(state_view(amplitudes.get(), nqubits), threshold_sq, qubits, num_threads);
}

}  // namespace pbamplix::cpu
