#pragma once

#include "statevector/kernels/walk.hpp"

#include <array>

namespace velacamplix::kernels {

// A target bit as a wide loop sees it. A target inside the pack changes places with a free index bit: packs are
// loaded in pairs along that bit, exchanged, worked on, and exchanged back.
struct outer_target {
    unsigned long bit;        // tells the packs apart
    int exchanged_with = -1;  // position inside the pack, or -1 for a target that was outside already
};

// Finds the outer bits of K distinct targets for packs V. False where the array has too few free bits for wide packs;
// then single amplitudes do. `where` are the conditions, disjoint from the targets.
template <class V, std::size_t K>
bool place_targets(std::array<outer_target, K>& placed, const std::array<unsigned long, K>& targets,
                   unsigned long nbqbits, condition where) {
    constexpr unsigned long inside = lanes<V> - 1;
    if (nbqbits < lane_bits<V>) return false;
    unsigned long taken = where.fixed | inside;
    for (const unsigned long target : targets) taken |= target;
    for (std::size_t i = 0; i < K; ++i) {
        if ((targets[i] & inside) == 0) {
            placed[i] = {targets[i], -1};
            continue;
        }
        const unsigned long free_bits = index::low_bits(nbqbits) & ~taken;
        if (free_bits == 0) return false;
        placed[i] = {free_bits & -free_bits, std::countr_zero(targets[i])};
        taken |= placed[i].bit;
    }
    return true;
}

// True when the targets are distinct and carry no condition. Coinciding qubits are the host's mistake; they take the
// loop over single amplitudes, which stays inside the array.
template <std::size_t K>
bool are_distinct(const std::array<unsigned long, K>& targets, condition where) {
    unsigned long seen = where.fixed;
    for (const unsigned long target : targets) {
        if (seen & target) return false;
        seen |= target;
    }
    return true;
}

template <class T>
bool is_larger_than_l2(unsigned long nbqbits) {
    return (sizeof(thrust::complex<T>) << nbqbits) > (2ul << 20);
}

// Strides of 128 bytes to 16 KiB between the two halves of a group leave runs too short for the hardware prefetcher.
// Two strides, or at least 8 KiB, ahead is where the loop will be a few hundred cycles later.
template <class T>
unsigned long prefetch_distance(unsigned long nbqbits, unsigned long target) {
    constexpr unsigned long amplitude = sizeof(thrust::complex<T>);
    const unsigned long stride = target * amplitude;
    if (!is_larger_than_l2<T>(nbqbits) || stride < 128 || stride > (16ul << 10)) return 0;
    return std::max((8ul << 10) / amplitude, 2 * target);
}

}  // namespace velacamplix::kernels
