#include "statevector/index/bits.hpp"

#include <velacamplix/index.hpp>

namespace vela::core::iterator {

using velacamplix::index::bit;
using velacamplix::index::low_bits;
using velacamplix::index::place_first_highest;

StateIterator::StateIterator(std::vector<unsigned int> targets, std::vector<unsigned int> controls,
                             unsigned long nbqbits)
    : free_mask(low_bits(nbqbits)),
      control_mask(0),
      count(1ul << ((nbqbits - controls.size() - targets.size()) & 63)),
      local_size(1ul << (targets.size() & 63)),
      offsets(local_size) {
    for (const unsigned int c : controls) {
        if (c < nbqbits) control_mask |= bit(c);
    }
    for (const unsigned int q : targets) free_mask &= ~bit(q);
    free_mask &= ~control_mask;
    for (unsigned long local = 0; local < local_size; ++local) offsets[local] = place_first_highest(local, targets);
}

}  // namespace vela::core::iterator
