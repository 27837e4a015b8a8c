#pragma once

#include "reference/named_gates.hpp"

namespace support {

// Gates of the record's vocabulary on random qubits below n, with random angles.
template <class T>
std::vector<reference::NamedGate<T>> random_circuit(unsigned int n, unsigned int gates, unsigned int seed);

}  // namespace support
