#include "statevector/replay/plan.hpp"

#include "statevector/index/bits.hpp"

#include <algorithm>

namespace velacamplix::replay {
namespace {

unsigned count_bits(unsigned long mask) { return static_cast<unsigned>(std::popcount(mask)); }

}  // namespace

unsigned long fill_up(unsigned long local, unsigned nbqbits, unsigned wanted) {
    while (count_bits(local) < wanted) {
        const unsigned long free_bits = index::low_bits(nbqbits) & ~local;
        local |= free_bits & -free_bits;
    }
    return local;
}

// Taking gates as long as they fit is optimal while the order stands: a stretch that ends earlier can only make the
// next one start earlier.
std::vector<stretch> cut(const std::vector<footprint>& gates, unsigned long begin, unsigned long end, unsigned nbqbits,
                         buffer_shape shape) {
    const unsigned places = std::min(shape.local_bits, nbqbits);
    const unsigned long always = index::low_bits(std::min(shape.run_bits, places));
    std::vector<stretch> stretches;
    for (unsigned long gate = begin; gate < end;) {
        stretch next{gate, gate, always};
        while (next.last < end && count_bits(next.local | gates[next.last].mixed) <= places) {
            next.local |= gates[next.last++].mixed;
        }
        if (next.first == next.last) {
            next = {gate, gate + 1, 0};
        } else {
            next.local = fill_up(next.local, nbqbits, places);
        }
        stretches.push_back(next);
        gate = next.last;
    }
    return stretches;
}

}  // namespace velacamplix::replay
