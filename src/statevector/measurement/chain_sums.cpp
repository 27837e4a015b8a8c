#include "statevector/measurement/chain_sums.hpp"

namespace velacamplix::measurement {
namespace {

// Adds the lowest bits of `from` to `joined` until it has `wanted`.
unsigned long join_lowest(unsigned long from, unsigned wanted) {
    unsigned long joined = 0;
    for (; from != 0 && index::count_bits(joined) < wanted; from &= from - 1) joined |= from & -from;
    return joined;
}

// The bits of the qubits listed last, which are the lowest of a slot: joined, a tile writes runs of neighbouring slots.
unsigned long join_last(const std::vector<unsigned int>& listed, unsigned long from, unsigned wanted) {
    unsigned long joined = 0;
    for (std::size_t j = 0; j < wanted && j < listed.size(); ++j) {
        joined |= index::bit(listed[listed.size() - 1 - j]) & from;
    }
    return joined;
}

}  // namespace

tile_shape::tile_shape(const std::vector<unsigned int>& listed, unsigned int n, unsigned long bytes, int nthreads) {
    // With a sum for every 64 elements or fewer, writing the slots costs as much as reading the view.
    const bool many_slots = listed.size() + 6 >= n;
    const unsigned long mask = index::mask_of(listed);
    piece_bits = std::min(many_slots ? 6u : 8u, n);
    const unsigned long inside = index::low_bits(piece_bits);
    const unsigned long above = mask & ~inside;
    const unsigned chain_bits_inside = index::count_bits(mask & inside);

    unsigned long joined;
    if (many_slots) {
        joined = join_last(listed, above, 4);
    } else {
        joined = chain_bits_inside < 3 ? join_lowest(above, 3 - chain_bits_inside) : 0;
        // Rather fewer chains side by side than threads without work.
        const unsigned long team = storage::most_bodies(~0ul, bytes, nthreads);
        while (joined != 0 && (1ul << index::count_bits(above & ~joined)) < team) joined &= joined - 1;
    }
    pieces = 1u << index::count_bits(joined);
    chains = pieces << chain_bits_inside;
    chain_length = 1u << (piece_bits - chain_bits_inside);
    side_by_side = (mask & (at_once - 1)) == at_once - 1;
    outer = above & ~joined;
    steps = index::low_bits(n) & ~inside & ~mask;

    const auto place = [&](unsigned long i) { return index::extract(i, joined) << piece_bits | (i & inside); };
    const auto index_of_chain = [&](unsigned long c) {
        return index::deposit(c, mask & inside) | index::deposit(c >> chain_bits_inside, joined);
    };
    const unsigned long tile_slots = outcome_of_listed((mask & inside) | joined, listed);
    index::fill_by_bits(piece_at, pieces, [&](unsigned long p) { return index::deposit(p, joined); });
    index::fill_by_bits(chain_at, chains, [&](unsigned long c) { return place(index_of_chain(c)); });
    index::fill_by_bits(element_at, chain_length, [&](unsigned long e) { return index::deposit(e, inside & ~mask); });
    index::fill_by_bits(slot, chains, [&](unsigned long c) { return index::deposit(c, tile_slots); });
    index::fill_by_bits(chain_of_slot, chains, [&](unsigned long c) {
        const unsigned long i = index::place_first_highest(index::deposit(c, tile_slots), listed);
        return index::extract(i, joined) << chain_bits_inside | index::extract(i, mask & inside);
    });
}

}  // namespace velacamplix::measurement
