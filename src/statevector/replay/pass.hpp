#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/plan/layers.hpp"
#include "statevector/replay/chunk_copies.hpp"
#include "statevector/replay/step.hpp"

#include <functional>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace velacamplix::replay {

// What a pass does is one of three things.

// One gate, as a single call over the whole array.
template <class T>
struct whole_array {
    kernels::kernel_call<T> call;
};

// Steps on a state that is no larger than a buffer, where it stands.
template <class T>
struct in_place {
    std::vector<step<T>> steps;
};

// Steps on one chunk of the state after another, each copied into a buffer that fits the first-level cache.
template <class T>
struct chunked {
    unsigned long local;  // index bits that vary inside a chunk
    gathering chunks;
    std::vector<step<T>> steps;

    unsigned long chunk_size() const { return 1ul << index::count_bits(local); }  // amplitudes
    unsigned long chunk_count(unsigned nbqbits) const { return 1ul << (nbqbits - index::count_bits(local)); }
};

template <class T>
using pass_work = std::variant<whole_array<T>, in_place<T>, chunked<T>>;

template <class T>
struct pass {
    std::vector<unsigned long> gates;  // of the list; empty with fusion, where none of them acts by itself
    unsigned long first = 0;           // all gates of the pass are among first ... last - 1
    unsigned long last = 0;
    unsigned long done = 0;      // gates that have acted when the pass ends; inside a fused batch an estimate
    bool may_stop_after = true;  // with fusion: the state is that of the first `done` gates
    bool is_outdated = false;    // a gate's numbers have changed since
    pass_work<T> work;
};

// What a layer of operations, whose bits `local` must be together in a buffer, does to a state of 2^nbqbits amplitudes.
// 0: one operation over the whole array.
template <class T>
pass_work<T> make_work(const std::vector<const gates::operation<T>*>& operations, unsigned long local,
                       unsigned nbqbits);

// The same operations with other numbers.
template <class T>
void renew(pass<T>& outdated, std::span<const gates::operation<T>> operations, unsigned nbqbits);

// Asked once in a few milliseconds of planning, after every gates_between_questions gates; false ends it, with the
// passes so far.
using planning_hook = std::function<bool()>;
inline constexpr unsigned long gates_between_questions = 4096;

template <class T>
std::vector<pass<T>> make_passes(std::span<const gates::operation<T>> operations, unsigned nbqbits,
                                 plan::buffer_shape shape, const planning_hook& go_on = {});

// The same with fusion: gates are taken in batches, each rewritten on its own. The passes follow from the gates, the
// number of qubits and the precision alone.
template <class T>
std::vector<pass<T>> make_fused_passes(std::span<const gates::operation<T>> operations, unsigned nbqbits,
                                       const planning_hook& go_on = {});

template <class T>
void run_steps(const in_place<T>& work, thrust::complex<T>* state);

// The chunks begin ... end - 1 of the state. The next one, if it is below `share_end`, is asked for meanwhile. `buffer`
// holds one chunk, `state` the amplitudes from `origin` on.
template <class T>
void run_chunks(const chunked<T>& work, thrust::complex<T>* state, unsigned nbqbits, unsigned long begin,
                unsigned long end, unsigned long share_end, thrust::complex<T>* buffer, unsigned long origin = 0);

// Writes the chunks of a state that was a basis state, which nobody has written, as the steps leave them. All chunks
// but one are zeros. Of these the steps make the same as long as the bits of the base by which they choose are the
// same: one stands for all. No sign of a zero is different from that of a chunk worked on by itself.
template <class T>
class basis_state_chunks {
public:
    // `buffer` holds one chunk.
    basis_state_chunks(const chunked<T>& work, unsigned nbqbits, unsigned long basis_state, thrust::complex<T>* buffer);

    // The chunks begin ... end - 1, in an order in which those that are the same follow each other. Each is written
    // once if all of them are asked for once.
    void write(thrust::complex<T>* state, unsigned long begin, unsigned long end);

private:
    void work_on(unsigned long base);

    const chunked<T>& work_;
    unsigned long outer_, choosing_;  // index bits outside a chunk; those of them by which steps choose
    unsigned long basis_state_;
    thrust::complex<T>* buffer_;
    std::optional<unsigned long> zeros_;  // the choosing bits of the zeros whose outcome the buffer holds
};

}  // namespace velacamplix::replay
