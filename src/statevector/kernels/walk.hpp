#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/kernels/kernel_call.hpp"

#include <array>

namespace velacamplix::kernels {

// The index bits with a condition: controls, and the targets of phase gates. Only indices whose bits under `fixed`
// equal `ones` are visited.
struct condition {
    unsigned long fixed = 0;
    unsigned long ones = 0;
};

inline condition all_ones(unsigned long controls) { return {controls, controls}; }

// Fills the fields of a call that say which groups of 2^nbqbits amplitudes are visited, in packs V. `outer_targets`
// are the bits that tell the packs of a group apart, `group_packs` how many packs of them are touched.
template <class V, class T>
void select_groups(kernel_call<T>& call, unsigned long nbqbits, condition where, unsigned long outer_targets,
                   unsigned group_packs) {
    constexpr unsigned long inside = lanes<V> - 1;
    call.fixed = (where.fixed & ~inside) | outer_targets | inside;
    call.ones = where.ones & ~inside;
    call.lane_fixed = where.fixed & inside;
    call.lane_ones = where.ones & inside;
    const auto free_bits = static_cast<unsigned>(std::popcount(index::low_bits(nbqbits) & ~call.fixed));
    call.units = 1ul << free_bits;
    call.bytes = call.units * group_packs * sizeof(V);
}

// The lanes of a pack that satisfy the conditions on its inner index bits.
template <class V, class T>
bits_of<V> lane_mask(const kernel_call<T>& call) {
    bits_of<V> mask{};
    for (unsigned lane = 0; lane < lanes<V>; ++lane) {
        if ((lane & call.lane_fixed) == call.lane_ones) mask[2 * lane] = mask[2 * lane + 1] = -1;
    }
    return mask;
}

// Visits the units begin ... end - 1 in increasing order, `at_once` of them (a power of two) wherever that many follow
// each other from a multiple of it, else one. body(at) gets the addresses of their bases in an array, as many as are
// visited together; it should read all of them before it writes. It stands in two loops; a body of some length says
// always_inline, or else whether it is called or inlined depends on how much else the file holds. `prefetch(at)` runs
// ahead, for one address, where the call asks for it.
template <class V, unsigned at_once, class T, class Prefetch, class Body>
[[gnu::always_inline]] inline void walk(const kernel_call<T>& call, thrust::complex<T>* state, unsigned long begin,
                                        unsigned long end, Prefetch prefetch, Body body) {
    using amplitude = thrust::complex<T>;
    // Indices and addresses are counted in bytes, as plain numbers: then one addition makes an address of an index
    // (16 bytes are more than an address scales by), and what stays the same is added up before the loop.
    const unsigned long free = ~call.fixed * sizeof(amplitude);
    const unsigned long ahead = call.prefetch * sizeof(amplitude);
    const auto at = [](unsigned long address) { return reinterpret_cast<amplitude*>(address); };
    // From one base to the next is a chain of operations of which each waits for the one before. Units visited
    // together share one: they differ in the lowest free bits, so that they lie at the same distances everywhere.
    std::array<unsigned long, at_once> first;
    unsigned long distance = 0;
    for (unsigned long& address : first) {
        address = reinterpret_cast<unsigned long>(state + call.ones) + distance;
        distance = index::next_within(distance, free);
    }
    const unsigned long common = free & ~(first[at_once - 1] - first[0]);
    unsigned long base = index::deposit(begin, free);
    while (begin < end) {
        if (at_once > 1 && begin % at_once == 0) {
            unsigned long steps = (end - begin) / at_once;
            begin += steps * at_once;
            for (; steps != 0; --steps) {
                std::array<amplitude*, at_once> units;
                for (unsigned k = 0; k < at_once; ++k) {
                    if (ahead) prefetch(at(first[k] + base + ahead));
                    units[k] = at(first[k] + base);
                }
                body(units);
                base = index::next_within(base, common);
            }
            if (begin == end) return;
        }
        if (ahead) prefetch(at(first[0] + base + ahead));
        body(std::array{at(first[0] + base)});
        base = index::next_within(base, free);
        ++begin;
    }
}

}  // namespace velacamplix::kernels
