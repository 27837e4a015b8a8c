#include "statevector/replay/pass.hpp"

#include "statevector/index/bits.hpp"

#include <algorithm>
#include <cstring>

namespace velacamplix::replay {

gathering::gathering(unsigned long positions) {
    run_bits = static_cast<unsigned>(std::countr_one(positions));
    const unsigned long outer = positions & ~index::low_bits(run_bits);
    const unsigned long runs = 1ul << std::popcount(outer);
    for (unsigned long run = 0; run < runs; ++run) offsets.push_back(index::deposit(run, outer));
}

template <class T>
void gathering::copy_in(const thrust::complex<T>* array, unsigned long base, thrust::complex<T>* buffer) const {
    const unsigned long length = 1ul << run_bits;
    for (const unsigned long offset : offsets) {
        std::memcpy(static_cast<void*>(buffer), array + (base | offset), length * sizeof(thrust::complex<T>));
        buffer += length;
    }
}

template <class T>
void gathering::copy_out(const thrust::complex<T>* buffer, thrust::complex<T>* array, unsigned long base) const {
    const unsigned long length = 1ul << run_bits;
    for (const unsigned long offset : offsets) {
        std::memcpy(static_cast<void*>(array + (base | offset)), buffer, length * sizeof(thrust::complex<T>));
        buffer += length;
    }
}

template <class T>
bool chunk_pass<T>::acts_on(unsigned long base) const {
    return std::any_of(blocks.begin(), blocks.end(), [base](const block_pass<T>& block) {
        return std::any_of(block.steps.begin(), block.steps.end(), [&block, base](const step<T>& s) {
            return (base & s.required) == (s.required & ~block.outer_bits);
        });
    });
}

namespace {

// Copying a chunk's blocks in and out costs about as much as one gate over the chunk.
constexpr unsigned long fewest_gates_worth_blocks = 3;

template <class T>
block_pass<T> make_block(const std::vector<gates::operation<T>>& operations, const stretch& part,
                         const locality& chunk) {
    block_pass<T> block;
    block.whole_chunk = part.local == 0 || part.last - part.first < fewest_gates_worth_blocks;
    if (block.whole_chunk) {
        for (unsigned long gate = part.first; gate < part.last; ++gate) {
            block.steps.push_back(resolve(operations[gate], chunk));
        }
        return block;
    }
    block.positions = part.local;
    block.outer_positions = index::low_bits(chunk.bits.size()) & ~part.local;
    block.outer_bits = index::deposit(block.outer_positions, chunk.mask());
    block.in_place = std::countr_one(part.local) == std::popcount(part.local);
    block.blocks = gathering(part.local);
    const locality inner(index::deposit(part.local, chunk.mask()));
    for (unsigned long gate = part.first; gate < part.last; ++gate) {
        block.steps.push_back(resolve(operations[gate], inner));
    }
    return block;
}

template <class T>
chunk_pass<T> make_pass(const std::vector<gates::operation<T>>& operations, const std::vector<footprint>& footprints,
                        const stretch& part, unsigned nbqbits, buffer_shape block_shape) {
    chunk_pass<T> pass;
    pass.first = part.first;
    pass.last = part.last;
    pass.local = part.local;
    pass.in_place = part.local == index::low_bits(nbqbits);
    if (part.local == 0 || (part.last - part.first == 1 && !pass.in_place)) {
        pass.local = 0;
        pass.whole_array = gates::prepare(operations[part.first], nbqbits);
        return pass;
    }
    const locality chunk(part.local);
    pass.chunks = gathering(part.local);
    std::vector<footprint> inside(footprints.size());
    for (unsigned long gate = part.first; gate < part.last; ++gate) inside[gate] = {chunk.inside(footprints[gate].mixed)};
    const auto chunk_bits = static_cast<unsigned>(chunk.bits.size());
    if (chunk_bits <= block_shape.local_bits) {
        pass.blocks.push_back(make_block(operations, {part.first, part.last, 0}, chunk));
        return pass;
    }
    for (const stretch& block : cut(inside, part.first, part.last, chunk_bits, block_shape)) {
        pass.blocks.push_back(make_block(operations, block, chunk));
    }
    return pass;
}

template <class T>
void run_block(const block_pass<T>& block, thrust::complex<T>* chunk, unsigned long base, thrust::complex<T>* buffer) {
    if (block.whole_chunk) {
        for (const step<T>& s : block.steps) {
            if (s.acts_on(base)) s.run(chunk, base);
        }
        return;
    }
    const unsigned long count = 1ul << std::popcount(block.outer_positions);
    for (unsigned long b = 0; b < count; ++b) {
        const unsigned long at = index::deposit(b, block.outer_positions);
        const unsigned long block_base = base | index::deposit(b, block.outer_bits);
        thrust::complex<T>* const amplitudes = block.in_place ? chunk + at : buffer;
        if (!block.in_place) block.blocks.copy_in(chunk, at, buffer);
        for (const step<T>& s : block.steps) {
            if (s.acts_on(block_base)) s.run(amplitudes, block_base);
        }
        if (!block.in_place) block.blocks.copy_out(buffer, chunk, at);
    }
}

}  // namespace

template <class T>
cache_shapes choose_shapes(unsigned nbqbits, int threads) {
    constexpr unsigned single = sizeof(T) == 4 ? 1 : 0;  // twice as many amplitudes fit
    unsigned chunk_bits = 15 + single;
    // Enough chunks for every thread, while a second thread pays at all.
    if (threads != 1 && nbqbits >= 15 + single) chunk_bits = std::min(chunk_bits, nbqbits - 2);
    return {{5 + single, chunk_bits}, {4 + single, 10 + single}};
}

template <class T>
std::vector<chunk_pass<T>> make_passes(const std::vector<gates::operation<T>>& operations, unsigned nbqbits,
                                       cache_shapes shapes) {
    std::vector<footprint> footprints;
    footprints.reserve(operations.size());
    for (const auto& op : operations) footprints.push_back({op.is_diagonal() ? 0 : op.target_mask()});
    std::vector<chunk_pass<T>> passes;
    for (const stretch& part : cut(footprints, 0, operations.size(), nbqbits, shapes.chunk)) {
        passes.push_back(make_pass(operations, footprints, part, nbqbits, shapes.block));
    }
    return passes;
}

template <class T>
void run_chunks(const chunk_pass<T>& pass, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, pass_buffers<T> buffers) {
    const unsigned long outer = index::low_bits(nbqbits) & ~pass.local;
    for (unsigned long c = begin; c < end; ++c) {
        const unsigned long base = index::deposit(c, outer);
        if (!pass.acts_on(base)) continue;
        thrust::complex<T>* const chunk = pass.in_place ? state : buffers.chunk;
        if (!pass.in_place) pass.chunks.copy_in(state, base, chunk);
        for (const block_pass<T>& block : pass.blocks) run_block(block, chunk, base, buffers.block);
        if (!pass.in_place) pass.chunks.copy_out(chunk, state, base);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                  \
    template struct chunk_pass<T>;                                                                                  \
    template cache_shapes choose_shapes<T>(unsigned, int);                                                          \
    template std::vector<chunk_pass<T>> make_passes<T>(const std::vector<gates::operation<T>>&, unsigned,           \
                                                       cache_shapes);                                               \
    template void run_chunks<T>(const chunk_pass<T>&, thrust::complex<T>*, unsigned, unsigned long, unsigned long,  \
                                pass_buffers<T>);
VELACAMPLIX_INSTANTIATE(float)
VELACAMPLIX_INSTANTIATE(double)

}  // namespace velacamplix::replay
