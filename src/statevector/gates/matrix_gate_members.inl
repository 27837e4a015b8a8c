#pragma once

#include "statevector/gates/matrix_limits.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/kernels/dense.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/matrix_shape.hpp"
#include "statevector/kernels/one_qubit.hpp"
#include "statevector/kernels/two_qubit.hpp"

#include <velacamplix/kernels.hpp>
#include <velacamplix/statevector.hpp>

namespace velacamplix::gates {

// Which loop a matrix that is not diagonal takes. The general one starts its sums at +0, so a component of -0.0 may
// come back as +0.0 where the small forms keep it: the choice follows the member, not the number of qubits.
enum class dense_form { one_qubit, two_qubits, any_number };

// Prepares a gate given as a matrix: an exactly diagonal one for the diagonal loops, any other for the dense loop of
// its form. `controls` is null for the uncontrolled members, which refuse large diagonals.
template <class T>
kernels::kernel_call<T> member_matrix_call(unsigned long nbqbits, const std::vector<unsigned int>& qubits,
                                           const std::vector<unsigned int>* controls,
                                           const std::vector<thrust::complex<T>>& matrix, dense_form form,
                                           int nthreads) {
    const unsigned long control_mask = controls == nullptr ? 0 : index::mask_of(*controls);
    const unsigned int dim = 1u << qubits.size();
    std::vector<thrust::complex<T>> diag;
    if (kernels::take_diagonal(matrix, diag, dim)) {
        if (controls == nullptr) refuse_large_diagonal(diag.size());
        return kernels::diagonal_call<T>(nbqbits, qubits, control_mask, diag, controls != nullptr);
    }
    if (form == dense_form::one_qubit) {
        return kernels::one_qubit_call<pbamplix::cpu::_Gate1QB<true>, T>(nbqbits, index::bit(qubits[0]), control_mask,
                                                                         {matrix[0], matrix[1], matrix[2], matrix[3]});
    }
    if (form == dense_form::two_qubits) {
        return kernels::two_qubit_matrix_call<T>(nbqbits, index::bit(qubits[0]), index::bit(qubits[1]), control_mask,
                                                 matrix);
    }
    kernels::guard_dense_matrix<T>(matrix.size(), nthreads);
    return kernels::dense_call<T>(nbqbits, index::bits_of_qubits(qubits), control_mask, matrix);
}

}  // namespace velacamplix::gates

namespace pbamplix::cpu {

// The six members differ in their arguments only.
#define VELACAMPLIX_MATRIX_GATE(qubits, controls, form)                                                        \
    using namespace velacamplix;                                                                               \
    kernels::run_parallel(                                                                                     \
        gates::member_matrix_call<T>(nqubits, qubits, controls, matrix, gates::dense_form::form, num_threads), \
        amplitudes.get(), num_threads)

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_1qbit_gate(unsigned int qubit,
                                                     const std::vector<thrust::complex<T>>& matrix) {
    VELACAMPLIX_MATRIX_GATE({qubit}, nullptr, one_qubit);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_2qbit_gate(unsigned int qubit1, unsigned int qubit2,
                                                     const std::vector<thrust::complex<T>>& matrix) {
    const std::vector<unsigned int> qubits = {qubit1, qubit2};
    VELACAMPLIX_MATRIX_GATE(qubits, nullptr, two_qubits);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_nqbit_gate(const std::vector<unsigned int>& qubits,
                                                     const std::vector<thrust::complex<T>>& matrix) {
    VELACAMPLIX_MATRIX_GATE(qubits, nullptr, any_number);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_1qbit_ctrl_gate(const std::vector<unsigned int>& controls, unsigned int qubit,
                                                          const std::vector<thrust::complex<T>>& matrix) {
    VELACAMPLIX_MATRIX_GATE({qubit}, &controls, one_qubit);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_2qbit_ctrl_gate(const std::vector<unsigned int>& controls,
                                                          unsigned int qubit1, unsigned int qubit2,
                                                          const std::vector<thrust::complex<T>>& matrix) {
    const std::vector<unsigned int> qubits = {qubit1, qubit2};
    VELACAMPLIX_MATRIX_GATE(qubits, &controls, two_qubits);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_nqbit_ctrl_gate(const std::vector<unsigned int>& controls,
                                                          const std::vector<unsigned int>& qubits,
                                                          const std::vector<thrust::complex<T>>& matrix) {
    VELACAMPLIX_MATRIX_GATE(qubits, &controls, any_number);
}

#undef VELACAMPLIX_MATRIX_GATE

}  // namespace pbamplix::cpu
