#pragma once

#include "statevector/measurement/outcomes.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <cstdint>

// Marginal sums in one pass over a view.
//
// A chain is the elements that agree on the listed qubits. They are added one after another in index order, starting
// from +0, so a chain's sum does not depend on how the work is shared. One chain alone would wait for each addition to
// finish before the next can start; so a thread works on a tile, several chains side by side, and reads memory in
// pieces of neighbouring elements whose probabilities it first forms with wide packs.

namespace velacamplix::measurement {

struct tile_shape {
    static constexpr unsigned most_chains = 1024;
    static constexpr unsigned most_elements = 2048;  // of all the pieces that are worked on at a time
    static constexpr unsigned at_once = 8;           // chains whose running sums are kept in registers

    unsigned piece_bits;    // a piece has 2^piece_bits neighbouring elements
    unsigned pieces;        // per step; they differ in the joined bits
    unsigned chains;        // per tile
    unsigned chain_length;  // elements of one chain inside one piece
    bool side_by_side;      // the chains worked on at once lie next to each other in a piece
    unsigned long outer;    // listed bits that tell tiles apart
    unsigned long steps;    // free bits above the piece, which a tile walks through upwards

    unsigned long piece_at[16];                // index of a piece relative to the step's
    std::uint16_t chain_at[most_chains];       // first element of a chain in the buffer of pieces
    std::uint16_t element_at[1 << 8];          // the others relative to it
    std::uint16_t chain_of_slot[most_chains];  // which chain the tile's slots, in increasing order, belong to
    unsigned long slot[most_chains];           // these slots, relative to the tile's lowest

    // `listed`: distinct qubits of a view of n; `bytes`, `nthreads`: as for parallel_shares, which shares the tiles.
    tile_shape(const std::vector<unsigned int>& listed, unsigned int n, unsigned long bytes, int nthreads);
};

// Adds one step's pieces to the sums of `count` <= at_once chains, whichever places they have.
template <unsigned count, class T>
[[gnu::always_inline]] inline void add_scattered(const tile_shape& shape, const T* pieces, unsigned first, T* sums) {
    const T* chain[count];
    T sum[count];
    for (unsigned c = 0; c < count; ++c) {
        chain[c] = pieces + shape.chain_at[first + c];
        sum[c] = sums[first + c];
    }
    for (unsigned e = 0; e < shape.chain_length; ++e) {
        const unsigned at = shape.element_at[e];
#pragma GCC unroll 8
        for (unsigned c = 0; c < count; ++c) sum[c] += chain[c][at];
    }
    for (unsigned c = 0; c < count; ++c) sums[first + c] = sum[c];
}

template <class T>
[[gnu::always_inline]] inline void add_neighbours(const tile_shape& shape, const T* pieces, unsigned first, T* sums) {
    constexpr std::size_t bytes = std::min(packs::widest_bytes, tile_shape::at_once * sizeof(T));
    using V = typename packs::pack_type<T, bytes>::type;
    constexpr unsigned packs = tile_shape::at_once * sizeof(T) / bytes;
    const T* chain = pieces + shape.chain_at[first];
    V sum[packs];
    for (unsigned v = 0; v < packs; ++v) sum[v] = packs::load_scalars<V>(sums + first + v * packs::scalars<V>);
    for (unsigned e = 0; e < shape.chain_length; ++e) {
        const T* at = chain + shape.element_at[e];
        for (unsigned v = 0; v < packs; ++v) sum[v] += packs::load_scalars<V>(at + v * packs::scalars<V>);
    }
    for (unsigned v = 0; v < packs; ++v) packs::store_scalars(sums + first + v * packs::scalars<V>, sum[v]);
}

template <class T>
inline void add_step(const tile_shape& shape, const T* pieces, T* sums) {
    constexpr unsigned at_once = tile_shape::at_once;
    switch (shape.chains) {
        case 1:
            return add_scattered<1>(shape, pieces, 0, sums);
        case 2:
            return add_scattered<2>(shape, pieces, 0, sums);
        case 4:
            return add_scattered<4>(shape, pieces, 0, sums);
        default:
            break;
    }
    if (shape.side_by_side) {
        for (unsigned c = 0; c < shape.chains; c += at_once) add_neighbours(shape, pieces, c, sums);
    } else {
        for (unsigned c = 0; c < shape.chains; c += at_once) add_scattered<at_once>(shape, pieces, c, sums);
    }
}

// Calls sink(slot, sum) once for each of the 2^k values of k listed qubits (distinct, all in the view). The first
// listed qubit is the slot's most significant bit. Each thread calls a copy of `sink`, destroyed when its share is
// done.
template <class View, class Sink>
void sum_chains(const View& view, const std::vector<unsigned int>& listed, int nthreads, const Sink& sink) {
    using T = typename View::proba_type;
    const unsigned long bytes = view.dim * 2 * sizeof(T);
    const tile_shape shape(listed, view.nqubits, bytes, nthreads);
    const unsigned long tiles = 1ul << std::popcount(shape.outer);
    const unsigned long piece_size = 1ul << shape.piece_bits;
    const unsigned long steps = 1ul << std::popcount(shape.steps);

    storage::parallel_shares(tiles, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        alignas(64) T pieces[tile_shape::most_elements];
        alignas(64) T sums[tile_shape::most_chains];
        Sink mine = sink;
        for (unsigned long tile = begin; tile < end; ++tile) {
            const unsigned long tile_base = index::deposit(tile, shape.outer);
            const unsigned long next_tile = index::deposit(tile + 1, shape.outer);
            std::fill_n(sums, shape.chains, T(0));
            unsigned long base = tile_base;
            for (unsigned long step = 0; step < steps; ++step) {
                const unsigned long next_step = index::next(base, shape.steps) | tile_base;
                const unsigned long next = step + 1 < steps ? next_step : next_tile;
                for (unsigned piece = 0; piece < shape.pieces; ++piece) {
                    const unsigned long at = shape.piece_at[piece];
                    fill_probabilities(view, base | at, piece_size, pieces + piece * piece_size, next | at);
                }
                add_step(shape, pieces, sums);
                base = next;
            }
            const unsigned long lowest_slot = outcome_of_listed(tile_base, listed);
            for (unsigned c = 0; c < shape.chains; ++c) {
                mine(lowest_slot | shape.slot[c], sums[shape.chain_of_slot[c]]);
            }
        }
    });
}

}  // namespace velacamplix::measurement
