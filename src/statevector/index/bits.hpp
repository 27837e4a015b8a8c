#pragma once

#include <bit>
#include <vector>

// Plain integer arithmetic on qubit positions. Qubit q is bit q; positions are taken modulo 64.

namespace velacamplix::index {

inline constexpr unsigned long bit(unsigned int qubit) { return 1ul << (qubit & 63); }

// The low n bits, n <= 64.
inline constexpr unsigned long low_bits(unsigned long n) { return n >= 64 ? ~0ul : (1ul << n) - 1; }

// Scatter: bit t of `value` goes to the t-th set bit of `mask`, counted from the least significant.
inline constexpr unsigned long deposit(unsigned long value, unsigned long mask) {
    unsigned long result = 0;
    for (; mask != 0 && value != 0; mask &= mask - 1, value >>= 1) {
        if (value & 1) result |= mask & -mask;
    }
    return result;
}

// Gather, the inverse: bit t of the result is the bit of `value` at the t-th set bit of `mask`.
inline constexpr unsigned long extract(unsigned long value, unsigned long mask) {
    unsigned long result = 0;
    for (unsigned long place = 1; mask != 0; mask &= mask - 1, place <<= 1) {
        if (value & mask & -mask) result |= place;
    }
    return result;
}

inline constexpr unsigned count_bits(unsigned long mask) { return static_cast<unsigned>(std::popcount(mask)); }

// The index that follows i among those that differ in the bits of `free` alone, without the other bits: a carry skips
// them. The last one is followed by 0.
inline constexpr unsigned long next(unsigned long i, unsigned long free) { return ((i | ~free) + 1) & free; }

// The same for an i that has no other bits. One operation less, which counts where each step waits for the one before.
inline constexpr unsigned long next_within(unsigned long i, unsigned long free) { return (i - free) & free; }

// All indices of the bits of `free`, from the begin-th on in increasing order, `count` of them:
//     for (const unsigned long i : free_indices(free, begin, count)) ...
class free_indices {
public:
    constexpr free_indices(unsigned long free, unsigned long begin, unsigned long count)
        : free_(free), first_(deposit(begin, free)), count_(count) {}
    explicit constexpr free_indices(unsigned long free) : free_indices(free, 0, 1ul << count_bits(free)) {}

    struct iterator {
        unsigned long index, free, left;

        constexpr unsigned long operator*() const { return index; }
        constexpr iterator& operator++() {
            index = next_within(index, free);
            --left;
            return *this;
        }
        constexpr bool operator!=(const iterator& end) const { return left != end.left; }
    };
    constexpr iterator begin() const { return {first_, free_, count_}; }
    constexpr iterator end() const { return {0, free_, 0}; }

private:
    unsigned long free_, first_, count_;
};

// table[x] = rearranged(x) for x < count, a power of two, where `rearranged` moves bits about: one call per bit.
template <class Entry, class Rearranged>
void fill_by_bits(Entry* table, unsigned long count, Rearranged rearranged) {
    table[0] = 0;
    for (unsigned long one = 1; one < count; one <<= 1) {
        const auto moved = static_cast<Entry>(rearranged(one));
        for (unsigned long x = 0; x < one; ++x) table[one | x] = static_cast<Entry>(table[x] | moved);
    }
}

// Reversal of the low n bits of x, whose higher bits must be 0; n = 0 reverses the whole word.
inline constexpr unsigned long reverse_bits(unsigned long x, unsigned int n) {
    x = __builtin_bswap64(x);
    x = ((x >> 4) & 0x0f0f0f0f0f0f0f0ful) | ((x & 0x0f0f0f0f0f0f0f0ful) << 4);
    x = ((x >> 2) & 0x3333333333333333ul) | ((x & 0x3333333333333333ul) << 2);
    x = ((x >> 1) & 0x5555555555555555ul) | ((x & 0x5555555555555555ul) << 1);
    return x >> ((64 - n) & 63);
}

inline unsigned long mask_of(const std::vector<unsigned int>& qubits) {
    unsigned long mask = 0;
    for (const unsigned int q : qubits) mask |= bit(q);
    return mask;
}

// Each qubit of the list exists among n, and stands there once.
inline bool all_distinct(const std::vector<unsigned int>& qubits, unsigned int n = 64) {
    return count_bits(mask_of(qubits) & low_bits(n)) == qubits.size();
}

// One mask per qubit, in the list's order.
inline std::vector<unsigned long> bits_of_qubits(const std::vector<unsigned int>& qubits) {
    std::vector<unsigned long> bits;
    bits.reserve(qubits.size());
    for (const unsigned int q : qubits) bits.push_back(bit(q));
    return bits;
}

// A qubit listed twice cancels.
inline unsigned long xor_mask_of(const std::vector<unsigned int>& qubits) {
    unsigned long mask = 0;
    for (const unsigned int q : qubits) mask ^= bit(q);
    return mask;
}

// Bit j of `value` on bit qubits[j]: the first listed qubit carries the LEAST significant bit.
inline unsigned long place_first_lowest(unsigned long value, const std::vector<unsigned int>& qubits) {
    unsigned long pattern = 0;
    for (std::size_t j = 0; j < qubits.size(); ++j) pattern |= ((value >> (j & 63)) & 1) << (qubits[j] & 63);
    return pattern;
}

// The first listed qubit carries the MOST significant of the value's k bits.
inline unsigned long place_first_highest(unsigned long value, const std::vector<unsigned int>& qubits) {
    unsigned long pattern = 0;
    const std::size_t k = qubits.size();
    for (std::size_t j = 0; j < k; ++j) pattern |= ((value >> ((k - 1 - j) & 63)) & 1) << (qubits[j] & 63);
    return pattern;
}

}  // namespace velacamplix::index
