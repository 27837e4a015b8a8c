#pragma once

#include "statevector/replay/plan.hpp"
#include "statevector/replay/step.hpp"

#include <functional>
#include <vector>

namespace velacamplix::replay {

// How the amplitudes of a chunk lie in the whole array: 2^local amplitudes in runs of 2^run_bits, run r standing at
// base + offsets[r].
struct gathering {
    unsigned run_bits = 0;
    std::vector<unsigned long> offsets;

    // `local`: the array's index bits that vary inside a chunk.
    explicit gathering(unsigned long local);
};

// Gates that act on one chunk of the state after another, each chunk small enough for the first-level cache.
template <class T>
struct chunk_pass {
    std::vector<unsigned long> gates;  // of the list; empty with fusion, where none of them acts by itself
    unsigned long first = 0;           // all gates of the pass are among first ... last - 1
    unsigned long last = 0;
    unsigned long done = 0;      // gates that have acted when the pass ends; inside a fused stretch an estimate
    bool may_stop_after = true;  // with fusion: the state is that of the first `done` gates
    bool is_outdated = false;    // a gate's numbers have changed since
    unsigned long local = 0;     // 0: one gate over the whole array, as a single call
    bool in_place = false;       // the state is one chunk
    kernels::kernel_call<T> whole_array;
    gathering chunks{0};
    std::vector<step<T>> steps;

    // Amplitudes of a buffer; 0 where none is needed.
    unsigned long chunk_size() const { return local == 0 || in_place ? 0 : 1ul << std::popcount(local); }
    unsigned long chunk_count(unsigned nbqbits) const {
        return 1ul << (nbqbits - static_cast<unsigned>(std::popcount(local)));
    }
};

// As the system tells it of the core that asks.
unsigned long first_level_cache_bytes();

// The chunks that suit a state of 2^nbqbits amplitudes T worked on by `threads` threads, whose first-level caches have
// so many bytes. The bits of an exact run do not depend on them.
template <class T>
buffer_shape choose_shape(unsigned nbqbits, int threads, unsigned long cache_bytes);

// The chunks of a fused run: which gates come together, and so the bits, depend on them. They follow from the precision
// alone, and suit the smallest first-level caches in use.
template <class T>
buffer_shape fused_shape();

template <class T>
chunk_pass<T> make_pass(const std::vector<gates::operation<T>>& operations, const stretch& part, unsigned nbqbits);

// Asked once in a few milliseconds of planning, after every gates_between_questions gates; false ends it, with the
// passes so far.
using planning_hook = std::function<bool()>;
inline constexpr unsigned long gates_between_questions = 4096;

template <class T>
std::vector<chunk_pass<T>> make_passes(const std::vector<gates::operation<T>>& operations, unsigned nbqbits,
                                       buffer_shape shape, const planning_hook& go_on = {});

// The same with fusion: gates are taken in stretches, each rewritten on its own. The passes follow from the gates, the
// number of qubits and the precision alone.
template <class T>
std::vector<chunk_pass<T>> make_fused_passes(const std::vector<gates::operation<T>>& operations, unsigned nbqbits,
                                             const planning_hook& go_on = {});

// Runs a pass over the chunks begin ... end - 1 of the state (of which there are 2^(nbqbits - local bits)). `buffer`
// holds one chunk.
template <class T>
void run_chunks(const chunk_pass<T>& pass, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, thrust::complex<T>* buffer);

}  // namespace velacamplix::replay
