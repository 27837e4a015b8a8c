#pragma once

#include "export.hpp"

#include <array>
#include <vector>

// Bit convention of the whole library: qubit q is bit q (weight 2^q) of an amplitude's index. A gate's local
// index has its FIRST listed qubit as most significant bit. Outcomes that leave the library have qubit 0 (or
// the first listed qubit) as most significant bit.

namespace vela::core::iterator {

// Describes the groups of amplitudes a gate visits. Group g, 0 <= g < count, has the base index
// deposit(g, free_mask) | control_mask; its amplitudes stand at base | offsets[j], 0 <= j < local_size.
class VELACAMPLIX_API StateIterator {
public:
    // Targets and controls must be distinct and below nbqbits; a control that is not below nbqbits is left out of
    // the control mask but still halves the count.
    StateIterator(std::vector<unsigned int> targets, std::vector<unsigned int> controls, unsigned long nbqbits);

    unsigned long free_mask;             // qubits that are neither targets nor controls
    unsigned long control_mask;          // set in every visited index
    unsigned long count;                 // number of groups
    unsigned long local_size;            // amplitudes per group, 2^k for k targets
    std::vector<unsigned long> offsets;  // local index -> bits of the state index; first target = high local bit
};

}  // namespace vela::core::iterator

namespace pbamplix::cpu {

// Bit reversal of every 4-bit number.
inline constexpr std::array<unsigned long, 16> lsb_msb_4qb = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};

// Reverses the low n bits of x (whose higher bits must be 0). For n = 0 the whole 64-bit word is reversed.
VELACAMPLIX_API unsigned long swap_lsb_msb(unsigned long x, const unsigned int& n);

// 2^k entries for k qubits: position p, the target bits of a state index gathered in increasing qubit order by
// `mask`, holds the gate's local index. `mask` is the XOR of 1 << q over the qubits.
VELACAMPLIX_API std::vector<unsigned int> get_sorted_indices(const std::vector<unsigned int>& qubits,
                                                             unsigned long mask);

// True when neither list names qubit 0 or 1, the two lowest index bits. T plays no part: each precision has a copy.
template <class T>
VELACAMPLIX_API bool contains_no_first_qubits(const std::vector<unsigned int>& a, const std::vector<unsigned int>& b);

}  // namespace pbamplix::cpu
