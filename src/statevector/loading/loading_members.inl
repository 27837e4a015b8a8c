#pragma once

#include <velacamplix/loading.hpp>
#include <velacamplix/statevector.hpp>

// Members of the state vector that load classical data.

namespace pbamplix::cpu {

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_state_preparation(thrust::complex<double>* data,
                                                            const std::vector<unsigned int>& qubits) {
    _state_preparation(amplitudes.get(), data, nqubits, qubits, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_qram(const thrust::complex<double>* data,
                                               const std::vector<unsigned int>& qubits, const unsigned int& naddress) {
    _qram(amplitudes.get(), data, nqubits, qubits, naddress, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_binary_qram(const unsigned long* data,
                                                      const std::vector<unsigned int>& qubits,
                                                      const unsigned int& naddress) {
    _binary_qram(amplitudes.get(), data, nqubits, qubits, naddress, num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_phase_oracle(const std::vector<unsigned long>& marked,
                                                       const std::vector<unsigned int>& qubits) {
    _phase_oracle(amplitudes.get(), marked, qubits, size, nqubits, num_threads);
}

}  // namespace pbamplix::cpu
