#include "indices.hpp"

namespace reference {

unsigned long deposit(unsigned long value, unsigned long mask) {
    unsigned long result = 0;
    for (; mask != 0; mask &= mask - 1) {
        const unsigned long lowest = mask & -mask;
        if (value & 1) result |= lowest;
        value >>= 1;
    }
    return result;
}

unsigned long extract(unsigned long value, unsigned long mask) {
    unsigned long result = 0;
    for (unsigned int t = 0; mask != 0; mask &= mask - 1, ++t) {
        const unsigned long lowest = mask & -mask;
        if (value & lowest) result |= 1ul << t;
    }
    return result;
}

unsigned long reverse_bits(unsigned long value, unsigned long n) {
    unsigned long reversed = 0;
    for (unsigned int bit = 0; bit < 64; ++bit) reversed |= ((value >> bit) & 1) << (63 - bit);
    return reversed >> ((64 - n) % 64);
}

unsigned long mask_of(const Qubits& qubits) {
    unsigned long mask = 0;
    for (unsigned int q : qubits) mask ^= 1ul << (q & 63);
    return mask;
}

std::vector<unsigned int> sorted_indices(const Qubits& qubits, unsigned long mask) {
    const unsigned long entries = 1ul << qubits.size();
    std::vector<unsigned int> result(entries, 0);
    for (unsigned long i = 0; i < entries; ++i) {
        unsigned long pattern = 0;
        for (unsigned long t = 0; t < qubits.size(); ++t) pattern |= ((i >> t) & 1) << qubits[t];
        result[extract(pattern, mask)] = static_cast<unsigned int>(reverse_bits(i, qubits.size()));
    }
    return result;
}

Groups groups_of(const Qubits& targets, const Qubits& controls, unsigned long n) {
    Groups groups{};
    groups.free_mask = (1ul << n) - 1;
    for (unsigned int q : targets) groups.free_mask &= ~(1ul << q);
    for (unsigned int q : controls) {
        if (q >= n) continue;
        groups.free_mask &= ~(1ul << q);
        groups.control_mask |= 1ul << q;
    }
    groups.count = 1ul << ((n - controls.size() - targets.size()) % 64);
    groups.local_size = 1ul << targets.size();
    for (unsigned long j = 0; j < groups.local_size; ++j) {
        unsigned long offset = 0;
        for (unsigned long i = 0; i < targets.size(); ++i) {
            offset |= ((j >> (targets.size() - 1 - i)) & 1) << targets[i];
        }
        groups.offsets.push_back(offset);
    }
    return groups;
}

unsigned int qubit_count(unsigned long size) {
    unsigned int n = 0;
    while ((1ul << n) < size) ++n;
    return n;
}

}  // namespace reference
