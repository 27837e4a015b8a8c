#pragma once

#include "statevector/index/bits.hpp"

// Outcomes are integers that leave the library: the first listed qubit is their most significant bit, and without a
// list qubit 0 is.

namespace velacamplix::measurement {

// Reads the listed qubits of an index.
inline unsigned long outcome_of_listed(unsigned long index, const std::vector<unsigned int>& qubits) {
    unsigned long outcome = 0;
    for (const unsigned int q : qubits) outcome = outcome << 1 | ((index >> (q & 63)) & 1);
    return outcome;
}

// Reads all n qubits of an index, whose bits above n are not looked at. Without qubits there is the outcome 0 alone.
inline unsigned long outcome_of_all(unsigned long index, unsigned int n) {
    return n == 0 ? 0 : index::reverse_bits(index & index::low_bits(n), n);
}

// Reads the listed qubits, or all n when the list is empty.
inline unsigned long outcome_of(unsigned long index, unsigned int n, const std::vector<unsigned int>& qubits) {
    return qubits.empty() ? outcome_of_all(index, n) : outcome_of_listed(index, qubits);
}

}  // namespace velacamplix::measurement
