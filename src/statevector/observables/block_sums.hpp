#pragma once

#include "statevector/storage/parallel.hpp"

#include <velacamplix/work_hook.hpp>

#include <algorithm>

// Sums over the whole state that are cut into blocks of a fixed size. Threads share the blocks; their sums are added in
// block order. So the bits of a sum do not depend on the number of threads.

namespace velacamplix::observables {

inline constexpr unsigned block_bits = 16;  // amplitudes of a block: 2^16

// Blocks that are worked on before their sums are added: enough for any team, few enough for a fraction of a second.
inline constexpr unsigned long blocks_at_once = 64;

// Calls sum(block, slot) for all blocks, on several threads, and add(block, slot) for each after it, in block order on
// the calling thread. Slots are numbers below blocks_at_once; blocks that share one follow each other. `bytes` is what
// a block touches. The hook hears of `all`, in parts.
template <class Sum, class Add>
void sum_in_blocks(unsigned long blocks, unsigned long bytes, unsigned long all, int nthreads,
                   const pbamplix::work_hook& hook, Sum sum, Add add) {
    for (unsigned long first = 0; first < blocks; first += blocks_at_once) {
        const unsigned long count = std::min(blocks - first, blocks_at_once);
        storage::parallel_shares(count, count * bytes, nthreads, [&](unsigned long begin, unsigned long end) {
            for (unsigned long slot = begin; slot < end; ++slot) sum(first + slot, slot);
        });
        for (unsigned long slot = 0; slot < count; ++slot) add(first + slot, slot);
        const double done = static_cast<double>(first + count) / static_cast<double>(blocks);
        if (hook) hook(static_cast<unsigned long>(done * static_cast<double>(all)), all);
    }
}

}  // namespace velacamplix::observables
