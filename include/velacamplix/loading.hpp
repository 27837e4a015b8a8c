#pragma once

#include "amplitude.hpp"
#include "export.hpp"

#include <vector>

// Operations that write classical data into the amplitudes. Data is double precision whatever the state's.

namespace pbamplix::cpu {

// For every configuration of the other qubits, replaces the 2^k amplitudes on `qubits` by data times the norm they
// had. `data` holds 2^k values; bit order: the lowest-numbered target qubit is the least significant bit.
template <class T>
VELACAMPLIX_API void _state_preparation(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                                        const std::vector<unsigned int>& qubits, int num_threads);

// The same for distinct qubits, with norms summed in the precision Sum, which is double: in single precision the sum
// over a large register stops growing. The same bits for every number of threads.
template <class Sum, class T>
VELACAMPLIX_API void state_preparation(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                                       const std::vector<unsigned int>& qubits, int num_threads);

// Registers of both QRAMs: the first `naddress` entries of `qubits` hold the address, the others the value, each
// least significant bit first. The value register must read 0 beforehand.

// Spreads the amplitude of |a>|0> over |a>|v> in proportion to re(data[a * 2^nvalue + v]), normalised per address.
template <class T>
VELACAMPLIX_API void _qram(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                           const std::vector<unsigned int>& qubits, const unsigned int& naddress, int num_threads);

// Moves the amplitude of |a>|0> to |a>|data[a]>.
template <class T>
VELACAMPLIX_API void _binary_qram(thrust::complex<T>* state, const unsigned long* data, unsigned int n,
                                  const std::vector<unsigned int>& qubits, const unsigned int& naddress,
                                  int num_threads);

// Negates the amplitudes whose listed qubits read a marked value, first listed = most significant bit. The qubit
// numbers are counted from the outside: listed qubit q is bit n - 1 - q of an amplitude's index.
template <class T>
VELACAMPLIX_API void _phase_oracle(thrust::complex<T>* state, const std::vector<unsigned long>& marked,
                                   const std::vector<unsigned int>& qubits, unsigned long size, unsigned int n,
                                   int num_threads);

}  // namespace pbamplix::cpu
