#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "observable.hpp"
#include "work_hook.hpp"

#include <vector>

// Derivatives of expectation values <psi|H|psi> by the angles of a program: program::gradient in program.hpp.

namespace pbamplix::cpu {

template <class T>
class PybindAmplixStateVectorCPU;

template <class T>
struct gradient_settings {
    int nthreads = 1;                                        // a request as for get_num_threads
    const PybindAmplixStateVectorCPU<T>* initial = nullptr;  // what the program acts on; null: |0...0>

    unsigned long most_states = 31;  // that are held at a time, at least 2; more observables take their turns

    // Hears between passes how much is done, in gates on one state. What it throws ends the call.
    work_hook hook = {};
};

struct gradient_result {
    std::vector<double> values;       // <psi|H|psi> of every observable
    std::vector<double> derivatives;  // a row for every observable: of each gate asked for, of each of its angles
    // The norm of the difference between the initial state and what the way back through all gates makes of the final
    // one: rounding. With NaN or infinity in a state it is one of these too.
    double return_error = 0;
};

// Writes H|psi>, H the observable with its constant, to `out`, 2^qubits amplitudes each. Products are formed in T,
// their factors, the sums of coefficients, in double. The bits do not depend on the number of threads. The hook counts
// amplitudes.
template <class T>
VELACAMPLIX_API void apply_observable(const thrust::complex<T>* psi, const WObservable<double>& observable,
                                      unsigned int qubits, int nthreads, thrust::complex<T>* out,
                                      const work_hook& hook = {});

}  // namespace pbamplix::cpu
