#pragma once

#include "reference/complex.hpp"

namespace support {

// Control lists to try with a gate on `targets` of n qubits: none; one just below, the lowest; one just above, the
// highest; several on both sides, not in order; all other qubits. Up to 5 qubits: every set there is.
std::vector<reference::Qubits> control_sets(const reference::Qubits& targets, unsigned int n);

}  // namespace support
