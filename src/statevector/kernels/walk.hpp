#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/kernels/kernel_call.hpp"

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

// Calls body(base) for the units begin ... end - 1 in increasing order. It stands in three loops; a body of some length
// says always_inline, or else whether it is called or inlined depends on how much else the file holds. `prefetch(base)`
// runs ahead of the body where the call asks for it.
template <class V, class T, class Prefetch, class Body>
[[gnu::always_inline]] inline void walk(const kernel_call<T>& call, unsigned long begin, unsigned long end,
                                        Prefetch prefetch, Body body) {
    const unsigned long fixed = call.fixed;
    const unsigned long ones = call.ones;
    const unsigned long ahead = call.prefetch;
    // The lowest bits, inside the pack and perhaps some above, are fixed without a gap: units lie a constant stride
    // apart until the next fixed bit interrupts them.
    const int solid = std::countr_one(fixed);
    const unsigned long stride = 1ul << solid;
    const unsigned long interrupting = fixed >> solid;
    const unsigned long run = interrupting != 0 ? 1ul << std::countr_zero(interrupting) : 1ul << 63;
    unsigned long base = index::deposit(begin, ~fixed) | ones;
    if (run < 4) {
        for (unsigned long unit = begin; unit < end; ++unit) {
            if (ahead) prefetch(base + ahead);
            body(base);
            base = index::next(base, ~fixed) | ones;
        }
        return;
    }
    while (begin < end) {
        const unsigned long length = std::min(run - (begin & (run - 1)), end - begin);
        const unsigned long stop = base + length * stride;
        if (ahead) {
            for (; base != stop; base += stride) {
                prefetch(base + ahead);
                body(base);
            }
        } else {
            for (; base != stop; base += stride) body(base);
        }
        begin += length;
        base = index::next(stop - stride, ~fixed) | ones;
    }
}

}  // namespace velacamplix::kernels
