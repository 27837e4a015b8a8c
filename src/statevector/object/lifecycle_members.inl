#pragma once

#include "statevector/gates/gate_table.hpp"
#include "statevector/object/seed.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <velacamplix/statevector.hpp>

#include <utility>

namespace pbamplix::cpu {

// The engine is seeded twice, by member initialisation and again in the body; `seed` keeps the second draw.
template <class T>
PybindAmplixStateVectorCPU<T>::PybindAmplixStateVectorCPU(unsigned int n)
    : seed(velacamplix::object::draw_seed()),
      rng(seed),
      nqubits(n),
      size(1ul << (n & 63)),
      amplitudes(nullptr, &aligned_array_delete<thrust::complex<T>>),
      is_density_matrix(false),
      num_threads(1),
      named_ctrl_gates(velacamplix::gates::names_that_take_controls()) {
    seed = velacamplix::object::draw_seed();
    rng.seed(seed);
    amplitudes.reset(velacamplix::storage::allocate_amplitudes<T>(size));
}

template <class T>
PybindAmplixStateVectorCPU<T>::~PybindAmplixStateVectorCPU() = default;

template <class T>
void PybindAmplixStateVectorCPU<T>::resize(unsigned int n) {
    if (n == nqubits) return;
    const bool grows = n > nqubits;
    nqubits = n;
    size = 1ul << (n & 63);
    if (!grows) return;
    // Freed before the guard looks, so that the old array's memory counts as free; if the guard then refuses, the
    // object has no array.
    amplitudes.reset();
    amplitudes.reset(velacamplix::storage::allocate_amplitudes<T>(size));
}

template <class T>
void PybindAmplixStateVectorCPU<T>::release_memory() {
    nqubits = 0;
    size = 0;
    amplitudes.reset();
}

template <class T>
std::vector<std::string>& PybindAmplixStateVectorCPU<T>::get_named_ctrl_gates() {
    return named_ctrl_gates;
}

template <class T>
void PybindAmplixStateVectorCPU<T>::set_num_threads(int n) {
    num_threads = n;
}

template <class T>
void PybindAmplixStateVectorCPU<T>::set_is_density_matrix(bool density_matrix) {
    is_density_matrix = density_matrix;
}

}  // namespace pbamplix::cpu
