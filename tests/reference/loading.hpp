#pragma once

#include "complex.hpp"

namespace reference {

// Replaces every group over `qubits` by data times the norm the group had. The lowest-numbered qubit is the least
// significant bit of a position in the data.
template <class T>
void state_preparation(State<T>& state, const std::vector<Complex<double>>& data, const Qubits& qubits);

// The first `naddress` qubits are the address, the others the value, each least significant bit first.
template <class T>
void qram(State<T>& state, const std::vector<Complex<double>>& data, const Qubits& qubits, unsigned int naddress);
template <class T>
void binary_qram(State<T>& state, const std::vector<unsigned long>& data, const Qubits& qubits, unsigned int naddress);

// Reads the key from an index, first listed qubit most significant, and negates at the reversed index.
template <class T>
void phase_oracle(State<T>& state, const std::vector<unsigned long>& marked, const Qubits& qubits);

}  // namespace reference
