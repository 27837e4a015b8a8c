#pragma once

#include "export.hpp"
#include "program.hpp"
#include "statevector.hpp"

#include <cstring>
#include <functional>
#include <type_traits>
#include <vector>

// Many runs, each on a state of its own that starts from |0...0> or from a given state.
//
// States of less than 2^18 amplitudes are made one per thread, larger ones one after another by all threads together.
// Either way the bits are those of program::run, for every number of threads. Batches may be run on several host
// threads at once and inside a host's own parallel region, each with programs of its own.

namespace pbamplix::cpu {

// Takes the state that run `index` (0 = first) has made. Called once for every run, in no fixed order, on the thread
// that made the state, several at a time. It may read, measure and change the state, but not resize or release it.
// Which random numbers state.rng has depends on the thread: whoever draws seeds it first. What it throws ends the batch
// and goes on to the caller.
template <class T>
using batch_result = std::function<void(unsigned long index, PybindAmplixStateVectorCPU<T>& state)>;

template <class T>
struct batch_settings {
    int nthreads = 1;                                        // a request as for get_num_threads
    const PybindAmplixStateVectorCPU<T>* initial = nullptr;  // what every state starts from; null: |0...0>

    // Hears now and then, on the calling thread, how many runs are done and how many there are; where `result` does not
    // keep that thread, until all threads have ended. False ends the batch: runs under way stop soon, and their states
    // are handed to nobody. What it throws ends the batch too.
    std::function<bool(unsigned long done, unsigned long total)> hook = {};
};

// Runs every program once: run i is that of programs[i]. Returns how many states were handed to `result`: all, unless
// the hook ended the batch.
//
// All states there are at a time, one per thread or one, are asked for together before any run; std::bad_alloc after
// the memory guard's message where they do not fit. Throws std::invalid_argument for an empty `result`, programs that
// differ in their number of qubits or were moved from, and an initial state without amplitudes or with fewer qubits.
// States have as many qubits as `initial`, otherwise as the programs.
template <class T>
VELACAMPLIX_API unsigned long run_batch(std::vector<program<T>>& programs,
                                        const std::type_identity_t<batch_result<T>>& result,
                                        const std::type_identity_t<batch_settings<T>>& settings = {});

// Runs one program once for every set of angles. angles[i] has those of run i: the angles of gates[0], then those of
// gates[1], and so on, as many as each takes (program::angle_count). The program itself keeps its own angles. Throws
// std::out_of_range for a gate that the program lacks, std::invalid_argument for one without angles and for a set of
// another length, before any run.
template <class T>
VELACAMPLIX_API unsigned long run_batch(const program<T>& list, const std::vector<unsigned long>& gates,
                                        const std::vector<std::vector<double>>& angles,
                                        const std::type_identity_t<batch_result<T>>& result,
                                        const std::type_identity_t<batch_settings<T>>& settings = {});

// A result that copies the 2^n amplitudes of run i to amplitudes[i * 2^n] and those behind it. The address need only
// suit a T.
template <class T>
batch_result<T> collect_in(thrust::complex<T>* amplitudes) {
    return [to = reinterpret_cast<T*>(amplitudes)](unsigned long index, PybindAmplixStateVectorCPU<T>& state) {
        const unsigned long parts = 2 * state.size;
        std::memcpy(to + index * parts, reinterpret_cast<const T*>(state.amplitudes.get()), parts * sizeof(T));
    };
}

}  // namespace pbamplix::cpu
