#pragma once

#include "complex.hpp"

namespace reference {

// Bit t of value goes to the t-th set bit of mask, counted from the lowest.
unsigned long deposit(unsigned long value, unsigned long mask);

// Bit t of the result is value's bit at the t-th set bit of mask.
unsigned long extract(unsigned long value, unsigned long mask);

// The 64-bit word reversed bit by bit, then shifted right by (64 - n) mod 64.
unsigned long reverse_bits(unsigned long value, unsigned long n);

// The XOR of 1 << q over the qubits.
unsigned long mask_of(const Qubits& qubits);

// State's target bits, read in increasing qubit order -> the gate's local index (first listed qubit highest).
std::vector<unsigned int> sorted_indices(const Qubits& qubits, unsigned long mask);

// The groups of amplitudes that a gate on `targets` under `controls` visits.
struct Groups {
    unsigned long free_mask, control_mask, count, local_size;
    std::vector<unsigned long> offsets;

    unsigned long base(unsigned long group) const { return deposit(group, free_mask) | control_mask; }
};
Groups groups_of(const Qubits& targets, const Qubits& controls, unsigned long n);

// n of an array of 2^n entries.
unsigned int qubit_count(unsigned long size);

}  // namespace reference
