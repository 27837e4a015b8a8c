#pragma once

#include "statevector/replay/plan.hpp"
#include "statevector/replay/step.hpp"

#include <vector>

namespace velacamplix::replay {

// Moves the amplitudes of a chunk between an array and a buffer: the buffer's 2^local amplitudes are runs of
// 2^run_bits, run r standing at base + offsets[r] of the array.
struct gathering {
    unsigned run_bits = 0;
    std::vector<unsigned long> offsets;

    // `positions`: the array's index bits that are local.
    explicit gathering(unsigned long positions);

    template <class T>
    void copy_in(const thrust::complex<T>* array, unsigned long base, thrust::complex<T>* buffer) const;
    template <class T>
    void copy_out(const thrust::complex<T>* buffer, thrust::complex<T>* array, unsigned long base) const;
};

// Gates that act on one block of a chunk after another, each block small enough for the first-level cache.
template <class T>
struct block_pass {
    std::vector<step<T>> steps;
    bool whole_chunk = false;            // the gates run over the chunk as it is
    bool in_place = false;               // the blocks are contiguous in the chunk: nothing is copied
    unsigned long positions = 0;         // the chunk's index bits that are local to a block
    unsigned long outer_positions = 0;   // and those that are not
    unsigned long outer_bits = 0;        // the same as bits of the state's index
    gathering blocks{0};
};

// Gates first ... last - 1, acting on one chunk of the state after another, each chunk small enough for the
// second-level cache.
template <class T>
struct chunk_pass {
    unsigned long first = 0;
    unsigned long last = 0;
    unsigned long local = 0;             // 0: one gate over the whole array, as a single call
    kernels::kernel_call<T> whole_array;
    bool in_place = false;               // the state is one chunk
    gathering chunks{0};
    std::vector<block_pass<T>> blocks;

    bool acts_on(unsigned long base) const;
};

struct cache_shapes {
    buffer_shape chunk;
    buffer_shape block;
};

// The buffers that suit a state of 2^nbqbits amplitudes T worked on by `threads` threads.
template <class T>
cache_shapes choose_shapes(unsigned nbqbits, int threads);

template <class T>
std::vector<chunk_pass<T>> make_passes(const std::vector<gates::operation<T>>& operations, unsigned nbqbits,
                                       cache_shapes shapes);

// Buffers of one thread.
template <class T>
struct pass_buffers {
    thrust::complex<T>* chunk;
    thrust::complex<T>* block;
};

// Runs a pass over the chunks begin ... end - 1 of the state (of which there are 2^(nbqbits - local bits)).
template <class T>
void run_chunks(const chunk_pass<T>& pass, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, pass_buffers<T> buffers);

}  // namespace velacamplix::replay
